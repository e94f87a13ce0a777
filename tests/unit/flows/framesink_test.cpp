#include "flows/framesink.h"

#include <limits>
#include <thread>

#include "support/loopback.h"
#include "unit/flows/flowsupport.h"

using vnktest::CountedSource;
using vnktest::drain;
using vnktest::iqFrame;
using vnktest::keptFrame;
using vnktest::logged;
using vnktest::record;
using vnktest::waitUntil;

class FrameSinkTest : public vnktest::FlowTest {
 protected:
    void push(uint32_t uFirst, uint32_t uCount, uint32_t uSamples = 10) {
        for (uint32_t i = 0; i < uCount; ++i)
            mcSink->receiveFrame(iqFrame(uFirst + i, uSamples), false);
    }
    void set(const char* pText) {
        auto cRecord = record(pText);
        ASSERT_TRUE(mcSink->setSinkParameters(cRecord, mlErrors, true));
    }
    ReferencePtr<FrameSink> mcSink = makeReference<FrameSink>();
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
};

TEST_F(FrameSinkTest, EleventhUnreadFrameDropsTheOldestWithOneLogLine) {
    push(0, 10);
    EXPECT_TRUE(logged(-3003).empty());
    push(10, 1);
    EXPECT_EQ(logged(-3003),
              std::vector<std::string>{"FRAME DISCARD: 1 frames dropped (initial,final:(11,10), "
                                       "limit:10, 0.00sec, disc.prop:0.0)"});
    EXPECT_EQ(mcSink->discardCount(), 1u);
    EXPECT_EQ(drain(*mcSink), (std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST_F(FrameSinkTest, DiscardLinesSumToTheDiscardCount) {
    set("{\"bufferFrames\":3,\"bufferDiscard\":0.5}");
    push(0, 20);
    const auto lLines = logged(-3003);
    EXPECT_EQ(lLines.size(), 17u);
    for (const std::string& line : lLines)
        EXPECT_EQ(line,
                  "FRAME DISCARD: 1 frames dropped (initial,final:(4,3), limit:3, 0.00sec, disc.prop:0.5)");
    EXPECT_EQ(mcSink->discardCount(), 17u);
}

TEST_F(FrameSinkTest, SecondsLimitCountsWhatHasPassedThrough) {
    set("{\"bufferSec\":0.25}");
    // 0.1 s each. The third exceeds the limit although the consumer took the first two.
    push(0, 2, 100);
    EXPECT_EQ(drain(*mcSink).size(), 2u);
    push(2, 1, 100);
    EXPECT_EQ(mcSink->discardCount(), 1u);
    EXPECT_TRUE(drain(*mcSink).empty());
    // That push left the queue empty: the count has started anew.
    push(3, 2, 100);
    EXPECT_EQ(mcSink->discardCount(), 1u);
    EXPECT_EQ(drain(*mcSink), (std::vector<uint32_t>{3, 4}));
}

TEST_F(FrameSinkTest, FrameAloneInTheQueueIsDroppedWhenItExceedsTheLimitByItself) {
    set("{\"bufferSec\":0.25}");
    push(0, 1, 300);
    EXPECT_EQ(mcSink->discardCount(), 1u);
    EXPECT_EQ(logged(-3003),
              std::vector<std::string>{
                  "FRAME DISCARD: 1 frames dropped (initial,final:(1,0), limit:10, 0.25sec, disc.prop:0.0)"});
}

TEST_F(FrameSinkTest, FlushEmptiesTheQueueAndTheBufferedSeconds) {
    set("{\"bufferSec\":0.25}");
    push(0, 2, 100);
    mcSink->flush();
    EXPECT_TRUE(drain(*mcSink).empty());
    push(2, 2, 100);
    EXPECT_EQ(mcSink->discardCount(), 0u);
    EXPECT_EQ(drain(*mcSink).size(), 2u);
}

TEST_F(FrameSinkTest, DurationThatIsNoNumberDropsAllAndTheQueueGoesOn) {
    set("{\"bufferSec\":0.25}");
    push(0, 2, 100);
    mcSink->receiveFrame(iqFrame(2, 0, {0, 0}, 0.0f), false);  // 0 / 0
    EXPECT_EQ(mcSink->discardCount(), 3u);
    mcSink->receiveFrame(iqFrame(3, 10, {0, 0}, 0.0f), false);  // 10 / 0
    EXPECT_EQ(mcSink->discardCount(), 4u);
    push(4, 2, 100);
    EXPECT_EQ(drain(*mcSink), (std::vector<uint32_t>{4, 5}));
}

TEST_F(FrameSinkTest, DurationThatIsNoNumberDoesNotDisturbALimitInFrames) {
    mcSink->receiveFrame(iqFrame(0, 0, {0, 0}, 0.0f), false);
    push(1, 9);
    EXPECT_EQ(mcSink->discardCount(), 0u);
    EXPECT_EQ(drain(*mcSink).size(), 10u);
}

TEST_F(FrameSinkTest, NullFrameInAFullQueueCanBeDroppedByALaterPush) {
    auto cSink = makeReference<FrameSink>();
    cSink->receiveFrame(nullptr, false);
    for (uint32_t i = 0; i < 10; ++i)
        cSink->receiveFrame(iqFrame(i), false);
    EXPECT_EQ(cSink->discardCount(), 1u);
    EXPECT_EQ(drain(*cSink).size(), 10u);
    // A frame followed the end, so that the end is not seen any more.
    EXPECT_FALSE(cSink->isExhausted());
    cSink->receiveFrame(nullptr, false);
    EXPECT_FALSE(cSink->isExhausted());  // the marker itself is still queued
    EXPECT_EQ(cSink->nextFrame(0, false), nullptr);
    EXPECT_TRUE(cSink->isExhausted());
}

TEST_F(FrameSinkTest, ReadOfAnEmptyQueueWithNoTimeoutReturnsAtOnceAndClearsConsumerBusy) {
    mcSink->receiveFrame(iqFrame(1), false);
    mcSink->receiveFrame(nullptr, false);
    EXPECT_EQ(mcSink->nextFrame(0, true)->sequence(), 1u);
    EXPECT_EQ(mcSink->nextFrame(0, true), nullptr);
    EXPECT_FALSE(mcSink->isExhausted());  // drained, yet the consumer is busy
    EXPECT_EQ(mcSink->nextFrame(0, true), nullptr);
    EXPECT_TRUE(mcSink->isExhausted());
}

TEST_F(FrameSinkTest, ExhaustedOnlyWhenTheSourceIs) {
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    mcSink->receiveFrame(nullptr, false);
    EXPECT_EQ(mcSink->nextFrame(0, false), nullptr);
    EXPECT_FALSE(mcSink->isExhausted());
    EXPECT_FALSE(mcSink->isSourceExhausted());
    mcSource->mbExhausted = true;
    EXPECT_TRUE(mcSink->isExhausted());
}

TEST_F(FrameSinkTest, DetachedSinkKeepsItsQueueAndIsExhaustedOnceDrained) {
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    mcSource->deliverFrame(iqFrame(1), false);
    mcSource->deliverFrame(nullptr, true);
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_FALSE(mcSink->isExhausted());
    EXPECT_EQ(mcSink->nextFrame(0, false)->sequence(), 1u);
    EXPECT_EQ(mcSink->nextFrame(0, false), nullptr);
    EXPECT_TRUE(mcSink->isExhausted());
}

TEST_F(FrameSinkTest, DetachOfADetachedSinkIsFalseAndLeavesItAsItWas) {
    push(1, 1);
    EXPECT_FALSE(mcSink->detachFromSource());
    EXPECT_EQ(logged(1000), std::vector<std::string>{"FrameSink::detachFromSource"});
    EXPECT_EQ(drain(*mcSink), std::vector<uint32_t>{1});
}

TEST_F(FrameSinkTest, DetachTakesTheSinkOutOfTheSource) {
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    EXPECT_EQ(mcSink->sourcePointer(), mcSource.get());
    EXPECT_TRUE(mcSink->detachFromSource());
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_EQ(logged(1000),
              (std::vector<std::string>{"FrameSink::detachFromSource", "FrameSource::removeFrameSink"}));
    EXPECT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
}

// Frames that must not be dropped.

TEST_F(FrameSinkTest, KeptFrameInAFullQueueBlocksThePushUntilTheConsumerTakesOne) {
    set("{\"bufferFrames\":1}");
    mcSink->receiveFrame(keptFrame(0), false);
    std::atomic<bool> bPushed{false};
    std::thread cProducer([&] {
        mcSink->receiveFrame(keptFrame(1), false);
        bPushed = true;
    });
    // Many steps of 10 ms pass and the push still stands.
    EXPECT_FALSE(waitUntil([&] { return bPushed.load(); }, std::chrono::milliseconds(100)));
    EXPECT_EQ(mcSink->nextFrame(1000, false)->sequence(), 0u);
    EXPECT_TRUE(waitUntil([&] { return bPushed.load(); }));
    cProducer.join();
    EXPECT_EQ(drain(*mcSink), std::vector<uint32_t>{1});
    EXPECT_EQ(mcSink->discardCount(), 0u);
}

TEST_F(FrameSinkTest, AllowDiscardingFreesABlockedPush) {
    set("{\"bufferFrames\":1}");
    mcSink->receiveFrame(keptFrame(0), false);
    std::atomic<bool> bPushed{false};
    std::thread cProducer([&] {
        mcSink->receiveFrame(keptFrame(1), false);
        bPushed = true;
    });
    EXPECT_FALSE(waitUntil([&] { return bPushed.load(); }, std::chrono::milliseconds(30)));
    mcSink->setAllowDiscarding(true);
    EXPECT_TRUE(waitUntil([&] { return bPushed.load(); }));
    cProducer.join();
    EXPECT_EQ(mcSink->discardCount(), 1u);
    EXPECT_EQ(drain(*mcSink), std::vector<uint32_t>{1});
}

TEST_F(FrameSinkTest, BlockedPushGivesWayOnDetachWithItsFrameQueued) {
    set("{\"bufferFrames\":1}");
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    mcSource->deliverFrame(keptFrame(0), false);
    std::atomic<bool> bPushed{false};
    std::thread cProducer([&] {
        mcSource->deliverFrame(keptFrame(1), false);
        bPushed = true;
    });
    EXPECT_FALSE(waitUntil([&] { return bPushed.load(); }, std::chrono::milliseconds(30)));
    EXPECT_TRUE(mcSink->detachFromSource());
    EXPECT_TRUE(waitUntil([&] { return bPushed.load(); }));
    cProducer.join();
    EXPECT_EQ(drain(*mcSink), (std::vector<uint32_t>{0, 1}));
}

namespace {

// Counts the frames offered to it, each at delivery and once more at the push.
class CountingSink : public FrameSink {
 public:
    bool acceptsFrame(ReferencePtr<Frame>) override {
        ++muOffered;
        return true;
    }
    std::atomic<uint32_t> muOffered{0};
};

}  // namespace

TEST_F(FrameSinkTest, BlockedPushGivesWayWhenTheSourceLetsTheSinkGo) {
    auto cCounting = makeReference<CountingSink>();
    mcSink = cCounting;
    set("{\"bufferFrames\":1}");
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    mcSource->deliverFrame(keptFrame(0), false);
    std::thread cProducer([&] { mcSource->deliverFrame(keptFrame(1), false); });
    EXPECT_TRUE(waitUntil([&] { return cCounting->muOffered == 4; }));
    EXPECT_TRUE(mcSource->removeFrameSink(nullptr));
    cProducer.join();
    EXPECT_EQ(drain(*mcSink), (std::vector<uint32_t>{0, 1}));
}

TEST_F(FrameSinkTest, FrameInFlightToADetachedSinkIsQueuedWithoutBlocking) {
    set("{\"bufferFrames\":1}");
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    mcSource->deliverFrame(keptFrame(0), false);
    EXPECT_TRUE(mcSink->detachFromSource());
    mcSink->receiveFrame(keptFrame(1), false);
    EXPECT_EQ(drain(*mcSink), (std::vector<uint32_t>{0, 1}));
}

namespace {

// A source that, as a receiver does, waits for its producer before it lets a sink go.
class WaitingSource : public CountedSource {
 public:
    bool removeFrameSink(ReferencePtr<FrameSink> cSink) override {
        mbProducerFree = waitUntil([this] { return !mbDelivering; });
        return CountedSource::removeFrameSink(cSink);
    }
    std::atomic<bool> mbDelivering{true};
    std::atomic<bool> mbProducerFree{false};
};

}  // namespace

TEST_F(FrameSinkTest, BlockedPushGivesWayBeforeADetachThatWaitsForTheProducer) {
    set("{\"bufferFrames\":1}");
    auto cSource = makeReference<WaitingSource>();
    ASSERT_TRUE(cSource->attachFrameSink(mcSink, mlErrors));
    std::thread cProducer([&] {
        for (uint32_t i = 0; i < 5; ++i)
            cSource->deliverFrame(keptFrame(i), false);
        cSource->mbDelivering = false;
    });
    EXPECT_TRUE(mcSink->detachFromSource());
    EXPECT_TRUE(cSource->mbProducerFree);
    cProducer.join();
    EXPECT_EQ(drain(*mcSink), (std::vector<uint32_t>{0, 1, 2, 3, 4}));
}

// Listeners.

namespace {

class PlainListener : public FrameSink::Listener {
 public:
    bool parametersChanged(ReferencePtr<FrameSink> cSink) override {
        mpSink = cSink.get();
        return true;
    }
    FrameSink* mpSink = nullptr;
};

}  // namespace

TEST_F(FrameSinkTest, ChangeIsToldToTheListenerUnlessQuiet) {
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    auto cQuiet = record("{\"bufferFrames\":7}");
    EXPECT_TRUE(mcSink->setSinkParameters(cQuiet, mlErrors, true));
    EXPECT_EQ(mcSource->muChanges, 0u);
    auto cLoud = record("{\"bufferFrames\":8}");
    EXPECT_TRUE(mcSink->setSinkParameters(cLoud, mlErrors, false));
    EXPECT_EQ(mcSource->muChanges, 1u);
    EXPECT_EQ(mcSource->mpChanged, mcSink.get());
    mcSink->detachFromSource();
    auto cDetached = record("{\"bufferFrames\":9}");
    EXPECT_TRUE(mcSink->setSinkParameters(cDetached, mlErrors, false));
    EXPECT_EQ(mcSource->muChanges, 1u);
}

TEST_F(FrameSinkTest, ListenerOfItsOwnHearsChanges) {
    PlainListener cListener;
    mcSink->setListener(&cListener);
    auto cRecord = record("{}");
    EXPECT_TRUE(mcSink->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(cListener.mpSink, mcSink.get());
    mcSink->setListener(nullptr);
}

TEST_F(FrameSinkTest, ListenerRefusesByDefault) {
    FrameSink::Listener cListener;
    utils::VariantRecord cRecord;
    EXPECT_FALSE(cListener.canImplement(mcSink, cRecord, mlErrors));
    EXPECT_EQ(mlErrors, ErrorList{"Default ::canImplement fails"});
    EXPECT_FALSE(cListener.parametersChanged(mcSink));
}

TEST_F(FrameSinkTest, SourceInItsEndCountsAsNone) {
    class Ending : public CountedSource {
     public:
        explicit Ending(ReferencePtr<FrameSink> cWatched) : mcWatched(std::move(cWatched)) {}
        ~Ending() override {
            // Still in the list, but nobody may reach this object any more.
            EXPECT_FALSE(mcWatched->detachFromSource());
            EXPECT_TRUE(mcWatched->isSourceExhausted());
            releaseSinks();
            EXPECT_FALSE(mcWatched->isAttached());
        }
        ReferencePtr<FrameSink> mcWatched;
    };
    auto cSource = makeReference<Ending>(mcSink);
    ASSERT_TRUE(cSource->attachFrameSink(mcSink, mlErrors));
    EXPECT_TRUE(mcSink->isAttached());
    cSource = nullptr;
    EXPECT_FALSE(mcSink->isAttached());
}

TEST_F(FrameSinkTest, AttachThatCrossesADetachStands) {
    // A source to which another thread attaches the sink again before the detach is over.
    class Crossed : public CountedSource {
     public:
        bool removeFrameSink(ReferencePtr<FrameSink> cSink) override {
            ErrorList lErrors;
            const bool bRemoved = CountedSource::removeFrameSink(cSink);
            EXPECT_TRUE(attachFrameSink(cSink, lErrors));
            return bRemoved;
        }
    };
    auto cSource = makeReference<Crossed>();
    ASSERT_TRUE(cSource->attachFrameSink(mcSink, mlErrors));
    EXPECT_TRUE(mcSink->detachFromSource());
    EXPECT_EQ(cSource->sinkCount(), 1u);
    EXPECT_EQ(mcSink->sourcePointer(), cSource.get());
}
