#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <stdexcept>
#include <string>

#include "recordings/player.h"
#include "support/resources.h"

namespace {

using namespace recordings;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr uint64_t kMillisecond = 1'000'000;
/// A gap that no test waits out.
constexpr uint64_t kAges = 100'000 * kMillisecond;

/// A handle of the past.
uint32_t unknownHandle() {
    uint32_t uHandle = 0;
    EXPECT_EQ(vnkCreateIQStream(&uHandle, 1e6f, 1e5f, -30.0f), 0);
    uint32_t uClosing = uHandle;
    EXPECT_EQ(vnkClose(&uClosing), 0);
    return uHandle;
}

std::vector<uint32_t> sequencesOf(const std::vector<IQ>& lFrames) {
    std::vector<uint32_t> lSequences;
    for (const IQ& cFrame : lFrames)
        lSequences.push_back(cFrame.muSequence);
    return lSequences;
}

}  // namespace

// Statuses of attaching.

TEST(AttachStreamToFile, TellsAFileThatIsNoneBeforeAHandleThatIsNone) {
    const Folder cFolder;
    writePair(cFolder, "iq", makeIQ(1, 4));
    EXPECT_EQ(vnkAttachStreamToFile(unknownHandle(), cFolder.name("missing").c_str()), -29);
    EXPECT_EQ(vnkAttachStreamToFile(unknownHandle(), cFolder.name("iq").c_str()), -87);
    EXPECT_EQ(vnkAttachStreamToFile(VNK_INVALID_HANDLE, cFolder.name("iq").c_str()), -87);
}

TEST(AttachStreamToFile, TellsAKindThatTheStreamDoesNotTake) {
    const Folder cFolder;
    writePair(cFolder, "iq", makeIQ(1, 4));
    writePair(cFolder, "spectra", makeSpectra(1, 4));
    writePair(cFolder, "audio", std::vector<Baseband>{{{{1, 2, 3}}}});
    Stream cIQ(Kind::iq), cSpectra(Kind::spectrum);
    EXPECT_EQ(cIQ.play(cFolder.name("spectra")), -30);
    EXPECT_EQ(cIQ.play(cFolder.name("audio")), -30);
    EXPECT_EQ(cSpectra.play(cFolder.name("iq")), -31);
    EXPECT_EQ(cSpectra.play(cFolder.name("audio")), -31);
    EXPECT_EQ(cIQ.isAttached(), 5);
    EXPECT_EQ(cSpectra.isAttached(), 5);
    EXPECT_EQ(cIQ.play(cFolder.name("iq")), 0);
    EXPECT_EQ(cSpectra.play(cFolder.name("spectra")), 0);
}

TEST(AttachStreamToFile, AFileThatIsNotThereOrNotUnderstoodGivesOneStatus) {
    const Folder cFolder;
    const auto lFrames = makeIQ(2, 4);
    writePair(cFolder, "whole", lFrames);
    writePair(cFolder, "typeless", describe(lFrames).without("DataType"), bytesOf(lFrames));
    writePair(cFolder, "wrongtype", describe(lFrames).text("DataType", "Spectrum"), bytesOf(lFrames));
    writePair(cFolder, "nosampling", describe(lFrames).without("Sampling"), bytesOf(lFrames));
    writePair(cFolder, "nosummary", describe(lFrames).without("IQ"), bytesOf(lFrames));
    writePair(cFolder, "numbertype", describe(lFrames).whole("DataType", 5), bytesOf(lFrames));
    writePair(cFolder, "flatsummary", describe(lFrames).whole("IQ", 5), bytesOf(lFrames));
    writeFile(cFolder.native("empty.json"), "");
    writeFile(cFolder.native("empty.data"), bytesOf(lFrames));
    writeFile(cFolder.native("dataless.json"), describe(lFrames).pretty());
    writeFile(cFolder.native("descriptionless.data"), bytesOf(lFrames));
    writeFile(cFolder.native("folder.json"), describe(lFrames).pretty());
    ASSERT_EQ(::mkdir(cFolder.native("folder.data").c_str(), 0700), 0);
    writeFile(cFolder.native("pipe.json"), describe(lFrames).pretty());
    ASSERT_EQ(::mkfifo(cFolder.native("pipe.data").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo(cFolder.native("pipes.json").c_str(), 0600), 0);
    Stream cStream;
    for (const char* pStem :
         {"missing", "typeless", "wrongtype", "nosampling", "nosummary", "numbertype", "flatsummary", "empty",
          "dataless", "descriptionless", "folder", "pipe", "pipes", ""})
        EXPECT_EQ(cStream.play(cFolder.name(pStem)), -29) << pStem;
    EXPECT_EQ(cStream.play(""), -29);
    EXPECT_EQ(vnkAttachStreamToFile(cStream.handle(), nullptr), -29);
    EXPECT_EQ(cStream.play(cFolder.native("whole")), -29) << "a path without a backslash names no folder";
    EXPECT_EQ(cStream.play(cFolder.path() + "\\no\\whole"), -29);
    EXPECT_EQ(cStream.play(cFolder.name("whole")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 2u);
}

TEST(AttachStreamToFile, AnyExtensionOrNoneNamesThePair) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(3, 4));
    for (const char* pName : {"x", "x.json", "x.data", "x.bin", "x."}) {
        Stream cStream;
        ASSERT_EQ(cStream.play(cFolder.name(pName)), 0) << pName;
        EXPECT_EQ(readIQ(cStream).size(), 3u) << pName;
    }
}

