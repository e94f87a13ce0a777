#pragma once

#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "dsp/filterdesign.h"

/// A filter of the analog plane as its poles and zeros. Where there are fewer zeros than poles, the others
/// lie at infinity.
class PoleZeroMap {
 public:
    struct Root {
        uint32_t muIndex;
        std::complex<double> mcValue;  // radians per second
        bool mbTaken = false;          // multiplied out already, by itself or with its conjugate
    };

    std::string mcDescription;
    double mfSampleHz = 0.0;
    std::vector<Root> mlPoles;
    std::vector<Root> mlZeros;
};

/// Takes the map to the digital plane by the bilinear transform, z = (1 + s/2fs) / (1 - s/2fs), with a gain
/// of 1 at DC. A zero at infinity becomes one at z = -1. Roots come as conjugate pairs or real; asserts on a
/// lone one off the real axis. A map without roots gives the filter that changes nothing.
ReferencePtr<FilterDesign> toDigital(const PoleZeroMap& cMap);
