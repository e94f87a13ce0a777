#pragma once

#include "links/bigendian.h"

/// Reassembles packets of a byte stream. What a packet begins with is known to a matcher:
///
///     class Matcher : public utils::MemoryBlock::PatternMatcher {
///         // From the first byte of the packet to the offset that match returns.
///         static constexpr uint32_t kOffsetInPacket;
///         // Nothing has been matched so far: only a byte that `findFirst` finds can change that.
///         bool isIdle() const;
///         // The first byte that can begin a match; null when there is none.
///         static const uint8_t* findFirst(const uint8_t* pFrom, const uint8_t* pEnd);
///     };
class PacketBuffer {
 public:
    void append(const uint8_t* pBytes, uint32_t uLength);
    void clear() { mcBytes.clear(); }
    /// Holds bytes of which no packet has been made yet.
    bool holdsRest() const { return mcBytes.getReadableDataLength() != 0; }

    /// Cuts the next packet out, its matcher as the match left it; null when more bytes must come first.
    template <typename Matcher>
    ReferencePtr<utils::MemoryBlock> take(Matcher& cMatcher);

 private:
    static constexpr uint32_t kTailBytes = 8;   // may be a match cut by the end, with its packet's start
    static constexpr uint32_t kSizeOffset = 2;  // in a packet
    static constexpr uint32_t kSizeFieldEnd = 4;

    template <typename Matcher>
    uint32_t find(Matcher& cMatcher) const;

    utils::MemoryBlock mcBytes{0};
};

/// The loop of a pattern matcher over the readable bytes, except that it leaps to the next byte that can
/// begin a pattern while nothing has been matched.
template <typename Matcher>
uint32_t PacketBuffer::find(Matcher& cMatcher) const {
    const uint8_t* const pStorage = mcBytes.getStorage();
    const uint32_t uEnd = mcBytes.getSize();
    for (uint32_t uOffset = mcBytes.getReadPosition(); uOffset < uEnd; ++uOffset) {
        if (cMatcher.isIdle()) {
            const uint8_t* const pFirst = Matcher::findFirst(pStorage + uOffset, pStorage + uEnd);
            if (!pFirst)
                break;
            uOffset = static_cast<uint32_t>(pFirst - pStorage);
        }
        uint32_t uResult = cMatcher.match(pStorage[uOffset], uOffset);
        if (uResult == utils::MemoryBlock::kOfferAgain)
            uResult = cMatcher.match(pStorage[uOffset], uOffset);
        if (uResult != utils::MemoryBlock::kNoMatch)
            return uResult;
    }
    return utils::MemoryBlock::kNoMatch;
}

template <typename Matcher>
ReferencePtr<utils::MemoryBlock> PacketBuffer::take(Matcher& cMatcher) {
    while (mcBytes.getReadableDataLength() >= kTailBytes) {
        cMatcher = Matcher();
        const uint32_t uFound = find(cMatcher);
        const uint32_t uRead = mcBytes.getReadPosition();
        if (uFound == utils::MemoryBlock::kNoMatch) {
            mcBytes.setReadAndKeep(mcBytes.getSize() - kTailBytes);
            return nullptr;
        }
        if (uFound - uRead < Matcher::kOffsetInPacket) {
            // The packet would begin before the first byte there is.
            mcBytes.setReadAndKeep(uRead + 1);
            continue;
        }
        const uint32_t uStart = uFound - Matcher::kOffsetInPacket;
        mcBytes.setReadAndKeep(uStart);
        if (mcBytes.getReadableDataLength() < kSizeFieldEnd)
            return nullptr;
        const uint8_t* const pStart = mcBytes.getStorage() + uStart;
        const uint32_t uBytes = uint32_t{BigEndian::u16(pStart + kSizeOffset)} * 4;
        if (uBytes == 0) {
            mcBytes.setReadAndKeep(uStart + 1);  // no packet: garbage with the look of one
            continue;
        }
        if (mcBytes.getReadableDataLength() < uBytes)
            return nullptr;
        auto cPacket = makeReference<utils::MemoryBlock>(pStart, uBytes);
        mcBytes.setReadAndKeep(uStart + uBytes);
        return cPacket;
    }
    return nullptr;
}
