#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "links/socketfunctions.h"
#include "support/loopback.h"

namespace vnktest {

/// A descriptor of a test's own.
class TestSocket {
 public:
    TestSocket() = default;
    explicit TestSocket(int iDescriptor) : miDescriptor(iDescriptor) {}
    TestSocket(TestSocket&& cOther) noexcept : miDescriptor(std::exchange(cOther.miDescriptor, -1)) {}
    TestSocket& operator=(TestSocket&& cOther) noexcept {
        std::swap(miDescriptor, cOther.miDescriptor);
        return *this;
    }
    ~TestSocket() { close(); }

    int get() const { return miDescriptor; }
    bool send(const std::string& bytes) const {
        size_t uSent = 0;
        while (uSent < bytes.size()) {
            const ssize_t iCount =
                ::send(miDescriptor, bytes.data() + uSent, bytes.size() - uSent, MSG_NOSIGNAL);
            if (iCount <= 0)
                return false;
            uSent += static_cast<size_t>(iCount);
        }
        return true;
    }
    /// What has come by the limit, at least `uLeast` bytes if they come; ends early at the peer's end.
    std::string receive(size_t uLeast, int iLimitMs = 10000) const {
        std::string bytes;
        char buffer[65536];
        struct pollfd cPoll = {miDescriptor, POLLIN, 0};
        while (bytes.size() < uLeast && ::poll(&cPoll, 1, iLimitMs) > 0) {
            const ssize_t iCount = ::recv(miDescriptor, buffer, sizeof(buffer), 0);
            if (iCount <= 0)
                break;
            bytes.append(buffer, static_cast<size_t>(iCount));
        }
        return bytes;
    }
    /// Ends the link with a reset in place of an orderly close.
    void reset() {
        const struct linger cLinger = {1, 0};
        ::setsockopt(miDescriptor, SOL_SOCKET, SO_LINGER, &cLinger, sizeof(cLinger));
        close();
    }
    void close() {
        if (miDescriptor >= 0)
            ::close(std::exchange(miDescriptor, -1));
    }

 private:
    int miDescriptor = -1;
};

/// A listening socket on a loopback address that no other test uses.
class TestServer {
 public:
    explicit TestServer(int iBacklog = 64)
        : mcHost(uniqueLoopback()), mcSocket(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in cAddress{};
        cAddress.sin_family = AF_INET;
        ::inet_pton(AF_INET, mcHost.c_str(), &cAddress.sin_addr);
        socklen_t uSize = sizeof(cAddress);
        if (::bind(mcSocket.get(), reinterpret_cast<sockaddr*>(&cAddress), uSize) != 0 ||
            ::listen(mcSocket.get(), iBacklog) != 0 ||
            ::getsockname(mcSocket.get(), reinterpret_cast<sockaddr*>(&cAddress), &uSize) != 0)
            throw std::runtime_error("no listening socket");
        muPort = ntohs(cAddress.sin_port);
    }

    std::string address() const { return mcHost + ":" + std::to_string(muPort); }
    const std::string& host() const { return mcHost; }
    uint16_t port() const { return muPort; }
    TestSocket accept(int iLimitMs = 10000) const {
        struct pollfd cPoll = {mcSocket.get(), POLLIN, 0};
        if (::poll(&cPoll, 1, iLimitMs) <= 0)
            return TestSocket();
        return TestSocket(::accept(mcSocket.get(), nullptr, nullptr));
    }
    /// Refuses from now on.
    void stop() { mcSocket.close(); }

 private:
    std::string mcHost;
    TestSocket mcSocket;
    uint16_t muPort = 0;
};

/// An address at which nothing listens.
inline std::string refusingAddress() {
    TestServer cServer;
    return cServer.address();
}

/// Starts the socket layer for the tests of a program.
inline void startSocketLayer() {
    static _WinSockInitializer cInitializer;
    cInitializer.initialise();
}

}  // namespace vnktest
