#include "links/transport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <thread>

#include "faketransport.h"
#include "foundations/clock.h"
#include "log.h"
#include "support/loopback.h"
#include "support/resources.h"

using testing::ElementsAre;
using testing::IsEmpty;
using utils::MemoryBlock;
using vnktest::FakeTransport;
using vnktest::waitUntil;

namespace {

/// Keeps what it is given; says what the test tells it to.
class Recorder : public Transport::Callback {
 public:
    bool onData(ReferencePtr<MemoryBlock> cBlock) override {
        muCalls.fetch_add(1);
        if (cBlock) {
            std::lock_guard<std::mutex> cGuard(mcMutex);
            mText += cBlock->getText();
            cBlock->setReadPosition(cBlock->getSize());
        }
        if (mcOnCall)
            mcOnCall();
        return mbGoOn.load();
    }
    void onError(const std::string& text) override {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mErrors.push_back(text);
    }
    std::string text() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mText;
    }
    std::vector<std::string> errors() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mErrors;
    }
    unsigned calls() const { return muCalls.load(); }
    std::atomic<bool> mbGoOn{true};
    std::function<void()> mcOnCall;

 private:
    std::mutex mcMutex;
    std::string mText;
    std::vector<std::string> mErrors;
    std::atomic<unsigned> muCalls{0};
};

class CountedRecorder : public utils::ReferenceCountedObject, public Recorder {
 public:
    explicit CountedRecorder(std::atomic<int>& iAlive) : miAlive(iAlive) { ++miAlive; }
    ~CountedRecorder() override { --miAlive; }
    utils::ReferenceCountedObject* countedSelf() override { return this; }

 private:
    std::atomic<int>& miAlive;
};

class Transports : public testing::Test {
 protected:
    ReferencePtr<FakeTransport> mcTransport = makeReference<FakeTransport>();
    Recorder mcFirst;
    Recorder mcSecond;

    void TearDown() override {
        mcTransport->clearCallback(&mcFirst);
        mcTransport->clearCallback(&mcSecond);
    }
    ReferencePtr<MemoryBlock> transact(int32_t iTimeoutMs, uint32_t uLeastSize) {
        return mcTransport->transact(makeReference<MemoryBlock>("Q?\n"), iTimeoutMs, uLeastSize);
    }
};

TEST_F(Transports, ADescriptionIsTypeNameAndAddress) {
    EXPECT_EQ(makeReference<FakeTransport>("host:37001")->getDescription(), "FAKE:host:37001");
}

TEST_F(Transports, ANewTransportPollsEveryFiveMillisecondsInChunksOf1024) {
    EXPECT_EQ(mcTransport->getPollTimeoutMs(), 5u);
    EXPECT_EQ(mcTransport->getChunkSize(), 1024u);
    EXPECT_EQ(mcTransport->getLastError(), "");
    EXPECT_FALSE(mcTransport->isPolling());
}

TEST_F(Transports, ThePollTimeoutOnlyFallsAndTheChunkSizeOnlyRises) {
    EXPECT_TRUE(mcTransport->setCallback(&mcFirst, 100, 512));
    EXPECT_EQ(mcTransport->getPollTimeoutMs(), 5u);
    EXPECT_EQ(mcTransport->getChunkSize(), 1024u);
    EXPECT_TRUE(mcTransport->setCallback(&mcSecond, 2, 4096));
    EXPECT_EQ(mcTransport->getPollTimeoutMs(), 2u);
    EXPECT_EQ(mcTransport->getChunkSize(), 4096u);
    mcTransport->clearCallback(&mcSecond);
    mcTransport->setCallback(&mcFirst, 5, 1024);
    EXPECT_EQ(mcTransport->getPollTimeoutMs(), 2u);
    EXPECT_EQ(mcTransport->getChunkSize(), 4096u);
}

