#include <limits>
#include <thread>

#include "foundations/clock.h"
#include "support/resources.h"
#include "unit/streams/streamoutputsupport.h"

using vnktest::Bytes;
using vnktest::fieldsAt;
using vnktest::FrameFields;
using vnktest::Gate;
using vnktest::iqBytes;
using vnktest::makeBaseband;
using vnktest::makeIQ;
using vnktest::makeSpectrum;
using vnktest::ramp;
using vnktest::readWhole;
using vnktest::sameBytes;
using vnktest::sequences;
using vnktest::smallIQ;
using vnktest::SourceEntity;
using vnktest::waitUntil;
using vnktest::WatchedFrame;
using vnktest::writeWhole;

using StreamOutputFileTest = vnktest::StreamOutputFileTest;

// Names.

TEST_F(StreamOutputFileTest, AnyExtensionIsReplacedByTheTwoOfThePair) {
    for (const auto& [pName, pDescription] :
         {std::pair{"a.bin", "a.json"}, std::pair{"b.json", "b.json"}, std::pair{"c.data", "c.json"},
          std::pair{"d.e.f", "d.e.json"}}) {
        const auto cFile = record(pName);
        EXPECT_TRUE(cFile->isOpen());
        EXPECT_EQ(cFile->getPath(), mcFolder.path(pDescription));
    }
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"a.data", "a.json", "b.data", "b.json", "c.data",
                                                          "c.json", "d.e.data", "d.e.json"}));
}

TEST_F(StreamOutputFileTest, PathWithoutAnExtensionMakesThePairToo) {
    const std::string path = mcFolder.path("plain");
    if (path.find('.') != std::string::npos)
        GTEST_SKIP() << "the folder for tests has a dot in its name";
    EXPECT_TRUE(makeReference<StreamOutputFile>(path, nullptr)->isOpen());
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"plain.data", "plain.json"}));
}

TEST_F(StreamOutputFileTest, SecondRecordingOfANameIsNumbered) {
    for (const char* pExpected : {"x.json", "x(1).json", "x(2).json"})
        EXPECT_EQ(record()->getPath(), mcFolder.path(pExpected));
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"x(1).data", "x(1).json", "x(2).data", "x(2).json",
                                                          "x.data", "x.json"}));
}

TEST_F(StreamOutputFileTest, NameWithANumberKeepsIt) {
    EXPECT_EQ(record("x(7).json")->getPath(), mcFolder.path("x(7).json"));
    const auto cFile = record("x(7).json");
    EXPECT_EQ(cFile->getPath(), mcFolder.path("x(7)(7).json"));
    EXPECT_TRUE(mcFolder.has("x(7)(7).data"));
}

TEST_F(StreamOutputFileTest, TakenNameWithTextInParenthesesThrowsAndLeavesNothing) {
    writeWhole(mcFolder.file("x(abc).json"), "mine");
    writeWhole(mcFolder.file("x(99999999999).json"), "mine");
    EXPECT_THROW(record("x(abc).json"), std::invalid_argument);
    EXPECT_THROW(record("x(99999999999).json"), std::out_of_range);
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"x(99999999999).json", "x(abc).json"}));
    EXPECT_EQ(json("x(abc)"), "mine");
    writeWhole(mcFolder.file("x(2147483647).json"), "mine");
    EXPECT_EQ(record("x(2147483647).json")->getPath(), mcFolder.path("x(2147483647)(2147483647).json"));
}

TEST_F(StreamOutputFileTest, FolderThatDoesNotExistLeavesItNotOpenAndMakesNothing) {
    for (const std::string& path : {mcFolder.path("missing\\x.json"), mcFolder.file("x.json"),
                                    std::string("x.json"), std::string("x"), std::string()}) {
        const auto cFile = makeReference<StreamOutputFile>(path, nullptr);
        EXPECT_FALSE(cFile->isOpen()) << path;
        EXPECT_EQ(cFile->getPath(), "");
        EXPECT_FALSE(cFile->addFrame(smallIQ(0)));
        EXPECT_FALSE(cFile->isRunning());
    }
    EXPECT_TRUE(mcFolder.names().empty());
    EXPECT_FALSE(std::filesystem::exists("x.json"));
}

