#pragma once

#include "links/zelvar-vita49protocol.h"
#include "receivers/packetreceiver.h"
#include "zelvar/modeltable.h"

class _IQMechanism;
class _SweepMechanism;

/// The device object of the first family.
class ZelvarReceiver final : public PacketReceiver<VITA49ZelvarProtocol, _IQMechanism, _SweepMechanism> {
 public:
    /// Opens the unit. May throw utils::RuntimeErrors::Error ("Only TCP/IP currently supported for Zelvar").
    ZelvarReceiver(std::string connectionType, std::string host, bool bHiSLIP);
    ~ZelvarReceiver() override;

    // ReceiverDevice
    FloatRange centreRange() const override { return {mcModel.mfLowestHz, mcModel.mfHighestHz}; }
    FloatRange rbwRange() const override { return {1.0f, 10000000.0f}; }
    FloatRange ifbwRange() const override { return {100000.0f, 40000000.0f}; }
    FloatRange referenceLevelRange() const override { return {-80.0f, 20.0f}; }

    // VITA49ZelvarProtocol::Listener, on the polling thread
    void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) override;
    void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) override;
    void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) override;
    void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) override;
    void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) override;
    void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24> cPacket) override;

 private:
    bool takeModel(const std::string& type) override;
    float sampleRate() const override { return mcModel.mfSampleRateHz; }
    std::atomic<bool>* inhibitFlag() override { return &mbInhibitContinuousSweep; }
    ReferencePtr<IQEngine> makeIQEngine(const ReferencePtr<IQFrameSink>& cSink,
                                        const StreamRanges& cRanges) override;
    ReferencePtr<SweepEngine> makeSweepEngine(const ReferencePtr<SpectrumFrameSink>& cSink,
                                              const StreamRanges& cRanges) override;

    std::atomic<bool> mbI14Seen{false};
    std::atomic<bool> mbInhibitContinuousSweep{false};
    ModelRecord mcModel{};   // written during the opening, only read afterwards
};
