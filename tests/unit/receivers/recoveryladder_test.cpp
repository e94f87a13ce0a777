#include <gtest/gtest.h>

#include "receivers/commandchannel.h"
#include "support/errorlog.h"
#include "support/faketransport.h"

using vnktest::LogLine;
using Lines = std::vector<std::string>;

namespace {

constexpr CommandWords kWords = {"Cannot obtain acquisition access"};
const char* const kLock = "SYST:LOCK:REQ? ACQ";
const char* const kMode = ":SYSTem:CAPTure:MODE?";

const LogLine kNoAccess = {-6001, "Cannot obtain acquisition access"};
const LogLine kAbort = {-2005, "Raw device access failure. Trying :SYSTEM:ABORT"};
const LogLine kReset = {-2005, ":SYSTEM:ABORT retry failed. Trying *RST"};
const LogLine kReopen = {-2005, "*RST retry failed. close/reopen transport"};
const LogLine kReopened = {-2005, "Transport close/reopen succeeded"};
const LogLine kReopenFailed = {-2005, "Transport close/reopen failed."};
const LogLine kRestored = {-2005, "Device access restored"};

class Ladder : public testing::Test {
 protected:
    Ladder() : mcChannel(makeReference<CommandChannel>(makeReference<LinkWatch>(), kWords)) {
        mcChannel->setProtocol(
            makeReference<SCPIProtocol>(makeReference<vnktest::FakeTransport>("fake:37001", mcUnit)));
        mcUnit->reply(kMode, {"BLOCK\n"});
        vnktest::takeLog();
    }
    std::shared_ptr<vnktest::FakeUnit> mcUnit = std::make_shared<vnktest::FakeUnit>();
    ReferencePtr<CommandChannel> mcChannel;
};

}  // namespace

TEST_F(Ladder, AHealthyUnitCostsOneQueryAndTheModeCheck) {
    mcUnit->reply(kLock, {"1\n"});
    EXPECT_TRUE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{kLock, kMode}));
    EXPECT_TRUE(vnktest::takeLog().empty());
}

TEST_F(Ladder, AnAbortFreesTheUnit) {
    mcUnit->reply(kLock, {"0\n", "1\n"});
    EXPECT_TRUE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{kLock, ":SYSTEM:ABORT", kLock, kMode}));
    EXPECT_EQ(vnktest::takeLog(), (std::vector<LogLine>{kNoAccess, kAbort, kRestored}));
}

TEST_F(Ladder, AResetFreesTheUnit) {
    mcUnit->reply(kLock, {"0\n", "", "1\n"});
    EXPECT_TRUE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{kLock, ":SYSTEM:ABORT", kLock, "*RST", kLock, kMode}));
    EXPECT_EQ(vnktest::takeLog(), (std::vector<LogLine>{kNoAccess, kAbort, kNoAccess, kReset, kRestored}));
}

TEST_F(Ladder, ANewLinkFreesTheUnit) {
    mcUnit->reply(kLock, {"0\n", "0\n", "0\n", "1\n"});
    EXPECT_TRUE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(),
              (Lines{kLock, ":SYSTEM:ABORT", kLock, "*RST", kLock, "[close]", "[open]", kLock, kMode}));
    EXPECT_EQ(vnktest::takeLog(), (std::vector<LogLine>{kNoAccess, kAbort, kNoAccess, kReset, kNoAccess,
                                                        kReopen, kReopened, kRestored}));
}

TEST_F(Ladder, AUnitThatStaysLockedOnANewLinkIsGivenUp) {
    mcUnit->reply(kLock, {"0\n"});
    EXPECT_FALSE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(),
              (Lines{kLock, ":SYSTEM:ABORT", kLock, "*RST", kLock, "[close]", "[open]", kLock}));
    EXPECT_EQ(vnktest::takeLog(), (std::vector<LogLine>{kNoAccess, kAbort, kNoAccess, kReset, kNoAccess,
                                                        kReopen, kReopened, kNoAccess, kReopenFailed}));
}

TEST_F(Ladder, ALinkThatCannotBeMadeAnewIsGivenUp) {
    mcUnit->reply(kLock, {"0\n"});
    mcUnit->mbRefuseReopen = true;
    EXPECT_FALSE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(),
              (Lines{kLock, ":SYSTEM:ABORT", kLock, "*RST", kLock, "[close]", "[open]"}));
    EXPECT_EQ(vnktest::takeLog(), (std::vector<LogLine>{kNoAccess, kAbort, kNoAccess, kReset, kNoAccess,
                                                        kReopen, kReopenFailed}));
}

TEST_F(Ladder, AnUnlockedUnitInTheWrongModeFails) {
    mcUnit->reply(kLock, {"1\n"});
    mcUnit->reply(kMode, {"STREAMING\n"});
    EXPECT_FALSE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{kLock, kMode, "*RST", kMode}));
}

TEST_F(Ladder, CanBeClimbedAgain) {
    mcUnit->reply(kLock, {"0\n"});
    mcUnit->mbRefuseReopen = true;
    EXPECT_FALSE(mcChannel->recoverAccess());
    mcUnit->mbRefuseReopen = false;
    mcUnit->reply(kLock, {"1\n"});
    mcUnit->takeJournal();
    EXPECT_TRUE(mcChannel->recoverAccess());
    // The closed link takes no command; the new one does.
    EXPECT_EQ(mcUnit->takeJournal(), (Lines{"[close]", "[open]", kLock, kMode}));
}

TEST_F(Ladder, AStoppedThreadClimbsNoFurther) {
    mcUnit->reply(kLock, {"0\n"});
    mcChannel->setStopTest([] { return true; });
    EXPECT_FALSE(mcChannel->recoverAccess());
    EXPECT_EQ(mcUnit->takeJournal(), Lines{kLock});
}
