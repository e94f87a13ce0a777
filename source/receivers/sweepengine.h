#pragma once

#include <atomic>
#include <list>

#include "flows/spectrumframesink.h"
#include "foundations/barrier.h"
#include "foundations/guardedreference.h"
#include "links/vrtpacket.h"
#include "receivers/blockgatherer.h"
#include "receivers/engine.h"
#include "receivers/enginecontext.h"

/// One sweep as it was planned, with what its blocks are transformed by. Made and used by the receiver thread;
/// others read what does not change.
class SweepConfiguration : public utils::ReferenceCountedObject {
 public:
    SweepRequest mcRequest;
    SweepPlan mcPlan;
    uint32_t muValuesPerSample = 1;   // floats: 2 for complex samples
    uint32_t muSampleRateHz = 0;

    /// The place of a block in the spectrum; empty for one that lies outside. Asserts on a place behind the last.
    virtual std::optional<uint32_t> placeOf(uint64_t uFrequencyHz) const = 0;
    /// Bins that a block at this place contributes.
    virtual uint32_t binsAt(uint32_t uPlace) const = 0;
    /// Writes them, in the unit of the frame. False, with a log line, for a block that cannot be transformed.
    virtual bool reconstruct(const SweepBlock& cBlock, uint32_t uPlace, float fUserCaldB, float* pOutput) = 0;
};

/// What differs between the families: log texts, and how far parameters and backlog are followed.
struct SweepEngineWords {
    const char* mpBadSetup;
    const char* mpInvalidData;   // data before the first context of this sweep
    const char* mpNoData;
    const char* mpWrongSize;
    const char* mpValidData;
    bool mbFollowsEdgesOnly = false;   // a new span or resolution bandwidth plans anew, nothing else
    bool mbCatchesUp = false;          // a consumer that is behind by a sweep leaves it out
};

/// What the families' sweep engines share: planning when parameters have changed, programming when the unit
/// does not hold the list, gathering and queueing blocks, joining them to frames, counts, flow control and the
/// stop. A family plans, writes the command texts, decodes packets and transforms blocks.
///
/// Packets come on the polling thread, `process` runs on the receiver thread; they meet at the queue alone.
class SweepCaptureEngine : public SweepEngine {
 public:
    SweepCaptureEngine(std::string name, ReferencePtr<EngineContext> cContext,
                       ReferencePtr<SpectrumFrameSink> cStream, const StreamRanges& cRanges,
                       const SweepEngineWords& cWords);
    ~SweepCaptureEngine() override;

    // ReceiverEngine, SweepEngine
    bool serves(const FrameSink* pSink) const override;
    void takeInStream() override;
    bool start(bool bContinuous) override;
    bool stop() override;
    bool process() override;
    bool runsContinuously() const override;
    void linkChanged() override;

    // FrameSource, FrameSink::Listener
    bool removeFrameSink(ReferencePtr<FrameSink> cSink) override;
    bool parametersChanged(ReferencePtr<FrameSink> cSink) override;
    bool canImplement(ReferencePtr<FrameSink> cSink, utils::VariantRecord& cRecord,
                      ErrorList& lErrors) override;

    size_t queuedBlocks();

 protected:
    /// Null, with what to log in `message`, when the request cannot be swept.
    virtual ReferencePtr<SweepConfiguration> configure(const SweepRequest& cRequest, std::string& message) = 0;
    /// Sends the list. Throws as CommandChannel::sendBatch.
    virtual void sendList(const SweepConfiguration& cConfiguration, bool bEndless) = 0;
    /// Waits until no old packets are left in the input.
    virtual void drainInput() = 0;
    // For the log of a family that tells more of it: a block has been opened, a packet has gone into one.
    virtual void noteOpened(uint64_t) {}
    virtual void noteTaken(const BlockGatherer::Result&) {}
    /// What the destructor of a family does: the unit stops, and nothing of the engine is called from then on.
    void endEngine();
    const StreamRanges& ranges() const { return mcRanges; }
    CommandChannel& channel() { return mcContext->channel(); }

