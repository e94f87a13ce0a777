#pragma once

#include <functional>

#include "links/vita49protocol.h"
#include "receivers/iqengine.h"

namespace Quillon {

/// The IQ engine of the second family: every capture comes as complex packets.
class _IQMechanism final : public IQCaptureEngine, public VITA49Protocol::Listener {
 public:
    using DataProtocol = std::function<ReferencePtr<VITA49Protocol>()>;

    _IQMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream, const StreamRanges& cRanges,
                 DataProtocol dataProtocol);
    ~_IQMechanism() override;

    // VITA49Protocol::Listener, on the polling thread
    /// Asserts on a payload format that is none of the family's.
    void handleIFData(ReferencePtr<VITA49::IFData> cPacket) override;
    void handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) override;
    void handleExtensionData(ReferencePtr<VITA49::ExtensionData>) override {}
    void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) override;

 protected:
    ReferencePtr<IQCapture> plan(const IQRequest& cRequest) override;
    void drainInput() override;

 private:
    StreamRanges mcPlanRanges;
    DataProtocol mcDataProtocol;
    float mfReferenceLevel = -30.0f;   // the polling thread's own
};

}  // namespace Quillon
