#include "streams/wavconversion.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "foundations/clock.h"
#include "support/loopback.h"
#include "support/resources.h"
#include "unit/streams/playbacksupport.h"

using vnktest::basebandBytes;
using vnktest::describeBaseband;
using vnktest::describeIQ;
using vnktest::describeSpectrum;
using vnktest::Description;
using vnktest::iqBytes;
using vnktest::readWhole;
using vnktest::spectrumBytes;

namespace {

std::string u16(unsigned uValue) {
    return {static_cast<char>(uValue & 0xFF), static_cast<char>(uValue >> 8)};
}

/// The header of a file without samples.
std::string header(uint32_t uRate, uint32_t uByteRate) {
    using vnktest::Bytes;
    return "RIFF" + Bytes().u32(36).text() + "WAVEfmt " + Bytes().u32(16).text() + u16(1) + u16(1) +
           Bytes().u32(uRate).u32(uByteRate).text() + u16(2) + u16(16) + "data" + Bytes().u32(0).text();
}

}  // namespace

class WAVConversionTest : public vnktest::PlaybackTest {
 protected:
    int32_t convert(const std::string& target = "out.wav") {
        return convertBasebandFileToWavFile(mcFolder.path("x.json"), mcFolder.path(target));
    }
    void writeRate(const std::string& rate) {
        Description cDescription = describeBaseband(1, 2, 3);
        cDescription.mcSampling["SampleRateHz"] = rate;
        write(cDescription, basebandBytes({{1, 2}, {3, 4}}));
    }
};

TEST_F(WAVConversionTest, recordingsOfAnyLengthGiveAHeaderWithTheirRate) {
    const std::string expected = header(48000, 96000);
    ASSERT_EQ(expected.size(), 44u);
    uint32_t uOutput = 0;
    for (const size_t uFrames : {0u, 1u, 50u}) {
        std::string data;
        for (size_t i = 0; i < uFrames; ++i)
            data += basebandBytes({std::vector<float>(100, 0.5f), std::vector<float>(100, -0.5f)});
        write(describeBaseband(1, 2, 3), data);
        const std::string name = "out" + std::to_string(uOutput++) + ".wav";
        EXPECT_EQ(convert(name), 0);
        EXPECT_EQ(readWhole(mcFolder.file(name)), expected) << uFrames;
    }
}

TEST_F(WAVConversionTest, theRateIsTakenInEveryNumericForm) {
    const std::map<std::string, std::pair<uint32_t, uint32_t>> cCases{
        {"44100", {44100, 88200}},
        {"44100.0", {44100, 88200}},
        {"11025.5", {11026, 22052}},
        {"11025.25", {11025, 22050}},
        {"4294967295", {4294967295, 4294967294}},
        {"4294967296", {0, 0}},
        {"18446744073709551615", {0, 0}},
        {"0.0", {0, 0}},
        {"-48000.0", {0, 0}},
        {"1e30", {0, 0}},
        {"nan", {0, 0}},
        {"\"48000\"", {0, 0}},
        {"true", {0, 0}},
        {"{}", {0, 0}}};
    for (const auto& [text, cRates] : cCases) {
        writeRate(text);
        EXPECT_EQ(convert(), 0) << text;
        EXPECT_EQ(readWhole(mcFolder.file("out.wav")), header(cRates.first, cRates.second)) << text;
        ASSERT_EQ(::unlink(mcFolder.file("out.wav").c_str()), 0);
    }
}

TEST_F(WAVConversionTest, aRecordingOfAnotherTypeIsRefusedWithoutAnOutput) {
    write(describeIQ(1, 6), iqBytes(1, 1, {1, 2}));
    EXPECT_EQ(convert(), -79);
    write(describeSpectrum(1), spectrumBytes(1, 0, 0, {1}));
    EXPECT_EQ(convert(), -79);
    write("{\"DataType\":\"Other\",\"Other\":{},\"Sampling\":{}}", "");
    EXPECT_EQ(convert(), -79);
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"x.data", "x.json"}));
}

TEST_F(WAVConversionTest, aRecordingThatDoesNotOpenIsTold) {
    EXPECT_EQ(convert(), -29);
    EXPECT_EQ(convertBasebandFileToWavFile("", mcFolder.path("out.wav")), -29);
    write(describeBaseband(1, 2, 3), "");
    ASSERT_EQ(::unlink(mcFolder.file("x.data").c_str()), 0);
    EXPECT_EQ(convert(), -29);
    EXPECT_EQ(mcFolder.names(), std::vector<std::string>{"x.json"});
}

