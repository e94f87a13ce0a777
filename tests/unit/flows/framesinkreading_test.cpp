#include <algorithm>
#include <set>
#include <thread>

#include "flows/framesink.h"
#include "foundations/clock.h"
#include "support/loopback.h"
#include "unit/flows/flowsupport.h"

using vnktest::CountedSource;
using vnktest::iqFrame;
using vnktest::waitUntil;

class FrameSinkReadingTest : public vnktest::FlowTest {
 protected:
    /// Milliseconds that a read of the empty queue took.
    uint64_t timedRead(uint32_t uTimeoutMs) {
        const uint64_t uStart = utils::steadyMicroseconds();
        EXPECT_EQ(mcSink->nextFrame(uTimeoutMs, false), nullptr);
        return (utils::steadyMicroseconds() - uStart) / 1000;
    }
    ReferencePtr<FrameSink> mcSink = makeReference<FrameSink>();
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
};

TEST_F(FrameSinkReadingTest, ReadWaitsItsWholeTimeoutWithNoListener) {
    EXPECT_GE(timedRead(30), 30u);
    EXPECT_GE(timedRead(1100), 1100u);
}

TEST_F(FrameSinkReadingTest, ReadOfASecondOrLessNeverKicks) {
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    EXPECT_GE(timedRead(1000), 1000u);
    EXPECT_EQ(mcSource->muKicks, 0u);
}

TEST_F(FrameSinkReadingTest, ReadOfOneAndAHalfSecondsKicksOnceAndWaitsHalfASecondMore) {
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    EXPECT_GE(timedRead(1500), 1000u);
    EXPECT_EQ(mcSource->muKicks, 1u);
}

TEST_F(FrameSinkReadingTest, LongReadKicksOnceAndReturnsWithoutItsLastSecond) {
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    const uint64_t uTaken = timedRead(2200);
    EXPECT_GE(uTaken, 1200u);
    EXPECT_LT(uTaken, 2200u);
    EXPECT_EQ(mcSource->muKicks, 1u);
}

TEST_F(FrameSinkReadingTest, KickReachesAListenerThatIsNoSource) {
    class Kicked : public FrameSink::Listener {
     public:
        void kick() override { ++muKicks; }
        uint32_t muKicks = 0;
    } cListener;
    mcSink->setListener(&cListener);
    timedRead(1050);
    EXPECT_EQ(cListener.muKicks, 1u);
    mcSink->setListener(nullptr);
}

TEST_F(FrameSinkReadingTest, HugeTimeoutsDoNotWrap) {
    for (const uint32_t uTimeout : {0xFFFFFFFFu, 4294968u}) {
        std::atomic<bool> bReturned{false};
        ReferencePtr<Frame> cFrame;
        std::thread cReader([&] {
            cFrame = mcSink->nextFrame(uTimeout, false);
            bReturned = true;
        });
        EXPECT_FALSE(waitUntil([&] { return bReturned.load(); }, std::chrono::milliseconds(50)));
        mcSink->receiveFrame(iqFrame(uTimeout), false);
        cReader.join();
        ASSERT_NE(cFrame.get(), nullptr);
        EXPECT_EQ(cFrame->sequence(), uTimeout);
    }
}

TEST_F(FrameSinkReadingTest, PushEndsAWaitingRead) {
    ReferencePtr<Frame> cFrame;
    std::thread cReader([&] { cFrame = mcSink->nextFrame(60000, false); });
    mcSink->receiveFrame(iqFrame(5), false);
    cReader.join();
    ASSERT_NE(cFrame.get(), nullptr);
    EXPECT_EQ(cFrame->sequence(), 5u);
}

TEST_F(FrameSinkReadingTest, EndOfTheStreamEndsAWaitingReadWithNothing) {
    std::thread cReader([&] { EXPECT_EQ(mcSink->nextFrame(60000, false), nullptr); });
    mcSink->receiveFrame(nullptr, false);
    cReader.join();
    EXPECT_TRUE(mcSink->isExhausted());
}

