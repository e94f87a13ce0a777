#include <algorithm>
#include <string>
#include <vector>

#include "live/session.h"
#include "recordings/player.h"

// What a unit measures, recorded while it is read, and played again.

namespace {

using recordings::bytesOf;
using recordings::Folder;
using recordings::HeldIQ;
using recordings::IQ;
using recordings::parseIQ;
using recordings::readFile;

/// A unit with a tone, opened, and a stream of ten frames a second that is not attached yet.
class RecordingOfAUnit : public testing::Test {
 protected:
    RecordingOfAUnit()
        : mcUnit(live::options(), vnksim::Scene().tone(100.01e6, -40)),
          mcStream(kCentreHz, kBandwidthHz, -30) {
        mcUnit.start();
        mpDevice = std::make_unique<live::Device>(mcUnit.options().address);
        EXPECT_EQ(mpDevice->status(), 0) << live::log();
    }

    int32_t record(const std::string& stem) {
        return vnkSetStreamOutputFile(mcStream.handle(), cFolder.name(stem).c_str());
    }
    int32_t endRecording() { return vnkSetStreamOutputFile(mcStream.handle(), nullptr); }
    void queue(int iFrames) {
        ASSERT_EQ(mcStream.set("{\"bufferFrames\":" + std::to_string(iFrames) + "}"), 0);
    }
    void attach() { ASSERT_EQ(mcStream.attach(*mpDevice), 0); }
    /// Reads so many frames to the end of those read before.
    void read(size_t uFrames) {
        for (; uFrames > 0; --uFrames) {
            HeldIQ cRecord;
            ASSERT_TRUE(next(cRecord)) << live::log();
            keep(cRecord);
        }
    }
    bool next(HeldIQ& cRecord) {
        return vnktest::waitUntil([&] { return cRecord.take(mcStream.handle(), 500) == 0; });
    }
    /// What is queued and nothing that is still to come.
    void readQueued() {
        HeldIQ cRecord;
        while (cRecord.take(mcStream.handle(), 0) == 0)
            keep(cRecord);
    }
    std::vector<IQ> recorded(const std::string& stem) {
        std::string rest;
        std::vector<IQ> lFrames = parseIQ(readFile(cFolder.native(stem + ".data")), &rest);
        EXPECT_EQ(rest, "");
        return lFrames;
    }
    /// What a recording plays, whose records are tuned as those that were read from the unit.
    std::vector<IQ> played(const std::string& stem) {
        recordings::Stream cPlayer;
        cPlayer.queueAll();
        EXPECT_EQ(cPlayer.play(cFolder.name(stem)), 0);
        std::vector<IQ> lFrames;
        HeldIQ cRecord;
        EXPECT_TRUE(vnktest::waitUntil([&] {
            int32_t iStatus = 0;
            while ((iStatus = cPlayer.read(cRecord, 200)) == 0) {
                expectTuned(cRecord);
                lFrames.push_back(contents(cRecord));
            }
            return iStatus == 2;
        }));
        return lFrames;
    }
    void expectTuned(const HeldIQ& cRecord) {
        EXPECT_EQ(cRecord->centreHz, mfCentreHz);
        EXPECT_EQ(cRecord->bandwidthHz, mfBandwidthHz);
        EXPECT_EQ(cRecord->sampleRateHz, mfSampleRateHz);
        EXPECT_EQ(cRecord->status, 0);
    }
    void keep(const HeldIQ& cRecord) {
        mfCentreHz = cRecord->centreHz;
        mfBandwidthHz = cRecord->bandwidthHz;
        mfSampleRateHz = cRecord->sampleRateHz;
        mlRead.push_back(contents(cRecord));
    }
    void expectDescribes(const std::string& stem, const std::vector<IQ>& lFrames) {
        const std::string text = readFile(cFolder.native(stem + ".json"));
        uint64_t uSamples = 0;
        for (const IQ& cFrame : lFrames)
            uSamples += cFrame.mlSamples.size();
        for (const std::string& entry :
             {std::string("\"DataType\":\"IQ\""), "\"Samples\":" + std::to_string(uSamples),
              "\"StartTimestamp\":" + std::to_string(lFrames.front().muTime),
              std::string("\"TimeResolution\":\"ns\""), std::string("\"FCentreHz\":100000000.000000"),
              std::string("\"RefdBm\":-30.000000"), std::string("\"units\":\"sqrt-mw\"")})
            EXPECT_NE(text.find(entry), std::string::npos) << entry << "\n" << text;
    }

