#include "quillon/sweepplan.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <set>
#include <sstream>

#include "unit/quillon/plandata.h"

using vnktest::fromBits;
using vnktest::openData;
using vnktest::take;

namespace {

constexpr float kHighestHz = 2e10f;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr const char* kUnreasonable = "Sweep parameters (min,max,rbw) unreasonable";

struct Outcome {
    std::optional<SweepPlan> mcPlan;
    std::string mcMessage;
};

Outcome outcomeOf(const SweepRequest& cRequest, float fHighestHz = kHighestHz) {
    Outcome cOutcome;
    cOutcome.mcPlan = Quillon::planSweep(cRequest, fHighestHz, cOutcome.mcMessage);
    return cOutcome;
}

SweepRequest request(float fMin, float fMax, float fRBW, const std::string& window = "nuttall") {
    SweepRequest cRequest{fMin, fMax, fRBW};
    cRequest.mcWindowName = window;
    return cRequest;
}

SweepPlan plan(float fMin, float fMax, float fRBW, const std::string& window = "nuttall",
               float fHighestHz = kHighestHz) {
    return outcomeOf(request(fMin, fMax, fRBW, window), fHighestHz).mcPlan.value();
}

void expectPlan(const SweepPlan& cPlan, std::istream& cWords) {
    EXPECT_EQ(cPlan.muFFTSize, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muSamplesPerPacket, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muPacketsPerBlock, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.mfBinHz, take<float>(cWords));
    EXPECT_EQ(cPlan.mfActualRBW, take<float>(cWords));
    EXPECT_EQ(cPlan.muStepCount, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muSHBinFirst, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muSHBinLast, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muSHBinLastFinal, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.muCentreFirst, take<uint64_t>(cWords));
    EXPECT_EQ(cPlan.muCentreLast, take<uint64_t>(cWords));
    EXPECT_EQ(cPlan.muCentreStep, take<uint64_t>(cWords));
    EXPECT_EQ(cPlan.muTotalBins, take<uint32_t>(cWords));
    EXPECT_EQ(cPlan.mfFStart, take<float>(cWords));
    EXPECT_EQ(cPlan.mfFStop, take<float>(cWords));
    EXPECT_EQ(cPlan.muTotalExpectedBlocks, cPlan.muStepCount);
    EXPECT_FALSE(cPlan.mbHasDDBlock);
}

/// Where a bin of a block lies, by the transform alone.
double binHz(const SweepPlan& cPlan, uint64_t uCentreHz, uint32_t uBin) {
    return static_cast<double>(uCentreHz) +
           (static_cast<double>(uBin) - cPlan.muFFTSize / 2.0) * 122.88e6 / cPlan.muFFTSize;
}

}  // namespace

TEST(QuillonSweepPlan, EveryNumberIsTheOneComputedIndependently) {
    std::ifstream cFile = openData("quillon_sweep_plans.txt");
    std::set<std::string> lWindows;
    std::set<uint32_t> lSizes;
    size_t uPlanned = 0, uRefused = 0;
    for (std::string line; std::getline(cFile, line);) {
        SCOPED_TRACE(line);
        std::istringstream cWords(line);
        std::string what, window, outcome;
        cWords >> what;
        const float fHighest = take<float>(cWords);
        const float fMin = take<float>(cWords), fMax = take<float>(cWords), fRBW = take<float>(cWords);
        cWords >> window >> outcome;
        const Outcome cOutcome = outcomeOf(request(fMin, fMax, fRBW, window), fHighest);
        ASSERT_EQ(cOutcome.mcPlan.has_value(), outcome == "planned");
        if (!cOutcome.mcPlan) {
            EXPECT_EQ(cOutcome.mcMessage, kUnreasonable);
            ++uRefused;
            continue;
        }
        expectPlan(*cOutcome.mcPlan, cWords);
        ++uPlanned;
        lWindows.insert(window);
        lSizes.insert(cOutcome.mcPlan->muFFTSize);
    }
    EXPECT_GT(uPlanned, 500u);
    EXPECT_GT(uRefused, 50u);
    EXPECT_EQ(lWindows.size(), 12u);
    EXPECT_GT(lSizes.size(), 8u);
}

