#pragma once

#include <atomic>
#include <list>

#include "flows/entity.h"
#include "flows/frame.h"
#include "foundations/barrier.h"
#include "foundations/namedlock.h"

class FrameSource;

/// A bounded queue of frames between a producer's thread and a consumer's. See FrameSource for the contract.
///
/// The source and the listener are plain pointers. Where they belong to a counted object (FrameSource::
/// countedSelf), every call through them holds that object, and its end clears the pointer first.
///
/// Locks, outermost first: mcAttachLock (one attach or detach of this sink at a time), the source's
/// mcSinksLock, mcSourceLock. The canImplement of a source, and isExhausted of one that is not counted, run under
/// mcSourceLock and must not wait for one who attaches or detaches. mcBufferLock is a leaf.
///
/// A frame whose duration is not a finite number makes the buffered seconds unusable: under a limit in
/// seconds that push drops all that may be dropped, and the count starts anew at 0.0.
class FrameSink : public Entity {
 public:
    /// What a sink tells of itself; usually the source listens.
    class Listener {
     public:
        virtual ~Listener() = default;
        virtual bool parametersChanged(ReferencePtr<FrameSink> cSink);
        virtual bool canImplement(ReferencePtr<FrameSink> cSink, utils::VariantRecord& cRecord,
                                  ErrorList& lErrors);
        /// A read has waited long; called once, a second before its limit.
        virtual void kick() {}
    };

    FrameSink();

    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;

    /// For listeners that outlive the sink's use of them; attaching and detaching set and clear it too.
    virtual void setListener(Listener* pListener);
    virtual bool setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet);
    /// On the producer's thread. Blocks only where a frame that must not be dropped stands first in a full
    /// queue, and gives way, with the frame queued, once the sink is detached.
    virtual void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast);
    virtual void setSource(FrameSource* pSource);
    virtual bool detachFromSource();
    virtual bool acceptsFrame(ReferencePtr<Frame> cFrame);
    virtual bool isExhausted();
    virtual bool isSourceExhausted();

    /// Null: none in time, or the marker of the stream's end.
    ReferencePtr<Frame> nextFrame(uint32_t uTimeoutMs, bool bMarkBusy);
    /// A consumer that marked itself busy has finished its frame.
    void endOfWork();
    /// Drops all queued frames.
    void flush();
    void setAllowDiscarding(bool bAllow) { mbAllowDiscarding.store(bAllow, std::memory_order_relaxed); }
    /// A source is attached.
    bool isAttached();
    FrameSource* sourcePointer();
    /// How often a source has been attached.
    uint32_t attachCount();
    uint32_t discardCount() const { return muDiscardCount.load(std::memory_order_relaxed); }
    /// Keys that a source answers for this sink (a receiver's realised values): replaced in the record from
    /// which getParameters starts, with no notification.
    void setBaseParameters(const utils::VariantRecord& cRecord);
    void eraseBaseParameter(const std::string& key);

 protected:
    /// The subclass's hook in the parameter chain.
    virtual bool integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors);
    /// Offers the current parameters, overlaid with the new ones, to the source. True without a source.
    bool negotiate(const utils::VariantRecord& cRecord, ErrorList& lErrors);
    /// setSource(null), unless a source has been attached since the count was taken.
    void clearSource(uint32_t uAttachCount);
    /// Lets a read that waits look whether it is over.
    void wakeReader() { mcBufferSync.signal(); }
    /// Asked when a read that waits has been woken: true ends it without a frame. On the reader's thread.
    virtual bool isReadOver() { return false; }
    /// A frame leaves the queue for a reader. Called under mcBufferLock, so in the order of the queue
    /// however many readers there are; a leaf.
    virtual void frameTaken(const Frame&) {}

    /// A source or listener with its counted object held; null when there is none or it is at its end. Let
    /// go outside all locks: it may be the last reference.
    struct SourceHold {
        FrameSource* mpSource = nullptr;
        Listener* mpListener = nullptr;
        ReferencePtr<utils::ReferenceCountedObject> mcCounted;
        uint32_t muAttachCount = 0;
    };
    SourceHold holdSource();
    SourceHold holdListener();

    /// While one exists no push blocks: whoever detaches may have to wait for the producer.
    class DetachNotice {
     public:
        explicit DetachNotice(FrameSink& cSink) : mcSink(cSink) { ++mcSink.muDetaching; }
        /// Another detach of the sink is going on too.
        bool isNotAlone() const { return mcSink.muDetaching > 1; }
        ~DetachNotice() { --mcSink.muDetaching; }
        DetachNotice(const DetachNotice&) = delete;
        DetachNotice& operator=(const DetachNotice&) = delete;

     private:
        FrameSink& mcSink;
    };

    utils::NamedLock mcSourceLock{"FrameSink::mcSourceLock"};

 private:
    friend class FrameSource;
    struct BufferSettings;  // the four parameters of every sink, while they are checked
    BufferSettings takeBufferSettings(utils::VariantRecord& cRecord, ErrorList& lErrors);
    bool withinLimits() REQUIRES(mcBufferLock);
    bool dropOldest(std::list<ReferencePtr<Frame>>& lDropped) REQUIRES(mcBufferLock);
    bool mayBlock(uint32_t uDetachCount) const;
    bool takeFrame(bool bMarkBusy, ReferencePtr<Frame>& cFrame);
    bool hasListener();
    void forgetSource() REQUIRES(mcSourceLock);
    /// setSource(null) if `pSource` is the one held. The caller has mcAttachLock.
    void releaseFrom(const FrameSource* pSource) REQUIRES(mcAttachLock);

    utils::NamedLock mcAttachLock{"FrameSink::mcAttachLock"};
    Listener* mpListener GUARDED_BY(mcSourceLock) = nullptr;
    FrameSource* mpSource GUARDED_BY(mcSourceLock) = nullptr;
    utils::ReferenceCountedObject* mpSourceCounted GUARDED_BY(mcSourceLock) = nullptr;
    uint32_t muAttachCount GUARDED_BY(mcSourceLock) = 0;
    std::atomic<bool> mbAttached{false};
    std::atomic<uint32_t> muDetachCount{0};  // a push that blocks gives way when it changes
    std::atomic<uint32_t> muDetaching{0};
    std::atomic<uint32_t> muBufferFrames{10};
    std::atomic<float> mfBufferSec{0.0f};
    std::atomic<float> mfDiscardProportion{0.0f};
    std::atomic<bool> mbFlowControl{false};
    std::atomic<bool> mbAllowDiscarding{false};
    utils::NamedLock mcBaseLock{"FrameSink::mcBaseLock"};
    utils::VariantRecord mcBaseParameters GUARDED_BY(mcBaseLock);
    std::atomic<uint32_t> muDiscardCount{0};
    utils::NamedLock mcBufferLock{"FrameSink::mcBufferLock"};
    bool mbEndSeen GUARDED_BY(mcBufferLock) = false;
    std::list<ReferencePtr<Frame>> mlQueue GUARDED_BY(mcBufferLock);
    bool mbConsumerBusy GUARDED_BY(mcBufferLock) = false;
    float mfBufferedSec GUARDED_BY(mcBufferLock) = 0.0f;
    utils::Barrier mcBufferSync{"FrameSink::mcBufferSync"};
    utils::Barrier mcConsumerSync{"FrameSink::mcConsumerSync"};
};
