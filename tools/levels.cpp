#include "tools/levels.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace cli {

namespace {
constexpr double kFullRateHz = 125e6;
}

LevelWindow goodWindow(double sampleRateHz) {
    return sampleRateHz > 0.9 * kFullRateHz ? LevelWindow{-13, -3} : LevelWindow{-20, -10};
}

LevelJudgement judge(double peakDbfs, LevelWindow window) {
    if (!(peakDbfs > -999))
        return LevelJudgement::unknown;
    if (peakDbfs < window.low)
        return LevelJudgement::low;
    return peakDbfs > window.high ? LevelJudgement::high : LevelJudgement::good;
}

std::string toText(LevelJudgement judgement) {
    switch (judgement) {
        case LevelJudgement::low:
            return "low";
        case LevelJudgement::good:
            return "good";
        case LevelJudgement::high:
            return "high";
        case LevelJudgement::unknown:
            break;
    }
    return "unknown";
}

std::string advice(LevelJudgement judgement) {
    switch (judgement) {
        case LevelJudgement::low:
            return "a lower --ref gives more gain, if the unit has any left";
        case LevelJudgement::high:
            return "a higher --ref keeps clear of overload";
        default:
            return {};
    }
}

void LevelStatistics::feed(const float* samples, size_t count) {
    // Lanes that do not depend on each other let the compiler use vectors without reordering a sum.
    constexpr size_t kLanes = 8;
    std::array<float, kLanes> powers{}, peaks{};
    size_t i = 0;
    while (i + kLanes <= count) {
        const size_t uEnd = std::min(count - count % kLanes, i + 4096);
        powers.fill(0);
        for (; i + kLanes <= uEnd; i += kLanes)
            for (size_t k = 0; k < kLanes; ++k) {
                const float fRe = samples[2 * (i + k)], fIm = samples[2 * (i + k) + 1];
                const float fPower = fRe * fRe + fIm * fIm;
                powers[k] += fPower;
                peaks[k] = fPower > peaks[k] ? fPower : peaks[k];
            }
        for (const float fPower : powers)
            mdPower += static_cast<double>(fPower);
    }
    for (; i < count; ++i) {
        const float fPower = samples[2 * i] * samples[2 * i] + samples[2 * i + 1] * samples[2 * i + 1];
        mdPower += static_cast<double>(fPower);
        mfPeakPower = std::max(mfPeakPower, fPower);
    }
    mfPeakPower = std::max(mfPeakPower, *std::max_element(peaks.begin(), peaks.end()));
    muSamples += count;
}

double LevelStatistics::peakDbm() const {
    return mfPeakPower > 0 ? 10 * std::log10(static_cast<double>(mfPeakPower)) : -1000;
}

double LevelStatistics::meanDbm() const {
    return mdPower > 0 ? 10 * std::log10(mdPower / static_cast<double>(muSamples)) : -1000;
}

}  // namespace cli
