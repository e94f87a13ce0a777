// What a family may have otherwise than the first one.
#include <gmock/gmock.h>

#include "unit/receivers/plainengine.h"
#include "unit/receivers/plainsweepengine.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

SweepEngineWords catchingUp() {
    SweepEngineWords cWords = vnktest::kSweepWords;
    cWords.mbCatchesUp = true;
    return cWords;
}

class CatchingUp : public vnktest::SweepEngineFixture {
 protected:
    CatchingUp() { make(catchingUp()); }
    /// The frames of one turn after another until no blocks are left.
    std::vector<std::vector<float>> framesOfAll() {
        std::vector<std::vector<float>> lFrames;
        while (mcEngine->queuedBlocks() > 0)
            EXPECT_TRUE(mcEngine->process());
        for (std::vector<float> lBins = nextBins(); !lBins.empty(); lBins = nextBins())
            lFrames.push_back(lBins);
        return lFrames;
    }
};

class EdgesOnly : public vnktest::SweepEngineFixture {
 protected:
    /// Whether a running sweep is planned anew for this.
    template <typename T>
    bool restarts(const char* pKey, T value) {
        SweepEngineWords cWords = vnktest::kSweepWords;
        cWords.mbFollowsEdgesOnly = true;
        make(cWords);
        startAndForget();
        set(pKey, value);
        const bool bStopped = !mcSCPI->take().empty();
        EXPECT_EQ(mcEngine->runsContinuously(), true) << "what is planned anew is taken up by the next turn";
        startAndForget();
        EXPECT_EQ(mcEngine->mlRequests.size(), bStopped ? 2u : 1u) << pKey;
        return bStopped;
    }
};

class WithoutAdaption : public vnktest::IQEngineFixture {
 protected:
    WithoutAdaption() {
        IQEngineWords cWords = vnktest::kWords;
        cWords.mbAdaptsStep = false;
        mcEngine = makeReference<vnktest::PlainEngine>(mcContext, mcStream, cWords);
        mcEngine->takeInStream();
    }
};

}  // namespace

// A consumer that is behind.

TEST_F(CatchingUp, OfTwoSweepsTheOlderOneIsLeftOut) {
    startAndForget();
    sweep(0);
    sweep(10);
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(10, -30, 11, -30, 12)));
}

TEST_F(CatchingUp, AConsumerThatIsBehindByLessGetsEverySweep) {
    startAndForget();
    sweep(0);
    EXPECT_TRUE(mcEngine->process());
    sweep(10);
    packet(0, 20);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(0, -30, 1, -30, 2));
    // Behind the first block there are three more, no more than a sweep has.
    EXPECT_THAT(nextBins(), ElementsAre(10, -30, 11, -30, 12));
}

TEST_F(CatchingUp, OneBlockMoreThanThatIsASweepTooMany) {
    startAndForget();
    sweep(0);
    packet(0, 10);
    packet(1, 11);
    EXPECT_THAT(framesOfAll(), IsEmpty());
    packet(2, 12);
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(10, -30, 11, -30, 12)));
}

TEST_F(CatchingUp, ASweepThatHasBegunGoesWithThoseThatAreLeftOut) {
    startAndForget();
    packet(0, 0);
    packet(1, 1);
    EXPECT_THAT(framesOfAll(), IsEmpty());
    // Its last block has been lost.
    sweep(10);
    sweep(20);
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(20, -30, 21, -30, 22)));
}

TEST_F(CatchingUp, ABlockInTheMiddleOfASweepLeavesNothingOut) {
    startAndForget();
    packet(0, 0);
    EXPECT_THAT(framesOfAll(), IsEmpty());
    packet(1, 1);
    packet(2, 2);
    sweep(10);
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(0, -30, 1, -30, 2), ElementsAre(10, -30, 11, -30, 12)));
}

TEST_F(CatchingUp, WithoutAFurtherFirstBlockAllGoesAndTheNextSweepIsWhole) {
    startAndForget();
    packet(0, 0);
    for (int i = 0; i < 4; ++i)
        packet(1, 1);
    EXPECT_EQ(mcEngine->queuedBlocks(), 5u);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
    packet(2, 2);   // of the sweep that was left out
    sweep(10);
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(10, -30, 11, -30, 12)));
}

TEST_F(CatchingUp, OfASingleStepTheNextButOneIsTaken) {
    mcEngine->muSteps = 1;
    startAndForget();
    packet(0, 0);
    packet(0, 10);
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(0), ElementsAre(10)));
    packet(0, 20);
    packet(0, 30);
    packet(0, 40);
    // The queue holds two by itself.
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(30), ElementsAre(40)));
}

TEST_F(CatchingUp, HoweverFarBehindEveryFrameIsOfOneSweep) {
    startAndForget();
    for (const int iRound : {4, 5, 7, 8, 10}) {
        for (int i = 0; i < iRound; ++i)
            packet(static_cast<uint32_t>(i % 3), static_cast<float>(10 * (i / 3) + i % 3));
        for (const std::vector<float>& lBins : framesOfAll()) {
            ASSERT_EQ(lBins.size(), 5u) << iRound;
            EXPECT_EQ(lBins[2], lBins[0] + 1) << iRound;
            EXPECT_EQ(lBins[4], lBins[0] + 2) << iRound;
        }
    }
}

TEST_F(CatchingUp, OtherFamiliesGetTheOlderSweepToo) {
    make();
    startAndForget();
    sweep(0);
    sweep(10);
    EXPECT_THAT(framesOfAll(), ElementsAre(ElementsAre(0, -30, 1, -30, 2), ElementsAre(10, -30, 11, -30, 12)));
}

// What a change of the parameters restarts.

TEST_F(EdgesOnly, LevelWindowAndFlowControlRestartNothing) {
    EXPECT_FALSE(restarts("RefdBm", -10.0f));
    EXPECT_FALSE(restarts("WindowFn", std::string("hann")));
    EXPECT_FALSE(restarts("flowControl", true));
}

TEST_F(EdgesOnly, ANewSpanOrResolutionDoes) {
    EXPECT_TRUE(restarts("FMinHz", 1.1e6f));
    EXPECT_TRUE(restarts("FMaxHz", 2.1e6f));
    EXPECT_TRUE(restarts("RBWHz", 105.14f));
    EXPECT_TRUE(restarts("RBWHz", 95.11f));
}

TEST_F(EdgesOnly, AResolutionThatIsNearlyMetDoesNot) {
    EXPECT_FALSE(restarts("RBWHz", 105.12f));
    EXPECT_FALSE(restarts("RBWHz", 95.13f));
}

// The level between captures.

TEST_F(WithoutAdaption, TheLevelStaysHoweverStrongTheSignal) {
    set("adaptStep", true);
    set("RefdBm", -40.0f);
    for (const float fLevel : {-5.0f, -50.0f}) {
        startAndForget();
        mcEngine->takeRestart();
        mcEngine->packet(100, fLevel);
        mcEngine->stop(false);
        EXPECT_EQ(number("RefdBm"), -40.0f) << fLevel;
        EXPECT_FALSE(mcEngine->takeRestart()) << fLevel;
    }
}
