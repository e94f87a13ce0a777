#include "links/zelvar-vita49protocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <thread>

#include "faketransport.h"
#include "log.h"
#include "packets.h"
#include "support/loopback.h"

using namespace VITA49Zelvar;
using testing::ElementsAre;
using testing::IsEmpty;
using utils::MemoryBlock;
using vnktest::FakeTransport;
using vnktest::PacketBytes;
using vnktest::waitUntil;

namespace {

/// Notes the slot and the packet of each call.
class Notes : public VITA49ZelvarProtocol::Listener {
 public:
    void handleReceiverContext(ReferencePtr<ReceiverContext> cPacket) override { note(0, cPacket); }
    void handleDigitizerContext(ReferencePtr<DigitizerContext> cPacket) override { note(1, cPacket); }
    void handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) override { note(2, cPacket); }
    void handleIFDataIQ14(ReferencePtr<IFDataIQ14> cPacket) override { note(3, cPacket); }
    void handleIFDataI14(ReferencePtr<IFDataI14> cPacket) override { note(4, cPacket); }
    void handleIFDataI24(ReferencePtr<IFDataI24> cPacket) override { note(5, cPacket); }

    std::vector<int> mlSlots;
    std::vector<ReferencePtr<Packet>> mlPackets;
    std::atomic<unsigned> muCalls{0};
    std::function<void()> mcOnCall;

 private:
    void note(int iSlot, ReferencePtr<Packet> cPacket) {
        mlSlots.push_back(iSlot);
        mlPackets.push_back(cPacket);
        muCalls.fetch_add(1);
        if (mcOnCall)
            mcOnCall();
    }
};

ReferencePtr<MemoryBlock> blockOf(const std::string& bytes) {
    return makeReference<MemoryBlock>(bytes);
}

/// The bytes of a packet as they came.
class RawPacket : public Packet {
 public:
    static std::string bytesOf(const Packet& cPacket) {
        const auto cBlock = cPacket.*(&RawPacket::mcBlock);
        return std::string(reinterpret_cast<const char*>(cBlock->getStorage()), cBlock->getSize());
    }
};

class ZelvarProtocol : public testing::Test {
 protected:
    ZelvarProtocol() { mcProtocol->addListener(&mcNotes); }
    void feed(const std::string& bytes) { EXPECT_TRUE(mcProtocol->onData(blockOf(bytes))); }
    std::vector<std::string> packets() const {
        std::vector<std::string> lBytes;
        for (const auto& cPacket : mcNotes.mlPackets)
            lBytes.push_back(RawPacket::bytesOf(*cPacket));
        return lBytes;
    }

    Notes mcNotes;
    // Without a transport: the tests feed the protocol themselves.
    ReferencePtr<VITA49ZelvarProtocol> mcProtocol = makeReference<VITA49ZelvarProtocol>(nullptr);
};

std::string data(uint32_t uID = kIFDataIQ14, uint32_t uWords = 8) {
    return PacketBytes(uID).fill(uWords).bytes();
}

uint32_t matchAll(_findStreamID& cMatcher, const std::string& bytes) {
    for (uint32_t i = 0; i < bytes.size(); ++i) {
        const auto uByte = static_cast<uint8_t>(bytes[i]);
        uint32_t uResult = cMatcher.match(uByte, i);
        if (uResult == MemoryBlock::kOfferAgain)
            uResult = cMatcher.match(uByte, i);
        if (uResult != MemoryBlock::kNoMatch)
            return uResult;
    }
    return MemoryBlock::kNoMatch;
}

TEST(StreamIDMatcher, ABrokenRunIsOfferedAgainAndTheSecondFound) {
    _findStreamID cMatcher;
    EXPECT_EQ(matchAll(cMatcher, std::string("\x90\x00\x90\x00\x00\x02", 6)), 2u);
    EXPECT_EQ(cMatcher.streamID(), 0x90000002u);
}

