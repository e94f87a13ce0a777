#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace vnksim {

/// Owner of one descriptor.
class Descriptor {
 public:
    Descriptor() = default;
    explicit Descriptor(int fd) : mFd(fd) {}
    Descriptor(Descriptor&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            reset();
            mFd = std::exchange(other.mFd, -1);
        }
        return *this;
    }
    ~Descriptor() { reset(); }
    int get() const { return mFd; }
    explicit operator bool() const { return mFd >= 0; }
    void reset();

 private:
    int mFd = -1;
};

/// A listening TCP socket, non-blocking. Throws std::system_error.
Descriptor listenTcp(const std::string& address, uint16_t port);
/// A UDP socket, non-blocking. Throws std::system_error.
Descriptor bindUdp(const std::string& address, uint16_t port);
/// The next connection that waits, non-blocking and without delay; an empty one when none waits.
Descriptor acceptTcp(const Descriptor& listener, int sendBufferBytes);
/// Makes the close of this socket a reset.
void resetOnClose(const Descriptor& socket);
/// Sends the acknowledgement of what was received now: a client that writes a command and then a query would
/// otherwise have its query held back by its own system for some 40 ms.
void acknowledgeAtOnce(const Descriptor& socket);
/// True when the peer has ended the connection.
bool peerHasLeft(const Descriptor& socket);

/// An event that a poll can wait for.
class WakeUp {
 public:
    WakeUp();
    int get() const { return mcEvent.get(); }
    void signal() const;
    void clear() const;

 private:
    Descriptor mcEvent;
};

}  // namespace vnksim
