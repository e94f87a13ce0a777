#include <cmath>

#include "simulator/packets.h"
#include "simulator/unit.h"

namespace vnksim {
namespace {

std::vector<uint8_t> ripple(uint64_t seed, int32_t largest) {
    constexpr uint16_t kVectors = 4;
    constexpr int kPoints = 64;
    std::vector<std::pair<uint32_t, uint16_t>> rows;
    std::vector<std::vector<int32_t>> vectors;
    for (uint16_t v = 0; v < kVectors; ++v) {
        // One vector for each quarter of the tuning range.
        rows.emplace_back(static_cast<uint32_t>(v + 1) * 6750000u, v);
        std::vector<int32_t> points;
        for (int k = 0; k < kPoints; ++k) {
            const double turns =
                static_cast<double>(k) / kPoints * (v + 1) + static_cast<double>(seed % 97) / 97;
            points.push_back(
                static_cast<int32_t>(std::lround(largest * std::sin(6.283185307179586 * turns))));
        }
        vectors.push_back(std::move(points));
    }
    return makeCorrectionSet(rows, vectors);
}

}  // namespace

std::vector<uint8_t> makeCorrectionSet(const std::vector<std::pair<uint32_t, uint16_t>>& rows,
                                       const std::vector<std::vector<int32_t>>& vectors) {
    std::vector<uint8_t> bytes;
    append16(bytes, 1);
    append16(bytes, static_cast<uint32_t>(rows.size()));
    append16(bytes, static_cast<uint32_t>(vectors.size()));
    append16(bytes, vectors.empty() ? 0 : static_cast<uint32_t>(vectors[0].size()));
    bytes.resize(48);
    for (const auto& row : rows) {
        append32(bytes, row.first);
        append16(bytes, row.second);
    }
    for (size_t v = 0; v < vectors.size(); ++v) {
        append16(bytes, static_cast<uint32_t>(v));
        for (int32_t point : vectors[v]) {
            append32(bytes, static_cast<uint32_t>(point));
        }
    }
    return bytes;
}

CorrectionData defaultCorrectionData(uint64_t seed) {
    CorrectionData data;
    data.signal = ripple(seed, 400000);
    data.noise = ripple(seed + 1, 250000);
    return data;
}

}  // namespace vnksim
