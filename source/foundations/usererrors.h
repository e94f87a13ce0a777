#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>

#include "foundations/namedlock.h"

namespace utils {

/// What a calling thread can ask about its own failures: the newest detail text and a queue of statuses.
/// Made on first use, never destroyed. Any thread.
class UserErrors {
 public:
    static UserErrors& instance();

    void setDetail(std::string text);
    void pushStatus(int32_t iStatus);
    /// Oldest unread status of this thread; 0 if none.
    int32_t nextStatus();
    /// "T-%.4fsec: %s" with the age, once for each detail; "no information" otherwise.
    std::string takeDetail();

 private:
    UserErrors() = default;
    struct Detail {
        std::string mcText;
        uint64_t muStamp;
    };
    NamedLock mcErrorsMapLock{"UserErrors::mcErrorsMapLock"};
    std::map<uint32_t, Detail> mcDetails GUARDED_BY(mcErrorsMapLock);
    std::map<uint32_t, std::list<int32_t>> mcStatuses GUARDED_BY(mcErrorsMapLock);
};

/// A number for the calling thread that is never used again for another thread.
uint32_t threadIdentifier();

}  // namespace utils
