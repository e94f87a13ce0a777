#include "processors/processor.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <deque>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>

#include "flows/iqframesink.h"
#include "support/loopback.h"
#include "support/resources.h"
#include "unit/flows/flowsupport.h"

using vnktest::CountedSource;
using vnktest::iqFrame;
using vnktest::keptFrame;
using vnktest::waitUntil;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace {

/// A processor that does what a test says; by default it passes each frame on.
class Worker : public Processor {
 public:
    using Work = std::function<void(Worker&, ReferencePtr<Frame>)>;

    explicit Worker(std::atomic<int>& iAlive, Work work = {})
        : Processor("Worker", OutputKind::kIQ), miAlive(iAlive), mcWork(std::move(work)) {
        ++miAlive;
    }
    ~Worker() override { --miAlive; }

    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override {
        return FrameSource::attachFrameSink(std::move(cNewSink), lErrors);
    }
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override {
        return cFrame == nullptr || dynamicReferenceCast<IQFrame>(cFrame) != nullptr;
    }

    std::atomic<int> miAtWork{0};
    std::atomic<int> miBegun{0};
    std::atomic<int> miDone{0};
    std::atomic<bool> mbTwoAtOnce{false};

 protected:
    void processFrame(ReferencePtr<Frame> cFrame) override {
        struct Leaving {
            ~Leaving() { --miAtWork; }
            std::atomic<int>& miAtWork;
        } cLeaving{miAtWork};
        if (++miAtWork > 1)
            mbTwoAtOnce = true;
        ++miBegun;
        if (mcWork)
            mcWork(*this, std::move(cFrame));
        else
            deliverFrame(std::move(cFrame), false);
        ++miDone;
    }

 private:
    std::atomic<int>& miAlive;
    Work mcWork;
};

/// Notes what comes, ends too, and may be made to hold the producer up.
class Recorder : public FrameSink {
 public:
    static constexpr int64_t kEnd = -1;

    void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override {
        EXPECT_FALSE(bLast);
        std::lock_guard<std::mutex> cGuard(mcMutex);
        mlSeen.push_back(cFrame ? int64_t{cFrame->sequence()} : kEnd);
    }
    std::vector<int64_t> seen() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mlSeen;
    }
    bool waitFor(const std::vector<int64_t>& lExpected) {
        return waitUntil([&] { return seen() == lExpected; });
    }
    bool waitForCount(size_t uCount) {
        return waitUntil([&] { return seen().size() >= uCount; });
    }

 private:
    std::mutex mcMutex;
    std::vector<int64_t> mlSeen;
};

/// What a stream is: passes on what it receives, and has ended when what feeds it has.
class Relay : public FrameSource, public IQFrameSink {
 public:
    Relay() : FrameSource("Relay") {}
    ~Relay() override {
        releaseSinks();
        addReference();
        detachFromSource();
    }
    utils::ReferenceCountedObject* countedSelf() override { return this; }
    bool isExhausted() override { return isSourceExhausted(); }
    void receiveFrame(ReferencePtr<Frame> cFrame, bool) override {
        ++muReceived;
        IQFrameSink::receiveFrame(cFrame, false);
        deliverFrame(cFrame, false);
    }
    std::atomic<uint32_t> muReceived{0};
};

/// A door that a body waits at.
class Door {
 public:
    ~Door() { open(); }
    void pass() {
        ++miWaiting;
        EXPECT_TRUE(waitUntil([this] { return mbOpen.load(); }, 120s));
        --miWaiting;
    }
    void open() { mbOpen = true; }
    bool waitForSomebody() {
        return waitUntil([this] { return miWaiting > 0; });
    }

 private:
    std::atomic<int> miWaiting{0};
    std::atomic<bool> mbOpen{false};
};

std::chrono::milliseconds since(steady_clock::time_point begin) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - begin);
}

}  // namespace

class ProcessorTest : public vnktest::FlowTest {
 protected:
    void TearDown() override {
        if (mcSource)
            mcSource->removeFrameSink(nullptr);
        mcSource = nullptr;
        // Bodies that were left behind use what this test owns.
        EXPECT_TRUE(waitUntil([this] { return miAlive == 0; })) << "a processor is left";
    }
    ReferencePtr<Worker> make(Worker::Work work = {}) { return makeReference<Worker>(miAlive, std::move(work)); }
    bool attach(const ReferencePtr<Worker>& cWorker) { return cWorker->takeInputFrom(*mcSource, mlErrors); }
    void send(uint32_t uSequence) { mcSource->deliverFrame(iqFrame(uSequence), false); }
    void sendEnd() { mcSource->deliverFrame(nullptr, false); }

    std::atomic<int> miAlive{0};
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
    ReferencePtr<Recorder> mcRecorder = makeReference<Recorder>();
};

// What it is.

