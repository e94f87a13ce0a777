#include "tools/spectrumhistory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace cli;

TEST(SpectrumHistory, StrongestAndMeanOfEachPoint) {
    SpectrumHistory history;
    const std::vector<float> first{-100, -40, -70, -90}, second{-90, -50, -70, -100};
    EXPECT_TRUE(history.feed(first.data(), first.size(), 0));
    EXPECT_TRUE(history.feed(second.data(), second.size(), 1));
    EXPECT_EQ(history.spectra(), 2u);
    const Spectrum strongest = history.strongest(88e6, 91e6);
    EXPECT_EQ(strongest.dbm, (std::vector<double>{-90, -40, -70, -90}));
    const Spectrum mean = history.mean(88e6, 91e6);
    const auto meanOf = [](double a, double b) {
        return 10 * std::log10((std::pow(10, a / 10) + std::pow(10, b / 10)) / 2);
    };
    EXPECT_NEAR(mean.dbm[0], meanOf(-100, -90), 1e-4);
    EXPECT_NEAR(mean.dbm[1], meanOf(-40, -50), 1e-4);
    EXPECT_NEAR(mean.dbm[2], -70, 1e-4);
}

TEST(SpectrumHistory, TheFirstAndTheLastPointStandAtTheEdges) {
    for (const size_t uPoints : {2u, 3u, 1000u, 1001u}) {
        SpectrumHistory history;
        const std::vector<float> levels(uPoints, -100.0f);
        history.feed(levels.data(), levels.size(), 0);
        const Spectrum spectrum = history.strongest(88e6, 108e6);
        EXPECT_NEAR(spectrum.frequency(0), 88e6, 1e-3);
        EXPECT_NEAR(spectrum.frequency(uPoints - 1), 108e6, 1e-3);
    }
}

TEST(SpectrumHistory, AnotherShapeIsNotCountedIn) {
    SpectrumHistory history;
    const std::vector<float> levels(10, -100.0f);
    EXPECT_TRUE(history.feed(levels.data(), 10, 0));
    EXPECT_FALSE(history.feed(levels.data(), 9, 1));
    EXPECT_EQ(history.spectra(), 1u);
}

TEST(SpectrumHistory, WhatIsNotFiniteCountsAsNoPower) {
    SpectrumHistory history;
    const std::vector<float> levels{-std::numeric_limits<float>::infinity(), -50};
    history.feed(levels.data(), 2, 0);
    EXPECT_LE(history.mean(0, 1).dbm[0], -999);
    EXPECT_NEAR(history.mean(0, 1).dbm[1], -50, 1e-4);
}

TEST(SpectrumHistory, TheNoiseFloorIsTheMeanOfNoiseHoweverManySpectra) {
    for (const int iSpectra : {1, 2, 5, 40}) {
        std::mt19937 random(static_cast<unsigned>(iSpectra));
        std::exponential_distribution<float> power(1);
        SpectrumHistory history;
        std::vector<float> levels(40000);
        for (int s = 0; s < iSpectra; ++s) {
            for (float& fLevel : levels)
                fLevel = -103 + 10 * std::log10(power(random));
            levels[100] = -20;
            history.feed(levels.data(), levels.size(), 0);
        }
        EXPECT_NEAR(noiseFloor(history.mean(0, 1e9)), -103, 0.1) << iSpectra;
    }
    EXPECT_EQ(noiseFloor(SpectrumHistory().mean(0, 1)), -1000);
}

TEST(Waterfall, KeepsEachSpectrumWhileThereIsRoom) {
    Waterfall waterfall(8, 4);
    for (uint64_t t = 0; t < 4; ++t) {
        std::vector<float> levels(8, -100.0f);
        levels[t] = -20;
        waterfall.feed(levels.data(), levels.size(), 1000 + t);
    }
    ASSERT_EQ(waterfall.rows(), 4u);
    ASSERT_EQ(waterfall.columns(), 8u);
    for (size_t r = 0; r < 4; ++r)
        for (size_t c = 0; c < 8; ++c)
            EXPECT_EQ(waterfall.level(r, c), r == c ? -20 : -100);
    EXPECT_EQ(waterfall.firstTime(), 1000u);
    EXPECT_EQ(waterfall.lastTime(), 1003u);
}

TEST(Waterfall, ManyPointsShareColumnsAndNoneIsLost) {
    Waterfall waterfall(10, 4);
    for (size_t i = 0; i < 1003; ++i) {
        Waterfall each(10, 4);
        std::vector<float> levels(1003, -100.0f);
        levels[i] = -20;
        each.feed(levels.data(), levels.size(), 0);
        int iFound = 0;
        for (size_t c = 0; c < each.columns(); ++c)
            iFound += each.level(0, c) == -20;
        ASSERT_EQ(iFound, 1) << i;
    }
}

TEST(Waterfall, GrowsNoMoreAndLosesNoBurst) {
    Waterfall waterfall(4, 16);
    constexpr uint64_t kSpectra = 1000;
    for (uint64_t t = 0; t < kSpectra; ++t) {
        std::vector<float> levels(4, -100.0f);
        if (t % 250 == 7)
            levels[2] = -20;
        waterfall.feed(levels.data(), levels.size(), t);
        ASSERT_LE(waterfall.rows(), 16u);
    }
    EXPECT_GE(waterfall.rows(), 8u);
    int iBursts = 0;
    for (size_t r = 0; r < waterfall.rows(); ++r) {
        iBursts += waterfall.level(r, 2) == -20;
        EXPECT_EQ(waterfall.level(r, 1), -100);
    }
    EXPECT_EQ(iBursts, 4);
    EXPECT_EQ(waterfall.firstTime(), 0u);
    EXPECT_EQ(waterfall.lastTime(), kSpectra - 1);
}
