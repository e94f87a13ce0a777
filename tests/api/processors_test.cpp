#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <thread>

#include "api/processing.h"
#include "support/resources.h"

namespace {

using namespace processing;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kAges = 100'000 * kMillisecond;

/// A stream of each kind that nothing feeds.
struct Streams {
    Stream mcIQ{Kind::iq}, mcSpectra{Kind::spectrum};
    Processor mcMaker{"FMDemodulator"};
    Output mcAudio{mcMaker};
};

bool threadsAre(size_t uThreads) {
    return vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; });
}

}  // namespace

// Types.

TEST(GetProcessorTypes, NamesTheFourInOrder) {
    Text cText("old");
    ASSERT_EQ(vnkGetProcessorTypes(cText.address()), 0);
    EXPECT_EQ(cText.str(), "{\"processortypes\":[\"AMDemodulator\",\"FMDemodulator\",\"IQToSpectrum\","
                           "\"SpectrumCharacterization\"]}");
    Text cJoined;
    ASSERT_EQ(vnkReadTextParameter(cText.address(), "processortypes", cJoined.address()), 0);
    EXPECT_THAT(cJoined.str(), testing::HasSubstr("IQToSpectrum"));
}

TEST(GetProcessorTypes, ANullAddressIsToldAlsoWithoutTheInterface) {
    EXPECT_EQ(vnkGetProcessorTypes(nullptr), -4);
    const InterfaceDown cDown;
    EXPECT_EQ(vnkGetProcessorTypes(nullptr), -4);
    Text cText;
    EXPECT_EQ(vnkGetProcessorTypes(cText.address()), 0);
    EXPECT_THAT(cText.str(), testing::HasSubstr("\"AMDemodulator\""));
}

// Making.

TEST(CreateProcessor, TellsAMissingAddressThenAMissingNameThenAnUnknownType) {
    uint32_t uHandle = 1234;
    EXPECT_EQ(vnkCreateProcessor(nullptr, ""), -4);
    EXPECT_EQ(vnkCreateProcessor(nullptr, "IQToSpectrum"), -4);
    EXPECT_EQ(vnkCreateProcessor(&uHandle, ""), -72);
    EXPECT_EQ(vnkCreateProcessor(&uHandle, nullptr), -72);
    for (const char* pName : {"Unknown", "iqtospectrum", "IQToSpectrum ", "IQToSpectr", "AM", " "})
        EXPECT_EQ(vnkCreateProcessor(&uHandle, pName), -74) << pName;
    EXPECT_EQ(uHandle, 1234u);
}

TEST(CreateProcessor, MakesEachTypeWithAHandleOfItsOwn) {
    std::set<uint32_t> cHandles;
    for (const std::string& type : kTypes) {
        Processor cFirst(type), cSecond(type);
        cHandles.insert(cFirst);
        cHandles.insert(cSecond);
        EXPECT_THAT(cFirst.parameters(), testing::HasSubstr("bufferFrames"));
        Text cSchema;
        EXPECT_EQ(vnkGetParameterInfo(cFirst, cSchema.address()), 0);
        EXPECT_THAT(cSchema.str(), testing::HasSubstr("flowControl")) << type;
        EXPECT_EQ(cFirst.set("{\"bufferFrames\":20}"), 0);
        EXPECT_EQ(cFirst.set("{\"unheardOf\":20}"), -34);
        EXPECT_EQ(cFirst.close(), 0);
        EXPECT_EQ(vnkClose(cFirst.address()), -8);
    }
    EXPECT_EQ(cHandles.size(), 2 * kTypes.size());
}

// Attaching.

TEST(AttachProcessorToStream, TellsAnUnknownProcessorBeforeAnUnknownStream) {
    Stream cStream;
    Processor cProcessor("IQToSpectrum");
    EXPECT_EQ(vnkAttachProcessorToStream(VNK_INVALID_HANDLE, VNK_INVALID_HANDLE), -73);
    EXPECT_EQ(vnkAttachProcessorToStream(cStream.handle(), cStream.handle()), -73) << "a stream is no processor";
    EXPECT_EQ(cProcessor.attach(VNK_INVALID_HANDLE), -38);
    EXPECT_EQ(cProcessor.attach(cProcessor), -38) << "a processor is no stream";
    EXPECT_EQ(cProcessor.attach(cStream.handle()), 0);
    EXPECT_EQ(cProcessor.attach(VNK_INVALID_HANDLE), -38);
    EXPECT_EQ(cProcessor.detach(), 0) << "an unknown stream leaves it attached";
}

