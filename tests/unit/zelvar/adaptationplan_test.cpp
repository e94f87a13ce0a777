#include "zelvar/adaptationplan.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace {

constexpr float kNone = -1000.0f;

const ModelRecord& model(const std::string& name) {
    const ModelRecord* pModel = findModel(name);
    EXPECT_TRUE(pModel) << name;
    return *pModel;
}

struct Outcome {
    std::optional<AdaptationPlan> mcPlan;
    std::string mcMessage;
    int32_t miCode = 0;
};

Outcome planFor(float fCentre, const ModelRecord& cModel) {
    const FloatRange cCentre{cModel.mfLowestHz, cModel.mfHighestHz};
    Outcome cOutcome;
    cOutcome.mcPlan =
        planAdaptation(fCentre, cModel, {cCentre, cCentre, {1.0f, 1e7f}, {1e5f, 4e7f}, {-80.0f, 20.0f}},
                       cOutcome.mcMessage, cOutcome.miCode);
    return cOutcome;
}

AdaptationPlan plan(float fCentre, const std::string& name = "ZV350-C") {
    return planFor(fCentre, model(name)).mcPlan.value();
}

/// The reference level for levels of the six steps.
float result(const AdaptationLevels& fLevels, const std::string& name, float fCentre = 1e9f) {
    return adaptedReferenceLevel(fLevels, plan(fCentre, name), model(name));
}

/// A level that is best at one step, and far below at all others.
AdaptationLevels bestAt(uint32_t uStep, float fLevel = -20.0f) {
    AdaptationLevels fLevels;
    fLevels.fill(-90.0f);
    fLevels[uStep] = fLevel;
    return fLevels;
}

}  // namespace

// The plan.

TEST(AdaptationPlan, AboveFiftyMegahertzTheTrialsAreTunedAndOfTheWidestBandwidth) {
    const AdaptationPlan cPlan = plan(98.1e6f);
    EXPECT_FALSE(cPlan.mbDirectDigitization);
    EXPECT_EQ(cPlan.mfTunedCentreHz, 98.1e6f);
    EXPECT_EQ(cPlan.mfSampleRateHz, 125e6f);
    EXPECT_EQ(cPlan.muDecimation, 1u);  // 40 MHz does not fit a quarter of the rate
    EXPECT_EQ(cPlan.muSamplesPerPacket, 65504u);
    EXPECT_EQ(cPlan.muPackets, 2u);  // one holds 0.524 ms
}

TEST(AdaptationPlan, UpToFiftyMegahertzTheTrialsAreDirect) {
    for (const float fCentre : {9e3f, 1e6f, 50e6f}) {
        const AdaptationPlan cPlan = plan(fCentre);
        EXPECT_TRUE(cPlan.mbDirectDigitization) << fCentre;
        EXPECT_EQ(cPlan.mfTunedCentreHz, 0.0f);
        EXPECT_EQ(cPlan.mfSampleRateHz, 125e6f);
        EXPECT_EQ(cPlan.muDecimation, 1u);
        EXPECT_EQ(cPlan.muPackets, 2u);
    }
    EXPECT_FALSE(plan(std::nextafter(50e6f, 1e9f)).mbDirectDigitization);
}

TEST(AdaptationPlan, AFasterReceiverDecimatesAndASlowOneTakesMorePackets) {
    ModelRecord cModel = model("ZV350-C");
    cModel.mfSampleRateHz = 4e8f;
    AdaptationPlan cPlan = planFor(1e9f, cModel).mcPlan.value();
    EXPECT_EQ(cPlan.muDecimation, 8u);  // 50 MHz is the last rate above 40 MHz / 0.85
    EXPECT_EQ(cPlan.mfSampleRateHz, 5e7f);
    EXPECT_EQ(cPlan.muPackets, 1u);
}

TEST(AdaptationPlan, OnlyNamedGainStagesBeginAtTheFirstStep) {
    for (const ModelRecord& cModel : modelTable()) {
        const std::string name = cModel.mpName;
        const bool bHasGains = name.back() == 'B' || name.back() == 'C';
        EXPECT_EQ(plan(1e9f, name).muFirstStep, bHasGains ? 0u : 2u) << name;
    }
}

