#include "receivers/blockgatherer.h"

#include <gmock/gmock.h>

#include <numeric>
#include <set>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using Outcome = BlockGatherer::Outcome;

namespace {

ReferencePtr<FloatArray> samples(uint32_t uCount, float fFirst) {
    auto cSamples = makeReference<FloatArray>(uCount);
    std::iota(cSamples->getData(), cSamples->getData() + uCount, fFirst);
    return cSamples;
}

std::vector<float> valuesOf(const SweepBlock& cBlock) {
    return {cBlock.mcSamples->getData(), cBlock.mcSamples->getData() + cBlock.mcSamples->getActive()};
}

/// Two values to a packet, three packets to a block, unless told otherwise.
class BlockGathererTest : public testing::Test {
 protected:
    BlockGathererTest() {
        mcGatherer.begin(2, 3, kPacketNs);
        mcGatherer.setFrequency(100);
    }
    BlockGatherer::Result take(float fFirst, uint64_t uTimeNs = 0, bool bInverted = false) {
        return mcGatherer.take({samples(2, fFirst), uTimeNs, 0, bInverted, mcGatherer.epoch()});
    }
    /// The packet of a unit that counts them; its place in the stream stands in its samples, and in its time.
    BlockGatherer::Result count(uint32_t uPlace) { return count(uPlace, uPlace); }
    BlockGatherer::Result count(uint32_t uPlace, uint32_t uCount) {
        return mcGatherer.take({samples(2, static_cast<float>(2 * uPlace)), uPlace * kPacketNs, uCount % 16, false,
                                mcGatherer.epoch()});
    }
    /// Packets from one place to before another, with a context before each block: where the blocks made of them
    /// begin. None may be of two blocks.
    std::vector<uint32_t> blocksOf(uint32_t uFrom, uint32_t uTo, const std::set<uint32_t>& lLost = {}) {
        std::vector<uint32_t> lBlocks;
        for (uint32_t i = uFrom; i < uTo; ++i) {
            if (i % 3 == 0)
                mcGatherer.setFrequency(100);
            if (!lLost.contains(i))
                addBlock(count(i), lBlocks);
        }
        return lBlocks;
    }
    static void addBlock(const BlockGatherer::Result& cResult, std::vector<uint32_t>& lBlocks) {
        if (!cResult.mcBlock)
            return;
        const std::vector<float> lValues = valuesOf(*cResult.mcBlock);
        const auto uFirst = static_cast<uint32_t>(lValues[0]);
        EXPECT_EQ(uFirst % 6, 0u) << "a block begins with its first packet";
        EXPECT_EQ(lValues, valuesOf({0, 0, 0, false, samples(6, lValues[0])})) << "of one block alone";
        lBlocks.push_back(uFirst / 2);
    }
    static constexpr uint64_t kPacketNs = 524032;
    BlockGatherer mcGatherer;
};

}  // namespace

