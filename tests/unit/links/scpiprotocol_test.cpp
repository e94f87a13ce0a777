#include "links/scpiprotocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faketransport.h"
#include "log.h"

using testing::ElementsAre;
using testing::IsEmpty;
using vnktest::FakeTransport;
using vnktest::LogLine;

namespace {

class SCPI : public testing::Test {
 protected:
    SCPI() { vnktest::clearLog(); }
    std::string call(const std::string& query, const std::string& reply) {
        mcTransport->reply(reply);
        return mcProtocol->call(query, 2000);
    }

    ReferencePtr<FakeTransport> mcTransport = makeReference<FakeTransport>();
    ReferencePtr<SCPIProtocol> mcProtocol = makeReference<SCPIProtocol>(mcTransport);
    ReferencePtr<SCPIProtocol> mcLoose = makeReference<SCPIProtocol>(nullptr);
};

TEST_F(SCPI, TheProtocolIsNamedAndOpenWithItsTransport) {
    EXPECT_EQ(mcProtocol->getName(), "SCPI");
    EXPECT_TRUE(mcProtocol->isOpen());
    EXPECT_TRUE(mcProtocol->closeTransport());
    EXPECT_FALSE(mcProtocol->isOpen());
    EXPECT_TRUE(mcProtocol->openTransport());
    EXPECT_TRUE(mcProtocol->isOpen());
    EXPECT_FALSE(mcLoose->isOpen());
    EXPECT_FALSE(mcLoose->closeTransport());
    EXPECT_FALSE(mcLoose->openTransport());
}

TEST_F(SCPI, ACommandGoesOutWithOneLineFeed) {
    EXPECT_TRUE(mcProtocol->sendCommand("*RST"));
    EXPECT_THAT(mcTransport->sent(), ElementsAre("*RST\n"));
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(1000, "SCPI Send: *RST")));
}

TEST_F(SCPI, ACommandThatBringsItsLineFeedGoesOutWithNone) {
    EXPECT_TRUE(mcProtocol->sendCommand("*RST\n"));
    EXPECT_THAT(mcTransport->sent(), ElementsAre("*RST"));
}

TEST_F(SCPI, ACommandIsTrimmedAtBothEnds) {
    EXPECT_TRUE(mcProtocol->sendCommand("\t *CLS\r"));
    EXPECT_THAT(mcTransport->sent(), ElementsAre("*CLS\n"));
}

TEST_F(SCPI, AQueryIsRefusedAsACommandAndNothingIsSent) {
    EXPECT_FALSE(mcProtocol->sendCommand("*IDN?"));
    EXPECT_THAT(mcTransport->sent(), IsEmpty());
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-2002, "Bad SCPI command: *IDN?")));
}

TEST_F(SCPI, OnlyTheLastCharacterMakesACommandAQuery) {
    EXPECT_TRUE(mcProtocol->sendCommand("*IDN? "));
    EXPECT_TRUE(mcProtocol->sendCommand("SYST:LOCK:REQ? ACQ"));
    EXPECT_THAT(mcTransport->sent(), ElementsAre("*IDN?\n", "SYST:LOCK:REQ? ACQ\n"));
}

TEST_F(SCPI, AnEmptyCommandIsRefused) {
    EXPECT_FALSE(mcProtocol->sendCommand(""));
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-2002, "Specified SCPI command is empty")));
    EXPECT_TRUE(mcProtocol->sendCommand("  "));
    EXPECT_THAT(mcTransport->sent(), ElementsAre("\n"));
}

TEST_F(SCPI, ACommandWithALineFeedInsidePasses) {
    EXPECT_TRUE(mcProtocol->sendCommand("*CLS\n*RST"));
    EXPECT_THAT(mcTransport->sent(), ElementsAre("*CLS\n*RST\n"));
}

TEST_F(SCPI, AFailedSendIsReportedWithTheTransportsText) {
    mcTransport->failSends("Socket failed with error code 32");
    EXPECT_FALSE(mcProtocol->sendCommand(" *RST "));
    EXPECT_THAT(
        vnktest::takeLog(),
        ElementsAre(LogLine(-2003, "SCPI Send failed: <*RST> error:Socket failed with error code 32")));
}

TEST_F(SCPI, WithoutATransportEverythingIsRefused) {
    EXPECT_FALSE(mcLoose->sendCommand("*RST"));
    EXPECT_FALSE(mcLoose->callBinary("*IDN?", 0, 10));
    EXPECT_THAT(vnktest::takeLog(),
                ElementsAre(LogLine(-2000, "Bad SCPI transport"), LogLine(-2000, "Bad SCPI transport")));
    EXPECT_EQ(mcLoose->call("*IDN?", 10), "");
}

TEST_F(SCPI, ACallWithoutAQuestionMarkIsRefused) {
    EXPECT_EQ(mcProtocol->call(":SYSTEM:FLUSH", 1000), "");
    EXPECT_THAT(
        vnktest::takeLog(),
        ElementsAre(LogLine(-2001, "Bad SCPI call: :SYSTEM:FLUSH"),
                    LogLine(1000, "SCPI Call: ':SYSTEM:FLUSH ' => NO RESPONSE within timeout (1000msec)")));
    EXPECT_THAT(mcTransport->sent(), IsEmpty());
}

