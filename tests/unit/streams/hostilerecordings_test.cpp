#include <unistd.h>

#include <fstream>
#include <optional>
#include <random>

#include "flows/basebandframe.h"
#include "support/resources.h"
#include "unit/streams/playbacksupport.h"

using vnktest::basebandBytes;
using vnktest::Bytes;
using vnktest::ClockedPlayer;
using vnktest::describeBaseband;
using vnktest::describeIQ;
using vnktest::describeSpectrum;
using vnktest::Description;
using vnktest::iqBytes;
using vnktest::PlaybackSink;
using vnktest::spectrumBytes;

namespace {

struct Recording {
    Description mcDescription;
    std::vector<std::string> mlFrames;

    std::string data() const {
        std::string bytes;
        for (const std::string& frame : mlFrames)
            bytes += frame;
        return bytes;
    }
    /// The whole frames of the first bytes.
    std::string wholeFrames(size_t uLength) const {
        std::string bytes;
        for (const std::string& frame : mlFrames) {
            if (bytes.size() + frame.size() > uLength)
                break;
            bytes += frame;
        }
        return bytes;
    }
};

std::vector<Recording> recordings() {
    return {
        {describeIQ(1, 6),
         {iqBytes(1, 0, {1, 2}), iqBytes(2, 1, {3, 4, 5, 6}), iqBytes(3, 2, {7, 8, 9, 1, 2, 3})}},
        {describeSpectrum(1),
         {spectrumBytes(1, 5, 0, {1, 2}), spectrumBytes(2, 6, 1, {3}), spectrumBytes(3, 7, 2, {4, 5})}},
        {describeBaseband(1, 9, 5),
         {basebandBytes({{1, 2}, {3, 4}}), basebandBytes({{5}}), basebandBytes({{6, 7}, {8, 9}, {1, 2}})}}};
}

/// A line of /proc/self/status, in bytes.
uint64_t statusBytes(const std::string& key) {
    std::ifstream cFile("/proc/self/status");
    for (std::string line; std::getline(cFile, line);)
        if (line.rfind(key + ":", 0) == 0)
            return std::stoull(line.substr(key.size() + 1)) * 1024;
    return 0;
}

/// What is taken from the system at most while it exists, be it used or not.
class MemoryWatch {
 public:
    MemoryWatch() {
        std::ofstream("/proc/self/clear_refs") << "5";  // the peak of what is resident begins anew
        muPeak = statusBytes("VmPeak");
        muResident = statusBytes("VmHWM");
    }
    uint64_t reserved() const { return statusBytes("VmPeak") - muPeak; }
    uint64_t used() const { return statusBytes("VmHWM") - muResident; }

 private:
    uint64_t muPeak;
    uint64_t muResident;
};

constexpr uint64_t kMiB = 1 << 20;

}  // namespace

class HostileRecordingsTest : public vnktest::PlaybackTest {
 protected:
    /// Plays what there is; the waits are those of a clock that they move. Each frame that came must be
    /// what the data held, from the first on.
    void expectRightFrames(const std::string& description, const std::string& data) {
        // One of the two stays the same as a rule: writing files is most of what this costs.
        if (mcDescription != description)
            replace("x.json", mcDescription.emplace(description));
        if (mcData != data)
            replace("x.data", mcData.emplace(data));
        const auto cPlayer = player();
        if (!cPlayer->isOpen()) {
            EXPECT_TRUE(cPlayer->isExhausted());
            return;
        }
        ++muOpened;
        cPlayer->run();
        EXPECT_TRUE(cPlayer->isExhausted());
        EXPECT_EQ(mcSink->nullCount(), 1u);
        mcPlayed = mcSink->stored();
        EXPECT_EQ(mcPlayed, data.substr(0, mcPlayed.size()));
        for (const Frame* pFrame : mcSink->frames<Frame>())
            EXPECT_NE(pFrame->getTypeName(), "I");
    }
    std::string mcPlayed;
    size_t muOpened = 0;

 private:
    std::optional<std::string> mcDescription;
    std::optional<std::string> mcData;
};

