// `vnk spectrum` on recordings of made signals and against a simulated unit.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "program.h"
#include "signals.h"
#include "simulator/unit.h"
#include "support/loopback.h"

using vnktest::contents;
using vnktest::holds;
using vnktest::Ran;
using vnktest::runVnk;
using vnktest::turn;

namespace {

constexpr double kCentre = 100e6, kRate = 50000;

class VnkSpectrum : public ::testing::Test {
 protected:
    /// A tone of -40 dBm 6 kHz above the centre, one of -60 dBm 9 kHz below.
    void make(uint32_t frames = 10) {
        std::mt19937 random(5);
        std::normal_distribution<double> noise(0, 1e-6);
        vnktest::writeIq(stem(), kRate, frames, kCentre, 40e3, [&](double t) {
            return 0.01 * turn(6e3, t) + 0.001 * turn(-9e3, t) + std::complex(noise(random), noise(random));
        });
    }
    std::string stem() const { return mcFolder / "x"; }
    nlohmann::json spectrum(std::vector<std::string> further) const {
        std::vector<std::string> arguments{"spectrum", stem(), "--json"};
        arguments.insert(arguments.end(), further.begin(), further.end());
        const Ran ran = runVnk(arguments);
        EXPECT_EQ(ran.code, 0) << ran.err;
        return ran.code == 0 ? nlohmann::json::parse(ran.out) : nlohmann::json();
    }
    std::vector<nlohmann::json> lines(const std::string& name) const {
        std::vector<nlohmann::json> result;
        std::istringstream text(contents(mcFolder / name));
        for (std::string line; std::getline(text, line);)
            result.push_back(nlohmann::json::parse(line));
        return result;
    }

    vnktest::ScratchFolder mcFolder;
};

size_t strongestPoint(const nlohmann::json& levels) {
    return static_cast<size_t>(std::max_element(levels.begin(), levels.end()) - levels.begin());
}

}  // namespace

TEST_F(VnkSpectrum, TonesAreFoundWhereTheyAreAndAtTheirLevel) {
    make();
    for (const char* window : {"nuttall", "hann", "flattop"}) {
        const auto json = spectrum({"--rbw", "200", "--window", window});
        EXPECT_EQ(json["ending"], "complete");
        ASSERT_EQ(json["peaks"].size(), 2u) << json.dump(1);
        const double dBin = json["realised"]["pointHz"];
        EXPECT_NEAR(json["peaks"][0]["frequencyHz"].get<double>(), kCentre + 6e3, dBin / 4) << window;
        EXPECT_NEAR(json["peaks"][0]["toneDbm"].get<double>(), -40, 0.3) << window;
        EXPECT_NEAR(json["peaks"][1]["frequencyHz"].get<double>(), kCentre - 9e3, dBin / 4) << window;
        EXPECT_NEAR(json["peaks"][1]["toneDbm"].get<double>(), -60, 0.3) << window;
        EXPECT_LE(json["realised"]["rbwHz"], 200.0);
    }
}

TEST_F(VnkSpectrum, PointsStandAtTheFrequenciesOfTheTransform) {
    make();
    const auto json = spectrum({"--rbw", "50", "-o", mcFolder / "a.jsonl"});
    const auto all = lines("a.jsonl");
    ASSERT_FALSE(all.empty());
    const auto& first = all[0];
    const double dStep = json["realised"]["pointHz"];
    // 2048 points over the rate.
    EXPECT_NEAR(dStep, kRate / 2048, 1e-6);
    EXPECT_EQ(first["levelsdBm"].size(), 1638u) << "an even number of those of the bandwidth";
    const double dLow = first["minimumHz"];
    EXPECT_NEAR(dLow, kCentre - 819 * dStep, 1e-3);
    EXPECT_NEAR(dLow + static_cast<double>(strongestPoint(first["levelsdBm"])) * dStep, kCentre + 6e3,
                dStep / 2);
    EXPECT_NEAR(first["maximumHz"].get<double>(), dLow + 1637 * dStep, 1e-3);
}

