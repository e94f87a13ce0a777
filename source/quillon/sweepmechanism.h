#pragma once

#include <functional>

#include "links/vita49protocol.h"
#include "receivers/ifbwflatten.h"
#include "receivers/sweepengine.h"

namespace Quillon {

/// The sweep engine of the second family.
class _SweepMechanism final : public SweepCaptureEngine, public VITA49Protocol::Listener {
 public:
    using DataProtocol = std::function<ReferencePtr<VITA49Protocol>()>;

    _SweepMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<SpectrumFrameSink> cStream,
                    const StreamRanges& cRanges, DataProtocol dataProtocol, ReferencePtr<_IFBWFlatten> cFlatten);
    ~_SweepMechanism() override;

    // VITA49Protocol::Listener, on the polling thread
    /// Asserts on a payload format that is none of the family's.
    void handleIFData(ReferencePtr<VITA49::IFData> cPacket) override;
    void handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) override;
    void handleExtensionData(ReferencePtr<VITA49::ExtensionData>) override {}
    void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) override;

 protected:
    ReferencePtr<SweepConfiguration> configure(const SweepRequest& cRequest, std::string& message) override;
    void sendList(const SweepConfiguration& cConfiguration, bool bEndless) override;
    void drainInput() override;
    void noteTaken(const BlockGatherer::Result& cResult) override;

 private:
    float mfHighestHz;
    DataProtocol mcDataProtocol;
    ReferencePtr<_IFBWFlatten> mcFlatten;
};

}  // namespace Quillon
