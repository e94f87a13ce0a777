#include "tools/spectrumhistory.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "tools/peaks.h"

namespace cli {

namespace {

constexpr float kNothing = -std::numeric_limits<float>::infinity();

void keepStrongest(std::vector<float>& levels, const std::vector<float>& further) {
    for (size_t i = 0; i < levels.size(); ++i)
        levels[i] = std::max(levels[i], further[i]);
}

}  // namespace

void Waterfall::feed(const float* levels, size_t count, uint64_t time) {
    if (count == 0)
        return;
    muShown = muShown ? muShown : std::min(count, muColumns);
    std::vector<float> row(muShown, kNothing);
    for (size_t c = 0; c < muShown; ++c) {
        const size_t uFrom = c * count / muShown;
        const size_t uTo = std::max((c + 1) * count / muShown, std::min(uFrom + 1, count));
        for (size_t i = uFrom; i < uTo; ++i)
            row[c] = std::max(row[c], levels[i]);
    }
    muLastTime = time;
    if (muInRow > 0 && muInRow < muPerRow) {
        keepStrongest(mlRows.back().levels, row);
        ++muInRow;
        return;
    }
    if (mlRows.size() >= muMostRows)
        halve();
    mlRows.push_back({time, std::move(row)});
    muInRow = 1;
}

/// Each two rows become one, and so will those to come.
void Waterfall::halve() {
    for (size_t r = 0; r < mlRows.size(); ++r)
        if (r % 2 == 1)
            keepStrongest(mlRows[r / 2].levels, mlRows[r].levels);
        else if (r > 0)
            mlRows[r / 2] = std::move(mlRows[r]);
    mlRows.resize((mlRows.size() + 1) / 2);
    muPerRow *= 2;
}

bool SpectrumHistory::feed(const float* levels, size_t count, uint64_t time) {
    if (muSpectra == 0) {
        mlStrongest.assign(count, kNothing);
        mlMeanPower.assign(count, 0.0f);
    }
    if (count != mlStrongest.size())
        return false;
    ++muSpectra;
    // A running mean keeps its precision however many there are.
    const float fShare = 1.0f / static_cast<float>(muSpectra);
    constexpr float kPowerOfTwo = 0.33219281f;  // log2(10) / 10: of a decibel
    for (size_t i = 0; i < count; ++i) {
        const float fPower = std::isfinite(levels[i]) ? std::exp2(levels[i] * kPowerOfTwo) : 0.0f;
        mlMeanPower[i] += (fPower - mlMeanPower[i]) * fShare;
        mlStrongest[i] = std::max(mlStrongest[i], levels[i]);
    }
    mcWaterfall.feed(levels, count, time);
    return true;
}

Spectrum SpectrumHistory::shaped(double lowHz, double highHz) const {
    Spectrum spectrum;
    const size_t uPoints = mlStrongest.size();
    spectrum.binHz = uPoints > 1 ? (highHz - lowHz) / static_cast<double>(uPoints - 1) : 0;
    spectrum.centreHz = lowHz + static_cast<double>(uPoints / 2) * spectrum.binHz;
    // Levels are told for the width of a bin, whatever the window.
    spectrum.noiseBandwidthHz = spectrum.binHz;
    spectrum.averages = muSpectra;
    spectrum.dbm.reserve(uPoints);
    return spectrum;
}

Spectrum SpectrumHistory::strongest(double lowHz, double highHz) const {
    Spectrum spectrum = shaped(lowHz, highHz);
    spectrum.dbm.assign(mlStrongest.begin(), mlStrongest.end());
    return spectrum;
}

Spectrum SpectrumHistory::mean(double lowHz, double highHz) const {
    Spectrum spectrum = shaped(lowHz, highHz);
    for (const float fPower : mlMeanPower)
        spectrum.dbm.push_back(fPower > 0 ? 10 * std::log10(static_cast<double>(fPower)) : -1000);
    return spectrum;
}

double noiseFloor(const Spectrum& mean) {
    if (mean.averages == 0)
        return -1000;
    const double dRatio = std::pow(1 - 1 / (9 * static_cast<double>(mean.averages)), 3);
    return medianLevel(mean.dbm) - 10 * std::log10(dRatio);
}

}  // namespace cli
