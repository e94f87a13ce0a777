#include <chrono>
#include <cmath>

#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

using vnksim::Scene;

/// A block as it came: what its context told, and its packets.
struct Block {
    double hz = -1e6;
    std::vector<WirePacket> packets;
};

constexpr uint32_t kReceiver = 0x90000001, kDigitizer = 0x90000002, kExtension = 0x90000004;

/// Direct digitization and three steps, two packets to a block.
const std::string kList =
    ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;"
    ":sweep:entry:mode DD;:sweep:entry:spp 1024;:sweep:entry:ppb 2;:sweep:entry:save;"
    ":sweep:entry:mode SH;:sweep:entry:freq:step 36000000;:sweep:entry:freq:cent 68000000, 140000000;"
    ":sweep:entry:dec 1;:sweep:entry:save";

class Sweep : public UnitTest {
 protected:
    void SetUp() override { mcOptions.pace = vnksim::Pace::flatOut; }
    void set(const std::string& fault) { ASSERT_TRUE(mpUnit->faults().apply(fault)) << fault; }
    /// Takes so many data packets and sorts them by the context before them.
    std::vector<Block> take(size_t packets) {
        std::vector<Block> blocks;
        while (packets > 0) {
            const auto packet = nextPacket(*mpData, 3000);
            if (!packet) {
                ADD_FAILURE() << "a packet is missing";
                break;
            }
            if (packet->stream() == kReceiver) {
                blocks.push_back({static_cast<double>(packet->longWord(24)) / 1048576, {}});
            } else if (packet->isData()) {
                if (blocks.empty()) {
                    blocks.emplace_back();
                }
                blocks.back().packets.push_back(*packet);
                --packets;
            } else {
                mlContexts.push_back(*packet);
            }
        }
        return blocks;
    }
    std::vector<Block> sweep(size_t packets, const std::string& identifier = "5") {
        mpScpi->send(kList + ";SWEEP:LIST:START " + identifier);
        auto blocks = take(packets);
        EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 10s));
        EXPECT_TRUE(mpData->quiet(50));
        return blocks;
    }
    static std::vector<double> places(const std::vector<Block>& blocks) {
        std::vector<double> result;
        for (const Block& block : blocks) {
            result.push_back(block.hz / 1e6);
        }
        return result;
    }
    static std::vector<float> samples(const Block& block) {
        std::vector<float> all;
        for (const WirePacket& packet : block.packets) {
            const auto part = packet.items();
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }

    std::vector<WirePacket> mlContexts;
};

using Places = std::vector<double>;

TEST_F(Sweep, eachBlockHasItsTuningBeforeItAndTheListItsIdentifierOnce) {
    startUnit();
    const auto blocks = sweep(8);
    EXPECT_EQ(places(blocks), (Places{0, 68, 104, 140}));
    for (const Block& block : blocks) {
        EXPECT_EQ(block.packets.size(), 2u);
        EXPECT_EQ(samples(block).size(), 2048u);
    }
    ASSERT_EQ(mlContexts.size(), 2u);
    EXPECT_EQ(mlContexts[0].stream(), kDigitizer);
    EXPECT_EQ(mlContexts[1].stream(), kExtension);
    EXPECT_EQ(mlContexts[1].word(24), 5u);
}

TEST_F(Sweep, tonesStandInTheBlocksThatSeeThem) {
    startUnit(Scene().tone(20e6, -30).tone(104e6 + 10e6, -40).tone(140e6 - 8e6, -50));
    const auto blocks = sweep(8);
    ASSERT_EQ(blocks.size(), 4u);
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks[0]), 20.0 / 125))), -30, 0.05);
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks[2]), 45.0 / 125))), -40, 0.05);
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks[3]), 27.0 / 125))), -50, 0.1);
    EXPECT_LT(dbm(std::abs(correlate(samples(blocks[1]), 20.0 / 125))), -90);
}

