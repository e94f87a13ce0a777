#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace cli {

/// Bounds of a good peak level, in dB relative to full scale. Without decimation the signal passes no
/// filter that could hide a stronger neighbour, so the window lies higher.
struct LevelWindow {
    double low = -20, high = -10;
};
LevelWindow goodWindow(double sampleRateHz);

enum class LevelJudgement { unknown, low, good, high };
LevelJudgement judge(double peakDbfs, LevelWindow window);
std::string toText(LevelJudgement judgement);
/// What to do about it; empty when it is good.
std::string advice(LevelJudgement judgement);

/// Peak and mean level of samples in square roots of milliwatts.
class LevelStatistics {
 public:
    void feed(const float* samples, size_t count);
    uint64_t samples() const { return muSamples; }
    double peakDbm() const;  ///< of the strongest sample; -1000 before the first
    double meanDbm() const;  ///< of the mean power

 private:
    uint64_t muSamples = 0;
    double mdPower = 0;
    float mfPeakPower = 0;
};

}  // namespace cli
