#pragma once

#include <array>

#include "dsp/fir.h"
#include "processors/basebandprocessor.h"

/// Audio in proportion to the frequency, by the difference over two samples: a deviation f at the rate r
/// gives 2 sin(2 pi f / r) / pi. A sample of magnitude 0 gives values that are not numbers.
class FMDemodulator : public BasebandProcessor {
 public:
    FMDemodulator();

 protected:
    ~FMDemodulator() override;
    void demodulate(const IQFrame& cFrame, float* pAudio) override REQUIRES(mcProcessChange);

 private:
    std::array<float, 2> mfLastI{};  // of the unit circle, the older one first
    std::array<float, 2> mfLastQ{};
    RealFIRFilter mcFilter;
};
