#include "zelvar/sweepplan.h"

#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "dsp/windowfunctions.h"

namespace {

constexpr float kHighestC = 2.7e10f;
constexpr const char* kUnreasonable = "Sweep parameters (min,max,rbw) unreasonable";

struct Outcome {
    std::optional<SweepPlan> mcPlan;
    std::string mcMessage;
};

Outcome planFor(const SweepRequest& cRequest, float fHighestHz = kHighestC) {
    Outcome cOutcome;
    cOutcome.mcPlan = planSweep(cRequest, fHighestHz, cOutcome.mcMessage);
    return cOutcome;
}

SweepRequest request(float fMin, float fMax, float fRBW, const std::string& window = "nuttall") {
    SweepRequest cRequest{fMin, fMax, fRBW};
    cRequest.mcWindowName = window;
    return cRequest;
}

SweepPlan plan(float fMin, float fMax, float fRBW, const std::string& window = "nuttall") {
    return planFor(request(fMin, fMax, fRBW, window)).mcPlan.value();
}

std::ifstream openData(const char* pName) {
    std::ifstream cFile(std::string(VNK_TEST_DATA) + "/" + pName);
    EXPECT_TRUE(cFile.is_open()) << pName;
    return cFile;
}

float fromBits(const std::string& hex) {
    return std::bit_cast<float>(static_cast<uint32_t>(std::stoul(hex, nullptr, 16)));
}

/// A line of the table: what was asked, and the words behind it.
struct TableLine {
    std::string mcWhat;
    float mfHighestHz;
    SweepRequest mcRequest;
    bool mbPlanned;
    std::istringstream mcRest;
};

std::optional<TableLine> readLine(std::ifstream& cFile) {
    std::string line;
    if (!std::getline(cFile, line))
        return {};
    TableLine cLine{"", 0.0f, {}, false, std::istringstream(line)};
    std::string highest, lower, upper, rbw, outcome;
    cLine.mcRest >> cLine.mcWhat >> highest >> lower >> upper >> rbw >> cLine.mcRequest.mcWindowName >>
        outcome;
    cLine.mcRequest.mfMinHz = fromBits(lower);
    cLine.mcRequest.mfMaxHz = fromBits(upper);
    cLine.mcRequest.mfRBWHz = fromBits(rbw);
    cLine.mfHighestHz = fromBits(highest);
    cLine.mbPlanned = outcome == "planned";
    return cLine;
}

template <typename T>
T take(std::istringstream& cWords) {
    std::string word;
    EXPECT_TRUE(cWords >> word);
    if constexpr (std::is_same_v<T, float>)
        return fromBits(word);
    else
        return static_cast<T>(std::stoull(word));
}

void expectPlan(const SweepPlan& cPlan, std::istringstream& cWords) {
    EXPECT_EQ(cPlan.muFFTSize, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muSamplesPerPacket, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muPacketsPerBlock, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.mfBinHz, take<float>(cWords));
    EXPECT_EQ(cPlan.mfActualRBW, take<float>(cWords));
    EXPECT_EQ(cPlan.mbHasDDBlock, take<uint32_t>(cWords) == 1);
    EXPECT_EQ(cPlan.muDDBinFirst, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muDDBinLast, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.mfDDStopHz, take<float>(cWords));
    EXPECT_EQ(cPlan.muStepCount, take<uint32_t>(cWords));
    const uint32_t uBins[] = {take<uint32_t>(cWords), take<uint32_t>(cWords), take<uint32_t>(cWords)};
    const uint64_t uCentres[] = {take<uint64_t>(cWords), take<uint64_t>(cWords), take<uint64_t>(cWords)};
    if (cPlan.muStepCount != 0) {
        EXPECT_THAT(uBins,
                    testing::ElementsAre(cPlan.muSHBinFirst, cPlan.muSHBinLast, cPlan.muSHBinLastFinal));
        EXPECT_THAT(uCentres,
                    testing::ElementsAre(cPlan.muCentreFirst, cPlan.muCentreLast, cPlan.muCentreStep));
    }
    EXPECT_EQ(cPlan.muTotalBins, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.mfFStart, take<float>(cWords));
    EXPECT_EQ(cPlan.mfFStop, take<float>(cWords));
    EXPECT_EQ(cPlan.muTotalExpectedBlocks, cPlan.muStepCount + (cPlan.mbHasDDBlock ? 1 : 0));
}

}  // namespace

TEST(SweepPlan, NoiseBandwidthsAreThoseComputedIndependently) {
    std::ifstream cFile = openData("window_bandwidths.txt");
    std::string name, value;
    size_t uLines = 0;
    for (; cFile >> name >> value; ++uLines)
        EXPECT_EQ(WindowFunctions::windowNoiseBandwidth(name), fromBits(value)) << name;
    EXPECT_EQ(uLines, 12u);
}

