#pragma once

#include <bit>
#include <cfloat>
#include <cstdint>

#include "dsp/clones.h"

/// Logarithms that a loop of the caller turns into vectors, whatever the C library offers.
namespace Decibels {

inline constexpr float kPerOctaveOfAmplitude = 6.0205999f;  // 20 log10(2)
inline constexpr float kPerAreaOfAmplitude = 17.371779f;    // 40 / ln(10)
inline constexpr float kPerOctaveOfPower = 3.01029996f;     // 10 log10(2)
inline constexpr float kPerAreaOfPower = 8.6858896f;        // 20 / ln(10)

inline constexpr uint32_t kMantissaBits = 23;
inline constexpr uint32_t kMantissaMask = (1u << kMantissaBits) - 1;
inline constexpr uint32_t kHalfRootBits = 0x3F3504F3;  // of the root of a half

/// The logarithm of a positive normal number. That is octaves and what is left between the roots of a half and of
/// two, whose logarithm is twice the area tangent of (x - 1) / (x + 1); five terms of its series are exact enough.
VNK_INLINE float logarithm(float fValue, float fPerOctave, float fPerArea) {
    const uint32_t uBits = std::bit_cast<uint32_t>(fValue) - kHalfRootBits;
    const auto fOctaves = static_cast<float>(static_cast<int32_t>(uBits) >> kMantissaBits);
    const auto fRest = std::bit_cast<float>((uBits & kMantissaMask) + kHalfRootBits);
    const float fTangent = (fRest - 1.0f) / (fRest + 1.0f);
    const float fSquare = fTangent * fTangent;
    const float fSeries =
        1.0f + fSquare * (1.0f / 3 + fSquare * (1.0f / 5 + fSquare * (1.0f / 7 + fSquare * (1.0f / 9))));
    return fOctaves * fPerOctave + fPerArea * fTangent * fSeries;
}

/// 20 log10 of a positive normal number.
VNK_INLINE float ofAmplitude(float fValue) {
    return logarithm(fValue, kPerOctaveOfAmplitude, kPerAreaOfAmplitude);
}

/// 10 log10 of a positive normal number.
VNK_INLINE float ofPower(float fValue) {
    return logarithm(fValue, kPerOctaveOfPower, kPerAreaOfPower);
}

VNK_INLINE bool isNormal(float fValue) {
    return fValue >= FLT_MIN && fValue <= FLT_MAX;
}

}  // namespace Decibels
