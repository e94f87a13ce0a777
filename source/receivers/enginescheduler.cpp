#include "receivers/enginescheduler.h"

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

using utils::formatText;
using utils::reportTrace;

namespace {

constexpr uint32_t kTurnMs = 1;
constexpr const char* kSweepStopped = "mcActiveSweep->stop()";

template <typename Engine>
auto findServing(std::list<ReferencePtr<Engine>>& lEngines, const ReferencePtr<FrameSink>& cSink) {
    auto it = lEngines.begin();
    while (it != lEngines.end() && !(*it)->serves(cSink.get()))
        ++it;
    return it;
}

template <typename Engine>
bool eraseEngine(std::list<ReferencePtr<Engine>>& lEngines, const ReferencePtr<Engine>& cEngine) {
    for (auto it = lEngines.begin(); it != lEngines.end(); ++it)
        if (*it == cEngine) {
            lEngines.erase(it);  // never the last reference: the caller holds one
            return true;
        }
    return false;
}

const char* textOf(bool bValue) {
    return bValue ? "true" : "false";
}

}  // namespace

/// What one pass works on.
struct EngineScheduler::Turn {
    ReferencePtr<IQEngine> mcIQ;
    ReferencePtr<SweepEngine> mcSweep;
    bool mbSolo = false;
};

EngineScheduler::EngineScheduler(EngineHost& cHost, const SchedulerWords& cWords)
    : mcHost(cHost), mcWords(cWords), mcEnginesLock(cWords.mpLockName) {}

// Attach and detach, on any thread.

void EngineScheduler::attachIQ(const ReferencePtr<FrameSink>& cSink, const MakeIQ& make,
                               ErrorList& lMessages) {
    reportTrace("::attachStream called");
    utils::ScopedLock cLock(mcEnginesLock);
    const auto itServing = findServing(mlIQEngines, cSink);
    if (itServing != mlIQEngines.end()) {
        const auto uEngine = static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(itServing->get()));
        const int iCount = static_cast<int>(mlIQEngines.size());
        cLock.unlock();
        reportTrace("Attempt to attach stream already served by IQEngine instance");
        // A decimal number and an x, as this line has always been.
        reportTrace(formatText("mlIQEngines entry 0x%016llux (%d entries)", uEngine, iCount));
        return;
    }
    const ReferencePtr<IQEngine> cEngine = make();
    if (cEngine)
        mlIQEngines.push_back(cEngine);
    cLock.unlock();
    if (!cEngine) {
        lMessages.push_back("Failed to create new IQEngine");
        return;
    }
    // Outside the lock: an attach takes the sink's own locks, and a sink may be detaching just now.
    cEngine->takeInStream();
    mcHost.wake();
}

void EngineScheduler::attachSweep(const ReferencePtr<FrameSink>& cSink, const MakeSweep& make,
                                  ErrorList& lMessages) {
    utils::ScopedLock cLock(mcEnginesLock);
    if (findServing(mlSweepEngines, cSink) != mlSweepEngines.end()) {
        lMessages.push_back(mcWords.mpSweepServed);
        return;
    }
    const ReferencePtr<SweepEngine> cEngine = make();
    // In front: a new stream is served next.
    if (cEngine)
        mlSweepEngines.push_front(cEngine);
    cLock.unlock();
    if (!cEngine)
        lMessages.push_back("Sweep engine creation failed");
    else
        cEngine->takeInStream();
    if (lMessages.empty())
        mcHost.wake();
}

bool EngineScheduler::detachIQ(const ReferencePtr<FrameSink>& cSink) {
    reportTrace(mcWords.mpDetachIQCalled);
    if (!cSink) {
        reportTrace(mcWords.mpDetachIQNull);
        return false;
    }
    ReferencePtr<IQEngine> cEngine;
    bool bRemoved = false;
    utils::ScopedLock cLock(mcEnginesLock);
    const int iCount = static_cast<int>(mlIQEngines.size());
    const auto itServing = findServing(mlIQEngines, cSink);
    if (itServing != mlIQEngines.end()) {
        cEngine = *itServing;
        // A capture that runs stays listed: the run loop stops it first, and it leaves by itself.
        bRemoved = !cEngine->isStreaming();
        if (bRemoved)
            mlIQEngines.erase(itServing);
    }
    cLock.unlock();
    reportTrace(formatText("pre-remove mlIQEnginesSize=%d, removed:%s", iCount, textOf(bRemoved)));
    if (!cEngine)
        return false;
    reportTrace("::detachStream syncHalt...");
    cEngine->syncHaltStream();
    cEngine->removeFrameSink(cSink);
    reportTrace("::detachStream syncHalt completed...");
    return true;
}

