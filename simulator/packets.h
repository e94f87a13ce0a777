#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vnksim {

enum class StreamId : uint32_t {
    receiverContext = 0x90000001,
    digitizerContext = 0x90000002,
    dataIQ14 = 0x90000003,
    extensionContext = 0x90000004,
    dataI14 = 0x90000005,
};

/// Seconds and picoseconds of the unit's clock.
struct UnitTime {
    uint32_t seconds = 0;
    uint64_t picoseconds = 0;
    UnitTime plus(uint64_t ticksOf8ns) const;
};

/// One packet in three parts, so that the samples are not copied to put a header before them.
struct Packet {
    std::vector<uint8_t> header;
    std::shared_ptr<const std::vector<uint8_t>> payload;  ///< none: empty
    std::vector<uint8_t> trailer;
    bool data = false;
    uint32_t samples = 0;

    size_t size() const { return header.size() + (payload ? payload->size() : 0) + trailer.size(); }
    std::vector<uint8_t> bytes() const;
};

struct GnssFix {
    UnitTime time;
    float latitude = 0, longitude = 0, altitude = 0, speed = 0, heading = 0, track = 0, variation = 0;
};

/// Builds packets and numbers them, each stream for itself.
class PacketMaker {
 public:
    Packet receiverContext(UnitTime time, double rfHz, double gain1dB, double gain2dB);
    Packet digitizerContext(UnitTime time, double bandwidthHz, double rfOffsetHz, double referenceLevelDbm,
                            const GnssFix* fix);
    /// Either identifier may be left out.
    Packet extensionContext(UnitTime time, const uint32_t* streamIdentifier, const uint32_t* sweepIdentifier);
    Packet data(StreamId id, UnitTime time, std::shared_ptr<const std::vector<uint8_t>> payload,
                uint32_t samples, uint32_t trailer, int sizeOffset);

 private:
    std::vector<uint8_t> header(StreamId id, UnitTime time, size_t words);
    Packet context(StreamId id, UnitTime time, std::vector<uint8_t> fields);

    uint8_t mlCounters[16] = {};
};

void append16(std::vector<uint8_t>& bytes, uint32_t value);
void append32(std::vector<uint8_t>& bytes, uint32_t value);
void append64(std::vector<uint8_t>& bytes, uint64_t value);

}  // namespace vnksim
