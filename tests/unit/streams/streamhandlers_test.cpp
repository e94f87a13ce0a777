// The three stream handlers: what differs between them, and what all of them do with files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <thread>

#include "streams/basebandstreamhandler.h"
#include "streams/iqstreamhandler.h"
#include "streams/spectrumstreamhandler.h"
#include "support/loopback.h"
#include "unit/flows/flowsupport.h"
#include "unit/streams/recordingsupport.h"

using vnktest::Bytes;
using vnktest::CountedSource;
using vnktest::fieldsAt;
using vnktest::logged;
using vnktest::makeBaseband;
using vnktest::makeIQ;
using vnktest::makeSpectrum;
using vnktest::parseRecord;
using vnktest::ramp;
using vnktest::readWhole;
using vnktest::record;
using vnktest::sameBytes;
using vnktest::statuses;
using vnktest::waitUntil;
using vnktest::writeWhole;

namespace {

/// What a device is to a stream: an entity with parameters that is a source of frames too.
class DeviceLike : public Entity, public FrameSource {
 public:
    DeviceLike() : FrameSource("DeviceLike") {}
    ~DeviceLike() override { releaseSinks(); }
    utils::ReferenceCountedObject* countedSelf() override { return this; }
    utils::VariantRecord getParameters() override { return record("{\"source\":\"ZR408-0017\",\"other\":1}"); }
    bool isExhausted() override { return mbExhausted; }
    bool canImplement(ReferencePtr<FrameSink>, utils::VariantRecord&, ErrorList&) override { return true; }
    bool parametersChanged(ReferencePtr<FrameSink>) override {
        ++muChanges;
        return true;
    }
    std::atomic<bool> mbExhausted{false};
    std::atomic<uint32_t> muChanges{0};
};

/// Keeps what it is given, and asks something of the moment.
template <typename Sink>
class Listening : public Sink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mlFrames.push_back(cFrame);
        mbLastSeen = mbLastSeen || bLast;
        if (mcAsk)
            mcAsk();
    }
    std::vector<ReferencePtr<Frame>> frames() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mlFrames;
    }
    std::function<void()> mcAsk;
    std::atomic<bool> mbLastSeen{false};

 private:
    std::mutex mcMutex;
    std::vector<ReferencePtr<Frame>> mlFrames;
};

/// What differs between the kinds where the tests treat them alike.
struct IQKind {
    using Handler = IQStreamHandler;
    using Sink = IQFrameSink;
    using OtherSink = SpectrumFrameSink;
    static constexpr const char* mpName = "IQ";
    static constexpr const char* mpRefusal = "Attempt to attach non-IQ frame sink to IQ only source";
    static ReferencePtr<Frame> frame(uint32_t uSequence) { return makeIQ(fieldsAt(uSequence), ramp(8)); }
    static ReferencePtr<Frame> otherFrame() { return makeSpectrum(fieldsAt(0), ramp(4)); }
    static std::string bytes(uint32_t uSequence) {
        return Bytes().u32(0x12F7A2E6).u64(0).u32(uSequence).u32(4).floats(ramp(8)).text();
    }
};

struct SpectrumKind {
    using Handler = SpectrumStreamHandler;
    using Sink = SpectrumFrameSink;
    using OtherSink = BasebandFrameSink;
    static constexpr const char* mpName = "Spectrum";
    static constexpr const char* mpRefusal = "Attempt to attach non-Spectrum sink to a Spectrum source";
    static ReferencePtr<Frame> frame(uint32_t uSequence) { return makeSpectrum(fieldsAt(uSequence), ramp(4)); }
    static ReferencePtr<Frame> otherFrame() { return makeBaseband(fieldsAt(0), {ramp(4)}); }
    static std::string bytes(uint32_t uSequence) {
        return Bytes().u32(0x59EC7422).u64(0).u64(0).u32(uSequence).u32(4).floats(ramp(4)).text();
    }
};

struct BasebandKind {
    using Handler = BasebandStreamHandler;
    using Sink = BasebandFrameSink;
    using OtherSink = IQFrameSink;
    static constexpr const char* mpName = "Baseband";
    static constexpr const char* mpRefusal = "Attempt to attach a non-baseband sink to a baseband source";
    /// The file tells no sequence: the first sample does.
    static ReferencePtr<Frame> frame(uint32_t uSequence) {
        return makeBaseband(fieldsAt(uSequence), {ramp(4, static_cast<float>(uSequence))});
    }
    static ReferencePtr<Frame> otherFrame() { return makeIQ(fieldsAt(0), ramp(4)); }
    static std::string bytes(uint32_t uSequence) {
        return Bytes().u32(0xBA5EBA4D).u32(4).u32(1).floats(ramp(4, static_cast<float>(uSequence))).text();
    }
};

std::string keysOf(const utils::VariantRecord& cRecord) {
    std::string text;
    for (const std::string& key : cRecord.keys())
        text += (text.empty() ? "" : ",") + key;
    return text;
}

}  // namespace

/// Folder, files and a device for one handler.
class HandlerFilesTest : public vnktest::FlowTest {
 protected:
    /// A pair written by hand, of `uFrames` frames of the kind.
    template <typename Kind>
    void writePair(const std::string& stem, uint32_t uFrames, const std::string& sampling = {}) {
        const std::string name(Kind::mpName);
        writeWhole(mcFolder.file(stem + ".json"),
                   "{\"DataType\":\"" + name + "\",\"Sampling\":{" + sampling + "},\"" + name +
                       "\":{\"TimeResolution\":\"ns\",\"Samples\":" + std::to_string(uFrames * 4) + "}}");
        std::string bytes;
        for (uint32_t i = 0; i < uFrames; ++i)
            bytes += Kind::bytes(i);
        writeWhole(mcFolder.file(stem + ".data"), bytes);
    }
    ReferencePtr<StreamInputFile> openPair(const std::string& stem) {
        auto cFile = makeReference<StreamInputFile>(mcFolder.path(stem + ".json"));
        EXPECT_TRUE(cFile->isOpen());
        return cFile;
    }
    std::string data(const std::string& stem) const { return readWhole(mcFolder.file(stem + ".data")); }
    std::string json(const std::string& stem) const { return readWhole(mcFolder.file(stem + ".json")); }

    vnktest::TempFolder mcFolder;
    ReferencePtr<DeviceLike> mcDevice = makeReference<DeviceLike>();
};

template <typename Kind>
class StreamHandlersTest : public HandlerFilesTest {
 protected:
    using Handler = typename Kind::Handler;
    void TearDown() override {
        if (!mcHandler)
            return;
        mcHandler->detachFromSource();
        mcHandler->detachFromSource();
    }
    void attach() { ASSERT_TRUE(mcHandler->attachToSource(mcDevice, mlErrors)); }
    ReferencePtr<Listening<typename Kind::Sink>> listen() {
        auto cSink = makeReference<Listening<typename Kind::Sink>>();
        EXPECT_TRUE(mcHandler->attachFrameSink(cSink, mlErrors));
        return cSink;
    }
    utils::VariantRecord parameters() { return mcHandler->getParameters(); }
    int32_t recordTo(const std::string& name) { return mcHandler->setOutputFile(mcFolder.path(name)); }

    ReferencePtr<Handler> mcHandler = makeReference<Handler>(utils::VariantRecord());
};

using Kinds = ::testing::Types<IQKind, SpectrumKind, BasebandKind>;
struct KindNames {
    template <typename Kind>
    static std::string GetName(int) {
        return Kind::mpName;
    }
};
TYPED_TEST_SUITE(StreamHandlersTest, Kinds, KindNames);

