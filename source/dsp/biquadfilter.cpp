#include "dsp/biquadfilter.h"

bool BiquadCoefficients::read(const ReferencePtr<FilterDesign>& cDesign) {
    *this = BiquadCoefficients();
    double fA[2];
    double fB[3];
    uint32_t uACount = 2;
    uint32_t uBCount = 3;
    if (!cDesign || !cDesign->getCoefficients(fA, uACount, fB, uBCount) || uACount != 2 || uBCount != 3)
        return false;
    mfB0 = static_cast<float>(fB[0]);
    mfB1 = static_cast<float>(fB[1]);
    mfB2 = static_cast<float>(fB[2]);
    mfA1 = static_cast<float>(fA[0]);
    mfA2 = static_cast<float>(fA[1]);
    return true;
}

void BiquadCoefficients::require(const ReferencePtr<FilterDesign>& cDesign) {
    *this = BiquadCoefficients();
    VNK_ASSERT_TEXT(3 == cDesign->getBCoeffCount(), "3 == cDesign->getBCoeffCount()");
    VNK_ASSERT_TEXT(2 == cDesign->getACoeffCount(), "2 == cDesign->getACoeffCount()");
    read(cDesign);
}

void BiquadFilter::filter(const float* pInput, float* pOutput, uint32_t uCount) {
    BiquadFilter cLocal = *this;  // no store to memory for each sample
    for (uint32_t i = 0; i < uCount; ++i)
        pOutput[i] = cLocal.step(pInput[i]);
    *this = cLocal;
}

void ComplexBiquadFilter::filter(const Complex<float>* pInput, Complex<float>* pOutput, uint32_t uCount) {
    ComplexBiquadFilter cLocal = *this;
    for (uint32_t i = 0; i < uCount; ++i)
        pOutput[i] = cLocal.step(pInput[i]);
    *this = cLocal;
}
