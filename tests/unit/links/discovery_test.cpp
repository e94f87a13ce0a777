#include "links/discovery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string response(const std::string& model, const std::string& serial, const std::string& firmware) {
    std::string bytes("\x93\x31\x66\x66\x00\x00\x00\x02", 8);
    for (std::string field : {model, serial, firmware}) {
        field.resize(16, '\0');
        bytes += field;
    }
    return bytes + std::string(4, '\x7F');
}

struct Outcome {
    bool mbEntry;
    std::string mIdentity;
    std::string mMessage;
};

Outcome parse(const std::string& bytes) {
    Outcome cOutcome{false, "untouched", ""};
    cOutcome.mbEntry = parseDiscoveryResponse(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
                                              "10.1.2.3", cOutcome.mIdentity, cOutcome.mMessage);
    return cOutcome;
}

TEST(Discovery, AnAdapterBroadcastsToItsSmallAndItsMiddleNetwork) {
    EXPECT_THAT(broadcastAddresses("192.168.5.7"), ElementsAre("192.168.5.255", "192.168.255.255"));
    EXPECT_THAT(broadcastAddresses("10.0.0.255"), ElementsAre("10.0.0.255", "10.0.255.255"));
}

TEST(Discovery, ATextThatIsNoAddressBroadcastsNowhere) {
    for (const char* pText : {"", "1.2.3", "1.2.3.", "1.2.3.4.", "1.2.3.256", "a.b.c.d", "1..2.3", "-1.2.3.4",
                              "1.2.3.4 ", "0001.2.3.4", "::1"})
        EXPECT_THAT(broadcastAddresses(pText), IsEmpty()) << pText;
}

TEST(Discovery, AnAnswerIsModelSerialAndFirmware) {
    const Outcome cOutcome = parse(response("MODEL-1", "S123", "1.2.3"));
    EXPECT_TRUE(cOutcome.mbEntry);
    EXPECT_EQ(cOutcome.mIdentity, "MODEL-1:S123:1.2.3");
    EXPECT_EQ(cOutcome.mMessage, "");
}

TEST(Discovery, AFieldThatIsFullHasNoTerminator) {
    const Outcome cOutcome =
        parse(response("0123456789ABCDEF", "fedcba9876543210", "V.................").substr(0, 60));
    EXPECT_TRUE(cOutcome.mbEntry);
    EXPECT_EQ(cOutcome.mIdentity, "0123456789ABCDEF:fedcba9876543210:V...............");
}

TEST(Discovery, EmptyFieldsAndStrangeBytesAreTakenAsTheyAre) {
    EXPECT_EQ(parse(response("", "", "")).mIdentity, "::");
    EXPECT_EQ(parse(response("a:b\"", "\x80\xff", "%s%n")).mIdentity, "a:b\":\x80\xff:%s%n");
}

TEST(Discovery, AnotherLengthIsReportedAndIgnored) {
    const std::string good = response("M", "S", "F");
    for (const std::string& bytes : {good.substr(0, 59), good + "x", std::string()}) {
        const Outcome cOutcome = parse(bytes);
        EXPECT_FALSE(cOutcome.mbEntry);
        EXPECT_EQ(cOutcome.mIdentity, "untouched");
        EXPECT_EQ(cOutcome.mMessage, "Unit at IP 10.1.2.3 returned invalid length (" +
                                         std::to_string(bytes.size()) + ") response. Ignored.");
    }
}

TEST(Discovery, AnotherCodeIsReportedAndIgnored) {
    std::string bytes = response("M", "S", "F");
    bytes[2] = bytes[3] = 0x55;
    const Outcome cEcho = parse(bytes);
    EXPECT_FALSE(cEcho.mbEntry);
    EXPECT_EQ(cEcho.mMessage, "Unit at IP 10.1.2.3 returned incorrect response code 0x93315555. Ignored.");
    bytes[0] = bytes[1] = bytes[2] = 0;
    EXPECT_EQ(parse(bytes).mMessage,
              "Unit at IP 10.1.2.3 returned incorrect response code 0x00000055. Ignored.");
}

TEST(Discovery, EveryDatagramGivesAnEntryOrAMessage) {
    std::mt19937 cRandom(18331);
    for (int i = 0; i < 20000; ++i) {
        std::string bytes(i % 4 ? 60 : cRandom() % 513, '\0');
        for (char& cByte : bytes)
            cByte = static_cast<char>(cRandom());
        if (i % 2 && bytes.size() >= 4)
            bytes.replace(0, 4, "\x93\x31\x66\x66");
        const Outcome cOutcome = parse(bytes);
        EXPECT_EQ(cOutcome.mbEntry, cOutcome.mMessage.empty());
        EXPECT_EQ(cOutcome.mbEntry, bytes.size() == 60 && bytes.starts_with("\x93\x31\x66\x66"));
        if (cOutcome.mbEntry) {
            EXPECT_LE(cOutcome.mIdentity.size(), 50u);
        }
    }
}

}  // namespace
