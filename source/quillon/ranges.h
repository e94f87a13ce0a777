#pragma once

#include "receivers/rangechecks.h"

namespace Quillon {

inline constexpr FloatRange kRBWRange{100000.0f, 20000000000.0f};
inline constexpr FloatRange kIFBWRange{100000.0f, 104448000.0f};
inline constexpr FloatRange kReferenceLevelRange{-40.0f, 10.0f};

/// Complex samples per second, before any decimation.
inline constexpr uint32_t kSampleRateHz = 122880000;
inline constexpr uint32_t kLargestPacket = 32768;

}  // namespace Quillon
