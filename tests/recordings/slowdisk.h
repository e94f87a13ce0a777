#pragma once

#include <cstdint>
#include <string>

/// A disk that is as slow as a test wants: this program's own write calls stand before the system's, also for
/// the library. They touch writes to files whose path ends in the name that is set, and no others.
namespace slowdisk {

/// Each write takes so long.
void delay(const std::string& ending, uint32_t uMicroseconds);
/// Writes do not return before the release.
void hold(const std::string& ending);
void release();
/// Writes that stand in the hold at this moment, and writes that have been delayed or held since the last
/// change.
unsigned held();
unsigned touched();

}  // namespace slowdisk