TEST(StreamIDMatcher, AnotherKindMatchesNothing) {
    _findStreamID cMatcher;
    EXPECT_EQ(matchAll(cMatcher, std::string("\x90\x00\x00\x07", 4)), MemoryBlock::kNoMatch);
    EXPECT_EQ(matchAll(cMatcher, std::string("\x90\x00\x00\x00", 4)), MemoryBlock::kNoMatch);
    EXPECT_EQ(matchAll(cMatcher, std::string("\x90\x00\x00\x11", 4)), MemoryBlock::kNoMatch);
}

TEST(StreamIDMatcher, ALastByteThatFailsIsNotOfferedAgain) {
    _findStreamID cMatcher;
    EXPECT_EQ(matchAll(cMatcher, std::string("\x90\x00\x00\x90\x00\x00\x01", 7)), MemoryBlock::kNoMatch);
    EXPECT_EQ(cMatcher.match(0x90, 0), MemoryBlock::kNoMatch);
    EXPECT_EQ(cMatcher.match(0x91, 1), MemoryBlock::kOfferAgain);
}

TEST_F(ZelvarProtocol, TheProtocolIsNamedAndClosedWithoutATransport) {
    EXPECT_EQ(mcProtocol->getName(), "VITA49");
    EXPECT_FALSE(mcProtocol->isOpen());
}

TEST_F(ZelvarProtocol, EachStreamIDReachesItsListenerOperation) {
    for (uint32_t uID = 0x90000001; uID <= 0x90000006; ++uID)
        feed(data(uID));
    EXPECT_THAT(mcNotes.mlSlots, ElementsAre(0, 1, 3, 2, 4, 5));
}

TEST_F(ZelvarProtocol, NothingAndEmptyBlocksAreTaken) {
    EXPECT_TRUE(mcProtocol->onData(nullptr));
    feed("");
    EXPECT_THAT(mcNotes.mlSlots, IsEmpty());
}

TEST_F(ZelvarProtocol, TheBlockIsLeftFullyRead) {
    const auto cBlock = blockOf(data());
    mcProtocol->onData(cBlock);
    EXPECT_EQ(cBlock->getReadableDataLength(), 0u);
}

TEST_F(ZelvarProtocol, APacketCutAnywhereGivesOnePacket) {
    const std::string bytes = data();
    for (size_t uCut = 1; uCut < bytes.size(); ++uCut) {
        feed(bytes.substr(0, uCut));
        feed(bytes.substr(uCut));
        ASSERT_EQ(mcNotes.muCalls.load(), uCut);
        ASSERT_EQ(packets().back(), bytes);
    }
}

TEST_F(ZelvarProtocol, SegmentsOfOneByteGiveTheSamePackets) {
    const std::string bytes = data(kIFDataI14, 40) + data(kExtensionContext, 3);
    for (char cByte : bytes)
        feed(std::string(1, cByte));
    EXPECT_THAT(packets(), ElementsAre(data(kIFDataI14, 40), data(kExtensionContext, 3)));
}

TEST_F(ZelvarProtocol, GarbageInFrontIsSkipped) {
    feed(std::string(1000, 'g') + data());
    EXPECT_THAT(packets(), ElementsAre(data()));
}

TEST_F(ZelvarProtocol, TheLastEightBytesOfGarbageAreKept) {
    const std::string bytes = data();
    // The start of a packet up to three bytes of its stream ID may hide in them.
    for (size_t uCut = 1; uCut <= 7; ++uCut) {
        feed(std::string(500, 'g') + bytes.substr(0, uCut));
        feed(bytes.substr(uCut));
        EXPECT_EQ(packets().back(), bytes) << uCut;
    }
    EXPECT_EQ(mcNotes.muCalls.load(), 7u);
}

TEST_F(ZelvarProtocol, AStreamIDTooNearTheStartLosesNoLaterPacket) {
    for (size_t uOffset = 0; uOffset < 4; ++uOffset) {
        mcProtocol->clearBuffer();
        mcNotes.mlPackets.clear();
        feed(data().substr(4 - uOffset) + data(kIFDataI14, 5));
        EXPECT_EQ(packets().back(), data(kIFDataI14, 5)) << uOffset;
    }
}

TEST_F(ZelvarProtocol, ASizeOfZeroIsGarbage) {
    feed(PacketBytes(kIFDataIQ14).fill(4).bytes(0) + data(kIFDataI14));
    EXPECT_THAT(packets(), ElementsAre(data(kIFDataI14)));
}