TEST_F(ProcessorTest, HasANameAKindAndNoNameAsASource) {
    const auto cWorker = make();
    EXPECT_EQ(cWorker->getName(), "Worker");
    EXPECT_EQ(cWorker->outputKind(), OutputKind::kIQ);
    EXPECT_EQ(static_cast<uint32_t>(OutputKind::kIQ), 1u);
    EXPECT_EQ(static_cast<uint32_t>(OutputKind::kSpectrum), 2u);
    EXPECT_EQ(static_cast<uint32_t>(OutputKind::kBaseband), 3u);
    EXPECT_EQ(cWorker->sourceName(), "");
}

TEST_F(ProcessorTest, HasTheParametersOfASink) {
    const auto cWorker = make();
    const auto cPlain = makeReference<FrameSink>();
    EXPECT_EQ(cWorker->getParameterInfo().toCompactText(), cPlain->getParameterInfo().toCompactText());
    EXPECT_EQ(cWorker->getParameters().toCompactText(), cPlain->getParameters().toCompactText());
    auto cRecord = vnktest::record("{\"bufferFrames\":7}");
    EXPECT_TRUE(cWorker->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(cWorker->getParameters().getNumber("bufferFrames"), 7.0f);
    cRecord = vnktest::record("{\"unknown\":7}");
    EXPECT_FALSE(cWorker->setSinkParameters(cRecord, mlErrors, false));
    EXPECT_EQ(vnktest::statuses(), std::vector<int32_t>{-33});
}

// The thread.

TEST_F(ProcessorTest, PassesFramesFromItsSourceToAllItsSinksInOrder) {
    const auto cWorker = make();
    const auto cSecond = makeReference<Recorder>();
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(cWorker->attachFrameSink(cSecond, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    for (uint32_t i = 0; i < 5; ++i)
        send(i);
    EXPECT_TRUE(mcRecorder->waitFor({0, 1, 2, 3, 4}));
    EXPECT_TRUE(cSecond->waitFor({0, 1, 2, 3, 4}));
}

TEST_F(ProcessorTest, WorksOnAThreadOfItsOwnNamedAndRankedForIt) {
    std::atomic<bool> bTold{false};
    char acName[16] = {};
    int iNice = 0;
    std::thread::id cThread;
    const auto cWorker = make([&](Worker&, ReferencePtr<Frame>) {
        pthread_getname_np(pthread_self(), acName, sizeof acName);
        iNice = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
        cThread = std::this_thread::get_id();
        bTold = true;
    });
    ASSERT_TRUE(attach(cWorker));
    send(0);
    ASSERT_TRUE(waitUntil([&] { return bTold.load(); }));
    EXPECT_STREQ(acName, "Processor");
    EXPECT_NE(cThread, std::this_thread::get_id());
    const int iNormal = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    EXPECT_TRUE(iNice == iNormal || iNice == std::max(iNormal - 5, -20)) << iNice << ", the process has " << iNormal;
}

TEST_F(ProcessorTest, TheThreadStartsWithASourceAndStopsWithIt) {
    const size_t uThreads = vnktest::idleThreads();
    const auto cWorker = make();
    EXPECT_EQ(vnktest::liveThreads(), uThreads);
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(attach(cWorker));
        send(0);
        ASSERT_TRUE(waitUntil([&] { return cWorker->miDone == i; }));
        EXPECT_EQ(vnktest::liveThreads(), uThreads + 1);
        EXPECT_TRUE(cWorker->leaveInput());
        EXPECT_FALSE(cWorker->isAttached());
        EXPECT_FALSE(cWorker->leaveInput());
        // What comes now stays in the queue: nobody works.
        cWorker->receiveFrame(iqFrame(9), false);
        EXPECT_EQ(vnktest::drain(*cWorker), std::vector<uint32_t>{9});
        EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
    }
}

TEST_F(ProcessorTest, ADetachDoesNotWaitForTheReadThatWaitsForFrames) {
    const auto cWorker = make();
    std::vector<std::chrono::milliseconds> lTook;
    for (int i = 0; i < 21; ++i) {
        ASSERT_TRUE(attach(cWorker));
        send(0);
        ASSERT_TRUE(waitUntil([&] { return cWorker->miDone == i + 1; }));
        const auto begin = steady_clock::now();
        EXPECT_TRUE(cWorker->leaveInput());
        lTook.push_back(since(begin));
    }
    std::sort(lTook.begin(), lTook.end());
    EXPECT_LT(lTook[10], 80ms) << "in the middle of many: a read waits 100 ms";
}

TEST_F(ProcessorTest, NoFrameIsBeingWorkedOnWhenADetachReturns) {
    const auto cWorker = make([](Worker&, ReferencePtr<Frame>) { std::this_thread::yield(); });
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(attach(cWorker));
        for (uint32_t k = 0; k < 5; ++k)
            send(k);
        cWorker->detachFromSource();
        EXPECT_EQ(cWorker->miAtWork, 0);
        const int iDone = cWorker->miDone;
        std::this_thread::yield();
        EXPECT_EQ(cWorker->miDone, iDone);
    }
}

TEST_F(ProcessorTest, ASecondSourceWhileItRunsLeavesTheThreadAsItIs) {
    const size_t uThreads = vnktest::idleThreads();
    std::mutex cMutex;
    std::vector<std::thread::id> lThreads;
    const auto cWorker = make([&](Worker&, ReferencePtr<Frame>) {
        std::lock_guard<std::mutex> cGuard(cMutex);
        lThreads.push_back(std::this_thread::get_id());
    });
    const auto cOther = makeReference<CountedSource>();
    ASSERT_TRUE(mcSource->attachFrameSink(cWorker, mlErrors));
    send(0);
    ASSERT_TRUE(waitUntil([&] { return cWorker->miDone == 1; }));
    ASSERT_TRUE(cOther->attachFrameSink(cWorker, mlErrors));
    EXPECT_EQ(cWorker->sourcePointer(), cOther.get());
    cOther->deliverFrame(iqFrame(1), false);
    ASSERT_TRUE(waitUntil([&] { return cWorker->miDone == 2; }));
    EXPECT_EQ(lThreads[0], lThreads[1]);
    EXPECT_EQ(vnktest::liveThreads(), uThreads + 1);
    // The end of the earlier one is none of it.
    mcSource->removeFrameSink(nullptr);
    cOther->deliverFrame(iqFrame(2), false);
    EXPECT_TRUE(waitUntil([&] { return cWorker->miDone == 3; }));
}

TEST_F(ProcessorTest, AnExceptionEndsTheThreadWithOneReportAndALaterAttachWorks) {
    const auto cWorker = make([](Worker& cSelf, ReferencePtr<Frame> cFrame) {
        VNK_ASSERT(cFrame->sequence() != 1);
        cSelf.deliverFrame(cFrame, false);
    });
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    const size_t uThreads = vnktest::idleThreads();
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(attach(cWorker));
        send(0);
        send(1);
        ASSERT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
        EXPECT_EQ(vnktest::logged(-9001).size(), 1u);
        send(2);   // never worked on, and holds nobody up
        EXPECT_TRUE(cWorker->leaveInput());
        cWorker->flush();
    }
    ASSERT_TRUE(attach(cWorker));
    send(3);
    EXPECT_TRUE(mcRecorder->waitFor({0, Recorder::kEnd, 0, Recorder::kEnd, 3}));
}

