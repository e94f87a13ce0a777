#pragma once

#include <atomic>
#include <cstdint>

#include "foundations/referencecountedobject.h"

/// When a unit was last heard, in milliseconds of the steady clock, and how many tests have gone unanswered.
class LinkWatch : public utils::ReferenceCountedObject {
 public:
    static constexpr uint64_t kCheckAfterMs = 5001;
    static constexpr uint64_t kStaleAfterMs = 10001;
    static constexpr uint32_t kProbeLimit = 5;

    /// On every successful exchange and on every packet.
    void stamp();
    /// Time for a link test: silent for long enough, and fewer than five tests since it was heard.
    bool isTestDue() const;
    void countProbe() { muProbes.fetch_add(1, std::memory_order_relaxed); }
    /// Nothing heard for 10,001 ms.
    bool isStale() const;
    uint64_t lastActivityMs() const { return muLastActivityMs.load(std::memory_order_relaxed); }
    /// For tests of a link that has been silent for long.
    void setLastActivityMs(uint64_t uMs) { muLastActivityMs.store(uMs, std::memory_order_relaxed); }
    uint32_t probeCount() const { return muProbes.load(std::memory_order_relaxed); }

 private:
    std::atomic<uint64_t> muLastActivityMs{0};
    std::atomic<uint32_t> muProbes{0};
};