TEST(QuillonSweepPlan, ThreeHundredMegahertzAtTwoHundredKilohertzIsFourSteps) {
    // Worked by hand from the bin width on.
    const SweepPlan cPlan = plan(100e6f, 400e6f, 200e3f, "nuttall", 6e9f);
    EXPECT_EQ(cPlan.muFFTSize, 4096u);
    EXPECT_FLOAT_EQ(cPlan.mfBinHz, 122880000.0f / 4097.0f);
    EXPECT_EQ(cPlan.muSHBinFirst, 410u);         // 12287999 / 29992.68 = 409.7
    EXPECT_EQ(cPlan.muSHBinLast, 3687u);         // 110592000 / 29992.68 = 3687.3
    EXPECT_EQ(cPlan.muCentreFirst, 149143010u);  // 100 MHz and 1638.5 bins
    EXPECT_EQ(cPlan.muCentreStep, 98345990u);    // 3279 bins
    EXPECT_EQ(cPlan.muStepCount, 4u);
    EXPECT_EQ(cPlan.muCentreLast, 444180980u);
    EXPECT_EQ(cPlan.muSHBinLastFinal, 574u);  // 2048 less 44180980 / 29992.68
    EXPECT_EQ(cPlan.muTotalBins, 3u * 3278u + 165u);
    EXPECT_EQ(cPlan.mfFStart, 100e6f);
    EXPECT_NEAR(cPlan.mfFStop, 400e6f, 30e3);
}

TEST(QuillonSweepPlan, TheFirstBinLiesAtTheLowerEdgeAndTheLastOneAtTheUpperWithinHalfABin) {
    for (const float fRBW : {1e5f, 3e5f, 1e6f, 1e7f})
        for (const float fMin : {9e3f, 30e6f, 433e6f}) {
            const SweepPlan cPlan = plan(fMin, fMin + 150e6f, fRBW);
            const double fHalf = double{cPlan.mfBinHz} / 2;
            EXPECT_EQ(cPlan.mfFStart, fMin);
            EXPECT_NEAR(binHz(cPlan, cPlan.muCentreFirst, cPlan.muSHBinFirst), fMin, fHalf + 37.0) << fRBW;
            EXPECT_NEAR(binHz(cPlan, cPlan.muCentreLast, cPlan.muSHBinLastFinal), cPlan.mfFStop,
                        fHalf + 37.0);
            EXPECT_LE(cPlan.mfFStop, fMin + 150e6f + 32.0f);
            EXPECT_GT(cPlan.mfFStop, fMin + 150e6f - 1.01f * cPlan.mfBinHz);
        }
}

TEST(QuillonSweepPlan, NeighbouringBlocksJoinWithinHalfABin) {
    for (const char* pWindow : {"rectangular", "nuttall", "flattop"})
        for (const float fRBW : {1e5f, 2e5f, 1e6f, 1e7f, 1e9f})
            for (const float fMin : {9e3f, 100e6f, 1e9f, 1e10f}) {
                const SweepPlan cPlan = plan(fMin, fMin + 3e9f, fRBW, pWindow);
                ASSERT_GT(cPlan.muStepCount, 20u);
                const double fBin = 122.88e6 / cPlan.muFFTSize;
                const double fNext =
                    binHz(cPlan, cPlan.muCentreFirst + cPlan.muCentreStep, cPlan.muSHBinFirst);
                const double fRounding =
                    10.0 + 2.5 * double{std::nextafter(fMin + 1e8f, 1e12f) - (fMin + 1e8f)};
                EXPECT_NEAR(fNext - binHz(cPlan, cPlan.muCentreFirst, cPlan.muSHBinLast), fBin,
                            0.5 * fBin + fRounding)
                    << pWindow << " " << fRBW << " " << fMin;
                EXPECT_EQ(cPlan.muCentreFirst % 10, 0u);
                EXPECT_EQ(cPlan.muCentreStep % 10, 0u);
                EXPECT_EQ(cPlan.muCentreLast,
                          cPlan.muCentreFirst + (cPlan.muStepCount - 1) * cPlan.muCentreStep);
            }
}

