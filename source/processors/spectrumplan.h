#pragma once

#include <cstdint>
#include <string_view>

/// What a frame's IQ samples are, as far as their spectrum depends on it.
struct IQShape {
    float mfCentreHz;
    float mfBandwidthHz;
    float mfSampleRateHz;
    uint32_t muSamples;
};

/// How IQ samples become spectra. Single precision throughout, since that is what the results are labelled with.
struct SpectrumPlan {
    uint32_t muFFTSize = 0;       // a power of two; 1: too few samples for a spectrum
    uint32_t muBins = 0;          // even, centred on the centre frequency, not above twice the FFT size
    float mfNoiseCorrection = 0;  // dB, that of the window's noise bandwidth
    float mfEffectiveRBWHz = 0;
    float mfMinHz = 0;
    float mfMaxHz = 0;
};

inline constexpr uint32_t kLargestTransform = 0x80000000u;

/// One spectrum of each frame (`bFollow`), or as fine as `fRBWHz` asks for. Any value of a shape gives a plan:
/// what is no number, or too large for one, ends at the nearest that can be.
SpectrumPlan planSpectrum(float fRBWHz, std::string_view windowName, bool bFollow, const IQShape& cShape);

/// By how many samples the next block starts behind one of `uFFTSize`. At least one: the shortest block at the
/// greatest overlap would never end.
uint32_t spectrumHop(uint32_t uFFTSize, float fOverlap, bool bFollow);

/// Nanoseconds from the first to the last sample of a block; 0 where the rate gives none.
uint64_t spectrumDuration(uint32_t uFFTSize, float fSampleRateHz);

/// What a hop adds to the time of the next spectrum. The rate multiplies where a division would give time: the
/// times of consecutive spectra are counted in that product, not in nanoseconds.
uint64_t spectrumTimeStep(uint32_t uHop, float fSampleRateHz);
