#include "processors/fmdemodulator.h"

#include <algorithm>
#include <cmath>

#include "dsp/clones.h"

namespace {

constexpr uint32_t kBlock = 1024;
constexpr uint32_t kHistory = 2;
constexpr float kOneOverPi = 0.31830987f;

}  // namespace

VNK_CLONES static void toUnitCircle(float* __restrict pI, float* __restrict pQ,
                                    const Complex<float>* __restrict pSamples, uint32_t uCount) {
    for (uint32_t i = 0; i < uCount; ++i) {
        const Complex<float> cSample = pSamples[i];
        const float fMagnitude = std::sqrt(cSample.re * cSample.re + cSample.im * cSample.im);
        pI[i] = cSample.re / fMagnitude;
        pQ[i] = cSample.im / fMagnitude;
    }
}

// From the sample two places before the first value on.
VNK_CLONES static void discriminate(float* __restrict pAudio, const float* __restrict pI,
                                    const float* __restrict pQ, uint32_t uCount) {
    for (uint32_t i = 0; i < uCount; ++i)
        pAudio[i] = ((pQ[i + 2] - pQ[i]) * pI[i + 1] - (pI[i + 2] - pI[i]) * pQ[i + 1]) * kOneOverPi;
}

FMDemodulator::FMDemodulator() : BasebandProcessor("FMDemodulator", "FMDemodulator::ProcessChange") {}

FMDemodulator::~FMDemodulator() = default;

void FMDemodulator::demodulate(const IQFrame& cFrame, float* pAudio) {
    std::array<float, kHistory + kBlock> fI;
    std::array<float, kHistory + kBlock> fQ;
    uint32_t uSamples = 0;
    const Complex<float>* pSamples = cFrame.getSamples(uSamples);
    for (uint32_t uAt = 0; uAt < uSamples;) {
        const uint32_t uCount = std::min(kBlock, uSamples - uAt);
        std::copy(mfLastI.begin(), mfLastI.end(), fI.begin());
        std::copy(mfLastQ.begin(), mfLastQ.end(), fQ.begin());
        toUnitCircle(fI.data() + kHistory, fQ.data() + kHistory, pSamples + uAt, uCount);
        discriminate(pAudio + uAt, fI.data(), fQ.data(), uCount);
        std::copy_n(fI.begin() + uCount, kHistory, mfLastI.begin());
        std::copy_n(fQ.begin() + uCount, kHistory, mfLastQ.begin());
        uAt += uCount;
    }
    mcFilter.filter(pAudio, uSamples);
}
