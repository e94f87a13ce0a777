#include "api/apistate.h"

#include "foundations/initializer.h"
#include "foundations/runtimeerrors.h"
#include "streams/streamhandler.h"

constinit std::atomic<APIState*> APIState::spState{nullptr};
constinit std::atomic<uint32_t> APIState::suCount{0};

namespace {

// Records that callers held when the state they came from ended. Never destroyed: a host may give one back
// from its own exit code.
struct OrphanedRecords {
    std::mutex mcMutex;
    std::set<uint64_t> mcAddresses;
};

OrphanedRecords& orphanedRecords() {
    static OrphanedRecords& cRecords = *new OrphanedRecords;
    return cRecords;
}

uint64_t keyOf(const void* pRecord) {
    return reinterpret_cast<uint64_t>(pRecord);
}

template <typename Map>
typename Map::mapped_type findIn(utils::NamedLock& cLock, const Map& cMap, uint32_t uHandle) {
    utils::ScopedLock cGuard(cLock);
    const auto it = cMap.find(uHandle);
    return it == cMap.end() ? typename Map::mapped_type() : it->second;
}

template <typename Map>
typename Map::mapped_type takeFrom(utils::NamedLock& cLock, Map& cMap, uint32_t uHandle) {
    utils::ScopedLock cGuard(cLock);
    const auto it = cMap.find(uHandle);
    if (it == cMap.end())
        return {};
    auto cFound = std::move(it->second);
    cMap.erase(it);
    return cFound;
}

/// Nothing feeds the stream any more, and its recording is on disk, whoever else holds it for a moment.
void endStream(FrameSink& cStream) {
    if (auto* pHandler = dynamic_cast<StreamHandler*>(&cStream))
        pHandler->close();
    else
        cStream.detachFromSource();
}

}  // namespace

APIState::APIState(Generator generator)
    : mcGenerator(generator ? std::move(generator) : Generator(&utils::randomValue)) {
    utils::Initializer::initialiseAll();
}

APIState::~APIState() {
    utils::RuntimeErrors::instance().clear();
    utils::Initializer::finaliseAll();
    orphanAllocations();
    releaseStreams();
    releaseProcessors();
    releaseDevices();
}

void APIState::initialise() {
    suCount.fetch_add(1, std::memory_order_relaxed);
    if (!current())
        spState.store(new APIState, std::memory_order_release);
}

void APIState::shutdown() {
    // Only the count 1 ends the state; there is no floor below it.
    if (suCount.load(std::memory_order_relaxed) != 1) {
        suCount.fetch_sub(1, std::memory_order_relaxed);
        return;
    }
    delete spState.exchange(nullptr, std::memory_order_acq_rel);
    suCount.store(0, std::memory_order_relaxed);
}

int32_t APIState::addKnownAddress(const KnownAddress& cRecord) {
    utils::ScopedLock cGuard(mcDevicesLock);
    if (!mcKnownTexts.insert(cRecord.mcAddress).second)
        return -3;
    mlKnownAddresses.push_back(cRecord);
    return 0;
}

size_t APIState::knownAddressCount() {
    utils::ScopedLock cGuard(mcDevicesLock);
    return mlKnownAddresses.size();
}

bool APIState::getKnownAddress(uint32_t uIndex, KnownAddress& cRecord) {
    utils::ScopedLock cGuard(mcDevicesLock);
    if (uIndex >= mlKnownAddresses.size())
        return false;
    cRecord = mlKnownAddresses[uIndex];
    return true;
}

std::pair<uint32_t, ReferencePtr<Device>> APIState::findOpenDevice(const std::string& address) {
    utils::ScopedLock cGuard(mcDevicesLock);
    for (const auto& [uHandle, cDevice] : mcDevices)
        if (cDevice->address() == address)
            return {uHandle, cDevice};
    return {kInvalidHandle, nullptr};
}

bool APIState::reserve(uint32_t uHandle) {
    utils::ScopedLock cGuard(mcDrawnLock);
    return mcDrawn.insert(uHandle).second;
}

void APIState::unreserve(uint32_t uHandle) {
    utils::ScopedLock cGuard(mcDrawnLock);
    mcDrawn.erase(uHandle);
}

uint32_t APIState::drawHandle() {
    for (;;) {
        const uint32_t uA = mcGenerator();
        const uint32_t uB = mcGenerator();
        const uint32_t uHandle = (uB << 16) ^ uA;
        // Kept from other threads first, looked up then: a number that another thread is entering just now is
        // either still kept or in its table already.
        if (uHandle == kInvalidHandle || !reserve(uHandle))
            continue;
        if (!findDevice(uHandle) && !findProcessor(uHandle) && !findStream(uHandle))
            return uHandle;
        unreserve(uHandle);
    }
}

template <typename Map, typename Value>
uint32_t APIState::insert(utils::NamedLock& cLock, Map& cMap, Value cValue) {
    const uint32_t uHandle = drawHandle();
    {
        utils::ScopedLock cGuard(cLock);
        cMap.emplace(uHandle, std::move(cValue));
    }
    unreserve(uHandle);
    return uHandle;
}

uint32_t APIState::addDevice(ReferencePtr<Device> cDevice) NO_THREAD_SAFETY_ANALYSIS {
    return insert(mcDevicesLock, mcDevices, std::move(cDevice));
}

