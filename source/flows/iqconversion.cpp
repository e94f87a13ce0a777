#include "flows/iqconversion.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

#include "dsp/clones.h"
#include "dsp/halfbandtaps.h"

namespace {

/// The results before this one hold the wrapped end of the convolution.
constexpr uint32_t kFirstUsefulResult = 256;
/// 8 MiB of table. A longer period is not tabulated but computed as it is needed, to the same values.
constexpr uint32_t kLongestTabulatedPeriod = 1u << 20;
constexpr double kTwoPi = 6.283185307179586;

/// A real times a unit vector: the product with the imaginary zero of a complex sample is left out.
VNK_CLONES static void mixKernel(float* __restrict pOutput, const float* __restrict pSamples,
                                 const float* __restrict pMixer, size_t uCount) {
    for (size_t i = 0; i < uCount; ++i) {
        pOutput[2 * i] = pSamples[i] * pMixer[2 * i];
        pOutput[2 * i + 1] = pSamples[i] * pMixer[2 * i + 1];
    }
}

VNK_CLONES static void responseKernel(float* __restrict pValues, const float* __restrict pResponse,
                                      size_t uCount, float fSize) {
    for (size_t i = 0; i < uCount; ++i) {
        const float fReal = pValues[2 * i] * fSize;
        const float fImaginary = pValues[2 * i + 1] * fSize;
        pValues[2 * i] = fReal * pResponse[2 * i] - fImaginary * pResponse[2 * i + 1];
        pValues[2 * i + 1] = fReal * pResponse[2 * i + 1] + fImaginary * pResponse[2 * i];
    }
}

/// Only every second result is scaled; nobody sees the others.
VNK_CLONES static void decimateKernel(float* __restrict pOutput, const float* __restrict pResults,
                                      size_t uCount, float fFactor) {
    for (size_t i = 0; i < uCount; ++i) {
        pOutput[2 * i] = pResults[4 * i] * fFactor;
        pOutput[2 * i + 1] = pResults[4 * i + 1] * fFactor;
    }
}

ReferencePtr<ComplexArray> newArray(uint32_t uCount) {
    return ReferencePtr<ComplexArray>(new ComplexArray(uCount));
}

ReferencePtr<ComplexArray> newZeroedArray(uint32_t uCount) {
    ReferencePtr<ComplexArray> cArray = newArray(uCount);
    std::fill_n(cArray->getData(), uCount, Complex<float>{0.0f, 0.0f});
    return cArray;
}

/// The integer part of a magnitude, held to 32 bits; 0 for NaN.
uint32_t integerPart(float fValue) {
    const float fMagnitude = std::abs(fValue);
    if (!(fMagnitude >= 1.0f))
        return 0;
    return fMagnitude >= 4294967296.0f ? 0xFFFFFFFFu : static_cast<uint32_t>(fMagnitude);
}

}  // namespace

ReferencePtr<IQFrame> IQConversion::convert(ReferencePtr<IOnlyFrame> cSource) {
    if (!cSource->mcIOnly)
        return nullptr;
    VNK_ASSERT(cSource->mcIOnly->getActive() == IQConversionSize);
    const IOnlyFrame& cFrame = *cSource;
    const uint32_t uInput = cFrame.mcIOnly->getActive();
    if (uInput != muInputSize || cFrame.mfSampleRateHz != mfSampleRateHz ||
        cFrame.mcBand.mfTuningOffsetHz != mfTuningOffsetHz || cFrame.mcBand.mbInverted != mbInverted)
        rebuild(cFrame, uInput);

    Complex<float>* pTime = mcTimeBuffer->getData();
    std::copy_n(mcOverlap->getData(), muOverlap, pTime);
    mix(pTime + muOverlap, cFrame.mcIOnly->getData());
    std::copy_n(pTime + muInputSize, muOverlap, mcOverlap->getData());

    // The two products with the FFT size and its inverse are exact, the size being a power of two.
    const auto fSize = static_cast<float>(muFFTSize);
    mcFFT->forward(mcFrequencyBuffer->getData(), pTime, muFFTSize);
    responseKernel(&mcFrequencyBuffer->getData()->re, &mcFilterResponse->getData()->re, muFFTSize, fSize);
    mcFFT->inverse(mcResultBuffer->getData(), mcFrequencyBuffer->getData(), muFFTSize);

    ReferencePtr<ComplexArray> cSamples = newArray(muInputSize / 2);
    decimateKernel(&cSamples->getData()->re, &mcResultBuffer->getData()[kFirstUsefulResult].re,
                   muInputSize / 2, 1.0f / fSize);
    ReferencePtr<IQFrame> cResult(new IQFrame(
        cFrame.sequence(), cFrame.zerothSample() >> 1, cFrame.timestamp(), cFrame.timeResolution(),
        cFrame.centreFrequency(), mfFilterBandwidthHz, cFrame.sampleRate() * 0.5f, cFrame.referenceLevel(),
        std::move(cSamples), kUnitsSqrtMilliwatt));
    cResult->setLevel(cFrame.level());
    cResult->setSubOptimal(cFrame.isSubOptimal());
    return cResult;
}