TEST_F(StreamOutputFileTest, DataFileOfTheNameIsOverwritten) {
    writeWhole(mcFolder.file("x.data"), std::string(100000, 'o'));
    record()->addFrame(smallIQ(3));
    EXPECT_TRUE(sameBytes(data(), iqBytes(3)));
}

// What is in the two files.

TEST_F(StreamOutputFileTest, RecordingWithoutFramesIsAnEmptyRecordAndNoData) {
    auto cFile = record();
    EXPECT_EQ(json(), "") << "nothing before the end";
    EXPECT_FALSE(cFile->isRunning());
    cFile = nullptr;
    EXPECT_EQ(json(), "{\r\n}");
    EXPECT_EQ(data(), "");
}

TEST_F(StreamOutputFileTest, RecordingWithoutFramesKeepsTheSource) {
    record("x.json", makeReference<SourceEntity>("{\"source\":\"unit\",\"FCentreHz\":1.0}"));
    EXPECT_EQ(json(), "{\r\n\t\"source\":\"unit\"\r\n}");
}

TEST_F(StreamOutputFileTest, SourceIsAskedOnceAtCreation) {
    const auto cSource = makeReference<SourceEntity>("{\"source\":{\"serial\":17}}");
    auto cFile = record("x.json", cSource);
    EXPECT_EQ(cSource->referenceCount(), 1u) << "nobody holds it";
    cSource->mcParameters.set("source", "another");
    cFile->addFrame(smallIQ(0));
    cFile = nullptr;
    EXPECT_NE(json().find("\t\"source\":{\r\n\t\t\"serial\":17\r\n\t}\r\n}"), std::string::npos) << json();
}

TEST_F(StreamOutputFileTest, IQFramesLieInTheFileOneBehindTheOther) {
    const std::vector<float> lSpecial{0.0f,
                                      -0.0f,
                                      std::numeric_limits<float>::infinity(),
                                      -std::numeric_limits<float>::infinity(),
                                      std::numeric_limits<float>::quiet_NaN(),
                                      std::numeric_limits<float>::denorm_min()};
    auto cFile = record();
    EXPECT_TRUE(cFile->addFrame(makeIQ(fieldsAt(5, 0x0102030405060708), {1.5f, -2.0f})));
    EXPECT_TRUE(cFile->addFrame(makeIQ(fieldsAt(0xFFFFFFFF, ~uint64_t{0}), lSpecial)));
    EXPECT_TRUE(cFile->addFrame(makeIQ(fieldsAt(0, 0), ramp(0))));
    EXPECT_TRUE(cFile->addFrame(makeIQ(fieldsAt(1, 0), ReferencePtr<ComplexArray>()))) << "leaves no bytes";
    cFile = nullptr;
    const std::string first(
        "\xE6\xA2\xF7\x12"
        "\x08\x07\x06\x05\x04\x03\x02\x01"
        "\x05\0\0\0"
        "\x01\0\0\0"
        "\0\0\xC0\x3F"
        "\0\0\0\xC0",
        28);
    const std::string third(
        "\xE6\xA2\xF7\x12"
        "\0\0\0\0\0\0\0\0"
        "\0\0\0\0"
        "\0\0\0\0",
        20);
    EXPECT_TRUE(sameBytes(data(), first + iqBytes(0xFFFFFFFF, ~uint64_t{0}, lSpecial) + third));
    EXPECT_EQ(summary("IQ").find("Samples")->getUnsigned64(), 4u);
}

