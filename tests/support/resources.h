#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace vnktest {

/// Open descriptors of this process.
inline size_t openDescriptors() {
    size_t uCount = 0;
    for (auto it = std::filesystem::directory_iterator("/proc/self/fd"); it != std::filesystem::directory_iterator();
         ++it)
        ++uCount;
    return uCount - 1;   // the iterator's own
}

/// Threads of this process.
inline size_t liveThreads() {
    size_t uCount = 0;
    for (auto it = std::filesystem::directory_iterator("/proc/self/task"); it != std::filesystem::directory_iterator();
         ++it)
        ++uCount;
    return uCount;
}

/// Threads of this process while nothing of its own runs: a sanitizer may keep one of its own from the first
/// thread on.
inline size_t idleThreads() {
    std::thread([] {}).join();
    return liveThreads();
}

/// Resident memory in bytes.
inline uint64_t residentBytes() {
    std::ifstream file("/proc/self/statm");
    uint64_t uTotal = 0, uResident = 0;
    file >> uTotal >> uResident;
    return uResident * 4096;
}

}  // namespace vnktest
