#include "simulator/hislipsessions.h"

#include <algorithm>
#include <cstdio>

#include "simulator/text.h"

namespace vnksim {
namespace {

using Role = HislipConnection::Role;

constexpr uint32_t kNewestVersion = 0x0100;
constexpr uint32_t kServerVendor = 'V' << 8 | 'K';
constexpr size_t kMostSessions = 16;
constexpr size_t kLongestProgram = 1 << 20;
constexpr size_t kLongestLockText = 256;
/// No reply of the unit is longer than this in one message, whatever the client would take.
constexpr uint64_t kLongestReply = 1 << 20;

std::string eightBytes(uint64_t value) {
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<char>(value >> shift & 0xFF));
    }
    return bytes;
}

uint64_t wideNumber(const std::string& bytes) {
    uint64_t value = 0;
    for (const char byte : bytes) {
        value = value << 8 | static_cast<uint8_t>(byte);
    }
    return value;
}

const char* roleName(Role role) {
    return role == Role::synchronous ? "sync" : role == Role::asynchronous ? "async" : "vendor";
}

}  // namespace

HislipSessions::HislipSessions(Faults& faults, Journal& commands, Journal& messages, Instrument& instrument,
                               Life& life)
    : mcFaults(faults),
      mcCommands(commands),
      mcMessages(messages),
      mcInstrument(instrument),
      mcLife(life) {
    mcSessionQuery.add("SYSTem:COMMunicate:HISLip:SESSion");
}

void HislipSessions::serve(HislipConnection& connection, HislipMessage message) {
    if (connection.meRole == Role::fresh) {
        serveFresh(connection, message);
        return;
    }
    record(connection, message);
    if (connection.meRole == Role::vendor) {
        serveVendor(connection, message);
        return;
    }
    const auto found = mlSessions.find(connection.muSession);
    if (found == mlSessions.end()) {
        connection.end();
    } else if (message.type == hislip::kFatalError) {
        connection.endBehindOutput();
    } else if (message.type == hislip::kError) {
        // The client tells of an error; there is nothing to be done about it.
    } else if (connection.meRole == Role::synchronous) {
        serveSynchronous(connection, found->second, message);
    } else {
        serveAsynchronous(connection, found->second, message);
    }
}

void HislipSessions::serveFresh(HislipConnection& connection, const HislipMessage& message) {
    if (message.type == hislip::kInitialize) {
        connection.meRole = Role::synchronous;
        record(connection, message);
        initialize(connection, message);
    } else if (message.type == hislip::kAsyncInitialize) {
        connection.meRole = Role::asynchronous;
        record(connection, message);
        asyncInitialize(connection, message);
    } else {
        refuse(connection, hislip::kBadSequence, "Initialize or AsyncInitialize expected");
    }
}

void HislipSessions::initialize(HislipConnection& connection, const HislipMessage& message) {
    const uint32_t version = std::min(message.parameter >> 16, kNewestVersion);
    if (version == 0 || (!message.payload.empty() && upper(message.payload) != "HISLIP0")) {
        refuse(connection, hislip::kBadSequence, version == 0 ? "No such version" : "No such sub-address");
        return;
    }
    if (mlSessions.size() >= kMostSessions) {
        refuse(connection, hislip::kTooManyClients, "Too many clients");
        return;
    }
    connection.muSession = freeNumber();
    mlSessions[connection.muSession].synchronous = &connection;
    send(connection, {hislip::kInitializeResponse, 0, version << 16 | connection.muSession});
}

void HislipSessions::asyncInitialize(HislipConnection& connection, const HislipMessage& message) {
    const auto found = message.parameter > 0xFFFF ? mlSessions.end()
                                                  : mlSessions.find(static_cast<uint16_t>(message.parameter));
    if (found == mlSessions.end() || found->second.asynchronous != nullptr) {
        refuse(connection, hislip::kBadSequence, "No session waits under this number");
        return;
    }
    connection.muSession = found->first;
    found->second.asynchronous = &connection;
    send(connection, {hislip::kAsyncInitializeResponse, 0, kServerVendor});
    mcInstrument.connectionOpened();
}

