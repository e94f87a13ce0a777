#include "recordings/slowdisk.h"

#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

struct Disk {
    std::mutex mcMutex;
    std::condition_variable mcReleased;
    std::string mcEnding;
    uint32_t muDelayUs = 0;
    bool mbHold = false;
    unsigned muHeld = 0;
    unsigned muTouched = 0;
};

Disk& disk() {
    static Disk& cDisk = *new Disk;  // for writes at the very end of the process
    return cDisk;
}

bool isTouched(int iFile, const std::string& ending) {
    char path[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(iFile);
    const ssize_t iLength = ::readlink(link.c_str(), path, sizeof path);
    return !ending.empty() && iLength > 0 &&
           std::string(path, static_cast<size_t>(iLength)).ends_with(ending);
}

void passThrough(int iFile) {
    Disk& c = disk();
    std::unique_lock<std::mutex> cGuard(c.mcMutex);
    if (!isTouched(iFile, c.mcEnding))
        return;
    ++c.muTouched;
    ++c.muHeld;
    c.mcReleased.wait(cGuard, [&] { return !c.mbHold; });
    --c.muHeld;
    const uint32_t uDelayUs = c.muDelayUs;
    cGuard.unlock();
    std::this_thread::sleep_for(std::chrono::microseconds(uDelayUs));
}

void change(const std::string& ending, uint32_t uDelayUs, bool bHold) {
    Disk& c = disk();
    const std::lock_guard<std::mutex> cGuard(c.mcMutex);
    c.mcEnding = ending;
    c.muDelayUs = uDelayUs;
    c.mbHold = bHold;
    c.muTouched = 0;
    c.mcReleased.notify_all();
}

}  // namespace

namespace slowdisk {

void delay(const std::string& ending, uint32_t uMicroseconds) {
    change(ending, uMicroseconds, false);
}

void hold(const std::string& ending) {
    change(ending, 0, true);
}

void release() {
    change({}, 0, false);
}

unsigned held() {
    const std::lock_guard<std::mutex> cGuard(disk().mcMutex);
    return disk().muHeld;
}

unsigned touched() {
    const std::lock_guard<std::mutex> cGuard(disk().mcMutex);
    return disk().muTouched;
}

}  // namespace slowdisk

extern "C" {

ssize_t writev(int iFile, const struct iovec* pParts, int iCount) {
    passThrough(iFile);
    return ::syscall(SYS_writev, iFile, pParts, iCount);
}

ssize_t write(int iFile, const void* pBytes, size_t uCount) {
    passThrough(iFile);
    return ::syscall(SYS_write, iFile, pBytes, uCount);
}

}  // extern "C"