TEST_F(BlockGathererTest, PacketsStandInTheBlockInOrder) {
    EXPECT_FALSE(take(1, 7).mcBlock);
    EXPECT_FALSE(take(3, 8).mcBlock);
    const auto cResult = take(5, 9);
    EXPECT_EQ(cResult.meOutcome, Outcome::kTaken);
    ASSERT_TRUE(cResult.mcBlock);
    EXPECT_THAT(valuesOf(*cResult.mcBlock), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(cResult.mcBlock->muTimeNs, 7u);  // of its first packet
    EXPECT_EQ(cResult.mcBlock->muFrequencyHz, 100u);
    EXPECT_EQ(cResult.mcBlock->mfReferenceLevel, -30.0f);
    EXPECT_FALSE(cResult.mcBlock->mbInverted);
    EXPECT_FALSE(take(7).mcBlock);  // the next one begins
}

TEST_F(BlockGathererTest, ABlockOfOnePacketIsThePacketsArray) {
    mcGatherer.begin(4, 1, 0);
    const auto cSamples = samples(4, 0);
    const auto cResult = mcGatherer.take({cSamples, 5, 0, true, mcGatherer.epoch()});
    ASSERT_TRUE(cResult.mcBlock);
    EXPECT_EQ(cResult.mcBlock->mcSamples.get(), cSamples.get());
    EXPECT_TRUE(cResult.mcBlock->mbInverted);
}

TEST_F(BlockGathererTest, ReferenceLevelAndInversionAreThoseOfTheLastPacket) {
    mcGatherer.setReferenceLevel(-20.0f);
    take(1, 0, true);
    take(3, 0, true);
    mcGatherer.setReferenceLevel(-10.0f);
    const auto cResult = take(5);
    ASSERT_TRUE(cResult.mcBlock);
    EXPECT_EQ(cResult.mcBlock->mfReferenceLevel, -10.0f);
    EXPECT_FALSE(cResult.mcBlock->mbInverted);
}

TEST_F(BlockGathererTest, WithoutAFrequencyNothingIsTaken) {
    BlockGatherer cFresh;
    cFresh.begin(2, 1, 0);
    EXPECT_FALSE(cFresh.knowsFrequency());
    for (int i = 0; i < 3; ++i) {
        const auto cResult = cFresh.take({samples(2, 0), 0, 0, false, cFresh.epoch()});
        EXPECT_EQ(cResult.meOutcome, Outcome::kOutOfPlace);
        EXPECT_FALSE(cResult.mcBlock);
    }
    cFresh.setFrequency(5);
    EXPECT_TRUE(cFresh.knowsFrequency());
    EXPECT_TRUE(cFresh.take({samples(2, 0), 0, 0, false, cFresh.epoch()}).mcBlock);
}

TEST_F(BlockGathererTest, TheFrequencyIsKnownOnAfterANewBeginning) {
    mcGatherer.begin(2, 1, 0);
    EXPECT_TRUE(take(1).mcBlock);
}

TEST_F(BlockGathererTest, APacketWithoutSamplesChangesNothing) {
    take(1);
    EXPECT_EQ(mcGatherer.take({nullptr, 0, 0, false, mcGatherer.epoch()}).meOutcome, Outcome::kEmpty);
    EXPECT_EQ(mcGatherer.take({samples(0, 0), 0, 0, false, mcGatherer.epoch()}).meOutcome, Outcome::kEmpty);
    take(3);
    EXPECT_TRUE(take(5).mcBlock);
}

TEST_F(BlockGathererTest, ABlockWithAPacketOfAnotherSizeIsNeverMadeAndTheNextContextBeginsAnew) {
    for (const uint32_t uSize : {1u, 3u, 2000u}) {
        mcGatherer.setFrequency(100);
        EXPECT_FALSE(take(1).mcBlock);
        EXPECT_EQ(mcGatherer.take({samples(uSize, 0), 0, 0, false, mcGatherer.epoch()}).meOutcome, Outcome::kWrongSize);
        for (int i = 0; i < 5; ++i) {
            const auto cResult = take(3);
            EXPECT_EQ(cResult.meOutcome, Outcome::kOutOfPlace);
            EXPECT_FALSE(cResult.mcBlock);
        }
        mcGatherer.setFrequency(110);
        EXPECT_FALSE(take(11).mcBlock);
        EXPECT_FALSE(take(13).mcBlock);
        const auto cResult = take(15);
        ASSERT_TRUE(cResult.mcBlock);
        EXPECT_THAT(valuesOf(*cResult.mcBlock), ElementsAre(11, 12, 13, 14, 15, 16));
        EXPECT_EQ(cResult.mcBlock->muFrequencyHz, 110u);
    }
}

TEST_F(BlockGathererTest, AfterAWrongSizeTheContextMayTellTheSameFrequency) {
    mcGatherer.take({samples(1, 0), 0, 0, false, mcGatherer.epoch()});
    mcGatherer.setFrequency(100);
    take(1);
    take(3);
    EXPECT_TRUE(take(5).mcBlock);
}

TEST_F(BlockGathererTest, WithOnePacketToABlockTheNextPacketIsTheNextBlock) {
    mcGatherer.begin(2, 1, 0);
    EXPECT_EQ(mcGatherer.take({samples(3, 0), 0, 0, false, mcGatherer.epoch()}).meOutcome, Outcome::kWrongSize);
    EXPECT_TRUE(take(1).mcBlock);
}

TEST_F(BlockGathererTest, NoBlockHoldsTwoTunings) {
    take(1);
    take(3);
    mcGatherer.setFrequency(110);  // a packet was lost
    EXPECT_FALSE(take(5, 50).mcBlock);
    EXPECT_FALSE(take(7).mcBlock);
    const auto cResult = take(9);
    ASSERT_TRUE(cResult.mcBlock);
    EXPECT_EQ(cResult.mcBlock->muFrequencyHz, 110u);
    EXPECT_EQ(cResult.mcBlock->muTimeNs, 50u);
    EXPECT_THAT(valuesOf(*cResult.mcBlock), ElementsAre(5, 6, 7, 8, 9, 10));
}

TEST_F(BlockGathererTest, AContextOfTheSameFrequencyInsideABlockLeavesItAlone) {
    take(1);
    mcGatherer.setFrequency(100);
    take(3);
    EXPECT_TRUE(take(5).mcBlock);
}

TEST_F(BlockGathererTest, ANewBeginningForgetsTheBlockAtHandAndASpoiltOne) {
    take(1);
    mcGatherer.begin(2, 2, 0);
    EXPECT_EQ(take(2).meOutcome, Outcome::kOutOfPlace) << "what may be the rest of the block at hand";
    mcGatherer.setFrequency(100);
    EXPECT_FALSE(take(3).mcBlock);
    EXPECT_THAT(valuesOf(take(5).mcBlock.value()), ElementsAre(3, 4, 5, 6));
    mcGatherer.take({samples(1, 0), 0, 0, false, mcGatherer.epoch()});
    mcGatherer.begin(2, 2, 0);
    mcGatherer.setFrequency(100);
    take(7);
    EXPECT_TRUE(take(9).mcBlock);
}

TEST_F(BlockGathererTest, APacketOfAnEarlierListIsOutOfPlace) {
    const uint32_t uEpoch = mcGatherer.epoch();
    mcGatherer.begin(2, 1, 0);
    EXPECT_EQ(mcGatherer.take({samples(2, 1), 0, 0, false, uEpoch}).meOutcome, Outcome::kOutOfPlace);
    const auto cResult = mcGatherer.take({samples(2, 1), 0, 0, false, mcGatherer.epoch()});
    ASSERT_TRUE(cResult.mcBlock);
    EXPECT_EQ(cResult.mcBlock->muEpoch, mcGatherer.epoch());
}

TEST_F(BlockGathererTest, ABlockThereIsNoMemoryForIsLostAsAWhole) {
    mcGatherer.begin(2, 0x7FFFFFFF, 0);   // more than an array holds
    EXPECT_THROW(take(1), std::bad_alloc);
    EXPECT_EQ(take(3).meOutcome, Outcome::kOutOfPlace) << "not the first of a block";
    mcGatherer.setFrequency(100);
    EXPECT_THROW(take(5), std::bad_alloc);
    mcGatherer.begin(2, 1, 0);
    mcGatherer.setFrequency(100);
    EXPECT_TRUE(take(7).mcBlock);
}

// Packets that are missing or come twice, while the tuning stays.

TEST_F(BlockGathererTest, ALostPacketCostsItsBlockAloneWhereverItStood) {
    EXPECT_THAT(blocksOf(0, 9), ElementsAre(0, 3, 6));
    for (uint32_t uLost = 9; uLost < 2000; uLost += 10) {
        const uint32_t uBlock = uLost / 3 * 3;
        const std::vector<uint32_t> lBlocks = blocksOf(uBlock, uBlock + 9, {uLost});
        EXPECT_THAT(lBlocks, ElementsAre(uBlock + 3, uBlock + 6)) << uLost;
        blocksOf(uBlock + 9, (uLost + 10) / 3 * 3);
    }
}

TEST_F(BlockGathererTest, AnyNumberOfLostPacketsMakesNoMixedBlockAndWholeOnesComeAgain) {
    uint32_t uPlace = 0;
    for (uint32_t uLost = 1; uLost < 70; ++uLost) {
        for (uint32_t uFrom = 0; uFrom < 3; ++uFrom) {
            EXPECT_THAT(blocksOf(uPlace, uPlace + 6), ElementsAre(uPlace, uPlace + 3));
            uPlace += 6;
            std::set<uint32_t> lLost;
            for (uint32_t i = 0; i < uLost; ++i)
                lLost.insert(uPlace + uFrom + i);
            const uint32_t uEnd = (uPlace + uFrom + uLost) / 3 * 3 + 3;
            blocksOf(uPlace, uEnd + 3, lLost);
            uPlace = uEnd + 3;
        }
    }
}

TEST_F(BlockGathererTest, WhatFollowsALossIsOutOfPlaceUntilTheNextContext) {
    blocksOf(0, 6);
    mcGatherer.setFrequency(100);
    count(6);
    EXPECT_EQ(count(8).meOutcome, Outcome::kOutOfPlace);
    for (uint32_t i = 9; i < 15; ++i)
        EXPECT_EQ(count(i).meOutcome, Outcome::kOutOfPlace) << "no context has come";
    EXPECT_THAT(blocksOf(15, 21), ElementsAre(15, 18));
}

TEST_F(BlockGathererTest, PacketsThatChangePlacesCostTheirBlocks) {
    std::vector<uint32_t> lBlocks = blocksOf(0, 6);
    const auto in = [&](const std::vector<uint32_t>& lOrder) {
        lBlocks.clear();
        for (const uint32_t i : lOrder) {
            if (i % 3 == 0)
                mcGatherer.setFrequency(100);
            addBlock(count(i), lBlocks);
        }
        return lBlocks;
    };
    EXPECT_THAT(in({7, 6, 8}), IsEmpty());
    EXPECT_THAT(blocksOf(9, 15), testing::Contains(12u));
    EXPECT_THAT(in({15, 17, 16}), IsEmpty());
    EXPECT_THAT(blocksOf(18, 24), testing::Contains(21u));
    EXPECT_THAT(in({24, 25, 27, 26, 28, 29}), IsEmpty());
    EXPECT_THAT(blocksOf(30, 36), testing::Contains(33u));
}

TEST_F(BlockGathererTest, APacketThatComesTwiceIsLeftOut) {
    blocksOf(0, 6);
    for (uint32_t uTwice = 6; uTwice < 100; ++uTwice) {
        if (uTwice % 3 == 0)
            mcGatherer.setFrequency(100);
        std::vector<uint32_t> lBlocks;
        addBlock(count(uTwice), lBlocks);
        EXPECT_EQ(count(uTwice).meOutcome, Outcome::kOutOfPlace);
        EXPECT_EQ(lBlocks.size(), uTwice % 3 == 2 ? 1u : 0u);
    }
}

TEST_F(BlockGathererTest, CountsAndTimesThatStandStillSayNothing) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(take(1).mcBlock);
        EXPECT_FALSE(take(3).mcBlock);
        EXPECT_TRUE(take(5).mcBlock);
    }
}