TEST_F(ProcessorTest, AnExceptionEndsTheStreamForThoseBehindItAndHoldsNobodyUpBeforeIt) {
    const auto cFirst = make([](Worker&, ReferencePtr<Frame>) { VNK_ASSERT(false); });
    const auto cRelay = makeReference<Relay>();
    const auto cSecond = make();
    ASSERT_TRUE(cFirst->attachFrameSink(cRelay, mlErrors));
    ASSERT_TRUE(cSecond->takeInputFrom(*cRelay, mlErrors));
    ASSERT_TRUE(attach(cFirst));
    send(0);
    // More of what must not be dropped than any queue holds.
    for (uint32_t i = 1; i < 40; ++i)
        mcSource->deliverFrame(vnktest::keptFrame(i), false);
    ASSERT_TRUE(waitUntil([&] { return cRelay->muReceived == 1; })) << "the end";
    EXPECT_FALSE(cRelay->isExhausted()) << "its source goes on";
    mcSource->mbExhausted = true;
    EXPECT_TRUE(cRelay->isExhausted());
    EXPECT_TRUE(waitUntil([&] { return cSecond->isExhausted(); }));
    EXPECT_TRUE(cFirst->leaveInput());
}

TEST_F(ProcessorTest, AThreadThatCannotBeHadLeavesNothingAttached) {
    pthread_attr_t cDefault, cHuge;
    ASSERT_EQ(pthread_getattr_default_np(&cDefault), 0);
    ASSERT_EQ(pthread_getattr_default_np(&cHuge), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&cHuge, size_t{1} << 60), 0);
    const auto cWorker = make();
    const auto cOther = makeReference<CountedSource>();
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    ASSERT_EQ(pthread_setattr_default_np(&cHuge), 0);
    EXPECT_THROW(cWorker->takeInputFrom(*cOther, mlErrors), std::system_error);
    ASSERT_EQ(pthread_setattr_default_np(&cDefault), 0);
    EXPECT_FALSE(cWorker->isAttached());
    EXPECT_EQ(cOther->sinkCount(), 0u);
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    ASSERT_TRUE(attach(cWorker));
    send(1);
    EXPECT_TRUE(mcRecorder->waitFor({1}));
    pthread_attr_destroy(&cDefault);
    pthread_attr_destroy(&cHuge);
}

// The end of a stream.