TEST(QuillonSweepPlan, TheKeptBinsAreTheUsableShareOfTheBand) {
    for (float fRBW = 1e5f; fRBW <= 1e9f; fRBW *= 1.7f) {
        const SweepPlan cPlan = plan(100e6f, 5e9f, fRBW);
        EXPECT_GE(cPlan.muSHBinFirst, cPlan.muFFTSize / 10);
        EXPECT_LE(cPlan.muSHBinLast, cPlan.muFFTSize - cPlan.muFFTSize / 10);
        EXPECT_NEAR((cPlan.muSHBinLast - cPlan.muSHBinFirst + 1.0) / cPlan.muFFTSize, 0.8, 0.01);
    }
}

TEST(QuillonSweepPlan, TheResolutionIsAtLeastAsFineAsAskedFor) {
    for (const char* pWindow : {"rectangular", "hann", "nuttall", "flattop"})
        for (float fRBW = 1e5f; fRBW <= 4e6f; fRBW *= 1.13f)
            EXPECT_LE(plan(100e6f, 200e6f, fRBW, pWindow).mfActualRBW, fRBW) << pWindow;
}

TEST(QuillonSweepPlan, ACoarseResolutionHasTheSmallestTransform) {
    for (const float fRBW : {1e7f, 1e8f, 3e9f}) {
        const SweepPlan cPlan = plan(1e9f, 5e9f, fRBW);
        EXPECT_EQ(cPlan.muFFTSize, 256u) << fRBW;
        EXPECT_EQ(cPlan.muSamplesPerPacket, 256u);
        EXPECT_EQ(cPlan.muPacketsPerBlock, 1u);
    }
}

TEST(QuillonSweepPlan, LargeBlocksAreOfWholePackets) {
    EXPECT_EQ(plan(1e9f, 1.1e9f, 2e4f, "rectangular").muPacketsPerBlock, 1u);
    const SweepPlan cPlan = plan(1e9f, 1.1e9f, 2e3f);
    EXPECT_EQ(cPlan.muFFTSize, 262144u);
    EXPECT_EQ(cPlan.muSamplesPerPacket, 32768u);
    EXPECT_EQ(cPlan.muPacketsPerBlock, 8u);
}

TEST(QuillonSweepPlan, TheFinestResolutionsThatFitAnArrayArePlannedAndFinerOnesAreNot) {
    const SweepPlan cPlan = plan(1e9f, 1.01e9f, 0.4f);
    EXPECT_EQ(cPlan.muFFTSize, 1u << 30);
    EXPECT_EQ(cPlan.muPacketsPerBlock, 32768u);
    EXPECT_LE(uint64_t{cPlan.muSamplesPerPacket} * cPlan.muPacketsPerBlock * 2, uint64_t{1} << 31);
    for (const float fRBW : {0.1f, 1e-3f, 1e-30f, std::numeric_limits<float>::denorm_min()})
        EXPECT_FALSE(outcomeOf(request(1e9f, 1.01e9f, fRBW)).mcPlan) << fRBW;
    EXPECT_FALSE(outcomeOf(request(9e3f, 6e9f, 1.0f)).mcPlan);  // more bins than can be counted
}

TEST(QuillonSweepPlan, AnEdgeAboveTheUnitLosesStepsAndTheSpectrumEndsBelowIt) {
    for (const float fHighest : {6e9f, 2e10f}) {
        const SweepPlan cPlan = plan(fHighest - 500e6f, fHighest, 1e6f, "nuttall", fHighest);
        EXPECT_LE(static_cast<float>(cPlan.muCentreLast), fHighest);
        EXPECT_LT(cPlan.mfFStop, fHighest + 1e6f);
    }
    const SweepPlan cCut = plan(5e9f, 5.5e9f, 1e6f, "nuttall", 5.1e9f);
    EXPECT_EQ(cCut.muStepCount, 1u);
    EXPECT_EQ(cCut.muSHBinLastFinal, cCut.muSHBinLast);
    EXPECT_NEAR(cCut.mfFStop, 5.098e9f, 1e6f);
}

