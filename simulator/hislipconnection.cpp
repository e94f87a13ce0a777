#include "simulator/hislipconnection.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace vnksim {
namespace {

uint64_t number(const std::string& bytes, size_t offset, size_t count) {
    uint64_t value = 0;
    for (size_t i = offset; i < offset + count; ++i) {
        value = value << 8 | static_cast<uint8_t>(bytes[i]);
    }
    return value;
}

bool waits(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

HislipConnection::Taken HislipConnection::take(HislipMessage& message) {
    const size_t skipped = std::min<uint64_t>(muSkip, mcInput.size());
    mcInput.erase(0, skipped);
    muSkip -= skipped;
    const size_t seen = std::min<size_t>(mcInput.size(), 2);
    if (mcInput.compare(0, seen, "HS", seen) != 0) {
        return Taken::poor;
    }
    if (mcInput.size() < hislip::kHeaderBytes) {
        return Taken::nothing;
    }
    const uint64_t length = number(mcInput, 8, 8);
    if (length > hislip::kLongestBelieved) {
        return Taken::poor;
    }
    const bool tooLong = length > hislip::kLongestPayload;
    if (!tooLong && mcInput.size() - hislip::kHeaderBytes < length) {
        return Taken::nothing;
    }
    message.type = static_cast<uint8_t>(mcInput[2]);
    message.control = static_cast<uint8_t>(mcInput[3]);
    message.parameter = static_cast<uint32_t>(number(mcInput, 4, 4));
    message.payload.clear();
    if (tooLong) {
        mcInput.erase(0, hislip::kHeaderBytes);
        muSkip = length;
        return Taken::tooLong;
    }
    message.payload = mcInput.substr(hislip::kHeaderBytes, length);
    mcInput.erase(0, hislip::kHeaderBytes + length);
    return Taken::message;
}

void HislipConnection::read() {
    char buffer[65536];
    const ssize_t got = ::recv(mcSocket.get(), buffer, sizeof buffer, 0);
    acknowledgeAtOnce(mcSocket);
    if (got > 0) {
        mcInput.append(buffer, static_cast<size_t>(got));
    } else if (got == 0 || !waits(errno)) {
        mbEnded = true;
    }
}

void HislipConnection::put(const HislipMessage& message, const std::string& name, const HislipFault& fault) {
    Output output;
    output.bytes = faultyBytes(message, name, fault);
    if (output.bytes.empty()) {
        return;
    }
    output.due = Clock::now() + std::chrono::milliseconds(fault.lateMs);
    output.segmentBytes = fault.segmentBytes;
    if (fault.cutAfter) {
        output.bytes.resize(std::min<size_t>(*fault.cutAfter, output.bytes.size()));
        output.cut = true;
    }
    for (int copy = 0; copy < (fault.doubled ? 2 : 1); ++copy) {
        muQueued += output.bytes.size();
        mlOutput.push_back(output);
    }
}

void HislipConnection::dropOutput() {
    while (!mlOutput.empty() && mlOutput.back().sent == 0) {
        muQueued -= mlOutput.back().bytes.size();
        mlOutput.pop_back();
    }
}

std::optional<HislipConnection::Clock::time_point> HislipConnection::waitsUntil() const {
    if (mlOutput.empty() || mlOutput.front().due <= Clock::now()) {
        return std::nullopt;
    }
    return mlOutput.front().due;
}

void HislipConnection::write(unsigned segmentBytes) {
    while (!mlOutput.empty() && !mbEnded && !waitsUntil()) {
        Output& output = mlOutput.front();
        const size_t segment = output.segmentBytes > 0 ? output.segmentBytes : segmentBytes;
        const size_t left = output.bytes.size() - output.sent;
        const size_t part = segment > 0 ? std::min(segment, left) : left;
        const ssize_t sent =
            part == 0 ? 0 : ::send(mcSocket.get(), output.bytes.data() + output.sent, part, MSG_NOSIGNAL);
        if (sent < 0) {
            mbEnded = mbEnded || !waits(errno);
            return;
        }
        output.sent += static_cast<size_t>(sent);
        if (output.sent == output.bytes.size()) {
            muQueued -= output.bytes.size();
            mbEnded = mbEnded || output.cut;
            mlOutput.pop_front();
        }
    }
    mbEnded = mbEnded || (mbEnds && mlOutput.empty());
}

}  // namespace vnksim
