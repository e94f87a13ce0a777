#include "links/discovery.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>

#include "foundations/clock.h"
#include "namespaces.h"
#include "support/resources.h"

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::string response(const std::string& model, const std::string& serial, const std::string& firmware) {
    std::string bytes("\x93\x31\x66\x66\x00\x00\x00\x02", 8);
    for (std::string field : {model, serial, firmware}) {
        field.resize(16, '\0');
        bytes += field;
    }
    return bytes + std::string(4, '\0');
}

/// The unit's socket: sees requests, answers what the test tells it to.
class Responder {
 public:
    Responder() : miSocket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        const int iOn = 1;
        ::setsockopt(miSocket, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof(iOn));
        sockaddr_in cAny{};
        cAny.sin_family = AF_INET;
        cAny.sin_port = htons(18331);
        mbBound = ::bind(miSocket, reinterpret_cast<sockaddr*>(&cAny), sizeof(cAny)) == 0;
    }
    ~Responder() { ::close(miSocket); }
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    bool isBound() const { return mbBound; }
    /// The next datagram within the limit; empty if none. Its sender becomes the one to answer.
    std::string receive(int iLimitMs) {
        struct pollfd cPoll = {miSocket, POLLIN, 0};
        if (::poll(&cPoll, 1, iLimitMs) <= 0)
            return {};
        char buffer[2048];
        socklen_t uSize = sizeof(mcFrom);
        const ssize_t iLength =
            ::recvfrom(miSocket, buffer, sizeof(buffer), 0, reinterpret_cast<sockaddr*>(&mcFrom), &uSize);
        return iLength > 0 ? std::string(buffer, static_cast<size_t>(iLength)) : std::string();
    }
    void answer(const std::string& bytes) {
        ::sendto(miSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&mcFrom),
                 sizeof(mcFrom));
    }
    uint16_t senderPort() const { return ntohs(mcFrom.sin_port); }

 private:
    int miSocket;
    bool mbBound = false;
    sockaddr_in mcFrom{};
};

struct Discovered {
    std::vector<DiscoveryEntry> mlEntries;
    std::vector<std::string> mlMessages;
    uint64_t muMilliseconds = 0;
};

Discovered discoverIn(vnktest::Namespace& cNamespace) {
    Discovered cResult;
    cNamespace.run([&] {
        const uint64_t uStart = utils::steadyMilliseconds();
        cResult.mlEntries = discoverUnits(cResult.mlMessages);
        cResult.muMilliseconds = utils::steadyMilliseconds() - uStart;
    });
    return cResult;
}

class DiscoveryOnACable : public testing::Test {
 protected:
    void SetUp() override {
        VNK_NEED_NAMESPACES(mcNet.isPermitted());
        ASSERT_TRUE(mcNet.connect());
    }
    /// Runs a discovery in the host while the unit does the work with its responder.
    Discovered discoverWhile(const std::function<void(Responder&)>& work) {
        std::atomic<bool> bBound{false};
        mcNet.mcUnit.start([&] {
            Responder cResponder;
            bBound.store(cResponder.isBound());
            bBound.notify_all();
            work(cResponder);
        });
        bBound.wait(false);
        const Discovered cResult = discoverIn(mcNet.mcHost);
        mcNet.mcUnit.wait();
        return cResult;
    }

    vnktest::HostAndUnit mcNet;
};

/// The first request, with its echoes and those of later broadcasts skipped.
bool awaitRequest(Responder& cResponder) {
    return cResponder.receive(20000) == std::string("\x93\x31\x55\x55\x00\x00\x00\x02", 8);
}

TEST_F(DiscoveryOnACable, AUnitThatAnswersIsFoundByItsAddress) {
    bool bRequest = false;
    uint16_t uPort = 0;
    const Discovered cResult = discoverWhile([&](Responder& cResponder) {
        bRequest = awaitRequest(cResponder);
        uPort = cResponder.senderPort();
        cResponder.answer(response("MODEL-A", "SN42", "1.2"));
    });
    EXPECT_TRUE(bRequest);
    EXPECT_EQ(uPort, 18331);  // the request comes from the port that answers go to
    ASSERT_THAT(cResult.mlEntries, SizeIs(1));
    EXPECT_EQ(cResult.mlEntries[0].mcAddress, "10.77.0.2");
    EXPECT_EQ(cResult.mlEntries[0].mcIdentity, "MODEL-A:SN42:1.2");
    EXPECT_GE(cResult.muMilliseconds, 1000u);
    EXPECT_LT(cResult.muMilliseconds, 10000u);
}