TEST(AttachStreamToFile, ADescriptionInOneLineAndWithoutQuotesWillDo) {
    const Folder cFolder;
    const auto lFrames = makeIQ(3, 4);
    std::string text = describe(lFrames).compact();
    writeFile(cFolder.native("x.json"), text);
    writeFile(cFolder.native("x.data"), bytesOf(lFrames));
    Stream cStream;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 3u);
    writeFile(cFolder.native("x.json"), "DataType:\"IQ\",IQ:{Samples:8},Sampling:{FCentreHz:5000000}");
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    HeldIQ cRecord;
    ASSERT_TRUE(cStream.next(cRecord));
    EXPECT_EQ(cRecord->centreHz, 5e6) << "a whole number is taken as a frequency";
    EXPECT_EQ(cRecord->sampleRateHz, 0.0f);
}

// Playing.

TEST(PlayedIQ, HasTheFieldsOfThePair) {
    const Folder cFolder;
    const Tuning cTuning{433.92e6f, 150e3f, 250e3f, -10.0f, 0, "mV", ""};
    auto lFrames = makeIQ(3, 5, 20 * kMillisecond, 41);
    lFrames[1].mlSamples.resize(1);
    writePair(cFolder, "x", lFrames, cTuning);
    Stream cStream;
    cStream.queueAll();
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    for (const IQ& cExpected : lFrames) {
        HeldIQ cRecord;
        ASSERT_TRUE(cStream.next(cRecord));
        EXPECT_EQ(cRecord->status, 0);
        EXPECT_EQ(cRecord->sequence, cExpected.muSequence);
        EXPECT_EQ(cRecord->timestamp, cExpected.muTime);
        EXPECT_EQ(cRecord->centreHz, static_cast<double>(433.92e6f));
        EXPECT_EQ(cRecord->bandwidthHz, 150e3f);
        EXPECT_EQ(cRecord->sampleRateHz, 250e3f);
        EXPECT_EQ(cRecord->sequenceGap, 0);
        EXPECT_EQ(cRecord->subOptimal, 0);
        EXPECT_EQ(cRecord->extras, nullptr);
        EXPECT_EQ(contents(cRecord).mlSamples, cExpected.mlSamples);
    }
}

TEST(PlayedIQ, ASequenceThatJumpsMarksTheRecordBehindTheJumpAlone) {
    const Folder cFolder;
    auto lFrames = makeIQ(6, 4);
    const uint32_t uSequences[] = {5, 6, 8, 9, 9, 10};
    for (size_t i = 0; i < 6; ++i)
        lFrames[i].muSequence = uSequences[i];
    writePair(cFolder, "x", lFrames);
    Stream cStream;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    const int iGaps[] = {0, 0, 1, 0, 1, 0};
    for (size_t i = 0; i < 6; ++i) {
        HeldIQ cRecord;
        ASSERT_TRUE(cStream.next(cRecord));
        EXPECT_EQ(cRecord->sequence, uSequences[i]);
        EXPECT_EQ(cRecord->sequenceGap, iGaps[i]) << "sequence " << uSequences[i];
    }
}

TEST(PlayedIQ, SequencesWrapOneBelowTheGreatestNumber) {
    const Folder cFolder;
    auto lFrames = makeIQ(5, 4);
    const uint32_t uSequences[] = {0xFFFFFFFD, 0xFFFFFFFE, 0, 0xFFFFFFFF, 0};
    for (size_t i = 0; i < 5; ++i)
        lFrames[i].muSequence = uSequences[i];
    writePair(cFolder, "x", lFrames);
    Stream cStream;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    const int iGaps[] = {0, 0, 0, 1, 0};
    for (size_t i = 0; i < 5; ++i) {
        HeldIQ cRecord;
        ASSERT_TRUE(cStream.next(cRecord));
        EXPECT_EQ(cRecord->sequenceGap, iGaps[i]) << i;
    }
}

TEST(PlayedIQ, FramesThatTheQueueDroppedShowAsAGap) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(25, 4));
    Stream cStream;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
    HeldIQ cRecord;
    ASSERT_EQ(cStream.read(cRecord), 0);
    // Ten entries are kept, and the last of them is the mark of the end.
    EXPECT_EQ(cRecord->sequence, 16u);
    EXPECT_EQ(cRecord->sequenceGap, 0) << "the first record of a stream never tells of a gap";
    for (uint32_t uSequence = 17; uSequence < 25; ++uSequence) {
        ASSERT_EQ(cStream.read(cRecord), 0);
        EXPECT_EQ(cRecord->sequence, uSequence);
    }
    EXPECT_EQ(cStream.read(cRecord), 2);
}

