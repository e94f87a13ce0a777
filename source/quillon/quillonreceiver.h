#pragma once

#include "links/vita49protocol.h"
#include "quillon/ranges.h"
#include "receivers/packetreceiver.h"

namespace Quillon {
class _IQMechanism;
class _SweepMechanism;
}  // namespace Quillon

/// The device object of the second family.
class QuillonReceiver final
    : public PacketReceiver<VITA49Protocol, Quillon::_IQMechanism, Quillon::_SweepMechanism> {
 public:
    /// Opens the unit. May throw utils::RuntimeErrors::Error ("Only TCP/IP currently supported for Quillon").
    QuillonReceiver(std::string connectionType, std::string host, bool bHiSLIP);
    ~QuillonReceiver() override { endReceiver(); }

    // ReceiverDevice
    FloatRange centreRange() const override { return mcCentreHz; }
    FloatRange rbwRange() const override { return Quillon::kRBWRange; }
    FloatRange ifbwRange() const override { return Quillon::kIFBWRange; }
    FloatRange referenceLevelRange() const override { return Quillon::kReferenceLevelRange; }

    // VITA49Protocol::Listener, on the polling thread
    void handleIFData(ReferencePtr<VITA49::IFData> cPacket) override;
    void handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) override;
    void handleExtensionData(ReferencePtr<VITA49::ExtensionData> cPacket) override;
    void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) override;

 private:
    FloatRange mcCentreHz{0.0f, 0.0f};   // written during the opening, only read afterwards

    /// Any type will do that a device type has accepted; the unit itself says how far it can be tuned.
    bool takeModel(const std::string& type) override;
    float sampleRate() const override { return static_cast<float>(Quillon::kSampleRateHz); }
    ReferencePtr<IQEngine> makeIQEngine(const ReferencePtr<IQFrameSink>& cSink,
                                        const StreamRanges& cRanges) override;
    ReferencePtr<SweepEngine> makeSweepEngine(const ReferencePtr<SpectrumFrameSink>& cSink,
                                              const StreamRanges& cRanges) override;
};
