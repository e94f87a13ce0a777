#include "receivers/unitstatus.h"

#include <gtest/gtest.h>

#include "support/faketransport.h"

using Lines = std::vector<std::string>;

namespace {

class Status : public testing::Test {
 protected:
    Status() {
        mcStatus.setGNSSFitted(true);
        mcUnit->reply(":GNSS:POSition?", {"46.25,-76.5,120.5\n"});
    }
    void pass(uint64_t uMs) { muNowMs += uMs; }
    bool asked(const std::string& query) {
        const Lines lLines = mcUnit->takeJournal();
        return std::find(lLines.begin(), lLines.end(), query) != lLines.end();
    }

    std::shared_ptr<vnktest::FakeUnit> mcUnit = std::make_shared<vnktest::FakeUnit>();
    ReferencePtr<SCPIProtocol> mcProtocol =
        makeReference<SCPIProtocol>(makeReference<vnktest::FakeTransport>("fake:37001", mcUnit));
    ReferencePtr<LinkWatch> mcWatch = makeReference<LinkWatch>();
    uint64_t muNowMs = 50;  // of a machine that has just started
    UnitStatus mcStatus{mcWatch, [this] { return muNowMs; }};
};

}  // namespace

TEST_F(Status, BeginsWithTheValuesOfANewDevice) {
    const UnitStatusFields cFields = mcStatus.fields();
    EXPECT_EQ(std::bit_cast<uint32_t>(cFields.mfLatitude), 0x42355555u);
    EXPECT_EQ(std::bit_cast<uint32_t>(cFields.mfLongitude), 0xC297CCCCu);
    EXPECT_EQ(std::bit_cast<uint32_t>(cFields.mfMagneticVariation), 0xC14DC28Fu);
    EXPECT_EQ(cFields.mfAltitude, 160.0f);
    EXPECT_EQ(cFields.muDynamicMode, 2u);
    EXPECT_EQ(cFields.mcPLLSource, "internal");
    EXPECT_EQ(cFields.mcPPSSource, "");
    EXPECT_FALSE(cFields.mbGNSSValid);
    EXPECT_EQ(cFields.muGNSSEpochMs, 0u);
}

TEST_F(Status, APositionIsValidAndStampedWithTheSystemsTime) {
    const uint64_t uBefore = utils::systemMicroseconds() / 1000;
    mcStatus.queryGNSS(mcProtocol, true);
    const UnitStatusFields cFields = mcStatus.fields();
    EXPECT_TRUE(cFields.mbGNSSValid);
    EXPECT_EQ(cFields.mfLatitude, 46.25f);
    EXPECT_EQ(cFields.mfLongitude, -76.5f);
    EXPECT_EQ(cFields.mfAltitude, 120.5f);
    EXPECT_GE(cFields.muGNSSEpochMs, uBefore);
    EXPECT_EQ(mcUnit->takeJournal(), Lines{":GNSS:POSition?"});
    EXPECT_NE(mcWatch->lastActivityMs(), 0u);
}

TEST_F(Status, APositionOffTheGlobeIsLeftAlone) {
    for (const char* pReply :
         {"91,1,2\n", "-90.001,1,2\n", "nan,1,2\n", "none\n", ",1,2\n", "1e400,1,2\n", ""}) {
        mcUnit->reply(":GNSS:POSition?", {pReply});
        mcStatus.queryGNSS(mcProtocol, true);
        const UnitStatusFields cFields = mcStatus.fields();
        EXPECT_EQ(std::bit_cast<uint32_t>(cFields.mfLatitude), 0x42355555u) << pReply;
        EXPECT_EQ(cFields.mfAltitude, 160.0f) << pReply;
        EXPECT_EQ(cFields.muGNSSEpochMs, 0u) << pReply;
        EXPECT_FALSE(cFields.mbGNSSValid) << pReply;
    }
}

TEST_F(Status, APositionWithoutItsOtherFieldsKeepsThoseThatWereThere) {
    mcUnit->reply(":GNSS:POSition?", {"-90\n"});
    mcStatus.queryGNSS(mcProtocol, true);
    const UnitStatusFields cFields = mcStatus.fields();
    EXPECT_EQ(cFields.mfLatitude, -90.0f);
    EXPECT_EQ(cFields.mfAltitude, 160.0f);
    EXPECT_TRUE(cFields.mbGNSSValid);
}