TEST_F(ProcessorTest, TheEndGoesOnOnceWhenAllFramesAreDoneAndTheSourceHasEnded) {
    const auto cWorker = make();
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    send(0);
    send(1);
    sendEnd();
    // The source goes on: no end yet.
    ASSERT_TRUE(mcRecorder->waitFor({0, 1}));
    EXPECT_FALSE(waitUntil([&] { return mcRecorder->seen().size() > 2; }, 300ms));
    EXPECT_FALSE(cWorker->isExhausted());
    mcSource->mbExhausted = true;
    ASSERT_TRUE(mcRecorder->waitFor({0, 1, Recorder::kEnd}));
    EXPECT_TRUE(cWorker->isExhausted());
    EXPECT_FALSE(waitUntil([&] { return mcRecorder->seen().size() > 3; }, 300ms)) << "once";
    // It may go on behind it.
    send(5);
    sendEnd();
    EXPECT_TRUE(mcRecorder->waitFor({0, 1, Recorder::kEnd, 5, Recorder::kEnd}));
}

TEST_F(ProcessorTest, AnInputThatEndsWithoutAFrameSendsNoEnd) {
    const auto cWorker = make();
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    mcSource->mbExhausted = true;
    ASSERT_TRUE(attach(cWorker));
    sendEnd();
    ASSERT_TRUE(waitUntil([&] { return cWorker->isExhausted(); }));
    EXPECT_FALSE(waitUntil([&] { return !mcRecorder->seen().empty(); }, 400ms));
    send(0);
    sendEnd();
    EXPECT_TRUE(mcRecorder->waitFor({0, Recorder::kEnd}));
}

TEST_F(ProcessorTest, ANewAttachmentHasReceivedNoFrameYet) {
    const auto cWorker = make();
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    send(0);
    ASSERT_TRUE(mcRecorder->waitFor({0}));
    ASSERT_TRUE(cWorker->leaveInput());
    mcSource->mbExhausted = true;
    ASSERT_TRUE(attach(cWorker));
    sendEnd();
    ASSERT_TRUE(waitUntil([&] { return cWorker->isExhausted(); }));
    EXPECT_FALSE(waitUntil([&] { return mcRecorder->seen().size() > 1; }, 400ms));
}

TEST_F(ProcessorTest, AFrameThatIsBeingWorkedOnIsNotTheEnd) {
    Door cDoor;
    const auto cWorker = make([&](Worker& cSelf, ReferencePtr<Frame> cFrame) {
        cDoor.pass();
        cSelf.deliverFrame(cFrame, false);
    });
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    mcSource->mbExhausted = true;
    ASSERT_TRUE(attach(cWorker));
    send(0);
    ASSERT_TRUE(cDoor.waitForSomebody());
    // As if the end had been drained: the frame at work alone stands against it.
    sendEnd();
    cWorker->flush();
    EXPECT_FALSE(cWorker->isExhausted());
    cDoor.open();
    EXPECT_TRUE(mcRecorder->waitFor({0, Recorder::kEnd}));
    EXPECT_TRUE(cWorker->isExhausted());
}

TEST_F(ProcessorTest, TheEndRunsDownAChainOfProcessorsBehindAllFrames) {
    auto cFirst = make(), cSecond = make(), cThird = make();
    const auto cFirstStream = makeReference<Relay>(), cSecondStream = makeReference<Relay>();
    ASSERT_TRUE(cFirst->attachFrameSink(cFirstStream, mlErrors));
    ASSERT_TRUE(cSecond->takeInputFrom(*cFirstStream, mlErrors));
    ASSERT_TRUE(cSecond->attachFrameSink(cSecondStream, mlErrors));
    ASSERT_TRUE(cThird->takeInputFrom(*cSecondStream, mlErrors));
    ASSERT_TRUE(cThird->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cFirst));
    for (uint32_t i = 0; i < 5; ++i)
        send(i);
    sendEnd();
    ASSERT_TRUE(mcRecorder->waitForCount(5));
    EXPECT_FALSE(cThird->isExhausted()) << "the source goes on";
    mcSource->mbExhausted = true;
    EXPECT_TRUE(mcRecorder->waitFor({0, 1, 2, 3, 4, Recorder::kEnd}));
    EXPECT_TRUE(cThird->isExhausted());
    EXPECT_TRUE(cSecondStream->isExhausted());
    cThird->leaveInput();
    cSecond->leaveInput();
}

// Bodies that are left behind.

namespace {

/// Delivers two frames for each one that comes.
void deliverTwice(Worker& cSelf, ReferencePtr<Frame> cFrame) {
    auto cFirst = keptFrame(2 * cFrame->sequence());
    auto cSecond = keptFrame(2 * cFrame->sequence() + 1);
    cSelf.deliverFrame(cFirst, false);
    cSelf.deliverFrame(cSecond, false);
}

/// A sink with room for one frame.
ReferencePtr<FrameSink> narrowSink() {
    auto cSink = makeReference<FrameSink>();
    ErrorList lErrors;
    auto cRecord = vnktest::record("{\"bufferFrames\":1}");
    EXPECT_TRUE(cSink->setSinkParameters(cRecord, lErrors, false));
    return cSink;
}

}  // namespace

