#pragma once

#include <unistd.h>

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
    pid_t iThread = 0;
    std::thread([&iThread] { iThread = ::gettid(); }).join();
    // The system lists a thread that has been joined for some time still.
    while (std::filesystem::exists("/proc/self/task/" + std::to_string(iThread)))
        std::this_thread::yield();
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