TEST_F(Status, ValidityEndsTenSecondsAfterTheLastGoodReport) {
    mcStatus.queryGNSS(mcProtocol, true);
    mcUnit->reply(":GNSS:POSition?", {"no fix\n"});
    pass(10000);
    mcStatus.queryGNSS(mcProtocol, true);
    EXPECT_TRUE(mcStatus.fields().mbGNSSValid);
    pass(1);
    EXPECT_TRUE(mcStatus.fields().mbGNSSValid);  // only a query looks
    mcStatus.queryGNSS(mcProtocol, true);
    EXPECT_FALSE(mcStatus.fields().mbGNSSValid);
    EXPECT_EQ(mcStatus.fields().mfLatitude, 46.25f);
}

TEST_F(Status, TheLongFormReadsTheSettingsFirst) {
    mcUnit->reply(":GNSS:ADELay?", {"-12\n"});
    mcUnit->reply(":GNSS:CONStellation?", {" GPS,BEIDOU\r\n"});
    mcUnit->reply(":GNSS:DYNamic:MODE?", {"8\n"});
    mcStatus.queryGNSS(mcProtocol, false);
    EXPECT_EQ(mcUnit->takeJournal(),
              (Lines{":GNSS:ADELay?", ":GNSS:CONStellation?", ":GNSS:DYNamic:MODE?", ":GNSS:POSition?"}));
    EXPECT_EQ(mcStatus.fields().miAntennaDelayNs, -12);
    EXPECT_EQ(mcStatus.fields().mcConstellation, "GPS,BEIDOU");
    EXPECT_EQ(dynamicModeName(mcStatus.fields().muDynamicMode), "airborne<4g");
}

TEST_F(Status, GarbageLeavesEachFieldAsItWas) {
    mcUnit->otherwise([](const std::string&) { return "\xFF\x01garbage\n"; });
    mcUnit->reply(":GNSS:POSition?", {"garbage\n"});
    mcStatus.readAtOpen(mcProtocol);
    const UnitStatusFields cFields = mcStatus.fields();
    EXPECT_EQ(cFields.miAntennaDelayNs, 0);
    EXPECT_EQ(cFields.muDynamicMode, 2u);
    EXPECT_EQ(cFields.mcPLLSource, "internal");
    EXPECT_EQ(cFields.mcPPSSource, "");
    EXPECT_EQ(cFields.mcTimeSync, "");
    // Texts that nothing is known about are stored as they stand.
    EXPECT_EQ(cFields.mcTime, "\xFF\x01garbage");
}

TEST_F(Status, SilenceLeavesEachFieldAsItWas) {
    mcUnit->reply(":SYSTem:TIME?", {"12:00\n", ""});
    mcStatus.readAtOpen(mcProtocol);
    mcStatus.readAtOpen(mcProtocol);
    EXPECT_EQ(mcStatus.fields().mcTime, "12:00");
    EXPECT_EQ(mcStatus.fields().mcPLLSource, "internal");
}

TEST_F(Status, AUnitWithoutAPositionReceiverIsNotAskedForIt) {
    mcStatus.setGNSSFitted(false);
    mcStatus.queryGNSS(mcProtocol, false);
    EXPECT_TRUE(mcUnit->journal().empty());
}

TEST_F(Status, NothingIsAskedWithoutAProtocol) {
    mcStatus.queryGNSS({}, false);
    mcStatus.readAtOpen({});
    EXPECT_FALSE(mcStatus.queryTemperature({}));
    mcStatus.refresh({});
    EXPECT_FALSE(mcStatus.fields().mbGNSSValid);
}

TEST_F(Status, ARefreshAsksForWhatIsTenSecondsOld) {
    mcUnit->reply(":STATus:TEMPerature?", {"40,41,42\n"});
    mcStatus.refresh(mcProtocol);
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{":STATus:TEMPerature?", ":GNSS:POSition?"}));
    pass(9999);
    mcStatus.refresh(mcProtocol);
    EXPECT_TRUE(mcUnit->takeJournal().empty());
    pass(1);
    mcStatus.refresh(mcProtocol);
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{":STATus:TEMPerature?", ":GNSS:POSition?"}));
    EXPECT_EQ(mcStatus.fields().mcTemperature, "40,41,42");
}

