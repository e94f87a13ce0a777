#include "simulator/packets.h"

#include <bit>
#include <cmath>
#include <numeric>

namespace vnksim {
namespace {

constexpr uint64_t kPicosecondsPerSecond = 1000000000000ull;

constexpr uint32_t kChange = 1u << 31;

uint64_t fixedPointHz(double hz) {
    return static_cast<uint64_t>(static_cast<int64_t>(std::llround(hz * 1048576.0)));
}

uint32_t fixedPointdB(double value) {
    return static_cast<uint32_t>(std::lround(value * 128.0)) & 0xFFFF;
}

/// Complex cartesian samples, each component a signed fixed-point item of 16 bits in 16, packed for
/// processing, without tags and repeats. One field may be wrong.
uint64_t payloadFormat(unsigned wrongField) {
    struct Field {
        unsigned shift;
        uint64_t right, wrong;
    };
    constexpr Field kFields[kFormatFields] = {
        {32, 15, 7},       // bits of an item, less 1
        {32 + 6, 15, 7},   // bits that it takes, less 1
        {32 + 16, 0, 1},   // bits of the channel tag
        {32 + 20, 0, 1},   // bits of the event tag
        {32 + 23, 0, 1},   // components repeat
        {32 + 24, 0, 16},  // encoding of an item
        {32 + 29, 1, 0},   // kind of sample
        {32 + 31, 0, 1},   // packed for the link
        {0, 0, 1},         // vector size
        {16, 0, 1},        // repeat count
    };
    uint64_t format = 0;
    for (unsigned i = 0; i < kFormatFields; ++i) {
        format |= (i + 1 == wrongField ? kFields[i].wrong : kFields[i].right) << kFields[i].shift;
    }
    return format;
}

void appendFloat(std::vector<uint8_t>& bytes, float value) {
    append32(bytes, std::bit_cast<uint32_t>(value));
}

}  // namespace

void append16(std::vector<uint8_t>& bytes, uint32_t value) {
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    bytes.push_back(static_cast<uint8_t>(value));
}

void append32(std::vector<uint8_t>& bytes, uint32_t value) {
    append16(bytes, value >> 16);
    append16(bytes, value);
}

void append64(std::vector<uint8_t>& bytes, uint64_t value) {
    append32(bytes, static_cast<uint32_t>(value >> 32));
    append32(bytes, static_cast<uint32_t>(value));
}

UnitTime UnitTime::plus(uint64_t ticks, uint64_t clockHz) const {
    // In lowest terms the product stays within 64 bits.
    const uint64_t common = std::gcd(kPicosecondsPerSecond, clockHz);
    const uint64_t rest = ticks % clockHz * (kPicosecondsPerSecond / common) / (clockHz / common);
    UnitTime sum{seconds + static_cast<uint32_t>(ticks / clockHz), picoseconds + rest};
    if (sum.picoseconds >= kPicosecondsPerSecond) {
        sum.picoseconds -= kPicosecondsPerSecond;
        ++sum.seconds;
    }
    return sum;
}

std::vector<uint8_t> Packet::bytes() const {
    std::vector<uint8_t> all = header;
    if (payload) {
        all.insert(all.end(), payload->begin(), payload->end());
    }
    all.insert(all.end(), trailer.begin(), trailer.end());
    return all;
}

/// `words` are those behind the header.
std::vector<uint8_t> PacketMaker::header(PacketKind kind, UnitTime time, size_t words,
                                         const HeaderFaults& faults) {
    const bool isData = kind.type == 1;
    const bool anonymous = isData && faults.withoutStream;
    const unsigned type = anonymous ? 0 : kind.type;
    const unsigned flags = isData ? 4u : faults.tsm ? 1u : 0u;
    const size_t all = words + (anonymous ? 4 : 5);
    uint8_t& counter = mlCounters[kind.type][kind.stream & 15];
    std::vector<uint8_t> bytes;
    bytes.reserve(20);
    bytes.push_back(static_cast<uint8_t>(type << 4 | flags));
    // UTC seconds, picoseconds.
    bytes.push_back(static_cast<uint8_t>(1u << 6 | 2u << 4 | counter));
    counter = static_cast<uint8_t>((counter + 1) & 15);
    append16(bytes, static_cast<uint32_t>(static_cast<int>(all) + faults.sizeOffset) & 0xFFFF);
    if (!anonymous) {
        append32(bytes, kind.stream + static_cast<uint32_t>(faults.streamOffset));
    }
    append32(bytes, time.seconds);
    append64(bytes, time.picoseconds);
    return bytes;
}

Packet PacketMaker::context(PacketKind kind, UnitTime time, std::vector<uint8_t> fields,
                            const HeaderFaults& faults) {
    // Sizes and streams are wrong in data only.
    HeaderFaults own;
    own.tsm = faults.tsm;
    Packet packet;
    packet.header = header(kind, time, fields.size() / 4, own);
    packet.header.insert(packet.header.end(), fields.begin(), fields.end());
    return packet;
}

Packet PacketMaker::receiverContext(UnitTime time, double rfHz, double gain1dB, double gain2dB,
                                    const HeaderFaults& faults) {
    std::vector<uint8_t> fields;
    append32(fields, kChange | 1u << 27 | 1u << 23);
    append64(fields, fixedPointHz(rfHz));
    append32(fields, fixedPointdB(gain1dB) << 16 | fixedPointdB(gain2dB));
    return context(kinds::kReceiverContext, time, std::move(fields), faults);
}

Packet PacketMaker::digitizerContext(UnitTime time, double bandwidthHz, double rfOffsetHz,
                                     double referenceLevelDbm, const GnssFix* fix,
                                     const HeaderFaults& faults) {
    std::vector<uint8_t> fields;
    append32(fields, kChange | 1u << 29 | 1u << 26 | 1u << 24 | (fix != nullptr ? 1u << 14 : 0u));
    append64(fields, fixedPointHz(bandwidthHz));
    append64(fields, fixedPointHz(rfOffsetHz));
    append32(fields, fixedPointdB(referenceLevelDbm));
    if (fix != nullptr) {
        // Time stamps of UTC and picoseconds; no maker's identifier.
        append32(fields, 1u << 26 | 2u << 24);
        append32(fields, fix->time.seconds);
        append64(fields, fix->time.picoseconds);
        for (float value : {fix->latitude, fix->longitude, fix->altitude, fix->speed, fix->heading,
                            fix->track, fix->variation}) {
            appendFloat(fields, value);
        }
    }
    return context(kinds::kDigitizerContext, time, std::move(fields), faults);
}

Packet PacketMaker::ifContext(UnitTime time, const Tuning& tuning, const HeaderFaults& faults) {
    std::vector<uint8_t> fields;
    append32(fields, kChange | 1u << 29 | (tuning.rfHz ? 1u << 27 : 0u) | 1u << 24 | 1u << 21 | 1u << 15);
    append64(fields, fixedPointHz(tuning.bandwidthHz));
    if (tuning.rfHz) {
        append64(fields, fixedPointHz(*tuning.rfHz));
    }
    append32(fields, fixedPointdB(tuning.referenceLevelDbm));
    append64(fields, fixedPointHz(tuning.rateHz));
    append64(fields, payloadFormat(tuning.wrongFormat));
    return context(kinds::kIfContext, time, std::move(fields), faults);
}

Packet PacketMaker::extensionContext(PacketKind kind, UnitTime time, const uint32_t* streamIdentifier,
                                     const uint32_t* sweepIdentifier, const HeaderFaults& faults) {
    std::vector<uint8_t> fields;
    append32(fields,
             kChange | (streamIdentifier != nullptr ? 2u : 0u) | (sweepIdentifier != nullptr ? 1u : 0u));
    if (streamIdentifier != nullptr) {
        append32(fields, *streamIdentifier);
    }
    if (sweepIdentifier != nullptr) {
        append32(fields, *sweepIdentifier);
    }
    return context(kind, time, std::move(fields), faults);
}

Packet PacketMaker::data(PacketKind kind, UnitTime time, std::shared_ptr<const std::vector<uint8_t>> payload,
                         uint32_t samples, uint32_t trailer, const HeaderFaults& faults) {
    Packet packet;
    packet.header = header(kind, time, payload->size() / 4 + 1, faults);
    packet.payload = std::move(payload);
    append32(packet.trailer, trailer);
    packet.data = true;
    packet.samples = samples;
    return packet;
}

}  // namespace vnksim