    // Packets, on the polling thread.
    void noteIdentifier(uint32_t uIdentifier);
    /// A context that stands in front of a list.
    void noteExtension(const VRT::CaptureFields& cFields);
    bool isDataValid() const;
    BlockGatherer& gatherer() { return mcGatherer; }
    /// The epoch is the gatherer's from before the data was found valid: none of an earlier list slips through.
    void takeSamples(const SamplePacket& cPacket);
    /// The unit runs this engine's list, as far as is known.
    bool holdsList() const;

 private:
    enum class Step { kGoOn, kFrame, kEnded };
    bool plan();
    bool _configureSweep();
    void beginAnew();
    bool _programSweep();
    void program(const SweepConfiguration& cConfiguration);
    bool isEndless(const SweepConfiguration& cConfiguration) const;
    bool sendStart();
    bool awaitData();
    bool hasChanged(const utils::VariantRecord& cNew) const;
    void queueBlock(SweepBlock cBlock, const SweepConfiguration& cConfiguration);
    std::optional<SweepBlock> takeBlock();
    std::optional<SweepBlock> takeNextBlock(const SweepPlan& cPlan);
    bool dropToNextSweep(const SweepPlan& cPlan);
    void clearQueue();
    void dropSpectrum();
    void gather(const SamplePacket& cPacket);
    void noteSilence();
    Step takeIn(const SweepBlock& cBlock, SweepConfiguration& cConfiguration);
    Step join(const SweepBlock& cBlock, SweepConfiguration& cConfiguration);
    bool addBlock(const SweepBlock& cBlock, uint32_t uPlace, SweepConfiguration& cConfiguration);
    Step finishFrame(const SweepBlock& cLast, const SweepConfiguration& cConfiguration);

    ReferencePtr<EngineContext> mcContext;
    GuardedReference<SpectrumFrameSink> mcStream;
    StreamRanges mcRanges;
    SweepEngineWords mcWords;
    GuardedReference<SweepConfiguration> mcConfiguration;
    utils::NamedLock mcParametersLock{"SweepConfiguration::mcParametersLock"};
    utils::VariantRecord mcParameters GUARDED_BY(mcParametersLock);   // the last ones read

    // Flags that several threads look at.
    std::atomic<bool> mbConfigured{false};
    std::atomic<bool> mbProgrammed{false};
    std::atomic<bool> mbTakenIn{false};
    std::atomic<bool> mbAsking{false};   // under flow control each block asks for the next list
    std::atomic<bool> mbStreaming{false};
    std::atomic<bool> mbContinuous{false};
    std::atomic<bool> mbStopProcessing{false};
    std::atomic<bool> mbNewConfiguration{false};   // counts and numbers begin anew with the next programming
    std::atomic<uint32_t> muChanges{0};            // of the stream's parameters
    std::atomic<uint32_t> muIdentifier{0};
    std::atomic<uint32_t> muSeenIdentifier{~uint32_t{0}};
    std::atomic<uint64_t> muClaim{0};
    std::atomic<uint32_t> muFramesToGo{0};
    std::atomic<float> mfUserCaldB{0.0f};

    BlockGatherer mcGatherer;
    utils::NamedLock mcSpectrumFrameAssemblyLock{"SweepConfiguration::mcSpectrumFrameAssemblyLock"};
    std::list<SweepBlock> mlQueue GUARDED_BY(mcSpectrumFrameAssemblyLock);
    utils::Barrier mcReconstructionThreadBarrier{"SweepConfiguration::mcReconstructionThreadBarrier"};

    // The receiver thread's own.
    bool mbListEndless = false;
    bool mbIdle = false;   // nothing has come of a list that runs only when asked
    uint32_t muSilences = 0;   // turns in a row in which nothing has come
    uint32_t muFrameSequence = 0;
    ReferencePtr<FloatArray> mcSpectrumBuffer;
    uint64_t muFrameStartNs = 0;
    uint32_t muBlocksDone = 0;
    uint32_t muSpectrumWriteOffset = 0;
};

/// One whole sweep goes out of a queue whose consumer has fallen behind: from the first block of the first
/// centre to the first one of the last centre behind it. What is older stays.
void dropOldestSweep(std::list<SweepBlock>& lQueue, const SweepPlan& cPlan, std::list<SweepBlock>& lDropped);