TEST(PlayedSpectra, HaveTheFieldsOfThePair) {
    const Folder cFolder;
    const Tuning cTuning{100e6f, 20e6f, 0, -10.0f, 12345.0f, "dB", "flattop"};
    const auto lFrames = makeSpectra(3, 7, 10 * kMillisecond);
    writePair(cFolder, "x", lFrames, cTuning);
    Stream cStream(Kind::spectrum);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    for (const Spectrum& cExpected : lFrames) {
        HeldSpectrum cRecord;
        ASSERT_TRUE(cStream.next(cRecord));
        EXPECT_EQ(cRecord->status, 0);
        EXPECT_EQ(cRecord->sequence, cExpected.muSequence);
        EXPECT_EQ(cRecord->timestamp, cExpected.muTime);
        EXPECT_EQ(cRecord->duration, cExpected.muDuration);
        EXPECT_EQ(cRecord->minimumHz, 90e6);
        EXPECT_EQ(cRecord->maximumHz, 110e6);
        EXPECT_EQ(cRecord->rbwHz, 12345.0f);
        EXPECT_EQ(cRecord->extras, nullptr);
        EXPECT_EQ(cRecord->traceCount, 0u);
        EXPECT_EQ(cRecord->traces, nullptr);
        EXPECT_EQ(contents(cRecord).mlPoints, cExpected.mlPoints);
    }
    EXPECT_EQ(readSpectra(cStream).size(), 0u);
}

TEST(PlayedIQ, TheDescriptionsCountEndsThePass) {
    const Folder cFolder;
    const auto lFrames = makeIQ(4, 10);
    for (const auto& [uSamples, uFrames] :
         std::map<uint64_t, size_t>{{0, 1}, {10, 1}, {11, 2}, {40, 4}, {4000, 4}}) {
        Record cSummary;
        cSummary.text("TimeResolution", "ns")
            .whole("StartTimestamp", lFrames[0].muTime)
            .whole("Samples", uSamples);
        writePair(cFolder, "x", describe(lFrames).nested("IQ", cSummary), bytesOf(lFrames));
        Stream cStream;
        ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
        EXPECT_EQ(readIQ(cStream).size(), uFrames) << uSamples << " samples told";
    }
}

TEST(PlayedIQ, AFrameThatIsCutShortIsNotDelivered) {
    const Folder cFolder;
    const auto lFrames = makeIQ(3, 10);
    const std::string whole = bytesOf(lFrames);
    const size_t uFrameBytes = whole.size() / 3;
    for (const size_t uCut : {size_t{0}, uFrameBytes - 1, uFrameBytes, 2 * uFrameBytes + 3,
                              2 * uFrameBytes + 20, whole.size() - 1}) {
        writePair(cFolder, "x", describe(lFrames), whole.substr(0, uCut));
        Stream cStream;
        ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
        EXPECT_EQ(readIQ(cStream).size(), uCut / uFrameBytes) << uCut << " bytes";
    }
}

// Statuses of a stream on its way.

TEST(PlayedStreams, GoFromNotStartedOverWaitingToEnded) {
    const Folder cFolder;
    writePair(cFolder, "slow", makeIQ(3, 4, kAges));
    writePair(cFolder, "short", makeIQ(1, 4));
    Stream cStream;
    HeldIQ cRecord;
    EXPECT_EQ(cStream.isAttached(), 5);
    EXPECT_EQ(cStream.read(cRecord), 3);
    ASSERT_EQ(cStream.play(cFolder.name("slow")), 0);
    EXPECT_EQ(cStream.isAttached(), 0);
    // A frame is waited for after it has been delivered: the second comes at once, the third in ages.
    ASSERT_TRUE(cStream.next(cRecord));
    ASSERT_TRUE(cStream.next(cRecord));
    EXPECT_EQ(cStream.read(cRecord), 1);
    EXPECT_EQ(cStream.detach(), 0);
    EXPECT_EQ(cStream.isAttached(), 5);
    EXPECT_EQ(cStream.read(cRecord), 2);
    EXPECT_EQ(cStream.detach(), -44);
    // To its very end.
    ASSERT_EQ(cStream.play(cFolder.name("short")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 1u);
    // Its end is told as soon as the file has gone, which is before the file's thread has let go of the stream.
    EXPECT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
    EXPECT_EQ(cStream.read(cRecord), 2);
    EXPECT_EQ(cStream.detach(), -44);
}

TEST(PlayedStreams, ARecordingWithoutAFrameLeavesAStreamNotStarted) {
    const Folder cFolder;
    writePair(cFolder, "x", describe(makeIQ(1, 1)), "");
    Stream cStream;
    HeldIQ cRecord;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
    EXPECT_EQ(cStream.read(cRecord), 3);
}

TEST(PlayedStreams, AReaderThatWaitsIsWokenByTheEnd) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(1, 4));
    Stream cStream;
    HeldIQ cRecord;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    const auto begin = steady_clock::now();
    ASSERT_TRUE(cStream.next(cRecord));
    // Woken by the end itself, it may still find the file in its place.
    const int32_t iStatus = cStream.read(cRecord, 300'000);
    EXPECT_TRUE(iStatus == 1 || iStatus == 2) << iStatus;
    EXPECT_LT(steady_clock::now() - begin, 60s);
    EXPECT_TRUE(vnktest::waitUntil([&] { return cStream.read(cRecord) == 2; }));
}

