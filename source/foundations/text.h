#pragma once

#include <cstdarg>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace utils {

/// printf-style text, always with the "C" locale's numbers.
std::string formatText(const char* format, ...) __attribute__((format(printf, 1, 2)));

inline constexpr const char* kWhitespace = "\r\n\t ";

std::string_view beforeFirst(std::string_view text, std::string_view delimiter);
/// Empty when the delimiter is absent.
std::string_view afterFirst(std::string_view text, std::string_view delimiter);
std::string_view beforeLast(std::string_view text, std::string_view delimiter);
/// Empty when the delimiter is absent.
std::string_view afterLast(std::string_view text, std::string_view delimiter);
std::string_view leftStrip(std::string_view text, std::string_view set);
std::string_view rightStrip(std::string_view text, std::string_view set);
std::string_view strip(std::string_view text, std::string_view set = kWhitespace);
std::string join(const std::vector<std::string>& list, std::string_view separator);
/// Takes the text before the delimiter off the front of `rest`, delimiter included. An absent delimiter
/// yields the whole text and leaves the empty text.
std::string_view takeBefore(std::string_view& rest, std::string_view delimiter);

/// Leading number of a text in the manner of stof (leading blanks, sign, hexadecimal, inf, nan; trailing
/// text ignored), with the "C" locale. Empty when there is no number or it is out of a float's range.
std::optional<float> parseFloat(std::string_view text);
/// Leading decimal integer in the manner of strtol (leading blanks, sign, trailing text ignored); empty
/// without digits or out of range. A negative number is out of the unsigned range.
std::optional<int32_t> parseInt32(std::string_view text);
std::optional<uint32_t> parseUnsigned32(std::string_view text);

}  // namespace utils
