#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "foundations/barrier.h"
#include "foundations/clock.h"
#include "foundations/referencecountedobject.h"

namespace utils {

class SafeThread;   // one launch: the operating system thread with its own stop token and running flag
class ThreadLife;   // counts the bodies of one Thread object that still run, over all launches

/// A thread with a cooperative stop and a notifiable sleep. An ended thread may be started again.
///
/// A stop that runs into its limit leaves the body running and nobody waits for it. For that case a
/// counted class hands its own end over with `retire`, so that the object outlives every body of it.
class Thread {
 public:
    explicit Thread(std::string name);
    /// Stops with a limit of 100 ms.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Priority 0 (lowest) to 6 (time critical), anything else is normal. False if the running flag is
    /// set. Throws std::system_error when the system has no thread to give.
    bool start(uint32_t uPriority);
    /// The same, also while a body still runs that has been asked to end, which then counts as left behind: the
    /// two bodies are the object's to keep apart.
    bool startAnew(uint32_t uPriority);
    /// Asks the body to end and does not wait.
    void ask();
    /// Asks the body to end and waits up to the limit, 0 for ever. True when it has ended. On the thread
    /// itself it only asks.
    bool stop(uint32_t uLimitMs);
    /// Waits on the notifiable sleep; `notify` and `stop` end it early.
    void sleep(uint32_t uMs) { sleepMicroseconds(uint64_t{uMs} * 1000); }
    void sleepMicroseconds(uint64_t uMicroseconds);
    void notify();
    /// The stop flag: on a body its own launch's, elsewhere that of the last launch.
    bool isStopping() const;
    bool isRunning() const;
    /// True on a thread that runs this object's body.
    bool isOwnThread() const;
    /// True on a body that a stop, or the start of another one, has left behind.
    bool isLeftBehind() const;
    const std::string& getName() const { return mcName; }

    /// For counted owners, in place of `delete this`: stops with the limit and runs `destroy` when no
    /// body is left: at once on this thread if all have ended, otherwise on the last body's thread, which
    /// may be before this returns. The caller touches the object no more.
    void retire(uint32_t uLimitMs, std::function<void()> destroy) noexcept;

 protected:
    /// The body; polls isStopping().
    virtual void run() = 0;

 private:
    friend class SafeThread;
    ReferencePtr<SafeThread> lastLaunch() const;
    ReferencePtr<SafeThread> askLastLaunch();
    bool launch(uint32_t uPriority, bool bBesideOneThatEnds);
    void abandon(SafeThread& cLaunch);

    std::string mcName;
    ReferencePtr<SafeThread> mcSafeThread;
    ReferencePtr<SafeThread> mcRunning;   // the launch whose flag isRunning shows; outlasts a late stop
    ReferencePtr<ThreadLife> mcLife;
    uint32_t muPriority = 0;
    std::atomic<bool> mbStopping{false};
    mutable std::mutex mcLaunchMutex;   // guards the two launches and the priority
    Barrier mcNotifiableSleep;
};

}  // namespace utils
