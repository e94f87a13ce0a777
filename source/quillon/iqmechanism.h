#pragma once

#include "links/vita49protocol.h"
#include "receivers/packetengines.h"

namespace Quillon {

/// The IQ engine of the second family: every capture comes as complex packets.
class _IQMechanism final : public PacketIQEngine<VITA49Protocol> {
 public:
    _IQMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream, const StreamRanges& cRanges,
                 DataProtocolSource<VITA49Protocol> protocol)
        : PacketIQEngine(std::move(cContext), std::move(cStream), cRanges, kWords, std::move(protocol)) {}

    // VITA49Protocol::Listener, on the polling thread
    /// Asserts on a payload format that is none of the family's.
    void handleIFData(ReferencePtr<VITA49::IFData> cPacket) override;
    void handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) override;
    void handleExtensionData(ReferencePtr<VITA49::ExtensionData>) override {}
    void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) override;

 protected:
    ReferencePtr<IQCapture> plan(const IQRequest& cRequest) override;

 private:
    static const IQEngineWords kWords;

    float mfReferenceLevel = -30.0f;   // the polling thread's own
};

}  // namespace Quillon
