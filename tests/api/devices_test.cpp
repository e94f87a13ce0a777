#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <string>

#include "api/text.h"
#include "support/loopback.h"

namespace {

/// Each test starts with an empty list of addresses.
class Devices : public testing::Test {
 protected:
    void SetUp() override { InterfaceDown cDown; }
    void TearDown() override {
        while (vnkGetNextStatus() != 0) {
        }
        InterfaceDown cDown;
    }
};

}  // namespace

TEST_F(Devices, AnAddressIsKnownOnce) {
    EXPECT_EQ(vnkAddDeviceAddress("127.9.9.9"), 0);
    EXPECT_EQ(vnkAddDeviceAddress("127.9.9.9"), -3);
    uint32_t uCount = 0;
    EXPECT_EQ(vnkEnumerateDevices(&uCount, 0), 0);
    EXPECT_EQ(uCount, 1u);
    EXPECT_EQ(vnkEnumerateDevices(&uCount, 2), 0) << "only the flag 1 searches";
    EXPECT_EQ(uCount, 1u);
}

TEST_F(Devices, AnIndexBeyondTheEndOpensAndTellsNothing) {
    uint32_t uHandle = 5;
    EXPECT_EQ(vnkOpenDevice(0, &uHandle), -7);
    EXPECT_EQ(uHandle, VNK_INVALID_HANDLE);
    Text cText("old");
    EXPECT_EQ(vnkExamineDevice(0, cText.address()), -5);
    EXPECT_TRUE(cText.isNull());
}

TEST_F(Devices, AHostWithoutAUnitIsToldAndCostsTheConnectLimit) {
    ASSERT_EQ(vnkAddDeviceAddress(vnktest::uniqueLoopback().c_str()), 0);
    vnkGetVerboseInternalErrorState(0);
    Text cText;
    EXPECT_EQ(vnkExamineDevice(0, cText.address()), -5);
    EXPECT_TRUE(cText.isNull());
    EXPECT_EQ(vnkGetNextStatus(), -69);
    EXPECT_EQ(vnkGetNextStatus(), -6);
    const std::string log = Text::take(vnkGetVerboseInternalErrorState(100));
    EXPECT_NE(log.find("Cannot open SCPI connection to 127."), std::string::npos) << log;
    EXPECT_NE(log.find("(libvnk code -1002)"), std::string::npos) << log;
}

namespace {

// Runs in a process of its own with no network at all, so that no name goes to a resolver.
[[noreturn]] void openHostileAddresses() {
    if (unshare(CLONE_NEWNET) != 0)
        std::exit(2);
    const std::string longName(1 << 20, 'x');
    uint32_t uIndex = 0;
    for (const char* pAddress : {"", ":", "a:b:c", "\x01\x02\n", "%s%n", "TCP/IP:127.0.0.1", longName.c_str()}) {
        uint32_t uHandle = 5;
        if (vnkAddDeviceAddress(pAddress) != 0 || vnkOpenDevice(uIndex++, &uHandle) != -7 ||
            uHandle != VNK_INVALID_HANDLE)
            std::exit(1);
    }
    std::exit(0);
}

}  // namespace

TEST(DevicesDeathTest, HostileAddressesGiveAStatus) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs the right to make a network namespace";
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(openHostileAddresses(), testing::ExitedWithCode(0), "");
}