TEST_F(StreamOutputFileTest, SpectraLieInTheFileWithoutTheirFurtherTraces) {
    FrameFields c = fieldsAt(7, 0x11);
    c.muDuration = 0x2233;
    const auto cFrame = makeSpectrum(c, {-100.5f, 3.0f});
    uint32_t uBefore = 0;
    cFrame->addTrace(uBefore)[0] = 77.0f;
    const auto cEmpty = makeSpectrum(fieldsAt(8), ramp(0));
    auto cFile = record();
    cFile->addFrame(cFrame);
    cFile->addFrame(cEmpty);
    cFile->addFrame(makeSpectrum(fieldsAt(9), ReferencePtr<FloatArray>()));
    cFile = nullptr;
    EXPECT_TRUE(sameBytes(data(), std::string("\x22\x74\xEC\x59"
                                              "\x11\0\0\0\0\0\0\0"
                                              "\x33\x22\0\0\0\0\0\0"
                                              "\x07\0\0\0"
                                              "\x02\0\0\0"
                                              "\0\0\xC9\xC2"
                                              "\0\0\x40\x40"
                                              "\x22\x74\xEC\x59"
                                              "\0\0\0\0\0\0\0\0"
                                              "\0\0\0\0\0\0\0\0"
                                              "\x08\0\0\0"
                                              "\0\0\0\0",
                                              64)));
    EXPECT_EQ(summary("Spectrum").find("Frames")->getUnsigned32(), 3u);
    EXPECT_EQ(summary("Spectrum").find("PointsPerFrame")->getUnsigned32(), 0u);
}

TEST_F(StreamOutputFileTest, BasebandFramesLieInTheFileChannelByChannelWithoutTimeOrSequence) {
    auto cFile = record();
    cFile->addFrame(makeBaseband(fieldsAt(1, 99), {{1.0f, 2.0f}, {-1.0f, -2.0f}}));
    cFile->addFrame(makeBaseband(fieldsAt(2, 98), {}));
    cFile = nullptr;
    EXPECT_TRUE(sameBytes(data(), std::string("\x4D\xBA\x5E\xBA"
                                              "\x02\0\0\0"
                                              "\x02\0\0\0"
                                              "\0\0\x80\x3F\0\0\0\x40"
                                              "\0\0\x80\xBF\0\0\0\xC0"
                                              "\x4D\xBA\x5E\xBA"
                                              "\0\0\0\0"
                                              "\0\0\0\0",
                                              40)));
}

TEST_F(StreamOutputFileTest, SequencesAreWrittenAsTheyAreAlsoWhereTheyWrapOrMiss) {
    auto cFile = record();
    const std::vector<int64_t> lSequences{0xFFFFFFFD, 0xFFFFFFFE, 0xFFFFFFFF, 0, 1, 1, 7, 3};
    for (const int64_t iSequence : lSequences)
        cFile->addFrame(smallIQ(static_cast<uint32_t>(iSequence)));
    cFile = nullptr;
    EXPECT_EQ(sequences(data()), lSequences);
}

TEST_F(StreamOutputFileTest, NullFrameIsRefusedAndLeavesNoTrace) {
    auto cFile = record();
    EXPECT_FALSE(cFile->addFrame(nullptr));
    EXPECT_FALSE(cFile->isRunning());
    EXPECT_TRUE(cFile->addFrame(smallIQ(1)));
    EXPECT_FALSE(cFile->addFrame(nullptr));
    cFile = nullptr;
    EXPECT_EQ(sequences(data()), std::vector<int64_t>{1});
}

TEST_F(StreamOutputFileTest, FramesReachTheDiskWhileTheRecordingGoesOn) {
    auto cFile = record();
    cFile->addFrame(smallIQ(0));
    EXPECT_TRUE(waitForBytes(52));
    cFile->addFrame(smallIQ(1));
    EXPECT_TRUE(waitForBytes(104));
    EXPECT_EQ(json(), "") << "written once, at the end";
    cFile = nullptr;
    EXPECT_EQ(summary("IQ").find("Samples")->getUnsigned64(), 8u);
}