namespace {

// Tells how deep the stack is when a frame is handed out.
class DepthSink : public FrameSink {
 public:
    const char* mpDepth = nullptr;

 protected:
    void frameTaken(const Frame&) override { mpDepth = static_cast<const char*>(__builtin_frame_address(0)); }
};

}  // namespace

TEST_F(FrameSinkReadingTest, SignalsWithoutAFrameDoNotDeepenTheStack) {
    auto cSink = makeReference<DepthSink>();
    cSink->receiveFrame(iqFrame(0), false);
    std::thread cReader([&] {
        for (const uint32_t uTimeout : {0u, 60000u}) {
            const char* pBefore = cSink->mpDepth;
            const ReferencePtr<Frame> cFrame = cSink->nextFrame(uTimeout, false);
            EXPECT_NE(cFrame.get(), nullptr);
            if (pBefore) {
                EXPECT_EQ(cSink->mpDepth, pBefore);
            }
            if (uTimeout == 0)
                mcSource->mbExhausted = true;  // the first read is over
        }
    });
    EXPECT_TRUE(waitUntil([&] { return mcSource->mbExhausted.load(); }));
    // Each of these wakes the reader, or finds it still awake, and brings nothing.
    for (uint32_t i = 0; i < 100000; ++i)
        cSink->setSource(nullptr);
    cSink->receiveFrame(iqFrame(1), false);
    cReader.join();
}

TEST_F(FrameSinkReadingTest, EightReadersOutliveAStormOfSignals) {
    std::atomic<uint32_t> uTaken{0};
    std::vector<std::thread> lReaders;
    for (uint32_t i = 0; i < 8; ++i)
        lReaders.emplace_back([&] {
            while (uTaken < 8)
                if (mcSink->nextFrame(60000, false).get())
                    ++uTaken;
        });
    for (uint32_t i = 0; i < 200000; ++i)
        mcSink->setSource(nullptr);
    EXPECT_EQ(uTaken, 0u);
    for (uint32_t i = 0; i < 8; ++i) {
        mcSink->receiveFrame(iqFrame(i), false);
        EXPECT_TRUE(waitUntil([&] { return uTaken > i; }));
    }
    // Those who still wait are told by further signals.
    std::atomic<bool> bDone{false};
    std::thread cWaker([&] {
        while (!bDone)
            mcSink->receiveFrame(nullptr, false);
    });
    for (std::thread& cReader : lReaders)
        cReader.join();
    bDone = true;
    cWaker.join();
}

TEST_F(FrameSinkReadingTest, FourReadersGetEachFrameOnce) {
    constexpr uint32_t kFrames = 5000;
    utils::VariantRecord cRecord;
    cRecord.set("bufferFrames", kFrames);
    ASSERT_TRUE(mcSink->setSinkParameters(cRecord, mlErrors, true));
    std::vector<std::vector<uint32_t>> lTaken(4);
    std::atomic<uint32_t> uTaken{0};
    std::vector<std::thread> lReaders;
    for (auto& lMine : lTaken)
        lReaders.emplace_back([&] {
            while (uTaken < kFrames)
                if (const ReferencePtr<Frame> cFrame = mcSink->nextFrame(20, false); cFrame.get()) {
                    lMine.push_back(cFrame->sequence());
                    ++uTaken;
                }
        });
    for (uint32_t i = 0; i < kFrames; ++i)
        mcSink->receiveFrame(iqFrame(i, 1), false);
    for (std::thread& cReader : lReaders)
        cReader.join();
    std::set<uint32_t> cAll;
    for (const auto& lMine : lTaken) {
        EXPECT_TRUE(std::is_sorted(lMine.begin(), lMine.end()));
        cAll.insert(lMine.begin(), lMine.end());
    }
    EXPECT_EQ(cAll.size(), kFrames);
    EXPECT_EQ(uTaken, kFrames);
    EXPECT_EQ(mcSink->discardCount(), 0u);
}
