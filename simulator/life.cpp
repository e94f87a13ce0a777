#include "simulator/life.h"

namespace vnksim {

void Life::begin() {
    const std::scoped_lock lock(mcLock);
    mcDeath.reset();
    muExchanges = muDieAfter = 0;
}

std::optional<Death> Life::death() const {
    const std::scoped_lock lock(mcLock);
    return mcDeath;
}

void Life::exchange(const FaultSettings& faults) {
    const std::scoped_lock lock(mcLock);
    // What was served before the last change does not count any more.
    if (mcDeath || faults.dieAfterExchanges != muDieAfter) {
        return;
    }
    ++muExchanges;
    if (muDieAfter > 0 && muExchanges >= muDieAfter) {
        change(faults.death);
    }
}

void Life::revive() {
    const std::scoped_lock lock(mcLock);
    const unsigned wanted = mcFaults.snapshot().dieAfterExchanges;
    if (wanted == muDieAfter) {
        return;
    }
    muDieAfter = wanted;
    muExchanges = 0;
    if (mcDeath) {
        change(std::nullopt);
    }
}

/// Told under the lock, so that two roads cannot tell of a death and a revival in the wrong order.
void Life::change(std::optional<Death> death) {
    mcDeath = death;
    if (mcSink) {
        mcSink(death);
    }
}

}  // namespace vnksim
