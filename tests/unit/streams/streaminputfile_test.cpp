#include "streams/streaminputfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "flows/basebandframe.h"
#include "flows/iqframesink.h"
#include "support/loopback.h"
#include "support/resources.h"
#include "unit/streams/playbacksupport.h"

using vnktest::basebandBytes;
using vnktest::ClockedPlayer;
using vnktest::describeBaseband;
using vnktest::describeIQ;
using vnktest::describeSpectrum;
using vnktest::Description;
using vnktest::iqBytes;
using vnktest::PlaybackSink;
using vnktest::spectrumBytes;
using vnktest::waitUntil;

namespace {

using Times = std::vector<uint64_t>;

// Three frames of 1, 2 and 3 samples.
std::string threeIQFrames() {
    return iqBytes(1000, 7, {1, 2}) + iqBytes(2000, 8, {3, 4, 5, 6}) +
           iqBytes(3000, 9, {7, 8, 9, 10, 11, 12});
}

ReferencePtr<StreamInputFile> opened(const std::string& path) {
    return makeReference<StreamInputFile>(path);
}

/// Throws on the frame with the number given, or at the end of the stream.
class ThrowingSink : public PlaybackSink {
 public:
    ThrowingSink(size_t uFrame, bool bAtEnd) {
        mcReaction = [this, uFrame, bAtEnd](const Frame* pFrame) {
            if (pFrame ? frameCount() >= uFrame : bAtEnd)
                throw std::runtime_error("this sink is broken");
        };
    }
};

}  // namespace

class StreamInputFileTest : public vnktest::PlaybackTest {};

// Opening.

TEST_F(StreamInputFileTest, anyExtensionOrNoneOpensTheSamePair) {
    write(describeIQ(1000, 6), threeIQFrames());
    for (const char* pName : {"x", "x.json", "x.data", "x.bin", "x."}) {
        const auto cFile = opened(mcFolder.path(pName));
        EXPECT_TRUE(cFile->isOpen()) << pName;
        EXPECT_EQ(cFile->getPath(), mcFolder.path("x")) << pName;
        EXPECT_FALSE(cFile->isExhausted()) << pName;
        EXPECT_EQ(cFile->dataType(), "IQ");
    }
}

TEST_F(StreamInputFileTest, aNameWithADotNeedsAnExtensionBehindIt) {
    vnktest::writeWhole(mcFolder.file("x.y.json"), describeIQ(1, 6).text());
    vnktest::writeWhole(mcFolder.file("x.y.data"), threeIQFrames());
    EXPECT_TRUE(opened(mcFolder.path("x.y.json"))->isOpen());
    EXPECT_FALSE(opened(mcFolder.path("x.y"))->isOpen());
}

TEST_F(StreamInputFileTest, aFolderWithADotHidesANameWithoutOne) {
    ASSERT_EQ(::mkdir(mcFolder.file("a.b").c_str(), 0700), 0);
    vnktest::writeWhole(mcFolder.file("a.b/x.json"), describeIQ(1, 6).text());
    vnktest::writeWhole(mcFolder.file("a.b/x.data"), threeIQFrames());
    EXPECT_FALSE(opened(mcFolder.path("a.b\\x"))->isOpen());
    EXPECT_TRUE(opened(mcFolder.path("a.b\\x.json"))->isOpen());
}

TEST_F(StreamInputFileTest, onlyABackslashEndsTheFolder) {
    write(describeIQ(1000, 6), threeIQFrames());
    EXPECT_FALSE(opened(mcFolder.file("x.json"))->isOpen());
    EXPECT_FALSE(opened("x.json")->isOpen());
    EXPECT_FALSE(opened("")->isOpen());
    EXPECT_FALSE(opened("\\")->isOpen());
    EXPECT_FALSE(opened(".")->isOpen());
    EXPECT_FALSE(opened(mcFolder.path("missing\\x"))->isOpen());
}

