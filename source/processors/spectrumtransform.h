#pragma once

#include <string>

#include "dsp/fft.h"

/// Gathers samples to blocks of one size and turns each full block into levels.
///
/// Memory is taken for what has arrived, not for what was announced: a size is often a word from a file.
class SpectrumTransform {
 public:
    /// Begins anew, empty. `uFFTSize` is a power of two from 2 upward, `uBins` even and not above twice that.
    void configure(const std::string& windowName, uint32_t uFFTSize, uint32_t uBins, float fNoiseCorrection);
    /// Drops what has been gathered.
    void clear() { muFill = 0; }
    /// Takes as many of the samples as the block has room for; returns how many.
    uint32_t append(const Complex<float>* pSamples, uint32_t uCount);
    bool isFull() const { return muFill == muFFTSize; }
    uint32_t size() const { return muFFTSize; }
    /// The levels of the full block in dB, ascending in frequency, 0 Hz at the middle bin.
    ReferencePtr<FloatArray> levels();
    /// Lets go of the oldest samples, not more than there are.
    void advance(uint32_t uHop);

 private:
    void reserve(uint32_t uCount);
    void prepare();

    std::string mcWindowName;
    uint32_t muFFTSize = 0;
    uint32_t muBins = 0;
    uint32_t muFill = 0;
    float mfNoiseCorrection = 0;
    ReferencePtr<ComplexArray> mcInput;
    // Made when the first block is full.
    ReferencePtr<FloatArray> mcWindow;
    ReferencePtr<ComplexArray> mcWork;
    ReferencePtr<ComplexArray> mcOutput;
    ReferencePtr<FFT> mcFFT;
};
