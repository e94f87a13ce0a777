// Reading Morse: the tone's envelope, the keying, and what a beacon calls itself.
#include "tools/morse.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <numbers>
#include <random>

namespace {

constexpr double kRate = 8000;

const std::map<char, std::string>& signs() {
    static const std::map<char, std::string> signs{
        {'A', ".-"},   {'C', "-.-."},  {'E', "."},     {'H', "...."},  {'I', ".."},  {'K', "-.-"},
        {'L', ".-.."}, {'M', "--"},    {'O', "---"},   {'Q', "--.-"},  {'S', "..."}, {'T', "-"},
        {'Y', "-.--"}, {'5', "....."}, {'0', "-----"}, {'?', ".-.-.-"}};
    return signs;
}

/// A keyed tone, over noise.
class Keyer {
 public:
    explicit Keyer(double dot, double toneHz = 1020, double noise = 0.01)
        : mdDot(dot), mdTone(toneHz), mcNoise(0, noise) {}

    Keyer& pause(double dots) { return key(false, dots); }
    Keyer& tone(double dots) { return key(true, dots); }
    Keyer& word(const std::string& text) {
        for (const char c : text) {
            for (const char cSign : signs().at(c))
                tone(cSign == '-' ? 3 : 1).pause(1);
            pause(2);
        }
        return *this;
    }
    const std::vector<float>& audio() const { return mlAudio; }

    cli::MorseText read(double listenHz = 1020) const {
        cli::ToneEnvelope envelope(kRate, listenHz);
        envelope.feed(mlAudio.data(), mlAudio.size());
        return cli::decodeMorse(envelope.levels());
    }

 private:
    Keyer& key(bool on, double dots) {
        const auto uCount = static_cast<size_t>(std::lround(dots * mdDot * kRate));
        for (size_t i = 0; i < uCount; ++i) {
            const double dPhase = 2 * std::numbers::pi * mdTone * static_cast<double>(mlAudio.size()) / kRate;
            mlAudio.push_back(static_cast<float>((on ? 0.1 * std::sin(dPhase) : 0) + mcNoise(mcRandom)));
        }
        return *this;
    }

    double mdDot, mdTone;
    std::normal_distribution<double> mcNoise;
    std::mt19937 mcRandom{7};
    std::vector<float> mlAudio;
};

std::vector<std::string> texts(const cli::MorseText& text) {
    std::vector<std::string> words;
    for (const cli::MorseWord& word : text.words)
        words.push_back(word.text);
    return words;
}

using Words = std::vector<std::string>;

}  // namespace

TEST(ToneEnvelope, TellsTheAmplitudeOfItsToneAndOfNoOther) {
    for (const double dHz : {1020.0, 720.0}) {
        std::vector<float> audio;
        for (int i = 0; i < 8000; ++i)
            audio.push_back(static_cast<float>(0.3 * std::cos(2 * std::numbers::pi * dHz * i / kRate)));
        cli::ToneEnvelope envelope(kRate, 1020);
        envelope.feed(audio.data(), 3000);
        envelope.feed(audio.data() + 3000, 5000);
        const std::vector<float> levels = envelope.levels();
        ASSERT_NEAR(static_cast<double>(levels.size()), cli::ToneEnvelope::kRateHz, 1);
        for (size_t i = 10; i + 10 < levels.size(); ++i)
            EXPECT_NEAR(static_cast<double>(levels[i]), dHz == 1020.0 ? 0.3 : 0.0, 0.003) << dHz << " " << i;
    }
}

TEST(ToneEnvelope, WhatIsNotANumberIsSilence) {
    std::vector<float> audio(4000, std::nanf(""));
    cli::ToneEnvelope envelope(kRate, 1020);
    envelope.feed(audio.data(), audio.size());
    for (const float fLevel : envelope.levels())
        EXPECT_EQ(fLevel, 0.0f);
}

TEST(Morse, WordsAreReadAtAnySpeed) {
    for (const double dDot : {0.06, 0.1, 0.12, 0.2, 0.28}) {
        const auto text = Keyer(dDot).pause(9).word("KLO").pause(20).word("KLO").pause(20).read();
        EXPECT_EQ(texts(text), (Words{"KLO", "KLO"})) << dDot;
        EXPECT_NEAR(text.dotSeconds, dDot, 0.06 * dDot);
        EXPECT_NEAR(text.wordsPerMinute(), 1.2 / dDot, 0.08 * 1.2 / dDot);
        ASSERT_EQ(text.words.size(), 2u);
        EXPECT_TRUE(text.words[0].whole && text.words[1].whole);
        EXPECT_NEAR(text.words[0].seconds, 9 * dDot, 0.02);
    }
}

TEST(Morse, WordsOfOneLengthOfSignAreNotTakenForTheOther) {
    EXPECT_EQ(texts(Keyer(0.12).pause(9).word("TMO").pause(20).read()), (Words{"TMO"}));
    EXPECT_EQ(texts(Keyer(0.12).pause(9).word("SHE").pause(20).read()), (Words{"SHE"}));
}

