#pragma once

#include <optional>

#include "dsp/fft.h"
#include "receivers/ifbwflatten.h"
#include "receivers/sweepplan.h"

/// Bins of a transformed block, both inclusive; none where the last is the one before the first.
struct BinRange {
    uint32_t muFirst;
    uint32_t muLast;
    uint32_t count() const { return muLast - muFirst + 1; }
};

/// The bins that the tuned block at a place of the spectrum contributes.
BinRange tunedBins(const SweepPlan& cPlan, uint32_t uPlace);

/// Window, transform and work arrays of one size.
class WindowedTransform {
 public:
    WindowedTransform(const std::string& windowName, uint32_t uFFTSize);
    /// As many bins as there are samples, or as the transform takes: a complex tone of amplitude 1 gives 1 at
    /// a bin's centre.
    const ComplexArray& ofReal(const FloatArray& cSamples);
    /// Samples as I, Q.
    const ComplexArray& ofComplex(const FloatArray& cSamples);
    /// Room for the magnitudes of so many bins.
    FloatArray& room(uint32_t uCount);

 private:
    uint32_t prepare(uint32_t uSamples);

    uint32_t muFFTSize;
    ReferencePtr<FloatArray> mcWindow;
    ReferencePtr<FFT> mcFFT;
    ReferencePtr<ComplexArray> mcInput;
    ReferencePtr<ComplexArray> mcOutput;
    ReferencePtr<FloatArray> mcMagnitudes;
};

void computeMagnitudes(const Complex<float>* pBins, uint32_t uCount, float* pOutput);
/// From magnitudes to dB above the constant.
void writeLevels(const float* pMagnitudes, uint32_t uCount, float fConstant, float* pOutput);
/// The levels of some bins of a block, flattened before if `pFlatten` is given. False, with a log line, when
/// they do not lie within its magnitudes.
bool writeBins(const SweepBlock& cBlock, FloatArray& cMagnitudes, const std::optional<BinRange>& cBins,
               _IFBWFlatten* pFlatten, float fConstant, float* pOutput);
