#pragma once

#include <complex>
#include <cstddef>
#include <string>
#include <vector>

namespace cli {

/// The strength of a tone over time, out of audio.
class ToneEnvelope {
 public:
    static constexpr double kRateHz = 200;  ///< values for each second

    ToneEnvelope(double sampleRateHz, double toneHz);
    void feed(const float* samples, size_t count);
    /// Amplitudes of the tone, smoothed over 45 ms: dots of 60 ms and more keep their length at half height.
    std::vector<float> levels() const;

 private:
    std::complex<double> mcPhasor{1, 0}, mcTurn;
    double mdPerBlock, mdBlockEnd;
    double mdAt = 0;
    std::complex<double> mcSum;
    size_t muInSum = 0;
    std::vector<std::complex<float>> mlBlocks;
};

/// A word, as keyed; '?' stands for what is no letter and no digit.
struct MorseWord {
    std::string text;
    double seconds = 0;  ///< where it begins
    bool whole = true;   ///< false: it may have begun earlier, or go on
};

struct MorseText {
    double dotSeconds = 0;  ///< 0: there is no keyed tone
    std::vector<MorseWord> words;

    /// By the usual measure, the word of fifty dots.
    double wordsPerMinute() const { return dotSeconds > 0 ? 1.2 / dotSeconds : 0; }
};

/// Reads the keying of a tone from its levels. The length of a dot is found by itself, from 40 to 300 ms.
MorseText decodeMorse(const std::vector<float>& levels, double rateHz = ToneEnvelope::kRateHz);

/// What a beacon calls itself.
struct MorseIdent {
    std::string text;  ///< empty: none was heard
    size_t times = 0;
    bool whole = true;  ///< false: only ever heard at the beginning or the end
};

/// The word of two letters or more that was heard most often.
MorseIdent findIdent(const MorseText& text);

}  // namespace cli