TEST_F(BlockGathererTest, ATimeThatStandsStillLeavesTheCountInForce) {
    const auto at = [&](uint32_t uCount) {
        return mcGatherer.take({samples(2, 0), 7, uCount % 16, false, mcGatherer.epoch()});
    };
    uint32_t uCount = 0;
    for (int i = 0; i < 10; ++i) {
        mcGatherer.setFrequency(100);
        EXPECT_FALSE(at(uCount++).mcBlock);
        EXPECT_FALSE(at(uCount++).mcBlock);
        EXPECT_TRUE(at(uCount++).mcBlock);
    }
    mcGatherer.setFrequency(100);
    at(uCount);
    EXPECT_EQ(at(uCount + 2).meOutcome, Outcome::kOutOfPlace);
}

TEST_F(BlockGathererTest, ACountThatBeginsAtEachBlockIsTolerated) {
    for (uint32_t i = 0; i < 30; ++i) {
        if (i % 3 == 0)
            mcGatherer.setFrequency(100);
        EXPECT_EQ(count(i, i % 3).mcBlock.has_value(), i % 3 == 2) << i;
    }
}

TEST_F(BlockGathererTest, ACountOfAllKindsOfPacketsIsTolerated) {
    uint32_t uCount = 0;
    for (uint32_t i = 0; i < 60; ++i) {
        if (i % 3 == 0) {
            mcGatherer.setFrequency(100);
            ++uCount;
        }
        if (i % 7 == 0) {   // at any place
            mcGatherer.setReferenceLevel(-20);
            ++uCount;
        }
        EXPECT_EQ(count(i, uCount++).mcBlock.has_value(), i % 3 == 2) << i;
    }
}

