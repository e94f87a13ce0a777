#include "receivers/iqengine.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "unit/receivers/plainengine.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vnktest::takeLogTexts;

namespace {

class IQEngineHaltTest : public vnktest::IQEngineFixture {};

}  // namespace

TEST_F(IQEngineHaltTest, AnEndlessCaptureIsNeverExhaustedAndNeverEndsByItself) {
    startAndForget();
    mcEngine->packet(1ull << 40, -15.0f);
    EXPECT_FALSE(mcEngine->isExhausted());
    EXPECT_TRUE(mcEngine->process());
}

TEST_F(IQEngineHaltTest, ACountedCaptureIsStoppedWhenItsSamplesHaveCome) {
    mcEngine->muSamples = 1000;
    EXPECT_FALSE(mcEngine->isExhausted());
    startAndForget();
    mcEngine->packet(999, -15.0f);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_FALSE(mcEngine->isExhausted());
    mcEngine->packet(1, -15.0f);
    EXPECT_TRUE(mcEngine->isExhausted());
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":TRACe:STReam:STOP; :SYSTEM:FLUSH"));
    EXPECT_THAT(takeLogTexts(), Contains("stops at count"));
    EXPECT_FALSE(mcEngine->isStreaming());
}

TEST_F(IQEngineHaltTest, AFiniteCaptureEndsWithoutACommand) {
    mcEngine->mbFinite = true;
    mcEngine->muSamples = 1000;
    startAndForget();
    mcEngine->packet(1024, -15.0f);
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_THAT(takeLogTexts(), ElementsAre("completed"));
    EXPECT_FALSE(mcEngine->isStreaming());
}

TEST_F(IQEngineHaltTest, ADetachOfAnIdleEngineHasNothingToWaitFor) {
    EXPECT_FALSE(mcEngine->syncHaltStream());
}

TEST_F(IQEngineHaltTest, ADetachWaitsUntilTheCaptureHasBeenHalted) {
    mcEngine->mbFinite = true;
    startAndForget();
    std::atomic<bool> bHalted{false};
    std::thread cDetach([&] { bHalted = mcEngine->syncHaltStream(); });
    while (mcEngine->process())
        std::this_thread::yield();
    EXPECT_THAT(takeLogTexts(), Contains("forced"));
    EXPECT_TRUE(mcEngine->waitForEndOfVRTData());
    EXPECT_TRUE(mcEngine->terminate());
    EXPECT_FALSE(bHalted);
    mcEngine->notifyHalted();
    cDetach.join();
    EXPECT_TRUE(bHalted);
    EXPECT_FALSE(mcStream->isAttached());
    const std::vector<std::string> lTexts = takeLogTexts();
    EXPECT_THAT(lTexts, Contains("::_waitForEndOfVRTData - bWaitSuccess=true"));
    EXPECT_THAT(lTexts, Contains(HasSubstr("::terminate called on IQEngine 0x0000")));
    EXPECT_THAT(lTexts, Contains("::notifyHalted"));
}

TEST_F(IQEngineHaltTest, AHaltThatNobodyCarriesOutEndsAfterFiveSeconds) {
    startAndForget();
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(mcEngine->syncHaltStream());
    const uint64_t uElapsed = utils::steadyMilliseconds() - uStart;
    EXPECT_GE(uElapsed, 5000u);
    EXPECT_LT(uElapsed, 20000u);
    EXPECT_FALSE(mcEngine->process());
}

TEST_F(IQEngineHaltTest, AUnitThatNeverFallsQuietIsWaitedForFiveSeconds) {
    startAndForget();
    std::atomic<bool> bDone{false};
    // Several, and none that uses up its time on a processor: one that waits for it would leave the line quiet.
    std::vector<std::thread> lUnit;
    for (int i = 0; i < 4; ++i)
        lUnit.emplace_back([&] {
            while (!bDone) {
                mcEngine->noteData();
                utils::sleepMs(1);
            }
        });
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(mcEngine->waitForEndOfVRTData());
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 20000u);
    bDone = true;
    for (std::thread& cThread : lUnit)
        cThread.join();
    EXPECT_THAT(takeLogTexts(), Contains("::_waitForEndOfVRTData - bWaitSuccess=false"));
}

TEST_F(IQEngineHaltTest, TheEndOfACaptureIsANullFrameAndLetsTheStreamGo) {
    startAndForget();
    mcEngine->terminate();
    EXPECT_FALSE(mcStream->isAttached());
    EXPECT_EQ(mcEngine->sinkCount(), 0u);
    EXPECT_FALSE(mcStream->nextFrame(0, false));
    EXPECT_TRUE(mcStream->isExhausted());
}

TEST_F(IQEngineHaltTest, AnEngineWhoseStreamHasGoneIsNotProgrammedAgainAndLeaves) {
    startAndForget();
    EXPECT_TRUE(mcEngine->removeFrameSink(mcStream));
    EXPECT_FALSE(mcEngine->serves(mcStream.get()));
    EXPECT_FALSE(mcStream->isAttached());
    EXPECT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_FALSE(mcEngine->process());
    // Nobody waits for this halt: the unit is left idle and the input empty.
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre(":TRACe:STReam:STOP; :SYSTEM:FLUSH", ":SYSTem:CAPTure:MODE?", ":SYSTEM:FLUSH"));
}

TEST_F(IQEngineHaltTest, ADetachAskedForDuringARestartIsNotForgotten) {
    startAndForget();
    std::thread cDetach([&] { EXPECT_TRUE(mcEngine->syncHaltStream()); });
    while (mcEngine->process())
        std::this_thread::yield();
    mcSCPI->take();
    EXPECT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_FALSE(mcEngine->process());
    mcEngine->notifyHalted();
    cDetach.join();
}