TEST(SweepPlan, EveryNumberIsTheOneComputedIndependently) {
    std::ifstream cFile = openData("sweep_plans.txt");
    std::set<std::string> lWindows;
    size_t uPlanned = 0, uRefused = 0, uMixed = 0, uDirect = 0;
    while (std::optional<TableLine> cLine = readLine(cFile)) {
        const SweepRequest& cRequest = cLine->mcRequest;
        SCOPED_TRACE(testing::Message() << cLine->mcWhat << " " << cRequest.mfMinHz << " " << cRequest.mfMaxHz
                                        << " " << cRequest.mfRBWHz << " " << cRequest.mcWindowName);
        const Outcome cOutcome = planFor(cRequest, cLine->mfHighestHz);
        ASSERT_EQ(cOutcome.mcPlan.has_value(), cLine->mbPlanned);
        if (!cOutcome.mcPlan) {
            EXPECT_EQ(cOutcome.mcMessage, kUnreasonable);
            ++uRefused;
            continue;
        }
        expectPlan(*cOutcome.mcPlan, cLine->mcRest);
        ++uPlanned;
        uMixed += cOutcome.mcPlan->mbHasDDBlock && cOutcome.mcPlan->muStepCount != 0;
        uDirect += cOutcome.mcPlan->muStepCount == 0;
        lWindows.insert(cRequest.mcWindowName);
    }
    EXPECT_GT(uPlanned, 600u);
    EXPECT_GT(uRefused, 20u);
    EXPECT_GT(uMixed, 60u);
    EXPECT_GT(uDirect, 60u);
    EXPECT_EQ(lWindows.size(), 12u);
}

TEST(SweepPlan, AHundredMegahertzAtTenKilohertzIsThreeSteps) {
    const SweepPlan cPlan = plan(100e6f, 200e6f, 10e3f);
    EXPECT_EQ(cPlan.muFFTSize, 32768u);
    EXPECT_EQ(cPlan.muSamplesPerPacket, 32768u);
    EXPECT_EQ(cPlan.muPacketsPerBlock, 1u);
    EXPECT_EQ(cPlan.mfBinHz, 3814.9302f);
    EXPECT_EQ(cPlan.mfActualRBW, 7711.3242f);
    EXPECT_FALSE(cPlan.mbHasDDBlock);
    EXPECT_EQ(cPlan.muSHBinFirst, 4456u);
    EXPECT_EQ(cPlan.muSHBinLast, 13893u);
    EXPECT_EQ(cPlan.muCentreFirst, 118000670u);
    EXPECT_EQ(cPlan.muCentreStep, 36005310u);
    EXPECT_EQ(cPlan.muCentreLast, 190011290u);
    EXPECT_EQ(cPlan.muStepCount, 3u);
    EXPECT_EQ(cPlan.muSHBinLastFinal, 11792u);
    EXPECT_EQ(cPlan.mfFStart, 100000000.0f);
    EXPECT_EQ(cPlan.mfFStop, 199996960.0f);
    EXPECT_EQ(cPlan.muTotalBins, 26213u);
    EXPECT_EQ(cPlan.muTotalExpectedBlocks, 3u);
}

TEST(SweepPlan, UpToFiftyMegahertzIsOneDirectBlock) {
    const SweepPlan cPlan = plan(9e3f, 50e6f, 10e3f);
    EXPECT_TRUE(cPlan.mbHasDDBlock);
    EXPECT_EQ(cPlan.muStepCount, 0u);
    EXPECT_EQ(cPlan.muTotalExpectedBlocks, 1u);
    EXPECT_EQ(cPlan.mfFStop, cPlan.mfDDStopHz);
    EXPECT_LE(cPlan.mfFStop, 50e6f);
    EXPECT_GT(cPlan.mfFStop + cPlan.mfBinHz, 50e6f);
}

TEST(SweepPlan, FromFiftyMegahertzUpNothingIsDirect) {
    for (const float fMin : {50e6f, std::nextafter(50e6f, 1e9f), 88e6f})
        EXPECT_FALSE(plan(fMin, 300e6f, 10e3f).mbHasDDBlock) << fMin;
    EXPECT_TRUE(plan(std::nextafter(50e6f, 0.0f) - 4000.0f, 300e6f, 10e3f).mbHasDDBlock);
}

