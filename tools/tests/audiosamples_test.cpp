// Audio as 16-bit samples: scale, clipping, what is no number; and what audio looks like.
#include "tools/audiosamples.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "tools/audioview.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

}  // namespace

TEST(AudioSamples, FullScaleIsOneTimesTheGain) {
    cli::AudioSamples audio;
    const std::vector<float> samples{0, 1, -1, 0.5f, -0.25f};
    EXPECT_EQ(audio.convert(samples.data(), samples.size()),
              (std::vector<int16_t>{0, 32767, -32767, 16384, -8192}));
    EXPECT_EQ(audio.clipped(), 0u);
    EXPECT_NEAR(audio.peakDbfs(), 0, 1e-9);
    cli::AudioSamples halved(0.5);
    EXPECT_EQ(halved.convert(samples.data(), 2), (std::vector<int16_t>{0, 16384}));
    EXPECT_NEAR(halved.peakDbfs(), -6.0206, 1e-3);
    EXPECT_NEAR(halved.rmsDbfs(), -9.0309, 1e-3);
}

TEST(AudioSamples, WhatIsTooLoudIsCutAndCounted) {
    cli::AudioSamples audio(2);
    const std::vector<float> samples{0.5f, 0.6f, -3, kInfinity, -kInfinity};
    EXPECT_EQ(audio.convert(samples.data(), samples.size()),
              (std::vector<int16_t>{32767, 32767, -32767, 32767, -32767}));
    EXPECT_EQ(audio.clipped(), 4u);
    EXPECT_NEAR(audio.peakDbfs(), 20 * std::log10(6), 1e-9) << "as loud as it came";
}

TEST(AudioSamples, WhatIsNoNumberIsSilentAndCounted) {
    cli::AudioSamples audio;
    const std::vector<float> samples{kNaN, 0.5f, kNaN};
    EXPECT_EQ(audio.convert(samples.data(), samples.size()), (std::vector<int16_t>{0, 16384, 0}));
    EXPECT_EQ(audio.notNumbers(), 2u);
    EXPECT_EQ(audio.clipped(), 0u);
    EXPECT_EQ(audio.samples(), 3u);
}

TEST(AudioSamples, SilenceHasNoLevel) {
    cli::AudioSamples audio;
    EXPECT_LT(audio.peakDbfs(), -999);
    const std::vector<float> samples{0, 0};
    audio.convert(samples.data(), samples.size());
    EXPECT_LT(audio.rmsDbfs(), -999);
}

TEST(DiscriminatorGain, TakesADeviationToFullScale) {
    for (const double dShare : {0.001, 0.05, 0.2}) {
        const double dTold = 2 / std::numbers::pi * std::sin(2 * std::numbers::pi * dShare);
        EXPECT_NEAR(dTold * cli::discriminatorGain(dShare * 48e3, 48e3), 1, 1e-12);
    }
    EXPECT_NEAR(cli::discriminatorGain(40e3, 48e3), std::numbers::pi / 2, 1e-12) << "the most that it tells";
}

TEST(AudioView, AToneOfFullScaleReadsZeroDecibels) {
    cli::AudioView view(48000);
    std::vector<float> tone;
    for (int i = 0; i < 48000; ++i)
        tone.push_back(static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 1500 * i / 48000)));
    tone[100] = kNaN;
    view.feed(tone.data(), tone.size(), 2);
    EXPECT_NEAR(view.strongest().dbm, 0, 0.3);
    EXPECT_NEAR(view.strongest().frequencyHz, 1500, 24);
    EXPECT_EQ(view.highestHz(), 20e3);
}
