#include "streams/iqstreamhandler.h"

#include <set>
#include <thread>

#include "flows/spectrumframe.h"
#include "flows/spectrumframesink.h"
#include "support/loopback.h"
#include "unit/flows/flowsupport.h"

using vnktest::drain;
using vnktest::iqFrame;
using vnktest::logged;
using vnktest::record;
using vnktest::statuses;
using vnktest::waitUntil;

namespace {

// What a device is to a stream: an entity with parameters that is a source of frames too.
class DeviceLike : public Entity, public FrameSource {
 public:
    DeviceLike() : FrameSource("DeviceLike") {}
    ~DeviceLike() override { releaseSinks(); }
    utils::ReferenceCountedObject* countedSelf() override { return this; }
    bool isExhausted() override { return mbExhausted; }
    bool canImplement(ReferencePtr<FrameSink>, utils::VariantRecord&, ErrorList&) override { return true; }
    bool attachFrameSink(ReferencePtr<FrameSink> cSink, ErrorList& lErrors) override {
        if (mbRefusing) {
            lErrors.push_back("not now");
            return false;
        }
        return FrameSource::attachFrameSink(cSink, lErrors);
    }
    std::atomic<bool> mbExhausted{false};
    std::atomic<bool> mbRefusing{false};
};

ReferencePtr<SpectrumFrame> spectrumFrame(uint32_t uSequence) {
    return makeReference<SpectrumFrame>(uSequence, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 0.0f,
                                        1.0f, 1.0f, 0.0f, std::string(), ReferencePtr<FloatArray>(),
                                        std::string());
}

}  // namespace

class IQStreamHandlerTest : public vnktest::FlowTest {
 protected:
    // An attached stream and its source hold each other until the stream is detached.
    void TearDown() override {
        if (mcHandler.get())
            mcHandler->detachFromSource();
    }
    void attach() { ASSERT_TRUE(mcHandler->attachToSource(mcDevice, mlErrors)); }
    ReferencePtr<IQStreamHandler> mcHandler = makeReference<IQStreamHandler>(utils::VariantRecord());
    ReferencePtr<DeviceLike> mcDevice = makeReference<DeviceLike>();
};

TEST_F(IQStreamHandlerTest, CreationTakesItsParametersAndLeavesALogLine) {
    utils::RuntimeErrors::instance().clear();
    auto cHandler =
        makeReference<IQStreamHandler>(record("{\"FCentreHz\":1e6,\"IFBWHz\":1e5,\"RefdBm\":-20.0}"));
    EXPECT_EQ(logged(-9000), std::vector<std::string>{"StreamHandler created"});
    EXPECT_EQ(cHandler->sourceName(), "StreamHandler");
    EXPECT_TRUE(cHandler->errors().empty());
    EXPECT_EQ(cHandler->getParameters().getNumber("FCentreHz"), 1e6f);
    EXPECT_EQ(cHandler->getParameters().getNumber("RefdBm"), -20.0f);
    EXPECT_FALSE(cHandler->isStarted());
    EXPECT_FALSE(cHandler->isAttached());
}

TEST_F(IQStreamHandlerTest, CreationNeverFailsAndKeepsItsErrors) {
    auto cHandler = makeReference<IQStreamHandler>(record("{\"FCentreHz\":-1.0,\"IFBWHz\":1e5}"));
    EXPECT_EQ(cHandler->errors().size(), 2u);
    EXPECT_EQ(cHandler->getParameters().getNumber("IFBWHz"), 0.0f);
    // They do not stand in the way of later changes.
    auto cRecord = record("{\"FCentreHz\":1e6}");
    EXPECT_TRUE(cHandler->setSinkParameters(cRecord, mlErrors, false));
}

TEST_F(IQStreamHandlerTest, SchemaAddsTheFileNameAndNoLoopingFlagWithoutAFile) {
    const auto cSchema = mcHandler->getParameterInfo();
    EXPECT_EQ(cSchema.size(), 13u);
    const utils::VariantRecord* pEntry = cSchema.find("filename")->getRecord();
    ASSERT_NE(pEntry, nullptr);
    EXPECT_EQ(pEntry->getText("description"), "Full path to associated file - if in use");
    EXPECT_EQ(pEntry->getBool("readonly"), true);
    EXPECT_FALSE(cSchema.find("LoopingFlag"));
    EXPECT_TRUE(cSchema.find("FCentreHz"));
}

