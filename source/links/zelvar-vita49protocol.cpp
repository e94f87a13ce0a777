#include "links/zelvar-vita49protocol.h"

#include <cstring>

const uint8_t* _findStreamID::findFirst(const uint8_t* pFrom, const uint8_t* pEnd) {
    return static_cast<const uint8_t*>(std::memchr(pFrom, kFirstByte, static_cast<size_t>(pEnd - pFrom)));
}

uint32_t _findStreamID::match(uint8_t uByte, uint32_t uOffset) {
    if (muMatched == 0) {
        if (uByte == kFirstByte) {
            muOffset = uOffset;
            muMatched = 1;
        }
        return utils::MemoryBlock::kNoMatch;
    }
    if (muMatched < 3) {
        if (uByte != 0) {
            muMatched = 0;
            return utils::MemoryBlock::kOfferAgain;
        }
        ++muMatched;
        return utils::MemoryBlock::kNoMatch;
    }
    // A last byte that does not fit is not offered again, so a pattern that would begin with it is missed.
    muMatched = 0;
    if (uByte < 1 || uByte > 6)
        return utils::MemoryBlock::kNoMatch;
    muStreamID = 0x90000000u + uByte;
    return muOffset;
}

VITA49ZelvarProtocol::VITA49ZelvarProtocol(ReferencePtr<Transport> cTransport)
    : PacketProtocol(std::move(cTransport), "VITA49ZelvarProtocol") {
    registerCallback();
}

void VITA49ZelvarProtocol::dispatch(const _findStreamID& cMatch, ReferencePtr<utils::MemoryBlock> cBlock) {
    using namespace VITA49Zelvar;
    switch (cMatch.streamID()) {
        case kReceiverContext:
            return deliver(&Listener::handleReceiverContext,
                           makeReference<ReceiverContext>(std::move(cBlock)));
        case kDigitizerContext:
            return deliver(&Listener::handleDigitizerContext,
                           makeReference<DigitizerContext>(std::move(cBlock)));
        case kExtensionContext:
            return deliver(&Listener::handleExtensionContext,
                           makeReference<ExtensionContext>(std::move(cBlock)));
        case kIFDataIQ14:
            return deliver(&Listener::handleIFDataIQ14, makeReference<IFDataIQ14>(std::move(cBlock)));
        case kIFDataI14:
            return deliver(&Listener::handleIFDataI14, makeReference<IFDataI14>(std::move(cBlock)));
        case kIFDataI24:
            return deliver(&Listener::handleIFDataI24, makeReference<IFDataI24>(std::move(cBlock)));
        default:
            return;
    }
}
