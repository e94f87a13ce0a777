#include "links/zelvar-vita49protocol.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint32_t kPollTimeoutMs = 10;
constexpr uint32_t kChunkSize = 0x40000;
constexpr uint32_t kTailBytes = 8;       // a stream ID cut by the end, with the start of its packet before it
constexpr uint32_t kStreamIDOffset = 4;  // in a packet
constexpr uint32_t kLeastStorage = 65536;

}  // namespace

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
    : Protocol(std::move(cTransport)), mcBuffer(0) {
    // The second call finds the callback set and changes nothing.
    for (int i = 0; i < 2 && mcTransport; ++i)
        mcTransport->setCallback(this, kPollTimeoutMs, kChunkSize);
}

VITA49ZelvarProtocol::~VITA49ZelvarProtocol() {
    if (mcTransport)
        mcTransport->clearCallback(this);
}

void VITA49ZelvarProtocol::addListener(Listener* pListener) {
    utils::ScopedLock cGuard(mcListenersLock);
    if (std::find(mlListeners.begin(), mlListeners.end(), pListener) == mlListeners.end())
        mlListeners.push_back(pListener);
}

bool VITA49ZelvarProtocol::removeListener(Listener* pListener) {
    utils::ScopedLock cGuard(mcListenersLock);
    const auto found = std::find(mlListeners.begin(), mlListeners.end(), pListener);
    if (found == mlListeners.end())
        return false;
    mlListeners.erase(found);
    return true;
}

bool VITA49ZelvarProtocol::onData(ReferencePtr<utils::MemoryBlock> cBlock) {
    uint32_t uLength = 0;
    const uint8_t* pBytes = cBlock ? cBlock->getReadable(&uLength) : nullptr;
    if (!pBytes)
        return true;
    if (mbDrain.load(std::memory_order_relaxed))
        mbActivity.exchange(true, std::memory_order_relaxed);
    utils::ScopedLock cGuard(mcBufferLock);
    append(pBytes, uLength);
    cBlock->setReadPosition(cBlock->getSize());
    uint32_t uStreamID = 0;
    ReferencePtr<utils::MemoryBlock> cPacket;
    while (takePacket(uStreamID, cPacket)) {
        // Listeners are free to clear the buffer, or to wait for a thread that does.
        cGuard.unlock();
        dispatch(uStreamID, std::move(cPacket));
        cGuard.lock();
    }
    return true;
}

void VITA49ZelvarProtocol::onError(const std::string&) {
    VNK_ASSERT_TEXT(false, "false");
}

void VITA49ZelvarProtocol::clearBuffer() {
    utils::ScopedLock cGuard(mcBufferLock);
    mcBuffer.clear();
}

/// Storage grows to twice what is needed, so that moving what is kept to the front costs less than the bytes
/// that came since the last move.
void VITA49ZelvarProtocol::append(const uint8_t* pBytes, uint32_t uLength) {
    uint32_t uKept = 0;
    const uint8_t* pKept = mcBuffer.getReadable(&uKept);
    if (!pKept)
        mcBuffer.clear();
    const uint64_t uNeeded = uint64_t{uKept} + uLength;
    if (uint64_t{mcBuffer.getWritePosition()} + uLength > mcBuffer.getAllocated()) {
        if (uNeeded * 2 > mcBuffer.getAllocated()) {
            mcBuffer.reserve(
                static_cast<uint32_t>(std::clamp<uint64_t>(uNeeded * 2, kLeastStorage, 0xFFFFFFFFu)));
        } else {
            uint8_t* const pStorage = mcBuffer.getStorage();
            if (pKept)
                std::memmove(pStorage, pKept, uKept);
            mcBuffer.clear();
            mcBuffer.advanceWritePosition(uKept);
        }
    }
    mcBuffer.write(pBytes, uLength);
}