TEST_F(IQStreamHandlerTest, LoopingFlagIsTakenAsABooleanOnly) {
    auto cBool = record("{\"LoopingFlag\":true}");
    EXPECT_TRUE(mcHandler->setSinkParameters(cBool, mlErrors, false));
    EXPECT_TRUE(cBool.empty());
    auto cNumber = record("{\"LoopingFlag\":1}");
    EXPECT_FALSE(mcHandler->setSinkParameters(cNumber, mlErrors, false));
    EXPECT_EQ(mlErrors, ErrorList{"Attempted to integrate unknown parameter 'LoopingFlag'"});
    EXPECT_EQ(cNumber.size(), 1u);
    EXPECT_EQ(statuses(), std::vector<int32_t>{-33});
}

// Attach and detach.

TEST_F(IQStreamHandlerTest, AttachGivesTheStreamToTheSource) {
    utils::RuntimeErrors::instance().clear();
    attach();
    EXPECT_EQ(logged(1000), std::vector<std::string>{"attachToSource => FrameSource::attachFrameSink"});
    EXPECT_EQ(mcHandler->getSource().get(), mcDevice.get());
    EXPECT_TRUE(mcHandler->isAttached());
    EXPECT_EQ(mcDevice->sinkCount(), 1u);
}

TEST_F(IQStreamHandlerTest, EntityThatIsNoSourceIsRefusedInSilence) {
    EXPECT_FALSE(mcHandler->attachToSource(makeReference<Entity>(), mlErrors));
    EXPECT_FALSE(mcHandler->attachToSource(nullptr, mlErrors));
    EXPECT_TRUE(mlErrors.empty());
    EXPECT_EQ(mcHandler->getSource(), nullptr);
}

TEST_F(IQStreamHandlerTest, RefusalOfTheSourceIsTheResult) {
    mcDevice->mbRefusing = true;
    EXPECT_FALSE(mcHandler->attachToSource(mcDevice, mlErrors));
    EXPECT_EQ(mlErrors, ErrorList{"not now"});
    EXPECT_FALSE(mcHandler->isAttached());
}

TEST_F(IQStreamHandlerTest, DetachTakesTheStreamOutOnce) {
    attach();
    utils::RuntimeErrors::instance().clear();
    EXPECT_TRUE(mcHandler->detachFromSource());
    EXPECT_EQ(logged(1000),
              (std::vector<std::string>{"IQStreamHandler::detachFromSource", "FrameSource::removeFrameSink",
                                        "FrameSink::detachFromSource"}));
    EXPECT_EQ(mcDevice->sinkCount(), 0u);
    EXPECT_FALSE(mcHandler->isAttached());
    EXPECT_EQ(mcHandler->getSource(), nullptr);
    EXPECT_FALSE(mcHandler->detachFromSource());
    EXPECT_TRUE(mcHandler->attachToSource(mcDevice, mlErrors));
}

TEST_F(IQStreamHandlerTest, LastFrameDetachesAfterEverybodyHasSeenIt) {
    attach();
    auto cNext = makeReference<IQFrameSink>();
    ASSERT_TRUE(mcHandler->attachFrameSink(cNext, mlErrors));
    mcDevice->deliverFrame(iqFrame(4), true);
    EXPECT_FALSE(mcHandler->isAttached());
    EXPECT_EQ(mcHandler->getSource(), nullptr);
    EXPECT_EQ(drain(*mcHandler), std::vector<uint32_t>{4});
    EXPECT_EQ(drain(*cNext), std::vector<uint32_t>{4});
    EXPECT_TRUE(cNext->isAttached());  // a handler passes on that a frame is not its own last
}

TEST_F(IQStreamHandlerTest, EndOfAnAttachedStreamLeavesTheSourceClean) {
    attach();
    IQStreamHandler* pHandler = mcHandler.get();
    EXPECT_EQ(pHandler->referenceCount(), 2u);  // ours and the device's
    EXPECT_TRUE(mcHandler->detachFromSource());
    auto cNext = makeReference<IQFrameSink>();
    ASSERT_TRUE(mcHandler->attachFrameSink(cNext, mlErrors));
    utils::RuntimeErrors::instance().clear();
    mcHandler = nullptr;
    EXPECT_EQ(logged(1000),
              (std::vector<std::string>{"FrameSource::removeFrameSink", "IQStreamHandler::detachFromSource",
                                        "FrameSink::detachFromSource"}));
    EXPECT_FALSE(cNext->isAttached());
}