// Creation, sources, and sinks.

TYPED_TEST(StreamHandlersTest, CreationLeavesALogLineAndNothingElse) {
    utils::RuntimeErrors::instance().clear();
    const auto cHandler = makeReference<typename TypeParam::Handler>(utils::VariantRecord());
    EXPECT_EQ(logged(-9000), std::vector<std::string>{"StreamHandler created"});
    EXPECT_EQ(cHandler->sourceName(), "StreamHandler");
    EXPECT_FALSE(cHandler->isStarted());
    EXPECT_EQ(cHandler->getSource(), nullptr);
    EXPECT_EQ(cHandler->getInputFile(), nullptr);
    EXPECT_EQ(cHandler->getOutputFile(), nullptr);
    EXPECT_FALSE(this->parameters().find("filename"));
    EXPECT_FALSE(this->parameters().find("LoopingFlag"));
}

TYPED_TEST(StreamHandlersTest, OnlySinksOfTheTypeMayAttach) {
    EXPECT_FALSE(this->mcHandler->attachFrameSink(nullptr, this->mlErrors));
    EXPECT_TRUE(this->mlErrors.empty());
    EXPECT_FALSE(this->mcHandler->attachFrameSink(makeReference<typename TypeParam::OtherSink>(), this->mlErrors));
    EXPECT_EQ(this->mlErrors, ErrorList{TypeParam::mpRefusal});
    EXPECT_EQ(this->mcHandler->sinkCount(), 0u);
    // One that takes everything takes this type as well.
    EXPECT_TRUE(this->mcHandler->attachFrameSink(makeReference<FrameSink>(), this->mlErrors));
}

TYPED_TEST(StreamHandlersTest, StreamOfAnotherTypeMayNotAttach) {
    EXPECT_FALSE(this->mcHandler->attachFrameSink(
        ReferencePtr<FrameSink>(
            std::is_same_v<TypeParam, IQKind>
                ? static_cast<FrameSink*>(new SpectrumStreamHandler(utils::VariantRecord()))
                : static_cast<FrameSink*>(new IQStreamHandler(utils::VariantRecord()))),
        this->mlErrors));
    EXPECT_EQ(this->mlErrors, ErrorList{TypeParam::mpRefusal});
}

TYPED_TEST(StreamHandlersTest, AttachAndDetachOnce) {
    this->attach();
    EXPECT_EQ(this->mcHandler->getSource().get(), this->mcDevice.get());
    EXPECT_TRUE(this->mcHandler->isAttached());
    EXPECT_TRUE(this->mcHandler->detachFromSource());
    EXPECT_EQ(this->mcHandler->getSource(), nullptr);
    EXPECT_FALSE(this->mcHandler->isAttached());
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
    EXPECT_FALSE(this->mcHandler->detachFromSource());
}

TYPED_TEST(StreamHandlersTest, DestroyedHandlerIsNoLongerListedByItsSource) {
    this->attach();
    this->mcDevice->removeFrameSink(nullptr);   // its reference, not what the handler notes
    this->mcHandler = nullptr;
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
    EXPECT_EQ(this->mcDevice->referenceCount(), 1u);
}

TYPED_TEST(StreamHandlersTest, LastFrameDetachesAfterEverybodyHasIt) {
    this->attach();
    const auto cNext = this->listen();
    ASSERT_EQ(this->recordTo("x.json"), 0);
    this->mcDevice->deliverFrame(TypeParam::frame(3), true);
    EXPECT_FALSE(this->mcHandler->isAttached());
    EXPECT_EQ(this->mcHandler->getSource(), nullptr);
    EXPECT_EQ(vnktest::drain(*this->mcHandler), std::vector<uint32_t>{3});
    ASSERT_EQ(cNext->frames().size(), 1u);
    EXPECT_FALSE(cNext->mbLastSeen) << "what is the last for the stream is not for those behind it";
    EXPECT_TRUE(cNext->isAttached());
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_EQ(this->data("x"), TypeParam::bytes(3));
}

TYPED_TEST(StreamHandlersTest, FrameOfAnotherTypeIsDroppedByTheQueue) {
    this->mcHandler->receiveFrame(TypeParam::otherFrame(), false);
    EXPECT_EQ(this->mcHandler->nextTypedFrame(0), nullptr);
    EXPECT_TRUE(vnktest::drain(*this->mcHandler).empty());
    EXPECT_TRUE(this->mcHandler->isStarted()) << "any frame starts a stream";
}

TYPED_TEST(StreamHandlersTest, EndOfTheStreamAloneDoesNotStartItAndIsPassedOn) {
    const auto cNext = this->listen();
    this->mcHandler->receiveFrame(nullptr, false);
    EXPECT_FALSE(this->mcHandler->isStarted());
    ASSERT_EQ(cNext->frames().size(), 1u);
    EXPECT_EQ(cNext->frames()[0], nullptr);
}

TYPED_TEST(StreamHandlersTest, ExhaustionIsThatOfTheSource) {
    EXPECT_TRUE(this->mcHandler->isExhausted());
    this->attach();
    EXPECT_FALSE(this->mcHandler->isExhausted());
    this->mcDevice->mbExhausted = true;
    EXPECT_TRUE(this->mcHandler->isExhausted());
    EXPECT_FALSE(this->mcHandler->isSinkExhausted()) << "the end has not been seen";
    this->mcHandler->receiveFrame(nullptr, false);
    EXPECT_FALSE(this->mcHandler->isSinkExhausted()) << "nor taken";
    EXPECT_EQ(this->mcHandler->nextTypedFrame(0), nullptr);
    EXPECT_TRUE(this->mcHandler->isSinkExhausted());
}

// The schema.

TYPED_TEST(StreamHandlersTest, SchemaHasTheFileNameAlwaysAndTheLoopingFlagWithAnInputFile) {
    const auto check = [](const utils::VariantRecord& cSchema, const char* pKey, const char* pDescription,
                          std::optional<bool> bReadOnly) {
        ASSERT_TRUE(cSchema.find(pKey)) << pKey;
        const utils::VariantRecord* pEntry = cSchema.find(pKey)->getRecord();
        ASSERT_NE(pEntry, nullptr);
        EXPECT_EQ(pEntry->getText("description"), pDescription);
        EXPECT_EQ(pEntry->getBool("readonly"), bReadOnly);
        EXPECT_EQ(pEntry->size(), bReadOnly ? 2u : 1u);
    };
    const auto cWithout = this->mcHandler->getParameterInfo();
    check(cWithout, "filename", "Full path to associated file - if in use", true);
    EXPECT_FALSE(cWithout.find("LoopingFlag"));
    this->template writePair<TypeParam>("x", 1);
    this->mcHandler->setInputFile(this->openPair("x"));
    const auto cWith = this->mcHandler->getParameterInfo();
    check(cWith, "filename", "Full path to associated file - if in use", true);
    check(cWith, "LoopingFlag", "Binary flag to cause file to loop from end back to beginning", std::nullopt);
    EXPECT_EQ(cWith.size(), cWithout.size() + 1);
    this->mcHandler->setInputFile(nullptr);
    ASSERT_EQ(this->recordTo("out.json"), 0);
    EXPECT_FALSE(this->mcHandler->getParameterInfo().find("LoopingFlag"));
}

// The looping flag.

