#pragma once

#include "receivers/reconstruction.h"

/// The bins that the block at a place of the spectrum contributes.
BinRange keptBins(const SweepPlan& cPlan, uint32_t uPlace);
/// Where they lie in the upper half of the transform, in which the frequencies of an inverted block rise. Empty
/// when that is outside the array.
std::optional<BinRange> mirroredBins(const SweepPlan& cPlan, BinRange cKept, uint32_t uHalf);

/// What turns the real samples of a block into magnitudes.
class BlockTransform {
 public:
    BlockTransform(const std::string& windowName, uint32_t uFFTSize);
    /// Half as many magnitudes as there are samples, or as the transform takes; those of the upper half for an
    /// inverted block. A sine of amplitude 1 gives half of that, at a bin's centre.
    FloatArray& magnitudes(const SweepBlock& cBlock);

 private:
    WindowedTransform mcTransform;
};