TEST_F(IQStreamHandlerTest, EndOfAStreamTellsASourceThatNoLongerListsIt) {
    attach();
    mcDevice->removeFrameSink(nullptr);
    // The handler still holds its device; its end asks it once more and harms nothing.
    utils::RuntimeErrors::instance().clear();
    mcHandler = nullptr;
    EXPECT_EQ(logged(1000),
              (std::vector<std::string>{"FrameSource::removeFrameSink", "IQStreamHandler::detachFromSource",
                                        "FrameSource::removeFrameSink", "FrameSink::detachFromSource"}));
    EXPECT_EQ(mcDevice->referenceCount(), 1u);
}

// Those who attach to the stream.

TEST_F(IQStreamHandlerTest, OnlyIQSinksMayAttach) {
    EXPECT_FALSE(mcHandler->attachFrameSink(nullptr, mlErrors));
    EXPECT_TRUE(mlErrors.empty());
    EXPECT_FALSE(mcHandler->attachFrameSink(makeReference<SpectrumFrameSink>(), mlErrors));
    EXPECT_EQ(mlErrors, ErrorList{"Attempt to attach non-IQ frame sink to IQ only source"});
    auto cSink = makeReference<IQFrameSink>();
    EXPECT_TRUE(mcHandler->attachFrameSink(cSink, mlErrors));
    EXPECT_EQ(cSink->sourcePointer(), static_cast<FrameSource*>(mcHandler.get()));
}

TEST_F(IQStreamHandlerTest, CallersQueueIsFilledBeforeTheFrameIsPassedOn) {
    class Looking : public IQFrameSink {
     public:
        explicit Looking(FrameSink& cFirst) : mcFirst(cFirst) {}
        void receiveFrame(ReferencePtr<Frame> cFrame, bool) override {
            mbFirstHadIt = mcFirst.nextFrame(0, false).get() == cFrame.get();
        }
        FrameSink& mcFirst;
        bool mbFirstHadIt = false;
    };
    auto cLooking = makeReference<Looking>(*mcHandler);
    ASSERT_TRUE(mcHandler->attachFrameSink(cLooking, mlErrors));
    mcHandler->receiveFrame(iqFrame(0), false);
    EXPECT_TRUE(cLooking->mbFirstHadIt);
}

// Frames.

TEST_F(IQStreamHandlerTest, FirstFrameStartsTheStreamAndTheEndAloneDoesNot) {
    mcHandler->receiveFrame(nullptr, false);
    EXPECT_FALSE(mcHandler->isStarted());
    mcHandler->receiveFrame(iqFrame(0), false);
    EXPECT_TRUE(mcHandler->isStarted());
    EXPECT_NEAR(*mcHandler->getParameters().getNumber("avgdBm"), 0.0f, 1e-4f);
}

TEST_F(IQStreamHandlerTest, FrameOfAnotherTypeIsDropped) {
    mcHandler->receiveFrame(spectrumFrame(1), false);
    EXPECT_EQ(mcHandler->nextTypedFrame(0), nullptr);
    EXPECT_TRUE(drain(*mcHandler).empty());
}

TEST_F(IQStreamHandlerTest, FirstFrameSetsNoGapAndAMissingOneDoes) {
    for (const uint32_t uSequence : {5u, 6u, 8u, 9u})
        mcHandler->receiveFrame(iqFrame(uSequence), false);
    std::vector<bool> lGaps;
    while (mcHandler->nextTypedFrame(0).get())
        lGaps.push_back(mcHandler->takeGapFlag());
    EXPECT_EQ(lGaps, (std::vector<bool>{false, false, true, false}));
}

TEST_F(IQStreamHandlerTest, GapFlagStaysUntilItIsRead) {
    for (const uint32_t uSequence : {5u, 8u, 9u})
        mcHandler->receiveFrame(iqFrame(uSequence), false);
    EXPECT_EQ(drain(*mcHandler).size(), 3u);
    EXPECT_TRUE(mcHandler->takeGapFlag());
    EXPECT_FALSE(mcHandler->takeGapFlag());
}

