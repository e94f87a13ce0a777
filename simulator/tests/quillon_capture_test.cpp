#include "simulator/tests/quillon.h"

namespace simtest {
namespace {

using QuillonCapture = QuillonTest;

TEST_F(QuillonCapture, contextsComeBeforeDataAndTellAllThereIs) {
    startQuillon();
    mpScpi->send(
        ":TRACe:SPPacket 1024;:SENSE:DEC 8;FREQ:CENT 26999999999 Hz;:DEBUG:REFERENCE:LEVEL -25;"
        ":TRACe:STReam:STARt 4711");
    std::vector<WirePacket> packets;
    for (int i = 0; i < 4; ++i) {
        auto packet = nextPacket(*mpData);
        ASSERT_TRUE(packet.has_value());
        packets.push_back(*packet);
    }
    const WirePacket& tuning = packets[0];
    EXPECT_EQ(tuning.bytes[0], 0x40);
    EXPECT_EQ(tuning.words(), 5u + 1 + 2 + 2 + 1 + 2 + 2);
    EXPECT_EQ(tuning.word(20) & 0x7FFFFFFFu, kFields);
    EXPECT_EQ(tuning.longWord(24), uint64_t{13056000} << 20);     // 0.85 of the rate
    EXPECT_EQ(tuning.longWord(32), uint64_t{26999999999} << 20);  // tuned
    EXPECT_EQ(tuning.word(40), 0xFFFFu & static_cast<uint32_t>(-25 * 128));
    EXPECT_EQ(tuning.longWord(44), uint64_t{15360000} << 20);
    EXPECT_EQ(tuning.longWord(52), 0x200003CF00000000u);
    const WirePacket& extension = packets[1];
    EXPECT_EQ(extension.bytes[0], 0x50);
    EXPECT_EQ(extension.words(), 7u);
    EXPECT_EQ(extension.word(20) & 0x7FFFFFFFu, 2u);
    EXPECT_EQ(extension.word(24), 4711u);
    for (size_t i : {2u, 3u}) {
        EXPECT_EQ(packets[i].bytes[0], 0x14);
        EXPECT_EQ(packets[i].words(), 5u + 1024 + 1);
        EXPECT_EQ(packets[i].counter(), i - 2);
        EXPECT_EQ(packets[i].stream(), tuning.stream());
    }
    for (const WirePacket& packet : packets) {
        EXPECT_EQ(packet.tsi(), 1u);
        EXPECT_EQ(packet.tsf(), 2u);
        EXPECT_EQ(packet.bytes[0] & 3, 0);
    }
    EXPECT_EQ(extension.counter(), 0u) << "each kind is numbered for itself";
    const uint32_t trailer = packets[2].trailer();
    using namespace vnksim::trailer;
    EXPECT_EQ(trailer, kValidDataEnable | kValidData | kReferenceLockEnable | kReferenceLock |
                           kInversionEnable | kOverRangeEnable | kSampleLossEnable);
}

TEST_F(QuillonCapture, theContextComesAgainEachSecond) {
    startQuillon();
    mpScpi->send(":TRACe:SPPacket 12000;:SENSE:DEC 1024;:TRACe:STReam:STARt 3");
    std::vector<WirePacket> contexts;
    ASSERT_EQ(takeData(*mpData, 25, &contexts).size(), 25u);  // 120 kS/s: 2.5 s
    size_t tunings = 0;
    for (const WirePacket& context : contexts) {
        tunings += isTuning(context) ? 1u : 0u;
    }
    EXPECT_EQ(tunings, 3u);
    EXPECT_EQ(contexts.size(), 4u);
    EXPECT_EQ(contexts.back().seconds(), contexts.front().seconds() + 2);
    EXPECT_EQ(contexts.back().counter(), 2u);
}

TEST_F(QuillonCapture, timesAreExactToThePicosecondAndCountersRunOn) {
    startQuillon();
    for (unsigned decimation : {1u, 2u, 1024u}) {
        mpScpi->send(":TRACe:SPPacket 4096;:SENSE:DEC " + std::to_string(decimation) +
                     ";:TRACe:STReam:STARt 1");
        const auto packets = takeData(*mpData, 40);
        ASSERT_EQ(packets.size(), 40u);
        for (uint64_t i = 0; i < packets.size(); ++i) {
            // A clock of 122.88 MHz has 390625 / 48 ps.
            const uint64_t passed = i * 4096 * decimation * 390625 / 48;
            const uint64_t seconds = packets[i].seconds() - packets[0].seconds();
            EXPECT_EQ(seconds * 1000000000000 + packets[i].picoseconds() - packets[0].picoseconds(), passed);
            EXPECT_LT(packets[i].picoseconds(), 1000000000000u);
            EXPECT_EQ(packets[i].counter(), i % 16);
        }
        stopAndReconnect();
    }
}

TEST_F(QuillonCapture, realTimePaceIsThatOfItsClock) {
    mcOptions.pace = vnksim::Pace::realTime;
    startQuillon();
    const auto before = std::chrono::steady_clock::now();
    captureIQ(entry(98e6, 1024, 12000), 3);
    EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count(),
              3 * 0.1 - 0.001);
    EXPECT_EQ(mpUnit->state().samples, 36000u);
}

TEST_F(QuillonCapture, preSynthesisedPacketsRepeatTheirSamples) {
    mcOptions.preSynthesise = 3;
    startQuillon(vnksim::Scene().noise(-110));
    mpScpi->send(":TRACe:SPPacket 1024;:SENSE:DEC 1;:TRACe:STReam:STARt 1");
    const auto packets = takeData(*mpData, 8);
    ASSERT_EQ(packets.size(), 8u);
    EXPECT_EQ(packets[0].iq(), packets[3].iq());
    EXPECT_EQ(packets[1].iq(), packets[7].iq());
    EXPECT_NE(packets[0].iq(), packets[1].iq());
}

}  // namespace
}  // namespace simtest