TEST_F(BlockGathererTest, TimesThatDoNotComeOfTheSamplesAreTolerated) {
    for (uint32_t i = 0; i < 60; ++i) {
        if (i % 3 == 0)
            mcGatherer.setFrequency(100);
        const uint64_t uTimeNs = i * kPacketNs + i * i * 90001 % 700000;
        const auto cResult = mcGatherer.take({samples(2, 0), uTimeNs, i % 16, false, mcGatherer.epoch()});
        EXPECT_EQ(cResult.mcBlock.has_value(), i % 3 == 2) << i;
    }
}

TEST_F(BlockGathererTest, ABlockThatWasLostWithItsContextLeavesTheNextOneAsItIs) {
    blocksOf(0, 6);
    // A unit that has not sent it has not counted it either.
    mcGatherer.setFrequency(100);
    EXPECT_FALSE(count(9, 6).mcBlock);
    EXPECT_FALSE(count(10, 7).mcBlock);
    EXPECT_TRUE(count(11, 8).mcBlock);
}

TEST_F(BlockGathererTest, ANewListMayCountFromAnewAndABlockCutShortIsNotJoinedWithIt) {
    blocksOf(0, 6);
    count(6);
    count(7);
    mcGatherer.setFrequency(100);
    mcGatherer.noteStart();
    std::vector<uint32_t> lBlocks;
    for (uint32_t i = 0; i < 3; ++i)
        addBlock(count(30 + i, i), lBlocks);
    EXPECT_THAT(lBlocks, ElementsAre(30));
    mcGatherer.setFrequency(100);
    mcGatherer.noteStart();
    for (uint32_t i = 0; i < 3; ++i)
        addBlock(count(60 + i, i), lBlocks);
    EXPECT_THAT(lBlocks, ElementsAre(30, 60));
}

