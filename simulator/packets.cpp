#include "simulator/packets.h"

#include <bit>
#include <cmath>

namespace vnksim {
namespace {

constexpr uint64_t kPicosecondsPerSecond = 1000000000000ull;
constexpr uint64_t kPicosecondsPerTick = 8000;
constexpr uint64_t kTicksPerSecond = kPicosecondsPerSecond / kPicosecondsPerTick;

constexpr uint32_t kChange = 1u << 31;

uint64_t fixedPointHz(double hz) {
    return static_cast<uint64_t>(static_cast<int64_t>(std::llround(hz * 1048576.0)));
}

uint32_t fixedPointdB(double value) {
    return static_cast<uint32_t>(std::lround(value * 128.0)) & 0xFFFF;
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

UnitTime UnitTime::plus(uint64_t ticksOf8ns) const {
    UnitTime sum{seconds + static_cast<uint32_t>(ticksOf8ns / kTicksPerSecond),
                 picoseconds + ticksOf8ns % kTicksPerSecond * kPicosecondsPerTick};
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

std::vector<uint8_t> PacketMaker::header(StreamId id, UnitTime time, size_t words) {
    const bool isData = id == StreamId::dataIQ14 || id == StreamId::dataI14;
    const unsigned type = isData ? 1 : id == StreamId::extensionContext ? 5 : 4;
    uint8_t& counter = mlCounters[static_cast<uint32_t>(id) & 15];
    std::vector<uint8_t> bytes;
    bytes.reserve(20);
    bytes.push_back(static_cast<uint8_t>(type << 4 | (isData ? 4u : 0u)));
    // UTC seconds, picoseconds.
    bytes.push_back(static_cast<uint8_t>(1u << 6 | 2u << 4 | counter));
    counter = static_cast<uint8_t>((counter + 1) & 15);
    append16(bytes, static_cast<uint32_t>(words));
    append32(bytes, static_cast<uint32_t>(id));
    append32(bytes, time.seconds);
    append64(bytes, time.picoseconds);
    return bytes;
}

Packet PacketMaker::context(StreamId id, UnitTime time, std::vector<uint8_t> fields) {
    Packet packet;
    packet.header = header(id, time, 5 + fields.size() / 4);
    packet.header.insert(packet.header.end(), fields.begin(), fields.end());
    return packet;
}

Packet PacketMaker::receiverContext(UnitTime time, double rfHz, double gain1dB, double gain2dB) {
    std::vector<uint8_t> fields;
    append32(fields, kChange | 1u << 27 | 1u << 23);
    append64(fields, fixedPointHz(rfHz));
    append32(fields, fixedPointdB(gain1dB) << 16 | fixedPointdB(gain2dB));
    return context(StreamId::receiverContext, time, std::move(fields));
}

Packet PacketMaker::digitizerContext(UnitTime time, double bandwidthHz, double rfOffsetHz,
                                     double referenceLevelDbm, const GnssFix* fix) {
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
    return context(StreamId::digitizerContext, time, std::move(fields));
}

Packet PacketMaker::extensionContext(UnitTime time, const uint32_t* streamIdentifier,
                                     const uint32_t* sweepIdentifier) {
    std::vector<uint8_t> fields;
    append32(fields,
             kChange | (streamIdentifier != nullptr ? 2u : 0u) | (sweepIdentifier != nullptr ? 1u : 0u));
    if (streamIdentifier != nullptr) {
        append32(fields, *streamIdentifier);
    }
    if (sweepIdentifier != nullptr) {
        append32(fields, *sweepIdentifier);
    }
    return context(StreamId::extensionContext, time, std::move(fields));
}

Packet PacketMaker::data(StreamId id, UnitTime time, std::shared_ptr<const std::vector<uint8_t>> payload,
                         uint32_t samples, uint32_t trailer, int sizeOffset) {
    Packet packet;
    const size_t words = 5 + payload->size() / 4 + 1;
    packet.header = header(id, time, static_cast<size_t>(static_cast<int>(words) + sizeOffset) & 0xFFFF);
    packet.payload = std::move(payload);
    append32(packet.trailer, trailer);
    packet.data = true;
    packet.samples = samples;
    return packet;
}

}  // namespace vnksim