TEST(AttachProcessorToStream, RefusesAStreamWhoseFramesTheProcessorDoesNotTake) {
    Streams cStreams;
    for (const std::string& type : kTypes) {
        const bool bTakesSpectra = type == "SpectrumCharacterization";
        Processor cProcessor(type);
        EXPECT_EQ(cProcessor.attach(cStreams.mcIQ.handle()), bTakesSpectra ? -75 : 0) << type;
        EXPECT_EQ(cProcessor.detach(), bTakesSpectra ? -76 : 0) << type;
        EXPECT_EQ(cProcessor.attach(cStreams.mcSpectra.handle()), bTakesSpectra ? 0 : -75) << type;
        EXPECT_EQ(cProcessor.detach(), bTakesSpectra ? 0 : -76) << type;
        EXPECT_EQ(cProcessor.attach(cStreams.mcAudio), -75) << type;
        EXPECT_EQ(cProcessor.detach(), -76) << type;
    }
}

TEST(AttachProcessorToStream, LeavesTheEarlierInputFirstAlsoWhenTheNewOneIsRefused) {
    Streams cStreams;
    Stream cOther;
    Processor cProcessor("IQToSpectrum");
    EXPECT_EQ(cProcessor.attach(cStreams.mcIQ.handle()), 0);
    EXPECT_EQ(cProcessor.attach(cOther.handle()), 0);
    EXPECT_EQ(cProcessor.attach(cOther.handle()), 0) << "the same one again";
    EXPECT_EQ(cStreams.mcIQ.close(), 0);
    EXPECT_EQ(cProcessor.detach(), 0) << "the stream that closed was its input no more";
    EXPECT_EQ(cProcessor.detach(), -76);
    EXPECT_EQ(cProcessor.attach(cOther.handle()), 0);
    EXPECT_EQ(cProcessor.attach(cStreams.mcSpectra.handle()), -75);
    EXPECT_EQ(cProcessor.detach(), -76);
}

TEST(AttachProcessorToStream, AThreadThatCannotBeHadIsARefusal) {
    pthread_attr_t cDefault, cHuge;
    ASSERT_EQ(pthread_getattr_default_np(&cDefault), 0);
    ASSERT_EQ(pthread_getattr_default_np(&cHuge), 0);
    // No address space holds such a stack: the system answers as it does when it is out of threads.
    ASSERT_EQ(pthread_attr_setstacksize(&cHuge, size_t{1} << 60), 0);
    Stream cStream;
    Processor cProcessor("IQToSpectrum");
    ASSERT_EQ(pthread_setattr_default_np(&cHuge), 0);
    const int32_t iStatus = cProcessor.attach(cStream.handle());
    ASSERT_EQ(pthread_setattr_default_np(&cDefault), 0);
    EXPECT_EQ(iStatus, -75);
    EXPECT_EQ(cProcessor.detach(), -76);
    EXPECT_EQ(cProcessor.attach(cStream.handle()), 0);
    EXPECT_EQ(cProcessor.detach(), 0);
    pthread_attr_destroy(&cDefault);
    pthread_attr_destroy(&cHuge);
}

TEST(DetachProcessor, TellsWhatIsNotThere) {
    Processor cProcessor("IQToSpectrum");
    EXPECT_EQ(vnkDetachProcessor(VNK_INVALID_HANDLE), -73);
    EXPECT_EQ(cProcessor.detach(), -76) << "never attached";
    {
        Stream cStream;
        EXPECT_EQ(cProcessor.attach(cStream.handle()), 0);
        EXPECT_EQ(cProcessor.detach(), 0);
        EXPECT_EQ(cProcessor.detach(), -76);
        EXPECT_EQ(cProcessor.attach(cStream.handle()), 0);
    }
    EXPECT_EQ(cProcessor.detach(), -76) << "its stream has been closed";
}

