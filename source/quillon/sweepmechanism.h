#pragma once

#include "links/vita49protocol.h"
#include "receivers/packetengines.h"

namespace Quillon {

/// The sweep engine of the second family.
class _SweepMechanism final : public PacketSweepEngine<VITA49Protocol> {
 public:
    _SweepMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<SpectrumFrameSink> cStream,
                    const StreamRanges& cRanges, DataProtocolSource<VITA49Protocol> protocol,
                    ReferencePtr<_IFBWFlatten> cFlatten)
        : PacketSweepEngine(std::move(cContext), std::move(cStream), cRanges, kWords, std::move(protocol),
                            std::move(cFlatten)) {}

    // VITA49Protocol::Listener, on the polling thread
    /// Asserts on a payload format that is none of the family's.
    void handleIFData(ReferencePtr<VITA49::IFData> cPacket) override;
    void handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) override;
    void handleExtensionData(ReferencePtr<VITA49::ExtensionData>) override {}
    void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) override;

 protected:
    ReferencePtr<SweepConfiguration> configure(const SweepRequest& cRequest, std::string& message) override;
    void sendList(const SweepConfiguration& cConfiguration, bool bEndless) override;
    void noteOpened(uint64_t uFrequencyHz) override;
    void noteTaken(const BlockGatherer::Result& cResult) override;

 private:
    static const SweepEngineWords kWords;
};

}  // namespace Quillon