TEST_F(StreamOutputFileTest, EndWaitsForAllThatIsQueued) {
    auto cFile = record();
    constexpr uint32_t kFrames = 2000;
    for (uint32_t i = 0; i < kFrames; ++i)
        cFile->addFrame(smallIQ(i));
    cFile = nullptr;
    const std::vector<int64_t> lSequences = sequences(data());
    ASSERT_EQ(lSequences.size(), kFrames);
    for (uint32_t i = 0; i < kFrames; ++i)
        EXPECT_EQ(lSequences[i], i);
}

// The writer's thread.

TEST_F(StreamOutputFileTest, WriterEndsWhenIdleAndTheNextFrameStartsItAgain) {
    auto cFile = record();
    const uint64_t uBegin = utils::steadyMilliseconds();
    cFile->addFrame(smallIQ(0));
    EXPECT_TRUE(cFile->isRunning());
    ASSERT_TRUE(waitForBytes(52));
    ASSERT_TRUE(waitUntil([&] { return !cFile->isRunning(); }));
    EXPECT_GE(utils::steadyMilliseconds() - uBegin, 1090u) << "eleven waits of 100 ms";
    cFile->addFrame(smallIQ(1));
    EXPECT_TRUE(waitForBytes(104));
    ASSERT_TRUE(waitUntil([&] { return !cFile->isRunning(); }));
    cFile->addFrame(smallIQ(2));
    cFile = nullptr;
    EXPECT_EQ(sequences(data()), (std::vector<int64_t>{0, 1, 2}));
    EXPECT_EQ(summary("IQ").find("Samples")->getUnsigned64(), 12u);
    EXPECT_EQ(mcFolder.names(), (std::vector<std::string>{"x.data", "x.json"}));
}

TEST_F(StreamOutputFileTest, EndOfAnIdleRecordingIsQuick) {
    uint64_t uBest = ~uint64_t{0};
    for (int i = 0; i < 5; ++i) {
        auto cFile = record(std::to_string(i) + ".json");
        cFile->addFrame(smallIQ(0));
        ASSERT_TRUE(waitUntil([&] { return data(std::to_string(i)).size() == 52; }));
        const uint64_t uBegin = utils::steadyMilliseconds();
        cFile = nullptr;
        uBest = std::min(uBest, utils::steadyMilliseconds() - uBegin);
    }
    EXPECT_LT(uBest, 500u) << "it does not wait until the writer gives up by itself";
}

TEST_F(StreamOutputFileTest, NothingOfTheRecordingIsLeftBehind) {
    const size_t uThreads = vnktest::idleThreads();
    const size_t uDescriptors = vnktest::openDescriptors();
    for (int i = 0; i < 20; ++i)
        record()->addFrame(smallIQ(0));
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
    EXPECT_EQ(vnktest::openDescriptors(), uDescriptors);
}