// Output streams.

TEST(GetProcessorOutputStream, TellsAnUnknownProcessorThenAMissingAddress) {
    Stream cStream;
    Processor cProcessor("IQToSpectrum");
    uint32_t uHandle = 1234;
    EXPECT_EQ(vnkGetProcessorOutputStream(VNK_INVALID_HANDLE, &uHandle), -73);
    EXPECT_EQ(vnkGetProcessorOutputStream(cStream.handle(), &uHandle), -73);
    EXPECT_EQ(vnkGetProcessorOutputStream(VNK_INVALID_HANDLE, nullptr), -73);
    EXPECT_EQ(vnkGetProcessorOutputStream(cProcessor, nullptr), -4);
    EXPECT_EQ(uHandle, 1234u);
}

TEST(GetProcessorOutputStream, IsOfTheKindThatTheProcessorMakes) {
    for (const std::string& type : kTypes) {
        Processor cProcessor(type);
        Output cOutput(cProcessor);
        HeldIQ cIQ;
        HeldSpectrum cSpectrum;
        HeldBaseband cBaseband;
        const bool bAudio = type.ends_with("Demodulator");
        EXPECT_EQ(cOutput.read(cIQ), -19) << type;
        EXPECT_EQ(cOutput.read(cSpectrum), bAudio ? -25 : 3) << type;
        EXPECT_EQ(cOutput.read(cBaseband), bAudio ? 3 : -78) << type;
        EXPECT_EQ(vnkIsAttached(cOutput), 0);
        EXPECT_EQ(vnkDetachStream(cOutput), 0);
        EXPECT_EQ(vnkIsAttached(cOutput), 5);
        EXPECT_EQ(vnkDetachStream(cOutput), -44);
    }
}

TEST(GetProcessorOutputStream, EachCallMakesAnotherAndAllReceiveTheSameFrames) {
    const Folder cFolder;
    writePair(cFolder, "x", makeTone(5, 1000));
    Stream cStream;
    Processor cProcessor("FMDemodulator");
    Output cFirst(cProcessor), cSecond(cProcessor);
    EXPECT_NE(uint32_t{cFirst}, uint32_t{cSecond});
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    for (uint32_t i = 0; i < 5; ++i) {
        HeldBaseband c1, c2;
        ASSERT_TRUE(cFirst.next(c1));
        ASSERT_TRUE(cSecond.next(c2));
        EXPECT_EQ(c1->sequence, i);
        EXPECT_EQ(c1->channels[0], c2->channels[0]) << "frames are shared";
    }
}

// Without the interface.

TEST(Processors, WithoutTheInterfaceTheirExportsGiveMinusTwoBeforeAnythingElse) {
    const InterfaceDown cDown;
    uint32_t uHandle = 5;
    EXPECT_EQ(vnkCreateProcessor(nullptr, nullptr), -2);
    EXPECT_EQ(vnkCreateProcessor(&uHandle, "IQToSpectrum"), -2);
    EXPECT_EQ(vnkAttachProcessorToStream(5, 5), -2);
    EXPECT_EQ(vnkDetachProcessor(5), -2);
    EXPECT_EQ(vnkGetProcessorOutputStream(5, nullptr), -2);
    EXPECT_EQ(uHandle, 5u);
}

