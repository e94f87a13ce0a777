#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

using vnksim::FaultSettings;
using namespace vnksim::trailer;

class Fault : public UnitTest {
 protected:
    void SetUp() override {
        mcOptions.pace = vnksim::Pace::flatOut;
        startUnit();
    }
    void set(const std::string& text) { ASSERT_TRUE(mpUnit->faults().apply(text)) << text; }
    void startStream(int identifier = 1) {
        mpScpi->send(":TRACe:SPPacket 1024;:SENSE:DEC 8;:TRACe:STReam:STARt " + std::to_string(identifier));
    }
    std::vector<WirePacket> list(size_t packets) {
        captureIQ(":sweep:entry:mode SH;:sweep:entry:dec 8;:sweep:entry:spp 1024", packets);
        return mlPackets;
    }
};

TEST_F(Fault, silentUnitTakesConnectionsAndSaysNothing) {
    set("silent");
    Client late(mcOptions.address, vnksim::kScpiPort);
    EXPECT_TRUE(late.connected());
    EXPECT_FALSE(mpScpi->ask("*IDN?", 200).has_value());
    set("silent,0");
    EXPECT_TRUE(mpScpi->line().has_value());
}

TEST_F(Fault, repliesAreSuppressedDelayedAndReplaced) {
    set("noReplyTo,*IDN?");
    EXPECT_FALSE(mpScpi->ask("*idn?", 100).has_value());
    EXPECT_TRUE(mpScpi->ask("SYST:ERR?").has_value());
    set("clear");
    set("replyDelayMs,150");
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
    EXPECT_GE(std::chrono::steady_clock::now() - before, 150ms);
    set("clear");
    set("wrongReplies,*IDN?=what, me?");
    EXPECT_EQ(mpScpi->ask("*IDN?"), "what, me?");
    set("replySegmentBytes,1");
    EXPECT_EQ(mpScpi->ask("*IDN?"), "what, me?");
}

TEST_F(Fault, errorIsPlantedBehindACommand) {
    set("errors,FREQ:CENT=-200=Execution error");
    EXPECT_EQ(mpScpi->errorAfter(":INPut:GAIN 1 1"), "0,\"No error\"");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 98100000 Hz"), "-200,\"Execution error\"");
    EXPECT_EQ(mpScpi->errorAfter("FREQ:CENT 98100000 Hz"), "0,\"No error\"");
}

TEST_F(Fault, lockIsRefusedUntilTheRightRung) {
    set("lockRefusedUntil,abort");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "0");
    mpScpi->send("*RST");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "0");
    mpScpi->send(":SYSTEM:ABORT");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "1");
    set("lockRefusedUntil,reconnect");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "0");
    mpScpi = std::make_unique<Client>(mcOptions.address, vnksim::kScpiPort);
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "1");
    set("lockRefusedUntil,never");
    mpScpi->send(":SYSTEM:ABORT;*RST");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "0");
}

TEST_F(Fault, captureModeSticksUntilTheNthReset) {
    set("stuckMode,STREAMING");
    mpScpi->send("*RST;SYSTem:ABORt");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "STREAMING");
    set("clear");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    set("stuckFreedAtReset,2");
    set("stuckMode,SWEEPING");
    mpScpi->send("*RST");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "SWEEPING");
    mpScpi->send("*RST");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
}

TEST_F(Fault, identifierIsLeftOutOrWrong) {
    set("identifierMissing");
    std::vector<WirePacket> contexts;
    startStream(5);
    takeData(*mpData, 1, &contexts);
    ASSERT_EQ(contexts.size(), 2u);
    mpScpi->send(":TRACe:STReam:STOP; :SYSTEM:FLUSH");
    EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
    while (!mpData->quiet(100)) {
        nextPacket(*mpData);
    }
    set("clear");
    set("identifierOffset,-2");
    contexts.clear();
    startStream(5);
    takeData(*mpData, 1, &contexts);
    ASSERT_EQ(contexts.size(), 3u);
    EXPECT_EQ(contexts[2].word(24), 3u);
}

TEST_F(Fault, contextsAreMissingOrCarryTheModeBitAndDataAnotherStream) {
    set("contextMissing");
    set("contextTsm");
    set("dataStreamOffset,2");
    startStream();
    const auto context = nextPacket(*mpData), data = nextPacket(*mpData);
    ASSERT_TRUE(context.has_value() && data.has_value());
    EXPECT_EQ(context->bytes[0], 0x51);
    EXPECT_EQ(context->stream(), 0x90000004u);
    EXPECT_EQ(data->bytes[0], 0x14);
    EXPECT_EQ(data->stream(), 0x90000005u);
    EXPECT_EQ(data->words(), 1030u);
}

