#include "receivers/planning.h"

#include <cmath>

namespace {

constexpr uint64_t kLargestFFT = uint64_t{1} << 31;

}  // namespace

uint64_t roundToTens(float fHz) {
    const float fTens = std::round(fHz / 10.0f);
    return fTens > 0.0f ? static_cast<uint64_t>(fTens) * 10 : 0;
}

uint32_t chooseFFTSize(float fLineHz, float fWidthHz) {
    const float fLines = std::round((fLineHz + fWidthHz) / fLineHz);
    if (!(fLines < static_cast<float>(kLargestFFT)))
        return static_cast<uint32_t>(kLargestFFT);
    const uint64_t uLines = divideUp(static_cast<uint64_t>(fLines), kPacketStep) * kPacketStep;
    uint64_t uSize = 2;
    while (uSize < 2 * uLines && uSize < kLargestFFT)
        uSize *= 2;
    return static_cast<uint32_t>(uSize);
}
