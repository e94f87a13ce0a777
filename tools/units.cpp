#include "tools/units.h"

#include <array>
#include <charconv>
#include <cmath>
#include <ctime>

namespace cli {

namespace {

struct Scale {
    std::string_view suffix;
    double factor;
};

constexpr std::array<Scale, 13> kFrequencyScales{{{"", 1},
                                                  {"Hz", 1},
                                                  {"hz", 1},
                                                  {"k", 1e3},
                                                  {"K", 1e3},
                                                  {"kHz", 1e3},
                                                  {"khz", 1e3},
                                                  {"KHz", 1e3},
                                                  {"M", 1e6},
                                                  {"MHz", 1e6},
                                                  {"G", 1e9},
                                                  {"g", 1e9},
                                                  {"GHz", 1e9}}};
constexpr std::array<Scale, 3> kLevelScales{{{"", 1}, {"dBm", 1}, {"dbm", 1}}};
constexpr std::array<Scale, 3> kGainScales{{{"", 1}, {"dB", 1}, {"db", 1}}};
constexpr std::array<Scale, 7> kDurationScales{
    {{"", 1}, {"s", 1}, {"sec", 1}, {"ms", 1e-3}, {"us", 1e-6}, {"min", 60}, {"h", 3600}}};

template <size_t N>
std::optional<double> parseScaled(std::string_view text, const std::array<Scale, N>& scales) {
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    if (text.size() > 1 && text.front() == '+' && text[1] != '-')
        text.remove_prefix(1);
    double dValue = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), dValue);
    if (result.ec != std::errc() || !std::isfinite(dValue))
        return std::nullopt;
    text.remove_prefix(static_cast<size_t>(result.ptr - text.data()));
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    for (const Scale& scale : scales)
        if (text == scale.suffix)
            return dValue * scale.factor;
    return std::nullopt;
}

}  // namespace

std::optional<double> parseFrequency(std::string_view text) {
    return parseScaled(text, kFrequencyScales);
}

std::optional<double> parseLevel(std::string_view text) {
    return parseScaled(text, kLevelScales);
}

std::optional<double> parseGain(std::string_view text) {
    return parseScaled(text, kGainScales);
}

std::optional<double> parseDuration(std::string_view text) {
    return parseScaled(text, kDurationScales);
}

std::optional<double> parseNumber(std::string_view text) {
    return parseScaled(text, std::array<Scale, 1>{{{"", 1}}});
}

std::string formatFixed(double value, int decimals) {
    if (!std::isfinite(value))
        return "-";
    std::array<char, 400> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                      std::chars_format::fixed, decimals);
    return std::string(buffer.data(), result.ptr);
}

std::string formatTime(uint64_t nanoseconds) {
    const auto seconds = static_cast<std::time_t>(nanoseconds / 1000000000);
    std::tm parts{};
    if (::gmtime_r(&seconds, &parts) == nullptr)
        return "-";
    std::array<char, 64> buffer{};
    const size_t uLength = std::strftime(buffer.data(), buffer.size(), "%Y-%m-%d %H:%M:%S", &parts);
    const std::string fraction = std::to_string(1000000000 + nanoseconds % 1000000000).substr(1);
    return std::string(buffer.data(), uLength) + "." + fraction + " UTC";
}

std::string formatDuration(double seconds) {
    if (seconds < 120)
        return formatFixed(seconds, 3) + " s";
    if (seconds < 2 * 3600)
        return formatFixed(seconds / 60, 1) + " min";
    return seconds < 48 * 3600 ? formatFixed(seconds / 3600, 1) + " h"
                               : formatFixed(seconds / 86400, 0) + " days";
}

std::string formatBytes(uint64_t bytes) {
    return bytes < 1000 ? formatCount(bytes, "byte") : formatSI(static_cast<double>(bytes), "B", 3);
}

std::string formatCount(uint64_t number, const std::string& thing) {
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string formatSI(double value, std::string_view unit, int digits) {
    static constexpr std::array<Scale, 7> kPrefixes{
        {{"T", 1e12}, {"G", 1e9}, {"M", 1e6}, {"k", 1e3}, {"", 1}, {"m", 1e-3}, {"u", 1e-6}}};
    const Scale* pScale = &kPrefixes[4];
    for (const Scale& scale : kPrefixes)
        if (std::abs(value) >= scale.factor * (1 - 1e-12)) {
            pScale = &scale;
            break;
        }
    const double dShown = value / pScale->factor;
    const int iWhole = std::abs(dShown) >= 100 ? 3 : std::abs(dShown) >= 10 ? 2 : 1;
    std::string number = formatFixed(dShown, std::max(0, digits - iWhole));
    if (number.find('.') != std::string::npos) {
        number.erase(number.find_last_not_of('0') + 1);
        if (number.back() == '.')
            number.pop_back();
    }
    return number + " " + std::string(pScale->suffix) + std::string(unit);
}

}  // namespace cli
