#pragma once

#include <atomic>
#include <vector>

#include "links/protocol.h"
#include "links/vita49zelvar.h"

/// Finds the first byte of a stream ID of the dialect.
class _findStreamID final : public utils::MemoryBlock::PatternMatcher {
 public:
    uint32_t match(uint8_t uByte, uint32_t uOffset) override;
    /// Nothing matched so far: only kFirstByte can change that.
    bool isIdle() const { return muMatched == 0; }
    uint32_t streamID() const { return muStreamID; }

    static constexpr uint8_t kFirstByte = 0x90;

 private:
    uint32_t muMatched = 0;
    uint32_t muOffset = 0;
    uint32_t muStreamID = 0;
};

/// Cuts the byte stream of the data channel into packets and hands them to its listeners, on the polling
/// thread, with the listeners' lock held.
class VITA49ZelvarProtocol : public Protocol, public Transport::Callback {
 public:
    class Listener {
     public:
        virtual ~Listener() = default;
        virtual void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) = 0;
        virtual void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) = 0;
        virtual void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) = 0;
        virtual void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) = 0;
        virtual void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) = 0;
        virtual void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24> cPacket) = 0;
    };

    /// Registers itself with the transport as its last act. Nothing is read before the first counted pointer
    /// holds the new object, so `makeReference<VITA49ZelvarProtocol>(transport)` misses no byte.
    explicit VITA49ZelvarProtocol(ReferencePtr<Transport> cTransport);
    ~VITA49ZelvarProtocol() override;

    std::string getName() const override { return "VITA49"; }
    void addListener(Listener* pListener);
    /// True if it was there. Waits for a listener call in progress, but not for one on this thread.
    bool removeListener(Listener* pListener);

    bool onData(ReferencePtr<utils::MemoryBlock> cBlock) override;
    void onError(const std::string& text) override;
    utils::ReferenceCountedObject* countedSelf() override { return this; }

    // The receiver's quiet wait.
    void setDrain(bool bDrain) { mbDrain.store(bDrain, std::memory_order_relaxed); }
    /// Bytes came since the last call, while draining.
    bool takeActivity() { return mbActivity.exchange(false, std::memory_order_relaxed); }
    /// Forgets the partial packet in the reassembly buffer.
    void clearBuffer();

 private:
    void append(const uint8_t* pBytes, uint32_t uLength) REQUIRES(mcBufferLock);
    /// Cuts the next packet out of the buffer; false when more bytes must come first.
    bool takePacket(uint32_t& uStreamID, ReferencePtr<utils::MemoryBlock>& cPacket) REQUIRES(mcBufferLock);
    uint32_t findStreamID(_findStreamID& cMatcher) const REQUIRES(mcBufferLock);
    void dispatch(uint32_t uStreamID, ReferencePtr<utils::MemoryBlock> cBlock);
    template <typename PacketClass>
    void deliver(void (Listener::*handle)(ReferencePtr<PacketClass>),
                 ReferencePtr<utils::MemoryBlock> cBlock);

    utils::NamedLock mcBufferLock{"VITA49ZelvarProtocol::mcBufferLock"};
    utils::MemoryBlock mcBuffer GUARDED_BY(mcBufferLock);
    std::atomic<bool> mbDrain{false};
    std::atomic<bool> mbActivity{false};
    utils::NamedLock mcListenersLock{"VITA49ZelvarProtocol::mcListenersLock"};
    std::vector<Listener*> mlListeners GUARDED_BY(mcListenersLock);
};