TEST(SweepPlan, AnEmptyRangeOfDirectBinsIsNoBlock) {
    const float fMin = std::nextafter(50e6f, 0.0f);
    const SweepPlan cPlan = plan(fMin, 80e6f, 1e6f);
    EXPECT_FALSE(cPlan.mbHasDDBlock);
    EXPECT_EQ(cPlan.muTotalExpectedBlocks, cPlan.muStepCount);
    EXPECT_NEAR(cPlan.mfFStart, fMin, 5.0f + 8.0f);
}

TEST(SweepPlan, AtTheJointTheFirstTunedBinFollowsTheDirectOnes) {
    for (const float fRBW : {100.0f, 1e3f, 10e3f, 100e3f, 1e6f}) {
        const SweepPlan cPlan = plan(10e6f, 300e6f, fRBW);
        ASSERT_TRUE(cPlan.mbHasDDBlock);
        const double fFirst =
            static_cast<double>(cPlan.muCentreFirst) - 35e6 + double{cPlan.mfBinHz} * cPlan.muSHBinFirst;
        EXPECT_NEAR(fFirst, double{cPlan.mfDDStopHz} + double{cPlan.mfBinHz}, 5.0 + 8.0) << fRBW;
        EXPECT_NEAR(cPlan.mfFStart, 10e6f, cPlan.mfBinHz);
    }
}

TEST(SweepPlan, StepsJoinWithinTheirRounding) {
    for (const float fRBW : {1e3f, 10e3f, 1e6f, 1e7f}) {
        const SweepPlan cPlan = plan(88e6f, 1e9f, fRBW);
        const double fWidth = double{cPlan.mfBinHz} * (cPlan.muSHBinLast - cPlan.muSHBinFirst + 1);
        EXPECT_NEAR(static_cast<double>(cPlan.muCentreStep), fWidth, 10.0 + 16.0) << fRBW;
        EXPECT_EQ(cPlan.muCentreFirst % 10, 0u);
        EXPECT_EQ(cPlan.muCentreStep % 10, 0u);
        EXPECT_EQ(cPlan.muCentreLast, cPlan.muCentreFirst + (cPlan.muStepCount - 1) * cPlan.muCentreStep);
        EXPECT_LE(cPlan.mfFStop, 1e9f + 64.0f);
    }
}

TEST(SweepPlan, ACoarseResolutionHasTheSmallestTransform) {
    for (const float fRBW : {2e6f, 5e6f, 1e7f}) {
        const SweepPlan cPlan = plan(100e6f, 200e6f, fRBW);
        EXPECT_EQ(cPlan.muFFTSize, 256u) << fRBW;
        EXPECT_EQ(cPlan.muSamplesPerPacket, 256u);
        EXPECT_EQ(cPlan.muPacketsPerBlock, 1u);
    }
}

TEST(SweepPlan, OneHertzTakesABlockOfManyPacketsThatHoldMoreThanTheTransform) {
    const SweepPlan cPlan = plan(1e6f, 2e6f, 1.0f);
    EXPECT_EQ(cPlan.muFFTSize, 268435456u);
    EXPECT_EQ(cPlan.muSamplesPerPacket, 65504u);
    EXPECT_EQ(cPlan.muPacketsPerBlock, 4099u);
    EXPECT_GT(uint64_t{cPlan.muSamplesPerPacket} * cPlan.muPacketsPerBlock, cPlan.muFFTSize);
}

TEST(SweepPlan, PacketsAreWholeStepsThatFitTheUnitAndHoldTheTransform) {
    std::set<uint32_t> lSizes;
    for (float fRBW = 1.0f; fRBW <= 1e7f; fRBW *= 1.7f) {
        const SweepPlan cPlan = plan(1e6f, 30e6f, fRBW);
        EXPECT_LE(cPlan.muSamplesPerPacket, 65504u);
        EXPECT_EQ(cPlan.muSamplesPerPacket % 32, 0u);
        EXPECT_GE(uint64_t{cPlan.muSamplesPerPacket} * cPlan.muPacketsPerBlock, cPlan.muFFTSize);
        EXPECT_TRUE(std::has_single_bit(cPlan.muFFTSize));
        EXPECT_LE(cPlan.mfActualRBW, fRBW * 1.001f);
        lSizes.insert(cPlan.muFFTSize);
    }
    EXPECT_EQ(lSizes.size(), 21u);  // 256 to 2^28, each of them
}

