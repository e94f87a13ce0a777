#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "foundations/namedlock.h"

namespace utils {

/// Internal log of the 1000 newest records. Made on first use, never destroyed. Any thread. A report has
/// no effect on the status of the call in which it happens.
class RuntimeErrors {
 public:
    /// One record; also what the report-and-throw form throws.
    class Error {
     public:
        Error(std::string message, int32_t iCode, const char* pFile, int line);
        const std::string& message() const { return mcMessage; }
        int32_t code() const { return miCode; }
        const std::string& location() const { return mcLocation; }
        uint64_t stamp() const { return muStamp; }

     private:
        std::string mcMessage;
        int32_t miCode;
        std::string mcLocation;   // "%s:%d", file name without any directory
        uint64_t muStamp;         // microseconds
    };

    static RuntimeErrors& instance();

    uint64_t getStartTime() const { return muStartTime; }
    /// Adds one record and hands it back.
    Error report(std::string message, int32_t iCode, const char* pFile, int line);
    [[noreturn]] void reportAndThrow(std::string message, int32_t iCode, const char* pFile, int line);
    /// Adds one record: the cheap form, for those who do not look at it again.
    void add(Error cError);
    void clear();
    /// Drains the log, newest first.
    std::list<Error> takeErrors();
    /// The text of the newest `uMaximum` records; drains the log whatever the count. Empty for a count of 0.
    std::string takeText(uint32_t uMaximum);
    /// The header alone: nothing in the library adds to the trace.
    std::string takeTraceText();
    void setLimits(uint32_t uErrorLimit, float fAgeLimitSec);

 private:
    RuntimeErrors();
    std::list<Error> trim() REQUIRES(mcErrorsLock);
    struct Trace {
        uint64_t muStamp;
        std::string mcText;
    };
    uint64_t muStartTime;
    NamedLock mcErrorsLock{"RuntimeErrors::mcErrorsLock"};
    std::list<Error> mlErrors GUARDED_BY(mcErrorsLock);
    uint32_t muErrorLimit GUARDED_BY(mcErrorsLock) = 1000;
    float mfErrorAgeLimitSec GUARDED_BY(mcErrorsLock) = 0.0f;
    NamedLock mcTraceLock{"RuntimeErrors::mcTraceLock"};
    std::list<Trace> mlTrace GUARDED_BY(mcTraceLock);
};

/// Reports with the caller's place: reportError(code, text).
inline RuntimeErrors::Error reportError(int32_t iCode, std::string message,
                                        const char* pFile = __builtin_FILE(), int line = __builtin_LINE()) {
    return RuntimeErrors::instance().report(std::move(message), iCode, pFile, line);
}

inline constexpr int32_t kTraceCode = 1000;

/// A plain progress note (code 1000).
inline void reportTrace(std::string message, const char* pFile = __builtin_FILE(),
                        int line = __builtin_LINE()) {
    RuntimeErrors::instance().add(RuntimeErrors::Error(std::move(message), kTraceCode, pFile, line));
}

}  // namespace utils
