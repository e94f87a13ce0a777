#include "simulator/tests/quillon.h"

namespace simtest {
namespace {

using namespace vnksim::trailer;

class QuillonFault : public QuillonTest {
 protected:
    void SetUp() override {
        QuillonTest::SetUp();
        startQuillon();
    }
    void startStream(int identifier = 1) {
        mpScpi->send(":TRACe:SPPacket 1024;:SENSE:DEC 8;:TRACe:STReam:STARt " + std::to_string(identifier));
    }
    std::vector<WirePacket> list(size_t packets) {
        captureIQ(entry(100e6, 8, 1024), packets);
        return mlPackets;
    }
    /// The contexts before the first data of a stream.
    std::vector<WirePacket> contexts() {
        std::vector<WirePacket> taken;
        startStream();
        EXPECT_EQ(takeData(*mpData, 1, &taken).size(), 1u);
        stopAndReconnect();
        return taken;
    }

    static constexpr size_t kContextBytes = 60, kExtensionBytes = 28, kDataBytes = 4 * 1030;
};

TEST_F(QuillonFault, eachFieldOfThePayloadFormatIsWrongAlone) {
    struct Row {
        unsigned shift, bits;
        uint32_t right;
    };
    // Item size, packing size, channel tag, event tag, repeat, encoding, kind, packing: of the first word.
    const Row first[] = {{0, 6, 15}, {6, 6, 15}, {16, 4, 0}, {20, 3, 0},
                         {23, 1, 0}, {24, 5, 0}, {29, 2, 1}, {31, 1, 0}};
    // Vector size, repeat count: of the second.
    const Row second[] = {{0, 16, 0}, {16, 16, 0}};
    const auto wrong = [](const Row& row, uint32_t word) {
        return (word >> row.shift & ((uint64_t{1} << row.bits) - 1)) != row.right;
    };
    for (unsigned fault = 0; fault <= 10; ++fault) {
        set("payloadFormat," + std::to_string(fault));
        const auto taken = contexts();
        ASSERT_EQ(taken.size(), 2u);
        unsigned field = 0;
        for (const Row& row : first) {
            ++field;
            EXPECT_EQ(wrong(row, taken[0].word(52)), field == fault) << field << " of " << fault;
        }
        for (const Row& row : second) {
            ++field;
            EXPECT_EQ(wrong(row, taken[0].word(56)), field == fault) << field << " of " << fault;
        }
        EXPECT_EQ(taken[0].word(52) & 0xF000, 0u) << "nothing stands between the fields";
    }
}

TEST_F(QuillonFault, contextsAreMissingOrCarryTheModeBit) {
    set("contextMissing");
    auto taken = contexts();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].type(), 5u);
    set("clear");
    set("contextTsm");
    taken = contexts();
    ASSERT_EQ(taken.size(), 2u);
    EXPECT_EQ(taken[0].bytes[0], 0x41);
    EXPECT_EQ(taken[1].bytes[0], 0x51);
    EXPECT_EQ(list(1).at(0).bytes[0], 0x14) << "data have no such bit";
}

TEST_F(QuillonFault, dataComeWithoutOrWithAnotherStream) {
    set("dataWithoutStream");
    startStream();
    auto bytes = mpData->receive(kContextBytes + kExtensionBytes + kDataBytes - 4 + 4);
    ASSERT_EQ(bytes.size(), kContextBytes + kExtensionBytes + kDataBytes);
    const size_t start = kContextBytes + kExtensionBytes;
    EXPECT_EQ(bytes[start], 0x04);
    EXPECT_EQ(bytes[start + 2] << 8 | bytes[start + 3], 1029);
    // The time stands where the stream would, and the next packet follows.
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + start + 4, bytes.begin() + start + 16),
              std::vector<uint8_t>(bytes.begin() + 8, bytes.begin() + 20));
    EXPECT_EQ(bytes[start + kDataBytes - 4], 0x04);
    stopAndReconnect();
    set("clear");
    set("dataStreamOffset,7");
    const auto taken = contexts();
    EXPECT_EQ(list(1).at(0).stream(), taken.at(0).stream() + 7);
    set("clear");
    EXPECT_EQ(list(1).at(0).stream(), taken.at(0).stream());
}

