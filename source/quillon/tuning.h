#pragma once

#include <cstdint>
#include <optional>

#include "links/vita49.h"

namespace Quillon {

/// What a context tells of the radio; empty where it says nothing.
struct Tuning {
    std::optional<uint64_t> mcFrequencyHz;
    std::optional<float> mcReferenceLevel;
};

/// From a context of the unit, and into the log.
Tuning readTuning(const VITA49::IFContext& cPacket);

}  // namespace Quillon