TEST_F(ZelvarProtocol, ASizeBelowTheHeaderIsDeliveredIncompleteWithoutSamples) {
    for (uint32_t uWords = 1; uWords < 5; ++uWords) {
        mcNotes.mlPackets.clear();
        feed(PacketBytes(kIFDataI14).bytes(uWords) + data());
        ASSERT_GE(mcNotes.mlPackets.size(), 2u);
        const auto cShort = dynamicReferenceCast<IFDataI14>(mcNotes.mlPackets.front());
        ASSERT_TRUE(cShort);
        EXPECT_FALSE(cShort->isComplete());
        EXPECT_EQ(cShort->sampleCount(), 0u);
        EXPECT_EQ(cShort->getSamples()->getActive(), 0u);
        EXPECT_EQ(packets().back(), data());
    }
}

TEST_F(ZelvarProtocol, AWrongSizeSwallowsAtMostItsBytesAndTheScanFindsTheNextPacket) {
    std::string bytes = PacketBytes(kIFDataIQ14).fill(8).bytes(65535);
    while (bytes.size() < 65535 * 4)
        bytes += data();
    feed(bytes + data(kIFDataI14) + data(kIFDataI14, 3));
    ASSERT_GE(mcNotes.mlPackets.size(), 2u);
    EXPECT_EQ(packets().front().size(), 65535u * 4);
    EXPECT_EQ(packets().back(), data(kIFDataI14, 3));
}

TEST_F(ZelvarProtocol, StreamIDBytesInsideSamplesAreNoPacketAfterACleanStart) {
    const std::string bytes = PacketBytes(kIFDataIQ14).fill(50, 0x90000003).bytes();
    feed(bytes + bytes + bytes);
    EXPECT_THAT(packets(), ElementsAre(bytes, bytes, bytes));
}

TEST_F(ZelvarProtocol, TwoListenersSeeTheSamePacket) {
    Notes cSecond;
    mcProtocol->addListener(&cSecond);
    feed(data());
    ASSERT_EQ(cSecond.mlPackets.size(), 1u);
    EXPECT_EQ(cSecond.mlPackets[0], mcNotes.mlPackets[0]);
}

TEST_F(ZelvarProtocol, AListenerIsThereOnceAndIsRemovedOnce) {
    mcProtocol->addListener(&mcNotes);
    feed(data());
    EXPECT_EQ(mcNotes.muCalls.load(), 1u);
    EXPECT_TRUE(mcProtocol->removeListener(&mcNotes));
    EXPECT_FALSE(mcProtocol->removeListener(&mcNotes));
    feed(data());
    EXPECT_EQ(mcNotes.muCalls.load(), 1u);
}

TEST_F(ZelvarProtocol, AListenerMayRemoveItselfAndOthersDuringACall) {
    Notes cSecond, cThird;
    mcProtocol->addListener(&cSecond);
    mcProtocol->addListener(&cThird);
    mcNotes.mcOnCall = [&] {
        EXPECT_TRUE(mcProtocol->removeListener(&mcNotes));
        EXPECT_TRUE(mcProtocol->removeListener(&cSecond));
    };
    feed(data());
    EXPECT_EQ(cSecond.muCalls.load(), 0u);
    EXPECT_EQ(cThird.muCalls.load(), 1u);
    feed(data());
    EXPECT_EQ(mcNotes.muCalls.load(), 1u);
    EXPECT_EQ(cThird.muCalls.load(), 2u);
}

TEST_F(ZelvarProtocol, ARemovalWaitsForACallInProgress) {
    std::atomic<bool> bIn{false}, bOut{false};
    mcNotes.mcOnCall = [&] {
        bIn.store(true);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        bOut.store(true);
    };
    std::thread cPolling([&] { feed(data()); });
    ASSERT_TRUE(waitUntil([&] { return bIn.load(); }));
    EXPECT_TRUE(mcProtocol->removeListener(&mcNotes));
    EXPECT_TRUE(bOut.load());
    cPolling.join();
}

