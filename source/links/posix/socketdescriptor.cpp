#include "links/posix/socketdescriptor.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"

SocketDescriptor::~SocketDescriptor() {
    // After an interrupted close the number is gone all the same; a retry could hit someone else's.
    if (::close(miDescriptor) == 0 || errno == EINTR)
        return;
    try {
        utils::reportError(-1005, "Socket close failed");
    } catch (const std::exception&) {
        // Without memory for a log line the failure goes unlogged.
    }
}

void SocketDescriptor::wake() const {
    ::shutdown(miDescriptor, SHUT_RDWR);
}

int waitReadable(int iDescriptor, uint64_t uLimitMicroseconds) {
    const uint64_t uStart = utils::steadyMicroseconds();
    struct pollfd cPoll = {iDescriptor, POLLIN, 0};
    for (;;) {
        const uint64_t uPassed = utils::steadyMicroseconds() - uStart;
        const uint64_t uLeft = uPassed < uLimitMicroseconds ? uLimitMicroseconds - uPassed : 0;
        // Rounded up, so that a wait never ends before its limit.
        const uint64_t uLeftMs = uLeft / 1000 + (uLeft % 1000 ? 1 : 0);
        constexpr uint64_t kLongest = std::numeric_limits<int>::max();
        const int iResult = ::poll(&cPoll, 1, static_cast<int>(std::min(uLeftMs, kLongest)));
        if (iResult > 0 || (iResult < 0 && errno != EINTR))
            return iResult;
        if (iResult == 0 && uLeftMs <= kLongest)
            return 0;
    }
}