TYPED_TEST(StreamHandlersTest, LoopingFlagIsPassedToAFileThatComesLater) {
    this->template writePair<TypeParam>("x", 1);
    auto cRecord = record("{\"LoopingFlag\":true}");
    EXPECT_TRUE(this->mcHandler->setSinkParameters(cRecord, this->mlErrors, false));
    EXPECT_TRUE(cRecord.empty());
    EXPECT_TRUE(this->mlErrors.empty());
    const auto cFile = this->openPair("x");
    EXPECT_FALSE(cFile->isLooping());
    this->mcHandler->setInputFile(cFile);
    EXPECT_TRUE(cFile->isLooping());
    EXPECT_EQ(this->parameters().getBool("LoopingFlag"), true);
    // A handler that does not loop clears what the file had.
    const auto cOther = makeReference<typename TypeParam::Handler>(utils::VariantRecord());
    cOther->setInputFile(cFile);
    EXPECT_FALSE(cFile->isLooping());
}

TYPED_TEST(StreamHandlersTest, LoopingFlagReachesTheFileThatPlaysAtOnce) {
    this->template writePair<TypeParam>("x", 1);
    const auto cFile = this->openPair("x");
    this->mcHandler->setInputFile(cFile);
    for (const bool bLooping : {true, false, true}) {
        utils::VariantRecord cRecord;
        cRecord.set("LoopingFlag", bLooping);
        this->mcHandler->setSinkParameters(cRecord, this->mlErrors, false);
        EXPECT_EQ(cFile->isLooping(), bLooping);
        EXPECT_EQ(this->parameters().getBool("LoopingFlag"), bLooping);
    }
    cFile->setLooping(false);
    EXPECT_EQ(this->parameters().getBool("LoopingFlag"), false) << "told is the flag of the file";
}

TYPED_TEST(StreamHandlersTest, LoopingFlagCanBeGivenAtCreation) {
    this->template writePair<TypeParam>("x", 1);
    this->mcHandler = makeReference<typename TypeParam::Handler>(record("{\"LoopingFlag\":true}"));
    EXPECT_FALSE(this->parameters().find("LoopingFlag"));
    const auto cFile = this->openPair("x");
    this->mcHandler->setInputFile(cFile);
    EXPECT_TRUE(cFile->isLooping());
}

TYPED_TEST(StreamHandlersTest, LoopingFlagOfAnotherTypeStaysInTheRecord) {
    for (const char* pText : {"{\"LoopingFlag\":1}", "{\"LoopingFlag\":\"true\"}", "{\"LoopingFlag\":1.0}"}) {
        this->mlErrors.clear();
        auto cRecord = record(pText);
        this->mcHandler->setSinkParameters(cRecord, this->mlErrors, false);
        EXPECT_EQ(cRecord.size(), 1u);
        EXPECT_EQ(this->mlErrors, ErrorList{"Attempted to integrate unknown parameter 'LoopingFlag'"});
        EXPECT_EQ(statuses(), std::vector<int32_t>{-33});
    }
    this->template writePair<TypeParam>("x", 1);
    const auto cFile = this->openPair("x");
    this->mcHandler->setInputFile(cFile);
    EXPECT_FALSE(cFile->isLooping());
}

// Recording.

TYPED_TEST(StreamHandlersTest, EmptyPathWithoutARecordingIsRefused) {
    EXPECT_EQ(this->mcHandler->setOutputFile(""), -70);
    ASSERT_EQ(this->recordTo("x.json"), 0);
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_EQ(this->mcHandler->getOutputFile(), nullptr);
    EXPECT_EQ(this->mcHandler->setOutputFile(""), -70);
}

TYPED_TEST(StreamHandlersTest, MissingFolderIsRefusedAndTheEarlierRecordingGoesOn) {
    EXPECT_EQ(this->recordTo("missing\\x.json"), -71);
    EXPECT_EQ(this->mcHandler->getOutputFile(), nullptr);
    ASSERT_EQ(this->recordTo("x.json"), 0);
    const StreamOutputFile* pFile = this->mcHandler->getOutputFile().get();
    this->mcHandler->receiveFrame(TypeParam::frame(0), false);
    EXPECT_EQ(this->recordTo("missing\\y.json"), -71);
    EXPECT_EQ(this->mcHandler->setOutputFile("y.json"), -71);
    EXPECT_EQ(this->mcHandler->getOutputFile().get(), pFile);
    this->mcHandler->receiveFrame(TypeParam::frame(1), false);
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_EQ(this->data("x"), TypeParam::bytes(0) + TypeParam::bytes(1));
}

TYPED_TEST(StreamHandlersTest, NewRecordingEndsTheEarlierOne) {
    ASSERT_EQ(this->recordTo("x.json"), 0);
    this->mcHandler->receiveFrame(TypeParam::frame(0), false);
    EXPECT_EQ(this->json("x"), "");
    ASSERT_EQ(this->recordTo("y.json"), 0);
    EXPECT_NE(this->json("x"), "");
    this->mcHandler->receiveFrame(TypeParam::frame(1), false);
    ASSERT_EQ(this->recordTo("y.json"), 0);
    this->mcHandler->receiveFrame(TypeParam::frame(2), false);
    this->mcHandler = nullptr;
    EXPECT_EQ(this->data("x"), TypeParam::bytes(0));
    EXPECT_EQ(this->data("y"), TypeParam::bytes(1));
    EXPECT_EQ(this->data("y(1)"), TypeParam::bytes(2));
    EXPECT_NE(this->json("y(1)"), "") << "the end of the stream ends its recording";
}

TYPED_TEST(StreamHandlersTest, RecordingThatIsTakenAwayIsCompleteAtOnceWhoeverHoldsIt) {
    ASSERT_EQ(this->recordTo("x.json"), 0);
    auto cFile = this->mcHandler->getOutputFile();
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    this->mcHandler->receiveFrame(TypeParam::frame(0), false);
    EXPECT_EQ(this->json("x"), "{\r\n}") << "what came after it had been taken away is not in it";
    EXPECT_FALSE(cFile->addFrame(TypeParam::frame(0)));
    cFile = nullptr;
    EXPECT_EQ(this->json("x"), "{\r\n}");
}

TYPED_TEST(StreamHandlersTest, ClosedStreamLeavesAllThatFeedsItAndCompletesItsRecording) {
    this->template writePair<TypeParam>("in", 1);
    this->attach();
    const auto cFile = this->openPair("in");
    this->mcHandler->setInputFile(cFile);
    ASSERT_TRUE(cFile->attachFrameSink(this->mcHandler, this->mlErrors));
    ASSERT_EQ(this->recordTo("x.json"), 0);
    this->mcDevice->deliverFrame(TypeParam::frame(0), false);
    this->mcHandler->close();
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
    EXPECT_EQ(cFile->sinkCount(), 0u);
    EXPECT_EQ(this->mcHandler->getSource(), nullptr);
    EXPECT_EQ(this->mcHandler->getInputFile(), nullptr);
    EXPECT_EQ(this->data("x"), TypeParam::bytes(0));
    EXPECT_NE(this->json("x"), "");
    EXPECT_FALSE(this->mcHandler->attachToSource(this->mcDevice, this->mlErrors));
    EXPECT_FALSE(this->mcHandler->playFile(this->openPair("in")));
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
}

TYPED_TEST(StreamHandlersTest, RecordingTellsTheSourceOfTheStreamAtItsBeginning) {
    this->attach();
    ASSERT_EQ(this->recordTo("x.json"), 0);
    ASSERT_TRUE(this->mcHandler->detachFromSource());
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_EQ(this->json("x"), "{\r\n\t\"source\":\"ZR408-0017\"\r\n}");
    ASSERT_EQ(this->recordTo("y.json"), 0);
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_EQ(this->json("y"), "{\r\n}") << "no source, nothing to tell";
}

