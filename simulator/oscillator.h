#pragma once

#include <array>
#include <cmath>
#include <complex>
#include <cstdint>

#include "simulator/kernels.h"

namespace vnksim {

/// exp(j 2 pi cycles n) for any sample number n, with the phase kept in fixed point: 2^64 is one turn, so
/// that the phase of a late sample is as exact as that of the first.
class Oscillator {
 public:
    Oscillator() = default;
    /// `cyclesPerSample` may be negative; `phaseTurns` is the phase of sample 0.
    Oscillator(long double cyclesPerSample, long double phaseTurns)
        : muStep(turns(cyclesPerSample)), muPhase(turns(phaseTurns)) {
        for (size_t i = 0; i < mlTable.size(); ++i) {
            mlTable[i] = phasor(muStep * i);
        }
    }

    std::complex<float> at(uint64_t sample) const { return phasor(muPhase + muStep * sample); }
    /// The first samples of an oscillator that starts at phase 0.
    const std::complex<float>* table() const { return mlTable.data(); }

 private:
    static uint64_t turns(long double value) {
        const long double fraction = value - std::floor(value);
        // 2^64 itself is no valid result of the cast.
        const long double scaled = fraction * 18446744073709551616.0L;
        return scaled >= 18446744073709551615.0L ? 0 : static_cast<uint64_t>(scaled);
    }
    static std::complex<float> phasor(uint64_t phase) {
        const double angle =
            static_cast<double>(static_cast<int64_t>(phase)) * (6.283185307179586 / 18446744073709551616.0);
        return {static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle))};
    }

    uint64_t muStep = 0, muPhase = 0;
    std::array<std::complex<float>, kernels::kOscillatorTable> mlTable{};
};

}  // namespace vnksim
