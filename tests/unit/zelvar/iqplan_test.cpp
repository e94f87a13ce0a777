#include "zelvar/iqplan.h"

#include <gmock/gmock.h>

#include <bit>
#include <fstream>
#include <limits>
#include <sstream>

namespace {

const ModelRecord& model(const std::string& name = "ZV350-C") {
    const ModelRecord* pModel = findModel(name);
    EXPECT_TRUE(pModel) << name;
    return *pModel;
}

StreamRanges rangesOf(const ModelRecord& cModel) {
    const FloatRange cCentre{cModel.mfLowestHz, cModel.mfHighestHz};
    return {cCentre, cCentre, {1.0f, 1e7f}, {1e5f, 4e7f}, {-80.0f, 20.0f}};
}

struct Outcome {
    std::optional<IQPlan> mcPlan;
    std::string mcMessage;
    int32_t miCode = 0;
};

Outcome planFor(const IQRequest& cRequest, const ModelRecord& cModel = model()) {
    Outcome cOutcome;
    cOutcome.mcPlan = planIQ(cRequest, cModel, rangesOf(cModel), cOutcome.mcMessage, cOutcome.miCode);
    return cOutcome;
}

IQRequest request(float fCentre, float fIFBW, float fSeconds = 0.0f, float fReference = -50.0f) {
    return {fCentre, fIFBW, fReference, 0.0f, fSeconds};
}

std::ifstream openData(const char* pName) {
    std::ifstream cFile(std::string(VNK_TEST_DATA) + "/" + pName);
    EXPECT_TRUE(cFile.is_open()) << pName;
    return cFile;
}

float fromBits(const std::string& hex) {
    return std::bit_cast<float>(static_cast<uint32_t>(std::stoul(hex, nullptr, 16)));
}

}  // namespace

TEST(IQPlan, EveryModelAndReferenceLevelHasItsGainAndAttenuationOnBothPaths) {
    std::ifstream cFile = openData("iq_gain_runs.txt");
    std::string name, stages;
    int iFirst = 0, iLast = 0, iScheme = 0, iAttenuation = 0;
    size_t uChecked = 0;
    while (cFile >> name >> iFirst >> iLast >> stages >> iScheme >> iAttenuation) {
        const std::string gain = stages == "11"   ? ":INPut:GAIN 1 1;:INPut:GAIN 2 1"
                                 : stages == "10" ? ":INPut:GAIN 1 1;:INPut:GAIN 2 0"
                                 : stages == "00" ? ":INPut:GAIN 1 0;:INPut:GAIN 2 0"
                                                  : "";
        const std::string end = (iScheme == 1 ? ";:INPut:ATTenuator " : ";:INPut:ATTenuator:VARiable ") +
                                std::to_string(iAttenuation) + (gain.empty() ? "" : ";" + gain);
        for (int iTenth = iFirst; iTenth <= iLast; ++iTenth)
            for (const float fCentre : {1e6f, 1e9f}) {
                const float fReference = static_cast<float>(iTenth) / 10.0f;
                const Outcome cOutcome = planFor(request(fCentre, 1e6f, 0.0f, fReference), model(name));
                ASSERT_TRUE(cOutcome.mcPlan) << name << " " << fReference;
                EXPECT_EQ(cOutcome.mcPlan->mfAttenuation, static_cast<float>(iAttenuation));
                EXPECT_THAT(continuousIQCommands(*cOutcome.mcPlan, model(name)), testing::EndsWith(end))
                    << name << " " << fReference;
                ++uChecked;
            }
    }
    EXPECT_EQ(uChecked, 13u * 1001u * 2u);
}