TEST_F(Sweep, aCopiedEntryKeepsAllButWhatIsSetAnewAndEachLevelHasItsReference) {
    startUnit(Scene().tone(1e9, -20));
    mpScpi->send(
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:entry:mode SH;:sweep:entry:freq:cent 1000000000;"
        ":sweep:entry:spp 1024;:sweep:entry:dec 1;:sweep:entry:att:var 0;:sweep:entry:save;"
        ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att:var 10;:sweep:entry:save;"
        ":sweep:entry:new;:sweep:entry:copy 1;:sweep:entry:att:var 30;:sweep:entry:save;"
        ":sweep:list:iter 1;SWEEP:LIST:START 6");
    const auto blocks = take(3);
    ASSERT_EQ(places(blocks), (Places{1000, 1000, 1000}));
    const double references[] = {-20, -10, 10};
    size_t level = 0;
    for (const WirePacket& context : mlContexts) {
        if (context.stream() == kDigitizer) {
            ASSERT_LT(level, 3u);
            EXPECT_EQ(static_cast<int16_t>(context.word(40) & 0xFFFF) / 128.0, references[level++]);
        }
    }
    EXPECT_EQ(level, 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks[i]), 35.0 / 125)), references[i]), -20, 0.1);
    }
    EXPECT_EQ(mpScpi->ask(":sweep:entry:count?"), "3");
    EXPECT_EQ(mpScpi->errorAfter(":sweep:entry:delete 2"), "0,\"No error\"");
    EXPECT_EQ(mpUnit->state().list.at(1).attenuation, 30u);
}

TEST_F(Sweep, aLevelBeyondFullScaleIsClippedAndFlaggedUntilAttenuated) {
    startUnit(Scene().tone(1e9, -5));
    const std::string entry =
        ":sweep:entry:mode SH;:sweep:entry:freq:cent 1000000000;:sweep:entry:dec 1;:sweep:entry:spp 4096;"
        ":sweep:entry:att:var ";
    auto clipped = captureReal(entry + "0", 1);
    EXPECT_NE(mlPackets.at(0).trailer() & vnksim::trailer::kOverRange, 0u);
    EXPECT_EQ(*std::max_element(clipped.begin(), clipped.end()), 8191.0f / 8192);
    EXPECT_LT(dbm(std::abs(correlate(clipped, 35.0 / 125))), -8) << "what is cut is missing";
    auto whole = captureReal(entry + "20", 1);
    EXPECT_EQ(mlPackets.at(0).trailer() & vnksim::trailer::kOverRange, 0u);
    EXPECT_NEAR(dbm(std::abs(correlate(whole, 35.0 / 125)), 0), -5, 0.05);
}

TEST_F(Sweep, anEndlessListRepeatsUntilItIsStopped) {
    startUnit();
    mpScpi->send(kList + ";:sweep:list:iter 0;SWEEP:LIST:START 5");
    const auto blocks = take(5 * 8);
    for (size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i].hz / 1e6, (Places{0, 68, 104, 140})[i % 4]);
    }
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?"), "RUNNING");
    mpScpi->send(":SWEep:LIST:STOP; :SYSTEM:FLUSH");
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?;:SYSTem:CAPTure:MODE?"), "STOPPED;BLOCK");
}

TEST_F(Sweep, aListStartedAgainWhileItRunsRunsOnceMoreBehindItself) {
    mcOptions.pace = vnksim::Pace::limited;
    mcOptions.rateLimit = 50e3;  // 160 ms for a pass
    startUnit();
    mpScpi->send(kList + ";SWEEP:LIST:START 5");
    const auto first = take(2);
    mpScpi->send("SWEEP:LIST:START 5\nSWEEP:LIST:START 5");
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?"), "RUNNING");
    const auto rest = take(6 + 8);
    EXPECT_EQ(places(rest), (Places{68, 104, 140, 0, 68, 104, 140}));
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 10s));
    EXPECT_TRUE(mpData->quiet(50));
    // Another identifier replaces it.
    mpScpi->send("SWEEP:LIST:START 5\nSWEEP:LIST:START 6");
    mlContexts.clear();
    while (mlContexts.empty() || mlContexts.back().stream() != kExtension ||
           mlContexts.back().word(24) != 6) {
        ASSERT_FALSE(take(1).empty());
    }
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 10s));
}

