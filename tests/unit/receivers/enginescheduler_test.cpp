#include "receivers/enginescheduler.h"

#include <gmock/gmock.h>

#include <thread>

#include "flows/iqframesink.h"
#include "flows/spectrumframesink.h"
#include "foundations/text.h"
#include "support/logs.h"
#include "unit/receivers/fakeengines.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using vnktest::Events;
using vnktest::FakeHost;
using vnktest::FakeIQ;
using vnktest::FakeSweep;
using vnktest::takeLogTexts;

namespace {

constexpr SchedulerWords kWords = {"Test::mcEnginesLock", "halt completed", "process ended", "detach called",
                                   "null stream", "Attempted to re-add spectrum stream"};

class SchedulerTest : public testing::Test {
 protected:
    SchedulerTest() { takeLogTexts(); }
    ~SchedulerTest() override { mcScheduler.releaseAll(); }
    struct IQ {
        ReferencePtr<FrameSink> mcSink = makeReference<IQFrameSink>();
        ReferencePtr<FakeIQ> mcEngine;
    };
    struct Sweep {
        ReferencePtr<FrameSink> mcSink = makeReference<SpectrumFrameSink>();
        ReferencePtr<FakeSweep> mcEngine;
    };
    IQ attachIQ(const std::string& name) {
        IQ cIQ;
        cIQ.mcEngine = makeReference<FakeIQ>(name, mcEvents, cIQ.mcSink);
        mcScheduler.attachIQ(
            cIQ.mcSink, [&] { return ReferencePtr<IQEngine>(cIQ.mcEngine); }, mlMessages);
        mcEvents.take();
        return cIQ;
    }
    Sweep attachSweep(const std::string& name) {
        Sweep cSweep;
        cSweep.mcEngine = makeReference<FakeSweep>(name, mcEvents, cSweep.mcSink);
        mcScheduler.attachSweep(
            cSweep.mcSink, [&] { return ReferencePtr<SweepEngine>(cSweep.mcEngine); }, mlMessages);
        return cSweep;
    }
    std::vector<std::string> pass() {
        mcScheduler.pass();
        return mcEvents.take();
    }
    Events mcEvents;
    FakeHost mcHost{mcEvents};
    EngineScheduler mcScheduler{mcHost, kWords};
    ErrorList mlMessages;
};

}  // namespace

TEST_F(SchedulerTest, WithNothingAttachedAPassIsIdle) {
    EXPECT_THAT(pass(), ElementsAre("idle"));
    EXPECT_THAT(pass(), ElementsAre("idle"));
}

