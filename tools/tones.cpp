#include "tools/tones.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>

#include "tools/fourier.h"

namespace cli {

namespace {

constexpr double kAudioRateHz = 48000;        // at least so many envelope values a second are kept
constexpr size_t kMaximumEnvelope = 1 << 22;  // what is kept of a long capture: a minute and more
constexpr double kLowHz = 10, kHighHz = 20000;
constexpr double kAboveFloor = 300;  // a line stands 25 dB above the median
constexpr double kBelowStrongest =
    1e-5;  // and no more than 50 dB below the strongest, where the window leaks
// Lines closer than this are one group, the sidebands of one subcarrier; harmonics of a low tone stay apart.
constexpr double kJoinHz = 75, kJoinProportion = 0.1;

struct Line {
    size_t bin = 0;
    double power = 0;
};

std::vector<std::complex<double>> transform(const std::vector<float>& envelope, double mean) {
    const std::vector<double> window = hannWindow(envelope.size());
    std::vector<std::complex<double>> data(powerOfTwo(envelope.size()));
    for (size_t i = 0; i < envelope.size(); ++i)
        data[i] = (static_cast<double>(envelope[i]) / mean - 1) * window[i];
    Fourier(data.size()).run(data.data());
    return data;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The mean frequency over time, in bins, of the signal that these bins make: of a frequency-modulated
/// subcarrier its own, where the centre of its sidebands' power lies off when they are not equally strong.
/// `filled` is the part of the transformed time that the envelope fills.
double meanFrequency(const std::vector<std::complex<double>>& bins, size_t first, size_t last,
                     double filled) {
    const size_t uSize = powerOfTwo(4 * (last - first + 1));
    std::vector<std::complex<double>> data(uSize);
    // The conjugate through a forward transform is the conjugate of the backward one.
    for (size_t i = first; i <= last; ++i)
        data[i - first] = std::conj(bins[i]);
    Fourier(uSize).run(data.data());
    // Where the window is small, noise would count as much as signal.
    const double dTime = filled * static_cast<double>(uSize);
    const auto uFrom = static_cast<size_t>(0.15 * dTime) + 1, uTo = static_cast<size_t>(0.85 * dTime);
    double dTurned = 0;
    for (size_t i = uFrom; i < uTo; ++i)
        dTurned += std::arg(data[i - 1] * std::conj(data[i]));
    const double dSteps = std::max(1.0, static_cast<double>(uTo) - static_cast<double>(uFrom));
    return static_cast<double>(first) +
           dTurned / dSteps / (2 * std::numbers::pi) * static_cast<double>(uSize);
}

/// What turns bins into tones.
struct Resolution {
    double binHz = 0;   ///< of the padded transform
    double lineHz = 0;  ///< of the envelope: what can be told apart
    double scale = 0;   ///< from the power of bins to the square of an amplitude
    double filled = 1;
};

DetectedTone toTone(const std::vector<std::complex<double>>& bins, const std::vector<Line>& group,
                    const Resolution& resolution) {
    DetectedTone tone;
    double dPower = 0, dMoment = 0;
    for (const Line& line : group) {
        dPower += line.power;
        dMoment += line.power * static_cast<double>(line.bin);
    }
    tone.amplitude = std::sqrt(dPower * resolution.scale);
    const double dWidthHz = static_cast<double>(group.back().bin - group.front().bin) * resolution.binHz;
    if (dWidthHz > std::max(20.0, 20 * resolution.lineHz)) {
        tone.widthHz = dWidthHz;
        tone.frequencyHz =
            resolution.binHz * meanFrequency(bins, group.front().bin, group.back().bin, resolution.filled);
    } else {
        tone.frequencyHz = resolution.binHz * dMoment / dPower;
    }
    return tone;
}

}  // namespace

AmDetector::AmDetector(double sampleRateHz)
    : muThinning(std::max<size_t>(1, static_cast<size_t>(sampleRateHz / kAudioRateHz))),
      mdRateHz(sampleRateHz / static_cast<double>(muThinning)) {}

void AmDetector::feed(const float* samples, size_t count) {
    for (size_t i = 0; i < count && mlEnvelope.size() < kMaximumEnvelope; ++i) {
        const auto dRe = static_cast<double>(samples[2 * i]), dIm = static_cast<double>(samples[2 * i + 1]);
        mdSum += std::sqrt(dRe * dRe + dIm * dIm);
        if (++muInSum == muThinning) {
            mlEnvelope.push_back(static_cast<float>(mdSum / static_cast<double>(muThinning)));
            mdSum = 0;
            muInSum = 0;
        }
    }
}

double AmDetector::response(double frequencyHz) const {
    // Of the mean over muThinning samples.
    const double dPhase = std::numbers::pi * frequencyHz / (mdRateHz * static_cast<double>(muThinning));
    return std::sin(dPhase * static_cast<double>(muThinning)) /
           (static_cast<double>(muThinning) * std::sin(dPhase));
}

std::vector<DetectedTone> AmDetector::tones(size_t limit) const {
    const size_t uCount = mlEnvelope.size();
    const double dMean =
        std::accumulate(mlEnvelope.begin(), mlEnvelope.end(), 0.0) / static_cast<double>(uCount);
    if (uCount < 1024 || !(dMean > 0))
        return {};
    const std::vector<std::complex<double>> bins = transform(mlEnvelope, dMean);
    const double dBinHz = mdRateHz / static_cast<double>(bins.size());
    const auto uFirst = static_cast<size_t>(std::ceil(kLowHz / dBinHz));
    const size_t uEnd = std::min(bins.size() / 2, static_cast<size_t>(kHighHz / dBinHz));
    if (uFirst >= uEnd)
        return {};
    std::vector<double> power(uEnd);
    for (size_t i = uFirst; i < uEnd; ++i)
        power[i] = std::norm(bins[i]);
    const double dFloor = median({power.begin() + static_cast<std::ptrdiff_t>(uFirst), power.end()});
    const double dThreshold =
        std::max(kAboveFloor * dFloor, kBelowStrongest * *std::max_element(power.begin(), power.end()));
    Resolution resolution;
    resolution.binHz = dBinHz;
    resolution.lineHz = mdRateHz / static_cast<double>(uCount);
    resolution.filled = static_cast<double>(uCount) / static_cast<double>(bins.size());
    // Sum of squares of the Hann window is 3/8 of its size; half of a real tone's power is on each side.
    resolution.scale = 4.0 / (static_cast<double>(bins.size()) * 0.375 * static_cast<double>(uCount));

    std::vector<DetectedTone> tones;
    std::vector<Line> group;
    const auto flush = [&] {
        if (!group.empty())
            tones.push_back(toTone(bins, group, resolution));
        group.clear();
    };
    for (size_t i = uFirst; i < uEnd; ++i) {
        if (power[i] <= dThreshold)
            continue;
        const double dFrequency = static_cast<double>(i) * dBinHz;
        if (!group.empty() && static_cast<double>(i - group.back().bin) * dBinHz >
                                  std::min(kJoinHz, kJoinProportion * dFrequency))
            flush();
        const double dResponse = response(dFrequency);
        group.push_back({i, (power[i] - dFloor) / (dResponse * dResponse)});
    }
    flush();
    std::sort(tones.begin(), tones.end(),
              [](const DetectedTone& a, const DetectedTone& b) { return a.amplitude > b.amplitude; });
    if (tones.size() > limit)
        tones.resize(limit);
    return tones;
}

}  // namespace cli
