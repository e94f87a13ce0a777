#include "flows/framesink.h"

#include <algorithm>

#include "flows/framesource.h"
#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr int32_t kFrameDiscardCode = -3003;
constexpr uint64_t kBlockedStepUs = 10000;
constexpr uint64_t kKickLeadUs = 1000000;

}  // namespace

bool FrameSink::Listener::parametersChanged(ReferencePtr<FrameSink>) {
    return false;
}

bool FrameSink::Listener::canImplement(ReferencePtr<FrameSink>, utils::VariantRecord&, ErrorList& lErrors) {
    lErrors.push_back("Default ::canImplement fails");
    return false;
}

FrameSink::FrameSink() = default;

bool FrameSink::acceptsFrame(ReferencePtr<Frame>) {
    return true;
}

// The queue.

bool FrameSink::withinLimits() {
    const float fLimitSec = mfBufferSec.load(std::memory_order_relaxed);
    if (fLimitSec == 0.0f)
        return mlQueue.size() <= muBufferFrames.load(std::memory_order_relaxed);
    return mfBufferedSec <= fLimitSec;
}

bool FrameSink::dropOldest(std::list<ReferencePtr<Frame>>& lDropped) {
    const Frame* pHead = mlQueue.front().get();
    if (pHead) {
        if (!pHead->isDiscardable() && !mbAllowDiscarding.load(std::memory_order_relaxed))
            return false;
        mfBufferedSec -= pHead->getDurationSec();
    }
    lDropped.splice(lDropped.end(), mlQueue, mlQueue.begin());
    muDiscardCount.fetch_add(1, std::memory_order_relaxed);
    return true;
}

// A sink that has been detached takes what is still in flight to it without blocking: no consumer may be
// left to make room.
bool FrameSink::mayBlock(uint32_t uDetachCount) const {
    return muDetaching == 0 && muDetachCount == uDetachCount && (mbAttached || uDetachCount == 0);
}

void FrameSink::receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) {
    if (!acceptsFrame(cFrame))
        return;
    const uint32_t uDetachCount = muDetachCount;
    std::list<ReferencePtr<Frame>> lDropped;  // freed after the lock has been let go
    std::list<ReferencePtr<Frame>> lNew(1, cFrame);
    utils::ScopedLock cLock(mcBufferLock);
    mlQueue.splice(mlQueue.end(), lNew);
    mfBufferedSec += cFrame == nullptr ? 0.0f : cFrame->getDurationSec();
    const size_t uInitial = mlQueue.size();
    mbEndSeen = cFrame == nullptr;
    while (!withinLimits() && !mlQueue.empty()) {
        if (dropOldest(lDropped))
            continue;
        if (!mayBlock(uDetachCount))
            break;
        cLock.unlock();
        mcBufferSync.signal();
        mcConsumerSync.wait(kBlockedStepUs);
        cLock.lock();
    }
    if (mlQueue.empty())
        mfBufferedSec = 0.0f;
    const size_t uFinal = mlQueue.size();
    cLock.unlock();
    if (bLast)
        detachFromSource();
    mcBufferSync.signal();
    if (!lDropped.empty())
        utils::reportError(
            kFrameDiscardCode,
            utils::formatText("FRAME DISCARD: %d frames dropped (initial,final:(%d,%d), limit:%d, %.2fsec, "
                              "disc.prop:%.1f)",
                              static_cast<int>(lDropped.size()), static_cast<int>(uInitial),
                              static_cast<int>(uFinal), static_cast<int>(muBufferFrames.load()),
                              static_cast<double>(mfBufferSec.load()),
                              static_cast<double>(mfDiscardProportion.load())));
}

bool FrameSink::takeFrame(bool bMarkBusy, ReferencePtr<Frame>& cFrame) {
    std::list<ReferencePtr<Frame>> lTaken;
    utils::ScopedLock cLock(mcBufferLock);
    if (mlQueue.empty()) {
        mbConsumerBusy = false;
        return false;
    }
    lTaken.splice(lTaken.end(), mlQueue, mlQueue.begin());
    cFrame = std::move(lTaken.front());
    mbConsumerBusy = bMarkBusy;
    if (cFrame != nullptr)
        frameTaken(*cFrame);
    // Signals count once: with several readers the wake-up is handed on.
    if (!mlQueue.empty())
        mcBufferSync.signal();
    mcConsumerSync.signal();
    return true;
}

