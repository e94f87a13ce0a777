#include "zelvar/rlamechanism.h"

#include <gmock/gmock.h>

#include <thread>

#include "foundations/clock.h"
#include "support/loopback.h"
#include "unit/zelvar/iqfixture.h"

using namespace vnktest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr const char* kStopCommand = ":TRACe:STReam:STOP; :SYSTEM:FLUSH";

/// An adaptation whose unit names each trial as it is started.
class RLAMechanismTest : public testing::Test {
 protected:
    RLAMechanismTest() {
        mcChannel->setProtocol(mcSCPI);
        make("ZV350-C");
        mcSCPI->mcOnSend = [this](const std::string& text) {
            if (mbUnitAnswers && text.rfind("SWEEP:LIST:START ", 0) == 0)
                mcRLA->handleExtensionContext(
                    streamContext(static_cast<uint32_t>(std::stoul(text.substr(17)))));
        };
    }
    ~RLAMechanismTest() override { mcSCPI->mcOnSend = nullptr; }
    void make(const std::string& model, std::optional<float> cCentreHz = 1e9f) {
        mcRLA = makeReference<_RLAMechanism>(mcContext, cCentreHz, *findModel(model), kRanges);
        mcSCPI->take();
    }
    void feed(int iPeak) { mcRLA->handleIFDataI14(items(iPeak, 64).as<IFDataI14>(kIFDataI14)); }
    void feedComplex(int iPeak) { mcRLA->handleIFDataIQ14(pairs(iPeak, 0, 32).as<IFDataIQ14>(kIFDataIQ14)); }
    /// Both packets of a step.
    void step(int iPeak) {
        feed(1);
        feed(iPeak);
    }

    bool mbUnitAnswers = true;
    ReferencePtr<FakeSCPI> mcSCPI = makeReference<FakeSCPI>();
    ReferencePtr<CommandChannel> mcChannel =
        makeReference<CommandChannel>(makeReference<LinkWatch>(), CommandWords{"no access"});
    ReferencePtr<EngineContext> mcContext = makeReference<EngineContext>(mcChannel, "unit one");
    ReferencePtr<_RLAMechanism> mcRLA;
};

/// What a peak of so many dB below full scale is in items.
int itemsAt(double fdB) {
    return static_cast<int>(std::lround(8192.0 * std::pow(10.0, fdB / 20.0)));
}

}  // namespace

TEST_F(RLAMechanismTest, WithGainStagesThreeListsRunOneBehindTheOther) {
    ASSERT_TRUE(mcRLA->start());
    const auto single = StartsWith(
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;"
        ":sweep:entry:mode SH;:sweep:entry:freq:cent 1000000000;"
        ":sweep:entry:spp 65504;:sweep:entry:ppb 2;:sweep:entry:dec 1;"
        ":sweep:entry:att:var 0;:sweep:entry:save");
    EXPECT_THAT(mcSCPI->take(), ElementsAre(single, "SYST:ERR?", "SWEEP:LIST:START 1"));
    feed(10);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    feed(10);
    EXPECT_THAT(mcSCPI->take(), ElementsAre(single, "SYST:ERR?", "SWEEP:LIST:START 2"));
    step(10);
    const auto lLast = mcSCPI->take();
    EXPECT_THAT(lLast, ElementsAre(single, "SYST:ERR?", "SWEEP:LIST:START 3"));
    EXPECT_THAT(lLast[0], testing::HasSubstr(":sweep:entry:copy 1;:sweep:entry:att:var 30;"));
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(mcRLA->isFinished());
        EXPECT_EQ(mcRLA->result(), -1000.0f);
        step(10);
    }
    EXPECT_TRUE(mcRLA->isFinished());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(RLAMechanismTest, WithoutGainStagesItIsOneListAndEightPackets) {
    make("ZV100-A");
    ASSERT_TRUE(mcRLA->start());
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre(StartsWith(":sweep:entry:delete all;"), "SYST:ERR?", "SWEEP:LIST:START 1"));
    for (int i = 0; i < 4; ++i) {
        EXPECT_FALSE(mcRLA->isFinished());
        step(100);
    }
    EXPECT_TRUE(mcRLA->isFinished());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_EQ(mcRLA->result(), -20.0f);  // steps 0 and 1 were never measured
}