uint32_t APIState::addProcessor(ReferencePtr<Processor> cProcessor) NO_THREAD_SAFETY_ANALYSIS {
    return insert(mcProcessorsLock, mcProcessors, std::move(cProcessor));
}

uint32_t APIState::addStream(ReferencePtr<FrameSink> cStream) NO_THREAD_SAFETY_ANALYSIS {
    return insert(mcStreamsLock, mcStreams, std::move(cStream));
}

ReferencePtr<Device> APIState::findDevice(uint32_t uHandle) NO_THREAD_SAFETY_ANALYSIS {
    return findIn(mcDevicesLock, mcDevices, uHandle);
}

ReferencePtr<Processor> APIState::findProcessor(uint32_t uHandle) NO_THREAD_SAFETY_ANALYSIS {
    return findIn(mcProcessorsLock, mcProcessors, uHandle);
}

ReferencePtr<FrameSink> APIState::findStream(uint32_t uHandle) NO_THREAD_SAFETY_ANALYSIS {
    return findIn(mcStreamsLock, mcStreams, uHandle);
}

ReferencePtr<Entity> APIState::findEntity(uint32_t uHandle) {
    if (ReferencePtr<Device> cDevice = findDevice(uHandle))
        return cDevice;
    if (ReferencePtr<Processor> cProcessor = findProcessor(uHandle))
        return cProcessor;
    return findStream(uHandle);
}

int32_t APIState::close(uint32_t* pHandle) {
    if (!pHandle)
        return -4;
    if (*pHandle == kInvalidHandle)
        return -8;
    if (!closeStream(*pHandle) && !closeProcessor(*pHandle) && !closeDevice(*pHandle))
        return -21;
    *pHandle = kInvalidHandle;
    return 0;
}

bool APIState::closeStream(uint32_t uHandle) NO_THREAD_SAFETY_ANALYSIS {
    const ReferencePtr<FrameSink> cStream = takeFrom(mcStreamsLock, mcStreams, uHandle);
    if (!cStream)
        return false;
    endStream(*cStream);
    return true;
}

bool APIState::closeProcessor(uint32_t uHandle) NO_THREAD_SAFETY_ANALYSIS {
    const ReferencePtr<Processor> cProcessor = takeFrom(mcProcessorsLock, mcProcessors, uHandle);
    if (!cProcessor)
        return false;
    cProcessor->disown();
    return true;
}

bool APIState::closeDevice(uint32_t uHandle) NO_THREAD_SAFETY_ANALYSIS {
    const ReferencePtr<Device> cDevice = takeFrom(mcDevicesLock, mcDevices, uHandle);
    if (!cDevice)
        return false;
    Device::forget(cDevice.get());
    return true;
}

void APIState::addAllocation(const void* pRecord, ReferencePtr<Frame> cFrame) {
    utils::ScopedLock cGuard(mcAllocationsLock);
    mcAllocations[keyOf(pRecord)] = std::move(cFrame);
}

bool APIState::removeAllocation(const void* pRecord) {
    ReferencePtr<Frame> cFrame;   // ends after the lock
    {
        utils::ScopedLock cGuard(mcAllocationsLock);
        const auto it = mcAllocations.find(keyOf(pRecord));
        if (it != mcAllocations.end()) {
            cFrame = std::move(it->second);
            mcAllocations.erase(it);
            return true;
        }
    }
    std::lock_guard<std::mutex> cGuard(orphanedRecords().mcMutex);
    return orphanedRecords().mcAddresses.erase(keyOf(pRecord)) != 0;
}

void APIState::orphanAllocations() {
    std::map<uint64_t, ReferencePtr<Frame>> cAllocations;
    {
        utils::ScopedLock cGuard(mcAllocationsLock);
        cAllocations.swap(mcAllocations);
    }
    std::lock_guard<std::mutex> cGuard(orphanedRecords().mcMutex);
    for (const auto& [uRecord, cFrame] : cAllocations)
        orphanedRecords().mcAddresses.insert(uRecord);
}

// A stream that is attached is also held by its source, and holds it: without a detach neither would end.
void APIState::releaseStreams() {
    std::map<uint32_t, ReferencePtr<FrameSink>> cStreams;
    {
        utils::ScopedLock cGuard(mcStreamsLock);
        cStreams.swap(mcStreams);
    }
    for (const auto& [uHandle, cStream] : cStreams)
        endStream(*cStream);
}

// The ends of their threads are waited for outside the lock.
void APIState::releaseProcessors() {
    std::map<uint32_t, ReferencePtr<Processor>> cProcessors;
    {
        utils::ScopedLock cGuard(mcProcessorsLock);
        cProcessors.swap(mcProcessors);
    }
    for (const auto& [uHandle, cProcessor] : cProcessors)
        cProcessor->disown();
}

void APIState::releaseDevices() {
    std::map<uint32_t, ReferencePtr<Device>> cDevices;
    {
        utils::ScopedLock cGuard(mcDevicesLock);
        cDevices.swap(mcDevices);
        mlKnownAddresses.clear();
        mcKnownTexts.clear();
    }
    for (const auto& [uHandle, cDevice] : cDevices)
        Device::forget(cDevice.get());
}