TEST_F(StreamInputFileTest, aFileThatDidNotOpenIsExhaustedAndHasNothing) {
    const auto cFile = opened(mcFolder.path("x"));
    EXPECT_FALSE(cFile->isOpen());
    EXPECT_TRUE(cFile->isExhausted());
    EXPECT_EQ(cFile->getPath(), "");
    EXPECT_TRUE(cFile->getSampling().empty());
    EXPECT_EQ(cFile->sourceName(), "");
    EXPECT_EQ(cFile->getName(), "StreamInputFile");
}

TEST_F(StreamInputFileTest, eachMissingSideLeavesItNotOpen) {
    vnktest::writeWhole(mcFolder.file("x.data"), threeIQFrames());
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    vnktest::writeWhole(mcFolder.file("x.json"), "");
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    write(describeIQ(1000, 6), threeIQFrames());
    EXPECT_TRUE(opened(mcFolder.path("x"))->isOpen());
    ASSERT_EQ(::unlink(mcFolder.file("x.data").c_str()), 0);
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
}

TEST_F(StreamInputFileTest, aTypeWhoseSummaryIsMissingIsNotOpen) {
    write("{\"DataType\":\"IQ\",\"Sampling\":{},\"Spectrum\":{}}", threeIQFrames());
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    EXPECT_TRUE(opened(mcFolder.path("x"))->isExhausted());
}

