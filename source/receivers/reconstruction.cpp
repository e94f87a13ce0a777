#include "receivers/reconstruction.h"

#include <algorithm>
#include <cmath>

#include "dsp/clones.h"
#include "dsp/decibels.h"
#include "dsp/windowfunctions.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

VNK_CLONES static void convertLevels(const float* __restrict pMagnitudes, size_t uCount, float fConstant,
                                     float* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i)
        pOutput[i] = Decibels::ofAmplitude(pMagnitudes[i]) + fConstant;
}

VNK_CLONES static void windowReal(const float* __restrict pSamples, const float* __restrict pWindow,
                                  size_t uCount, Complex<float>* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i)
        pOutput[i] = {pSamples[i] * pWindow[i], 0.0f};
}

VNK_CLONES static void windowComplex(const float* __restrict pSamples, const float* __restrict pWindow,
                                     size_t uCount, Complex<float>* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i)
        pOutput[i] = {pSamples[2 * i] * pWindow[i], pSamples[2 * i + 1] * pWindow[i]};
}

VNK_CLONES static void magnitudesOf(const Complex<float>* __restrict pBins, size_t uCount,
                                    float* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i)
        pOutput[i] = std::sqrt(pBins[i].re * pBins[i].re + pBins[i].im * pBins[i].im);
}

}  // namespace

BinRange tunedBins(const SweepPlan& cPlan, uint32_t uPlace) {
    const bool bFinal = uPlace + 1 == cPlan.muTotalExpectedBlocks;
    return {cPlan.muSHBinFirst, bFinal ? cPlan.muSHBinLastFinal : cPlan.muSHBinLast};
}

WindowedTransform::WindowedTransform(const std::string& windowName, uint32_t uFFTSize)
    : muFFTSize(uFFTSize), mcFFT(FFT::create(uFFTSize)) {
    float fMean = 1.0f;
    mcWindow = WindowFunctions::sampleWindow(windowName, uFFTSize + 1, &fMean);
    const float fScale = 1.0f / fMean;
    for (uint32_t i = 0; i <= uFFTSize; ++i)
        mcWindow->getData()[i] *= fScale;
    prepare(uFFTSize);
}

uint32_t WindowedTransform::prepare(uint32_t uSamples) {
    VNK_ASSERT(mcWindow != nullptr);
    VNK_ASSERT(mcFFT != nullptr);
    if (uSamples < muFFTSize)
        utils::reportTrace(utils::formatText("expected IDataSize:%d to be greater than muFFTSize:%d",
                                             static_cast<int>(uSamples), static_cast<int>(muFFTSize)));
    const uint32_t uCount = std::min(uSamples, muFFTSize);
    if (mcInput && mcInput->getActive() == uCount)
        return uCount;
    auto cInput = makeReference<ComplexArray>(uCount);
    mcOutput = makeReference<ComplexArray>(uCount);
    mcInput = std::move(cInput);
    return uCount;
}

FloatArray& WindowedTransform::room(uint32_t uCount) {
    if (!mcMagnitudes || mcMagnitudes->getActive() != uCount)
        mcMagnitudes = makeReference<FloatArray>(uCount);
    return *mcMagnitudes;
}

const ComplexArray& WindowedTransform::ofReal(const FloatArray& cSamples) {
    const uint32_t uCount = prepare(cSamples.getActive());
    windowReal(cSamples.getData(), mcWindow->getData(), uCount, mcInput->getData());
    mcFFT->forward(mcOutput->getData(), mcInput->getData(), uCount);
    return *mcOutput;
}

const ComplexArray& WindowedTransform::ofComplex(const FloatArray& cSamples) {
    const uint32_t uCount = prepare(cSamples.getActive() / 2);
    windowComplex(cSamples.getData(), mcWindow->getData(), uCount, mcInput->getData());
    mcFFT->forward(mcOutput->getData(), mcInput->getData(), uCount);
    return *mcOutput;
}

void computeMagnitudes(const Complex<float>* pBins, uint32_t uCount, float* pOutput) {
    magnitudesOf(pBins, uCount, pOutput);
}

void writeLevels(const float* pMagnitudes, uint32_t uCount, float fConstant, float* pOutput) {
    convertLevels(pMagnitudes, uCount, fConstant, pOutput);
    // Nothing at all, or no number: rare, and told as they are.
    for (uint32_t i = 0; i < uCount; ++i)
        if (!Decibels::isNormal(pMagnitudes[i]))
            pOutput[i] = 20.0f * std::log10(pMagnitudes[i]) + fConstant;
}

bool writeBins(const SweepBlock& cBlock, FloatArray& cMagnitudes, const std::optional<BinRange>& cBins,
               _IFBWFlatten* pFlatten, float fConstant, float* pOutput) {
    const uint32_t uCount = cMagnitudes.getActive();
    if (!cBins || cBins->muLast >= uCount || uint64_t{cBins->muLast} + 1 < cBins->muFirst) {
        utils::reportTrace(utils::formatText("Bins of the block at CF: %lluHz lie outside its spectrum",
                                             static_cast<unsigned long long>(cBlock.muFrequencyHz)));
        return false;
    }
    if (pFlatten)
        pFlatten->flatten(cMagnitudes.getData(), uCount, static_cast<float>(cBlock.muFrequencyHz));
    writeLevels(cMagnitudes.getData() + cBins->muFirst, cBins->count(), fConstant, pOutput);
    return true;
}
