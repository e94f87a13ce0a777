#include "links/vita49protocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <thread>

#include "faketransport.h"
#include "genericpackets.h"
#include "log.h"
#include "support/loopback.h"

using namespace VITA49;
using testing::ElementsAre;
using testing::IsEmpty;
using utils::MemoryBlock;
using vnktest::dataPacket;
using vnktest::FakeTransport;
using vnktest::formatPacket;
using vnktest::GenericHeader;
using vnktest::genericPacket;
using vnktest::kPairsOf16;
using vnktest::waitUntil;

namespace {

/// Notes the operation and the packet of each call.
class Notes : public VITA49Protocol::Listener {
 public:
    void handleIFData(ReferencePtr<IFData> cPacket) override { note(0, cPacket); }
    void handleIFContext(ReferencePtr<IFContext> cPacket) override { note(1, cPacket); }
    void handleExtensionData(ReferencePtr<ExtensionData> cPacket) override { note(2, cPacket); }
    void handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) override { note(3, cPacket); }

    ReferencePtr<IFData> lastData() const { return dynamicReferenceCast<IFData>(mlPackets.back()); }

    std::vector<int> mlSlots;
    std::vector<ReferencePtr<Packet>> mlPackets;
    std::atomic<unsigned> muCalls{0};
    std::function<void(const ReferencePtr<Packet>&)> mcOnCall;

