#pragma once

#include <sys/socket.h>

#include "foundations/barrier.h"
#include "foundations/thread.h"
#include "links/posix/socketdescriptor.h"

/// One connect of at most two seconds, on a thread of its own. Everything that the thread touches belongs to
/// this counted object, so that a connect which ends late finds all of it alive.
class _TimedSocketOpener : public utils::ReferenceCountedObject, private utils::Thread {
 public:
    _TimedSocketOpener(ReferencePtr<SocketDescriptor> cDescriptor, const sockaddr* pAddress,
                       socklen_t uLength);

    /// Blocks for the attempt. A refusal costs the whole two seconds too: only success is signalled.
    bool connectInTime();

 protected:
    void destroySelf() noexcept override;
    void run() override;

 private:
    bool connectBlocking();

    utils::Barrier mcCompletionSync{"_TimedSocketOpener::mcCompletionSync"};
    ReferencePtr<SocketDescriptor> mcDescriptor;
    sockaddr_storage mcAddress{};
    socklen_t muLength = 0;
};