TEST_F(WAVConversionTest, theRecordingIsLookedAtBeforeTheOutput) {
    write(describeIQ(1, 6), iqBytes(1, 1, {1, 2}));
    EXPECT_EQ(convert("missing\\out.wav"), -79);
    writeRate("48000.0");
    EXPECT_EQ(convert("missing\\out.wav"), -84);
    EXPECT_EQ(convertBasebandFileToWavFile(mcFolder.path("x"), ""), -84);
    EXPECT_EQ(convertBasebandFileToWavFile(mcFolder.path("x"), "out.wav"), -84);
    EXPECT_EQ(convertBasebandFileToWavFile(mcFolder.path("x"), mcFolder.file("out.wav")), -84);
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"x.data", "x.json"}));
}

TEST_F(WAVConversionTest, namesThatAreTakenAreNumberedAndLeftAlone) {
    writeRate("48000.0");
    vnktest::writeWhole(mcFolder.file("out.wav"), "mine");
    EXPECT_EQ(convert(), 0);
    EXPECT_EQ(convert(), 0);
    EXPECT_EQ(readWhole(mcFolder.file("out.wav")), "mine");
    EXPECT_EQ(readWhole(mcFolder.file("out(1).wav")), header(48000, 96000));
    EXPECT_EQ(readWhole(mcFolder.file("out(2).wav")), header(48000, 96000));
    EXPECT_EQ(mcFolder.names().size(), 5u);
}

TEST_F(WAVConversionTest, aNameWithNoNumberInItsParenthesesThrows) {
    writeRate("48000.0");
    vnktest::writeWhole(mcFolder.file("out(a).wav"), "mine");
    const size_t uDescriptors = vnktest::openDescriptors();
    EXPECT_THROW(convert("out(a).wav"), std::invalid_argument);
    EXPECT_EQ(vnktest::openDescriptors(), uDescriptors);
}

TEST_F(WAVConversionTest, whatIsNoRegularFileIsPassedByWithoutAWait) {
    writeRate("48000.0");
    ASSERT_EQ(::mkfifo(mcFolder.file("pipe.wav").c_str(), 0600), 0);
    EXPECT_EQ(convert("pipe.wav"), 0);
    EXPECT_EQ(readWhole(mcFolder.file("pipe(1).wav")), header(48000, 96000));
    ASSERT_EQ(::mkdir(mcFolder.file("folder.wav").c_str(), 0700), 0);
    EXPECT_EQ(convert("folder.wav"), 0);
    EXPECT_EQ(readWhole(mcFolder.file("folder(1).wav")), header(48000, 96000));
}

TEST_F(WAVConversionTest, anOutputThatCannotBeMadeIsTold) {
    writeRate("48000.0");
    ASSERT_EQ(::symlink("nowhere/out.wav", mcFolder.file("out.wav").c_str()), 0);
    EXPECT_EQ(convert(), -29);
    EXPECT_EQ(convert(std::string(300, 'n') + ".wav"), -29);
}

TEST_F(WAVConversionTest, aDiskThatTakesNothingChangesNeitherTheResultNorTheEnd) {
    writeRate("48000.0");
    rlimit cBefore{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &cBefore), 0);
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    const rlimit cNone{10, cBefore.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &cNone), 0);
    const int32_t iStatus = convert();
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &cBefore), 0);
    ::signal(SIGXFSZ, handler);
    EXPECT_EQ(iStatus, 0);
    EXPECT_LE(readWhole(mcFolder.file("out.wav")).size(), 10u);
}

TEST_F(WAVConversionTest, brokenDataStillConvert) {
    const std::string whole = basebandBytes({{1, 2}, {3, 4}});
    for (const std::string& data :
         {std::string("rubbish"), whole.substr(0, 13), whole + "rest", iqBytes(1, 1, {1, 2})}) {
        write(describeBaseband(1, 2, 3), data);
        EXPECT_EQ(convert(), 0);
        EXPECT_EQ(readWhole(mcFolder.file("out.wav")), header(48000, 96000));
        ASSERT_EQ(::unlink(mcFolder.file("out.wav").c_str()), 0);
    }
}

TEST_F(WAVConversionTest, theConversionPlaysAtThePaceOfTheRecording) {
    Description cDescription = describeBaseband(1, 2, 3);
    cDescription.mcSummary["PointsPerFrame"] = "2400";  // 50 ms each
    write(cDescription, basebandBytes({{1}}) + basebandBytes({{1}}) + basebandBytes({{1}}));
    const uint64_t uBegin = utils::steadyMilliseconds();
    EXPECT_EQ(convert(), 0);
    EXPECT_GE(utils::steadyMilliseconds() - uBegin, 149u);
}

TEST_F(WAVConversionTest, aHundredConversionsLeaveNothingBehind) {
    writeRate("48000.0");
    const size_t uDescriptors = vnktest::openDescriptors();
    const size_t uThreads = vnktest::idleThreads();
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(convert("n" + std::to_string(i) + ".wav"), 0);
    EXPECT_EQ(vnktest::openDescriptors(), uDescriptors);
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
}