TEST(PlayedStreams, KeepThePaceOfTheRecordingAndAreLetGoFromAWaitAtOnce) {
    const Folder cFolder;
    writePair(cFolder, "iq", makeIQ(4, 4, 150 * kMillisecond));
    writePair(cFolder, "spectra", makeSpectra(4, 4, 150 * kMillisecond));
    writePair(cFolder, "ages", makeIQ(3, 4, kAges));
    Stream cIQ(Kind::iq), cSpectra(Kind::spectrum), cAges;
    const auto begin = steady_clock::now();
    ASSERT_EQ(cIQ.play(cFolder.name("iq")), 0);
    ASSERT_EQ(cSpectra.play(cFolder.name("spectra")), 0);
    EXPECT_EQ(readIQ(cIQ).size(), 4u);
    EXPECT_GE(steady_clock::now() - begin, 449ms);
    EXPECT_EQ(readSpectra(cSpectra).size(), 4u);
    EXPECT_GE(steady_clock::now() - begin, 449ms);
    const size_t uThreads = vnktest::idleThreads();
    ASSERT_EQ(cAges.play(cFolder.name("ages")), 0);
    HeldIQ cRecord;
    ASSERT_TRUE(cAges.next(cRecord));
    EXPECT_EQ(cAges.close(), 0);
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; }))
        << "its wait was interrupted";
}

TEST(PlayedStreams, TimesThatGoBackDoNotStall) {
    const Folder cFolder;
    auto lFrames = makeIQ(4, 4);
    lFrames[1].muTime -= kAges;
    lFrames[2].muTime = 0;
    writePair(cFolder, "x", describe(makeIQ(1, 16)), bytesOf(lFrames));
    Stream cStream;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_EQ(readIQ(cStream).size(), 4u);
}

TEST(PlayedStreams, TwoStreamsPlayOneRecording) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(40, 16, kMillisecond));
    Stream cFirst, cSecond;
    cFirst.queueAll();
    cSecond.queueAll();
    ASSERT_EQ(cFirst.play(cFolder.name("x")), 0);
    ASSERT_EQ(cSecond.play(cFolder.name("x")), 0);
    const auto lFirst = readIQ(cFirst), lSecond = readIQ(cSecond);
    EXPECT_EQ(lFirst.size(), 40u);
    EXPECT_EQ(bytesOf(lFirst), bytesOf(lSecond));
}

TEST(PlayedStreams, AnotherRecordingTakesThePlaceOfOneThatPlays) {
    const Folder cFolder;
    writePair(cFolder, "ages", makeIQ(3, 4, kAges));
    writePair(cFolder, "x", makeIQ(3, 4, 0, 100));
    Stream cStream;
    HeldIQ cRecord;
    ASSERT_EQ(cStream.play(cFolder.name("ages")), 0);
    ASSERT_TRUE(cStream.next(cRecord));
    ASSERT_TRUE(cStream.next(cRecord));
    ASSERT_EQ(cStream.play(cFolder.name("missing")), -29);
    EXPECT_EQ(cStream.isAttached(), 0) << "a file that is none leaves the one that plays";
    EXPECT_EQ(cStream.text("filename"), cFolder.name("ages"));
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_EQ(sequencesOf(readIQ(cStream)), (std::vector<uint32_t>{100, 101, 102}));
    EXPECT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
}

TEST(PlayedStreams, ARecordingThatIsAlteredOrDeletedWhileItPlaysEnds) {
    const Folder cFolder;
    for (const bool bDelete : {false, true}) {
        writePair(cFolder, "x", makeIQ(50, 1000, 2 * kMillisecond));
        Stream cStream;
        cStream.queueAll();
        HeldIQ cRecord;
        ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
        ASSERT_TRUE(cStream.next(cRecord));
        std::filesystem::resize_file(cFolder.native("x.data"), bDelete ? 400'000 : 8020 + 100);
        if (bDelete) {
            std::filesystem::remove(cFolder.native("x.data"));
            std::filesystem::remove(cFolder.native("x.json"));
        }
        for (const IQ& cFrame : readIQ(cStream))
            EXPECT_EQ(bytesOf(cFrame), bytesOf(makeIQ(50, 1000, 2 * kMillisecond)[cFrame.muSequence]));
        EXPECT_EQ(cStream.read(cRecord), 2);
    }
}

// Records.

TEST(PlayedRecords, OutliveTheirStreamAndItsFile) {
    std::vector<HeldIQ> lIQ(3);
    std::vector<HeldSpectrum> lSpectra(3);
    {
        const Folder cFolder;
        writePair(cFolder, "iq", makeIQ(3, 1000));
        writePair(cFolder, "spectra", makeSpectra(3, 1000));
        Stream cIQ(Kind::iq), cSpectra(Kind::spectrum);
        ASSERT_EQ(cIQ.play(cFolder.name("iq")), 0);
        ASSERT_EQ(cSpectra.play(cFolder.name("spectra")), 0);
        for (HeldIQ& cRecord : lIQ)
            ASSERT_TRUE(cIQ.next(cRecord));
        for (HeldSpectrum& cRecord : lSpectra)
            ASSERT_TRUE(cSpectra.next(cRecord));
    }
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(bytesOf(contents(lIQ[i])), bytesOf(makeIQ(3, 1000)[i]));
        EXPECT_EQ(bytesOf(contents(lSpectra[i])), bytesOf(makeSpectra(3, 1000)[i]));
    }
}

TEST(PlayedRecords, AreWrittenNullWhenGivenBackAndOnlyThenTakeTheNext) {
    const Folder cFolder;
    writePair(cFolder, "x", makeSpectra(1, 4));
    Stream cStream(Kind::spectrum);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    vnkSpectrumRecord* pRecord = nullptr;
    ASSERT_TRUE(vnktest::waitUntil([&] { return vnkGetNextSpectrum(cStream.handle(), &pRecord, 500) == 0; }));
    vnkSpectrumRecord* const pBefore = pRecord;
    while (vnkGetNextSpectrum(cStream.handle(), &pRecord, 100) != 2) {
    }
    EXPECT_EQ(pRecord, pBefore) << "without a frame the variable is left as it was";
    EXPECT_EQ(vnkFreeSpectrum(&pRecord), 0);
    EXPECT_EQ(pRecord, nullptr);
    EXPECT_EQ(vnkFreeSpectrum(&pRecord), -20);
}