TEST_F(DiscoveryOnACable, RequestsGoToBothBroadcastAddresses) {
    // The wider of the two needs a route for a host that is in a narrower network.
    ASSERT_TRUE(
        mcNet.mcHost.shell("ip route add broadcast 10.77.255.255 dev veth0 table local src 10.77.0.1"));
    ASSERT_TRUE(
        mcNet.mcUnit.shell("ip route add broadcast 10.77.255.255 dev veth1 table local src 10.77.0.2"));
    std::vector<std::string> lRequests;
    discoverWhile([&](Responder& cResponder) {
        for (std::string bytes = cResponder.receive(20000); !bytes.empty(); bytes = cResponder.receive(500))
            lRequests.push_back(bytes);
    });
    const std::string request("\x93\x31\x55\x55\x00\x00\x00\x02", 8);
    EXPECT_THAT(lRequests, ElementsAre(request, request));
}

TEST_F(DiscoveryOnACable, AUnitThatAnswersTwiceShowsUpTwice) {
    const Discovered cResult = discoverWhile([&](Responder& cResponder) {
        awaitRequest(cResponder);
        cResponder.answer(response("M", "S", "F"));
        cResponder.answer(response("M", "S", "F"));
    });
    EXPECT_THAT(cResult.mlEntries, SizeIs(2));
}

TEST_F(DiscoveryOnACable, WhatIsNoAnswerIsReportedAndSkipped) {
    std::string echo = response("M", "S", "F");
    echo.replace(0, 4, "\x93\x31\x55\x55");
    const Discovered cResult = discoverWhile([&](Responder& cResponder) {
        awaitRequest(cResponder);
        cResponder.answer(response("M", "S", "F").substr(0, 59));
        cResponder.answer(response("M", "S", "F") + "x");
        cResponder.answer(echo);
        cResponder.answer(std::string(512, 'z'));
        cResponder.answer("");
        cResponder.answer(response("GOOD", "S", "F"));
    });
    ASSERT_THAT(cResult.mlEntries, SizeIs(1));
    EXPECT_EQ(cResult.mlEntries[0].mcIdentity, "GOOD:S:F");
    for (const char* pLength : {"59", "61", "512", "0"})
        EXPECT_THAT(cResult.mlMessages,
                    Contains(std::string("Unit at IP 10.77.0.2 returned invalid length (") + pLength +
                             ") response. Ignored."));
    EXPECT_THAT(cResult.mlMessages,
                Contains("Unit at IP 10.77.0.2 returned incorrect response code 0x93315555. Ignored."));
}

TEST_F(DiscoveryOnACable, TheHostsOwnRequestComesBackAsAMessage) {
    const Discovered cResult = discoverIn(mcNet.mcHost);
    EXPECT_THAT(cResult.mlEntries, IsEmpty());
    EXPECT_THAT(cResult.mlMessages,
                Each("Unit at IP 10.77.0.1 returned invalid length (8) response. Ignored."));
    EXPECT_THAT(cResult.mlMessages, SizeIs(Ge(1u)));
}

TEST_F(DiscoveryOnACable, AnAnswerEveryHalfSecondEndsTheDiscoveryAfterThirtySeconds) {
    const uint64_t uEnd = utils::steadyMilliseconds() + 32000;
    const Discovered cResult = discoverWhile([&](Responder& cResponder) {
        awaitRequest(cResponder);
        while (utils::steadyMilliseconds() < uEnd) {
            cResponder.answer(response("M", "S", "F"));
            cResponder.receive(500);  // nothing comes: the half second
        }
    });
    EXPECT_GE(cResult.muMilliseconds, 29900u);
    EXPECT_LT(cResult.muMilliseconds, 35000u);
    EXPECT_THAT(cResult.mlEntries, SizeIs(Ge(30u)));
}

