#include "links/transport.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "foundations/clock.h"
#include "links/transaction.h"

namespace {

constexpr uint32_t kPollingPriority = 4;
constexpr auto kClearLimit = std::chrono::milliseconds(1000);
constexpr uint32_t kDestroyLimitMs = 2000;
constexpr size_t kLastErrorLimit = 65536;  // of a link that keeps failing for days

}  // namespace

/// One call of the callback: holds the counted object behind it, and lets go whatever way the call ends.
class Transport::Call {
 public:
    explicit Call(Transport& cTransport) : mcTransport(cTransport) {
        std::lock_guard<std::mutex> cGuard(mcTransport.mcSlotMutex);
        auto* const pCounted = mcTransport.mpCallbackCounted;
        if (!mcTransport.mpCallback || (pCounted && !pCounted->tryAddReference()))
            return;
        mcHeld = ReferencePtr<utils::ReferenceCountedObject>::adopt(pCounted);
        mpCallback = mcTransport.mpCallback;
        mcTransport.mpCalling = mpCallback;
    }
    ~Call() { finish(); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    void finish() {
        {
            std::lock_guard<std::mutex> cGuard(mcTransport.mcSlotMutex);
            mcTransport.mpCalling = nullptr;
            mcTransport.mcSlotChanged.notify_all();
        }
        // May be the last reference: the object then ends here, with the slot free to be cleared.
        mcHeld = nullptr;
    }
    Callback* get() const { return mpCallback; }

 private:
    Transport& mcTransport;
    ReferencePtr<utils::ReferenceCountedObject> mcHeld;
    Callback* mpCallback = nullptr;
};

/// The time in which a body serves the slot.
class Transport::Serving {
 public:
    explicit Serving(Transport& cTransport) : mcTransport(cTransport) { set(true); }
    ~Serving() { set(false); }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;