void HislipSessions::serveSynchronous(HislipConnection& connection, Session& session,
                                      HislipMessage& message) {
    if (session.asynchronous == nullptr) {
        refuse(connection, hislip::kChannelMissing, "The asynchronous channel is missing");
        return;
    }
    switch (message.type) {
        case hislip::kData:
        case hislip::kDataEnd:
            data(connection, session, message);
            return;
        case hislip::kTrigger:
            // The receivers have nothing that a trigger starts.
            return;
        case hislip::kDeviceClearComplete:
            session.clearing = false;
            session.program.clear();
            send(connection, {hislip::kDeviceClearAcknowledge, 0, 0});
            return;
        case hislip::kInitialize:
            refuse(connection, hislip::kBadSequence, "Initialized already");
            return;
        default:
            unknownType(connection, message);
    }
}

void HislipSessions::data(HislipConnection& connection, Session& session, HislipMessage& message) {
    if (session.clearing) {
        return;
    }
    if (message.control > 1) {
        send(connection, {hislip::kError, hislip::kUnknownControl, 0, "Unrecognized control code"});
        return;
    }
    session.program += message.payload;
    if (session.program.size() > kLongestProgram) {
        session.program.clear();
        mcInstrument.pushError({-363, "Input buffer overrun"});
        return;
    }
    if (message.type == hislip::kData) {
        return;
    }
    std::string program = std::move(session.program);
    session.program.clear();
    for (size_t begin = 0; begin < program.size();) {
        const size_t end = std::min(program.find('\n', begin), program.size());
        line(connection, session, message.parameter, program.substr(begin, end - begin));
        begin = end + 1;
    }
}

void HislipSessions::line(HislipConnection& connection, Session& session, uint32_t id,
                          const std::string& line) {
    const FaultSettings faults = mcFaults.snapshot();
    mcCommands.add(connection.muSession, line, "hislip");
    bool tellsSession = false;
    const auto text = execute(connection.muSession, line, tellsSession);
    if (text) {
        const std::string name =
            tellsSession && faults.hislip.count("SessionReply") > 0 ? "SessionReply" : "Reply";
        HislipFault fault = faultOf(name);
        if (faults.replyDelayFor.empty() || containsIgnoringCase(line, faults.replyDelayFor)) {
            fault.lateMs = std::max(fault.lateMs, faults.replyDelayMs);
        }
        reply(connection, session, {hislip::kDataEnd, 0, id, *text + "\n"}, name, fault);
    }
    mcLife.exchange(faults);
}

/// Sends a reply in as many messages as the client, or the fault, makes of it.
void HislipSessions::reply(HislipConnection& connection, const Session& session, const HislipMessage& whole,
                           const std::string& name, const HislipFault& fault) {
    uint64_t most = kLongestReply;
    if (session.limit > 0) {
        // Whether a client counts its header is not always clear; a message that fits with it fits anyhow.
        const uint64_t header = hislip::kHeaderBytes;
        most = std::clamp<uint64_t>(session.limit > header ? session.limit - header : 1, 1, kLongestReply);
    }
    if (fault.pieceBytes > 0) {
        most = std::min<uint64_t>(most, fault.pieceBytes);
    }
    for (size_t begin = 0; begin < whole.payload.size(); begin += most) {
        HislipMessage piece = whole;
        piece.payload = whole.payload.substr(begin, most);
        piece.type = whole.payload.size() - begin <= most ? hislip::kDataEnd : hislip::kData;
        connection.put(piece, name, fault);
    }
}

std::optional<std::string> HislipSessions::execute(uint16_t number, const std::string& line,
                                                   bool& tellsSession) {
    std::optional<std::string> joined;
    if (!containsIgnoringCase(line, "HISL")) {
        return mcInstrument.execute(line);
    }
    for (const std::string& text : split(line, ';')) {
        const ScpiCommand command = parseCommand(text);
        const bool tells = command.query && mcSessionQuery.find(command.header) != CommandTree::kNone;
        tellsSession = tellsSession || tells;
        const auto reply = tells ? tellSession(number, text) : mcInstrument.execute(text);
        if (reply) {
            joined = joined ? *joined + ";" + *reply : *reply;
        }
    }
    return joined;
}