TEST_F(ZelvarProtocol, AListenerThatThrowsLosesOnlyItsPacket) {
    mcNotes.mcOnCall = [] { throw 1; };
    EXPECT_THROW(mcProtocol->onData(blockOf(data() + data(kIFDataI14))), int);
    mcNotes.mcOnCall = nullptr;
    feed(data(kIFDataI24));
    EXPECT_THAT(mcNotes.mlSlots, ElementsAre(3, 4, 5));
}

TEST_F(ZelvarProtocol, ActivityIsNotedWhileDrainingOnly) {
    feed(data());
    EXPECT_FALSE(mcProtocol->takeActivity());
    mcProtocol->setDrain(true);
    EXPECT_FALSE(mcProtocol->takeActivity());
    feed("x");
    EXPECT_TRUE(mcProtocol->takeActivity());
    EXPECT_FALSE(mcProtocol->takeActivity());
    mcProtocol->onData(nullptr);
    EXPECT_FALSE(mcProtocol->takeActivity());
}

TEST_F(ZelvarProtocol, PacketsAreDeliveredWhileDraining) {
    mcProtocol->setDrain(true);
    feed(data());
    EXPECT_EQ(mcNotes.muCalls.load(), 1u);
}

TEST_F(ZelvarProtocol, AClearedBufferForgetsThePartialPacket) {
    const std::string bytes = data();
    feed(bytes.substr(0, 30));
    mcProtocol->clearBuffer();
    feed(bytes.substr(30) + data(kIFDataI14));
    EXPECT_THAT(packets(), ElementsAre(data(kIFDataI14)));
}

TEST_F(ZelvarProtocol, TheBufferMayBeClearedWhileBytesArrive) {
    std::string bytes;
    for (int i = 0; i < 20; ++i)
        bytes += data(kIFDataIQ14, 100);
    std::atomic<bool> bStop{false};
    std::thread cClearing([&] {
        while (!bStop.load())
            mcProtocol->clearBuffer();
    });
    for (int i = 0; i < 300; ++i)
        for (size_t uAt = 0; uAt < bytes.size(); uAt += 700)
            feed(bytes.substr(uAt, 700));
    bStop.store(true);
    cClearing.join();
    mcProtocol->clearBuffer();
    mcNotes.mlPackets.clear();
    feed(data());
    EXPECT_THAT(packets(), ElementsAre(data()));
}

TEST_F(ZelvarProtocol, AnErrorIsAnAssertion) {
    try {
        mcProtocol->onError("link broken");
        FAIL() << "nothing thrown";
    } catch (const utils::FatalError& cError) {
        EXPECT_TRUE(cError.message().starts_with("ASSERT failed <false> ")) << cError.message();
    }
}

/// The told scan, byte by byte and without any cleverness.
class LiteralScan {
 public:
    std::vector<std::string> mlPackets;

    void clear() { mBuffer.clear(); }
    void onData(const std::string& bytes) {
        mBuffer += bytes;
        while (mBuffer.size() >= 8) {
            _findStreamID cMatcher;
            const uint32_t uFound = matchAll(cMatcher, mBuffer);
            if (uFound == MemoryBlock::kNoMatch) {
                mBuffer.erase(0, mBuffer.size() - 8);
                return;
            }
            if (uFound < 4) {
                mBuffer.erase(0, 1);
                continue;
            }
            const size_t uBytes = 4 * (static_cast<size_t>(static_cast<uint8_t>(mBuffer[uFound - 2])) * 256 +
                                       static_cast<uint8_t>(mBuffer[uFound - 1]));
            mBuffer.erase(0, uFound - 4);
            if (uBytes == 0) {
                mBuffer.erase(0, 1);
                continue;
            }
            if (mBuffer.size() < uBytes)
                return;
            mlPackets.push_back(mBuffer.substr(0, uBytes));
            mBuffer.erase(0, uBytes);
        }
    }

 private:
    std::string mBuffer;
};

