// `vnk demod` on recordings of made signals, on the real beacon, and against a simulated unit.
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "program.h"
#include "signals.h"
#include "simulator/unit.h"
#include "support/loopback.h"

using vnktest::amplitudeOf;
using vnktest::audioOf;
using vnktest::contents;
using vnktest::frequencyNear;
using vnktest::holds;
using vnktest::Program;
using vnktest::Ran;
using vnktest::runVnk;
using vnktest::turn;

namespace {

constexpr double kCentre = 98.1e6, kRate = 96000, kTone = 1000;

std::complex<double> amOf(double seconds) {
    return 0.01 * (1 + 0.5 * std::sin(2 * std::numbers::pi * kTone * seconds));
}

/// A tone of 1 kHz with a deviation of 5 kHz.
std::complex<double> fmOf(double seconds) {
    return 0.01 * std::polar(1.0, -5e3 / kTone * std::cos(2 * std::numbers::pi * kTone * seconds));
}

class VnkDemod : public ::testing::Test {
 protected:
    void make(const std::function<std::complex<double>(double)>& signal, uint32_t frames = 12,
              double rate = kRate) {
        vnktest::writeIq(stem(), rate, frames, kCentre, 80e3, signal);
    }
    std::string stem() const { return mcFolder / "x"; }
    std::string wav() const { return mcFolder / "x.wav"; }
    nlohmann::json demod(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "demod");
        arguments.push_back("--json");
        const Ran ran = runVnk(arguments);
        EXPECT_EQ(ran.code, 0) << ran.err;
        return ran.code == 0 ? nlohmann::json::parse(ran.out) : nlohmann::json();
    }
    /// The audio's tone behind what the start takes, in all of the file.
    void expectTone(const std::vector<double>& audio, double rate, double hertz) const {
        const double dFrom = 0.5;
        ASSERT_GT(static_cast<double>(audio.size()), (dFrom + 0.4) * rate);
        EXPECT_NEAR(frequencyNear(audio, rate, hertz, dFrom), hertz, 5e-4 * hertz);
        EXPECT_GT(amplitudeOf(audio, rate, hertz, dFrom), 0.3);
        EXPECT_LT(amplitudeOf(audio, rate, hertz * 2.5, dFrom), 0.01);
    }

    vnktest::ScratchFolder mcFolder;
};

}  // namespace

TEST_F(VnkDemod, AToneInIsAToneOutWithAm) {
    make(amOf);
    const auto json = demod({"am", stem(), "-o", wav()});
    const std::string bytes = contents(wav());
    EXPECT_EQ(vnktest::rateOfWav(bytes), 48000u);
    EXPECT_EQ(json["sampleRateHz"], 48000.0);
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_EQ(json["samples"], audioOf(bytes).size());
    EXPECT_EQ(json["bytes"], bytes.size());
    EXPECT_EQ(json["gaps"], 0);
    EXPECT_EQ(json["droppedFrames"], 0);
    // All of the recording but what fills no block at its end.
    EXPECT_GT(json["seconds"], 1.15);
    expectTone(audioOf(bytes), 48000, kTone);
    EXPECT_NEAR(json["strongest"]["frequencyHz"].get<double>(), kTone, 25);
}

TEST_F(VnkDemod, AToneInIsAToneOutWithFmAtItsDeviation) {
    make(fmOf);
    const auto json = demod({"fm", stem(), "-o", wav(), "--rate", "32k", "--deviation", "10k"});
    EXPECT_EQ(vnktest::rateOfWav(contents(wav())), 32000u);
    const auto audio = audioOf(contents(wav()));
    expectTone(audio, 32000, kTone);
    EXPECT_EQ(json["fullScaleDeviationHz"], 10000.0);
    EXPECT_EQ(json["clipped"], 0);
    // Half of the deviation of full scale; the discriminator's sine makes more of small deviations.
    EXPECT_NEAR(amplitudeOf(audio, 32000, kTone, 0.5), 0.5, 0.06);
    EXPECT_EQ(demod({"fm", stem()})["fullScaleDeviationHz"], 24000.0) << "at most a quarter of the rate";
}

TEST_F(VnkDemod, OneSidebandIsHeardAndTheOtherIsNot) {
    // 2.5 kHz above the centre, and 4 kHz below.
    make([](double t) { return 0.01 * (turn(2500, t) + turn(-4000, t)); });
    for (const char* kind : {"usb", "lsb"}) {
        demod({kind, stem(), "-o", wav(), "--rate", "32k"});
        const auto audio = audioOf(contents(wav()));
        const bool bUpper = kind[0] == 'u';
        const double dWanted = amplitudeOf(audio, 32000, bUpper ? 2500 : 4000, 0.5);
        EXPECT_GT(dWanted, 0.2) << kind;
        EXPECT_LT(amplitudeOf(audio, 32000, bUpper ? 4000 : 2500, 0.5), dWanted / 50) << kind;
    }
}