/// The instrument knows no sessions, so that this one query is answered here, and under the same faults.
std::optional<std::string> HislipSessions::tellSession(uint16_t number, const std::string& text) {
    const FaultSettings faults = mcFaults.snapshot();
    if (!faults.noReplyTo.empty() &&
        (faults.noReplyTo == "*" || containsIgnoringCase(text, faults.noReplyTo))) {
        return std::nullopt;
    }
    for (const auto& [wanted, wrong] : faults.wrongReplies) {
        if (containsIgnoringCase(text, wanted)) {
            return wrong;
        }
    }
    const auto found = faults.hislip.find("SessionReply");
    const bool faulty = found != faults.hislip.end() && found->second.times != 0;
    return std::to_string(number + (faulty ? found->second.session : 0));
}

void HislipSessions::serveAsynchronous(HislipConnection& connection, Session& session,
                                       const HislipMessage& message) {
    switch (message.type) {
        case hislip::kAsyncLock:
            lock(connection, message);
            return;
        case hislip::kAsyncLockInfo:
            send(connection, {hislip::kAsyncLockInfoResponse, mcLocks.exclusive() ? uint8_t{1} : uint8_t{0},
                              static_cast<uint32_t>(mcLocks.holders())});
            return;
        case hislip::kAsyncMaximumMessageSize:
            maximumSize(connection, session, message);
            return;
        case hislip::kAsyncDeviceClear:
            deviceClear(connection, session);
            return;
        case hislip::kAsyncStatusQuery:
            send(connection, {hislip::kAsyncStatusResponse, statusByte(session), 0});
            return;
        case hislip::kAsyncRemoteLocalControl:
            if (message.control > 6) {
                send(connection, {hislip::kError, hislip::kUnknownControl, 0, "Unrecognized control code"});
            } else {
                send(connection, {hislip::kAsyncRemoteLocalResponse, 0, 0});
            }
            return;
        case hislip::kAsyncInitialize:
            refuse(connection, hislip::kBadSequence, "Initialized already");
            return;
        default:
            unknownType(connection, message);
    }
}

void HislipSessions::lock(HislipConnection& connection, const HislipMessage& message) {
    if (message.control > 1) {
        send(connection, {hislip::kError, hislip::kUnknownControl, 0, "Unrecognized control code"});
        return;
    }
    if (message.control == 0) {
        lockResponse(connection, mcLocks.release(connection.muSession));
        return;
    }
    if (message.payload.size() > kLongestLockText) {
        lockResponse(connection, HislipLocks::kError);
        return;
    }
    const FaultSettings faults = mcFaults.snapshot();
    if (faults.hislipLockRefused || faults.hislipLockRefusedOnce > 0) {
        mcFaults.change([](FaultSettings& now) {
            now.hislipLockRefusedOnce -= now.hislipLockRefusedOnce > 0 ? 1 : 0;
        });
        lockResponse(connection, HislipLocks::kFailure);
        return;
    }
    const auto end = HislipLocks::Clock::now() + std::chrono::milliseconds(message.parameter);
    if (const auto result = mcLocks.request(connection.muSession, message.payload, end)) {
        lockResponse(connection, *result);
    }
}

void HislipSessions::lockResponse(HislipConnection& connection, HislipLocks::Result result) {
    send(connection, {hislip::kAsyncLockResponse, result, 0});
}

void HislipSessions::maximumSize(HislipConnection& connection, Session& session,
                                 const HislipMessage& message) {
    if (message.payload.size() != 8) {
        send(connection, {hislip::kError, 0, 0, "A size has 8 bytes"});
        return;
    }
    session.limit = wideNumber(message.payload);
    send(connection,
         {hislip::kAsyncMaximumMessageSizeResponse, 0, 0, eightBytes(hislip::kLongestPayload)});
}

void HislipSessions::deviceClear(HislipConnection& connection, Session& session) {
    session.clearing = true;
    session.program.clear();
    session.synchronous->dropOutput();
    send(connection, {hislip::kAsyncDeviceClearAcknowledge, 0, 0});
}

/// Bit 2: the error queue holds something; bit 4: a reply waits to be sent.
uint8_t HislipSessions::statusByte(const Session& session) const {
    const bool errors = mcInstrument.state().errors > 0;
    return static_cast<uint8_t>((errors ? 0x04 : 0) | (session.synchronous->idle() ? 0 : 0x10));
}

