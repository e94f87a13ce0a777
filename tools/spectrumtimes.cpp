#include "tools/spectrumtimes.h"

#include <cmath>

namespace cli {

namespace {

// The library multiplies in single precision.
constexpr double kTolerance = 1e-6, kMostLost = 1000;

}  // namespace

uint64_t SpectrumTimes::correct(uint64_t timestamp, uint64_t duration, double sampleRateHz) {
    const double dSize = std::round(static_cast<double>(duration) * 1e-9 * sampleRateHz) + 1;
    const double dHop = std::round((1 - mdOverlap) * dSize);
    const double dStep = std::round(dHop * sampleRateHz);
    // Spectra that were lost on the way leave whole steps out.
    const auto dPassed = static_cast<double>(timestamp - muLast);
    const double dSteps = dStep > 0 ? std::round(dPassed / dStep) : 0;
    const bool bGoesOn = mbBegun && dSteps >= 1 && dSteps <= kMostLost &&
                         std::abs(dPassed - dSteps * dStep) <= kTolerance * dPassed + 1;
    if (bGoesOn) {
        muSamples += static_cast<uint64_t>(dSteps * dHop);
    } else {
        muStart = timestamp;
        muSamples = 0;
    }
    mbBegun = true;
    muLast = timestamp;
    return muStart + static_cast<uint64_t>(std::llround(static_cast<double>(muSamples) / sampleRateHz * 1e9));
}

}  // namespace cli
