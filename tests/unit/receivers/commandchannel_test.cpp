#include "receivers/commandchannel.h"

#include <gtest/gtest.h>

#include <chrono>

#include "support/errorlog.h"
#include "support/faketransport.h"

using vnktest::LogLine;
using Lines = std::vector<std::string>;

namespace {

constexpr CommandWords kWords = {"Cannot obtain acquisition access"};

class Channel : public testing::Test {
 protected:
    Channel()
        : mcWatch(makeReference<LinkWatch>()), mcChannel(makeReference<CommandChannel>(mcWatch, kWords)) {
        mcChannel->setProtocol(
            makeReference<SCPIProtocol>(makeReference<vnktest::FakeTransport>("fake:37001", mcUnit)));
        vnktest::takeLog();
    }
    bool wasStamped() { return mcWatch->lastActivityMs() != 0; }
    std::string thrownBy(const std::string& batch) {
        try {
            mcChannel->sendBatch(batch);
        } catch (const std::string& text) {
            return text;
        }
        return "nothing";
    }
    Lines notes() {
        Lines lTexts;
        for (const auto& cLine : vnktest::takeLog(true))
            if (cLine.miCode == utils::kTraceCode && cLine.mcText.rfind("SCPI", 0) != 0)
                lTexts.push_back(cLine.mcText);
        return lTexts;
    }

    std::shared_ptr<vnktest::FakeUnit> mcUnit = std::make_shared<vnktest::FakeUnit>();
    ReferencePtr<LinkWatch> mcWatch;
    ReferencePtr<CommandChannel> mcChannel;
};

}  // namespace

TEST(SystemError, ZeroIsNoErrorWhateverTheTextSays) {
    EXPECT_EQ(systemErrorText("0,\"No error\""), "");
    EXPECT_EQ(systemErrorText("+0,\"No error\"\r\n"), "");
    EXPECT_EQ(systemErrorText("0"), "");
}

TEST(SystemError, IsTheTextBetweenTheFirstTwoQuotes) {
    EXPECT_EQ(systemErrorText("-113,\"Undefined header\"\n"), "Undefined header");
    EXPECT_EQ(systemErrorText("-200,\"Execution error;\"more\""), "Execution error;");
}

TEST(SystemError, AReplyWithoutANumberIsBad) {
    EXPECT_EQ(systemErrorText(" hello\r\n"), "Bad response <hello> to SYST:ERR?");
    EXPECT_EQ(systemErrorText("\n"), "Bad response <> to SYST:ERR?");
    EXPECT_EQ(systemErrorText("99999999999,\"x\""), "Bad response <99999999999,\"x\"> to SYST:ERR?");
}

TEST(SystemError, SilenceIsAnError) {
    EXPECT_EQ(systemErrorText(""), "No response to SYST:ERR?");
}

TEST(SystemError, OnlyTheTextBetweenTheQuotesCounts) {
    EXPECT_EQ(systemErrorText("-113\n"), "");
    EXPECT_EQ(systemErrorText("-113,\"\"\n"), "");
    EXPECT_EQ(systemErrorText("-113,\"Undefined header\"\n"), "Undefined header");
    EXPECT_EQ(systemErrorText("-113,\"cut off\n"), "cut off");
}

TEST(Commands, AreJoinedWithSemicolons) {
    std::string batch;
    appendCommand(batch, "*CLS");
    appendCommand(batch, "*RST");
    EXPECT_EQ(batch, "*CLS;*RST");
}

TEST_F(Channel, WithoutAProtocolEverythingFails) {
    mcChannel->setProtocol({});
    EXPECT_FALSE(mcChannel->send("*RST"));
    EXPECT_EQ(mcChannel->query("*IDN?"), "");
    EXPECT_EQ(mcChannel->querySystemError(), "No response to SYST:ERR?");
    EXPECT_FALSE(mcChannel->recoverAccess());
    EXPECT_FALSE(mcChannel->acquireAccess());
    EXPECT_FALSE(mcChannel->sendCommandAndPoll("X", "Y?", "1"));
    EXPECT_TRUE(mcUnit->journal().empty());
    EXPECT_FALSE(wasStamped());
}

TEST_F(Channel, AReplyStampsTheWatchAndSilenceDoesNot) {
    EXPECT_EQ(mcChannel->query("*IDN?"), "");
    EXPECT_FALSE(wasStamped());
    mcUnit->reply("*IDN?", {"Maker\n"});
    EXPECT_EQ(mcChannel->query("*IDN?"), "Maker\n");
    EXPECT_TRUE(wasStamped());
}

TEST_F(Channel, ABatchIsSentAndTheUnitAskedForItsError) {
    mcUnit->reply("SYST:ERR?", {"0,\"No error\"\n"});
    EXPECT_EQ(thrownBy("A 1;B 2"), "nothing");
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{"A 1;B 2", "SYST:ERR?"}));
    EXPECT_TRUE(wasStamped());
}

TEST_F(Channel, AnEmptyBatchDoesNothing) {
    EXPECT_EQ(thrownBy(""), "nothing");
    EXPECT_TRUE(mcUnit->journal().empty());
}

TEST_F(Channel, ABatchThatTheUnitRefusesThrowsItsText) {
    mcUnit->reply("SYST:ERR?", {"-113,\"Undefined header\"\n"});
    EXPECT_EQ(thrownBy("X"), "Command 'X' generated Undefined header");
    EXPECT_FALSE(wasStamped());
}

