#pragma once

#include <cstddef>
#include <cstdint>

/// Request and response of a discovery, as they stand on the wire.
namespace DiscoveryWire {

inline constexpr uint16_t kPort = 18331;  // on both sides
inline constexpr uint8_t kRequest[8] = {0x93, 0x31, 0x55, 0x55, 0x00, 0x00, 0x00, 0x02};
inline constexpr size_t kResponseBytes = 60;
inline constexpr uint32_t kResponseCode = 0x93316666;

}  // namespace DiscoveryWire
