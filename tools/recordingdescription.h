#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "tools/recordingreader.h"

namespace cli {

enum class DescriptionState { good, missing, empty, unreadable, notUnderstood };

/// The text side of a recording.
struct RecordingDescription {
    DescriptionState state = DescriptionState::missing;
    std::string problem;  ///< in words, unless the state is good
    uint64_t bytes = 0;   ///< of the text
    std::string dataType;
    nlohmann::json sampling = nlohmann::json::object();  ///< what does not change from frame to frame
    nlohmann::json summary = nlohmann::json::object();   ///< times and counts
    nlohmann::json source;                               ///< null: none told

    bool isGood() const { return state == DescriptionState::good; }
    std::optional<DataType> type() const { return dataTypeFrom(dataType); }
    /// Seconds in a tick of the frames' timestamps.
    double secondsPerTick() const;
    std::string text() const;
};

/// Never throws for what is in the file, or that it is not there.
RecordingDescription readDescription(const std::string& path);
/// Takes a description's text apart; what it says is not there is left at its start.
RecordingDescription parseDescription(const std::string& text);

std::optional<double> numberOf(const nlohmann::json& record, const char* key);
std::optional<uint64_t> countOf(const nlohmann::json& record, const char* key);
std::string textOf(const nlohmann::json& record, const char* key);

/// A record in the form of the library's own files: line by line, six decimals for what is not whole, nothing
/// escaped.
std::string prettyRecord(const nlohmann::json& record);

/// Seconds in a tick of "s", "ms", "us", "ns" or "ps", in single precision as the library counts them.
std::optional<float> secondsPerTick(const std::string& resolution);

}  // namespace cli
