#include "simulator/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vnksim {
namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

Descriptor bound(int type, const std::string& address, uint16_t port) {
    Descriptor socket(::socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket) {
        fail("socket");
    }
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    const std::string text = address + ":" + std::to_string(port);
    if (::inet_pton(AF_INET, address.c_str(), &place.sin_addr) != 1) {
        errno = EINVAL;
        fail("address " + text);
    }
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        fail("bind " + text);
    }
    return socket;
}

}  // namespace

void Descriptor::reset() {
    if (mFd >= 0) {
        ::close(mFd);
        mFd = -1;
    }
}

Descriptor listenTcp(const std::string& address, uint16_t port) {
    Descriptor socket = bound(SOCK_STREAM, address, port);
    if (::listen(socket.get(), 16) != 0) {
        fail("listen " + address + ":" + std::to_string(port));
    }
    return socket;
}

Descriptor bindUdp(const std::string& address, uint16_t port) {
    Descriptor socket = bound(SOCK_DGRAM, address, port);
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    return socket;
}

Descriptor acceptTcp(const Descriptor& listener, int sendBufferBytes) {
    Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket) {
        const int on = 1;
        ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (sendBufferBytes > 0) {
            ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
        }
    }
    return socket;
}

void resetOnClose(const Descriptor& socket) {
    const linger now{1, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

void acknowledgeAtOnce(const Descriptor& socket) {
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

bool peerHasLeft(const Descriptor& socket) {
    char byte = 0;
    const ssize_t got = ::recv(socket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
}

WakeUp::WakeUp() : mcEvent(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!mcEvent) {
        fail("eventfd");
    }
}

void WakeUp::signal() const {
    const uint64_t one = 1;
    // A full counter is as good as a write.
    [[maybe_unused]] const ssize_t done = ::write(mcEvent.get(), &one, sizeof one);
}

void WakeUp::clear() const {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t done = ::read(mcEvent.get(), &count, sizeof count);
}

}  // namespace vnksim
