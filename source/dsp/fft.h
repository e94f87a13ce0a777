#pragma once

#include <cstdint>

#include "foundations/alignedarray.h"

/// Single-precision complex transform, out of place, planned ahead for one size and both directions. An
/// instance serves one thread at a time.
class FFT : public utils::ReferenceCountedObject {
 public:
    /// A size of 0 makes an object without plans.
    static ReferencePtr<FFT> create(uint32_t uSize);

    virtual uint32_t getSize() const = 0;
    /// Exponent sign negative, output scaled by 1/size: a unit tone gives a bin of magnitude 1. A size other
    /// than the present one plans anew. Arrays are 32-byte aligned and distinct.
    virtual void forward(Complex<float>* pOutput, const Complex<float>* pInput, uint32_t uSize) = 0;
    /// Exponent sign positive, not scaled.
    virtual void inverse(Complex<float>* pOutput, const Complex<float>* pInput, uint32_t uSize) = 0;
};