TEST(AdaptationPlan, ACentreOutsideTheDeviceIsUnrealizable) {
    const float fNaN = std::numeric_limits<float>::quiet_NaN();
    for (const float fCentre : {8999.0f, 9e9f, fNaN})
        EXPECT_FALSE(planFor(fCentre, model("ZV100-A")).mcPlan) << fCentre;
    EXPECT_EQ(planFor(1e10f, model("ZV100-A")).mcMessage,
              "IQ FCentreHz:10000000000, IFBWHz:40000000 is unrealizable");
}

TEST(AdaptationPlan, WithDecimationOffForbiddenThereIsNoRateThatDoes) {
    ModelRecord cModel = model("ZV350-C");
    cModel.mbDecimationOffAllowed = false;
    const Outcome cOutcome = planFor(1e9f, cModel);
    EXPECT_FALSE(cOutcome.mcPlan);
    EXPECT_EQ(cOutcome.mcMessage, "Cannot set valid IFBW - request was 40000000Hz");
}

// Its commands.

TEST(AdaptationCommands, TheGainStepsAreListsOfOneEntry) {
    const std::string expected =
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:mode SH;"
        ":sweep:entry:freq:cent 1000000000;:sweep:entry:spp 65504;:sweep:entry:ppb 2;:sweep:entry:dec 1;"
        ":sweep:entry:att:var 0;:sweep:entry:save";
    for (const uint32_t uStep : {0u, 1u})
        EXPECT_EQ(adaptationCommands(plan(1e9f), uStep, model("ZV350-C")), expected);
}

