#include "dsp/fir.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "dsp/lowpasstaps.h"
#include "filterdata.h"

namespace {

using filterdata::assertionOf;
using testing::HasSubstr;

std::vector<double> normalTaps() {
    auto lLines = filterdata::linesOf("lowpass");
    auto lTaps = filterdata::readNumbers(lLines.at(0), LowPassTaps::kTaps);
    double fSum = 0.0;
    for (double fTap : lTaps)
        fSum += fTap;
    for (double& fTap : lTaps)
        fTap /= fSum;
    return lTaps;
}

std::vector<float> noise(size_t uCount, uint32_t uSeed) {
    std::mt19937 cEngine(uSeed);
    std::uniform_real_distribution<float> cValues(-1.0f, 1.0f);
    std::vector<float> lNoise(uCount);
    for (float& fValue : lNoise)
        fValue = cValues(cEngine);
    return lNoise;
}

/// By definition, from rest, in double.
std::vector<double> convolve(const std::vector<float>& lInput) {
    const auto lTaps = normalTaps();
    std::vector<double> lOutput(lInput.size());
    for (size_t n = 0; n < lInput.size(); ++n)
        for (size_t k = 0; k < lTaps.size() && k <= n; ++k)
            lOutput[n] += lTaps[k] * double{lInput[n - k]};
    return lOutput;
}

void filterInPieces(RealFIRFilter& cFilter, std::vector<float>& lData, std::vector<size_t> lPieces) {
    size_t uStart = 0;
    for (size_t i = 0; uStart < lData.size(); ++i) {
        size_t uPiece = std::min(lPieces[i % lPieces.size()], lData.size() - uStart);
        if (lData.size() - uStart - uPiece <= 37)
            uPiece = lData.size() - uStart;
        cFilter.filter(lData.data() + uStart, static_cast<uint32_t>(uPiece));
        uStart += uPiece;
    }
}

TEST(RealFIRFilter, impulseResponseIsTheNormalisedTaps) {
    RealFIRFilter cFilter;
    std::vector<float> lData(200, 0.0f);
    lData[3] = 1.0f;
    cFilter.filter(lData.data(), 200);
    const auto lTaps = normalTaps();
    for (size_t i = 0; i < lData.size(); ++i) {
        const double fExpected = i >= 3 && i < 40 ? lTaps[i - 3] : 0.0;
        EXPECT_NEAR(double{lData[i]}, fExpected, 6e-8 * std::abs(fExpected)) << i;
    }
}

TEST(RealFIRFilter, hasAGainOfOneAtDC) {
    RealFIRFilter cFilter;
    std::vector<float> lData(100, 0.75f);
    cFilter.filter(lData.data(), 100);
    EXPECT_NEAR(lData[99], 0.75f, 3e-7f);
}

TEST(RealFIRFilter, equalsTheSumByDefinitionForEveryLengthOfTheLastChunk) {
    for (uint32_t uCount = 38; uCount < 38 + 80; ++uCount) {
        RealFIRFilter cFilter;
        const auto lInput = noise(uCount, uCount);
        auto lData = lInput;
        cFilter.filter(lData.data(), uCount);
        const auto lExpected = convolve(lInput);
        for (size_t i = 0; i < uCount; ++i)
            ASSERT_NEAR(double{lData[i]}, lExpected[i], 5e-7) << uCount << " at " << i;
    }
}

TEST(RealFIRFilter, piecesJoinWithoutASeam) {
    const auto lInput = noise(5000, 1);
    const auto lExpected = convolve(lInput);
    for (const std::vector<size_t>& lPieces :
         {std::vector<size_t>{38}, {39, 74, 75}, {1000, 41}, {111, 38, 148}, {5000}}) {
        RealFIRFilter cFilter;
        auto lData = lInput;
        filterInPieces(cFilter, lData, lPieces);
        for (size_t i = 0; i < lData.size(); ++i)
            ASSERT_NEAR(double{lData[i]}, lExpected[i], 5e-7) << lPieces[0] << " at " << i;
    }
}

TEST(RealFIRFilter, asManySamplesAsTapsOrFewerFailTheAssertion) {
    RealFIRFilter cFilter;
    std::vector<float> lData(38, 1.0f);
    for (uint32_t uCount : {0u, 1u, 36u, 37u}) {
        const std::string text = assertionOf([&] { cFilter.filter(lData.data(), uCount); });
        EXPECT_THAT(text, HasSubstr("ASSERT failed <muTaps < uCount> ")) << uCount;
        EXPECT_THAT(text, HasSubstr("/fir.cpp::L"));
    }
    EXPECT_THAT(lData, testing::Each(1.0f));
    EXPECT_EQ(assertionOf([&] { cFilter.filter(lData.data(), 38); }), "none");
}

TEST(RealFIRFilter, whatIsNotANumberLeavesAgain) {
    RealFIRFilter cFilter;
    std::vector<float> lData(370, 0.5f);
    lData[100] = std::numeric_limits<float>::quiet_NaN();
    cFilter.filter(lData.data(), 370);
    // The padding meets it up to three samples ahead: 0 times what is no number is none.
    for (size_t i = 0; i < lData.size(); ++i)
        EXPECT_EQ(std::isnan(lData[i]), i >= 97 && i < 137) << i;
    for (size_t i = 140; i < lData.size(); ++i)
        EXPECT_NEAR(lData[i], 0.5f, 1e-6f) << i;
}

TEST(RealFIRFilter, resetForgetsWhatWas) {
    RealFIRFilter cFilter;
    auto lBefore = noise(100, 2);
    cFilter.filter(lBefore.data(), 100);
    cFilter.reset();
    const auto lInput = noise(100, 3);
    auto lData = lInput;
    cFilter.filter(lData.data(), 100);
    const auto lExpected = convolve(lInput);
    for (size_t i = 0; i < lData.size(); ++i)
        ASSERT_NEAR(double{lData[i]}, lExpected[i], 5e-7) << i;
}

}  // namespace
