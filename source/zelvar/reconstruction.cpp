#include "zelvar/reconstruction.h"

#include <algorithm>
#include <cmath>

#include "dsp/clones.h"
#include "dsp/decibels.h"
#include "dsp/windowfunctions.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

/// Of the half band: where the tuned centre lies.
constexpr float kIntermediateShare = 0.56f;

VNK_CLONES static void convertLevels(const float* __restrict pMagnitudes, size_t uCount, float fConstant,
                                     float* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i)
        pOutput[i] = Decibels::ofAmplitude(pMagnitudes[i]) + fConstant;
}

VNK_CLONES static void applyWindow(const float* __restrict pSamples, const float* __restrict pWindow, size_t uCount,
                                   Complex<float>* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i)
        pOutput[i] = {pSamples[i] * pWindow[i], 0.0f};
}

VNK_CLONES static void computeMagnitudes(const Complex<float>* __restrict pBins, size_t uCount,
                                         float* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i)
        pOutput[i] = std::sqrt(pBins[i].re * pBins[i].re + pBins[i].im * pBins[i].im);
}

}  // namespace

BinRange keptBins(const SweepPlan& cPlan, uint32_t uPlace) {
    if (cPlan.mbHasDDBlock && uPlace == 0)
        return {cPlan.muDDBinFirst, cPlan.muDDBinLast};
    const bool bFinal = uPlace + 1 == cPlan.muTotalExpectedBlocks;
    return {cPlan.muSHBinFirst, bFinal ? cPlan.muSHBinLastFinal : cPlan.muSHBinLast};
}

// The slice is mirrored about the tuned centre, and starts where a tuned slice does whatever the block's kind.
std::optional<BinRange> mirroredBins(const SweepPlan& cPlan, BinRange cKept, uint32_t uHalf) {
    const auto iCentre = static_cast<int64_t>(std::round(static_cast<float>(uHalf) * kIntermediateShare));
    const int64_t iShift = int64_t{uHalf} - 2 * iCentre;
    const int64_t iFirst = int64_t{cPlan.muSHBinFirst} + iShift;
    const int64_t iLast = int64_t{cKept.muLast} + iShift;
    if (iFirst < 0 || iLast + 1 < iFirst || iLast >= int64_t{uHalf})
        return {};
    return BinRange{static_cast<uint32_t>(iFirst), static_cast<uint32_t>(iLast)};
}

BlockTransform::BlockTransform(const std::string& windowName, uint32_t uFFTSize)
    : muFFTSize(uFFTSize), mcFFT(FFT::create(uFFTSize)) {
    float fMean = 1.0f;
    mcWindow = WindowFunctions::sampleWindow(windowName, uFFTSize + 1, &fMean);
    const float fScale = 1.0f / fMean;
    for (uint32_t i = 0; i <= uFFTSize; ++i)
        mcWindow->getData()[i] *= fScale;
    prepare(uFFTSize);
}

void BlockTransform::prepare(uint32_t uCount) {
    if (mcInput && mcInput->getActive() == uCount)
        return;
    auto cInput = makeReference<ComplexArray>(uCount);
    auto cOutput = makeReference<ComplexArray>(uCount);
    mcMagnitudes = makeReference<FloatArray>(uCount / 2);
    mcOutput = std::move(cOutput);
    mcInput = std::move(cInput);
}

FloatArray& BlockTransform::magnitudes(const SweepBlock& cBlock) {
    VNK_ASSERT(mcWindow != nullptr);
    VNK_ASSERT(mcFFT != nullptr);
    const uint32_t uSize = cBlock.mcSamples->getActive();
    if (uSize < muFFTSize)
        utils::reportTrace(utils::formatText("expected IDataSize:%d to be greater than muFFTSize:%d",
                                             static_cast<int>(uSize), static_cast<int>(muFFTSize)));
    const uint32_t uCount = std::min(uSize, muFFTSize);
    prepare(uCount);
    applyWindow(cBlock.mcSamples->getData(), mcWindow->getData(), uCount, mcInput->getData());
    mcFFT->forward(mcOutput->getData(), mcInput->getData(), uCount);
    const uint32_t uHalf = uCount / 2;
    const Complex<float>* pBins = mcOutput->getData() + (cBlock.mbInverted ? uHalf : 0);
    computeMagnitudes(pBins, uHalf, mcMagnitudes->getData());
    return *mcMagnitudes;
}

void writeLevels(const float* pMagnitudes, uint32_t uCount, float fConstant, float* pOutput) {
    convertLevels(pMagnitudes, uCount, fConstant, pOutput);
    // Nothing at all, or no number: rare, and told as they are.
    for (uint32_t i = 0; i < uCount; ++i)
        if (!Decibels::isNormal(pMagnitudes[i]))
            pOutput[i] = 20.0f * std::log10(pMagnitudes[i]) + fConstant;
}
