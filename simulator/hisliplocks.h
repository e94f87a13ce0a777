#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vnksim {

/// Who among the HiSLIP sessions holds the exclusive lock, and who the shared one. A request that cannot be
/// granted waits until its time is over; those that wait are served in their order.
class HislipLocks {
 public:
    using Clock = std::chrono::steady_clock;
    enum Result : uint8_t { kFailure = 0, kSuccess = 1, kSharedReleased = 2, kError = 3 };

    /// An empty text asks for the exclusive lock, any other for the shared lock of that name. Nothing: it
    /// waits, and settle() tells.
    std::optional<Result> request(uint16_t session, const std::string& text, Clock::time_point end);
    /// The exclusive lock first when both are held.
    Result release(uint16_t session);
    void forget(uint16_t session);
    /// Grants and ends what waits.
    std::vector<std::pair<uint16_t, Result>> settle(Clock::time_point now);
    std::optional<Clock::time_point> nextEnd() const;
    /// No other session keeps this one from working.
    bool mayWork(uint16_t session) const;
    bool exclusive() const { return muExclusive != 0; }
    size_t holders() const;

 private:
    struct Waiting {
        uint16_t session;
        std::string text;
        Clock::time_point end;
    };
    bool grant(uint16_t session, const std::string& text);

    uint16_t muExclusive = 0;  ///< session; 0: free
    std::string mcSharedName;
    std::set<uint16_t> mlShared;
    std::vector<Waiting> mlWaiting;
};

}  // namespace vnksim