TEST_F(Status, ATemperatureThatDidNotComeIsNotAskedForAtOnce) {
    mcStatus.refresh(mcProtocol);
    EXPECT_TRUE(asked(":STATus:TEMPerature?"));
    pass(5000);
    mcStatus.refresh(mcProtocol);
    EXPECT_FALSE(asked(":STATus:TEMPerature?"));
    // A position that never came is asked for each time.
    mcUnit->reply(":GNSS:POSition?", {""});
    pass(10000);
    mcStatus.refresh(mcProtocol);
    mcUnit->takeJournal();
    mcStatus.refresh(mcProtocol);
    EXPECT_TRUE(asked(":GNSS:POSition?"));
}

TEST_F(Status, AFixFromTheStreamFillsTheSameFields) {
    mcStatus.queryGNSS(mcProtocol, true);
    VITA49Zelvar::GNSSFix cFix;
    cFix.muSeconds = 1700000000;
    cFix.muPicoseconds = 123456789000;
    cFix.mfLatitude = 1.0f;
    cFix.mfLongitude = 2.0f;
    cFix.mfAltitude = 3.0f;
    cFix.mfSpeed = 4.0f;
    cFix.mfHeading = 5.0f;
    cFix.mfTrack = 6.0f;
    cFix.mfMagneticVariation = 7.0f;
    mcStatus.takeFix(cFix);
    UnitStatusFields cFields = mcStatus.fields();
    EXPECT_EQ(cFields.mfLatitude, 1.0f);
    EXPECT_EQ(cFields.mfAltitude, 3.0f);
    EXPECT_EQ(cFields.mfMagneticVariation, 7.0f);
    EXPECT_EQ(cFields.muGNSSTimeNs, 1700000000123456789u);
    // A report of the query has no time of its own.
    mcStatus.queryGNSS(mcProtocol, true);
    EXPECT_EQ(mcStatus.fields().muGNSSTimeNs, 0u);
}

TEST_F(Status, AFixThatIsMarkedAbsentMovesNothing) {
    mcStatus.takeFix({});
    const UnitStatusFields cFields = mcStatus.fields();
    EXPECT_EQ(std::bit_cast<uint32_t>(cFields.mfLatitude), 0x42355555u);
    EXPECT_EQ(cFields.mfAltitude, 160.0f);
}

TEST_F(Status, AFixIsNoBusinessOfAUnitWithoutAPositionReceiver) {
    mcStatus.setGNSSFitted(false);
    VITA49Zelvar::GNSSFix cFix;
    cFix.mfLatitude = 1.0f;
    mcStatus.takeFix(cFix);
    EXPECT_EQ(std::bit_cast<uint32_t>(mcStatus.fields().mfLatitude), 0x42355555u);
}

TEST(ValueTables, AreReadFirstMatchFirst) {
    EXPECT_STREQ(findByParameter(pllSourceTable(), "gps")->mpUnit, "GNSS");
    EXPECT_STREQ(findByUnit(pllSourceTable(), "GNSS")->mpParameter, "gnss");
    EXPECT_STREQ(findByUnit(pllSourceTable(), "INT")->mpParameter, "internal");
    EXPECT_EQ(findByParameter(ppsSourceTable(), "internal"), nullptr);
    EXPECT_EQ(findByUnit(ppsSourceTable(), "INT"), nullptr);
    EXPECT_STREQ(findByParameter(timeSyncTable(), "continuous")->mpUnit, "NTP,CONTINUOUS");
    EXPECT_EQ(findByParameter(timeSyncTable(), "Once"), nullptr);
    EXPECT_EQ(findByUnit({}, ""), nullptr);
}

TEST(DynamicModes, NumberOneAndThoseBeyondTheTableHaveNoName) {
    EXPECT_EQ(dynamicModeName(0), "portable");
    EXPECT_EQ(dynamicModeName(1), "");
    EXPECT_EQ(dynamicModeName(8), "airborne<4g");
    EXPECT_EQ(dynamicModeName(9), "");
    EXPECT_EQ(dynamicModeName(0xFFFFFFFFu), "");
}

TEST(Options, AreItemsOfAList) {
    EXPECT_TRUE(hasOption("003", "003"));
    EXPECT_TRUE(hasOption("001, 003 ,\t004\r\n", "003"));
    EXPECT_TRUE(hasOption("001,003\r\n", "003"));
    EXPECT_FALSE(hasOption("", "003"));
    EXPECT_FALSE(hasOption("0031,1003,00 3", "003"));
}
