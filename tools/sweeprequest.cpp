#include "tools/sweeprequest.h"

#include <algorithm>
#include <cmath>

#include "tools/units.h"

namespace cli {

namespace {

constexpr double kFinestDefaultHz = 100, kCoarsestDefaultHz = 1e6;

bool endsWith(const std::string& text, std::string_view end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

double defaultRbw(double widthHz) {
    const double dWanted = std::clamp(widthHz / 2000, kFinestDefaultHz, kCoarsestDefaultHz);
    const double dDecade = std::pow(10, std::floor(std::log10(dWanted) + 1e-9));
    // The nearest of the series on a logarithmic scale.
    for (const double dStep : {1.0, 2.0, 5.0})
        if (dWanted < dDecade * dStep * 1.5)
            return dDecade * dStep;
    return dDecade * 10;
}

std::optional<SweepSpan> parseSpan(std::string_view text) {
    std::vector<double> values;
    for (;;) {
        const auto uEnd = text.find(':');
        const std::optional<double> value = parseFrequency(text.substr(0, uEnd));
        if (!value || *value < 0)
            return std::nullopt;
        values.push_back(*value);
        if (uEnd == std::string_view::npos)
            break;
        text.remove_prefix(uEnd + 1);
    }
    if (values.size() < 2 || values.size() > 3)
        return std::nullopt;
    return SweepSpan{values[0], values[1],
                     values.size() == 3 ? values[2] : defaultRbw(values[1] - values[0])};
}

const std::vector<SweepWindow>& sweepWindows() {
    // Half the main lobe, from its middle to its first null. The Gaussian is cut off far down and the Lanczos
    // window falls only to 0.84: their lobes are taken where they have fallen far, or as a rectangle's.
    static const std::vector<SweepWindow> windows{
        {"rectangular", 1},     {"gaussian", 3.5}, {"hann", 2},         {"hamming", 2}, {"cosine", 1.5},
        {"lanczos", 1},         {"bartlett", 2},   {"bartletthann", 2}, {"nuttall", 4}, {"blackmanharris", 4},
        {"blackmannuttall", 4}, {"flattop", 5}};
    return windows;
}

double SweepRequest::lobeBins() const {
    for (const SweepWindow& known : sweepWindows())
        if (known.name == window)
            return known.lobeBins;
    return SweepWindow().lobeBins;
}

SpectrumFormat formatOfName(const std::string& path) {
    if (endsWith(path, ".jsonl") || endsWith(path, ".ndjson"))
        return SpectrumFormat::jsonl;
    return endsWith(path, ".f32") ? SpectrumFormat::f32 : SpectrumFormat::csv;
}

}  // namespace cli
