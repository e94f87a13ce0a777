#include "tools/peaks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>

using namespace cli;

namespace {

constexpr double kBinHz = 1000, kLowHz = 100e6;

Spectrum flat(size_t bins, double dbm) {
    Spectrum spectrum;
    spectrum.binHz = kBinHz;
    spectrum.centreHz = kLowHz + static_cast<double>(bins / 2) * kBinHz;
    spectrum.averages = 1;
    spectrum.dbm.assign(bins, dbm);
    return spectrum;
}

double amplitude(double dbm) {
    return std::pow(10, dbm / 20);
}

/// What a four-term window of small side lobes makes of a tone `offset` bins away, relative to its middle.
double lobe(double offset) {
    constexpr double kTerms[] = {0.355768, 0.487396, 0.144232, 0.012604};
    const auto sinc = [](double x) {
        return x == 0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
    };
    double dSum = kTerms[0] * sinc(offset);
    for (int k = 1; k < 4; ++k)
        dSum += 0.5 * kTerms[k] * (sinc(offset + k) + sinc(offset - k));
    return std::abs(dSum) / kTerms[0];
}

/// Adds a tone at a place in bins, as that window shows it.
void addTone(Spectrum& spectrum, double at, double dbm) {
    for (size_t i = 0; i < spectrum.dbm.size(); ++i) {
        const double dTone = amplitude(dbm) * lobe(static_cast<double>(i) - at);
        const double dPower = std::pow(10, spectrum.dbm[i] / 10) + dTone * dTone;
        spectrum.dbm[i] = 10 * std::log10(dPower);
    }
}

}  // namespace

TEST(Peaks, TonesAreFoundWithTheirFrequencyBetweenBins) {
    for (const double dOffset : {0.0, 0.13, 0.25, 0.5, 0.77, 0.96}) {
        Spectrum spectrum = flat(1000, -120);
        addTone(spectrum, 300 + dOffset, -40);
        const auto peaks = findPeaks(spectrum, {});
        ASSERT_EQ(peaks.size(), 1u) << dOffset;
        EXPECT_NEAR(peaks[0].frequencyHz, kLowHz + (300 + dOffset) * kBinHz, 0.03 * kBinHz);
        EXPECT_NEAR(peaks[0].topDbm, -40, 0.1) << "the scalloping of " << dOffset << " bins is made up for";
        EXPECT_LE(peaks[0].dbm, -39.99);
        EXPECT_GE(peaks[0].dbm, -40.9);
    }
}

TEST(Peaks, TheStrongestComesFirst) {
    Spectrum spectrum = flat(2000, -120);
    addTone(spectrum, 200, -70);
    addTone(spectrum, 900, -30);
    addTone(spectrum, 1500, -50);
    const auto peaks = findPeaks(spectrum, {});
    ASSERT_EQ(peaks.size(), 3u);
    EXPECT_NEAR(peaks[0].dbm, -30, 0.01);
    EXPECT_NEAR(peaks[1].dbm, -50, 0.01);
    EXPECT_NEAR(peaks[2].dbm, -70, 0.01);
}

TEST(Peaks, ALimitKeepsTheStrongest) {
    Spectrum spectrum = flat(2000, -120);
    for (size_t i = 0; i < 20; ++i)
        addTone(spectrum, 50 + 97.0 * static_cast<double>(i), -80 + static_cast<double>(i));
    PeakSearch search;
    search.limit = 4;
    const auto peaks = findPeaks(spectrum, search);
    ASSERT_EQ(peaks.size(), 4u);
    EXPECT_NEAR(peaks[0].dbm, -61, 0.1);
    EXPECT_NEAR(peaks[3].dbm, -64, 0.1);
}

