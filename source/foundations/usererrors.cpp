#include "foundations/usererrors.h"

#include <atomic>

#include "foundations/clock.h"
#include "foundations/text.h"

namespace utils {

UserErrors& UserErrors::instance() {
    static UserErrors* const pInstance = new UserErrors;
    return *pInstance;
}

void UserErrors::setDetail(std::string text) {
    Detail cDetail{std::move(text), steadyMicroseconds()};
    ScopedLock cGuard(mcErrorsMapLock);
    mcDetails.insert_or_assign(threadIdentifier(), std::move(cDetail));
}

void UserErrors::pushStatus(int32_t iStatus) {
    ScopedLock cGuard(mcErrorsMapLock);
    mcStatuses[threadIdentifier()].push_back(iStatus);
}

int32_t UserErrors::nextStatus() {
    ScopedLock cGuard(mcErrorsMapLock);
    const auto it = mcStatuses.find(threadIdentifier());
    if (it == mcStatuses.end() || it->second.empty())
        return 0;
    const int32_t iStatus = it->second.front();
    it->second.pop_front();
    // An identifier never comes again: a thread that has read all leaves nothing behind.
    if (it->second.empty())
        mcStatuses.erase(it);
    return iStatus;
}

std::string UserErrors::takeDetail() {
    Detail cDetail;
    {
        ScopedLock cGuard(mcErrorsMapLock);
        const auto it = mcDetails.find(threadIdentifier());
        if (it == mcDetails.end())
            return "no information";
        cDetail = std::move(it->second);
        mcDetails.erase(it);
    }
    const float fAge = static_cast<float>(steadyMicroseconds() - cDetail.muStamp) * 1e-6f;
    return formatText("T-%.4fsec: %s", static_cast<double>(fAge), cDetail.mcText.c_str());
}

uint32_t threadIdentifier() {
    static std::atomic<uint32_t> uLast{0};
    static thread_local const uint32_t uOwn = uLast.fetch_add(1, std::memory_order_relaxed) + 1;
    return uOwn;
}

}  // namespace utils
