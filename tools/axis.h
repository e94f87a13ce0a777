#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// A scale along an edge of a drawing: round values, written in one unit.
struct Axis {
    struct Tick {
        double value = 0;
        std::string label;  ///< the number alone
    };
    std::vector<Tick> ticks;
    std::string unit;  ///< with its prefix: "MHz"
};

/// At most `most` ticks at steps of 1, 2 or 5 times a power of ten, from `low` to `high`.
Axis makeAxis(double low, double high, size_t most, std::string_view unit);
/// The same in the unit itself, whatever the size: decibels have no prefix.
Axis makePlainAxis(double low, double high, size_t most, std::string_view unit);

}  // namespace cli
