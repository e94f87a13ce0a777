#include "dsp/halfbandtaps.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

/// What the filters have to meet, in parts of the sample rate; the rows between the three are on straight
/// lines.
struct Figures {
    double mfHalf;    // -6 dB
    double mfStop;    // -40 dB
    double mfCentre;  // tap 128
};
constexpr Figures kAt20 = {0.0783, 0.0837, 0.157042};
constexpr Figures kAt30 = {0.1183, 0.125, 0.23677};
constexpr Figures kAt40 = {0.1583, 0.1661, 0.316644};

double between(double fLow, double fHigh, uint32_t uStep) {
    return fLow + (fHigh - fLow) * uStep / 5.0;
}

Figures figuresOf(uint32_t uRow) {
    const Figures& cLow = uRow < 5 ? kAt20 : kAt30;
    const Figures& cHigh = uRow < 5 ? kAt30 : kAt40;
    const uint32_t uStep = uRow < 5 ? uRow : uRow - 5;
    return {between(cLow.mfHalf, cHigh.mfHalf, uStep), between(cLow.mfStop, cHigh.mfStop, uStep),
            between(cLow.mfCentre, cHigh.mfCentre, uStep)};
}

/// Magnitude at a part of the sample rate, by the definition, in double.
double responseAt(const IQConversionFilters::Row& cRow, double fRate) {
    double fReal = 0.0;
    double fImaginary = 0.0;
    for (size_t n = 0; n < cRow.mfTaps.size(); ++n) {
        const double fAngle = 2.0 * M_PI * fRate * static_cast<double>(n);
        fReal += double{cRow.mfTaps[n]} * std::cos(fAngle);
        fImaginary -= double{cRow.mfTaps[n]} * std::sin(fAngle);
    }
    return std::hypot(fReal, fImaginary);
}

double decibels(double fRatio) {
    return 20.0 * std::log10(fRatio);
}

class FilterRow : public testing::TestWithParam<uint32_t> {
 protected:
    const IQConversionFilters::Row& mcRow = IQConversionFilters::table()[GetParam()];
    const Figures mcFigures = figuresOf(GetParam());
    const double mfDC = responseAt(mcRow, 0.0);
};

TEST_P(FilterRow, hasItsBandwidth) {
    EXPECT_EQ(mcRow.mfBandwidthHz, 20e6f + 2e6f * static_cast<float>(GetParam()));
}

TEST_P(FilterRow, isSymmetricAboutTap128) {
    for (size_t n = 0; n < 128; ++n)
        EXPECT_EQ(mcRow.mfTaps[n], mcRow.mfTaps[256 - n]) << n;
}

TEST_P(FilterRow, hasItsCentreTapToTheDigitsGiven) {
    EXPECT_NEAR(double{mcRow.mfTaps[128]}, mcFigures.mfCentre, 5e-7);
}

TEST_P(FilterRow, hasADCGainBetween100And103Hundredths) {
    EXPECT_GE(mfDC, 1.00);
    EXPECT_LE(mfDC, 1.03);
}

TEST_P(FilterRow, isHalfDownAtItsCutOff) {
    const double fDown = std::pow(10.0, -0.3);
    EXPECT_GT(responseAt(mcRow, mcFigures.mfHalf - 0.00005) / mfDC, fDown);
    EXPECT_LT(responseAt(mcRow, mcFigures.mfHalf + 0.00005) / mfDC, fDown);
}

TEST_P(FilterRow, crosses40dBAtItsStopPoint) {
    EXPECT_GT(decibels(responseAt(mcRow, mcFigures.mfStop - 0.00005) / mfDC), -40.0);
    EXPECT_LE(decibels(responseAt(mcRow, mcFigures.mfStop) / mfDC), -40.0);
}

TEST_P(FilterRow, staysInsideTheMaskOverTheWholeBand) {
    const double fPass = 2.0 * mcFigures.mfHalf - mcFigures.mfStop;
    for (int i = 0; i <= 5000; ++i) {
        const double fRate = 0.5 * i / 5000.0;
        const double fLevel = decibels(responseAt(mcRow, fRate) / mfDC);
        EXPECT_LT(fLevel, 0.05) << fRate;
        if (fRate <= fPass) {
            EXPECT_GT(fLevel, -0.1) << fRate;
        }
        if (fRate >= mcFigures.mfStop) {
            EXPECT_LE(fLevel, -40.0) << fRate;
        }
        if (fRate >= mcFigures.mfStop + 0.01) {
            EXPECT_LE(fLevel, -50.0) << fRate;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(IQConversionFilters, FilterRow, testing::Range(0u, IQConversionFilters::kRows),
                         [](const auto& cInfo) { return std::to_string(20 + 2 * cInfo.param) + "MHz"; });

TEST(IQConversionFilters, rowIsTheFirstThatIsWideEnough) {
    EXPECT_EQ(IQConversionFilters::rowFor(20e6f).mfBandwidthHz, 20e6f);
    EXPECT_EQ(IQConversionFilters::rowFor(20.1e6f).mfBandwidthHz, 22e6f);
    EXPECT_EQ(IQConversionFilters::rowFor(40e6f).mfBandwidthHz, 40e6f);
    EXPECT_EQ(IQConversionFilters::rowFor(0.0f).mfBandwidthHz, 20e6f);
}

TEST(IQConversionFilters, widestRowServesWhatIsWiderStill) {
    EXPECT_EQ(IQConversionFilters::rowFor(49.991e6f).mfBandwidthHz, 40e6f);
    EXPECT_EQ(IQConversionFilters::rowFor(std::nanf("")).mfBandwidthHz, 40e6f);
}

}  // namespace