TEST(IQPlan, ModesDecimationsPacketsAndFinitePlansAreThoseComputedIndependently) {
    std::ifstream cFile = openData("iq_plans.txt");
    std::string centre, width, seconds, rate, longest;
    uint32_t uDecimation = 0, uSize = 0, uPackets = 0;
    uint64_t uSamples = 0;
    bool bContiguous = false;
    size_t uLines = 0;
    while (cFile >> centre >> width >> seconds >> uDecimation >> rate >> uSize >> uPackets >> uSamples >>
           longest >> bContiguous) {
        ++uLines;
        const IQRequest cRequest = request(fromBits(centre), fromBits(width), fromBits(seconds));
        const std::string what = centre + " " + width + " " + seconds;
        for (const char* pModel : {"ZV350-C", "ZV100-AP"}) {
            const Outcome cOutcome = planFor(cRequest, model(pModel));
            ASSERT_TRUE(cOutcome.mcPlan) << what;
            const IQPlan& cPlan = *cOutcome.mcPlan;
            EXPECT_EQ(cPlan.mbDirectDigitization, cRequest.mfCentreHz <= 50e6f) << what;
            EXPECT_EQ(cPlan.mfTunedCentreHz, cPlan.mbDirectDigitization ? 0.0f : cRequest.mfCentreHz);
            EXPECT_EQ(cPlan.muDecimation, uDecimation) << what;
            EXPECT_EQ(cPlan.mfSampleRateHz, fromBits(rate)) << what;
            EXPECT_EQ(cPlan.muSamplesPerPacket, uSize) << what;
            EXPECT_EQ(cPlan.muPacketsPerBlock, uPackets) << what;
            EXPECT_EQ(cPlan.muCaptureSamples, uSamples) << what;
            EXPECT_EQ(cPlan.mcMaxContiguousSec.value_or(0.0f), fromBits(longest)) << what;
            EXPECT_EQ(cPlan.mbContiguous, bContiguous) << what;
        }
    }
    EXPECT_GT(uLines, 2500u);
}

TEST(IQPlan, FiftyMegahertzIsDigitizedDirectlyAndTheNextFloatIsNot) {
    EXPECT_TRUE(planFor(request(50e6f, 1e6f)).mcPlan->mbDirectDigitization);
    EXPECT_FALSE(planFor(request(50000004.0f, 1e6f)).mcPlan->mbDirectDigitization);
}

TEST(IQPlan, TheNarrowestBandwidthTakesTheLargestDecimation) {
    EXPECT_EQ(planFor(request(1e9f, 1e5f)).mcPlan->muDecimation, 1024u);
}

TEST(IQPlan, TheWidestBandwidthNeedsDecimationOff) {
    const Outcome cAllowed = planFor(request(1e9f, 4e7f));
    ASSERT_TRUE(cAllowed.mcPlan);
    EXPECT_EQ(cAllowed.mcPlan->muDecimation, 1u);
    EXPECT_EQ(cAllowed.mcPlan->muSamplesPerPacket, 65280u);
    EXPECT_EQ(cAllowed.mcPlan->mfLevelLow, -13.0f);
    EXPECT_EQ(cAllowed.mcPlan->mfLevelHigh, -3.0f);
    ModelRecord cModel = model();
    cModel.mbDecimationOffAllowed = false;
    const Outcome cForbidden = planFor(request(1e9f, 4e7f), cModel);
    EXPECT_FALSE(cForbidden.mcPlan);
    EXPECT_EQ(cForbidden.mcMessage, "Cannot set valid IFBW - request was 40000000Hz");
    EXPECT_EQ(cForbidden.miCode, -6004);
}

TEST(IQPlan, DecimationsTwoAndThreeAreNeverUsed) {
    for (float fIFBW = 1e5f; fIFBW <= 4e7f; fIFBW *= 1.003f) {
        const uint32_t uDecimation = planFor(request(1e9f, fIFBW)).mcPlan->muDecimation;
        EXPECT_TRUE(uDecimation == 1 || (uDecimation >= 4 && std::has_single_bit(uDecimation))) << fIFBW;
    }
}

TEST(IQPlan, DecimatedCapturesHaveTheLowerLevelBounds) {
    const IQPlan cPlan = *planFor(request(1e9f, 1e6f)).mcPlan;
    EXPECT_EQ(cPlan.mfLevelLow, -20.0f);
    EXPECT_EQ(cPlan.mfLevelHigh, -10.0f);
}

TEST(IQPlan, ARequestOutsideTheDeviceIsUnrealizable) {
    const float fNaN = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(planFor(request(1e10f, 1e6f), model("ZV100-A")).mcMessage,
              "IQ FCentreHz:10000000000, IFBWHz:1000000 is unrealizable");
    for (const IQRequest& cRequest : {request(8999.0f, 1e6f), request(1e9f, 99999.0f), request(1e9f, 4.1e7f),
                                      request(fNaN, 1e6f), request(1e9f, fNaN)}) {
        const Outcome cOutcome = planFor(cRequest);
        EXPECT_FALSE(cOutcome.mcPlan);
        EXPECT_EQ(cOutcome.miCode, 1000);
    }
}