TEST_F(RLAMechanismTest, TheStepOfTheHighestLevelBelowTheLimitGivesTheResult) {
    // At full rate the limit is -3 dB.
    struct {
        std::array<double, 6> mfLevels;
        float mfExpected;
    } const cRows[] = {
        {{-30, -20, -12, -22, -32, -42}, 0.0f}, {{-1, -2, -2.5, -12, -22, -32}, 10.0f},
        {{-1, -4, -14, -24, -34, -44}, -10.0f}, {{-10, -20, -30, -40, -50, -60}, -20.0f},
        {{0, 0, 0, -1, -2, -2.9}, 0.0f},  // none does: low with 0 dB
        {{0, 0, 0, -1, -2, -3.1}, 0.0f},  // low with 30 dB has no row
    };
    for (const auto& cRow : cRows) {
        make("ZV350-C");
        ASSERT_TRUE(mcRLA->start());
        for (const double fLevel : cRow.mfLevels)
            step(std::min(itemsAt(fLevel), 8191));
        ASSERT_TRUE(mcRLA->isFinished());
        EXPECT_EQ(mcRLA->result(), cRow.mfExpected) << cRow.mfLevels[0] << " " << cRow.mfLevels[5];
    }
}

TEST_F(RLAMechanismTest, ThePeakOfAStepIsThatOfItsStrongestPacket) {
    make("ZV100-A");
    ASSERT_TRUE(mcRLA->start());
    feed(itemsAt(-1));  // too strong, whatever follows
    feed(0);
    feed(0);
    feed(itemsAt(-10));
    step(itemsAt(-20));
    step(itemsAt(-30));
    EXPECT_EQ(mcRLA->result(), -10.0f);
}

TEST_F(RLAMechanismTest, WithoutAnySignalTheFirstAttenuatorStepIsTaken) {
    ASSERT_TRUE(mcRLA->start());
    for (int i = 0; i < 12; ++i)
        feed(0);
    EXPECT_TRUE(mcRLA->isFinished());
    EXPECT_EQ(mcRLA->result(), 0.0f);
}

TEST_F(RLAMechanismTest, ComplexPacketsCountAlike) {
    make("ZV100-A");
    ASSERT_TRUE(mcRLA->start());
    for (int i = 0; i < 8; ++i)
        feedComplex(i < 2 ? itemsAt(-1) : itemsAt(-20));
    EXPECT_TRUE(mcRLA->isFinished());
    EXPECT_EQ(mcRLA->result(), -10.0f);
}

TEST_F(RLAMechanismTest, PacketsOfAnOldIdentifierCountAllTheSame) {
    make("ZV100-A");
    ASSERT_TRUE(mcRLA->start());
    mcRLA->handleExtensionContext(streamContext(77));
    for (int i = 0; i < 8; ++i)
        feed(100);
    EXPECT_TRUE(mcRLA->isFinished());
}

TEST_F(RLAMechanismTest, PacketsBehindTheEndAndBeforeTheStartChangeNothing) {
    feed(8000);
    make("ZV100-A");
    ASSERT_TRUE(mcRLA->start());
    for (int i = 0; i < 8; ++i)
        feed(100);
    const float fResult = mcRLA->result();
    for (int i = 0; i < 100; ++i)
        feed(8191);
    EXPECT_TRUE(mcRLA->isFinished());
    EXPECT_EQ(mcRLA->result(), fResult);
    EXPECT_THAT(mcSCPI->take(), testing::SizeIs(3));
}

TEST_F(RLAMechanismTest, OnlyAStreamIdentifierOfTheTrialIsItsContext) {
    mbUnitAnswers = false;
    mcSCPI->mcOnSend = [this](const std::string& text) {
        if (text != "SWEEP:LIST:START 1")
            return;
        mcRLA->handleExtensionContext(sweepContext(1));
        mcRLA->handleExtensionContext(streamContext(9));
        takeLog(true);
        mcRLA->handleExtensionContext(streamContext(1));
    };
    EXPECT_TRUE(mcRLA->start());
    EXPECT_THAT(takeLogTexts(), ElementsAre("ADAPT mbIQStreamDataValid"));
    // Contexts of other kinds pass by.
    mcRLA->handleReceiverContext(receiverContext(1));
    mcRLA->handleDigitizerContext(digitizerContext(1));
}

