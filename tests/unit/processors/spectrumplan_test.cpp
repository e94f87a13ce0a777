#include "processors/spectrumplan.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <random>

#include "dsp/windowfunctions.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

IQShape shape(float fRate, float fBandwidth = 800e3f, uint32_t uSamples = 1000, float fCentre = 100e6f) {
    return {fCentre, fBandwidth, fRate, uSamples};
}

uint32_t followedSize(uint32_t uSamples) {
    return planSpectrum(1000.0f, "nuttall", true, shape(1e6f, 800e3f, uSamples)).muFFTSize;
}

uint32_t sizeFor(float fRBW, float fRate, const std::string& window = "nuttall") {
    return planSpectrum(fRBW, window, false, shape(fRate)).muFFTSize;
}

float anyFloat(std::mt19937& cRandom) {
    static constexpr float kSpecial[] = {0.0f, -0.0f, 1.0f, -1.0f, kNaN, kInfinity, -kInfinity, 1e30f, 1e-30f, 1e6f};
    const uint32_t uBits = static_cast<uint32_t>(cRandom());
    return uBits % 3 == 0 ? kSpecial[uBits / 3 % std::size(kSpecial)] : std::bit_cast<float>(uBits);
}

}  // namespace

TEST(SpectrumPlan, AMegahertzAtAKilohertzTakesATransformOf2048) {
    EXPECT_EQ(std::round(1e6f / 1000.0f * WindowFunctions::windowNoiseBandwidth("nuttall")), 2021.0f);
    const SpectrumPlan cPlan = planSpectrum(1000.0f, "nuttall", false, shape(1e6f));
    EXPECT_EQ(cPlan.muFFTSize, 2048u);
    EXPECT_EQ(cPlan.muBins, 1638u);
    EXPECT_NEAR(cPlan.mfEffectiveRBWHz, 1e6 / 2048 * 2.0212, 0.1);
}

TEST(SpectrumPlan, SizeIsTheSmallestThatIsNotBelowTheRoundedCount) {
    EXPECT_EQ(sizeFor(1000.0f, 1024e3f, "rectangular"), 1024u);
    EXPECT_EQ(sizeFor(1000.0f, 1024.4e3f, "rectangular"), 1024u) << "rounded down to 1024";
    EXPECT_EQ(sizeFor(1000.0f, 1024.6e3f, "rectangular"), 2048u) << "rounded up to 1025";
    EXPECT_EQ(sizeFor(100000.0f, 1000.0f, "rectangular"), 2u) << "never below 2";
}

TEST(SpectrumPlan, OverlapOfAHalfHopsHalfTheTransform) {
    EXPECT_EQ(spectrumHop(1024, 0.5f, false), 512u);
    EXPECT_EQ(spectrumHop(1024, 0.0f, false), 1024u);
    EXPECT_EQ(spectrumHop(1024, 0.8f, false), 205u) << "204.8, rounded";
    EXPECT_EQ(spectrumHop(1024, 0.5f, true), 1024u) << "none in frames that are followed";
    EXPECT_EQ(spectrumHop(4, 0.8f, false), 1u);
}

TEST(SpectrumPlan, ShortestTransformAtTheGreatestOverlapStillMovesOn) {
    EXPECT_EQ(spectrumHop(2, 0.8f, false), 1u) << "0.4 would round to no hop at all";
}

TEST(SpectrumPlan, FollowedFrameTakesTheLargestTransformThatItFills) {
    EXPECT_EQ(followedSize(1000), 512u);
    EXPECT_EQ(followedSize(1024), 1024u);
    EXPECT_EQ(followedSize(2), 2u);
    EXPECT_EQ(followedSize(3), 2u);
    EXPECT_EQ(followedSize(1), 1u);
    EXPECT_EQ(followedSize(0), 1u);
    EXPECT_EQ(followedSize(0xFFFFFFFF), kLargestTransform);
}

TEST(SpectrumPlan, BandwidthOfTheRateGivesAsManyBinsAsTheTransform) {
    const SpectrumPlan cPlan = planSpectrum(1000.0f, "nuttall", false, shape(1e6f, 1e6f));
    EXPECT_EQ(cPlan.muBins, cPlan.muFFTSize);
    EXPECT_EQ(cPlan.mfMinHz, 99.5e6f);
    EXPECT_EQ(cPlan.mfMaxHz, 100.5e6f);
}

TEST(SpectrumPlan, BandwidthBeyondTheRateGivesItsBinsUpToTwiceTheTransform) {
    const SpectrumPlan cWider = planSpectrum(1000.0f, "nuttall", false, shape(1e6f, 1.5e6f));
    EXPECT_EQ(cWider.muBins, cWider.muFFTSize / 2 * 3);
    EXPECT_EQ(cWider.mfMinHz, 99.25e6f);
    EXPECT_EQ(cWider.mfMaxHz, 100.75e6f);
    for (const float fBandwidth : {2e6f, 1e12f, kInfinity}) {
        const SpectrumPlan cPlan = planSpectrum(1000.0f, "nuttall", false, shape(1e6f, fBandwidth));
        EXPECT_EQ(cPlan.muBins, 2 * cPlan.muFFTSize);
        EXPECT_EQ(cPlan.mfMinHz, 99e6f);
        EXPECT_EQ(cPlan.mfMaxHz, 101e6f);
    }
    EXPECT_EQ(planSpectrum(1.0f, "nuttall", false, shape(1e30f, kInfinity)).muBins, 0xFFFFFFFEu) << "as can be counted";
}

