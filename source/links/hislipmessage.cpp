#include "links/hislipmessage.h"

#include <algorithm>
#include <array>
#include <limits>
#include <stdexcept>

#include "foundations/runtimeerrors.h"

namespace HiSlip {

namespace {

constexpr char kPrefix[] = {'H', 'S'};
constexpr uint32_t kLeastStorage = 256;
constexpr uint32_t kMostIdleStorage = 65536;

[[noreturn]] void failAllocation() {
    utils::RuntimeErrors::instance().reportAndThrow("Failed to allocate target block", kAllocationCode,
                                                    __FILE__, __LINE__);
}

/// A new block, or the report of a failure: of the memory's end and of a size that no block can have.
template <typename... Args>
ReferencePtr<utils::MemoryBlock> allocate(Args... args) {
    try {
        return makeReference<utils::MemoryBlock>(args...);
    } catch (const std::bad_alloc&) {
        failAllocation();
    }
}

uint32_t blockSize(uint64_t uSize) {
    if (uSize > std::numeric_limits<uint32_t>::max())
        failAllocation();
    return static_cast<uint32_t>(uSize);
}

template <typename T>
T bigEndian(const uint8_t* pBytes) {
    T uValue = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
        uValue = static_cast<T>(uValue << 8) | pBytes[i];
    return uValue;
}

/// The header and the length of the payload that it tells of. Moves nothing.
Parsing look(const utils::MemoryBlock& cSource, Message& cMessage, uint64_t& uPayload) {
    cMessage = Message();
    uint32_t uLength = 0;
    const uint8_t* const pBytes = cSource.getReadable(&uLength);
    if (!std::equal(kPrefix, kPrefix + std::min<uint32_t>(uLength, sizeof(kPrefix)), pBytes))
        return Parsing::kBad;
    if (uLength < kHeaderBytes)
        return Parsing::kMore;
    cMessage.muType = pBytes[2];
    cMessage.muControlCode = pBytes[3];
    cMessage.muParameter = bigEndian<uint32_t>(pBytes + 4);
    uPayload = bigEndian<uint64_t>(pBytes + 8);
    return Parsing::kWhole;
}

}  // namespace

Message makeMessage(uint8_t uType, uint32_t uParameter, ReferencePtr<utils::MemoryBlock> cPayload) {
    return {true, uType, 0, uParameter, std::move(cPayload)};
}

Parsing parse(utils::MemoryBlock& cSource, Message& cMessage) {
    uint64_t uPayload = 0;
    const Parsing eHeader = look(cSource, cMessage, uPayload);
    if (eHeader != Parsing::kWhole)
        return eHeader;
    if (uPayload > kLongestPayload)
        return Parsing::kBad;
    const auto uLength = static_cast<uint32_t>(uPayload);
    if (cSource.getReadableDataLength() - kHeaderBytes < uLength)
        return Parsing::kMore;
    if (uLength)
        cMessage.mcPayload = allocate(cSource.getReadable() + kHeaderBytes, uLength);
    cSource.setReadAndKeep(cSource.getReadPosition() + kHeaderBytes + uLength);
    cMessage.mbValid = true;
    return Parsing::kWhole;
}

Parsing parseHeader(utils::MemoryBlock& cSource, Message& cMessage) {
    uint64_t uIgnored = 0;
    const Parsing eHeader = look(cSource, cMessage, uIgnored);
    if (eHeader == Parsing::kWhole) {
        cSource.setReadAndKeep(cSource.getReadPosition() + kHeaderBytes);
        cMessage.mbValid = true;
    }
    return eHeader;
}

ReferencePtr<utils::MemoryBlock> serialise(const Message& cMessage) {
    uint32_t uLength = 0;
    const uint8_t* const pPayload = cMessage.mcPayload ? cMessage.mcPayload->getReadable(&uLength) : nullptr;
    auto cBlock = allocate(blockSize(uint64_t{kHeaderBytes} + uLength));
    const uint8_t start[] = {kPrefix[0], kPrefix[1], cMessage.muType, cMessage.muControlCode};
    cBlock->write(start, sizeof(start));
    cBlock->writeU32(cMessage.muParameter);
    cBlock->writeU64(uLength);
    cBlock->write(pPayload, uLength);
    return cBlock;
}

void appendGrowing(ReferencePtr<utils::MemoryBlock>& cBlock, const uint8_t* pBytes, uint32_t uLength) {
    if (cBlock->getAllocated() - cBlock->getWritePosition() < uLength) {
        uint32_t uKept = 0;
        const uint8_t* const pKept = cBlock->getReadable(&uKept);
        const uint64_t uNeeded = uint64_t{uKept} + uLength;
        auto cGrown = allocate(blockSize(std::max<uint64_t>(uNeeded * 2, kLeastStorage)));
        cGrown->write(pKept, uKept);
        cBlock = std::move(cGrown);
    }
    cBlock->write(pBytes, uLength);
}

std::string typeName(uint8_t uType) {
    switch (uType) {
        case kInitialize:
            return "Initialize";
        case kInitializeResponse:
            return "InitializeResponse";
        case kFatalError:
            return "FatalError";
        case kError:
            return "Error";
        case kAsyncLock:
            return "AsyncLock";
        case kAsyncLockResponse:
            return "AsyncLockResponse";
        case kData:
            return "Data";
        case kDataEnd:
            return "DataEnd";
        case kAsyncInitialize:
            return "AsyncInitialize";
        case kAsyncInitializeResponse:
            return "AsyncInitializeResponse";
        default:
            return std::to_string(uType);
    }
}

void reportBadState() {
    utils::reportError(kFailureCode, "Trapped bad state");
}

Assembler::Assembler() : mcBlock(allocate(kLeastStorage)) {}

void Assembler::append(utils::MemoryBlock& cBlock) {
    uint32_t uLength = 0;
    const uint8_t* const pBytes = cBlock.getReadable(&uLength);
    appendGrowing(mcBlock, pBytes, uLength);
    cBlock.setReadAndKeep(cBlock.getSize());
}

Parsing Assembler::take(Message& cMessage) {
    const Parsing eResult = parse(*mcBlock, cMessage);
    if (eResult == Parsing::kBad)
        reportBadState();
    if (eResult == Parsing::kBad || mcBlock->getReadableDataLength() == 0)
        clear();
    return eResult;
}

/// Also gives back what a long message has taken.
void Assembler::clear() {
    if (mcBlock->getAllocated() > kMostIdleStorage)
        mcBlock = allocate(kLeastStorage);
    else
        mcBlock->clear();
}

}  // namespace HiSlip
