#include "flows/framesource.h"

#include "unit/flows/flowsupport.h"

using vnktest::CountedSource;
using vnktest::drain;
using vnktest::iqFrame;
using vnktest::logged;

namespace {

// Takes frames of even sequence only, and the end of a stream.
class EvenSink : public FrameSink {
 public:
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override {
        return cFrame == nullptr || cFrame->sequence() % 2 == 0;
    }
};

// A sink and a source in one, as a processor is.
class Stage : public FrameSink, public FrameSource {
 public:
    Stage() : FrameSource("Stage") {}
    bool isExhausted() override { return FrameSink::isExhausted(); }
    bool askSourceSide() { return FrameSource::isExhausted(); }
};

}  // namespace

class FrameSourceTest : public vnktest::FlowTest {
 protected:
    bool attach(const ReferencePtr<FrameSink>& cSink) { return mcSource->attachFrameSink(cSink, mlErrors); }
    ReferencePtr<FrameSink> mcSink = makeReference<FrameSink>();
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
};

TEST_F(FrameSourceTest, NullSinkIsRefused) {
    EXPECT_FALSE(attach(nullptr));
    EXPECT_EQ(mlErrors, ErrorList{"::attachFrameSink with cNewSink==nullptr"});
}

TEST_F(FrameSourceTest, SecondAttachIsRefusedAndLeavesTheSinkAlone) {
    EXPECT_TRUE(attach(mcSink));
    EXPECT_FALSE(attach(mcSink));
    EXPECT_EQ(mlErrors, ErrorList{"Attempting to re-attach previously-attached FrameSink"});
    EXPECT_EQ(mcSource->sinkCount(), 1u);
    EXPECT_EQ(mcSink->sourcePointer(), mcSource.get());
}

TEST_F(FrameSourceTest, RemoveTellsWhetherTheSinkWasInTheList) {
    EXPECT_FALSE(mcSource->removeFrameSink(mcSink));
    EXPECT_TRUE(attach(mcSink));
    EXPECT_TRUE(mcSource->removeFrameSink(mcSink));
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_FALSE(mcSource->removeFrameSink(mcSink));
    EXPECT_EQ(logged(1000), std::vector<std::string>(3, "FrameSource::removeFrameSink"));
    EXPECT_TRUE(attach(mcSink));
}

TEST_F(FrameSourceTest, RemoveOfNothingLetsAllGo) {
    auto cOther = makeReference<FrameSink>();
    EXPECT_TRUE(attach(mcSink));
    EXPECT_TRUE(attach(cOther));
    EXPECT_TRUE(mcSource->removeFrameSink(nullptr));
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_FALSE(cOther->isAttached());
    EXPECT_FALSE(mcSource->removeFrameSink(nullptr));
}

TEST_F(FrameSourceTest, RemoveLeavesASinkOfAnotherSourceAttached) {
    auto cOther = makeReference<CountedSource>();
    EXPECT_TRUE(attach(mcSink));
    EXPECT_FALSE(cOther->removeFrameSink(mcSink));
    EXPECT_EQ(mcSink->sourcePointer(), mcSource.get());
}

TEST_F(FrameSourceTest, EndOfTheSourceLetsAllSinksGoWithOneTraceLine) {
    EXPECT_TRUE(attach(mcSink));
    mcSource = nullptr;
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_EQ(logged(1000), std::vector<std::string>{"FrameSource::removeFrameSink"});
    EXPECT_EQ(mcSink->referenceCount(), 1u);
}

TEST_F(FrameSourceTest, UncountedSourceLetsItsSinksGoToo) {
    {
        FrameSource cPlain("Plain");
        EXPECT_TRUE(cPlain.attachFrameSink(mcSink, mlErrors));
        EXPECT_EQ(cPlain.sourceName(), "Plain");
        EXPECT_FALSE(mcSink->isSourceExhausted());
    }
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_TRUE(mcSink->isSourceExhausted());
}

TEST_F(FrameSourceTest, SinksShareOneFrame) {
    auto cOther = makeReference<FrameSink>();
    EXPECT_TRUE(attach(mcSink));
    EXPECT_TRUE(attach(cOther));
    const auto cFrame = iqFrame(1);
    EXPECT_TRUE(mcSource->deliverFrame(cFrame, false));
    EXPECT_EQ(mcSink->nextFrame(0, false).get(), cFrame.get());
    EXPECT_EQ(cOther->nextFrame(0, false).get(), cFrame.get());
}