TEST_F(StreamInputFileTest, whatIsNoRegularFileIsNotOpenedAndNotWaitedFor) {
    const auto uFree = vnktest::openDescriptors();
    ASSERT_EQ(::mkfifo(mcFolder.file("x.data").c_str(), 0600), 0);
    vnktest::writeWhole(mcFolder.file("x.json"), describeIQ(1, 6).text());
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    ASSERT_EQ(::unlink(mcFolder.file("x.data").c_str()), 0);
    ASSERT_EQ(::mkdir(mcFolder.file("x.data").c_str(), 0700), 0);
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    ASSERT_EQ(::rmdir(mcFolder.file("x.data").c_str()), 0);
    ASSERT_EQ(::symlink("/dev/zero", mcFolder.file("x.data").c_str()), 0);
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    ASSERT_EQ(::unlink(mcFolder.file("x.data").c_str()), 0);
    vnktest::writeWhole(mcFolder.file("x.data"), threeIQFrames());
    EXPECT_TRUE(opened(mcFolder.path("x"))->isOpen());
    ASSERT_EQ(::unlink(mcFolder.file("x.json").c_str()), 0);
    ASSERT_EQ(::mkfifo(mcFolder.file("x.json").c_str(), 0600), 0);
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    ASSERT_EQ(::unlink(mcFolder.file("x.json").c_str()), 0);
    ASSERT_EQ(::symlink("/dev/zero", mcFolder.file("x.json").c_str()), 0);
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    ASSERT_EQ(::unlink(mcFolder.file("x.json").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", mcFolder.file("x.json").c_str()), 0);
    EXPECT_FALSE(opened(mcFolder.path("x"))->isOpen());
    EXPECT_EQ(vnktest::openDescriptors(), uFree);
}

TEST_F(StreamInputFileTest, samplingOfSpectraHasEdgesThatTheFileLacks) {
    write(describeSpectrum(1000), spectrumBytes(1000, 10, 0, {1, 2}));
    const auto cSampling = opened(mcFolder.path("x"))->getSampling();
    EXPECT_EQ(cSampling.getNumber("FMinHz"), 99.5e6f);
    EXPECT_EQ(cSampling.getNumber("FMaxHz"), 100.5e6f);
    EXPECT_EQ(cSampling.getText("WindowFn"), "Hanning");
    write(describeIQ(1000, 6), threeIQFrames());
    EXPECT_FALSE(opened(mcFolder.path("x"))->getSampling().find("FMinHz"));
}

// The IQ pass.

TEST_F(StreamInputFileTest, iqFramesTakeTimeAndSequenceFromTheDataAndTheRestFromTheText) {
    Description cDescription = describeIQ(1000, 6);
    cDescription.mcSampling["ReferenceLeveldBm"] = "-12.5";
    write(cDescription, threeIQFrames());
    const auto cPlayer = playAll();
    const auto lFrames = mcSink->frames<IQFrame>();
    ASSERT_EQ(lFrames.size(), 3u);
    EXPECT_EQ(mcSink->timestamps(), (Times{1000, 2000, 3000}));
    const std::vector<uint64_t> lPositions{0, 1, 3};
    for (uint32_t i = 0; i < 3; ++i) {
        const IQFrame& cFrame = *lFrames[i];
        EXPECT_EQ(cFrame.sequence(), 7 + i);
        EXPECT_EQ(cFrame.zerothSample(), lPositions[i]);
        EXPECT_EQ(cFrame.timeResolution(), kNanoseconds);
        EXPECT_EQ(cFrame.centreFrequency(), 1e8f);
        EXPECT_EQ(cFrame.bandwidth(), 1e6f);
        EXPECT_EQ(cFrame.sampleRate(), 2e6f);
        EXPECT_EQ(cFrame.referenceLevel(), -12.5f);
        EXPECT_EQ(cFrame.getUnits(), "sqrt-mw");
        EXPECT_EQ(cFrame.level(), -1000.0f);
        EXPECT_FALSE(cFrame.isSubOptimal());
        EXPECT_TRUE(cFrame.isDiscardable());
        EXPECT_FALSE(cFrame.isLive());
    }
    EXPECT_EQ(mcSink->stored(), threeIQFrames());
    EXPECT_EQ(mcSink->nullCount(), 1u);
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_EQ(cPlayer->sinkCount(), 0u);
    EXPECT_TRUE(cPlayer->isExhausted());
    EXPECT_TRUE(cPlayer->isOpen());
}

TEST_F(StreamInputFileTest, fewerSamplesInTheTextEndThePassThere) {
    for (const auto& [uSamples, uFrames] :
         std::map<uint64_t, size_t>{{1, 1}, {2, 2}, {3, 2}, {4, 3}, {6, 3}, {60, 3}}) {
        write(describeIQ(1000, uSamples), threeIQFrames());
        playAll();
        EXPECT_EQ(mcSink->frameCount(), uFrames) << uSamples;
        EXPECT_EQ(mcSink->nullCount(), 1u) << uSamples;
    }
}

TEST_F(StreamInputFileTest, noTotalAtAllIsReachedByTheFirstFrame) {
    Description cDescription = describeIQ(1000, 0);
    write(cDescription, threeIQFrames());
    playAll();
    EXPECT_EQ(mcSink->frameCount(), 1u);
    cDescription.mcSummary.erase("Samples");
    write(cDescription, threeIQFrames());
    playAll();
    EXPECT_EQ(mcSink->frameCount(), 1u);
}

TEST_F(StreamInputFileTest, aFrameWithoutSamplesEndsThePass) {
    write(describeIQ(1000, 60), iqBytes(1, 1, {1, 2}) + iqBytes(2, 2, {}) + iqBytes(3, 3, {3, 4}));
    playAll();
    EXPECT_EQ(mcSink->timestamps(), (Times{1}));
}

TEST_F(StreamInputFileTest, anotherKindOfFrameEndsThePass) {
    write(describeIQ(1000, 60), iqBytes(1, 1, {1, 2}) + spectrumBytes(2, 0, 2, {1}) + iqBytes(3, 3, {3, 4}));
    playAll();
    EXPECT_EQ(mcSink->timestamps(), (Times{1}));
}

TEST_F(StreamInputFileTest, loopingRepeatsTimestampsAndBeginsTheZerothSampleAgain) {
    write(describeIQ(1000, 6), threeIQFrames());
    const auto cPlayer = player();
    cPlayer->setPaced(false);
    cPlayer->setLooping(true);
    mcSink->mcReaction = [&](const Frame*) {
        if (mcSink->frameCount() == 7)
            cPlayer->setLooping(false);  // the third pass is the last
    };
    cPlayer->run();
    EXPECT_EQ(mcSink->timestamps(), (Times{1000, 2000, 3000, 1000, 2000, 3000, 1000, 2000, 3000}));
    Times lPositions;
    for (const IQFrame* pFrame : mcSink->frames<IQFrame>())
        lPositions.push_back(pFrame->zerothSample());
    EXPECT_EQ(lPositions, (Times{0, 1, 3, 0, 1, 3, 0, 1, 3}));
    EXPECT_EQ(mcSink->nullCount(), 1u);
}

TEST_F(StreamInputFileTest, loopingAlsoRepeatsWhatTheTotalCutsShort) {
    write(describeIQ(1000, 2), threeIQFrames());
    const auto cPlayer = player();
    cPlayer->setPaced(false);
    cPlayer->setLooping(true);
    mcSink->mcReaction = [&](const Frame*) { cPlayer->setLooping(mcSink->frameCount() < 4); };
    cPlayer->run();
    EXPECT_EQ(mcSink->timestamps(), (Times{1000, 2000, 1000, 2000}));
}

// The spectrum pass.

TEST_F(StreamInputFileTest, spectraTakeTimesAndSequenceFromTheDataAndTheRestFromTheText) {
    const std::string bytes = spectrumBytes(5000, 70, 3, {1, 2, 3, 4}) + spectrumBytes(6000, 80, 5, {5});
    write(describeSpectrum(1), bytes);
    playAll();
    const auto lFrames = mcSink->frames<SpectrumFrame>();
    ASSERT_EQ(lFrames.size(), 2u);
    EXPECT_EQ(mcSink->timestamps(), (Times{5000, 6000}));
    EXPECT_EQ(lFrames[0]->duration(), 70u);
    EXPECT_EQ(lFrames[1]->duration(), 80u);
    EXPECT_EQ(lFrames[1]->sequence(), 5u);
    for (const SpectrumFrame* pFrame : lFrames) {
        EXPECT_EQ(pFrame->centreFrequency(), 1e8f);
        EXPECT_EQ(pFrame->bandwidth(), 1e6f);
        EXPECT_EQ(pFrame->rbw(), 2500.0f);
        EXPECT_EQ(pFrame->windowName(), "Hanning");
        EXPECT_EQ(pFrame->getUnits(), "dBm");
        EXPECT_EQ(pFrame->referenceLevel(), 0.0f);
        EXPECT_EQ(pFrame->timeResolution(), kNanoseconds);
        EXPECT_FALSE(pFrame->isLive());
        EXPECT_TRUE(pFrame->traces().empty());
    }
    EXPECT_EQ(mcSink->stored(), bytes);
    EXPECT_EQ(mcSink->nullCount(), 1u);
}

TEST_F(StreamInputFileTest, spectraPlayToTheEndOfTheDataWhateverTheTextCounts) {
    Description cDescription = describeSpectrum(1);
    cDescription.mcSummary["Frames"] = "1";
    write(cDescription,
          spectrumBytes(1, 0, 0, {1}) + spectrumBytes(2, 0, 1, {2}) + spectrumBytes(3, 0, 2, {3}));
    playAll();
    EXPECT_EQ(mcSink->timestamps(), (Times{1, 2, 3}));
}

// The baseband pass.

TEST_F(StreamInputFileTest, basebandFramesAllBeginAtTheStartOfTheLibrarysOwnRecordings) {
    const std::string bytes =
        basebandBytes({{1, 2}, {3, 4}}) + basebandBytes({{5}}) + basebandBytes({{6, 7, 8}});
    write(describeBaseband(5000, 9000, 6), bytes);
    const auto cPlayer = player();  // paced, and nothing is waited for
    cPlayer->run();
    EXPECT_TRUE(cPlayer->mlPauses.empty());
    const auto lFrames = mcSink->frames<BasebandFrame>();
    ASSERT_EQ(lFrames.size(), 3u);
    EXPECT_EQ(mcSink->timestamps(), (Times{5000, 5000, 5000}));
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(lFrames[i]->sequence(), i);
        EXPECT_EQ(lFrames[i]->sampleRate(), 48000.0f);
        EXPECT_EQ(lFrames[i]->usableBandwidth(), 20000.0f);
        EXPECT_EQ(lFrames[i]->bandwidth(), 20000.0f);
        EXPECT_EQ(lFrames[i]->centreFrequency(), 0.0f);
        EXPECT_EQ(lFrames[i]->referenceLevel(), 0.0f);
        EXPECT_EQ(lFrames[i]->timeResolution(), kNanoseconds);
        EXPECT_FALSE(lFrames[i]->isLive());
    }
    EXPECT_EQ(lFrames[0]->channelCount(), 2u);
    EXPECT_EQ(lFrames[2]->samplesPerChannel(), 3u);
    EXPECT_EQ(mcSink->stored(), bytes);
}

TEST_F(StreamInputFileTest, basebandFramesOfOtherMakersAdvanceByTheirPoints) {
    Description cDescription = describeBaseband(5000, 9000, 8);  // 500 a sample
    cDescription.mcSummary["PointsPerFrame"] = "3";
    const std::string bytes = basebandBytes({{1, 2, 3}});
    write(cDescription, bytes + bytes + bytes);
    playAll();
    EXPECT_EQ(mcSink->timestamps(), (Times{5000, 6500, 8000}));
}

TEST_F(StreamInputFileTest, theSecondBasebandPassBeginsAtZero) {
    Description cDescription = describeBaseband(5000, 9000, 8);
    cDescription.mcSummary["PointsPerFrame"] = "3";
    write(cDescription, basebandBytes({{1, 2, 3}}) + basebandBytes({{4, 5, 6}}));
    const auto cPlayer = player();
    cPlayer->setPaced(false);
    cPlayer->setLooping(true);
    mcSink->mcReaction = [&](const Frame*) { cPlayer->setLooping(mcSink->frameCount() < 6); };
    cPlayer->run();
    // 9000 over 8 samples from then on: 3375 for three.
    EXPECT_EQ(mcSink->timestamps(), (Times{5000, 6500, 0, 3375, 0, 3375}));
    std::vector<uint32_t> lSequences;
    for (const Frame* pFrame : mcSink->frames<Frame>())
        lSequences.push_back(pFrame->sequence());
    EXPECT_EQ(lSequences, (std::vector<uint32_t>{0, 1, 0, 1, 0, 1}));
}

TEST_F(StreamInputFileTest, basebandTotalsOfNothingDoNoHarm) {
    for (const auto& [uStart, uEnd] : std::map<uint64_t, uint64_t>{{5, 5}, {5, 9}, {9, 5}, {0, UINT64_MAX}}) {
        for (const char* pPoints : {"0", "1", "4294967295", "1e9"})
            for (const char* pRate : {"0.0", "1e-30", "48000.0", "-5.0", "1e30"}) {
                Description cDescription = describeBaseband(uStart, uEnd, 0);
                cDescription.mcSummary["PointsPerFrame"] = pPoints;
                cDescription.mcSampling["SampleRateHz"] = pRate;
                write(cDescription, basebandBytes({{1}}) + basebandBytes({{2}}));
                const auto cPlayer = player();
                cPlayer->run();
                EXPECT_EQ(mcSink->frameCount(), 2u);
            }
    }
}

// Ending, stopping, pausing.

TEST_F(StreamInputFileTest, aTypeThatNobodyPlaysSendsItsEndAlone) {
    write("{\"DataType\":\"Other\",\"Other\":{},\"Sampling\":{}}", threeIQFrames());
    const auto cPlayer = player();
    EXPECT_TRUE(cPlayer->isOpen());
    EXPECT_FALSE(cPlayer->isExhausted());
    cPlayer->setLooping(true);
    cPlayer->run();
    EXPECT_EQ(mcSink->frameCount(), 0u);
    EXPECT_EQ(mcSink->nullCount(), 1u);
    EXPECT_TRUE(cPlayer->isExhausted());
}

TEST_F(StreamInputFileTest, playsOnAThreadOfItsOwnToTheEnd) {
    write(describeIQ(1000, 6), threeIQFrames());
    const auto cFile = opened(mcFolder.path("x"));
    auto cFirst = makeReference<PlaybackSink>();
    auto cSecond = makeReference<PlaybackSink>();
    ASSERT_TRUE(cFile->attachFrameSink(cFirst, mlErrors));
    ASSERT_TRUE(cFile->attachFrameSink(cSecond, mlErrors));
    EXPECT_FALSE(cFile->isExhausted());
    cFile->play();
    ASSERT_TRUE(waitUntil([&] { return cSecond->nullCount() == 1 && !cFile->isRunning(); }));
    EXPECT_TRUE(cFile->isExhausted());
    EXPECT_EQ(cFirst->stored(), threeIQFrames());
    EXPECT_EQ(cFirst->frames<Frame>(), cSecond->frames<Frame>());  // shared, not copied
    EXPECT_FALSE(cFirst->isAttached());
    EXPECT_FALSE(cSecond->isAttached());
}

TEST_F(StreamInputFileTest, theEndIsSeenAfterTheFileSaysSo) {
    write(describeIQ(1000, 6), threeIQFrames());
    const auto cPlayer = player();
    cPlayer->setPaced(false);
    std::vector<bool> lFinished;
    mcSink->mcReaction = [&](const Frame*) { lFinished.push_back(cPlayer->isExhausted()); };
    cPlayer->run();
    EXPECT_EQ(lFinished, (std::vector<bool>{false, false, false, true}));
}

TEST_F(StreamInputFileTest, aPausedPlayerIdlesInTenthsOfASecond) {
    write(describeIQ(1000, 6), threeIQFrames());
    const auto cPlayer = player();
    cPlayer->setPaced(false);
    cPlayer->setPaused(true);
    cPlayer->mcReaction = [&](uint64_t) {
        EXPECT_EQ(mcSink->frameCount(), 0u);
        cPlayer->setPaused(cPlayer->muPauses < 5);
    };
    cPlayer->run();
    EXPECT_EQ(cPlayer->mlPauses, Times(5, 100000));
    EXPECT_EQ(mcSink->frameCount(), 3u);
}

TEST_F(StreamInputFileTest, aPausedPlayerIsStoppedAtOnce) {
    write(describeIQ(1000, 6), threeIQFrames());
    const auto cFile = opened(mcFolder.path("x"));
    cFile->setPaused(true);
    cFile->play();
    EXPECT_TRUE(cFile->stop(20000));
    EXPECT_TRUE(cFile->isExhausted());
}

TEST_F(StreamInputFileTest, loopingWithoutAWholeFrameIsEndedByAStop) {
    for (const std::string& data : {std::string(), std::string("rubbish"), threeIQFrames().substr(0, 27)}) {
        for (const Description& cDescription :
             {describeIQ(1000, 6), describeSpectrum(1000), describeBaseband(1, 2, 3)}) {
            write(cDescription, data);
            const auto cFile = opened(mcFolder.path("x"));
            ASSERT_TRUE(cFile->isOpen());
            auto cSink = makeReference<PlaybackSink>();
            ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
            cFile->setLooping(true);
            cFile->play();
            EXPECT_TRUE(cFile->isRunning());
            EXPECT_TRUE(cFile->stop(20000));
            EXPECT_EQ(cSink->frameCount(), 0u);
            EXPECT_EQ(cSink->nullCount(), 1u);
        }
    }
}

TEST_F(StreamInputFileTest, aStopEndsALoopingRecordingOfEachKind) {
    const std::map<std::string, std::pair<Description, std::string>> cRecordings{
        {"IQ", {describeIQ(1000, 6), threeIQFrames()}},
        {"Spectrum", {describeSpectrum(1000), spectrumBytes(1, 0, 0, {1})}},
        {"Baseband", {describeBaseband(1, 2, 3), basebandBytes({{1}})}}};
    for (const auto& [type, cRecording] : cRecordings) {
        write(cRecording.first, cRecording.second);
        const auto cFile = opened(mcFolder.path("x"));
        auto cSink = makeReference<PlaybackSink>();
        cSink->mbKeeping = false;
        ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
        cFile->setLooping(true);
        cFile->play();
        ASSERT_TRUE(waitUntil([&] { return cSink->frameCount() > 20; })) << type;
        EXPECT_TRUE(cFile->stop(20000)) << type;
        EXPECT_EQ(cSink->nullCount(), 1u) << type;
        EXPECT_TRUE(cFile->isExhausted()) << type;
    }
}

TEST_F(StreamInputFileTest, aStreamThatIsLetGoEndsAPlayerInMidFlight) {
    write(describeIQ(1000, 6), threeIQFrames());
    auto cFile = opened(mcFolder.path("x"));
    auto cSink = makeReference<PlaybackSink>();
    cSink->mbKeeping = false;
    ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
    cFile->setLooping(true);
    cFile->play();
    ASSERT_TRUE(waitUntil([&] { return cSink->frameCount() > 5; }));
    cFile.release();
    EXPECT_FALSE(cSink->isAttached());
}

TEST_F(StreamInputFileTest, theLastReferenceMayGoOnThePlayersOwnThread) {
    write(describeIQ(1000, 6), threeIQFrames());
    const size_t uDescriptors = vnktest::openDescriptors();
    const size_t uThreads = vnktest::idleThreads();
    for (const size_t uWhen : {1u, 3u, 4u}) {  // at the first frame, the last, the end
        auto cFile = opened(mcFolder.path("x"));
        auto cSink = makeReference<PlaybackSink>();
        ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
        cFile->setPaced(false);
        StreamInputFile* pFile = cFile.get();
        cSink->mcReaction = [&cFile, &cSink, uWhen](const Frame*) {
            if (cSink->frameCount() + cSink->nullCount() == uWhen)
                cFile.release();
        };
        pFile->play();
        ASSERT_TRUE(waitUntil([&] { return vnktest::openDescriptors() == uDescriptors; })) << uWhen;
        EXPECT_FALSE(cSink->isAttached());
        EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
    }
}

TEST_F(StreamInputFileTest, tenThousandPlayersLeaveNothingBehind) {
    write(describeIQ(1000, 6), threeIQFrames());
    const size_t uDescriptors = vnktest::openDescriptors();
    const size_t uThreads = vnktest::idleThreads();
    for (int i = 0; i < 10000; ++i) {
        const auto cFile = opened(mcFolder.path("x"));
        auto cSink = makeReference<PlaybackSink>();
        ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
        if (i % 20 == 0) {
            cFile->setPaced(false);
            cFile->play();
        }
        if (i % 40 == 0) {
            ASSERT_TRUE(waitUntil([&] { return cSink->nullCount() == 1; }));
        }
        if (i % 3 == 0)
            cSink->detachFromSource();
    }
    EXPECT_TRUE(waitUntil([&] { return vnktest::openDescriptors() == uDescriptors; }));
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() <= uThreads; }));
}

