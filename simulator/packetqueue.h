#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

#include "simulator/packets.h"
#include "simulator/sockets.h"

namespace vnksim {

/// Packets between the one who makes them and the one who sends them. Holds few, so that a stop is prompt.
class PacketQueue {
 public:
    explicit PacketQueue(size_t limit) : muLimit(limit > 0 ? limit : 1) {}

    /// Waits for room. False, with nothing done, when `cancelled` has become true meanwhile.
    template <typename Cancelled>
    bool push(Packet packet, Cancelled cancelled) {
        {
            std::unique_lock lock(mcLock);
            mcRoom.wait(lock, [&] { return mlPackets.size() < muLimit || cancelled(); });
            if (cancelled()) {
                return false;
            }
            mlPackets.push_back(std::move(packet));
        }
        mcFilled.signal();
        return true;
    }
    std::optional<Packet> pop();
    bool empty() const;
    void clear();
    /// Makes waiting pushes look at their condition again.
    void stir();
    /// Signalled with each packet.
    WakeUp& filled() { return mcFilled; }

 private:
    const size_t muLimit;
    mutable std::mutex mcLock;
    std::condition_variable mcRoom;
    std::deque<Packet> mlPackets;
    WakeUp mcFilled;
};

}  // namespace vnksim