 private:
    void set(bool bServing) {
        std::lock_guard<std::mutex> cGuard(mcTransport.mcSlotMutex);
        mcTransport.mbServing = bServing;
        mcTransport.mcSlotChanged.notify_all();
    }
    Transport& mcTransport;
};

// The base class's own type name: the derived class is not known yet here.
Transport::Transport(std::string address)
    : utils::Thread("PollingThread<-undefined-:" + address + ">"), mcAddress(std::move(address)) {}

Transport::~Transport() {
    {
        std::lock_guard<std::mutex> cGuard(mcSlotMutex);
        mpCallback = nullptr;
        mpCallbackCounted = nullptr;
    }
    stop(kDestroyLimitMs);
}

void Transport::destroySelf() noexcept {
    {
        std::lock_guard<std::mutex> cGuard(mcSlotMutex);
        mpCallback = nullptr;
        mpCallbackCounted = nullptr;
    }
    // Derived members must outlive every body, so the whole object waits, not just this base class.
    retire(kDestroyLimitMs, [this] { delete this; });
}

bool Transport::setCallback(Callback* pCallback, uint32_t uPollTimeoutMs, uint32_t uChunkSize) {
    utils::ReferenceCountedObject* const pCounted = pCallback ? pCallback->countedSelf() : nullptr;
    {
        std::lock_guard<std::mutex> cGuard(mcSlotMutex);
        if (pCallback == mpCallback)
            return false;
        mpCallback = pCallback;
        mpCallbackCounted = pCounted;
        muPollTimeoutMs.store(std::min(getPollTimeoutMs(), uPollTimeoutMs), std::memory_order_relaxed);
        muChunkSize.store(std::max(getChunkSize(), uChunkSize), std::memory_order_relaxed);
        if (mbServing)
            return true;
    }
    startPolling(pCallback);
    return true;
}

/// Starts a body, or waits for the moment in which the last one is on its way out.
void Transport::startPolling(const Callback* pCallback) {
    try {
        while (!start(kPollingPriority)) {
            {
                std::lock_guard<std::mutex> cGuard(mcSlotMutex);
                if (mbServing || mpCallback != pCallback)
                    return;
            }
            std::this_thread::yield();
        }
    } catch (...) {
        std::lock_guard<std::mutex> cGuard(mcSlotMutex);
        if (mpCallback == pCallback) {
            mpCallback = nullptr;
            mpCallbackCounted = nullptr;
        }
        throw;
    }
}

bool Transport::clearCallback(Callback* pCallback) {
    const auto cEnd = std::chrono::steady_clock::now() + kClearLimit;
    {
        std::unique_lock<std::mutex> cGuard(mcSlotMutex);
        if (!pCallback || pCallback != mpCallback)
            return false;
        mpCallback = nullptr;
        mpCallbackCounted = nullptr;
        if (isOwnThread())
            return true;
        notify();
        // A body that another callback has been given to meanwhile goes on.
        mcSlotChanged.wait_until(cGuard, cEnd,
                                 [&] { return mpCalling != pCallback && (mpCallback || !mbServing); });
        if (mbServing)
            return true;
    }
    while (isRunning() && std::chrono::steady_clock::now() < cEnd) {
        {
            std::lock_guard<std::mutex> cGuard(mcSlotMutex);
            if (mpCallback)
                break;
        }
        std::this_thread::yield();
    }
    return true;
}

std::string Transport::getDescription() const {
    return getTypeName() + ":" + mcAddress;
}

std::string Transport::getLastError() const {
    std::lock_guard<std::mutex> cGuard(mcSlotMutex);
    return mcLastError;
}

void Transport::noteError(const std::string& text) {
    if (text.empty())
        return;
    std::lock_guard<std::mutex> cGuard(mcSlotMutex);
    mcLastError = mcLastError.empty() ? text : text + ", " + mcLastError;
    if (mcLastError.size() > kLastErrorLimit)
        mcLastError.resize(kLastErrorLimit);
}

Transport::Readiness Transport::readiness() {
    std::lock_guard<std::mutex> cGuard(mcSlotMutex);
    if (!mpCallback) {
        mbServing = false;
        return Readiness::kNone;
    }
    return mpCallbackCounted && mpCallbackCounted->referenceCount() == 0 ? Readiness::kNotYet
                                                                         : Readiness::kReady;
}

/// After a callback wants no more: true unless another one has taken its place.
bool Transport::endAfter(const Callback* pCallback) {
    std::lock_guard<std::mutex> cGuard(mcSlotMutex);
    if (mpCallback && mpCallback != pCallback)
        return false;
    mbServing = false;
    return true;
}

void Transport::run() {
    Serving cServing(*this);
    for (;;) {
        const Readiness eReadiness = readiness();
        if (eReadiness == Readiness::kNone)
            return;
        if (eReadiness == Readiness::kNotYet)
            sleep(1);  // what is on the wire waits there until somebody can take it
        else if (!poll())
            return;
    }
}

/// One pass. False when the thread has decided to end.
bool Transport::poll() {
    const uint64_t uStart = utils::steadyMicroseconds();
    const uint64_t uLimit = uint64_t{getPollTimeoutMs()} * 1000;
    std::string errorText;
    auto cBlock = receive(getPollTimeoutMs(), errorText);
    const bool bEmpty = !cBlock || cBlock->getReadableDataLength() == 0;
    noteError(errorText);
    {
        Call cCall(*this);
        Callback* const pCallback = cCall.get();
        if (pCallback && !deliver(cCall, std::move(cBlock), errorText) && endAfter(pCallback))
            return false;
    }
    // A link that answers at once with nothing, as one whose peer has closed does, must not keep a processor
    // busy.
    const uint64_t uPassed = utils::steadyMicroseconds() - uStart;
    if (bEmpty && uPassed + 1000 <= uLimit)
        sleep(static_cast<uint32_t>((uLimit - uPassed) / 1000));
    else
        std::this_thread::yield();
    return true;
}

bool Transport::deliver(Call& cCall, ReferencePtr<utils::MemoryBlock> cBlock, const std::string& errorText) {
    if (errorText.empty())
        return cCall.get()->onData(std::move(cBlock));
    cCall.get()->onError(errorText);
    return false;
}

namespace {

/// Clears the transaction on every way out of a transact.
class Registration {
 public:
    Registration(Transport& cTransport, Transport::Callback* pCallback)
        : mcTransport(cTransport), mpCallback(pCallback) {}
    ~Registration() { mcTransport.clearCallback(mpCallback); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

 private:
    Transport& mcTransport;
    Transport::Callback* mpCallback;
};

}  // namespace

ReferencePtr<utils::MemoryBlock> Transport::transact(ReferencePtr<utils::MemoryBlock> cRequest,
                                                     int32_t iTimeoutMs, uint32_t uLeastSize) {
    const auto cTransaction =
        makeReference<_Transaction>(uLeastSize, static_cast<uint32_t>(std::max(iTimeoutMs, 0)));
    if (!cRequest) {
        cTransaction->wait();
        return cTransaction->takeReply();
    }
    Registration cRegistration(*this, cTransaction.get());
    flush();
    setCallback(cTransaction.get(), 5, 1024);
    std::string errorText;
    if (send(std::move(cRequest), errorText))
        cTransaction->wait();
    else
        cTransaction->onError(errorText);
    return cTransaction->takeReply();
}

namespace {

struct TransportRegistry {
    std::vector<TransportType*> mlTypes;
    utils::NamedLock mcTransportsLock{
        "Transport::mcTransportsLock"};  // taken by nobody: filled at start-up only
};

// Made on first use and never destroyed: types register and leave in any order.
TransportRegistry& registry() {
    static TransportRegistry* const pRegistry = new TransportRegistry;
    return *pRegistry;
}

}  // namespace

TransportType::TransportType(std::string name) : mcName(std::move(name)) {
    auto& lTypes = registry().mlTypes;
    if (std::find(lTypes.begin(), lTypes.end(), this) == lTypes.end())
        lTypes.push_back(this);
}

TransportType::~TransportType() {
    auto& lTypes = registry().mlTypes;
    lTypes.erase(std::remove(lTypes.begin(), lTypes.end(), this), lTypes.end());
}

ReferencePtr<Transport> TransportType::openByName(const std::string& typeName, const std::string& address) {
    for (TransportType* pType : registry().mlTypes)
        if (pType->getName() == typeName)
            return pType->create(address);
    return nullptr;
}
