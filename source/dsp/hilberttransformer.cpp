#include "dsp/hilberttransformer.h"

#include <cmath>
#include <numbers>

#include "dsp/clones.h"

namespace {

constexpr uint32_t kLine = SingleSideband::kLine;
constexpr float kGain = 1.5695463f;  // of the taps, over most of the band

std::array<float, HilbertTransformer::kTaps> design() {
    constexpr int kCentre = HilbertTransformer::kTaps / 2;
    std::array<float, HilbertTransformer::kTaps> cTaps{};
    for (int n = 1; n <= kCentre; n += 2) {
        const double fWindow = 0.54 + 0.46 * std::cos(std::numbers::pi * n / kCentre);
        cTaps[static_cast<size_t>(kCentre - n)] = static_cast<float>(fWindow / n);
        cTaps[static_cast<size_t>(kCentre + n)] = static_cast<float>(-fWindow / n);
    }
    return cTaps;
}

/// Those that are not 0.
const float* usedTaps() {
    static const auto cUsed = [] {
        std::array<float, kLine> cTaps;
        for (size_t k = 0; k < kLine; ++k)
            cTaps[k] = HilbertTransformer::table()[2 * k];
        return cTaps;
    }();
    return cUsed.data();
}

VNK_INLINE float dotProduct(const float* __restrict pLine, const float* __restrict pTaps) {
    constexpr uint32_t kSums = 8;
    float fSums[kSums] = {};
    for (uint32_t k = 0; k < kLine; k += kSums)
        for (uint32_t j = 0; j < kSums; ++j)
            fSums[j] += pTaps[k + j] * pLine[k + j];
    return ((fSums[0] + fSums[4]) + (fSums[2] + fSums[6])) + ((fSums[1] + fSums[5]) + (fSums[3] + fSums[7]));
}

VNK_INLINE float advance(SingleSideband::Lines& cLines, Complex<float> cSample, float fSign,
                         const float* pTaps) {
    const uint32_t uIndex = cLines.muIndex++;
    float* pInPhase = cLines.mfInPhase[uIndex % 2];
    const uint32_t uSlot = uIndex / 2 % kLine;
    pInPhase[uSlot] = pInPhase[uSlot + kLine] = cSample.re / kGain;
    cLines.mfQuadrature[uIndex % kLine] = cSample.im;
    const float fOldest = cLines.mfQuadrature[(uIndex + 1) % kLine];
    return dotProduct(pInPhase + uSlot + 1, pTaps) + fSign * fOldest;
}

VNK_CLONES static void advanceAll(SingleSideband::Lines& cLines, const Complex<float>* __restrict pSamples,
                                  float* __restrict pOutput, uint32_t uCount, float fSign,
                                  const float* pTaps) {
    for (uint32_t i = 0; i < uCount; ++i)
        pOutput[i] = advance(cLines, pSamples[i], fSign, pTaps);
}

float signOf(SingleSideband::Side eSide) {
    return eSide == SingleSideband::kUpper ? 1.0f : -1.0f;
}

}  // namespace

const std::array<float, HilbertTransformer::kTaps>& HilbertTransformer::table() {
    static const std::array<float, kTaps> cTable = design();
    return cTable;
}

float SingleSideband::step(Complex<float> cSample, Side eSide) {
    return advance(mcLines, cSample, signOf(eSide), usedTaps());
}

void SingleSideband::demodulate(const Complex<float>* pSamples, float* pOutput, uint32_t uCount, Side eSide) {
    advanceAll(mcLines, pSamples, pOutput, uCount, signOf(eSide), usedTaps());
}
