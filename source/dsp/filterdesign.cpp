#include "dsp/filterdesign.h"

#include <algorithm>

uint32_t FilterDesign::getACoeffCount() const {
    return mlDenominator.empty() ? 0 : static_cast<uint32_t>(mlDenominator.size() - 1);
}

bool FilterDesign::getCoefficients(double* pA, uint32_t& uACount, double* pB, uint32_t& uBCount) const {
    const bool bRoom = uACount >= getACoeffCount() && uBCount >= getBCoeffCount();
    uACount = getACoeffCount();
    uBCount = getBCoeffCount();
    if (!bRoom)
        return false;
    const double fLeading = mlDenominator.empty() ? 1.0 : mlDenominator.front();
    for (uint32_t i = 0; i < uACount; ++i)
        pA[i] = mlDenominator[i + 1] / fLeading;
    for (uint32_t i = 0; i < uBCount; ++i)
        pB[i] = mlNumerator[i] / fLeading;
    return true;
}
