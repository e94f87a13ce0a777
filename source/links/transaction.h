#pragma once

#include <mutex>

#include "foundations/barrier.h"
#include "links/transport.h"

/// The callback of one request and its reply. Counted, so that a call that is late finds its state alive.
class _Transaction : public utils::ReferenceCountedObject, public Transport::Callback {
 public:
    _Transaction(uint32_t uLeastSize, uint32_t uTimeoutMs);

    bool onData(ReferencePtr<utils::MemoryBlock> cBlock) override;
    void onError(const std::string& text) override;
    utils::ReferenceCountedObject* countedSelf() override { return this; }

    /// Until enough has come or the time-out has passed.
    void wait();
    /// What has come; whatever comes later is dropped.
    ReferencePtr<utils::MemoryBlock> takeReply();
    std::string getErrorText() const;

 private:
    void append(utils::MemoryBlock& cBlock);

    const uint32_t muLeastSize;
    const uint32_t muTimeoutMs;
    const uint64_t muDeadlineMs;
    utils::Barrier mcSync{"Transport_Transaction"};
    mutable std::mutex mcMutex;
    ReferencePtr<utils::MemoryBlock> mcReply;
    std::string mcErrorText;
    bool mbTaken = false;
};