// Parameters.

TEST(PlayedParameters, TellWhatTheFileTellsAndItsName) {
    const Folder cFolder;
    const Tuning cTuning{100e6f, 20e6f, 25e6f, -10.0f, 12345.0f, "", "flattop"};
    writePair(cFolder, "iq", makeIQ(3, 4, kAges), cTuning);
    writePair(cFolder, "spectra", makeSpectra(3, 4, kAges), cTuning);
    Stream cIQ(Kind::iq), cSpectra(Kind::spectrum);
    ASSERT_EQ(cIQ.play(cFolder.name("iq.bin")), 0);
    ASSERT_EQ(cSpectra.play(cFolder.name("spectra.json")), 0);
    Record cExpected;
    cExpected.number("FCentreHz", 100e6f).number("IFBWHz", 20e6f).number("SampleRateHz", 25e6f);
    cExpected.literal("LoopingFlag", "false").text("filename", cFolder.name("iq")).text("units", "sqrt-mw");
    EXPECT_EQ(cIQ.parameters(), cExpected.pretty());
    cExpected.without("IFBWHz")
        .without("SampleRateHz")
        .number("BandwidthHz", 20e6f)
        .number("RBWHz", 12345.0f);
    cExpected.number("FMinHz", 90e6f).number("FMaxHz", 110e6f).number("RefdBm", -10.0f);
    cExpected.text("WindowFn", "flattop").text("filename", cFolder.name("spectra")).text("units", "dBm");
    EXPECT_EQ(cSpectra.parameters(), cExpected.pretty());
    EXPECT_NE(cIQ.schema().find("\"LoopingFlag\":"), std::string::npos);
    EXPECT_EQ(cIQ.detach(), 0);
    EXPECT_EQ(cIQ.schema().find("\"LoopingFlag\":"), std::string::npos);
    EXPECT_NE(cIQ.parameters().find("\"IFBWHz\":100000.000000"), std::string::npos)
        << "the stream's own parameters are back: " << cIQ.parameters();
    EXPECT_EQ(cIQ.text("filename"), "(none)");
}

TEST(PlayedParameters, TheFlagForLoopingMustBeABoolean) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(3, 4, kAges));
    for (const Kind eKind : {Kind::iq, Kind::spectrum}) {
        Stream cStream(eKind);
        while (vnkGetNextStatus() != 0) {
        }
        for (const char* pValue : {"1", "\"true\"", "1.0", "{\"a\":true}"}) {
            EXPECT_EQ(cStream.set(std::string("{\"LoopingFlag\":") + pValue + "}"), -34) << pValue;
            EXPECT_EQ(vnkGetNextStatus(), -33) << pValue;
            EXPECT_NE(Text::take(vnkGetDetailedStatus()).find("LoopingFlag"), std::string::npos);
        }
        EXPECT_EQ(cStream.set("{\"LoopingFlag\":true}"), 0);
    }
}

TEST(PlayedParameters, TheFlagForLoopingReachesTheFileBeforeAndWhileItPlays) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(3, 4, kAges));
    Stream cStream;
    ASSERT_EQ(cStream.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_NE(cStream.parameters().find("\"LoopingFlag\":true"), std::string::npos);
    cStream.set("{\"LoopingFlag\":false}");
    EXPECT_NE(cStream.parameters().find("\"LoopingFlag\":false"), std::string::npos);
}

TEST(PlayedParameters, AFileCannotBeTuned) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(3, 4, kAges));
    Stream cStream;
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    const std::string before = cStream.parameters();
    EXPECT_EQ(cStream.set("{\"FCentreHz\":200000000.0}"), -34);
    EXPECT_EQ(cStream.parameters(), before);
    EXPECT_NE(Text::take(vnkGetDetailedStatus()).find("Connected source cannot implement"),
              std::string::npos);
    while (vnkGetNextStatus() != 0) {
    }
    EXPECT_EQ(cStream.isAttached(), 0);
}

// Looping.

