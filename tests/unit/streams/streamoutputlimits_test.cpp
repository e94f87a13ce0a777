#include "unit/streams/streamoutputsupport.h"

using vnktest::Gate;
using vnktest::OutputPtr;
using vnktest::sequences;
using vnktest::smallIQ;
using vnktest::WatchedFrame;

// The limit of what waits.

class StreamOutputLimitTest : public vnktest::StreamOutputFileTest {
 protected:
    static constexpr uint64_t kLimit = 104857600;

    /// A recording whose writer is held up in a first frame of the size given.
    void SetUp() override {
        vnktest::StreamOutputFileTest::SetUp();
        mcHeldFate.mpGate = &mcGate;
        mcFile = record();
    }
    void hold(uint64_t uBytes) {
        mcHeldFate.muBytes = uBytes;
        ASSERT_TRUE(mcFile->addFrame(makeReference<WatchedFrame>(0u, mcHeldFate)));
        ASSERT_TRUE(mcGate.waitReached());
    }
    void add(uint32_t uSequence, uint64_t uBytes) {
        mcFate.muBytes = uBytes;
        ASSERT_TRUE(mcFile->addFrame(makeReference<WatchedFrame>(uSequence, mcFate)));
    }
    std::vector<int64_t> end() {
        mcGate.open();
        mcFile = nullptr;
        EXPECT_FALSE(mcHeldFate.mbFreedWhileWritten);
        EXPECT_FALSE(mcFate.mbFreedWhileWritten);
        return sequences(data());
    }

    Gate mcGate;
    WatchedFrame::Fate mcHeldFate;
    WatchedFrame::Fate mcFate;
    OutputPtr mcFile;
};

TEST_F(StreamOutputLimitTest, NewestFramesStayWhereTheirSizeTimesTheirNumberFits) {
    // Four of a quarter of the limit fit, the one being written among them.
    hold(kLimit / 4);
    for (uint32_t i = 1; i <= 10; ++i)
        add(i, kLimit / 4);
    EXPECT_EQ(mcFate.muFreed, 6u);
    EXPECT_EQ(end(), (std::vector<int64_t>{0, 7, 8, 9, 10}));
    EXPECT_EQ(mcFate.muWritten, 4u);
    EXPECT_EQ(mcHeldFate.muWritten, 1u) << "once, though it had left the list";
}

TEST_F(StreamOutputLimitTest, FrameThatIsWrittenCountsAgainstTheLimit) {
    hold(kLimit / 4);
    for (uint32_t i = 1; i <= 3; ++i)
        add(i, kLimit / 4);
    EXPECT_EQ(mcFate.muFreed, 0u);
    add(4, kLimit / 4);  // the fifth: the oldest, which is being written, leaves the list
    EXPECT_EQ(mcFate.muFreed, 0u);
    EXPECT_EQ(mcHeldFate.muFreed, 0u) << "the writer still has it";
    EXPECT_EQ(end(), (std::vector<int64_t>{0, 1, 2, 3, 4}));
}

TEST_F(StreamOutputLimitTest, ExactlyTheLimitFitsAndOneByteMoreDoesNot) {
    hold(kLimit / 2);
    add(1, kLimit / 2);
    EXPECT_EQ(mcFate.muFreed, 0u);
    add(2, kLimit / 2 + 1);  // three, then two of more than half: only itself is left
    EXPECT_EQ(mcFate.muFreed, 1u);
    EXPECT_EQ(end(), (std::vector<int64_t>{0, 2}));
}

TEST_F(StreamOutputLimitTest, SizeOfTheNewestCountsAndNotTheSum) {
    hold(1);
    for (uint32_t i = 1; i <= 20; ++i)
        add(i, 1);
    add(21, kLimit / 2);  // small ones make room for two of this size: itself and its neighbour
    EXPECT_EQ(mcFate.muFreed, 19u);
    add(22, 1);  // a small one again: nobody has to go, whatever the others hold
    EXPECT_EQ(mcFate.muFreed, 19u);
    EXPECT_EQ(end(), (std::vector<int64_t>{0, 20, 21, 22}));
}

