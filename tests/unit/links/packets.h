#pragma once

#include <bit>
#include <cstdint>
#include <string>

#include "foundations/memoryblock.h"

namespace vnktest {

/// Writes the bytes of one packet of the data channel.
class PacketBytes {
 public:
    explicit PacketBytes(uint32_t uStreamID, bool bTrailer = false) {
        mBytes.push_back(static_cast<char>(0x10 | (bTrailer ? 0x04 : 0)));
        mBytes.push_back('\x63');  // TSI 1, TSF 2, sequence 3
        u16(0);
        u32(uStreamID);
        u32(1700000000);
        u64(123456789012);
    }
    /// Behind a header of another form.
    explicit PacketBytes(std::string header) : mBytes(std::move(header)) {}
    PacketBytes& u16(uint32_t uValue) {
        mBytes.push_back(static_cast<char>(uValue >> 8));
        mBytes.push_back(static_cast<char>(uValue));
        return *this;
    }
    PacketBytes& u32(uint32_t uValue) { return u16(uValue >> 16).u16(uValue); }
    PacketBytes& u64(uint64_t uValue) {
        return u32(static_cast<uint32_t>(uValue >> 32)).u32(static_cast<uint32_t>(uValue));
    }
    PacketBytes& f32(float fValue) { return u32(std::bit_cast<uint32_t>(fValue)); }
    PacketBytes& trailer(uint32_t uValue) { return u32(uValue); }
    PacketBytes& fill(uint32_t uWords, uint32_t uValue = 0x11223344) {
        for (uint32_t i = 0; i < uWords; ++i)
            u32(uValue);
        return *this;
    }
    /// The size field tells the truth unless another one is asked for.
    std::string bytes() const { return bytes(static_cast<uint32_t>(mBytes.size() / 4)); }
    std::string bytes(uint32_t uWords) const {
        std::string result = mBytes;
        result[2] = static_cast<char>(uWords >> 8);
        result[3] = static_cast<char>(uWords);
        return result;
    }
    ReferencePtr<utils::MemoryBlock> block() const { return makeReference<utils::MemoryBlock>(bytes()); }

 private:
    std::string mBytes;
};

}  // namespace vnktest
