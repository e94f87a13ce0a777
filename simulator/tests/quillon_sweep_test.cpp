#include "simulator/tests/quillon.h"

namespace simtest {
namespace {

using vnksim::Scene;
using Places = std::vector<double>;

/// A block as it came: what its context told, and its packets.
struct Block {
    double hz = -1e6;
    std::vector<WirePacket> packets{};
};

/// Three steps of one entry, two packets to a block.
const std::string kList =
    ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;"
    ":sweep:entry:freq:step 98000000;:sweep:entry:freq:cent 118000000, 314000000;"
    ":sweep:entry:spp 8192;:sweep:entry:ppb 2;:sweep:entry:dec 1;:sweep:entry:save";

class QuillonSweep : public QuillonTest {
 protected:
    /// Takes so many data packets and sorts them by the context before them.
    std::vector<Block> take(size_t packets) {
        std::vector<Block> blocks;
        while (packets > 0) {
            const auto packet = nextPacket(*mpData);
            if (!packet) {
                ADD_FAILURE() << "a packet is missing";
                break;
            }
            if (isTuning(*packet)) {
                const bool told = (packet->word(20) & 1u << 27) != 0;
                blocks.push_back({told ? centreHz(*packet) : -2e6});
                mlTunings.push_back(*packet);
            } else if (packet->isData()) {
                if (blocks.empty()) {
                    blocks.emplace_back();
                }
                blocks.back().packets.push_back(*packet);
                --packets;
            } else {
                mlExtensions.push_back(*packet);
            }
        }
        return blocks;
    }
    std::vector<Block> sweep(size_t packets) {
        mlTunings.clear();
        mlExtensions.clear();
        mpScpi->send(kList + ";SWEEP:LIST:START 5");
        auto blocks = take(packets);
        EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 20s));
        EXPECT_TRUE(mpData->quiet(50));
        return blocks;
    }
    static Places places(const std::vector<Block>& blocks) {
        Places result;
        for (const Block& block : blocks) {
            result.push_back(block.hz / 1e6);
        }
        return result;
    }
    static std::vector<std::complex<float>> samples(const Block& block) {
        std::vector<std::complex<float>> all;
        for (const WirePacket& packet : block.packets) {
            const auto part = packet.iq(32768);
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }
    static bool inverted(const Block& block) {
        return (block.packets.at(0).trailer() & vnksim::trailer::kInversion) != 0;
    }
    /// Level of what stands at a frequency on the air.
    static double seen(const Block& block, double hz, double reference) {
        return level(std::abs(correlate(samples(block), (hz - block.hz) / kRate)), reference);
    }

    std::vector<WirePacket> mlTunings, mlExtensions;
};

TEST_F(QuillonSweep, eachBlockHasItsContextAndTheListItsIdentifierOnce) {
    startQuillon();
    mpScpi->send(":DEBUG:REFERENCE:LEVEL -13");
    const auto blocks = sweep(6);
    EXPECT_EQ(places(blocks), (Places{118, 216, 314}));
    for (const Block& block : blocks) {
        EXPECT_EQ(samples(block).size(), 16384u);
    }
    ASSERT_EQ(mlTunings.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(reference(mlTunings[i]), -13);
        EXPECT_EQ(mlTunings[i].counter(), i);
        EXPECT_EQ(mlTunings[i].word(20) & 0x7FFFFFFFu, kFields);
        EXPECT_EQ(mlTunings[i].picoseconds(), blocks[i].packets[0].picoseconds());
    }
    ASSERT_EQ(mlExtensions.size(), 1u);
    EXPECT_EQ(mlExtensions[0].word(20) & 0x7FFFFFFFu, 3u);
    EXPECT_EQ(mlExtensions[0].word(24), 5u);
    EXPECT_EQ(mlExtensions[0].word(28), 5u);
}

TEST_F(QuillonSweep, tonesStandInTheBlocksThatSeeThemAndSamplesRunOnWithinABlock) {
    startQuillon(Scene().tone(80e6, -30).tone(216e6 + 40e6, -40).tone(314e6 - 1e6, -50));
    mpScpi->send(":DEBUG:REFERENCE:LEVEL -20");
    const auto blocks = sweep(6);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_NEAR(seen(blocks[0], 80e6, -20), -30, 0.02);
    EXPECT_NEAR(seen(blocks[1], 256e6, -20), -40, 0.02);
    EXPECT_NEAR(seen(blocks[2], 313e6, -20), -50, 0.02);
    EXPECT_LT(seen(blocks[1], 80e6, -20), -110);
}

TEST_F(QuillonSweep, aBlockOfManyPacketsHasTheLargestSizes) {
    startQuillon(Scene().tone(1e9 + 7e6, -15));
    const auto samples = captureIQ(entry(1e9, 1, 32768), 8);
    ASSERT_EQ(samples.size(), 8u * 32768u);
    EXPECT_NEAR(level(std::abs(correlate(samples, 7e6 / kRate)), 0), -15, 0.01);
}

TEST_F(QuillonSweep, anEndlessListRepeatsUntilItIsStopped) {
    startQuillon();
    mpScpi->send(kList + ";:sweep:list:iter 0;SWEEP:LIST:START 5");
    const auto blocks = take(5 * 6);
    for (size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i].hz / 1e6, (Places{118, 216, 314})[i % 3]);
    }
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?"), "RUNNING");
    mpScpi->send(":SWEep:LIST:STOP; :SYSTEM:FLUSH");
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?;:SYSTem:CAPTure:MODE?"), "STOPPED;BLOCK");
}