TEST_F(ProcessorTest, ADetachWhileItIsBlockedInDeliveryEndsAfterASecondAndNothingMoreIsSent) {
    const auto cWorker = make(deliverTwice);
    const auto cNarrow = narrowSink();
    ASSERT_TRUE(cWorker->attachFrameSink(cNarrow, mlErrors));
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    send(0);   // 0 and 1: the second is queued and waits for room
    send(1);
    ASSERT_TRUE(mcRecorder->waitFor({0}));
    ASSERT_TRUE(waitUntil([&] { return cWorker->miBegun == 1; }));
    const auto begin = steady_clock::now();
    EXPECT_TRUE(cWorker->leaveInput());
    EXPECT_GE(since(begin), 1000ms) << "the stop of the thread waits its limit";
    EXPECT_LT(since(begin), 20s);
    EXPECT_FALSE(cWorker->isAttached());
    EXPECT_EQ(cWorker->miAtWork, 1) << "left behind";
    // Attached again at once; a body of its own waits for its turn.
    ASSERT_TRUE(attach(cWorker));
    cWorker->flush();
    send(5);
    EXPECT_FALSE(waitUntil([&] { return cWorker->miBegun > 1; }, 300ms));
    // Room: the body that was left behind ends, and the frames of the new one come.
    EXPECT_EQ(cNarrow->nextFrame(0, false)->sequence(), 0u);
    ASSERT_TRUE(mcRecorder->waitFor({0, 1})) << "the one in flight";
    EXPECT_EQ(cNarrow->nextFrame(0, false)->sequence(), 1u);
    ASSERT_TRUE(mcRecorder->waitFor({0, 1, 10}));
    EXPECT_EQ(cNarrow->nextFrame(0, false)->sequence(), 10u);
    EXPECT_TRUE(mcRecorder->waitFor({0, 1, 10, 11}));
    EXPECT_FALSE(cWorker->mbTwoAtOnce);
}

TEST_F(ProcessorTest, LetGoWhileItIsBlockedInDeliveryItLetsItsSinkGoAndEnds) {
    auto cWorker = make(deliverTwice);
    const auto cNarrow = narrowSink();
    ASSERT_TRUE(cWorker->attachFrameSink(cNarrow, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    send(0);
    ASSERT_TRUE(waitUntil([&] { return cWorker->miBegun == 1; }));
    mcSource = nullptr;
    cWorker.release();
    EXPECT_TRUE(waitUntil([&] { return miAlive == 0; })) << "with nobody who reads the sink";
    EXPECT_FALSE(cNarrow->isAttached());
}

TEST_F(ProcessorTest, ABodyThatWasLeftBehindBeforeItsFrameWasDoneSendsNeitherTheRestNorTheEnd) {
    Door cDoor;
    std::atomic<int> iRefused{0};
    const auto cWorker = make([&](Worker& cSelf, ReferencePtr<Frame> cFrame) {
        if (cFrame->sequence() == 0) {
            cDoor.pass();
            iRefused += !cSelf.deliverFrame(cFrame, false);
            iRefused += !cSelf.deliverFrame(nullptr, false);
        } else {
            EXPECT_TRUE(cSelf.deliverFrame(cFrame, false));
        }
    });
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    mcSource->mbExhausted = true;
    ASSERT_TRUE(attach(cWorker));
    send(0);
    sendEnd();
    ASSERT_TRUE(cDoor.waitForSomebody());
    EXPECT_TRUE(cWorker->leaveInput());
    ASSERT_TRUE(attach(cWorker));
    send(1);
    cDoor.open();
    EXPECT_TRUE(mcRecorder->waitFor({1}));
    EXPECT_EQ(iRefused, 2);
    EXPECT_FALSE(cWorker->mbTwoAtOnce);
}

TEST_F(ProcessorTest, ADetachWhileItIsBlockedInTheTestForTheEndEndsAfterASecond) {
    class Slow : public CountedSource {
     public:
        explicit Slow(Door& cDoor) : mcDoor(cDoor) {}
        ~Slow() override { releaseSinks(); }
        bool isExhausted() override {
            mcDoor.pass();
            return true;
        }
        Door& mcDoor;
    };
    Door cDoor;
    auto cSlow = makeReference<Slow>(cDoor);
    const auto cWorker = make();
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(cWorker->takeInputFrom(*cSlow, mlErrors));
    cSlow->deliverFrame(iqFrame(0), false);
    cSlow->deliverFrame(nullptr, false);
    ASSERT_TRUE(cDoor.waitForSomebody());
    const auto begin = steady_clock::now();
    EXPECT_TRUE(cWorker->leaveInput());
    EXPECT_GE(since(begin), 1000ms);
    EXPECT_LT(since(begin), 20s);
    cSlow.release();   // the body that was left behind holds it
    ASSERT_TRUE(attach(cWorker));
    send(1);
    cDoor.open();
    EXPECT_TRUE(mcRecorder->waitFor({0, 1})) << "and no end of the earlier source";
    EXPECT_FALSE(cWorker->mbTwoAtOnce);
}

TEST_F(ProcessorTest, DetachedAndAttachedManyTimesWhileOneIsLeftBehindKeepsOneThreadThatWaits) {
    Door cDoor;
    const auto cWorker = make([&](Worker&, ReferencePtr<Frame> cFrame) {
        if (cFrame->sequence() == 0)
            cDoor.pass();
    });
    const size_t uThreads = vnktest::idleThreads();
    ASSERT_TRUE(attach(cWorker));
    send(0);
    ASSERT_TRUE(cDoor.waitForSomebody());
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(cWorker->leaveInput());   // the first takes a second, the others are at once
        ASSERT_TRUE(attach(cWorker));
    }
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads + 2; }));
    send(1);
    EXPECT_EQ(cWorker->miBegun, 1);
    cDoor.open();
    EXPECT_TRUE(waitUntil([&] { return cWorker->miDone == 2; }));
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads + 1; }));
    EXPECT_FALSE(cWorker->mbTwoAtOnce);
}

