#include "quillon/iqplan.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <set>
#include <sstream>

#include "quillon/ranges.h"
#include "unit/quillon/plandata.h"

using Quillon::IQPlan;
using vnktest::openData;
using vnktest::take;

namespace {

constexpr FloatRange kCentres{9000.0f, 2e10f};
constexpr StreamRanges kRanges{kCentres, kCentres, Quillon::kRBWRange, Quillon::kIFBWRange,
                               Quillon::kReferenceLevelRange};
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct Outcome {
    std::optional<IQPlan> mcPlan;
    std::string mcMessage;
    int32_t miCode = 0;
};

Outcome outcomeOf(const IQRequest& cRequest, const StreamRanges& cRanges = kRanges) {
    Outcome cOutcome;
    cOutcome.mcPlan = Quillon::planIQ(cRequest, cRanges, cOutcome.mcMessage, cOutcome.miCode);
    return cOutcome;
}

IQRequest request(float fCentre, float fIFBW, float fSeconds = 0.0f, float fReference = -20.0f) {
    return {fCentre, fIFBW, fReference, 0.0f, fSeconds};
}

IQPlan plan(float fIFBW, float fSeconds = 0.0f, float fReference = -20.0f) {
    return outcomeOf(request(1e9f, fIFBW, fSeconds, fReference)).mcPlan.value();
}

}  // namespace

TEST(QuillonIQPlan, EveryNumberIsTheOneComputedIndependently) {
    std::ifstream cFile = openData("quillon_iq_plans.txt");
    std::set<uint32_t> lDecimations;
    size_t uLines = 0, uContiguous = 0, uCounted = 0;
    for (std::string line; std::getline(cFile, line); ++uLines) {
        SCOPED_TRACE(line);
        std::istringstream cWords(line);
        const float fCentre = take<float>(cWords), fIFBW = take<float>(cWords);
        const float fSeconds = take<float>(cWords), fReference = take<float>(cWords);
        const Outcome cOutcome = outcomeOf(request(fCentre, fIFBW, fSeconds, fReference));
        ASSERT_TRUE(cOutcome.mcPlan);
        const IQPlan& cPlan = *cOutcome.mcPlan;
        EXPECT_EQ(cPlan.mfTunedCentreHz, fCentre);
        EXPECT_EQ(cPlan.muDecimation, take<uint32_t>(cWords));
        EXPECT_EQ(cPlan.mfSampleRateHz, take<float>(cWords));
        EXPECT_EQ(cPlan.muSamplesPerPacket, take<uint32_t>(cWords));
        EXPECT_EQ(cPlan.muPacketsPerBlock, take<uint32_t>(cWords));
        EXPECT_EQ(cPlan.muCaptureSamples, take<uint64_t>(cWords));
        EXPECT_EQ(cPlan.mcMaxContiguousSec.value_or(0.0f), take<float>(cWords));
        EXPECT_EQ(cPlan.mbContiguous, take<int>(cWords) == 1);
        EXPECT_EQ(cPlan.miReferenceLevel, take<int32_t>(cWords));
        lDecimations.insert(cPlan.muDecimation);
        uContiguous += cPlan.mbContiguous;
        uCounted += cPlan.muCaptureSamples != 0 && !cPlan.mbContiguous;
    }
    EXPECT_EQ(uLines, 883u);
    EXPECT_GT(uContiguous, 400u);
    EXPECT_GT(uCounted, 100u);
    EXPECT_EQ(lDecimations.size(), 11u);  // 1 to 1024, each of them
}

TEST(QuillonIQPlan, AHundredMegahertzTakesTheFullRate) {
    const IQPlan cPlan = plan(1e8f);
    EXPECT_EQ(cPlan.muDecimation, 1u);
    EXPECT_EQ(cPlan.mfSampleRateHz, 122880000.0f);
    EXPECT_EQ(plan(5.2e7f).muDecimation, 2u);
    EXPECT_EQ(plan(1e5f).muDecimation, 1024u);
}

TEST(QuillonIQPlan, TheWidestBandwidthThatTheDeviceHasIsMetByTheFullRate) {
    EXPECT_EQ(plan(Quillon::kIFBWRange.mfMaximum).muDecimation, 1u);
}

TEST(QuillonIQPlan, ABandwidthThatNoRateMeetsIsRefused) {
    StreamRanges cWider = kRanges;
    cWider.mcIFBWHz.mfMaximum = 2e8f;
    const Outcome cOutcome = outcomeOf(request(1e9f, 1.1e8f), cWider);
    EXPECT_FALSE(cOutcome.mcPlan);
    EXPECT_EQ(cOutcome.mcMessage, "Cannot set valid IFBW - request was 110000000Hz");
    EXPECT_EQ(cOutcome.miCode, -6004);
}

TEST(QuillonIQPlan, WhatWasChosenIsToldForTheLog) {
    const Outcome cOutcome = outcomeOf(request(1e9f, 1e6f));
    ASSERT_TRUE(cOutcome.mcPlan);
    EXPECT_EQ(cOutcome.mcMessage,
              "For IFBW:1000000 chose decimation 64, filter ratio 0.520833, sample rate 1920000.000000");
    EXPECT_EQ(cOutcome.miCode, 1000);
}