TEST_F(VnkDemod, WithoutALowerRateTheAudioHasThatOfTheInput) {
    make(amOf, 12, 24000);
    const auto json = demod({"am", stem(), "-o", wav()});
    EXPECT_EQ(vnktest::rateOfWav(contents(wav())), 24000u);
    EXPECT_EQ(json["samples"], 12 * 2400);
    expectTone(audioOf(contents(wav())), 24000, kTone);
}

TEST_F(VnkDemod, RatesThatAreNotBelowThoseOfTheInputAreRefused) {
    make(amOf, 3);
    for (const char* rate : {"96k", "200k"}) {
        const Ran ran = runVnk({"demod", "am", stem(), "--rate", rate, "-o", wav()});
        EXPECT_EQ(ran.code, 2);
        EXPECT_TRUE(holds(ran.err, "is not below the 96 kS/s of the recording, and a resampler only lowers"))
            << ran.err;
        EXPECT_FALSE(vnktest::fileExists(wav()));
    }
    EXPECT_EQ(runVnk({"demod", "am", stem(), "--rate", "3999"}).code, 2);
    EXPECT_EQ(runVnk({"demod", "am", stem(), "--rate", "95k"}).code, 0);
    EXPECT_EQ(runVnk({"demod", "am", stem(), "--rate", "4k"}).code, 0);
}

TEST_F(VnkDemod, ARecordingIsNotTunedElsewhere) {
    make(amOf, 3);
    const Ran away = runVnk({"demod", "am", stem(), "--fcentre", "98.101M"});
    EXPECT_EQ(away.code, 2);
    EXPECT_TRUE(holds(away.err, "is a recording about 98.1 MHz and cannot be tuned to 98.101 MHz"))
        << away.err;
    EXPECT_EQ(runVnk({"demod", "am", stem(), "--fcentre", "98.1M"}).code, 0);
    for (const char* option : {"--ifbw", "--ref", "--cal"}) {
        const Ran ran = runVnk({"demod", "am", stem(), option, "10"});
        EXPECT_EQ(ran.code, 2) << option;
        EXPECT_TRUE(holds(ran.err, "are for units")) << ran.err;
    }
}

TEST_F(VnkDemod, StandardOutputCarriesTheSameSamplesAsAFileAndNothingElse) {
    make(amOf, 5);
    ASSERT_EQ(runVnk({"demod", "am", stem(), "-o", wav()}).code, 0);
    const Ran ran = runVnk({"demod", "am", stem(), "-o", "-", "--ident"});
    ASSERT_EQ(ran.code, 0);
    EXPECT_TRUE(audioOf(ran.out) == audioOf(contents(wav())));
    EXPECT_TRUE(holds(ran.err, "Ident: none heard")) << ran.err;
    EXPECT_TRUE(holds(ran.err, "Demodulating AM at 98.1 MHz")) << ran.err;
    const Ran quiet = runVnk({"demod", "am", stem(), "-o", wav(), "-q"});
    EXPECT_EQ(quiet.err, "");
    EXPECT_EQ(quiet.out, "");
}

TEST_F(VnkDemod, SecondsAreKeptToInTheFile) {
    make(amOf);
    const auto json = demod({"am", stem(), "-o", wav(), "--seconds", "0.5"});
    EXPECT_EQ(json["samples"], 24000);
    EXPECT_EQ(audioOf(contents(wav())).size(), 24000u);
}

TEST_F(VnkDemod, WhatHasNoMagnitudeIsSilentAndCounted) {
    make([](double t) { return t < 0.1 ? 0.0 : fmOf(t); }, 6);
    const auto json = demod({"fm", stem(), "-o", wav()});
    EXPECT_GT(json["notNumbers"], 0);
    const auto audio = audioOf(contents(wav()));
    ASSERT_GT(audio.size(), 1000u);
    EXPECT_EQ(audio[500], 0.0);
    make([](double t) { return t < 0.1 ? 0.0 : fmOf(t); }, 6);
    EXPECT_TRUE(holds(runVnk({"demod", "fm", stem()}).err, "without a value made silent"));
}

