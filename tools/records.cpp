#include "tools/records.h"

#include <algorithm>

#include "tools/units.h"

namespace cli {

namespace {

std::string_view trim(std::string_view text) {
    const auto uFirst = text.find_first_not_of(" \t\r\n");
    if (uFirst == std::string_view::npos)
        return {};
    return text.substr(uFirst, text.find_last_not_of(" \t\r\n") - uFirst + 1);
}

/// Entries of the pretty form stand behind a line break and exactly one tab.
bool startsEntry(std::string_view line) {
    return line.size() > 2 && line[0] == '\t' && line[1] == '"';
}

RecordEntry parseEntry(std::string_view text) {
    RecordEntry entry;
    text = trim(text);
    if (!text.empty() && text.back() == ',')
        text = trim(text.substr(0, text.size() - 1));
    const auto uEnd = text.find("\":", 1);
    if (uEnd == std::string_view::npos)
        return entry;
    entry.key = text.substr(1, uEnd - 1);
    std::string_view value = trim(text.substr(uEnd + 2));
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        entry.text = true;
        value = value.substr(1, value.size() - 2);
    }
    entry.value = value;
    return entry;
}

bool allDigits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string valueText(const std::string& value) {
    if (value == "true" || value == "false")
        return value;
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        return value;
    // A sign makes a whole number a text in the record's form: it has to be written as a float.
    if (allDigits(value) && value.size() <= 10)
        return value;
    std::optional<double> number = parseFrequency(value);
    if (!number)
        number = parseLevel(value);
    if (!number)
        number = parseGain(value);
    return number ? formatFixed(*number, 6) : "\"" + value + "\"";
}

}  // namespace

std::vector<RecordEntry> readRecord(std::string_view text) {
    std::vector<RecordEntry> entries;
    std::string pending;
    const auto flush = [&] {
        if (!pending.empty())
            entries.push_back(parseEntry(pending));
        pending.clear();
    };
    while (!text.empty()) {
        const auto uEnd = text.find('\n');
        std::string_view line = text.substr(0, uEnd);
        text = uEnd == std::string_view::npos ? std::string_view() : text.substr(uEnd + 1);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (startsEntry(line)) {
            flush();
            pending = line;
        } else if (!pending.empty() && !line.empty() && line != "}") {
            pending += trim(line);
        }
    }
    flush();
    std::erase_if(entries, [](const RecordEntry& entry) { return entry.key.empty(); });
    return entries;
}

std::string schemaDescription(const RecordEntry& entry) {
    std::string_view description = entry.value;
    if (!entry.text) {
        static constexpr std::string_view kKey = "\"description\":\"";
        const auto uAt = description.find(kKey);
        if (uAt == std::string_view::npos)
            return {};
        description = description.substr(uAt + kKey.size());
        description = description.substr(0, description.find('"'));
    }
    if (!description.empty() && description.front() == '<')
        description.remove_prefix(1);
    if (!description.empty() && description.back() == '>')
        description.remove_suffix(1);
    return std::string(description);
}

std::optional<std::pair<std::string, std::string>> splitAssignment(std::string_view text) {
    const auto uAt = text.find('=');
    if (uAt == std::string_view::npos || uAt == 0)
        return std::nullopt;
    std::string key(trim(text.substr(0, uAt)));
    std::string value(trim(text.substr(uAt + 1)));
    std::string_view inner = value;
    if (inner.size() >= 2 && inner.front() == '"' && inner.back() == '"')
        inner = inner.substr(1, inner.size() - 2);
    if (key.empty() || key.find_first_of("\"{}:,") != std::string::npos ||
        inner.find_first_of("\"{}") != std::string_view::npos)
        return std::nullopt;
    return std::make_pair(std::move(key), std::move(value));
}

std::string recordText(const std::vector<std::pair<std::string, std::string>>& assignments) {
    std::string text = "{";
    for (const auto& [key, value] : assignments) {
        if (text.size() > 1)
            text += ",";
        text += "\"" + key + "\":" + valueText(value);
    }
    return text + "}";
}

}  // namespace cli
