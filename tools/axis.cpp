#include "tools/axis.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/units.h"

namespace cli {

namespace {

struct Prefix {
    std::string_view name;
    double factor;
};

constexpr std::array<Prefix, 6> kPrefixes{
    {{"G", 1e9}, {"M", 1e6}, {"k", 1e3}, {"", 1}, {"m", 1e-3}, {"u", 1e-6}}};

/// One in which the greatest value is above 1; a smaller one where that spares fractions and makes no long
/// numbers.
Prefix prefixFor(double greatest, double step) {
    for (size_t i = 0; i < kPrefixes.size(); ++i) {
        if (greatest < kPrefixes[i].factor * (1 - 1e-9))
            continue;
        const bool bFine = step < kPrefixes[i].factor * 0.3;
        return bFine && i + 1 < kPrefixes.size() && greatest < kPrefixes[i + 1].factor * 1e4
                   ? kPrefixes[i + 1]
                   : kPrefixes[i];
    }
    return kPrefixes.back();
}

double roundStep(double least) {
    const double dDecade = std::pow(10, std::floor(std::log10(least)));
    for (const double dStep : {1.0, 2.0, 5.0})
        if (dDecade * dStep >= least * (1 - 1e-9))
            return dDecade * dStep;
    return dDecade * 10;
}

Axis scaled(double low, double high, double step, const Prefix& prefix, std::string_view unit) {
    Axis axis;
    axis.unit = std::string(prefix.name) + std::string(unit);
    const auto iDecimals =
        static_cast<int>(std::max(0.0, -std::floor(std::log10(step / prefix.factor) + 1e-9)));
    for (double dAt = std::ceil(low / step - 1e-6); dAt * step <= high + step * 1e-6; ++dAt)
        // What would read -0.
        axis.ticks.push_back({dAt * step, formatFixed(dAt == 0 ? 0 : dAt * step / prefix.factor, iDecimals)});
    return axis;
}

double stepFor(double low, double high, size_t most) {
    return roundStep((high - low) / static_cast<double>(most - 1));
}

}  // namespace

Axis makeAxis(double low, double high, size_t most, std::string_view unit) {
    if (!(high > low) || most < 2)
        return {{}, std::string(unit)};
    const double dStep = stepFor(low, high, most);
    return scaled(low, high, dStep, prefixFor(std::max(std::abs(low), std::abs(high)), dStep), unit);
}

Axis makePlainAxis(double low, double high, size_t most, std::string_view unit) {
    if (!(high > low) || most < 2)
        return {{}, std::string(unit)};
    return scaled(low, high, stepFor(low, high, most), {"", 1}, unit);
}

}  // namespace cli
