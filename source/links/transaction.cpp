#include "links/transaction.h"

#include "foundations/clock.h"

_Transaction::_Transaction(uint32_t uLeastSize, uint32_t uTimeoutMs)
    : muLeastSize(uLeastSize),
      muTimeoutMs(uTimeoutMs),
      muDeadlineMs(utils::steadyMilliseconds() + uTimeoutMs) {}

bool _Transaction::onData(ReferencePtr<utils::MemoryBlock> cBlock) {
    if (cBlock) {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        if (mbTaken)
            return false;
        append(*cBlock);
        if (mcReply->getReadableDataLength() >= muLeastSize) {
            mcSync.signal();
            return false;
        }
    }
    return utils::steadyMilliseconds() <= muDeadlineMs;
}

void _Transaction::append(utils::MemoryBlock& cBlock) {
    uint32_t uLength = 0;
    const uint8_t* pBytes = cBlock.getReadable(&uLength);
    if (mcReply)
        mcReply->write(pBytes, uLength);
    else
        mcReply = makeReference<utils::MemoryBlock>(pBytes, uLength);
    cBlock.setReadAndKeep(cBlock.getSize());
}

void _Transaction::onError(const std::string& text) {
    // Nobody is woken: the caller's wait runs to its time-out.
    std::lock_guard<std::mutex> cGuard(mcMutex);
    mcErrorText = text;
}

void _Transaction::wait() {
    mcSync.wait(uint64_t{muTimeoutMs} * 1000);
}

ReferencePtr<utils::MemoryBlock> _Transaction::takeReply() {
    std::lock_guard<std::mutex> cGuard(mcMutex);
    mbTaken = true;
    return std::move(mcReply);
}

std::string _Transaction::getErrorText() const {
    std::lock_guard<std::mutex> cGuard(mcMutex);
    return mcErrorText;
}
