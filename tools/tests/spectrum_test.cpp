#include "tools/spectrum.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <random>

using namespace cli;

namespace {

std::vector<float> tone(double cyclesPerSample, double amplitude, size_t count) {
    std::vector<float> samples(2 * count);
    for (size_t i = 0; i < count; ++i) {
        const double dPhase = 2 * std::numbers::pi * cyclesPerSample * static_cast<double>(i);
        samples[2 * i] = static_cast<float>(amplitude * std::cos(dPhase));
        samples[2 * i + 1] = static_cast<float>(amplitude * std::sin(dPhase));
    }
    return samples;
}

}  // namespace

TEST(Fourier, AgreesWithTheSumThatDefinesIt) {
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    for (const size_t uSize : {2u, 4u, 8u, 64u}) {
        std::vector<std::complex<double>> data(uSize);
        for (auto& value : data)
            value = {normal(random), normal(random)};
        auto result = data;
        Fourier(uSize).run(result.data());
        for (size_t k = 0; k < uSize; ++k) {
            std::complex<double> sum;
            for (size_t n = 0; n < uSize; ++n)
                sum += data[n] * std::polar(1.0, -2 * std::numbers::pi * static_cast<double>(k * n % uSize) /
                                                     static_cast<double>(uSize));
            EXPECT_NEAR(std::abs(result[k] - sum), 0, 1e-11) << uSize << " " << k;
        }
    }
}

TEST(Fourier, PowersOfTwo) {
    EXPECT_EQ(powerOfTwo(0), 2u);
    EXPECT_EQ(powerOfTwo(2), 2u);
    EXPECT_EQ(powerOfTwo(3), 4u);
    EXPECT_EQ(powerOfTwo(1025), 2048u);
}

TEST(Spectrum, AToneReadsItsLevelAtItsPlace) {
    SpectrumAverage average(1024, 1.024e6);
    const auto samples = tone(100.0 / 1024, 0.001, 100000);
    average.feed(samples.data(), samples.size() / 2);
    const Spectrum spectrum = average.result(100e6);
    const SpectrumPeak peak = findPeak(spectrum, 99.5e6, 100.5e6);
    EXPECT_NEAR(peak.frequencyHz, 100.1e6, 1);
    EXPECT_NEAR(peak.dbm, -60, 0.01);
}

TEST(Spectrum, NegativeOffsetsLieBelowTheCentre) {
    SpectrumAverage average(1024, 1.024e6);
    const auto samples = tone(-0.25, 1, 10000);
    average.feed(samples.data(), samples.size() / 2);
    EXPECT_NEAR(findPeak(average.result(0), -0.6e6, 0.6e6).frequencyHz, -256e3, 1);
}

TEST(Spectrum, NoiseDensity) {
    std::mt19937 random(2);
    std::normal_distribution<float> normal(0, 1e-3f);
    std::vector<float> samples(2 * 1000000);
    for (float& fValue : samples)
        fValue = normal(random);
    SpectrumAverage average(1024, 1e6);
    average.feed(samples.data(), samples.size() / 2);
    // 2e-6 mW over 1 MHz; the median of many averages is close to their mean.
    EXPECT_NEAR(findPeak(average.result(0), -0.5e6, 0.5e6).floorDbmPerHz, 10 * std::log10(2e-6 / 1e6), 0.3);
}

TEST(Spectrum, SmallFeedsMakeTheSamePieces) {
    const auto samples = tone(0.1, 1, 50000);
    SpectrumAverage whole(1024, 400e3), cut(1024, 400e3);
    whole.feed(samples.data(), 50000);
    for (size_t i = 0; i < 50000; i += 250)
        cut.feed(samples.data() + 2 * i, 250);
    EXPECT_EQ(whole.averages(), cut.averages());
    EXPECT_EQ(whole.result(0).dbm, cut.result(0).dbm);
}

TEST(Spectrum, WorkIsBoundedAtHighRates) {
    SpectrumAverage average(1024, 125e6);
    std::vector<float> samples(2 * 125000, 0.1f);
    for (int i = 0; i < 100; ++i)  // a tenth of a second
        average.feed(samples.data(), samples.size() / 2);
    EXPECT_LE(average.averages(), 21u);
    EXPECT_GE(average.averages(), 19u);
}

TEST(Spectrum, APieceNeverSpansAGap) {
    SpectrumAverage average(1024, 100e3);
    const auto samples = tone(0.1, 1, 600);
    for (int i = 0; i < 50; ++i) {
        average.feed(samples.data(), 600);
        average.gap();
    }
    EXPECT_EQ(average.averages(), 0u);
    EXPECT_EQ(average.result(0).dbm[0], -1000);
}

TEST(Spectrum, SizeFollowsTheSpan) {
    EXPECT_EQ(spectrumSize(1e6, 1e6, 512), 1024u);
    EXPECT_EQ(spectrumSize(122e3, 10e3, 512), 8192u);
    EXPECT_EQ(spectrumSize(122e3, 0, 512), 65536u);
}
