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
    /// Null for a frame without an array. Asserts on a length other than IQConversionSize.
    ReferencePtr<IQFrame> convert(ReferencePtr<IOnlyFrame> cSource);

    uint32_t mixerPeriod() const { return muMixerPeriod; }
    uint32_t mixerTableLength() const { return muMixerTableLength; }
    float filterBandwidth() const { return mfFilterBandwidthHz; }

 private:
    void rebuild(const IOnlyFrame& cSource, uint32_t uInput);
    void buildMixer();
    void buildFilter(float fUsableWidthHz);

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
    ReferencePtr<ComplexArray> mcMixerTable;
    ReferencePtr<ComplexArray> mcOverlap;
    ReferencePtr<ComplexArray> mcFilterResponse;
    ReferencePtr<ComplexArray> mcTimeBuffer;
    ReferencePtr<ComplexArray> mcFrequencyBuffer;
    ReferencePtr<ComplexArray> mcResultBuffer;
    ReferencePtr<FFT> mcFFT;
};
