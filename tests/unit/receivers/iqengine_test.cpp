#include "receivers/iqengine.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <thread>

#include "unit/receivers/plainengine.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using vnktest::LogLine;
using vnktest::PlainEngine;
using vnktest::takeLog;
using vnktest::takeLogTexts;

namespace {

class IQEngineTest : public vnktest::IQEngineFixture {};

}  // namespace

TEST(IQRequestReading, ACentreAndABandwidthAreNeeded) {
    takeLog(true);
    utils::VariantRecord cParameters;
    EXPECT_FALSE(readIQRequest(cParameters));
    cParameters.set("FCentreHz", 1e8f);
    EXPECT_FALSE(readIQRequest(cParameters));
    EXPECT_THAT(takeLogTexts(), ElementsAre("FCentreHz not specified", "IFBWHz not specified"));
    cParameters.set("IFBWHz", 200000);
    const auto cRequest = readIQRequest(cParameters);
    ASSERT_TRUE(cRequest);
    EXPECT_EQ(cRequest->mfIFBWHz, 200000.0f);
    EXPECT_EQ(cRequest->mfRefdBm, -50.0f);
    EXPECT_EQ(cRequest->mfUserCaldB, 0.0f);
    EXPECT_EQ(cRequest->mfCaptureSec, 0.0f);
}

TEST(IQRequestReading, TheCaptureTimeIsHeldBetweenZeroAndTwoMinutes) {
    const float fInfinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(limitCaptureSec(500.0f), 120.0f);
    EXPECT_EQ(limitCaptureSec(1e30f), 120.0f);
    EXPECT_EQ(limitCaptureSec(fInfinity), 120.0f);
    EXPECT_EQ(limitCaptureSec(-1.0f), 0.0f);
    EXPECT_EQ(limitCaptureSec(-fInfinity), 0.0f);
    EXPECT_EQ(limitCaptureSec(std::numeric_limits<float>::quiet_NaN()), 0.0f);
    EXPECT_EQ(limitCaptureSec(119.5f), 119.5f);
}

TEST_F(IQEngineTest, AContinuousCaptureIsSetUpThenStartedWithAFreshIdentifier) {
    EXPECT_FALSE(mcEngine->isStreaming());
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SET UP", "SYST:ERR?", ":TRACe:STReam:STARt 1"));
    EXPECT_TRUE(mcEngine->isStreaming());
    EXPECT_THAT(takeLogTexts(), ElementsAre("no wait IQ stream start", "mbIQStreamDataValid"));
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SET UP", "SYST:ERR?", ":TRACe:STReam:STARt 2"));
}

TEST_F(IQEngineTest, AFiniteCaptureIsAOneEntryList) {
    mcEngine->mbFinite = true;
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SET UP", "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_THAT(takeLogTexts(), Contains("no wait finite IQ stream start"));
}

TEST_F(IQEngineTest, TheStreamIsTakenInOnceAndLetGoAtTheEngineEnd) {
    EXPECT_FALSE(mcStream->isAttached());
    EXPECT_TRUE(mcEngine->serves(mcStream.get()));
    EXPECT_FALSE(mcEngine->serves(nullptr));
    mcEngine->takeInStream();
    EXPECT_EQ(mcStream->sourcePointer(), mcEngine.get());
    mcEngine->takeInStream();
    EXPECT_EQ(mcEngine->sinkCount(), 1u);
    mcSCPI->mcOnSend = nullptr;
    mcEngine.release();
    EXPECT_FALSE(mcStream->isAttached());
}

TEST_F(IQEngineTest, AStartTakesInAStreamThatIsNotYetTakenIn) {
    ASSERT_TRUE(mcEngine->start());
    EXPECT_TRUE(mcStream->isAttached());
}

