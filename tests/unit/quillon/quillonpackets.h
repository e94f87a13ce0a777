#pragma once

#include <optional>
#include <vector>

#include "links/vita49.h"
#include "unit/links/genericpackets.h"

// Packets as a unit of the second family sends them.

namespace vnktest {

using Pairs = std::vector<std::pair<int, int>>;

inline constexpr uint32_t kStreamBit = 1u << 1;
inline constexpr uint32_t kSweepBit = 1u << 0;

inline PacketBytes identifierBytes(uint32_t uBit, uint32_t uIdentifier) {
    GenericHeader cHeader;
    cHeader.muType = VITA49::kExtensionContext;
    return genericPacket(cHeader).u32(uBit).u32(uIdentifier);
}

inline ReferencePtr<VITA49::ExtensionContext> identifierContext(uint32_t uBit, uint32_t uIdentifier) {
    return makeReference<VITA49::ExtensionContext>(identifierBytes(uBit, uIdentifier).block());
}

/// The frequency in Hz x 2^20, the level in dBm x 128; what is not given is not told.
inline ReferencePtr<VITA49::IFContext> rawTuning(std::optional<uint64_t> uFrequency, std::optional<int> iLevel) {
    PacketBytes cBytes = contextPacket((uFrequency ? 1u << 27 : 0u) | (iLevel ? 1u << 24 : 0u));
    if (uFrequency)
        cBytes.u64(*uFrequency);
    if (iLevel)
        cBytes.u32(static_cast<uint32_t>(*iLevel) & 0xFFFFu);
    return makeReference<VITA49::IFContext>(cBytes.block());
}

inline ReferencePtr<VITA49::IFContext> tunedTo(uint64_t uHertz) {
    return rawTuning(uHertz << 20, {});
}

inline ReferencePtr<VITA49::IFContext> levelOf(int idBm) {
    return rawTuning({}, idBm * 128);
}

struct DataForm {
    uint32_t muSequence = 0;
    std::optional<uint32_t> mcTrailer{};
    bool mbFormat = true;   // a context has said how the data are decoded
    uint32_t muClaimedWords = 0;
};

inline ReferencePtr<VITA49::IFData> dataOf(const Pairs& lPairs, const DataForm& cForm = {}) {
    GenericHeader cHeader;
    cHeader.muSequence = cForm.muSequence % 16;
    cHeader.mbTrailer = cForm.mcTrailer.has_value();
    PacketBytes cBytes = genericPacket(cHeader);
    for (const auto& [iI, iQ] : lPairs)
        cBytes.u16(static_cast<uint32_t>(iI)).u16(static_cast<uint32_t>(iQ));
    if (cForm.mcTrailer)
        cBytes.trailer(*cForm.mcTrailer);
    const auto cBlock = cForm.muClaimedWords == 0
                            ? cBytes.block()
                            : makeReference<utils::MemoryBlock>(cBytes.bytes(cForm.muClaimedWords));
    const auto cPacket = makeReference<VITA49::IFData>(cBlock);
    if (cForm.mbFormat)
        cPacket->setDecodingContext(makeReference<VITA49::IFContext>(formatPacket().block())->mcDecodingContext);
    return cPacket;
}

}  // namespace vnktest