TEST_F(QuillonSweep, aListTakesTheLevelThatStandsWhenItStarts) {
    startQuillon(Scene().tone(118e6 + 1e6, -30));
    mpScpi->send(kList + ";:DEBUG:REFERENCE:LEVEL -25;SWEEP:LIST:START 5;:DEBUG:REFERENCE:LEVEL 5");
    const auto blocks = take(6);
    ASSERT_EQ(mlTunings.size(), 3u);
    EXPECT_EQ(reference(mlTunings[2]), -25);
    EXPECT_NEAR(seen(blocks.at(0), 119e6, -25), -30, 0.02);
}

TEST_F(QuillonSweep, blocksAreLostRepeatedSwappedAndShort) {
    startQuillon(Scene().noise(-110));
    set("loseBlockOnce");
    EXPECT_EQ(places(sweep(4)), (Places{216, 314}));
    EXPECT_EQ(mlExtensions.size(), 1u);
    set("repeatBlockEvery,2");
    auto blocks = sweep(8);
    ASSERT_EQ(places(blocks), (Places{118, 216, 216, 314}));
    EXPECT_EQ(samples(blocks[1]), samples(blocks[2]));
    set("clear");
    set("swapBlocksOnce");
    EXPECT_EQ(places(sweep(6)), (Places{216, 118, 314}));
    set("shortPacketOnce");
    blocks = sweep(6);
    EXPECT_EQ(samples(blocks.at(0)).size(), 16384u - 32);
    EXPECT_EQ(samples(blocks.at(1)).size(), 16384u);
    set("repeatOnce");
    blocks = sweep(7);
    ASSERT_EQ(blocks.at(0).packets.size(), 3u);
    EXPECT_EQ(blocks[0].packets[0].bytes, blocks[0].packets[1].bytes);
}

TEST_F(QuillonSweep, aLateBlockHoldsBackWhatFollows) {
    startQuillon();
    set("lateBlockOnceMs,300");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(places(sweep(6)), (Places{118, 216, 314}));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
}

TEST_F(QuillonSweep, blocksTellAWrongFrequencyOrNoneOrHaveNoContext) {
    startQuillon();
    set("blockShiftOnceKHz,3000");
    EXPECT_EQ(places(sweep(6)), (Places{121, 216, 314}));
    set("blockShiftKHz,-2500");
    EXPECT_EQ(places(sweep(6)), (Places{115.5, 213.5, 311.5}));
    set("clear");
    set("frequencyMissing");
    EXPECT_EQ(places(sweep(6)), (Places{-2, -2, -2}));
    ASSERT_EQ(mlTunings.size(), 3u);
    EXPECT_EQ(mlTunings[0].word(20) & 0x7FFFFFFFu, kFields & ~(1u << 27));
    EXPECT_EQ(mlTunings[0].words(), 5u + 1 + 2 + 1 + 2 + 2);
    set("clear");
    set("contextMissing");
    EXPECT_EQ(places(sweep(6)), (Places{-1}));
    EXPECT_EQ(mlExtensions.size(), 1u);
}

TEST_F(QuillonSweep, inversionFollowsTheEntryOrTheCentre) {
    startQuillon(Scene().tone(118e6 + 9e6, -30).tone(216e6 + 10e6, -40));
    set("invertedEntries,1");
    auto blocks = sweep(6);
    EXPECT_TRUE(inverted(blocks.at(0)) && inverted(blocks.at(1)) && inverted(blocks.at(2)));
    EXPECT_NEAR(seen(blocks[0], 118e6 - 9e6, 0), -30, 0.02);
    set("clear");
    set("invertedFromMHz,200");
    set("invertedBelowMHz,300");
    blocks = sweep(6);
    EXPECT_FALSE(inverted(blocks.at(0)) || inverted(blocks.at(2)));
    EXPECT_TRUE(inverted(blocks.at(1)));
    EXPECT_NEAR(seen(blocks[0], 118e6 + 9e6, 0), -30, 0.02);
    EXPECT_NEAR(seen(blocks[1], 216e6 - 10e6, 0), -40, 0.02);
}

TEST_F(QuillonSweep, aListStartedAgainWhileItRunsRunsOnceMoreBehindItself) {
    mcOptions.pace = vnksim::Pace::limited;
    mcOptions.rateLimit = 300e3;  // 160 ms for a pass
    startQuillon();
    mpScpi->send(kList + ";SWEEP:LIST:START 5");
    take(2);
    mpScpi->send("SWEEP:LIST:START 5\nSWEEP:LIST:START 5");
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?"), "RUNNING");
    EXPECT_EQ(places(take(4 + 6)), (Places{216, 314, 118, 216, 314}));
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 20s));
}

}  // namespace
}  // namespace simtest