TEST_F(IQEngineTest, ABadSetupIsReported) {
    const auto cEngine = makeReference<PlainEngine>(mcContext, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6017, "bad setup"}));
    EXPECT_TRUE(cEngine->start());
    EXPECT_FALSE(cEngine->process());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(IQEngineTest, WithoutAContextTheStartFailsAfterTwoSeconds) {
    mbUnitAnswers = false;
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(mcEngine->start());
    const uint64_t uElapsed = utils::steadyMilliseconds() - uStart;
    EXPECT_GE(uElapsed, 2000u);
    EXPECT_LT(uElapsed, 8000u);
    EXPECT_FALSE(mcEngine->isStreaming());
}

TEST_F(IQEngineTest, AWrongIdentifierLeavesTheDataInvalid) {
    startAndForget();
    const auto cCapture = mcEngine->capture();
    EXPECT_TRUE(cCapture->mbDataValid);
    mcEngine->noteIdentifier(7);
    EXPECT_FALSE(cCapture->mbDataValid);
    mcEngine->noteIdentifier(1);
    EXPECT_TRUE(cCapture->mbDataValid);
}

TEST_F(IQEngineTest, AnIdentifierBeforeAnyStartIsIgnored) {
    mcEngine->noteIdentifier(1);
    EXPECT_FALSE(mcEngine->isStreaming());
}

TEST_F(IQEngineTest, AStoppingReceiverLeavesTheWaitForDataEarly) {
    mbUnitAnswers = false;
    mcChannel->setStopTest([] { return true; });
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(mcEngine->start());
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 1500u);
}

TEST_F(IQEngineTest, ABatchThatTheUnitRefusesIsLoggedAndFailsTheStart) {
    mcSCPI->reply("SYST:ERR?", "-200,\"Execution error\"");
    EXPECT_FALSE(mcEngine->start());
    EXPECT_THAT(takeLogTexts(), Contains("Command 'SET UP' generated Execution error"));
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SET UP", "SYST:ERR?"));
}

TEST_F(IQEngineTest, ARequestThatCannotBePlannedSendsNothingAndWritesNothing) {
    mcEngine->mbCanPlan = false;
    EXPECT_FALSE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_FALSE(number("SampleRateHz"));
}

TEST_F(IQEngineTest, ARefusedSetUpIsNotSentContinuouslyAndIsSentFinitely) {
    mcEngine->mcRefusal = "cannot";
    EXPECT_FALSE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_THAT(takeLogTexts(), Contains("cannot"));
    mcEngine->mbFinite = true;
    EXPECT_FALSE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SET UP", "SYST:ERR?"));
}

TEST_F(IQEngineTest, RealisedValuesAreReadFromTheStreamAndReplacedAtEachStart) {
    set("captureSec", 1.0f);
    mcEngine->mcMaxContiguousSec = 1.5f;
    ASSERT_TRUE(mcEngine->start());
    EXPECT_EQ(number("SampleRateHz"), 31250000.0f);
    EXPECT_EQ(number("maxContiguousSec"), 1.5f);
    EXPECT_EQ(mcStream->getParameters().getBool("contiguous"), true);
    set("captureSec", 2.0f);
    ASSERT_TRUE(mcEngine->start());
    EXPECT_EQ(number("maxContiguousSec"), 1.5f);
    EXPECT_FALSE(mcStream->getParameters().getBool("contiguous"));
    mcEngine->mcMaxContiguousSec.reset();
    ASSERT_TRUE(mcEngine->start());
    EXPECT_FALSE(number("maxContiguousSec"));
    EXPECT_EQ(number("SampleRateHz"), 31250000.0f);
}

TEST_F(IQEngineTest, ALimitedCaptureTimeIsShownAndAStartDoesNotAskForTheNext) {
    set("captureSec", 500.0f);
    mcEngine->takeInStream();
    ASSERT_TRUE(mcEngine->start());
    EXPECT_EQ(number("captureSec"), 120.0f);
    EXPECT_EQ(mcEngine->mcRequest->mfCaptureSec, 120.0f);
    EXPECT_FALSE(mcEngine->takeRestart());
}

