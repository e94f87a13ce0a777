#pragma once

#include <cstdint>

#include "foundations/complex.h"

/// Kernels that turn the wire's big-endian signed 16-bit items into floats. Each gives the same bits as the
/// plain loop "item x 1/2^(bits-1), then each further product in this order".
namespace SampleConversion {

/// pDestination[i] = item[i] / 2^(bits-1). Returns the largest absolute item (32768 for -32768).
uint32_t convert(float* pDestination, const uint8_t* pItems, uint32_t uCount, uint32_t uBits);
/// The same, followed in one pass by a multiplication of every value by fGain.
uint32_t convertScaled(float* pDestination, const uint8_t* pItems, uint32_t uCount, uint32_t uBits, float fGain);
/// The same for pairs, the imaginary part negated: decode, conjugate, scale.
uint32_t convertConjugateScaled(Complex<float>* pDestination, const uint8_t* pItems, uint32_t uPairs,
                                uint32_t uBits, float fGain);

}  // namespace SampleConversion
