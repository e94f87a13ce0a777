#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

using vnksim::Scene;
using Recordings = UnitTest;

const std::string kData = VNK_TEST_DATA;
const std::string kDemo = std::string(VNK_SOURCE_DIR) + "/simulator/scenes/demo.json";

TEST_F(Recordings, beaconOfTheDemoSceneStandsOnItsFrequencyWithItsTones) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(vnksim::readScene(kDemo));
    // 8 s at 122 kHz: a little longer than the recording's part.
    const auto samples = captureIQ(
        ":sweep:entry:mode SH;:sweep:entry:freq:cent 114850000;:sweep:entry:dec 1024;:sweep:entry:spp 12192",
        80);
    const double rate = 125e6 / 1024;
    // Full scale of the file is -18 dBm; the carrier has 11000 of 32768.
    const double carrier = std::abs(correlate(samples, 0));
    EXPECT_NEAR(dbm(carrier), -18 + 20 * std::log10(11000.0 / 32768), 0.1);
    std::vector<float> envelope;
    double mean = 0;
    for (const auto& sample : samples) {
        envelope.push_back(std::abs(sample));
        mean += static_cast<double>(envelope.back()) / static_cast<double>(samples.size());
    }
    for (float& value : envelope) {
        value = static_cast<float>(static_cast<double>(value) / mean - 1);
    }
    EXPECT_NEAR(2 * std::abs(correlate(envelope, 30.0 / rate)), 0.111, 0.004);
    // The subcarrier is frequency-modulated over +-480 Hz. Brought to 0 Hz and averaged over 49 samples,
    // which has a zero at 9960 Hz and loses some 3 % at the swing's ends, it has its amplitude.
    constexpr size_t kAverage = 49;
    std::complex<double> sum = 0;
    std::vector<std::complex<double>> mixed;
    double power = 0;
    for (size_t n = 0; n < envelope.size(); ++n) {
        mixed.push_back(
            static_cast<double>(envelope[n]) *
            std::polar(1.0, -6.283185307179586 * std::fmod(9960 / rate * static_cast<double>(n), 1.0)));
        sum += mixed[n] - (n >= kAverage ? mixed[n - kAverage] : 0.0);
        power += std::norm(sum / double{kAverage}) / static_cast<double>(envelope.size());
    }
    EXPECT_NEAR(2 * std::sqrt(power), 0.97 * 0.239, 0.012);
}

TEST_F(Recordings, modeSFrameComesThroughAtItsTime) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().add(
        vnksim::Recording{1090e6, -25, vnksim::readRecording(kData + "/adsb_1090_2m.cu8", "cu8", 2e6)}));
    const auto samples = captureIQ(
        ":sweep:entry:mode SH;:sweep:entry:freq:cent 1090000000;:sweep:entry:dec 5;:sweep:entry:spp 65504",
        1);
    // 25 MS/s against 2 MS/s: sample k of the file lies at 12.5 k.
    const auto magnitude = [&samples](size_t k) {
        const size_t place = k * 25 / 2;
        return k % 2 == 0 ? std::abs(samples.at(place))
                          : std::abs(samples.at(place) + samples.at(place + 1)) / 2;
    };
    std::string frame;
    for (size_t digit = 0; digit < 28; ++digit) {
        unsigned value = 0;
        for (size_t bit = 0; bit < 4; ++bit) {
            const size_t k = 794 + 16 + 2 * (4 * digit + bit);
            value = value << 1 | (magnitude(k) > magnitude(k + 1) ? 1u : 0u);
        }
        frame += "0123456789ABCDEF"[value];
    }
    EXPECT_EQ(frame, "8F4D2023587F345E35837E2218B2");
}

TEST(SceneFile, takesPartsOfRecordings) {
    const auto path = std::filesystem::temp_directory_path() / ("part" + std::to_string(::getpid()) + ".json");
    const auto read = [&](const std::string& further) {
        std::ofstream(path) << R"({"emitters": [{"type": "recording", "file": ")" + kData +
                                   R"(/am_vor_rebuilt_47368.cs16", "format": "cs16", "rateHz": 1000,
                                   "frequencyHz": 1e6, "levelDbm": -20)" + further + "}]}";
        return std::get<vnksim::Recording>(vnksim::readScene(path).emitters.at(0)).waveform;
    };
    const auto whole = read("");
    const auto part = read(R"(, "startSec": 0.5, "seconds": 2)");
    ASSERT_EQ(part->samples.size(), 2000u);
    EXPECT_EQ(part->rateHz, 1000);
    EXPECT_EQ(part->samples.front(), whole->samples.at(500));
    EXPECT_EQ(part->samples.back(), whole->samples.at(2499));
    for (const char* wrong : {R"(, "seconds": 0)", R"(, "seconds": 1e9)", R"(, "startSec": -1, "seconds": 1)"}) {
        EXPECT_THROW(read(wrong), std::runtime_error) << wrong;
    }
    std::filesystem::remove(path);
}

TEST(SceneFile, tellsWhatIsWrongAndWhere) {
    const auto folder = std::filesystem::temp_directory_path() / ("vnk-scene-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    const auto message = [&folder](const std::string& text) -> std::string {
        const std::string path = (folder / "scene.json").string();
        std::ofstream(path) << text;
        try {
            vnksim::readScene(path);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    };
    EXPECT_EQ(message(R"({"noiseDbmPerHz": -150, "emitters": []})"), "no error");
    EXPECT_NE(message(R"({"emitters": [{"type": "tone", "frequencyHz": 1}]})").find("emitter 1: 'levelDbm'"),
              std::string::npos);
    EXPECT_NE(message(R"({"emitters": [{"type": "laser", "frequencyHz": 1, "levelDbm": 1}]})").find("laser"),
              std::string::npos);
    EXPECT_NE(message(R"({"emitters": [{"type": "recording", "file": "none.cu8", "format": "cu8", "rateHz": 1,
                          "frequencyHz": 1, "levelDbm": 1}]})")
                  .find("none.cu8: cannot be opened"),
              std::string::npos);
    EXPECT_NE(message(R"({"emitters": [{"type": "fm", "frequencyHz": 1e8, "levelDbm": -30,
                          "audio": [{"frequencyHz": 0.5, "deviationHz": 100}]}]})")
                  .find("whole hertz"),
              std::string::npos);
    EXPECT_NE(message("{").find("scene.json"), std::string::npos);
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace simtest
