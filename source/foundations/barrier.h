#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

namespace utils {

/// Auto-reset event with a name. Several signals with no wait between them count once; one signal frees
/// one waiter. Limits are in microseconds, on the steady clock. A waiter may return before the signaller has
/// left `signal`: what both use must outlive both.
class Barrier {
 public:
    explicit Barrier(std::string name) : mcName(std::move(name)) {}
    Barrier(const Barrier&) = delete;
    Barrier& operator=(const Barrier&) = delete;

    /// True if signalled (the signal is consumed), false at the limit. A limit of 0 only looks.
    bool wait(uint64_t uLimitMicroseconds);
    void signal();

 private:
    bool take();

    std::string mcName;
    std::mutex mcMutex;
    std::condition_variable mcCondition;
    std::atomic<uint32_t> muFlag{0};
};

}  // namespace utils
