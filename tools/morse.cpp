#include "tools/morse.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numbers>

namespace cli {

namespace {

constexpr std::array<std::pair<const char*, char>, 36> kSigns{
    {{".-", 'A'},    {"-...", 'B'},  {"-.-.", 'C'},  {"-..", 'D'},   {".", 'E'},     {"..-.", 'F'},
     {"--.", 'G'},   {"....", 'H'},  {"..", 'I'},    {".---", 'J'},  {"-.-", 'K'},   {".-..", 'L'},
     {"--", 'M'},    {"-.", 'N'},    {"---", 'O'},   {".--.", 'P'},  {"--.-", 'Q'},  {".-.", 'R'},
     {"...", 'S'},   {"-", 'T'},     {"..-", 'U'},   {"...-", 'V'},  {".--", 'W'},   {"-..-", 'X'},
     {"-.--", 'Y'},  {"--..", 'Z'},  {"-----", '0'}, {".----", '1'}, {"..---", '2'}, {"...--", '3'},
     {"....-", '4'}, {".....", '5'}, {"-....", '6'}, {"--...", '7'}, {"---..", '8'}, {"----.", '9'}}};

constexpr int kSmoothing = 4;  // blocks on each side

// Parts of the strong level: between them the key stays as it is.
constexpr float kOn = 0.55f, kOff = 0.45f;
// Noise alone lies at a third of its own strongest, see the Rayleigh distribution.
constexpr float kQuiet = 0.2f;

constexpr double kShortestDot = 0.04, kLongestDot = 0.3, kGlitch = 0.02;
// In dots: between 1 and 3, between 3 and 7, and beyond any dash.
constexpr double kDashFrom = 1.8, kLetterFrom = 1.8, kWordFrom = 5, kSteadyFrom = 6;
constexpr size_t kFewestSigns = 3;

char letterOf(const std::string& signs) {
    for (const auto& [pSigns, cLetter] : kSigns)
        if (signs == pSigns)
            return cLetter;
    return '?';
}

/// A time with the key down, or up.
struct Run {
    bool on;
    double begin, end;  ///< seconds
    double length() const { return end - begin; }
};

float strongLevel(std::vector<float> levels) {
    // A beacon may key for little of its time.
    const auto at = levels.begin() + static_cast<std::ptrdiff_t>(levels.size() - 1 - levels.size() / 50);
    std::nth_element(levels.begin(), at, levels.end());
    return *at;
}

bool isKeyed(const std::vector<float>& levels, float strong) {
    std::vector<float> quiet;
    std::copy_if(levels.begin(), levels.end(), std::back_inserter(quiet),
                 [strong](float level) { return level < strong * kOff; });
    if (quiet.empty() || !(strong > 0))
        return false;
    const auto middle = quiet.begin() + static_cast<std::ptrdiff_t>(quiet.size() / 2);
    std::nth_element(quiet.begin(), middle, quiet.end());
    return *middle < strong * kQuiet;
}

/// What is too short for a sign or a pause belongs to what is around it.
std::vector<Run> withoutGlitches(const std::vector<Run>& runs) {
    std::vector<Run> kept;
    for (const Run& run : runs)
        if (!kept.empty() && (run.length() < kGlitch || kept.back().on == run.on))
            kept.back().end = run.end;
        else
            kept.push_back(run);
    return kept;
}

std::vector<Run> keying(const std::vector<float>& levels, float strong, double rateHz) {
    std::vector<Run> runs;
    bool bOn = false;
    for (size_t i = 0; i < levels.size(); ++i) {
        bOn = levels[i] > strong * (bOn ? kOff : kOn);
        const double dBegin = static_cast<double>(i) / rateHz, dEnd = static_cast<double>(i + 1) / rateHz;
        if (runs.empty() || runs.back().on != bOn)
            runs.push_back({bOn, dBegin, dEnd});
        else
            runs.back().end = dEnd;
    }
    return withoutGlitches(runs);
}

/// How badly a length fits one or three dots.
double misfit(double length, double dot) {
    constexpr double kMost = 0.5;
    return std::min({std::abs(std::log(length / dot)), std::abs(std::log(length / (3 * dot))), kMost});
}

struct Fit {
    double dot = 0, misfit = 1e300;
};

/// The length that signs and the pauses between them fit best, within limits.
Fit findDot(const std::vector<Run>& runs, double shortest, double longest) {
    Fit best;
    for (double dDot = shortest; dDot <= longest; dDot *= 1.01) {
        double dSum = 0;
        for (const Run& run : runs)
            if (run.on || run.length() < kWordFrom * dDot)
                dSum += misfit(run.length(), dDot);
        if (dSum < best.misfit)
            best = {dDot, dSum};
    }
    return best;
}

double findDot(const std::vector<Run>& runs) {
    const Fit best = findDot(runs, kShortestDot, kLongestDot);
    // Dots alone fit as dashes too, with pauses three times as long.
    const Fit longer = findDot(runs, best.dot * 2.7, std::min(best.dot * 3.3, kLongestDot));
    const double dSlack = 0.02 * static_cast<double>(runs.size());
    return longer.misfit <= 1.5 * best.misfit + dSlack ? longer.dot : best.dot;
}

/// Puts letters and words together, sign by sign.
class Reading {
 public:
    explicit Reading(double dot) : mdDot(dot) {}

