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
constexpr double kJoinHz = 75;       // lines closer than this are one group: sidebands of one subcarrier

struct Line {
    double frequencyHz = 0, power = 0;
};

std::vector<double> powerSpectrum(const std::vector<float>& envelope, double mean) {
    const std::vector<double> window = hannWindow(envelope.size());
    std::vector<std::complex<double>> data(powerOfTwo(envelope.size()));
    for (size_t i = 0; i < envelope.size(); ++i)
        data[i] = (static_cast<double>(envelope[i]) / mean - 1) * window[i];
    Fourier(data.size()).run(data.data());
    std::vector<double> power(data.size() / 2);
    for (size_t i = 0; i < power.size(); ++i)
        power[i] = std::norm(data[i]);
    return power;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

DetectedTone toTone(const std::vector<Line>& group, double scale, double resolutionHz) {
    DetectedTone tone;
    double dPower = 0;
    for (const Line& line : group) {
        dPower += line.power;
        tone.frequencyHz += line.power * line.frequencyHz;
    }
    tone.frequencyHz /= dPower;
    tone.amplitude = std::sqrt(dPower * scale);
    const double dSpread = group.back().frequencyHz - group.front().frequencyHz;
    tone.widthHz = dSpread > 20 * resolutionHz ? dSpread : 0;
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
    const std::vector<double> power = powerSpectrum(mlEnvelope, dMean);
    const double dBinHz = mdRateHz / static_cast<double>(2 * power.size());
    const auto uFirst = static_cast<size_t>(std::ceil(kLowHz / dBinHz));
    const size_t uEnd = std::min(power.size(), static_cast<size_t>(kHighHz / dBinHz));
    if (uFirst >= uEnd)
        return {};
    const double dFloor = median({power.begin() + static_cast<std::ptrdiff_t>(uFirst),
                                  power.begin() + static_cast<std::ptrdiff_t>(uEnd)});
    // Sum of squares of the Hann window is 3/8 of its size; half of a real tone's power is on each side.
    const double dScale = 4.0 / (static_cast<double>(2 * power.size()) * 0.375 * static_cast<double>(uCount));
    const double dResolutionHz = mdRateHz / static_cast<double>(uCount);

    std::vector<DetectedTone> tones;
    std::vector<Line> group;
    for (size_t i = uFirst; i < uEnd; ++i) {
        const double dFrequency = static_cast<double>(i) * dBinHz;
        if (!group.empty() && dFrequency - group.back().frequencyHz > kJoinHz) {
            tones.push_back(toTone(group, dScale, dResolutionHz));
            group.clear();
        }
        const double dResponse = response(dFrequency);
        if (power[i] > kAboveFloor * dFloor)
            group.push_back({dFrequency, (power[i] - dFloor) / (dResponse * dResponse)});
    }
    if (!group.empty())
        tones.push_back(toTone(group, dScale, dResolutionHz));
    std::sort(tones.begin(), tones.end(),
              [](const DetectedTone& a, const DetectedTone& b) { return a.amplitude > b.amplitude; });
    if (tones.size() > limit)
        tones.resize(limit);
    return tones;
}

}  // namespace cli