TEST(AdaptationCommands, TheAttenuatorStepsAreOneListOfFourEntries) {
    EXPECT_EQ(
        adaptationCommands(plan(1e9f), 2, model("ZV350-C")),
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:mode SH;"
        ":sweep:entry:freq:cent 1000000000;:sweep:entry:spp 65504;:sweep:entry:ppb 2;:sweep:entry:dec 1;"
        ":sweep:entry:att:var 0;:sweep:entry:save;"
        ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att:var 10;:sweep:entry:save;"
        ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att:var 20;:sweep:entry:save;"
        ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att:var 30;:sweep:entry:save");
}

TEST(AdaptationCommands, ADirectTrialHasNeitherCentreNorDecimation) {
    EXPECT_EQ(adaptationCommands(plan(1e6f, "ZV100-A"), 2, model("ZV100-A")),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:mode DD;"
              ":sweep:entry:spp 65504;:sweep:entry:ppb 2;:sweep:entry:att 0;:sweep:entry:save;"
              ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att 10;:sweep:entry:save;"
              ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att 20;:sweep:entry:save;"
              ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att 30;:sweep:entry:save");
}

TEST(AdaptationCommands, AnyOtherAttenuatorThanTheSteppedOneIsTakenForTheVariableOne) {
    ModelRecord cModel = model("ZV350-C");
    cModel.muAttenuatorScheme = 0;
    EXPECT_THAT(adaptationCommands(plan(1e9f), 0, cModel), testing::HasSubstr(";:sweep:entry:att:var 0;"));
}

TEST(AdaptationCommands, ACentreOfMoreThan32BitsIsWhole) {
    EXPECT_THAT(adaptationCommands(plan(2e10f), 0, model("ZV350-C")),
                testing::HasSubstr(";:sweep:entry:freq:cent 20000000000;"));
}

TEST(AdaptationCommands, GainsAreNeverSet) {
    for (uint32_t uStep = 0; uStep < 3; ++uStep)
        EXPECT_EQ(adaptationCommands(plan(1e9f), uStep, model("ZV350-C")).find("GAIN"), std::string::npos);
}

// The choice.

TEST(AdaptationChoice, IsTheHighestLevelThatDoesNotExceedTheLimit) {
    const AdaptationLevels fLevels = {-30, -20, -12, -22, -32, -42};
    EXPECT_EQ(chooseAdaptationStep(fLevels, -15.0f), 1u);
    EXPECT_EQ(chooseAdaptationStep(fLevels, -10.0f), 2u);
    EXPECT_EQ(chooseAdaptationStep(fLevels, -20.0f), 1u);  // as high as the limit is not too high
    EXPECT_EQ(chooseAdaptationStep(fLevels, -20.5f), 3u);
    EXPECT_EQ(chooseAdaptationStep(fLevels, -25.0f), 0u);
    EXPECT_EQ(chooseAdaptationStep(fLevels, -41.0f), 5u);
}

TEST(AdaptationChoice, WithAllAboveTheLimitIsTheFirstAttenuatorStep) {
    EXPECT_EQ(chooseAdaptationStep({-1, -1, -1, -1, -1, -1}, -3.0f), 2u);
}

TEST(AdaptationChoice, OfEqualLevelsIsTheEarliest) {
    EXPECT_EQ(chooseAdaptationStep({-30, -30, -30, -30, -30, -30}, -3.0f), 0u);
    EXPECT_EQ(chooseAdaptationStep({kNone, kNone, -40, -30, -30, -50}, -3.0f), 3u);
}

TEST(AdaptationChoice, WhatWasNotMeasuredOrHadNoSignalIsNeverChosen) {
    const float fNothing = -std::numeric_limits<float>::infinity();
    EXPECT_EQ(chooseAdaptationStep({kNone, kNone, -1, -999, -1, -1}, -3.0f), 3u);
    EXPECT_EQ(chooseAdaptationStep({kNone, kNone, kNone, kNone, kNone, kNone}, -3.0f), 2u);
    EXPECT_EQ(chooseAdaptationStep({fNothing, fNothing, fNothing, fNothing, fNothing, -5}, -3.0f), 5u);
    EXPECT_EQ(chooseAdaptationStep({fNothing, fNothing, fNothing, fNothing, fNothing, fNothing}, -3.0f), 2u);
    const float fNaN = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(chooseAdaptationStep({fNaN, fNaN, fNaN, fNaN, -8, fNaN}, -3.0f), 4u);
}

TEST(AdaptationResult, OfEachStepIsTheModelsOwn) {
    // High, med and low at 0 dB, and low with 10 dB, have rows of the table; low with 20 and 30 dB have none.
    const float fNamed[] = {-20.0f, -10.0f, 0.0f, 10.0f, 0.0f, 0.0f};
    // Without names the last rows of 0, 10, 20 and 30 dB.
    const float fPlain[] = {-20.0f, -20.0f, -20.0f, -10.0f, 0.0f, 10.0f};
    for (const ModelRecord& cModel : modelTable()) {
        const std::string name = cModel.mpName;
        const bool bHasGains = name.back() == 'B' || name.back() == 'C';
        for (uint32_t uStep = 0; uStep < kAdaptationSteps; ++uStep)
            for (const float fCentre : {1e6f, 1e9f})
                EXPECT_EQ(result(bestAt(uStep), name, fCentre), bHasGains ? fNamed[uStep] : fPlain[uStep])
                    << name << " " << uStep;
    }
}

TEST(AdaptationResult, TheLimitIsTheTunedOneAtFullRateAndTheFullRateOneElsewhere) {
    // -3 dB and -10 dB: a level between the two decides.
    AdaptationLevels fLevels = bestAt(1, -5.0f);
    fLevels[3] = -15.0f;
    EXPECT_EQ(result(fLevels, "ZV350-C"), -10.0f);
    AdaptationPlan cDecimated = plan(1e9f);
    cDecimated.muDecimation = 4;
    EXPECT_EQ(adaptedReferenceLevel(fLevels, cDecimated, model("ZV350-C")), 10.0f);
}

TEST(AdaptationResult, TheTableIsTheTunedOneAtFullRateAndTheFullRateOneElsewhere) {
    GainTable cOther = *model("ZV350-C").mpFullRate;
    cOther.mpNames.fill("high");
    cOther.mfAttenuations.fill(0.0f);
    ModelRecord cModel = model("ZV350-C");
    cModel.mpFullRate = &cOther;
    EXPECT_EQ(adaptedReferenceLevel(bestAt(0), plan(1e9f), cModel), -20.0f);
    AdaptationPlan cDecimated = plan(1e9f);
    cDecimated.muDecimation = 4;
    EXPECT_EQ(adaptedReferenceLevel(bestAt(0), cDecimated, cModel), 10.0f);
    EXPECT_EQ(adaptedReferenceLevel(bestAt(2), cDecimated, cModel), 0.0f);  // no row
}