TEST_F(Channel, ABatchOnADeadLinkThrows) {
    mcUnit->mbFailSends = true;
    EXPECT_EQ(thrownBy("X"), "Command 'X' generated No response to SYST:ERR?");
}

TEST_F(Channel, PollsUntilTheReplyHoldsWhatIsExpected) {
    mcUnit->reply("READY?", {"0\n", "0\n", " >1<\n"});
    EXPECT_TRUE(mcChannel->sendCommandAndPoll("GO", "READY?", "1"));
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{"GO", "READY?", "READY?", "READY?"}));
    EXPECT_TRUE(wasStamped());
    EXPECT_EQ(notes(), (Lines{"_sendCommandAndPoll(GO) returns 0\n", "_sendCommandAndPoll(GO) returns 0\n",
                              "_sendCommandAndPoll(GO) returns  >1<\n"}));
}

TEST_F(Channel, AnEmptyCommandIsNotSent) {
    mcUnit->reply("READY?", {"1\n"});
    EXPECT_TRUE(mcChannel->sendCommandAndPoll("", "READY?", "1"));
    EXPECT_EQ(mcUnit->takeJournal(), Lines{"READY?"});
}

TEST_F(Channel, ACommandWithNothingToAskIsDoneAtOnce) {
    EXPECT_TRUE(mcChannel->sendCommandAndPoll("GO", "", "1"));
    EXPECT_EQ(mcUnit->takeJournal(), Lines{"GO"});
}

TEST_F(Channel, ACommandThatCannotBeSentIsNotPolled) {
    mcUnit->mbFailSends = true;
    EXPECT_FALSE(mcChannel->sendCommandAndPoll("GO", "READY?", "1"));
    EXPECT_TRUE(mcUnit->journal().empty());
}

TEST_F(Channel, APollThatNeverMatchesEndsAfterTwoSeconds) {
    mcUnit->reply("READY?", {"0\n"});
    const auto cBegin = std::chrono::steady_clock::now();
    EXPECT_FALSE(mcChannel->sendCommandAndPoll("GO", "READY?", "1"));
    const auto cTook = std::chrono::steady_clock::now() - cBegin;
    EXPECT_GE(cTook, std::chrono::milliseconds(2000));
    EXPECT_LT(cTook, std::chrono::seconds(10));
    const Lines lJournal = mcUnit->takeJournal();
    EXPECT_GE(lJournal.size(), 2u);
    EXPECT_LE(lJournal.size(), 21u);  // a pause of 100 ms behind each query
    EXPECT_EQ(notes().back(), "_sendCommandAndPoll(GO) fails");
    EXPECT_FALSE(wasStamped());
}

TEST_F(Channel, AStoppedThreadLeavesAPollEarly) {
    mcUnit->reply("READY?", {"0\n"});
    mcChannel->setStopTest([] { return true; });
    EXPECT_FALSE(mcChannel->sendCommandAndPoll("GO", "READY?", "1"));
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{"GO", "READY?"}));
}

TEST_F(Channel, ABlockModeReplyIsEnough) {
    mcUnit->reply(":SYSTem:CAPTure:MODE?", {"BLOCK\n"});
    EXPECT_TRUE(mcChannel->verifyInBLOCKMode());
    EXPECT_EQ(mcUnit->takeJournal(), Lines{":SYSTem:CAPTure:MODE?"});
    EXPECT_TRUE(wasStamped());
    EXPECT_EQ(notes(), Lines{"_verifyInBLOCKMode"});
}

TEST_F(Channel, AnotherModeIsResetOnce) {
    mcUnit->reply(":SYSTem:CAPTure:MODE?", {"STREAMING\n", "BLOCK\n"});
    EXPECT_TRUE(mcChannel->verifyInBLOCKMode());
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{":SYSTem:CAPTure:MODE?", "*RST", ":SYSTem:CAPTure:MODE?"}));
    EXPECT_EQ(vnktest::takeLog(), (std::vector<LogLine>{{-6006, "Opened device not in BLOCK mode"}}));
}

TEST_F(Channel, AModeThatAResetDoesNotCureIsAFailure) {
    mcUnit->reply(":SYSTem:CAPTure:MODE?", {"STREAMING\n"});
    EXPECT_FALSE(mcChannel->verifyInBLOCKMode());
    EXPECT_EQ(vnktest::takeLog(),
              (std::vector<LogLine>{{-6006, "Opened device not in BLOCK mode"},
                                    {-6003, "*RST Unable to recover device to 'BLOCK' mode"}}));
    EXPECT_FALSE(wasStamped());
}

TEST_F(Channel, AccessIsGrantedByExactlyOne) {
    for (const char* pReply : {"1\r\n", "1", " 1 \n"}) {
        mcUnit->reply("SYST:LOCK:REQ? ACQ", {pReply});
        EXPECT_TRUE(mcChannel->acquireAccess()) << pReply;
    }
    EXPECT_TRUE(vnktest::takeLog().empty());
    for (const char* pReply : {"0", "10", "", "11\n", "1,1"}) {
        mcUnit->reply("SYST:LOCK:REQ? ACQ", {pReply});
        EXPECT_FALSE(mcChannel->acquireAccess()) << pReply;
        EXPECT_EQ(vnktest::takeLog(), (std::vector<LogLine>{{-6001, "Cannot obtain acquisition access"}}));
    }
}
