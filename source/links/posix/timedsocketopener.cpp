#include "links/posix/timedsocketopener.h"

#include <errno.h>
#include <poll.h>

#include <cstring>

namespace {

constexpr uint64_t kConnectLimitMicroseconds = 2000000;

}  // namespace

_TimedSocketOpener::_TimedSocketOpener(ReferencePtr<SocketDescriptor> cDescriptor, const sockaddr* pAddress,
                                       socklen_t uLength)
    : utils::Thread("_TimedSocketOpener"), mcDescriptor(std::move(cDescriptor)) {
    if (uLength <= sizeof(mcAddress)) {
        std::memcpy(&mcAddress, pAddress, uLength);
        muLength = uLength;
    }
}

bool _TimedSocketOpener::connectInTime() {
    start(4);
    if (mcCompletionSync.wait(kConnectLimitMicroseconds))
        return true;
    // A close would leave the connect blocked; this ends it.
    mcDescriptor->wake();
    return false;
}

void _TimedSocketOpener::destroySelf() noexcept {
    // The connect has ended or been ended, so its body needs no longer wait than it takes to return.
    retire(1, [this] { delete this; });
}

void _TimedSocketOpener::run() {
    if (connectBlocking())
        mcCompletionSync.signal();
}

bool _TimedSocketOpener::connectBlocking() {
    if (::connect(mcDescriptor->get(), reinterpret_cast<const sockaddr*>(&mcAddress), muLength) == 0)
        return true;
    if (errno != EINTR)
        return false;
    // A connect that a signal interrupts goes on by itself and must not be called again.
    struct pollfd cPoll = {mcDescriptor->get(), POLLOUT, 0};
    while (::poll(&cPoll, 1, -1) < 0)
        if (errno != EINTR)
            return false;
    int iError = 0;
    socklen_t uSize = sizeof(iError);
    return ::getsockopt(mcDescriptor->get(), SOL_SOCKET, SO_ERROR, &iError, &uSize) == 0 && iError == 0 &&
           (cPoll.revents & POLLHUP) == 0;
}
