#pragma once

#include <cstdint>

namespace utils {

/// Microseconds of a clock that never goes back; for limits, ages and pacing.
uint64_t steadyMicroseconds();
/// Milliseconds of the same clock.
uint64_t steadyMilliseconds();
/// Microseconds since 1970 of the system's clock; for times that a user sees.
uint64_t systemMicroseconds();

/// Plain sleep of the calling thread; 0 returns at once.
void sleepMs(uint32_t uMilliseconds);

}  // namespace utils