TEST_F(HostileRecordingsTest, dataCutAtAnyByteGiveTheirWholeFrames) {
    for (const Recording& cRecording : recordings()) {
        const std::string data = cRecording.data();
        for (size_t uLength = 0; uLength <= data.size(); ++uLength) {
            expectRightFrames(cRecording.mcDescription.text(), data.substr(0, uLength));
            EXPECT_EQ(mcPlayed, cRecording.wholeFrames(uLength))
                << cRecording.mcDescription.mcDataType << uLength;
        }
        EXPECT_EQ(muOpened, data.size() + 1);
        muOpened = 0;
    }
}

TEST_F(HostileRecordingsTest, cutDataLoopOverTheirWholeFrames) {
    for (const Recording& cRecording : recordings()) {
        write(cRecording.mcDescription.text(), cRecording.data().substr(0, cRecording.data().size() - 1));
        const auto cPlayer = player();
        cPlayer->setLooping(true);
        mcSink->mcReaction = [&](const Frame*) { cPlayer->setLooping(mcSink->frameCount() < 5); };
        cPlayer->run();
        const std::string once = cRecording.wholeFrames(cRecording.data().size() - 1);
        EXPECT_EQ(mcSink->stored(), once + once + once);
    }
}

TEST_F(HostileRecordingsTest, aDescriptionCutAtAnyByteIsNotOpenOrPlaysWholeFrames) {
    for (const Recording& cRecording : recordings()) {
        const std::string text = cRecording.mcDescription.text();
        for (size_t uLength = 0; uLength < text.size(); ++uLength)
            expectRightFrames(text.substr(0, uLength), cRecording.data());
        EXPECT_LT(muOpened, text.size() / 2);
        muOpened = 0;
    }
}

TEST_F(HostileRecordingsTest, anyBitOfTheDataMayBeFlipped) {
    for (const Recording& cRecording : recordings()) {
        const std::string data = cRecording.data();
        for (size_t uBit = 0; uBit < 8 * data.size(); ++uBit) {
            std::string flipped = data;
            flipped[uBit / 8] = static_cast<char>(flipped[uBit / 8] ^ (1 << uBit % 8));
            expectRightFrames(cRecording.mcDescription.text(), flipped);
        }
    }
}

TEST_F(HostileRecordingsTest, anyBitOfTheDescriptionMayBeFlipped) {
    for (const Recording& cRecording : recordings()) {
        const std::string text = cRecording.mcDescription.text();
        for (size_t uBit = 0; uBit < 8 * text.size(); ++uBit) {
            std::string flipped = text;
            flipped[uBit / 8] = static_cast<char>(flipped[uBit / 8] ^ (1 << uBit % 8));
            expectRightFrames(flipped, cRecording.data());
        }
    }
    EXPECT_GT(muOpened, 1000u);
}

TEST_F(HostileRecordingsTest, bytesPutInAnywhereDoNoHarm) {
    std::mt19937 cRandom(7);
    for (const Recording& cRecording : recordings())
        for (int i = 0; i < 500; ++i) {
            std::string text = cRecording.mcDescription.text();
            std::string data = cRecording.data();
            for (std::string* pBytes : {&text, &data})
                for (unsigned uEdits = cRandom() % 4; uEdits > 0; --uEdits)
                    pBytes->insert(cRandom() % pBytes->size(), cRandom() % 9, static_cast<char>(cRandom()));
            expectRightFrames(text, data);
        }
}

TEST_F(HostileRecordingsTest, aCountThatTheFileDoesNotHoldTakesNoMemory) {
    const std::string iq = Bytes().u32(0x12F7A2E6).u64(1).u32(0).u32(0xFFFFFFFF).text();
    ASSERT_EQ(iq.size(), 20u);
    const std::string spectrum = Bytes().u32(0x59EC7422).u64(1).u64(1).u32(0).u32(0xFFFFFFFF).text();
    const std::string baseband = Bytes().u32(0xBA5EBA4D).u32(0xFFFFFFFF).u32(0xFFFFFFFF).text();
    const std::vector<std::pair<Description, std::string>> lCases{
        {describeIQ(1, 6), iq},
        {describeSpectrum(1), spectrum},
        {describeBaseband(1, 2, 3), baseband},
        {describeIQ(1, 6), iq + std::string(1000, 'x')},
        {describeSpectrum(1), spectrum + std::string(1000, 'x')},
        {describeBaseband(1, 2, 3), baseband + std::string(1000, 'x')}};
    for (const auto& [cDescription, data] : lCases) {
        write(cDescription, data);
        const auto cPlayer = player();
        const MemoryWatch cWatch;
        cPlayer->run();
        EXPECT_EQ(mcSink->frameCount(), 0u);
        EXPECT_EQ(mcSink->nullCount(), 1u);
        EXPECT_LT(cWatch.reserved(), 64 * kMiB) << cDescription.mcDataType << data.size();
        EXPECT_LT(cWatch.used(), 32 * kMiB) << cDescription.mcDataType << data.size();
    }
}