TEST_F(BlockGathererTest, ALossAcrossAChangeOfTuningSparesTheBlockOfTheNewOne) {
    blocksOf(0, 6);
    mcGatherer.setFrequency(100);
    count(6);
    count(7);   // the third one is lost
    mcGatherer.setFrequency(110);
    std::vector<uint32_t> lBlocks;
    for (uint32_t i = 9; i < 12; ++i)
        addBlock(count(i), lBlocks);
    EXPECT_THAT(lBlocks, ElementsAre(9));
}

TEST_F(BlockGathererTest, BeginningsAgainstPacketsAreSafeAndBlocksStayWhole) {
    std::atomic<bool> bDone{false};
    std::thread cPackets([&] {
        for (int i = 0; i < 20000; ++i) {
            mcGatherer.setFrequency(100 + static_cast<uint64_t>(i / 3) % 4);
            const auto cResult = take(static_cast<float>(i));
            const uint32_t uSize = cResult.mcBlock ? cResult.mcBlock->mcSamples->getActive() : 4;
            EXPECT_TRUE(uSize == 4 || uSize == 6) << uSize;
        }
        bDone = true;
    });
    for (uint32_t i = 0; !bDone; ++i)
        mcGatherer.begin(2, 2 + i % 2, 0);
    cPackets.join();
}
