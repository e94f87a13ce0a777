#include <gtest/gtest.h>

#include "zelvar/iqplan.h"

namespace {

IQPlan tuned() {
    IQPlan cPlan{};
    cPlan.mfTunedCentreHz = 98.1e6f;
    cPlan.mfSampleRateHz = 976562.5f;
    cPlan.muDecimation = 128;
    cPlan.muSamplesPerPacket = 65504;
    cPlan.mcGainName = "high";
    return cPlan;
}

IQPlan direct() {
    IQPlan cPlan{};
    cPlan.mbDirectDigitization = true;
    cPlan.mfSampleRateHz = 125e6f;
    cPlan.muDecimation = 1;
    cPlan.muSamplesPerPacket = 65280;
    cPlan.mcGainName = "med";
    return cPlan;
}

const ModelRecord& named() {
    return *findModel("ZV350-C");
}
const ModelRecord& stepped() {
    return *findModel("ZV100-A");
}

}  // namespace

TEST(IQCommands, ATunedContinuousCapture) {
    EXPECT_EQ(continuousIQCommands(tuned(), named()),
              "INPUT:MODE SH;:TRACe:SPPacket 65504;:SENSE:DEC 128;FREQ:CENT 98100000 Hz;"
              ":INPut:ATTenuator:VARiable 0;:INPut:GAIN 1 1;:INPut:GAIN 2 1");
    EXPECT_EQ(continuousIQCommands(tuned(), stepped()),
              "INPUT:MODE SH;:TRACe:SPPacket 65504;:SENSE:DEC 128;FREQ:CENT 98100000 Hz;:INPut:ATTenuator 0");
}

TEST(IQCommands, ADirectContinuousCaptureHasNoCentre) {
    EXPECT_EQ(continuousIQCommands(direct(), named()),
              "INPUT:MODE DD;:TRACe:SPPacket 65280;:SENSe:DECimation OFF;"
              ":INPut:ATTenuator:VARiable 0;:INPut:GAIN 1 1;:INPut:GAIN 2 0");
}

TEST(IQCommands, ATunedFullRateCaptureTurnsDecimationOff) {
    IQPlan cPlan = tuned();
    cPlan.muDecimation = 1;
    cPlan.muSamplesPerPacket = 65280;
    cPlan.mcGainName = "low";
    cPlan.mfAttenuation = 10.0f;
    EXPECT_EQ(continuousIQCommands(cPlan, named()),
              "INPUT:MODE SH;:TRACe:SPPacket 65280;:SENSe:DECimation OFF;FREQ:CENT 98100000 Hz;"
              ":INPut:ATTenuator:VARiable 10;:INPut:GAIN 1 0;:INPut:GAIN 2 0");
}

TEST(IQCommands, TheCentreIsTheNearestFloat) {
    IQPlan cPlan = tuned();
    cPlan.mfTunedCentreHz = 2.45e9f;
    EXPECT_NE(continuousIQCommands(cPlan, stepped()).find("FREQ:CENT 2449999872 Hz"), std::string::npos);
    EXPECT_NE(finiteIQCommands(cPlan, stepped()).find(":sweep:entry:freq:cent 2449999872;"),
              std::string::npos);
}

TEST(IQCommands, ATunedFiniteCaptureIsAOneEntryList) {
    IQPlan cPlan = tuned();
    cPlan.muSamplesPerPacket = 32768;
    cPlan.muPacketsPerBlock = 30;
    EXPECT_EQ(
        finiteIQCommands(cPlan, named()),
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:att:var 0;"
        ":sweep:entry:mode SH;:sweep:entry:freq:cent 98100000;:sweep:entry:spp 32768;:sweep:entry:ppb 30;"
        ":sweep:entry:dec 128;:sweep:entry:save;:INPut:GAIN 1 1;:INPut:GAIN 2 1");
}

TEST(IQCommands, ADirectFiniteCaptureHasNeitherCentreNorDecimation) {
    IQPlan cPlan = direct();
    cPlan.muPacketsPerBlock = 3;
    cPlan.mfAttenuation = 20.0f;
    EXPECT_EQ(finiteIQCommands(cPlan, stepped()),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:att 20;"
              ":sweep:entry:mode DD;:sweep:entry:spp 65280;:sweep:entry:ppb 3;:sweep:entry:save");
}

TEST(IQCommands, TheAttenuationIsHeldToWholeTensUpToThirty) {
    const auto attenuator = [](float fAttenuation) {
        IQPlan cPlan = tuned();
        cPlan.mfAttenuation = fAttenuation;
        const std::string text = continuousIQCommands(cPlan, stepped());
        return text.substr(text.rfind(' ') + 1);
    };
    EXPECT_EQ(attenuator(-5.0f), "0");
    EXPECT_EQ(attenuator(4.9f), "0");
    EXPECT_EQ(attenuator(5.0f), "10");
    EXPECT_EQ(attenuator(24.9f), "20");
    EXPECT_EQ(attenuator(99.0f), "30");
}

TEST(IQCommands, AnUnknownGainNameAndAnUnknownAttenuatorAddNothing) {
    IQPlan cPlan = tuned();
    cPlan.mcGainName = "highest";
    ModelRecord cModel = named();
    cModel.muAttenuatorScheme = 0;
    EXPECT_EQ(continuousIQCommands(cPlan, cModel),
              "INPUT:MODE SH;:TRACe:SPPacket 65504;:SENSE:DEC 128;FREQ:CENT 98100000 Hz");
}