TEST(QuillonIQPlan, OfEveryBandwidthTheSlowestSufficientRateIsTaken) {
    for (float fIFBW = 1e5f; fIFBW <= 104448000.0f; fIFBW *= 1.003f) {
        const IQPlan cPlan = plan(fIFBW);
        EXPECT_GE(double{cPlan.mfSampleRateHz}, double{fIFBW} / 0.85 * 0.9999998) << fIFBW;
        if (cPlan.muDecimation < 1024) {
            EXPECT_LT(double{cPlan.mfSampleRateHz} / 2, double{fIFBW} / 0.85) << fIFBW;
        }
    }
}

TEST(QuillonIQPlan, PacketsHoldATenthOfASecondWithinWhatAPacketHolds) {
    EXPECT_EQ(plan(1e5f).muSamplesPerPacket, 12000u);
    EXPECT_EQ(plan(2e5f).muSamplesPerPacket, 24000u);
    for (const float fIFBW : {4e5f, 1e6f, 5e7f, 1e8f})
        EXPECT_EQ(plan(fIFBW).muSamplesPerPacket, 32768u) << fIFBW;
}

TEST(QuillonIQPlan, LowFrequenciesAreTunedLikeAllOthers) {
    const IQPlan cPlan = outcomeOf(request(1e6f, 1e6f)).mcPlan.value();
    EXPECT_EQ(cPlan.mfTunedCentreHz, 1e6f);
    EXPECT_EQ(cPlan.muDecimation, 64u);
}

TEST(QuillonIQPlan, LevelBoundsDependOnTheDecimationAlone) {
    EXPECT_EQ(plan(1e8f).mfLevelLow, -13.0f);
    EXPECT_EQ(plan(1e8f).mfLevelHigh, -3.0f);
    EXPECT_EQ(plan(5e7f).mfLevelLow, -20.0f);
    EXPECT_EQ(plan(5e7f).mfLevelHigh, -10.0f);
}

TEST(QuillonIQPlan, TheReferenceLevelIsCutTowardsZero) {
    struct {
        float mfdBm;
        int32_t miSetting;
    } const cRows[] = {{-40.0f, -40}, {-39.99f, -39}, {-0.99f, 0}, {0.99f, 0},    {9.99f, 9},
                       {10.0f, 10},   {-50.0f, -50},  {15.7f, 15}, {-20.5f, -20}, {-0.0f, 0}};
    for (const auto& cRow : cRows)
        EXPECT_EQ(plan(1e6f, 0.0f, cRow.mfdBm).miReferenceLevel, cRow.miSetting) << cRow.mfdBm;
}

TEST(QuillonIQPlan, ARequestOutsideTheDeviceIsUnrealizable) {
    EXPECT_EQ(outcomeOf(request(3e10f, 1e6f)).mcMessage,
              "IQ FCentreHz:30000001024, IFBWHz:1000000 is unrealizable");
    for (const IQRequest& cRequest :
         {request(8999.0f, 1e6f), request(1e9f, 99999.0f), request(1e9f, 104448008.0f), request(kNaN, 1e6f),
          request(1e9f, kNaN), request(kInfinity, 1e6f), request(1e9f, kInfinity), request(-1e9f, 1e6f)}) {
        const Outcome cOutcome = outcomeOf(cRequest);
        EXPECT_FALSE(cOutcome.mcPlan) << cRequest.mfCentreHz << " " << cRequest.mfIFBWHz;
        EXPECT_EQ(cOutcome.miCode, 1000);
        EXPECT_THAT(cOutcome.mcMessage, testing::EndsWith("is unrealizable"));
    }
}

TEST(QuillonIQPlan, HostileTimesAndLevelsAreHeld) {
    for (const float fSeconds : {kNaN, -1.0f, -kInfinity, 0.0f}) {
        const IQPlan cPlan = plan(1e6f, fSeconds);
        EXPECT_EQ(cPlan.mfCaptureSec, 0.0f);
        EXPECT_EQ(cPlan.muCaptureSamples, 0u);
        EXPECT_FALSE(cPlan.mcMaxContiguousSec);
    }
    EXPECT_EQ(plan(1e8f, kInfinity).mfCaptureSec, 120.0f);
    EXPECT_EQ(plan(1e8f, 1e30f).muCaptureSamples, 14745600000u);
    for (const float fReference : {kNaN, kInfinity, 1e30f, 2147483648.0f})
        EXPECT_EQ(plan(1e6f, 0.0f, fReference).miReferenceLevel, std::numeric_limits<int32_t>::max());
    for (const float fReference : {-kInfinity, -1e30f, -2147483648.0f})
        EXPECT_EQ(plan(1e6f, 0.0f, fReference).miReferenceLevel, std::numeric_limits<int32_t>::min());
}

