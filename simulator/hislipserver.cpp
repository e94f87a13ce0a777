#include "simulator/hislipserver.h"

#include <poll.h>

#include <algorithm>
#include <vector>

namespace vnksim {
namespace {

using Role = HislipConnection::Role;

constexpr size_t kMostConnections = 64;

}  // namespace

HislipServer::HislipServer(const UnitOptions& options, Faults& faults, Journal& commands, Journal& messages,
                           Instrument& instrument, Life& life)
    : mcOptions(options),
      mcFaults(faults),
      mcLife(life),
      mcSessions(faults, commands, messages, instrument, life) {}

HislipServer::~HislipServer() {
    stop();
}

void HislipServer::start() {
    const FaultSettings faults = mcFaults.snapshot();
    if (!faults.hislipNotListening) {
        mcListener = listenTcp(mcOptions.address, kHislipPort);
    }
    if (!faults.vendorNotListening) {
        mcVendorListener = listenTcp(mcOptions.address, kVendorPort);
    }
    mbStop = false;
    mcThread = std::thread([this] { body(); });
}

void HislipServer::stop() {
    mbStop = true;
    mcWake.signal();
    if (mcThread.joinable()) {
        mcThread.join();
    }
    mcSessions.clear();
    mlConnections.clear();
    muSessions = 0;
    mcListener.reset();
    mcVendorListener.reset();
}

void HislipServer::body() {
    while (!mbStop) {
        FaultSettings faults = mcFaults.snapshot();
        mcLife.revive();
        const auto death = mcLife.death();
        const bool dead = death == Death::close || death == Death::reset;
        keepPort(mcListener, kHislipPort, dead || faults.hislipNotListening);
        keepPort(mcVendorListener, kVendorPort, dead || faults.vendorNotListening);
        closeOnFault(faults);
        poll(faults.silent || death == Death::silent, faults);
        // A change made while this thread waited counts for the messages that came with it.
        faults = mcFaults.snapshot();
        mcLife.revive();
        if (!faults.silent && !mcLife.death()) {
            // What a client has sent before it left, or before it asked for a release, goes first.
            for (const bool synchronous : {true, false}) {
                for (HislipConnection& connection : mlConnections) {
                    if ((connection.meRole == Role::synchronous) == synchronous) {
                        serve(connection);
                    }
                }
            }
            for (HislipConnection& connection : mlConnections) {
                connection.write(faults.replySegmentBytes);
            }
            giveAway();
        }
        mcSessions.settle();
        std::erase_if(mlConnections, [](const HislipConnection& connection) { return connection.ended(); });
        muSessions = mcSessions.count();
    }
}

void HislipServer::keepPort(Descriptor& listener, uint16_t port, bool closed) {
    if (closed) {
        listener.reset();
    } else if (!listener) {
        try {
            listener = listenTcp(mcOptions.address, port);
        } catch (const std::exception&) {
            // Somebody else has the port for the moment; the next pass tries again.
        }
    }
}

void HislipServer::closeOnFault(const FaultSettings& faults) {
    const auto death = mcLife.death();
    const bool close = faults.closeHislipOnce || death == Death::close;
    const bool reset = faults.resetHislipOnce || death == Death::reset;
    if (!close && !reset) {
        return;
    }
    for (HislipConnection& connection : mlConnections) {
        if (reset) {
            resetOnClose(connection.socket());
        }
    }
    mcSessions.clear();
    mlConnections.clear();
    muSessions = 0;
    if (faults.closeHislipOnce || faults.resetHislipOnce) {
        mcFaults.change([](FaultSettings& now) { now.closeHislipOnce = now.resetHislipOnce = false; });
    }
}

int HislipServer::pollLimit() const {
    std::optional<HislipConnection::Clock::time_point> next = mcSessions.nextEnd();
    for (const HislipConnection& connection : mlConnections) {
        const auto due = connection.waitsUntil();
        next = due && (!next || *due < *next) ? due : next;
    }
    if (!next) {
        return 1000;
    }
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(*next - HislipConnection::Clock::now());
    return static_cast<int>(std::clamp<milliseconds::rep>(left.count() + 1, 0, 1000));
}

bool HislipServer::listens(const HislipConnection& connection) const {
    return !connection.ending() && !connection.holdsBack() && !mcSessions.lockedOut(connection) &&
           !(connection.meRole == Role::vendor && connection.muSession != 0);
}

void HislipServer::poll(bool deaf, const FaultSettings& faults) {
    std::vector<pollfd> waits{
        {mcWake.get(), POLLIN, 0}, {mcListener.get(), POLLIN, 0}, {mcVendorListener.get(), POLLIN, 0}};
    std::vector<HislipConnection*> polled;
    for (HislipConnection& connection : mlConnections) {
        const bool reads = listens(connection) && connection.hasRoom();
        const int events = POLLRDHUP | (reads ? POLLIN : 0) | (connection.wantsToWrite() ? POLLOUT : 0);
        waits.push_back({deaf ? -1 : connection.socket().get(), static_cast<short>(events), 0});
        polled.push_back(&connection);
    }
    if (::poll(waits.data(), waits.size(), pollLimit()) <= 0) {
        return;
    }
    if (waits[0].revents != 0) {
        mcWake.clear();
    }
    for (size_t i = 0; i < polled.size(); ++i) {
        const short seen = waits[3 + i].revents;
        if ((seen & POLLOUT) != 0) {
            polled[i]->write(faults.replySegmentBytes);
        }
        if ((seen & POLLIN) != 0) {
            polled[i]->read();
        } else if ((seen & (POLLRDHUP | POLLHUP | POLLERR)) != 0) {
            polled[i]->end();
        }
    }
    if (waits[1].revents != 0) {
        accept(mcListener, Role::fresh, 0);
    }
    if (waits[2].revents != 0) {
        accept(mcVendorListener, Role::vendor, mcOptions.sendBufferBytes);
    }
}

void HislipServer::accept(const Descriptor& listener, HislipConnection::Role role, int sendBufferBytes) {
    while (Descriptor socket = acceptTcp(listener, sendBufferBytes)) {
        if (mlConnections.size() < kMostConnections) {
            mlConnections.emplace_back(std::move(socket), role);
        }
    }
}

void HislipServer::serve(HislipConnection& connection) {
    HislipMessage message;
    while (listens(connection) && !mcLife.death()) {
        switch (connection.take(message)) {
            case HislipConnection::Taken::nothing:
                return;
            case HislipConnection::Taken::message:
                mcSessions.serve(connection, std::move(message));
                break;
            case HislipConnection::Taken::tooLong:
                mcSessions.tooLong(connection, message);
                break;
            case HislipConnection::Taken::poor:
                mcSessions.refuse(connection, hislip::kPoorHeader, "Poorly formed message header");
                return;
        }
        message = {};
    }
}

/// The session may end before its data connection does; that one goes on by itself.
void HislipServer::giveAway() {
    for (HislipConnection& connection : mlConnections) {
        const bool through = connection.meRole == Role::vendor && connection.muSession != 0;
        if (through && connection.idle() && !connection.ended() && mcOnData) {
            mcOnData(connection.leave());
            connection.end();
        }
    }
}

}  // namespace vnksim