TEST(Processors, EndWithTheInterface) {
    const Folder cFolder;
    writePair(cFolder, "x", makeTone(3, 1000, kAges));
    const size_t uThreads = vnktest::idleThreads();
    Stream cStream;
    Processor cProcessor("IQToSpectrum"), cTraces("SpectrumCharacterization");
    Output cSpectra(cProcessor), cTraced(cTraces);
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    ASSERT_EQ(cTraces.attach(cSpectra), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    { const InterfaceDown cDown; }
    EXPECT_TRUE(threadsAre(uThreads));
    EXPECT_EQ(cProcessor.detach(), -73);
    EXPECT_EQ(vnkClose(cProcessor.address()), -21);
    for (uint32_t* pHandle : {cProcessor.address(), cTraces.address(), cSpectra.address(), cTraced.address()})
        *pHandle = VNK_INVALID_HANDLE;
}

// Frames and ends.

TEST(Chain, FromARecordingOverSpectraToTracesHasAllFramesAndThenTheEnd) {
    const Folder cFolder;
    writePair(cFolder, "x", makeTone(8, 4096, 5 * kMillisecond));
    Stream cStream;
    Processor cProcessor("IQToSpectrum"), cTraces("SpectrumCharacterization");
    Output cSpectra(cProcessor), cTraced(cTraces);
    ASSERT_EQ(cProcessor.set("{\"FollowIQ\":true}"), 0);
    ASSERT_EQ(cTraces.attach(cSpectra), 0);
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    for (uint32_t i = 0; i < 8; ++i) {
        HeldSpectrum cSpectrum, cTrace;
        ASSERT_TRUE(cSpectra.next(cSpectrum));
        ASSERT_TRUE(cTraced.next(cTrace));
        EXPECT_EQ(cSpectrum->sequence, i);
        EXPECT_EQ(cSpectrum->traceCount, 0u);
        EXPECT_EQ(cTrace->sequence, i);
        EXPECT_EQ(cTrace->traceCount, 3u);
        EXPECT_EQ(contents(cTrace).mlPoints, contents(cSpectrum).mlPoints);
    }
    EXPECT_EQ(cTraced.readToEnd<HeldSpectrum>(), 0u);
    EXPECT_EQ(cSpectra.readToEnd<HeldSpectrum>(), 0u);
    EXPECT_EQ(vnkIsAttached(cTraced), 0) << "at its end, but attached";
    // The streams live: another recording runs down the same chain.
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    HeldSpectrum cTrace;
    EXPECT_TRUE(cTraced.next(cTrace));
}

TEST(Chain, AProcessorBehindAStreamThatEndsWithoutAFrameStaysWithoutOne) {
    const Folder cFolder;
    writePair(cFolder, "x", describe(makeIQ(1, 1)), "");
    Stream cStream;
    Processor cProcessor("IQToSpectrum");
    Output cSpectra(cProcessor);
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
    HeldSpectrum cRecord;
    EXPECT_EQ(cSpectra.read(cRecord, 300), 3);
}

TEST(Chain, AProcessorThatIsDetachedAndAttachedGoesOn) {
    const Folder cFolder;
    writePair(cFolder, "x", makeTone(4, 1000));
    Stream cStream;
    Processor cProcessor("AMDemodulator");
    Output cAudio(cProcessor);
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
        ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
        EXPECT_EQ(cAudio.readToEnd<HeldBaseband>(), 4u);
        ASSERT_EQ(cProcessor.detach(), 0);
    }
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return cStream.isAttached() == 5; }));
    HeldBaseband cRecord;
    EXPECT_NE(cAudio.read(cRecord, 200), 0) << "detached";
}

TEST(BasebandStreams, GoFromNotStartedOverWaitingToEnded) {
    const Folder cFolder;
    writePair(cFolder, "ages", makeTone(3, 500, kAges));
    Stream cStream;
    Processor cProcessor("AMDemodulator");
    Output cAudio(cProcessor);
    HeldBaseband cRecord;
    EXPECT_EQ(cAudio.read(cRecord), 3);
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    EXPECT_EQ(cAudio.read(cRecord), 3);
    ASSERT_EQ(cStream.play(cFolder.name("ages")), 0);
    ASSERT_TRUE(cAudio.next(cRecord));
    ASSERT_TRUE(cAudio.next(cRecord));
    EXPECT_EQ(cAudio.read(cRecord), 1);
    EXPECT_EQ(cStream.detach(), 0);
    EXPECT_EQ(cAudio.readToEnd<HeldBaseband>(), 0u);
    EXPECT_EQ(cAudio.read(cRecord), 2);
    vnkBasebandRecord* pNone = nullptr;
    EXPECT_EQ(vnkGetNextBaseband(cAudio, nullptr, 0), -4);
    EXPECT_EQ(vnkGetNextBaseband(VNK_INVALID_HANDLE, nullptr, 0), -17);
    EXPECT_EQ(vnkGetNextBaseband(cStream.handle(), nullptr, 0), -78);
    EXPECT_EQ(vnkGetNextBaseband(cProcessor, &pNone, 0), -17);
    EXPECT_EQ(vnkFreeBaseband(nullptr), -4);
    EXPECT_EQ(vnkFreeBaseband(&pNone), -20);
}

