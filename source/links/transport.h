#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "foundations/memoryblock.h"
#include "foundations/namedlock.h"
#include "foundations/thread.h"

/// A counted byte pipe with a polling thread of its own that hands every block that arrives to the one
/// callback set. One callback at a time; nothing serialises two concurrent transactions.
class Transport : public utils::ReferenceCountedObject, private utils::Thread {
 public:
    /// Called on the polling thread; must not block for long.
    class Callback {
     public:
        virtual ~Callback() = default;
        /// With no block when a poll ended with nothing. True to go on polling.
        virtual bool onData(ReferencePtr<utils::MemoryBlock> cBlock) = 0;
        virtual void onError(const std::string& text) = 0;
        /// The counted object that this callback is part of, held during each call; null for one whose owner
        /// clears it in time. While nobody owns it yet (it registers itself in its constructor) nothing is
        /// read from the wire; its destructor clears the callback.
        virtual utils::ReferenceCountedObject* countedSelf() { return nullptr; }
    };

    explicit Transport(std::string address);
    ~Transport() override;

    /// The poll time-out only falls and the chunk size only rises over the life of the transport.
    virtual bool setCallback(Callback* pCallback, uint32_t uPollTimeoutMs, uint32_t uChunkSize);
    /// True if it was the one set. Returns when the polling thread is out of its call and has ended, or after
    /// 1000 ms; on the polling thread itself at once.
    virtual bool clearCallback(Callback* pCallback);
    /// Type name, ":" and address.
    virtual std::string getDescription() const;
    virtual std::string getTypeName() const { return "-undefined-"; }
    virtual bool isOpen() const = 0;
    virtual bool send(ReferencePtr<utils::MemoryBlock> cBlock, std::string& errorText) = 0;
    virtual ReferencePtr<utils::MemoryBlock> receive(uint32_t uTimeoutMs, std::string& errorText) = 0;
    /// What has arrived by the time-out; null if nothing.
    virtual ReferencePtr<utils::MemoryBlock> transact(ReferencePtr<utils::MemoryBlock> cRequest,
                                                      int32_t iTimeoutMs, uint32_t uLeastSize);
    virtual bool flush() = 0;
    virtual bool close() = 0;
    virtual bool open() = 0;

    const std::string& getAddress() const { return mcAddress; }
    uint32_t getPollTimeoutMs() const { return muPollTimeoutMs.load(std::memory_order_relaxed); }
    /// The most that a receive takes; before anybody polls.
    void setChunkSize(uint32_t uBytes) { muChunkSize.store(uBytes, std::memory_order_relaxed); }
    uint32_t getChunkSize() const { return muChunkSize.load(std::memory_order_relaxed); }
    std::string getLastError() const;
    bool isPolling() const { return isRunning(); }

 protected:
    void destroySelf() noexcept override;
    void run() override;

 private:
    class Call;
    class Serving;
    enum class Readiness { kNone, kNotYet, kReady };
    Readiness readiness();
    bool endAfter(const Callback* pCallback);
    bool poll();
    bool deliver(Call& cCall, ReferencePtr<utils::MemoryBlock> cBlock, const std::string& errorText);
    void startPolling(const Callback* pCallback);
    void noteError(const std::string& text);

    std::string mcAddress;
    // Guards the slot and the words below it. A body goes on or ends by what the slot holds, decided under
    // this mutex, so that a callback set at any moment is served.
    mutable std::mutex mcSlotMutex;
    std::condition_variable mcSlotChanged;
    Callback* mpCallback = nullptr;
    utils::ReferenceCountedObject* mpCallbackCounted = nullptr;
    const Callback* mpCalling = nullptr;  // whose call the polling thread is in
    bool mbServing = false;               // a body runs that has not decided to end
    std::string mcLastError;
    std::atomic<uint32_t> muPollTimeoutMs{5};
    std::atomic<uint32_t> muChunkSize{1024};
    utils::NamedLock mcTransactionLock{"Transport::mcTransactionLock"};
};

/// A kind of transport that can be opened by name. The list is filled at start-up and only read afterwards.
class TransportType {
 public:
    explicit TransportType(std::string name);
    virtual ~TransportType();
    TransportType(const TransportType&) = delete;
    TransportType& operator=(const TransportType&) = delete;

    virtual ReferencePtr<Transport> create(const std::string& address) = 0;
    const std::string& getName() const { return mcName; }

    /// Null with no match, reporting nothing.
    static ReferencePtr<Transport> openByName(const std::string& typeName, const std::string& address);

 private:
    std::string mcName;
};
