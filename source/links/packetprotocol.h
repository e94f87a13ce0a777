#pragma once

#include <algorithm>
#include <atomic>
#include <vector>

#include "links/packetbuffer.h"
#include "links/protocol.h"

/// Cuts the byte stream of a data channel into packets and hands them to its listeners, on the polling
/// thread, with the listeners' lock held. A dialect gives the matcher, the listener and the dispatch.
template <typename ListenerClass, typename Matcher>
class PacketProtocol : public Protocol, public Transport::Callback {
 public:
    using Listener = ListenerClass;

    ~PacketProtocol() override {
        if (mcTransport)
            mcTransport->clearCallback(this);
    }

    std::string getName() const override { return "VITA49"; }
    void addListener(Listener* pListener);
    /// True if it was there. Waits for a listener call in progress, but not for one on this thread.
    bool removeListener(Listener* pListener);

    bool onData(ReferencePtr<utils::MemoryBlock> cBlock) override;
    void onError(const std::string&) override { VNK_ASSERT_TEXT(false, "false"); }
    utils::ReferenceCountedObject* countedSelf() override { return this; }

    // The receiver's quiet wait.
    void setDrain(bool bDrain) { mbDrain.store(bDrain, std::memory_order_relaxed); }
    /// Bytes came since the last call, while draining.
    bool takeActivity() { return mbActivity.exchange(false, std::memory_order_relaxed); }
    /// A packet has come in part.
    bool isInsidePacket();
    /// Forgets the partial packet in the reassembly buffer.
    void clearBuffer();

 protected:
    PacketProtocol(ReferencePtr<Transport> cTransport, const std::string& className)
        : Protocol(std::move(cTransport)),
          mcBufferLock(className + "::mcBufferLock"),
          mcListenersLock(className + "::mcListenersLock") {}

    /// The last act of a derived constructor: from here on the polling thread may come, though not before
    /// the first counted pointer holds the new object.
    void registerCallback() {
        // The second call finds the callback set and changes nothing.
        for (int i = 0; i < 2 && mcTransport; ++i)
            mcTransport->setCallback(this, kPollTimeoutMs, kChunkSize);
    }
    /// Builds the packet that the matcher has found and delivers it.
    virtual void dispatch(const Matcher& cMatch, ReferencePtr<utils::MemoryBlock> cBlock) = 0;
    template <typename PacketClass>
    void deliver(void (Listener::*handle)(ReferencePtr<PacketClass>), ReferencePtr<PacketClass> cPacket);

 private:
    static constexpr uint32_t kPollTimeoutMs = 10;
    static constexpr uint32_t kChunkSize = 0x40000;

    utils::NamedLock mcBufferLock;
    PacketBuffer mcBuffer GUARDED_BY(mcBufferLock);
    std::atomic<bool> mbDrain{false};
    std::atomic<bool> mbActivity{false};
    utils::NamedLock mcListenersLock;
    std::vector<Listener*> mlListeners GUARDED_BY(mcListenersLock);
};

template <typename ListenerClass, typename Matcher>
void PacketProtocol<ListenerClass, Matcher>::addListener(Listener* pListener) {
    utils::ScopedLock cGuard(mcListenersLock);
    if (std::find(mlListeners.begin(), mlListeners.end(), pListener) == mlListeners.end())
        mlListeners.push_back(pListener);
}

template <typename ListenerClass, typename Matcher>
bool PacketProtocol<ListenerClass, Matcher>::removeListener(Listener* pListener) {
    utils::ScopedLock cGuard(mcListenersLock);
    const auto found = std::find(mlListeners.begin(), mlListeners.end(), pListener);
    if (found == mlListeners.end())
        return false;
    mlListeners.erase(found);
    return true;
}

template <typename ListenerClass, typename Matcher>
bool PacketProtocol<ListenerClass, Matcher>::onData(ReferencePtr<utils::MemoryBlock> cBlock) {
    uint32_t uLength = 0;
    const uint8_t* pBytes = cBlock ? cBlock->getReadable(&uLength) : nullptr;
    if (!pBytes)
        return true;
    if (mbDrain.load(std::memory_order_relaxed))
        mbActivity.exchange(true, std::memory_order_relaxed);
    utils::ScopedLock cGuard(mcBufferLock);
    mcBuffer.append(pBytes, uLength);
    cBlock->setReadPosition(cBlock->getSize());
    Matcher cMatch;
    while (auto cPacket = mcBuffer.take(cMatch)) {
        // Listeners are free to clear the buffer, or to wait for a thread that does.
        cGuard.unlock();
        dispatch(cMatch, std::move(cPacket));
        cGuard.lock();
    }
    return true;
}

template <typename ListenerClass, typename Matcher>
bool PacketProtocol<ListenerClass, Matcher>::isInsidePacket() {
    utils::ScopedLock cGuard(mcBufferLock);
    return mcBuffer.holdsRest();
}

template <typename ListenerClass, typename Matcher>
void PacketProtocol<ListenerClass, Matcher>::clearBuffer() {
    utils::ScopedLock cGuard(mcBufferLock);
    mcBuffer.clear();
}

template <typename ListenerClass, typename Matcher>
template <typename PacketClass>
void PacketProtocol<ListenerClass, Matcher>::deliver(void (Listener::*handle)(ReferencePtr<PacketClass>),
                                                     ReferencePtr<PacketClass> cPacket) {
    utils::ScopedLock cGuard(mcListenersLock);
    // A listener may remove itself or another while it is called.
    const std::vector<Listener*> lCalled = mlListeners;
    for (Listener* pListener : lCalled)
        if (std::find(mlListeners.begin(), mlListeners.end(), pListener) != mlListeners.end())
            (pListener->*handle)(cPacket);
}