TEST(Looping, StartsOverWithTheSameTimesAndSequencesAndEndsBehindAPass) {
    const Folder cFolder;
    const auto lFrames = makeIQ(3, 4, kMillisecond);
    writePair(cFolder, "x", lFrames);
    Stream cStream;
    cStream.queueAll();
    ASSERT_EQ(cStream.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    for (size_t i = 0; i < 20; ++i) {
        HeldIQ cRecord;
        ASSERT_TRUE(cStream.next(cRecord));
        EXPECT_EQ(bytesOf(contents(cRecord)), bytesOf(lFrames[i % 3]));
        EXPECT_EQ(cRecord->sequenceGap, i > 0 && i % 3 == 0 ? 1 : 0) << "the sequence goes back: " << i;
    }
    EXPECT_EQ(cStream.isAttached(), 0);
    cStream.set("{\"LoopingFlag\":false}");
    const auto lRest = readIQ(cStream);
    ASSERT_FALSE(lRest.empty());
    EXPECT_EQ(lRest.back().muSequence, 2u);
    EXPECT_EQ((20 + lRest.size()) % 3, 0u) << "the last pass is whole";
}

TEST(Looping, SpectraStartOverToo) {
    const Folder cFolder;
    const auto lFrames = makeSpectra(3, 4, kMillisecond);
    writePair(cFolder, "x", lFrames);
    Stream cStream(Kind::spectrum);
    cStream.queueAll();
    ASSERT_EQ(cStream.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    for (size_t i = 0; i < 10; ++i) {
        HeldSpectrum cRecord;
        ASSERT_TRUE(cStream.next(cRecord));
        EXPECT_EQ(bytesOf(contents(cRecord)), bytesOf(lFrames[i % 3]));
    }
    EXPECT_EQ(cStream.detach(), 0);
}

TEST(Looping, ARecordingWithoutAFrameCanBeLeft) {
    const Folder cFolder;
    writePair(cFolder, "x", describe(makeIQ(1, 1)), "no frame at all");
    const size_t uThreads = vnktest::idleThreads();
    Stream cStream;
    HeldIQ cRecord;
    ASSERT_EQ(cStream.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_EQ(cStream.read(cRecord, 20), 3);
    EXPECT_EQ(cStream.isAttached(), 0);
    EXPECT_EQ(cStream.detach(), 0);
    EXPECT_EQ(cStream.close(), 0);
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; }))
        << "the loop has ended";
}

// Recording.

TEST(SetStreamOutputFile, TellsAHandleOrARecordingThatIsNone) {
    const Folder cFolder;
    EXPECT_EQ(vnkSetStreamOutputFile(unknownHandle(), cFolder.name("x").c_str()), -17);
    EXPECT_EQ(vnkSetStreamOutputFile(unknownHandle(), nullptr), -17);
    EXPECT_TRUE(std::filesystem::is_empty(cFolder.path()));
    Stream cStream;
    EXPECT_EQ(cStream.record(""), -70);
    EXPECT_EQ(cStream.endRecording(), -70);
    EXPECT_EQ(cStream.record(cFolder.path() + "\\missing\\x"), -71);
    EXPECT_EQ(cStream.record("bare"), -71);
    EXPECT_EQ(cStream.record(cFolder.native("slashes")), -71);
    EXPECT_TRUE(std::filesystem::is_empty(cFolder.path()));
    EXPECT_EQ(cStream.text("filename"), "(none)");
    EXPECT_EQ(cStream.record(cFolder.name("x")), 0);
    EXPECT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(cStream.endRecording(), -70);
}

TEST(SetStreamOutputFile, ARecordingWithoutAFrameIsAnEmptyRecord) {
    const Folder cFolder;
    Stream cStream;
    ASSERT_EQ(cStream.record(cFolder.name("x.bin")), 0);
    EXPECT_EQ(cStream.text("filename"), cFolder.name("x.json"));
    EXPECT_EQ(readFile(cFolder.native("x.json")), "") << "written at the end";
    ASSERT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(cStream.text("filename"), "(none)");
    EXPECT_EQ(readFile(cFolder.native("x.json")), "{\r\n}");
    EXPECT_TRUE(cFolder.has("x.data"));
    EXPECT_EQ(readFile(cFolder.native("x.data")), "");
    EXPECT_FALSE(cFolder.has("x.bin"));
}

TEST(SetStreamOutputFile, ANameThatIsTakenIsNumbered) {
    const Folder cFolder;
    Stream cStream;
    for (const char* pName : {"x.json", "x(1).json", "x(2).json", "x(3).json"}) {
        ASSERT_EQ(cStream.record(cFolder.name("x")), 0);
        EXPECT_EQ(cStream.text("filename"), cFolder.name(pName));
    }
    ASSERT_EQ(cStream.record(cFolder.name("y(7)")), 0);
    EXPECT_EQ(cStream.text("filename"), cFolder.name("y(7).json")) << "a name that is free is taken as it is";
    ASSERT_EQ(cStream.record(cFolder.name("y(7)")), 0);
    EXPECT_EQ(cStream.text("filename"), cFolder.name("y(7)(7).json"));
    writeFile(cFolder.native("z(2147483647).json"), "");
    writeFile(cFolder.native("z(2147483647)(2147483647).json"), "");
    ASSERT_EQ(cStream.record(cFolder.name("z(2147483647)")), 0);
    EXPECT_EQ(cStream.text("filename"), cFolder.name("z(2147483647)(2147483648).json"));
}

TEST(SetStreamOutputFile, ANameThatIsTakenAndHoldsNoNumberPassesAnExceptionToTheCaller) {
    const Folder cFolder;
    for (const char* pName : {"x(abc).json", "x(99999999999).json", "x(.json"})
        writeFile(cFolder.native(pName), "");
    Stream cStream;
    ASSERT_EQ(cStream.record(cFolder.name("before")), 0);
    EXPECT_THROW(cStream.record(cFolder.name("x(abc)")), std::invalid_argument);
    EXPECT_THROW(cStream.record(cFolder.name("x(")), std::invalid_argument);
    EXPECT_THROW(cStream.record(cFolder.name("x(99999999999)")), std::out_of_range);
    EXPECT_EQ(cStream.text("filename"), cFolder.name("before.json")) << "the recording goes on";
    ASSERT_EQ(cStream.record(cFolder.name("y(abc)")), 0) << "a name that is free need not be a number";
}

