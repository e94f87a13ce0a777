#include "dsp/hilberttransformer.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <random>

#include "filterdata.h"

namespace {

using filterdata::decibels;
using filterdata::kPi;

constexpr auto kUpper = SingleSideband::kUpper;
constexpr auto kLower = SingleSideband::kLower;

const auto& kTable = HilbertTransformer::table();

std::vector<Complex<float>> noise(size_t uCount) {
    std::mt19937 cEngine(6);
    std::uniform_real_distribution<float> cValues(-1.0f, 1.0f);
    std::vector<Complex<float>> lNoise(uCount);
    for (auto& cValue : lNoise)
        cValue = {cValues(cEngine), cValues(cEngine)};
    return lNoise;
}

std::vector<Complex<float>> tone(double fRate, size_t uCount) {
    std::vector<Complex<float>> lTone;
    for (size_t i = 0; i < uCount; ++i) {
        const double x = 2.0 * kPi * fRate * static_cast<double>(i);
        lTone.push_back({static_cast<float>(std::cos(x)), static_cast<float>(std::sin(x))});
    }
    return lTone;
}

/// Two lines moved down by one value for each sample and the sum by definition, in double.
std::vector<double> reference(const std::vector<Complex<float>>& lInput, double fSign) {
    std::vector<double> lInPhase(128, 0.0);
    std::vector<double> lQuadrature(64, 0.0);
    std::vector<double> lOutput;
    for (const auto& cSample : lInput) {
        lInPhase.erase(lInPhase.begin());
        lInPhase.push_back(double{cSample.re} / 1.5695463);
        lQuadrature.erase(lQuadrature.begin());
        lQuadrature.push_back(double{cSample.im});
        double fSum = fSign * lQuadrature.front();
        for (int k = 0; k < 127; k += 2) {
            const int n = k - 63;
            const double fWindow = 0.54 - 0.46 * std::cos(2.0 * kPi * k / 126.0);
            fSum -= fWindow / n * lInPhase[static_cast<size_t>(k + 1)];
        }
        lOutput.push_back(fSum);
    }
    return lOutput;
}

/// Amplitude of what comes out of a tone of amplitude 1, over whole periods.
double gainAt(double fRate, SingleSideband::Side eSide) {
    constexpr size_t kCount = 5000;
    const auto lInput = tone(fRate, kCount + 127);
    std::vector<float> lOutput(lInput.size());
    SingleSideband cFilter;
    cFilter.demodulate(lInput.data(), lOutput.data(), static_cast<uint32_t>(lInput.size()), eSide);
    double fPower = 0.0;
    for (size_t i = 127; i < lOutput.size(); ++i)
        fPower += double{lOutput[i]} * double{lOutput[i]};
    return std::sqrt(2.0 * fPower / kCount);
}

TEST(HilbertTransformer, hasItsFigures) {
    EXPECT_NEAR(kTable[0], 0.00127f, 5e-6f);
    EXPECT_NEAR(kTable[60], 0.33162f, 5e-6f);
    EXPECT_NEAR(kTable[62], 0.99943f, 5e-6f);
    EXPECT_NEAR(kTable[64], -0.99943f, 5e-6f);
    EXPECT_NEAR(kTable[66], -0.33162f, 5e-6f);
    EXPECT_NEAR(kTable[126], -0.00127f, 5e-6f);
}

TEST(HilbertTransformer, isAntisymmetricAndNotZeroAtTheEvenPositionsOnly) {
    for (size_t k = 0; k < kTable.size(); ++k) {
        EXPECT_EQ(kTable[k], -kTable[126 - k]) << k;
        EXPECT_EQ(kTable[k] != 0.0f, k % 2 == 0) << k;
    }
    for (size_t k = 2; k < 63; k += 2)
        EXPECT_GT(kTable[k], kTable[k - 2]) << k;
}

TEST(HilbertTransformer, hasAnEvenGainOverItsBand) {
    for (double fRate = 0.012; fRate <= 0.488; fRate += 0.001)
        EXPECT_NEAR(std::abs(filterdata::transform(kTable, fRate)) / 1.5695463, 1.0, 0.02) << fRate;
}

TEST(SingleSideband, equalsTheDefinition) {
    const auto lInput = noise(1000);
    for (auto eSide : {kUpper, kLower}) {
        const auto lExpected = reference(lInput, eSide == kUpper ? 1.0 : -1.0);
        SingleSideband cFilter;
        for (size_t i = 0; i < lInput.size(); ++i)
            ASSERT_NEAR(double{cFilter.step(lInput[i], eSide)}, lExpected[i], 1e-6) << i;
    }
}

TEST(SingleSideband, manySamplesAtOnceAreTheSameBits) {
    const auto lInput = noise(1000);
    SingleSideband cSteps;
    SingleSideband cPieces;
    std::vector<float> lOutput(lInput.size());
    size_t uAt = 0;
    for (uint32_t uPiece : {1u, 0u, 2u, 61u, 64u, 127u, 129u, 616u}) {
        cPieces.demodulate(lInput.data() + uAt, lOutput.data() + uAt, uPiece, kLower);
        uAt += uPiece;
    }
    ASSERT_EQ(uAt, lInput.size());
    for (size_t i = 0; i < lInput.size(); ++i)
        ASSERT_EQ(lOutput[i], cSteps.step(lInput[i], kLower)) << i;
}

TEST(SingleSideband, upperPassesPositiveFrequenciesAndLowerNegativeOnes) {
    for (double fRate : {0.02, 0.1, 0.25, 0.3, 0.4}) {
        EXPECT_NEAR(gainAt(fRate, kUpper), 2.0, 0.02) << fRate;
        EXPECT_NEAR(gainAt(-fRate, kLower), 2.0, 0.02) << fRate;
        EXPECT_LT(gainAt(-fRate, kUpper), 0.02) << fRate;
        EXPECT_LT(gainAt(fRate, kLower), 0.02) << fRate;
    }
}

TEST(SingleSideband, unwantedSidebandIsFortyDecibelsDown) {
    for (int i = 12; i <= 450; ++i) {
        const double fRate = i / 1000.0;
        ASSERT_LT(decibels(gainAt(-fRate, kUpper) / gainAt(fRate, kUpper)), -40.0) << fRate;
        ASSERT_LT(decibels(gainAt(fRate, kLower) / gainAt(-fRate, kLower)), -40.0) << fRate;
    }
}

TEST(SingleSideband, resetBeginsFromRest) {
    const auto lInput = noise(300);
    SingleSideband cFilter;
    std::vector<float> lFirst(300);
    std::vector<float> lSecond(300);
    cFilter.demodulate(lInput.data(), lFirst.data(), 300, kUpper);
    cFilter.demodulate(lInput.data(), lSecond.data(), 300, kUpper);
    EXPECT_NE(lFirst, lSecond);
    cFilter.reset();
    cFilter.demodulate(lInput.data(), lSecond.data(), 300, kUpper);
    EXPECT_EQ(lFirst, lSecond);
}

TEST(SingleSideband, aCopyGoesOnFromTheSameState) {
    const auto lInput = noise(300);
    SingleSideband cFilter;
    for (size_t i = 0; i < 150; ++i)
        cFilter.step(lInput[i], kUpper);
    SingleSideband cCopy = cFilter;
    for (size_t i = 150; i < 300; ++i)
        ASSERT_EQ(cFilter.step(lInput[i], kUpper), cCopy.step(lInput[i], kUpper));
}

TEST(SingleSideband, whatIsNotANumberLeavesAgain) {
    SingleSideband cFilter;
    cFilter.step({std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}, kUpper);
    for (int i = 0; i < 126; ++i)
        cFilter.step({0.0f, 0.0f}, kUpper);
    for (int i = 0; i < 130; ++i)
        ASSERT_EQ(cFilter.step({0.0f, 0.0f}, kUpper), 0.0f) << i;
}

}  // namespace
