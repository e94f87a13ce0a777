#pragma once

#include <cstdint>

namespace cli {

/// The times of spectra out of overlapping pieces of IQ. The library advances them by the samples between two
/// pieces multiplied by the sample rate, where a division would give time: each run of them starts right, at
/// the first frame and behind a gap, and is counted on from there.
class SpectrumTimes {
 public:
    explicit SpectrumTimes(double overlap) : mdOverlap(overlap) {}
    /// Nanoseconds; the duration is that of a piece, as the library tells it.
    uint64_t correct(uint64_t timestamp, uint64_t duration, double sampleRateHz);

 private:
    double mdOverlap;
    bool mbBegun = false;
    uint64_t muStart = 0, muLast = 0;
    uint64_t muSamples = 0;  ///< from the start of the run
};

}  // namespace cli
