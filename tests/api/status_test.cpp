#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <thread>

#include "api/text.h"

TEST(StatusText, NamesEachStatusAndKnowsItsLimits) {
    EXPECT_STREQ(vnkGetTextForStatus(0), "No error");
    EXPECT_STREQ(vnkGetTextForStatus(1), "Waiting for packet");
    EXPECT_STREQ(vnkGetTextForStatus(3), "Stream not yet started");
    EXPECT_STREQ(vnkGetTextForStatus(4), "Warning code undefined");
    EXPECT_STREQ(vnkGetTextForStatus(INT_MAX), "Warning code undefined");
    EXPECT_STREQ(vnkGetTextForStatus(-24), "Attempt to close strema failed");
    EXPECT_STREQ(vnkGetTextForStatus(-88), "Stream handle is already open - attempt to re - open failed");
    EXPECT_STREQ(vnkGetTextForStatus(-89), "Error code undefined");
    EXPECT_STREQ(vnkGetTextForStatus(INT_MIN), "Error code undefined");
    InterfaceDown cDown;
    EXPECT_STREQ(vnkGetTextForStatus(-2), "API not initialized");
}

namespace {

/// A request that is refused leaves one text and two statuses with the calling thread.
void fail() {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    Text cParameters("{\"noSuchKey\":1}");
    EXPECT_EQ(vnkSetParameters(uStream, cParameters.address()), -34);
    EXPECT_EQ(vnkClose(&uStream), 0);
}

}  // namespace

TEST(DetailedStatus, GivesTheNewestDetailOnceWithItsAge) {
    fail();
    const std::string detail = Text::take(vnkGetDetailedStatus());
    EXPECT_THAT(detail, testing::MatchesRegex("T-[0-9]+\\.[0-9]{4}sec: .*noSuchKey.*"));
    EXPECT_EQ(Text::take(vnkGetDetailedStatus()), "no information");
    while (vnkGetNextStatus() != 0) {
    }
}

TEST(DetailedStatus, BelongsToTheThreadThatFailed) {
    fail();
    std::thread([] {
        EXPECT_EQ(Text::take(vnkGetDetailedStatus()), "no information");
        EXPECT_EQ(vnkGetNextStatus(), 0);
    }).join();
    EXPECT_NE(Text::take(vnkGetDetailedStatus()), "no information");
    EXPECT_EQ(vnkGetNextStatus(), -33);
    while (vnkGetNextStatus() != 0) {
    }
}

TEST(DetailedStatus, AShortLivedThreadSeesNothingOfTheOneBeforeIt) {
    for (int i = 0; i < 50; ++i) {
        std::thread([] { fail(); }).join();
        std::thread([] {
            EXPECT_EQ(Text::take(vnkGetDetailedStatus()), "no information");
            EXPECT_EQ(vnkGetNextStatus(), 0);
        }).join();
    }
}

TEST(DetailedStatus, WithoutTheInterfaceTheBlockHoldsTheAddressOfATextAndNotCharacters) {
    InterfaceDown cDown;
    char* pBlock = vnkGetDetailedStatus();
    ASSERT_NE(pBlock, nullptr);
    const char* pText = nullptr;
    std::memcpy(&pText, pBlock, sizeof pText);
    EXPECT_STREQ(pText, "API not initialized");
    vnkDisposeString(&pBlock);
}

TEST(InternalErrors, ACountOfZeroEmptiesTheLogAndGivesNothing) {
    fail();
    EXPECT_EQ(vnkGetVerboseInternalErrorState(0), nullptr);
    EXPECT_EQ(Text::take(vnkGetVerboseInternalErrorState(1000)), "***\tInternal Errors backtrace\r\n");
}

TEST(InternalErrors, TheNewestComeFirstAndWhatIsNotPrintedIsGone) {
    vnkGetVerboseInternalErrorState(0);
    fail();
    fail();
    const std::string text = Text::take(vnkGetVerboseInternalErrorState(2));
    const std::string entry = "\t-[0-9]+\\.[0-9]{4}s [^\r\n]*\\(libvnk code -?[0-9]+\\) @[^/ ]+:[0-9]+\r\n";
    EXPECT_THAT(text, testing::MatchesRegex("\\*\\*\\*\tInternal Errors backtrace\r\n\\[0\\]" + entry +
                                            "\\[1\\]" + entry));
    EXPECT_EQ(Text::take(vnkGetVerboseInternalErrorState(10)), "***\tInternal Errors backtrace\r\n");
}

TEST(InternalErrors, TheTraceIsAHeaderLineAlone) {
    fail();
    EXPECT_EQ(Text::take(vnkGetDebugTrace()), "***\tExecution Trace Dump\r\n");
    InterfaceDown cDown;
    EXPECT_EQ(vnkGetDebugTrace(), nullptr);
    EXPECT_EQ(vnkGetVerboseInternalErrorState(5), nullptr);
}

TEST(InternalErrors, ThousandsOfFailingCallsKeepTheLogAtItsLimit) {
    vnkGetVerboseInternalErrorState(0);
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    for (int i = 0; i < 2000; ++i)
        EXPECT_EQ(vnkDetachStream(uStream), -44);
    EXPECT_EQ(vnkClose(&uStream), 0);
    const std::string text = Text::take(vnkGetVerboseInternalErrorState(5000));
    EXPECT_NE(text.find("\n[999]\t"), std::string::npos);
    EXPECT_EQ(text.find("\n[1000]\t"), std::string::npos);
}