TEST_F(ProcessorTest, AProcessorThatWasLetGoWhileItsBodyIsBlockedLivesUntilThatHasLeft) {
    Door cDoor;
    auto cWorker = make([&](Worker& cSelf, ReferencePtr<Frame> cFrame) {
        cDoor.pass();
        EXPECT_FALSE(cSelf.deliverFrame(cFrame, false));
    });
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    send(0);
    ASSERT_TRUE(cDoor.waitForSomebody());
    mcSource = nullptr;
    cWorker.release();
    EXPECT_EQ(miAlive, 1);
    cDoor.open();
    EXPECT_TRUE(waitUntil([&] { return miAlive == 0; }));
    EXPECT_TRUE(mcRecorder->seen().empty());
    EXPECT_FALSE(mcRecorder->isAttached());
}

TEST_F(ProcessorTest, TheLastReferenceMayFallOnItsOwnThread) {
    for (int i = 0; i < 50; ++i) {
        ReferencePtr<Worker> cHeld;
        auto cWorker = make([&](Worker& cSelf, ReferencePtr<Frame>) {
            cSelf.leaveInput();
            cHeld.release();
            EXPECT_EQ(cSelf.miDone, 0);   // still there
        });
        cHeld = cWorker;
        ASSERT_TRUE(attach(cWorker));
        cWorker.release();
        send(0);
        ASSERT_TRUE(waitUntil([&] { return miAlive == 0; }));
    }
}

TEST_F(ProcessorTest, AttachedAgainWhileItLeavesOnItsOwnThreadItWorksOn) {
    Door cDoor;
    std::atomic<bool> bLeft{false};
    const auto cWorker = make([&](Worker& cSelf, ReferencePtr<Frame> cFrame) {
        if (cFrame->sequence() != 0) {
            cSelf.deliverFrame(cFrame, false);
            return;
        }
        EXPECT_TRUE(cSelf.leaveInput());   // asks its own thread to end, and cannot wait for that
        bLeft = true;
        cDoor.pass();
    });
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    send(0);
    ASSERT_TRUE(waitUntil([&] { return bLeft.load(); }));
    ASSERT_TRUE(attach(cWorker));
    send(1);
    cDoor.open();
    EXPECT_TRUE(mcRecorder->waitFor({1}));
    EXPECT_FALSE(cWorker->mbTwoAtOnce);
}

// Sources.

TEST_F(ProcessorTest, TakesOneInputAtATime) {
    const auto cWorker = make();
    const auto cOther = makeReference<CountedSource>();
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    ASSERT_TRUE(cWorker->takeInputFrom(*cOther, mlErrors));
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    send(0);
    cOther->deliverFrame(iqFrame(1), false);
    EXPECT_TRUE(mcRecorder->waitFor({1}));
    // The same one again is a new attachment as well.
    ASSERT_TRUE(cWorker->takeInputFrom(*cOther, mlErrors));
    EXPECT_EQ(cOther->sinkCount(), 1u);
    cOther->deliverFrame(iqFrame(2), false);
    EXPECT_TRUE(mcRecorder->waitFor({1, 2}));
}

TEST_F(ProcessorTest, AnInputThatRefusesLeavesItDetached) {
    class Refusing : public CountedSource {
     public:
        ~Refusing() override { releaseSinks(); }
        bool attachFrameSink(ReferencePtr<FrameSink>, ErrorList& lErrors) override {
            lErrors.push_back("no");
            return false;
        }
    };
    const auto cRefusing = makeReference<Refusing>();
    const auto cWorker = make();
    ASSERT_TRUE(attach(cWorker));
    EXPECT_FALSE(cWorker->takeInputFrom(*cRefusing, mlErrors));
    EXPECT_EQ(mlErrors, ErrorList{"no"});
    EXPECT_FALSE(cWorker->isAttached());
    EXPECT_EQ(mcSource->sinkCount(), 0u);
}

