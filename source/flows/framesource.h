#pragma once

#include "flows/framesink.h"

/// What a next expected sequence holds while none is expected.
inline constexpr uint32_t kNoSequence = 0xFFFFFFFFu;

/// Pushes frames to the sinks attached to it. Frames are shared among the sinks, never copied. A null frame
/// is the end of a stream.
///
/// Locks: the sink's mcAttachLock, then mcSinksLock, then the sink's mcSourceLock; never the other way round.
/// Frames are delivered outside all of them, so that a sink may receive one last frame in flight after it has
/// been removed.
class FrameSource : public FrameSink::Listener {
 public:
    explicit FrameSource(std::string name);
    /// Lets all sinks go. A counted class calls releaseSinks() first thing in its own destructor.
    ~FrameSource() override;

    virtual bool deliverFrame(ReferencePtr<Frame> cFrame, bool bLast);
    virtual bool isExhausted();
    virtual bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors);
    /// A null sink means all. True when a sink was in the list.
    virtual bool removeFrameSink(ReferencePtr<FrameSink> cSink);
    /// The counted object that this source is part of; null for one whose owner outlives all its sinks.
    virtual utils::ReferenceCountedObject* countedSelf() { return nullptr; }

    uint32_t gapCount() const { return muGapCount.load(std::memory_order_relaxed); }
    const std::string& sourceName() const { return mcName; }
    size_t sinkCount();

 protected:
    void releaseSinks();

 private:
    void noteSequence(uint32_t uSequence);
    void removeAll();
    /// Clears the sink's pointer to this source unless the sink has been attached again.
    void letGo(FrameSink& cSink);
    bool holds(const FrameSink& cSink) REQUIRES(mcSinksLock);

    bool mbReleased = false;
    std::string mcName;
    std::atomic<uint32_t> muNextSequence{kNoSequence};
    utils::NamedLock mcSinksLock{"FrameSource::mcSinksLock"};
    std::list<ReferencePtr<FrameSink>> mlSinks GUARDED_BY(mcSinksLock);
    std::atomic<uint32_t> muGapCount{0};
};

/// Next expected sequence after one: plus 1, but 0 after 0xFFFFFFFE and 0xFFFFFFFF.
inline uint32_t nextSequenceAfter(uint32_t uSequence) {
    return uSequence >= 0xFFFFFFFEu ? 0 : uSequence + 1;
}
