#pragma once

#include "simulator/capture.h"

namespace vnksim {

/// What one capture carries from step to step.
struct Capturer::Run {
    const CapturePlan& plan;
    std::shared_ptr<const Scene> scene;
    UnitTime startTime;
    std::chrono::steady_clock::time_point start;
    bool mirrored;  ///< all of it
    PacketMaker maker{};
    uint64_t ticks = 0;      ///< converter clocks since the start
    uint64_t samples = 0;    ///< of all packets so far
    uint64_t dataCount = 0;  ///< data packets made, for faults that count them
    uint64_t blocks = 0;     ///< begun, for faults that count them
    bool identified = false;
    bool stepMirrored = false;
    size_t place = 0;  ///< of the next packet in the pass
    bool lossPending = false;
    double lastReference = -1000;
    uint64_t lastContextTicks = 0;
    std::vector<float> buffer{};
    std::vector<std::shared_ptr<const std::vector<uint8_t>>> prepared{};
    std::optional<Packet> held{};
};

}  // namespace vnksim
