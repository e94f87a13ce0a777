#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "faketransport.h"
#include "foundations/clock.h"
#include "hislippeer.h"
#include "links/hsdatatransport.h"
#include "links/scpiprotocol.h"
#include "log.h"
#include "support/resources.h"

using utils::MemoryBlock;
using vnktest::FakeTransport;
using vnktest::LogLine;
using vnktest::peerBytes;

namespace {

constexpr uint32_t kFirst = 0xFFFFFF00;
constexpr uint32_t kPatience = 30000;  // of waits that end early
const LogLine kNoTransaction{-4000, "Recieved DataEnd - does not match a transaction"};
const LogLine kNoTransactionYet{-4000, "Recieved Data - does not match a transaction"};
const LogLine kBadState{-4000, "Trapped bad state"};

std::string text(const ReferencePtr<MemoryBlock>& cBlock) {
    return cBlock ? cBlock->getText() : "(none)";
}

/// The transport over a connection in memory.
class HSDataTransports : public testing::Test {
 protected:
    explicit HSDataTransports(bool bOverlap = false)
        : mcMarshaller(makeReference<_Marshaller>(mcHandlers, HiSlip::Assembler(), bOverlap)),
          mcTransport(makeReference<HSDataTransport>(mcWire, mcMarshaller)) {
        vnktest::clearLog();
    }
    static ReferencePtr<MemoryBlock> block(const std::string& bytes) {
        return makeReference<MemoryBlock>(bytes);
    }
    bool send(const std::string& bytes) {
        std::string errorText;
        return mcTransport->send(block(bytes), errorText);
    }
    std::string receive(uint32_t uTimeoutMs) {
        std::string errorText;
        return text(mcTransport->receive(uTimeoutMs, errorText));
    }
    /// Past the polling thread: when it returns, the bytes have been dealt with.
    void arrive(const std::string& bytes) { mcMarshaller->onData(block(bytes)); }

