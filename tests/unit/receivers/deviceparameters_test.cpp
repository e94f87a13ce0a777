#include "receivers/deviceparameters.h"

#include <gtest/gtest.h>

#include "flows/entity.h"
#include "support/errorlog.h"
#include "support/faketransport.h"

namespace {

std::string textOf(const utils::VariantRecord& cRecord, const char* pKey) {
    utils::VariantRecord cOne;
    if (const utils::Variant* pValue = cRecord.find(pKey))
        cOne.set(pKey, *pValue);
    return cOne.toCompactText();
}

const char* const kGNSSKeys[] = {
    "GNSSCons",  "GNSSDynamic", "GNSSAntDelay", "GNSSPosnEpoch", "GNSSTimeNanosec", "GNSSValid", "latitude",
    "longitude", "altitude",    "GNSSSpeed",    "GNSSHeading",   "GNSSTrack",       "GNSSMagVar"};

class Settings : public testing::Test {
 protected:
    Settings() {
        mcChannel->setProtocol(
            makeReference<SCPIProtocol>(makeReference<vnktest::FakeTransport>("fake:37001", mcUnit)));
    }
    std::vector<std::string> set(utils::VariantRecord cRecord) {
        ErrorList lErrors;
        takeDeviceParameters(cRecord, lErrors, {*mcChannel, mcStatus, &mbInhibit});
        mlLeft = cRecord.keys();
        return lErrors;
    }
    std::shared_ptr<vnktest::FakeUnit> mcUnit = std::make_shared<vnktest::FakeUnit>();
    ReferencePtr<LinkWatch> mcWatch = makeReference<LinkWatch>();
    ReferencePtr<CommandChannel> mcChannel =
        makeReference<CommandChannel>(mcWatch, CommandWords{"Cannot obtain acquisition access"});
    UnitStatus mcStatus{mcWatch};
    std::atomic<bool> mbInhibit{false};
    std::list<std::string> mlLeft;
};

}  // namespace

TEST(DeviceSchema, WithoutAPositionReceiverHasNoKeysOfOne) {
    const auto cPlain = deviceParameterInfo(false);
    const auto cGNSS = deviceParameterInfo(true);
    for (const char* pKey : kGNSSKeys) {
        EXPECT_FALSE(cPlain.find(pKey)) << pKey;
        EXPECT_TRUE(cGNSS.find(pKey)) << pKey;
    }
    EXPECT_EQ(cPlain.size(), 17u);
    EXPECT_EQ(cGNSS.size(), 30u);
}

TEST(DeviceSchema, ShowsPlainTextsAsTheyAre) {
    const auto cInfo = deviceParameterInfo(true);
    EXPECT_EQ(cInfo.getText("RefdBm"), "<Maximum expected signal level - program via stream>");
    EXPECT_EQ(cInfo.getText("RxSampleRate"), "<Receiver base sampling rate>");
    EXPECT_EQ(cInfo.getText("iqequalization"), "<true iff IFBW equalization is available>");
    EXPECT_EQ(cInfo.getText("SweepActive"), "<spectrum sweep active flag>");
    EXPECT_EQ(cInfo.getText("IQActive"), "<IQ streaming active flag>");
    EXPECT_EQ(cInfo.getText("NTPServers"), "<Comma-separated IP NTP server list (up to 3)>");
    EXPECT_EQ(cInfo.getText("SCPIQueryTimeout"), "<timeout in msec for SCPI call completion>");
    EXPECT_EQ(cInfo.getText("deviceTemperature"),
              "<device temperatures in degC - RF, Mixer, Digital sections>");
    EXPECT_EQ(cInfo.getText("GNSSCons"),
              "<Programmed GNSS Constellation set (1 or 2 of GPS, BEIDOU, GLONASS)>");
    EXPECT_EQ(cInfo.getText("GNSSPosnEpoch"), "<Epoch(msec UTC) of last GNSS position report received>");
    // Its bracket has never been closed.
    EXPECT_EQ(cInfo.getText("GNSSTimeNanosec"),
              "<Epoch(nanosec UTC) from GNSS information - available during streaming");
    EXPECT_EQ(cInfo.getText("GNSSValid"), "<GNSS data available flag>");
    EXPECT_EQ(cInfo.getText("FMinHz"), "<minimum extent of sweep frequency range>");
    EXPECT_EQ(cInfo.getText("FMaxHz"), "<maximum extent of sweep frequency range>");
    EXPECT_EQ(cInfo.getText("RBWHz"), "<spectrum resolution bandwidth>");
    EXPECT_EQ(cInfo.getText("FCentreHz"), "<centre frequency for IQ streaming>");
    EXPECT_EQ(cInfo.getText("IFBWHz"), "<IF bandwidth for IQ streaming>");
}

