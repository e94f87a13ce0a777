#pragma once

#include <atomic>
#include <functional>

#include "receivers/commandchannel.h"
#include "receivers/rangechecks.h"

/// What a receiver shares with its engines, so that an engine that outlives its receiver for a moment touches
/// nothing freed.
class EngineContext : public utils::ReferenceCountedObject {
 public:
    EngineContext(ReferencePtr<CommandChannel> cChannel, std::string deviceName)
        : mcChannel(std::move(cChannel)), mcDeviceName(std::move(deviceName)) {}

    CommandChannel& channel() { return *mcChannel; }
    const std::string& deviceName() const { return mcDeviceName; }
    /// Identifier of a new capture.
    uint32_t nextStreamIdentifier() { return muStreamIdentifier.fetch_add(1, std::memory_order_relaxed) + 1; }
    /// What an engine programs replaces what another one has: the claim of the one who programmed last holds,
    /// until the unit is reset.
    uint64_t claimUnit() {
        return uint64_t{mcChannel->resetCount()} << 32 |
               (muClaims.fetch_add(1, std::memory_order_relaxed) + 1);
    }
    bool holdsUnit(uint64_t uClaim) const {
        return uClaim == (uint64_t{mcChannel->resetCount()} << 32 | muClaims.load(std::memory_order_relaxed));
    }
    /// For tests of a counter that wraps.
    void setStreamIdentifier(uint32_t uValue) { muStreamIdentifier.store(uValue, std::memory_order_relaxed); }

 private:
    ReferencePtr<CommandChannel> mcChannel;
    std::string mcDeviceName;
    std::atomic<uint32_t> muStreamIdentifier{0};
    std::atomic<uint32_t> muClaims{0};
};