    static constexpr double kCentreHz = 100e6, kBandwidthHz = 400e3;
    vnksim::Unit mcUnit;
    std::unique_ptr<live::Device> mpDevice;
    live::Stream mcStream;
    Folder cFolder;
    std::vector<IQ> mlRead;
    double mfCentreHz = 0;
    float mfBandwidthHz = 0, mfSampleRateHz = 0;
};

}  // namespace

TEST_F(RecordingOfAUnit, HoldsTheFramesReadBitForBitAndPlaysThemAgain) {
    queue(1000);
    ASSERT_EQ(record("x"), 0);
    attach();
    read(8);
    ASSERT_EQ(mcStream.detach(), 0);
    readQueued();
    ASSERT_EQ(endRecording(), 0);
    EXPECT_EQ(bytesOf(recorded("x")), bytesOf(mlRead));
    expectDescribes("x", mlRead);
    EXPECT_EQ(bytesOf(played("x")), bytesOf(mlRead));
}

TEST_F(RecordingOfAUnit, HoldsTooWhatTheQueueDropped) {
    queue(2);
    ASSERT_EQ(record("x"), 0);
    attach();
    read(1);
    // The reader pauses until frames have been dropped, which the log tells.
    ASSERT_TRUE(vnktest::waitUntil([] { return live::log().find("FRAME DISCARD") != std::string::npos; }));
    read(1);
    ASSERT_EQ(mcStream.detach(), 0);
    readQueued();
    ASSERT_EQ(mcStream.close(), 0);
    const std::vector<IQ> lFrames = recorded("x");
    ASSERT_GT(lFrames.size(), mlRead.size());
    for (size_t i = 0; i < lFrames.size(); ++i)
        EXPECT_EQ(lFrames[i].muSequence, i) << "no frame is missing";
    for (const IQ& cFrame : mlRead)
        EXPECT_EQ(bytesOf(lFrames[cFrame.muSequence]), bytesOf(cFrame));
    expectDescribes("x", lFrames);
}

TEST_F(RecordingOfAUnit, ThatIsReplacedWhileFramesComeGoesOnWithoutAGap) {
    queue(1000);
    ASSERT_EQ(record("x"), 0);
    attach();
    read(3);
    ASSERT_EQ(record("x"), 0) << "a name that is taken becomes x(1)";
    EXPECT_EQ(recordings::countOf(mcStream.parameters(), cFolder.name("x(1).json")), 1u);
    read(3);
    ASSERT_EQ(record("x"), 0);
    read(3);
    ASSERT_EQ(mcStream.detach(), 0);
    readQueued();
    ASSERT_EQ(mcStream.close(), 0);
    std::vector<IQ> lAll;
    for (const char* pStem : {"x", "x(1)", "x(2)"}) {
        const std::vector<IQ> lFrames = recorded(pStem);
        ASSERT_FALSE(lFrames.empty());
        expectDescribes(pStem, lFrames);
        EXPECT_EQ(bytesOf(played(pStem)), bytesOf(lFrames));
        lAll.insert(lAll.end(), lFrames.begin(), lFrames.end());
    }
    EXPECT_EQ(bytesOf(lAll), bytesOf(mlRead));
}

