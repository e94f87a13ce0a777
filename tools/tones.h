#pragma once

#include <cstddef>
#include <vector>

namespace cli {

/// A tone, or a narrow group of lines, in a detected signal.
struct DetectedTone {
    double frequencyHz = 0;  ///< of a group: where its power has its centre
    double amplitude = 0;    ///< relative to the carrier: 0.3 is a modulation of 30 %
    double widthHz = 0;      ///< of a group, from its first to its last line; 0 for a single line
};

/// Detects amplitude modulation: keeps the envelope of all that it is fed, thinned out to what audio
/// needs, and finds the tones in it.
class AmDetector {
 public:
    explicit AmDetector(double sampleRateHz);
    void feed(const float* samples, size_t count);
    double rateHz() const { return mdRateHz; }
    /// The strongest tones between 10 Hz and 20 kHz, strongest first.
    std::vector<DetectedTone> tones(size_t limit = 6) const;

 private:
    double response(double frequencyHz) const;

    size_t muThinning;
    double mdRateHz;
    double mdSum = 0;
    size_t muInSum = 0;
    std::vector<float> mlEnvelope;
};

}  // namespace cli
