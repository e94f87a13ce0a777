#pragma once

#include <cstdint>

#include "foundations/memoryblock.h"

/// Readers of what the wire carries most significant byte first.
namespace BigEndian {

inline uint16_t u16(const uint8_t* pBytes) {
    return static_cast<uint16_t>((pBytes[0] << 8) | pBytes[1]);
}

inline uint32_t u32(const uint8_t* pBytes) {
    return (uint32_t{u16(pBytes)} << 16) | u16(pBytes + 2);
}

inline uint64_t u64(const uint8_t* pBytes) {
    return (uint64_t{u32(pBytes)} << 32) | u32(pBytes + 4);
}

/// At the read position; false with nothing moved when the bytes are not there.
inline bool read(utils::MemoryBlock& cBlock, uint32_t& uValue) {
    uint8_t bytes[4];
    if (!cBlock.read(bytes, sizeof bytes))
        return false;
    uValue = u32(bytes);
    return true;
}

inline bool read(utils::MemoryBlock& cBlock, uint64_t& uValue) {
    uint8_t bytes[8];
    if (!cBlock.read(bytes, sizeof bytes))
        return false;
    uValue = u64(bytes);
    return true;
}

}  // namespace BigEndian
