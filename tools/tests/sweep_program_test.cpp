// `vnk sweep` against simulated units: what is found, written and drawn, endings and exit codes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "program.h"
#include "recordings.h"
#include "simulator/unit.h"
#include "support/loopback.h"

using vnktest::contents;
using vnktest::Program;
using vnktest::Ran;
using vnktest::runVnk;

namespace {

/// One unit whose antenna sees tones over noise, below and above 50 MHz.
class VnkSweep : public ::testing::Test {
 protected:
    VnkSweep() {
        vnksim::UnitOptions options;
        options.address = mcAddress;
        vnksim::Scene scene;
        scene.noise(-150).tone(30.2e6, -50).tone(55.1e6, -45).tone(98.12e6, -40).tone(103e6, -60);
        mpUnit = std::make_unique<vnksim::Unit>(options, scene);
        mpUnit->start();
    }

    std::vector<std::string> command(std::vector<std::string> further,
                                     const std::string& span = "88M:108M:20k") const {
        std::vector<std::string> arguments{"sweep", mcAddress, "-f", span};
        arguments.insert(arguments.end(), further.begin(), further.end());
        return arguments;
    }

    nlohmann::json summary(std::vector<std::string> further, const std::string& span = "88M:108M:20k") const {
        further.push_back("--json");
        const Ran ran = runVnk(command(std::move(further), span));
        EXPECT_EQ(ran.code, 0) << ran.err;
        return ran.code == 0 ? nlohmann::json::parse(ran.out) : nlohmann::json();
    }

    std::string mcAddress = vnktest::uniqueLoopback();
    std::unique_ptr<vnksim::Unit> mpUnit;
    vnktest::ScratchFolder mcFolder;
};

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool isPng(const std::string& bytes) {
    return bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") == 0;
}

struct Tone {
    double hertz, dbm;
};

/// These and no others, the strongest first, each within one bin, and at its level.
void expectTones(const nlohmann::json& json, const std::vector<Tone>& tones) {
    ASSERT_EQ(json["peaks"].size(), tones.size()) << json.dump(2);
    for (size_t i = 0; i < tones.size(); ++i) {
        EXPECT_NEAR(json["peaks"][i]["frequencyHz"].get<double>(), tones[i].hertz,
                    json["realised"]["pointHz"].get<double>());
        EXPECT_NEAR(json["peaks"][i]["toneDbm"].get<double>(), tones[i].dbm, 0.25);
    }
}

}  // namespace

TEST_F(VnkSweep, TonesAreFoundWhereTheyAreAndAtTheirLevel) {
    const auto json = summary({"-n", "4", "-q"});
    expectTones(json, {{98.12e6, -40}, {103e6, -60}});
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_NEAR(json["noise"]["dBmPerHz"].get<double>(), -150, 0.3);
    EXPECT_NEAR(json["realised"]["minimumHz"].get<double>(), 88e6, 20e3);
    EXPECT_NEAR(json["realised"]["maximumHz"].get<double>(), 108e6, 20e3);
    EXPECT_LE(json["realised"]["rbwHz"], 20e3);
    EXPECT_GT(json["hertzPerSecond"], 0);
}

TEST_F(VnkSweep, ASpanAcrossTheDirectLimitHasTonesOfBothSides) {
    expectTones(summary({"-n", "2"}, "20M:60M:20k"), {{55.1e6, -45}, {30.2e6, -50}});
}

TEST_F(VnkSweep, LevelsAreForTheWidthOfABinAndTonesForTheirPower) {
    for (const char* window : {"nuttall", "hann", "flattop"}) {
        const auto json = summary({"-n", "20", "--window", window});
        ASSERT_FALSE(json["peaks"].empty());
        const double dBins =
            json["realised"]["rbwHz"].get<double>() / json["realised"]["pointHz"].get<double>();
        EXPECT_NEAR(json["peaks"][0]["toneDbm"].get<double>() - json["peaks"][0]["dBm"].get<double>(),
                    10 * std::log10(dBins), 1.5)
            << window;
        EXPECT_NEAR(json["peaks"][0]["toneDbm"].get<double>(), -40, 0.35) << window;
        EXPECT_NEAR(json["noise"]["dBmPerHz"].get<double>(), -150, 0.3) << window;
    }
}

TEST_F(VnkSweep, CalibrationShiftsAllLevels) {
    const auto json = summary({"-n", "20", "--cal", "3dB"});
    expectTones(json, {{98.12e6, -37}, {103e6, -57}});
    EXPECT_NEAR(json["noise"]["dBmPerHz"].get<double>(), -147, 0.3);
}

