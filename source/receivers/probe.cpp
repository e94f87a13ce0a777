#include "receivers/probe.h"

#include <stdexcept>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "foundations/usererrors.h"
#include "links/scpiprotocol.h"

namespace {

constexpr int32_t kNoSCPI = -2000;
constexpr int32_t kNoData = -6005;
constexpr int32_t kUnreachableStatus = -69;
constexpr int kProbeReceiveTimeoutMs = 5000;
constexpr uint32_t kIdentityTimeoutMs = 1000;

void reportUnreachable(int32_t iCode, std::string text) {
    utils::reportError(iCode, std::move(text));
    utils::UserErrors::instance().pushStatus(kUnreachableStatus);
}

/// A host text with a "/" gives a receive time-out that is no number: a host that cannot be reached.
ReferencePtr<Transport> openTransport(const std::string& address) {
    try {
        return TransportType::openByName("TCP/IP", address);
    } catch (const std::logic_error&) {
        return nullptr;
    }
}

}  // namespace

Connection splitConnection(const std::string& text) {
    if (text.find(':') == std::string::npos)
        return {"TCP/IP", text};
    return {std::string(utils::beforeFirst(text, ":")), std::string(utils::afterFirst(text, ":"))};
}

utils::VariantRecord parseIdentity(const std::string& reply) {
    std::string_view rest = reply;
    utils::takeBefore(rest, ",");  // the maker
    std::string_view model = utils::takeBefore(rest, ",");
    const std::string_view type = utils::takeBefore(model, " ");
    const std::string_view serial = utils::takeBefore(rest, ",");
    utils::VariantRecord cRecord;
    cRecord.set("type", type);
    cRecord.set("version", model);
    cRecord.set("serial", serial);
    cRecord.set("firmware", utils::strip(rest));
    return cRecord;
}

std::string scpiAddress(const std::string& host) {
    return host + ":" + std::to_string(kSCPIPort);
}

std::string dataAddress(const std::string& host, int receiveTimeoutMs) {
    return host + ":" + std::to_string(kDataPort) + "/" + std::to_string(receiveTimeoutMs);
}

utils::VariantRecord examineDevice(const std::string& host) {
    utils::VariantRecord cRecord;
    cRecord.set("device", "unreachable");
    const ReferencePtr<Transport> cCommands = openTransport(scpiAddress(host));
    if (!cCommands) {
        reportUnreachable(kNoSCPI, "Cannot open SCPI connection to " + host);
        return cRecord;
    }
    const auto cProtocol = makeReference<SCPIProtocol>(cCommands);
    // Only to prove that the port accepts a connection; nothing is read from it.
    const ReferencePtr<Transport> cData = openTransport(dataAddress(host, kProbeReceiveTimeoutMs));
    if (!cData) {
        reportUnreachable(kNoData, "Cannot open data connection to " + host);
        return cRecord;
    }
    cRecord = parseIdentity(cProtocol->call("*IDN?", kIdentityTimeoutMs));
    cRecord.set("connection", "TCP/IP");
    cRecord.set("address", host);
    return cRecord;
}
