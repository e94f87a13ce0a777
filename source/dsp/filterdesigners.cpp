#include "dsp/filterdesigners.h"

#include <cmath>
#include <numbers>

#include "foundations/text.h"

void designButterworth(PoleZeroMap& cMap, float f3dB, float fSample, uint32_t uOrder) {
    VNK_ASSERT_TEXT(f3dB <= (fSample / 2.0f), "f3dB <= (fSample/2.0f)");
    cMap.mcDescription = utils::formatText("Butterworth LPF (3dB:%.3fHz, fSample:%.3fHz, Order:%d)",
                                           double{f3dB}, double{fSample}, static_cast<int>(uOrder));
    cMap.mfSampleHz = double{fSample};
    cMap.mlPoles.clear();
    cMap.mlZeros.clear();
    const float fRadius = 2.0f * fSample * std::tan(std::numbers::pi_v<float> * f3dB / fSample);
    for (uint32_t k = 0; k < uOrder; ++k) {
        const double fAngle = std::numbers::pi * (uOrder + 1.0 + 2.0 * k) / (2.0 * uOrder);
        const std::complex<double> cPole(double{fRadius} * std::cos(fAngle),
                                         double{fRadius} * std::sin(fAngle));
        // Single precision has no pi/2: at half the rate the tangent mostly lies behind its pole, the
        // radius is negative and nothing is left of the circle here.
        if (cPole.real() < 0.0 && std::isfinite(cPole.real()))
            cMap.mlPoles.push_back({k, cPole});
    }
}

ReferencePtr<FilterDesign> designDigitalButterworth(float f3dB, float fSample, uint32_t uOrder) {
    PoleZeroMap cMap;
    designButterworth(cMap, f3dB, fSample, uOrder);
    return toDigital(cMap);
}
