#pragma once

#include <array>
#include <cstdint>

/// The low-pass filters of the I-to-IQ conversion: 11 rows, for the bandwidths 20, 22 up to 40 MHz at a
/// rate of 125 MHz, 257 taps each, linear phase. Designed once, at first use.
namespace IQConversionFilters {

inline constexpr uint32_t kRows = 11;
inline constexpr uint32_t kTaps = 257;

struct Row {
    float mfBandwidthHz;
    std::array<float, kTaps> mfTaps;
};

const std::array<Row, kRows>& table();
/// First row whose bandwidth is not below the usable width; the last row if there is none.
const Row& rowFor(float fUsableWidthHz);

}  // namespace IQConversionFilters
