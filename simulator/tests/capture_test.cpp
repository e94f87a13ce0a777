#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

using Capture = UnitTest;

constexpr uint32_t kReceiver = 0x90000001, kDigitizer = 0x90000002, kExtension = 0x90000004;

/// Time of a packet in picoseconds since the first packet's second.
int64_t picoseconds(const WirePacket& packet, const WirePacket& origin) {
    return (int64_t{packet.seconds()} - int64_t{origin.seconds()}) * 1000000000000 +
           static_cast<int64_t>(packet.picoseconds());
}

TEST_F(Capture, contextsComeBeforeDataAndTellTuningLevelAndIdentifier) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    mpScpi->send(
        "INPUT:MODE SH;:TRACe:SPPacket 1024;:SENSE:DEC 8;FREQ:CENT 98100000 Hz;:INPut:ATTenuator:VARiable 10;"
        ":INPut:GAIN 1 1;:INPut:GAIN 2 0;:TRACe:STReam:STARt 4711");
    std::vector<WirePacket> packets;
    for (int i = 0; i < 4; ++i) {
        auto packet = nextPacket(*mpData);
        ASSERT_TRUE(packet.has_value());
        packets.push_back(*packet);
    }
    mpScpi->send(":TRACe:STReam:STOP; :SYSTEM:FLUSH");
    ASSERT_EQ(packets[0].stream(), kReceiver);
    EXPECT_EQ(packets[0].type(), 4u);
    EXPECT_EQ(packets[0].word(20) & 0x7FFFFFFFu, 1u << 27 | 1u << 23);
    EXPECT_EQ(packets[0].longWord(24), uint64_t{98100000} << 20);
    ASSERT_EQ(packets[1].stream(), kDigitizer);
    EXPECT_EQ(packets[1].word(20) & 0x7FFFFFFFu, 1u << 29 | 1u << 26 | 1u << 24);
    EXPECT_EQ(static_cast<int16_t>(packets[1].word(40) & 0xFFFF), 0);  // -20 + 10 + 10 dB
    ASSERT_EQ(packets[2].stream(), kExtension);
    EXPECT_EQ(packets[2].type(), 5u);
    EXPECT_EQ(packets[2].word(20) & 0x7FFFFFFFu, 2u);
    EXPECT_EQ(packets[2].word(24), 4711u);
    ASSERT_EQ(packets[3].stream(), 0x90000003u);
    EXPECT_EQ(packets[3].type(), 1u);
    EXPECT_EQ(packets[3].words(), 5u + 1024u + 1u);
    EXPECT_TRUE(packets[3].hasTrailer());
    EXPECT_EQ(packets[3].tsi(), 1u);
    EXPECT_EQ(packets[3].tsf(), 2u);
}

TEST_F(Capture, receiverContextCarriesNoFrequencyInDirectDigitization) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    captureIQ(":sweep:entry:mode DD;:sweep:entry:spp 256", 1);
    mpScpi->send(
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:entry:mode DD;:sweep:entry:save;SWEEP:LIST:START 3");
    std::vector<WirePacket> contexts;
    ASSERT_EQ(takeData(*mpData, 1, &contexts).size(), 1u);
    ASSERT_EQ(contexts.size(), 3u);
    EXPECT_EQ(contexts[0].longWord(24), 0u);
    EXPECT_EQ(contexts[2].word(20) & 0x7FFFFFFFu, 3u);
    EXPECT_EQ(contexts[2].word(24), 3u);
    EXPECT_EQ(contexts[2].word(28), 3u);
}

TEST_F(Capture, gnssFixIsToldByModelsThatHaveIt) {
    mcOptions.pace = vnksim::Pace::flatOut;
    mcOptions.latitude = 48.5;
    startUnit({}, "ZV300-A");
    mpScpi->send(":sweep:entry:new;:sweep:entry:save;SWEEP:LIST:START 3");
    std::vector<WirePacket> contexts;
    ASSERT_EQ(takeData(*mpData, 1, &contexts).size(), 1u);
    ASSERT_GE(contexts.size(), 2u);
    EXPECT_NE(contexts[1].word(20) & 1u << 14, 0u);
    ASSERT_EQ(contexts[1].bytes.size(), 20u + 4 + 8 + 8 + 4 + 44);
    EXPECT_EQ(contexts[1].word(44 + 16), 0x42420000u);  // 48.5 as a float
    EXPECT_EQ(contexts[1].word(44 + 4), contexts[1].seconds());
}