TEST_F(IQStreamHandlerTest, ZeroFollowsBothOfTheLastSequences) {
    for (const uint32_t uLast : {0xFFFFFFFEu, 0xFFFFFFFFu}) {
        auto cHandler = makeReference<IQStreamHandler>(utils::VariantRecord());
        cHandler->receiveFrame(iqFrame(uLast), false);
        cHandler->receiveFrame(iqFrame(0), false);
        EXPECT_EQ(drain(*cHandler).size(), 2u);
        EXPECT_FALSE(cHandler->takeGapFlag());
        cHandler->receiveFrame(iqFrame(2), false);
        EXPECT_EQ(drain(*cHandler).size(), 1u);
        EXPECT_TRUE(cHandler->takeGapFlag());
    }
}

TEST_F(IQStreamHandlerTest, SubOptimalFlagStaysUntilItIsRead) {
    const auto cFrame = iqFrame(0);
    cFrame->setSubOptimal(true);
    mcHandler->receiveFrame(cFrame, false);
    mcHandler->receiveFrame(iqFrame(1), false);
    EXPECT_FALSE(mcHandler->takeSubOptimalFlag());  // not read by the caller yet
    EXPECT_NE(mcHandler->nextTypedFrame(0), nullptr);
    EXPECT_NE(mcHandler->nextTypedFrame(0), nullptr);
    EXPECT_TRUE(mcHandler->takeSubOptimalFlag());
    EXPECT_FALSE(mcHandler->takeSubOptimalFlag());
}

TEST_F(IQStreamHandlerTest, ExhaustionIsThatOfTheSourceAndTheSinkSideWaitsForItsQueue) {
    attach();
    mcHandler->receiveFrame(iqFrame(0), false);
    mcHandler->receiveFrame(nullptr, false);
    EXPECT_FALSE(mcHandler->isExhausted());
    mcDevice->mbExhausted = true;
    EXPECT_TRUE(mcHandler->isExhausted());
    EXPECT_FALSE(mcHandler->isSinkExhausted());
    EXPECT_NE(mcHandler->nextTypedFrame(0), nullptr);
    EXPECT_EQ(mcHandler->nextTypedFrame(0), nullptr);
    EXPECT_TRUE(mcHandler->isSinkExhausted());
}

TEST_F(IQStreamHandlerTest, StreamWithoutASourceIsExhausted) {
    EXPECT_TRUE(mcHandler->isExhausted());
}

// Threads.

TEST_F(IQStreamHandlerTest, FourReadersSeeEachFrameOnceAndNoGap) {
    constexpr uint32_t kFrames = 4000;
    utils::VariantRecord cRecord;
    cRecord.set("bufferFrames", kFrames);
    ASSERT_TRUE(mcHandler->setSinkParameters(cRecord, mlErrors, true));
    std::vector<std::set<uint32_t>> lTaken(4);
    std::atomic<uint32_t> uTaken{0};
    std::vector<std::thread> lReaders;
    for (auto& cMine : lTaken)
        lReaders.emplace_back([&] {
            while (uTaken < kFrames)
                if (const auto cFrame = mcHandler->nextTypedFrame(20); cFrame.get()) {
                    cMine.insert(cFrame->sequence());
                    ++uTaken;
                }
        });
    for (uint32_t i = 0; i < kFrames; ++i)
        mcHandler->receiveFrame(iqFrame(i, 1), false);
    for (std::thread& cReader : lReaders)
        cReader.join();
    std::set<uint32_t> cAll;
    for (const auto& cMine : lTaken)
        cAll.insert(cMine.begin(), cMine.end());
    EXPECT_EQ(cAll.size(), kFrames);
    EXPECT_EQ(uTaken, kFrames);
    EXPECT_FALSE(mcHandler->takeGapFlag());
}

TEST_F(IQStreamHandlerTest, OfTwoDetachesAtOnceOneIsTrue) {
    for (uint32_t uRun = 0; uRun < 200; ++uRun) {
        attach();
        std::atomic<uint32_t> uTrue{0};
        const auto detach = [&] { uTrue += mcHandler->detachFromSource() ? 1 : 0; };
        std::thread cOther(detach);
        detach();
        cOther.join();
        EXPECT_EQ(uTrue, 1u);
        EXPECT_EQ(mcDevice->sinkCount(), 0u);
    }
}

