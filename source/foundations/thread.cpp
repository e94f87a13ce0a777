#include "foundations/thread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <thread>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "foundations/usererrors.h"

namespace utils {

static constexpr uint32_t kDestructorLimitMs = 100;
static constexpr uint32_t kStopPollMs = 10;
static constexpr int32_t kThreadFailure = -9001;

/// Raising needs a right that most processes lack: the thread then stays normal without a word.
static void applyPriority(uint32_t uPriority) {
    // Nice steps against the process for the values 0 to 6.
    static constexpr int kSteps[] = {10, 5, 0, -5, -10, -10, -15};
    const int iStep = uPriority < std::size(kSteps) ? kSteps[uPriority] : 0;
    const int iWanted = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid())) + iStep;
    // A thread begins with the priority of the one that started it.
    const auto uSelf = static_cast<id_t>(gettid());
    if (getpriority(PRIO_PROCESS, uSelf) != iWanted)
        setpriority(PRIO_PROCESS, uSelf, iWanted);
}

static void reportFailure(std::string message) noexcept {
    try {
        reportError(kThreadFailure, std::move(message));
    } catch (...) {
        // No memory for the record either: the thread must end cleanly all the same.
    }
}

class ThreadLife : public ReferenceCountedObject {
 public:
    void bodyStarts() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        ++muBodies;
    }

    /// What is left to do when this was the last body of a retired object; empty otherwise.
    std::function<void()> bodyEnds() {
        std::lock_guard<std::mutex> cGuard(mcMutex);
        --muBodies;
        return muBodies ? std::function<void()>() : std::exchange(mcDestroy, nullptr);
    }

    void retire(std::function<void()> destroy) {
        {
            std::lock_guard<std::mutex> cGuard(mcMutex);
            if (muBodies) {
                mcDestroy = std::move(destroy);
                return;
            }
        }
        destroy();
    }

 private:
    std::mutex mcMutex;
    uint32_t muBodies = 0;
    std::function<void()> mcDestroy;
};

class SafeThread : public ReferenceCountedObject {
 public:
    SafeThread(Thread& cOwner, ReferencePtr<ThreadLife> cLife, uint32_t uPriority)
        : mpOwner(&cOwner), mcLife(std::move(cLife)), muPriority(uPriority) {}
    ~SafeThread() override;

    /// Returns when the new thread has taken over. Throws std::system_error when there is none to have.
    void begin();
    void detach() { mcThread.detach(); }

    bool isBodyOf(const ReferencePtr<ThreadLife>& cLife) const { return mcLife == cLife; }
    bool isRunning() const { return mbRunning.load(std::memory_order_acquire); }
    bool isStopping() const { return mbStopping.load(std::memory_order_relaxed); }
    bool isAbandoned() const { return mbAbandoned.load(std::memory_order_relaxed); }
    void ask() { mbStopping.store(true, std::memory_order_relaxed); }
    void abandon() { mbAbandoned.store(true, std::memory_order_relaxed); }

    /// The launch whose body the calling thread runs; null on foreign threads.
    static thread_local SafeThread* smpCurrent;

 private:
    void wrapper();
    void runBody() noexcept;

    Thread* mpOwner;  // alive until the body has been counted out
    ReferencePtr<ThreadLife> mcLife;
    uint32_t muPriority;
    uint32_t muIdentifier = 0;
    std::thread mcThread;
    std::atomic<bool> mbStopping{false};
    std::atomic<bool> mbRunning{false};
    std::atomic<bool> mbAbandoned{false};
    Barrier mcTakenSync{"SafeThread::mcTakenSync"};
};

thread_local SafeThread* SafeThread::smpCurrent = nullptr;

SafeThread::~SafeThread() {
    if (!mcThread.joinable())
        return;
    try {
        mcThread.join();
    } catch (...) {
        reportFailure(formatText("Thread join for 0x%08x raised an exception", muIdentifier));
        mcThread.detach();
    }
}

void SafeThread::begin() {
    mcLife->bodyStarts();
    try {
        mcThread = std::thread([cSelf = ReferencePtr<SafeThread>(this)] { cSelf->wrapper(); });
    } catch (...) {
        mcLife->bodyEnds();
        throw;
    }
    mcTakenSync.wait(std::numeric_limits<uint64_t>::max());
}

void SafeThread::wrapper() {
    smpCurrent = this;
    muIdentifier = threadIdentifier();
    mpOwner->mbStopping.store(false, std::memory_order_relaxed);
    mbRunning.store(true, std::memory_order_release);
    pthread_setname_np(pthread_self(), mpOwner->mcName.substr(0, 15).c_str());
    mcTakenSync.signal();
    applyPriority(muPriority);
    runBody();
    smpCurrent = nullptr;
    // From here on the owner may be gone. Counted out before the flag falls, so that who has seen it fall
    // finds no body left.
    const std::function<void()> destroy = mcLife->bodyEnds();
    mbRunning.store(false, std::memory_order_release);
    if (destroy)
        destroy();
}

