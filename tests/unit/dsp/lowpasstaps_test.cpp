#include "dsp/lowpasstaps.h"

#include <cmath>
#include <numeric>

#include "filterdata.h"

namespace {

using filterdata::decibels;
using filterdata::transform;

const auto& kTable = LowPassTaps::table();

double sum() {
    return std::accumulate(kTable.begin(), kTable.end(), 0.0);
}

/// Of the taps about their centre: real, with its sign.
double amplitudeAt(double fRate) {
    return (transform(kTable, fRate) * std::polar(1.0, 2.0 * filterdata::kPi * fRate * 18.0)).real();
}

TEST(LowPassTaps, haveTheFiguresOfTheirKind) {
    EXPECT_NEAR(kTable[0], 0.0320, 1e-4);
    EXPECT_NEAR(kTable[1], -0.0280, 1e-4);
    EXPECT_NEAR(kTable[2], -0.0252, 1e-4);
    EXPECT_NEAR(kTable[18], 0.2262, 1e-4);
    EXPECT_NEAR(sum(), 0.9384, 1e-4);
}

TEST(LowPassTaps, areSymmetricAboutTheirCentre) {
    for (size_t i = 0; i < 18; ++i)
        EXPECT_EQ(kTable[i], kTable[36 - i]) << i;
}

TEST(LowPassTaps, areThoseOfAnIndependentDesign) {
    auto lLines = filterdata::linesOf("lowpass");
    const auto lExpected = filterdata::readNumbers(lLines.at(0), LowPassTaps::kTaps);
    for (size_t i = 0; i < kTable.size(); ++i)
        EXPECT_NEAR(kTable[i], lExpected[i], 1e-12) << i;
}

TEST(LowPassTaps, stayInsideTheirMask) {
    const double fDC = sum();
    for (int i = 0; i <= 5000; ++i) {
        const double fRate = 0.5 * i / 5000.0;
        const double fLevel = decibels(std::abs(amplitudeAt(fRate)) / fDC);
        ASSERT_LT(fLevel, 1.08) << fRate;
        if (fRate <= 0.1) {
            ASSERT_GT(fLevel, -0.01) << fRate;
        }
        if (fRate >= 0.125) {
            ASSERT_LT(fLevel, -19.98) << fRate;
        }
    }
}

TEST(LowPassTaps, areTheBestFitOfTheirLength) {
    // A fit of 19 cosines is the best one if and only if its weighted error reaches its largest value at 20
    // places, with signs that alternate.
    double fLargest = 0.0;
    std::vector<double> lExtremes;  // the largest error of each run of one sign
    for (int i = 0; i <= 200000; ++i) {
        const double fRate = 0.5 * i / 200000.0;
        if (fRate > 0.1 && fRate < 0.125)
            continue;
        const double fError = fRate <= 0.1 ? amplitudeAt(fRate) - 1.0 : 0.655 * amplitudeAt(fRate);
        fLargest = std::max(fLargest, std::abs(fError));
        if (lExtremes.empty() || std::signbit(lExtremes.back()) != std::signbit(fError))
            lExtremes.push_back(fError);
        else if (std::abs(fError) > std::abs(lExtremes.back()))
            lExtremes.back() = fError;
    }
    const auto iReached = std::count_if(lExtremes.begin(), lExtremes.end(), [&](double fError) {
        return std::abs(fError) > fLargest * (1.0 - 1e-6);
    });
    EXPECT_EQ(lExtremes.size(), 20u);
    EXPECT_EQ(iReached, 20);
}

}  // namespace