TEST_F(Sweep, aLostBlockLeavesItsPlaceInTimeEmpty) {
    startUnit();
    set("loseBlockOnce");
    mcOptions.pace = vnksim::Pace::flatOut;
    EXPECT_EQ(places(sweep(6)), (Places{68, 104, 140}));
    EXPECT_EQ(mlContexts.size(), 2u) << "the identifier comes with the next block";
    EXPECT_EQ(places(sweep(8)), (Places{0, 68, 104, 140}));
    set("loseBlockEvery,3");
    const auto blocks = sweep(6);
    ASSERT_EQ(places(blocks), (Places{0, 68, 140}));
    const auto time = [](const WirePacket& packet) {
        return packet.seconds() * 1e12 + static_cast<double>(packet.picoseconds());
    };
    EXPECT_NEAR(time(blocks[2].packets[0]) - time(blocks[1].packets[0]), 2 * 2048 * 8000, 1e6);
}

TEST_F(Sweep, aRepeatedBlockComesTwiceAndSwappedOnesChangePlaces) {
    startUnit(Scene().tone(114e6, -40));
    set("repeatBlockEvery,3");
    const auto blocks = sweep(10);
    ASSERT_EQ(places(blocks), (Places{0, 68, 104, 104, 140}));
    EXPECT_EQ(samples(blocks[2]), samples(blocks[3]));
    EXPECT_EQ(blocks[2].packets[1].picoseconds(), blocks[3].packets[1].picoseconds());
    set("clear");
    set("repeatBlockOnce,2");
    EXPECT_EQ(places(sweep(12)), (Places{0, 0, 68, 68, 104, 140}));
    set("swapBlocksOnce");
    EXPECT_EQ(places(sweep(8)), (Places{68, 0, 104, 140}));
    EXPECT_EQ(places(sweep(8)), (Places{0, 68, 104, 140}));
}

TEST_F(Sweep, aRepeatedPacketComesTwiceWithOneCountAndOneTime) {
    startUnit(Scene().noise(-110));
    set("repeatOnce");
    const auto blocks = sweep(9);
    ASSERT_EQ(blocks.size(), 4u);
    ASSERT_EQ(blocks[0].packets.size(), 3u);
    EXPECT_EQ(blocks[0].packets[0].bytes, blocks[0].packets[1].bytes);
    EXPECT_NE(blocks[0].packets[1].bytes, blocks[0].packets[2].bytes);
    EXPECT_EQ(mpUnit->faults().snapshot().repeatOnce, 0u);
}

TEST_F(Sweep, blocksTellAWrongFrequencyOrNone) {
    startUnit();
    set("blockShiftOnceKHz,3000");
    EXPECT_EQ(places(sweep(8)), (Places{3, 68, 104, 140}));
    set("blockShiftKHz,2500");
    EXPECT_EQ(places(sweep(8)), (Places{2.5, 70.5, 106.5, 142.5}));
    set("clear");
    set("frequencyMissing");
    EXPECT_EQ(places(sweep(8)), (Places{-1}));
}

TEST_F(Sweep, aLateBlockHoldsBackWhatFollows) {
    startUnit();
    set("lateBlockOnceMs,300");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(places(sweep(8)), (Places{0, 68, 104, 140}));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 300ms);
    set("lateBlockOnceMs,60000");
    mpScpi->send("SWEEP:LIST:START 5;:SWEep:LIST:STOP");
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 10s)) << "a stop does not wait for it";
}