TEST_F(RLAMechanismTest, AStartWithoutDataFailsAndTheNextBeginsAnew) {
    mbUnitAnswers = false;
    mcChannel->setStopTest([] { return true; });  // no need to wait the two seconds out here
    EXPECT_FALSE(mcRLA->start());
    mcSCPI->take();
    mcRLA->stop();
    EXPECT_THAT(mcSCPI->take(), IsEmpty());  // nothing runs
    mbUnitAnswers = true;
    EXPECT_TRUE(mcRLA->start());
    EXPECT_THAT(mcSCPI->take(), Contains("SWEEP:LIST:START 2"));
}

TEST_F(RLAMechanismTest, AStartThatIsTriedAgainCountsItsPacketsFromTheFirstStep) {
    make("ZV100-A");
    ASSERT_TRUE(mcRLA->start());
    feed(1);
    step(1);
    ASSERT_TRUE(mcRLA->start());
    for (int i = 0; i < 7; ++i)
        feed(1);
    EXPECT_FALSE(mcRLA->isFinished());
    feed(1);
    EXPECT_TRUE(mcRLA->isFinished());
}

TEST_F(RLAMechanismTest, AFurtherTrialWithoutDataLeavesTheAdaptationUnfinishedUntilPacketsCome) {
    ASSERT_TRUE(mcRLA->start());
    mbUnitAnswers = false;
    mcChannel->setStopTest([] { return true; });
    step(1);
    EXPECT_FALSE(mcRLA->isFinished());
    mcSCPI->take();
    mcRLA->stop();
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    mbUnitAnswers = true;
    for (int i = 0; i < 5; ++i)
        step(1);
    EXPECT_TRUE(mcRLA->isFinished());
}

TEST_F(RLAMechanismTest, AListThatTheUnitRefusesFailsTheStart) {
    mcSCPI->reply("SYST:ERR?", "-200,\"Execution error\"");
    takeLog(true);
    EXPECT_FALSE(mcRLA->start());
    const auto lLog = takeLog();
    ASSERT_EQ(lLog.size(), 1u);
    EXPECT_EQ(lLog[0].miCode, -6009);
    EXPECT_THAT(lLog[0].mcText, testing::EndsWith("' generated Execution error"));
    EXPECT_THAT(mcSCPI->take(), ElementsAre(testing::_, "SYST:ERR?"));
}

TEST_F(RLAMechanismTest, AStopEndsATrialThatRunsOnce) {
    mcRLA->stop();
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    ASSERT_TRUE(mcRLA->start());
    mcSCPI->take();
    mcRLA->stop();
    mcRLA->stop();
    EXPECT_THAT(mcSCPI->take(), ElementsAre(kStopCommand));
}

TEST_F(RLAMechanismTest, ATrialTakesTheUnitFromOtherEngines) {
    const uint64_t uClaim = mcContext->claimUnit();
    ASSERT_TRUE(mcRLA->start());
    EXPECT_FALSE(mcContext->holdsUnit(uClaim));
}