// Sinks that fail.

TEST_F(StreamInputFileTest, aSinkThatThrowsEndsThePassAndEverybodySeesTheEnd) {
    write(describeIQ(1000, 6), threeIQFrames());
    for (const bool bAlsoAtEnd : {false, true}) {
        auto cFile = opened(mcFolder.path("x"));
        cFile->setPaced(false);
        auto cBefore = makeReference<PlaybackSink>();
        auto cBroken = makeReference<ThrowingSink>(size_t{2}, bAlsoAtEnd);
        auto cAfter = makeReference<PlaybackSink>();
        for (const ReferencePtr<PlaybackSink>& cSink : {cBefore, ReferencePtr<PlaybackSink>(cBroken), cAfter})
            ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
        cFile->play();
        ASSERT_TRUE(waitUntil([&] { return !cFile->isRunning(); }));
        EXPECT_TRUE(cFile->isExhausted());
        EXPECT_EQ(cBefore->frameCount(), 2u);
        EXPECT_LE(cAfter->frameCount(), 2u);
        for (const ReferencePtr<PlaybackSink>& cSink : {cBefore, ReferencePtr<PlaybackSink>(cBroken), cAfter})
            EXPECT_EQ(cSink->nullCount(), 1u) << bAlsoAtEnd;
        // A pointer that a sink keeps to a source that has gone would be followed here.
        cFile.release();
        for (const ReferencePtr<PlaybackSink>& cSink :
             {cBefore, ReferencePtr<PlaybackSink>(cBroken), cAfter}) {
            EXPECT_FALSE(cSink->isAttached()) << bAlsoAtEnd;
            EXPECT_TRUE(cSink->isSourceExhausted());
        }
    }
}

