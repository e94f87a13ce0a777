#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "foundations/initializer.h"
#include "foundations/memoryblock.h"

/// The one owner of a descriptor: it is really closed when the last reference goes, exactly once, so that
/// nobody ever works on a number that the system has given to someone else.
class SocketDescriptor;

inline constexpr uint64_t kInvalidSocket = ~uint64_t{0};

/// A plain value. A link's threads share one record through its transport; the failed flag and the last
/// error are plain words of which the last writer wins.
struct SocketRecord {
    uint64_t muHandle = kInvalidSocket;
    uint32_t muReceiveTimeoutMs = 0;
    std::atomic<bool> mbFailed{false};
    std::atomic<int32_t> miLastError{0};
    ReferencePtr<SocketDescriptor> mcDescriptor;

    SocketRecord();
    SocketRecord(const SocketRecord&);
    SocketRecord& operator=(const SocketRecord&);
    ~SocketRecord();
    bool isValid() const { return muHandle != kInvalidSocket; }
};

/// Opens a stream socket to `host:port`; at most two seconds for each resolved address (the resolver's own
/// time comes on top). An address without a port yields an invalid record and no report.
SocketRecord socketOpen(const std::string& address, uint32_t uReceiveTimeoutMs);
/// One send of the unread bytes; the count sent, 0 on failure.
uint32_t socketSend(SocketRecord& cRecord, ReferencePtr<utils::MemoryBlock> cBlock);
/// One timed receive into the block's free room. The block, with no new bytes after an orderly close by the
/// peer; null at the time-out and on failure.
ReferencePtr<utils::MemoryBlock> socketReceive(SocketRecord& cRecord, uint32_t uTimeoutMs,
                                               ReferencePtr<utils::MemoryBlock> cBlock);
bool socketClose(SocketRecord& cRecord);
/// Discards pending input until the line is quiet for 10 ms, the peer has closed, or 2 s have passed.
bool socketDrain(SocketRecord& cRecord);
/// Ends both directions, so that threads blocked on the socket come free. The handle stays open.
void socketWake(const SocketRecord& cRecord);
/// Empty unless the failed flag is set.
std::string socketErrorText(const SocketRecord& cRecord);

/// Start-up of the platform's socket layer, in the initialiser chain.
class _WinSockInitializer : public utils::Initializer {
 public:
    bool initialise() override;
    void finalise() override;
    static bool isStarted();
};
