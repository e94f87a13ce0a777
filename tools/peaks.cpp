#include "tools/peaks.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tools/units.h"

namespace cli {

namespace {

/// The middle bin of each run of equal levels with lower ones on both sides. The edges count as lower.
std::vector<size_t> localMaxima(const std::vector<double>& dbm, double above) {
    std::vector<size_t> maxima;
    for (size_t i = 0; i < dbm.size();) {
        size_t uEnd = i + 1;
        while (uEnd < dbm.size() && dbm[uEnd] == dbm[i])
            ++uEnd;
        const bool bRises = i == 0 || dbm[i - 1] < dbm[i];
        const bool bFalls = uEnd == dbm.size() || dbm[uEnd] < dbm[i];
        if (bRises && bFalls && dbm[i] > above)
            maxima.push_back((i + uEnd - 1) / 2);
        i = uEnd;
    }
    return maxima;
}

/// Where a parabola through a bin and its neighbours has its top, in bins from it: the top of a tone's lobe
/// is close to one in decibels.
double topOffset(const std::vector<double>& dbm, size_t at) {
    if (at == 0 || at + 1 >= dbm.size())
        return 0;
    const double dCurvature = dbm[at - 1] - 2 * dbm[at] + dbm[at + 1];
    if (!std::isfinite(dCurvature) || dCurvature >= 0)
        return 0;
    return std::clamp((dbm[at - 1] - dbm[at + 1]) / (2 * dCurvature), -0.5, 0.5);
}

Peak peakAt(const Spectrum& spectrum, size_t at) {
    const std::vector<double>& dbm = spectrum.dbm;
    const double dOffset = topOffset(dbm, at);
    Peak peak{spectrum.frequency(at) + dOffset * spectrum.binHz, dbm[at], dbm[at]};
    if (dOffset != 0)
        peak.topDbm -= 0.25 * (dbm[at - 1] - dbm[at + 1]) * dOffset;
    return peak;
}

/// The lowest level on the way from a bin to the next one that is higher; the lower the deeper it stands
/// alone.
double saddle(const std::vector<double>& dbm, size_t at, bool upwards) {
    double dLowest = dbm[at];
    for (size_t i = at;;) {
        if (upwards ? ++i >= dbm.size() : i-- == 0)
            return -1000;
        if (dbm[i] > dbm[at])
            return dLowest;
        dLowest = std::min(dLowest, dbm[i]);
    }
}

bool standsAlone(const std::vector<double>& dbm, size_t at, double rise) {
    return dbm[at] - std::max(saddle(dbm, at, true), saddle(dbm, at, false)) >= rise;
}

}  // namespace

double medianLevel(const std::vector<double>& dbm) {
    std::vector<double> finite;
    std::copy_if(dbm.begin(), dbm.end(), std::back_inserter(finite),
                 [](double level) { return std::isfinite(level); });
    if (finite.empty())
        return -1000;
    const auto middle = finite.begin() + static_cast<std::ptrdiff_t>(finite.size() / 2);
    std::nth_element(finite.begin(), middle, finite.end());
    return *middle;
}

std::string formatPeakFrequency(double hertz, double binHz) {
    const double dDigits = std::ceil(std::log10(std::max(hertz, 1.0) / std::max(binHz / 10, 1.0)));
    return formatSI(hertz, "Hz", static_cast<int>(std::clamp(dDigits, 4.0, 9.0)));
}

std::vector<Peak> findPeaks(const Spectrum& spectrum, const PeakSearch& search) {
    const std::vector<double>& dbm = spectrum.dbm;
    std::vector<size_t> maxima = localMaxima(dbm, medianLevel(dbm) + search.aboveFloorDb);
    std::stable_sort(maxima.begin(), maxima.end(), [&](size_t a, size_t b) { return dbm[a] > dbm[b]; });
    std::vector<size_t> kept;
    std::vector<Peak> peaks;
    for (const size_t uAt : maxima) {
        if (peaks.size() >= search.limit)
            break;
        const bool bNear = std::any_of(kept.begin(), kept.end(), [&](size_t other) {
            return std::abs(static_cast<double>(uAt) - static_cast<double>(other)) <= search.lobeBins;
        });
        if (bNear || !standsAlone(dbm, uAt, search.aboveSaddleDb))
            continue;
        kept.push_back(uAt);
        peaks.push_back(peakAt(spectrum, uAt));
    }
    return peaks;
}

}  // namespace cli