TEST_F(Transports, TheSameCallbackTwiceIsRefusedAndRestartsNothing) {
    mcFirst.mbGoOn.store(false);
    EXPECT_TRUE(mcTransport->setCallback(&mcFirst, 5, 1024));
    ASSERT_TRUE(waitUntil([&] { return mcFirst.calls() == 1 && !mcTransport->isPolling(); }));
    EXPECT_FALSE(mcTransport->setCallback(&mcFirst, 1, 9999));
    EXPECT_EQ(mcTransport->getPollTimeoutMs(), 5u);
    EXPECT_FALSE(mcTransport->isPolling());
    EXPECT_EQ(mcFirst.calls(), 1u);
}

TEST_F(Transports, ClearingAnotherCallbackIsFalseAndLeavesThePollingOn) {
    mcTransport->setCallback(&mcFirst, 5, 1024);
    EXPECT_FALSE(mcTransport->clearCallback(&mcSecond));
    EXPECT_FALSE(mcTransport->clearCallback(nullptr));
    mcTransport->queue("still");
    EXPECT_TRUE(waitUntil([&] { return mcFirst.text() == "still"; }));
}

TEST_F(Transports, ClearingTheCallbackEndsThePolling) {
    mcTransport->setCallback(&mcFirst, 5, 1024);
    ASSERT_TRUE(waitUntil([&] { return mcFirst.calls() > 0; }));
    EXPECT_TRUE(mcTransport->clearCallback(&mcFirst));
    EXPECT_FALSE(mcTransport->isPolling());
    EXPECT_FALSE(mcTransport->clearCallback(&mcFirst));
}

TEST_F(Transports, APollThatEndsWithNothingIsACallWithNoBlock) {
    mcTransport->setCallback(&mcFirst, 5, 1024);
    EXPECT_TRUE(waitUntil([&] { return mcFirst.calls() >= 3; }));
    EXPECT_EQ(mcFirst.text(), "");
}

TEST_F(Transports, ACallbackThatDeclinesEndsThePollingAndAnotherStartsItAgain) {
    mcFirst.mbGoOn.store(false);
    mcTransport->setCallback(&mcFirst, 5, 1024);
    ASSERT_TRUE(waitUntil([&] { return mcFirst.calls() == 1 && !mcTransport->isPolling(); }));
    mcTransport->queue("two");
    EXPECT_TRUE(mcTransport->setCallback(&mcSecond, 5, 1024));
    EXPECT_TRUE(waitUntil([&] { return mcSecond.text() == "two"; }));
    EXPECT_EQ(mcFirst.calls(), 1u);
}

TEST_F(Transports, ACallbackSetWhileThePollingEndsIsServedAllTheSame) {
    mcFirst.mbGoOn.store(false);
    mcSecond.mbGoOn.store(false);
    for (unsigned i = 1; i <= 300; ++i) {
        mcTransport->setCallback(&mcFirst, 0, 1024);
        ASSERT_TRUE(waitUntil([&] { return mcFirst.calls() == i; }));
        mcTransport->setCallback(&mcSecond, 0, 1024);  // the body may be on its way out just now
        ASSERT_TRUE(waitUntil([&] { return mcSecond.calls() == i; }));
    }
}

TEST_F(Transports, AnErrorReachesTheCallbackAndEndsThePolling) {
    mcTransport->setCallback(&mcFirst, 5, 1024);
    mcTransport->fail("broken");
    ASSERT_TRUE(waitUntil([&] { return !mcFirst.errors().empty() && !mcTransport->isPolling(); }));
    EXPECT_THAT(mcFirst.errors(), ElementsAre("broken"));
    EXPECT_EQ(mcTransport->getLastError(), "broken");
}

TEST_F(Transports, TheLastErrorHoldsTheNewestFirst) {
    for (const char* pText : {"one", "two", "three"}) {
        mcTransport->setCallback(&mcFirst, 5, 1024);
        mcTransport->fail(pText);
        ASSERT_TRUE(waitUntil([&] { return !mcTransport->isPolling(); }));
        mcTransport->clearCallback(&mcFirst);
    }
    EXPECT_EQ(mcTransport->getLastError(), "three, two, one");
}

