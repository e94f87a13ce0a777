// What both demodulators do alike.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <list>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "flows/iqframesink.h"
#include "flows/spectrumframesink.h"
#include "support/loopback.h"
#include "unit/processors/demodulatorsupport.h"

namespace {

using namespace demodulation;

template <typename Demodulator>
class Demodulation : public FlowTest {
 protected:
    Bench<Demodulator> mcBench;
};
using Demodulators = testing::Types<AMDemodulator, FMDemodulator>;
TYPED_TEST_SUITE(Demodulation, Demodulators);

/// A demodulator at work on its own thread.
template <typename Demodulator>
struct Running {
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
    ReferencePtr<Demodulator> mcDemodulator = makeReference<Demodulator>();
    ReferencePtr<Listener> mcListener = makeReference<Listener>();
    ErrorList mlErrors;

    Running() {
        EXPECT_TRUE(mcDemodulator->attachFrameSink(mcListener, mlErrors));
        attach();
    }
    ~Running() { mcSource->removeFrameSink(mcDemodulator); }
    void attach() { EXPECT_TRUE(mcSource->attachFrameSink(mcDemodulator, mlErrors)); }
    bool detach() { return mcSource->removeFrameSink(mcDemodulator); }
    void deliver(const ReferencePtr<Frame>& cFrame) { mcSource->deliverFrame(cFrame, false); }
    bool set(const char* pRecord) {
        utils::VariantRecord cRecord(pRecord);
        return mcDemodulator->setSinkParameters(cRecord, mlErrors, false);
    }
    /// Waits for the note that the thread has ended.
    static ::testing::AssertionResult hasFailed() {
        std::vector<LogLine> lLines;
        const bool bLogged = waitUntil([&] {
            lLines = takeLog();
            return !lLines.empty();
        });
        if (bLogged && lLines[0].miCode == -9001 &&
            lLines[0].mcText.find("raised an exception") != std::string::npos)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << ::testing::PrintToString(lLines);
    }
};

/// Holds a frame that it is given for as long as a test likes.
class Holder : public BasebandFrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame>, bool) override {
        mcReached.set_value();
        mcGo.get_future().wait();
    }
    std::promise<void> mcReached, mcGo;
};

}  // namespace

TYPED_TEST(Demodulation, WithoutAnOutputRateTheFramesHaveTheInputsRateAndLength) {
    this->mcBench.process(roughSignal(500), 48000.0f, 41);
    this->mcBench.process(roughSignal(123), 96000.0f, 42);
    const auto lFrames = this->mcBench.listener().frames();
    ASSERT_EQ(lFrames.size(), 2u);
    EXPECT_EQ(lFrames[0]->samplesPerChannel(), 500u);
    EXPECT_EQ(lFrames[0]->sampleRate(), 48000.0f);
    EXPECT_EQ(lFrames[0]->usableBandwidth(), 48000.0f);
    EXPECT_EQ(lFrames[1]->samplesPerChannel(), 123u);
    EXPECT_EQ(lFrames[1]->sampleRate(), 96000.0f);
    EXPECT_EQ(lFrames[1]->usableBandwidth(), 96000.0f);
}

TYPED_TEST(Demodulation, AFrameKeepsItsNumberTimeTuningAndBandwidth) {
    this->mcBench.process(roughSignal(100), 48000.0f, 41);
    auto cInput = frameOf(roughSignal(100), 48000.0f, 0);
    cInput->setTimeResolution(kMicroseconds);
    cInput->getExtras()->set("note", "kept");
    this->mcBench->processFrame(cInput);
    const auto lFrames = this->mcBench.listener().frames();
    ASSERT_EQ(lFrames.size(), 2u);
    const BasebandFrame& cFrame = *lFrames[0];
    EXPECT_EQ(cFrame.channelCount(), 1u);
    EXPECT_EQ(cFrame.sequence(), 41u);
    EXPECT_EQ(cFrame.timestamp(), 1'600'000'000'000'000'041u);
    EXPECT_EQ(cFrame.timeResolution(), uint32_t{kNanoseconds});
    EXPECT_EQ(cFrame.centreFrequency(), 98.1e6f);
    EXPECT_EQ(cFrame.bandwidth(), 200e3f);
    EXPECT_EQ(cFrame.referenceLevel(), -30.0f);
    EXPECT_EQ(lFrames[1]->sequence(), 0u);
    EXPECT_EQ(lFrames[1]->timeResolution(), uint32_t{kMicroseconds}) << "no conversion that rounds";
    EXPECT_EQ(lFrames[1]->timestamp(), 1'600'000'000'000'000'000u);
    EXPECT_EQ(lFrames[1]->peekExtras()->getText("note"), "kept");
}

