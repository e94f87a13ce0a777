#include "dsp/polezeromap.h"

#include <algorithm>
#include <numbers>
#include <numeric>

namespace {

using Polynomial = std::vector<double>;
using Roots = std::vector<PoleZeroMap::Root>;

constexpr double kPi = std::numbers::pi;

bool _inBetween(double fValue, double fLowest, double fHighest) {
    return fValue >= fLowest && fValue <= fHighest;
}

std::complex<double> bilinear(std::complex<double> cValue, double fSampleHz) {
    const std::complex<double> cHalf = cValue / (2.0 * fSampleHz);
    return (1.0 + cHalf) / (1.0 - cHalf);
}

/// The digital roots, filled up with zeros at -1 to the count wanted.
Roots toDigital(const Roots& lAnalog, double fSampleHz, size_t uCount) {
    Roots lDigital = lAnalog;
    for (PoleZeroMap::Root& cRoot : lDigital) {
        cRoot.mcValue = bilinear(cRoot.mcValue, fSampleHz);
        cRoot.mbTaken = false;
    }
    while (lDigital.size() < uCount)
        lDigital.push_back({static_cast<uint32_t>(lDigital.size()), {-1.0, 0.0}});
    return lDigital;
}

/// The other half of a conjugate pair among the roots behind it, or null.
PoleZeroMap::Root* findConjugate(Roots& lRoots, size_t uOf) {
    const std::complex<double> cWanted = std::conj(lRoots[uOf].mcValue);
    const double fNear = 1e-9 * std::abs(cWanted);
    for (size_t i = uOf + 1; i < lRoots.size(); ++i)
        if (!lRoots[i].mbTaken && std::abs(lRoots[i].mcValue - cWanted) <= fNear)
            return &lRoots[i];
    return nullptr;
}

void checkReal(std::complex<double> cRoot) {
    if (!(std::abs(cRoot) >= 0.0001))
        return;
    // From -pi/2 up to 3 pi/2, so that neither half of the real axis lies on the border.
    double fPhase = std::arg(cRoot);
    if (fPhase < -0.5 * kPi)
        fPhase += 2.0 * kPi;
    VNK_ASSERT_TEXT(
        _inBetween(fPhase, -0.001 * kPi, 0.001 * kPi) || _inBetween(fPhase, 0.999 * kPi, 1.001 * kPi),
        "_inBetween(fPhase, (-0.001f*kPi), (0.001f*kPi)) || "
        "_inBetween(fPhase, (0.999f*kPi), (1.001f*kPi))");
}

Polynomial product(const Polynomial& lLeft, const Polynomial& lRight) {
    Polynomial lProduct(lLeft.size() + lRight.size() - 1, 0.0);
    for (size_t i = 0; i < lLeft.size(); ++i)
        for (size_t j = 0; j < lRight.size(); ++j)
            lProduct[i + j] += lLeft[i] * lRight[j];
    return lProduct;
}

/// The factors (1 - r/z), those of a conjugate pair together: real coefficients.
Polynomial multiplyOut(Roots& lRoots) {
    Polynomial lResult{1.0};
    for (size_t i = 0; i < lRoots.size(); ++i) {
        if (lRoots[i].mbTaken)
            continue;
        lRoots[i].mbTaken = true;
        const std::complex<double> cRoot = lRoots[i].mcValue;
        if (PoleZeroMap::Root* pConjugate = findConjugate(lRoots, i)) {
            pConjugate->mbTaken = true;
            lResult = product(lResult, {1.0, -2.0 * cRoot.real(), std::norm(cRoot)});
        } else {
            checkReal(cRoot);
            lResult = product(lResult, {1.0, -cRoot.real()});
        }
    }
    return lResult;
}

double sum(const Polynomial& lPolynomial) {
    return std::accumulate(lPolynomial.begin(), lPolynomial.end(), 0.0);
}

}  // namespace

ReferencePtr<FilterDesign> toDigital(const PoleZeroMap& cMap) {
    Roots lPoles = toDigital(cMap.mlPoles, cMap.mfSampleHz, 0);
    Roots lZeros = toDigital(cMap.mlZeros, cMap.mfSampleHz, lPoles.size());
    Polynomial lDenominator = multiplyOut(lPoles);
    Polynomial lNumerator = multiplyOut(lZeros);
    const double fGain = sum(lDenominator) / sum(lNumerator);
    for (double& fCoefficient : lNumerator)
        fCoefficient *= fGain;
    return makeReference<FilterDesign>(std::move(lDenominator), std::move(lNumerator));
}
