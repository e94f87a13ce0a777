#include "tools/recordingdescription.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/units.h"

namespace cli {

namespace {

constexpr off_t kLongestText = off_t{64} << 20;

/// The text, or why there is none.
bool readText(const std::string& path, std::string& text, RecordingDescription& description) {
    const int iFile = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (iFile < 0) {
        description.state = errno == ENOENT ? DescriptionState::missing : DescriptionState::unreadable;
        description.problem = errno == ENOENT ? "missing" : std::strerror(errno);
        return false;
    }
    struct stat status {};
    const bool bText =
        ::fstat(iFile, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kLongestText;
    text.resize(bText ? static_cast<size_t>(status.st_size) : 0);
    size_t uGot = 0;
    while (uGot < text.size()) {
        const ssize_t iGot = ::read(iFile, text.data() + uGot, text.size() - uGot);
        if (iGot <= 0 && !(iGot < 0 && errno == EINTR))
            break;
        uGot += iGot > 0 ? static_cast<size_t>(iGot) : 0;
    }
    text.resize(uGot);
    ::close(iFile);
    if (!bText) {
        description.state = DescriptionState::unreadable;
        description.problem = "no regular file, or far too long for a description";
    }
    return bText;
}

/// The form has no escapes, and a text ends at its next quote: to a reader of JSON a backslash has to be two.
std::string asJson(const std::string& text) {
    std::string json;
    for (const char c : text)
        json.append(c == '\\' ? 2 : 1, c);
    return json;
}

nlohmann::json recordOf(const nlohmann::json& record, const std::string& key) {
    const auto it = record.find(key);
    return it != record.end() && it->is_object() ? *it : nlohmann::json();
}

void append(std::string& text, const nlohmann::json& value, size_t indent) {
    if (value.is_object()) {
        const char* pBetween = "";
        text += "{";
        for (const auto& [key, entry] : value.items()) {
            text += pBetween + std::string("\r\n") + std::string(indent + 1, '\t') + "\"" + key + "\":";
            append(text, entry, indent + 1);
            pBetween = ",";
        }
        text += "\r\n" + std::string(indent, '\t') + "}";
    } else if (value.is_number_float()) {
        text += formatFixed(static_cast<double>(value.get<float>()), 6);
    } else if (value.is_string()) {
        text += "\"" + value.get<std::string>() + "\"";
    } else {
        text += value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
}

}  // namespace

std::string prettyRecord(const nlohmann::json& record) {
    std::string text;
    append(text, record, 0);
    return text;
}

std::optional<float> secondsPerTick(const std::string& resolution) {
    static const std::array<std::pair<const char*, float>, 5> kTicks{
        {{"s", 1.0f}, {"ms", 1e-3f}, {"us", 1e-6f}, {"ns", 1e-9f}, {"ps", 1e-12f}}};
    for (const auto& [pName, fSeconds] : kTicks)
        if (resolution == pName)
            return fSeconds;
    return std::nullopt;
}

double RecordingDescription::secondsPerTick() const {
    // What the library takes where none is told.
    return static_cast<double>(cli::secondsPerTick(textOf(summary, "TimeResolution")).value_or(1e-3f));
}

std::string RecordingDescription::text() const {
    nlohmann::json record{{"DataType", dataType}, {"Sampling", sampling}, {dataType, summary}};
    if (!source.is_null())
        record["source"] = source;
    return prettyRecord(record);
}

RecordingDescription parseDescription(const std::string& text) {
    RecordingDescription description;
    description.bytes = text.size();
    description.state = text.empty() ? DescriptionState::empty : DescriptionState::notUnderstood;
    description.problem = text.empty()
                              ? "empty: the recording did not end in good order, or is not at its end yet"
                              : "not understood";
    // Nothing of interest lies deep, and what does is left out: it would cost stack to go through.
    const auto shallow = [](int depth, nlohmann::json::parse_event_t, nlohmann::json&) { return depth < 16; };
    const nlohmann::json record = nlohmann::json::parse(asJson(text), shallow, false);
    if (!record.is_object())
        return description;
    description.dataType = textOf(record, "DataType");
    const nlohmann::json sampling = recordOf(record, "Sampling");
    const nlohmann::json summary = recordOf(record, description.dataType);
    if (const auto source = record.find("source"); source != record.end())
        description.source = *source;
    if (record.empty())
        description.problem = "that of a recording without any frame";
    if (sampling.is_null() || summary.is_null())
        return description;
    description.sampling = sampling;
    description.summary = summary;
    description.state = DescriptionState::good;
    description.problem.clear();
    return description;
}

RecordingDescription readDescription(const std::string& path) {
    RecordingDescription description;
    std::string text;
    if (readText(path, text, description))
        return parseDescription(text);
    return description;
}

std::optional<double> numberOf(const nlohmann::json& record, const char* key) {
    const auto it = record.find(key);
    if (it == record.end() || !it->is_number())
        return std::nullopt;
    return it->get<double>();
}

std::optional<uint64_t> countOf(const nlohmann::json& record, const char* key) {
    const auto it = record.find(key);
    if (it == record.end() || !it->is_number_unsigned())
        return std::nullopt;
    return it->get<uint64_t>();
}

std::string textOf(const nlohmann::json& record, const char* key) {
    const auto it = record.find(key);
    return it != record.end() && it->is_string() ? it->get<std::string>() : std::string();
}

}  // namespace cli
