#include "simulator/dataserver.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>

namespace vnksim {

DataServer::DataServer(const UnitOptions& options, Faults& faults, PacketQueue& queue)
    : mcOptions(options), mcFaults(faults), mcQueue(queue) {}

DataServer::~DataServer() {
    stop();
}

void DataServer::start() {
    if (!mcFaults.snapshot().dataNotListening) {
        mcListener = listenTcp(mcOptions.address, kDataPort);
    }
    mbStop = false;
    {
        const std::scoped_lock lock(mcLock);
        mcDeath.reset();
    }
    mcThread = std::thread([this] { body(); });
}

void DataServer::stop() {
    mbStop = true;
    mcWake.signal();
    if (mcThread.joinable()) {
        mcThread.join();
    }
    mlConnections.clear();
    mlAdopted.clear();
    muOpen = 0;
    mcListener.reset();
}

void DataServer::setDeath(std::optional<Death> death) {
    {
        const std::scoped_lock lock(mcLock);
        mcDeath = death;
    }
    mcWake.signal();
}

void DataServer::adopt(Descriptor socket) {
    {
        const std::scoped_lock lock(mcLock);
        mlAdopted.push_back(std::move(socket));
    }
    mcWake.signal();
}

void DataServer::takeAdopted() {
    const std::scoped_lock lock(mcLock);
    for (Descriptor& socket : mlAdopted) {
        mlConnections.emplace_back();
        mlConnections.back().socket = std::move(socket);
    }
    mlAdopted.clear();
}

std::optional<Death> DataServer::death() const {
    const std::scoped_lock lock(mcLock);
    return mcDeath;
}

void DataServer::body() {
    while (!mbStop) {
        const FaultSettings faults = mcFaults.snapshot();
        keepPort(faults);
        closeOnFault(faults);
        poll(faults);
        pump(mcFaults.snapshot());
        std::erase_if(mlConnections, [](const Connection& connection) { return connection.ended; });
        muOpen = static_cast<unsigned>(mlConnections.size());
    }
}

void DataServer::keepPort(const FaultSettings& faults) {
    const auto dead = death();
    if (faults.dataNotListening || dead == Death::close || dead == Death::reset) {
        mcListener.reset();
    } else if (!mcListener) {
        try {
            mcListener = listenTcp(mcOptions.address, kDataPort);
        } catch (const std::exception&) {
            // Somebody else has the port for the moment; the next pass tries again.
        }
    }
}

void DataServer::closeOnFault(const FaultSettings& faults) {
    const auto dead = death();
    const bool close = faults.closeDataOnce || dead == Death::close;
    const bool reset = faults.resetDataOnce || dead == Death::reset;
    if (!close && !reset) {
        return;
    }
    for (const Connection& connection : mlConnections) {
        if (reset) {
            resetOnClose(connection.socket);
        }
    }
    mlConnections.clear();
    muOpen = 0;
    if (faults.closeDataOnce || faults.resetDataOnce) {
        mcFaults.change([](FaultSettings& now) { now.closeDataOnce = now.resetDataOnce = false; });
    }
}

void DataServer::poll(const FaultSettings& faults) {
    const bool silent = faults.silent || death() == Death::silent;
    std::vector<pollfd> waits{{mcWake.get(), POLLIN, 0},
                              {mcListener.get(), POLLIN, 0},
                              {mcQueue.filled().get(), static_cast<short>(POLLIN), 0}};
    const size_t before = waits.size();
    for (const Connection& connection : mlConnections) {
        const bool writes = connection.busy() && !silent;
        waits.push_back({connection.socket.get(), static_cast<short>(POLLRDHUP | (writes ? POLLOUT : 0)), 0});
    }
    if (::poll(waits.data(), waits.size(), 1000) <= 0) {
        return;
    }
    if (waits[0].revents != 0) {
        mcWake.clear();
    }
    if (waits[2].revents != 0) {
        mcQueue.filled().clear();
    }
    for (size_t i = before; i < waits.size(); ++i) {
        if ((waits[i].revents & (POLLRDHUP | POLLERR | POLLHUP)) != 0) {
            mlConnections[i - before].ended = true;
        }
    }
    std::erase_if(mlConnections, [](const Connection& connection) { return connection.ended; });
    if (waits[1].revents != 0) {
        while (Descriptor socket = acceptTcp(mcListener, mcOptions.sendBufferBytes)) {
            mlConnections.emplace_back();
            mlConnections.back().socket = std::move(socket);
        }
    }
    takeAdopted();
    muOpen = static_cast<unsigned>(mlConnections.size());
}

DataServer::Connection* DataServer::receiver() {
    while (!mlConnections.empty() &&
           (mlConnections.front().ended || peerHasLeft(mlConnections.front().socket))) {
        mlConnections.pop_front();
    }
    return mlConnections.empty() ? nullptr : &mlConnections.front();
}

void DataServer::pump(const FaultSettings& faults) {
    if (faults.silent || death() == Death::silent) {
        return;
    }
    for (Connection& connection : mlConnections) {
        if (connection.busy()) {
            send(connection, faults);
        }
    }
    // A few at a time, so that faults and new connections are seen between them.
    for (int turn = 0; turn < 4; ++turn) {
        if (mcQueue.empty()) {
            return;
        }
        Connection* connection = receiver();
        if (connection != nullptr && connection->busy()) {
            return;
        }
        auto packet = mcQueue.pop();
        if (connection == nullptr || !packet) {
            continue;
        }
        begin(*connection, std::move(*packet), faults);
        if (!send(*connection, faults)) {
            return;
        }
    }
    if (!mcQueue.empty()) {
        mcQueue.filled().signal();
    }
}

void DataServer::begin(Connection& connection, Packet packet, const FaultSettings& faults) {
    if (faults.garbageBytes > 0) {
        std::vector<uint8_t> garbage(faults.garbageBytes);
        for (uint8_t& byte : garbage) {
            muGarbage = muGarbage * 1664525u + 1013904223u;
            byte = static_cast<uint8_t>(muGarbage >> 24);
        }
        packet.header.insert(packet.header.begin(), garbage.begin(), garbage.end());
    }
    connection.packet = std::move(packet);
    connection.sent = 0;
}

bool DataServer::send(Connection& connection, const FaultSettings& faults) {
    static const std::vector<uint8_t> kNothing;
    constexpr int kCallsInOneTurn = 1000;
    // A packet in small segments takes many calls: between some of them the rest of the unit has its turn.
    for (int call = 0; connection.busy(); ++call) {
        if (call == kCallsInOneTurn) {
            return false;
        }
        const Packet& packet = connection.packet;
        const std::vector<uint8_t>* parts[3] = {
            &packet.header, packet.payload ? packet.payload.get() : &kNothing, &packet.trailer};
        iovec pieces[3];
        size_t count = 0, skip = connection.sent;
        size_t room = faults.segmentBytes > 0 ? faults.segmentBytes : packet.size();
        for (const std::vector<uint8_t>* part : parts) {
            const size_t passed = std::min(skip, part->size());
            const size_t length = std::min(part->size() - passed, room);
            skip -= passed;
            room -= length;
            if (length > 0) {
                pieces[count++] = {const_cast<uint8_t*>(part->data()) + passed, length};
            }
        }
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = count;
        const ssize_t sent = ::sendmsg(connection.socket.get(), &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
                connection.ended = true;
                connection.packet = {};
                connection.sent = 0;
            }
            return false;
        }
        connection.sent += static_cast<size_t>(sent);
    }
    connection.packet = {};
    connection.sent = 0;
    return true;
}

}  // namespace vnksim