TEST_F(HostileRecordingsTest, channelsWithoutSamplesTakeNoMemory) {
    for (const uint32_t uChannels : {0xFFFFFFFFu, 0x80000000u, 1025u, 1024u, 1u, 0u}) {
        write(describeBaseband(1, 2, 3), Bytes().u32(0xBA5EBA4D).u32(0).u32(uChannels).text());
        const auto cPlayer = player();
        const MemoryWatch cWatch;
        cPlayer->run();
        EXPECT_EQ(mcSink->frameCount(), 0u) << uChannels;
        EXPECT_LT(cWatch.reserved(), 64 * kMiB) << uChannels;
        EXPECT_LT(cWatch.used(), 32 * kMiB) << uChannels;
    }
}

TEST_F(HostileRecordingsTest, channelsOfFewSamplesTakeMemoryForThoseThatAreThere) {
    write(describeBaseband(1, 2, 3),
          Bytes().u32(0xBA5EBA4D).u32(1).u32(0xFFFFFFFF).text() + std::string(200000, 'x'));
    const auto cPlayer = player();
    const MemoryWatch cWatch;
    cPlayer->run();
    EXPECT_EQ(mcSink->frameCount(), 0u);
    EXPECT_LT(cWatch.reserved(), 128 * kMiB);
    EXPECT_LT(cWatch.used(), 64 * kMiB);
}

TEST_F(HostileRecordingsTest, samplesWithoutChannelsAreFramesOfNothing) {
    const std::string nothing = Bytes().u32(0xBA5EBA4D).u32(5).u32(0).text();
    expectRightFrames(describeBaseband(1, 2, 3).text(), nothing + basebandBytes({{1}}));
    const auto lFrames = mcSink->frames<BasebandFrame>();
    ASSERT_EQ(lFrames.size(), 2u);
    EXPECT_EQ(lFrames[0]->channelCount(), 0u);
    EXPECT_EQ(lFrames[1]->channelCount(), 1u);
}

TEST_F(HostileRecordingsTest, aBigFrameThatIsThereIsPlayed) {
    const std::vector<float> lPairs(2 << 20, 0.25f);  // beyond what is taken on trust
    const std::string data = iqBytes(1, 0, lPairs) + iqBytes(2, 1, lPairs);
    expectRightFrames(describeIQ(1, 3 << 20).text(), data);
    EXPECT_EQ(mcPlayed.size(), data.size());
    expectRightFrames(describeIQ(1, 3 << 20).text(), data.substr(0, data.size() - 1));
    EXPECT_EQ(mcPlayed.size(), data.size() / 2);
}

TEST_F(HostileRecordingsTest, aDescriptionNestedDeeplyIsSurvived) {
    const std::string data = recordings()[0].data();
    const std::string text = describeIQ(1, 6).text();
    std::string records, arrays;
    for (int i = 0; i < 40000; ++i) {
        records += "{\"a\":";
        arrays += "[";
    }
    const std::string tail = text.substr(0, text.size() - 1);
    for (const std::string& deep : {records, arrays}) {
        expectRightFrames(deep, data);
        expectRightFrames(tail + ",\"deep\":" + deep + "}", data);
        expectRightFrames("{\"DataType\":\"IQ\",\"IQ\":{\"deep\":" + deep, data);
        expectRightFrames("{\"DataType\":\"IQ\",\"IQ\":{},\"Sampling\":{\"units\":" + deep, data);
        expectRightFrames("{\"DataType\":" + deep + "\"IQ\",\"IQ\":{},\"Sampling\":{}}", data);
    }
    expectRightFrames(std::string(40000, '}') + text, data);
}

