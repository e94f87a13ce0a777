// `vnk iq` against simulated units: samples, levels, endings and exit codes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "program.h"
#include "simulator/unit.h"
#include "support/loopback.h"

using vnktest::Program;
using vnktest::Ran;
using vnktest::runVnk;

namespace {

/// One unit whose antenna sees a tone of -40 dBm at 98.12 MHz over noise, and an AM station.
class VnkIq : public ::testing::Test {
 protected:
    VnkIq() {
        vnksim::UnitOptions options;
        options.address = mcAddress;
        vnksim::Scene scene;
        scene.noise(-130).tone(98.12e6, -40);
        scene.add(vnksim::AmStation{118.1e6, -45, {{600, 0.4}, {1700, 0.2}}});
        mpUnit = std::make_unique<vnksim::Unit>(options, scene);
        mpUnit->start();
    }

    std::vector<std::string> command(std::vector<std::string> further) const {
        std::vector<std::string> arguments{"iq", mcAddress, "--fcentre", "98.1M", "--ifbw", "200k"};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return arguments;
    }

    /// A file of this test only.
    std::string scratch(const std::string& name) const {
        return ::testing::TempDir() + "vnk-" + std::to_string(::getpid()) + "-" + name;
    }

    std::string mcAddress = vnktest::uniqueLoopback();
    std::unique_ptr<vnksim::Unit> mpUnit;
};

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// Largest magnitude in dBm of interleaved 32-bit floats.
double peakDbm(const std::string& bytes) {
    float fPeak = 0;
    for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
        float iq[2];
        std::memcpy(iq, bytes.data() + i, sizeof iq);
        fPeak = std::max(fPeak, iq[0] * iq[0] + iq[1] * iq[1]);
    }
    return 10 * std::log10(static_cast<double>(fPeak));
}

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST_F(VnkIq, TheFileHoldsExactlyTheSecondsAskedAndTheRightLevel) {
    const std::string path = scratch("tone.cf32");
    const Ran ran = runVnk(command({"--seconds", "0.5", "-o", path, "--json"}));
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_EQ(json["realised"]["sampleRateHz"], 244140.625);
    EXPECT_EQ(json["samples"], 122071);
    EXPECT_EQ(json["bytes"], 122071 * 8);
    EXPECT_EQ(json["gaps"], 0);
    EXPECT_NEAR(json["level"]["meandBm"].get<double>(), -40, 0.1);
    EXPECT_NEAR(json["spectrum"]["peakHz"].get<double>(), 98.12e6, json["spectrum"]["binHz"].get<double>());
    EXPECT_NEAR(json["spectrum"]["floordBmPerHz"].get<double>(), -130, 0.5);
    const std::string bytes = contents(path);
    EXPECT_EQ(bytes.size(), 122071u * 8);
    EXPECT_NEAR(peakDbm(bytes), json["level"]["peakdBm"].get<double>(), 1e-3);
    std::filesystem::remove(path);
}

TEST_F(VnkIq, AskedAndRealisedProgressSpectrumAndSummaryGoToStandardError) {
    const Ran ran = runVnk(command({"--seconds", "1.5"}));
    EXPECT_EQ(ran.code, 0);
    EXPECT_EQ(ran.out, "");
    for (const char* part :
         {"asked", "realised", "244.140625 kS/s", "Msps", "0 gaps", "dBFS", "98.1 MHz", "Captured"})
        EXPECT_TRUE(holds(ran.err, part)) << part << "\n" << ran.err;
}

TEST_F(VnkIq, QuietSaysNothing) {
    const Ran ran = runVnk(command({"--seconds", "0.2", "-q"}));
    EXPECT_EQ(ran.code, 0);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.err, "");
}

TEST_F(VnkIq, StandardOutputCarriesSamplesAndNothingElse) {
    const Ran ran = runVnk(command({"--seconds", "0.25", "-o", "-", "--detect", "am"}));
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(ran.out.size(), 61036u * 8);
    EXPECT_NEAR(peakDbm(ran.out), -40, 0.5);
    EXPECT_TRUE(holds(ran.err, "Tones of the AM envelope")) << ran.err;
}

TEST_F(VnkIq, CalibrationShiftsAllLevels) {
    const Ran ran = runVnk(command({"--seconds", "0.2", "--cal", "3dB", "--json"}));
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_NEAR(nlohmann::json::parse(ran.out)["level"]["meandBm"].get<double>(), -37, 0.1);
}

TEST_F(VnkIq, AFiniteCaptureIsEndedByTheUnit) {
    const Ran ran = runVnk(command({"--seconds", "0.5", "--finite", "--json"}));
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_GE(json["realised"]["seconds"], 0.5);
}

