#include "processors/spectrumplan.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "dsp/windowfunctions.h"

namespace {

constexpr double kTwoTo64 = 18446744073709551616.0;

/// The integer part, held to what a size can be; 0 for what is below, and for NaN.
uint32_t bounded(float fValue, uint32_t uLimit) {
    if (!(fValue >= 1.0f))
        return 0;
    return fValue >= static_cast<float>(uLimit) ? uLimit : static_cast<uint32_t>(fValue);
}

/// Twice as many can still be counted.
constexpr uint32_t kMostHalfBins = 0x7FFFFFFFu;

/// Rounded, and bounded the same way.
uint64_t roundToTicks(double fValue) {
    const double fRounded = std::round(fValue);
    if (!(fRounded > 0.0))
        return 0;
    return fRounded >= kTwoTo64 ? std::numeric_limits<uint64_t>::max() : static_cast<uint64_t>(fRounded);
}

/// Of a whole frame: the largest that it fills.
uint32_t followedSize(uint32_t uSamples) {
    return std::bit_floor(std::max(uSamples, 1u));
}

/// For a resolution: the smallest that reaches it.
uint32_t resolvedSize(float fRBWHz, float fNoiseBandwidth, float fSampleRateHz) {
    const float fWanted = std::round(fSampleRateHz / fRBWHz * fNoiseBandwidth);
    return std::bit_ceil(std::max(bounded(fWanted, kLargestTransform), 2u));
}

uint32_t outputBins(uint32_t uFFTSize, const IQShape& cShape) {
    const float fBins = std::round(static_cast<float>(uFFTSize) * cShape.mfBandwidthHz / cShape.mfSampleRateHz);
    // A bandwidth above the rate repeats the spectrum at its ends, once at the most: each half is read from the
    // transform as it is.
    return 2 * bounded(fBins * 0.5f, std::min(uFFTSize, kMostHalfBins));
}

}  // namespace

SpectrumPlan planSpectrum(float fRBWHz, std::string_view windowName, bool bFollow, const IQShape& cShape) {
    const float fNoiseBandwidth = WindowFunctions::windowNoiseBandwidth(windowName);
    SpectrumPlan cPlan;
    cPlan.muFFTSize =
        bFollow ? followedSize(cShape.muSamples) : resolvedSize(fRBWHz, fNoiseBandwidth, cShape.mfSampleRateHz);
    cPlan.mfNoiseCorrection = 10.0f * std::log10(fNoiseBandwidth);
    cPlan.muBins = outputBins(cPlan.muFFTSize, cShape);
    const float fBinHz = cShape.mfSampleRateHz / static_cast<float>(cPlan.muFFTSize);
    cPlan.mfEffectiveRBWHz = fBinHz * fNoiseBandwidth;
    const float fHalfSpan = static_cast<float>(cPlan.muBins) * 0.5f * fBinHz;
    cPlan.mfMinHz = cShape.mfCentreHz - fHalfSpan;
    cPlan.mfMaxHz = cShape.mfCentreHz + fHalfSpan;
    return cPlan;
}

uint32_t spectrumHop(uint32_t uFFTSize, float fOverlap, bool bFollow) {
    const float fShare = bFollow ? 1.0f : 1.0f - fOverlap;
    return std::clamp(bounded(std::round(fShare * static_cast<float>(uFFTSize)), uFFTSize), 1u, uFFTSize);
}

uint64_t spectrumDuration(uint32_t uFFTSize, float fSampleRateHz) {
    return roundToTicks((static_cast<double>(uFFTSize) - 1.0) / static_cast<double>(fSampleRateHz) * 1e9);
}

uint64_t spectrumTimeStep(uint32_t uHop, float fSampleRateHz) {
    return roundToTicks(static_cast<double>(uHop) * static_cast<double>(fSampleRateHz));
}
