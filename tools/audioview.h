#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tools/audiosamples.h"
#include "tools/spectrum.h"

namespace cli {

/// What audio looks like: its mean spectrum, in which a tone of full scale reads 0 dB.
class AudioView {
 public:
    explicit AudioView(double sampleRateHz);
    /// What is not a number counts as silence.
    void feed(const float* samples, size_t count, double gain);
    Spectrum spectrum() const { return mcAverage.result(0); }
    /// Up to where it is of interest: half the rate, at most 20 kHz.
    double highestHz() const;
    /// The strongest tone from 20 Hz on; nothing below the limit of 16 bits.
    SpectrumPeak strongest() const;

 private:
    double mdSampleRateHz;
    SpectrumAverage mcAverage;
    std::vector<float> mlPairs;
};

/// "peak -3.1 dBFS, mean -14.2 dBFS, 0 samples clipped", and what was no number.
std::string levelText(const AudioSamples& audio);
/// Level and strongest tone.
std::vector<std::string> audioLines(const AudioSamples& audio, const AudioView& view);

}  // namespace cli
