#pragma once

#include <atomic>
#include <cstdint>

#include "foundations/referencecountedobject.h"
#include "links/socketfunctions.h"

class SocketDescriptor : public utils::ReferenceCountedObject {
 public:
    explicit SocketDescriptor(int iDescriptor) : miDescriptor(iDescriptor) {}
    ~SocketDescriptor() override;

    int get() const { return miDescriptor; }
    /// Ends both directions, which frees every thread that is blocked in a call on the descriptor. The number
    /// stays ours until the last reference has gone.
    void wake() const;
    /// True for the first caller: a descriptor is given up once, however many records name it.
    bool giveUp() { return !mbGivenUp.exchange(true, std::memory_order_acq_rel); }
    bool isGivenUp() const { return mbGivenUp.load(std::memory_order_acquire); }

 private:
    const int miDescriptor;
    std::atomic<bool> mbGivenUp{false};
};

/// Waits for input, the peer's end or an error, going on after a signal with what is left of the time:
/// positive, 0 at the time-out, or -1 with errno set.
int waitReadable(int iDescriptor, uint64_t uLimitMicroseconds);
