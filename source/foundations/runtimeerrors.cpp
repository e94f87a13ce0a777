#include "foundations/runtimeerrors.h"

#include <charconv>
#include <cmath>
#include <string_view>

#include "foundations/clock.h"
#include "foundations/text.h"

namespace utils {

// No printf here: reports are made at packet rate.
static std::string locationOf(std::string_view path, int line) {
    std::string_view name = path.substr(path.rfind('\\') + 1);
    if (name.empty() || name.size() == path.size())
        name = path.substr(path.rfind('/') + 1);
    char number[16];
    const auto cEnd = std::to_chars(number, number + sizeof number, line);
    std::string location;
    location.reserve(name.size() + 1 + sizeof number);
    location.append(name).append(1, ':').append(number, cEnd.ptr);
    return location;
}

static double ageInSeconds(uint64_t uNow, uint64_t uStamp) {
    return static_cast<double>(static_cast<float>(uNow - uStamp) / 1e6f);
}

RuntimeErrors::Error::Error(std::string message, int32_t iCode, const char* pFile, int line)
    : mcMessage(std::move(message)),
      miCode(iCode),
      mcLocation(locationOf(pFile, line)),
      muStamp(steadyMicroseconds()) {}

RuntimeErrors::RuntimeErrors() : muStartTime(steadyMicroseconds()) {}

RuntimeErrors& RuntimeErrors::instance() {
    static RuntimeErrors* const pInstance = new RuntimeErrors;
    return *pInstance;
}

void RuntimeErrors::add(Error cError) {
    std::list<Error> lNew;
    lNew.push_back(std::move(cError));
    // What is pushed out goes after the lock has been let go.
    std::list<Error> lOld;
    ScopedLock cGuard(mcErrorsLock);
    mlErrors.splice(mlErrors.begin(), lNew);
    lOld = trim();
    cGuard.unlock();
}

RuntimeErrors::Error RuntimeErrors::report(std::string message, int32_t iCode, const char* pFile, int line) {
    Error cError(std::move(message), iCode, pFile, line);
    add(cError);
    return cError;
}

void RuntimeErrors::reportAndThrow(std::string message, int32_t iCode, const char* pFile, int line) {
    throw report(std::move(message), iCode, pFile, line);
}

std::list<RuntimeErrors::Error> RuntimeErrors::trim() {
    std::list<Error> lOld;
    if (muErrorLimit) {
        while (mlErrors.size() > muErrorLimit)
            lOld.splice(lOld.begin(), mlErrors, std::prev(mlErrors.end()));
    } else if (mfErrorAgeLimitSec > 0.0f) {
        const double fLimit = std::round(static_cast<double>(mfErrorAgeLimitSec) * 1e6);
        const auto fNow = static_cast<double>(steadyMicroseconds());
        while (!mlErrors.empty() && static_cast<double>(mlErrors.back().stamp()) < fNow - fLimit)
            lOld.splice(lOld.begin(), mlErrors, std::prev(mlErrors.end()));
    }
    return lOld;
}

void RuntimeErrors::clear() {
    takeErrors();
}

std::list<RuntimeErrors::Error> RuntimeErrors::takeErrors() {
    std::list<Error> lTaken;
    ScopedLock cGuard(mcErrorsLock);
    lTaken.swap(mlErrors);
    return lTaken;
}

std::string RuntimeErrors::takeText(uint32_t uMaximum) {
    const std::list<Error> lErrors = takeErrors();
    if (!uMaximum)
        return {};
    const uint64_t uNow = steadyMicroseconds();
    std::string text = "***\tInternal Errors backtrace\r\n";
    uint32_t i = 0;
    for (const Error& cError : lErrors) {
        if (i == uMaximum)
            break;
        text += formatText("[%u]\t-%.4fs %s(libvnk code %d) @%s\r\n", i, ageInSeconds(uNow, cError.stamp()),
                           cError.message().c_str(), cError.code(), cError.location().c_str());
        ++i;
    }
    return text;
}

std::string RuntimeErrors::takeTraceText() {
    std::list<Trace> lTrace;
    {
        ScopedLock cGuard(mcTraceLock);
        lTrace.swap(mlTrace);
    }
    const uint64_t uNow = steadyMicroseconds();
    std::string text = "***\tExecution Trace Dump\r\n";
    uint32_t i = 0;
    for (const Trace& cTrace : lTrace)
        text += formatText("[%u] age:%.5f - %s\r\n", i++, ageInSeconds(uNow, cTrace.muStamp),
                           cTrace.mcText.c_str());
    return text;
}

void RuntimeErrors::setLimits(uint32_t uErrorLimit, float fAgeLimitSec) {
    ScopedLock cGuard(mcErrorsLock);
    muErrorLimit = uErrorLimit;
    mfErrorAgeLimitSec = fAgeLimitSec;
}

}  // namespace utils
