#include "tools/modes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace cli;

namespace {

constexpr std::array<uint8_t, 14> kSquitter{0x8F, 0x4D, 0x20, 0x23, 0x58, 0x7F, 0x34,
                                            0x5E, 0x35, 0x83, 0x7E, 0x22, 0x18, 0xB2};
constexpr std::array<uint8_t, 7> kAllCall{0x5D, 0x4D, 0x20, 0x23, 0x7A, 0x55, 0xA6};

/// Whether the transmitter is on, so many microseconds after the frame's start.
bool keyed(const uint8_t* bytes, size_t length, double microseconds) {
    if (microseconds < 0 || microseconds >= 8 + static_cast<double>(8 * length))
        return false;
    const auto uHalf = static_cast<size_t>(2 * microseconds);
    if (uHalf < 16)
        return uHalf == 0 || uHalf == 2 || uHalf == 7 || uHalf == 9;
    const size_t uBit = uHalf / 2 - 8;
    const bool bOne = bytes[uBit / 8] >> (7 - uBit % 8) & 1;
    return (uHalf % 2 == 0) == bOne;
}

struct Air {
    double rate;
    std::vector<float> samples;

    Air(double sampleRate, double microseconds) : rate(sampleRate) {
        std::mt19937 random(3);
        std::normal_distribution<float> normal(0, 0.02f);
        samples.resize(2 * static_cast<size_t>(microseconds * rate / 1e6));
        for (float& fValue : samples)
            fValue = normal(random);
    }
    void put(const uint8_t* bytes, size_t length, double at) {
        for (size_t i = 0; i < samples.size() / 2; ++i) {
            // The receiver sees the mean over each sample's time.
            double dOn = 0;
            for (int iPart = 0; iPart < 8; ++iPart)
                dOn += keyed(bytes, length, (static_cast<double>(i) + iPart / 8.0) / rate * 1e6 - at) / 8.0;
            samples[2 * i] += static_cast<float>(dOn);
        }
    }
};

std::vector<ModeSFrame> detect(const Air& air, size_t cut = 0) {
    ModeSDetector detector(air.rate);
    const size_t uCount = air.samples.size() / 2;
    for (size_t i = 0, n = cut ? cut : uCount; i < uCount; i += n)
        detector.feed(air.samples.data() + 2 * i, std::min(n, uCount - i));
    detector.finish();
    return detector.frames();
}

}  // namespace

TEST(ModeS, ParityOfFramesFromTheAir) {
    EXPECT_EQ(modeSParity(kSquitter.data(), kSquitter.size()), 0u);
    EXPECT_EQ(modeSParity(kAllCall.data(), kAllCall.size()), 0u);
    for (size_t uBit = 0; uBit < 112; ++uBit) {
        auto broken = kSquitter;
        broken[uBit / 8] = static_cast<uint8_t>(broken[uBit / 8] ^ (0x80u >> (uBit % 8)));
        EXPECT_NE(modeSParity(broken.data(), broken.size()), 0u) << uBit;
    }
}

TEST(ModeS, AnInterrogatorCodeStaysInTheParity) {
    auto frame = kAllCall;
    frame[6] ^= 0x4F;
    EXPECT_EQ(modeSParity(frame.data(), frame.size()), 0x4Fu);
}

TEST(ModeS, FramesAreFoundAtEveryRate) {
    for (const double dRate : {2e6, 2.4e6, 3.90625e6, 7.8125e6}) {
        Air air(dRate, 1000);
        air.put(kSquitter.data(), kSquitter.size(), 100);
        air.put(kAllCall.data(), kAllCall.size(), 500);
        const auto frames = detect(air);
        ASSERT_EQ(frames.size(), 2u) << dRate;
        EXPECT_EQ(frames[0].hex(), "8F4D2023587F345E35837E2218B2");
        EXPECT_EQ(frames[0].format(), 17u);
        EXPECT_EQ(frames[0].aircraft(), 0x4D2023u);
        EXPECT_NEAR(frames[0].seconds, 100e-6, 1e-6);
        EXPECT_EQ(frames[1].hex(), "5D4D20237A55A6");
        EXPECT_NEAR(frames[1].seconds, 500e-6, 1e-6);
    }
}

TEST(ModeS, HowTheStreamIsCutDoesNotMatter) {
    Air air(3.90625e6, 100000);
    air.put(kSquitter.data(), kSquitter.size(), 67000);  // near the end of the first inner block
    for (const size_t uCut : {size_t{1000}, size_t{65504}, size_t{262144}})
        EXPECT_EQ(detect(air, uCut).size(), 1u) << uCut;
}

TEST(ModeS, NoiseHoldsNoFrame) {
    EXPECT_TRUE(detect(Air(3.90625e6, 200000)).empty());
}

TEST(ModeS, ABrokenFrameIsNotReported) {
    auto broken = kSquitter;
    broken[5] ^= 1;
    Air air(3.90625e6, 1000);
    air.put(broken.data(), broken.size(), 100);
    EXPECT_TRUE(detect(air).empty());
}

TEST(ModeS, AGapIsNotBridged) {
    Air air(3.90625e6, 400);
    air.put(kSquitter.data(), kSquitter.size(), 100);
    ModeSDetector detector(air.rate);
    const size_t uHalf = static_cast<size_t>(150e-6 * air.rate);
    detector.feed(air.samples.data(), uHalf);
    detector.gap();
    detector.feed(air.samples.data() + 2 * uHalf, air.samples.size() / 2 - uHalf);
    detector.finish();
    EXPECT_TRUE(detector.frames().empty());
}
