#include "flows/framesource.h"

#include <algorithm>
#include <exception>
#include <vector>

#include "foundations/runtimeerrors.h"

FrameSource::FrameSource(std::string name) : mcName(std::move(name)) {}

FrameSource::~FrameSource() {
    releaseSinks();
}

void FrameSource::releaseSinks() {
    if (!mbReleased)
        utils::reportTrace("FrameSource::removeFrameSink");
    mbReleased = true;
    removeAll();
}

bool FrameSource::isExhausted() {
    FrameSink* pSink = dynamic_cast<FrameSink*>(this);
    return pSink && pSink->isExhausted();
}

size_t FrameSource::sinkCount() {
    utils::ScopedLock cLock(mcSinksLock);
    return mlSinks.size();
}

bool FrameSource::holds(const FrameSink& cSink) {
    return std::any_of(mlSinks.begin(), mlSinks.end(),
                       [&cSink](const ReferencePtr<FrameSink>& cEntry) { return cEntry.get() == &cSink; });
}

bool FrameSource::attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) {
    if (cNewSink == nullptr) {
        lErrors.push_back("::attachFrameSink with cNewSink==nullptr");
        return false;
    }
    std::list<ReferencePtr<FrameSink>> lNew(1, cNewSink);
    utils::ScopedLock cAttach(cNewSink->mcAttachLock);
    utils::ScopedLock cLock(mcSinksLock);
    if (holds(*cNewSink)) {
        lErrors.push_back("Attempting to re-attach previously-attached FrameSink");
        return false;
    }
    cNewSink->setSource(this);
    mlSinks.splice(mlSinks.end(), lNew);
    return true;
}

bool FrameSource::removeFrameSink(ReferencePtr<FrameSink> cSink) {
    utils::reportTrace("FrameSource::removeFrameSink");
    if (cSink == nullptr) {
        const bool bAny = sinkCount() != 0;
        removeAll();
        return bAny;
    }
    std::list<ReferencePtr<FrameSink>> lRemoved;  // released after the locks
    // One attach or detach of a sink at a time: what the list says and what the sink says agree whenever
    // mcAttachLock is free.
    utils::ScopedLock cAttach(cSink->mcAttachLock);
    utils::ScopedLock cLock(mcSinksLock);
    for (auto it = mlSinks.begin(); it != mlSinks.end();) {
        const auto itEntry = it++;
        if (*itEntry == cSink)
            lRemoved.splice(lRemoved.end(), mlSinks, itEntry);
    }
    cLock.unlock();
    cSink->releaseFrom(this);
    return !lRemoved.empty();
}

void FrameSource::removeAll() {
    std::list<ReferencePtr<FrameSink>> lRemoved;
    utils::ScopedLock cLock(mcSinksLock);
    lRemoved.swap(mlSinks);
    cLock.unlock();
    for (const ReferencePtr<FrameSink>& cSink : lRemoved)
        letGo(*cSink);
}

void FrameSource::letGo(FrameSink& cSink) {
    utils::ScopedLock cAttach(cSink.mcAttachLock);
    utils::ScopedLock cLock(mcSinksLock);
    const bool bAttachedAgain = holds(cSink);
    cLock.unlock();
    if (!bAttachedAgain)
        cSink.releaseFrom(this);
}

void FrameSource::noteSequence(uint32_t uSequence) {
    const uint32_t uExpected =
        muNextSequence.exchange(nextSequenceAfter(uSequence), std::memory_order_relaxed);
    if (uExpected != kNoSequence && uExpected != uSequence)
        muGapCount.fetch_add(1, std::memory_order_relaxed);
}

bool FrameSource::deliverFrame(ReferencePtr<Frame> cFrame, bool bLast) {
    utils::ScopedLock cLock(mcSinksLock);
    const std::vector<ReferencePtr<FrameSink>> lSinks(mlSinks.begin(), mlSinks.end());
    std::list<ReferencePtr<FrameSink>> lCleared;
    if (bLast)
        lCleared.swap(mlSinks);
    cLock.unlock();
    if (cFrame != nullptr)
        noteSequence(cFrame->sequence());
    // A sink that fails takes nothing from those behind it; its failure is the caller's when all have been served.
    std::exception_ptr cFailure;
    for (const ReferencePtr<FrameSink>& cSink : lSinks) {
        try {
            if (cFrame == nullptr || cSink->acceptsFrame(cFrame))
                cSink->receiveFrame(cFrame, bLast);
        } catch (...) {
            if (!cFailure)
                cFailure = std::current_exception();
        }
    }
    // A sink that was skipped has left the list too and must not keep a pointer that nobody would clear.
    for (const ReferencePtr<FrameSink>& cSink : lCleared)
        letGo(*cSink);
    if (cFailure)
        std::rethrow_exception(cFailure);
    return true;
}