TEST(BasebandStreams, RecordsHaveTheFieldsOfTheirFramesAndOutliveTheirStream) {
    const Folder cFolder;
    const auto lFrames = makeTone(3, 700, 3 * kMillisecond);
    writePair(cFolder, "x", lFrames);
    Stream cStream;
    Processor cProcessor("FMDemodulator");
    Output cAudio(cProcessor);
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    std::vector<HeldBaseband> lHeld(3);
    for (HeldBaseband& cRecord : lHeld)
        ASSERT_TRUE(cAudio.next(cRecord));
    EXPECT_EQ(cAudio.close(), 0);
    EXPECT_EQ(cStream.close(), 0);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(lHeld[i]->sequence, i);
        EXPECT_EQ(lHeld[i]->timestamp, lFrames[i].muTime);
        EXPECT_EQ(lHeld[i]->sampleRateHz, 256e3f);
        EXPECT_EQ(lHeld[i]->bandwidthHz, 200e3f) << "of the frame that it comes from";
        EXPECT_EQ(lHeld[i]->channelCount, 1u);
        EXPECT_EQ(lHeld[i]->samplesPerChannel, 700u);
        EXPECT_TRUE(std::isfinite(lHeld[i]->channels[0][699]));
    }
}

TEST(BasebandStreams, HaveTheirParameters) {
    Processor cProcessor("AMDemodulator");
    Output cAudio(cProcessor);
    Text cSchema;
    ASSERT_EQ(vnkGetParameterInfo(cAudio, cSchema.address()), 0);
    EXPECT_THAT(cSchema.str(), testing::HasSubstr("Sample rate of baseband output stream"));
    EXPECT_EQ(cAudio.set("{\"SampleRateHz\":48000.0}"), 0);
    EXPECT_THAT(cAudio.parameters(), testing::HasSubstr("\"SampleRateHz\":44100.000000"))
        << "taken, and not stored";
    while (vnkGetNextStatus() != 0) {
    }
    EXPECT_EQ(cAudio.set("{\"SampleRateHz\":3999.0}"), -34);
    EXPECT_EQ(vnkGetNextStatus(), -81);
}

TEST(BasebandStreams, AreRecordedAndPlayedBack) {
    const Folder cFolder;
    const auto lFrames = makeTone(6, 900, 3 * kMillisecond);
    writePair(cFolder, "iq", lFrames);
    Stream cStream;
    Processor cProcessor("AMDemodulator");
    Output cAudio(cProcessor), cPlayer(cProcessor);
    ASSERT_EQ(vnkSetStreamOutputFile(cAudio, cFolder.name("audio").c_str()), 0);
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    ASSERT_EQ(vnkDetachStream(cPlayer), 0);
    ASSERT_EQ(cStream.play(cFolder.name("iq")), 0);
    std::vector<float> lLive, lPlayed;
    HeldBaseband cRecord;
    for (int i = 0; i < 6; ++i) {
        ASSERT_TRUE(cAudio.next(cRecord));
        lLive.insert(lLive.end(), cRecord->channels[0], cRecord->channels[0] + cRecord->samplesPerChannel);
    }
    ASSERT_EQ(cAudio.readToEnd<HeldBaseband>(), 0u);
    ASSERT_EQ(vnkSetStreamOutputFile(cAudio, nullptr), 0);
    EXPECT_EQ(vnkAttachStreamToFile(cPlayer, cFolder.name("iq").c_str()), -79);
    EXPECT_EQ(vnkAttachStreamToFile(cStream.handle(), cFolder.name("audio").c_str()), -30);
    EXPECT_EQ(cPlayer.read(cRecord), 3) << "nothing reached it before";
    ASSERT_EQ(vnkAttachStreamToFile(cPlayer, cFolder.name("audio").c_str()), 0);
    for (uint32_t i = 0; i < 6; ++i) {
        ASSERT_TRUE(cPlayer.next(cRecord));
        EXPECT_EQ(cRecord->sampleRateHz, 256e3f);
        lPlayed.insert(lPlayed.end(), cRecord->channels[0], cRecord->channels[0] + cRecord->samplesPerChannel);
    }
    EXPECT_EQ(cPlayer.readToEnd<HeldBaseband>(), 0u);
    EXPECT_EQ(lPlayed, lLive);
    ASSERT_EQ(vnkConvertBasebandFileToWavFile(cFolder.name("audio").c_str(), cFolder.name("x.wav").c_str()), 0);
    const std::string wav = readFile(cFolder.native("x.wav"));
    EXPECT_EQ(wav.size(), 44u);
    EXPECT_EQ(numberAt<uint32_t>(wav, 24), 256000u);
}

