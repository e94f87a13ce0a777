#include "links/vita49protocol.h"

uint32_t _syncWord0::match(uint8_t uByte, uint32_t uOffset) {
    if (!begins(uByte))
        return utils::MemoryBlock::kNoMatch;
    muPacketType = uByte >> 4;
    return uOffset;
}

const uint8_t* _syncWord0::findFirst(const uint8_t* pFrom, const uint8_t* pEnd) {
    // In a healthy stream the first byte; in noise whole runs without a start are stepped over.
    constexpr std::ptrdiff_t kRun = 32;
    for (; pEnd - pFrom >= kRun && !begins(*pFrom); pFrom += kRun) {
        uint8_t uAny = 0;
        for (std::ptrdiff_t i = 0; i < kRun; ++i)
            uAny |= static_cast<uint8_t>(begins(pFrom[i]));
        if (uAny != 0)
            break;
    }
    while (pFrom != pEnd && !begins(*pFrom))
        ++pFrom;
    return pFrom == pEnd ? nullptr : pFrom;
}

void DecodingContexts::store(uint32_t uStreamID, ReferencePtr<VITA49::DecodingContext> cContext) {
    const auto found = mcByStream.find(uStreamID);
    if (found != mcByStream.end()) {
        found->second->mcContext = std::move(cContext);
        mlEntries.splice(mlEntries.end(), mlEntries, found->second);
        return;
    }
    if (mlEntries.size() >= kMost) {
        // The oldest entry becomes the new one.
        auto cNode = mcByStream.extract(mlEntries.front().muStreamID);
        mlEntries.splice(mlEntries.end(), mlEntries, mlEntries.begin());
        mlEntries.back() = {uStreamID, std::move(cContext)};
        cNode.key() = uStreamID;
        mcByStream.insert(std::move(cNode));
        return;
    }
    mlEntries.push_back({uStreamID, std::move(cContext)});
    try {
        mcByStream.emplace(uStreamID, std::prev(mlEntries.end()));
    } catch (...) {
        mlEntries.pop_back();
        throw;
    }
}

ReferencePtr<VITA49::DecodingContext> DecodingContexts::find(uint32_t uStreamID) const {
    const auto found = mcByStream.find(uStreamID);
    return found == mcByStream.end() ? nullptr : found->second->mcContext;
}

VITA49Protocol::VITA49Protocol(ReferencePtr<Transport> cTransport)
    : PacketProtocol(std::move(cTransport), "VITA49Protocol") {
    registerCallback();
}

void VITA49Protocol::dispatch(const _syncWord0& cMatch, ReferencePtr<utils::MemoryBlock> cBlock) {
    using namespace VITA49;
    switch (cMatch.packetType()) {
        case kIFNoStreamID:
            return deliver(&Listener::handleIFData, makeReference<IFData>(std::move(cBlock)));
        case kIFWithStreamID: {
            auto cPacket = makeReference<IFData>(std::move(cBlock));
            cPacket->setDecodingContext(mcContexts.find(cPacket->streamID()));
            return deliver(&Listener::handleIFData, std::move(cPacket));
        }
        case kExtensionNoStreamID:
        case kExtensionWithStreamID:
            return deliver(&Listener::handleExtensionData, makeReference<ExtensionData>(std::move(cBlock)));
        case kIFContext: {
            auto cPacket = makeReference<IFContext>(std::move(cBlock));
            if (cPacket->mcDecodingContext)
                mcContexts.store(cPacket->streamID(), cPacket->mcDecodingContext);
            return deliver(&Listener::handleIFContext, std::move(cPacket));
        }
        case kExtensionContext:
            return deliver(&Listener::handleExtensionContext,
                           makeReference<ExtensionContext>(std::move(cBlock)));
        default:
            return;
    }
}
