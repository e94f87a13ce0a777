#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cli {

/// "98.1M", "2.4GHz", "9 kHz", "98100000" in hertz. A small m is refused: nobody tunes to millihertz.
std::optional<double> parseFrequency(std::string_view text);
/// "-30", "-30dBm", "-30 dBm".
std::optional<double> parseLevel(std::string_view text);
/// "3", "3dB".
std::optional<double> parseGain(std::string_view text);
/// "5", "0.5s", "200ms", "2min" in seconds.
std::optional<double> parseDuration(std::string_view text);
/// A plain decimal number, all of the text. Never infinite or NaN.
std::optional<double> parseNumber(std::string_view text);

/// "98.1 MHz": the value with its SI prefix, trailing zeros cut, at most `digits` significant ones.
std::string formatSI(double value, std::string_view unit, int digits = 9);
inline std::string formatFrequency(double hertz) {
    return formatSI(hertz, "Hz");
}
/// A number with so many decimals, whatever the locale; "-" when it is not finite.
std::string formatFixed(double value, int decimals);
/// "2025-03-09 14:05:06.007000000 UTC" for nanoseconds since 1970.
std::string formatTime(uint64_t nanoseconds);
/// "3.000 s", "4.2 min", "3.5 h", "12 days".
std::string formatDuration(double seconds);
/// "431 bytes", "2.9 MB".
std::string formatBytes(uint64_t bytes);
/// "1 gap", "2 gaps".
std::string formatCount(uint64_t number, const std::string& thing);

}  // namespace cli