TYPED_TEST(StreamHandlersTest, FileNameIsThatOfTheDescription) {
    ASSERT_EQ(this->recordTo("x.bin"), 0);
    EXPECT_EQ(this->parameters().getText("filename"), this->mcFolder.path("x.json"));
    ASSERT_EQ(this->recordTo("x.bin"), 0);
    EXPECT_EQ(this->parameters().getText("filename"), this->mcFolder.path("x(1).json"));
    EXPECT_FALSE(this->parameters().find("LoopingFlag"));
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_FALSE(this->parameters().find("filename"));
}

TYPED_TEST(StreamHandlersTest, ParametersOfTheStreamStayWhileItIsRecorded) {
    const auto cBefore = this->parameters();
    ASSERT_EQ(this->recordTo("x.json"), 0);
    auto cAfter = this->parameters();
    EXPECT_TRUE(cAfter.erase("filename"));
    EXPECT_TRUE(cAfter == cBefore) << keysOf(cAfter);
}

TYPED_TEST(StreamHandlersTest, QueueIsFilledFirstThenThoseBehindAndTheRecordingLast) {
    ASSERT_EQ(this->recordTo("x.json"), 0);
    const auto cFile = this->mcHandler->getOutputFile();
    const auto cNext = this->listen();
    bool bInQueue = false;
    bool bRecorded = true;
    cNext->mcAsk = [&] {
        bInQueue = this->mcHandler->nextFrame(0, false) != nullptr;
        bRecorded = cFile->isRunning();   // its writer starts with the first frame
    };
    this->mcHandler->receiveFrame(TypeParam::frame(0), false);
    EXPECT_TRUE(bInQueue);
    EXPECT_FALSE(bRecorded);
    EXPECT_TRUE(cFile->isRunning());
}

TYPED_TEST(StreamHandlersTest, FramesThatTheQueueDropsAreRecordedAllTheSame) {
    ASSERT_EQ(this->recordTo("x.json"), 0);
    std::string expected;
    for (uint32_t i = 0; i < 100; ++i) {
        this->mcHandler->receiveFrame(TypeParam::frame(i), false);
        expected += TypeParam::bytes(i);
    }
    this->mcHandler->receiveFrame(nullptr, false);
    EXPECT_EQ(vnktest::drain(*this->mcHandler).size(), 9u) << "the newest, beside the end";
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_TRUE(sameBytes(this->data("x"), expected));
}

TYPED_TEST(StreamHandlersTest, RecordingThatCannotBeWrittenLeavesTheStreamAsItIs) {
    std::filesystem::create_directory(this->mcFolder.file("x.data"));
    utils::RuntimeErrors::instance().clear();
    EXPECT_EQ(this->recordTo("x.json"), 0);
    for (uint32_t i = 0; i < 5; ++i)
        this->mcHandler->receiveFrame(TypeParam::frame(i), false);
    EXPECT_EQ(vnktest::drain(*this->mcHandler).size(), 5u);
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_EQ(logged(-71).size(), 1u);
}

// Playing.

