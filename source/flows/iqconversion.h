#pragma once

#include "dsp/fft.h"
#include "flows/ionlyframe.h"
#include "flows/iqframe.h"

/// The only input length that the conversion accepts.
inline constexpr uint32_t IQConversionSize = 65280;

/// State of the conversion of a stream of IOnlyFrames to IQFrames: a mixer, then a fast convolution with a
/// 257-tap low-pass, decimating by 2. One thread.
class IQConversion {
 public:
    /// Null for a frame without an array. Asserts on a length other than IQConversionSize. The mixer and the
    /// filter are built anew, and the history is forgotten, when rate, tuning offset or inversion change. A
    /// rate that is not a positive number of at least 1 Hz, or an offset that is not finite, gets no mixing.
    ReferencePtr<IQFrame> convert(ReferencePtr<IOnlyFrame> cSource);

    uint32_t mixerPeriod() const { return muMixerPeriod; }
    /// Whole periods that cover a frame; just a frame where the period is too long for a table (above 2^20).
    uint32_t mixerTableLength() const { return muMixerTableLength; }
    float filterBandwidth() const { return mfFilterBandwidthHz; }

 private:
    void rebuild(const IOnlyFrame& cSource, uint32_t uInput);
    void buildMixer(uint32_t uInput);
    void buildFilter(float fUsableWidthHz);
    /// The next values of the mixer's oscillator, which starts again at phase 0 with each period.
    void turn(Complex<float>* pOutput, uint32_t uCount);
    void mix(Complex<float>* pOutput, const float* pSamples);

    uint32_t muInputSize = 0;
    uint32_t muMixerIndex = 0;
    uint32_t muMixerTableLength = 0;
    uint32_t muMixerPeriod = 0;
    uint32_t muFFTSize = 0;
    uint32_t muOverlap = 0;
    float mfSampleRateHz = 0.0f;
    float mfFilterBandwidthHz = 0.0f;
    float mfTuningOffsetHz = 0.0f;
    bool mbInverted = false;
    bool mbTabulated = true;
    double mfPhaseStep = 0.0;
    double mfMixerPhase = 0.0;
    ReferencePtr<ComplexArray> mcMixerTable;
    ReferencePtr<ComplexArray> mcOverlap;
    ReferencePtr<ComplexArray> mcFilterResponse;
    ReferencePtr<ComplexArray> mcTimeBuffer;
    ReferencePtr<ComplexArray> mcFrequencyBuffer;
    ReferencePtr<ComplexArray> mcResultBuffer;
    ReferencePtr<FFT> mcFFT;
};
