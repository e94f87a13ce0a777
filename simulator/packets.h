#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace vnksim {

/// Packets of one kind are numbered for themselves.
struct PacketKind {
    unsigned type;  ///< in the header: 1 data, 4 context, 5 extension context
    uint32_t stream;
};

namespace kinds {
// The first family tells its packets apart by their streams.
inline constexpr PacketKind kReceiverContext{4, 0x90000001}, kDigitizerContext{4, 0x90000002};
inline constexpr PacketKind kDataIQ14{1, 0x90000003}, kDataI14{1, 0x90000005};
inline constexpr PacketKind kExtensionContext{5, 0x90000004};
// The second has one stream, and the types tell them apart.
inline constexpr PacketKind kIfContext{4, 0x51000001}, kIfData{1, 0x51000001};
inline constexpr PacketKind kIfExtensionContext{5, 0x51000001};
}  // namespace kinds

/// Seconds and picoseconds of the unit's clock.
struct UnitTime {
    uint32_t seconds = 0;
    uint64_t picoseconds = 0;
    /// Exact, then cut to a whole picosecond.
    UnitTime plus(uint64_t ticks, uint64_t clockHz) const;
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

/// What a context of the second family tells.
struct Tuning {
    std::optional<double> rfHz;  ///< none: the field is left out
    double bandwidthHz = 0, rateHz = 0, referenceLevelDbm = 0;
    unsigned wrongFormat = 0;  ///< number of the field of the payload format that is wrong; 0: none is
};

inline constexpr unsigned kFormatFields = 10;

/// What faults make of a header.
struct HeaderFaults {
    int sizeOffset = 0;
    int streamOffset = 0;
    bool withoutStream = false;  ///< type 0, of data
    bool tsm = false;            ///< the time stamp mode bit of a context
};

/// Builds packets and numbers them, each kind for itself.
class PacketMaker {
 public:
    Packet receiverContext(UnitTime time, double rfHz, double gain1dB, double gain2dB,
                           const HeaderFaults& faults);
    Packet digitizerContext(UnitTime time, double bandwidthHz, double rfOffsetHz, double referenceLevelDbm,
                            const GnssFix* fix, const HeaderFaults& faults);
    Packet ifContext(UnitTime time, const Tuning& tuning, const HeaderFaults& faults);
    /// Either identifier may be left out.
    Packet extensionContext(PacketKind kind, UnitTime time, const uint32_t* streamIdentifier,
                            const uint32_t* sweepIdentifier, const HeaderFaults& faults);
    Packet data(PacketKind kind, UnitTime time, std::shared_ptr<const std::vector<uint8_t>> payload,
                uint32_t samples, uint32_t trailer, const HeaderFaults& faults);

 private:
    std::vector<uint8_t> header(PacketKind kind, UnitTime time, size_t words, const HeaderFaults& faults);
    Packet context(PacketKind kind, UnitTime time, std::vector<uint8_t> fields, const HeaderFaults& faults);

    uint8_t mlCounters[6][16] = {};
};

void append16(std::vector<uint8_t>& bytes, uint32_t value);
void append32(std::vector<uint8_t>& bytes, uint32_t value);
void append64(std::vector<uint8_t>& bytes, uint64_t value);

}  // namespace vnksim
