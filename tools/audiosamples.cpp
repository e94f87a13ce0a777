#include "tools/audiosamples.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace cli {

namespace {

constexpr double kFullScale = 32767;

double decibels(double amplitude) {
    return amplitude > 0 ? 20 * std::log10(amplitude) : -1000;
}

}  // namespace

const std::vector<int16_t>& AudioSamples::convert(const float* samples, size_t count) {
    mlConverted.resize(count);
    for (size_t i = 0; i < count; ++i)
        mlConverted[i] = convert(samples[i]);
    muSamples += count;
    return mlConverted;
}

int16_t AudioSamples::convert(float sample) {
    if (std::isnan(sample)) {
        ++muNotNumbers;
        return 0;
    }
    const double dValue = static_cast<double>(sample) * mdGain;
    const double dCut = std::clamp(dValue, -1.0, 1.0);
    muClipped += dCut != dValue;
    if (std::isfinite(dValue))
        mdPeak = std::max(mdPeak, std::abs(dValue));
    mdPower += dCut * dCut;
    return static_cast<int16_t>(std::lround(dCut * kFullScale));
}

double AudioSamples::peakDbfs() const {
    return decibels(mdPeak);
}

double AudioSamples::rmsDbfs() const {
    return muSamples > 0 ? decibels(std::sqrt(mdPower / static_cast<double>(muSamples))) : -1000;
}

double discriminatorGain(double deviationHz, double sampleRateHz) {
    // Beyond a quarter of the rate the sine falls again.
    const double dTurn = std::min(deviationHz / sampleRateHz, 0.25);
    return std::numbers::pi / (2 * std::sin(2 * std::numbers::pi * dTurn));
}

}  // namespace cli
