#pragma once

#include <atomic>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "simulator/packetqueue.h"
#include "simulator/unit.h"

namespace vnksim {

/// Sends the queue's packets on the data port, on one thread. Of several connections the oldest that its peer
/// has not left gets them; without a connection they are thrown away.
class DataServer {
 public:
    DataServer(const UnitOptions& options, Faults& faults, PacketQueue& queue);
    ~DataServer();

    /// Takes the port; throws std::system_error.
    void start();
    void stop();
    void wake() const { mcWake.signal(); }
    unsigned connections() const { return muOpen.load(); }
    /// A connection that was made elsewhere gets packets like one of this port. Safe from any thread.
    void adopt(Descriptor socket);
    /// The unit has died in this way, or lives again.
    void setDeath(std::optional<Death> death);

 private:
    struct Connection {
        Descriptor socket{};
        Packet packet{};  ///< being sent
        size_t sent = 0;  ///< bytes of it
        bool ended = false;
        bool busy() const { return sent < packet.size(); }
    };

    void body();
    void poll(const FaultSettings& faults);
    void takeAdopted();
    void keepPort(const FaultSettings& faults);
    void closeOnFault(const FaultSettings& faults);
    void pump(const FaultSettings& faults);
    Connection* receiver();
    void begin(Connection& connection, Packet packet, const FaultSettings& faults);
    /// True when the packet is through; false when the socket takes no more.
    bool send(Connection& connection, const FaultSettings& faults);
    std::optional<Death> death() const;

    const UnitOptions& mcOptions;
    Faults& mcFaults;
    PacketQueue& mcQueue;
    WakeUp mcWake;
    std::atomic<bool> mbStop{false};
    std::atomic<unsigned> muOpen{0};
    mutable std::mutex mcLock;
    std::optional<Death> mcDeath;
    std::vector<Descriptor> mlAdopted;  ///< since the last pass
    std::thread mcThread;

    // Of the thread alone while it runs.
    Descriptor mcListener;
    std::deque<Connection> mlConnections;
    uint32_t muGarbage = 0x12345678;
};

}  // namespace vnksim
