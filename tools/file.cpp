#include <memory>

#include "tools/output.h"
#include "tools/recordingtext.h"
#include "tools/samplereport.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct FileOptions {
    std::string name;
    bool json = false;
};

/// Both sides of a recording, and how they fit.
struct Findings {
    RecordingName name;
    RecordingDescription description;
    RecordingSummary summary;
    std::vector<std::string> problems;

    bool playable() const {
        return description.isGood() && summary.frames > 0 && description.type() == summary.type;
    }
};

Findings examine(const RecordingName& name) {
    RecordingReader reader(name.data());
    Findings found{name, readDescription(name.description()), {}, {}};
    const bool bDescribed = found.description.isGood();
    // Live streams count nanoseconds: that is what the data mean where nothing is told.
    const double dTick =
        bDescribed ? found.description.secondsPerTick() : static_cast<double>(*secondsPerTick("ns"));
    found.summary =
        summarize(reader, dTick, numberOf(found.description.sampling, "SampleRateHz").value_or(0));
    if (bDescribed)
        found.problems = differences(found.description, found.summary);
    else
        found.problems.push_back("the description is " + found.description.problem);
    if (const std::string tail = tailText(found.summary); !tail.empty())
        found.problems.push_back(tail);
    return found;
}

std::vector<Row> guessedRows(const RecordingSummary& summary) {
    std::vector<Row> rows;
    if (summary.estimatedRateHz)
        rows.emplace_back("sample rate", formatSI(*summary.estimatedRateHz, "S/s") + " by the frames' times");
    if (summary.frames > 0 && summary.type != DataType::baseband) {
        rows.emplace_back("first frame", formatTime(summary.first.timestamp) + ", if times are nanoseconds");
        rows.emplace_back("last frame", formatTime(summary.last.timestamp));
    }
    return rows;
}

std::vector<std::string> lines(const Findings& found) {
    const RecordingDescription& description = found.description;
    std::vector<Row> rows{
        {"description", found.name.description() + ", " +
                            (description.isGood() ? formatBytes(description.bytes) : description.problem)},
        {"data", found.name.data() + ", " + formatBytes(found.summary.fileBytes) +
                     (found.summary.beingWritten ? ", being written at this moment" : "")},
        {"type", found.summary.type ? toText(*found.summary.type) : "none that is known"}};
    const auto append = [&rows](const std::vector<Row>& further) {
        rows.insert(rows.end(), further.begin(), further.end());
    };
    if (description.isGood()) {
        append(tuningRows(description));
        append(timeRows(description));
    } else {
        append(guessedRows(found.summary));
    }
    append(contentRows(found.summary));
    for (size_t i = 0; i < found.problems.size(); ++i)
        rows.emplace_back(i == 0 ? "state" : "", found.problems[i]);
    if (found.problems.empty())
        rows.emplace_back("state", "good: description and data agree");
    return alignRows(rows);
}

nlohmann::ordered_json toJson(const Findings& found) {
    nlohmann::ordered_json json{{"recording", found.name.stem()},
                                {"description", found.name.description()},
                                {"data", found.name.data()}};
    json["type"] = found.summary.type ? nlohmann::ordered_json(toText(*found.summary.type)) : nullptr;
    json["described"] = found.description.isGood();
    json["recorded"] = tuningJson(found.description);
    json["held"] = contentJson(found.summary);
    json["agree"] = found.problems.empty();
    json["problems"] = found.problems;
    return json;
}

/// What to do where the description is lost.
std::string wayOut(const Findings& found) {
    const DescriptionState state = found.description.state;
    if (found.summary.beingWritten)
        return "the recording goes on; its description comes at its end";
    if (found.summary.frames > 0 && (state == DescriptionState::missing || state == DescriptionState::empty))
        return "rebuild the description with:  vnk recover " + found.name.data();
    return "it cannot be played as it stands";
}

Exit file(const FileOptions& options) {
    const Findings found = examine(RecordingName(options.name));
    if (options.json) {
        printJson(toJson(found));
    } else {
        for (const std::string& line : lines(found))
            printOut(line + "\n");
    }
    if (found.playable())
        return Exit::done;
    printErr("vnk: " + found.name.stem() + ": " + wayOut(found));
    return Exit::file;
}

}  // namespace

void addFile(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<FileOptions>();
    CLI::App* pVerb =
        app.add_subcommand("file", "show what is in a recording, and whether its two files agree");
    pVerb->add_option("NAME", options->name, "the recording: its name, or either of its files")->required();
    pVerb->add_flag("--json", options->json, "a JSON object on standard output");
    pVerb->callback([options, &chosen] { chosen = [options] { return file(*options); }; });
}

}  // namespace cli