TEST(QuillonSweepPlan, WithAllStepsTakenOffNothingIsLeftToSweep) {
    const Outcome cOutcome = outcomeOf(request(5.96e9f, 6e9f, 1e6f), 6e9f);
    EXPECT_FALSE(cOutcome.mcPlan);
    EXPECT_EQ(cOutcome.mcMessage, kUnreasonable);
    EXPECT_TRUE(outcomeOf(request(5.95e9f, 6e9f, 1e6f), 6e9f).mcPlan);
}

TEST(QuillonSweepPlan, ASpanNarrowerThanTheResolutionIsUnreasonable) {
    for (const SweepRequest& cRequest :
         {request(100e6f, 100e6f, 1e5f), request(1e6f, 1.09e6f, 1e5f), request(200e6f, 100e6f, 1e5f)})
        EXPECT_FALSE(outcomeOf(cRequest).mcPlan);
    EXPECT_TRUE(outcomeOf(request(1e6f, 1.1e6f, 1e5f)).mcPlan);  // equal is enough
}

TEST(QuillonSweepPlan, WhatIsNoNumberOrLiesNowhereIsRefused) {
    for (const SweepRequest& cRequest :
         {request(kNaN, 1e9f, 1e5f), request(1e8f, kNaN, 1e5f), request(1e8f, 1e9f, kNaN),
          request(1e8f, 1e9f, 0.0f), request(1e8f, 1e9f, -1e5f), request(1e8f, kInfinity, 1e5f),
          request(1e8f, kInfinity, kInfinity), request(-kInfinity, 1e9f, 1e5f), request(-1e30f, 1e9f, 1e5f),
          request(-1.0f, 1e9f, 1e5f), request(1e8f, 1e30f, 1e5f)})
        EXPECT_FALSE(outcomeOf(cRequest).mcPlan)
            << cRequest.mfMinHz << " " << cRequest.mfMaxHz << " " << cRequest.mfRBWHz;
    for (const float fHighest : {kNaN, -kInfinity, 0.0f, -1.0f, kInfinity, 1e30f})
        if (const Outcome cOutcome = outcomeOf(request(1e8f, 1e9f, 1e6f), fHighest); cOutcome.mcPlan) {
            EXPECT_EQ(cOutcome.mcPlan->muStepCount, 10u) << fHighest;
        }
    EXPECT_EQ(plan(1e6f, 5e8f, 1e6f, "unknown").mfNoiseBandwidth, 1.0f);
}

TEST(QuillonSweepPlan, OfAnyRequestAllNumbersAreFiniteAndTheBinsFitTheTransform) {
    const float fValues[] = {0.0f,  1.0f,      9e3f,  1e5f,      123456.7f, 49.9e6f,
                             98e6f, 122.88e6f, 1e9f,  6e9f,      2e10f,     999e9f,
                             1e12f, 1e-3f,     1e30f, -12345.6f, 2.5e8f,    98346000.0f};
    size_t uPlanned = 0;
    for (const float fMin : fValues)
        for (const float fMax : fValues)
            for (const float fRBW : fValues)
                for (const float fHighest : {6e9f, 1e12f}) {
                    const auto cPlan = outcomeOf(request(fMin, fMax, fRBW), fHighest).mcPlan;
                    if (!cPlan)
                        continue;
                    ++uPlanned;
                    SCOPED_TRACE(testing::Message() << fMin << " " << fMax << " " << fRBW << " " << fHighest);
                    for (const float fResult :
                         {cPlan->mfBinHz, cPlan->mfActualRBW, cPlan->mfFStart, cPlan->mfFStop})
                        EXPECT_TRUE(std::isfinite(fResult));
                    EXPECT_GT(cPlan->muStepCount, 0u);
                    EXPECT_LE(cPlan->muSHBinFirst, cPlan->muSHBinLastFinal);
                    EXPECT_LE(cPlan->muSHBinLastFinal, cPlan->muSHBinLast);
                    EXPECT_LT(cPlan->muSHBinLast, cPlan->muFFTSize);
                    const uint64_t uWhole = cPlan->muSHBinLast - cPlan->muSHBinFirst + 1;
                    EXPECT_EQ(cPlan->muTotalBins, uWhole * (cPlan->muStepCount - 1) +
                                                      cPlan->muSHBinLastFinal - cPlan->muSHBinFirst + 1);
                }
    EXPECT_GT(uPlanned, 500u);
}