// Ends in any order.

TEST(Close, OfAChainInAnyOrderWhileItRunsLeavesNothing) {
    const Folder cFolder;
    writePair(cFolder, "x", makeTone(20, 2000));
    const size_t uThreads = vnktest::idleThreads();
    std::vector<int> lOrder{0, 1, 2, 3, 4};
    do {
        Stream cStream;
        Processor cProcessor("IQToSpectrum"), cTraces("SpectrumCharacterization");
        Output cSpectra(cProcessor), cTraced(cTraces);
        ASSERT_EQ(cTraces.attach(cSpectra), 0);
        ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
        ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
        for (const int i : lOrder) {
            Handle* const pHandles[] = {&cProcessor, &cTraces, &cSpectra, &cTraced};
            EXPECT_EQ(i == 4 ? cStream.close() : pHandles[i]->close(), 0);
        }
    } while (std::next_permutation(lOrder.begin(), lOrder.end()));
    EXPECT_TRUE(threadsAre(uThreads));
}

TEST(Close, OfAProcessorLeavesItWorkingForItsStreamsAndEndsItWithTheLast) {
    const Folder cFolder;
    writePair(cFolder, "x", makeTone(3, 1000));
    const size_t uThreads = vnktest::idleThreads();
    Stream cStream;
    Processor cProcessor("FMDemodulator");
    Output cFirst(cProcessor), cSecond(cProcessor);
    ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
    EXPECT_EQ(cProcessor.close(), 0);
    EXPECT_EQ(cFirst.close(), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_EQ(cSecond.readToEnd<HeldBaseband>(), 3u);
    EXPECT_EQ(cSecond.close(), 0);
    EXPECT_TRUE(threadsAre(uThreads)) << "the stream is still there";
}

TEST(Close, OfManyProcessorsLeavesThreadsAndMemoryAsTheyWere) {
    const Folder cFolder;
    writePair(cFolder, "x", makeTone(10, 256));
    Stream cStream;
    ASSERT_EQ(cStream.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    const auto createAndClose = [&](int iCount) {
        for (int i = 0; i < iCount; ++i)
            Processor{kTypes[static_cast<size_t>(i) % kTypes.size()]};
    };
    const auto attachAndClose = [&](int iCount) {
        for (int i = 0; i < iCount; ++i) {
            Processor cProcessor(kTypes[static_cast<size_t>(i) % 3]);
            if (i % 2)
                Output{cProcessor};
            ASSERT_EQ(cProcessor.attach(cStream.handle()), 0);
        }
    };
    createAndClose(1000);
    attachAndClose(50);
    const size_t uThreads = vnktest::liveThreads();
    const uint64_t uBefore = vnktest::residentBytes();
    createAndClose(kSanitized ? 5000 : 100'000);
    attachAndClose(kSanitized ? 50 : 1000);
    EXPECT_TRUE(threadsAre(uThreads));
    if (!kSanitized) {
        EXPECT_LT(vnktest::residentBytes(), uBefore + (16u << 20));
    }
}

// Blocked.

namespace {

/// Traces whose first spectrum is not to be dropped, so that the eleventh waits for room in a stream that nobody reads.
struct Blocked {
    explicit Blocked(const std::string& path) {
        EXPECT_EQ(mcTraces.set("{\"Average\":4,\"bufferFrames\":1000}"), 0);
        EXPECT_EQ(mcTraces.attach(mcStream.handle()), 0);
        EXPECT_EQ(mcStream.play(path), 0);
        HeldSpectrum cRecord;
        for (uint32_t i = 0; i <= 10; ++i) {
            EXPECT_TRUE(mcRead.next(cRecord));
            EXPECT_EQ(cRecord->sequence, i);
        }
    }

    Stream mcStream{Kind::spectrum};
    Processor mcTraces{"SpectrumCharacterization"};
    Output mcRead{mcTraces}, mcUnread{mcTraces};   // served in this order
};

}  // namespace

TEST(Detach, OfAProcessorThatWaitsForRoomBehindItEndsInTimeAndItWorksAgain) {
    const Folder cFolder;
    writePair(cFolder, "x", makeSpectra(30, 16));
    Blocked c(cFolder.name("x"));
    // All have been played into its queue: what came while it is detached would go by it.
    ASSERT_TRUE(vnktest::waitUntil([&] { return c.mcStream.isAttached() == 5; }));
    const auto begin = steady_clock::now();
    ASSERT_EQ(c.mcTraces.detach(), 0);
    EXPECT_GE(steady_clock::now() - begin, 1000ms);
    EXPECT_LT(steady_clock::now() - begin, 20s);
    EXPECT_EQ(c.mcTraces.detach(), -76);
    ASSERT_EQ(c.mcTraces.attach(c.mcStream.handle()), 0);
    HeldSpectrum cRecord;
    EXPECT_EQ(c.mcRead.read(cRecord, 100), 1) << "the one that is left behind has its turn still";
    ASSERT_TRUE(c.mcUnread.next(cRecord));
    EXPECT_EQ(cRecord->sequence, 0u);
    // Of what had waited in its own queue; the reader's may drop some.
    for (uint32_t uLast = 10; uLast < 29; uLast = cRecord->sequence) {
        ASSERT_TRUE(c.mcRead.next(cRecord));
        EXPECT_GT(cRecord->sequence, uLast) << "no frame comes twice";
    }
}

TEST(Close, OfAProcessorAndItsStreamsWhileItWaitsForRoomLeavesNothing) {
    const Folder cFolder;
    writePair(cFolder, "x", makeSpectra(30, 16));
    const size_t uThreads = vnktest::idleThreads();
    std::vector<int> lOrder{0, 1, 2};
    do {
        Blocked c(cFolder.name("x"));
        for (const int i : lOrder)
            EXPECT_EQ(i == 0 ? c.mcStream.close() : i == 1 ? c.mcTraces.close() : c.mcUnread.close(), 0);
        EXPECT_EQ(c.mcRead.close(), 0);
    } while (std::next_permutation(lOrder.begin(), lOrder.end()));
    EXPECT_TRUE(threadsAre(uThreads));
}

// Cycles.

TEST(Cycle, OfAProcessorAndItsOwnStreamIsAskedFromSeveralThreadsAndClosed) {
    const Folder cFolder;
    writePair(cFolder, "x", makeSpectra(3, 16));
    const size_t uThreads = vnktest::idleThreads();
    for (int iRun = 0; iRun < 6; ++iRun) {
        Processor cTraces("SpectrumCharacterization");
        Output cStream(cTraces);
        ASSERT_EQ(cTraces.attach(cStream), 0);
        if (iRun % 2) {
            ASSERT_EQ(vnkAttachStreamToFile(cStream, cFolder.name("x").c_str()), 0);
        }
        std::vector<std::thread> lThreads;
        for (int i = 0; i < 2; ++i)
            lThreads.emplace_back([&] {
                HeldSpectrum cRecord;
                for (int k = 0; k < 200; ++k) {
                    cStream.read(cRecord, 0);
                    EXPECT_NE(cTraces.parameters(), "");
                }
            });
        for (std::thread& cThread : lThreads)
            cThread.join();
        switch (iRun / 2) {
        case 0: EXPECT_EQ(cTraces.detach(), 0); break;
        case 1: EXPECT_EQ(cTraces.close(), 0); break;
        default: EXPECT_EQ(cStream.close(), 0); break;
        }
    }
    EXPECT_TRUE(threadsAre(uThreads));
}

TEST(Cycle, OfTwoProcessorsIsClosedInAnyOrder) {
    const size_t uThreads = vnktest::idleThreads();
    std::vector<int> lOrder{0, 1, 2, 3};
    do {
        Processor cFirst("SpectrumCharacterization"), cSecond("SpectrumCharacterization");
        Output cOne(cFirst), cTwo(cSecond);
        ASSERT_EQ(cSecond.attach(cOne), 0);
        ASSERT_EQ(cFirst.attach(cTwo), 0);
        HeldSpectrum cRecord;
        EXPECT_EQ(cOne.read(cRecord), 3);
        for (const int i : lOrder) {
            Handle* const pHandles[] = {&cFirst, &cSecond, &cOne, &cTwo};
            EXPECT_EQ(pHandles[i]->close(), 0);
        }
    } while (std::next_permutation(lOrder.begin(), lOrder.end()));
    EXPECT_TRUE(threadsAre(uThreads));
}

// Parameters.

TEST(Processors, EveryParameterMayBeChangedAHundredThousandTimesWhileTheyRun) {
    const Folder cFolder;
    writePair(cFolder, "iq", makeTone(20, 512, kMillisecond));
    writePair(cFolder, "spectra", makeSpectra(20, 64, kMillisecond));
    Stream cIQ, cSpectra(Kind::spectrum);
    ASSERT_EQ(cIQ.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cSpectra.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cIQ.play(cFolder.name("iq")), 0);
    ASSERT_EQ(cSpectra.play(cFolder.name("spectra")), 0);
    const std::string plain[] = {"\"bufferFrames\":5,\"bufferSec\":0.0,\"bufferDiscard\":0.5,\"flowControl\":true}",
                                 "\"bufferFrames\":20,\"bufferSec\":1.0,\"bufferDiscard\":0.0,\"flowControl\":false}"};
    const std::map<std::string, std::pair<std::string, std::string>> own = {
        {"AMDemodulator",
         {"{\"type\":\"USB\",\"OutputSampleRate\":48000.0,", "{\"type\":\"DSB\",\"OutputSampleRate\":11025.0,"}},
        {"FMDemodulator", {"{\"OutputSampleRate\":48000.0,", "{\"OutputSampleRate\":8000.0,"}},
        {"IQToSpectrum",
         {"{\"RBWHz\":5000.0,\"FFTOverlap\":0.8,\"WindowFn\":\"hann\",\"FollowIQ\":true,",
          "{\"RBWHz\":20000.0,\"FFTOverlap\":0.0,\"WindowFn\":\"nuttall\",\"FollowIQ\":false,"}},
        {"SpectrumCharacterization",
         {"{\"Average\":3,\"ClearAverageTrace\":true,\"ClearMaxHoldTrace\":true,\"ClearMinHoldTrace\":true,",
          "{\"Average\":7,\"ClearAverageTrace\":false,\"ClearMaxHoldTrace\":false,\"ClearMinHoldTrace\":false,"}},
    };
    for (const auto& [type, texts] : own) {
        Processor cProcessor(type);
        Output cOutput(cProcessor);
        EXPECT_EQ(vnkAllowDiscarding(cOutput, 1), 0);
        ASSERT_EQ(cProcessor.attach(type == "SpectrumCharacterization" ? cSpectra.handle() : cIQ.handle()), 0);
        const int iChanges = kSanitized ? 2000 : 100'000;
        int iRefused = 0;
        for (int i = 0; i < iChanges; ++i)
            iRefused += cProcessor.set((i % 2 ? texts.first : texts.second) + plain[i % 2]) != 0;
        EXPECT_EQ(iRefused, 0) << type;
        // It works on.
        EXPECT_EQ(vnkFlushStream(cOutput), 0);
        if (type.ends_with("Demodulator")) {
            HeldBaseband cRecord;
            EXPECT_TRUE(cOutput.next(cRecord)) << type;
        } else {
            HeldSpectrum cRecord;
            EXPECT_TRUE(cOutput.next(cRecord)) << type;
        }
    }
}
