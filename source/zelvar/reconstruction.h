#pragma once

#include <optional>

#include "dsp/fft.h"
#include "receivers/sweepplan.h"

/// Bins of a transformed block, both inclusive; none where the last is the one before the first.
struct BinRange {
    uint32_t muFirst;
    uint32_t muLast;
    uint32_t count() const { return muLast - muFirst + 1; }
};

/// The bins that the block at a place of the spectrum contributes.
BinRange keptBins(const SweepPlan& cPlan, uint32_t uPlace);
/// Where they lie in the upper half of the transform, in which the frequencies of an inverted block rise. Empty
/// when that is outside the array.
std::optional<BinRange> mirroredBins(const SweepPlan& cPlan, BinRange cKept, uint32_t uHalf);

/// What turns the real samples of a block into magnitudes: window, transform and work arrays of one size.
class BlockTransform {
 public:
    BlockTransform(const std::string& windowName, uint32_t uFFTSize);
    /// Half as many magnitudes as there are samples, or as the transform takes; those of the upper half for an
    /// inverted block. A sine of amplitude 1 gives half of that, at a bin's centre.
    FloatArray& magnitudes(const SweepBlock& cBlock);

 private:
    void prepare(uint32_t uCount);

    uint32_t muFFTSize;
    ReferencePtr<FloatArray> mcWindow;
    ReferencePtr<FFT> mcFFT;
    ReferencePtr<ComplexArray> mcInput;
    ReferencePtr<ComplexArray> mcOutput;
    ReferencePtr<FloatArray> mcMagnitudes;
};

/// From magnitudes to dB above the constant.
void writeLevels(const float* pMagnitudes, uint32_t uCount, float fConstant, float* pOutput);
