#include <functional>
#include <thread>

#include "support/loopback.h"
#include "unit/flows/flowsupport.h"

using vnktest::CountedSource;
using vnktest::iqFrame;
using vnktest::keptFrame;
using vnktest::waitUntil;

class FlowThreadsTest : public vnktest::FlowTest {
 protected:
    /// Runs each body over and over on a thread of its own until all have had their rounds.
    static void hammer(uint32_t uRounds, const std::vector<std::function<void()>>& lBodies) {
        std::vector<std::thread> lThreads;
        for (const auto& body : lBodies)
            lThreads.emplace_back([&body, uRounds] {
                for (uint32_t i = 0; i < uRounds; ++i)
                    body();
            });
        for (std::thread& cThread : lThreads)
            cThread.join();
    }
    ReferencePtr<FrameSink> mcSink = makeReference<FrameSink>();
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
};

TEST_F(FlowThreadsTest, AttachAndDetachOfOnePairAtOnceLeaveListAndPointerInAgreement) {
    const auto attach = [this] {
        ErrorList lErrors;
        mcSource->attachFrameSink(mcSink, lErrors);
    };
    for (uint32_t uRun = 0; uRun < 20; ++uRun) {
        hammer(200, {attach, attach, [this] { mcSink->detachFromSource(); },
                     [this] { mcSource->removeFrameSink(mcSink); },
                     [this] { mcSource->removeFrameSink(nullptr); }});
        EXPECT_EQ(mcSource->sinkCount() == 1, mcSink->isAttached());
    }
}

TEST_F(FlowThreadsTest, SinkThatMovesBetweenTwoSourcesStaysInAgreement) {
    auto cOther = makeReference<CountedSource>();
    const auto moveTo = [this](const ReferencePtr<CountedSource>& cTarget) {
        ErrorList lErrors;
        mcSink->detachFromSource();
        cTarget->attachFrameSink(mcSink, lErrors);
    };
    hammer(2000, {[&] { moveTo(mcSource); }, [&] { moveTo(cOther); }});
    mcSource->removeFrameSink(mcSink);
    cOther->removeFrameSink(mcSink);
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_EQ(mcSource->sinkCount() + cOther->sinkCount(), 0u);
}

TEST_F(FlowThreadsTest, DeliveryGoesOnWhileSinksComeAndGo) {
    std::atomic<bool> bDone{false};
    std::thread cProducer([&] {
        for (uint32_t i = 0; !bDone; ++i) {
            mcSource->deliverFrame(keptFrame(i), false);
            mcSource->deliverFrame(iqFrame(i), i % 64 == 0);
        }
    });
    hammer(500, {[this] {
                     ErrorList lErrors;
                     mcSource->attachFrameSink(mcSink, lErrors);
                 },
                 [this] { mcSink->detachFromSource(); }, [this] { mcSink->nextFrame(0, false); }});
    mcSource->removeFrameSink(nullptr);
    bDone = true;
    cProducer.join();
    EXPECT_EQ(mcSource->sinkCount() == 1, mcSink->isAttached());
}

TEST_F(FlowThreadsTest, SourceMayEndWhileItsSinksUseIt) {
    for (uint32_t uRun = 0; uRun < 300; ++uRun) {
        auto cSource = makeReference<CountedSource>();
        std::vector<ReferencePtr<FrameSink>> lSinks;
        for (uint32_t i = 0; i < 3; ++i) {
            lSinks.push_back(makeReference<FrameSink>());
            ASSERT_TRUE(cSource->attachFrameSink(lSinks.back(), mlErrors));
        }
        std::atomic<uint32_t> uReady{0};
        const auto start = [&uReady] {
            ++uReady;
            while (uReady < 4)
                std::this_thread::yield();
        };
        std::thread cDetacher([&] {
            start();
            lSinks[0]->detachFromSource();
        });
        std::thread cChanger([&] {
            start();
            ErrorList lErrors;
            auto cRecord = vnktest::record("{\"bufferFrames\":5}");
            lSinks[1]->setSinkParameters(cRecord, lErrors, false);
        });
        std::thread cAsker([&] {
            start();
            lSinks[2]->isExhausted();
            lSinks[2]->isSourceExhausted();
        });
        start();
        cSource = nullptr;
        cDetacher.join();
        cChanger.join();
        cAsker.join();
        for (const auto& cSink : lSinks)
            EXPECT_FALSE(cSink->isAttached());
    }
}

TEST_F(FlowThreadsTest, SourceThatEndsWhileItIsKickedLivesUntilTheKickIsOver) {
    class Kicked : public CountedSource {
     public:
        explicit Kicked(std::atomic<uint32_t>& uStage) : muStage(uStage) {}
        ~Kicked() override {
            releaseSinks();
            EXPECT_EQ(muStage, 3u);
            muStage = 4;
        }
        void kick() override {
            muStage = 1;
            waitUntil([this] { return muStage == 2; });
            muStage = 3;
        }
        std::atomic<uint32_t>& muStage;
    };
    std::atomic<uint32_t> uStage{0};
    auto cSource = makeReference<Kicked>(uStage);
    ASSERT_TRUE(cSource->attachFrameSink(mcSink, mlErrors));
    std::thread cReader([this] { EXPECT_EQ(mcSink->nextFrame(1001, false), nullptr); });
    ASSERT_TRUE(waitUntil([&] { return uStage == 1; }));
    cSource = nullptr;  // the kick holds the last reference now
    uStage = 2;
    cReader.join();
    EXPECT_EQ(uStage, 4u);
    EXPECT_FALSE(mcSink->isAttached());
}

TEST_F(FlowThreadsTest, AttachOfASinkThatIsBeingLetGoWaitsForIt) {
    // A sink whose farewell takes long, as one with a thread of its own to stop.
    class Slow : public FrameSink {
     public:
        void setSource(FrameSource* pSource) override {
            if (!pSource) {
                mbLeaving = true;
                waitUntil([this] { return mbGo.load(); });
            }
            FrameSink::setSource(pSource);
        }
        std::atomic<bool> mbLeaving{false};
        std::atomic<bool> mbGo{false};
    };
    auto cSlow = makeReference<Slow>();
    ASSERT_TRUE(mcSource->attachFrameSink(cSlow, mlErrors));
    ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors));
    std::thread cRemover([&] { mcSource->removeFrameSink(cSlow); });
    ASSERT_TRUE(waitUntil([&] { return cSlow->mbLeaving.load(); }));
    // Neither delivery nor the other sink waits for that.
    mcSource->deliverFrame(iqFrame(1), false);
    EXPECT_EQ(mcSink->nextFrame(0, false)->sequence(), 1u);
    EXPECT_TRUE(mcSink->detachFromSource());
    std::thread cAttacher([&] {
        ErrorList lErrors;
        EXPECT_TRUE(mcSource->attachFrameSink(cSlow, lErrors));
    });
    cSlow->mbGo = true;
    cRemover.join();
    cAttacher.join();
    EXPECT_EQ(mcSource->sinkCount(), 1u);
    EXPECT_EQ(cSlow->sourcePointer(), mcSource.get());
}
