#include "simulator/scpiserver.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "simulator/text.h"

namespace vnksim {
namespace {

constexpr size_t kLongestLine = 1 << 20;

bool waits(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

ScpiServer::ScpiServer(const UnitOptions& options, Faults& faults, Journal& journal, Instrument& instrument,
                       Life& life)
    : mcOptions(options), mcFaults(faults), mcJournal(journal), mcInstrument(instrument), mcLife(life) {}

ScpiServer::~ScpiServer() {
    stop();
}

void ScpiServer::start() {
    if (!mcFaults.snapshot().scpiNotListening) {
        mcListener = listenTcp(mcOptions.address, kScpiPort);
    }
    if (mcOptions.discovery) {
        mcDiscovery = bindUdp(mcOptions.discoveryAny ? "0.0.0.0" : mcOptions.address, kDiscoveryPort);
    }
    mbStop = false;
    mcThread = std::thread([this] { body(); });
}

void ScpiServer::stop() {
    mbStop = true;
    mcWake.signal();
    if (mcThread.joinable()) {
        mcThread.join();
    }
    mlConnections.clear();
    muOpen = 0;
    mcListener.reset();
    mcDiscovery.reset();
}

void ScpiServer::body() {
    while (!mbStop) {
        FaultSettings faults = mcFaults.snapshot();
        mcLife.revive();
        openPorts(faults);
        closeOnFault(faults);
        poll(faults);
        // A change made while this thread waited counts for the lines that came with it.
        faults = mcFaults.snapshot();
        mcLife.revive();
        for (size_t i = 0; i < mlConnections.size(); ++i) {
            Connection& connection = mlConnections[i];
            if (connection.late && Clock::now() >= connection.due) {
                connection.output += *connection.late;
                connection.late.reset();
            }
            if (!faults.silent && mcLife.death() != Death::silent) {
                serveLines(connection, faults);
            }
            if (mcLife.death() && mcLife.death() != Death::silent) {
                break;
            }
        }
        std::erase_if(mlConnections, [](const Connection& connection) { return connection.ended; });
        muOpen = static_cast<unsigned>(mlConnections.size());
    }
}

void ScpiServer::openPorts(const FaultSettings& faults) {
    const auto death = mcLife.death();
    const bool dead = death == Death::close || death == Death::reset;
    if (faults.scpiNotListening || dead) {
        mcListener.reset();
    } else if (!mcListener) {
        try {
            mcListener = listenTcp(mcOptions.address, kScpiPort);
        } catch (const std::exception&) {
            // Somebody else has the port for the moment; the next pass tries again.
        }
    }
}

void ScpiServer::closeOnFault(FaultSettings& faults) {
    const auto death = mcLife.death();
    const bool dead = death == Death::close || death == Death::reset;
    if (!faults.closeScpiOnce && !faults.resetScpiOnce && !dead) {
        return;
    }
    for (Connection& connection : mlConnections) {
        if (faults.resetScpiOnce || death == Death::reset) {
            resetOnClose(connection.socket);
        }
    }
    mlConnections.clear();
    muOpen = 0;
    if (faults.closeScpiOnce || faults.resetScpiOnce) {
        mcFaults.change([](FaultSettings& now) { now.closeScpiOnce = now.resetScpiOnce = false; });
    }
}

int ScpiServer::pollLimit() const {
    int limit = 1000;
    for (const Connection& connection : mlConnections) {
        if (connection.late) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(connection.due - Clock::now());
            limit = std::clamp(static_cast<int>(left.count()) + 1, 0, limit);
        }
    }
    return limit;
}

void ScpiServer::poll(const FaultSettings& faults) {
    const bool deaf = faults.silent || mcLife.death() == Death::silent;
    std::vector<pollfd> waits{
        {mcWake.get(), POLLIN, 0}, {mcListener.get(), POLLIN, 0}, {mcDiscovery.get(), POLLIN, 0}};
    const size_t before = waits.size();
    for (const Connection& connection : mlConnections) {
        // Later lines wait while a reply is held back, as they would in a slow unit.
        const bool listens = !deaf && !connection.late;
        waits.push_back(
            {listens || !connection.output.empty() ? connection.socket.get() : -1,
             static_cast<short>((listens ? POLLIN : 0) | (connection.output.empty() ? 0 : POLLOUT)), 0});
    }
    if (::poll(waits.data(), waits.size(), pollLimit()) <= 0) {
        return;
    }
    if (waits[0].revents != 0) {
        mcWake.clear();
    }
    for (size_t i = before; i < waits.size(); ++i) {
        Connection& connection = mlConnections[i - before];
        if ((waits[i].revents & POLLOUT) != 0) {
            write(connection, faults);
        }
        if ((waits[i].revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
            read(connection);
        }
    }
    if (waits[2].revents != 0) {
        answerDiscovery();
    }
    if (waits[1].revents != 0) {
        accept();
    }
}

void ScpiServer::accept() {
    while (Descriptor socket = acceptTcp(mcListener, 0)) {
        Connection connection;
        connection.number = muNextNumber++;
        connection.socket = std::move(socket);
        mlConnections.push_back(std::move(connection));
        muOpen = static_cast<unsigned>(mlConnections.size());
        mcInstrument.connectionOpened();
    }
}

void ScpiServer::read(Connection& connection) {
    char buffer[16384];
    const ssize_t got = ::recv(connection.socket.get(), buffer, sizeof buffer, 0);
    acknowledgeAtOnce(connection.socket);
    if (got > 0) {
        connection.input.append(buffer, static_cast<size_t>(got));
        if (connection.input.size() > kLongestLine) {
            connection.input.clear();
            mcInstrument.pushError({-363, "Input buffer overrun"});
        }
    } else if (got == 0 || !waits(errno)) {
        connection.ended = true;
    }
}

void ScpiServer::serveLines(Connection& connection, const FaultSettings& faults) {
    size_t end = 0;
    while (!connection.late && (end = connection.input.find('\n')) != std::string::npos) {
        std::string line = connection.input.substr(0, end);
        connection.input.erase(0, end + 1);
        serveLine(connection, std::move(line), faults);
        if (mcLife.death()) {
            return;
        }
    }
    if (!connection.output.empty()) {
        write(connection, faults);
    }
}

void ScpiServer::serveLine(Connection& connection, std::string line, const FaultSettings& faults) {
    mcJournal.add(connection.number, line);
    const auto reply = mcInstrument.execute(line);
    if (reply) {
        const bool late = faults.replyDelayMs > 0 &&
                          (faults.replyDelayFor.empty() || containsIgnoringCase(line, faults.replyDelayFor));
        if (late) {
            connection.late = *reply + "\n";
            connection.due = Clock::now() + std::chrono::milliseconds(faults.replyDelayMs);
        } else {
            connection.output += *reply + "\n";
            write(connection, faults);
        }
    }
    mcLife.exchange(faults);
}

void ScpiServer::write(Connection& connection, const FaultSettings& faults) {
    while (!connection.output.empty()) {
        const size_t part = faults.replySegmentBytes > 0
                                ? std::min<size_t>(faults.replySegmentBytes, connection.output.size())
                                : connection.output.size();
        const ssize_t sent = ::send(connection.socket.get(), connection.output.data(), part, MSG_NOSIGNAL);
        if (sent < 0) {
            if (!waits(errno)) {
                connection.output.clear();
                connection.ended = true;
            }
            return;
        }
        connection.output.erase(0, static_cast<size_t>(sent));
    }
}

}  // namespace vnksim
