#pragma once

#include <cstdint>

#include "foundations/alignedarray.h"

/// The fixed low-pass of 37 taps (dsp/lowpasstaps.h) over real samples, with a gain of 1 at DC and a delay of
/// 18 samples. What lies behind the last sample stays in the delay line for the next call. Serves one thread.
class RealFIRFilter : public utils::ReferenceCountedObject {
 public:
    using Array = AlignedArray<float, 16>;

    RealFIRFilter();

    /// Filters in place. Asserts that there are more samples than taps.
    void filter(float* pData, uint32_t uCount);
    /// Empties the delay line.
    void reset();

 private:
    static constexpr uint32_t kTaps = 37;

    Array mcCoefficients{kTaps};
    Array mcDelayLine{2 * kTaps};
    Array mcScratch{kTaps};
    uint32_t muTaps = kTaps;
};
