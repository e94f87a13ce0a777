#include "dsp/sampleconversion.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "dsp/clones.h"

namespace {

VNK_INLINE int16_t itemAt(const uint8_t* pItems, size_t uIndex) {
    uint16_t uItem;
    std::memcpy(&uItem, pItems + 2 * uIndex, sizeof uItem);
    if constexpr (std::endian::native == std::endian::little)
        uItem = static_cast<uint16_t>(uItem << 8 | uItem >> 8);
    return static_cast<int16_t>(uItem);
}

/// The extremes are kept as 16-bit integers: twice the lanes, and -32768 needs no wider absolute value.
VNK_INLINE uint32_t peakOf(int16_t iLowest, int16_t iHighest) {
    return static_cast<uint32_t>(std::max(-int32_t{iLowest}, int32_t{iHighest}));
}

VNK_CLONES static uint32_t convertPlain(float* __restrict pDestination, const uint8_t* __restrict pItems,
                                        size_t uCount, float fUnit) {
    int16_t iLowest = 0;
    int16_t iHighest = 0;
    for (size_t i = 0; i < uCount; ++i) {
        const int16_t iItem = itemAt(pItems, i);
        iLowest = std::min(iLowest, iItem);
        iHighest = std::max(iHighest, iItem);
        pDestination[i] = static_cast<float>(iItem) * fUnit;
    }
    return peakOf(iLowest, iHighest);
}

VNK_CLONES static uint32_t convertGained(float* __restrict pDestination, const uint8_t* __restrict pItems,
                                         size_t uCount, float fUnit, float fGain) {
    int16_t iLowest = 0;
    int16_t iHighest = 0;
    for (size_t i = 0; i < uCount; ++i) {
        const int16_t iItem = itemAt(pItems, i);
        iLowest = std::min(iLowest, iItem);
        iHighest = std::max(iHighest, iItem);
        pDestination[i] = static_cast<float>(iItem) * fUnit * fGain;
    }
    return peakOf(iLowest, iHighest);
}

/// The sign of each second value is turned in the result, which changes no other bit of the products; a zero
/// becomes -0, as in a conjugation of the decoded value.
VNK_CLONES static uint32_t convertConjugated(float* __restrict pDestination, const uint8_t* __restrict pItems,
                                             size_t uCount, float fUnit, float fGain) {
    int16_t iLowest = 0;
    int16_t iHighest = 0;
    uint32_t uSign = 0;
    for (size_t i = 0; i < uCount; ++i, uSign += 0x80000000u) {
        const int16_t iItem = itemAt(pItems, i);
        iLowest = std::min(iLowest, iItem);
        iHighest = std::max(iHighest, iItem);
        const float fValue = static_cast<float>(iItem) * fUnit * fGain;
        pDestination[i] = std::bit_cast<float>(std::bit_cast<uint32_t>(fValue) ^ uSign);
    }
    return peakOf(iLowest, iHighest);
}

/// 1/2^(bits-1), a power of two: the product with a 16-bit item is exact.
float unitOf(uint32_t uBits) {
    return std::ldexp(1.0f, 1 - static_cast<int>(std::min(uBits, 100u)));
}

}  // namespace

namespace SampleConversion {

uint32_t convert(float* pDestination, const uint8_t* pItems, uint32_t uCount, uint32_t uBits) {
    return convertPlain(pDestination, pItems, uCount, unitOf(uBits));
}

uint32_t convertScaled(float* pDestination, const uint8_t* pItems, uint32_t uCount, uint32_t uBits,
                       float fGain) {
    return convertGained(pDestination, pItems, uCount, unitOf(uBits), fGain);
}

uint32_t convertConjugateScaled(Complex<float>* pDestination, const uint8_t* pItems, uint32_t uPairs,
                                uint32_t uBits, float fGain) {
    return convertConjugated(&pDestination->re, pItems, size_t{uPairs} * 2, unitOf(uBits), fGain);
}

}  // namespace SampleConversion