TEST_F(StreamInputFileTest, aBodyThatThrowsInAWaitEndsTheStreamToo) {
    write(describeIQ(1000, 6), iqBytes(1000, 1, {1, 2}) + iqBytes(9000000, 2, {1, 2}));
    const auto cPlayer = player();
    cPlayer->mcReaction = [](uint64_t) { throw std::runtime_error("no clock"); };
    cPlayer->play();
    ASSERT_TRUE(waitUntil([&] { return !cPlayer->isRunning(); }));
    EXPECT_TRUE(cPlayer->isExhausted());
    EXPECT_EQ(mcSink->nullCount(), 1u);
    EXPECT_FALSE(mcSink->isAttached());
}

// Files that change while they play.

TEST_F(StreamInputFileTest, aFileCutShortWhilePlayingEndsCleanly) {
    std::string data;
    for (uint32_t i = 0; i < 1000; ++i)
        data += iqBytes(i, i, std::vector<float>(2000, static_cast<float>(i)));
    const size_t uFrame = data.size() / 1000;
    for (const size_t uLeft : {size_t{0}, uFrame, 10 * uFrame + 5, 500 * uFrame}) {
        write(describeIQ(1, 1000000), data);
        const auto cPlayer = player();
        cPlayer->setPaced(false);
        mcSink->mcReaction = [&](const Frame*) {
            if (mcSink->frameCount() == 3) {
                ASSERT_EQ(::truncate(mcFolder.file("x.data").c_str(), static_cast<off_t>(uLeft)), 0);
            }
        };
        cPlayer->run();
        const std::string played = mcSink->stored();
        EXPECT_EQ(played, data.substr(0, played.size()));
        EXPECT_LE(played.size(), std::max(uLeft, 4 * uFrame));
        EXPECT_GE(played.size(), std::max(uLeft / uFrame, size_t{3}) * uFrame);
        EXPECT_EQ(mcSink->nullCount(), 1u);
    }
}

