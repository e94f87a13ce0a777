#include "dsp/fir.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "dsp/clones.h"
#include "dsp/lowpasstaps.h"

namespace {

constexpr uint32_t kPadded = (LowPassTaps::kTaps + 3) & ~3u;  // whole vectors of four; the padding taps are 0

/// kWidth results beside each other. Each is the sum of four partial sums, whatever the width: the same bits.
template <uint32_t kWidth>
VNK_INLINE void dotProducts(float* __restrict pResults, const float* __restrict pTaps,
                            const float* __restrict pLine) {
    float fSums[4][kWidth] = {};
    for (uint32_t i = 0; i < kPadded; i += 4)
        for (uint32_t k = 0; k < 4; ++k)
            for (uint32_t j = 0; j < kWidth; ++j)
                fSums[k][j] += pTaps[i + k] * pLine[i + k + j];
    for (uint32_t j = 0; j < kWidth; ++j)
        pResults[j] = (fSums[0][j] + fSums[1][j]) + (fSums[2][j] + fSums[3][j]);
}

VNK_CLONES static void filterChunk(float* __restrict pResults, const float* __restrict pTaps,
                                   const float* __restrict pLine, uint32_t uCount) {
    uint32_t j = 0;
    for (; j + 8 <= uCount; j += 8)
        dotProducts<8>(pResults + j, pTaps, pLine + j);
    for (; j < uCount; ++j)
        dotProducts<1>(pResults + j, pTaps, pLine + j);
}

}  // namespace

RealFIRFilter::RealFIRFilter() {
    reset();
    std::fill_n(mcCoefficients.getData(), mcCoefficients.getAllocated(), 0.0f);
    const auto& cTable = LowPassTaps::table();
    const double fSum = std::accumulate(cTable.begin(), cTable.end(), 0.0);
    std::transform(cTable.rbegin(), cTable.rend(), mcCoefficients.getData(),
                   [fSum](double fTap) { return static_cast<float>(fTap / fSum); });
}

void RealFIRFilter::reset() {
    std::fill_n(mcDelayLine.getData(), mcDelayLine.getAllocated(), 0.0f);
}

void RealFIRFilter::filter(float* pData, uint32_t uCount) {
    VNK_ASSERT_TEXT(muTaps < uCount, "muTaps < uCount");
    float* pLine = mcDelayLine.getData();
    while (uCount != 0) {
        const uint32_t uChunk = std::min(uCount, muTaps);
        std::memcpy(pLine + muTaps - 1, pData, uChunk * sizeof(float));
        filterChunk(mcScratch.getData(), mcCoefficients.getData(), pLine, uChunk);
        std::memmove(pLine, pLine + uChunk, (muTaps - 1) * sizeof(float));
        std::memcpy(pData, mcScratch.getData(), uChunk * sizeof(float));
        pData += uChunk;
        uCount -= uChunk;
    }
}
