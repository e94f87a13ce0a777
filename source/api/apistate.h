#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "flows/framesink.h"
#include "foundations/namedlock.h"
#include "processors/processor.h"
#include "receivers/device.h"

inline constexpr uint32_t kInvalidHandle = 0xFFFFFFFFu;

/// An address that can be examined and opened; the hint ("type:serial:firmware") is empty for addresses added
/// by hand.
struct KnownAddress {
    std::string mcAddress;
    std::string mcHint;
};

/// Everything that a caller can name. One object for the process, made at load.
///
/// Each table has its own lock, held for a look-up only and never two at a time: a look-up copies a counted
/// reference, so that one thread may close what another still uses.
class APIState {
 public:
    using Generator = std::function<uint32_t()>;

    /// Runs the initialiser chain. The generator is for tests.
    explicit APIState(Generator generator = {});
    /// Runs the chain again, detaches the streams, and lets everything go.
    virtual ~APIState();
    APIState(const APIState&) = delete;
    APIState& operator=(const APIState&) = delete;

    /// Null when the interface is not initialised.
    static APIState* current() { return spState.load(std::memory_order_acquire); }
    static void initialise();
    static void shutdown();

    int32_t addKnownAddress(const KnownAddress& cRecord);
    size_t knownAddressCount();
    /// False at or beyond the end.
    bool getKnownAddress(uint32_t uIndex, KnownAddress& cRecord);
    /// The open device of an address, and its handle.
    std::pair<uint32_t, ReferencePtr<Device>> findOpenDevice(const std::string& address);

    // Adding draws a handle that no table holds.
    uint32_t addDevice(ReferencePtr<Device> cDevice);
    uint32_t addProcessor(ReferencePtr<Processor> cProcessor);
    uint32_t addStream(ReferencePtr<FrameSink> cStream);

    ReferencePtr<Device> findDevice(uint32_t uHandle);
    ReferencePtr<Processor> findProcessor(uint32_t uHandle);
    ReferencePtr<FrameSink> findStream(uint32_t uHandle);
    ReferencePtr<Entity> findEntity(uint32_t uHandle);

    int32_t close(uint32_t* pHandle);

    /// Keeps a frame for as long as the caller has its record.
    void addAllocation(const void* pRecord, ReferencePtr<Frame> cFrame);
    /// False when the record was never entered. A record of an earlier state counts as entered: its data ended
    /// with that state.
    bool removeAllocation(const void* pRecord);

    void setLastStatus(int32_t iStatus) { miLastStatus.store(iStatus, std::memory_order_relaxed); }

 private:
    template <typename Map, typename Value>
    uint32_t insert(utils::NamedLock& cLock, Map& cMap, Value cValue);
    uint32_t drawHandle();
    bool reserve(uint32_t uHandle);
    void unreserve(uint32_t uHandle);
    bool closeStream(uint32_t uHandle);
    bool closeProcessor(uint32_t uHandle);
    bool closeDevice(uint32_t uHandle);
    void releaseStreams();
    void releaseProcessors();
    void releaseDevices();
    void orphanAllocations();

    static constinit std::atomic<APIState*> spState;
    static constinit std::atomic<uint32_t> suCount;

    Generator mcGenerator;
    std::atomic<int32_t> miLastStatus{0};
    utils::NamedLock mcDevicesLock{"APIState::mcDevicesLock"};
    std::vector<KnownAddress> mlKnownAddresses GUARDED_BY(mcDevicesLock);
    std::set<std::string> mcKnownTexts GUARDED_BY(mcDevicesLock);   // the same addresses, for the look-up
    std::map<uint32_t, ReferencePtr<Device>> mcDevices GUARDED_BY(mcDevicesLock);
    utils::NamedLock mcProcessorsLock{"APIState::mcProcessorsLock"};
    std::map<uint32_t, ReferencePtr<Processor>> mcProcessors GUARDED_BY(mcProcessorsLock);
    utils::NamedLock mcStreamsLock{"APIState::mcStreamsLock"};
    std::map<uint32_t, ReferencePtr<FrameSink>> mcStreams GUARDED_BY(mcStreamsLock);
    utils::NamedLock mcAllocationsLock{"APIState::mcAllocationsLock"};
    std::map<uint64_t, ReferencePtr<Frame>> mcAllocations GUARDED_BY(mcAllocationsLock);
    // Numbers drawn and not yet in a table: two threads that draw at once never share one.
    utils::NamedLock mcDrawnLock{"APIState::mcDrawnLock"};
    std::set<uint32_t> mcDrawn GUARDED_BY(mcDrawnLock);
};
