#include "tools/tones.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using namespace cli;

namespace {

constexpr double kTurn = 2 * std::numbers::pi;

/// A carrier off the centre, with a modulation m(t).
template <typename Modulation>
std::vector<float> station(double rate, double seconds, Modulation m) {
    const auto uCount = static_cast<size_t>(rate * seconds);
    std::vector<float> samples(2 * uCount);
    for (size_t i = 0; i < uCount; ++i) {
        const double dTime = static_cast<double>(i) / rate;
        const double dAmplitude = 1e-3 * (1 + m(dTime));
        samples[2 * i] = static_cast<float>(dAmplitude * std::cos(kTurn * 1000 * dTime));
        samples[2 * i + 1] = static_cast<float>(dAmplitude * std::sin(kTurn * 1000 * dTime));
    }
    return samples;
}

const DetectedTone* near(const std::vector<DetectedTone>& tones, double hertz, double tolerance) {
    for (const DetectedTone& tone : tones)
        if (std::abs(tone.frequencyHz - hertz) <= tolerance)
            return &tone;
    return nullptr;
}

}  // namespace

TEST(Tones, FrequencyAndDepthOfEachTone) {
    for (const double dRate : {48000.0, 122070.3125, 488281.25}) {
        const auto samples = station(dRate, 2, [](double t) {
            return 0.3 * std::cos(kTurn * 30 * t) + 0.1 * std::cos(kTurn * 1020 * t) +
                   0.05 * std::cos(kTurn * 12000 * t);
        });
        AmDetector detector(dRate);
        detector.feed(samples.data(), samples.size() / 2);
        const auto tones = detector.tones();
        ASSERT_EQ(tones.size(), 3u) << dRate;
        EXPECT_NEAR(tones[0].frequencyHz, 30, 0.05);
        EXPECT_NEAR(tones[0].amplitude, 0.3, 0.003);
        EXPECT_NEAR(tones[1].frequencyHz, 1020, 0.05);
        EXPECT_NEAR(tones[1].amplitude, 0.1, 0.001);
        EXPECT_NEAR(tones[2].frequencyHz, 12000, 0.05);
        EXPECT_NEAR(tones[2].amplitude, 0.05, 0.001) << dRate;
        EXPECT_EQ(tones[0].widthHz, 0);
    }
}

TEST(Tones, ASubcarrierWithSidebandsIsOneEntry) {
    const auto samples = station(122070.3125, 3, [](double t) {
        return 0.3 * std::cos(kTurn * 30 * t) +
               0.3 * std::cos(kTurn * 9960 * t + 16 * std::sin(kTurn * 30 * t));
    });
    AmDetector detector(122070.3125);
    detector.feed(samples.data(), samples.size() / 2);
    const auto tones = detector.tones();
    const DetectedTone* pSubcarrier = near(tones, 9960, 5);
    ASSERT_NE(pSubcarrier, nullptr);
    EXPECT_NEAR(pSubcarrier->amplitude, 0.3, 0.006);
    EXPECT_GT(pSubcarrier->widthHz, 900);
    EXPECT_LT(pSubcarrier->widthHz, 1500);
    EXPECT_NE(near(tones, 30, 0.1), nullptr);
}

TEST(Tones, HarmonicsOfALowToneStayApart) {
    const auto samples = station(48000, 4, [](double t) {
        return 0.2 * std::cos(kTurn * 30 * t) + 0.1 * std::cos(kTurn * 60 * t) +
               0.05 * std::cos(kTurn * 90 * t);
    });
    AmDetector detector(48000);
    detector.feed(samples.data(), samples.size() / 2);
    const auto tones = detector.tones();
    ASSERT_GE(tones.size(), 3u);
    EXPECT_NEAR(tones[0].frequencyHz, 30, 0.1);
    EXPECT_NEAR(tones[1].frequencyHz, 60, 0.1);
    EXPECT_NEAR(tones[2].frequencyHz, 90, 0.1);
}

TEST(Tones, LittleOrNothingGivesNone) {
    AmDetector detector(48000);
    EXPECT_TRUE(detector.tones().empty());
    const auto few = station(48000, 0.01, [](double) { return 0.0; });
    detector.feed(few.data(), few.size() / 2);
    EXPECT_TRUE(detector.tones().empty());
    AmDetector silent(48000);
    const std::vector<float> zeros(2 * 48000, 0.0f);
    silent.feed(zeros.data(), 48000);
    EXPECT_TRUE(silent.tones().empty());
}

TEST(Tones, TheLimitKeepsTheStrongest) {
    const auto samples = station(48000, 2, [](double t) {
        return 0.1 * std::cos(kTurn * 400 * t) + 0.2 * std::cos(kTurn * 1000 * t) +
               0.3 * std::cos(kTurn * 3000 * t);
    });
    AmDetector detector(48000);
    detector.feed(samples.data(), samples.size() / 2);
    const auto tones = detector.tones(2);
    ASSERT_EQ(tones.size(), 2u);
    EXPECT_NEAR(tones[0].frequencyHz, 3000, 1);
    EXPECT_NEAR(tones[1].frequencyHz, 1000, 1);
}