TEST(DeviceSchema, ShowsUnitsBesideTheDescription) {
    const auto cInfo = deviceParameterInfo(true);
    EXPECT_EQ(
        textOf(cInfo, "GNSSAntDelay"),
        R"({"GNSSAntDelay":{"description":"<Programmed GNSS Antenna delay integer>","units":"nanoseconds"}})");
    EXPECT_EQ(
        textOf(cInfo, "latitude"),
        R"({"latitude":{"description":"<GNSS-reported latitude>","readonly":true,"units":"degrees North"}})");
    const std::pair<const char*, const char*> kUnits[] = {
        {"longitude", "degrees East"},   {"altitude", "meters MSL"},    {"GNSSSpeed", "m/sec"},
        {"GNSSHeading", "degrees true"}, {"GNSSTrack", "degrees true"}, {"GNSSMagVar", "degrees true"}};
    for (const auto& [pKey, pUnits] : kUnits)
        EXPECT_EQ(cInfo.find(pKey)->getRecord()->getText("units"), pUnits) << pKey;
}

TEST(DeviceSchema, ListsTheValuesThatCanBeGiven) {
    const auto cInfo = deviceParameterInfo(true);
    EXPECT_EQ(
        textOf(cInfo, "GNSSDynamic"),
        R"({"GNSSDynamic":{"description":"<GNSS Dynamic mode>","values":["portable","stationary","pedestrian","automotive","atSea","airborne<1g","airborne<2g","airborne<4g"]}})");
    EXPECT_EQ(
        textOf(cInfo, "pllSource"),
        R"({"pllSource":{"description":"<PLL disciplining source>","values":["internal","external","gnss","gps"]}})");
    EXPECT_EQ(
        textOf(cInfo, "ppsSource"),
        R"({"ppsSource":{"description":"<PPS disciplining source>","values":["external","gnss","gps"]}})");
    EXPECT_EQ(
        textOf(cInfo, "timeSync"),
        R"({"timeSync":{"description":"<Time Sync option>","values":["disable","once","continuous"]}})");
    EXPECT_EQ(cInfo.find("WindowFn")->getRecord()->getText("description"),
              "<window used to reconstruct spectrum>");
    EXPECT_EQ(cInfo.find("WindowFn")->getRecord()->find("values")->getArray().size(), 12u);
}

TEST(DeviceParameters, PositionIsShownWhileItIsValid) {
    UnitStatusFields cStatus;
    cStatus.muGNSSEpochMs = 1700000000000;
    cStatus.muGNSSTimeNs = 1700000000123456789;
    const DeviceState cState = {125e6f, true, false, true, 1000, true};
    utils::VariantRecord cHidden;
    addDeviceParameters(cHidden, cState, cStatus);
    EXPECT_FALSE(cHidden.find("latitude"));
    EXPECT_FALSE(cHidden.find("GNSSTimeNanosec"));
    EXPECT_EQ(textOf(cHidden, "GNSSPosnEpoch"), R"({"GNSSPosnEpoch":1700000000000})");
    EXPECT_EQ(cHidden.getBool("GNSSValid"), false);
    EXPECT_EQ(cHidden.getBool("IQActive"), true);

    cStatus.mbGNSSValid = true;
    utils::VariantRecord cShown;
    addDeviceParameters(cShown, cState, cStatus);
    for (const char* pKey : kGNSSKeys)
        EXPECT_TRUE(cShown.find(pKey)) << pKey;
    EXPECT_EQ(textOf(cShown, "GNSSTimeNanosec"), R"({"GNSSTimeNanosec":1700000000123456789})");

    cStatus.muGNSSTimeNs = 0;
    utils::VariantRecord cTimeless;
    addDeviceParameters(cTimeless, cState, cStatus);
    EXPECT_FALSE(cTimeless.find("GNSSTimeNanosec"));
    EXPECT_TRUE(cTimeless.find("latitude"));
}

TEST(DeviceParameters, WithoutAPositionReceiverShowNoneOfItsKeys) {
    utils::VariantRecord cRecord;
    UnitStatusFields cStatus;
    cStatus.mbGNSSValid = true;
    addDeviceParameters(cRecord, {125e6f, false, false, false, 1000, false}, cStatus);
    for (const char* pKey : kGNSSKeys)
        EXPECT_FALSE(cRecord.find(pKey)) << pKey;
}

