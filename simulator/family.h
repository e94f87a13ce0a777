#pragma once

#include <cstdint>

#include "simulator/packets.h"
#include "simulator/unit.h"

namespace vnksim {

/// What differs between the families of receivers.
struct FamilyTraits {
    uint64_t clockHz;      ///< of the converter
    unsigned bits;         ///< of a sample's item
    double headroomdB;     ///< a tone at the reference level stands so far below full scale
    double ifHz;           ///< where the tuned centre stands in the sampled band
    double bandHz;         ///< width of the sampled band
    bool realFullRate;     ///< the full rate gives real samples, and there is direct digitization
    bool leveledByGains;   ///< the reference level follows from gains and attenuation; otherwise it is set
    bool oneContext;       ///< one context tells tuning, level and format; otherwise two share that
    bool powersOfTwo;      ///< decimations are 1, 2, 4 ... 1024; otherwise 1 and 4 to 1024
    uint32_t mostSamples;  ///< in a packet
    double halfWidth;      ///< of complex samples, in sample rates: half amplitude
    double transition;     ///< width of their edges
    PacketKind data, realData, extensionContext;

    double clock() const { return static_cast<double>(clockHz); }
};

const FamilyTraits& traitsOf(Family family);

}  // namespace vnksim