 private:
    void note(int iSlot, ReferencePtr<Packet> cPacket) {
        mlSlots.push_back(iSlot);
        mlPackets.push_back(cPacket);
        muCalls.fetch_add(1);
        if (mcOnCall)
            mcOnCall(cPacket);
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

class GenericProtocol : public testing::Test {
 protected:
    GenericProtocol() { mcProtocol->addListener(&mcNotes); }
    void feed(const std::string& bytes) { EXPECT_TRUE(mcProtocol->onData(blockOf(bytes))); }
    std::vector<std::string> packets() const {
        std::vector<std::string> lBytes;
        for (const auto& cPacket : mcNotes.mlPackets)
            lBytes.push_back(RawPacket::bytesOf(*cPacket));
        return lBytes;
    }

    Notes mcNotes;
    // Without a transport: the tests feed the protocol themselves.
    ReferencePtr<VITA49Protocol> mcProtocol = makeReference<VITA49Protocol>(nullptr);
};

std::string packetOf(uint32_t uType, uint32_t uWords = 8) {
    GenericHeader cHeader;
    cHeader.muType = uType;
    return genericPacket(cHeader).fill(uWords).bytes();
}

std::string data(uint32_t uWords = 8) {
    return packetOf(1, uWords);
}

TEST(SyncWord, AFirstByteHasOneOfSixTypesAndNoLowBits) {
    for (uint32_t uByte = 0; uByte < 256; ++uByte) {
        _syncWord0 cMatcher;
        const uint32_t uFound = cMatcher.match(static_cast<uint8_t>(uByte), 1234);
        if ((uByte >> 4) <= 5 && (uByte & 3) == 0) {
            EXPECT_EQ(uFound, 1234u) << uByte;
            EXPECT_EQ(cMatcher.packetType(), uByte >> 4);
        } else {
            EXPECT_EQ(uFound, MemoryBlock::kNoMatch) << uByte;
        }
    }
    EXPECT_EQ(_syncWord0().match(0x4D, 0), MemoryBlock::kNoMatch);
}

TEST_F(GenericProtocol, TheProtocolIsNamedAndClosedWithoutATransport) {
    EXPECT_EQ(mcProtocol->getName(), "VITA49");
    EXPECT_FALSE(mcProtocol->isOpen());
}

TEST_F(GenericProtocol, EachTypeReachesItsListenerOperation) {
    for (uint32_t uType = 0; uType < 6; ++uType)
        feed(packetOf(uType));
    EXPECT_THAT(mcNotes.mlSlots, ElementsAre(0, 0, 2, 2, 1, 3));
    for (uint32_t uType = 0; uType < 6; ++uType) {
        EXPECT_EQ(mcNotes.mlPackets[uType]->packetType(), uType);
        EXPECT_TRUE(mcNotes.mlPackets[uType]->isComplete());
    }
}

TEST_F(GenericProtocol, NothingAndEmptyBlocksAreTaken) {
    EXPECT_TRUE(mcProtocol->onData(nullptr));
    feed("");
    EXPECT_THAT(mcNotes.mlSlots, IsEmpty());
}

TEST_F(GenericProtocol, TheBlockIsLeftFullyRead) {
    const auto cBlock = blockOf(data());
    mcProtocol->onData(cBlock);
    EXPECT_EQ(cBlock->getReadableDataLength(), 0u);
}

TEST_F(GenericProtocol, APacketCutAnywhereGivesOnePacket) {
    for (uint32_t uType = 0; uType < 6; ++uType) {
        const std::string bytes = packetOf(uType);
        for (size_t uCut = 1; uCut < bytes.size(); ++uCut) {
            mcNotes.mlPackets.clear();
            feed(bytes.substr(0, uCut));
            feed(bytes.substr(uCut));
            ASSERT_THAT(packets(), ElementsAre(bytes)) << uCut;
        }
    }
}

TEST_F(GenericProtocol, SegmentsOfOneByteGiveTheSamePackets) {
    const std::string bytes = data(40) + packetOf(5, 3) + formatPacket().bytes();
    for (char cByte : bytes)
        feed(std::string(1, cByte));
    EXPECT_THAT(packets(), ElementsAre(data(40), packetOf(5, 3), formatPacket().bytes()));
}

TEST_F(GenericProtocol, GarbageInFrontIsSkipped) {
    feed(std::string(1000, 'g') + data());
    EXPECT_THAT(packets(), ElementsAre(data()));
}

TEST_F(GenericProtocol, APacketThatBeginsInTheLastEightBytesOfGarbageIsFound) {
    const std::string bytes = data();
    for (size_t uCut = 1; uCut <= 8; ++uCut) {
        feed(std::string(500, 'g') + bytes.substr(0, uCut));
        feed(bytes.substr(uCut));
        ASSERT_EQ(packets().back(), bytes) << uCut;
    }
    EXPECT_EQ(mcNotes.muCalls.load(), 8u);
}

TEST_F(GenericProtocol, APacketWithTheTSMBitIsNotRecognised) {
    for (char cFirst : {'\x41', '\x4D', '\x42'})
        feed(cFirst + std::string(27, 'g'));
    feed(data());
    EXPECT_THAT(packets(), ElementsAre(data()));
}

TEST_F(GenericProtocol, ASizeOfZeroSkipsAByte) {
    for (uint32_t uType = 0; uType < 6; ++uType) {
        mcNotes.mlPackets.clear();
        // Each of the two zero bytes of the size begins a packet of its own by its looks, of the size that
        // the third byte behind it and the fourth tell: none, and then two words.
        const std::string word{
            static_cast<char>(uType << 4), 'g', '\0', '\0', '\0', '\0', '\0', '\2', 'g', 'g', 'g', 'g'};
        feed(word + data());
        EXPECT_THAT(packets(), ElementsAre(word.substr(4), data()));
    }
}

TEST_F(GenericProtocol, ZerosForEverAreScannedToTheirEnd) {
    feed(std::string(1 << 20, '\0'));
    EXPECT_EQ(mcNotes.muCalls.load(), 0u);
    // At most seven bytes are left, too few to look at.
    mcProtocol->clearBuffer();
    feed(data());
    EXPECT_THAT(packets(), ElementsAre(data()));
}

TEST_F(GenericProtocol, ASizeBelowTheHeaderIsDeliveredIncompleteWithItsType) {
    for (uint32_t uType = 0; uType < 6; ++uType)
        for (uint32_t uWords = 1; uWords < 5; ++uWords) {
            mcNotes.mlPackets.clear();
            mcNotes.mlSlots.clear();
            GenericHeader cHeader;
            cHeader.muType = uType;
            cHeader.mbTrailer = cHeader.mbClassID = true;
            const std::string bytes = genericPacket(cHeader).bytes(uWords).substr(0, size_t{uWords} * 4);
            feed(bytes + data());
            ASSERT_EQ(mcNotes.mlPackets.size(), 2u);
            EXPECT_THAT(packets(), ElementsAre(bytes, data()));
            const Packet& cShort = *mcNotes.mlPackets[0];
            EXPECT_FALSE(cShort.isComplete());
            EXPECT_EQ(cShort.packetType(), uType);
            EXPECT_EQ(cShort.streamID(), kAbsent32);
            EXPECT_FALSE(cShort.trailer());
            if (uType < 2) {
                EXPECT_EQ(dynamicReferenceCast<IFData>(mcNotes.mlPackets[0])->sampleCount(), 0u);
            }
        }
}

TEST_F(GenericProtocol, ASizeFieldIsReadOnlyWhenItsBytesAreThere) {
    // Seven bytes that begin nothing, then one, two or three bytes of a packet: enough for a scan.
    const std::string bytes = data();
    for (size_t uCut = 1; uCut < 4; ++uCut) {
        mcNotes.mlPackets.clear();
        feed("ggggggg" + bytes.substr(0, uCut));
        EXPECT_THAT(mcNotes.mlPackets, IsEmpty());
        feed(bytes.substr(uCut));
        EXPECT_THAT(packets(), ElementsAre(bytes)) << uCut;
    }
}

TEST_F(GenericProtocol, TheLargestPacketIsWaitedForAndDelivered) {
    const std::string bytes = data(65535 - 5);
    ASSERT_EQ(bytes.size(), 65535u * 4);
    for (size_t uAt = 0; uAt < bytes.size(); uAt += 1460) {
        EXPECT_THAT(mcNotes.mlPackets, IsEmpty());
        feed(bytes.substr(uAt, 1460));
    }
    EXPECT_THAT(packets(), ElementsAre(bytes));
}

TEST_F(GenericProtocol, TwoListenersSeeTheSamePacket) {
    Notes cSecond;
    mcProtocol->addListener(&cSecond);
    feed(data());
    ASSERT_EQ(cSecond.mlPackets.size(), 1u);
    EXPECT_EQ(cSecond.mlPackets[0], mcNotes.mlPackets[0]);
}

TEST_F(GenericProtocol, AListenerIsThereOnceAndIsRemovedOnce) {
    mcProtocol->addListener(&mcNotes);
    feed(data());
    EXPECT_EQ(mcNotes.muCalls.load(), 1u);
    EXPECT_TRUE(mcProtocol->removeListener(&mcNotes));
    EXPECT_FALSE(mcProtocol->removeListener(&mcNotes));
    feed(data());
    EXPECT_EQ(mcNotes.muCalls.load(), 1u);
}

TEST_F(GenericProtocol, DataOfAStreamWithAContextCarryItBeforeTheListenersSeeThem) {
    mcNotes.mcOnCall = [](const ReferencePtr<Packet>& cPacket) {
        if (const auto cData = dynamicReferenceCast<IFData>(cPacket)) {
            EXPECT_TRUE(cData->decodingContext());
        }
    };
    feed(formatPacket(7).bytes() + dataPacket(7).fill(3, 0x40004000).bytes());
    const auto cSamples = mcNotes.lastData()->getSamples();
    ASSERT_EQ(cSamples->getActive(), 3u);
    EXPECT_EQ(cSamples->getData()[2], (Complex<float>{0.5f, 0.5f}));
}

TEST_F(GenericProtocol, DataOfAnotherStreamHaveNoSamples) {
    feed(formatPacket(7).bytes() + dataPacket(8).fill(3).bytes());
    EXPECT_FALSE(mcNotes.lastData()->decodingContext());
    EXPECT_FALSE(mcNotes.lastData()->getSamples());
}

TEST_F(GenericProtocol, DataWithoutAStreamIDHaveNoContext) {
    feed(formatPacket(kAbsent32).bytes() + packetOf(0));
    EXPECT_EQ(mcNotes.lastData()->streamID(), kAbsent32);
    EXPECT_FALSE(mcNotes.lastData()->decodingContext());
}

TEST_F(GenericProtocol, TheLatestContextOfAStreamCounts) {
    feed(formatPacket(7, 0).bytes() + formatPacket(7).bytes() + dataPacket(7).fill(3).bytes());
    EXPECT_EQ(mcNotes.lastData()->decodingContext()->word(0), kPairsOf16);
    // A context without a payload format changes nothing.
    feed(vnktest::contextPacket(1u << 18, 7).u32(1).bytes() + dataPacket(7).fill(3).bytes());
    EXPECT_EQ(mcNotes.lastData()->decodingContext()->word(0), kPairsOf16);
}

TEST(DecodingContexts, TheLeastRecentlyStoredGoes) {
    DecodingContexts cContexts;
    const auto context = [] { return makeReference<DecodingContext>(blockOf("12345678")); };
    const auto cFirst = context();
    cContexts.store(0, cFirst);
    for (uint32_t uID = 1; uID < DecodingContexts::kMost; ++uID)
        cContexts.store(uID, context());
    EXPECT_EQ(cContexts.count(), 65536u);
    EXPECT_EQ(cContexts.find(0), cFirst);  // to look one up is not to store it
    const auto cAgain = context();
    cContexts.store(1, cAgain);
    EXPECT_EQ(cContexts.count(), 65536u);
    cContexts.store(65536, context());
    EXPECT_EQ(cContexts.count(), 65536u);
    EXPECT_FALSE(cContexts.find(0));
    cContexts.store(65537, context());
    EXPECT_EQ(cContexts.find(1), cAgain);
    EXPECT_FALSE(cContexts.find(2));
    EXPECT_TRUE(cContexts.find(3));
}

TEST(DecodingContexts, AMillionStreamsKeepNoMoreThanTheLimitAlive) {
    DecodingContexts cContexts;
    const auto cContext = makeReference<DecodingContext>(blockOf("12345678"));
    for (uint32_t i = 0; i < 1000000; ++i) {
        cContexts.store(i * 2654435761u, cContext);
        if (i % 1000 == 0) {
            ASSERT_LE(cContext->referenceCount(), 65537u);
        }
    }
    EXPECT_EQ(cContexts.count(), 65536u);
}

/// Counts, and keeps nothing.
class Counter : public VITA49Protocol::Listener {
 public:
    void handleIFData(ReferencePtr<IFData> cPacket) override {
        muWithContext += cPacket->decodingContext() ? 1u : 0u;
    }
    void handleIFContext(ReferencePtr<IFContext>) override { ++muContexts; }
    void handleExtensionData(ReferencePtr<ExtensionData>) override {}
    void handleExtensionContext(ReferencePtr<ExtensionContext>) override {}
    uint32_t muContexts = 0;
    uint32_t muWithContext = 0;
};

TEST(GenericStreams, OfAMillionStreamIDsTheLastAreKnown) {
    Counter cCounter;
    const auto cProtocol = makeReference<VITA49Protocol>(nullptr);
    cProtocol->addListener(&cCounter);
    const auto known = [&](uint32_t uStreamID) {
        cCounter.muWithContext = 0;
        cProtocol->onData(blockOf(dataPacket(uStreamID).fill(1).bytes()));
        return cCounter.muWithContext == 1;
    };
    constexpr uint32_t kStreams = 1000000;
    std::string pattern = formatPacket().bytes();
    std::string bytes;
    for (uint32_t i = 0; i < kStreams; ++i) {
        for (int k = 0; k < 4; ++k)
            pattern[static_cast<size_t>(4 + k)] = static_cast<char>(i >> (24 - 8 * k));
        bytes += pattern;
        if (bytes.size() > 60000 || i + 1 == kStreams) {
            cProtocol->onData(blockOf(bytes));
            bytes.clear();
        }
    }
    EXPECT_EQ(cCounter.muContexts, kStreams);
    EXPECT_TRUE(known(kStreams - 1));
    EXPECT_TRUE(known(kStreams - 65536));
    EXPECT_FALSE(known(kStreams - 65537));
    EXPECT_FALSE(known(0));
}

TEST_F(GenericProtocol, AnAssertionInAListenerLosesOnlyItsPacket) {
    mcNotes.mcOnCall = [](const ReferencePtr<Packet>& cPacket) {
        if (const auto cData = dynamicReferenceCast<IFData>(cPacket))
            cData->getSamples();
    };
    feed(formatPacket(7, 0).bytes());
    EXPECT_THROW(mcProtocol->onData(blockOf(dataPacket(7).fill(2).bytes() + data())), utils::FatalError);
    mcNotes.mcOnCall = nullptr;
    feed(packetOf(5));
    EXPECT_THAT(mcNotes.mlSlots, ElementsAre(1, 0, 0, 3));
}

TEST_F(GenericProtocol, ActivityIsNotedWhileDrainingOnlyAndPacketsAreDelivered) {
    feed(data());
    EXPECT_FALSE(mcProtocol->takeActivity());
    mcProtocol->setDrain(true);
    feed(data());
    EXPECT_EQ(mcNotes.muCalls.load(), 2u);
    EXPECT_TRUE(mcProtocol->takeActivity());
    EXPECT_FALSE(mcProtocol->takeActivity());
}

TEST_F(GenericProtocol, AClearedBufferForgetsThePartialPacket) {
    feed(data().substr(0, 30));
    mcProtocol->clearBuffer();
    feed(data());
    EXPECT_THAT(packets(), ElementsAre(data()));
}

TEST_F(GenericProtocol, TheBufferMayBeClearedWhileBytesArrive) {
    std::string bytes;
    for (int i = 0; i < 20; ++i)
        bytes += data(100);
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

TEST_F(GenericProtocol, ListenersComeAndGoWhileBytesArrive) {
    std::atomic<bool> bStop{false};
    std::thread cChanging([&] {
        while (!bStop.load()) {
            Counter cCounter;
            mcProtocol->addListener(&cCounter);
            std::this_thread::yield();
            EXPECT_TRUE(mcProtocol->removeListener(&cCounter));
        }
    });
    for (int i = 0; i < 3000; ++i)
        feed(formatPacket().bytes() + data());
    bStop.store(true);
    cChanging.join();
    EXPECT_EQ(mcNotes.muCalls.load(), 6000u);
}

TEST_F(GenericProtocol, AnErrorIsAnAssertion) {
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
            size_t uFound = 0;
            while (uFound < mBuffer.size() && !begins(byte(uFound)))
                ++uFound;
            if (uFound == mBuffer.size()) {
                mBuffer.erase(0, mBuffer.size() - 8);
                return;
            }
            mBuffer.erase(0, uFound);
            if (mBuffer.size() < 4)
                return;
            const size_t uBytes = 4 * (size_t{byte(2)} * 256 + byte(3));
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
    static bool begins(uint8_t uByte) { return uByte < 0x60 && (uByte & 3) == 0; }
    uint8_t byte(size_t uAt) const { return static_cast<uint8_t>(mBuffer[uAt]); }
    std::string mBuffer;
};

/// Whole packets, cut packets, small sizes, zeros, noise.
std::string adversarialBytes(std::mt19937& cRandom) {
    const auto below = [&](uint32_t uLimit) { return static_cast<uint32_t>(cRandom()) % uLimit; };
    std::string bytes;
    for (uint32_t i = below(40); i > 0; --i) {
        GenericHeader cHeader;
        cHeader.muType = below(6);
        cHeader.mbTrailer = below(2) == 0;
        cHeader.mbClassID = below(2) == 0;
        cHeader.muTSF = below(4);
        cHeader.muStreamID = below(4);
        switch (below(6)) {
            case 0:
                bytes += formatPacket(below(4)).bytes();
                break;
            case 1:
                bytes += genericPacket(cHeader).fill(below(30)).bytes();
                break;
            case 2:
                bytes += genericPacket(cHeader).fill(below(10)).bytes(below(24));
                break;
            case 3:
                bytes += genericPacket(cHeader).fill(10).bytes().substr(0, below(60));
                break;
            case 4:
                bytes += std::string(below(20), '\0');
                break;
            default:
                for (uint32_t k = below(20); k > 0; --k)
                    bytes.push_back(static_cast<char>(cRandom()));
        }
    }
    return bytes;
}

TEST_F(GenericProtocol, AnyBytesInAnySplitGiveThePacketsOfTheByteByByteScan) {
    std::mt19937 cRandom(4949);
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

TEST(GenericProtocolOnATransport, NoByteIsMissedFromTheStart) {
    Notes cNotes;
    const auto cTransport = makeReference<FakeTransport>();
    cTransport->queue(data());
    auto cProtocol = makeReference<VITA49Protocol>(cTransport);
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

TEST(GenericProtocolOnATransport, AProtocolMayEndAtAnyMoment) {
    const auto cTransport = makeReference<FakeTransport>();
    for (int i = 0; i < 200; ++i) {
        auto cProtocol = makeReference<VITA49Protocol>(cTransport);
        for (int k = 0; k < 5; ++k)
            cTransport->queue(formatPacket().bytes());
        cProtocol = nullptr;
    }
    EXPECT_TRUE(waitUntil([&] { return !cTransport->isPolling(); }));
}

TEST(GenericProtocolOnATransport, AFailedDecodingEndsThePollingThreadAndIsLogged) {
    vnktest::clearLog();
    Notes cNotes;
    cNotes.mcOnCall = [](const ReferencePtr<Packet>& cPacket) {
        if (const auto cData = dynamicReferenceCast<IFData>(cPacket))
            cData->getSamples();
    };
    const auto cTransport = makeReference<FakeTransport>();
    const auto cProtocol = makeReference<VITA49Protocol>(cTransport);
    cProtocol->addListener(&cNotes);
    cTransport->queue(formatPacket(7, 0).bytes() + dataPacket(7).fill(2).bytes());
    ASSERT_TRUE(waitUntil([&] { return !cTransport->isPolling(); }));
    cProtocol->removeListener(&cNotes);
    EXPECT_TRUE(vnktest::logHolds(-9001));
}

}  // namespace
