#include "foundations/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "foundations/fatalerror.h"
#include "foundations/runtimeerrors.h"
#include "support/loopback.h"

namespace {

using utils::Barrier;
using utils::RuntimeErrors;
using utils::steadyMilliseconds;
using utils::Thread;
using vnktest::waitUntil;

constexpr uint32_t kNormal = 2;

class Body : public Thread {
 public:
    explicit Body(std::function<void(Body&)> cBody) : Thread("Body"), mcBody(std::move(cBody)) {}
    ~Body() override { stop(5000); }

 private:
    void run() override { mcBody(*this); }
    std::function<void(Body&)> mcBody;
};

void untilStopped(Body& cThread) {
    while (!cThread.isStopping())
        cThread.sleep(1000);
}

TEST(Thread, stopOfAThreadNeverStartedIsTrueAtOnce) {
    Body cThread(untilStopped);
    const uint64_t uBegin = steadyMilliseconds();
    EXPECT_TRUE(cThread.stop(10'000));
    EXPECT_TRUE(cThread.stop(0));
    EXPECT_LT(steadyMilliseconds() - uBegin, 5000u);
}

TEST(Thread, runsUntilItIsStoppedAndStartsAgain) {
    std::atomic<int> iBodies{0};
    Body cThread([&](Body& cSelf) {
        ++iBodies;
        untilStopped(cSelf);
    });
    for (int i = 1; i <= 3; ++i) {
        EXPECT_FALSE(cThread.isRunning());
        ASSERT_TRUE(cThread.start(kNormal));
        EXPECT_TRUE(waitUntil([&] { return iBodies == i; }));
        EXPECT_FALSE(cThread.isStopping());
        EXPECT_FALSE(cThread.start(kNormal)) << "the running flag is set";
        EXPECT_TRUE(cThread.stop(10'000));
        EXPECT_TRUE(cThread.isStopping());
    }
    EXPECT_EQ(iBodies, 3);
    EXPECT_EQ(cThread.getName(), "Body");
}

TEST(Thread, aStopRightAfterTheStartIsNotLost) {
    Body cThread(untilStopped);
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(cThread.start(kNormal));
        ASSERT_TRUE(cThread.stop(10'000));
    }
}

TEST(Thread, aBodyThatEndsByItselfMayBeStartedAgain) {
    std::atomic<int> iBodies{0};
    Body cThread([&](Body&) { ++iBodies; });
    for (int i = 1; i <= 20; ++i) {
        ASSERT_TRUE(waitUntil([&] { return cThread.start(kNormal); }));
        ASSERT_TRUE(waitUntil([&] { return iBodies == i; }));
    }
    EXPECT_TRUE(waitUntil([&] { return !cThread.isRunning(); }));
}

TEST(Thread, stopWithoutALimitWaitsAsLongAsItTakes) {
    Barrier cGo("go");
    std::atomic<bool> bEnded{false};
    Body cThread([&](Body&) {
        cGo.wait(30'000'000);
        bEnded = true;
    });
    cThread.start(kNormal);
    std::thread cReleaser([&] {
        utils::sleepMs(150);
        cGo.signal();
    });
    EXPECT_TRUE(cThread.stop(0));
    EXPECT_TRUE(bEnded);
    cReleaser.join();
}

TEST(Thread, aStopPastItsLimitIsFalseInTime) {
    Barrier cGo("go");
    Body cThread([&](Body&) { cGo.wait(30'000'000); });
    cThread.start(kNormal);
    const uint64_t uBegin = steadyMilliseconds();
    EXPECT_FALSE(cThread.stop(50));
    const uint64_t uTook = steadyMilliseconds() - uBegin;
    EXPECT_GE(uTook, 50u);
    EXPECT_LT(uTook, 5000u);
    EXPECT_TRUE(cThread.isRunning()) << "the late body still holds the visible flag";
    EXPECT_FALSE(cThread.start(kNormal));
    EXPECT_TRUE(cThread.stop(50)) << "nobody waits for it any more";
    EXPECT_FALSE(cThread.isRunning());
    cGo.signal();
    // The body uses this frame: it must have left before the frame goes.
    Barrier cRetired("retired");
    cThread.retire(0, [&] { cRetired.signal(); });
    EXPECT_TRUE(cRetired.wait(30'000'000));
}

TEST(Thread, aRestartedThreadHasItsOwnStopToken) {
    Barrier cFirstGo("go");
    Barrier cFirstSaw("saw");
    std::atomic<int> iBodies{0};
    std::atomic<bool> bFirstSawStop{false};
    std::atomic<bool> bSecondSawStop{true};
    Body cThread([&](Body& cSelf) {
        if (++iBodies == 1) {
            cFirstGo.wait(30'000'000);
            bFirstSawStop = cSelf.isStopping();
            cFirstSaw.signal();
        } else {
            bSecondSawStop = cSelf.isStopping();
            untilStopped(cSelf);
        }
    });
    cThread.start(kNormal);
    ASSERT_TRUE(waitUntil([&] { return iBodies == 1; }));
    EXPECT_FALSE(cThread.stop(20));
    EXPECT_TRUE(cThread.stop(20));
    ASSERT_TRUE(cThread.start(kNormal));
    ASSERT_TRUE(waitUntil([&] { return iBodies == 2 && !bSecondSawStop; }));
    EXPECT_FALSE(cThread.isStopping()) << "the visible flag is that of the last launch";
    cFirstGo.signal();
    ASSERT_TRUE(cFirstSaw.wait(30'000'000));
    EXPECT_TRUE(bFirstSawStop);
    EXPECT_TRUE(cThread.isRunning()) << "the end of the first body is none of the second";
    EXPECT_TRUE(cThread.stop(10'000));
}

TEST(Thread, aStartAnewBesideABodyThatHasBeenAskedLeavesThatBehind) {
    Barrier cFirstGo("go");
    Barrier cFirstDone("done");
    std::atomic<int> iBodies{0};
    std::atomic<bool> bFirstSeen{false}, bLeftBehind{false};
    Body cThread([&](Body& cSelf) {
        if (++iBodies == 1) {
            EXPECT_FALSE(cSelf.isLeftBehind());
            bFirstSeen = true;
            cFirstGo.wait(30'000'000);
            bLeftBehind = cSelf.isLeftBehind();
            cFirstDone.signal();
        } else {
            EXPECT_FALSE(cSelf.isLeftBehind());
            untilStopped(cSelf);
        }
    });
    ASSERT_TRUE(cThread.startAnew(kNormal));
    // A thread that has been taken over may not have got to its body yet.
    ASSERT_TRUE(waitUntil([&] { return bFirstSeen.load(); }));
    EXPECT_FALSE(cThread.startAnew(kNormal)) << "it has not been asked to end";
    cThread.ask();
    EXPECT_FALSE(cThread.start(kNormal)) << "the running flag is set";
    ASSERT_TRUE(cThread.startAnew(kNormal));
    EXPECT_FALSE(cThread.startAnew(kNormal));
    ASSERT_TRUE(waitUntil([&] { return iBodies == 2; }));
    cFirstGo.signal();
    ASSERT_TRUE(cFirstDone.wait(30'000'000));
    EXPECT_TRUE(bLeftBehind);
    EXPECT_FALSE(cThread.isLeftBehind()) << "elsewhere than on a body";
    EXPECT_TRUE(cThread.isRunning());
    EXPECT_TRUE(cThread.stop(10'000));
    Barrier cRetired("retired");
    cThread.retire(0, [&] { cRetired.signal(); });
    EXPECT_TRUE(cRetired.wait(30'000'000));
}

TEST(Thread, aNotifyEndsASleepEarly) {
    std::atomic<uint64_t> uSlept{0};
    Barrier cAsleep("asleep");
    Body cThread([&](Body& cSelf) {
        const uint64_t uBegin = steadyMilliseconds();
        cAsleep.signal();
        cSelf.sleep(60'000);
        uSlept = steadyMilliseconds() - uBegin;
    });
    cThread.start(kNormal);
    ASSERT_TRUE(cAsleep.wait(30'000'000));
    utils::sleepMs(10);
    cThread.notify();
    EXPECT_TRUE(waitUntil([&] { return !cThread.isRunning(); }));
    EXPECT_LT(uSlept, 30'000u);
}

TEST(Thread, aSleepWithoutNotifyLastsItsTime) {
    Body cThread([](Body&) {});
    const uint64_t uBegin = steadyMilliseconds();
    cThread.sleep(20);
    EXPECT_GE(steadyMilliseconds() - uBegin, 19u);
    cThread.notify();
    cThread.sleep(0xFFFFFFFF);
}

TEST(Thread, aStopFromItsOwnBodyOnlyAsks) {
    std::atomic<int> iAnswer{-1};
    Body cThread([&](Body& cSelf) {
        EXPECT_TRUE(cSelf.isOwnThread());
        iAnswer = cSelf.stop(0);
        EXPECT_TRUE(cSelf.isStopping());
    });
    cThread.start(kNormal);
    EXPECT_TRUE(waitUntil([&] { return iAnswer == 0; }));
    EXPECT_TRUE(cThread.stop(10'000));
    EXPECT_FALSE(cThread.isOwnThread());
}

template <typename Thrown>
void expectReportAndRestart(Thrown cThrown) {
    RuntimeErrors::instance().clear();
    std::atomic<int> iBodies{0};
    Body cThread([&](Body&) {
        ++iBodies;
        throw cThrown;
    });
    for (int i = 1; i <= 2; ++i) {
        ASSERT_TRUE(cThread.start(kNormal));
        ASSERT_TRUE(waitUntil([&] { return iBodies == i && !cThread.isRunning(); }));
        const auto lErrors = RuntimeErrors::instance().takeErrors();
        ASSERT_EQ(lErrors.size(), 1u);
        EXPECT_EQ(lErrors.front().code(), -9001);
        const std::string& message = lErrors.front().message();
        EXPECT_TRUE(message.starts_with("Thread 0x")) << message;
        EXPECT_TRUE(message.ends_with(" raised an exception")) << message;
        EXPECT_EQ(message.size(), std::string("Thread 0x00000000 raised an exception").size());
    }
}

TEST(Thread, aBodyThatThrowsEndsTheThreadWithOneReport) {
    expectReportAndRestart(utils::FatalError("broken"));
    expectReportAndRestart(std::bad_alloc());
    expectReportAndRestart(42);
}

TEST(Thread, aLateBodyThatThrowsIsReportedAsOneWithoutAThread) {
    RuntimeErrors::instance().clear();
    Barrier cGo("go");
    Body cThread([&](Body&) {
        cGo.wait(30'000'000);
        throw 1;
    });
    cThread.start(kNormal);
    EXPECT_FALSE(cThread.stop(20));
    cGo.signal();
    ASSERT_TRUE(waitUntil([&] { return !cThread.isRunning(); }));
    const auto lErrors = RuntimeErrors::instance().takeErrors();
    ASSERT_EQ(lErrors.size(), 1u);
    EXPECT_EQ(lErrors.front().code(), -9001);
    EXPECT_EQ(lErrors.front().message(), "Thread::wrapper exit with mcThread==nullptr");
}

TEST(Thread, aRefusedThreadIsASystemErrorAndTheNextStartWorks) {
    pthread_attr_t cDefault;
    ASSERT_EQ(pthread_getattr_default_np(&cDefault), 0);
    pthread_attr_t cHuge;
    ASSERT_EQ(pthread_getattr_default_np(&cHuge), 0);
    // No address space holds such a stack: the system answers as it does when it is out of threads.
    ASSERT_EQ(pthread_attr_setstacksize(&cHuge, size_t{1} << 60), 0);
    std::atomic<int> iBodies{0};
    Body cThread([&](Body&) { ++iBodies; });
    ASSERT_EQ(pthread_setattr_default_np(&cHuge), 0);
    try {
        cThread.start(kNormal);
        ADD_FAILURE() << "started";
    } catch (const std::system_error& cError) {
        EXPECT_EQ(cError.code(), std::errc::resource_unavailable_try_again);
    }
    ASSERT_EQ(pthread_setattr_default_np(&cDefault), 0);
    EXPECT_FALSE(cThread.isRunning());
    EXPECT_TRUE(cThread.stop(0));
    EXPECT_TRUE(cThread.start(kNormal));
    EXPECT_TRUE(waitUntil([&] { return iBodies == 1; }));
    pthread_attr_destroy(&cDefault);
    pthread_attr_destroy(&cHuge);
}

int priorityOfBody(uint32_t uPriority) {
    std::atomic<int> iNice{0};
    Body cThread([&](Body&) { iNice = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())); });
    EXPECT_TRUE(cThread.start(uPriority));
    EXPECT_TRUE(waitUntil([&] { return !cThread.isRunning(); }));
    return iNice;
}

TEST(Thread, prioritiesKeepTheirOrderAndOthersAreNormal) {
    const int iNormal = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    int iLast = 19;
    for (uint32_t uPriority = 0; uPriority <= 6; ++uPriority) {
        const int iNice = priorityOfBody(uPriority);
        EXPECT_LE(iNice, iLast) << uPriority;
        iLast = iNice;
    }
    EXPECT_EQ(priorityOfBody(kNormal), iNormal);
    EXPECT_EQ(priorityOfBody(9), iNormal);
    EXPECT_EQ(priorityOfBody(std::numeric_limits<uint32_t>::max()), iNormal);
}

/// A counted class with a thread of its own, as the links and the receivers have.
class Owner : public utils::ReferenceCountedObject, public Thread {
 public:
    Owner(std::atomic<int>& iAlive, std::function<void(Owner&)> cBody)
        : Thread("Owner"), miAlive(iAlive), mcBody(std::move(cBody)) {
        ++miAlive;
    }
    ~Owner() override { --miAlive; }
    std::atomic<int> miTouched{0};

 protected:
    void destroySelf() noexcept override {
        retire(20, [this] { delete this; });
    }
    void run() override { mcBody(*this); }

 private:
    std::atomic<int>& miAlive;
    std::function<void(Owner&)> mcBody;
};

TEST(ThreadRetire, anEndedBodyLetsTheObjectGoAtOnce) {
    std::atomic<int> iAlive{0};
    for (int i = 0; i < 100; ++i) {
        auto cOwner = makeReference<Owner>(iAlive, [](Owner& cSelf) {
            while (!cSelf.isStopping())
                cSelf.sleep(1);
        });
        cOwner->start(kNormal);
        if (i % 2)
            cOwner->stop(10'000);
        cOwner->notify();
        cOwner.release();
        ASSERT_TRUE(waitUntil([&] { return iAlive == 0; }));
    }
    auto cNeverStarted = makeReference<Owner>(iAlive, [](Owner&) {});
    cNeverStarted.release();
    EXPECT_EQ(iAlive, 0);
}

TEST(ThreadRetire, aLateBodyKeepsTheObjectUntilItsOwnEnd) {
    std::atomic<int> iAlive{0};
    Barrier cGo("go");
    auto cOwner = makeReference<Owner>(iAlive, [&](Owner& cSelf) {
        cGo.wait(30'000'000);
        for (int i = 0; i < 1000; ++i)
            ++cSelf.miTouched;
    });
    cOwner->start(kNormal);
    cOwner.release();
    EXPECT_EQ(iAlive, 1);
    cGo.signal();
    EXPECT_TRUE(waitUntil([&] { return iAlive == 0; }));
}

TEST(ThreadRetire, theLastOfSeveralLateBodiesTakesTheObjectAlong) {
    std::atomic<int> iAlive{0};
    std::atomic<int> iBodies{0};
    Barrier cFirst("first"), cSecond("second");
    auto cOwner = makeReference<Owner>(iAlive, [&](Owner& cSelf) {
        Barrier& cMine = ++iBodies == 1 ? cFirst : cSecond;
        cMine.wait(30'000'000);
        ++cSelf.miTouched;
        ++iBodies;
    });
    cOwner->start(kNormal);
    ASSERT_TRUE(waitUntil([&] { return iBodies == 1; }));
    EXPECT_FALSE(cOwner->stop(10));
    EXPECT_TRUE(cOwner->stop(10));
    ASSERT_TRUE(cOwner->start(kNormal));
    ASSERT_TRUE(waitUntil([&] { return iBodies == 2; }));
    cOwner.release();
    cSecond.signal();
    ASSERT_TRUE(waitUntil([&] { return iBodies == 3; }));
    EXPECT_EQ(iAlive, 1);
    cFirst.signal();
    EXPECT_TRUE(waitUntil([&] { return iAlive == 0; }));
}

TEST(ThreadRetire, theLastReferenceMayFallOnTheThreadItself) {
    std::atomic<int> iAlive{0};
    for (int i = 0; i < 50; ++i) {
        Barrier cHandedOver("handed over");
        ReferencePtr<Owner> cShared;
        auto cOwner = makeReference<Owner>(iAlive, [&](Owner& cSelf) {
            cHandedOver.wait(30'000'000);
            cShared.release();
            ++cSelf.miTouched;  // still there: its end waits for the body
            EXPECT_TRUE(cSelf.isStopping());
        });
        cShared = cOwner;
        cOwner->start(kNormal);
        cOwner.release();
        cHandedOver.signal();
        ASSERT_TRUE(waitUntil([&] { return iAlive == 0; }));
    }
}

TEST(ThreadRetire, startsStopsAndReadsFromSeveralThreadsAgree) {
    Body cThread([](Body& cSelf) {
        while (!cSelf.isStopping())
            cSelf.sleep(1);
    });
    std::atomic<bool> bEnd{false};
    std::thread cReader([&] {
        while (!bEnd) {
            cThread.isRunning();
            cThread.isStopping();
            cThread.notify();
            std::this_thread::yield();
        }
    });
    std::thread cStopper([&] {
        for (int i = 0; i < 30; ++i)
            cThread.stop(5000);
    });
    for (int i = 0; i < 30; ++i)
        cThread.start(kNormal);
    cStopper.join();
    bEnd = true;
    cReader.join();
    EXPECT_TRUE(cThread.stop(10'000));
}

}  // namespace
