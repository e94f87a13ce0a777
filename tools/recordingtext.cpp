#include "tools/recordingtext.h"

#include <sys/stat.h>

#include <array>

#include "tools/exitcodes.h"
#include "tools/units.h"

namespace cli {

namespace {

struct Tuning {
    const char* key;
    const char* label;
    const char* jsonKey;
    const char* unit;
};

constexpr std::array<Tuning, 6> kTunings{{{"FCentreHz", "centre", "centreHz", "Hz"},
                                          {"BandwidthHz", "bandwidth", "bandwidthHz", "Hz"},
                                          {"SampleRateHz", "sample rate", "sampleRateHz", "S/s"},
                                          {"RBWHz", "resolution", "rbwHz", "Hz"},
                                          {"RefdBm", "reference", "referencedBm", "dBm"},
                                          {"Channels", "channels", "channels", ""}}};
constexpr std::array<Tuning, 2> kTexts{
    {{"WindowFn", "window", "window", nullptr}, {"units", "units", "units", nullptr}}};

std::string tuningText(const Tuning& tuning, double value) {
    const std::string unit = tuning.unit;
    // A prefix of a level would be nonsense.
    if (unit.empty() || unit == "dBm")
        return formatFixed(value, unit.empty() ? 0 : 1) + (unit.empty() ? "" : " " + unit);
    return formatSI(value, unit);
}

std::string sampleName(const RecordingSummary& summary) {
    return summary.type == DataType::spectrum ? "point" : "sample";
}

std::string frameText(const RecordingSummary& summary) {
    std::string text = formatCount(summary.frames, "frame");
    if (summary.frames == 0)
        return text;
    text += " of " + std::to_string(summary.smallestFrame);
    if (summary.largestFrame != summary.smallestFrame)
        text += " to " + std::to_string(summary.largestFrame);
    return text + " " + sampleName(summary) + (summary.largestFrame == 1 ? "" : "s");
}

std::string gapText(const RecordingSummary& summary) {
    if (summary.type == DataType::baseband)
        return "not to be told: frames of this kind carry neither number nor time";
    std::string text = summary.sequenceGaps ? std::to_string(summary.sequenceGaps) : "none";
    text += " in sequence";
    if (summary.type == DataType::iq)
        text +=
            ", " + (summary.timeGaps ? std::to_string(summary.timeGaps) : std::string("none")) + " in time";
    if (summary.timeGaps)
        text += " (" + formatSI(summary.missingSeconds, "s", 4) + " missing)";
    if (summary.stepsBack)
        text += ", the time goes back " + formatCount(summary.stepsBack, "time");
    return text;
}

}  // namespace

std::vector<std::string> alignRows(const std::vector<Row>& rows) {
    std::vector<std::string> lines;
    for (const auto& [name, value] : rows)
        lines.push_back(name + std::string(name.size() < 16 ? 16 - name.size() : 1, ' ') + value);
    return lines;
}

std::vector<Row> tuningRows(const RecordingDescription& description) {
    std::vector<Row> rows;
    for (const Tuning& tuning : kTunings)
        if (const auto value = numberOf(description.sampling, tuning.key))
            rows.emplace_back(tuning.label, tuningText(tuning, *value));
    for (const Tuning& text : kTexts)
        if (const std::string value = textOf(description.sampling, text.key); !value.empty())
            rows.emplace_back(text.label, value);
    return rows;
}

double recordedSeconds(const RecordingDescription& description) {
    const auto start = countOf(description.summary, "StartTimestamp");
    const auto end = countOf(description.summary, "EndTimestamp");
    return start && end && *end > *start ? static_cast<double>(*end - *start) * 1e-9 : 0;
}

std::vector<Row> timeRows(const RecordingDescription& description) {
    std::vector<Row> rows;
    if (const auto start = countOf(description.summary, "StartTimestamp"))
        rows.emplace_back("start", formatTime(*start));
    if (const auto end = countOf(description.summary, "EndTimestamp"))
        rows.emplace_back("end", formatTime(*end));
    rows.emplace_back("duration", formatDuration(recordedSeconds(description)));
    return rows;
}

std::vector<Row> contentRows(const RecordingSummary& summary) {
    std::vector<Row> rows{{"frames", frameText(summary)}};
    if (summary.type != DataType::spectrum)
        rows.emplace_back("samples", std::to_string(summary.samples));
    if (summary.frames > 0)
        rows.emplace_back("gaps", gapText(summary));
    return rows;
}

nlohmann::ordered_json tuningJson(const RecordingDescription& description) {
    nlohmann::ordered_json json = nlohmann::ordered_json::object();
    for (const Tuning& tuning : kTunings)
        if (const auto value = numberOf(description.sampling, tuning.key))
            json[tuning.jsonKey] = *value;
    for (const Tuning& text : kTexts)
        if (const std::string value = textOf(description.sampling, text.key); !value.empty())
            json[text.jsonKey] = value;
    if (const auto start = countOf(description.summary, "StartTimestamp")) {
        json["start"] = formatTime(*start);
        json["startNs"] = *start;
    }
    if (const auto end = countOf(description.summary, "EndTimestamp"))
        json["endNs"] = *end;
    json["seconds"] = recordedSeconds(description);
    return json;
}

nlohmann::ordered_json contentJson(const RecordingSummary& summary) {
    nlohmann::ordered_json json{{"bytes", summary.fileBytes},
                                {"trailingBytes", summary.trailingBytes()},
                                {"frames", summary.frames},
                                {sampleName(summary) + "s", summary.samples},
                                {"smallestFrame", summary.smallestFrame},
                                {"largestFrame", summary.largestFrame},
                                {"beingWritten", summary.beingWritten}};
    if (summary.type != DataType::baseband)
        json["sequenceGaps"] = summary.sequenceGaps;
    if (summary.type == DataType::iq) {
        json["timeGaps"] = summary.timeGaps;
        json["missingSeconds"] = summary.missingSeconds;
    }
    if (summary.type != DataType::baseband)
        json["timeStepsBack"] = summary.stepsBack;
    if (summary.estimatedRateHz)
        json["estimatedRateHz"] = *summary.estimatedRateHz;
    return json;
}

void requireDescription(const RecordingDescription& description, const RecordingName& name) {
    if (description.isGood())
        return;
    struct stat status {};
    if (description.state == DescriptionState::missing && ::stat(name.data().c_str(), &status) != 0)
        throw Failure(Exit::file, name.stem() + ": there is no such recording");
    std::string text = name.description() + ": " + description.problem;
    if (description.state == DescriptionState::empty || description.state == DescriptionState::missing)
        text += "\n  rebuild it with:  vnk recover " + name.data();
    throw Failure(Exit::file, text);
}

}  // namespace cli