TEST_F(StreamInputFileTest, aLoopingFileCutToNothingGoesOnUntilItIsStopped) {
    write(describeIQ(1000, 6), threeIQFrames());
    const auto cFile = opened(mcFolder.path("x"));
    auto cSink = makeReference<PlaybackSink>();
    cSink->mbKeeping = false;
    ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
    cFile->setPaced(false);
    cFile->setLooping(true);
    cFile->play();
    ASSERT_TRUE(waitUntil([&] { return cSink->frameCount() > 10; }));
    ASSERT_EQ(::truncate(mcFolder.file("x.data").c_str(), 0), 0);
    // It comes back to life when frames are there again.
    const size_t uThen = cSink->frameCount();
    vnktest::writeWhole(mcFolder.file("x.data"), threeIQFrames());
    EXPECT_TRUE(waitUntil([&] { return cSink->frameCount() > uThen + 10; }));
    EXPECT_TRUE(cFile->stop(20000));
    EXPECT_EQ(cSink->nullCount(), 1u);
}

TEST_F(StreamInputFileTest, aFileRemovedWhilePlayingPlaysToItsEnd) {
    write(describeIQ(1000, 6), threeIQFrames());
    const auto cPlayer = player();
    cPlayer->setPaced(false);
    ASSERT_EQ(::unlink(mcFolder.file("x.data").c_str()), 0);
    ASSERT_EQ(::unlink(mcFolder.file("x.json").c_str()), 0);
    cPlayer->run();
    EXPECT_EQ(mcSink->stored(), threeIQFrames());
}

// Totals.

TEST_F(StreamInputFileTest, totalsAddUpWhatAllPlayersRead) {
    const uint32_t uRead = StreamInputFile::totalRead();
    const uint32_t uFrames = StreamInputFile::totalFrames();
    write(describeIQ(1000, 6), threeIQFrames());
    playAll();
    EXPECT_EQ(StreamInputFile::totalRead() - uRead, 6u);
    EXPECT_EQ(StreamInputFile::totalFrames() - uFrames, 3u);
    write(describeSpectrum(1000), spectrumBytes(1, 0, 0, {1, 2, 3, 4}));
    playAll();
    write(describeBaseband(1, 2, 3), basebandBytes({{1, 2}, {3, 4}}));
    playAll();
    EXPECT_EQ(StreamInputFile::totalRead() - uRead, 12u);
    EXPECT_EQ(StreamInputFile::totalFrames() - uFrames, 5u);
}