TEST_F(Transports, ALinkThatAnswersAtOnceWithNothingDoesNotSpinThePollingThread) {
    class Ended : public FakeTransport {
        ReferencePtr<MemoryBlock> receive(uint32_t, std::string&) override {
            muCalls.fetch_add(1);
            return makeReference<MemoryBlock>(16u);
        }

     public:
        std::atomic<unsigned> muCalls{0};
    };
    const auto cEnded = makeReference<Ended>();
    const uint64_t uStart = utils::steadyMilliseconds();
    cEnded->setCallback(&mcFirst, 5, 1024);
    ASSERT_TRUE(waitUntil([&] { return cEnded->muCalls.load() >= 50; }));
    cEnded->clearCallback(&mcFirst);
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 50u * 3u);
}

TEST_F(Transports, ACallbackMayClearItselfDuringItsCall) {
    mcFirst.mcOnCall = [&] { EXPECT_TRUE(mcTransport->clearCallback(&mcFirst)); };
    mcTransport->setCallback(&mcFirst, 5, 1024);
    EXPECT_TRUE(waitUntil([&] { return mcFirst.calls() == 1 && !mcTransport->isPolling(); }));
}

TEST_F(Transports, ACallbackMaySetItsSuccessorDuringItsCall) {
    mcFirst.mbGoOn.store(false);
    mcFirst.mcOnCall = [&] { EXPECT_TRUE(mcTransport->setCallback(&mcSecond, 5, 1024)); };
    mcTransport->setCallback(&mcFirst, 5, 1024);
    ASSERT_TRUE(waitUntil([&] { return mcSecond.calls() > 0; }));
    EXPECT_EQ(mcFirst.calls(), 1u);
}

TEST_F(Transports, ACallOfMoreThanASecondOutlivesItsClearAndItsOwner) {
    std::atomic<int> iAlive{0};
    std::promise<void> cEntered;
    std::promise<void> cLeave;
    auto cLeaving = cLeave.get_future().share();
    auto cLate = makeReference<CountedRecorder>(iAlive);
    cLate->mbGoOn.store(false);
    cLate->mcOnCall = [&cEntered, cLeaving] {
        cEntered.set_value();
        cLeaving.wait();
    };
    mcTransport->setCallback(cLate.get(), 5, 1024);
    cEntered.get_future().wait();
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_TRUE(mcTransport->clearCallback(cLate.get()));
    const uint64_t uPassed = utils::steadyMilliseconds() - uStart;
    EXPECT_GE(uPassed, 900u);
    EXPECT_LT(uPassed, 3000u);
    cLate = nullptr;
    EXPECT_EQ(iAlive.load(), 1);  // held until the call is over
    cLeave.set_value();
    EXPECT_TRUE(waitUntil([&] { return iAlive.load() == 0; }));
    // The late thread serves whoever comes next.
    EXPECT_TRUE(mcTransport->setCallback(&mcSecond, 5, 1024));
    EXPECT_TRUE(waitUntil([&] { return mcSecond.calls() > 0; }));
}

TEST_F(Transports, NothingIsReadBeforeACountedCallbackHasAnOwner) {
    std::atomic<int> iAlive{0};
    auto* const pCallback = new CountedRecorder(iAlive);
    mcTransport->queue("kept");
    mcTransport->setCallback(pCallback, 5, 1024);
    ASSERT_TRUE(waitUntil([&] { return mcTransport->isPolling(); }));
    EXPECT_FALSE(mcTransport->drained());
    EXPECT_EQ(pCallback->calls(), 0u);
    ReferencePtr<CountedRecorder> cOwner(pCallback);
    EXPECT_TRUE(waitUntil([&] { return cOwner->text() == "kept"; }));
    mcTransport->clearCallback(pCallback);
}