TEST(SpectrumPlan, BandwidthThatIsNoneGivesNoBins) {
    for (const float fBandwidth : {0.0f, -800e3f, kNaN, 1.0f}) {
        const SpectrumPlan cPlan = planSpectrum(1000.0f, "nuttall", false, shape(1e6f, fBandwidth));
        EXPECT_EQ(cPlan.muBins, 0u);
        EXPECT_EQ(cPlan.mfMinHz, 100e6f);
        EXPECT_EQ(cPlan.mfMaxHz, 100e6f);
    }
}

TEST(SpectrumPlan, RatesThatNoUnitHasGiveBoundedSizes) {
    EXPECT_EQ(sizeFor(1.0f, 1e30f), kLargestTransform);
    EXPECT_EQ(sizeFor(1.0f, kInfinity), kLargestTransform);
    EXPECT_EQ(sizeFor(1.0f, 1.5e9f), kLargestTransform);
    for (const float fRate : {0.0f, -1e6f, -kInfinity, kNaN, 1e-40f})
        EXPECT_EQ(sizeFor(1.0f, fRate), 2u) << fRate;
    EXPECT_EQ(sizeFor(kNaN, 1e6f), 2u);
    EXPECT_EQ(sizeFor(0.0f, 1e6f), kLargestTransform);
}

TEST(SpectrumPlan, AnyShapeGivesBinsWithinTwiceTheTransform) {
    std::mt19937 cRandom(20261122);
    for (int i = 0; i < 200000; ++i) {
        const IQShape cShape{anyFloat(cRandom), anyFloat(cRandom), anyFloat(cRandom), static_cast<uint32_t>(cRandom())};
        const SpectrumPlan cPlan = planSpectrum(anyFloat(cRandom), "hann", cRandom() % 2, cShape);
        ASSERT_TRUE(std::has_single_bit(cPlan.muFFTSize) && cPlan.muFFTSize <= kLargestTransform);
        ASSERT_TRUE(cPlan.muBins % 2 == 0 && cPlan.muBins <= 2 * uint64_t{cPlan.muFFTSize});
        const uint32_t uHop = spectrumHop(cPlan.muFFTSize, anyFloat(cRandom), cRandom() % 2);
        ASSERT_TRUE(uHop >= 1 && uHop <= cPlan.muFFTSize);
        spectrumDuration(cPlan.muFFTSize, cShape.mfSampleRateHz);
        spectrumTimeStep(uHop, cShape.mfSampleRateHz);
    }
}

TEST(SpectrumPlan, RandomPlansAreThoseOfDoublePrecision) {
    std::mt19937 cRandom(5);
    const auto uniform = [&cRandom](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(cRandom);
    };
    uint32_t uCompared = 0;
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        const auto e = double{WindowFunctions::windowNoiseBandwidth(name)};  // itself a sum in single precision
        for (int i = 0; i < 500; ++i) {
            const auto rbw = static_cast<float>(std::pow(10.0, uniform(0, 5)));
            const auto rate = static_cast<float>(std::pow(10.0, uniform(3, 8)));
            const auto bandwidth = static_cast<float>(rate * uniform(0.01, 1.0));
            const auto centre = static_cast<float>(std::pow(10.0, uniform(4, 10)));
            const double c = double{rate} / double{rbw} * e;
            double size = 2;
            while (size < std::round(c))
                size *= 2;
            const double v = size * double{bandwidth} / double{rate};
            // Where the two precisions may round to either side there is nothing to compare.
            const auto isClear = [](double value) {
                return std::abs(value - std::floor(value) - 0.5) > std::min(4e-7 * value, 0.4);
            };
            if (!isClear(c) || !isClear(v))
                continue;
            ++uCompared;
            const double bins = 2 * std::trunc(std::round(v) / 2), bin = double{rate} / size;
            const SpectrumPlan cPlan = planSpectrum(rbw, name, false, {centre, bandwidth, rate, 0});
            ASSERT_EQ(cPlan.muFFTSize, size);
            if (v < 1e6) {
                ASSERT_EQ(cPlan.muBins, bins);
            } else {
                ASSERT_NEAR(cPlan.muBins, bins, 2 + 4e-7 * v);
            }
            ASSERT_NEAR(cPlan.mfEffectiveRBWHz, bin * e, bin * e * 3e-7) << name;
            ASSERT_NEAR(cPlan.mfMinHz, double{centre} - bins / 2 * bin, 2e-7 * (double{centre} + double{rate}));
            ASSERT_NEAR(cPlan.mfMaxHz, double{centre} + bins / 2 * bin, 2e-7 * (double{centre} + double{rate}));
            ASSERT_NEAR(cPlan.mfNoiseCorrection, 10 * std::log10(e), 1e-6) << name;
            ASSERT_EQ(spectrumDuration(cPlan.muFFTSize, rate), std::round((size - 1) / double{rate} * 1e9));
        }
    }
    EXPECT_GT(uCompared, 5000u);
}

TEST(SpectrumPlan, TimeStepMultipliesByTheRate) {
    EXPECT_EQ(spectrumTimeStep(512, 1e6f), 512'000'000u);
    EXPECT_EQ(spectrumTimeStep(3, 0.5f), 2u) << "1.5, rounded";
    EXPECT_EQ(spectrumTimeStep(kLargestTransform, 1e30f), std::numeric_limits<uint64_t>::max());
    for (const float fRate : {0.0f, -1e6f, kNaN})
        EXPECT_EQ(spectrumTimeStep(512, fRate), 0u);
}

TEST(SpectrumPlan, DurationIsFromTheFirstSampleToTheLast) {
    EXPECT_EQ(spectrumDuration(1024, 1e6f), 1'023'000u);
    EXPECT_EQ(spectrumDuration(2, 0.0f), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(spectrumDuration(2, kNaN), 0u);
    EXPECT_EQ(spectrumDuration(2, -1.0f), 0u);
    EXPECT_EQ(spectrumDuration(1, 1e6f), 0u);
}