TEST_F(VnkIq, AmTonesAreFound) {
    const Ran ran = runVnk({"iq", mcAddress, "--fcentre", "118.1M", "--ifbw", "100k", "--seconds", "1",
                            "--detect", "am", "--json"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto tones = nlohmann::json::parse(ran.out)["detected"]["tones"];
    ASSERT_GE(tones.size(), 2u) << ran.out;
    EXPECT_NEAR(tones[0]["frequencyHz"].get<double>(), 600, 0.5);
    EXPECT_NEAR(tones[0]["amplitude"].get<double>(), 0.4, 0.01);
    EXPECT_NEAR(tones[1]["frequencyHz"].get<double>(), 1700, 0.5);
    EXPECT_NEAR(tones[1]["amplitude"].get<double>(), 0.2, 0.01);
}

TEST_F(VnkIq, ModeSFramesOfARecordingAreFound) {
    vnksim::Scene scene;
    scene.noise(-150).add(vnksim::Recording{
        1090e6, -40, vnksim::readRecording(std::string(VNK_TEST_DATA) + "/adsb_1090_2m.cu8", "cu8", 2e6)});
    mpUnit->setScene(scene);
    const Ran ran = runVnk({"iq", mcAddress, "--fcentre", "1090M", "--ifbw", "2M", "--seconds", "0.5",
                            "--detect", "modes", "--json"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto found = nlohmann::json::parse(ran.out)["detected"];
    // The recording of 0.178 s holds about 214 frames that a plain decoder finds, all of one aircraft.
    EXPECT_GT(found["format17"], 200) << ran.out;
    EXPECT_GT(found["format11"], 100) << ran.out;
    ASSERT_EQ(found["aircraft"].size(), 1u) << ran.out;
    EXPECT_EQ(found["aircraft"][0]["address"], "4D2023");
}

TEST_F(VnkIq, ModeSNeedsItsSampleRate) {
    const Ran ran = runVnk(command({"--seconds", "1", "--detect", "modes"}));
    EXPECT_EQ(ran.code, 2);
    EXPECT_TRUE(holds(ran.err, "1.7 MHz")) << ran.err;
}

TEST_F(VnkIq, LostSamplesAreCountedAsAGap) {
    Program program(VNK_PROGRAM, command({"--seconds", "3", "--json"}));
    ASSERT_TRUE(program.waitForErr("realised"));
    mpUnit->faults().change([](vnksim::FaultSettings& faults) { faults.loseSamplesOnce = 5000; });
    ASSERT_EQ(program.finish(), 0) << program.err();
    EXPECT_EQ(nlohmann::json::parse(program.out())["gaps"], 1) << program.err();
}

TEST_F(VnkIq, CtrlCEndsWithTheSummary) {
    for (const int iSignal : {SIGINT, SIGTERM}) {
        Program program(VNK_PROGRAM, command({"--seconds", "0", "--json"}));
        ASSERT_TRUE(program.waitForErr("realised")) << program.err();
        program.signal(iSignal);
        EXPECT_EQ(program.finish(), 0) << program.err();
        EXPECT_EQ(nlohmann::json::parse(program.out())["ending"], "interrupted");
        EXPECT_TRUE(holds(program.err(), "(interrupted)")) << program.err();
    }
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
}

TEST_F(VnkIq, AReaderThatHasSeenEnoughEndsItCleanly) {
    Program program(VNK_PROGRAM, command({"--seconds", "0", "-o", "-"}));
    ASSERT_TRUE(program.waitForOut(100000)) << program.err();
    program.closeOut();
    EXPECT_EQ(program.finish(), 0) << program.err();
    EXPECT_TRUE(holds(program.err(), "(reader gone)")) << program.err();
}

TEST_F(VnkIq, FileTroubleIsExitCode7) {
    const Ran missing = runVnk(command({"--seconds", "0.2", "-o", "/nowhere/at/all.cf32"}));
    EXPECT_EQ(missing.code, 7);
    EXPECT_TRUE(holds(missing.err, "/nowhere/at/all.cf32: ")) << missing.err;
    const Ran full = runVnk(command({"--seconds", "0.2", "-o", "/dev/full"}));
    EXPECT_EQ(full.code, 7) << full.err;
}

TEST_F(VnkIq, AUnitThatFallsSilentIsExitCode5) {
    Program program(VNK_PROGRAM, command({"--seconds", "0", "--json"}));
    ASSERT_TRUE(program.waitForErr("realised")) << program.err();
    mpUnit->faults().change([](vnksim::FaultSettings& faults) { faults.silent = true; });
    EXPECT_EQ(program.finish(), 5) << program.err();
    EXPECT_EQ(nlohmann::json::parse(program.out())["ending"], "link lost");
}

TEST_F(VnkIq, AUnitThatDisappearsIsExitCode5) {
    Program program(VNK_PROGRAM, command({"--seconds", "0", "--json"}));
    ASSERT_TRUE(program.waitForErr("realised")) << program.err();
    mpUnit->stop();
    EXPECT_EQ(program.finish(), 5) << program.err();
    EXPECT_GT(nlohmann::json::parse(program.out())["samples"], 0);
}

TEST_F(VnkIq, AUnitThatSendsNothingValidIsExitCode1) {
    mpUnit->faults().change([](vnksim::FaultSettings& faults) { faults.identifierMissing = true; });
    const Ran ran = runVnk(command({"--seconds", "1", "--json"}));
    EXPECT_EQ(ran.code, 1) << ran.err;
    EXPECT_EQ(nlohmann::json::parse(ran.out)["ending"], "no data");
}

TEST_F(VnkIq, ARefusedRequestIsExitCode1WithItsReason) {
    const Ran ran = runVnk({"iq", mcAddress, "--fcentre", "60G", "--ifbw", "200k", "--seconds", "1"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(holds(ran.err, "out of range")) << ran.err;
}

TEST_F(VnkIq, TheExampleProgramReadsTenFrames) {
    Program program(VNK_EXAMPLE, {mcAddress});
    EXPECT_EQ(program.finish(), 0) << program.err();
    EXPECT_EQ(std::count(program.out().begin(), program.out().end(), '\n'), 10) << program.out();
    EXPECT_TRUE(holds(program.out(), "samples at 122070 S/s")) << program.out();
}
