#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "links/socketfunctions.h"
#include "namespaces.h"

namespace {

int listenAt(const std::string& address, uint16_t uPort) {
    const int iSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in cAddress{};
    cAddress.sin_family = AF_INET;
    cAddress.sin_port = htons(uPort);
    ::inet_pton(AF_INET, address.c_str(), &cAddress.sin_addr);
    const bool bGood = ::bind(iSocket, reinterpret_cast<sockaddr*>(&cAddress), sizeof(cAddress)) == 0 &&
                       ::listen(iSocket, 8) == 0;
    return bGood ? iSocket : -1;
}

class SocketNames : public testing::Test {
 protected:
    void SetUp() override {
        VNK_NEED_NAMESPACES(mcHost.isPermitted());
        ASSERT_TRUE(mcHost.shell("ip link set lo up"));
        static _WinSockInitializer cInitializer;
        cInitializer.initialise();
        utils::RuntimeErrors::instance().clear();
    }
    SocketRecord open(const std::string& address) {
        SocketRecord cRecord;
        mcHost.run([&] {
            const uint64_t uStart = utils::steadyMilliseconds();
            cRecord = socketOpen(address, 0);
            muMilliseconds = utils::steadyMilliseconds() - uStart;
        });
        return cRecord;
    }
    std::list<utils::RuntimeErrors::Error> log() { return utils::RuntimeErrors::instance().takeErrors(); }

    vnktest::Namespace mcHost;
    uint64_t muMilliseconds = 0;
};

TEST_F(SocketNames, HostsThatAreNoNamesAreReportedWhole) {
    for (const std::string address : {"127.0.0.300.1:80", ":80"}) {
        EXPECT_FALSE(open(address).isValid());
        const auto lErrors = log();
        ASSERT_EQ(lErrors.size(), 1u);
        EXPECT_EQ(lErrors.front().code(), -1001);
        EXPECT_EQ(lErrors.front().message(), "Cannot resolve address: " + address);
    }
}

TEST_F(SocketNames, TheSecondAddressIsTriedTwoSecondsAfterTheFirstRefused) {
    ASSERT_TRUE(mcHost.replaceFile("/etc/hosts", "127.0.0.11 unit.test\n127.0.0.12 unit.test\n"));
    int iFirst = -1;
    int iSecond = -1;
    mcHost.run([&] { iSecond = listenAt("127.0.0.12", 37001); });
    ASSERT_GE(iSecond, 0);
    // Whichever of the two the resolver names first: with both listening it answers at once, with one alone
    // the other one's refusal may come before it.
    SocketRecord cRecord = open("unit.test:37001");
    ASSERT_TRUE(cRecord.isValid());
    uint64_t uOneWay = muMilliseconds;
    ::close(iSecond);
    mcHost.run([&] { iFirst = listenAt("127.0.0.11", 37001); });
    ASSERT_GE(iFirst, 0);
    cRecord = open("unit.test:37001");
    ASSERT_TRUE(cRecord.isValid());
    const uint64_t uOther = muMilliseconds;
    ::close(iFirst);
    EXPECT_LT(std::min(uOneWay, uOther), 1900u);
    EXPECT_GE(std::max(uOneWay, uOther), 2000u);
    EXPECT_LT(std::max(uOneWay, uOther), 3900u);
    EXPECT_TRUE(log().empty());
}

TEST_F(SocketNames, AddressesOfBothFamiliesAreTried) {
    ASSERT_TRUE(mcHost.replaceFile("/etc/hosts", "::1 both.test\n127.0.0.13 both.test\n"));
    int iListening = -1;
    mcHost.run([&] { iListening = listenAt("127.0.0.13", 37001); });
    ASSERT_GE(iListening, 0);
    const SocketRecord cRecord = open("both.test:37001");
    EXPECT_TRUE(cRecord.isValid());
    EXPECT_LT(muMilliseconds, 3900u);
    ::close(iListening);
}

TEST_F(SocketNames, EveryAddressRefusingCostsTwoSecondsEach) {
    ASSERT_TRUE(mcHost.replaceFile("/etc/hosts", "127.0.0.11 unit.test\n127.0.0.12 unit.test\n"));
    EXPECT_FALSE(open("unit.test:37001").isValid());
    EXPECT_GE(muMilliseconds, 4000u);
    EXPECT_LT(muMilliseconds, 6000u);
    const auto lErrors = log();
    ASSERT_EQ(lErrors.size(), 1u);
    EXPECT_EQ(lErrors.front().code(), -1002);
    EXPECT_EQ(lErrors.front().message(), "Cannot connect to address: unit.test:37001");
}

TEST_F(SocketNames, AnUnreachableNetworkIsReportedAfterTheToldTime) {
    EXPECT_FALSE(open("10.99.0.1:37001").isValid());
    EXPECT_GE(muMilliseconds, 2000u);
    EXPECT_LT(muMilliseconds, 4000u);
    const auto lErrors = log();
    ASSERT_EQ(lErrors.size(), 1u);
    EXPECT_EQ(lErrors.front().code(), -1002);
}

TEST_F(SocketNames, ASilentNameServerBoundsTheCallByItsResolverAndHoldsUpNoOtherSocket) {
    ASSERT_TRUE(
        mcHost.replaceFile("/etc/resolv.conf", "nameserver 127.0.0.53\noptions timeout:1 attempts:2\n"));
    int iServer = -1;
    int iListening = -1;
    SocketRecord cOther;
    mcHost.run([&] {
        // Takes the questions and never answers.
        iServer = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in cAddress{};
        cAddress.sin_family = AF_INET;
        cAddress.sin_port = htons(53);
        ::inet_pton(AF_INET, "127.0.0.53", &cAddress.sin_addr);
        ASSERT_EQ(::bind(iServer, reinterpret_cast<sockaddr*>(&cAddress), sizeof(cAddress)), 0);
        iListening = listenAt("127.0.0.14", 37001);
        cOther = socketOpen("127.0.0.14:37001", 0);
    });
    ASSERT_TRUE(cOther.isValid());
    SocketRecord cRecord;
    uint64_t uPassed = 0;
    std::atomic<bool> bDone{false};
    mcHost.start([&] {
        const uint64_t uStart = utils::steadyMilliseconds();
        cRecord = socketOpen("nobody.example:37001", 0);
        uPassed = utils::steadyMilliseconds() - uStart;
        bDone.store(true);
    });
    EXPECT_TRUE(socketClose(cOther));
    EXPECT_FALSE(bDone.load());
    mcHost.wait();
    EXPECT_FALSE(cRecord.isValid());
    EXPECT_GE(uPassed, 1000u);
    EXPECT_LT(uPassed, 30000u);
    const auto lErrors = log();
    ASSERT_EQ(lErrors.size(), 1u);
    EXPECT_EQ(lErrors.front().message(), "Cannot resolve address: nobody.example:37001");
    ::close(iServer);
    ::close(iListening);
}

}  // namespace
