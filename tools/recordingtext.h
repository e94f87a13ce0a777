#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tools/recordingname.h"
#include "tools/recordingsummary.h"

namespace cli {

/// A name and what it is, for people.
using Row = std::pair<std::string, std::string>;
std::vector<std::string> alignRows(const std::vector<Row>& rows);

/// How the recording was tuned, as far as the description tells.
std::vector<Row> tuningRows(const RecordingDescription& description);
/// Start, end and length.
std::vector<Row> timeRows(const RecordingDescription& description);
/// Frames, samples and gaps.
std::vector<Row> contentRows(const RecordingSummary& summary);
double recordedSeconds(const RecordingDescription& description);

nlohmann::ordered_json tuningJson(const RecordingDescription& description);
nlohmann::ordered_json contentJson(const RecordingSummary& summary);

/// Throws Failure with Exit::file, and the way out, when the description does not do for playing.
void requireDescription(const RecordingDescription& description, const RecordingName& name);

}  // namespace cli
