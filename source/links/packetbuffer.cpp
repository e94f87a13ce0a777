#include "links/packetbuffer.h"

#include <algorithm>
#include <cstring>

static constexpr uint32_t kLeastStorage = 65536;

/// Storage grows to twice what is needed, so that moving what is kept to the front costs less than the bytes
/// that came since the last move.
void PacketBuffer::append(const uint8_t* pBytes, uint32_t uLength) {
    uint32_t uKept = 0;
    const uint8_t* pKept = mcBytes.getReadable(&uKept);
    if (!pKept)
        mcBytes.clear();
    const uint64_t uNeeded = uint64_t{uKept} + uLength;
    if (uint64_t{mcBytes.getWritePosition()} + uLength > mcBytes.getAllocated()) {
        if (uNeeded * 2 > mcBytes.getAllocated()) {
            mcBytes.reserve(
                static_cast<uint32_t>(std::clamp<uint64_t>(uNeeded * 2, kLeastStorage, 0xFFFFFFFFu)));
        } else {
            uint8_t* const pStorage = mcBytes.getStorage();
            if (pKept)
                std::memmove(pStorage, pKept, uKept);
            mcBytes.clear();
            mcBytes.advanceWritePosition(uKept);
        }
    }
    mcBytes.write(pBytes, uLength);
}
