#include "tools/audioview.h"

#include <algorithm>
#include <cmath>

#include "tools/units.h"

namespace cli {

namespace {

constexpr size_t kBins = 1024;
constexpr double kLowestHz = 20, kHighestHz = 20e3, kSilenceDb = -96;

std::string decibels(double value) {
    return value > -999 ? formatFixed(value, 1) + " dBFS" : "silent";
}

}  // namespace

AudioView::AudioView(double sampleRateHz)
    : mdSampleRateHz(sampleRateHz),
      mcAverage(spectrumSize(sampleRateHz, sampleRateHz / 2, kBins), sampleRateHz) {}

void AudioView::feed(const float* samples, size_t count, double gain) {
    mlPairs.assign(2 * count, 0.0f);
    // Twice: half of a real tone lies at its negative frequency.
    for (size_t i = 0; i < count; ++i)
        mlPairs[2 * i] =
            std::isfinite(samples[i]) ? static_cast<float>(2 * gain * static_cast<double>(samples[i])) : 0.0f;
    mcAverage.feed(mlPairs.data(), count);
}

double AudioView::highestHz() const {
    return std::min(mdSampleRateHz / 2, kHighestHz);
}

SpectrumPeak AudioView::strongest() const {
    return findPeak(spectrum(), kLowestHz, highestHz());
}

std::string levelText(const AudioSamples& audio) {
    std::string text = "peak " + decibels(audio.peakDbfs()) + ", mean " + decibels(audio.rmsDbfs()) + ", " +
                       formatCount(audio.clipped(), "sample") + " clipped";
    if (audio.notNumbers() > 0)
        text += ", " + formatCount(audio.notNumbers(), "sample") + " without a value made silent";
    return text;
}

std::vector<std::string> audioLines(const AudioSamples& audio, const AudioView& view) {
    std::vector<std::string> lines{"Level: " + levelText(audio)};
    const SpectrumPeak peak = view.strongest();
    if (peak.dbm > kSilenceDb)
        lines.push_back("Strongest: " + formatFixed(peak.dbm, 1) + " dBFS at " +
                        formatSI(peak.frequencyHz, "Hz", 4));
    return lines;
}

}  // namespace cli
