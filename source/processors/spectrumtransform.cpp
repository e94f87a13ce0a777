#include "processors/spectrumtransform.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "dsp/decibels.h"
#include "dsp/windowfunctions.h"

namespace {

/// Samples for which room is made at once: 8 MiB.
constexpr uint32_t kFirstReserve = 1u << 20;
/// Powers that stay in the nearest cache between the two loops over them.
constexpr uint32_t kStretch = 512;

VNK_CLONES static void applyWindow(const float* __restrict pSamples, const float* __restrict pWindow, size_t uCount,
                                   float* __restrict pOutput) {
    for (size_t i = 0; i < uCount; ++i) {
        pOutput[2 * i] = pSamples[2 * i] * pWindow[i];
        pOutput[2 * i + 1] = pSamples[2 * i + 1] * pWindow[i];
    }
}

/// True if all of the powers have a logarithm that the fast form can tell.
VNK_CLONES static bool computePowers(const float* __restrict pValues, size_t uCount, float* __restrict pPowers) {
    uint32_t uOthers = 0;
    for (size_t i = 0; i < uCount; ++i) {
        const float fPower = pValues[2 * i] * pValues[2 * i] + pValues[2 * i + 1] * pValues[2 * i + 1];
        pPowers[i] = fPower;
        uOthers |= static_cast<uint32_t>(!(fPower >= FLT_MIN)) | static_cast<uint32_t>(!(fPower <= FLT_MAX));
    }
    return uOthers == 0;
}

VNK_CLONES static void convertPowers(const float* __restrict pPowers, size_t uCount, float fCorrection,
                                     float* __restrict pLevels) {
    for (size_t i = 0; i < uCount; ++i)
        pLevels[i] = Decibels::ofPower(pPowers[i]) - fCorrection;
}

void writeLevels(const Complex<float>* pValues, uint32_t uCount, float fCorrection, float* pLevels) {
    float fPowers[kStretch];
    for (uint32_t uDone = 0; uDone < uCount; uDone += kStretch) {
        const uint32_t uPart = std::min(kStretch, uCount - uDone);
        const bool bAllNormal = computePowers(&pValues[uDone].re, uPart, fPowers);
        convertPowers(fPowers, uPart, fCorrection, pLevels + uDone);
        if (bAllNormal)
            continue;
        // Nothing at all, or no number: rare, and told as they are.
        for (uint32_t i = 0; i < uPart; ++i)
            if (!Decibels::isNormal(fPowers[i]))
                pLevels[uDone + i] = 10.0f * std::log10(fPowers[i]) - fCorrection;
    }
}

}  // namespace

void SpectrumTransform::configure(const std::string& windowName, uint32_t uFFTSize, uint32_t uBins,
                                  float fNoiseCorrection) {
    mcWindowName = windowName;
    muFFTSize = uFFTSize;
    muBins = uBins;
    mfNoiseCorrection = fNoiseCorrection;
    muFill = 0;
    mcInput.release();
    mcWindow.release();
    mcWork.release();
    mcOutput.release();
    mcFFT.release();
}

uint32_t SpectrumTransform::append(const Complex<float>* pSamples, uint32_t uCount) {
    const uint32_t uTaken = std::min(uCount, muFFTSize - muFill);
    reserve(muFill + uTaken);
    std::copy_n(pSamples, uTaken, mcInput->getData() + muFill);
    muFill += uTaken;
    return uTaken;
}

void SpectrumTransform::reserve(uint32_t uCount) {
    const uint32_t uHeld = mcInput ? mcInput->getActive() : 0;
    if (mcInput && uCount <= uHeld)
        return;
    // Sizes and steps are powers of two, so that the last step meets the size.
    uint32_t uRoom = std::max(uHeld, std::min(kFirstReserve, muFFTSize));
    while (uRoom < uCount)
        uRoom *= 2;
    auto cInput = makeReference<ComplexArray>(uRoom);
    if (muFill)
        std::copy_n(mcInput->getData(), muFill, cInput->getData());
    mcInput = std::move(cInput);
}

void SpectrumTransform::prepare() {
    if (mcFFT)
        return;
    // One point more than the block, and the last is not used: so the window is periodic in the block.
    float fMean = 1.0f;
    mcWindow = WindowFunctions::sampleWindow(mcWindowName, muFFTSize + 1, &fMean);
    const float fScale = 1.0f / fMean;
    for (uint32_t i = 0; i < muFFTSize; ++i)
        mcWindow->getData()[i] *= fScale;
    mcWork = makeReference<ComplexArray>(muFFTSize);
    mcOutput = makeReference<ComplexArray>(muFFTSize);
    mcFFT = FFT::create(muFFTSize);
}

ReferencePtr<FloatArray> SpectrumTransform::levels() {
    prepare();
    applyWindow(&mcInput->getData()->re, mcWindow->getData(), muFFTSize, &mcWork->getData()->re);
    mcFFT->forward(mcOutput->getData(), mcWork->getData(), muFFTSize);
    auto cLevels = makeReference<FloatArray>(muBins);
    const uint32_t uHalf = muBins / 2;
    const Complex<float>* pBins = mcOutput->getData();
    writeLevels(pBins + muFFTSize - uHalf, uHalf, mfNoiseCorrection, cLevels->getData());
    writeLevels(pBins, uHalf, mfNoiseCorrection, cLevels->getData() + uHalf);
    return cLevels;
}

void SpectrumTransform::advance(uint32_t uHop) {
    const uint32_t uGone = std::min(uHop, muFill);
    muFill -= uGone;
    if (muFill)
        std::memmove(mcInput->getData(), mcInput->getData() + uGone, size_t{muFill} * sizeof(Complex<float>));
}