TEST_F(VnkSpectrum, OverlapMakesMoreSpectraAndTheirTimesAreThoseOfTheSamples) {
    make();
    for (const auto& [pOverlap, uHop] : {std::pair{"0", 2048u}, {"0.5", 1024u}, {"0.75", 512u}}) {
        const auto json = spectrum({"--rbw", "50", "--overlap", pOverlap, "-o", mcFolder / "a.jsonl"});
        const auto all = lines("a.jsonl");
        EXPECT_EQ(all.size(), (50000u - 2048u) / uHop + 1) << pOverlap;
        EXPECT_EQ(json["spectra"], all.size());
        EXPECT_EQ(json["lost"], 0);
        ASSERT_GE(all.size(), 12u);
        EXPECT_EQ(all[0]["time"], "2023-11-14T22:13:20.000000000Z");
        char text[64];
        std::snprintf(text, sizeof text, "2023-11-14T22:13:20.%09uZ", uHop * 10u * 20000u);
        EXPECT_EQ(all[10]["time"], text) << pOverlap;
    }
}

TEST_F(VnkSpectrum, FollowingMakesOneSpectrumOfEachFrame) {
    make(8);
    const auto json = spectrum({"--follow", "-o", mcFolder / "a.jsonl"});
    EXPECT_EQ(json["spectra"], 8);
    const auto all = lines("a.jsonl");
    ASSERT_EQ(all.size(), 8u);
    EXPECT_EQ(all[0]["sequence"], 3);
    EXPECT_EQ(all[7]["sequence"], 10);
    EXPECT_EQ(all[7]["time"], "2023-11-14T22:13:20.700000000Z");
    EXPECT_NEAR(json["realised"]["pointHz"].get<double>(), kRate / 4096, 1e-6);
    EXPECT_NEAR(json["peaks"][0]["frequencyHz"].get<double>(), kCentre + 6e3, 5);
}

TEST_F(VnkSpectrum, AFrameOfAnotherLengthIsWrittenAndNotMixedIn) {
    make(8);
    std::string data = contents(stem() + ".data");
    std::vector<float> samples(2 * 1500, 0.001f);
    data += vnktest::iqFrame(vnktest::kSignalStart + 800000000, 11, samples);
    std::string description = contents(stem() + ".json");
    description.replace(description.find("\"Samples\":40000"), 15, "\"Samples\":41500");
    vnktest::writeFile(stem() + ".json", description);
    vnktest::writeFile(stem() + ".data", data);
    const auto json = spectrum({"--follow", "-o", mcFolder / "a.jsonl"});
    EXPECT_EQ(json["spectra"], 8);
    EXPECT_EQ(json["otherShapes"], 1);
    EXPECT_EQ(lines("a.jsonl").size(), 9u);
}

TEST_F(VnkSpectrum, TracesStandBesideEachSpectrumInEveryFormat) {
    make(5);
    const auto json = spectrum({"--rbw", "500", "--traces", "--average", "4", "-o", mcFolder / "a.jsonl"});
    const auto all = lines("a.jsonl");
    ASSERT_GT(all.size(), 5u);
    EXPECT_EQ(json["asked"]["average"], 4);
    for (const auto& line : {all[0], all.back()})
        for (size_t i = 0; i < line["levelsdBm"].size(); ++i) {
            const double dLevel = line["levelsdBm"][i], dMinimum = line["minimumdBm"][i],
                         dMaximum = line["maximumdBm"][i], dAverage = line["averagedBm"][i];
            ASSERT_LE(dMinimum, dLevel);
            ASSERT_GE(dMaximum, dLevel);
            // Of the newest, rounded in single precision.
            ASSERT_LE(dMinimum, dAverage + 1e-3);
            ASSERT_GE(dMaximum, dAverage - 1e-3);
        }
    const size_t uPoints = all[0]["levelsdBm"].size();
    spectrum({"--rbw", "500", "--traces", "-n", "3", "-o", mcFolder / "a.f32"});
    EXPECT_EQ(contents(mcFolder / "a.f32").size(), 3 * 4 * uPoints * sizeof(float));
    const Ran csv = runVnk({"spectrum", stem(), "--rbw", "500", "--traces", "-n", "2", "-q", "-o", "-"});
    EXPECT_EQ(csv.code, 0);
    EXPECT_EQ(csv.out.substr(0, csv.out.find('\n')),
              "sequence,time,frequency_hz,level_dbm,minimum_dbm,maximum_dbm,average_dbm");
    EXPECT_EQ(static_cast<size_t>(std::count(csv.out.begin(), csv.out.end(), '\n')), 1 + 2 * uPoints);
}

