#pragma once

#include <memory>

#include "foundations/guardedreference.h"
#include "foundations/runtimeerrors.h"
#include "receivers/radioreceiver.h"

/// A receiver whose packets come by one data protocol: its link, and the way of a packet to the engine that has the
/// radio. All its engines are of the two classes, which listen to that protocol.
template <typename DataProtocol, typename IQMechanism, typename SweepMechanism>
class PacketReceiver : public RadioReceiver, public DataProtocol::Listener {
 public:
    using Listener = typename DataProtocol::Listener;

 protected:
    using DataLink = GuardedReference<DataProtocol>;

    using RadioReceiver::RadioReceiver;

    /// The present protocol, for engines: they may outlive the receiver for a moment, and hold a share of the link.
    auto dataProtocolSource() {
        return [cLink = mcEngineLink] { return cLink->get(); };
    }

    /// Null once the end of the receiver has begun: its packets are nobody's then. Who takes more from a packet than
    /// dispatch does holds the receiver meanwhile.
    ReferencePtr<RadioReceiver> holdSelf() {
        return this->tryAddReference() ? ReferencePtr<RadioReceiver>::adopt(this) : ReferencePtr<RadioReceiver>();
    }

    /// To the engine that has the radio, if any.
    template <typename Packet>
    void dispatch(const char* pUnexpected, void (Listener::*pHandle)(ReferencePtr<Packet>),
                  const ReferencePtr<Packet>& cPacket) {
        const ReferencePtr<RadioReceiver> cSelf = holdSelf();
        if (!cSelf)
            return;
        resetLinkWatch();
        if (const ReferencePtr<IQEngine> cIQ = scheduler().activeIQ())
            return handOn(static_cast<IQMechanism&>(*cIQ), pHandle, cPacket);
        if (const ReferencePtr<SweepEngine> cSweep = scheduler().activeSweep())
            return handOn(static_cast<SweepMechanism&>(*cSweep), pHandle, cPacket);
        utils::reportError(kUnexpectedPacket, pUnexpected);
    }

    // RadioReceiver
    void makeDataProtocol(ReferencePtr<Transport> cTransport) override {
        mcDataProtocol.set(makeReference<DataProtocol>(std::move(cTransport)));
    }
    bool isDataProtocolOpen() const override {
        const ReferencePtr<DataProtocol> cProtocol = mcDataProtocol.get();
        return cProtocol && cProtocol->isOpen();
    }
    void listen() override { mcDataProtocol.get()->addListener(this); }
    void dropDataProtocol() override {
        if (const ReferencePtr<DataProtocol> cProtocol = mcDataProtocol.exchange({}))
            cProtocol->removeListener(this);
    }
    void shareDataProtocol(bool bPresent) override {
        mcEngineLink->set(bPresent ? mcDataProtocol.get() : ReferencePtr<DataProtocol>());
    }

 private:
    static constexpr int32_t kUnexpectedPacket = -6019;

    template <typename Packet>
    static void handOn(Listener& cEngine, void (Listener::*pHandle)(ReferencePtr<Packet>),
                       const ReferencePtr<Packet>& cPacket) {
        (cEngine.*pHandle)(cPacket);
    }

    DataLink mcDataProtocol;
    std::shared_ptr<DataLink> mcEngineLink = std::make_shared<DataLink>();
};
