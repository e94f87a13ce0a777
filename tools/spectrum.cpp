#include "tools/spectrum.h"

#include <algorithm>
#include <cmath>

namespace cli {

namespace {
constexpr double kPiecesPerSecond = 200;
}

SpectrumAverage::SpectrumAverage(size_t size, double sampleRateHz)
    : mcFourier(size),
      mlWindow(hannWindow(size)),
      mlPower(size, 0.0),
      mlScratch(size),
      mdSampleRateHz(sampleRateHz) {
    const auto uEvery = static_cast<size_t>(std::max(0.0, sampleRateHz / kPiecesPerSecond));
    muSkipBetween = uEvery > size ? uEvery - size : 0;
    mlPiece.reserve(size);
}

void SpectrumAverage::feed(const float* samples, size_t count) {
    size_t uAt = 0;
    while (uAt < count) {
        if (muSkip > 0) {
            const size_t uPassed = std::min(muSkip, count - uAt);
            muSkip -= uPassed;
            uAt += uPassed;
            continue;
        }
        const size_t uTaken = std::min(mlPower.size() - mlPiece.size(), count - uAt);
        for (size_t i = uAt; i < uAt + uTaken; ++i)
            mlPiece.emplace_back(static_cast<double>(samples[2 * i]),
                                 static_cast<double>(samples[2 * i + 1]));
        uAt += uTaken;
        if (mlPiece.size() == mlPower.size()) {
            addPiece();
            mlPiece.clear();
            muSkip = muSkipBetween;
        }
    }
}

void SpectrumAverage::addPiece() {
    for (size_t i = 0; i < mlPiece.size(); ++i)
        mlScratch[i] = mlPiece[i] * mlWindow[i];
    mcFourier.run(mlScratch.data());
    for (size_t i = 0; i < mlScratch.size(); ++i)
        mlPower[i] += std::norm(mlScratch[i]);
    ++muAverages;
}

Spectrum SpectrumAverage::result(double centreHz) const {
    const size_t uSize = mlPower.size();
    const auto dSize = static_cast<double>(uSize);
    Spectrum spectrum;
    spectrum.centreHz = centreHz;
    spectrum.binHz = mdSampleRateHz / dSize;
    spectrum.noiseBandwidthHz = 1.5 * spectrum.binHz;
    spectrum.averages = muAverages;
    spectrum.dbm.assign(uSize, -1000.0);
    if (muAverages == 0)
        return spectrum;
    // The sum of the Hann window is half its size: that is the gain of a tone.
    const double dScale = 1.0 / (static_cast<double>(muAverages) * 0.25 * dSize * dSize);
    for (size_t i = 0; i < uSize; ++i)
        if (const double dPower = mlPower[(i + uSize / 2) % uSize] * dScale; dPower > 0)
            spectrum.dbm[i] = 10 * std::log10(dPower);
    return spectrum;
}

size_t spectrumSize(double sampleRateHz, double spanHz, size_t bins) {
    const double dWanted = static_cast<double>(bins) * sampleRateHz / std::max(spanHz, 1.0);
    return powerOfTwo(static_cast<size_t>(std::clamp(dWanted, 1024.0, 65536.0)));
}

SpectrumPeak findPeak(const Spectrum& spectrum, double lowHz, double highHz) {
    SpectrumPeak peak;
    std::vector<double> inside;
    for (size_t i = 0; i < spectrum.dbm.size(); ++i) {
        const double dFrequency = spectrum.frequency(i);
        if (dFrequency < lowHz || dFrequency > highHz)
            continue;
        inside.push_back(spectrum.dbm[i]);
        if (spectrum.dbm[i] > peak.dbm) {
            peak.dbm = spectrum.dbm[i];
            peak.frequencyHz = dFrequency;
        }
    }
    if (inside.empty())
        return peak;
    const auto middle = inside.begin() + static_cast<std::ptrdiff_t>(inside.size() / 2);
    std::nth_element(inside.begin(), middle, inside.end());
    peak.floorDbmPerHz = *middle - 10 * std::log10(spectrum.noiseBandwidthHz);
    return peak;
}

}  // namespace cli