TEST_F(StreamOutputFileTest, FramesOfSeveralThreadsAreAllRecordedOnceAndEachThreadsInOrder) {
    constexpr uint32_t kThreads = 4, kEach = 1000;
    auto cFile = record();
    std::vector<std::thread> lThreads;
    for (uint32_t uThread = 0; uThread < kThreads; ++uThread)
        lThreads.emplace_back([&, uThread] {
            for (uint32_t i = 0; i < kEach; ++i)
                cFile->addFrame(smallIQ(uThread * kEach + i));
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    cFile = nullptr;
    const std::vector<int64_t> lSequences = sequences(data());
    ASSERT_EQ(lSequences.size(), kThreads * kEach);
    std::vector<uint32_t> lNext(kThreads, 0);
    for (const int64_t iSequence : lSequences) {
        ASSERT_GE(iSequence, 0);
        const auto uSequence = static_cast<uint32_t>(iSequence);
        EXPECT_EQ(uSequence % kEach, lNext.at(uSequence / kEach)++);
    }
}

TEST_F(StreamOutputFileTest, ProducerIsNotHeldUpByAWriterThatIs) {
    Gate cGate;
    WatchedFrame::Fate cFate;
    cFate.mpGate = &cGate;
    auto cFile = record();
    cFile->addFrame(makeReference<WatchedFrame>(0u, cFate));
    ASSERT_TRUE(cGate.waitReached());
    for (uint32_t i = 1; i < 100; ++i)
        EXPECT_TRUE(cFile->addFrame(smallIQ(i)));
    EXPECT_EQ(data(), "");
    cGate.open();
    cFile = nullptr;
    EXPECT_EQ(sequences(data()).size(), 100u);
}

TEST_F(StreamOutputFileTest, EndWaitsForAWriterThatIsHeldUpLongerThanItsOwnLimit) {
    Gate cGate;
    WatchedFrame::Fate cFate;
    cFate.mpGate = &cGate;
    auto cFile = record();
    cFile->addFrame(makeReference<WatchedFrame>(0u, cFate));
    for (uint32_t i = 1; i < 5; ++i)
        cFile->addFrame(smallIQ(i));
    ASSERT_TRUE(cGate.waitReached());
    std::atomic<bool> bEnded{false};
    std::thread cEnder([&] {
        cFile = nullptr;
        bEnded = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    EXPECT_FALSE(bEnded);
    EXPECT_EQ(json(), "");
    cGate.open();
    cEnder.join();
    EXPECT_EQ(sequences(data()), (std::vector<int64_t>{0, 1, 2, 3, 4}));
    EXPECT_EQ(summary("IQ").find("Samples")->getUnsigned64(), 20u);
    EXPECT_EQ(cFate.muFreed, 1u);
}

TEST_F(StreamOutputFileTest, WriterWhoseFrameFailsGoesOnWithTheNext) {
    class Throwing : public IQFrame {
     public:
        Throwing()
            : IQFrame(0u, uint64_t{0}, uint64_t{0}, kNanoseconds, 0.0f, 0.0f, 1.0f, 0.0f,
                      vnktest::complexArray(ramp(8)), {}) {}
        uint64_t writeTo(std::ostream&) const override { throw std::runtime_error("no memory"); }
    };
    auto cFile = record();
    cFile->addFrame(smallIQ(1));
    cFile->addFrame(makeReference<Throwing>());
    cFile->addFrame(smallIQ(2));
    cFile->addFrame(makeReference<Throwing>());
    cFile = nullptr;
    EXPECT_EQ(sequences(data()), (std::vector<int64_t>{1, 2}));
    EXPECT_NE(json(), "");
}

TEST_F(StreamOutputFileTest, RecordingsOfOneNameAtOnceEachGetAPairOfTheirOwn) {
    constexpr uint32_t kThreads = 4, kEach = 10;
    std::vector<std::thread> lThreads;
    for (uint32_t uThread = 0; uThread < kThreads; ++uThread)
        lThreads.emplace_back([&, uThread] {
            for (uint32_t i = 0; i < kEach; ++i)
                record()->addFrame(smallIQ(uThread * kEach + i));
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    std::vector<int64_t> lAll;
    for (const std::string& name : mcFolder.names())
        if (name.ends_with(".data")) {
            const auto lOne = sequences(readWhole(mcFolder.file(name)));
            EXPECT_EQ(lOne.size(), 1u) << name;
            lAll.insert(lAll.end(), lOne.begin(), lOne.end());
        }
    std::sort(lAll.begin(), lAll.end());
    ASSERT_EQ(lAll.size(), kThreads * kEach);
    for (size_t i = 0; i < lAll.size(); ++i)
        EXPECT_EQ(lAll[i], static_cast<int64_t>(i));
}