    ReferencePtr<FakeTransport> mcWire = makeReference<FakeTransport>();
    ReferencePtr<HiSlipHandlers> mcHandlers = makeReference<HiSlipHandlers>();
    ReferencePtr<_Marshaller> mcMarshaller;
    ReferencePtr<HSDataTransport> mcTransport;
};

class OverlappedTransports : public HSDataTransports {
 protected:
    OverlappedTransports() : HSDataTransports(true) {}
};

TEST_F(HSDataTransports, ItsAddressTellsWhatIsBelow) {
    EXPECT_EQ(mcTransport->getTypeName(), "HiSlip");
    EXPECT_EQ(mcTransport->getAddress(), "HSControl:FAKE:fake");
    EXPECT_TRUE(mcTransport->isOpen());
    EXPECT_EQ(mcWire->getPollTimeoutMs(), 5u);
    const auto cNowhere = makeReference<HSDataTransport>(nullptr, nullptr);
    EXPECT_EQ(cNowhere->getAddress(), "HSControl(null)");
    EXPECT_FALSE(cNowhere->isOpen());
    std::string errorText;
    EXPECT_FALSE(cNowhere->send(block("x"), errorText));
    EXPECT_FALSE(cNowhere->receive(0, errorText));
    EXPECT_FALSE(cNowhere->transact(block("x?"), 0, 0));
    EXPECT_FALSE(cNowhere->transactRaw(block("x?"), 0));
    EXPECT_FALSE(cNowhere->transactMessage(HiSlip::makeMessage(12, 0), 0).mbValid);
    EXPECT_FALSE(cNowhere->flush());
    EXPECT_FALSE(cNowhere->close());
    EXPECT_FALSE(cNowhere->open());
    EXPECT_EQ(cNowhere->lastMessageID(), std::nullopt);
}

TEST_F(HSDataTransports, WhatIsSentGoesOutAsDataEndUnderTheNextID) {
    EXPECT_EQ(mcTransport->lastMessageID(), std::nullopt);
    EXPECT_TRUE(send("*RST\n"));
    EXPECT_EQ(mcTransport->lastMessageID(), 0xFFFFFF00u);
    EXPECT_TRUE(send("A"));
    EXPECT_EQ(mcTransport->lastMessageID(), 0xFFFFFF02u);
    EXPECT_THAT(mcWire->sent(), testing::ElementsAre(peerBytes(7, 0, 0xFFFFFF00, "*RST\n"),
                                                     peerBytes(7, 0, 0xFFFFFF02, "A")));
    std::string errorText;
    EXPECT_FALSE(mcTransport->send(nullptr, errorText));
}

TEST_F(HSDataTransports, IDsWrap) {
    for (int i = 0; i < 130; ++i)
        send("x");
    EXPECT_EQ(mcTransport->lastMessageID(), 2u);
    const auto lSent = mcWire->sent();
    EXPECT_EQ(lSent[127], peerBytes(7, 0, 0xFFFFFFFE, "x"));
    EXPECT_EQ(lSent[128], peerBytes(7, 0, 0, "x"));
    arrive(peerBytes(7, 0, 2, "after the wrap"));
    EXPECT_EQ(receive(kPatience), "after the wrap");
}

TEST_F(HSDataTransports, AFailedSendCountsForNothing) {
    send("one");
    mcWire->failSends("broken");
    std::string errorText;
    EXPECT_FALSE(mcTransport->send(block("two"), errorText));
    EXPECT_EQ(errorText, "broken");
    EXPECT_EQ(mcTransport->lastMessageID(), kFirst);
    EXPECT_FALSE(mcTransport->transact(block("three?"), static_cast<int32_t>(kPatience), 0));
}

TEST_F(HSDataTransports, AReplyInPiecesIsOneReply) {
    mcWire->reply(peerBytes(6, 0, kFirst, "one ") + peerBytes(6, 0, kFirst) +
                  peerBytes(6, 0, kFirst, "two ") + peerBytes(7, 0, kFirst, "three"));
    EXPECT_EQ(text(mcTransport->transact(block("x?"), kPatience, 0)), "one two three");
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(HSDataTransports, AReplyCutAtAnyByteIsWholeInTheEnd) {
    const std::string payload = "0123456789";
    const size_t uWhole = peerBytes(7, 0, 0, payload).size() + peerBytes(6, 0, 0, payload).size();
    for (size_t uCut = 1; uCut < uWhole; ++uCut) {
        const uint32_t uID = HiSlip::messageID(static_cast<uint32_t>(uCut) - 1);
        const std::string bytes = peerBytes(6, 0, uID, payload) + peerBytes(7, 0, uID, payload);
        mcWire->reply(bytes.substr(0, uCut));
        mcWire->reply(bytes.substr(uCut));
        EXPECT_EQ(text(mcTransport->transactRaw(block("x?"), kPatience)), payload + payload) << uCut;
    }
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(HSDataTransports, AnEmptyReplyIsAReply) {
    mcWire->reply(peerBytes(7, 0, kFirst));
    const auto cReply = mcTransport->transact(block("x?"), kPatience, 0);
    ASSERT_TRUE(cReply);
    EXPECT_EQ(cReply->getSize(), 0u);
}

TEST_F(HSDataTransports, WhatHasComeByTheTimeOutIsGivenAsItIs) {
    mcWire->reply(peerBytes(6, 0, kFirst, "half"));
    EXPECT_EQ(text(mcTransport->transact(block("x?"), 200, 0)), "half");
    EXPECT_EQ(receive(1), "(none)");
    // The rest belongs to whoever receives next.
    arrive(peerBytes(6, 0, kFirst, "of "));
    EXPECT_EQ(receive(1), "of ");
    arrive(peerBytes(6, 0, kFirst, "two "));
    arrive(peerBytes(7, 0, kFirst, "ends"));
    EXPECT_EQ(receive(kPatience), "two ends");
    EXPECT_EQ(receive(1), "(none)");
}

TEST_F(HSDataTransports, ALeastSizeIsWaitedFor) {
    mcWire->reply(peerBytes(7, 0, kFirst, "1234") + peerBytes(7, 0, kFirst, "5678"));
    EXPECT_EQ(text(mcTransport->transact(block("x?"), kPatience, 8)), "12345678");
    mcWire->reply(peerBytes(7, 0, kFirst + 2, "12"));
    EXPECT_EQ(text(mcTransport->transact(block("x?"), 200, 4)), "12");
}

TEST_F(HSDataTransports, AReplyToTheLastMessageIsKeptForTheNextReceive) {
    send("x?");
    arrive(peerBytes(7, 0, kFirst, "fast"));
    EXPECT_THAT(vnktest::takeLog(), testing::ElementsAre(kNoTransaction));
    arrive(peerBytes(7, 0, kFirst, "one too many"));
    EXPECT_THAT(vnktest::takeLog(), testing::ElementsAre(kNoTransaction));
    EXPECT_EQ(receive(kPatience), "fast");
    EXPECT_EQ(receive(0), "(none)");
}

TEST_F(HSDataTransports, AKeptReplyGoesWithTheNextMessageAndWithAFlush) {
    send("x?");
    arrive(peerBytes(7, 0, kFirst, "old"));
    send("y?");
    EXPECT_EQ(receive(0), "(none)");
    arrive(peerBytes(7, 0, kFirst, "older still"));
    EXPECT_EQ(receive(0), "(none)");
    arrive(peerBytes(7, 0, kFirst + 2, "new"));
    EXPECT_TRUE(mcTransport->flush());
    EXPECT_FALSE(mcTransport->flush());
    EXPECT_EQ(receive(0), "(none)");
    EXPECT_EQ(mcWire->flushes(), 0u);
}

TEST_F(HSDataTransports, ALateReplyIsNotTakenForTheNextOne) {
    EXPECT_EQ(text(mcTransport->transact(block("slow?"), 1, 0)), "(none)");
    mcWire->reply(peerBytes(7, 0, kFirst, "slow"));
    mcWire->reply(peerBytes(7, 0, kFirst + 2, "quick"));
    EXPECT_EQ(text(mcTransport->transact(block("quick?"), kPatience, 0)), "quick");
    EXPECT_THAT(vnktest::takeLog(), testing::ElementsAre(kNoTransaction));
}

TEST_F(HSDataTransports, DataBeforeAnythingWasSentIsReportedAndDropped) {
    for (uint32_t uID : {0u, kFirst - 2, kFirst}) {
        arrive(peerBytes(6, 0, uID, "who asked?"));
        EXPECT_THAT(vnktest::takeLog(), testing::ElementsAre(kNoTransactionYet));
    }
    EXPECT_EQ(receive(0), "(none)");
    EXPECT_FALSE(mcTransport->flush());
}

TEST_F(HSDataTransports, DataThatNobodyAskedForIsBounded) {
    send("x?");
    const std::string payload(100, 'x');
    const uint64_t uBefore = vnktest::residentBytes();
    for (uint32_t i = 0; i < 100000; ++i)
        arrive(peerBytes(7, 0, i % 2 ? kFirst : i, payload));
#ifndef VNK_SANITIZED
    EXPECT_LE(vnktest::residentBytes(), uBefore + (16u << 20));
#else
    (void)uBefore;
#endif
    EXPECT_EQ(vnktest::takeLog().size(), 1000u);
    EXPECT_EQ(receive(0), payload);
    EXPECT_EQ(receive(0), "(none)");
}

TEST(HSReplies, AReplyIsBounded) {
    HSReply cReply;
    // Never touched, so it takes no memory.
    auto cPayload = makeReference<MemoryBlock>(256u << 20);
    cPayload->advanceWritePosition(256u << 20);
    EXPECT_TRUE(cReply.add(HiSlip::makeMessage(6, 0, cPayload)));
    EXPECT_TRUE(cReply.add(HiSlip::makeMessage(6, 0)));
    EXPECT_EQ(cReply.size(), 256u << 20);
    EXPECT_FALSE(cReply.add(HiSlip::makeMessage(7, 0, makeReference<MemoryBlock>("x"))));
    EXPECT_FALSE(cReply.mcBlock);
    EXPECT_FALSE(cReply.mbEnded);
    EXPECT_TRUE(cReply.add(HiSlip::makeMessage(7, 0)));
    EXPECT_TRUE(cReply.mbEnded);
    EXPECT_EQ(cReply.size(), 0u);
}

TEST_F(HSDataTransports, AReplyThatNeverEndsIsDroppedAtTheBound) {
    const auto cWire = makeReference<FakeTransport>();
    mcMarshaller = makeReference<_Marshaller>(mcHandlers, HiSlip::Assembler(), false, uint64_t{1} << 20);
    mcTransport->attach(cWire, mcMarshaller);
    send("x?");
    const std::string bytes = peerBytes(6, 0, kFirst, std::string(1u << 17, 'x'));
    for (int i = 0; i < 8; ++i)
        arrive(bytes);
    EXPECT_THAT(vnktest::takeLog(), testing::Each(kNoTransactionYet));
    arrive(peerBytes(6, 0, kFirst, "x"));
    EXPECT_THAT(vnktest::takeLog(), testing::ElementsAre(kNoTransactionYet, kBadState));
    EXPECT_FALSE(mcTransport->flush());
    // One who waits for it gets nothing, at once.
    std::string errorText;
    ReferencePtr<MemoryBlock> cReply;
    std::atomic<bool> bDone{false};
    std::thread cReceiver([&] {
        cReply = mcTransport->receive(10 * kPatience, errorText);
        bDone = true;
    });
    while (!bDone.load())
        arrive(bytes);
    cReceiver.join();
    EXPECT_FALSE(cReply);
    EXPECT_EQ(errorText, "Trapped bad state");
    EXPECT_THAT(vnktest::takeLog(), testing::Contains(kBadState));
}

TEST_F(HSDataTransports, GarbageEmptiesTheReceiveBlock) {
    send("x?");
    std::string bytes = peerBytes(7, 0, kFirst, "wrong");
    bytes[1] = 'T';
    arrive(bytes + peerBytes(7, 0, kFirst, "lost with it"));
    arrive(peerBytes(7, 0, kFirst, "", ~uint64_t{0}));
    EXPECT_THAT(vnktest::takeLog(), testing::ElementsAre(kBadState, kBadState));
    arrive(peerBytes(7, 0, kFirst, "right"));
    EXPECT_EQ(receive(kPatience), "right");
}

TEST_F(HSDataTransports, OtherMessagesGoToTheHandlers) {
    const auto cReply = mcHandlers->await(5, kPatience, [&] {
        arrive(peerBytes(20, 1, 0) + peerBytes(5, 3, 9, "text"));
        return true;
    });
    ASSERT_TRUE(cReply.mbValid);
    EXPECT_EQ(cReply.muControlCode, 3);
    EXPECT_EQ(text(cReply.mcPayload), "text");
    EXPECT_FALSE(mcHandlers->await(5, kPatience, [] { return false; }).mbValid);
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(HSDataTransports, AMessageIsTransactedAsItStands) {
    mcWire->reply(peerBytes(3, 4, 0, "what?"));
    HiSlip::Message cRequest = HiSlip::makeMessage(12, 77, block("trigger"));
    cRequest.muControlCode = 1;
    const auto cReply = mcTransport->transactMessage(cRequest, kPatience);
    ASSERT_TRUE(cReply.mbValid);
    EXPECT_EQ(cReply.muType, 3);
    EXPECT_EQ(text(cReply.mcPayload), "what?");
    EXPECT_EQ(mcWire->sent().back(), peerBytes(12, 1, 77, "trigger"));
    mcWire->reply(peerBytes(6, 0, 42, "a") + peerBytes(7, 0, 42, "b"));
    const auto cData = mcTransport->transactMessage(HiSlip::makeMessage(7, 42, block("x?")), kPatience);
    ASSERT_TRUE(cData.mbValid);
    EXPECT_EQ(cData.muType, 7);
    EXPECT_EQ(cData.muParameter, 42u);
    EXPECT_EQ(text(cData.mcPayload), "ab");
    EXPECT_FALSE(mcTransport->transactMessage(HiSlip::makeMessage(12, 0), 1).mbValid);
    EXPECT_FALSE(mcTransport->transactMessage(HiSlip::makeMessage(7, 43), 1).mbValid);
    mcWire->failSends("broken");
    EXPECT_FALSE(mcTransport->transactMessage(HiSlip::makeMessage(12, 0), kPatience).mbValid);
    EXPECT_FALSE(mcTransport->transactMessage(HiSlip::makeMessage(7, 44), kPatience).mbValid);
}

TEST_F(HSDataTransports, AFailedConnectionEndsEveryWait) {
    send("x?");
    std::string errorText;
    std::thread cReceiver([&] { mcTransport->receive(10 * kPatience, errorText); });
    mcWire->fail("line is down");
    cReceiver.join();
    EXPECT_EQ(errorText, "line is down");
    errorText.clear();
    EXPECT_FALSE(mcTransport->receive(10 * kPatience, errorText));
    EXPECT_EQ(errorText, "line is down");
}

TEST_F(HSDataTransports, ACloseEndsEveryWait) {
    send("x?");
    std::string errorText;
    std::thread cReceiver([&] { mcTransport->receive(10 * kPatience, errorText); });
    EXPECT_TRUE(mcTransport->close());
    cReceiver.join();
    EXPECT_EQ(errorText, "");
    EXPECT_FALSE(mcTransport->isOpen());
    EXPECT_TRUE(mcTransport->open());
    EXPECT_TRUE(mcTransport->isOpen());
    mcWire->reply(peerBytes(7, 0, kFirst, "again"));
    EXPECT_EQ(text(mcTransport->transact(block("y?"), kPatience, 0)), "again");
}

TEST_F(HSDataTransports, AnotherConnectionTakesOverAndEndsWaitsOfTheOld) {
    std::thread cAsker([&] { EXPECT_FALSE(mcTransport->transactRaw(block("x?"), 10 * kPatience)); });
    ASSERT_TRUE(vnktest::waitUntil([&] { return mcWire->sent().size() == 1; }));
    const auto cWire = makeReference<FakeTransport>();
    mcTransport->attach(cWire, makeReference<_Marshaller>(mcHandlers, HiSlip::Assembler(), false));
    cAsker.join();
    EXPECT_FALSE(mcWire->isPolling());
    EXPECT_EQ(mcTransport->lastMessageID(), std::nullopt);
    // What the old one still says is nobody's, though the IDs begin anew.
    cWire->reply(peerBytes(7, 0, kFirst, "new"));
    arrive(peerBytes(7, 0, kFirst, "old"));
    EXPECT_EQ(text(mcTransport->transact(block("y?"), kPatience, 0)), "new");
    EXPECT_EQ(cWire->sent().at(0), peerBytes(7, 0, kFirst, "y?"));
}

TEST_F(HSDataTransports, PollingAndTheTransactionsOfEveryTransportWorkOverItToo) {
    for (uint32_t i = 0; i < 100; ++i) {
        mcWire->reply(peerBytes(6, 0, HiSlip::messageID(i), "re") +
                      peerBytes(7, 0, HiSlip::messageID(i), "ply"));
        const auto cReply = mcTransport->Transport::transact(block("x?"), kPatience, 5);
        EXPECT_EQ(text(cReply), "reply") << i;
    }
}

TEST_F(HSDataTransports, TwoThreadsThatAskAtOnceGetTheirOwnReplies) {
    std::atomic<bool> bStop{false};
    std::thread cUnit([&] {
        size_t uAnswered = 0;
        while (!bStop.load()) {
            const auto lSent = mcWire->sent();
            std::string replies;
            // The last first: order is no key.
            for (size_t i = lSent.size(); i > uAnswered; --i)
                replies += lSent[i - 1];
            uAnswered = lSent.size();
            if (!replies.empty())
                mcWire->queue(replies);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> lAskers;
    for (int iThread = 0; iThread < 2; ++iThread)
        lAskers.emplace_back([&, iThread] {
            for (int i = 0; i < 200; ++i) {
                const std::string question = std::to_string(iThread) + ":" + std::to_string(i) + "?";
                EXPECT_EQ(text(mcTransport->transact(block(question), kPatience, 0)), question);
            }
        });
    for (auto& cThread : lAskers)
        cThread.join();
    bStop = true;
    cUnit.join();
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(OverlappedTransports, RepliesGoToThoseWhoWaitInTurn) {
    mcWire->reply(peerBytes(6, 0, 5, "a") + peerBytes(7, 0, 7, "b"));
    EXPECT_EQ(text(mcTransport->transact(block("x?"), kPatience, 0)), "ab");
    send("y?");
    arrive(peerBytes(7, 0, 9, "kept"));
    EXPECT_EQ(receive(kPatience), "kept");
}

TEST_F(HSDataTransports, ItsEndGivesEverythingBack) {
    mcTransport = nullptr;
    mcMarshaller = nullptr;
    const size_t uThreads = vnktest::idleThreads();
    for (int i = 0; i < 20; ++i) {
        const auto cWire = makeReference<FakeTransport>();
        const auto cMarshaller = makeReference<_Marshaller>(mcHandlers, HiSlip::Assembler(), false);
        auto cTransport = makeReference<HSDataTransport>(cWire, cMarshaller);
        cWire->queue(peerBytes(7, 0, 0, "x"));
        cTransport = nullptr;
        EXPECT_EQ(cWire->referenceCount(), 1u);
        EXPECT_TRUE(vnktest::waitUntil([&] { return cMarshaller->referenceCount() == 1; }));
    }
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; }));
}

}  // namespace
