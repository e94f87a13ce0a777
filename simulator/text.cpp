#include "simulator/text.h"

#include <charconv>

namespace vnksim {
namespace {

char upperOf(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

template <typename T>
std::optional<T> parseWhole(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
    }
    T value{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

std::string upper(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = upperOf(c);
    }
    return result;
}

std::string trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

bool containsIgnoringCase(std::string_view text, std::string_view part) {
    return upper(text).find(upper(part)) != std::string::npos;
}

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    bool quoted = false;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') {
            quoted = !quoted;
        } else if (text[i] == separator && !quoted) {
            parts.push_back(trim(text.substr(start, i - start)));
            start = i + 1;
        }
    }
    parts.push_back(trim(text.substr(start)));
    return parts;
}

std::optional<double> parseNumber(std::string_view text) {
    return parseWhole<double>(text);
}

std::optional<long long> parseInteger(std::string_view text) {
    return parseWhole<long long>(text);
}

std::string formatNumber(double value) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

}  // namespace vnksim
