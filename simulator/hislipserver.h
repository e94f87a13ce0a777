#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <thread>

#include "simulator/hislipsessions.h"
#include "simulator/unit.h"

namespace vnksim {

/// Serves HiSLIP and the handshake of the vendor's data channel, on one thread. A data connection whose
/// handshake is through is given away to the one who sends packets.
class HislipServer {
 public:
    HislipServer(const UnitOptions& options, Faults& faults, Journal& commands, Journal& messages,
                 Instrument& instrument, Life& life);
    ~HislipServer();

    /// Takes the ports; throws std::system_error.
    void start();
    void stop();
    void wake() const { mcWake.signal(); }
    unsigned sessions() const { return muSessions.load(); }
    void onDataConnection(std::function<void(Descriptor)> sink) { mcOnData = std::move(sink); }

 private:
    using Connections = std::list<HislipConnection>;

    void body();
    void keepPort(Descriptor& listener, uint16_t port, bool closed);
    void closeOnFault(const FaultSettings& faults);
    void poll(bool deaf, const FaultSettings& faults);
    int pollLimit() const;
    void accept(const Descriptor& listener, HislipConnection::Role role, int sendBufferBytes);
    void serve(HislipConnection& connection);
    bool listens(const HislipConnection& connection) const;
    void giveAway();

    const UnitOptions& mcOptions;
    Faults& mcFaults;
    Life& mcLife;
    HislipSessions mcSessions;
    std::function<void(Descriptor)> mcOnData;
    WakeUp mcWake;
    std::atomic<bool> mbStop{false};
    std::atomic<unsigned> muSessions{0};
    std::thread mcThread;

    // Of the thread alone while it runs.
    Descriptor mcListener, mcVendorListener;
    Connections mlConnections;
};

}  // namespace vnksim