TEST_F(IQEngineTest, AParameterChangeAsksForARestartOnce) {
    mcEngine->takeInStream();
    set("FCentreHz", 2e8f);
    EXPECT_TRUE(mcEngine->takeRestart());
    EXPECT_FALSE(mcEngine->takeRestart());
}

TEST_F(IQEngineTest, AChangeOutOfRangeIsRefusedByTheRunningEngine) {
    mcEngine->takeInStream();
    utils::VariantRecord cRecord;
    cRecord.set("IFBWHz", 5e7f);
    ErrorList lErrors;
    EXPECT_FALSE(mcStream->setSinkParameters(cRecord, lErrors, false));
    EXPECT_THAT(lErrors, ElementsAre("FIFBWHz 5.0000e+07 is out of range (1.0000e+05, 4.0000e+07)",
                                     "Connected source cannot implement requested parameter change"));
    EXPECT_FALSE(mcEngine->takeRestart());
}

TEST_F(IQEngineTest, AStopOfAnIdleEngineSendsNothing) {
    mcEngine->stop(true);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(IQEngineTest, AStopSendsOneCommandAndAQuietOneAlsoEmptiesTheInput) {
    startAndForget();
    mcEngine->stop(false);
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":TRACe:STReam:STOP; :SYSTEM:FLUSH"));
    EXPECT_THAT(takeLogTexts(), Contains("Issued :TRACe:STReam:STOP"));
    EXPECT_FALSE(mcEngine->isStreaming());
    EXPECT_EQ(mcEngine->muDrains, 0u);
    startAndForget();
    mcEngine->stop(true);
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre(":TRACe:STReam:STOP; :SYSTEM:FLUSH", ":SYSTem:CAPTure:MODE?", ":SYSTEM:FLUSH"));
    EXPECT_EQ(mcEngine->muDrains, 1u);
}

TEST_F(IQEngineTest, AUnitThatStaysInItsModeIsAbortedAndThenGivenUp) {
    startAndForget();
    mcSCPI->reply(":SYSTem:CAPTure:MODE?", "STREAMING");
    mcEngine->stop(true);
    const std::vector<std::string> lSent = mcSCPI->take();
    EXPECT_THAT(lSent, Contains("SYSTem:ABORt"));
    EXPECT_THAT(lSent, Not(Contains(":SYSTEM:FLUSH")));
    EXPECT_THAT(takeLog(), Contains(LogLine{-6006, "Device unit one failed to stop"}));
    EXPECT_EQ(mcEngine->muDrains, 0u);
    EXPECT_FALSE(mcEngine->isStreaming());
}

TEST_F(IQEngineTest, AFiniteCaptureIsNotStoppedByACommand) {
    mcEngine->mbFinite = true;
    startAndForget();
    mcEngine->stop(true);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_THAT(takeLogTexts(), Contains("Not issuing unnecessary SweepListStop - it is done..."));
}

TEST_F(IQEngineTest, AdaptStepRaisesTheLevelAndRestartsTheCapture) {
    set("adaptStep", true);
    set("RefdBm", -40.0f);
    startAndForget();
    mcEngine->takeRestart();
    mcEngine->packet(100, -5.0f);
    mcEngine->stop(false);
    EXPECT_EQ(number("RefdBm"), -30.0f);
    EXPECT_TRUE(mcEngine->takeRestart());
}

TEST_F(IQEngineTest, AdaptStepLowersTheLevelOfAWeakSignalAndKeepsThatOfAGoodOne) {
    set("adaptStep", true);
    set("RefdBm", -40.0f);
    startAndForget();
    mcEngine->packet(100, -std::numeric_limits<float>::infinity());
    mcEngine->packet(100, -25.0f);
    mcEngine->stop(false);
    EXPECT_EQ(number("RefdBm"), -50.0f);
    startAndForget();
    mcEngine->takeRestart();
    mcEngine->packet(100, -15.0f);
    mcEngine->stop(false);
    EXPECT_EQ(number("RefdBm"), -50.0f);
    EXPECT_FALSE(mcEngine->takeRestart());
}

