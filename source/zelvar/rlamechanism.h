#pragma once

#include <atomic>
#include <functional>
#include <optional>

#include "foundations/namedlock.h"
#include "links/zelvar-vita49protocol.h"
#include "receivers/enginecontext.h"
#include "zelvar/adaptationplan.h"

/// Finds the reference level for an IQ stream by measuring: short trial captures at six settings. The first
/// trial is started by the receiver thread, those behind it by the packet that ends the one before.
class _RLAMechanism final : public utils::ReferenceCountedObject, public VITA49ZelvarProtocol::Listener {
 public:
    _RLAMechanism(ReferencePtr<EngineContext> cContext, std::optional<float> cCentreHz, const ModelRecord& cModel,
                  const StreamRanges& cRanges);

    /// Begins anew with the first step; true when its data came.
    bool start();
    void stop();
    bool isFinished() const { return muStep == kAdaptationSteps; }
    /// The reference level; -1000 unless finished.
    float result() const;

    // On the polling thread.
    void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext>) override {}
    void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext>) override {}
    void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) override;
    void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) override;
    void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) override;
    void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24>) override {}

 private:
    bool runTrial(const AdaptationPlan& cPlan);
    bool awaitData(uint32_t uStep, uint32_t uIdentifier);
    void count(uint32_t uPeak);
    std::optional<AdaptationPlan> plan() const;

    ReferencePtr<EngineContext> mcContext;
    std::optional<float> mcCentreHz;
    ModelRecord mcModel;
    StreamRanges mcRanges;
    std::atomic<uint32_t> muStreamID{~uint32_t{0}};
    std::atomic<bool> mbDataValid{false};
    std::atomic<bool> mbStarted{false};
    std::atomic<uint32_t> muStep{0};
    std::atomic<uint32_t> muPacketsCounted{0};
    std::atomic<bool> mbMultiEntry{false};
    mutable utils::NamedLock mcMeasuredLock{"_RLAMechanism::mcMeasuredLock"};
    std::optional<AdaptationPlan> mcPlan GUARDED_BY(mcMeasuredLock);
    AdaptationLevels mfPeakLevels GUARDED_BY(mcMeasuredLock);
};
