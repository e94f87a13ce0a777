#pragma once

#include <atomic>

#include "flows/iqframesink.h"
#include "foundations/barrier.h"
#include "foundations/guardedreference.h"
#include "links/vrtpacket.h"
#include "receivers/captureplan.h"
#include "receivers/engine.h"
#include "receivers/enginecontext.h"
#include "receivers/iqrequest.h"

/// One capture, as it was planned and as far as it has come. The receiver thread makes it and arms it;
/// packets keep the one that they came for, so that a late packet never counts into the next capture.
class IQCapture : public utils::ReferenceCountedObject {
 public:
    // The plan; not changed once armed.
    IQRequest mcRequest;
    std::string mcCommands;         // the joined set-up
    std::string mcRefusal;          // why the set-up does not do; empty when it does
    bool mbFinite = false;          // the unit ends the capture by itself
    float mfTunedCentreHz = 0.0f;
    uint64_t muCaptureSamples = 0;  // 0: endless
    float mfSampleRateHz = 0.0f;
    std::optional<float> mcMaxContiguousSec;
    bool mbContiguous = false;
    float mfLevelLow = 0.0f;
    float mfLevelHigh = 0.0f;
    uint32_t muIdentifier = 0;

    // The progress.
    std::atomic<bool> mbDataValid{false};  // a context with this capture's identifier has been seen
    std::atomic<bool> mbPacketSeen{false};
    std::atomic<uint32_t> muSequence{0};  // next frame number
    std::atomic<uint64_t> muSamplesDelivered{0};
    std::atomic<float> mfPeakLevel{kLevelNotMeasured};

    /// Takes over what was chosen.
    void take(const IQRequest& cRequest, const CapturePlan& cPlan);
    uint32_t takeSequence() { return muSequence.fetch_add(1, std::memory_order_relaxed); }
    /// All samples that were asked for have come.
    bool isComplete() const { return muCaptureSamples != 0 && muSamplesDelivered >= muCaptureSamples; }
    /// Raises the peak and marks the frame; a level of minus infinity (no signal at all) is below any bound.
    void noteLevel(Frame& cFrame, float fLevel);
};

/// What differs between the families: log texts, and whether the level is followed between captures.
struct IQEngineWords {
    const char* mpBadSetup;
    const char* mpStopsAtCount;
    const char* mpForceTerminated;
    const char* mpCompleted;
    const char* mpStreamIdentifier = "";
    const char* mpSweepIdentifier = "";
    bool mbAdaptsStep = true;
};

/// What the families' IQ engines share: the start and its wait for data, the restart flag, what is written
/// back to the stream, the stop, and the halt protocol by which a detaching thread and the receiver thread
/// meet. A family plans, writes the command texts and decodes packets.
class IQCaptureEngine : public IQEngine {
 public:
    IQCaptureEngine(std::string name, ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream,
                    const StreamRanges& cRanges, const IQEngineWords& cWords);
    ~IQCaptureEngine() override;

    // ReceiverEngine, IQEngine
    bool serves(const FrameSink* pSink) const override;
    void takeInStream() override;
    bool start() override;
    void stop(bool bQuiesce) override;
    bool process() override;
    bool takeRestart() override { return mbRestart.exchange(false); }
    bool isStreaming() const override { return mbStreaming; }
    bool waitForEndOfVRTData() override;
    bool terminate() override;
    void notifyHalted() override;
    bool syncHaltStream() override;
    void linkChanged() override;

    // FrameSource, FrameSink::Listener
    bool isExhausted() override;
    bool removeFrameSink(ReferencePtr<FrameSink> cSink) override;
    bool parametersChanged(ReferencePtr<FrameSink> cSink) override;
    bool canImplement(ReferencePtr<FrameSink> cSink, utils::VariantRecord& cRecord,
                      ErrorList& lErrors) override;
    void kick() override;

 protected:
    /// Chooses and writes the commands. Null, with a log line, when the request cannot be met.
    virtual ReferencePtr<IQCapture> plan(const IQRequest& cRequest) = 0;
    /// Waits until no old packets are left in the input.
    virtual void drainInput() = 0;

    /// The present capture; null before the first start and after the link was lost.
    ReferencePtr<IQCapture> capture() const { return mcCapture.get(); }
    /// A context carried a capture's identifier.
    void noteIdentifier(uint32_t uIdentifier);
    /// An extension context carried one, or two.
    void noteIdentifiers(const VRT::CaptureFields& cFields);
    void noteData() { mbDataSeen = true; }
    /// The capture that a data packet belongs to; null, with the text logged, while its context has not been seen.
    ReferencePtr<IQCapture> validCapture(const char* pWhenInvalid);
    /// False, with a report, for a packet that is not whole or holds nothing.
    static bool isUsable(const VRT::PacketFields& cPacket, const VRT::SampleFields& cSamples);
    /// Makes the frame of a packet of complex samples and delivers it.
    void deliverSamples(IQCapture& cCapture, const VRT::PacketFields& cPacket, const ReferencePtr<ComplexArray>& cSamples,
                        float fLevel);
    /// Marks the frame with what the trailer says, and delivers it.
    void deliverPacket(IQCapture& cCapture, const VRT::PacketFields& cPacket, const ReferencePtr<IQFrame>& cFrame,
                       uint32_t uSamples);
    static bool isLossy(const VRT::PacketFields& cPacket);
    static void appendStatus(Frame& cFrame, const char* pText);
    /// A detach has asked for the end, or has taken the stream away.
    bool isEnding() const;
    const StreamRanges& ranges() const { return mcRanges; }
    /// The stream served; null once it has been detached.
    ReferencePtr<IQFrameSink> stream() const { return mcStream.get(); }

 private:
    bool program(const ReferencePtr<IQCapture>& cCapture);
    bool arm(const ReferencePtr<IQCapture>& cCapture);
    bool awaitData(const IQCapture& cCapture);
    bool quiesce();
    void writeBack(IQFrameSink& cStream, const utils::VariantRecord& cParameters, const IQCapture& cCapture);
    void adaptStep();

    ReferencePtr<EngineContext> mcContext;
    GuardedReference<IQFrameSink> mcStream;
    StreamRanges mcRanges;
    IQEngineWords mcWords;
    GuardedReference<IQCapture> mcCapture;
    std::atomic<bool> mbTakenIn{false};
    std::atomic<bool> mbStreaming{false};
    std::atomic<bool> mbRestart{false};
    std::atomic<bool> mbForceTerminate{false};
    std::atomic<bool> mbDataSeen{false};
    std::atomic<bool> mbHalted{false};
    utils::Barrier mcHaltSyncBarrier{"_IQMechanism::mcHaltSyncBarrier"};
};