TEST_F(IQEngineTest, AdaptStepDoesNothingWithoutAPacketSinceTheStart) {
    set("adaptStep", true);
    set("RefdBm", -40.0f);
    startAndForget();
    mcEngine->takeRestart();
    mcEngine->stop(false);
    EXPECT_EQ(number("RefdBm"), -40.0f);
    EXPECT_FALSE(mcEngine->takeRestart());
}

TEST_F(IQEngineTest, AdaptStepEndsAtTheLowestLevelOfTheReceiver) {
    set("adaptStep", true);
    set("RefdBm", -80.0f);
    startAndForget();
    mcEngine->takeRestart();
    mcEngine->packet(100, -60.0f);
    mcEngine->stop(false);
    EXPECT_EQ(number("RefdBm"), -80.0f);
    EXPECT_FALSE(mcEngine->takeRestart());
}

TEST_F(IQEngineTest, WithoutAdaptStepTheLevelStays) {
    set("RefdBm", -40.0f);
    startAndForget();
    mcEngine->packet(100, -5.0f);
    mcEngine->stop(false);
    EXPECT_EQ(number("RefdBm"), -40.0f);
}

TEST_F(IQEngineTest, AChangedLinkMakesTheEngineStartAnew) {
    mcEngine->muSamples = 1000;
    startAndForget();
    mcEngine->packet(1000, -15.0f);
    mcEngine->linkChanged();
    EXPECT_FALSE(mcEngine->isStreaming());
    EXPECT_FALSE(mcEngine->isExhausted());
    EXPECT_TRUE(mcEngine->process());
    mcEngine->stop(true);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt 2"));
}

TEST_F(IQEngineTest, AnIdentifierPastTheLargestNumberStartsAtZero) {
    mcContext->setStreamIdentifier(0xFFFFFFFFu);
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt 0"));
    mcContext->setStreamIdentifier(0x7FFFFFFFu);
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt -2147483648"));
}

TEST_F(IQEngineTest, AKickMovesTheLinkAndChangesNothing) {
    mcEngine->kick();
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SYST:COMM:LAN:IP 0.0.0.0"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("::kick no-op SCPI traffic sent"));
}

TEST_F(IQEngineTest, StatusTextsOfAFrameAreJoined) {
    IQFrame cFrame(0, 0, 0, kNanoseconds, 0.0f, 0.0f, 1.0f, 0.0f, nullptr, "");
    PlainEngine::appendStatus(cFrame, "invalid");
    EXPECT_EQ(cFrame.getExtras()->getText("status"), "invalid");
    PlainEngine::appendStatus(cFrame, "overflow");
    EXPECT_EQ(cFrame.getExtras()->getText("status"), "invalid, overflow");
}

TEST_F(IQEngineTest, ALevelOutsideTheGoodRangeMarksTheFrameAndTheBoundsDoNot) {
    IQCapture cCapture;
    cCapture.mfLevelLow = -20.0f;
    cCapture.mfLevelHigh = -10.0f;
    const auto isMarked = [&](float fLevel) {
        IQFrame cFrame(0, 0, 0, kNanoseconds, 0.0f, 0.0f, 1.0f, 0.0f, nullptr, "");
        cCapture.noteLevel(cFrame, fLevel);
        EXPECT_EQ(cFrame.level(), fLevel);
        return cFrame.isSubOptimal();
    };
    EXPECT_FALSE(isMarked(-20.0f));
    EXPECT_FALSE(isMarked(-10.0f));
    EXPECT_TRUE(isMarked(-20.001f));
    EXPECT_TRUE(isMarked(-9.999f));
    EXPECT_TRUE(isMarked(-std::numeric_limits<float>::infinity()));
    EXPECT_EQ(cCapture.mfPeakLevel, -9.999f);
}
