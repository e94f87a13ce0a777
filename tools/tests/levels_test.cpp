#include "tools/levels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace cli;

TEST(Levels, TheWindowDependsOnDecimation) {
    EXPECT_EQ(goodWindow(125e6).low, -13);
    EXPECT_EQ(goodWindow(125e6).high, -3);
    EXPECT_EQ(goodWindow(31.25e6).low, -20);
    EXPECT_EQ(goodWindow(122070.3125).high, -10);
}

TEST(Levels, JudgementAtTheBounds) {
    const LevelWindow window{-20, -10};
    EXPECT_EQ(judge(-20.1, window), LevelJudgement::low);
    EXPECT_EQ(judge(-20, window), LevelJudgement::good);
    EXPECT_EQ(judge(-10, window), LevelJudgement::good);
    EXPECT_EQ(judge(-9.9, window), LevelJudgement::high);
    EXPECT_EQ(judge(-1000, window), LevelJudgement::unknown);
    EXPECT_EQ(judge(std::nan(""), window), LevelJudgement::unknown);
    EXPECT_TRUE(advice(LevelJudgement::good).empty());
    EXPECT_NE(advice(LevelJudgement::low), advice(LevelJudgement::high));
}

TEST(Levels, NoSamplesNoLevel) {
    LevelStatistics statistics;
    statistics.feed(nullptr, 0);
    EXPECT_EQ(statistics.peakDbm(), -1000);
    EXPECT_EQ(statistics.meanDbm(), -1000);
    const float zero[2] = {0, 0};
    statistics.feed(zero, 1);
    EXPECT_EQ(statistics.peakDbm(), -1000);
}

TEST(Levels, PeakAndMeanForAnyLengthAndCut) {
    // One strong sample at each place of a block in turn, in blocks of every length around the lanes'.
    for (size_t uCount : {1u, 7u, 8u, 9u, 15u, 16u, 17u, 4095u, 4103u, 10000u})
        for (size_t uStrong : {size_t{0}, uCount / 2, uCount - 1}) {
            std::vector<float> samples(2 * uCount, 0.0f);
            for (size_t i = 0; i < uCount; ++i)
                samples[2 * i] = 0.001f;
            samples[2 * uStrong] = 0.0f;
            samples[2 * uStrong + 1] = -0.1f;
            LevelStatistics whole, cut;
            whole.feed(samples.data(), uCount);
            cut.feed(samples.data(), uCount / 3);
            cut.feed(samples.data() + 2 * (uCount / 3), uCount - uCount / 3);
            const double dMean =
                (1e-6 * static_cast<double>(uCount - 1) + 0.01) / static_cast<double>(uCount);
            EXPECT_NEAR(whole.peakDbm(), -20, 1e-4) << uCount;
            EXPECT_NEAR(whole.meanDbm(), 10 * std::log10(dMean), 1e-3) << uCount;
            EXPECT_NEAR(cut.peakDbm(), whole.peakDbm(), 1e-9);
            EXPECT_NEAR(cut.meanDbm(), whole.meanDbm(), 1e-3);
            EXPECT_EQ(cut.samples(), uCount);
        }
}