bool EngineScheduler::detachSweep(const ReferencePtr<FrameSink>& cSink) {
    if (!cSink)
        return false;
    ReferencePtr<SweepEngine> cEngine;
    std::list<ReferencePtr<SweepEngine>> lOthers;
    utils::ScopedLock cLock(mcEnginesLock);
    // Of a pair the other one is about to be alone and may run continuously now.
    if (mlSweepEngines.size() == 2)
        lOthers = mlSweepEngines;
    const auto itServing = findServing(mlSweepEngines, cSink);
    if (itServing != mlSweepEngines.end()) {
        cEngine = *itServing;
        mlSweepEngines.erase(itServing);
    }
    const int iCount = static_cast<int>(mlSweepEngines.size());
    cLock.unlock();
    lOthers.remove(cEngine);
    for (const ReferencePtr<SweepEngine>& cOther : lOthers)
        cOther->parametersChanged(nullptr);   // outside the lock: it may talk to the unit
    if (!cEngine)
        return false;
    reportTrace(formatText("_SweepMechanism detached leaving %d sweep engines", iCount));
    cEngine->removeFrameSink(cSink);
    if (cSink->sourcePointer() == cEngine.get())
        cSink->setSource(nullptr);
    return true;
}

// The run loop, on the receiver thread.

EngineScheduler::Turn EngineScheduler::takeTurn() {
    Turn cTurn;
    const bool bInhibited = mcHost.inhibitsContinuousSweep();
    utils::ScopedLock cLock(mcEnginesLock);
    if (!mlIQEngines.empty())
        cTurn.mcIQ = mlIQEngines.front();
    if (!mlSweepEngines.empty()) {
        cTurn.mcSweep = mlSweepEngines.front();
        cTurn.mbSolo = !bInhibited && mlSweepEngines.size() == 1;
        mlSweepEngines.splice(mlSweepEngines.end(), mlSweepEngines, mlSweepEngines.begin());
    }
    return cTurn;
}

void EngineScheduler::pass() {
    const Turn cTurn = takeTurn();
    if (cTurn.mcIQ) {
        passIQ(cTurn.mcIQ);
        return;
    }
    if (const ReferencePtr<IQEngine> cActive = mcActiveIQ.get()) {
        cActive->stop(true);
        mcActiveIQ.set(nullptr);
    }
    if (cTurn.mcSweep)
        passSweep(cTurn.mcSweep, cTurn.mbSolo);
    else
        passIdle();
}

void EngineScheduler::stopSweep(const ReferencePtr<SweepEngine>& cSweep) {
    cSweep->stop();
    reportTrace(kSweepStopped);
}

bool EngineScheduler::startIQ(const ReferencePtr<IQEngine>& cEngine) {
    if (cEngine->start())
        return true;
    reportTrace("mcActiveIQ->start(false) returns false");
    mcActiveIQ.set(nullptr);
    mcHost.recoverAccess();
    return false;
}

void EngineScheduler::passIQ(const ReferencePtr<IQEngine>& cEngine) {
    if (const ReferencePtr<SweepEngine> cSweep = mcActiveSweep.get()) {
        stopSweep(cSweep);
        mcActiveSweep.set(nullptr);
    }
    const ReferencePtr<IQEngine> cActive = mcActiveIQ.get();
    if (cActive != cEngine) {
        if (cActive)
            cActive->stop(true);
        mcActiveIQ.set(cEngine);
        cEngine->takeRestart();  // what changed before the start is in the start
        if (!startIQ(cEngine))
            return;
        reportTrace("mcActiveIQ->start() succeeds");
    }
    if (cEngine->takeRestart()) {
        cEngine->stop(false);
        if (!startIQ(cEngine))
            return;
    }
    if (cEngine->process())
        utils::sleepMs(kTurnMs);  // a turn does nothing but look: no reason to burn a processor on it
    else
        haltIQ(cEngine);
}

