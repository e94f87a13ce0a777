#pragma once

#include "links/zelvar-vita49protocol.h"
#include "receivers/packetengines.h"
#include "zelvar/modeltable.h"
#include "zelvar/reconstruction.h"

/// A sweep of the first family: real samples, as they are digitized or from the intermediate frequency.
class ZelvarSweepConfiguration final : public SweepConfiguration {
 public:
    /// `cFlatten` may be null: the unit has no correction data.
    ZelvarSweepConfiguration(const SweepRequest& cRequest, const SweepPlan& cPlan,
                             ReferencePtr<_IFBWFlatten> cFlatten);

    std::optional<uint32_t> placeOf(uint64_t uFrequencyHz) const override;
    uint32_t binsAt(uint32_t uPlace) const override;
    bool reconstruct(const SweepBlock& cBlock, uint32_t uPlace, float fUserCaldB, float* pOutput) override;

 private:
    BlockTransform mcTransform;
    ReferencePtr<_IFBWFlatten> mcFlatten;
};

/// The sweep engine of the first family.
class _SweepMechanism final : public PacketSweepEngine<VITA49ZelvarProtocol> {
 public:
    _SweepMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<SpectrumFrameSink> cStream,
                    const ModelRecord& cModel, const StreamRanges& cRanges,
                    DataProtocolSource<VITA49ZelvarProtocol> protocol, ReferencePtr<_IFBWFlatten> cFlatten);

    // On the polling thread.
    void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) override;
    void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) override;
    void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) override;
    void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14>) override {}
    void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) override;
    void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24>) override {}

 protected:
    ReferencePtr<SweepConfiguration> configure(const SweepRequest& cRequest, std::string& message) override;
    void sendList(const SweepConfiguration& cConfiguration, bool bEndless) override;

 private:
    ModelRecord mcModel;
};