TEST_F(ProcessorTest, TwoThreadsThatAttachItElsewhereLeaveItWithOneInput) {
    const auto cWorker = make();
    const ReferencePtr<CountedSource> cSources[] = {mcSource, makeReference<CountedSource>()};
    for (int iRun = 0; iRun < 200; ++iRun) {
        std::vector<std::thread> lThreads;
        for (const auto& cSource : cSources)
            lThreads.emplace_back([&] {
                ErrorList lErrors;
                EXPECT_TRUE(cWorker->takeInputFrom(*cSource, lErrors));
            });
        for (std::thread& cThread : lThreads)
            cThread.join();
        EXPECT_EQ(cSources[0]->sinkCount() + cSources[1]->sinkCount(), 1u);
        EXPECT_TRUE(cWorker->isAttached());
    }
    EXPECT_TRUE(cWorker->leaveInput());
    EXPECT_EQ(cSources[0]->sinkCount() + cSources[1]->sinkCount(), 0u);
}

TEST_F(ProcessorTest, OfTwoDetachesAtOnceExactlyOneHasTheResult) {
    const auto cWorker = make();
    for (int iRun = 0; iRun < 200; ++iRun) {
        ASSERT_TRUE(attach(cWorker));
        std::atomic<int> iLeft{0};
        std::thread cOther([&] { iLeft += cWorker->leaveInput(); });
        iLeft += cWorker->leaveInput();
        cOther.join();
        EXPECT_EQ(iLeft, 1);
    }
}

TEST_F(ProcessorTest, ASourceThatEndsTakesTheThreadAlong) {
    const size_t uThreads = vnktest::idleThreads();
    const auto cWorker = make();
    ASSERT_TRUE(attach(cWorker));
    mcSource = nullptr;
    EXPECT_FALSE(cWorker->isAttached());
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
}

TEST_F(ProcessorTest, AttachDetachDeliverAndAskFromAllSidesAtOnceAgreeInTheEnd) {
    const auto cWorker = make();
    const auto cSink = makeReference<FrameSink>();
    const auto cOther = makeReference<CountedSource>();
    std::atomic<bool> bStop{false};
    std::vector<std::thread> lThreads;
    const auto forever = [&](std::function<void()> body) {
        lThreads.emplace_back([&bStop, body = std::move(body)] {
            while (!bStop)
                body();
        });
    };
    forever([&] { ErrorList l; cWorker->takeInputFrom(*mcSource, l); });
    forever([&] { ErrorList l; cWorker->takeInputFrom(*cOther, l); });
    forever([&] { cWorker->leaveInput(); });
    forever([&] { cWorker->detachFromSource(); });
    forever([&] { mcSource->deliverFrame(iqFrame(0), false); cOther->deliverFrame(nullptr, false); });
    forever([&] { cWorker->isExhausted(); cWorker->getParameters(); });
    forever([&] { ErrorList l; cWorker->attachFrameSink(cSink, l); cWorker->removeFrameSink(cSink); });
    EXPECT_TRUE(waitUntil([&] { return cWorker->miDone > 100; }, 60s));
    bStop = true;
    for (std::thread& cThread : lThreads)
        cThread.join();
    EXPECT_FALSE(cWorker->mbTwoAtOnce);
    cWorker->leaveInput();
    EXPECT_EQ(mcSource->sinkCount() + cOther->sinkCount(), 0u);
    EXPECT_EQ(cWorker->miAtWork, 0);
}

// Nobody can name it any more.