/// Bytes that love the pattern: its pieces, whole packets, cut packets, small sizes, noise.
std::string adversarialBytes(std::mt19937& cRandom) {
    const auto below = [&](uint32_t uLimit) { return static_cast<uint32_t>(cRandom()) % uLimit; };
    static const std::string kPieces[] = {
        std::string("\x90", 1), std::string("\x90\x00", 2),         std::string("\x90\x00\x00", 3),
        std::string(1, '\0'),   std::string("\x90\x00\x00\x01", 4), std::string("\x90\x00\x00\x90", 4)};
    std::string bytes;
    for (uint32_t i = below(40); i > 0; --i) {
        const uint32_t uID = 0x90000000u + below(8);
        switch (below(5)) {
            case 0:
                bytes += kPieces[below(6)];
                break;
            case 1:
                bytes += PacketBytes(uID, below(2) == 0).fill(below(30), 0x90000002u).bytes();
                break;
            case 2:
                bytes += PacketBytes(uID).fill(below(10)).bytes(below(24));
                break;
            case 3:
                bytes += PacketBytes(uID).fill(10).bytes().substr(0, below(60));
                break;
            default:
                for (uint32_t k = below(20); k > 0; --k)
                    bytes.push_back(static_cast<char>(cRandom()));
        }
    }
    return bytes;
}

TEST_F(ZelvarProtocol, AnyBytesInAnySplitGiveThePacketsOfTheByteByByteScan) {
    std::mt19937 cRandom(49);
    LiteralScan cLiteral;
    for (int i = 0; i < 1500; ++i) {
        const std::string bytes = adversarialBytes(cRandom);
        for (size_t uAt = 0; uAt < bytes.size();) {
            const size_t uLength = 1 + cRandom() % (i % 3 == 0 ? 3 : 200);
            feed(bytes.substr(uAt, uLength));
            cLiteral.onData(bytes.substr(uAt, uLength));
            uAt += uLength;
        }
        ASSERT_EQ(mcNotes.mlPackets.size(), cLiteral.mlPackets.size()) << i;
        // A random size may make the scan wait for 256 KiB: begin anew most of the time.
        if (i % 5 != 0) {
            mcProtocol->clearBuffer();
            cLiteral.clear();
        }
    }
    EXPECT_GT(mcNotes.mlPackets.size(), 1000u);
    EXPECT_EQ(packets(), cLiteral.mlPackets);
}

TEST(ZelvarProtocolOnATransport, NoByteIsMissedFromTheStart) {
    Notes cNotes;
    const auto cTransport = makeReference<FakeTransport>();
    cTransport->queue(data());
    auto cProtocol = makeReference<VITA49ZelvarProtocol>(cTransport);
    EXPECT_EQ(cTransport->getPollTimeoutMs(), 5u);
    EXPECT_EQ(cTransport->getChunkSize(), 0x40000u);
    EXPECT_TRUE(cProtocol->isOpen());
    cProtocol->addListener(&cNotes);
    cTransport->queue(data());
    EXPECT_TRUE(waitUntil([&] { return cNotes.muCalls.load() >= 1 && cTransport->drained(); }));
    cProtocol->removeListener(&cNotes);
    cProtocol = nullptr;
    EXPECT_FALSE(cTransport->isPolling());
}

TEST(ZelvarProtocolOnATransport, AProtocolMayEndAtAnyMoment) {
    const auto cTransport = makeReference<FakeTransport>();
    for (int i = 0; i < 200; ++i) {
        auto cProtocol = makeReference<VITA49ZelvarProtocol>(cTransport);
        for (int k = 0; k < 5; ++k)
            cTransport->queue(data());
        cProtocol = nullptr;
    }
    EXPECT_TRUE(waitUntil([&] { return !cTransport->isPolling(); }));
}

TEST(ZelvarProtocolOnATransport, AFailedLinkEndsThePollingThreadAndIsLogged) {
    vnktest::clearLog();
    const auto cTransport = makeReference<FakeTransport>();
    const auto cProtocol = makeReference<VITA49ZelvarProtocol>(cTransport);
    cTransport->fail("Socket failed with error code 104");
    ASSERT_TRUE(waitUntil([&] { return !cTransport->isPolling(); }));
    EXPECT_TRUE(vnktest::logHolds(-9001));
}

}  // namespace