TEST(Peaks, WhatStandsInTheLobeOfAStrongerOneBelongsToIt) {
    Spectrum spectrum = flat(1000, -120);
    spectrum.dbm[500] = -40;
    spectrum.dbm[504] = -45;
    spectrum.dbm[509] = -45;
    const auto peaks = findPeaks(spectrum, {});
    ASSERT_EQ(peaks.size(), 2u);
    EXPECT_EQ(peaks[0].frequencyHz, kLowHz + 500 * kBinHz);
    EXPECT_EQ(peaks[1].frequencyHz, kLowHz + 509 * kBinHz);
}

TEST(Peaks, BumpsOnTheWayUpAreNone) {
    Spectrum spectrum = flat(1000, -120);
    for (size_t i = 0; i <= 100; ++i)
        spectrum.dbm[400 + i] = -60 + (i % 10 == 5 ? 4.0 : 0.0);  // a wide signal with ripples
    spectrum.dbm[455] = -50;
    const auto peaks = findPeaks(spectrum, {});
    ASSERT_EQ(peaks.size(), 1u);
    EXPECT_EQ(peaks[0].frequencyHz, kLowHz + 455 * kBinHz);
}

TEST(Peaks, NoiseHasNone) {
    std::mt19937 random(7);
    std::exponential_distribution<double> power(1);
    Spectrum spectrum = flat(100000, 0);
    for (double& dbm : spectrum.dbm)
        dbm = -100 + 10 * std::log10(power(random));
    EXPECT_TRUE(findPeaks(spectrum, {}).empty());
    addTone(spectrum, 51234.3, -80);
    const auto peaks = findPeaks(spectrum, {});
    ASSERT_EQ(peaks.size(), 1u);
    EXPECT_NEAR(peaks[0].frequencyHz, kLowHz + 51234.3 * kBinHz, 0.3 * kBinHz);
}

TEST(Peaks, AFlatTopHasItsMiddle) {
    Spectrum spectrum = flat(100, -100);
    for (size_t i = 40; i < 47; ++i)
        spectrum.dbm[i] = -50;
    const auto peaks = findPeaks(spectrum, {});
    ASSERT_EQ(peaks.size(), 1u);
    EXPECT_EQ(peaks[0].frequencyHz, kLowHz + 43 * kBinHz);
}

TEST(Peaks, EdgesCount) {
    Spectrum spectrum = flat(100, -100);
    spectrum.dbm.front() = -50;
    spectrum.dbm.back() = -60;
    const auto peaks = findPeaks(spectrum, {});
    ASSERT_EQ(peaks.size(), 2u);
    EXPECT_EQ(peaks[0].frequencyHz, kLowHz);
    EXPECT_EQ(peaks[1].frequencyHz, kLowHz + 99 * kBinHz);
}

TEST(Peaks, SilenceAndNothingAtAllHaveNone) {
    EXPECT_TRUE(findPeaks(Spectrum{}, {}).empty());
    EXPECT_TRUE(findPeaks(flat(1, -50), {}).empty());
    EXPECT_TRUE(findPeaks(flat(100, -std::numeric_limits<double>::infinity()), {}).empty());
    Spectrum spectrum = flat(100, -std::numeric_limits<double>::infinity());
    for (size_t i = 20; i < 80; ++i)
        spectrum.dbm[i] = -100;
    spectrum.dbm[50] = -40;
    spectrum.dbm[70] = std::numeric_limits<double>::quiet_NaN();
    ASSERT_EQ(findPeaks(spectrum, {}).size(), 1u);
}

TEST(Peaks, FrequenciesHaveTheDigitsThatBinsTell) {
    EXPECT_EQ(formatPeakFrequency(114.853456e6, 500e3), "114.9 MHz");
    EXPECT_EQ(formatPeakFrequency(114.853456e6, 30e3), "114.85 MHz");
    EXPECT_EQ(formatPeakFrequency(114.853456e6, 300), "114.8535 MHz");
    EXPECT_EQ(formatPeakFrequency(1.090012345e9, 30e3), "1.09001 GHz");
    EXPECT_EQ(formatPeakFrequency(27e9, 0.5), "27 GHz");
}
