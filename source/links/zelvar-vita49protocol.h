#pragma once

#include "links/packetprotocol.h"
#include "links/vita49zelvar.h"

/// Finds the first byte of a stream ID of the dialect.
class _findStreamID final : public utils::MemoryBlock::PatternMatcher {
 public:
    uint32_t match(uint8_t uByte, uint32_t uOffset) override;
    /// Nothing matched so far: only kFirstByte can change that.
    bool isIdle() const { return muMatched == 0; }
    uint32_t streamID() const { return muStreamID; }

    static constexpr uint8_t kFirstByte = 0x90;
    static constexpr uint32_t kOffsetInPacket = 4;
    static const uint8_t* findFirst(const uint8_t* pFrom, const uint8_t* pEnd);

 private:
    uint32_t muMatched = 0;
    uint32_t muOffset = 0;
    uint32_t muStreamID = 0;
};

class VITA49ZelvarListener {
 public:
    virtual ~VITA49ZelvarListener() = default;
    virtual void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) = 0;
    virtual void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) = 0;
    virtual void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) = 0;
    virtual void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) = 0;
    virtual void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) = 0;
    virtual void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24> cPacket) = 0;
};

/// The first family's dialect.
class VITA49ZelvarProtocol final : public PacketProtocol<VITA49ZelvarListener, _findStreamID> {
 public:
    /// Nothing is read before the first counted pointer holds the new object, so
    /// `makeReference<VITA49ZelvarProtocol>(transport)` misses no byte.
    explicit VITA49ZelvarProtocol(ReferencePtr<Transport> cTransport);

 protected:
    void dispatch(const _findStreamID& cMatch, ReferencePtr<utils::MemoryBlock> cBlock) override;
};