TEST_F(VnkDemod, WhatIsTooLoudIsCountedAndTold) {
    make(fmOf, 6);
    const auto json = demod({"fm", stem(), "--deviation", "2k", "-o", wav()});
    EXPECT_GT(json["clipped"], 1000);
    EXPECT_GT(json["peakdBFS"], 6);
    EXPECT_EQ(demod({"fm", stem(), "--deviation", "2k", "--gain", "-20"})["clipped"], 0);
}

TEST_F(VnkDemod, ARecordingTooShortForABlockEndsWithoutAudio) {
    make(amOf, 1, 8000);
    const auto json = demod({"am", stem(), "--rate", "4k", "-o", wav()});
    EXPECT_EQ(json["samples"], 0);
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_TRUE(audioOf(contents(wav())).empty());
}

TEST_F(VnkDemod, TheRealBeaconIsNamed) {
    const std::string path = std::string(VNK_SOURCE_DIR) + "/tests/data/am_vor_rebuilt_47368.cs16";
    const std::string bytes = contents(path);
    if (bytes.empty())
        GTEST_SKIP() << path << " is not there";
    constexpr double kBeaconRate = 1.8e6 / 38;
    const auto part = [&](size_t place) {
        int16_t iValue = 0;
        std::memcpy(&iValue, bytes.data() + 2 * place, sizeof iValue);
        return iValue / 32768.0;
    };
    ASSERT_GE(bytes.size(), static_cast<size_t>(7.92 * kBeaconRate) * 4);
    // It begins within one ident and ends within the next: repeated between two signs, it holds a whole one.
    vnktest::writeIq(stem(), kBeaconRate, 120, 114.849e6, 40e3, [&](double t) {
        const auto u = static_cast<size_t>((0.42 + std::fmod(t, 7.5)) * kBeaconRate);
        return std::complex<double>(part(2 * u), part(2 * u + 1));
    });
    const Ran ran = runVnk({"demod", "am", stem(), "--ident", "-o", wav()});
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(holds(ran.out, "Ident: KLO, heard 1 time in Morse at 1.02 kHz, 10 words a minute"))
        << ran.out << ran.err;
    EXPECT_TRUE(holds(ran.err, " KLO")) << ran.err;
    EXPECT_TRUE(holds(ran.err, "its rate is told as 47.368 kS/s")) << ran.err;
    const auto audio = audioOf(contents(wav()));
    EXPECT_NEAR(frequencyNear(audio, kBeaconRate, 30, 1), 30, 0.05);
    EXPECT_NEAR(frequencyNear(audio, kBeaconRate, 1020, 1), 1020, 1);
}

TEST_F(VnkDemod, CommandLinesThatMakeNoSenseAreExitCode2) {
    make(amOf, 2);
    const std::string address = vnktest::uniqueLoopback();
    for (const std::vector<std::string>& line : {std::vector<std::string>{"demod"},
                                                 {"demod", "am"},
                                                 {"demod", "xm", stem()},
                                                 {"demod", "am", address},
                                                 {"demod", "am", stem(), "--json", "-o", "-"},
                                                 {"demod", "am", stem(), "--deviation", "5k"},
                                                 {"demod", "fm", stem(), "--deviation", "0"},
                                                 {"demod", "am", stem(), "--rate", "fast"},
                                                 {"demod", "am", stem(), "-o", stem() + ".data"},
                                                 {"demod", "am", stem(), "--force"}}) {
        const Ran ran = runVnk(line);
        EXPECT_EQ(ran.code, 2) << line.back() << ran.err;
        EXPECT_EQ(ran.out, "");
        EXPECT_NE(ran.err, "");
    }
    EXPECT_GT(contents(stem() + ".data").size(), 1000u) << "the recording is untouched";
}

TEST_F(VnkDemod, FileTroubleIsExitCode7) {
    make(amOf, 2);
    for (const std::string& target :
         {std::string("/nowhere/at/all.wav"), mcFolder.path(), std::string("/dev/full")}) {
        const Ran ran = runVnk({"demod", "am", stem(), "-o", target});
        EXPECT_EQ(ran.code, 7) << target << "\n" << ran.err;
        EXPECT_TRUE(holds(ran.err, "vnk: " + target + ": ")) << ran.err;
    }
    EXPECT_EQ(runVnk({"demod", "am", mcFolder / "nothing"}).code, 7);
    vnktest::writeFile(mcFolder / "y.data", vnktest::evenIq(1));
    EXPECT_TRUE(holds(runVnk({"demod", "am", mcFolder / "y"}).err, "vnk recover"));
}

TEST_F(VnkDemod, AReaderThatHasSeenEnoughEndsItCleanly) {
    make(amOf, 50);
    Program program(VNK_PROGRAM, {"demod", "am", stem(), "-o", "-"});
    ASSERT_TRUE(program.waitForOut(5000)) << program.err();
    program.closeOut();
    EXPECT_EQ(program.finish(), 0) << program.err();
    EXPECT_TRUE(holds(program.err(), "(reader gone)")) << program.err();
}

