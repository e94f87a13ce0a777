#include "foundations/barrier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>
#include <vector>

#include "foundations/clock.h"
#include "support/loopback.h"

namespace {

using utils::Barrier;
using utils::steadyMicroseconds;

constexpr uint64_t kForever = std::numeric_limits<uint64_t>::max();

#ifdef VNK_SANITIZED
constexpr int kHandOvers = 60'000;
#else
constexpr int kHandOvers = 300'000;
#endif

TEST(Barrier, aSignalBeforeTheWaitIsConsumedByOneWait) {
    Barrier cBarrier("test");
    cBarrier.signal();
    EXPECT_TRUE(cBarrier.wait(kForever));
    const uint64_t uBegin = steadyMicroseconds();
    EXPECT_FALSE(cBarrier.wait(20'000));
    EXPECT_GE(steadyMicroseconds() - uBegin, 20'000u);
}

TEST(Barrier, twoSignalsInARowAreWorthOneWait) {
    Barrier cBarrier("test");
    cBarrier.signal();
    cBarrier.signal();
    EXPECT_TRUE(cBarrier.wait(0));
    EXPECT_FALSE(cBarrier.wait(1000));
}

TEST(Barrier, aLimitOfZeroOnlyLooks) {
    Barrier cBarrier("test");
    EXPECT_FALSE(cBarrier.wait(0));
    cBarrier.signal();
    EXPECT_TRUE(cBarrier.wait(0));
    EXPECT_FALSE(cBarrier.wait(0));
}

class BarrierLimit : public testing::TestWithParam<uint64_t> {};

TEST_P(BarrierLimit, aHugeLimitWaitsForTheSignal) {
    Barrier cBarrier("test");
    std::atomic<bool> bReturned{false};
    std::thread cWaiter([&] {
        EXPECT_TRUE(cBarrier.wait(GetParam()));
        bReturned = true;
    });
    EXPECT_FALSE(vnktest::waitUntil([&] { return bReturned.load(); }, std::chrono::milliseconds(30)));
    cBarrier.signal();
    cWaiter.join();
    EXPECT_TRUE(bReturned);
}

INSTANTIATE_TEST_SUITE_P(Limits, BarrierLimit,
                         testing::Values(kForever, kForever / 1000, uint64_t{0xFFFFFFFF} * 1000,
                                         uint64_t{1'000'000'000'000'000}, uint64_t{1'000'000'000'000'001}));

TEST(Barrier, oneSignalFreesOneOfSeveralWaiters) {
    Barrier cBarrier("test");
    std::atomic<int> iFreed{0};
    std::vector<std::thread> cWaiters;
    for (int i = 0; i < 3; ++i)
        cWaiters.emplace_back([&] {
            cBarrier.wait(kForever);
            ++iFreed;
        });
    for (int i = 1; i <= 3; ++i) {
        cBarrier.signal();
        EXPECT_TRUE(vnktest::waitUntil([&] { return iFreed == i; }));
    }
    EXPECT_FALSE(cBarrier.wait(0));
    for (auto& cThread : cWaiters)
        cThread.join();
}

TEST(Barrier, noSignalIsLostInAPingPong) {
    Barrier cPing("ping");
    Barrier cPong("pong");
    std::thread cOther([&] {
        for (int i = 0; i < kHandOvers / 2; ++i) {
            ASSERT_TRUE(cPing.wait(30'000'000));
            cPong.signal();
        }
    });
    for (int i = 0; i < kHandOvers / 2; ++i) {
        cPing.signal();
        ASSERT_TRUE(cPong.wait(30'000'000));
    }
    cOther.join();
}

TEST(Barrier, aSignalAtTheLimitIsEitherTakenOrKept) {
    Barrier cBarrier("test");
    int iTaken = 0;
    constexpr int kRounds = 300;
    for (int i = 0; i < kRounds; ++i) {
        std::thread cSignaller([&] { cBarrier.signal(); });
        bool bTaken = cBarrier.wait(static_cast<uint64_t>(i % 100));
        cSignaller.join();
        bTaken = bTaken || cBarrier.wait(0);
        iTaken += bTaken;
    }
    EXPECT_EQ(iTaken, kRounds);
}

TEST(Clock, theSteadyClocksAgreeAndNeverGoBack) {
    uint64_t uLast = steadyMicroseconds();
    for (int i = 0; i < 1000; ++i) {
        const uint64_t uNow = steadyMicroseconds();
        ASSERT_GE(uNow, uLast);
        uLast = uNow;
    }
    EXPECT_LE(utils::steadyMilliseconds() - uLast / 1000, 1000u);
}

TEST(Clock, theSystemClockCountsFrom1970) {
    const auto cNow = std::chrono::system_clock::now().time_since_epoch();
    const auto iExpected = std::chrono::duration_cast<std::chrono::seconds>(cNow).count();
    EXPECT_NEAR(static_cast<double>(utils::systemMicroseconds()) / 1e6, static_cast<double>(iExpected), 5.0);
}

TEST(Clock, aSleepLastsAtLeastItsTimeAndZeroReturnsAtOnce) {
    const uint64_t uBegin = steadyMicroseconds();
    utils::sleepMs(15);
    EXPECT_GE(steadyMicroseconds() - uBegin, 15'000u);
    utils::sleepMs(0);
}

}  // namespace