TEST_F(Sweep, aShortPacketIsWholeWithThirtyTwoSamplesLess) {
    startUnit();
    set("shortPacketOnce");
    auto blocks = sweep(8);
    ASSERT_EQ(blocks.size(), 4u);
    EXPECT_EQ(samples(blocks[0]).size(), 2048u - 32);
    EXPECT_EQ(samples(blocks[1]).size(), 2048u);
    set("shortPacketEvery,4");
    blocks = sweep(8);
    ASSERT_EQ(blocks.size(), 4u);
    EXPECT_EQ(samples(blocks[0]).size(), 2048u);
    EXPECT_EQ(blocks[1].packets[1].items().size(), 1024u - 32);
    EXPECT_EQ(blocks[3].packets[1].items().size(), 1024u - 32);
}

TEST_F(Sweep, inversionFollowsTheEntryOrTheCentre) {
    startUnit(Scene().tone(20e6, -30).tone(114e6, -40).tone(135e6, -40));
    const auto inverted = [](const Block& block) {
        return (block.packets.at(0).trailer() & vnksim::trailer::kInversion) != 0;
    };
    set("invertedEntries,3");
    auto blocks = sweep(8);
    ASSERT_EQ(blocks.size(), 4u);
    EXPECT_FALSE(inverted(blocks[0])) << "nothing is mixed there";
    EXPECT_TRUE(inverted(blocks[1]) && inverted(blocks[2]) && inverted(blocks[3]));
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks[2]), 25.0 / 125))), -40, 0.05);
    set("clear");
    set("invertedFromMHz,100");
    set("invertedBelowMHz,140");
    blocks = sweep(8);
    EXPECT_FALSE(inverted(blocks[1]) || inverted(blocks[3]));
    EXPECT_TRUE(inverted(blocks[2]));
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks[3]), 30.0 / 125))), -40, 0.05);
}

TEST_F(Sweep, gainOfTheIntermediateFrequencyShapesTonesByTheirPlaceInIt) {
    const auto set1 = vnksim::makeCorrectionSet(
        {{60000, 0}, {200000, 1}}, {{0, 1000000, 2000000, 3000000}, {-500000, -500000, -500000, -500000}});
    const auto gain = vnksim::gainOfCorrections(set1);
    EXPECT_DOUBLE_EQ(gain(0, 0), 0);
    EXPECT_DOUBLE_EQ(gain(0, 62.5e6 / 8), 0.5);
    EXPECT_DOUBLE_EQ(gain(0, 62e6), 3) << "the last point holds to the end";
    EXPECT_DOUBLE_EQ(gain(60e6, 1e6), -0.5) << "the row above the centre";
    EXPECT_DOUBLE_EQ(gain(9e9, 1e6), -0.5);
    mcOptions.ifGaindB = [](double tuned, double place) { return tuned == 0 ? -6 : place / -10e6; };
    startUnit(Scene().tone(20e6, -30).tone(104e6 + 10e6, -40));
    auto blocks = sweep(8);
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks.at(0)), 20.0 / 125))), -36, 0.05);
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks.at(2)), 45.0 / 125))), -44.5, 0.05);
    set("invertedEntries,2");
    blocks = sweep(8);
    EXPECT_NEAR(dbm(std::abs(correlate(samples(blocks.at(2)), 25.0 / 125))), -42.5, 0.05);
}

TEST_F(Sweep, packetsMadeOnceComeAgainInEachPass) {
    mcOptions.preSynthesise = 100;
    startUnit(Scene().noise(-110));
    mpScpi->send(kList + ";:sweep:list:iter 3;SWEEP:LIST:START 5");
    const auto blocks = take(3 * 8);
    ASSERT_EQ(blocks.size(), 12u);
    for (size_t i = 4; i < 12; ++i) {
        EXPECT_EQ(samples(blocks[i]), samples(blocks[i - 4]));
        EXPECT_EQ(blocks[i].hz, blocks[i - 4].hz);
        EXPECT_NE(blocks[i].packets[0].picoseconds(), blocks[i - 4].packets[0].picoseconds());
    }
    EXPECT_NE(samples(blocks[1]), samples(blocks[2]));
}

}  // namespace
}  // namespace simtest
