#include "simulator/hisliplocks.h"

#include <algorithm>

namespace vnksim {

bool HislipLocks::grant(uint16_t session, const std::string& text) {
    if (muExclusive != 0 && muExclusive != session) {
        return false;
    }
    if (text.empty()) {
        // Those that share a lock keep others from the exclusive one, not each other.
        if (!mlShared.empty() && mlShared.count(session) == 0) {
            return false;
        }
        muExclusive = session;
        return true;
    }
    if (!mlShared.empty() && mcSharedName != text) {
        return false;
    }
    mcSharedName = text;
    mlShared.insert(session);
    return true;
}

std::optional<HislipLocks::Result> HislipLocks::request(uint16_t session, const std::string& text,
                                                        Clock::time_point end) {
    const bool held = text.empty() ? muExclusive == session : mlShared.count(session) > 0;
    const bool waits = std::any_of(mlWaiting.begin(), mlWaiting.end(),
                                   [session](const Waiting& other) { return other.session == session; });
    if (held || waits) {
        return kError;
    }
    if (grant(session, text)) {
        return kSuccess;
    }
    if (end <= Clock::now()) {
        return kFailure;
    }
    mlWaiting.push_back({session, text, end});
    return std::nullopt;
}

HislipLocks::Result HislipLocks::release(uint16_t session) {
    if (muExclusive == session) {
        muExclusive = 0;
        return kSuccess;
    }
    return mlShared.erase(session) > 0 ? kSharedReleased : kError;
}

void HislipLocks::forget(uint16_t session) {
    if (muExclusive == session) {
        muExclusive = 0;
    }
    mlShared.erase(session);
    std::erase_if(mlWaiting, [session](const Waiting& other) { return other.session == session; });
}

std::vector<std::pair<uint16_t, HislipLocks::Result>> HislipLocks::settle(Clock::time_point now) {
    std::vector<std::pair<uint16_t, Result>> settled;
    std::erase_if(mlWaiting, [&](const Waiting& waiting) {
        const bool granted = grant(waiting.session, waiting.text);
        if (granted || waiting.end <= now) {
            settled.emplace_back(waiting.session, granted ? kSuccess : kFailure);
            return true;
        }
        return false;
    });
    return settled;
}

std::optional<HislipLocks::Clock::time_point> HislipLocks::nextEnd() const {
    const auto first = std::min_element(mlWaiting.begin(), mlWaiting.end(),
                                        [](const Waiting& a, const Waiting& b) { return a.end < b.end; });
    return first == mlWaiting.end() ? std::nullopt : std::optional(first->end);
}

bool HislipLocks::mayWork(uint16_t session) const {
    if (muExclusive != 0) {
        return muExclusive == session;
    }
    return mlShared.empty() || mlShared.count(session) > 0;
}

size_t HislipLocks::holders() const {
    const bool apart = muExclusive != 0 && mlShared.count(muExclusive) == 0;
    return mlShared.size() + (apart ? 1 : 0);
}

}  // namespace vnksim