TEST_F(HostileRecordingsTest, oddBytesInTheDescriptionAreSurvived) {
    const std::string text = describeIQ(1, 6).text();
    for (const std::string& odd :
         {std::string(1, '\0'), std::string(100, '\0'), std::string("\xFF\xFE"), std::string("\xEF\xBB\xBF"),
          std::string(100000, '"'), std::string(100000, ':'), std::string(100000, ',')}) {
        expectRightFrames(odd, "");
        expectRightFrames(odd + text, recordings()[0].data());
        expectRightFrames(text + odd, recordings()[0].data());
        expectRightFrames(text.substr(0, 40) + odd + text.substr(40), recordings()[0].data());
    }
}

TEST_F(HostileRecordingsTest, aDescriptionWithoutAnEndIsNotRead) {
    write(describeIQ(1, 6), recordings()[0].data());
    ASSERT_EQ(::truncate(mcFolder.file("x.json").c_str(), off_t{1} << 40), 0);
    const MemoryWatch cWatch;
    EXPECT_FALSE(makeReference<StreamInputFile>(mcFolder.path("x"))->isOpen());
    EXPECT_LT(cWatch.reserved(), 64 * kMiB);
    EXPECT_LT(cWatch.used(), 32 * kMiB);
}

TEST_F(HostileRecordingsTest, anyValueMayStandInAnyPlace) {
    const std::vector<std::string> lValues{"0",
                                           "1",
                                           "4294967295",
                                           "4294967296",
                                           "18446744073709551615",
                                           "99999999999999999999999",
                                           "0.0",
                                           "-0.0",
                                           "-1.5",
                                           "1e30",
                                           "-1e30",
                                           "1e38",
                                           "1e99",
                                           "-1e99",
                                           "1e-30",
                                           "nan",
                                           "inf.",
                                           "\"\"",
                                           "\"ps\"",
                                           "\"s\"",
                                           "\"?\"",
                                           "true",
                                           "{}",
                                           "[1,2]",
                                           ""};
    for (const Recording& cRecording : recordings()) {
        std::vector<std::string> lKeys{"PointsPerFrame"};
        for (const auto& [key, value] : cRecording.mcDescription.mcSummary)
            lKeys.push_back(key);
        for (const std::string& value : lValues) {
            for (const std::string& key : lKeys) {
                Description cDescription = cRecording.mcDescription;
                cDescription.mcSummary[key] = value;
                expectRightFrames(cDescription.text(), cRecording.data());
                cDescription.mcSummary["PointsPerFrame"] = "1000000000";
                cDescription.mcSampling["SampleRateHz"] = value;
                expectRightFrames(cDescription.text(), cRecording.data());
            }
            for (const auto& [key, before] : cRecording.mcDescription.mcSampling) {
                Description cDescription = cRecording.mcDescription;
                cDescription.mcSampling[key] = value;
                expectRightFrames(cDescription.text(), cRecording.data());
            }
        }
    }
}

TEST_F(HostileRecordingsTest, onesTextWithAnothersDataPlaysNothing) {
    for (const Recording& cText : recordings())
        for (const Recording& cData : recordings()) {
            if (cText.mcDescription.mcDataType == cData.mcDescription.mcDataType)
                continue;
            expectRightFrames(cText.mcDescription.text(), cData.data());
            EXPECT_EQ(mcPlayed, "");
        }
}

TEST_F(HostileRecordingsTest, timestampsOfAnySizeAreSurvived) {
    const std::vector<uint64_t> lTimes{0, 1, uint64_t{1} << 63, (uint64_t{1} << 63) - 1, UINT64_MAX};
    for (const char* pResolution : {"s", "ms", "us", "ns", "ps", "x"})
        for (const uint64_t uStart : lTimes)
            for (const uint64_t uFirst : lTimes)
                for (const uint64_t uSecond : lTimes) {
                    Description cIQ = describeIQ(uStart, 99);
                    cIQ.mcSummary["TimeResolution"] = std::string("\"") + pResolution + "\"";
                    const std::string data = iqBytes(uFirst, 0, {1, 2}) + iqBytes(uSecond, 0, {1, 2});
                    expectRightFrames(cIQ.text(), data);
                    EXPECT_EQ(mcPlayed, data);
                }
}