TEST_F(ProcessorTest, DisownedItGoesOnWhileItFeedsASinkAndThenLeavesItsInput) {
    const size_t uThreads = vnktest::idleThreads();
    auto cWorker = make();
    const auto cSink = makeReference<FrameSink>();
    ASSERT_TRUE(cWorker->attachFrameSink(cSink, mlErrors));
    ASSERT_TRUE(cWorker->attachFrameSink(mcRecorder, mlErrors));
    ASSERT_TRUE(attach(cWorker));
    cWorker->disown();
    cWorker.release();
    send(0);
    EXPECT_TRUE(mcRecorder->waitFor({0}));
    EXPECT_TRUE(cSink->detachFromSource());
    send(1);
    EXPECT_TRUE(mcRecorder->waitFor({0, 1}));
    EXPECT_TRUE(mcRecorder->detachFromSource());
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    EXPECT_TRUE(waitUntil([&] { return miAlive == 0; }));
    EXPECT_TRUE(waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
}

TEST_F(ProcessorTest, DisownedWithoutASinkItLeavesItsInputAndTakesNone) {
    const auto cWorker = make();
    ASSERT_TRUE(attach(cWorker));
    cWorker->disown();
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    attach(cWorker);   // on its way when the last handle went
    EXPECT_EQ(mcSource->sinkCount(), 0u);
    EXPECT_FALSE(cWorker->isAttached());
}

// Cycles.

class ProcessorCycleTest : public ProcessorTest {
 protected:
    /// Worker -> stream -> worker.
    void close(const ReferencePtr<Worker>& cWorker) {
        ASSERT_TRUE(cWorker->attachFrameSink(mcStream, mlErrors));
        ASSERT_TRUE(cWorker->takeInputFrom(*mcStream, mlErrors));
    }
    void open(const ReferencePtr<Worker>& cWorker) {
        cWorker->leaveInput();
        cWorker->removeFrameSink(nullptr);
    }
    ReferencePtr<Relay> mcStream = makeReference<Relay>();
};

TEST_F(ProcessorCycleTest, TheTestForTheEndComesRoundOnceAndEnds) {
    const auto cWorker = make([](Worker&, ReferencePtr<Frame>) {});
    close(cWorker);
    EXPECT_FALSE(cWorker->isExhausted()) << "no end was seen";
    EXPECT_FALSE(mcStream->isExhausted());
    mcStream->receiveFrame(iqFrame(0), false);
    mcStream->receiveFrame(nullptr, false);
    EXPECT_TRUE(waitUntil([&] { return cWorker->isExhausted() && mcStream->isExhausted(); }));
    open(cWorker);
}

TEST_F(ProcessorCycleTest, AFrameThatGoesRoundAndRoundUsesNoStackAndIsEndedByADetach) {
    const auto cWorker = make();
    close(cWorker);
    mcStream->receiveFrame(iqFrame(0), false);
    EXPECT_TRUE(waitUntil([&] { return mcStream->muReceived > 20'000; }));
    const auto begin = steady_clock::now();
    EXPECT_TRUE(cWorker->leaveInput());
    EXPECT_LT(since(begin), 20s);
    EXPECT_EQ(cWorker->miAtWork, 0);
    open(cWorker);
}

TEST_F(ProcessorCycleTest, AProcessorThatWaitsForRoomInItsOwnQueueGivesWayToADetachAtOnce) {
    std::atomic<bool> bFlood{true};
    const auto cWorker = make([&](Worker& cSelf, ReferencePtr<Frame>) {
        for (uint32_t i = 0; i < 50 && bFlood; ++i)
            cSelf.deliverFrame(keptFrame(i), false);
    });
    mcStream->setAllowDiscarding(true);
    close(cWorker);
    mcStream->receiveFrame(iqFrame(0), false);
    // Eleven frames in a queue of ten: the push of the last waits for its own consumer.
    ASSERT_TRUE(waitUntil([&] { return mcStream->muReceived == 12; }));
    const auto begin = steady_clock::now();
    bFlood = false;
    EXPECT_TRUE(cWorker->leaveInput());
    EXPECT_LT(since(begin), 20s);
    EXPECT_EQ(cWorker->miAtWork, 0) << "ended, not left behind";
    open(cWorker);
}

TEST_F(ProcessorCycleTest, ThreadsThatAskFromDifferentPlacesOfACycleNeverWaitForEachOther) {
    const auto cFirst = make([](Worker&, ReferencePtr<Frame>) {}), cSecond = make([](Worker&, ReferencePtr<Frame>) {});
    const auto cOther = makeReference<Relay>();
    ASSERT_TRUE(cFirst->attachFrameSink(mcStream, mlErrors));
    ASSERT_TRUE(cSecond->takeInputFrom(*mcStream, mlErrors));
    ASSERT_TRUE(cSecond->attachFrameSink(cOther, mlErrors));
    ASSERT_TRUE(cFirst->takeInputFrom(*cOther, mlErrors));
    for (const auto& cRelay : {mcStream, cOther}) {
        cRelay->receiveFrame(iqFrame(0), false);
        cRelay->receiveFrame(nullptr, false);
    }
    std::atomic<bool> bStop{false};
    std::atomic<int> iAsked{0};
    std::vector<std::thread> lThreads;
    const std::function<bool()> questions[] = {[&] { return cFirst->isExhausted(); },
                                               [&] { return cSecond->isExhausted(); },
                                               [&] { return mcStream->isExhausted(); },
                                               [&] { return cOther->isExhausted(); }};
    for (const auto& question : questions)
        lThreads.emplace_back([&] {
            while (!bStop) {
                question();
                ++iAsked;
            }
        });
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(cFirst->leaveInput());
        EXPECT_TRUE(cFirst->takeInputFrom(*cOther, mlErrors));
    }
    EXPECT_TRUE(waitUntil([&] { return iAsked > 10'000; }));
    EXPECT_TRUE(waitUntil([&] { return questions[0]() && questions[1](); })) << "with all drained it has ended";
    bStop = true;
    for (std::thread& cThread : lThreads)
        cThread.join();
    open(cFirst);
    open(cSecond);
}

TEST_F(ProcessorCycleTest, DisownedInACycleItGoesWithItsStream) {
    auto cWorker = make();
    close(cWorker);
    mcStream->receiveFrame(iqFrame(0), false);
    cWorker->disown();
    cWorker.release();
    EXPECT_EQ(miAlive, 1) << "its stream is there";
    EXPECT_TRUE(mcStream->detachFromSource());
    EXPECT_TRUE(waitUntil([&] { return miAlive == 0; }));
    EXPECT_EQ(mcStream->sinkCount(), 0u);
}