TEST_F(Capture, timesAndCountersRunOnExactly) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    for (unsigned decimation : {1u, 4u, 100u, 1024u}) {
        mpScpi->send(":TRACe:SPPacket 4096;:SENSE:DEC " + std::to_string(decimation) +
                     ";:TRACe:STReam:STARt 1");
        const auto packets = takeData(*mpData, 40);
        mpScpi->send(":TRACe:STReam:STOP; :SYSTEM:FLUSH");
        ASSERT_EQ(packets.size(), 40u);
        for (size_t i = 1; i < packets.size(); ++i) {
            EXPECT_EQ(picoseconds(packets[i], packets[0]) - picoseconds(packets[i - 1], packets[0]),
                      int64_t{4096} * 8000 * decimation);
            EXPECT_EQ(packets[i].counter(), (packets[i - 1].counter() + 1) % 16);
        }
        ASSERT_TRUE(mpUnit->waitForMode("BLOCK", 5s));
        while (!mpData->quiet(200)) {
            nextPacket(*mpData);
        }
    }
}

TEST_F(Capture, clockOfTheUnitIsThatOfTheSystem) {
    startUnit();
    captureIQ(":sweep:entry:mode SH;:sweep:entry:dec 8;:sweep:entry:spp 1024", 1);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    EXPECT_NEAR(static_cast<double>(mlPackets.at(0).seconds()), static_cast<double>(seconds), 10);
}

TEST_F(Capture, finiteCaptureHasItsPacketsAndEndsByItself) {
    startUnit();
    captureIQ(
        ":sweep:entry:mode SH;:sweep:entry:freq:cent 98100000;:sweep:entry:dec 64;:sweep:entry:spp 4096", 9);
    ASSERT_EQ(mlPackets.size(), 9u);
    for (const WirePacket& packet : mlPackets) {
        EXPECT_EQ(packet.iq().size(), 4096u);
    }
    EXPECT_TRUE(mpData->quiet(100));
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?;:SYSTem:CAPTure:MODE?"), "STOPPED;BLOCK");
    EXPECT_EQ(mpUnit->state().dataPackets, 9u);
    EXPECT_EQ(mpUnit->state().samples, 9u * 4096u);
}

TEST_F(Capture, realTimePaceIsNotExceeded) {
    startUnit();
    const auto before = std::chrono::steady_clock::now();
    // 20 packets of 12192 samples at 122 kHz would be 2 s; 3 are 0.3 s.
    captureIQ(":sweep:entry:mode SH;:sweep:entry:dec 1024;:sweep:entry:spp 12192", 3);
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count();
    EXPECT_GE(took, 3 * 12192 * 1024 / 125e6 - 0.001);
}

TEST_F(Capture, limitedPaceIsNotExceeded) {
    mcOptions.pace = vnksim::Pace::limited;
    mcOptions.rateLimit = 1e6;
    startUnit();
    const auto before = std::chrono::steady_clock::now();
    captureIQ(":sweep:entry:mode SH;:sweep:entry:dec 4;:sweep:entry:spp 65504", 3);
    EXPECT_GE(std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count(),
              3 * 65504 / 1e6 - 0.001);
}

TEST_F(Capture, steppedListGivesOneBlockForEachCentreAndRepeats) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(vnksim::Scene().tone(154e6 + 3e6, -30));
    mpScpi->send(
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 2;:sweep:entry:mode DD;:sweep:entry:spp "
        "1024;"
        ":sweep:entry:ppb 2;:sweep:entry:save;:sweep:entry:mode SH;:sweep:entry:freq:step 36000000;"
        ":sweep:entry:freq:cent 118000000, 190000000;:sweep:entry:spp 8192;:sweep:entry:ppb 1;"
        ":sweep:entry:dec 1;:sweep:entry:save;SWEEP:LIST:START 12");
    std::vector<WirePacket> contexts;
    const auto data = takeData(*mpData, 10, &contexts);
    ASSERT_EQ(data.size(), 10u);
    std::vector<uint64_t> centres;
    size_t identifiers = 0;
    for (const WirePacket& context : contexts) {
        if (context.stream() == kReceiver) {
            centres.push_back(context.longWord(24) >> 20);
        }
        identifiers += context.stream() == kExtension ? 1u : 0u;
    }
    const std::vector<uint64_t> wanted = {0, 118000000, 154000000, 190000000,
                                          0, 118000000, 154000000, 190000000};
    EXPECT_EQ(centres, wanted);
    EXPECT_EQ(identifiers, 1u);
    EXPECT_NEAR(dbm(std::abs(correlate(data[3].items(), 38.0 / 125))), -30, 0.05);
    EXPECT_NEAR(dbm(std::abs(correlate(data[8].items(), 38.0 / 125))), -30, 0.05);
    EXPECT_TRUE(mpUnit->waitForMode("BLOCK", 5s));
}