TEST_F(VnkSweep, ACountOfSpectraIsKeptToInEachFormat) {
    const auto json = summary({"-n", "7", "-o", mcFolder / "a.f32"});
    EXPECT_EQ(json["spectra"], 7);
    EXPECT_EQ(json["lost"], 0);
    EXPECT_EQ(contents(mcFolder / "a.f32").size(),
              7 * json["realised"]["points"].get<size_t>() * sizeof(float));
    EXPECT_EQ(json["bytes"], 7 * json["realised"]["points"].get<size_t>() * sizeof(float));

    summary({"-n", "3", "-o", mcFolder / "a.jsonl"});
    std::istringstream lines(contents(mcFolder / "a.jsonl"));
    std::string line, time;
    for (uint32_t uSequence = 0; uSequence < 3; ++uSequence) {
        ASSERT_TRUE(std::getline(lines, line));
        const auto spectrum = nlohmann::json::parse(line);
        EXPECT_EQ(spectrum["sequence"], uSequence);
        EXPECT_GT(spectrum["time"].get<std::string>(), time) << "later than the one before";
        time = spectrum["time"];
        EXPECT_EQ(spectrum["levelsdBm"].size(), json["realised"]["points"]);
        EXPECT_EQ(spectrum["rbwHz"], json["realised"]["rbwHz"]);
    }
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(VnkSweep, StandardOutputCarriesSpectraAndNothingElse) {
    const Ran ran = runVnk(command({"-n", "2", "-o", "-"}));
    ASSERT_EQ(ran.code, 0) << ran.err;
    std::istringstream lines(ran.out);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "sequence,time,frequency_hz,level_dbm");
    double dStrongest = -1000, dAtHz = 0;
    size_t uLines = 0;
    while (std::getline(lines, line)) {
        ++uLines;
        const auto uLevel = line.rfind(','), uFrequency = line.rfind(',', uLevel - 1);
        const double dLevel = std::stod(line.substr(uLevel + 1));
        if (dLevel > dStrongest) {
            dStrongest = dLevel;
            dAtHz = std::stod(line.substr(uFrequency + 1));
        }
    }
    EXPECT_GT(uLines, 2000u);
    EXPECT_EQ(uLines % 2, 0u);
    EXPECT_NEAR(dAtHz, 98.12e6, 20e3);
    EXPECT_NEAR(dStrongest, -43, 1.2);
    EXPECT_TRUE(holds(ran.err, "Peaks ")) << ran.err;
}

TEST_F(VnkSweep, ThePictureIsAPngInAFileOrOnStandardOutput) {
    const Ran file = runVnk(command({"-n", "2", "--png", mcFolder / "a.png"}));
    EXPECT_EQ(file.code, 0) << file.err;
    EXPECT_TRUE(isPng(contents(mcFolder / "a.png")));
    EXPECT_TRUE(holds(file.err, "Picture: " + (mcFolder / "a.png"))) << file.err;
    const Ran out = runVnk(command({"-n", "2", "--png", "-"}));
    EXPECT_EQ(out.code, 0) << out.err;
    EXPECT_TRUE(isPng(out.out));
}

TEST_F(VnkSweep, ProgressPictureAndSummaryGoToStandardErrorAndPeaksToStandardOutput) {
    const Ran ran = runVnk(command({"--seconds", "0.3"}));
    EXPECT_EQ(ran.code, 0);
    for (const char* part : {"asked", "realised", "GHz/s", " lost", "88 MHz", "98 MHz", "108 MHz", "Swept ",
                             "(complete)", "resolution bandwidth", "Noise: "})
        EXPECT_TRUE(holds(ran.err, part)) << part << "\n" << ran.err;
    EXPECT_TRUE(holds(ran.out, "as a tone")) << ran.out;
    EXPECT_TRUE(holds(ran.out, "98.12")) << ran.out;
    const Ran quiet = runVnk(command({"-n", "1", "-q"}));
    EXPECT_EQ(quiet.err, "");
    EXPECT_TRUE(holds(quiet.out, "98.1")) << quiet.out;
}

TEST_F(VnkSweep, SecondsCountFromTheFirstSpectrum) {
    const auto json = summary({"--seconds", "0.5"});
    EXPECT_EQ(json["ending"], "complete");
    EXPECT_GE(json["elapsedSeconds"], 0.5);
    EXPECT_GE(json["spectra"], 2);
}

TEST_F(VnkSweep, FlatteningIsPassedOn) {
    const auto json = summary({"-n", "2", "--flatten"});
    ASSERT_FALSE(json["peaks"].empty());
    const double dFlattened = json["peaks"][0]["dBm"];
    const double dPlain = summary({"-n", "2"})["peaks"][0]["dBm"];
    // The unit's correction data tell of a gentle ripple, and its IF has none.
    EXPECT_GT(std::abs(dFlattened - dPlain), 0.005);
    EXPECT_LT(std::abs(dFlattened - dPlain), 6);
}

TEST_F(VnkSweep, CtrlCEndsAContinuousSweepWithTheSummary) {
    for (const int iSignal : {SIGINT, SIGTERM}) {
        const std::string picture = mcFolder / "c.png";
        Program program(VNK_PROGRAM, command({"--continuous", "--json", "--png", picture}));
        ASSERT_TRUE(program.waitForErr("realised")) << program.err();
        program.signal(iSignal);
        EXPECT_EQ(program.finish(), 0) << program.err();
        const auto json = nlohmann::json::parse(program.out());
        EXPECT_EQ(json["ending"], "interrupted");
        EXPECT_GE(json["spectra"], 1);
        EXPECT_TRUE(holds(program.err(), "(interrupted)")) << program.err();
        EXPECT_TRUE(isPng(contents(picture)));
    }
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
}