void SafeThread::runBody() noexcept {
    try {
        mpOwner->run();
    } catch (...) {
        try {
            reportFailure(isAbandoned() ? std::string("Thread::wrapper exit with mcThread==nullptr")
                                        : formatText("Thread 0x%08x raised an exception", muIdentifier));
        } catch (...) {
            // No memory for the text.
        }
    }
}

Thread::Thread(std::string name)
    : mcName(std::move(name)),
      mcLife(makeReference<ThreadLife>()),
      mcNotifiableSleep(mcName + "::mcNotifiableSleep") {}

Thread::~Thread() {
    stop(kDestructorLimitMs);
    if (const ReferencePtr<SafeThread> cLaunch = lastLaunch())
        cLaunch->abandon();
}

ReferencePtr<SafeThread> Thread::lastLaunch() const {
    std::lock_guard<std::mutex> cGuard(mcLaunchMutex);
    return mcSafeThread;
}

bool Thread::start(uint32_t uPriority) {
    return launch(uPriority, false);
}

bool Thread::startAnew(uint32_t uPriority) {
    return launch(uPriority, true);
}

bool Thread::launch(uint32_t uPriority, bool bBesideOneThatEnds) {
    std::lock_guard<std::mutex> cGuard(mcLaunchMutex);
    const bool bRuns = mcRunning && mcRunning->isRunning();
    if (bRuns && !(bBesideOneThatEnds && mcRunning->isStopping()))
        return false;
    muPriority = uPriority;
    auto cLaunch = makeReference<SafeThread>(*this, mcLife, muPriority);
    cLaunch->begin();
    if (bRuns)
        mcRunning->abandon();
    mcSafeThread = cLaunch;
    mcRunning = cLaunch;
    cLaunch->detach();
    return true;
}

/// Null when there is none to ask.
ReferencePtr<SafeThread> Thread::askLastLaunch() {
    ReferencePtr<SafeThread> cLaunch;
    {
        std::lock_guard<std::mutex> cGuard(mcLaunchMutex);
        if (!mcSafeThread) {
            mcRunning.release();
            return nullptr;
        }
        cLaunch = mcSafeThread;
        mbStopping.store(true, std::memory_order_relaxed);
        cLaunch->ask();
    }
    mcNotifiableSleep.signal();
    return cLaunch;
}

void Thread::ask() {
    askLastLaunch();
}

bool Thread::stop(uint32_t uLimitMs) {
    const uint64_t uBegin = steadyMilliseconds();
    const ReferencePtr<SafeThread> cLaunch = askLastLaunch();
    if (!cLaunch)
        return true;
    if (isOwnThread())
        return !cLaunch->isRunning();
    const uint32_t uPollMs = uLimitMs ? std::min(kStopPollMs, uLimitMs) : kStopPollMs;
    while (cLaunch->isRunning()) {
        sleepMs(uPollMs);
        if (uLimitMs && steadyMilliseconds() - uBegin > uLimitMs)
            break;
    }
    if (!cLaunch->isRunning())
        return true;
    abandon(*cLaunch);
    return false;
}

/// Lets a late launch go on by itself. Its running flag stays the visible one.
void Thread::abandon(SafeThread& cLaunch) {
    cLaunch.abandon();
    std::lock_guard<std::mutex> cGuard(mcLaunchMutex);
    if (mcSafeThread.get() == &cLaunch)
        mcSafeThread.release();
}

void Thread::sleepMicroseconds(uint64_t uMicroseconds) {
    // A late body leaves the signals to its successor.
    if (isLeftBehind())
        sleepMs(static_cast<uint32_t>(std::min<uint64_t>(uMicroseconds / 1000, UINT32_MAX)));
    else
        mcNotifiableSleep.wait(uMicroseconds);
}

void Thread::notify() {
    mcNotifiableSleep.signal();
}

bool Thread::isStopping() const {
    return isOwnThread() ? SafeThread::smpCurrent->isStopping() : mbStopping.load(std::memory_order_relaxed);
}

bool Thread::isRunning() const {
    std::lock_guard<std::mutex> cGuard(mcLaunchMutex);
    return mcRunning && mcRunning->isRunning();
}

bool Thread::isOwnThread() const {
    return SafeThread::smpCurrent && SafeThread::smpCurrent->isBodyOf(mcLife);
}

bool Thread::isLeftBehind() const {
    return isOwnThread() && SafeThread::smpCurrent->isAbandoned();
}

void Thread::retire(uint32_t uLimitMs, std::function<void()> destroy) noexcept {
    // Held by itself: the object may end as soon as its end has been handed over.
    const ReferencePtr<ThreadLife> cLife = mcLife;
    stop(uLimitMs);
    cLife->retire(std::move(destroy));
}

}  // namespace utils
