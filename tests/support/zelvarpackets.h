#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <vector>

#include "links/vita49zelvar.h"

namespace vnktest {

/// Builds packets of the first family byte by byte.
class PacketBytes {
 public:
    PacketBytes& u16(uint32_t uValue) {
        mlBytes.push_back(static_cast<uint8_t>(uValue >> 8));
        mlBytes.push_back(static_cast<uint8_t>(uValue));
        return *this;
    }
    PacketBytes& u32(uint32_t uValue) { return u16(uValue >> 16).u16(uValue); }
    PacketBytes& u64(uint64_t uValue) {
        return u32(static_cast<uint32_t>(uValue >> 32)).u32(static_cast<uint32_t>(uValue));
    }
    PacketBytes& i16(int iValue) { return u16(static_cast<uint32_t>(iValue) & 0xFFFFu); }
    PacketBytes& f32(float fValue) { return u32(std::bit_cast<uint32_t>(fValue)); }

    PacketBytes& at(uint32_t uSeconds, uint64_t uPicoseconds) {
        muSeconds = uSeconds;
        muPicoseconds = uPicoseconds;
        return *this;
    }
    PacketBytes& trailer(uint32_t uTrailer) {
        mcTrailer = uTrailer;
        return *this;
    }
    /// A size field that does not fit the bytes.
    PacketBytes& claimWords(uint32_t uWords) {
        mcClaimed = uWords;
        return *this;
    }

    /// The payload so far behind a header, the trailer behind it.
    std::vector<uint8_t> bytes(uint32_t uStreamID) const {
        const auto uWords = static_cast<uint32_t>(5 + mlBytes.size() / 4 + (mcTrailer ? 1 : 0));
        PacketBytes cAll;
        cAll.u16(mcTrailer ? 0x1460 : 0x1060).u16(mcClaimed.value_or(uWords));
        cAll.u32(uStreamID).u32(muSeconds).u64(muPicoseconds);
        cAll.mlBytes.insert(cAll.mlBytes.end(), mlBytes.begin(), mlBytes.end());
        if (mcTrailer)
            cAll.u32(*mcTrailer);
        return cAll.mlBytes;
    }
    template <typename Packet>
    ReferencePtr<Packet> as(uint32_t uStreamID) const {
        const std::vector<uint8_t> lBytes = bytes(uStreamID);
        return makeReference<Packet>(
            makeReference<utils::MemoryBlock>(lBytes.data(), static_cast<uint32_t>(lBytes.size())));
    }

 private:
    std::vector<uint8_t> mlBytes;
    std::optional<uint32_t> mcTrailer;
    std::optional<uint32_t> mcClaimed;
    uint32_t muSeconds = 0;
    uint64_t muPicoseconds = 0;
};

}  // namespace vnktest