TEST_F(QuillonFault, identifiersAreLeftOutOrWrong) {
    set("identifierMissing");
    EXPECT_EQ(contexts().size(), 1u);
    set("clear");
    set("identifierOffset,-2");
    EXPECT_EQ(contexts().at(1).word(24), static_cast<uint32_t>(-1));
    set("clear");
    set("sweepIdentifierOnly");
    mpScpi->send(":sweep:entry:new;:sweep:entry:save;SWEEP:LIST:START 9");
    std::vector<WirePacket> taken;
    ASSERT_EQ(takeData(*mpData, 1, &taken).size(), 1u);
    EXPECT_EQ(taken.at(1).word(20) & 0x7FFFFFFFu, 1u);
    EXPECT_EQ(taken[1].word(24), 9u);
}

TEST_F(QuillonFault, packetsAreDroppedSwappedAndCutWithTheirCountersAsTheyWere) {
    set("dropOnce,2");
    startStream();
    auto packets = takeData(*mpData, 2);
    EXPECT_EQ(packets.at(0).counter(), 2u);
    EXPECT_EQ(packets.at(1).counter(), 3u);
    stopAndReconnect();
    set("swapOnce");
    packets = list(3);
    EXPECT_EQ(packets.at(0).counter(), 1u);
    EXPECT_EQ(packets.at(1).counter(), 0u);
    EXPECT_EQ(packets.at(2).counter(), 2u);
    set("segmentBytes,1");
    EXPECT_EQ(list(2).at(1).words(), 1030u);
}

TEST_F(QuillonFault, lostSamplesAreFlaggedAndTrailerBitsSetAndCleared) {
    set("loseSamplesOnce,1000");
    auto packets = list(2);
    EXPECT_NE(packets.at(0).trailer() & kSampleLoss, 0u);
    EXPECT_EQ(packets.at(1).trailer() & kSampleLoss, 0u);
    set("trailerSet," + std::to_string(kInversion));
    set("trailerClear," + std::to_string(kInversionEnable));
    packets = list(1);
    EXPECT_EQ(packets.at(0).trailer() & (kInversion | kInversionEnable), kInversion);
}

TEST_F(QuillonFault, sizeFieldsAreWrongOnceAndGarbageStandsBefore) {
    set("sizeFieldOffsetOnce,-1030");
    startStream();
    const auto bytes = mpData->receive(kContextBytes + kExtensionBytes + kDataBytes);
    ASSERT_EQ(bytes.size(), kContextBytes + kExtensionBytes + kDataBytes);
    EXPECT_EQ(bytes[kContextBytes + kExtensionBytes + 2], 0);
    EXPECT_EQ(bytes[kContextBytes + kExtensionBytes + 3], 0);
    EXPECT_EQ(takeData(*mpData, 1).at(0).words(), 1030u);
    stopAndReconnect();
    set("garbageBytes,13");
    startStream();
    const auto soiled = mpData->receive(13 + kContextBytes + 13 + 1);
    ASSERT_EQ(soiled.size(), 13 + kContextBytes + 13 + 1);
    EXPECT_EQ(soiled[13], 0x40);
    EXPECT_EQ(soiled[13 + kContextBytes + 13], 0x50);
}

TEST_F(QuillonFault, dataGoOnAfterAStopUntilTheFaultIsCleared) {
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

TEST_F(QuillonFault, commandFaultsActAsInTheFirstFamily) {
    set("errors,DEBUG:REFERENCE=-200=Execution error");
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL 0"), "-200,\"Execution error\"");
    EXPECT_EQ(mpScpi->errorAfter(":DEBUG:REFERENCE:LEVEL 0"), "0,\"No error\"");
    set("wrongReplies,center? max=not a number");
    EXPECT_EQ(mpScpi->ask(":sense:freq:center? max"), "not a number");
    EXPECT_EQ(mpScpi->ask(":sense:freq:center? min"), "9000");
    set("lockRefusedUntil,abort");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "0");
    mpScpi->send(":SYSTEM:ABORT");
    EXPECT_EQ(mpScpi->ask("SYST:LOCK:REQ? ACQ"), "1");
    set("closeDataOnce");
    EXPECT_TRUE(mpData->ends());
}

}  // namespace
}  // namespace simtest
