#include <algorithm>
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

std::function<double(double, double)> gainOfCorrections(const std::vector<uint8_t>& set, double bandHz) {
    constexpr size_t kHeader = 48, kRow = 6;
    const auto number = [&set](size_t offset, size_t bytes) {
        uint32_t value = 0;
        for (size_t i = 0; i < bytes; ++i) {
            value = value << 8 | set.at(offset + i);
        }
        return value;
    };
    const size_t rows = number(2, 2), points = number(6, 2);
    std::vector<std::pair<double, std::vector<double>>> table;
    for (size_t row = 0; row < rows; ++row) {
        const size_t place = kHeader + row * kRow;
        const size_t vector = kHeader + rows * kRow + number(place + 4, 2) * (2 + 4 * points) + 2;
        std::vector<double> gains;
        for (size_t k = 0; k < points; ++k) {
            gains.push_back(static_cast<double>(static_cast<int32_t>(number(vector + 4 * k, 4))) * 1e-6);
        }
        table.emplace_back(number(place, 4) * 1e3, std::move(gains));
    }
    std::sort(table.begin(), table.end());
    return [table, bandHz](double tunedHz, double placeHz) {
        auto row = std::find_if(table.begin(), table.end(),
                                [tunedHz](const auto& entry) { return entry.first > tunedHz; });
        if (table.empty() || table[0].second.empty()) {
            return 0.0;
        }
        const std::vector<double>& gains = (row == table.end() ? table.back() : *row).second;
        const double x = std::clamp(placeHz / bandHz, 0.0, 1.0) * static_cast<double>(gains.size());
        const size_t low = std::min(static_cast<size_t>(x), gains.size() - 1);
        const size_t high = std::min(low + 1, gains.size() - 1);
        const double rest = x - std::floor(x);
        return gains[low] * (1 - rest) + gains[high] * rest;
    };
}

CorrectionData defaultCorrectionData(uint64_t seed) {
    CorrectionData data;
    data.signal = ripple(seed, 400000);
    data.noise = ripple(seed + 1, 250000);
    return data;
}

}  // namespace vnksim
