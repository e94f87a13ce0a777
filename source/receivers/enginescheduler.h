#pragma once

#include <functional>
#include <list>

#include "foundations/guardedreference.h"
#include "foundations/namedlock.h"
#include "receivers/engine.h"

/// What the run loop needs of the receiver that owns it.
class EngineHost {
 public:
    virtual ~EngineHost() = default;
    virtual bool recoverAccess() = 0;
    /// Nothing to do: check the link and wait until woken, at most 100 ms.
    virtual void idle() = 0;
    virtual void wake() = 0;
    virtual bool inhibitsContinuousSweep() = 0;
};

/// What differs between the families: texts, and two ways of the run loop.
struct SchedulerWords {
    const char* mpLockName;         // "ZelvarReceiver::mcEnginesLock"
    const char* mpIQHaltCompleted;  // "Zelvar::run mcActiveIQ halt sequence completed"
    const char* mpIQProcessEnded;   // "Zelvar::run mcActiveIQ->process returns false"
    const char* mpDetachIQCalled;   // "::_detachIQStream called..."
    const char* mpDetachIQNull;     // "...called with null stream"
    const char* mpSweepServed;      // "Attempted to re-add spectrum stream"
    bool mbTellsIQCount = false;    // of the engines that are left when a capture has ended
    bool mbSweepsEnd = true;        // otherwise a sweep leaves only by detach
};

/// Decides which single engine of a receiver has the radio, starts it and lets it run. IQ pre-empts sweeps,
/// sweeps take turns, a lone sweep runs continuously.
///
/// The lists are guarded by one lock, held for list operations and the making of engines only. `pass` runs on
/// the receiver thread, everything else on any thread.
class EngineScheduler {
 public:
    using MakeIQ = std::function<ReferencePtr<IQEngine>()>;
    using MakeSweep = std::function<ReferencePtr<SweepEngine>()>;

    EngineScheduler(EngineHost& cHost, const SchedulerWords& cWords);

    /// A sink that is served already is left alone, without a message.
    void attachIQ(const ReferencePtr<FrameSink>& cSink, const MakeIQ& make, ErrorList& lMessages);
    void attachSweep(const ReferencePtr<FrameSink>& cSink, const MakeSweep& make, ErrorList& lMessages);
    /// True when an engine was found. Waits for the capture to halt, 5 s at most.
    bool detachIQ(const ReferencePtr<FrameSink>& cSink);
    bool detachSweep(const ReferencePtr<FrameSink>& cSink);

    /// One pass of the run loop.
    void pass();
    /// The run loop has ended: the active engines are let go without a stop.
    void clearActive();
    /// Tells every engine of both lists that the link has changed.
    void linkChanged();
    /// Lets all engines go; for the receiver's end.
    void releaseAll();

    ReferencePtr<IQEngine> activeIQ() const { return mcActiveIQ.get(); }
    ReferencePtr<SweepEngine> activeSweep() const { return mcActiveSweep.get(); }
    size_t iqCount();
    size_t sweepCount();

 private:
    struct Turn;
    Turn takeTurn();
    void passIQ(const ReferencePtr<IQEngine>& cEngine);
    void passSweep(const ReferencePtr<SweepEngine>& cEngine, bool bSolo);
    void passIdle();
    bool startIQ(const ReferencePtr<IQEngine>& cEngine);
    void stopSweep(const ReferencePtr<SweepEngine>& cSweep);
    void finishSweep(const ReferencePtr<SweepEngine>& cEngine);
    void haltIQ(const ReferencePtr<IQEngine>& cEngine);
    bool _removeIQEngine(const ReferencePtr<IQEngine>& cEngine);

    EngineHost& mcHost;
    SchedulerWords mcWords;
    utils::NamedLock mcEnginesLock;
    std::list<ReferencePtr<SweepEngine>> mlSweepEngines GUARDED_BY(mcEnginesLock);
    std::list<ReferencePtr<IQEngine>> mlIQEngines GUARDED_BY(mcEnginesLock);
    GuardedReference<SweepEngine> mcActiveSweep;
    GuardedReference<IQEngine> mcActiveIQ;
};
