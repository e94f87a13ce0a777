#pragma once

#include <array>
#include <cstdint>

#include "foundations/complex.h"

/// The 90 degree shift of the single-sideband demodulator.
namespace HilbertTransformer {

inline constexpr uint32_t kTaps = 127;

/// Hamming window times -1/n, n = -63 ... 63, at the odd n (the even positions) and 0 between them.
/// Antisymmetric; the gain in the middle of the band is nearly pi/2. Applied oldest sample first it turns a
/// cosine into a sine.
const std::array<float, kTaps>& table();

}  // namespace HilbertTransformer

/// Phasing demodulator of a single sideband: the 90 degree shift of I plus or minus Q, which is delayed as
/// much as the shift delays, 63 samples. One sideband passes with a gain of 2, the other one cancels. A
/// value: it copies with its state, and serves one thread.
class SingleSideband {
 public:
    /// The sign of Q. Upper: positive frequencies pass.
    enum Side { kUpper, kLower };

    void reset() { mcLines = Lines(); }
    float step(Complex<float> cSample, Side eSide);
    /// The same for many samples.
    void demodulate(const Complex<float>* pSamples, float* pOutput, uint32_t uCount, Side eSide);

    static constexpr uint32_t kLine = 64;
    /// Only each second tap is not 0, so each sum takes every second sample: the line of 128 values of I
    /// stands here as one of 64 for the even samples and one for the odd ones. Each value is written twice,
    /// so that the newest 64 of a line always lie in one piece.
    struct Lines {
        float mfInPhase[2][2 * kLine] = {};
        float mfQuadrature[kLine] = {};
        uint32_t muIndex = 0;  // of the next sample
    };

 private:
    Lines mcLines;
};