TEST(SweepPlan, AnEdgeAboveTheUnitLosesStepsAndTheSpectrumEndsBelowIt) {
    for (const float fHighest : {8e9f, 1.8e10f, 2.7e10f}) {
        const SweepPlan cPlan = planFor(request(fHighest - 100e6f, fHighest, 10e3f), fHighest).mcPlan.value();
        EXPECT_LE(static_cast<float>(cPlan.muCentreLast), fHighest);
        EXPECT_GT(static_cast<float>(cPlan.muCentreLast + cPlan.muCentreStep), fHighest);
        EXPECT_LT(cPlan.mfFStop, fHighest + 1e6f);
    }
    const SweepPlan cCut = planFor(request(7.9e9f, 8e9f, 10e3f), 7.97e9f).mcPlan.value();
    EXPECT_EQ(cCut.muStepCount, 2u);
    EXPECT_EQ(cCut.muSHBinLastFinal, cCut.muSHBinLast);
    EXPECT_NEAR(cCut.mfFStop, 7.972e9f, 2e4f);
}

TEST(SweepPlan, WithAllStepsTakenOffNothingIsLeftToSweep) {
    for (const float fHighest : {8e9f, 1.8e10f, 2.7e10f}) {
        const Outcome cOutcome = planFor(request(fHighest - 10e6f, fHighest, 10e3f), fHighest);
        EXPECT_FALSE(cOutcome.mcPlan);
        EXPECT_EQ(cOutcome.mcMessage, kUnreasonable);
    }
}

TEST(SweepPlan, WithAllStepsTakenOffTheDirectBlockIsLeft) {
    const SweepPlan cPlan = planFor(request(10e6f, 60e6f, 10e3f), 55e6f).mcPlan.value();
    EXPECT_TRUE(cPlan.mbHasDDBlock);
    EXPECT_EQ(cPlan.muStepCount, 0u);
    EXPECT_EQ(cPlan.muTotalExpectedBlocks, 1u);
    EXPECT_EQ(cPlan.muTotalBins, cPlan.muDDBinLast - cPlan.muDDBinFirst + 1);
    EXPECT_EQ(cPlan.mfFStop, cPlan.mfDDStopHz);
}

TEST(SweepPlan, ALastStepThatBeginsAboveTheEdgeAddsNothing) {
    // The count of steps is that of their nominal width; a rounded centre can put the last one above the
    // edge.
    const SweepPlan cPlan = plan(100e6f, 352749344.0f, 100e3f, "rectangular");
    EXPECT_EQ(cPlan.muSHBinLastFinal + 1, cPlan.muSHBinFirst);
    EXPECT_EQ(cPlan.muTotalBins, (cPlan.muSHBinLast - cPlan.muSHBinFirst + 1) * (cPlan.muStepCount - 1));
    EXPECT_LE(cPlan.mfFStop, 352749344.0f);
}

TEST(SweepPlan, ASpanNarrowerThanTheResolutionIsUnreasonable) {
    for (const SweepRequest& cRequest :
         {request(100e6f, 100e6f, 1.0f), request(1e6f, 1.009e6f, 10e3f), request(200e6f, 100e6f, 10e3f)}) {
        const Outcome cOutcome = planFor(cRequest);
        EXPECT_FALSE(cOutcome.mcPlan);
        EXPECT_EQ(cOutcome.mcMessage, kUnreasonable);
    }
    EXPECT_TRUE(planFor(request(1e6f, 1.01e6f, 10e3f)).mcPlan);  // equal is enough
}

TEST(SweepPlan, MoreBinsThanCanBeCountedAreRefused) {
    EXPECT_FALSE(planFor(request(9e3f, 2.7e10f, 1.0f)).mcPlan);
    EXPECT_FALSE(planFor(request(9e3f, 8e9f, 2.0f)).mcPlan);
    EXPECT_TRUE(planFor(request(1e9f, 1.2e9f, 1.0f)).mcPlan);
}

TEST(SweepPlan, WhatIsNoNumberIsRefusedAndTinyOrHugeValuesEnd) {
    const float fNaN = std::numeric_limits<float>::quiet_NaN();
    const float fInfinity = std::numeric_limits<float>::infinity();
    for (const SweepRequest& cRequest :
         {request(fNaN, 1e9f, 1e4f), request(1e8f, fNaN, 1e4f), request(1e8f, 1e9f, fNaN),
          request(1e8f, 1e9f, 0.0f), request(1e8f, 1e9f, -1.0f), request(1e8f, 1e9f, 1e-30f),
          request(1e8f, fInfinity, fInfinity)})
        EXPECT_FALSE(planFor(cRequest).mcPlan)
            << cRequest.mfMinHz << " " << cRequest.mfMaxHz << " " << cRequest.mfRBWHz;
    EXPECT_EQ(plan(1e6f, 1.00001e6f, 1e-3f).muFFTSize, 1u << 31);  // the ceiling
    EXPECT_EQ(planFor(request(1e6f, 50e6f, 1e4f, "unknown")).mcPlan.value().mfNoiseBandwidth, 1.0f);
}
