#pragma once

#include <cstdint>

/// Packets hold whole steps of this many samples.
inline constexpr uint32_t kPacketStep = 32;
inline constexpr uint32_t kSmallestPacket = 256;

constexpr uint64_t divideUp(uint64_t uDividend, uint64_t uDivisor) {
    return (uDividend + uDivisor - 1) / uDivisor;
}

/// A centre that a unit can be tuned to: whole tens of hertz, from 0 up.
uint64_t roundToTens(float fHz);

/// The smallest power of two, up to 2^31, that separates lines `fLineHz` apart over `fWidthHz`.
uint32_t chooseFFTSize(float fLineHz, float fWidthHz);
