#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "api/text.h"

TEST(Lifetime, TheInterfaceIsUpFromLoadAndDownAfterOneShutdown) {
    EXPECT_EQ(vnkGetNextStatus(), 0);
    vnkShutdownAPI();
    EXPECT_EQ(vnkGetNextStatus(), -2);
    vnkInitAPI();
    EXPECT_EQ(vnkGetNextStatus(), 0);
}

TEST(Lifetime, APairOfInitAndShutdownLeavesHandlesValid) {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    EXPECT_EQ(vnkInitAPI(), 0);
    EXPECT_EQ(vnkShutdownAPI(), 0);
    EXPECT_EQ(vnkIsAttached(uStream), 5);
    EXPECT_EQ(vnkClose(&uStream), 0);
}

TEST(Lifetime, AShutdownAtZeroWrapsTheCountAndTheNextStateSurvivesOneShutdown) {
    vnkShutdownAPI();   // 1 -> 0: the state ends
    EXPECT_EQ(vnkShutdownAPI(), 0);   // 0 -> all ones
    EXPECT_EQ(vnkInitAPI(), 0);       // back to 0, a new state
    EXPECT_EQ(vnkGetNextStatus(), 0);
    EXPECT_EQ(vnkShutdownAPI(), 0);   // 0 -> all ones: the state survives
    EXPECT_EQ(vnkGetNextStatus(), 0);
    vnkInitAPI();
    vnkInitAPI();   // 1 again, as after load
    EXPECT_EQ(vnkGetNextStatus(), 0);
}

TEST(Lifetime, HandlesDoNotSurviveTheState) {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    { InterfaceDown cDown; }
    EXPECT_EQ(vnkIsAttached(uStream), -38);
}

TEST(Lifetime, TheVersionHasItsFormAndNeedsNoState) {
    const auto form = testing::MatchesRegex(
        "libVNK - 1\\.4x\\.8DEV \\(x64\\) [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}");
    EXPECT_THAT(Text::take(vnkGetVersion()), form);
    InterfaceDown cDown;
    EXPECT_THAT(Text::take(vnkGetVersion()), form);
}

TEST(Lifetime, DisposingOfNothingDoesNothing) {
    vnkDisposeString(nullptr);
    char* pText = nullptr;
    vnkDisposeString(&pText);
    EXPECT_EQ(pText, nullptr);
    pText = vnkGetVersion();
    vnkDisposeString(&pText);
    EXPECT_EQ(pText, nullptr);
}

TEST(Lifetime, FunctionsWithNothingBehindThemTellSo) {
    const auto asTold = [](int32_t iExpected) {
        EXPECT_EQ(vnkAddTriggerCondition(), iExpected);
        EXPECT_EQ(vnkGetAvailableTriggerTemplates(), iExpected);
        EXPECT_EQ(vnkGetCalibrationCertificate(), iExpected);
        EXPECT_EQ(vnkRuntimeCalibrate(), iExpected);
        EXPECT_EQ(vnkTestBandwidth(), iExpected);
        EXPECT_EQ(vnkReadLatestTrigger(), -1);
        EXPECT_EQ(vnkRemoveTriggerCondition(), -1);
        EXPECT_EQ(vnkSetTriggeredCaptureBufferTimes(), -1);
        EXPECT_STREQ(vnkReadCurrentTriggerCondition(), "unimplemented");
    };
    asTold(-1);
    EXPECT_STREQ(vnkGetPlatformIDString(), "unimplemented");
    InterfaceDown cDown;
    asTold(-2);
    EXPECT_STREQ(vnkGetPlatformIDString(), "API not initialized");
}

TEST(Lifetime, HandlesDrawnByManyThreadsAreDistinctAndNeverTheInvalidNumber) {
    std::vector<std::vector<uint32_t>> lHandles(8, std::vector<uint32_t>(200));
    std::vector<std::thread> lThreads;
    for (auto& lMine : lHandles)
        lThreads.emplace_back([&lMine] {
            for (uint32_t& uHandle : lMine)
                vnkCreateIQStream(&uHandle, 1e6f, 1e5f, -30.0f);
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    std::set<uint32_t> cAll;
    for (auto& lMine : lHandles)
        cAll.insert(lMine.begin(), lMine.end());
    EXPECT_EQ(cAll.size(), 1600u);
    EXPECT_EQ(cAll.count(VNK_INVALID_HANDLE), 0u);
    for (auto& lMine : lHandles)
        for (uint32_t& uHandle : lMine)
            EXPECT_EQ(vnkClose(&uHandle), 0);
}

TEST(Lifetime, TheHostsRandomSequenceIsItsOwn) {
    std::srand(12345);
    const int iFirst = std::rand();
    const int iSecond = std::rand();
    std::srand(12345);
    uint32_t uStream = 0;
    EXPECT_EQ(std::rand(), iFirst);
    { InterfaceDown cDown; }
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    EXPECT_EQ(std::rand(), iSecond);
    vnkClose(&uStream);
}

TEST(Lifetime, LoadingAndUnloadingAThousandTimesKeepsTheStateAsItWas) {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    for (int i = 0; i < 1000; ++i) {
        void* pLibrary = dlopen(VNK_LIBRARY, RTLD_NOW);
        ASSERT_NE(pLibrary, nullptr) << dlerror();
        ASSERT_EQ(dlclose(pLibrary), 0);
    }
    EXPECT_EQ(vnkIsAttached(uStream), 5);
    EXPECT_EQ(vnkClose(&uStream), 0);
}

TEST(Close, TellsApartWhatIsWrong) {
    EXPECT_EQ(vnkClose(nullptr), -4);
    uint32_t uHandle = VNK_INVALID_HANDLE;
    EXPECT_EQ(vnkClose(&uHandle), -8);
    uHandle = 0x1234567;
    EXPECT_EQ(vnkClose(&uHandle), -21);
    EXPECT_EQ(uHandle, 0x1234567u);
}

TEST(Close, WritesTheInvalidHandleAndASecondCloseIsRefused) {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    EXPECT_EQ(vnkClose(&uStream), 0);
    EXPECT_EQ(uStream, VNK_INVALID_HANDLE);
    EXPECT_EQ(vnkClose(&uStream), -8);
}

TEST(Close, OfTwoThreadsThatCloseOneHandleExactlyOneSucceeds) {
    for (int i = 0; i < 300; ++i) {
        uint32_t uStream = 0;
        ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
        int32_t iFirst = 1, iSecond = 1;
        uint32_t uCopy = uStream;
        std::thread cOther([&] { iSecond = vnkClose(&uCopy); });
        iFirst = vnkClose(&uStream);
        cOther.join();
        EXPECT_EQ(iFirst + iSecond, -21);
        EXPECT_TRUE(iFirst == 0 || iSecond == 0);
    }
}

TEST(Close, AThreadThatWaitsForAFrameReturnsByItsTimeout) {
    uint32_t uStream = 0;
    ASSERT_EQ(vnkCreateIQStream(&uStream, 1e6f, 1e5f, -30.0f), 0);
    const uint32_t uKept = uStream;
    std::thread cReader([&] {
        vnkIQRecord* pRecord = nullptr;
        const int32_t iStatus = vnkGetNextIQ(uKept, &pRecord, 300);
        EXPECT_TRUE(iStatus == 3 || iStatus == -17) << iStatus;
        EXPECT_EQ(pRecord, nullptr);
    });
    EXPECT_EQ(vnkClose(&uStream), 0);
    cReader.join();
}