TEST_F(VnkSpectrum, ThePictureAndTheSummaryAreShown) {
    make(5);
    const Ran ran =
        runVnk({"spectrum", stem() + ".json", "--rbw", "500", "--traces", "--png", mcFolder / "a.png"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(contents(mcFolder / "a.png").compare(0, 8, "\x89PNG\r\n\x1a\n"), 0);
    for (const char* part :
         {"recorded", "realised", "spectra/s", "Transformed ", "(complete)", "Noise: ", "Picture: "})
        EXPECT_TRUE(holds(ran.err, part)) << part << "\n" << ran.err;
    EXPECT_TRUE(holds(ran.out, "as a tone")) << ran.out;
}

TEST_F(VnkSpectrum, ARecordingTooShortForASpectrumIsToldAndFails) {
    make(1);
    const Ran ran = runVnk({"spectrum", stem(), "--rbw", "1"});
    EXPECT_EQ(ran.code, 1);
    EXPECT_TRUE(holds(ran.err, "5000 samples are too few for one spectrum")) << ran.err;
}

TEST_F(VnkSpectrum, CommandLinesThatMakeNoSenseAreExitCode2) {
    make(2);
    for (const std::vector<std::string>& further : {std::vector<std::string>{"--rbw", "0.5"},
                                                    {"--rbw", "200k"},
                                                    {"--overlap", "0.9"},
                                                    {"--overlap", "-0.1"},
                                                    {"--follow", "--rbw", "100"},
                                                    {"--follow", "--overlap", "0"},
                                                    {"--average", "0"},
                                                    {"--window", "round"},
                                                    {"--ifbw", "10k"},
                                                    {"--fcentre", "101M"},
                                                    {"-n", "1", "--seconds", "1"},
                                                    {"--json", "-o", "-"},
                                                    {"-o", stem() + ".json"},
                                                    {"--png", stem() + ".data"}}) {
        std::vector<std::string> line{"spectrum", stem()};
        line.insert(line.end(), further.begin(), further.end());
        const Ran ran = runVnk(line);
        EXPECT_EQ(ran.code, 2) << further[0] << " " << further.back() << "\n" << ran.err;
        EXPECT_EQ(ran.out, "");
    }
    EXPECT_EQ(runVnk({"spectrum"}).code, 2);
    EXPECT_EQ(runVnk({"spectrum", vnktest::uniqueLoopback()}).code, 2) << "a unit needs --fcentre";
    EXPECT_GT(contents(stem() + ".data").size(), 1000u) << "the recording is untouched";
}

TEST_F(VnkSpectrum, FileTroubleIsExitCode7) {
    make(2);
    for (const char* option : {"-o", "--png"})
        for (const std::string& target :
             {std::string("/nowhere/at/all"), mcFolder.path(), std::string("/dev/full")}) {
            const Ran ran = runVnk({"spectrum", stem(), option, target});
            EXPECT_EQ(ran.code, 7) << option << " " << target << "\n" << ran.err;
        }
    EXPECT_EQ(runVnk({"spectrum", mcFolder / "nothing"}).code, 7);
}

TEST_F(VnkSpectrum, AUnitIsTunedAndItsIqTransformed) {
    const std::string address = vnktest::uniqueLoopback();
    vnksim::UnitOptions options;
    options.address = address;
    vnksim::Scene scene;
    scene.noise(-130).tone(98.12e6, -40);
    vnksim::Unit unit(options, scene);
    unit.start();
    const Ran ran = runVnk({"spectrum", address, "--fcentre", "98.1M", "--ifbw", "200k", "--rbw", "500",
                            "--seconds", "0.5", "--cal", "2", "--json"});
    ASSERT_EQ(ran.code, 0) << ran.err;
    const auto json = nlohmann::json::parse(ran.out);
    EXPECT_EQ(json["address"], address);
    EXPECT_EQ(json["ending"], "complete");
    ASSERT_FALSE(json["peaks"].empty());
    EXPECT_NEAR(json["peaks"][0]["frequencyHz"].get<double>(), 98.12e6, 500);
    EXPECT_NEAR(json["peaks"][0]["toneDbm"].get<double>(), -38, 0.3);
    EXPECT_NEAR(json["noise"]["dBmPerHz"].get<double>(), -128, 0.4);
    EXPECT_TRUE(unit.waitForMode("BLOCK", std::chrono::seconds(10))) << "the unit is left idle";
    unit.stop();
    EXPECT_EQ(runVnk({"spectrum", address, "--fcentre", "98.1M", "--ifbw", "200k"}).code, 4);
}