TYPED_TEST(Demodulation, FramesAreCounted) {
    EXPECT_EQ(this->mcBench.parameter("frames"), "{\"frames\":0}");
    for (int i = 0; i < 3; ++i)
        this->mcBench.process(roughSignal(1000), 10000.0f);
    EXPECT_EQ(this->mcBench.parameter("frames"), "{\"frames\":3}");
    ASSERT_TRUE(this->mcBench.set("{\"OutputSampleRate\":5000.0}"));
    for (int i = 0; i < 5; ++i)
        this->mcBench.process(roughSignal(1000), 10000.0f);
    EXPECT_EQ(this->mcBench.listener().count(), 5u);
    EXPECT_EQ(this->mcBench.parameter("frames"), "{\"frames\":5}") << "two blocks of 1024 at half the rate";
}

TYPED_TEST(Demodulation, AnOutputRateBelow4000IsRefusedAnd4000Taken) {
    EXPECT_FALSE(this->mcBench.set("{\"OutputSampleRate\":3999}"));
    EXPECT_EQ(this->mcBench.mlErrors, ErrorList{"Output sample rate 3.9990e+03 is out of range"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-81});
    EXPECT_EQ(this->detail(), "Output sample rate 3.9990e+03 is out of range");
    EXPECT_EQ(this->mcBench.parameter("OutputSampleRate"), "{}");
    EXPECT_TRUE(this->mcBench.set("{\"OutputSampleRate\":4000}"));
    EXPECT_EQ(this->mcBench.mlErrors, ErrorList{});
    EXPECT_EQ(this->mcBench.parameter("OutputSampleRate"), "{\"OutputSampleRate\":4000.000000}");
}

TYPED_TEST(Demodulation, AnOutputRateAboveAMegahertzIsRefusedAndTheOldOneStays) {
    EXPECT_TRUE(this->mcBench.set("{\"OutputSampleRate\":1000000}"));
    EXPECT_FALSE(this->mcBench.set("{\"OutputSampleRate\":1000001}"));
    EXPECT_EQ(this->mcBench.mlErrors, ErrorList{"Output sample rate 1.0000e+06 is out of range"});
    EXPECT_EQ(this->mcBench.parameter("OutputSampleRate"), "{\"OutputSampleRate\":1000000.000000}");
    utils::VariantRecord cNoNumber;
    cNoNumber.set("OutputSampleRate", std::numeric_limits<float>::quiet_NaN());
    this->mcBench.mlErrors.clear();
    EXPECT_FALSE(this->mcBench->setSinkParameters(cNoNumber, this->mcBench.mlErrors, false));
    EXPECT_EQ(this->mcBench.mlErrors.size(), 1u);
    EXPECT_EQ(this->mcBench.parameter("OutputSampleRate"), "{\"OutputSampleRate\":1000000.000000}");
}

TYPED_TEST(Demodulation, AnOutputRateIsShownOnceThereIsOne) {
    EXPECT_EQ(this->mcBench.parameter("OutputSampleRate"), "{}");
    EXPECT_TRUE(this->mcBench.set("{\"OutputSampleRate\":44100}"));
    EXPECT_EQ(this->mcBench.parameter("OutputSampleRate"), "{\"OutputSampleRate\":44100.000000}");
}

TYPED_TEST(Demodulation, AnOutputRateThatIsATextIsUnknown) {
    EXPECT_FALSE(this->mcBench.set("{\"OutputSampleRate\":\"fast\"}"));
    EXPECT_EQ(this->mcBench.mlErrors,
              ErrorList{"Attempted to integrate unknown parameter 'OutputSampleRate'"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-33});
}

