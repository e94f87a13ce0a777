#include "dsp/sampleconversion.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>
#include <vector>

namespace {

std::vector<uint8_t> bytesOf(const std::vector<int16_t>& cItems) {
    std::vector<uint8_t> cBytes;
    for (int16_t iItem : cItems) {
        cBytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(iItem) >> 8));
        cBytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(iItem) & 0xFF));
    }
    return cBytes;
}

std::vector<int16_t> randomItems(size_t uCount, uint32_t uSeed) {
    std::mt19937 cEngine(uSeed);
    std::uniform_int_distribution<int> cValues(-32768, 32767);
    std::vector<int16_t> cItems(uCount);
    for (int16_t& iItem : cItems)
        iItem = static_cast<int16_t>(cValues(cEngine));
    return cItems;
}

uint32_t peakOf(const std::vector<int16_t>& cItems) {
    int iPeak = 0;
    for (int16_t iItem : cItems)
        iPeak = std::max(iPeak, std::abs(int{iItem}));
    return static_cast<uint32_t>(iPeak);
}

uint32_t bitsOf(float fValue) {
    return std::bit_cast<uint32_t>(fValue);
}

/// Every length around the vectors' widths, and one packet of the full-rate path.
std::vector<size_t> lengths() {
    std::vector<size_t> cLengths;
    for (size_t i = 0; i <= 130; ++i)
        cLengths.push_back(i);
    cLengths.push_back(65280);
    return cLengths;
}

constexpr float kGain = 0.2296153f;

TEST(SampleConversion, scalesEachItemOfFourteenBitsByOneOver8192) {
    const std::vector<uint8_t> cBytes = {0x00, 0x00, 0x20, 0x00, 0xE0, 0x00,
                                         0x00, 0x01, 0xFF, 0xFF, 0x7F, 0xFF};
    float fValues[6];
    EXPECT_EQ(SampleConversion::convert(fValues, cBytes.data(), 6, 14), 32767u);
    EXPECT_EQ(fValues[0], 0.0f);
    EXPECT_EQ(fValues[1], 1.0f);
    EXPECT_EQ(fValues[2], -1.0f);
    EXPECT_EQ(fValues[3], 0.0001220703125f);
    EXPECT_EQ(fValues[4], -0.0001220703125f);
    EXPECT_EQ(fValues[5], 3.9998779296875f);
}

TEST(SampleConversion, lowestItemHasAPeakOf32768) {
    const std::vector<uint8_t> cBytes = bytesOf({5, -32768, 32767});
    float fValues[3];
    EXPECT_EQ(SampleConversion::convert(fValues, cBytes.data(), 3, 16), 32768u);
    EXPECT_EQ(fValues[1], -1.0f);
}

TEST(SampleConversion, nothingToConvertHasAPeakOfZero) {
    EXPECT_EQ(SampleConversion::convert(nullptr, nullptr, 0, 14), 0u);
    EXPECT_EQ(SampleConversion::convertScaled(nullptr, nullptr, 0, 14, 2.0f), 0u);
}

TEST(SampleConversion, vectorsAndScalarsAgreeBitForBitAtEveryLength) {
    for (size_t uCount : lengths()) {
        const std::vector<int16_t> cItems = randomItems(uCount, static_cast<uint32_t>(uCount) + 1);
        const std::vector<uint8_t> cBytes = bytesOf(cItems);
        std::vector<float> cPlain(uCount + 1, 77.0f);
        std::vector<float> cScaled(uCount + 1, 77.0f);
        const auto uItems = static_cast<uint32_t>(uCount);
        EXPECT_EQ(SampleConversion::convert(cPlain.data(), cBytes.data(), uItems, 14), peakOf(cItems));
        EXPECT_EQ(SampleConversion::convertScaled(cScaled.data(), cBytes.data(), uItems, 14, kGain),
                  peakOf(cItems));
        for (size_t i = 0; i < uCount; ++i) {
            const volatile float fDecoded = static_cast<float>(cItems[i]) / 8192.0f;
            const volatile float fGained = fDecoded * kGain;
            ASSERT_EQ(bitsOf(cPlain[i]), bitsOf(fDecoded)) << i << " of " << uCount;
            ASSERT_EQ(bitsOf(cScaled[i]), bitsOf(fGained)) << i << " of " << uCount;
        }
        EXPECT_EQ(cPlain[uCount], 77.0f) << "wrote behind the end";
        EXPECT_EQ(cScaled[uCount], 77.0f) << "wrote behind the end";
    }
}

TEST(SampleConversion, conjugatingPassEqualsDecodeThenConjugateThenScale) {
    for (size_t uPairs : lengths()) {
        const std::vector<int16_t> cItems = randomItems(2 * uPairs, static_cast<uint32_t>(uPairs) + 7);
        const std::vector<uint8_t> cBytes = bytesOf(cItems);
        std::vector<Complex<float>> cValues(uPairs + 1, Complex<float>{77.0f, 77.0f});
        EXPECT_EQ(SampleConversion::convertConjugateScaled(cValues.data(), cBytes.data(),
                                                           static_cast<uint32_t>(uPairs), 14, kGain),
                  peakOf(cItems));
        for (size_t i = 0; i < uPairs; ++i) {
            const volatile float fReal = static_cast<float>(cItems[2 * i]) / 8192.0f;
            const volatile float fImaginary = -(static_cast<float>(cItems[2 * i + 1]) / 8192.0f);
            ASSERT_EQ(bitsOf(cValues[i].re), bitsOf(fReal * kGain)) << i << " of " << uPairs;
            ASSERT_EQ(bitsOf(cValues[i].im), bitsOf(fImaginary * kGain)) << i << " of " << uPairs;
        }
        EXPECT_EQ(cValues[uPairs].re, 77.0f) << "wrote behind the end";
    }
}

TEST(SampleConversion, conjugateOfALowestImaginaryItemIsPositive) {
    const std::vector<uint8_t> cBytes = bytesOf({0, -32768});
    Complex<float> cValue{};
    EXPECT_EQ(SampleConversion::convertConjugateScaled(&cValue, cBytes.data(), 1, 16, 1.0f), 32768u);
    EXPECT_EQ(cValue.im, 1.0f);
}

TEST(SampleConversion, sourceNeedsNoAlignment) {
    const std::vector<int16_t> cItems = randomItems(100, 3);
    std::vector<uint8_t> cBytes = bytesOf(cItems);
    cBytes.insert(cBytes.begin(), 0xAA);
    std::vector<float> cValues(100);
    EXPECT_EQ(SampleConversion::convert(cValues.data(), cBytes.data() + 1, 100, 14), peakOf(cItems));
    for (size_t i = 0; i < 100; ++i)
        EXPECT_EQ(cValues[i], static_cast<float>(cItems[i]) / 8192.0f);
}

TEST(SampleConversion, eachItemOfSixteenBitsIsExact) {
    std::vector<int16_t> cItems;
    for (int i = -32768; i <= 32767; ++i)
        cItems.push_back(static_cast<int16_t>(i));
    const std::vector<uint8_t> cBytes = bytesOf(cItems);
    std::vector<float> cValues(cItems.size());
    SampleConversion::convert(cValues.data(), cBytes.data(), static_cast<uint32_t>(cItems.size()), 16);
    for (size_t i = 0; i < cItems.size(); ++i)
        ASSERT_EQ(cValues[i] * 32768.0f, static_cast<float>(cItems[i]));
}

}  // namespace
