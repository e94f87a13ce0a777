#pragma once

#include <atomic>
#include <string>

#include "flows/framesource.h"
#include "foundations/thread.h"

/// The kind of stream that a processor feeds, as its field holds it.
enum class OutputKind : uint32_t { kIQ = 1, kSpectrum = 2, kBaseband = 3 };

/// Takes frames from one stream and makes frames of another kind, on a thread of its own between the two. The
/// thread starts when a source is attached and stops when it is detached.
///
/// A body that is blocked in a delivery when the stop's second is over is left behind: it delivers nothing any
/// more and ends when the delivery gives way. A source attached meanwhile gets a body of its own, which begins
/// when the one before has left; the object outlives both.
///
/// A body that ends with an exception sends the end of the stream: whoever waits behind it is not left waiting, and
/// whoever feeds it is not held up by frames that nobody takes any more.
///
/// The concrete classes' processFrame runs on one thread at a time; parameters that arrive meanwhile are theirs
/// to guard.
class Processor : public FrameSink, public FrameSource, private utils::Thread {
 public:
    Processor(std::string name, OutputKind eOutputKind);

    const std::string& getName() const { return mcName; }
    OutputKind outputKind() const { return meOutputKind; }

    /// Attaches this processor to a source in place of an earlier one, which is left first and also when the new one
    /// refuses. Of two calls at once the later one stands. Throws std::system_error, with nothing attached, when
    /// the system has no thread to give.
    bool takeInputFrom(FrameSource& cSource, ErrorList& lErrors);
    /// Off the source, which takes a second at the most. False when there was none; of two calls at once one is true.
    bool leaveInput();
    /// Nobody can name this processor any more. It goes on while it feeds a sink and then leaves its input, which
    /// would keep it and its thread otherwise.
    void disown();

    // FrameSink
    /// Starts or stops the thread, the latter with a limit of a second.
    void setSource(FrameSource* pSource) override;
    /// Without a body that works, nothing is queued.
    void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override;
    /// For both bases, so that exhaustion runs down a chain. In a cycle of processors each is asked once.
    bool isExhausted() override;

    // FrameSource
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override = 0;
    bool removeFrameSink(ReferencePtr<FrameSink> cSink) override;
    bool deliverFrame(ReferencePtr<Frame> cFrame, bool bLast) override;
    utils::ReferenceCountedObject* countedSelf() override { return this; }

 protected:
    /// Stops the thread and lets the sinks go.
    ~Processor() override;
    void destroySelf() noexcept override;
    /// The work on one frame, which is not null.
    virtual void processFrame(ReferencePtr<Frame> cFrame) = 0;
    /// A stop does not wait for frames.
    bool isReadOver() override { return isOwnThread() && isStopping(); }

 private:
    void run() override;
    void processFrames();
    void giveUp();
    void endIfUseless();

    /// One change of the input at a time. Outermost of all locks.
    utils::NamedLock mcInputLock{"Processor::mcInputLock"};
    std::atomic<bool> mbDisowned{false};
    std::string mcName;
    OutputKind meOutputKind;
    std::atomic<bool> mbWorking{false};   // one body at a time is at work
    std::atomic<bool> mbGivenUp{false};   // an exception has ended the body; the next source has a new one
};