TEST_F(VnkSweep, AReaderThatHasSeenEnoughEndsItCleanly) {
    Program program(VNK_PROGRAM, command({"--continuous", "-o", "-", "--format", "jsonl"}));
    ASSERT_TRUE(program.waitForOut(50000)) << program.err();
    program.closeOut();
    EXPECT_EQ(program.finish(), 0) << program.err();
    EXPECT_TRUE(holds(program.err(), "(reader gone)")) << program.err();
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
}

TEST_F(VnkSweep, FileTroubleIsExitCode7) {
    const std::string pipe = mcFolder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const char* option : {"-o", "--png"})
        for (const std::string& target :
             {std::string("/nowhere/at/all"), mcFolder.path(), std::string("/dev/full"), pipe}) {
            const Ran ran = runVnk(command({"-n", "2", option, target}));
            EXPECT_EQ(ran.code, 7) << option << " " << target << "\n" << ran.err;
            EXPECT_TRUE(holds(ran.err, "vnk: " + target + ": ")) << ran.err;
        }
}

TEST_F(VnkSweep, WhatWasMeasuredIsShownThoughThePictureCannotBeWritten) {
    const Ran ran = runVnk(command({"-n", "2", "--png", "/dev/full"}));
    EXPECT_EQ(ran.code, 7);
    EXPECT_TRUE(holds(ran.out, "98.1")) << ran.out;
}

TEST_F(VnkSweep, CommandLinesThatMakeNoSenseAreExitCode2) {
    const std::vector<std::vector<std::string>> lines{{"sweep"},
                                                      {"sweep", mcAddress},
                                                      {"sweep", mcAddress, "-f", "88M"},
                                                      {"sweep", mcAddress, "-f", "108M:88M:10k"},
                                                      {"sweep", mcAddress, "-f", "88M:88M:10k"},
                                                      {"sweep", mcAddress, "-f", "88M:108M:0"},
                                                      {"sweep", mcAddress, "-f", "88M:88.005M:10k"},
                                                      command({"-n", "0"}),
                                                      command({"-n", "many"}),
                                                      command({"-n", "1", "--seconds", "1"}),
                                                      command({"-n", "1", "--continuous"}),
                                                      command({"--seconds", "1", "--continuous"}),
                                                      command({"--format", "csv"}),
                                                      command({"--format", "xml", "-o", "-"}),
                                                      command({"--window", "round"}),
                                                      command({"--json", "-o", "-"}),
                                                      command({"--png", "-", "-o", "-"})};
    for (const auto& line : lines) {
        const Ran ran = runVnk(line);
        std::string text;
        for (const std::string& part : line)
            text += " " + part;
        EXPECT_EQ(ran.code, 2) << text << "\n" << ran.err;
        EXPECT_EQ(ran.out, "") << text;
        EXPECT_NE(ran.err, "") << text;
    }
}

TEST_F(VnkSweep, WhatTheUnitCannotDoIsExitCode1WithItsReason) {
    for (const char* span : {"1G:60G:1M", "1k:10M:10k", "88M:188M:20M", "88M:108M:0.5"}) {
        const Ran ran = runVnk(command({"-n", "1"}, span));
        EXPECT_EQ(ran.code, 1) << span;
        EXPECT_TRUE(holds(ran.err, "out of range")) << ran.err;
    }
    const Ran loud = runVnk(command({"-n", "1", "--ref", "50"}));
    EXPECT_EQ(loud.code, 1);
    EXPECT_TRUE(holds(loud.err, "reference level")) << loud.err;
}

TEST_F(VnkSweep, NoUnitIsExitCode4) {
    mpUnit->stop();
    const Ran ran = runVnk(command({"-n", "1"}));
    EXPECT_EQ(ran.code, 4);
    EXPECT_TRUE(holds(ran.err, mcAddress)) << ran.err;
}

TEST_F(VnkSweep, AUnitThatDisappearsIsExitCode5AndWhatCameIsKept) {
    const std::string path = mcFolder / "a.jsonl";
    Program program(VNK_PROGRAM, command({"--continuous", "--json", "-o", path}));
    ASSERT_TRUE(program.waitForErr("realised")) << program.err();
    mpUnit->stop();
    EXPECT_EQ(program.finish(), 5) << program.err();
    const auto json = nlohmann::json::parse(program.out());
    EXPECT_EQ(json["ending"], "link lost");
    const std::string lines = contents(path);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), json["spectra"].get<long>());
}

TEST_F(VnkSweep, AUnitThatSendsNothingValidIsExitCode1) {
    mpUnit->faults().change([](vnksim::FaultSettings& faults) { faults.identifierMissing = true; });
    const Ran ran = runVnk(command({"-n", "1", "--json"}));
    EXPECT_EQ(ran.code, 1) << ran.err;
    EXPECT_EQ(nlohmann::json::parse(ran.out)["ending"], "no data");
}