TEST_F(IQStreamHandlerTest, AttachAndDetachAtOnceWhileFramesFlowEndInAgreement) {
    std::atomic<bool> bDone{false};
    std::thread cProducer([&] {
        for (uint32_t i = 0; !bDone; ++i) {
            const auto cFrame = iqFrame(i, 4);
            cFrame->setDiscardable(i % 2 == 0);
            mcDevice->deliverFrame(cFrame, false);
        }
    });
    std::thread cChanger([&] {
        while (!bDone) {
            ErrorList lErrors;
            auto cRecord = record("{\"FCentreHz\":1e6,\"bufferFrames\":2}");
            mcHandler->setSinkParameters(cRecord, lErrors, false);
            mcHandler->getParameters();
            mcHandler->isExhausted();
            mcHandler->nextTypedFrame(0);
        }
    });
    std::vector<std::thread> lThreads;
    for (uint32_t i = 0; i < 2; ++i) {
        lThreads.emplace_back([&] {
            for (uint32_t j = 0; j < 500; ++j) {
                ErrorList lErrors;
                mcHandler->attachToSource(mcDevice, lErrors);
            }
        });
        lThreads.emplace_back([&] {
            for (uint32_t j = 0; j < 500; ++j)
                mcHandler->detachFromSource();
        });
    }
    for (std::thread& cThread : lThreads)
        cThread.join();
    EXPECT_EQ(mcDevice->sinkCount() == 1, mcHandler->isAttached());
    mcHandler->detachFromSource();
    EXPECT_EQ(mcDevice->sinkCount(), 0u);
    EXPECT_FALSE(mcHandler->isAttached());
    bDone = true;
    cProducer.join();
    cChanger.join();
}

TEST_F(IQStreamHandlerTest, DetachThatCrossesAnAttachWinsAndLeavesNothingBehind) {
    // A source that is overtaken by a close while it takes the stream in.
    class Overtaken : public DeviceLike {
     public:
        bool attachFrameSink(ReferencePtr<FrameSink> cSink, ErrorList& lErrors) override {
            EXPECT_FALSE(cSink->detachFromSource());
            return DeviceLike::attachFrameSink(cSink, lErrors);
        }
    };
    auto cDevice = makeReference<Overtaken>();
    EXPECT_FALSE(mcHandler->attachToSource(cDevice, mlErrors));
    EXPECT_EQ(cDevice->sinkCount(), 0u);
    EXPECT_FALSE(mcHandler->isAttached());
}

TEST_F(IQStreamHandlerTest, CloseLetsGoOfThoseBehindItWhileAProducerIsHeldUpInOneOfThem) {
    attach();
    const auto cBehind = makeReference<IQFrameSink>();
    ASSERT_TRUE(mcHandler->attachFrameSink(cBehind, mlErrors));
    mcHandler->setAllowDiscarding(true);
    // The frame that must not be dropped stands first in a full queue that nobody reads.
    std::thread cProducer([this] {
        for (uint32_t i = 0; i < 12; ++i)
            mcDevice->deliverFrame(vnktest::keptFrame(i), false);
    });
    mcHandler->close();
    EXPECT_FALSE(cBehind->isAttached());
    EXPECT_EQ(mcHandler->sinkCount(), 0u);
    cProducer.join();
}

TEST_F(IQStreamHandlerTest, StreamMayEndWhileThoseAttachedToItUseIt) {
    for (uint32_t uRun = 0; uRun < 200; ++uRun) {
        auto cHandler = makeReference<IQStreamHandler>(utils::VariantRecord());
        auto cNext = makeReference<IQFrameSink>();
        ASSERT_TRUE(cHandler->attachFrameSink(cNext, mlErrors));
        std::thread cDetacher([&] { cNext->detachFromSource(); });
        std::thread cAsker([&] { cNext->isSourceExhausted(); });
        cHandler = nullptr;
        cDetacher.join();
        cAsker.join();
        EXPECT_FALSE(cNext->isAttached());
    }
}