// The engine stays the active one: the next pass finds another in front and stops it there.
void EngineScheduler::haltIQ(const ReferencePtr<IQEngine>& cEngine) {
    reportTrace(mcWords.mpIQProcessEnded);
    _removeIQEngine(cEngine);
    cEngine->waitForEndOfVRTData();
    cEngine->terminate();
    cEngine->notifyHalted();
    reportTrace(mcWords.mpIQHaltCompleted);
}

bool EngineScheduler::_removeIQEngine(const ReferencePtr<IQEngine>& cEngine) {
    utils::ScopedLock cLock(mcEnginesLock);
    const bool bErased = eraseEngine(mlIQEngines, cEngine);
    const int iCount = static_cast<int>(mlIQEngines.size());
    cLock.unlock();
    reportTrace(mcWords.mbTellsIQCount
                    ? formatText("after remove (%s) - mlIQEngines(size=%d)", textOf(bErased), iCount)
                    : formatText("_removeIQEngine removed engine:%s", textOf(bErased)));
    return bErased;
}

void EngineScheduler::passIdle() {
    if (const ReferencePtr<SweepEngine> cSweep = mcActiveSweep.get()) {
        stopSweep(cSweep);
        mcActiveSweep.set(nullptr);
        mcHost.recoverAccess();
        return;
    }
    mcHost.idle();
}

void EngineScheduler::passSweep(const ReferencePtr<SweepEngine>& cEngine, bool bSolo) {
    const ReferencePtr<SweepEngine> cActive = mcActiveSweep.get();
    bool bStarted = true;
    if (cActive == cEngine) {
        if (!bSolo || !cEngine->runsContinuously())
            bStarted = cEngine->start(bSolo);
    } else {
        if (cActive)
            stopSweep(cActive);
        else
            mcHost.recoverAccess();
        mcActiveSweep.set(cEngine);
        bStarted = cEngine->start(bSolo);
    }
    if (!bStarted) {
        mcActiveSweep.set(nullptr);
        mcHost.recoverAccess();
        return;
    }
    if (!cEngine->process() && mcWords.mbSweepsEnd)
        finishSweep(cEngine);
}

void EngineScheduler::finishSweep(const ReferencePtr<SweepEngine>& cEngine) {
    utils::ScopedLock cLock(mcEnginesLock);
    const bool bErased = eraseEngine(mlSweepEngines, cEngine);
    const int iCount = static_cast<int>(mlSweepEngines.size());
    cLock.unlock();
    reportTrace(formatText("after remove (%s) - mlSweepEngines(size=%d)", textOf(bErased), iCount));
    reportTrace("SpectrumStream halt syncComplete");
}

// The receiver's life.

void EngineScheduler::clearActive() {
    mcActiveIQ.set(nullptr);
    mcActiveSweep.set(nullptr);
}

void EngineScheduler::linkChanged() {
    utils::ScopedLock cLock(mcEnginesLock);
    const std::list<ReferencePtr<IQEngine>> lIQ(mlIQEngines);
    const std::list<ReferencePtr<SweepEngine>> lSweeps(mlSweepEngines);
    cLock.unlock();
    for (const ReferencePtr<IQEngine>& cEngine : lIQ)
        cEngine->linkChanged();
    for (const ReferencePtr<SweepEngine>& cEngine : lSweeps)
        cEngine->linkChanged();
}

void EngineScheduler::releaseAll() {
    std::list<ReferencePtr<IQEngine>> lIQ;  // let go outside the lock: an engine lets its sink go in turn
    std::list<ReferencePtr<SweepEngine>> lSweeps;
    utils::ScopedLock cLock(mcEnginesLock);
    lIQ.swap(mlIQEngines);
    lSweeps.swap(mlSweepEngines);
    cLock.unlock();
    clearActive();
}

size_t EngineScheduler::iqCount() {
    utils::ScopedLock cLock(mcEnginesLock);
    return mlIQEngines.size();
}

size_t EngineScheduler::sweepCount() {
    utils::ScopedLock cLock(mcEnginesLock);
    return mlSweepEngines.size();
}