    void take(const Run& run) {
        const double dDots = run.length() / mdDot;
        if (run.on)
            key(run, dDots);
        else
            pause(dDots);
    }

    std::vector<MorseWord> words() && {
        endWord(false);
        return std::move(mlWords);
    }

 private:
    void key(const Run& run, double dots) {
        if (mcWord.text.empty() && mcSigns.empty()) {
            mcWord.seconds = run.begin;
            mcWord.whole = mbPaused;
        }
        mcSigns += dots >= kSteadyFrom ? '?' : dots >= kDashFrom ? '-' : '.';
    }

    void pause(double dots) {
        if (dots >= kLetterFrom)
            endLetter();
        if (dots >= kWordFrom) {
            endWord(true);
            mbPaused = true;
        }
    }

    void endLetter() {
        if (!mcSigns.empty())
            mcWord.text += letterOf(mcSigns);
        mcSigns.clear();
    }

    void endWord(bool heardItsEnd) {
        endLetter();
        if (!mcWord.text.empty()) {
            mcWord.whole = mcWord.whole && heardItsEnd;
            mlWords.push_back(mcWord);
        }
        mcWord = {};
    }

    double mdDot;
    bool mbPaused = false;  ///< a pause between words was heard before
    std::string mcSigns;
    MorseWord mcWord;
    std::vector<MorseWord> mlWords;
};

}  // namespace

ToneEnvelope::ToneEnvelope(double sampleRateHz, double toneHz)
    : mcTurn(std::polar(1.0, -2 * std::numbers::pi * toneHz / sampleRateHz)),
      mdPerBlock(sampleRateHz / kRateHz),
      mdBlockEnd(mdPerBlock) {}

void ToneEnvelope::feed(const float* samples, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (std::isfinite(samples[i]))
            mcSum += mcPhasor * static_cast<double>(samples[i]);
        ++muInSum;
        mcPhasor *= mcTurn;
        mdAt += 1;
        if (mdAt < mdBlockEnd)
            continue;
        // Twice: a real tone has half of its amplitude at its negative frequency.
        mlBlocks.emplace_back(mcSum * (2.0 / static_cast<double>(muInSum)));
        mcPhasor /= std::abs(mcPhasor);
        mcSum = 0;
        muInSum = 0;
        mdBlockEnd += mdPerBlock;
    }
}

std::vector<float> ToneEnvelope::levels() const {
    std::array<float, 2 * kSmoothing + 1> weights{};
    float fTotal = 0;
    for (size_t i = 0; i < weights.size(); ++i) {
        const double dAngle = std::numbers::pi * static_cast<double>(i + 1) / (weights.size() + 1);
        weights[i] = static_cast<float>(std::sin(dAngle) * std::sin(dAngle));
        fTotal += weights[i];
    }
    std::vector<float> levels;
    levels.reserve(mlBlocks.size());
    for (size_t i = 0; i < mlBlocks.size(); ++i) {
        std::complex<float> sum;
        for (size_t k = 0; k < weights.size(); ++k)
            if (i + k >= kSmoothing && i + k - kSmoothing < mlBlocks.size())
                sum += mlBlocks[i + k - kSmoothing] * weights[k];
        levels.push_back(std::abs(sum) / fTotal);
    }
    return levels;
}

MorseText decodeMorse(const std::vector<float>& levels, double rateHz) {
    if (levels.empty())
        return {};
    const float fStrong = strongLevel(levels);
    if (!isKeyed(levels, fStrong))
        return {};
    const std::vector<Run> runs = keying(levels, fStrong, rateHz);
    const auto uSigns = std::count_if(runs.begin(), runs.end(), [](const Run& run) { return run.on; });
    if (uSigns < static_cast<std::ptrdiff_t>(kFewestSigns))
        return {};
    MorseText text;
    text.dotSeconds = findDot(runs);
    Reading reading(text.dotSeconds);
    for (const Run& run : runs)
        reading.take(run);
    text.words = std::move(reading).words();
    return text;
}

MorseIdent findIdent(const MorseText& text) {
    for (const bool bWhole : {true, false}) {
        std::map<std::string, size_t> heard;
        for (const MorseWord& word : text.words)
            if (word.whole == bWhole && word.text.size() > 1 && word.text.find('?') == std::string::npos)
                ++heard[word.text];
        MorseIdent best{{}, 0, bWhole};
        for (const auto& [word, uTimes] : heard)
            // What was cut lacks letters: the longer one is nearer to the truth.
            if (bWhole ? uTimes > best.times : word.size() > best.text.size())
                best = {word, uTimes, bWhole};
        if (!best.text.empty())
            return best;
    }
    return {};
}

}  // namespace cli