TEST_F(Fault, packetsAreDroppedOnceAndEveryNth) {
    set("dropOnce,2");
    auto counters = [](const std::vector<WirePacket>& packets) {
        std::vector<unsigned> values;
        for (const WirePacket& packet : packets) {
            values.push_back(packet.counter());
        }
        return values;
    };
    startStream();
    EXPECT_EQ(counters(takeData(*mpData, 3)), (std::vector<unsigned>{2, 3, 4}));
    mpScpi->send("*RST");
    EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
    while (!mpData->quiet(100)) {
        nextPacket(*mpData);
    }
    set("dropEvery,3");
    startStream();
    EXPECT_EQ(counters(takeData(*mpData, 4)), (std::vector<unsigned>{0, 1, 3, 4}));
}

TEST_F(Fault, neighbouringPacketsChangePlaces) {
    set("swapOnce");
    const auto packets = list(3);
    EXPECT_EQ(packets.at(0).counter(), 1u);
    EXPECT_EQ(packets.at(1).counter(), 0u);
    EXPECT_EQ(packets.at(2).counter(), 2u);
}

TEST_F(Fault, lostSamplesLeaveAGapInTimeAndAreFlagged) {
    auto packets = list(2);
    EXPECT_EQ(packets.at(0).trailer() & kSampleLoss, 0u);
    set("loseSamplesOnce,1000");
    startStream();
    packets = takeData(*mpData, 2);
    EXPECT_NE(packets.at(0).trailer() & kSampleLoss, 0u);
    EXPECT_EQ(packets.at(1).trailer() & kSampleLoss, 0u);
    EXPECT_NE(packets.at(0).trailer() & kSampleLossEnable, 0u);
}

TEST_F(Fault, trailerBitsAreSetAndCleared) {
    auto trailer = list(1).at(0).trailer();
    EXPECT_EQ(trailer & (kValidDataEnable | kValidData), kValidDataEnable | kValidData);
    EXPECT_EQ(trailer & (kInversion | kOverRange | kSampleLoss), 0u);
    EXPECT_EQ(trailer & (kInversionEnable | kOverRangeEnable | kSampleLossEnable),
              kInversionEnable | kOverRangeEnable | kSampleLossEnable);
    set("trailerSet," + std::to_string(kOverRange | kSampleLoss));
    set("trailerClear," + std::to_string(kValidDataEnable | kValidData));
    trailer = list(1).at(0).trailer();
    EXPECT_EQ(trailer & (kOverRange | kSampleLoss), kOverRange | kSampleLoss);
    EXPECT_EQ(trailer & (kValidDataEnable | kValidData), 0u);
}

TEST_F(Fault, sizeFieldIsWrongOnce) {
    set("sizeFieldOffsetOnce,-5");
    startStream();
    std::vector<uint8_t> bytes = mpData->receive(36 + 44 + 28 + 20);
    ASSERT_EQ(bytes.size(), 128u);
    EXPECT_EQ(bytes[110] << 8 | bytes[111], 1030 - 5);
    mpData->receive(1025 * 4);
    EXPECT_EQ(takeData(*mpData, 1).at(0).words(), 1030u);
}

TEST_F(Fault, garbageStandsBeforeEachPacket) {
    set("garbageBytes,13");
    startStream();
    const auto bytes = mpData->receive(13 + 36 + 13 + 44);
    ASSERT_EQ(bytes.size(), 106u);
    EXPECT_EQ(bytes[13 + 4], 0x90);
    EXPECT_EQ(bytes[13 + 36 + 13 + 7], 0x02);
}

TEST_F(Fault, streamCutToSingleBytesIsStillWhole) {
    set("segmentBytes,1");
    const auto packets = list(2);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[1].words(), 1030u);
}

TEST_F(Fault, dataGoOnAfterAStopUntilTheFaultIsCleared) {
    set("dataAfterStop");
    startStream();
    ASSERT_EQ(takeData(*mpData, 2).size(), 2u);
    mpScpi->send(":TRACe:STReam:STOP; :SYSTEM:FLUSH");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    EXPECT_EQ(takeData(*mpData, 200).size(), 200u);
    set("clear");
    EXPECT_TRUE(vnktest::waitUntil([this] {
        mpData->receive(1 << 16, 1);
        return mpData->quiet(100);
    }));
}