/// The loop of a pattern matcher over the readable bytes, except that it leaps to the next byte that can
/// begin a pattern while nothing has been matched.
uint32_t VITA49ZelvarProtocol::findStreamID(_findStreamID& cMatcher) const {
    const uint8_t* const pStorage = mcBuffer.getStorage();
    const uint32_t uEnd = mcBuffer.getSize();
    for (uint32_t uOffset = mcBuffer.getReadPosition(); uOffset < uEnd; ++uOffset) {
        if (cMatcher.isIdle()) {
            const void* const pFirst =
                std::memchr(pStorage + uOffset, _findStreamID::kFirstByte, uEnd - uOffset);
            if (!pFirst)
                break;
            uOffset = static_cast<uint32_t>(static_cast<const uint8_t*>(pFirst) - pStorage);
        }
        uint32_t uResult = cMatcher.match(pStorage[uOffset], uOffset);
        if (uResult == utils::MemoryBlock::kOfferAgain)
            uResult = cMatcher.match(pStorage[uOffset], uOffset);
        if (uResult != utils::MemoryBlock::kNoMatch)
            return uResult;
    }
    return utils::MemoryBlock::kNoMatch;
}

bool VITA49ZelvarProtocol::takePacket(uint32_t& uStreamID, ReferencePtr<utils::MemoryBlock>& cPacket) {
    while (mcBuffer.getReadableDataLength() >= kTailBytes) {
        _findStreamID cMatcher;
        const uint32_t uFound = findStreamID(cMatcher);
        const uint32_t uRead = mcBuffer.getReadPosition();
        if (uFound == utils::MemoryBlock::kNoMatch) {
            mcBuffer.setReadAndKeep(mcBuffer.getSize() - kTailBytes);
            return false;
        }
        if (uFound - uRead < kStreamIDOffset) {
            // The packet would begin before the first byte there is.
            mcBuffer.setReadAndKeep(uRead + 1);
            continue;
        }
        const uint32_t uStart = uFound - kStreamIDOffset;
        const uint8_t* const pStart = mcBuffer.getStorage() + uStart;
        const uint32_t uBytes = ((uint32_t{pStart[2]} << 8) | pStart[3]) * 4;
        mcBuffer.setReadAndKeep(uStart);
        if (uBytes == 0) {
            mcBuffer.setReadAndKeep(uStart + 1);  // no packet: garbage with the look of one
            continue;
        }
        if (mcBuffer.getReadableDataLength() < uBytes)
            return false;
        uStreamID = cMatcher.streamID();
        cPacket = makeReference<utils::MemoryBlock>(pStart, uBytes);
        mcBuffer.setReadAndKeep(uStart + uBytes);
        return true;
    }
    return false;
}

void VITA49ZelvarProtocol::dispatch(uint32_t uStreamID, ReferencePtr<utils::MemoryBlock> cBlock) {
    switch (uStreamID) {
        case VITA49Zelvar::kReceiverContext:
            return deliver(&Listener::handleReceiverContext, std::move(cBlock));
        case VITA49Zelvar::kDigitizerContext:
            return deliver(&Listener::handleDigitizerContext, std::move(cBlock));
        case VITA49Zelvar::kExtensionContext:
            return deliver(&Listener::handleExtensionContext, std::move(cBlock));
        case VITA49Zelvar::kIFDataIQ14:
            return deliver(&Listener::handleIFDataIQ14, std::move(cBlock));
        case VITA49Zelvar::kIFDataI14:
            return deliver(&Listener::handleIFDataI14, std::move(cBlock));
        case VITA49Zelvar::kIFDataI24:
            return deliver(&Listener::handleIFDataI24, std::move(cBlock));
        default:
            return;
    }
}

template <typename PacketClass>
void VITA49ZelvarProtocol::deliver(void (Listener::*handle)(ReferencePtr<PacketClass>),
                                   ReferencePtr<utils::MemoryBlock> cBlock) {
    const auto cPacket = makeReference<PacketClass>(std::move(cBlock));
    utils::ScopedLock cGuard(mcListenersLock);
    // A listener may remove itself or another while it is called.
    const std::vector<Listener*> lCalled = mlListeners;
    for (Listener* pListener : lCalled)
        if (std::find(mlListeners.begin(), mlListeners.end(), pListener) != mlListeners.end())
            (pListener->*handle)(cPacket);
}
