#include "processors/processor.h"

namespace {

constexpr uint32_t kPriority = 3;
constexpr uint32_t kStopLimitMs = 1000;
constexpr uint32_t kFrameWaitMs = 100;
constexpr uint32_t kTurnMs = 10;

/// Who is being asked whether it is exhausted, on this thread, innermost first.
struct Question {
    explicit Question(const Processor* pAsked) : mpAsked(pAsked), mpOuter(smpInnermost) { smpInnermost = this; }
    ~Question() { smpInnermost = mpOuter; }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    static bool isAsked(const Processor* pProcessor) {
        for (const Question* pQuestion = smpInnermost; pQuestion; pQuestion = pQuestion->mpOuter)
            if (pQuestion->mpAsked == pProcessor)
                return true;
        return false;
    }

    const Processor* mpAsked;
    const Question* mpOuter;
    static constinit thread_local const Question* smpInnermost;
};

constinit thread_local const Question* Question::smpInnermost = nullptr;

}  // namespace

Processor::Processor(std::string name, OutputKind eOutputKind)
    : FrameSource(""), utils::Thread("Processor"), mcName(std::move(name)), meOutputKind(eOutputKind) {}

Processor::~Processor() {
    releaseSinks();
}

// The sinks first: a body that is blocked in one gives way. The concrete class, which a body works in, goes when no
// body is left.
void Processor::destroySelf() noexcept {
    releaseSinks();
    retire(kStopLimitMs, [this] { delete this; });
}

void Processor::setSource(FrameSource* pSource) {
    if (pSource) {
        mbGivenUp = false;
        startAnew(kPriority);
    } else {
        ask();
        wakeReader();
        stop(kStopLimitMs);
    }
    FrameSink::setSource(pSource);
}

// The input is left with the notice of a detach and without mcSourceLock: a body that pushes into its own queue, round
// a cycle, gives way at once, and one that asks for exhaustion is not in the way of its own stop.
bool Processor::leaveInput() {
    const SourceHold cHold = holdSource();   // let go behind all else
    const DetachNotice cNotice(*this);
    return cHold.mpSource && cHold.mpSource->removeFrameSink(ReferencePtr<FrameSink>(this));
}

bool Processor::takeInputFrom(FrameSource& cSource, ErrorList& lErrors) {
    utils::ScopedLock cLock(mcInputLock);
    leaveInput();
    const bool bAttached = cSource.attachFrameSink(ReferencePtr<FrameSink>(this), lErrors);
    cLock.unlock();
    endIfUseless();
    return bAttached;
}

void Processor::disown() {
    mbDisowned = true;
    endIfUseless();
}

bool Processor::removeFrameSink(ReferencePtr<FrameSink> cSink) {
    const bool bRemoved = FrameSource::removeFrameSink(std::move(cSink));
    endIfUseless();
    return bRemoved;
}

void Processor::endIfUseless() {
    if (mbDisowned && sinkCount() == 0)
        leaveInput();
}

// Asked again by its own question, a processor adds nothing to the answer: what the others hold decides.
bool Processor::isExhausted() {
    if (Question::isAsked(this))
        return true;
    const Question cQuestion(this);
    return mbGivenUp ? isSourceExhausted() : FrameSink::isExhausted();
}

void Processor::receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) {
    if (!mbGivenUp || bLast)
        FrameSink::receiveFrame(std::move(cFrame), bLast);
}

bool Processor::deliverFrame(ReferencePtr<Frame> cFrame, bool bLast) {
    return !isLeftBehind() && FrameSource::deliverFrame(std::move(cFrame), bLast);
}

void Processor::run() {
    while (mbWorking.exchange(true, std::memory_order_acquire)) {
        if (isStopping())
            return;
        sleep(kTurnMs);
    }
    const struct Turn {
        ~Turn() { mbTaken.store(false, std::memory_order_release); }
        std::atomic<bool>& mbTaken;
    } cTurn{mbWorking};
    try {
        processFrames();
    } catch (...) {
        giveUp();
        throw;
    }
}

void Processor::giveUp() {
    if (!isLeftBehind())
        mbGivenUp = true;
    flush();
    endOfWork();
    deliverFrame(nullptr, false);
}

void Processor::processFrames() {
    bool bActive = false;
    while (!isStopping()) {
        // Each read ends the one before: from here on the consumer is not busy unless it got a frame.
        if (ReferencePtr<Frame> cFrame = nextFrame(kFrameWaitMs, true)) {
            processFrame(std::move(cFrame));
            bActive = true;
        } else if (bActive && isExhausted()) {
            deliverFrame(nullptr, false);
            bActive = false;
        }
        endOfWork();
    }
}
