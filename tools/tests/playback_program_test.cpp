// `vnk play`, `vnk file` and `vnk recover` on recordings that the tests wrote: no unit is needed.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "program.h"
#include "recordings.h"

using vnktest::contents;
using vnktest::Program;
using vnktest::Ran;
using vnktest::runVnk;

namespace {

constexpr uint64_t kStart = 1700000000000000000;

std::string describe(const std::string& type, const std::string& summary, const std::string& sampling) {
    return "{\r\n\t\"DataType\":\"" + type + "\",\r\n\t\"" + type + "\":{" + summary +
           "},\r\n\t\"Sampling\":{" + sampling + "}\r\n}";
}

class VnkPlayback : public ::testing::Test {
 protected:
    /// An IQ recording of so many frames of 10 ms.
    void makeIq(uint32_t frames) {
        const uint64_t uEnd = kStart + uint64_t{frames} * 10000000;
        vnktest::writeFile(stem() + ".data", vnktest::evenIq(frames, kStart));
        vnktest::writeFile(
            stem() + ".json",
            describe(
                "IQ",
                "\"StartTimestamp\":" + std::to_string(kStart) + ",\"EndTimestamp\":" + std::to_string(uEnd) +
                    ",\"Samples\":" + std::to_string(frames * 100) + ",\"TimeResolution\":\"ns\"",
                "\"FCentreHz\":98100000.000000,\"BandwidthHz\":8000.000000,\"SampleRateHz\":10000.000000,"
                "\"RefdBm\":-30.000000,\"units\":\"sqrt-mw\""));
    }

    /// Spectra of eight points, 10 ms each; the third point stands out.
    void makeSpectra(uint32_t frames) {
        std::string data;
        for (uint32_t u = 0; u < frames; ++u)
            data += vnktest::spectrumFrame(kStart + uint64_t{u} * 10000000, 10000000, u,
                                           {-100, -100, -40, -100, -100, -100, -100, -100});
        vnktest::writeFile(stem() + ".data", data);
        const uint64_t uEnd = kStart + uint64_t{frames} * 10000000;
        vnktest::writeFile(stem() + ".json",
                           describe("Spectrum",
                                    "\"StartTimestamp\":" + std::to_string(kStart) + ",\"EndTimestamp\":" +
                                        std::to_string(uEnd) + ",\"Frames\":" + std::to_string(frames) +
                                        ",\"PointsPerFrame\":8,\"TimeResolution\":\"ns\"",
                                    "\"FCentreHz\":100000000.000000,\"BandwidthHz\":8000000.000000,"
                                    "\"RBWHz\":1000000.000000,\"RefdBm\":0.000000,\"units\":\"dBm\","
                                    "\"WindowFn\":\"hann\""));
    }

    std::string stem() const { return mcFolder / "x"; }
    nlohmann::json fileJson(int code = 0) const {
        const Ran ran = runVnk({"file", stem(), "--json"});
        EXPECT_EQ(ran.code, code) << ran.err;
        return nlohmann::json::parse(ran.out);
    }

