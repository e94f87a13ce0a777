#pragma once

#include "flows/framesource.h"

/// What serves one stream of a receiver. Started, stopped and processed by the receiver thread alone; packets
/// come in on the polling thread.
class ReceiverEngine : public utils::ReferenceCountedObject, public FrameSource {
 public:
    using FrameSource::FrameSource;
    utils::ReferenceCountedObject* countedSelf() override { return this; }
    virtual bool serves(const FrameSink* pSink) const = 0;
    /// Becomes the source of the stream that it serves; once the engine is listed, outside the lists' lock.
    virtual void takeInStream() {}
    // A null sink in parametersChanged means the stream served.
};

class IQEngine : public ReceiverEngine {
 public:
    using ReceiverEngine::ReceiverEngine;
    /// Reads the parameters, chooses, programs; true when data came.
    virtual bool start() = 0;
    /// `bQuiesce`: also leave the unit idle and the input empty.
    virtual void stop(bool bQuiesce) = 0;
    /// One turn, never blocking; false when the capture has ended.
    virtual bool process() = 0;
    /// Tests and clears the wish to start again with changed parameters.
    virtual bool takeRestart() = 0;
    /// The unit is sending this capture.
    virtual bool isStreaming() const = 0;
    // The end of a capture, in this order, on the receiver thread.
    virtual bool waitForEndOfVRTData() = 0;
    virtual bool terminate() = 0;
    virtual void notifyHalted() = 0;
    /// On the detaching thread: asks the capture to end and waits until it has been halted.
    virtual bool syncHaltStream() = 0;
    /// The link was lost or made anew: the capture is forgotten, the engine starts anew.
    virtual void linkChanged() = 0;
};

class SweepEngine : public ReceiverEngine {
 public:
    using ReceiverEngine::ReceiverEngine;
    virtual bool start(bool bContinuous) = 0;
    virtual bool stop() = 0;
    /// Returns after one finished frame or a second without data; false when the capture has ended.
    virtual bool process() = 0;
    virtual bool runsContinuously() const = 0;
    virtual void linkChanged() = 0;
};