TEST_F(StreamOutputLimitTest, FrameAboveTheLimitEmptiesTheListUnderTheWriter) {
    hold(1000);
    for (uint32_t i = 1; i <= 3; ++i)
        add(i, 1000);
    add(4, kLimit + 1);
    EXPECT_EQ(mcFate.muFreed, 4u) << "itself too";
    EXPECT_EQ(mcHeldFate.muFreed, 0u);
    add(5, 1000);
    EXPECT_EQ(end(), (std::vector<int64_t>{0, 5}));
    EXPECT_EQ(mcHeldFate.muFreed, 1u);
}

TEST_F(StreamOutputLimitTest, FrameAboveTheLimitIsNotRecordedEvenAlone) {
    add(1, kLimit + 1);
    EXPECT_EQ(mcFate.muFreed, 1u);
    add(2, ~uint64_t{0});
    add(3, kLimit);
    EXPECT_EQ(end(), std::vector<int64_t>{3});
}

TEST_F(StreamOutputLimitTest, NoOtherFrameIsRemovedInPlaceOfOneThatWasDroppedWhileItWasWritten) {
    hold(kLimit / 2 + 1);
    add(1, kLimit / 2 + 1);  // drops the one that is being written
    EXPECT_EQ(mcFate.muFreed, 0u);
    EXPECT_EQ(end(), (std::vector<int64_t>{0, 1}));
    EXPECT_EQ(mcFate.muWritten, 1u);
}

TEST_F(StreamOutputLimitTest, SameFrameQueuedAgainIsNotTakenForTheOneThatWasDropped) {
    mcHeldFate.muBytes = kLimit / 2 + 1;
    const auto cFrame = makeReference<WatchedFrame>(9u, mcHeldFate);
    ASSERT_TRUE(mcFile->addFrame(cFrame));
    ASSERT_TRUE(mcGate.waitReached());
    ASSERT_TRUE(mcFile->addFrame(cFrame));  // the first place in the list goes, while it is being written
    EXPECT_EQ(cFrame->referenceCount(), 3u) << "ours, the writer's, and the list's";
    EXPECT_EQ(end(), (std::vector<int64_t>{9, 9}));
    EXPECT_EQ(mcHeldFate.muWritten, 2u);
    EXPECT_EQ(cFrame->referenceCount(), 1u);
}

TEST_F(StreamOutputLimitTest, SameFrameQueuedTwiceIsWrittenTwice) {
    const auto cFrame = smallIQ(4);
    mcFile->addFrame(cFrame);
    mcFile->addFrame(cFrame);
    mcFile->addFrame(smallIQ(5));
    EXPECT_EQ(end(), (std::vector<int64_t>{4, 4, 5}));
    EXPECT_EQ(cFrame->referenceCount(), 1u);
}

TEST_F(StreamOutputLimitTest, DropsWhileFramesFlowNeverWriteOneTwiceNorOutOfOrder) {
    mcGate.open();
    mcFate.muBytes = kLimit / 3;
    constexpr uint32_t kFrames = 20000;
    for (uint32_t i = 0; i < kFrames; ++i)
        mcFile->addFrame(makeReference<WatchedFrame>(i, mcFate));
    const std::vector<int64_t> lSequences = end();
    EXPECT_EQ(mcFate.muFreed, kFrames);
    ASSERT_EQ(lSequences.size(), mcFate.muWritten);
    for (size_t i = 1; i < lSequences.size(); ++i)
        ASSERT_LT(lSequences[i - 1], lSequences[i]);
    ASSERT_FALSE(lSequences.empty());
    EXPECT_EQ(lSequences.back(), kFrames - 1) << "the newest stays";
}
