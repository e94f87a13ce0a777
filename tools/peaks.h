#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/spectrum.h"

namespace cli {

/// A signal that stands out of a spectrum.
struct Peak {
    double frequencyHz = 0;  ///< between bins, from the shape of the top
    double dbm = -1000;      ///< of its strongest bin
    double topDbm = -1000;   ///< between bins: what a bin there would show
};

struct PeakSearch {
    double lobeBins = 4;        ///< a weaker maximum so near a stronger one belongs to it
    double aboveFloorDb = 15;   ///< noise reaches so far above its median once in 10^9 bins
    double aboveSaddleDb = 10;  ///< it must rise so far above the way to any stronger one
    size_t limit = 10;
};

/// Local maxima well above the median level, strongest first.
std::vector<Peak> findPeaks(const Spectrum& spectrum, const PeakSearch& search);

/// With digits enough for what bins tell of a frequency.
std::string formatPeakFrequency(double hertz, double binHz);

/// The median of the finite levels; -1000 when there are none.
double medianLevel(const std::vector<double>& dbm);

}  // namespace cli
