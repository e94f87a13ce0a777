#include "foundations/clock.h"

#include <chrono>
#include <thread>

namespace utils {

template <typename Unit, typename Clock>
static uint64_t now() {
    return static_cast<uint64_t>(std::chrono::duration_cast<Unit>(Clock::now().time_since_epoch()).count());
}

uint64_t steadyMicroseconds() {
    return now<std::chrono::microseconds, std::chrono::steady_clock>();
}

uint64_t steadyMilliseconds() {
    return now<std::chrono::milliseconds, std::chrono::steady_clock>();
}

uint64_t systemMicroseconds() {
    return now<std::chrono::microseconds, std::chrono::system_clock>();
}

void sleepMs(uint32_t uMilliseconds) {
    if (uMilliseconds)
        std::this_thread::sleep_for(std::chrono::milliseconds(uMilliseconds));
}

}  // namespace utils
