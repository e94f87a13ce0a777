#include "links/socketfunctions.h"

#include <errno.h>
#include <sys/socket.h>

#include <array>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "links/posix/socketdescriptor.h"

namespace {

constexpr uint64_t kDrainQuietMicroseconds = 10000;
constexpr uint64_t kDrainLimitMicroseconds = 2000000;

/// What an operation works on: the reference keeps the number ours until the operation is over.
ReferencePtr<SocketDescriptor> hold(const SocketRecord& cRecord) {
    return cRecord.isValid() ? cRecord.mcDescriptor : ReferencePtr<SocketDescriptor>();
}

/// A receive that never blocks; -1 with EAGAIN when another reader was faster.
ssize_t receiveNow(int iDescriptor, uint8_t* pBytes, size_t uRoom) {
    ssize_t iCount;
    do {
        iCount = ::recv(iDescriptor, pBytes, uRoom, MSG_DONTWAIT);
    } while (iCount < 0 && errno == EINTR);
    return iCount;
}

/// One send to the caller. Here a blocking send comes back short only when a signal interrupts it, which is
/// no reason for the caller to see a short count.
ssize_t sendAll(int iDescriptor, const uint8_t* pBytes, size_t uLength) {
    size_t uSent = 0;
    while (uSent < uLength) {
        const ssize_t iCount = ::send(iDescriptor, pBytes + uSent, uLength - uSent, MSG_NOSIGNAL);
        if (iCount >= 0)
            uSent += static_cast<size_t>(iCount);
        else if (errno != EINTR)
            return uSent ? static_cast<ssize_t>(uSent) : -1;
    }
    return static_cast<ssize_t>(uSent);
}

void noteFailure(SocketRecord& cRecord, const char* format, int32_t iCode, int iDescriptor, int iError) {
    utils::reportError(iCode, utils::formatText(format, iDescriptor, iError));
    cRecord.miLastError.store(iError, std::memory_order_relaxed);
    cRecord.mbFailed.store(true, std::memory_order_relaxed);
}

}  // namespace

SocketRecord::SocketRecord() = default;
SocketRecord::~SocketRecord() = default;

SocketRecord::SocketRecord(const SocketRecord& cOther)
    : muHandle(cOther.muHandle),
      muReceiveTimeoutMs(cOther.muReceiveTimeoutMs),
      mbFailed(cOther.mbFailed.load(std::memory_order_relaxed)),
      miLastError(cOther.miLastError.load(std::memory_order_relaxed)),
      mcDescriptor(cOther.mcDescriptor) {}

SocketRecord& SocketRecord::operator=(const SocketRecord& cOther) {
    muHandle = cOther.muHandle;
    muReceiveTimeoutMs = cOther.muReceiveTimeoutMs;
    mbFailed.store(cOther.mbFailed.load(std::memory_order_relaxed), std::memory_order_relaxed);
    miLastError.store(cOther.miLastError.load(std::memory_order_relaxed), std::memory_order_relaxed);
    mcDescriptor = cOther.mcDescriptor;
    return *this;
}

uint32_t socketSend(SocketRecord& cRecord, ReferencePtr<utils::MemoryBlock> cBlock) {
    const auto cDescriptor = hold(cRecord);
    if (!cDescriptor || !cBlock) {
        utils::reportError(-1003, "Socket is invalid");
        return 0;
    }
    uint32_t uLength = 0;
    const uint8_t* pBytes = cBlock->getReadable(&uLength);
    if (!pBytes) {
        utils::reportError(-1006, "Send buffer is exhausted");
        return 0;
    }
    const ssize_t iCount = sendAll(cDescriptor->get(), pBytes, uLength);
    if (iCount < 0) {
        noteFailure(cRecord, "Socket FD:%d send failed with WSA error code %d", -1007, cDescriptor->get(),
                    errno);
        return 0;
    }
    cBlock->setReadPosition(cBlock->getReadPosition() + static_cast<uint32_t>(iCount));
    return static_cast<uint32_t>(iCount);
}

ReferencePtr<utils::MemoryBlock> socketReceive(SocketRecord& cRecord, uint32_t uTimeoutMs,
                                               ReferencePtr<utils::MemoryBlock> cBlock) {
    const auto cDescriptor = hold(cRecord);
    if (!cDescriptor)
        return nullptr;
    const int iReady = waitReadable(cDescriptor->get(), uint64_t{uTimeoutMs} * 1000);
    if (iReady < 0)
        // Only send and receive failures set the failed flag.
        utils::reportError(-1009,
                           utils::formatText("Socket FD:%d - select error %d ", cDescriptor->get(), errno));
    if (iReady <= 0)
        return nullptr;
    const uint32_t uRoom = cBlock->getAllocated() - cBlock->getWritePosition();
    uint8_t* pRoom = cBlock->getStorage() + cBlock->getWritePosition();
    const ssize_t iCount = receiveNow(cDescriptor->get(), pRoom, uRoom);
    if (iCount < 0) {
        const int iError = errno;
        if (iError != EAGAIN && iError != EWOULDBLOCK)
            noteFailure(cRecord, "Socket FD:%d - recv error %d ", -1008, cDescriptor->get(), iError);
        return nullptr;
    }
    // The system tells a failure once and then the end of the stream; for us a failed socket stays failed.
    if (iCount == 0 && uRoom != 0 && cRecord.mbFailed.load(std::memory_order_relaxed))
        return nullptr;
    cBlock->advanceWritePosition(static_cast<uint32_t>(iCount));
    return cBlock;
}

bool socketClose(SocketRecord& cRecord) {
    const auto cDescriptor = hold(cRecord);
    if (!cDescriptor || cDescriptor->isGivenUp()) {
        utils::reportError(-1003, "Socket is invalid");
        return false;
    }
    if (::shutdown(cDescriptor->get(), SHUT_WR) != 0) {
        // The handle stays in the record; its last owner closes the descriptor.
        utils::reportError(-1004, "Socket shutdown failed");
        return false;
    }
    if (!cDescriptor->giveUp()) {
        utils::reportError(-1003, "Socket is invalid");
        return false;
    }
    cDescriptor->wake();
    cRecord.muHandle = kInvalidSocket;
    cRecord.mcDescriptor = nullptr;
    return true;
}

bool socketDrain(SocketRecord& cRecord) {
    const auto cDescriptor = hold(cRecord);
    if (!cDescriptor)
        return false;
    std::array<uint8_t, 65536> scratch;
    const uint64_t uStart = utils::steadyMicroseconds();
    bool bDiscarded = false;
    while (utils::steadyMicroseconds() - uStart < kDrainLimitMicroseconds &&
           waitReadable(cDescriptor->get(), kDrainQuietMicroseconds) > 0) {
        const ssize_t iCount = receiveNow(cDescriptor->get(), scratch.data(), scratch.size());
        if (iCount <= 0)
            break;  // the peer's end or a failure stays readable for ever
        bDiscarded = true;
    }
    return bDiscarded;
}

void socketWake(const SocketRecord& cRecord) {
    if (const auto cDescriptor = hold(cRecord))
        cDescriptor->wake();
}

std::string socketErrorText(const SocketRecord& cRecord) {
    if (!cRecord.mbFailed.load(std::memory_order_relaxed))
        return {};
    return utils::formatText("Socket failed with error code %d",
                             cRecord.miLastError.load(std::memory_order_relaxed));
}
