#pragma once

#include <cstdint>

#include "dsp/polezeromap.h"

/// Fills the map with the poles of a Butterworth low-pass, pre-warped in single precision so that the digital
/// filter is 3 dB down at f3dB. Asserts that f3dB is at most half the sample rate (NaN is not). At 0 and
/// below and where the arithmetic overflows no pole is left: the filter changes nothing. At just half the
/// rate it changes nothing either, mostly for want of poles; at some rates rounding leaves them.
void designButterworth(PoleZeroMap& cMap, float f3dB, float fSample, uint32_t uOrder);

/// The Butterworth low-pass as a digital filter.
ReferencePtr<FilterDesign> designDigitalButterworth(float f3dB, float fSample, uint32_t uOrder);