ReferencePtr<Frame> FrameSink::nextFrame(uint32_t uTimeoutMs, bool bMarkBusy) {
    ReferencePtr<Frame> cFrame;
    uint64_t uTimeout = uint64_t{uTimeoutMs} * 1000;
    while (true) {
        const uint64_t uStart = utils::steadyMicroseconds();
        if (takeFrame(bMarkBusy, cFrame))
            return cFrame;
        if (uTimeout == 0)
            return nullptr;
        // With a listener the read ends a second early, at the kick. What remains after a wait is counted
        // from that last second alone.
        const bool bKick = uTimeout > kKickLeadUs && hasListener();
        const uint64_t uEarly = bKick ? uTimeout - kKickLeadUs : 0;
        const uint64_t uRest = uTimeout - uEarly;
        const uint64_t uWait = bKick ? uEarly : uRest;
        const bool bSignalled = mcBufferSync.wait(uWait);
        const uint64_t uElapsed = bSignalled ? std::min(utils::steadyMicroseconds() - uStart, uWait) : uWait;
        const uint64_t uRemaining = uRest > uElapsed ? uRest - uElapsed : 0;
        if (!bSignalled && bKick) {
            const SourceHold cHold = holdListener();
            if (cHold.mpListener)
                cHold.mpListener->kick();
        }
        if ((!bSignalled && uRemaining == 0) || isReadOver())
            return nullptr;
        uTimeout = uRemaining;
    }
}

void FrameSink::endOfWork() {
    utils::ScopedLock cLock(mcBufferLock);
    mbConsumerBusy = false;
}

void FrameSink::flush() {
    std::list<ReferencePtr<Frame>> lDropped;
    utils::ScopedLock cLock(mcBufferLock);
    lDropped.swap(mlQueue);
    mfBufferedSec = 0.0f;
    cLock.unlock();
}

bool FrameSink::isExhausted() {
    utils::ScopedLock cLock(mcBufferLock);
    const bool bDrained = !mbConsumerBusy && mlQueue.empty() && mbEndSeen;
    cLock.unlock();
    return bDrained && isSourceExhausted();
}

// The source.

// A counted source is held instead of the lock: in a cycle of streams and processors two threads may ask their way
// round from different places.
bool FrameSink::isSourceExhausted() {
    SourceHold cHold;  // outlives the lock
    utils::ScopedLock cLock(mcSourceLock);
    cHold = holdSource();
    if (!cHold.mcCounted)
        return !cHold.mpSource || cHold.mpSource->isExhausted();
    cLock.unlock();
    return cHold.mpSource->isExhausted();
}

FrameSink::SourceHold FrameSink::holdSource() {
    utils::ScopedLock cLock(mcSourceLock);
    SourceHold cHold;
    if (mpSourceCounted) {
        if (!mpSourceCounted->tryAddReference())
            return cHold;
        cHold.mcCounted = ReferencePtr<utils::ReferenceCountedObject>::adopt(mpSourceCounted);
    }
    cHold.mpSource = mpSource;
    cHold.muAttachCount = muAttachCount;
    return cHold;
}

FrameSink::SourceHold FrameSink::holdListener() {
    utils::ScopedLock cLock(mcSourceLock);
    if (mpListener == mpSource) {
        SourceHold cHold = holdSource();
        cHold.mpListener = cHold.mpSource;
        return cHold;
    }
    SourceHold cHold;
    cHold.mpListener = mpListener;
    return cHold;
}

bool FrameSink::hasListener() {
    utils::ScopedLock cLock(mcSourceLock);
    return mpListener != nullptr;
}

void FrameSink::setListener(Listener* pListener) {
    utils::ScopedLock cLock(mcSourceLock);
    mpListener = pListener;
}

void FrameSink::setSource(FrameSource* pSource) {
    utils::ScopedLock cLock(mcSourceLock);
    if (!pSource) {
        forgetSource();
        cLock.unlock();
        mcBufferSync.signal();
        return;
    }
    mpSource = pSource;
    mpSourceCounted = pSource->countedSelf();
    mpListener = pSource;
    ++muAttachCount;
    mbAttached = true;
}

void FrameSink::forgetSource() {
    mpSource = nullptr;
    mpSourceCounted = nullptr;
    mpListener = nullptr;
    mbAttached = false;
    ++muDetachCount;
}

void FrameSink::releaseFrom(const FrameSource* pSource) {
    if (sourcePointer() == pSource)
        setSource(nullptr);
}

bool FrameSink::detachFromSource() {
    utils::reportTrace("FrameSink::detachFromSource");
    const DetachNotice cNotice(*this);
    const SourceHold cHold = holdSource();
    if (!cHold.mpSource)
        return false;
    cHold.mpSource->removeFrameSink(ReferencePtr<FrameSink>(this));
    // The source has let go of this sink by itself, as a rule; and another thread may have attached it
    // again since, which must stand.
    utils::ScopedLock cLock(mcSourceLock);
    if (mpSource == cHold.mpSource && muAttachCount == cHold.muAttachCount)
        forgetSource();
    cLock.unlock();
    mcBufferSync.signal();
    return true;
}

bool FrameSink::isAttached() {
    return sourcePointer() != nullptr;
}

uint32_t FrameSink::attachCount() {
    utils::ScopedLock cLock(mcSourceLock);
    return muAttachCount;
}

void FrameSink::clearSource(uint32_t uAttachCount) {
    utils::ScopedLock cLock(mcSourceLock);
    if (muAttachCount == uAttachCount)
        setSource(nullptr);
}

FrameSource* FrameSink::sourcePointer() {
    utils::ScopedLock cLock(mcSourceLock);
    return mpSource;
}