TYPED_TEST(Demodulation, BufferParametersAreThoseOfEverySink) {
    EXPECT_TRUE(this->mcBench.set("{\"bufferFrames\":77,\"OutputSampleRate\":8000}"));
    EXPECT_EQ(this->mcBench.parameter("bufferFrames"), "{\"bufferFrames\":77}");
    EXPECT_FALSE(this->mcBench.set("{\"bufferFrames\":0}"));
    EXPECT_EQ(statuses(), std::vector<int32_t>{-51});
}

TYPED_TEST(Demodulation, OnlySinksOfBasebandAreAdmitted) {
    auto& cBench = this->mcBench;
    ErrorList lErrors;
    EXPECT_FALSE(cBench->attachFrameSink(makeReference<IQFrameSink>(), lErrors));
    EXPECT_FALSE(cBench->attachFrameSink(makeReference<SpectrumFrameSink>(), lErrors));
    EXPECT_FALSE(cBench->attachFrameSink(makeReference<TypeParam>(), lErrors));
    const std::string refusal = "Attempted to attach a non-baseband sink to a baseband-only processor";
    EXPECT_EQ(lErrors, (ErrorList{refusal, refusal, refusal}));
    EXPECT_EQ(cBench->sinkCount(), 1u);
    EXPECT_TRUE(cBench->attachFrameSink(makeReference<BasebandFrameSink>(), lErrors));
    EXPECT_EQ(cBench->sinkCount(), 2u);
    EXPECT_FALSE(cBench->attachFrameSink(nullptr, lErrors));
    EXPECT_EQ(lErrors.back(), "::attachFrameSink with cNewSink==nullptr");
}

TYPED_TEST(Demodulation, OnlyFramesOfIQAndTheEndAreTaken) {
    auto& cBench = this->mcBench;
    const auto cOther = makeReference<BasebandFrame>(uint64_t{0}, uint32_t{kNanoseconds}, 1e3f, 1e3f);
    EXPECT_TRUE(cBench->acceptsFrame(frameOf(roughSignal(100), 1e3f, 0)));
    EXPECT_TRUE(cBench->acceptsFrame(nullptr));
    EXPECT_FALSE(cBench->acceptsFrame(cOther));
    cBench->processFrame(cOther);
    EXPECT_EQ(cBench.listener().count(), 0u) << "dropped without a word";
    EXPECT_EQ(takeLog(), std::vector<LogLine>{});
    EXPECT_EQ(cBench->outputKind(), OutputKind::kBaseband);
}

TYPED_TEST(Demodulation, ResampledBlocksHaveNumbersOfTheirOwnAndTimesWithoutGaps) {
    auto& cBench = this->mcBench;
    ASSERT_TRUE(cBench.set("{\"OutputSampleRate\":8000}"));
    cBench.process(roughSignal(20000), 32000.0f, 500);
    const auto lFrames = cBench.listener().frames();
    ASSERT_EQ(lFrames.size(), 4u) << "all blocks that are ready after one frame";
    for (uint32_t i = 0; i < lFrames.size(); ++i) {
        EXPECT_EQ(lFrames[i]->sequence(), i);
        EXPECT_EQ(lFrames[i]->timestamp(), 1'600'000'000'000'000'500u + i * 128'000'000u);
        EXPECT_EQ(lFrames[i]->samplesPerChannel(), 1024u);
        EXPECT_EQ(lFrames[i]->sampleRate(), 8000.0f);
        EXPECT_EQ(lFrames[i]->usableBandwidth(), 3200.0f);
        EXPECT_EQ(lFrames[i]->bandwidth(), 200e3f) << "of the frame that it comes from";
    }
}

TYPED_TEST(Demodulation, TooLittleForABlockGivesNone) {
    auto& cBench = this->mcBench;
    ASSERT_TRUE(cBench.set("{\"OutputSampleRate\":8000}"));
    for (int i = 0; i < 4; ++i)
        cBench.process(roughSignal(1000), 32000.0f);
    EXPECT_EQ(cBench.listener().count(), 0u);
    EXPECT_EQ(cBench.parameter("frames"), "{\"frames\":0}");
    cBench.process(roughSignal(1000), 32000.0f);
    EXPECT_EQ(cBench.listener().count(), 1u);
}

