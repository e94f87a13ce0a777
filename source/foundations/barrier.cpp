#include "foundations/barrier.h"

#include <chrono>

namespace utils {

// A limit beyond this is for ever: its deadline would not fit the clock.
static constexpr uint64_t kForeverMicroseconds = 1'000'000'000'000'000;

bool Barrier::take() {
    uint32_t uSignalled = 1;
    return muFlag.compare_exchange_strong(uSignalled, 0, std::memory_order_acq_rel);
}

void Barrier::signal() {
    uint32_t uClear = 0;
    if (!muFlag.compare_exchange_strong(uClear, 1, std::memory_order_acq_rel))
        return;
    std::lock_guard<std::mutex> cGuard(mcMutex);
    mcCondition.notify_one();
}

bool Barrier::wait(uint64_t uLimitMicroseconds) {
    if (take())
        return true;
    if (uLimitMicroseconds == 0)
        return false;
    const bool bForever = uLimitMicroseconds > kForeverMicroseconds;
    const auto cDeadline = std::chrono::steady_clock::now() +
                           std::chrono::microseconds(bForever ? uint64_t{0} : uLimitMicroseconds);
    std::unique_lock<std::mutex> cLock(mcMutex);
    // The flag is looked at under the mutex before every wait: a signal sets it before it takes the mutex,
    // so none is slept through.
    while (!take()) {
        if (bForever)
            mcCondition.wait(cLock);
        else if (mcCondition.wait_until(cLock, cDeadline) == std::cv_status::timeout)
            return take();
    }
    return true;
}

}  // namespace utils
