#pragma once

#include <list>
#include <map>

#include "links/packetprotocol.h"
#include "links/vita49.h"

/// Finds the first byte of a packet: one of the six types, with the two low bits clear.
class _syncWord0 final : public utils::MemoryBlock::PatternMatcher {
 public:
    uint32_t match(uint8_t uByte, uint32_t uOffset) override;
    bool isIdle() const { return true; }
    uint8_t packetType() const { return muPacketType; }

    static constexpr uint32_t kOffsetInPacket = 0;
    static const uint8_t* findFirst(const uint8_t* pFrom, const uint8_t* pEnd);

 private:
    /// Without a branch: bytes of noise would be guessed wrong every third time.
    static bool begins(uint8_t uByte) {
        return (static_cast<unsigned>(uByte < 0x60) & static_cast<unsigned>((uByte & 3) == 0)) != 0;
    }
    uint8_t muPacketType = 0;
};

/// The latest decoding context of each stream. A peer that makes up stream IDs costs no more memory than
/// `kMost` of them: the least recently stored goes.
class DecodingContexts {
 public:
    static constexpr size_t kMost = 65536;

    void store(uint32_t uStreamID, ReferencePtr<VITA49::DecodingContext> cContext);
    /// Null when there is none.
    ReferencePtr<VITA49::DecodingContext> find(uint32_t uStreamID) const;
    size_t count() const { return mcByStream.size(); }

 private:
    struct Entry {
        uint32_t muStreamID;
        ReferencePtr<VITA49::DecodingContext> mcContext;
    };
    std::list<Entry> mlEntries;  // the most recently stored last
    // Ordered: no choice of IDs makes a look-up slow.
    std::map<uint32_t, std::list<Entry>::iterator> mcByStream;
};

class VITA49Listener {
 public:
    virtual ~VITA49Listener() = default;
    virtual void handleIFData(ReferencePtr<VITA49::IFData> cPacket) = 0;
    virtual void handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) = 0;
    virtual void handleExtensionData(ReferencePtr<VITA49::ExtensionData> cPacket) = 0;
    virtual void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) = 0;
};

/// The generic form. Data packets carry the latest decoding context of their stream when they are delivered.
class VITA49Protocol final : public PacketProtocol<VITA49Listener, _syncWord0> {
 public:
    /// Nothing is read before the first counted pointer holds the new object, so
    /// `makeReference<VITA49Protocol>(transport)` misses no byte.
    explicit VITA49Protocol(ReferencePtr<Transport> cTransport);

 protected:
    void dispatch(const _syncWord0& cMatch, ReferencePtr<utils::MemoryBlock> cBlock) override;

 private:
    DecodingContexts mcContexts;  // of the polling thread alone
};