void IQConversion::rebuild(const IOnlyFrame& cSource, uint32_t uInput) {
    // Stored last: a rebuild that runs out of memory is made again by the next frame.
    muInputSize = 0;
    mfSampleRateHz = cSource.mfSampleRateHz;
    mfTuningOffsetHz = cSource.mcBand.mfTuningOffsetHz;
    mbInverted = cSource.mcBand.mbInverted;
    buildMixer(uInput);

    muFFTSize = std::bit_ceil(std::max(uInput, 2u));
    mcTimeBuffer = newZeroedArray(muFFTSize);
    mcFrequencyBuffer = newArray(muFFTSize);
    mcResultBuffer = newArray(muFFTSize);
    mcFFT = FFT::create(muFFTSize);
    buildFilter(cSource.mcBand.mfMaxUsableHz - cSource.mcBand.mfMinUsableHz);

    muOverlap = muFFTSize - uInput;
    mcOverlap = newZeroedArray(muOverlap);
    muInputSize = uInput;
}

void IQConversion::buildMixer(uint32_t uInput) {
    const float fTurns = mfTuningOffsetHz / mfSampleRateHz;
    const uint32_t uRate = mfSampleRateHz > 0.0f ? integerPart(mfSampleRateHz) : 0;
    muMixerIndex = 0;
    mfMixerPhase = 0.0;
    if (uRate == 0 || !std::isfinite(fTurns)) {
        // No rate to turn at: the samples pass as they are.
        muMixerPeriod = 1;
        mfPhaseStep = 0.0;
    } else {
        muMixerPeriod = uRate / std::gcd(uRate, integerPart(mfTuningOffsetHz));
        mfPhaseStep = static_cast<double>(mbInverted ? fTurns : -fTurns) * kTwoPi;
    }
    mbTabulated = muMixerPeriod <= kLongestTabulatedPeriod;
    if (!mbTabulated) {
        muMixerTableLength = uInput;
        mcMixerTable = newArray(uInput);
        return;
    }
    muMixerTableLength = std::max(muMixerPeriod - uInput % muMixerPeriod + uInput, muMixerPeriod);
    mcMixerTable = newArray(muMixerTableLength);
    Complex<float>* pTable = mcMixerTable->getData();
    turn(pTable, muMixerPeriod);
    // The length is a whole number of periods.
    for (uint32_t i = muMixerPeriod; i < muMixerTableLength; ++i)
        pTable[i] = pTable[i - muMixerPeriod];
}

void IQConversion::turn(Complex<float>* pOutput, uint32_t uCount) {
    for (uint32_t i = 0; i < uCount; ++i) {
        pOutput[i] = {static_cast<float>(std::cos(mfMixerPhase)), static_cast<float>(std::sin(mfMixerPhase))};
        mfMixerPhase += mfPhaseStep;
        if (++muMixerIndex == muMixerPeriod) {
            muMixerIndex = 0;
            mfMixerPhase = 0.0;
        }
    }
}

void IQConversion::buildFilter(float fUsableWidthHz) {
    const IQConversionFilters::Row& cRow = IQConversionFilters::rowFor(fUsableWidthHz);
    mfFilterBandwidthHz = cRow.mfBandwidthHz;
    Complex<float>* pTaps = mcTimeBuffer->getData();
    for (float fTap : cRow.mfTaps)
        *pTaps++ = {fTap, 0.0f};
    mcFilterResponse = newArray(muFFTSize);
    mcFFT->forward(mcFilterResponse->getData(), mcTimeBuffer->getData(), muFFTSize);
    for (uint32_t i = 0; i < muFFTSize; ++i) {
        Complex<float>& cValue = mcFilterResponse->getData()[i];
        cValue.re *= static_cast<float>(muFFTSize);
        cValue.im *= static_cast<float>(muFFTSize);
    }
}

void IQConversion::mix(Complex<float>* pOutput, const float* pSamples) {
    if (!mbTabulated) {
        turn(mcMixerTable->getData(), muInputSize);
        mixKernel(&pOutput->re, pSamples, &mcMixerTable->getData()->re, muInputSize);
        return;
    }
    // For some periods the table ends before the frame does; it is whole periods, so it goes on at its start.
    uint32_t uPlace = muMixerIndex;
    for (uint32_t uDone = 0; uDone < muInputSize;) {
        const uint32_t uRun = std::min(muMixerTableLength - uPlace, muInputSize - uDone);
        mixKernel(&pOutput[uDone].re, pSamples + uDone, &mcMixerTable->getData()[uPlace].re, uRun);
        uDone += uRun;
        uPlace = 0;
    }
    muMixerIndex = static_cast<uint32_t>((uint64_t{muMixerIndex} + muInputSize) % muMixerPeriod);
}
