#include "links/datachannel.h"

#include <optional>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "links/scpiprotocol.h"

namespace {

constexpr int32_t kDataChannelCode = -4001;
constexpr uint32_t kAnswerTimeoutMs = 1000;
constexpr uint32_t kUnknownSession = 0x80000000;

ReferencePtr<Transport> fail(const char* text) {
    utils::reportError(kDataChannelCode, text);
    return nullptr;
}

std::string hostOf(const ReferencePtr<HSDataTransport>& cControl) {
    const std::string description = cControl->getDescription();
    return std::string(utils::beforeFirst(utils::afterFirst(description, "TCP/IP:"), ":"));
}

std::optional<uint32_t> querySession(const ReferencePtr<HSDataTransport>& cControl) {
    const auto cSCPI = makeReference<SCPIProtocol>(cControl);
    return utils::parseUnsigned32(cSCPI->call(":SYSTem:COMMunicate:HISLip:SESSion?", kAnswerTimeoutMs));
}

/// What has come when a whole header is there, the peer has ended, or the time has passed; null if nothing.
/// Nobody polls the connection yet. Not a byte more than the header is taken: what follows at once is the stream,
/// which begins with a packet.
ReferencePtr<utils::MemoryBlock> receiveHeader(Transport& cTransport) {
    const uint64_t uEnd = utils::steadyMilliseconds() + kAnswerTimeoutMs;
    auto cHeader = makeReference<utils::MemoryBlock>(HiSlip::kHeaderBytes);
    while (cHeader->getSize() < HiSlip::kHeaderBytes) {
        const uint64_t uNow = utils::steadyMilliseconds();
        if (uNow >= uEnd)
            break;
        cTransport.setChunkSize(HiSlip::kHeaderBytes - cHeader->getSize());
        std::string errorText;
        const auto cBlock = cTransport.receive(static_cast<uint32_t>(uEnd - uNow), errorText);
        uint32_t uLength = 0;
        const uint8_t* const pBytes = cBlock ? cBlock->getReadable(&uLength) : nullptr;
        if (cBlock ? !pBytes : !errorText.empty())
            break;
        cHeader->write(pBytes, uLength);
        if (cBlock)
            cBlock->setReadAndKeep(cBlock->getSize());
    }
    return cHeader->getSize() ? cHeader : nullptr;
}

}  // namespace

ReferencePtr<Transport> openDataChannel(HiSlipProtocol& cProtocol) {
    const auto cControl = cProtocol.getDataTransport();
    auto cTransport = cControl ? TransportType::openByName("TCP/IP", hostOf(cControl) + ":4881") : nullptr;
    if (!cTransport)
        return fail("Failed to open Varnik data connection at :4881");
    const auto cSession = querySession(cControl);
    if (!cSession)
        return fail("SCPI session query over HiSlip control failed");
    std::string errorText;
    cTransport->send(HiSlip::serialise(HiSlip::makeMessage(HiSlip::kDataChannelRequest, *cSession)),
                     errorText);
    const auto cHeader = receiveHeader(*cTransport);
    if (!cHeader)
        return fail("No response to Varnik initialization within timeout");
    HiSlip::Message cResponse;
    HiSlip::parseHeader(*cHeader, cResponse);
    if (!cResponse.mbValid || cResponse.muType != HiSlip::kDataChannelResponse)
        return fail("Bad response to Varnik initialization request");
    if (cResponse.muParameter == kUnknownSession)
        return fail("Server reports session ID not found");
    if (cResponse.muParameter != *cSession)
        return fail("Server response invalid");
    return cTransport;
}