void HislipSessions::serveVendor(HislipConnection& connection, const HislipMessage& message) {
    if (message.type != hislip::kVendorRequest) {
        unknownType(connection, message);
        return;
    }
    const bool known = message.parameter <= 0xFFFF &&
                       mlSessions.count(static_cast<uint16_t>(message.parameter)) > 0;
    const HislipFault fault = faultOf("VendorReply");
    connection.put({hislip::kVendorReply, 0, known ? message.parameter : hislip::kNoSession}, "VendorReply",
                   fault);
    if (known && !fault.missing && !fault.error && !fault.fatal) {
        connection.muSession = static_cast<uint16_t>(message.parameter);
    }
}

void HislipSessions::refuse(HislipConnection& connection, hislip::Fatal code, const std::string& text) {
    send(connection, {hislip::kFatalError, code, 0, text});
    connection.endBehindOutput();
}

void HislipSessions::tooLong(HislipConnection& connection, const HislipMessage& header) {
    if (connection.meRole == Role::fresh) {
        refuse(connection, hislip::kBadSequence, "Initialize or AsyncInitialize expected");
        return;
    }
    record(connection, header);
    const auto found = mlSessions.find(connection.muSession);
    if (connection.meRole == Role::synchronous && found != mlSessions.end()) {
        // The rest of a program message without its middle must not be taken for a whole one.
        found->second.program.clear();
    }
    send(connection, {hislip::kError, hislip::kTooLarge, 0, "Message too large"});
}

void HislipSessions::unknownType(HislipConnection& connection, const HislipMessage& message) {
    const bool vendor = message.type >= hislip::kFirstVendorType;
    send(connection, {hislip::kError, vendor ? hislip::kUnknownVendorType : hislip::kUnknownType, 0,
                      vendor ? "Unrecognized vendor defined message" : "Unrecognized message type"});
}

bool HislipSessions::lockedOut(const HislipConnection& connection) const {
    if (connection.meRole != Role::synchronous || mcLocks.mayWork(connection.muSession)) {
        return false;
    }
    const auto found = mlSessions.find(connection.muSession);
    return found != mlSessions.end() && !found->second.clearing;
}

void HislipSessions::settle() {
    std::erase_if(mlSessions, [this](const auto& item) {
        const Session& session = item.second;
        const bool alone = session.asynchronous == nullptr;
        if (!session.synchronous->ended() && (alone || !session.asynchronous->ended())) {
            return false;
        }
        session.synchronous->end();
        if (!alone) {
            session.asynchronous->end();
        }
        mcLocks.forget(item.first);
        return true;
    });
    for (const auto& [number, result] : mcLocks.settle(HislipLocks::Clock::now())) {
        const auto found = mlSessions.find(number);
        if (found != mlSessions.end() && found->second.asynchronous != nullptr) {
            lockResponse(*found->second.asynchronous, result);
        }
    }
}

void HislipSessions::clear() {
    mlSessions.clear();
    mcLocks = {};
}

unsigned HislipSessions::count() const {
    return static_cast<unsigned>(std::count_if(mlSessions.begin(), mlSessions.end(), [](const auto& item) {
        return item.second.asynchronous != nullptr;
    }));
}

void HislipSessions::send(HislipConnection& connection, const HislipMessage& message) {
    const std::string name = hislipName(message.type);
    connection.put(message, name, faultOf(name));
}

HislipFault HislipSessions::faultOf(const std::string& name) {
    const FaultSettings faults = mcFaults.snapshot();
    const auto found = faults.hislip.find(name);
    if (found == faults.hislip.end() || found->second.times == 0) {
        return {};
    }
    if (found->second.times > 0) {
        mcFaults.change([&name](FaultSettings& now) {
            const auto again = now.hislip.find(name);
            if (again != now.hislip.end() && again->second.times > 0) {
                --again->second.times;
            }
        });
    }
    return found->second;
}

uint16_t HislipSessions::freeNumber() {
    while (muNextNumber == 0 || mlSessions.count(muNextNumber) > 0) {
        ++muNextNumber;
    }
    return muNextNumber++;
}

void HislipSessions::record(const HislipConnection& connection, const HislipMessage& message) {
    char text[96];
    std::snprintf(text, sizeof text, "%s %s %u 0x%08x %zu", roleName(connection.meRole),
                  hislipName(message.type).c_str(), unsigned{message.control}, message.parameter,
                  message.payload.size());
    mcMessages.add(connection.muSession, text, "hislip");
}

}  // namespace vnksim