TYPED_TEST(Demodulation, AChangeOfTheInputRateDropsWhatIsPending) {
    auto& cBench = this->mcBench;
    ASSERT_TRUE(cBench.set("{\"OutputSampleRate\":8000}"));
    cBench.process(roughSignal(4000), 32000.0f);
    cBench.process(roughSignal(2000), 16000.0f);
    EXPECT_EQ(cBench.listener().count(), 0u) << "1000 and 1000 values would have been enough";
    cBench.process(roughSignal(100), 16000.0f);
    EXPECT_EQ(cBench.listener().count(), 1u);
}

TYPED_TEST(Demodulation, ANewOutputRateTakesOverWithTheNextFrame) {
    auto& cBench = this->mcBench;
    cBench.process(roughSignal(3000), 32000.0f);
    ASSERT_TRUE(cBench.set("{\"OutputSampleRate\":16000}"));
    cBench.process(roughSignal(3000), 32000.0f);
    ASSERT_TRUE(cBench.set("{\"OutputSampleRate\":8000}"));
    cBench.process(roughSignal(5000), 32000.0f);
    const auto lFrames = cBench.listener().frames();
    ASSERT_EQ(lFrames.size(), 3u);
    EXPECT_EQ(lFrames[0]->sampleRate(), 32000.0f);
    EXPECT_EQ(lFrames[1]->sampleRate(), 16000.0f);
    EXPECT_EQ(lFrames[2]->sampleRate(), 8000.0f);
    EXPECT_EQ(lFrames[2]->sequence(), 0u);
}

TYPED_TEST(Demodulation, AnOutputRateAtOrAboveTheInputsEndsTheThreadAndADetachStillWorks) {
    for (const float fInputRate : {8000.0f, 4000.0f}) {
        Running<TypeParam> cRunning;
        ASSERT_TRUE(cRunning.set("{\"OutputSampleRate\":8000}"));
        cRunning.deliver(frameOf(roughSignal(2000), fInputRate, 0));
        EXPECT_TRUE(cRunning.hasFailed());
        EXPECT_EQ(cRunning.mcListener->count(), 0u);
        EXPECT_TRUE(cRunning.detach());
        // With a rate that it can give it works again.
        ASSERT_TRUE(cRunning.set("{\"OutputSampleRate\":4000}"));
        cRunning.attach();
        cRunning.deliver(frameOf(roughSignal(4000), 12000.0f, 1));
        EXPECT_TRUE(waitUntil([&] { return cRunning.mcListener->count() == 1; }));
        EXPECT_TRUE(cRunning.detach());
    }
}

TYPED_TEST(Demodulation, AnOutputRateAtOrAboveTheInputsInMidStreamEndsTheThreadUntilTheNextAttachment) {
    for (const float fInputRate : {8000.0f, 4000.0f}) {
        Running<TypeParam> cRunning;
        ASSERT_TRUE(cRunning.set("{\"OutputSampleRate\":8000}"));
        // Half a block more than two: the change comes with a block begun.
        cRunning.deliver(frameOf(roughSignal(5120), 16000.0f, 0));
        ASSERT_TRUE(waitUntil([&] { return cRunning.mcListener->count() == 2; }));
        cRunning.deliver(frameOf(roughSignal(2000), fInputRate, 1));
        EXPECT_TRUE(cRunning.hasFailed());
        EXPECT_EQ(cRunning.mcListener->count(), 2u);
        EXPECT_TRUE(cRunning.detach());
        cRunning.attach();
        cRunning.deliver(frameOf(roughSignal(2100), 16000.0f, 2));
        EXPECT_TRUE(waitUntil([&] { return cRunning.mcListener->count() == 3; }));
        EXPECT_TRUE(cRunning.detach());
        EXPECT_EQ(takeLog(), std::vector<LogLine>{});
    }
}

