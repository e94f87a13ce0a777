#include "foundations/memoryblock.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace utils {

static constexpr uint32_t kReserveSlack = 32;
static constexpr uint32_t kWriteSlack = 32;

static uint32_t checkedSize(uint64_t uSize) {
    if (uSize > std::numeric_limits<uint32_t>::max())
        throw std::length_error("MemoryBlock: size past 32 bits");
    return static_cast<uint32_t>(uSize);
}

MemoryBlock::MemoryBlock(uint32_t uSize)
    : mpStorage(std::make_unique_for_overwrite<uint8_t[]>(uSize)), muAllocated(uSize) {}

MemoryBlock::MemoryBlock(std::string_view text) : MemoryBlock(text.data(), checkedSize(text.size())) {}

MemoryBlock::MemoryBlock(const void* pBytes, uint32_t uLength) : MemoryBlock(uLength) {
    write(pBytes, uLength);
}

const uint8_t* MemoryBlock::getReadable(uint32_t* pLength) const {
    if (muRead >= muEnd)
        return nullptr;
    if (pLength)
        *pLength = muEnd - muRead;
    return mpStorage.get() + muRead;
}

std::string MemoryBlock::getText() const {
    uint32_t uLength = 0;
    const uint8_t* pBytes = getReadable(&uLength);
    return pBytes ? std::string(reinterpret_cast<const char*>(pBytes), uLength) : std::string();
}

bool MemoryBlock::read(void* pDestination, uint32_t uCount) {
    if (uCount > getReadableDataLength())
        return false;
    if (uCount) {
        std::memcpy(pDestination, mpStorage.get() + muRead, uCount);
        muRead += uCount;
    }
    return true;
}

void MemoryBlock::write(const void* pSource, uint32_t uCount) {
    if (!uCount)
        return;
    growFor(uCount, kWriteSlack);
    std::memcpy(mpStorage.get() + muWrite, pSource, uCount);
    advanceWritePosition(uCount);
}

void MemoryBlock::writeU32(uint32_t uValue) {
    uint8_t bytes[4];
    for (uint32_t i = 0; i < 4; ++i)
        bytes[i] = static_cast<uint8_t>(uValue >> (24 - 8 * i));
    write(bytes, sizeof bytes);
}

void MemoryBlock::writeU64(uint64_t uValue) {
    uint8_t bytes[8];
    for (uint32_t i = 0; i < 8; ++i)
        bytes[i] = static_cast<uint8_t>(uValue >> (56 - 8 * i));
    write(bytes, sizeof bytes);
}

void MemoryBlock::growFor(uint64_t uCount, uint64_t uSlack) {
    if (uint64_t{muWrite} + uCount > muAllocated)
        reserve(checkedSize(uCount + uSlack + (muEnd - muKeep)));
}

void MemoryBlock::reserve(uint32_t uRequired) {
    if (uRequired <= muAllocated - muRead)
        return;
    const uint32_t uKept = muEnd - muKeep;
    uint64_t uSize = uint64_t{uRequired} + kReserveSlack;
    // What is kept must fit too, with the room asked for behind it.
    if (uSize < uKept)
        uSize += uKept;
    const uint32_t uAllocate = checkedSize(uSize);
    auto pStorage = std::make_unique_for_overwrite<uint8_t[]>(uAllocate);
    if (uKept)
        std::memcpy(pStorage.get(), mpStorage.get() + muKeep, uKept);
    mpStorage = std::move(pStorage);
    muAllocated = uAllocate;
    muEnd -= muKeep;
    muRead -= muKeep;
    muWrite -= muKeep;
    muKeep = 0;
}

void MemoryBlock::setReadAndKeep(uint32_t uOffset) {
    muRead = std::min(uOffset, muEnd);
    muKeep = muRead;
}

void MemoryBlock::advanceWritePosition(uint32_t uCount) {
    muWrite += std::min(uCount, muAllocated - muWrite);
    muEnd = std::max(muEnd, muWrite);
}

void MemoryBlock::clear() {
    muEnd = muWrite = muRead = muKeep = 0;
}

}  // namespace utils