TEST_F(RecordingOfAUnit, ThatDiesIsCompleteAndPlays) {
    queue(1000);
    ASSERT_EQ(record("x"), 0);
    attach();
    read(4);
    mcUnit.stop();
    // Until nothing comes any more: what the sockets still hold is delivered.
    HeldIQ cRecord;
    while (cRecord.take(mcStream.handle(), 500) == 0)
        keep(cRecord);
    ASSERT_EQ(endRecording(), 0);
    EXPECT_EQ(bytesOf(recorded("x")), bytesOf(mlRead));
    expectDescribes("x", mlRead);
    EXPECT_EQ(bytesOf(played("x")), bytesOf(mlRead));
    EXPECT_EQ(mcStream.close(), 0);
}

TEST_F(RecordingOfAUnit, TellsTheModesOfTwoCapturesByTheirTimes) {
    queue(1000);
    ASSERT_EQ(record("x"), 0);
    attach();
    read(2);
    ASSERT_EQ(mcStream.detach(), 0);
    readQueued();
    const size_t uFirst = mlRead.size();
    attach();
    read(2);
    ASSERT_EQ(mcStream.detach(), 0);
    readQueued();
    ASSERT_EQ(endRecording(), 0);
    ASSERT_GT(mlRead.size(), uFirst);
    EXPECT_EQ(bytesOf(recorded("x")), bytesOf(mlRead)) << "one recording over both";
    EXPECT_GT(mlRead[uFirst].muTime, mlRead[uFirst - 1].muTime);
}

// A stream with a device and a file at once.

TEST_F(RecordingOfAUnit, PlaysBesideTheUnitWhichGoesOnFeeding) {
    recordings::Tuning cTuning;
    cTuning.mfCentreHz = 5e6f;
    writePair(cFolder, "file", recordings::makeIQ(3, 4, 100'000'000'000), cTuning);
    queue(1000);
    attach();
    read(1);
    const auto nextOf = [&](double fCentreHz) {
        HeldIQ cRecord;
        return vnktest::waitUntil([&] { return next(cRecord) && cRecord->centreHz == fCentreHz; });
    };
    ASSERT_EQ(vnkAttachStreamToFile(mcStream.handle(), cFolder.name("file").c_str()), 0);
    EXPECT_TRUE(nextOf(5e6));
    EXPECT_TRUE(nextOf(kCentreHz)) << "both feed the stream";
    EXPECT_EQ(mcStream.detach(), 0) << "the file goes first";
    vnkFlushStream(mcStream.handle());
    EXPECT_TRUE(nextOf(kCentreHz));
    // The end of a file leaves the device as well.
    writePair(cFolder, "short", recordings::makeIQ(1, 4), cTuning);
    ASSERT_EQ(vnkAttachStreamToFile(mcStream.handle(), cFolder.name("short").c_str()), 0);
    EXPECT_TRUE(nextOf(5e6));
    EXPECT_TRUE(
        vnktest::waitUntil([&] { return mcStream.parameters().find("LoopingFlag") == std::string::npos; }));
    vnkFlushStream(mcStream.handle());
    EXPECT_TRUE(nextOf(kCentreHz));
    EXPECT_EQ(mcStream.detach(), 0);
    EXPECT_TRUE(mcUnit.waitForMode("BLOCK", std::chrono::seconds(10)));
    EXPECT_EQ(mcStream.detach(), -44);
}

TEST_F(RecordingOfAUnit, AStreamWithAUnitAndAFileIsClosedInOneGo) {
    writePair(cFolder, "file", recordings::makeIQ(3, 4, 100'000'000'000));
    for (int i = 0; i < 3; ++i) {
        live::Stream cStream(kCentreHz, kBandwidthHz);
        live::Frame cFrame;
        ASSERT_EQ(cStream.attach(*mpDevice), 0);
        ASSERT_EQ(vnkAttachStreamToFile(cStream.handle(), cFolder.name("file").c_str()), 0);
        ASSERT_TRUE(cStream.next(cFrame));
        ASSERT_EQ(vnkAttachStreamToFile(cStream.handle(), cFolder.name("file").c_str()), 0);
        EXPECT_EQ(cStream.close(), 0);
    }
    attach();
    read(2);
    EXPECT_EQ(mcStream.close(), 0);
    EXPECT_TRUE(mcUnit.waitForMode("BLOCK", std::chrono::seconds(10)));
}