TYPED_TEST(Demodulation, ResamplingARateThatIsNoneEndsTheThreadOrGivesNothing) {
    for (const float fRate : {std::numeric_limits<float>::quiet_NaN(), -8000.0f, 0.0f, 1e30f,
                              std::numeric_limits<float>::infinity()}) {
        Bench<TypeParam> cBench;
        ASSERT_TRUE(cBench.set("{\"OutputSampleRate\":8000}"));
        try {
            for (int i = 0; i < 5; ++i)
                cBench.process(roughSignal(2000), fRate);
        } catch (const utils::FatalError&) {
        }
        EXPECT_EQ(cBench.listener().count(), 0u) << fRate;
    }
}

TYPED_TEST(Demodulation, TheEndOfTheStreamGoesOn) {
    Running<TypeParam> cRunning;
    cRunning.deliver(frameOf(roughSignal(100), 8000.0f, 0));
    cRunning.mcSource->mbExhausted = true;
    cRunning.deliver(nullptr);
    EXPECT_TRUE(waitUntil([&] { return cRunning.mcListener->ends() == 1; }));
    EXPECT_EQ(cRunning.mcListener->count(), 1u);
}

TYPED_TEST(Demodulation, AFrameIsCountedOnceItHasBeenDelivered) {
    Running<TypeParam> cRunning;
    const auto frames = [&] {
        utils::VariantRecord cRecord = cRunning.mcDemodulator->getParameters();
        cRecord.keep({"frames"});
        return cRecord.toCompactText();
    };
    const auto cHolder = makeReference<Holder>();
    ASSERT_TRUE(cRunning.mcDemodulator->attachFrameSink(cHolder, cRunning.mlErrors));
    cRunning.deliver(frameOf(roughSignal(100), 8000.0f, 0));
    cHolder->mcReached.get_future().wait();
    EXPECT_EQ(frames(), "{\"frames\":0}");
    cHolder->mcGo.set_value();
    EXPECT_TRUE(waitUntil([&] { return frames() == "{\"frames\":1}"; }));
}

TYPED_TEST(Demodulation, AChangeOfParametersDoesNotWaitForADelivery) {
    Running<TypeParam> cRunning;
    const auto cHolder = makeReference<Holder>();
    ASSERT_TRUE(cRunning.mcDemodulator->attachFrameSink(cHolder, cRunning.mlErrors));
    cRunning.deliver(frameOf(roughSignal(100), 8000.0f, 0));
    cHolder->mcReached.get_future().wait();
    auto cChange = std::async(std::launch::async, [&] {
        cRunning.mcDemodulator->getParameters();
        return cRunning.set("{\"OutputSampleRate\":4000}");
    });
    EXPECT_EQ(cChange.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    cHolder->mcGo.set_value();
    EXPECT_TRUE(cChange.get());
}

TYPED_TEST(Demodulation, ParametersChangeAHundredThousandTimesWhileItRuns) {
    Running<TypeParam> cRunning;
    cRunning.mcDemodulator->setAllowDiscarding(true);
    std::atomic<bool> bDone{false};
    std::thread cProducer([&] {
        const Samples lSamples = roughSignal(300);
        for (uint32_t i = 0; !bDone; ++i)
            cRunning.deliver(frameOf(lSamples, 48000.0f, i));
    });
    std::thread cReader([&] {
        while (!bDone)
            EXPECT_FALSE(cRunning.mcDemodulator->getParameters().empty());
    });
    for (uint32_t i = 0; i < 100000; ++i) {
        utils::VariantRecord cRecord;
        if (std::is_same_v<TypeParam, AMDemodulator> && i % 2 == 0)
            cRecord.set("type", i % 3 == 0 ? "USB" : i % 3 == 1 ? "lsb" : "DSB");
        else
            cRecord.set("OutputSampleRate", 4000.0f + static_cast<float>(i % 40000));
        ErrorList lErrors;
        ASSERT_TRUE(cRunning.mcDemodulator->setSinkParameters(cRecord, lErrors, false));
    }
    EXPECT_TRUE(waitUntil([&] { return cRunning.mcListener->count() > 0; }));
    bDone = true;
    cProducer.join();
    cReader.join();
    EXPECT_TRUE(cRunning.detach());
    for (const LogLine& cLine : takeLog())
        EXPECT_EQ(cLine.miCode, -3003) << cLine.mcText;
}
