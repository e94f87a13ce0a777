// Recordings of audio: made by `vnk demod`, played by `vnk play`, turned into WAV files by `vnk wav`.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "program.h"
#include "signals.h"

using vnktest::audioOf;
using vnktest::contents;
using vnktest::holds;
using vnktest::Ran;
using vnktest::runVnk;

namespace {

class VnkBaseband : public ::testing::Test {
 protected:
    void describe(double rate) {
        vnktest::writeFile(
            stem() + ".json",
            "{\r\n\t\"DataType\":\"Baseband\",\r\n\t\"Baseband\":{\"StartTimestamp\":" +
                std::to_string(vnktest::kSignalStart) +
                ",\"EndTimestamp\":0,\"Samples\":0,\"TimeResolution\":\"ns\"},\r\n\t\"Sampling\":"
                "{\"BandwidthHz\":8000.000000,\"SampleRateHz\":" +
                std::to_string(rate) + "}\r\n}");
    }
    /// A tone of 440 Hz at half of full scale, in frames of 500 samples.
    void makeTone(uint32_t frames, double rate = 16000) {
        std::string data;
        for (uint32_t u = 0; u < frames; ++u) {
            std::vector<float> samples;
            for (uint32_t i = 0; i < 500; ++i)
                samples.push_back(
                    static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * 440 * (u * 500 + i) / rate)));
            data += vnktest::basebandFrame({samples});
        }
        vnktest::writeFile(stem() + ".data", data);
        describe(rate);
    }
    std::string stem() const { return mcFolder / "x"; }
    std::string wav() const { return mcFolder / "x.wav"; }

    vnktest::ScratchFolder mcFolder;
};

}  // namespace

