#include "zelvar/iqmechanism.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "foundations/clock.h"
#include "unit/zelvar/iqfixture.h"

using namespace vnktest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class IQMechanismTest : public IQMechanismFixture {};

}  // namespace

TEST_F(IQMechanismTest, AContinuousCaptureSendsItsCommandsInOrder) {
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre("INPUT:MODE SH;:TRACe:SPPacket 65504;:SENSE:DEC 4;FREQ:CENT 100000000 Hz;"
                            ":INPut:ATTenuator:VARiable 0;:INPut:GAIN 1 1;:INPut:GAIN 2 1",
                            "SYST:ERR?", ":TRACe:STReam:STARt 1"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("no wait IQ stream start", "IQ handleExtensionContext",
                                            "IQ handleExtensionContext (cont) streamID:1 (expected 1)",
                                            "mbIQStreamDataValid"));
}

TEST_F(IQMechanismTest, ACaptureThatFitsIsASweepListWithoutAStop) {
    set("captureSec", 0.001f);
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(
        mcSCPI->take(),
        ElementsAre(":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:att:var 0;"
                    ":sweep:entry:mode SH;:sweep:entry:freq:cent 100000000;:sweep:entry:spp 31264;"
                    ":sweep:entry:ppb 1;:sweep:entry:dec 4;:sweep:entry:save;"
                    ":INPut:GAIN 1 1;:INPut:GAIN 2 1",
                    "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("no wait finite IQ stream start", "IQ handleExtensionContext",
                                            "IQ handleExtensionContext (finite) sweepID:1 (expected 1)",
                                            "mbIQStreamDataValid"));
    feed(pairs(100, 0, 31264));
    EXPECT_TRUE(mcEngine->isExhausted());
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(takeLogTexts(), ElementsAre("::process finite capture completed"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(IQMechanismTest, ACaptureTooLongForTheUnitRunsContinuouslyAndIsStoppedByCount) {
    set("IFBWHz", 1e5f);
    set("captureSec", 120.0f);
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains("SWEEP:LIST:START 1"));
    set("IFBWHz", 2e7f);
    set("captureSec", 1.5f);
    set("bufferFrames", uint32_t{1});
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt 2"));
    takeLog(true);
    const auto cPacket = pairs(1000, 0, 65504).as<IFDataIQ14>(kIFDataIQ14);
    for (int i = 0; i < 716; ++i) {
        EXPECT_TRUE(mcEngine->process());
        mpListener->handleIFDataIQ14(cPacket);
    }
    EXPECT_FALSE(mcEngine->process());  // 716 x 65504 is not below 1.5 x 31.25e6
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":TRACe:STReam:STOP; :SYSTEM:FLUSH"));
    EXPECT_THAT(takeLogTexts(),
                Contains("::process issuing stop for non-self-terminating finite IQ capture"));
}

TEST_F(IQMechanismTest, AnUnrealizableRequestIsLoggedAndNothingIsSent) {
    set("FCentreHz", 2e10f);
    StreamRanges cNarrow = kRanges;
    cNarrow.mcCentreHz.mfMaximum = 8e9f;
    const auto cEngine = makeReference<_IQMechanism>(mcContext, mcStream, *findModel("ZV100-A"), cNarrow, nullptr);
    takeLog(true);
    EXPECT_FALSE(cEngine->start());
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ FCentreHz:20000000000, IFBWHz:20000000 is unrealizable"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_FALSE(mcStream->getParameters().getNumber("SampleRateHz"));
}

TEST_F(IQMechanismTest, DirectDigitizationWithoutDecimationOffIsRefused) {
    ModelRecord cModel = *findModel("ZV350-C");
    cModel.mbDecimationOffAllowed = false;
    const auto cStream = makeReference<IQFrameSink>();
    utils::VariantRecord cRecord;
    cRecord.set("FCentreHz", 1e7f);
    cRecord.set("IFBWHz", 1e6f);
    ErrorList lErrors;
    ASSERT_TRUE(cStream->setSinkParameters(cRecord, lErrors, true));
    const auto cEngine = makeReference<_IQMechanism>(mcContext, cStream, cModel, kRanges, nullptr);
    EXPECT_FALSE(cEngine->start());
    EXPECT_THAT(takeLogTexts(), Contains("Decimation error for - IQ F:10000000, B:1000000 is unrealizable"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(IQMechanismTest, AQuietStopEmptiesTheDataLinkAndOneWithoutALinkDoesNotWait) {
    start();
    mcEngine->stop(true);
    start();
    mcDataProtocol = makeReference<VITA49ZelvarProtocol>(nullptr);
    const uint64_t uStart = utils::steadyMilliseconds();
    mcEngine->stop(true);
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 100u);  // five quiet passes
}

TEST_F(IQMechanismTest, AStrongSignalStepsTheLevelUpAndTheNextStartUsesIt) {
    set("adaptStep", true);
    set("RefdBm", -15.0f);
    set("IFBWHz", 1e7f);
    start();
    mcEngine->takeRestart();
    feed(pairs(4607, 0, 256));  // -5 dB
    mcEngine->stop(false);
    EXPECT_EQ(mcStream->getParameters().getNumber("RefdBm"), -5.0f);
    EXPECT_TRUE(mcEngine->takeRestart());
    mcSCPI->take();
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take().front(), testing::EndsWith(":INPut:GAIN 1 1;:INPut:GAIN 2 0"));
}

TEST_F(IQMechanismTest, PacketsRestartsAndADetachAtOnceAreSafe) {
    restartUnderPackets(*mcEngine, [this](uint32_t uStarted) {
        mpListener->handleDigitizerContext(digitizerContext(-30 * 128));
        mpListener->handleExtensionContext(streamContext(uStarted));
        feed(pairs(100, 0, 64));
    });
}