TEST(QuillonIQPlan, AShortDecimatedCaptureIsOnePacketOfWhatItNeeds) {
    for (float fSeconds = 1e-7f; fSeconds < 0.0005f; fSeconds *= 1.01f) {
        const IQPlan cPlan = plan(5e7f, fSeconds);
        ASSERT_EQ(cPlan.muDecimation, 2u);
        if (cPlan.muCaptureSamples == 0)
            continue;
        EXPECT_EQ(cPlan.muPacketsPerBlock, 1u);
        EXPECT_EQ(cPlan.muSamplesPerPacket % 32, 0u);
        EXPECT_LE(cPlan.muSamplesPerPacket, std::max(256.0, double{fSeconds} * 61.44e6 + 33));
    }
}

TEST(QuillonIQPlan, AContiguousCaptureNeverLastsShorterThanAskedForAndFitsTheUnit) {
    for (float fSeconds = 1e-7f; fSeconds < 2.0f; fSeconds *= 1.0007f)
        for (const float fIFBW : {2e6f, 5e7f, 1e8f}) {
            const IQPlan cPlan = plan(fIFBW, fSeconds);
            if (!cPlan.mbContiguous)
                continue;
            EXPECT_EQ(cPlan.muCaptureSamples, uint64_t{cPlan.muSamplesPerPacket} * cPlan.muPacketsPerBlock);
            EXPECT_GE(static_cast<float>(cPlan.muCaptureSamples) / cPlan.mfSampleRateHz, fSeconds);
            EXPECT_LE(cPlan.muCaptureSamples, 33554432u);
            EXPECT_LE(cPlan.muSamplesPerPacket, 32768u);
        }
}

TEST(QuillonIQPlan, AtTheFullRateACaptureIsOfWholePackets) {
    const IQPlan cPlan = plan(1e8f, 1e-3f);  // 122880 samples
    EXPECT_EQ(cPlan.muSamplesPerPacket, 32768u);
    EXPECT_EQ(cPlan.muPacketsPerBlock, 4u);
    EXPECT_EQ(cPlan.muCaptureSamples, 131072u);
}

TEST(QuillonIQPlan, ACaptureOfAllThatTheUnitHoldsIsOneBlockAndALongerOneRunsByCount) {
    for (const float fIFBW : {1e8f, 5e7f, 1e6f, 1e5f}) {
        const float fRate = plan(fIFBW).mfSampleRateHz;
        const float fLongest = 33554432.0f / fRate;
        if (fLongest > 120.0f)
            continue;
        const IQPlan cPlan = plan(fIFBW, fLongest);
        EXPECT_TRUE(cPlan.mbContiguous) << fIFBW;
        EXPECT_EQ(cPlan.muPacketsPerBlock, 1024u);
        EXPECT_EQ(cPlan.muSamplesPerPacket, 32768u);
        const IQPlan cLonger = plan(fIFBW, std::nextafter(fLongest, 200.0f));
        EXPECT_FALSE(cLonger.mbContiguous) << fIFBW;
        EXPECT_EQ(cLonger.muPacketsPerBlock, 0u);
        EXPECT_EQ(cLonger.mcMaxContiguousSec, fLongest);
        EXPECT_EQ(cLonger.muSamplesPerPacket, plan(fIFBW).muSamplesPerPacket);
    }
}

// Commands.

TEST(QuillonIQCommands, AContinuousCapture) {
    IQPlan cPlan = outcomeOf(request(98.1e6f, 1e6f)).mcPlan.value();
    EXPECT_EQ(Quillon::continuousIQCommands(cPlan),
              ":TRACe:SPPacket 32768;:SENSE:DEC 64;FREQ:CENT 98100000 Hz;:DEBUG:REFERENCE:LEVEL -20");
}

TEST(QuillonIQCommands, TheFullRateIsADecimationOfOne) {
    const IQPlan cPlan = outcomeOf(request(2.45e9f, 1e8f, 0.0f, 9.9f)).mcPlan.value();
    EXPECT_EQ(Quillon::continuousIQCommands(cPlan),
              ":TRACe:SPPacket 32768;:SENSE:DEC 1;FREQ:CENT 2449999872 Hz;:DEBUG:REFERENCE:LEVEL 9");
}

TEST(QuillonIQCommands, AFiniteCaptureIsAOneEntryList) {
    const IQPlan cPlan = outcomeOf(request(12500000768.0f, 1e8f, 1e-3f, -0.5f)).mcPlan.value();
    EXPECT_EQ(Quillon::finiteIQCommands(cPlan),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:DEBUG:REFERENCE:LEVEL 0;"
              ":sweep:entry:freq:cent 12500000768;:sweep:entry:spp 32768;:sweep:entry:ppb 4;"
              ":sweep:entry:dec 1;:sweep:entry:save");
}

TEST(QuillonIQCommands, AFiniteCaptureNamesItsDecimation) {
    const IQPlan cPlan = outcomeOf(request(1e6f, 1e5f, 0.01f, -40.0f)).mcPlan.value();
    EXPECT_EQ(Quillon::finiteIQCommands(cPlan),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:DEBUG:REFERENCE:LEVEL -40;"
              ":sweep:entry:freq:cent 1000000;:sweep:entry:spp 1216;:sweep:entry:ppb 1;"
              ":sweep:entry:dec 1024;:sweep:entry:save");
}