TEST_F(Fault, linksAreClosedAndReset) {
    ASSERT_TRUE(vnktest::waitUntil([this] { return mpUnit->state().dataConnections == 1; }));
    ASSERT_TRUE(mpScpi->ask("*IDN?").has_value());
    set("closeDataOnce");
    EXPECT_TRUE(mpData->ends());
    set("resetScpiOnce");
    EXPECT_TRUE(mpScpi->ends());
    connectClients();
    EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
    set("resetDataOnce");
    EXPECT_TRUE(mpData->ends());
    set("closeScpiOnce");
    EXPECT_TRUE(mpScpi->ends());
}

TEST_F(Fault, portsStopListeningAndComeBack) {
    // A connection that the unit has not taken yet would go with its port.
    ASSERT_TRUE(mpScpi->ask("*IDN?").has_value());
    set("dataNotListening");
    EXPECT_TRUE(
        vnktest::waitUntil([this] { return !Client(mcOptions.address, vnksim::kDataPort).connected(); }));
    set("scpiNotListening");
    EXPECT_TRUE(
        vnktest::waitUntil([this] { return !Client(mcOptions.address, vnksim::kScpiPort).connected(); }));
    EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
    set("clear");
    EXPECT_TRUE(
        vnktest::waitUntil([this] { return Client(mcOptions.address, vnksim::kScpiPort).connected(); }));
    EXPECT_TRUE(
        vnktest::waitUntil([this] { return Client(mcOptions.address, vnksim::kDataPort).connected(); }));
}

TEST_F(Fault, unitDiesAfterTheKthExchangeAndIsRevived) {
    for (const char* death : {"close", "reset", "silent"}) {
        set(std::string("death,") + death);
        set("dieAfterExchanges,3");
        EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
        EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
        EXPECT_TRUE(mpScpi->ask("*IDN?").has_value() || death == std::string("reset"));
        if (std::string(death) == "silent") {
            EXPECT_FALSE(mpScpi->ask("*IDN?", 200).has_value());
            EXPECT_TRUE(Client(mcOptions.address, vnksim::kScpiPort).connected());
        } else {
            EXPECT_TRUE(mpScpi->ends());
            EXPECT_TRUE(mpData->ends());
            EXPECT_TRUE(vnktest::waitUntil(
                [this] { return !Client(mcOptions.address, vnksim::kScpiPort).connected(); }));
        }
        set("clear");
        ASSERT_TRUE(vnktest::waitUntil([this] {
            return Client(mcOptions.address, vnksim::kScpiPort).connected() &&
                   Client(mcOptions.address, vnksim::kDataPort).connected();
        }));
        mpData.reset();
        connectClients();
        EXPECT_TRUE(mpScpi->ask("*IDN?").has_value());
    }
}

TEST_F(Fault, faultsAreSwitchedByCommandToo) {
    EXPECT_EQ(mpScpi->errorAfter("SIMulator:FAULt stuckMode,SWEEPING"), "0,\"No error\"");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "SWEEPING");
    EXPECT_EQ(mpScpi->errorAfter("SIM:FAUL clear"), "0,\"No error\"");
    EXPECT_EQ(mpScpi->ask(":SYSTem:CAPTure:MODE?"), "BLOCK");
    EXPECT_EQ(mpScpi->errorAfter("SIM:FAUL nonsense,1"), "-224,\"Illegal parameter value\"");
    EXPECT_EQ(mpScpi->errorAfter("SIM:FAUL dropOnce,abc"), "-224,\"Illegal parameter value\"");
}

TEST_F(Fault, hostileBytesOnTheCommandPortDoNoHarm) {
    std::string noise;
    for (int i = 0; i < 5000; ++i) {
        noise += static_cast<char>((i * 7919 + i / 3) % 256);
    }
    mpScpi->send(noise);
    mpScpi->send(std::string(3000000, 'x'));
    mpScpi->send("*CLS");
    EXPECT_TRUE(vnktest::waitUntil([this] {
        Client fresh(mcOptions.address, vnksim::kScpiPort);
        return fresh.ask("*IDN?").has_value();
    }));
}

}  // namespace
}  // namespace simtest