TEST(SetStreamOutputFile, WhatIsNoFileNeverBlocksAndRecordsNothing) {
    const Folder cFolder;
    ASSERT_EQ(::mkfifo(cFolder.native("pipe.data").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo(cFolder.native("pipes.json").c_str(), 0600), 0);
    ASSERT_EQ(::mkdir(cFolder.native("folder.data").c_str(), 0700), 0);
    writePair(cFolder, "source", makeIQ(3, 4));
    Stream cStream;
    for (const char* pStem : {"pipe", "pipes", "folder"}) {
        takeLog();
        ASSERT_EQ(cStream.record(cFolder.name(pStem)), 0) << pStem;
        ASSERT_EQ(cStream.play(cFolder.name("source")), 0);
        EXPECT_EQ(readIQ(cStream).size(), 3u) << "the stream goes on";
        EXPECT_EQ(cStream.endRecording(), 0);
        EXPECT_EQ(countOf(takeLog(), "(libvnk code -71)"), std::string(pStem) == "pipes" ? 0u : 1u) << pStem;
    }
    EXPECT_EQ(readFile(cFolder.native("pipes(1).data")), bytesOf(makeIQ(3, 4))) << "a name that is taken";
}

TEST(RecordedStreams, HoldTheBytesOfTheFramesAndDescribeThem) {
    const Folder cFolder;
    const Tuning cTuning{100e6f, 20e6f, 25e6f, 0.0f, 2500.0f, "", "nuttall"};
    const auto lIQ = makeIQ(30, 1000, 20 * kMillisecond);
    const auto lSpectra = makeSpectra(30, 801);
    writePair(cFolder, "iq", lIQ, cTuning);
    writePair(cFolder, "spectra", lSpectra, cTuning);
    Stream cIQ(Kind::iq), cSpectra(Kind::spectrum);
    ASSERT_EQ(cIQ.record(cFolder.name("iq")), 0);
    ASSERT_EQ(cSpectra.record(cFolder.name("spectra")), 0);
    ASSERT_EQ(cIQ.play(cFolder.name("iq")), 0);
    ASSERT_EQ(cSpectra.play(cFolder.name("spectra")), 0);
    EXPECT_EQ(cIQ.text("filename"), cFolder.name("iq")) << "a file that plays is named before the recording";
    readIQ(cIQ);
    readSpectra(cSpectra);
    EXPECT_EQ(cIQ.text("filename"), cFolder.name("iq(1).json"));
    EXPECT_EQ(cIQ.endRecording(), 0);
    EXPECT_EQ(cSpectra.close(), 0) << "which ends the recording too";
    EXPECT_EQ(readFile(cFolder.native("iq(1).data")), bytesOf(lIQ));
    EXPECT_EQ(readFile(cFolder.native("iq(1).json")), describe(lIQ, cTuning).pretty());
    EXPECT_EQ(readFile(cFolder.native("spectra(1).data")), bytesOf(lSpectra));
    EXPECT_EQ(readFile(cFolder.native("spectra(1).json")), describe(lSpectra, cTuning).pretty());
}

TEST(RecordedStreams, AreRecordedWhetherTheyAreReadOrNot) {
    const Folder cFolder;
    const auto lFrames = makeIQ(100, 16);
    writePair(cFolder, "x", lFrames);
    Stream cStream;
    ASSERT_EQ(cStream.record(cFolder.name("y")), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
    ASSERT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(readFile(cFolder.native("y.data")), bytesOf(lFrames));
}

TEST(RecordedStreams, GoOnInTheSameFilesAfterAPauseInWhichTheirThreadEnds) {
    const Folder cFolder;
    const auto lFrames = makeIQ(3, 16);
    writePair(cFolder, "x", lFrames);
    const size_t uThreads = vnktest::idleThreads();
    Stream cStream;
    ASSERT_EQ(cStream.record(cFolder.name("y")), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    readIQ(cStream);
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; }));
    EXPECT_EQ(readFile(cFolder.native("y.data")), bytesOf(lFrames));
    EXPECT_EQ(readFile(cFolder.native("y.json")), "");
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    readIQ(cStream);
    ASSERT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(readFile(cFolder.native("y.data")), bytesOf(lFrames) + bytesOf(lFrames));
}

TEST(RecordedStreams, AnEarlierRecordingGoesOnWhenALaterOneCannotBegin) {
    const Folder cFolder;
    const auto lFrames = makeIQ(10, 16);
    writePair(cFolder, "x", lFrames);
    Stream cStream;
    ASSERT_EQ(cStream.record(cFolder.name("y")), 0);
    EXPECT_EQ(cStream.record(cFolder.path() + "\\missing\\z"), -71);
    EXPECT_EQ(cStream.text("filename"), cFolder.name("y.json"));
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    readIQ(cStream);
    EXPECT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(readFile(cFolder.native("y.data")), bytesOf(lFrames));
}

// WAV.