TEST_F(FrameSourceTest, SinkThatDoesNotAcceptIsSkippedExceptForTheEnd) {
    auto cEven = makeReference<EvenSink>();
    EXPECT_TRUE(attach(cEven));
    mcSource->deliverFrame(iqFrame(1), false);
    mcSource->deliverFrame(iqFrame(2), false);
    EXPECT_EQ(drain(*cEven), std::vector<uint32_t>{2});
    mcSource->deliverFrame(nullptr, true);
    EXPECT_EQ(cEven->nextFrame(0, false), nullptr);
    EXPECT_TRUE(cEven->isExhausted());
}

TEST_F(FrameSourceTest, LastFrameLetsEverySinkGoAlsoOneThatSkipsIt) {
    auto cEven = makeReference<EvenSink>();
    EXPECT_TRUE(attach(mcSink));
    EXPECT_TRUE(attach(cEven));
    mcSource->deliverFrame(iqFrame(1), true);
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    EXPECT_FALSE(mcSink->isAttached());
    EXPECT_FALSE(cEven->isAttached());
    EXPECT_EQ(drain(*mcSink), std::vector<uint32_t>{1});
    EXPECT_TRUE(drain(*cEven).empty());
}

TEST_F(FrameSourceTest, JumpOfAnySizeIsOneGap) {
    for (const uint32_t uSequence : {5u, 6u, 8u, 9u, 100000u, 3u})
        mcSource->deliverFrame(iqFrame(uSequence), false);
    EXPECT_EQ(mcSource->gapCount(), 3u);
}

TEST_F(FrameSourceTest, ZeroFollowsBothOfTheLastSequences) {
    for (const uint32_t uSequence : {0xFFFFFFFDu, 0xFFFFFFFEu, 0u, 1u})
        mcSource->deliverFrame(iqFrame(uSequence), false);
    EXPECT_EQ(mcSource->gapCount(), 0u);
    mcSource->deliverFrame(iqFrame(0xFFFFFFFFu), false);
    EXPECT_EQ(mcSource->gapCount(), 1u);
    mcSource->deliverFrame(iqFrame(0), false);
    EXPECT_EQ(mcSource->gapCount(), 1u);
    mcSource->deliverFrame(iqFrame(0xFFFFFFFEu), false);
    mcSource->deliverFrame(iqFrame(0xFFFFFFFFu), false);  // 0 was expected
    EXPECT_EQ(mcSource->gapCount(), 3u);
}

TEST_F(FrameSourceTest, EndOfAStreamDoesNotTouchTheSequence) {
    mcSource->deliverFrame(iqFrame(5), false);
    mcSource->deliverFrame(nullptr, false);
    mcSource->deliverFrame(iqFrame(6), false);
    EXPECT_EQ(mcSource->gapCount(), 0u);
}

TEST_F(FrameSourceTest, PlainSourceIsNeverExhausted) {
    FrameSource cPlain("Plain");
    EXPECT_TRUE(cPlain.attachFrameSink(mcSink, mlErrors));
    cPlain.deliverFrame(nullptr, false);
    EXPECT_EQ(mcSink->nextFrame(0, false), nullptr);
    EXPECT_FALSE(cPlain.isExhausted());
    EXPECT_FALSE(mcSink->isExhausted());
}

TEST_F(FrameSourceTest, SourceThatIsASinkIsExhaustedAsItsSinkIs) {
    auto cStage = makeReference<Stage>();
    EXPECT_FALSE(cStage->askSourceSide());
    cStage->receiveFrame(nullptr, false);
    cStage->nextFrame(0, false);
    EXPECT_TRUE(cStage->askSourceSide());
}

TEST_F(FrameSourceTest, SourceRefusesEveryChangeByDefault) {
    FrameSource cPlain("Plain");
    utils::VariantRecord cRecord;
    EXPECT_FALSE(cPlain.canImplement(mcSink, cRecord, mlErrors));
    EXPECT_EQ(mlErrors, ErrorList{"Default ::canImplement fails"});
}