TEST_F(Transports, ATransportThatEndsOnItsOwnThreadOutlivesItsBody) {
    std::atomic<bool> bEnded{false};
    class Watched : public FakeTransport {
     public:
        explicit Watched(std::atomic<bool>& bFlag) : mbFlag(bFlag) {}
        ~Watched() override { mbFlag.store(true); }

     private:
        std::atomic<bool>& mbFlag;
    };
    auto cTransport = makeReference<Watched>(bEnded);
    std::promise<void> cReleased;
    auto cGo = cReleased.get_future().share();
    ReferencePtr<Transport> cLast(cTransport);
    mcFirst.mcOnCall = [&, cGo] {
        cGo.wait();
        cLast = nullptr;
    };
    cTransport->setCallback(&mcFirst, 5, 1024);
    cTransport = nullptr;
    cReleased.set_value();
    EXPECT_TRUE(waitUntil([&] { return bEnded.load(); }));
}

TEST_F(Transports, ATransportWhoseBodyIsStuckEndsInTimeAndTouchesNothingFreed) {
    std::atomic<bool> bEnded{false};
    std::promise<void> cEntered;
    std::promise<void> cLeave;
    class Stuck : public FakeTransport {
     public:
        Stuck(std::promise<void>& cIn, std::shared_future<void> cOut, std::atomic<bool>& bFlag)
            : mcIn(cIn), mcOut(std::move(cOut)), mbFlag(bFlag) {}
        ~Stuck() override { mbFlag.store(true); }
        ReferencePtr<MemoryBlock> receive(uint32_t, std::string&) override {
            mcIn.set_value();
            mcOut.wait();
            mWork = "still alive";
            return nullptr;
        }

     private:
        std::promise<void>& mcIn;
        std::shared_future<void> mcOut;
        std::string mWork;
        std::atomic<bool>& mbFlag;
    };
    auto cStuck = makeReference<Stuck>(cEntered, cLeave.get_future().share(), bEnded);
    cStuck->setCallback(&mcFirst, 5, 1024);
    cEntered.get_future().wait();
    const uint64_t uStart = utils::steadyMilliseconds();
    cStuck = nullptr;
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 4000u);
    EXPECT_FALSE(bEnded.load());
    cLeave.set_value();
    EXPECT_TRUE(waitUntil([&] { return bEnded.load(); }));
}

TEST_F(Transports, AnExceptionOfACallbackEndsThePollingAndALaterCallbackIsServed) {
    vnktest::clearLog();
    mcFirst.mcOnCall = [] { throw 5; };
    mcTransport->setCallback(&mcFirst, 5, 1024);
    ASSERT_TRUE(waitUntil([&] { return mcFirst.calls() == 1 && !mcTransport->isPolling(); }));
    EXPECT_TRUE(vnktest::logHolds(-9001));
    mcTransport->setCallback(&mcSecond, 5, 1024);
    EXPECT_TRUE(waitUntil([&] { return mcSecond.calls() > 0; }));
}

TEST_F(Transports, ATransactionGivesTheReply) {
    mcTransport->queue("stale");
    mcTransport->reply("ANSWER\n");
    const auto cReply = transact(5000, 0);
    ASSERT_TRUE(cReply);
    EXPECT_EQ(cReply->getText(), "ANSWER\n");
    EXPECT_EQ(mcTransport->flushes(), 1u);
    EXPECT_THAT(mcTransport->sent(), ElementsAre("Q?\n"));
}

TEST_F(Transports, ALeastSizeOfZeroYieldsTheFirstPieceAndTheNextRequestDiscardsTheRest) {
    mcTransport->reply("first");
    mcTransport->reply("second");
    EXPECT_EQ(transact(5000, 0)->getText(), "first");
    mcTransport->reply("third");
    EXPECT_EQ(transact(5000, 0)->getText(), "third");
}

TEST_F(Transports, PiecesAreCollectedUntilTheLeastSizeIsThere) {
    mcTransport->reply("ab");
    mcTransport->reply("cd");
    mcTransport->reply("ef");
    EXPECT_EQ(transact(5000, 4)->getText(), "abcd");
}

