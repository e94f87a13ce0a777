#include "receivers/probe.h"

#include <gtest/gtest.h>

#include "support/errorlog.h"
#include "support/faketransport.h"

using vnktest::LogLine;
using vnktest::ReachableUnit;

TEST(Identity, FourFieldsWithAVersionBehindTheType) {
    const auto cRecord = parseIdentity("Maker,ZV100-A 1.2,1234,3.4.5\r\n");
    EXPECT_EQ(cRecord.toCompactText(),
              R"({"firmware":"3.4.5","serial":"1234","type":"ZV100-A","version":"1.2"})");
}

TEST(Identity, AModelWithoutAVersion) {
    const auto cRecord = parseIdentity("Maker,ZV100-A,1234,3.4.5");
    EXPECT_EQ(cRecord.getText("type"), "ZV100-A");
    EXPECT_EQ(cRecord.getText("version"), "");
}

TEST(Identity, FieldsThatAreMissingAreEmpty) {
    for (const char* pReply : {"", "Maker", "Maker,"}) {
        const auto cRecord = parseIdentity(pReply);
        EXPECT_EQ(cRecord.toCompactText(), R"({"firmware":"","serial":"","type":"","version":""})") << pReply;
    }
    EXPECT_EQ(parseIdentity("Maker,Type").getText("type"), "Type");
}

TEST(Identity, WhatStandsBehindTheThirdFieldIsTheFirmware) {
    EXPECT_EQ(parseIdentity("M,T v,S, 1,2,3 \t\r\n").getText("firmware"), "1,2,3");
}

TEST(Identity, BinaryAndHugeRepliesAreJustText) {
    const std::string huge(10u << 20, 'x');
    EXPECT_EQ(parseIdentity(huge).getText("type"), "");
    EXPECT_EQ(parseIdentity("M," + huge).getText("type").value_or("").size(), huge.size());
    const std::string binary("M,\0\xFF T,\x01,\x02", 10);
    EXPECT_EQ(parseIdentity(binary).getText("serial"), "\x01");
}

TEST(Connection, IsSplitAtTheFirstColon) {
    for (const char* pText : {"TCP/IP:10.0.0.1", "10.0.0.1"}) {
        const Connection cConnection = splitConnection(pText);
        EXPECT_EQ(cConnection.mcType, "TCP/IP");
        EXPECT_EQ(cConnection.mcAddress, "10.0.0.1");
    }
    EXPECT_EQ(splitConnection("USB:a:b").mcType, "USB");
    EXPECT_EQ(splitConnection("USB:a:b").mcAddress, "a:b");
    EXPECT_EQ(splitConnection("").mcType, "TCP/IP");
    EXPECT_EQ(splitConnection(":").mcAddress, "");
}

TEST(Connection, PortsAreFixed) {
    EXPECT_EQ(scpiAddress("10.0.0.1"), "10.0.0.1:37001");
    EXPECT_EQ(dataAddress("10.0.0.1", 5000), "10.0.0.1:37000/5000");
}

class Probe : public testing::Test {
 protected:
    void SetUp() override {
        vnktest::takeLog();
        vnktest::takeStatuses();
    }
    ReachableUnit mcUnit;
};

TEST_F(Probe, AUnitThatAnswersIsDescribed) {
    mcUnit->reply("*IDN?", {"Maker,ZV100-A 1.2,1234,3.4.5\n"});
    const auto cRecord = examineDevice(mcUnit.host());
    EXPECT_EQ(cRecord.getText("type"), "ZV100-A");
    EXPECT_EQ(cRecord.getText("connection"), "TCP/IP");
    EXPECT_EQ(cRecord.getText("address"), mcUnit.host());
    EXPECT_FALSE(cRecord.find("device"));
    EXPECT_EQ(mcUnit->takeJournal(),
              (std::vector<std::string>{"[connect 37001]", "[connect 37000/5000]", "*IDN?"}));
    EXPECT_EQ(mcUnit->miLinks, 0);
    EXPECT_TRUE(vnktest::takeStatuses().empty());
}

TEST_F(Probe, WithoutACommandPortTheDataPortIsNotTried) {
    mcUnit->mbRefuseCommands = true;
    EXPECT_EQ(examineDevice(mcUnit.host()).toCompactText(), R"({"device":"unreachable"})");
    EXPECT_EQ(mcUnit->takeJournal(), std::vector<std::string>{"[refused 37001]"});
    EXPECT_EQ(vnktest::takeLog(),
              (std::vector<LogLine>{{-2000, "Cannot open SCPI connection to " + mcUnit.host()}}));
    EXPECT_EQ(vnktest::takeStatuses(), std::vector<int32_t>{-69});
}

TEST_F(Probe, WithoutADataPortTheUnitIsUnreachable) {
    mcUnit->mbRefuseData = true;
    EXPECT_EQ(examineDevice(mcUnit.host()).toCompactText(), R"({"device":"unreachable"})");
    EXPECT_EQ(vnktest::takeLog(),
              (std::vector<LogLine>{{-6005, "Cannot open data connection to " + mcUnit.host()}}));
    EXPECT_EQ(vnktest::takeStatuses(), std::vector<int32_t>{-69});
    EXPECT_EQ(mcUnit->miLinks, 0);
}

TEST_F(Probe, ASilentUnitHasAnEmptyIdentity) {
    const auto cRecord = examineDevice(mcUnit.host());
    EXPECT_EQ(cRecord.getText("type"), "");
    EXPECT_EQ(cRecord.getText("address"), mcUnit.host());
    EXPECT_FALSE(cRecord.find("device"));
    EXPECT_TRUE(vnktest::takeStatuses().empty());
}