TEST_F(SCPI, AnEmptyCallIsRefused) {
    EXPECT_FALSE(mcProtocol->callBinary(" \r\n", 0, 1000));
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(-2001, "Specified SCPI call is empty")));
}

TEST_F(SCPI, TheQuestionMarkOfACallNeedNotBeLast) {
    EXPECT_EQ(call("SYST:LOCK:REQ? ACQ", "1\n"), "1\n");
    EXPECT_THAT(mcTransport->sent(), ElementsAre("SYST:LOCK:REQ? ACQ\n"));
}

TEST_F(SCPI, ACallAlwaysGoesOutWithOneLineFeed) {
    call("*IDN?\n", "x");
    EXPECT_THAT(mcTransport->sent(), ElementsAre("*IDN?\n"));
}

TEST_F(SCPI, AReplyComesAsItIsAndIsTracedTrimmed) {
    EXPECT_EQ(call(" *OPC? ", "OK\n"), "OK\n");
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(1000, "SCPI Call: *OPC?, received:OK"),
                                                LogLine(1000, "SCPI Call: '*OPC?' OK\r\n")));
}

TEST_F(SCPI, AReplyIsDataAndNeverAFormat) {
    const std::string reply = std::string("%s%n%d \x80\xff") + '\0' + "end";
    EXPECT_EQ(call("Q?", reply), reply);
    EXPECT_THAT(vnktest::takeLog(), ElementsAre(LogLine(1000, "SCPI Call: Q?, received:" + reply),
                                                LogLine(1000, "SCPI Call: 'Q?' " + reply + "\r\n")));
}

TEST_F(SCPI, AReplyOfTenMegabytesIsReturnedWhole) {
    const std::string reply(10 << 20, 'r');
    EXPECT_EQ(call("Q?", reply), reply);
}

TEST_F(SCPI, NoReplyIsTracedWithQueryAndTimeout) {
    EXPECT_EQ(mcProtocol->call("*IDN? ", 30), "");
    EXPECT_THAT(vnktest::takeLog(),
                ElementsAre(LogLine(1000, "SCPI Call: '*IDN? ' => NO RESPONSE within timeout (30msec)")));
}

TEST_F(SCPI, ABinaryCallCollectsTheLeastSize) {
    mcTransport->reply("#3");
    mcTransport->reply("abc");
    const auto cReply = mcProtocol->callBinary("DATA?", 5, 2000);
    ASSERT_TRUE(cReply);
    EXPECT_EQ(cReply->getText(), "#3abc");  // the read position stayed where it was
}

TEST_F(SCPI, AReplySplitAnywhereLosesItsTail) {
    const std::string reply = "MAKER,MODEL,SERIAL,1.0\n";
    for (size_t uAt = 1; uAt < reply.size(); ++uAt) {
        mcTransport->reply(reply.substr(0, uAt));
        mcTransport->reply(reply.substr(uAt));
        ASSERT_EQ(mcProtocol->call("*IDN?", 2000), reply.substr(0, uAt));
    }
}

TEST_F(SCPI, ATextQueryTrimsAndSaysWhetherThereWasText) {
    std::string reply = "before";
    mcTransport->reply(" OK\r\n");
    EXPECT_TRUE(scpiQueryText(*mcProtocol, "Q?", reply));
    EXPECT_EQ(reply, "OK");
    mcTransport->reply("\r\n");
    EXPECT_FALSE(scpiQueryText(*mcProtocol, "Q?", reply));
    EXPECT_EQ(reply, "");
}

TEST_F(SCPI, AnIntegerQueryLeavesTheOutputAloneUnlessANumberCame) {
    int32_t iValue = 77;
    for (const char* pReply : {"abc", "", "\n", "-", "99999999999", "\x80\xff", "\""}) {
        mcTransport->reply(pReply);
        EXPECT_FALSE(scpiQueryInt(*mcProtocol, "Q?", iValue)) << pReply;
        EXPECT_EQ(iValue, 77);
    }
    mcTransport->reply("-12,rest\n");
    EXPECT_TRUE(scpiQueryInt(*mcProtocol, "Q?", iValue));
    EXPECT_EQ(iValue, -12);
}

TEST_F(SCPI, AnUnsignedQueryTakesThirtyTwoBits) {
    uint32_t uValue = 77;
    mcTransport->reply("99999999999999999999\n");
    EXPECT_FALSE(scpiQueryUnsigned(*mcProtocol, "Q?", uValue));
    EXPECT_EQ(uValue, 77u);
    mcTransport->reply("4294967295\n");
    EXPECT_TRUE(scpiQueryUnsigned(*mcProtocol, "Q?", uValue));
    EXPECT_EQ(uValue, 4294967295u);
}

TEST_F(SCPI, QueriesWaitOneSecond) {
    const auto cStart = std::chrono::steady_clock::now();
    std::string reply;
    EXPECT_FALSE(scpiQueryText(*mcProtocol, "Q?", reply));
    const auto cPassed = std::chrono::steady_clock::now() - cStart;
    EXPECT_GE(cPassed, std::chrono::milliseconds(1000));
    EXPECT_LT(cPassed, std::chrono::milliseconds(3000));
}

}  // namespace
