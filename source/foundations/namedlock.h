#pragma once

#include <mutex>
#include <string>

#include "foundations/threadsafety.h"

namespace utils {

/// A recursive mutex with a label. The label is stored for people who debug; nothing reads it.
class CAPABILITY("mutex") NamedLock {
 public:
    explicit NamedLock(std::string name) : mcName(std::move(name)) {}
    NamedLock(const NamedLock&) = delete;
    NamedLock& operator=(const NamedLock&) = delete;

    void lock() ACQUIRE() { mcMutex.lock(); }
    void unlock() RELEASE() { mcMutex.unlock(); }

 private:
    std::string mcName;
    std::recursive_mutex mcMutex;
};

/// Holds a NamedLock for a scope; may be let go and taken again before the scope ends.
class SCOPED_CAPABILITY ScopedLock {
 public:
    explicit ScopedLock(NamedLock& lock) ACQUIRE(lock) : mcLock(lock) { mcLock.lock(); }
    ~ScopedLock() RELEASE() {
        if (mbHeld)
            mcLock.unlock();
    }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

    void unlock() RELEASE() {
        mbHeld = false;
        mcLock.unlock();
    }
    void lock() ACQUIRE() {
        mcLock.lock();
        mbHeld = true;
    }

 private:
    NamedLock& mcLock;
    bool mbHeld = true;
};

}  // namespace utils