TEST_F(RLAMechanismTest, WithoutACentreItNeverStarts) {
    takeLog(true);
    make("ZV350-C", std::nullopt);
    EXPECT_THAT(takeLogTexts(), ElementsAre("Either FCentreHz or IFBWHznot specified for _RLAMechanism"));
    EXPECT_FALSE(mcRLA->start());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(RLAMechanismTest, ACentreOutsideTheDeviceIsUnrealizable) {
    make("ZV350-C", 5e10f);
    takeLog(true);
    EXPECT_FALSE(mcRLA->start());
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ FCentreHz:49999998976, IFBWHz:40000000 is unrealizable"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

// The IQ engine that adapts first.

namespace {

class AdaptingEngineTest : public IQMechanismFixture {
 protected:
    AdaptingEngineTest() {
        mcEngine.release();
        mcStream = makeReference<IQFrameSink>();
        set("FCentreHz", 1e9f);
        set("IFBWHz", 2e7f);
        set("RefdBm", -40.0f);
        set("adaptFull", true);
        make("ZV350-C");
        // Trials answer with the identifier of a stream.
        mcSCPI->mcOnSend = [this](const std::string& text) {
            if (text.find("STARt ") != std::string::npos || text.find("START ") != std::string::npos)
                if (mbUnitAnswers)
                    mpListener->handleExtensionContext(streamContext(numberOf(text)));
        };
        mcSCPI->take();
    }
    void trials(const std::vector<double>& lLevels) {
        for (const double fLevel : lLevels)
            for (int i = 0; i < 2; ++i)
                feedReal(items(itemsAt(fLevel), 64));
    }
};

}  // namespace

TEST_F(AdaptingEngineTest, TheStreamIsHeldBackUntilTheLevelIsFoundAndTheCaptureStartsWithIt) {
    EXPECT_FALSE(mcStream->isAttached());
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains("SWEEP:LIST:START 1"));
    EXPECT_TRUE(mcEngine->process());
    EXPECT_FALSE(mcStream->isAttached());
    trials({-1, -5, -15, -25, -35, -45});
    EXPECT_FALSE(mcStream->isAttached());
    EXPECT_EQ(mcStream->getParameters().getNumber("RefdBm"), -40.0f);
    mcSCPI->take();
    EXPECT_FALSE(mcStream->nextFrame(0, false));  // nothing of the trials

    EXPECT_TRUE(mcEngine->process());
    EXPECT_TRUE(mcStream->isAttached());
    EXPECT_EQ(mcStream->getParameters().getNumber("RefdBm"), -10.0f);
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre("INPUT:MODE SH;:TRACe:SPPacket 65504;:SENSE:DEC 4;FREQ:CENT 1000000000 Hz;"
                            ":INPut:ATTenuator:VARiable 0;:INPut:GAIN 1 1;:INPut:GAIN 2 0",
                            "SYST:ERR?", ":TRACe:STReam:STARt 4"));
    EXPECT_THAT(takeLogTexts(), Contains("RLAMechanism detach"));
    EXPECT_FALSE(mcEngine->takeRestart());
    feed(pairs(1000, 0, 256));
    const auto cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->referenceLevel(), -10.0f);
    EXPECT_EQ(cFrame->sequence(), 0u);
}

TEST_F(AdaptingEngineTest, AStopDuringTheAdaptationStopsTheTrial) {
    ASSERT_TRUE(mcEngine->start());
    mcSCPI->take();
    mcEngine->stop(true);
    EXPECT_THAT(mcSCPI->take(), ElementsAre(kStopCommand));
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains("SWEEP:LIST:START 2"));
}

TEST_F(AdaptingEngineTest, AnAdaptationWithoutPacketsGoesOnUntilTheDetach) {
    ASSERT_TRUE(mcEngine->start());
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(mcEngine->process());
    EXPECT_FALSE(mcEngine->isStreaming());
    EXPECT_FALSE(mcEngine->syncHaltStream());  // nothing streams: no wait
    EXPECT_TRUE(mcEngine->serves(mcStream.get()));
    mcEngine->removeFrameSink(mcStream);
    EXPECT_FALSE(mcEngine->serves(mcStream.get()));
    EXPECT_FALSE(mcEngine->process());  // and ends
    trials({-1, -5, -15, -25, -35, -45});
    EXPECT_FALSE(mcEngine->process());
    EXPECT_FALSE(mcStream->isAttached());
}

TEST_F(AdaptingEngineTest, ACaptureThatDoesNotStartBehindTheAdaptationIsTriedAgain) {
    ASSERT_TRUE(mcEngine->start());
    trials({-1, -5, -15, -25, -35, -45});
    mcSCPI->reply("SYST:ERR?", "-200,\"Execution error\"");
    EXPECT_TRUE(mcEngine->process());
    EXPECT_TRUE(mcEngine->takeRestart());
    mcSCPI->reply("SYST:ERR?", "0,\"No error\"");
    mcEngine->stop(false);
    EXPECT_TRUE(mcEngine->start());
    EXPECT_EQ(mcStream->getParameters().getNumber("RefdBm"), -10.0f);
}

TEST_F(AdaptingEngineTest, ADetachWhileTrialsRunIsSafe) {
    std::atomic<bool> bDone{false};
    std::thread cPackets([&] {
        while (!bDone)
            feedReal(items(100, 64));
    });
    std::thread cDetaching([&] {
        utils::sleepMs(5);
        mcEngine->syncHaltStream();
        mcEngine->removeFrameSink(mcStream);
    });
    EXPECT_TRUE(waitUntil([&] {
        if (mcEngine->serves(mcStream.get()))
            mcEngine->start();
        return !mcEngine->process();
    }));
    cDetaching.join();
    bDone = true;
    cPackets.join();
    EXPECT_FALSE(mcEngine->serves(mcStream.get()));
    EXPECT_FALSE(mcStream->isAttached());
}
