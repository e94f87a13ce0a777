#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "foundations/barrier.h"
#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/statustext.h"
#include "foundations/usererrors.h"

namespace {

using utils::RuntimeErrors;
using utils::textForStatus;
using utils::UserErrors;

constexpr const char* kHeader = "***\tInternal Errors backtrace\r\n";

TEST(StatusText, theEndsOfTheTablesAreKnown) {
    EXPECT_STREQ(textForStatus(0), "No error");
    EXPECT_STREQ(textForStatus(1), "Waiting for packet");
    EXPECT_STREQ(textForStatus(2), "Stream exhausted");
    EXPECT_STREQ(textForStatus(3), "Stream not yet started");
    EXPECT_STREQ(textForStatus(4), "Warning code undefined");
    EXPECT_STREQ(textForStatus(std::numeric_limits<int32_t>::max()), "Warning code undefined");
    EXPECT_STREQ(textForStatus(-1), "Unimplemented");
    EXPECT_STREQ(textForStatus(-88), "Stream handle is already open - attempt to re - open failed");
    EXPECT_STREQ(textForStatus(-89), "Error code undefined");
    EXPECT_STREQ(textForStatus(std::numeric_limits<int32_t>::min()), "Error code undefined");
}

TEST(StatusText, spellingsAreKept) {
    EXPECT_STREQ(textForStatus(-23), "Parameter in call is not currently used. Initialize to NULL only.");
    EXPECT_STREQ(textForStatus(-24), "Attempt to close strema failed");
    EXPECT_STREQ(textForStatus(-46), "'Impossible' frequency parameters specified (ie. FStart >= FEnd)");
    EXPECT_STREQ(textForStatus(-52),
                 "Buffer discard propotion parameter specified is out of range (valid is 0.0 to 1.0)");
    EXPECT_STREQ(textForStatus(-80), "Failed to start baseband file strema from file");
}

TEST(StatusText, everyErrorHasATextOfItsOwn) {
    std::set<std::string> cTexts;
    for (int32_t i = -88; i <= 3; ++i)
        cTexts.insert(textForStatus(i));
    EXPECT_EQ(cTexts.size(), 92u);
    EXPECT_FALSE(cTexts.count("Error code undefined"));
}

TEST(UserErrors, statusesComeOldestFirstToTheirOwnThread) {
    UserErrors& cErrors = UserErrors::instance();
    cErrors.pushStatus(-7);
    cErrors.pushStatus(-34);
    std::thread([&] { EXPECT_EQ(cErrors.nextStatus(), 0); }).join();
    EXPECT_EQ(cErrors.nextStatus(), -7);
    EXPECT_EQ(cErrors.nextStatus(), -34);
    EXPECT_EQ(cErrors.nextStatus(), 0);
}

TEST(UserErrors, aDetailIsReadOnceWithItsAge) {
    UserErrors& cErrors = UserErrors::instance();
    cErrors.setDetail("first");
    cErrors.setDetail("100% of %s\x01");
    std::thread([&] { EXPECT_EQ(cErrors.takeDetail(), "no information"); }).join();
    const std::string text = cErrors.takeDetail();
    EXPECT_THAT(text, testing::MatchesRegex("T-[0-9]+\\.[0-9]{4}sec: 100% of %s\x01"));
    EXPECT_EQ(cErrors.takeDetail(), "no information");
}

TEST(UserErrors, shortLivedThreadsSeeNothingOfTheirPredecessors) {
    std::set<uint32_t> cIdentifiers;
    for (int i = 0; i < 200; ++i)
        std::thread([&] {
            EXPECT_EQ(UserErrors::instance().nextStatus(), 0);
            EXPECT_EQ(UserErrors::instance().takeDetail(), "no information");
            UserErrors::instance().pushStatus(-1);
            UserErrors::instance().setDetail("left behind");
            cIdentifiers.insert(utils::threadIdentifier());
        }).join();
    EXPECT_EQ(cIdentifiers.size(), 200u);
    EXPECT_EQ(utils::threadIdentifier(), utils::threadIdentifier());
}

TEST(UserErrors, aMillionUnreadStatusesKeepTheirOrder) {
    UserErrors& cErrors = UserErrors::instance();
    for (int32_t i = 1; i <= 1'000'000; ++i)
        cErrors.pushStatus(-i);
    for (int32_t i = 1; i <= 1'000'000; ++i)
        ASSERT_EQ(cErrors.nextStatus(), -i);
    EXPECT_EQ(cErrors.nextStatus(), 0);
}

class RuntimeErrorsTest : public testing::Test {
 protected:
    void SetUp() override { mcErrors.clear(); }
    void TearDown() override {
        mcErrors.setLimits(1000, 0.0f);
        mcErrors.clear();
    }
    RuntimeErrors& mcErrors = RuntimeErrors::instance();
};

TEST_F(RuntimeErrorsTest, theThousandNewestRecordsAreHeld) {
    for (int i = 0; i <= 1000; ++i)
        mcErrors.report(std::to_string(i), -1, "f.cpp", 1);
    const auto lErrors = mcErrors.takeErrors();
    ASSERT_EQ(lErrors.size(), 1000u);
    EXPECT_EQ(lErrors.front().message(), "1000");
    EXPECT_EQ(lErrors.back().message(), "1");
    EXPECT_TRUE(mcErrors.takeErrors().empty());
}

TEST_F(RuntimeErrorsTest, aReportHandsItsRecordBack) {
    const uint64_t uBefore = utils::steadyMicroseconds();
    EXPECT_LE(mcErrors.getStartTime(), uBefore);
    const auto cError = mcErrors.report("text", -2001, "a/b/file.cpp", 12);
    EXPECT_EQ(cError.message(), "text");
    EXPECT_EQ(cError.code(), -2001);
    EXPECT_EQ(cError.location(), "file.cpp:12");
    EXPECT_GE(cError.stamp(), uBefore);
    EXPECT_LE(cError.stamp(), utils::steadyMicroseconds());
}

TEST_F(RuntimeErrorsTest, aLocationIsTheFileNameAlone) {
    const auto location = [this](const char* pPath) { return mcErrors.report("", 0, pPath, 7).location(); };
    EXPECT_EQ(location("C:\\source\\links\\file.cpp"), "file.cpp:7");
    EXPECT_EQ(location("/source/links/file.cpp"), "file.cpp:7");
    EXPECT_EQ(location("file.cpp"), "file.cpp:7");
    EXPECT_EQ(location("source/links\\file.cpp"), "file.cpp:7");
    EXPECT_EQ(location("source\\links/file.cpp"), "links/file.cpp:7");
    EXPECT_EQ(utils::reportError(-1, "x").location(), "errors_test.cpp:" + std::to_string(__LINE__));
}

TEST_F(RuntimeErrorsTest, theTextListsTheNewestAndDropsTheRest) {
    for (int i = 1; i <= 5; ++i)
        mcErrors.report("error " + std::to_string(i), -i, "dir/f.cpp", i);
    const std::string text = mcErrors.takeText(2);
    const std::string shape =
        "\\*\\*\\*\tInternal Errors backtrace\r\n"
        "\\[0\\]\t-[0-9]+\\.[0-9]{4}s error 5\\(libvnk code -5\\) @f\\.cpp:5\r\n"
        "\\[1\\]\t-[0-9]+\\.[0-9]{4}s error 4\\(libvnk code -4\\) @f\\.cpp:4\r\n";
    EXPECT_THAT(text, testing::MatchesRegex(shape));
    EXPECT_EQ(mcErrors.takeText(100), kHeader);
}

TEST_F(RuntimeErrorsTest, aCountOfZeroEmptiesTheLogAndGivesNothing) {
    utils::reportTrace("note");
    EXPECT_EQ(mcErrors.takeText(0), "");
    EXPECT_EQ(mcErrors.takeText(0xFFFFFFFF), kHeader);
}

TEST_F(RuntimeErrorsTest, textsOfADeviceAreDataAndNeverAFormat) {
    const std::string hostile = "%s%n%d \x01\x7f\xff % %%" + std::string(5000, '%');
    utils::reportTrace(hostile);
    const std::string text = mcErrors.takeText(1);
    EXPECT_NE(text.find(hostile + "(libvnk code 1000) @errors_test.cpp:"), std::string::npos);
}

TEST_F(RuntimeErrorsTest, theTraceIsItsHeaderAlone) {
    EXPECT_EQ(mcErrors.takeTraceText(), "***\tExecution Trace Dump\r\n");
    EXPECT_EQ(mcErrors.takeTraceText(), "***\tExecution Trace Dump\r\n");
}

TEST_F(RuntimeErrorsTest, reportAndThrowThrowsTheRecordItAdded) {
    try {
        mcErrors.reportAndThrow("fatal", -2500, "x/y.cpp", 3);
        ADD_FAILURE();
    } catch (const RuntimeErrors::Error& cError) {
        EXPECT_EQ(cError.message(), "fatal");
        EXPECT_EQ(cError.code(), -2500);
    }
    EXPECT_EQ(mcErrors.takeErrors().size(), 1u);
}

TEST_F(RuntimeErrorsTest, withoutANumberLimitOldRecordsGoByAge) {
    mcErrors.setLimits(0, 0.0f);
    for (int i = 0; i < 1500; ++i)
        utils::reportTrace("kept");
    EXPECT_EQ(mcErrors.takeErrors().size(), 1500u);
    mcErrors.setLimits(0, 0.01f);
    utils::reportTrace("old");
    utils::sleepMs(30);
    utils::reportTrace("new");
    const auto lErrors = mcErrors.takeErrors();
    ASSERT_EQ(lErrors.size(), 1u);
    EXPECT_EQ(lErrors.front().message(), "new");
    mcErrors.setLimits(0, 3e38f);
    utils::reportTrace("a");
    utils::reportTrace("b");
    EXPECT_EQ(mcErrors.takeErrors().size(), 2u);
    mcErrors.setLimits(3, 1e-6f);
    for (int i = 0; i < 5; ++i)
        utils::reportTrace("c");
    EXPECT_EQ(mcErrors.takeErrors().size(), 3u) << "the number limit goes first";
}

TEST_F(RuntimeErrorsTest, eightThreadsReportingAtOnceShareOneLog) {
    std::atomic<int> iReady{0};
    std::vector<RuntimeErrors*> cSeen(8);
    std::vector<std::thread> cThreads;
    for (size_t i = 0; i < 8; ++i)
        cThreads.emplace_back([&, i] {
            ++iReady;
            while (iReady < 8)
                std::this_thread::yield();
            cSeen[i] = &RuntimeErrors::instance();
            for (int j = 0; j < 1000; ++j)
                utils::reportTrace("note");
        });
    for (auto& cThread : cThreads)
        cThread.join();
    EXPECT_TRUE(std::all_of(cSeen.begin(), cSeen.end(), [&](const auto* p) { return p == &mcErrors; }));
    EXPECT_EQ(mcErrors.takeErrors().size(), 1000u);
}

}  // namespace
