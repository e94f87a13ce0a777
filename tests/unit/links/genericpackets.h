#pragma once

#include "packets.h"

namespace vnktest {

/// The header of a packet of the generic form: what it tells and, behind it, the fields that it tells of.
struct GenericHeader {
    uint32_t muType = 1;
    bool mbTrailer = false;
    bool mbClassID = false;
    uint32_t muTSI = 1;
    uint32_t muTSF = 2;
    uint32_t muSequence = 3;
    uint32_t muStreamID = 0x1234;

    bool hasStreamID() const { return muType != 0 && muType != 2; }
    uint32_t words() const {
        return 1u + (hasStreamID() ? 1u : 0u) + (mbClassID ? 2u : 0u) + (muTSI ? 1u : 0u) + (muTSF ? 2u : 0u);
    }
};

inline PacketBytes genericPacket(const GenericHeader& cHeader = {}) {
    PacketBytes cBytes{std::string()};
    cBytes.u16(cHeader.muType << 12 | (cHeader.mbClassID ? 0x800u : 0u) | (cHeader.mbTrailer ? 0x400u : 0u) |
               cHeader.muTSI << 6 | cHeader.muTSF << 4 | cHeader.muSequence);
    cBytes.u16(0);
    if (cHeader.hasStreamID())
        cBytes.u32(cHeader.muStreamID);
    if (cHeader.mbClassID)
        cBytes.u64(0x006A621E00010002);
    if (cHeader.muTSI)
        cBytes.u32(1700000000);
    if (cHeader.muTSF)
        cBytes.u64(123456789012);
    return cBytes;
}

inline PacketBytes dataPacket(uint32_t uStreamID = 0x1234, bool bTrailer = false) {
    GenericHeader cHeader;
    cHeader.muStreamID = uStreamID;
    cHeader.mbTrailer = bTrailer;
    return genericPacket(cHeader);
}

inline PacketBytes contextPacket(uint32_t uIndicators, uint32_t uStreamID = 0x1234) {
    GenericHeader cHeader;
    cHeader.muType = 4;
    cHeader.muStreamID = uStreamID;
    return genericPacket(cHeader).u32(uIndicators);
}

/// Word 0 of the one payload format that is decoded.
inline constexpr uint32_t kPairsOf16 = 1u << 29 | 15u << 6 | 15u;

/// A context that says how the data of the stream are decoded.
inline PacketBytes formatPacket(uint32_t uStreamID = 0x1234, uint32_t uFormat = kPairsOf16) {
    return contextPacket(1u << 15, uStreamID).u32(uFormat).u32(0);
}

}  // namespace vnktest