TEST_F(VnkBaseband, AWavFileHoldsAllSamplesOfTheRecording) {
    makeTone(64);
    const Ran ran = runVnk({"wav", stem(), "-o", wav(), "--json"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const std::string bytes = contents(wav());
    EXPECT_EQ(vnktest::rateOfWav(bytes), 16000u);
    const auto audio = audioOf(bytes);
    ASSERT_EQ(audio.size(), 32000u);
    for (size_t i = 0; i < audio.size(); ++i)
        ASSERT_NEAR(audio[i], 0.5 * std::sin(2 * std::numbers::pi * 440 * static_cast<double>(i) / 16000),
                    2e-5);
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["samples"], 32000);
    EXPECT_EQ(json["bytes"], bytes.size());
    EXPECT_TRUE(holds(ran.err, "Converted 32000 samples, 2.000 s at 16 kS/s")) << ran.err;
    const Ran raw = runVnk({"wav", stem() + ".data", "-o", "-", "-q"});
    EXPECT_EQ(raw.err, "");
    EXPECT_TRUE(audioOf(raw.out) == audio);
}

TEST_F(VnkBaseband, ChannelsTakeTurns) {
    vnktest::writeFile(stem() + ".data", vnktest::basebandFrame({{0.1f, 0.2f}, {-0.1f, -0.2f}}) +
                                             vnktest::basebandFrame({{0.3f}, {-0.3f}}));
    describe(8000);
    ASSERT_EQ(runVnk({"wav", stem(), "-o", wav()}).code, 0);
    const auto audio = audioOf(contents(wav()));
    const std::vector<double> expected{0.1, -0.1, 0.2, -0.2, 0.3, -0.3};
    ASSERT_EQ(audio.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(audio[i], expected[i], 2e-5);
}

TEST_F(VnkBaseband, GainAndNormalisingChangeTheLevel) {
    makeTone(8);
    ASSERT_EQ(runVnk({"wav", stem(), "-o", wav(), "--gain", "-6.0206"}).code, 0);
    EXPECT_NEAR(vnktest::amplitudeOf(audioOf(contents(wav())), 16000, 440), 0.25, 0.002);
    ASSERT_EQ(runVnk({"wav", stem(), "-o", wav(), "--normalise"}).code, 0);
    const auto audio = audioOf(contents(wav()));
    EXPECT_NEAR(*std::max_element(audio.begin(), audio.end()), 0.89, 0.001);
    const Ran loud = runVnk({"wav", stem(), "-o", wav(), "--gain", "12", "--json"});
    EXPECT_GT(nlohmann::json::parse(loud.out)["clipped"], 100);
    EXPECT_EQ(runVnk({"wav", stem(), "-o", wav(), "--gain", "1", "--normalise"}).code, 2);
}

TEST_F(VnkBaseband, WhatIsNoAudioMakesNoWavFile) {
    vnktest::writeIq(stem(), 8000, 1, 1e6, 6e3, [](double) { return 0.1; });
    const Ran iq = runVnk({"wav", stem(), "-o", wav()});
    EXPECT_EQ(iq.code, 7);
    EXPECT_TRUE(holds(iq.err, "holds IQ and no audio\n  make audio of IQ with:  vnk demod")) << iq.err;
    EXPECT_EQ(runVnk({"wav", mcFolder / "nothing", "-o", wav()}).code, 7);
    vnktest::writeFile(stem() + ".data", "no frames at all");
    describe(8000);
    EXPECT_EQ(runVnk({"wav", stem(), "-o", wav()}).code, 7);
    EXPECT_FALSE(vnktest::fileExists(wav()));
    EXPECT_EQ(runVnk({"wav", stem()}).code, 2);
    EXPECT_EQ(runVnk({"wav", stem(), "-o", stem() + ".data"}).code, 2);
}

TEST_F(VnkBaseband, ARecordingThatIsCutIsConvertedAsFarAsItGoes) {
    makeTone(8);
    const std::string whole = contents(stem() + ".data");
    vnktest::writeFile(stem() + ".data", whole.substr(0, whole.size() - 100));
    const Ran ran = runVnk({"wav", stem(), "-o", wav()});
    EXPECT_EQ(ran.code, 0);
    EXPECT_EQ(audioOf(contents(wav())).size(), 3500u);
    EXPECT_TRUE(holds(ran.err, "does not end with a whole frame")) << ran.err;
}

TEST_F(VnkBaseband, APlayedRecordingComesWholeAndIsShown) {
    makeTone(64);
    const Ran ran = runVnk({"play", stem(), "-o", wav(), "--json"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_EQ(json["samples"], 32000);
    EXPECT_EQ(json["lost"], 0);
    EXPECT_NEAR(json["strongest"]["frequencyHz"].get<double>(), 440, 16);
    EXPECT_NEAR(json["strongest"]["dBFS"].get<double>(), -6, 1.5);
    EXPECT_EQ(audioOf(contents(wav())).size(), 32000u);
    EXPECT_TRUE(holds(ran.err, "Playing " + stem() + ": Baseband")) << ran.err;
    EXPECT_TRUE(holds(ran.err, "Played 32000 samples, 2.000 s (complete)")) << ran.err;
    const Ran part = runVnk({"play", stem(), "--seconds", "0.5", "--json"});
    EXPECT_EQ(nlohmann::json::parse(part.out)["samples"], 8000);
    EXPECT_EQ(runVnk({"play", stem(), "--loop"}).code, 2);
    EXPECT_EQ(runVnk({"play", stem(), "--detect", "am"}).code, 2);
}

TEST_F(VnkBaseband, WhatWasRecordedWhileDemodulatingIsWhatIsHeard) {
    vnktest::writeIq(mcFolder / "iq", 48000, 10, 1e6, 40e3,
                     [](double t) { return 0.01 * (1 + 0.5 * std::sin(2 * std::numbers::pi * 700 * t)); });
    const Ran ran =
        runVnk({"demod", "am", mcFolder / "iq", "--rate", "16k", "--record", stem(), "-o", wav()});
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(holds(ran.err, "Recorded: " + stem() + ".json and .data")) << ran.err;
    const auto heard = audioOf(contents(wav()));
    ASSERT_GT(heard.size(), 10000u);
    ASSERT_EQ(runVnk({"wav", stem(), "-o", wav(), "--gain", "-3.0980"}).code, 0);
    const auto recorded = audioOf(contents(wav()));
    ASSERT_EQ(recorded.size(), heard.size());
    for (size_t i = 0; i < heard.size(); ++i)
        ASSERT_NEAR(recorded[i], heard[i], 2e-4) << i;
    const auto json = nlohmann::json::parse(runVnk({"file", stem(), "--json"}).out);
    EXPECT_EQ(json["held"]["samples"], heard.size());
}
