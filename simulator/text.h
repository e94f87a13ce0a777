#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Small text helpers, independent of the process locale.
namespace vnksim {

std::string upper(std::string_view text);
std::string trim(std::string_view text);
bool containsIgnoringCase(std::string_view text, std::string_view part);
/// Splits at each `separator` outside of double quotes; the parts are trimmed.
std::vector<std::string> split(std::string_view text, char separator);
/// The whole text as a number.
std::optional<double> parseNumber(std::string_view text);
std::optional<long long> parseInteger(std::string_view text);
/// Shortest text that reads back as the same value.
std::string formatNumber(double value);

}  // namespace vnksim