    vnktest::ScratchFolder mcFolder;
};

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST_F(VnkPlayback, IqPlaysAtItsPaceToItsEnd) {
    makeIq(50);
    const Ran ran = runVnk({"play", stem(), "--json", "-o", mcFolder / "out.cf32"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_EQ(json["samples"], 5000);
    EXPECT_EQ(json["gaps"], 0);
    EXPECT_EQ(json["recorded"]["referencedBm"], -30.0);
    // From the first frame to the last.
    EXPECT_GE(json["elapsedSeconds"], 0.45);
    EXPECT_EQ(contents(mcFolder / "out.cf32"), vnktest::iqSamples(contents(stem() + ".data")));
    EXPECT_TRUE(holds(ran.err, "start           2023-11-14 22:13:20.000000000 UTC")) << ran.err;
    EXPECT_TRUE(holds(ran.err, "Played 5000 samples, 0.500 s (complete), 0 gaps")) << ran.err;
}

TEST_F(VnkPlayback, GapsOfTheRecordingAreCounted) {
    makeIq(10);
    const std::string whole = contents(stem() + ".data");
    const size_t uFrame = whole.size() / 10;
    vnktest::writeFile(stem() + ".data", whole.substr(0, 4 * uFrame) + whole.substr(6 * uFrame));
    EXPECT_EQ(nlohmann::json::parse(runVnk({"play", stem(), "-q", "--json"}).out)["gaps"], 1);
    const auto found = fileJson();
    EXPECT_EQ(found["held"]["sequenceGaps"], 1);
    EXPECT_EQ(found["held"]["timeGaps"], 1);
    EXPECT_NEAR(found["held"]["missingSeconds"].get<double>(), 0.02, 1e-4);
    EXPECT_EQ(found["problems"][0], "the data hold 200 samples fewer than the description tells");
}

TEST_F(VnkPlayback, LoopingStartsOverWithoutCountingGaps) {
    makeIq(3);
    const Ran ran =
        runVnk({"play", stem(), "--loop", "--seconds", "0.1", "--json", "-o", mcFolder / "out.cf32"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["samples"], 1000);
    EXPECT_EQ(json["passes"], 4);
    EXPECT_EQ(json["gaps"], 0);
    const std::string once = vnktest::iqSamples(contents(stem() + ".data"));
    EXPECT_EQ(contents(mcFolder / "out.cf32"), once + once + once + once.substr(0, 800));
}

TEST_F(VnkPlayback, CtrlCEndsALoop) {
    makeIq(3);
    Program program(VNK_PROGRAM, {"play", stem(), "--loop", "--json"});
    ASSERT_TRUE(program.waitForErr("Playing")) << program.err();
    program.signal(SIGINT);
    EXPECT_EQ(program.finish(), 0) << program.err();
    EXPECT_EQ(nlohmann::json::parse(program.out())["ending"], "interrupted");
}

TEST_F(VnkPlayback, SamplesGoToStandardOutput) {
    makeIq(5);
    const Ran ran = runVnk({"play", stem(), "-q", "-o", "-"});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(ran.out, vnktest::iqSamples(contents(stem() + ".data")));
}

TEST_F(VnkPlayback, SpectraPlayToTheirEnd) {
    makeSpectra(20);
    const Ran ran = runVnk({"play", stem(), "--json"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["frames"], 20);
    EXPECT_EQ(json["points"], 8);
    EXPECT_EQ(json["gaps"], 0);
    // The third of eight points, of which the first and the last stand at 96 and 104 MHz.
    EXPECT_NEAR(json["spectrum"]["peakHz"].get<double>(), 96e6 + 2 * 8e6 / 7, 1);
    EXPECT_NEAR(json["spectrum"]["peakdBm"].get<double>(), -40, 1e-3);
    EXPECT_TRUE(holds(ran.err, "Played 20 frames of 8 points")) << ran.err;
    EXPECT_EQ(fileJson()["agree"], true);
    EXPECT_EQ(runVnk({"play", stem(), "-o", mcFolder / "out"}).code, 2);
    const Ran loop = runVnk({"play", stem(), "-q", "--loop", "--seconds", "0.3", "--json"});
    EXPECT_GT(nlohmann::json::parse(loop.out)["passes"], 1) << loop.out;
}

TEST_F(VnkPlayback, BasebandIsShownRecoveredAndPlayed) {
    vnktest::writeFile(stem() + ".data", vnktest::basebandFrame({{1, 2, 3}, {4, 5, 6}}) +
                                             vnktest::basebandFrame({{1, 2}, {3, 4}}));
    const Ran recover = runVnk({"recover", stem(), "--rate", "48k"});
    ASSERT_EQ(recover.code, 0) << recover.err;
    const auto found = fileJson();
    EXPECT_EQ(found["type"], "Baseband");
    EXPECT_EQ(found["recorded"]["channels"], 2);
    EXPECT_EQ(found["recorded"]["sampleRateHz"], 48000.0);
    EXPECT_EQ(found["held"]["samples"], 5);
    EXPECT_EQ(found["agree"], true) << found;
    const Ran play = runVnk({"play", stem()});
    EXPECT_EQ(play.code, 0) << play.err;
    EXPECT_TRUE(holds(play.err, "Played 5 samples")) << play.err;
    EXPECT_TRUE(holds(play.err, "The first of 2 channels; vnk wav takes all of them")) << play.err;
}

TEST_F(VnkPlayback, WhatCannotBePlayedIsExitCode7) {
    EXPECT_TRUE(holds(runVnk({"play", stem()}).err, "there is no such recording"));
    makeIq(2);
    const std::string description = contents(stem() + ".json");
    vnktest::writeFile(stem() + ".json", description.substr(0, 100));
    const Ran damaged = runVnk({"play", stem()});
    EXPECT_EQ(damaged.code, 7);
    EXPECT_TRUE(holds(damaged.err, "x.json: not understood")) << damaged.err;
    vnktest::writeFile(stem() + ".json", description);
    std::filesystem::remove(stem() + ".data");
    const Ran missing = runVnk({"play", stem()});
    EXPECT_EQ(missing.code, 7) << missing.err;
    ASSERT_EQ(::mkfifo((stem() + ".data").c_str(), 0600), 0);
    for (const char* pVerb : {"play", "file", "recover"})
        EXPECT_EQ(runVnk({pVerb, stem()}).code, 7) << pVerb;
    std::filesystem::remove(stem() + ".data");
    std::filesystem::create_directory(stem() + ".data");
    for (const char* pVerb : {"play", "file", "recover"})
        EXPECT_EQ(runVnk({pVerb, stem()}).code, 7) << pVerb;
}

TEST_F(VnkPlayback, FileShowsWhatIsThere) {
    makeIq(4);
    const Ran ran = runVnk({"file", stem()});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(ran.err, "");
    for (const char* pPart :
         {"type            IQ\n", "centre          98.1 MHz\n", "sample rate     10 kS/s\n",
          "reference       -30.0 dBm\n", "start           2023-11-14 22:13:20.000000000 UTC\n",
          "duration        0.040 s\n", "frames          4 frames of 100 samples\n",
          "gaps            none in sequence, none in time\n",
          "state           good: description and data agree\n"})
        EXPECT_TRUE(holds(ran.out, pPart)) << pPart << ran.out;
}

TEST_F(VnkPlayback, FileShowsDataWithoutADescription) {
    makeIq(4);
    std::filesystem::remove(stem() + ".json");
    const Ran ran = runVnk({"file", stem()});
    EXPECT_EQ(ran.code, 7);
    EXPECT_TRUE(holds(ran.out, "sample rate     10 kS/s by the frames' times")) << ran.out;
    EXPECT_TRUE(holds(ran.err, "vnk recover " + stem() + ".data")) << ran.err;
    EXPECT_EQ(fileJson(7)["described"], false);
}

TEST_F(VnkPlayback, ACutRecordingIsRecoveredUpToItsLastWholeFrame) {
    makeIq(10);
    const std::string whole = contents(stem() + ".data");
    vnktest::writeFile(stem() + ".json", "");
    vnktest::writeFile(stem() + ".data", whole.substr(0, whole.size() - 1));
    const Ran ran = runVnk({"recover", stem() + ".data"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(holds(ran.out, "Left alone: the last frame, 819 bytes at byte 7380, is cut off")) << ran.out;
    for (const char* pAssumed : {"sample rate: 10 kS/s, by the times of 9 frames", "centre: 0 Hz (--fcentre)",
                                 "bandwidth: 10 kHz (--bandwidth)", "units: sqrt-mw (--units)"})
        EXPECT_TRUE(holds(ran.out, pAssumed)) << pAssumed << ran.out;
    EXPECT_EQ(contents(stem() + ".data").size(), whole.size() - 1);
    const auto played = nlohmann::json::parse(runVnk({"play", stem(), "-q", "--json"}).out);
    EXPECT_EQ(played["samples"], 900);
    EXPECT_EQ(fileJson()["held"]["trailingBytes"], 819);
}

TEST_F(VnkPlayback, RecoveredSpectraPlay) {
    makeSpectra(5);
    const std::string lost = contents(stem() + ".json");
    std::filesystem::copy(stem() + ".data", mcFolder / "y.data");
    ASSERT_EQ(runVnk({"recover", mcFolder / "y", "--like", stem()}).code, 0);
    const auto played = nlohmann::json::parse(runVnk({"play", mcFolder / "y", "-q", "--json"}).out);
    EXPECT_EQ(played["frames"], 5);
    EXPECT_EQ(played["recorded"]["window"], "hann");
    EXPECT_EQ(played["recorded"]["rbwHz"], 1e6);
    std::filesystem::remove(mcFolder / "y.json");
    ASSERT_EQ(runVnk({"recover", mcFolder / "y", "--fcentre", "100M", "--bandwidth", "8M"}).code, 0);
    EXPECT_EQ(runVnk({"play", mcFolder / "y", "-q"}).code, 0);
}

TEST_F(VnkPlayback, RecoverNeverOverwritesADescription) {
    makeIq(2);
    const std::string good = contents(stem() + ".json");
    const Ran needless = runVnk({"recover", stem()});
    EXPECT_EQ(needless.code, 7);
    EXPECT_TRUE(holds(needless.err, "is there and good")) << needless.err;
    EXPECT_EQ(contents(stem() + ".json"), good);
    vnktest::writeFile(stem() + ".json", "notes of mine");
    const Ran foreign = runVnk({"recover", stem()});
    EXPECT_EQ(foreign.code, 7);
    EXPECT_TRUE(holds(foreign.err, "nothing is overwritten")) << foreign.err;
    EXPECT_EQ(contents(stem() + ".json"), "notes of mine");
}

TEST_F(VnkPlayback, WhatCannotBeRecoveredMakesNoFile) {
    vnktest::writeFile(stem() + ".data", "");
    EXPECT_EQ(runVnk({"recover", stem()}).code, 7);
    vnktest::writeFile(stem() + ".data", "no frames at all");
    EXPECT_EQ(runVnk({"recover", stem()}).code, 7);
    vnktest::writeFile(stem() + ".data", vnktest::evenIq(1).substr(0, 100));
    EXPECT_EQ(runVnk({"recover", stem()}).code, 7);
    vnktest::writeFile(stem() + ".data", vnktest::evenIq(1));
    const Ran rateless = runVnk({"recover", stem()});
    EXPECT_EQ(rateless.code, 2);
    EXPECT_TRUE(holds(rateless.err, "--rate")) << rateless.err;
    EXPECT_EQ(runVnk({"recover", stem(), "--like", mcFolder / "nothing"}).code, 7);
    EXPECT_FALSE(vnktest::fileExists(stem() + ".json"));
}

TEST_F(VnkPlayback, AReferenceToTheWrongKindIsRefused) {
    makeSpectra(2);
    vnktest::writeFile(mcFolder / "y.data", vnktest::evenIq(3));
    const Ran ran = runVnk({"recover", mcFolder / "y", "--like", stem()});
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(holds(ran.err, "describes Spectrum, the data are IQ")) << ran.err;
}

TEST_F(VnkPlayback, TheRecordingItselfIsNoPlaceForItsSamples) {
    makeIq(2);
    const std::string whole = contents(stem() + ".data");
    EXPECT_EQ(runVnk({"play", stem(), "-o", stem() + ".data"}).code, 2);
    EXPECT_EQ(contents(stem() + ".data"), whole);
}
