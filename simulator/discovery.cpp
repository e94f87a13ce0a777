#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>

#include "simulator/packets.h"
#include "simulator/scpiserver.h"

namespace vnksim {
namespace {

constexpr uint32_t kRequestCode = 0x93315555, kResponseCode = 0x93316666, kVersion = 2;
constexpr size_t kRequestSize = 8, kFieldSize = 16, kReplySize = 60;

uint32_t word(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void appendField(std::vector<uint8_t>& bytes, const std::string& text) {
    const size_t end = bytes.size() + kFieldSize;
    bytes.insert(bytes.end(), text.begin(),
                 text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), kFieldSize)));
    bytes.resize(end);
}

}  // namespace

std::vector<uint8_t> discoveryReply(const UnitOptions& options, const uint8_t* request, size_t size) {
    if (size != kRequestSize || word(request) != kRequestCode || word(request + 4) != kVersion) {
        return {};
    }
    std::vector<uint8_t> reply;
    append32(reply, kResponseCode);
    append32(reply, kVersion);
    appendField(reply, options.model);
    appendField(reply, options.serial);
    appendField(reply, options.firmware);
    reply.resize(kReplySize);
    return reply;
}

void ScpiServer::answerDiscovery() {
    uint8_t request[512];
    for (;;) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t got = ::recvfrom(mcDiscovery.get(), request, sizeof request, 0,
                                       reinterpret_cast<sockaddr*>(&sender), &length);
        if (got < 0) {
            return;
        }
        const auto reply = discoveryReply(mcOptions, request, static_cast<size_t>(got));
        if (!reply.empty() && !mcLife.death() && !mcFaults.snapshot().silent) {
            ::sendto(mcDiscovery.get(), reply.data(), reply.size(), MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr*>(&sender), length);
        }
    }
}

}  // namespace vnksim
