#pragma once

#include "flows/iqconversion.h"
#include "links/zelvar-vita49protocol.h"
#include "receivers/packetengines.h"
#include "zelvar/iqplan.h"
#include "zelvar/modeltable.h"
#include "zelvar/rlamechanism.h"

/// What the packets of the first family are handed to; implemented by its engines.
using ZelvarPacketListener = VITA49ZelvarProtocol::Listener;

/// A capture with what its packets are decoded by. The last three fields belong to the polling thread.
class ZelvarIQCapture : public IQCapture {
 public:
    IQPlan mcPlan;
    IQConversion mcConversion;
    std::optional<float> mcGainReference;
    float mfGain = 0.0f;

    /// Full scale of the digitizer to square roots of milliwatts; in single precision, computed once for a
    /// reference level.
    float gainFor(float fDigitizerReference);
};

/// The IQ engine of the first family: decimated captures come as complex packets, captures at full rate as
/// real ones that are converted here.
class _IQMechanism final : public PacketIQEngine<VITA49ZelvarProtocol> {
 public:
    _IQMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream,
                 const ModelRecord& cModel, const StreamRanges& cRanges,
                 DataProtocolSource<VITA49ZelvarProtocol> protocol);

    // IQCaptureEngine: while the reference level is being found, that has the radio, and the stream is held back.
    void takeInStream() override;
    bool start() override;
    void stop(bool bQuiesce) override;
    bool process() override;

    // ZelvarPacketListener, on the polling thread
    void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) override;
    void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) override;
    void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) override;
    void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) override;
    /// Asserts on a packet of another length than the conversion takes.
    void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) override;
    void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24>) override {}

 protected:
    ReferencePtr<IQCapture> plan(const IQRequest& cRequest) override;

 private:
    ReferencePtr<ZelvarIQCapture> validCapture(const char* pWhenInvalid);
    ReferencePtr<IOnlyFrame> _interpretI14(ZelvarIQCapture& cCapture,
                                           const ReferencePtr<VITA49Zelvar::IFDataI14>& cI14);

    void endAdaptation(const _RLAMechanism& cRLA);

    GuardedReference<_RLAMechanism> mcRLA;   // null once adaptation has ended
    ModelRecord mcModel;
    std::atomic<float> mfReportedTuningHz{0.0f};
    std::atomic<float> mfDigitizerReference{-30.0f};
};