TEST_F(Settings, AQueryTimeoutIsACount) {
    EXPECT_TRUE(set(utils::VariantRecord(R"({"SCPIQueryTimeout":250})")).empty());
    EXPECT_EQ(mcChannel->queryTimeoutMs(), 250u);
    set(utils::VariantRecord(R"({"SCPIQueryTimeout":1500.0})"));
    EXPECT_EQ(mcChannel->queryTimeoutMs(), 1500u);
    for (const char* pText :
         {R"({"SCPIQueryTimeout":-1.0})", R"({"SCPIQueryTimeout":5e9})", R"({"SCPIQueryTimeout":nan.})",
          R"({"SCPIQueryTimeout":"soon"})", R"({"SCPIQueryTimeout":true})"}) {
        set(utils::VariantRecord(pText));
        EXPECT_EQ(mlLeft, std::list<std::string>{"SCPIQueryTimeout"}) << pText;
    }
    EXPECT_EQ(mcChannel->queryTimeoutMs(), 1500u);
}

TEST_F(Settings, InhibitContinuousSweepIsABoolean) {
    set(utils::VariantRecord(R"({"InhibitContinuousSweep":true})"));
    EXPECT_TRUE(mbInhibit);
    set(utils::VariantRecord(R"({"InhibitContinuousSweep":0})"));
    EXPECT_TRUE(mbInhibit);
    EXPECT_EQ(mlLeft, std::list<std::string>{"InhibitContinuousSweep"});
}

TEST_F(Settings, AValueOfAnotherKindStaysInTheRecord) {
    mcStatus.setGNSSFitted(true);
    set(utils::VariantRecord(
        R"({"NTPServers":1,"GNSSAntDelay":"x","GNSSCons":true,"GNSSDynamic":2,"pllSource":1,"ppsSource":false,"timeSync":0})"));
    EXPECT_EQ(mlLeft.size(), 7u);
    EXPECT_TRUE(mcUnit->journal().empty());
}

TEST_F(Settings, HostileTextsReachTheUnitAsData) {
    mcStatus.setGNSSFitted(true);
    mcUnit->reply("SYST:ERR?", {"0\n"});
    utils::VariantRecord cRecord;
    cRecord.set("NTPServers", "%s%n%d");
    cRecord.set("GNSSDynamic", "%s");
    EXPECT_EQ(set(cRecord), std::vector<std::string>{"Parameter GNSSDynamic value '%s' is invalid"});
    EXPECT_EQ(mcUnit->takeJournal(), (std::vector<std::string>{"SYSTEM:COMMUNICATE:NTP %s%n%d", "SYST:ERR?",
                                                               "SYSTEM:COMMUNICATE:NTP?"}));
}

TEST_F(Settings, NothingIsStoredThatTheUnitDoesNotConfirm) {
    mcUnit->reply("SYST:ERR?", {"0,\"No error\"\n"});
    set(utils::VariantRecord(R"({"NTPServers":"10.0.0.1"})"));
    EXPECT_EQ(mcStatus.fields().mcNTPServers, "");
    mcUnit->reply("SYSTEM:COMMUNICATE:NTP?", {" 10.0.0.9\r\n"});
    set(utils::VariantRecord(R"({"NTPServers":"10.0.0.1"})"));
    EXPECT_EQ(mcStatus.fields().mcNTPServers, "10.0.0.9");
}

TEST_F(Settings, OfADeviceWithoutAnInhibitionTheKeyStaysAndIsToldAsUnknown) {
    utils::VariantRecord cRecord(R"({"InhibitContinuousSweep":true,"SCPIQueryTimeout":1234})");
    ErrorList lErrors;
    takeDeviceParameters(cRecord, lErrors, {*mcChannel, mcStatus, nullptr});
    EXPECT_TRUE(lErrors.empty());
    EXPECT_EQ(cRecord.keys(), std::list<std::string>{"InhibitContinuousSweep"});
    EXPECT_EQ(mcChannel->queryTimeoutMs(), 1234u);
    vnktest::takeStatuses();
    class PlainEntity : public Entity {
        utils::VariantRecord getParameterInfo() override { return {}; }
        utils::VariantRecord getParameters() override { return {}; }
    } cEntity;
    cEntity.Entity::setParameters(cRecord, lErrors);
    EXPECT_EQ(lErrors, ErrorList{"Unknown parameter 'InhibitContinuousSweep'"});
    EXPECT_EQ(vnktest::takeStatuses(), std::vector<int32_t>{-33});
    EXPECT_FALSE(mbInhibit);
}
