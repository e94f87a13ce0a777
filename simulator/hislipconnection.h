#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "simulator/hislipfaults.h"
#include "simulator/sockets.h"

namespace vnksim {

/// One TCP connection that carries HiSLIP messages. Takes memory only for bytes that have come, and no more
/// than one message's worth.
class HislipConnection {
 public:
    using Clock = std::chrono::steady_clock;
    enum class Role { fresh, synchronous, asynchronous, vendor };
    enum class Taken {
        nothing,  ///< no whole message yet
        message,
        tooLong,  ///< its payload is read away; only the header is given
        poor      ///< not a header: what follows cannot be understood
    };

    HislipConnection(Descriptor socket, Role role) : meRole(role), mcSocket(std::move(socket)) {}

    Taken take(HislipMessage& message);
    void read();
    /// Queues the message, called `name`, as its fault leaves it.
    void put(const HislipMessage& message, const std::string& name, const HislipFault& fault);
    /// Writes what is due. `segmentBytes` cuts what has no size of its own; 0: whole.
    void write(unsigned segmentBytes);
    /// Forgets what is queued, but for the rest of a message that has begun.
    void dropOutput();
    /// The connection is closed as soon as all is written.
    void endBehindOutput() { mbEnds = true; }
    void end() { mbEnded = true; }
    bool ended() const { return mbEnded; }
    bool ending() const { return mbEnds || mbEnded; }
    bool idle() const { return mlOutput.empty(); }
    /// Takes no further message for the moment: an answer is held back, or its peer does not read.
    bool holdsBack() const { return waitsUntil() || muQueued > kMostQueued; }
    bool hasRoom() const { return mcInput.size() < hislip::kHeaderBytes + hislip::kLongestPayload; }
    bool wantsToWrite() const { return !mlOutput.empty() && !waitsUntil(); }
    /// When the answer at the head is due, if that lies ahead.
    std::optional<Clock::time_point> waitsUntil() const;
    const Descriptor& socket() const { return mcSocket; }
    Descriptor leave() { return std::move(mcSocket); }

    Role meRole;
    uint16_t muSession = 0;  ///< 0: none yet

 private:
    static constexpr size_t kMostQueued = 4 << 20;
    struct Output {
        std::string bytes;
        size_t sent = 0;
        Clock::time_point due;
        size_t segmentBytes = 0;
        bool cut = false;
    };

    Descriptor mcSocket;
    std::string mcInput{};
    uint64_t muSkip = 0;  ///< payload bytes still to be read away
    std::deque<Output> mlOutput{};
    size_t muQueued = 0;  ///< bytes of it
    bool mbEnds = false, mbEnded = false;
};

}  // namespace vnksim
