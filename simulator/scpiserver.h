#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "simulator/instrument.h"
#include "simulator/life.h"
#include "simulator/sockets.h"

namespace vnksim {

/// Serves SCPI connections and discovery requests, on one thread.
class ScpiServer {
 public:
    ScpiServer(const UnitOptions& options, Faults& faults, Journal& journal, Instrument& instrument,
               Life& life);
    ~ScpiServer();

    /// Takes the ports; throws std::system_error.
    void start();
    void stop();
    void wake() const { mcWake.signal(); }
    unsigned connections() const { return muOpen.load(); }

 private:
    using Clock = std::chrono::steady_clock;
    struct Connection {
        unsigned number = 0;
        Descriptor socket{};
        std::string input{};
        std::string output{};
        std::optional<std::string> late{};  ///< reply that waits for its time
        Clock::time_point due{};
        bool ended = false;
    };

    void body();
    int pollLimit() const;
    void poll(const FaultSettings& faults);
    void openPorts(const FaultSettings& faults);
    void closeOnFault(FaultSettings& faults);
    void accept();
    void read(Connection& connection);
    void serveLines(Connection& connection, const FaultSettings& faults);
    void serveLine(Connection& connection, std::string line, const FaultSettings& faults);
    void write(Connection& connection, const FaultSettings& faults);
    void answerDiscovery();

    const UnitOptions& mcOptions;
    Faults& mcFaults;
    Journal& mcJournal;
    Instrument& mcInstrument;
    Life& mcLife;

    WakeUp mcWake;
    std::atomic<bool> mbStop{false};
    std::atomic<unsigned> muOpen{0};
    std::thread mcThread;

    // Of the thread alone while it runs.
    Descriptor mcListener, mcDiscovery;
    std::vector<Connection> mlConnections;
    unsigned muNextNumber = 1;
};

/// The answer to a discovery request; empty when `request` is none.
std::vector<uint8_t> discoveryReply(const UnitOptions& options, const uint8_t* request, size_t size);

}  // namespace vnksim