TEST(IQPlan, HostileCaptureTimesAreHeldAndACalibrationOfAnySizeIsHarmless) {
    const float fNaN = std::numeric_limits<float>::quiet_NaN();
    for (const float fSeconds : {fNaN, -1.0f, 0.0f}) {
        const IQPlan cPlan = *planFor(request(1e9f, 1e6f, fSeconds)).mcPlan;
        EXPECT_EQ(cPlan.mfCaptureSec, 0.0f);
        EXPECT_EQ(cPlan.muCaptureSamples, 0u);
        EXPECT_FALSE(cPlan.mcMaxContiguousSec);
    }
    IQRequest cRequest = request(1e9f, 1e6f, 1e30f);
    cRequest.mfUserCaldB = 1e30f;
    EXPECT_EQ(planFor(cRequest).mcPlan->mfCaptureSec, 120.0f);
    cRequest = request(1e9f, 1e6f, 500.0f, fNaN);
    EXPECT_EQ(planFor(cRequest).mcPlan->mfCaptureSec, 120.0f);
}

TEST(IQPlan, AShortDecimatedCaptureIsOnePacket) {
    for (float fSeconds = 1e-6f; fSeconds < 0.002f; fSeconds *= 1.01f) {
        const IQPlan cPlan = *planFor(request(1e9f, 2e7f, fSeconds)).mcPlan;
        ASSERT_EQ(cPlan.muDecimation, 4u);
        EXPECT_EQ(cPlan.muPacketsPerBlock, 1u);
        EXPECT_EQ(cPlan.muSamplesPerPacket % 32, 0u);
        EXPECT_GE(cPlan.muSamplesPerPacket, 256u);
        EXPECT_LE(cPlan.muSamplesPerPacket, 65504u);
        EXPECT_GE(static_cast<double>(cPlan.muCaptureSamples) / 31.25e6,
                  static_cast<double>(fSeconds) * 0.9999999);
    }
}

TEST(IQPlan, AContiguousCaptureNeverLastsShorterThanAskedFor) {
    for (float fSeconds = 1e-5f; fSeconds < 2.0f; fSeconds *= 1.0007f)
        for (const float fIFBW : {2e6f, 2e7f, 4e7f}) {
            const IQPlan cPlan = *planFor(request(1e9f, fIFBW, fSeconds)).mcPlan;
            if (!cPlan.mbContiguous)
                continue;
            EXPECT_EQ(cPlan.muCaptureSamples, uint64_t{cPlan.muSamplesPerPacket} * cPlan.muPacketsPerBlock);
            EXPECT_GE(static_cast<float>(cPlan.muCaptureSamples) / cPlan.mfSampleRateHz, fSeconds);
            const uint64_t uSlack = cPlan.muDecimation == 1 ? cPlan.muSamplesPerPacket : 0;
            EXPECT_LE(cPlan.muCaptureSamples, (cPlan.muDecimation == 1 ? 67108864u : 33554432u) + uSlack);
        }
}

TEST(IQPlan, ACaptureOfAllThatTheUnitHoldsIsOneBlockAndALongerOneRunsByCount) {
    const IQRequest cLongest = request(1e9f, 2e7f, 33554432.0f / 31.25e6f);
    const IQPlan cPlan = *planFor(cLongest).mcPlan;
    EXPECT_TRUE(cPlan.mbContiguous);
    EXPECT_EQ(cPlan.muPacketsPerBlock, 1024u);
    EXPECT_EQ(cPlan.muSamplesPerPacket, 32768u);
    const IQPlan cLonger = *planFor(request(1e9f, 2e7f, 1.1f)).mcPlan;
    EXPECT_FALSE(cLonger.mbContiguous);
    EXPECT_EQ(cLonger.muPacketsPerBlock, 0u);
    EXPECT_EQ(cLonger.muCaptureSamples, 34375000u);
    EXPECT_EQ(cLonger.mcMaxContiguousSec, 33554432.0f / 31.25e6f);
}
