#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

class Discovery : public UnitTest {
 protected:
    ~Discovery() override { ::close(mFd); }

    std::vector<uint8_t> ask(const std::vector<uint8_t>& request, int limitMs = 5000) {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(vnksim::kDiscoveryPort);
        ::inet_pton(AF_INET, mcOptions.address.c_str(), &place.sin_addr);
        ::sendto(mFd, request.data(), request.size(), 0, reinterpret_cast<const sockaddr*>(&place),
                 sizeof place);
        pollfd wait{mFd, POLLIN, 0};
        if (::poll(&wait, 1, limitMs) <= 0) {
            return {};
        }
        std::vector<uint8_t> reply(512);
        const ssize_t got = ::recv(mFd, reply.data(), reply.size(), 0);
        reply.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return reply;
    }

    const std::vector<uint8_t> mcRequest = {0x93, 0x31, 0x55, 0x55, 0, 0, 0, 2};
    int mFd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

TEST_F(Discovery, replyHasSixtyBytesWithPaddedFields) {
    mcOptions.discovery = true;
    mcOptions.serial = "0123456789ABCDEFGHI";
    mcOptions.firmware = "2.8";
    startUnit({}, "ZV300-B");
    const auto reply = ask(mcRequest);
    ASSERT_EQ(reply.size(), 60u);
    EXPECT_EQ(std::vector<uint8_t>(reply.begin(), reply.begin() + 4),
              (std::vector<uint8_t>{0x93, 0x31, 0x66, 0x66}));
    const std::string zero(16, '\0');
    EXPECT_EQ(std::string(reply.begin() + 8, reply.begin() + 24), ("ZV300-B" + zero).substr(0, 16));
    // A text that fills its field has no terminator; what is longer is cut.
    EXPECT_EQ(std::string(reply.begin() + 24, reply.begin() + 40), "0123456789ABCDEF");
    EXPECT_EQ(std::string(reply.begin() + 40, reply.begin() + 56), ("2.8" + zero).substr(0, 16));
}

TEST_F(Discovery, otherDatagramsAreNotAnswered) {
    mcOptions.discovery = true;
    startUnit();
    auto wrong = mcRequest;
    wrong[3] = 0x66;
    auto longer = mcRequest;
    longer.push_back(0);
    EXPECT_TRUE(ask(wrong, 50).empty());
    EXPECT_TRUE(ask(longer, 50).empty());
    EXPECT_TRUE(ask({}, 50).empty());
    EXPECT_EQ(ask(mcRequest).size(), 60u);
}

TEST_F(Discovery, canBeSwitchedOff) {
    startUnit();
    EXPECT_TRUE(ask(mcRequest, 50).empty());
}

}  // namespace
}  // namespace simtest
