// What is written is read back here by other means: line by line, by a JSON parser, as plain floats.
#include "tools/spectrumoutput.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/exitcodes.h"

using namespace cli;

namespace {

const std::vector<float> kFirst{-101.5f, -42.123456f, -99.0f}, kSecond{-100.25f, -43.0f, -98.7654321f};
constexpr uint64_t kTime = 1741529106007000000;  // 2025-03-09 14:05:06.007 UTC

class SpectrumFile : public ::testing::Test {
 protected:
    SpectrumFile() : mcPath(::testing::TempDir() + "vnk-" + std::to_string(::getpid()) + "-spectra") {}
    ~SpectrumFile() override { std::filesystem::remove(mcPath); }

    std::string write(SpectrumFormat format, const std::vector<std::vector<float>>& spectra) {
        const auto output = openOutput(mcPath);
        SpectrumWriter writer(*output, format);
        uint32_t uSequence = 0;
        for (const auto& levels : spectra) {
            EXPECT_TRUE(writer.write({uSequence, kTime + uSequence * 1000000ull, 88e6, 108e6, 10000.5,
                                      levels.data(), levels.size()}));
            ++uSequence;
        }
        output->close();
        std::ifstream file(mcPath, std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(file), {}};
        EXPECT_EQ(bytes.size(), output->bytes());
        return bytes;
    }

    std::string mcPath;
};

Exit codeOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Failure& failure) {
        return failure.code();
    }
    return Exit::done;
}

}  // namespace

TEST_F(SpectrumFile, CsvHasAHeaderAndALineForEachPoint) {
    std::istringstream lines(write(SpectrumFormat::csv, {kFirst, kSecond}));
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "sequence,time,frequency_hz,level_dbm");
    const std::vector<std::string> expected{"0,2025-03-09T14:05:06.007000000Z,88000000.0,-101.500",
                                            "0,2025-03-09T14:05:06.007000000Z,98000000.0,-42.123",
                                            "0,2025-03-09T14:05:06.007000000Z,108000000.0,-99.000",
                                            "1,2025-03-09T14:05:06.008000000Z,88000000.0,-100.250",
                                            "1,2025-03-09T14:05:06.008000000Z,98000000.0,-43.000",
                                            "1,2025-03-09T14:05:06.008000000Z,108000000.0,-98.765"};
    for (const std::string& wanted : expected) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_EQ(line, wanted);
    }
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(SpectrumFile, JsonLinesHoldOneObjectForEachSpectrumWithExactLevels) {
    std::istringstream lines(write(SpectrumFormat::jsonl, {kFirst, kSecond}));
    std::string line;
    uint32_t uSequence = 0;
    for (const auto& levels : {kFirst, kSecond}) {
        ASSERT_TRUE(std::getline(lines, line));
        const auto json = nlohmann::json::parse(line);
        EXPECT_EQ(json["sequence"], uSequence);
        EXPECT_EQ(json["time"],
                  uSequence == 0 ? "2025-03-09T14:05:06.007000000Z" : "2025-03-09T14:05:06.008000000Z");
        EXPECT_EQ(json["minimumHz"], 88e6);
        EXPECT_EQ(json["maximumHz"], 108e6);
        EXPECT_EQ(json["rbwHz"], 10000.5);
        EXPECT_EQ(json["levelsdBm"].get<std::vector<float>>(), levels);
        ++uSequence;
    }
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(SpectrumFile, FloatsFollowEachOther) {
    const std::string bytes = write(SpectrumFormat::f32, {kFirst, kSecond});
    ASSERT_EQ(bytes.size(), 6 * sizeof(float));
    std::vector<float> levels(6);
    std::memcpy(levels.data(), bytes.data(), bytes.size());
    EXPECT_EQ(std::vector<float>(levels.begin(), levels.begin() + 3), kFirst);
    EXPECT_EQ(std::vector<float>(levels.begin() + 3, levels.end()), kSecond);
    EXPECT_EQ(static_cast<unsigned char>(bytes[2]), 0xCB) << "-101.5 is C2CB0000: the least byte comes first";
}

TEST_F(SpectrumFile, LevelsThatAreNotFiniteHaveAWord) {
    const std::vector<float> levels{-std::numeric_limits<float>::infinity(), -50};
    EXPECT_NE(write(SpectrumFormat::csv, {levels}).find("Z,88000000.0,-inf\n"), std::string::npos);
    const auto json = nlohmann::json::parse(write(SpectrumFormat::jsonl, {levels}));
    EXPECT_TRUE(json["levelsdBm"][0].is_null());
    EXPECT_EQ(json["levelsdBm"][1], -50);
}

TEST_F(SpectrumFile, TargetsThatCannotBeWrittenAreFileTrouble) {
    EXPECT_EQ(codeOf([] { openOutput("/nowhere/at/all"); }), Exit::file);
    EXPECT_EQ(codeOf([] { openOutput(::testing::TempDir()); }), Exit::file) << "a folder";
    EXPECT_EQ(
        codeOf([] {
            const auto output = openOutput("/dev/full");
            SpectrumWriter(*output, SpectrumFormat::csv).write({0, 0, 1, 2, 1, kFirst.data(), kFirst.size()});
        }),
        Exit::file);
}

TEST_F(SpectrumFile, APipeNeedsAReader) {
    ASSERT_EQ(::mkfifo(mcPath.c_str(), 0600), 0);
    EXPECT_EQ(codeOf([&] { openOutput(mcPath); }), Exit::file);
    const int iReader = ::open(mcPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(iReader, 0);
    {
        const auto output = openOutput(mcPath);
        SpectrumWriter writer(*output, SpectrumFormat::f32);
        EXPECT_TRUE(writer.write({0, 0, 1, 2, 1, kFirst.data(), kFirst.size()}));
    }
    std::vector<float> levels(8);
    ASSERT_EQ(::read(iReader, levels.data(), 8 * sizeof(float)), 3 * static_cast<ssize_t>(sizeof(float)));
    levels.resize(3);
    EXPECT_EQ(levels, kFirst);
    ::close(iReader);
}