TEST_F(Transports, APartialReplyIsReturnedAtTheTimeout) {
    mcTransport->reply("ab");
    const uint64_t uStart = utils::steadyMilliseconds();
    const auto cReply = transact(200, 4);
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 200u);
    ASSERT_TRUE(cReply);
    EXPECT_EQ(cReply->getText(), "ab");
}

TEST_F(Transports, NoReplyYieldsNoBlockAtTheTimeout) {
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(transact(100, 0));
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 100u);
}

TEST_F(Transports, ATransactionWhoseSendFailsReturnsAtOnceWithNothing) {
    mcTransport->failSends("no way");
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(transact(20000, 0));
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 5000u);
    EXPECT_FALSE(mcTransport->isPolling());
}

TEST_F(Transports, AnEmptyFirstPieceCompletesALeastSizeOfZero) {
    mcTransport->reply("");
    const auto cReply = transact(20000, 0);
    ASSERT_TRUE(cReply);
    EXPECT_EQ(cReply->getSize(), 0u);
}

TEST_F(Transports, AnErrorDuringATransactionWakesNobody) {
    std::thread cFail([&] {
        waitUntil([&] { return !mcTransport->sent().empty(); });
        mcTransport->fail("gone");
    });
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(transact(300, 0));
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 300u);
    cFail.join();
}

TEST_F(Transports, ATimeoutOfZeroOrBelowReturnsAtOnceAndAHugeOneWaits) {
    EXPECT_FALSE(transact(0, 4));
    EXPECT_FALSE(transact(-5, 4));
    mcTransport->reply("x");
    EXPECT_EQ(transact(0x7FFFFFFF, 0)->getText(), "x");
}

TEST_F(Transports, WithoutARequestATransactionOnlyWaits) {
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(mcTransport->transact(nullptr, 100, 0));
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 100u);
    EXPECT_EQ(mcTransport->flushes(), 0u);
    EXPECT_EQ(mcTransport->receives(), 0u);
}

TEST_F(Transports, ATransactionTakesThePlaceOfTheCallbackSet) {
    mcTransport->setCallback(&mcFirst, 5, 1024);
    mcTransport->reply("mine");
    EXPECT_EQ(transact(5000, 0)->getText(), "mine");
    EXPECT_FALSE(mcTransport->clearCallback(&mcFirst));
}

TEST_F(Transports, TransactionsOfManyThreadsEndInTimeAndLeaveNothingBehind) {
    const size_t uThreads = vnktest::idleThreads();
    std::vector<std::thread> lThreads;
    for (int i = 0; i < 4; ++i)
        lThreads.emplace_back([&] {
            for (int k = 0; k < 100; ++k) {
                mcTransport->reply("r");
                transact(3, 0);  // replies may mix
            }
        });
    for (auto& cThread : lThreads)
        cThread.join();
    // The transport works as before.
    mcTransport->flush();
    mcTransport->reply("after");
    ASSERT_TRUE(waitUntil([&] {
        const auto cReply = transact(1000, 5);
        return cReply && cReply->getText().find("after") != std::string::npos;
    }));
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
}

class NamedType : public TransportType {
 public:
    explicit NamedType(const std::string& name, bool bOpens = true) : TransportType(name), mbOpens(bOpens) {}
    ReferencePtr<Transport> create(const std::string& address) override {
        return mbOpens ? makeReference<FakeTransport>(address) : nullptr;
    }

 private:
    bool mbOpens;
};

TEST(TransportTypes, TheFirstTypeOfTheNameDecidesAndTheCaseCounts) {
    NamedType cFirst("memory", false);
    NamedType cSecond("memory");
    NamedType cOther("Memory");
    vnktest::clearLog();
    EXPECT_FALSE(TransportType::openByName("memory", "a"));
    ASSERT_TRUE(TransportType::openByName("Memory", "a"));
    EXPECT_EQ(TransportType::openByName("Memory", "a")->getAddress(), "a");
    EXPECT_FALSE(TransportType::openByName("mem", "a"));
    EXPECT_FALSE(TransportType::openByName("", "a"));
    EXPECT_THAT(vnktest::takeLog(), IsEmpty());
}

}  // namespace
