#include "links/discovery.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "foundations/clock.h"
#include "foundations/text.h"
#include "links/discoverywire.h"
#include "links/posix/socketdescriptor.h"

namespace {

constexpr uint64_t kQuietMicroseconds = 1000000;
// No healthy network meets these; they end a discovery that somebody answers for ever.
constexpr uint64_t kLimitMicroseconds = 30000000;
constexpr size_t kMostEntries = 65536;
constexpr size_t kDatagramBytes = 512;

sockaddr_in portAt(in_addr cHost) {
    sockaddr_in cAddress{};
    cAddress.sin_family = AF_INET;
    cAddress.sin_port = htons(DiscoveryWire::kPort);
    cAddress.sin_addr = cHost;
    return cAddress;
}

ReferencePtr<SocketDescriptor> openSocket(std::vector<std::string>& lMessages) {
    const int iDescriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (iDescriptor < 0) {
        lMessages.push_back("ERROR: Protocol::VarnikDiscovery - Failed to open AF_INET, SOCK_DGRAM");
        return nullptr;
    }
    auto cSocket = makeReference<SocketDescriptor>(iDescriptor);
    const int iOn = 1;
    ::setsockopt(iDescriptor, SOL_SOCKET, SO_BROADCAST, &iOn, sizeof(iOn));
    const sockaddr_in cAny = portAt(in_addr{htonl(INADDR_ANY)});
    if (::bind(iDescriptor, reinterpret_cast<const sockaddr*>(&cAny), sizeof(cAny)) != 0) {
        lMessages.push_back("ERROR: Protocol::VarnikDiscovery - Socket bind failed");
        return nullptr;
    }
    return cSocket;
}

void sendRequests(int iDescriptor) {
    for (const std::string& adapter : enumerateAdapters())
        for (const std::string& text : broadcastAddresses(adapter)) {
            in_addr cHost{};
            if (::inet_pton(AF_INET, text.c_str(), &cHost) != 1)
                continue;
            const sockaddr_in cTo = portAt(cHost);
            ::sendto(iDescriptor, DiscoveryWire::kRequest, sizeof(DiscoveryWire::kRequest), MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr*>(&cTo), sizeof(cTo));
        }
}

std::string senderText(const sockaddr_in& cFrom) {
    const uint32_t uHost = ntohl(cFrom.sin_addr.s_addr);
    return utils::formatText("%d.%d.%d.%d", static_cast<int>(uHost >> 24),
                             static_cast<int>((uHost >> 16) & 255), static_cast<int>((uHost >> 8) & 255),
                             static_cast<int>(uHost & 255));
}

/// The next datagram before the line has been quiet for a second or the discovery has lasted too long; -1
/// if there is none.
ssize_t receiveDatagram(int iDescriptor, uint64_t uStart, std::array<uint8_t, kDatagramBytes>& bytes,
                        sockaddr_in& cFrom) {
    for (;;) {
        const uint64_t uPassed = utils::steadyMicroseconds() - uStart;
        if (uPassed >= kLimitMicroseconds ||
            waitReadable(iDescriptor, std::min(kQuietMicroseconds, kLimitMicroseconds - uPassed)) <= 0)
            return -1;
        socklen_t uSize = sizeof(cFrom);
        const ssize_t iLength = ::recvfrom(iDescriptor, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                           reinterpret_cast<sockaddr*>(&cFrom), &uSize);
        // Nothing after all: a datagram that was dropped for its checksum once it was looked at.
        if (iLength >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR))
            return iLength;
    }
}

}  // namespace

std::vector<DiscoveryEntry> discoverUnits(std::vector<std::string>& lMessages) {
    std::vector<DiscoveryEntry> lEntries;
    const auto cSocket = openSocket(lMessages);
    if (!cSocket)
        return lEntries;
    sendRequests(cSocket->get());
    const uint64_t uStart = utils::steadyMicroseconds();
    std::array<uint8_t, kDatagramBytes> bytes;
    // What is no answer counts too: its messages take memory as well.
    for (size_t uSeen = 0; uSeen < kMostEntries; ++uSeen) {
        sockaddr_in cFrom{};
        const ssize_t iLength = receiveDatagram(cSocket->get(), uStart, bytes, cFrom);
        if (iLength < 0)
            break;
        const std::string sender = senderText(cFrom);
        std::string identity;
        std::string message;
        if (parseDiscoveryResponse(bytes.data(), static_cast<size_t>(iLength), sender, identity, message))
            lEntries.push_back({sender, identity});
        else
            lMessages.push_back(message);
    }
    return lEntries;
}
