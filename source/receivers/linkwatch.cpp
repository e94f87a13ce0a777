#include "receivers/linkwatch.h"

#include "foundations/clock.h"

namespace {

/// The stamp is read before the clock: a stamp of another thread in between must not count as the far past.
uint64_t silentForMs(const std::atomic<uint64_t>& muLastActivityMs) {
    const uint64_t uLast = muLastActivityMs.load(std::memory_order_relaxed);
    const uint64_t uNow = utils::steadyMilliseconds();
    return uNow > uLast ? uNow - uLast : 0;
}

}  // namespace

void LinkWatch::stamp() {
    muLastActivityMs.store(utils::steadyMilliseconds(), std::memory_order_relaxed);
    muProbes.store(0, std::memory_order_relaxed);
}

bool LinkWatch::isTestDue() const {
    return silentForMs(muLastActivityMs) >= kCheckAfterMs && probeCount() < kProbeLimit;
}

bool LinkWatch::isStale() const {
    return silentForMs(muLastActivityMs) >= kStaleAfterMs;
}