TEST_F(SchedulerTest, AnIQEngineIsStartedOnceAndThenProcessed) {
    const IQ cA = attachIQ("a");
    EXPECT_EQ(mcHost.muWakes, 1u);
    EXPECT_THAT(pass(), ElementsAre("a.start", "a.process"));
    EXPECT_EQ(mcScheduler.activeIQ().get(), cA.mcEngine.get());
    EXPECT_THAT(pass(), ElementsAre("a.process"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("::attachStream called", "mcActiveIQ->start() succeeds"));
}

TEST_F(SchedulerTest, TheEngineTakesInItsStreamOnceItIsListed) {
    IQ cIQ;
    cIQ.mcEngine = makeReference<FakeIQ>("a", mcEvents, cIQ.mcSink);
    mcScheduler.attachIQ(
        cIQ.mcSink, [&] { return ReferencePtr<IQEngine>(cIQ.mcEngine); }, mlMessages);
    EXPECT_THAT(mcEvents.take(), ElementsAre("a.in"));
    EXPECT_EQ(mcScheduler.iqCount(), 1u);
}

TEST_F(SchedulerTest, AttachingAServedIQSinkAgainChangesNothingAndSaysNothing) {
    const IQ cA = attachIQ("a");
    takeLogTexts();
    bool bMade = false;
    mcScheduler.attachIQ(
        cA.mcSink, [&] { return bMade = true, ReferencePtr<IQEngine>(); }, mlMessages);
    EXPECT_FALSE(bMade);
    EXPECT_TRUE(mlMessages.empty());
    EXPECT_EQ(mcScheduler.iqCount(), 1u);
    EXPECT_EQ(mcHost.muWakes, 1u);
    const auto uEngine = static_cast<unsigned long long>(
        reinterpret_cast<uintptr_t>(static_cast<IQEngine*>(cA.mcEngine.get())));
    EXPECT_THAT(
        takeLogTexts(),
        ElementsAre("::attachStream called", "Attempt to attach stream already served by IQEngine instance",
                    utils::formatText("mlIQEngines entry 0x%016llux (1 entries)", uEngine)));
}

TEST_F(SchedulerTest, AnEngineThatCannotBeMadeIsReported) {
    mcScheduler.attachIQ(
        makeReference<IQFrameSink>(), [] { return ReferencePtr<IQEngine>(); }, mlMessages);
    mcScheduler.attachSweep(
        makeReference<SpectrumFrameSink>(), [] { return ReferencePtr<SweepEngine>(); }, mlMessages);
    EXPECT_THAT(mlMessages, ElementsAre("Failed to create new IQEngine", "Sweep engine creation failed"));
    EXPECT_EQ(mcHost.muWakes, 0u);
}

TEST_F(SchedulerTest, AFailedStartRecoversAndTriesAgainAtTheNextPass) {
    const IQ cA = attachIQ("a");
    cA.mcEngine->mbCanStart = false;
    takeLogTexts();
    EXPECT_THAT(pass(), ElementsAre("a.start", "recover"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("mcActiveIQ->start(false) returns false"));
    EXPECT_FALSE(mcScheduler.activeIQ());
    EXPECT_EQ(mcScheduler.iqCount(), 1u);
    cA.mcEngine->mbCanStart = true;
    EXPECT_THAT(pass(), ElementsAre("a.start", "a.process"));
}

TEST_F(SchedulerTest, AChangedParameterRestartsTheCaptureAndOneOfBeforeTheStartDoesNot) {
    const IQ cA = attachIQ("a");
    cA.mcEngine->mbRestart = true;
    EXPECT_THAT(pass(), ElementsAre("a.start", "a.process"));
    cA.mcEngine->mbRestart = true;
    EXPECT_THAT(pass(), ElementsAre("a.stop(false)", "a.start", "a.process"));
    EXPECT_THAT(pass(), ElementsAre("a.process"));
}

TEST_F(SchedulerTest, AFailedRestartIsAFailedStart) {
    const IQ cA = attachIQ("a");
    pass();
    cA.mcEngine->mbRestart = true;
    cA.mcEngine->mbCanStart = false;
    EXPECT_THAT(pass(), ElementsAre("a.stop(false)", "a.start", "recover"));
    EXPECT_FALSE(mcScheduler.activeIQ());
    EXPECT_THAT(pass(), ElementsAre("a.start", "recover"));
}

TEST_F(SchedulerTest, AFinishedCaptureLeavesItsListAndIsHaltedInOrder) {
    const IQ cA = attachIQ("a");
    pass();
    takeLogTexts();
    cA.mcEngine->mbDone = true;
    EXPECT_THAT(pass(), ElementsAre("a.process", "a.wait", "a.terminate", "a.halted"));
    EXPECT_THAT(takeLogTexts(),
                ElementsAre("process ended", "_removeIQEngine removed engine:true", "halt completed"));
    EXPECT_EQ(mcScheduler.iqCount(), 0u);
    EXPECT_TRUE(mcScheduler.activeIQ());
    EXPECT_THAT(pass(), ElementsAre("a.stop(true)", "idle"));
    EXPECT_FALSE(mcScheduler.activeIQ());
}

TEST_F(SchedulerTest, ASecondIQStreamWaitsUntilTheFirstHasLeft) {
    const IQ cA = attachIQ("a");
    const IQ cB = attachIQ("b");
    pass();
    EXPECT_THAT(pass(), ElementsAre("a.process"));
    cA.mcEngine->mbDone = true;
    pass();
    EXPECT_THAT(pass(), ElementsAre("a.stop(true)", "b.start", "b.process"));
}

TEST_F(SchedulerTest, DetachingAWaitingIQStreamTakesItOutAtOnce) {
    const IQ cA = attachIQ("a");
    const IQ cB = attachIQ("b");
    pass();
    takeLogTexts();
    EXPECT_TRUE(mcScheduler.detachIQ(cB.mcSink));
    EXPECT_EQ(mcScheduler.iqCount(), 1u);
    EXPECT_THAT(takeLogTexts(), ElementsAre("detach called", "pre-remove mlIQEnginesSize=2, removed:true",
                                            "::detachStream syncHalt...", "FrameSource::removeFrameSink",
                                            "::detachStream syncHalt completed..."));
    EXPECT_FALSE(mcScheduler.detachIQ(cB.mcSink));
    EXPECT_THAT(takeLogTexts(), ElementsAre("detach called", "pre-remove mlIQEnginesSize=1, removed:false"));
}

TEST_F(SchedulerTest, DetachingNoStreamIsFalse) {
    EXPECT_FALSE(mcScheduler.detachIQ(nullptr));
    EXPECT_THAT(takeLogTexts(), ElementsAre("detach called", "null stream"));
    EXPECT_FALSE(mcScheduler.detachSweep(nullptr));
}

TEST_F(SchedulerTest, DetachingARunningIQStreamWaitsForTheRunLoopToHaltIt) {
    const IQ cA = attachIQ("a");
    pass();
    takeLogTexts();
    std::atomic<bool> bDone{false};
    std::thread cLoop([&] {
        while (!bDone)
            mcScheduler.pass();
    });
    EXPECT_TRUE(mcScheduler.detachIQ(cA.mcSink));
    EXPECT_EQ(mcScheduler.iqCount(), 0u);
    bDone = true;
    cLoop.join();
    EXPECT_THAT(takeLogTexts(), Contains("pre-remove mlIQEnginesSize=1, removed:false"));
    EXPECT_THAT(mcEvents.take(), Contains("a.halted"));
}

TEST_F(SchedulerTest, AnIQStreamStopsASweepAtTheNextPassAndKeepsItWaiting) {
    const Sweep cS = attachSweep("s");
    EXPECT_THAT(pass(), ElementsAre("recover", "s.start(true)", "s.process"));
    const IQ cA = attachIQ("a");
    takeLogTexts();
    EXPECT_THAT(pass(), ElementsAre("s.stop", "a.start", "a.process"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("mcActiveSweep->stop()", "mcActiveIQ->start() succeeds"));
    EXPECT_FALSE(mcScheduler.activeSweep());
    EXPECT_THAT(pass(), ElementsAre("a.process"));
    cA.mcEngine->mbDone = true;
    pass();
    EXPECT_THAT(pass(), ElementsAre("a.stop(true)", "recover", "s.start(true)", "s.process"));
}

TEST_F(SchedulerTest, ALoneSweepIsStartedOnceAndRunsContinuously) {
    const Sweep cS = attachSweep("s");
    EXPECT_THAT(pass(), ElementsAre("recover", "s.start(true)", "s.process"));
    EXPECT_THAT(pass(), ElementsAre("s.process"));
}

TEST_F(SchedulerTest, AnInhibitedLoneSweepIsStartedAfreshEachPass) {
    mcHost.mbInhibit = true;
    const Sweep cS = attachSweep("s");
    EXPECT_THAT(pass(), ElementsAre("recover", "s.start(false)", "s.process"));
    EXPECT_THAT(pass(), ElementsAre("s.start(false)", "s.process"));
    mcHost.mbInhibit = false;
    EXPECT_THAT(pass(), ElementsAre("s.start(true)", "s.process"));
}

TEST_F(SchedulerTest, SeveralSweepsTakeTurnsAndANewOneIsNext) {
    const Sweep cA = attachSweep("a");
    pass();
    const Sweep cB = attachSweep("b");
    EXPECT_THAT(pass(), ElementsAre("a.stop", "b.start(false)", "b.process"));
    EXPECT_THAT(pass(), ElementsAre("b.stop", "a.start(false)", "a.process"));
    const Sweep cC = attachSweep("c");
    EXPECT_THAT(pass(), ElementsAre("a.stop", "c.start(false)", "c.process"));
    EXPECT_THAT(pass(), ElementsAre("c.stop", "b.start(false)", "b.process"));
    EXPECT_THAT(pass(), ElementsAre("b.stop", "a.start(false)", "a.process"));
    EXPECT_THAT(pass(), ElementsAre("a.stop", "c.start(false)", "c.process"));
}

TEST_F(SchedulerTest, AttachingAServedSpectrumSinkAgainIsReported) {
    const Sweep cA = attachSweep("a");
    mcScheduler.attachSweep(
        cA.mcSink, [] { return ReferencePtr<SweepEngine>(); }, mlMessages);
    EXPECT_THAT(mlMessages, ElementsAre("Attempted to re-add spectrum stream"));
    EXPECT_EQ(mcScheduler.sweepCount(), 1u);
}

TEST_F(SchedulerTest, DetachingOneOfTwoSweepsMakesTheOtherContinuous) {
    const Sweep cA = attachSweep("a");
    const Sweep cB = attachSweep("b");
    pass();
    takeLogTexts();
    EXPECT_TRUE(cB.mcSink->isAttached());
    EXPECT_TRUE(mcScheduler.detachSweep(cB.mcSink));
    EXPECT_FALSE(cB.mcSink->isAttached());
    EXPECT_THAT(takeLogTexts(), Contains("_SweepMechanism detached leaving 1 sweep engines"));
    EXPECT_THAT(mcEvents.take(), ElementsAre("a.changed"));
    EXPECT_THAT(pass(), ElementsAre("b.stop", "a.start(true)", "a.process"));
}

TEST_F(SchedulerTest, DetachingOneOfThreeSweepsTellsNobody) {
    const Sweep cA = attachSweep("a");
    const Sweep cB = attachSweep("b");
    const Sweep cC = attachSweep("c");
    EXPECT_TRUE(mcScheduler.detachSweep(cA.mcSink));
    EXPECT_THAT(mcEvents.take(), IsEmpty());
}

TEST_F(SchedulerTest, ADetachThatFindsNothingStillHasAPairOfSweepsReExamined) {
    const Sweep cA = attachSweep("a");
    const Sweep cB = attachSweep("b");
    const Sweep cC = attachSweep("c");
    EXPECT_TRUE(mcScheduler.detachSweep(cA.mcSink));
    EXPECT_FALSE(mcScheduler.detachSweep(cA.mcSink));
    EXPECT_THAT(mcEvents.take(), testing::UnorderedElementsAre("b.changed", "c.changed"));
}

TEST_F(SchedulerTest, ASweepLeftWithoutStreamsIsStoppedAndAccessRecovered) {
    const Sweep cA = attachSweep("a");
    pass();
    mcScheduler.detachSweep(cA.mcSink);
    EXPECT_THAT(pass(), ElementsAre("a.stop", "recover"));
    EXPECT_THAT(pass(), ElementsAre("idle"));
}

TEST_F(SchedulerTest, AFailedSweepStartRecoversAndStaysListed) {
    const Sweep cA = attachSweep("a");
    cA.mcEngine->mbCanStart = false;
    EXPECT_THAT(pass(), ElementsAre("recover", "a.start(true)", "recover"));
    EXPECT_FALSE(mcScheduler.activeSweep());
    EXPECT_EQ(mcScheduler.sweepCount(), 1u);
}

TEST_F(SchedulerTest, AFinishedSweepLeavesItsList) {
    const Sweep cA = attachSweep("a");
    cA.mcEngine->mbDone = true;
    takeLogTexts();
    pass();
    EXPECT_EQ(mcScheduler.sweepCount(), 0u);
    EXPECT_THAT(takeLogTexts(), ElementsAre("after remove (true) - mlSweepEngines(size=0)",
                                            "SpectrumStream halt syncComplete"));
}

TEST_F(SchedulerTest, TheEndOfTheLoopLetsTheActiveEngineGoWithoutAStop) {
    const IQ cA = attachIQ("a");
    pass();
    mcScheduler.clearActive();
    EXPECT_FALSE(mcScheduler.activeIQ());
    EXPECT_THAT(mcEvents.take(), IsEmpty());
    EXPECT_THAT(pass(), ElementsAre("a.start", "a.process"));
}

TEST_F(SchedulerTest, AChangeOfTheLinkIsToldToEveryEngine) {
    const IQ cA = attachIQ("a");
    const IQ cB = attachIQ("b");
    const Sweep cS = attachSweep("s");
    mcScheduler.linkChanged();
    EXPECT_THAT(mcEvents.take(), ElementsAre("a.link", "b.link", "s.link"));
}

TEST_F(SchedulerTest, TheReceiversEndLetsAllEnginesGo) {
    const IQ cA = attachIQ("a");
    const Sweep cS = attachSweep("s");
    pass();
    mcScheduler.releaseAll();
    EXPECT_EQ(cA.mcEngine->referenceCount(), 1u);
    EXPECT_EQ(cS.mcEngine->referenceCount(), 1u);
}

TEST_F(SchedulerTest, FourThreadsAttachAndDetachWhileTheLoopRunsAndNothingIsLeft) {
    std::atomic<bool> bDone{false};
    std::thread cLoop([&] {
        while (!bDone) {
            mcScheduler.pass();
            mcEvents.take();
        }
    });
    std::vector<std::thread> lThreads;
    for (int iThread = 0; iThread < 4; ++iThread)
        lThreads.emplace_back([this, iThread] {
            ErrorList lMessages;
            for (int iRound = 0; iRound < 100; ++iRound) {
                if (iThread == 0) {
                    const ReferencePtr<FrameSink> cSink = makeReference<IQFrameSink>();
                    mcScheduler.attachIQ(
                        cSink, [&] { return ReferencePtr<IQEngine>(new FakeIQ("i", mcEvents, cSink)); },
                        lMessages);
                    EXPECT_TRUE(mcScheduler.detachIQ(cSink));
                } else {
                    const ReferencePtr<FrameSink> cSink = makeReference<SpectrumFrameSink>();
                    mcScheduler.attachSweep(
                        cSink, [&] { return ReferencePtr<SweepEngine>(new FakeSweep("s", mcEvents, cSink)); },
                        lMessages);
                    EXPECT_TRUE(mcScheduler.detachSweep(cSink));
                }
            }
            EXPECT_TRUE(lMessages.empty());
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    bDone = true;
    cLoop.join();
    EXPECT_EQ(mcScheduler.iqCount(), 0u);
    EXPECT_EQ(mcScheduler.sweepCount(), 0u);
}

// What a family may have otherwise.

TEST_F(SchedulerTest, ASweepThatLeavesOnlyByDetachStaysWhenItSaysThatItHasEnded) {
    SchedulerWords cWords = kWords;
    cWords.mbSweepsEnd = false;
    EngineScheduler cScheduler{mcHost, cWords};
    const auto cSink = makeReference<SpectrumFrameSink>();
    const auto cEngine = makeReference<FakeSweep>("s", mcEvents, cSink);
    cEngine->mbDone = true;
    cScheduler.attachSweep(cSink, [&] { return ReferencePtr<SweepEngine>(cEngine); }, mlMessages);
    takeLogTexts();
    for (int i = 0; i < 3; ++i)
        cScheduler.pass();
    EXPECT_EQ(cScheduler.sweepCount(), 1u);
    EXPECT_EQ(cScheduler.activeSweep().get(), cEngine.get());
    EXPECT_THAT(mcEvents.take(), ElementsAre("recover", "s.start(true)", "s.process", "s.process", "s.process"));
    EXPECT_THAT(takeLogTexts(), IsEmpty());
    EXPECT_TRUE(cScheduler.detachSweep(cSink));
    EXPECT_EQ(cScheduler.sweepCount(), 0u);
    cScheduler.releaseAll();
}

TEST_F(SchedulerTest, ACaptureThatHasEndedTellsHowManyAreLeftWhereThatIsWanted) {
    SchedulerWords cWords = kWords;
    cWords.mbTellsIQCount = true;
    EngineScheduler cScheduler{mcHost, cWords};
    std::vector<ReferencePtr<FakeIQ>> lEngines;   // none ends, with a line of its own, in a pass
    for (const char* pName : {"a", "b"}) {
        const auto cSink = makeReference<IQFrameSink>();
        lEngines.push_back(makeReference<FakeIQ>(pName, mcEvents, cSink));
        lEngines.back()->mbDone = true;
        cScheduler.attachIQ(cSink, [&] { return ReferencePtr<IQEngine>(lEngines.back()); }, mlMessages);
    }
    for (const char* pCount : {"1", "0"}) {
        takeLogTexts();
        cScheduler.pass();
        EXPECT_THAT(takeLogTexts(),
                    ElementsAre("mcActiveIQ->start() succeeds", "process ended",
                                std::string("after remove (true) - mlIQEngines(size=") + pCount + ")", "halt completed"));
    }
    cScheduler.releaseAll();
}
