#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cli {

/// Turns audio into 16-bit samples, and keeps account of it. 1.0 times the gain is full scale.
class AudioSamples {
 public:
    explicit AudioSamples(double gain = 1) : mdGain(gain) {}

    /// The result is valid until the next call. What is not a number becomes silence; what is too loud is
    /// cut to full scale.
    const std::vector<int16_t>& convert(const float* samples, size_t count);

    double gain() const { return mdGain; }
    uint64_t samples() const { return muSamples; }
    uint64_t clipped() const { return muClipped; }
    uint64_t notNumbers() const { return muNotNumbers; }
    /// Relative to full scale, before it is cut; -1000 for silence.
    double peakDbfs() const;
    double rmsDbfs() const;

 private:
    int16_t convert(float sample);

    double mdGain;
    uint64_t muSamples = 0, muClipped = 0, muNotNumbers = 0;
    double mdPeak = 0, mdPower = 0;
    std::vector<int16_t> mlConverted;
};

/// The gain that takes the frequency discriminator of an FMDemodulator to 1.0 at a deviation. It tells
/// 2/pi times the sine of the phase that a sample turns by.
double discriminatorGain(double deviationHz, double sampleRateHz);

}  // namespace cli
