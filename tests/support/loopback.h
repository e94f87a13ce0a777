#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace vnktest {

/// A loopback address that no other test of this run uses: drawn from the process number and a counter.
inline std::string uniqueLoopback() {
    static std::atomic<unsigned> uNext{0};
    const unsigned uPid = static_cast<unsigned>(::getpid());
    const unsigned uCount = uNext.fetch_add(1);
    // 127.(64..127).(x).(y): away from 127.0.0.1 and from what people use by hand.
    return "127." + std::to_string(64 + (uPid >> 8) % 64) + "." + std::to_string(uPid % 256) + "." +
           std::to_string(1 + uCount % 254);
}

/// Waits until the condition holds; false when the generous limit has passed.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(30)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace vnktest