TEST_F(VnkDemod, HelpTellsOfEveryOption) {
    const Ran ran = runVnk({"demod", "--help"});
    EXPECT_EQ(ran.code, 0);
    for (const char* part :
         {"am|fm|usb|lsb", "NAME|ADDRESS", "--fcentre", "of a recording only its own", "--ifbw", "--rate",
          "--seconds", "--output", "raw 16-bit samples", "--gain", "--deviation", "--ident", "--record"})
        EXPECT_TRUE(holds(ran.out, part)) << part << "\n" << ran.out;
}

namespace {

/// A unit among stations.
class VnkDemodUnit : public VnkDemod {
 protected:
    VnkDemodUnit() {
        vnksim::UnitOptions options;
        options.address = mcAddress;
        vnksim::Scene scene;
        scene.noise(-150)
            .add(vnksim::AmStation{118.1e6, -45, {{600, 0.5}}})
            .add(vnksim::FmStation{98.1e6, -40, {{700, 40e3}}});
        mpUnit = std::make_unique<vnksim::Unit>(options, scene);
        mpUnit->start();
    }

    std::string mcAddress = vnktest::uniqueLoopback();
    std::unique_ptr<vnksim::Unit> mpUnit;
};

}  // namespace

TEST_F(VnkDemodUnit, AStationOnTheAirIsHeard) {
    const auto am =
        demod({"am", mcAddress, "--fcentre", "118.1M", "--ifbw", "100k", "--seconds", "1.5", "-o", wav()});
    EXPECT_EQ(am["ending"], "complete");
    EXPECT_EQ(am["samples"], 72000);
    expectTone(audioOf(contents(wav())), 48000, 600);
    const auto fm =
        demod({"fm", mcAddress, "--fcentre", "98.1M", "--ifbw", "200k", "--seconds", "1.5", "-o", wav()});
    EXPECT_NEAR(fm["fullScaleDeviationHz"].get<double>(), 125e6 / 512 / 4, 1);
    const auto audio = audioOf(contents(wav()));
    expectTone(audio, 48000, 700);
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
}

TEST_F(VnkDemodUnit, ARateThatTheUnitDoesNotReachIsRefusedWithTheWayOut) {
    const Ran ran = runVnk(
        {"demod", "am", mcAddress, "--fcentre", "118.1M", "--ifbw", "100k", "--rate", "500k", "-o", wav()});
    EXPECT_EQ(ran.code, 2) << ran.err;
    EXPECT_TRUE(holds(ran.err, "that the unit sends, and a resampler only lowers")) << ran.err;
    EXPECT_TRUE(holds(ran.err, "a wider --ifbw")) << ran.err;
    EXPECT_FALSE(vnktest::fileExists(wav()));
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
}

TEST_F(VnkDemodUnit, CtrlCEndsItWithTheSummaryAndAWholeFile) {
    Program program(VNK_PROGRAM, {"demod", "fm", mcAddress, "--fcentre", "98.1M", "--ifbw", "200k",
                                  "--seconds", "0", "-o", wav(), "--json"});
    ASSERT_TRUE(program.waitForErr(" s  peak ")) << program.err();
    program.signal(SIGINT);
    EXPECT_EQ(program.finish(), 0) << program.err();
    const auto json = nlohmann::json::parse(program.out());
    EXPECT_EQ(json["ending"], "interrupted");
    EXPECT_EQ(json["samples"], audioOf(contents(wav())).size());
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
}

TEST_F(VnkDemodUnit, NoUnitIsExitCode4) {
    mpUnit->stop();
    const Ran ran = runVnk({"demod", "am", mcAddress, "--fcentre", "118.1M"});
    EXPECT_EQ(ran.code, 4);
    EXPECT_TRUE(holds(ran.err, mcAddress)) << ran.err;
}

TEST_F(VnkDemodUnit, AUnitThatDisappearsIsExitCode5AndWhatCameIsKept) {
    Program program(VNK_PROGRAM, {"demod", "fm", mcAddress, "--fcentre", "98.1M", "--ifbw", "200k",
                                  "--seconds", "0", "-o", wav(), "--json"});
    ASSERT_TRUE(program.waitForErr(" s  peak ")) << program.err();
    mpUnit->stop();
    EXPECT_EQ(program.finish(), 5) << program.err();
    EXPECT_GT(audioOf(contents(wav())).size(), 1000u);
}