TEST(ConvertToWav, MakesAHeaderWithTheRateOfTheRecording) {
    const Folder cFolder;
    for (const size_t uFrames : {size_t{0}, size_t{1}, size_t{200}}) {
        std::vector<Baseband> lFrames(uFrames, Baseband{{std::vector<float>(500, 0.5f)}});
        Record cDescription = describe(std::vector<Baseband>(1), Tuning{0, 15e3f, 44100.0f, 0, 0, "", ""});
        const std::string stem = "x" + std::to_string(uFrames);
        writePair(cFolder, stem, cDescription, bytesOf(lFrames));
        ASSERT_EQ(
            vnkConvertBasebandFileToWavFile(cFolder.name(stem).c_str(), cFolder.name(stem + ".wav").c_str()),
            0);
        std::string expected = "RIFF";
        append(expected, uint32_t{36});
        expected += "WAVEfmt ";
        append(expected, uint32_t{16});
        append(expected, uint16_t{1});
        append(expected, uint16_t{1});
        append(expected, uint32_t{44100});
        append(expected, uint32_t{88200});
        append(expected, uint16_t{2});
        append(expected, uint16_t{16});
        expected += "data";
        append(expected, uint32_t{0});
        EXPECT_EQ(readFile(cFolder.native(stem + ".wav")), expected) << uFrames << " frames";
    }
}

TEST(ConvertToWav, TellsWhatIsMissing) {
    const Folder cFolder;
    writePair(cFolder, "iq", makeIQ(1, 4));
    writePair(cFolder, "audio", std::vector<Baseband>{{{{1, 2, 3}}}});
    const auto convert = [&](const std::string& from, const std::string& to) {
        return vnkConvertBasebandFileToWavFile(from.c_str(), to.c_str());
    };
    EXPECT_EQ(vnkConvertBasebandFileToWavFile(nullptr, cFolder.name("x.wav").c_str()), -4);
    EXPECT_EQ(vnkConvertBasebandFileToWavFile(cFolder.name("audio").c_str(), nullptr), -4);
    EXPECT_EQ(convert(cFolder.name("missing"), cFolder.name("x.wav")), -29);
    EXPECT_EQ(convert(cFolder.name("missing"), "nowhere"), -29) << "the recording is looked at first";
    EXPECT_EQ(convert(cFolder.name("iq"), "nowhere"), -79);
    EXPECT_EQ(convert(cFolder.name("iq"), cFolder.name("x.wav")), -79);
    EXPECT_FALSE(cFolder.has("x.wav"));
    EXPECT_EQ(convert(cFolder.name("audio"), cFolder.path() + "\\missing\\x.wav"), -84);
    EXPECT_EQ(convert(cFolder.name("audio"), "bare.wav"), -84);
    EXPECT_EQ(convert(cFolder.name("audio"), ""), -84);
}

TEST(ConvertToWav, ANameThatIsTakenIsNumbered) {
    const Folder cFolder;
    writePair(cFolder, "audio", std::vector<Baseband>{{{{1, 2, 3}}}});
    ASSERT_EQ(::mkfifo(cFolder.native("pipe.wav").c_str(), 0600), 0);
    writeFile(cFolder.native("x.wav"), "mine");
    writeFile(cFolder.native("y(abc).wav"), "mine");
    const auto convert = [&](const char* pTo) {
        return vnkConvertBasebandFileToWavFile(cFolder.name("audio").c_str(), cFolder.name(pTo).c_str());
    };
    EXPECT_EQ(convert("x.wav"), 0);
    EXPECT_EQ(convert("x.wav"), 0);
    EXPECT_EQ(readFile(cFolder.native("x.wav")), "mine");
    EXPECT_EQ(readFile(cFolder.native("x(1).wav")).size(), 44u);
    EXPECT_EQ(readFile(cFolder.native("x(2).wav")).size(), 44u);
    EXPECT_EQ(convert("pipe.wav"), 0);
    EXPECT_EQ(readFile(cFolder.native("pipe(1).wav")).size(), 44u);
    EXPECT_THROW(convert("y(abc).wav"), std::invalid_argument);
}

// Without the interface.

TEST(Recordings, WithoutTheInterfaceEveryExportGivesMinusTwoBeforeAnythingElse) {
    const Folder cFolder;
    writePair(cFolder, "audio", std::vector<Baseband>{{{{1, 2, 3}}}});
    writeFile(cFolder.native("x(abc).json"), "");
    const InterfaceDown cDown;
    EXPECT_EQ(vnkSetStreamOutputFile(5, nullptr), -2);
    EXPECT_EQ(vnkSetStreamOutputFile(5, cFolder.name("x(abc)").c_str()), -2);
    EXPECT_EQ(vnkAttachStreamToFile(5, nullptr), -2);
    EXPECT_EQ(vnkAttachStreamToFile(5, cFolder.name("audio").c_str()), -2);
    EXPECT_EQ(vnkConvertBasebandFileToWavFile(nullptr, nullptr), -2);
    EXPECT_EQ(vnkConvertBasebandFileToWavFile(cFolder.name("audio").c_str(), cFolder.name("x.wav").c_str()),
              -2);
    EXPECT_FALSE(cFolder.has("x.wav"));
}

TEST(Recordings, TheEndOfTheInterfaceEndsThem) {
    const Folder cFolder;
    const auto lFrames = makeIQ(100, 16);
    writePair(cFolder, "x", lFrames);
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    ASSERT_EQ(vnkSetStreamOutputFile(uStream, cFolder.name("y").c_str()), 0);
    ASSERT_EQ(vnkAttachStreamToFile(uStream, cFolder.name("x").c_str()), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return vnkIsAttached(uStream) == 5; }));
    { const InterfaceDown cDown; }
    EXPECT_EQ(readFile(cFolder.native("y.data")), bytesOf(lFrames));
    EXPECT_EQ(readFile(cFolder.native("y.json")), describe(lFrames).pretty());
}