TYPED_TEST(StreamHandlersTest, FilePlaysIntoTheStreamAndTheEndDetachesIt) {
    this->template writePair<TypeParam>("x", 3);
    const auto cNext = this->listen();
    const auto cFile = this->openPair("x");
    ASSERT_TRUE(this->mcHandler->playFile(cFile));
    // The file goes first, and then the pointer to it.
    ASSERT_TRUE(waitUntil([&] { return !this->mcHandler->isAttached(); }));
    EXPECT_EQ(this->mcHandler->getInputFile(), nullptr);
    EXPECT_EQ(vnktest::drain(*this->mcHandler), (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_TRUE(this->mcHandler->isStarted());
    EXPECT_EQ(cFile->sinkCount(), 0u);
    ASSERT_GE(cNext->frames().size(), 4u);
    EXPECT_NE(cNext->frames()[2], nullptr);
    EXPECT_EQ(cNext->frames()[3], nullptr);
    EXPECT_TRUE(cNext->isAttached());
    EXPECT_FALSE(this->mcHandler->detachFromSource());
}

TYPED_TEST(StreamHandlersTest, PlayedFileIsRecordedByteForByte) {
    this->template writePair<TypeParam>("x", 40);
    ASSERT_EQ(this->recordTo("y.json"), 0);
    ASSERT_TRUE(this->mcHandler->playFile(this->openPair("x")));
    ASSERT_TRUE(waitUntil([&] { return this->mcHandler->getInputFile() == nullptr; }));
    EXPECT_EQ(this->mcHandler->setOutputFile(""), 0);
    EXPECT_TRUE(sameBytes(this->data("y"), this->data("x")));
}

TYPED_TEST(StreamHandlersTest, DetachOfAFileSendsTheEndToThoseBehind) {
    this->template writePair<TypeParam>("x", 1);
    const auto cNext = this->listen();
    const auto cFile = this->openPair("x");
    this->mcHandler->setInputFile(cFile);
    ASSERT_TRUE(cFile->attachFrameSink(this->mcHandler, this->mlErrors));
    EXPECT_TRUE(this->mcHandler->isAttached());
    utils::RuntimeErrors::instance().clear();
    EXPECT_TRUE(this->mcHandler->detachFromSource());
    std::vector<std::string> lNotes{"FrameSource::removeFrameSink"};
    if (std::is_same_v<TypeParam, IQKind>)
        lNotes.insert(lNotes.begin(), "IQStreamHandler::detachFromSource");
    EXPECT_EQ(logged(1000), lNotes);
    EXPECT_EQ(this->mcHandler->getInputFile(), nullptr);
    EXPECT_EQ(cFile->sinkCount(), 0u);
    EXPECT_FALSE(this->mcHandler->isAttached());
    ASSERT_EQ(cNext->frames().size(), 1u);
    EXPECT_EQ(cNext->frames()[0], nullptr);
    EXPECT_FALSE(cNext->mbLastSeen);
    EXPECT_TRUE(cNext->isAttached());
    EXPECT_TRUE(vnktest::drain(*this->mcHandler).empty()) << "its own queue is not told";
}

TYPED_TEST(StreamHandlersTest, DetachOfAFileThatIsNotAttachedIsTrueToo) {
    this->template writePair<TypeParam>("x", 1);
    this->mcHandler->setInputFile(this->openPair("x"));
    EXPECT_TRUE(this->mcHandler->detachFromSource());
    EXPECT_FALSE(this->mcHandler->detachFromSource());
}

TYPED_TEST(StreamHandlersTest, DetachOfALoopingFileEndsIt) {
    this->template writePair<TypeParam>("x", 2);
    auto cRecord = record("{\"LoopingFlag\":true}");
    this->mcHandler->setSinkParameters(cRecord, this->mlErrors, false);
    auto cFile = this->openPair("x");
    ASSERT_TRUE(this->mcHandler->playFile(cFile));
    ASSERT_TRUE(waitUntil([&] { return this->mcHandler->discardCount() > 100; }));
    EXPECT_TRUE(this->mcHandler->detachFromSource());
    EXPECT_FALSE(this->mcHandler->isAttached());
    cFile = nullptr;   // the thread goes with the last reference
    vnktest::drain(*this->mcHandler);
    EXPECT_EQ(this->mcHandler->nextFrame(0, false), nullptr);
}

TYPED_TEST(StreamHandlersTest, FileReplacesTheOneThatPlays) {
    this->template writePair<TypeParam>("x", 2);
    auto cRecord = record("{\"LoopingFlag\":true}");
    this->mcHandler->setSinkParameters(cRecord, this->mlErrors, false);
    const auto cFirst = this->openPair("x");
    ASSERT_TRUE(this->mcHandler->playFile(cFirst));
    ASSERT_TRUE(waitUntil([&] { return this->mcHandler->isStarted(); }));
    const auto cSecond = this->openPair("x");
    ASSERT_TRUE(this->mcHandler->playFile(cSecond));
    EXPECT_FALSE(cFirst->isRunning());
    EXPECT_EQ(cFirst->sinkCount(), 0u);
    EXPECT_EQ(this->mcHandler->getInputFile().get(), cSecond.get());
    EXPECT_EQ(cSecond->sinkCount(), 1u);
    EXPECT_TRUE(cSecond->isLooping());
    EXPECT_TRUE(this->mcHandler->isAttached());
    const uint32_t uBefore = this->mcHandler->discardCount();
    EXPECT_TRUE(waitUntil([&] { return this->mcHandler->discardCount() > uBefore + 20; }));
}

// On a device and a file at once.

TYPED_TEST(StreamHandlersTest, DeviceGoesOnFeedingBesideAFileAndEachIsLeftOnce) {
    this->template writePair<TypeParam>("x", 1);
    this->attach();
    const auto cFile = this->openPair("x");
    this->mcHandler->setInputFile(cFile);
    ASSERT_TRUE(cFile->attachFrameSink(this->mcHandler, this->mlErrors));
    EXPECT_EQ(this->mcHandler->getSource().get(), this->mcDevice.get());
    this->mcDevice->deliverFrame(TypeParam::frame(7), false);
    EXPECT_EQ(vnktest::drain(*this->mcHandler), std::vector<uint32_t>{7});
    EXPECT_TRUE(this->mcHandler->detachFromSource()) << "the file";
    EXPECT_EQ(cFile->sinkCount(), 0u);
    EXPECT_EQ(this->mcHandler->getSource().get(), this->mcDevice.get()) << "left as it is";
    EXPECT_EQ(this->mcDevice->sinkCount(), 1u);
    this->mcDevice->deliverFrame(TypeParam::frame(8), false);
    EXPECT_EQ(vnktest::drain(*this->mcHandler), std::vector<uint32_t>{8});
    EXPECT_TRUE(this->mcHandler->detachFromSource()) << "the device";
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
    EXPECT_EQ(this->mcHandler->getSource(), nullptr);
    EXPECT_FALSE(this->mcHandler->detachFromSource());
    EXPECT_EQ(this->mcDevice->referenceCount(), 1u);
    EXPECT_EQ(cFile->referenceCount(), 1u);
}

TYPED_TEST(StreamHandlersTest, FileThatEndsLeavesTheDeviceAttached) {
    this->template writePair<TypeParam>("x", 2);
    this->attach();
    ASSERT_TRUE(this->mcHandler->playFile(this->openPair("x")));
    ASSERT_TRUE(waitUntil([&] { return this->mcHandler->getInputFile() == nullptr; }));
    EXPECT_EQ(this->mcHandler->getSource().get(), this->mcDevice.get());
    EXPECT_EQ(this->mcDevice->sinkCount(), 1u);
    EXPECT_TRUE(this->mcHandler->detachFromSource());
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
}

TYPED_TEST(StreamHandlersTest, DeviceAttachedWhileAFilePlaysIsLeftAfterIt) {
    this->template writePair<TypeParam>("x", 1);
    const auto cFile = this->openPair("x");
    this->mcHandler->setInputFile(cFile);
    ASSERT_TRUE(cFile->attachFrameSink(this->mcHandler, this->mlErrors));
    this->attach();
    EXPECT_EQ(this->mcHandler->getInputFile().get(), cFile.get());
    EXPECT_TRUE(this->mcHandler->detachFromSource());
    EXPECT_EQ(cFile->sinkCount(), 0u);
    EXPECT_EQ(this->mcDevice->sinkCount(), 1u);
    EXPECT_TRUE(this->mcHandler->detachFromSource());
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
}

TYPED_TEST(StreamHandlersTest, EndOfAStreamOnBothLeavesBoth) {
    this->template writePair<TypeParam>("x", 1);
    this->attach();
    const auto cFile = this->openPair("x");
    this->mcHandler->setInputFile(cFile);
    ASSERT_TRUE(cFile->attachFrameSink(this->mcHandler, this->mlErrors));
    // Each lists the handler, which is therefore let go by both before it can end.
    cFile->removeFrameSink(nullptr);
    this->mcDevice->removeFrameSink(nullptr);
    EXPECT_EQ(this->mcHandler->referenceCount(), 1u);
    this->mcHandler = nullptr;
    EXPECT_EQ(this->mcDevice->referenceCount(), 1u);
    EXPECT_EQ(cFile->referenceCount(), 1u);
}

// Threads: what is replaced while frames come is used by nobody any more.

TYPED_TEST(StreamHandlersTest, RecordingsAreReplacedWhileFramesCome) {
    this->attach();
    std::atomic<bool> bDone{false};
    std::atomic<uint32_t> uFrames{0};
    std::thread cProducer([&] {
        while (!bDone) {
            this->mcDevice->deliverFrame(TypeParam::frame(uFrames++), false);
            if (uFrames % 64 == 0)
                std::this_thread::yield();
        }
    });
    constexpr uint32_t kThreads = 8, kEach = 100;
    std::vector<std::thread> lThreads;
    for (uint32_t uThread = 0; uThread < kThreads; ++uThread)
        lThreads.emplace_back([&, uThread] {
            for (uint32_t i = 0; i < kEach; ++i) {
                const std::string name = std::to_string(uThread) + "-" + std::to_string(i) + ".json";
                EXPECT_EQ(this->recordTo(name), 0);
                this->parameters();
                if (i % 8 == 0)
                    this->mcHandler->setOutputFile("");
            }
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    bDone = true;
    cProducer.join();
    this->mcHandler->setOutputFile("");
    // Each frame is in one recording at most, each recording has its description, in each they are in order.
    size_t uRecorded = 0;
    const size_t uSize = TypeParam::bytes(0).size();
    for (const std::string& name : this->mcFolder.names()) {
        const std::string text = readWhole(this->mcFolder.file(name));
        if (name.ends_with(".json")) {
            EXPECT_EQ(text.substr(0, 3), "{\r\n") << name;
            continue;
        }
        EXPECT_EQ(text.size() % uSize, 0u) << name;
        uRecorded += text.size() / uSize;
    }
    EXPECT_GT(uRecorded, 0u);
    EXPECT_LE(uRecorded, uFrames);
}

TYPED_TEST(StreamHandlersTest, InputFilesAreReplacedWhileFramesCome) {
    this->template writePair<TypeParam>("x", 3);
    std::atomic<bool> bDone{false};
    this->attach();
    std::thread cProducer([&] {
        for (uint32_t i = 0; !bDone; ++i)
            this->mcDevice->deliverFrame(TypeParam::frame(i), false);
    });
    std::thread cReader([&] {
        while (!bDone) {
            this->parameters();
            this->mcHandler->getParameterInfo();
            this->mcHandler->nextTypedFrame(0);
            ErrorList lErrors;
            auto cRecord = record("{\"LoopingFlag\":true}");
            this->mcHandler->setSinkParameters(cRecord, lErrors, true);
        }
    });
    constexpr uint32_t kThreads = 3, kEach = 40;
    std::vector<std::thread> lThreads;
    for (uint32_t uThread = 0; uThread < kThreads; ++uThread)
        lThreads.emplace_back([&, uThread] {
            for (uint32_t i = 0; i < kEach; ++i) {
                this->mcHandler->playFile(this->openPair("x"));
                if ((i + uThread) % 4 == 0)
                    this->mcHandler->detachFromSource();
                for (uint32_t j = 0; j < 20; ++j)
                    this->mcHandler->getInputFile();
            }
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    bDone = true;
    cProducer.join();
    cReader.join();
    while (this->mcHandler->detachFromSource()) {
    }
    EXPECT_FALSE(this->mcHandler->isAttached());
    EXPECT_EQ(this->mcDevice->sinkCount(), 0u);
}

TYPED_TEST(StreamHandlersTest, NotedInputFileIsReplacedThousandsOfTimes) {
    this->template writePair<TypeParam>("x", 1);
    std::atomic<bool> bDone{false};
    std::thread cReader([&] {
        while (!bDone) {
            this->parameters();
            ErrorList lErrors;
            auto cRecord = record("{\"LoopingFlag\":true}");
            this->mcHandler->setSinkParameters(cRecord, lErrors, true);
        }
    });
    const auto cFirst = this->openPair("x");
    const auto cSecond = this->openPair("x");
    for (uint32_t i = 0; i < 5000; ++i) {
        this->mcHandler->setInputFile(i % 2 ? cFirst : cSecond);
        if (i % 100 == 0)
            this->mcHandler->setInputFile(this->openPair("x"));
    }
    bDone = true;
    cReader.join();
    EXPECT_EQ(this->mcHandler->getInputFile().get(), cFirst.get());
    EXPECT_EQ(cSecond->referenceCount(), 1u);
}

// Parameters while a file plays.

class FileParametersTest : public HandlerFilesTest {
 protected:
    template <typename Kind>
    utils::VariantRecord playing(const std::string& sampling, const char* pOwn = "{}") {
        writePair<Kind>("x", 1, sampling);
        const auto cHandler = makeReference<typename Kind::Handler>(record(pOwn));
        EXPECT_EQ(cHandler->errors(), ErrorList{});
        cHandler->setInputFile(openPair("x"));
        // A recording beside it changes nothing.
        EXPECT_EQ(cHandler->setOutputFile(mcFolder.path("out.json")), 0);
        return cHandler->getParameters();
    }
    static constexpr const char* mpEverything =
        "\"FCentreHz\":100.0,\"BandwidthHz\":20.0,\"RBWHz\":3.0,\"units\":\"unit\",\"RefdBm\":-7.0,"
        "\"SampleRateHz\":50.0,\"WindowFn\":\"Hann\",\"UsableBWHz\":9.0,\"Channels\":2,\"PhaseRotation\":0.5,"
        "\"IFBWHz\":77.0,\"bufferFrames\":3,\"filename\":\"wrong\",\"LoopingFlag\":\"wrong\",\"more\":1";
};

TEST_F(FileParametersTest, OfAnIQStream) {
    const auto cRecord = playing<IQKind>(mpEverything, "{\"FCentreHz\":1e6,\"IFBWHz\":1e5,\"RefdBm\":-20.0}");
    EXPECT_EQ(keysOf(cRecord), "FCentreHz,IFBWHz,LoopingFlag,SampleRateHz,filename,units");
    EXPECT_EQ(cRecord.getNumber("FCentreHz"), 100.0f);
    EXPECT_EQ(cRecord.getNumber("SampleRateHz"), 50.0f);
    EXPECT_EQ(cRecord.getText("units"), "unit");
    EXPECT_EQ(cRecord.getText("filename"), mcFolder.path("x")) << "the stem";
    EXPECT_EQ(cRecord.getBool("LoopingFlag"), false);
}

TEST_F(FileParametersTest, OfAnIQStreamTellTheFilesBandwidth) {
    const auto cRecord =
        playing<IQKind>("\"FCentreHz\":100.0,\"BandwidthHz\":20.0", "{\"FCentreHz\":1e6,\"IFBWHz\":1e5}");
    EXPECT_EQ(cRecord.getNumber("IFBWHz"), 20.0f);
    EXPECT_EQ(keysOf(cRecord), "FCentreHz,IFBWHz,LoopingFlag,filename");
}

TEST_F(FileParametersTest, OfAnIQStreamWhoseFileTellsNothingAreItsOwn) {
    const auto cRecord = playing<IQKind>("", "{\"FCentreHz\":1e6,\"IFBWHz\":1e5}");
    EXPECT_EQ(keysOf(cRecord), "FCentreHz,IFBWHz,LoopingFlag,filename");
    EXPECT_EQ(cRecord.getNumber("FCentreHz"), 1e6f);
    EXPECT_EQ(cRecord.getNumber("IFBWHz"), 1e5f);
}

TEST_F(FileParametersTest, OfASpectrumStream) {
    const auto cRecord =
        playing<SpectrumKind>(mpEverything, "{\"FMinHz\":1e6,\"FMaxHz\":2e6,\"RBWHz\":100.0,\"WindowFn\":\"hamming\"}");
    EXPECT_EQ(keysOf(cRecord),
              "BandwidthHz,FCentreHz,FMaxHz,FMinHz,LoopingFlag,RBWHz,RefdBm,WindowFn,filename,units");
    EXPECT_EQ(cRecord.getNumber("FCentreHz"), 100.0f);
    EXPECT_EQ(cRecord.getNumber("BandwidthHz"), 20.0f);
    EXPECT_EQ(cRecord.getNumber("FMinHz"), 90.0f);
    EXPECT_EQ(cRecord.getNumber("FMaxHz"), 110.0f);
    EXPECT_EQ(cRecord.getNumber("RBWHz"), 3.0f);
    EXPECT_EQ(cRecord.getNumber("RefdBm"), -7.0f);
    EXPECT_EQ(cRecord.getText("WindowFn"), "Hann");
    EXPECT_EQ(cRecord.getText("units"), "unit");
    EXPECT_EQ(cRecord.getText("filename"), mcFolder.path("x"));
    EXPECT_EQ(cRecord.getBool("LoopingFlag"), false);
}

TEST_F(FileParametersTest, OfASpectrumStreamWhoseFileTellsLittleKeepTheirOwn) {
    const auto cRecord = playing<SpectrumKind>("\"FCentreHz\":100.0,\"BandwidthHz\":20.0",
                                               "{\"FMinHz\":1e6,\"FMaxHz\":2e6,\"RBWHz\":100.0,\"RefdBm\":-12.0}");
    EXPECT_EQ(keysOf(cRecord), "BandwidthHz,FCentreHz,FMaxHz,FMinHz,LoopingFlag,RBWHz,RefdBm,WindowFn,filename");
    EXPECT_EQ(cRecord.getNumber("RBWHz"), 100.0f);
    EXPECT_EQ(cRecord.getNumber("RefdBm"), -12.0f);
    EXPECT_EQ(cRecord.getNumber("FMinHz"), 90.0f);
}

TEST_F(FileParametersTest, OfABasebandStreamWithItsOwnSampleRateAndNotTheFiles) {
    const auto cRecord = playing<BasebandKind>(mpEverything);
    EXPECT_EQ(keysOf(cRecord), "BandwidthHz,FCentreHz,LoopingFlag,RBWHz,SampleRateHz,filename,units");
    EXPECT_EQ(cRecord.getNumber("SampleRateHz"), 44100.0f);
    EXPECT_EQ(cRecord.getNumber("FCentreHz"), 100.0f);
    EXPECT_EQ(cRecord.getNumber("BandwidthHz"), 20.0f);
    EXPECT_EQ(cRecord.getNumber("RBWHz"), 3.0f);
    EXPECT_EQ(cRecord.getText("filename"), mcFolder.path("x"));
}

// The spectrum stream's own.

class SpectrumStreamHandlerTest : public vnktest::FlowTest {
 protected:
    void TearDown() override { mcHandler->detachFromSource(); }
    ReferencePtr<SpectrumStreamHandler> mcHandler = makeReference<SpectrumStreamHandler>(
        record("{\"FMinHz\":1e6,\"FMaxHz\":2e6,\"RBWHz\":1e3,\"RefdBm\":-20.0,\"WindowFn\":\"hamming\"}"));
};

TEST_F(SpectrumStreamHandlerTest, CreationTakesItsParameters) {
    EXPECT_TRUE(mcHandler->errors().empty());
    const auto cRecord = mcHandler->getParameters();
    EXPECT_EQ(cRecord.getNumber("FMinHz"), 1e6f);
    EXPECT_EQ(cRecord.getNumber("FMaxHz"), 2e6f);
    EXPECT_EQ(cRecord.getNumber("RBWHz"), 1e3f);
    EXPECT_EQ(cRecord.getNumber("RefdBm"), -20.0f);
    EXPECT_EQ(cRecord.getText("WindowFn"), "hamming");
}

TEST_F(SpectrumStreamHandlerTest, CreationNeverFailsAndKeepsItsErrors) {
    const auto cHandler = makeReference<SpectrumStreamHandler>(
        record("{\"FMinHz\":-1.0,\"FMaxHz\":2e6,\"WindowFn\":\"none\",\"more\":1}"));
    EXPECT_EQ(cHandler->errors(),
              (ErrorList{"FMinHz of -1.0000e+00 is invalid", "WindowFn of <none> is not a known type",
                         "Attempted to integrate unknown parameter 'more'"}));
    EXPECT_EQ(cHandler->getParameters().getNumber("FMaxHz"), 0.0f) << "nothing is stored";
}

TEST_F(SpectrumStreamHandlerTest, SchemaIsThatOfTheSinkAndTheFileName) {
    EXPECT_EQ(keysOf(mcHandler->getParameterInfo()),
              "FMaxHz,FMinHz,RBWHz,RefdBm,UserCaldB,WindowFn,captureFrames,filename");
}

TEST_F(SpectrumStreamHandlerTest, RefusalOfTheSinkDoesNotKeepTheBufferFromBeingSet) {
    const auto cDevice = makeReference<DeviceLike>();
    ASSERT_TRUE(mcHandler->attachToSource(cDevice, mlErrors));
    auto cRecord = record("{\"FMinHz\":5e6,\"RefdBm\":-1.0,\"bufferFrames\":77}");
    EXPECT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(mlErrors, ErrorList{"FMin:5.0000e+06Hz - FMax: 2.0000e+06Hz is invalid range"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-53});
    const auto cNow = mcHandler->getParameters();
    EXPECT_EQ(cNow.getNumber("bufferFrames"), 77.0f);
    EXPECT_EQ(cNow.getNumber("FMinHz"), 1e6f);
    EXPECT_EQ(cNow.getNumber("RefdBm"), -20.0f);
    EXPECT_EQ(cDevice->muChanges, 1u) << "the source is told as of any change";
}

TEST_F(SpectrumStreamHandlerTest, RefusalOfABufferParameterIsNoRefusalEither) {
    auto cRecord = record("{\"bufferFrames\":0,\"bufferSec\":1.5,\"FMinHz\":1.5e6}");
    EXPECT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(mlErrors.size(), 1u);
    EXPECT_EQ(statuses(), std::vector<int32_t>{-51});
    const auto cNow = mcHandler->getParameters();
    EXPECT_EQ(cNow.getNumber("bufferFrames"), 10.0f) << "the old value";
    EXPECT_EQ(cNow.getNumber("bufferSec"), 1.5f);
    EXPECT_EQ(cNow.getNumber("FMinHz"), 1e6f) << "the sink stores nothing beside an error";
}

TEST_F(SpectrumStreamHandlerTest, SourceThatRefusesAChangeIsNotListenedToInTheResult) {
    class Refusing : public DeviceLike {
     public:
        bool canImplement(ReferencePtr<FrameSink>, utils::VariantRecord&, ErrorList& lErrors) override {
            lErrors.push_back("not this one");
            return false;
        }
    };
    ASSERT_TRUE(mcHandler->attachToSource(makeReference<Refusing>(), mlErrors));
    auto cRecord = record("{\"FMinHz\":1.5e6}");
    EXPECT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(mlErrors,
              (ErrorList{"not this one", "Connected source cannot implement requested parameter change"}));
    EXPECT_EQ(mcHandler->getParameters().getNumber("FMinHz"), 1e6f);
}

TEST_F(SpectrumStreamHandlerTest, EntityThatIsNoSourceIsRefusedWithThePlace) {
    for (const ReferencePtr<Entity>& cEntity : {makeReference<Entity>(), ReferencePtr<Entity>()}) {
        mlErrors.clear();
        EXPECT_FALSE(mcHandler->attachToSource(cEntity, mlErrors));
        ASSERT_EQ(mlErrors.size(), 1u);
        EXPECT_THAT(mlErrors[0], testing::MatchesRegex("SpectrumStreamHandler::attachToSource internal error at "
                                                       ".*spectrumstreamhandler.*:[0-9]+"));
        EXPECT_EQ(mcHandler->getSource(), nullptr);
    }
}

TEST_F(SpectrumStreamHandlerTest, AttachAndDetachLeaveNoNotesOfTheirOwn) {
    const auto cDevice = makeReference<DeviceLike>();
    utils::RuntimeErrors::instance().clear();
    ASSERT_TRUE(mcHandler->attachToSource(cDevice, mlErrors));
    EXPECT_TRUE(logged(1000).empty());
    EXPECT_TRUE(mcHandler->detachFromSource());
    EXPECT_EQ(logged(1000),
              (std::vector<std::string>{"FrameSource::removeFrameSink", "FrameSink::detachFromSource"}));
}

TEST_F(SpectrumStreamHandlerTest, NextFrameIsTheSpectrumAsItCame) {
    const auto cFrame = makeSpectrum(fieldsAt(9), ramp(4));
    mcHandler->receiveFrame(cFrame, false);
    EXPECT_EQ(mcHandler->nextTypedFrame(0).get(), cFrame.get());
    EXPECT_EQ(mcHandler->nextTypedFrame(0), nullptr);
}

// The baseband stream's own.

class BasebandStreamHandlerTest : public vnktest::FlowTest {
 protected:
    void TearDown() override { mcHandler->detachFromSource(); }
    bool setRate(float fRate) {
        mcRecord.clear();
        mcRecord.set("SampleRateHz", fRate);
        mlErrors.clear();
        return mcHandler->setSinkParameters(mcRecord, mlErrors, false);
    }
    utils::VariantRecord mcRecord;
    ReferencePtr<BasebandStreamHandler> mcHandler =
        makeReference<BasebandStreamHandler>(utils::VariantRecord());
};

TEST_F(BasebandStreamHandlerTest, ParametersAreThoseOfTheSinkAndTheSampleRate) {
    EXPECT_EQ(keysOf(mcHandler->getParameters()), "SampleRateHz,bufferDiscard,bufferFrames,bufferSec,flowControl");
    EXPECT_EQ(mcHandler->getParameters().getNumber("SampleRateHz"), 44100.0f);
}

TEST_F(BasebandStreamHandlerTest, SchemaTellsTheSampleRateCrosswise) {
    const auto cSchema = mcHandler->getParameterInfo();
    EXPECT_EQ(keysOf(cSchema), "SampleRateHz,filename");
    const utils::VariantRecord* pEntry = cSchema.find("SampleRateHz")->getRecord();
    ASSERT_NE(pEntry, nullptr);
    EXPECT_EQ(keysOf(*pEntry), "default,description,max,min,units");
    EXPECT_EQ(pEntry->getText("description"), "Sample rate of baseband output stream");
    EXPECT_EQ(pEntry->getText("units"), "Hz");
    EXPECT_EQ(pEntry->getNumber("min"), 4000.0f);
    EXPECT_EQ(pEntry->getNumber("max"), 44100.0f);
    EXPECT_EQ(pEntry->getNumber("default"), 1000000.0f);
}

TEST_F(BasebandStreamHandlerTest, ValidSampleRateIsTakenAndChangesNothing) {
    for (const float fRate : {4000.0f, 44100.0f, 48000.0f, 1000000.0f}) {
        EXPECT_TRUE(setRate(fRate)) << fRate;
        EXPECT_TRUE(mlErrors.empty()) << fRate;
        EXPECT_TRUE(mcRecord.empty()) << fRate;
        EXPECT_EQ(mcHandler->getParameters().getNumber("SampleRateHz"), 44100.0f);
    }
    for (const char* pText : {"{\"SampleRateHz\":48000}", "{\"SampleRateHz\":5e5}"}) {
        auto cRecord = record(pText);
        EXPECT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, false));
        EXPECT_TRUE(cRecord.empty());
        EXPECT_TRUE(mlErrors.empty());
    }
    EXPECT_TRUE(statuses().empty());
}

TEST_F(BasebandStreamHandlerTest, SampleRateOutsideIsToldAndIsNoRefusal) {
    for (const auto& [fRate, pText] : {std::pair{3999.9998f, "SampleRateHz of 4.0000e+03 is invalid"},
                                       std::pair{1000000.0625f, "SampleRateHz of 1.0000e+06 is invalid"},
                                       std::pair{3000.0f, "SampleRateHz of 3.0000e+03 is invalid"},
                                       std::pair{0.0f, "SampleRateHz of 0.0000e+00 is invalid"},
                                       std::pair{-48000.0f, "SampleRateHz of -4.8000e+04 is invalid"},
                                       std::pair{std::numeric_limits<float>::infinity(),
                                                 "SampleRateHz of inf is invalid"},
                                       std::pair{std::numeric_limits<float>::quiet_NaN(),
                                                 "SampleRateHz of nan is invalid"}}) {
        EXPECT_TRUE(setRate(fRate));
        EXPECT_TRUE(mcRecord.empty());
        EXPECT_EQ(mlErrors, ErrorList{pText});
        EXPECT_EQ(statuses(), std::vector<int32_t>{-81});
        EXPECT_EQ(mcHandler->getParameters().getNumber("SampleRateHz"), 44100.0f);
    }
}

TEST_F(BasebandStreamHandlerTest, OtherParametersAreStoredBesideABadSampleRate) {
    auto cRecord = record("{\"SampleRateHz\":1.0,\"bufferFrames\":55}");
    EXPECT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(mlErrors.size(), 1u);
    EXPECT_EQ(mcHandler->getParameters().getNumber("bufferFrames"), 55.0f);
}

TEST_F(BasebandStreamHandlerTest, UnknownKeysAreToldBeforeTheSampleRateAndAreNoRefusal) {
    auto cRecord = record("{\"SampleRateHz\":1.0,\"FCentreHz\":5.0,\"bufferFrames\":56}");
    EXPECT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(mlErrors, (ErrorList{"Attempted to integrate unknown parameter 'FCentreHz'",
                                   "SampleRateHz of 1.0000e+00 is invalid"}));
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-33, -81}));
    EXPECT_EQ(keysOf(cRecord), "FCentreHz");
    EXPECT_EQ(mcHandler->getParameters().getNumber("bufferFrames"), 56.0f);
}

TEST_F(BasebandStreamHandlerTest, SampleRateThatIsNoNumberIsUnknown) {
    auto cRecord = record("{\"SampleRateHz\":\"fast\"}");
    EXPECT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(cRecord.size(), 1u);
    EXPECT_EQ(statuses(), std::vector<int32_t>{-33});
}

TEST_F(BasebandStreamHandlerTest, CreationKeepsItsErrors) {
    const auto cHandler = makeReference<BasebandStreamHandler>(record("{\"SampleRateHz\":1.0}"));
    EXPECT_EQ(cHandler->errors(), ErrorList{"SampleRateHz of 1.0000e+00 is invalid"});
}

TEST_F(BasebandStreamHandlerTest, EntityThatIsNoSourceIsRefusedAsNotExisting) {
    for (const ReferencePtr<Entity>& cEntity : {makeReference<Entity>(), ReferencePtr<Entity>()}) {
        mlErrors.clear();
        EXPECT_FALSE(mcHandler->attachToSource(cEntity, mlErrors));
        EXPECT_EQ(mlErrors, ErrorList{"Attempt to attach to non-existent frame source"});
        EXPECT_EQ(mcHandler->getSource(), nullptr);
    }
}

TEST_F(BasebandStreamHandlerTest, AttachAndDetachLeaveNoNotesOfTheirOwn) {
    const auto cDevice = makeReference<DeviceLike>();
    utils::RuntimeErrors::instance().clear();
    ASSERT_TRUE(mcHandler->attachToSource(cDevice, mlErrors));
    EXPECT_TRUE(mcHandler->detachFromSource());
    EXPECT_EQ(logged(1000),
              (std::vector<std::string>{"FrameSource::removeFrameSink", "FrameSink::detachFromSource"}));
}

// Two readers of an IQ stream.

TEST(IQStreamReaders, OfTwoEachFrameGoesToOneAndTheFlagsToEither) {
    constexpr uint32_t kFrames = 20000;
    auto cHandler = makeReference<IQStreamHandler>(record("{\"bufferFrames\":100000}"));
    ASSERT_TRUE(cHandler->errors().empty());
    std::atomic<uint32_t> uTaken{0};
    std::atomic<uint32_t> uGaps{0};
    std::atomic<uint32_t> uSubOptimal{0};
    std::vector<std::set<uint32_t>> lTaken(2);
    std::vector<std::thread> lReaders;
    for (auto& cMine : lTaken)
        lReaders.emplace_back([&] {
            while (uTaken < kFrames) {
                const auto cFrame = cHandler->nextTypedFrame(20);
                if (!cFrame)
                    continue;
                cMine.insert(cFrame->sequence());
                ++uTaken;
                uGaps += cHandler->takeGapFlag() ? 1 : 0;
                uSubOptimal += cHandler->takeSubOptimalFlag() ? 1 : 0;
            }
        });
    uint32_t uSequence = 0;
    for (uint32_t i = 0; i < kFrames; ++i) {
        const auto cFrame = vnktest::iqFrame(uSequence, 1);
        cFrame->setSubOptimal(i % 100 == 50);
        cHandler->receiveFrame(cFrame, false);
        uSequence += i % 100 == 99 ? 2u : 1u;
    }
    for (std::thread& cReader : lReaders)
        cReader.join();
    EXPECT_EQ(lTaken[0].size() + lTaken[1].size(), kFrames);
    std::set<uint32_t> cAll(lTaken[0]);
    cAll.insert(lTaken[1].begin(), lTaken[1].end());
    EXPECT_EQ(cAll.size(), kFrames);
    // A flag stands for one or more that were not read yet.
    EXPECT_GE(uGaps, 1u);
    EXPECT_LE(uGaps, kFrames / 100);
    EXPECT_GE(uSubOptimal, 1u);
    EXPECT_LE(uSubOptimal, kFrames / 100);
    EXPECT_FALSE(cHandler->takeGapFlag());
    EXPECT_FALSE(cHandler->takeSubOptimalFlag());
}
