#include "simulator/packetqueue.h"

namespace vnksim {

std::optional<Packet> PacketQueue::pop() {
    std::optional<Packet> packet;
    {
        const std::scoped_lock lock(mcLock);
        if (mlPackets.empty()) {
            return std::nullopt;
        }
        packet = std::move(mlPackets.front());
        mlPackets.pop_front();
    }
    mcRoom.notify_all();
    return packet;
}

bool PacketQueue::empty() const {
    const std::scoped_lock lock(mcLock);
    return mlPackets.empty();
}

void PacketQueue::clear() {
    {
        const std::scoped_lock lock(mcLock);
        mlPackets.clear();
    }
    mcRoom.notify_all();
}

void PacketQueue::stir() {
    // Taking the lock once makes sure that a waiter has either seen the change or sleeps already.
    { const std::scoped_lock lock(mcLock); }
    mcRoom.notify_all();
}

}  // namespace vnksim