TEST_F(Capture, endlessListIsStopped) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    mpScpi->send(
        ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:save;SWEEP:LIST:START 1");
    EXPECT_EQ(takeData(*mpData, 50).size(), 50u);
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?"), "RUNNING");
    mpScpi->send(":SWEep:LIST:STOP; :SYSTEM:FLUSH");
    EXPECT_EQ(mpScpi->ask(":SWEEP:LIST:STATUS?"), "STOPPED");
}

TEST_F(Capture, stopIsPromptAndLeavesWholePackets) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    mpScpi->send(":TRACe:SPPacket 65504;:SENSE:DEC 4;:TRACe:STReam:STARt 1");
    ASSERT_EQ(takeData(*mpData, 3).size(), 3u);
    // The reader does not read while the unit is told to stop.
    const auto before = std::chrono::steady_clock::now();
    mpScpi->send(":TRACe:STReam:STOP; :SYSTEM:FLUSH");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count(), 2.0);
    size_t rest = 0;
    while (!mpData->quiet(300)) {
        const auto packet = nextPacket(*mpData);
        ASSERT_TRUE(packet.has_value());
        EXPECT_EQ(packet->words(), 65510u);
        ++rest;
    }
    EXPECT_LT(rest, 50u);
}

TEST_F(Capture, aNewStartReplacesARunningCapture) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    mpScpi->send(":TRACe:SPPacket 1024;:TRACe:STReam:STARt 1");
    ASSERT_EQ(takeData(*mpData, 3).size(), 3u);
    mpScpi->send(":TRACe:STReam:STARt 2");
    uint32_t identifier = 0;
    for (int i = 0; i < 10000 && identifier != 2; ++i) {
        const auto packet = nextPacket(*mpData);
        ASSERT_TRUE(packet.has_value());
        identifier = packet->stream() == kExtension ? packet->word(24) : 0;
    }
    EXPECT_EQ(identifier, 2u);
}

TEST_F(Capture, theOldestConnectionGetsTheData) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    Client probe(mcOptions.address, vnksim::kDataPort);
    captureIQ(":sweep:entry:mode SH;:sweep:entry:dec 8;:sweep:entry:spp 1024", 2);
    EXPECT_TRUE(probe.quiet(50));
    mpData.reset();
    mpScpi->send("SWEEP:LIST:START 9");
    EXPECT_EQ(takeData(probe, 2).size(), 2u);
}

TEST_F(Capture, preSynthesisedPacketsRepeatTheirSamplesWithRunningTimes) {
    mcOptions.pace = vnksim::Pace::flatOut;
    mcOptions.preSynthesise = 3;
    startUnit(vnksim::Scene().noise(-110));
    mpScpi->send(":TRACe:SPPacket 1024;:SENSE:DEC 8;:TRACe:STReam:STARt 1");
    const auto packets = takeData(*mpData, 8);
    ASSERT_EQ(packets.size(), 8u);
    EXPECT_EQ(packets[0].iq(), packets[3].iq());
    EXPECT_EQ(packets[1].iq(), packets[7].iq());
    EXPECT_NE(packets[0].iq(), packets[1].iq());
    EXPECT_EQ(picoseconds(packets[7], packets[0]) - picoseconds(packets[0], packets[0]),
              int64_t{7} * 1024 * 8 * 8000);
}

TEST_F(Capture, unitCanBeStoppedAndStartedAtOnceOnItsAddress) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    for (int i = 0; i < 5; ++i) {
        mpScpi->send(":TRACe:SPPacket 65504;:SENSE:DEC 4;:TRACe:STReam:STARt 1");
        ASSERT_EQ(takeData(*mpData, 1).size(), 1u);
        mpUnit->stop();
        EXPECT_TRUE(mpScpi->ends());
        EXPECT_TRUE(mpData->ends());
        mpUnit->start();
        connectClients();
        EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    }
}

}  // namespace
}  // namespace simtest