TEST(Morse, EveryKindOfSignIsRead) {
    EXPECT_EQ(texts(Keyer(0.1).pause(9).word("CQ50AY").pause(9).word("HIS").pause(9).read()),
              (Words{"CQ50AY", "HIS"}));
}

TEST(Morse, WhatIsNoLetterIsAQuestionMark) {
    EXPECT_EQ(texts(Keyer(0.1).pause(9).word("K?O").pause(9).read()), (Words{"K?O"}));
    EXPECT_EQ(texts(Keyer(0.1).pause(9).word("KLO").pause(9).tone(30).pause(9).read()), (Words{"KLO", "?"}));
}

TEST(Morse, AWordThatIsCutIsSaidToBe) {
    const auto text = Keyer(0.12).word("KLO").pause(9).word("KLO").pause(9).word("KL").read();
    EXPECT_EQ(texts(text), (Words{"KLO", "KLO", "KL"}));
    ASSERT_EQ(text.words.size(), 3u);
    EXPECT_FALSE(text.words[0].whole) << "it may have begun before";
    EXPECT_TRUE(text.words[1].whole);
    EXPECT_FALSE(text.words[2].whole) << "it may go on";
}

TEST(Morse, NoiseSilenceAndASteadyToneHaveNoWords) {
    EXPECT_TRUE(Keyer(0.1).pause(100).read().words.empty());
    EXPECT_TRUE(Keyer(0.1, 1020, 0).pause(100).read().words.empty());
    EXPECT_TRUE(Keyer(0.1).tone(100).read().words.empty());
    EXPECT_TRUE(Keyer(0.1).pause(50).tone(50).read().words.empty());
    EXPECT_TRUE(cli::decodeMorse({}).words.empty());
}

TEST(Morse, AnotherToneIsNotRead) {
    EXPECT_TRUE(Keyer(0.1, 400).pause(9).word("KLO").pause(9).read().words.empty());
    EXPECT_EQ(texts(Keyer(0.1, 400).pause(9).word("KLO").pause(9).read(400)), (Words{"KLO"}));
}

TEST(Morse, ItIsReadUnderStrongNoise) {
    // 17 dB in the bandwidth of the envelope, that is about 0 dB in that of speech.
    const auto text = Keyer(0.12, 1020, 0.07).pause(20).word("KLO").pause(20).word("KLO").pause(20).read();
    EXPECT_EQ(texts(text), (Words{"KLO", "KLO"}));
}

TEST(MorseIdent, TheMostFrequentWholeWordIsTheIdent) {
    cli::MorseText text;
    text.words = {{"KLOE", 0, false}, {"KLO", 1, true}, {"KLA", 2, true}, {"KLO", 3, true}, {"E", 4, true},
                  {"E", 5, true},     {"E", 6, true},   {"K?O", 7, true}, {"K?O", 8, true}, {"K?O", 9, true}};
    const auto ident = cli::findIdent(text);
    EXPECT_EQ(ident.text, "KLO");
    EXPECT_EQ(ident.times, 2u);
    EXPECT_TRUE(ident.whole);
}

TEST(MorseIdent, WithoutAWholeWordTheLongestPartStandsForIt) {
    cli::MorseText text;
    text.words = {{"LO", 0, false}, {"KLO", 1, false}, {"K", 2, false}};
    EXPECT_EQ(cli::findIdent(text).text, "KLO");
    EXPECT_FALSE(cli::findIdent(text).whole);
    text.words = {{"K", 0, true}, {"?", 1, true}};
    EXPECT_TRUE(cli::findIdent(text).text.empty());
}

TEST(MorseIdent, TheBeaconOfTheRealRecordingIsNamed) {
    const std::string path = std::string(VNK_SOURCE_DIR) + "/tests/data/am_vor_audio_47368.f32";
    std::ifstream file(path, std::ios::binary);
    if (!file)
        GTEST_SKIP() << path << " is not there";
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<float> audio(bytes.size() / sizeof(float));
    std::memcpy(audio.data(), bytes.data(), audio.size() * sizeof(float));
    // It begins within one ident and ends within the next: joined between two signs, it holds a whole one.
    constexpr double kBeaconRate = 1.8e6 / 38;
    const auto uFrom = static_cast<size_t>(0.42 * kBeaconRate),
               uCount = static_cast<size_t>(7.5 * kBeaconRate);
    ASSERT_GE(audio.size(), uFrom + uCount);
    cli::ToneEnvelope envelope(kBeaconRate, 1020);
    for (int i = 0; i < 2; ++i)
        envelope.feed(audio.data() + uFrom, uCount);
    const auto text = cli::decodeMorse(envelope.levels());
    EXPECT_NEAR(text.dotSeconds, 0.12, 0.01);
    const auto ident = cli::findIdent(text);
    EXPECT_EQ(ident.text, "KLO");
    EXPECT_EQ(ident.times, 1u);
    EXPECT_TRUE(ident.whole);
}