TEST_F(DiscoveryOnACable, AFloodOfAnswersEndsTheDiscoveryWithItsMostEntries) {
    const uint64_t uMemory = vnktest::residentBytes();
    const uint64_t uEnd = utils::steadyMilliseconds() + 8000;
    const Discovered cResult = discoverWhile([&](Responder& cResponder) {
        awaitRequest(cResponder);
        const std::string answers[] = {response("a:b", "\"q\"", "\x80\xff"),
                                       response("0123456789ABCDEF", "0123456789ABCDEF", "0123456789ABCDEF")};
        for (unsigned i = 0; utils::steadyMilliseconds() < uEnd; ++i)
            cResponder.answer(answers[i % 2]);
    });
    EXPECT_LE(cResult.mlEntries.size() + cResult.mlMessages.size(), 65536u);
    EXPECT_GE(cResult.mlEntries.size(), 1000u);
    EXPECT_LT(cResult.muMilliseconds, 35000u);
    EXPECT_LT(vnktest::residentBytes(), uMemory + (256u << 20));
}

TEST_F(DiscoveryOnACable, AdaptersAreListedInSystemOrderWithoutLoopbackAndThoseThatAreDown) {
    ASSERT_TRUE(
        mcNet.mcHost.shell("ip link add dummy0 type dummy 2>/dev/null || "
                           "ip link add dummy0 type veth peer name dummy0p"));
    ASSERT_TRUE(
        mcNet.mcHost.shell("ip addr add 10.78.0.1/24 dev dummy0 && ip addr add 10.79.0.1/24 dev veth0"));
    std::vector<std::string> lAddresses;
    mcNet.mcHost.run([&] { lAddresses = enumerateAdapters(); });
    EXPECT_THAT(lAddresses, ElementsAre("10.77.0.1", "10.79.0.1"));  // dummy0 is down
    ASSERT_TRUE(mcNet.mcHost.shell("ip link set dummy0 up"));
    mcNet.mcHost.run([&] { lAddresses = enumerateAdapters(); });
    EXPECT_THAT(lAddresses, testing::UnorderedElementsAre("10.77.0.1", "10.79.0.1", "10.78.0.1"));
}

TEST(DiscoveryAlone, AHostWithoutAnAdapterWaitsASecondAndFindsNothing) {
    vnktest::Namespace cHost;
    VNK_NEED_NAMESPACES(cHost.isPermitted());
    ASSERT_TRUE(cHost.shell("ip link set lo up"));
    const Discovered cResult = discoverIn(cHost);
    EXPECT_THAT(cResult.mlEntries, IsEmpty());
    EXPECT_THAT(cResult.mlMessages, IsEmpty());
    EXPECT_GE(cResult.muMilliseconds, 1000u);
    EXPECT_LT(cResult.muMilliseconds, 3000u);
}

TEST(DiscoveryAlone, AnAdapterWithoutAnAddressIsNoAdapter) {
    vnktest::HostAndUnit cNet;
    VNK_NEED_NAMESPACES(cNet.isPermitted());
    ASSERT_TRUE(cNet.connect());
    ASSERT_TRUE(cNet.mcHost.shell("ip addr flush dev veth0"));
    std::vector<std::string> lAddresses{"untouched"};
    cNet.mcHost.run([&] { lAddresses = enumerateAdapters(); });
    EXPECT_THAT(lAddresses, IsEmpty());
}

TEST(DiscoveryAlone, APortInUseIsReported) {
    vnktest::Namespace cHost;
    VNK_NEED_NAMESPACES(cHost.isPermitted());
    const size_t uDescriptors = vnktest::openDescriptors();
    Discovered cResult;
    cHost.run([&] {
        Responder cOther;
        cResult.mlEntries = discoverUnits(cResult.mlMessages);
    });
    EXPECT_THAT(cResult.mlEntries, IsEmpty());
    EXPECT_THAT(cResult.mlMessages, ElementsAre("ERROR: Protocol::VarnikDiscovery - Socket bind failed"));
    EXPECT_EQ(vnktest::openDescriptors(), uDescriptors);
}

}  // namespace
