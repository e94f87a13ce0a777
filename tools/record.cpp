#include <memory>
#include <nlohmann/json.hpp>

#include "tools/capture.h"
#include "tools/interrupt.h"
#include "tools/options.h"
#include "tools/recordingname.h"
#include "tools/samplereport.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct RecordOptions {
    CaptureRequest request;
    ReportOptions report;
    std::string name;
    bool force = false;
};

std::vector<std::string> heading(const RecordOptions& options, const FreeName& name, const Recorder& recorder,
                                 const CaptureResult& soFar) {
    std::vector<std::string> lines = settingsTable(options.request, soFar);
    const std::string room = recorder.roomText();
    lines.push_back("");
    lines.push_back("Recording to " + name.name().description() + " and .data" +
                    (room.empty() ? "" : ", " + room));
    return lines;
}

std::vector<std::string> taken(const FreeName& name) {
    if (name.taken().empty())
        return {};
    std::string text;
    for (const std::string& path : name.taken())
        text += (text.empty() ? "" : " and ") + path;
    return {text + (name.taken().size() == 1 ? " is" : " are") + " there already: the recording is " +
            name.name().stem()};
}

/// What came to disk, and what did not.
std::vector<std::string> fileLines(const FreeName& name, const Recorder& recorder,
                                   const CaptureResult& result, uint64_t counted) {
    const RecordingDescription& description = recorder.description();
    const RecordingName& files = name.name();
    if (!recorder.started())
        return {"Nothing was recorded"};
    std::vector<std::string> lines{"Files: " + files.description() + ", " + formatBytes(description.bytes) +
                                   "; " + files.data() + ", " + formatBytes(recorder.dataBytes())};
    if (!recorder.failure().empty())
        lines.push_back(recorder.failure());
    else if (result.samples < counted)
        lines.push_back("The disk did not follow: " + std::to_string(counted - result.samples) +
                        " samples or more are missing");
    if (!description.isGood())
        lines.push_back("The data are saved, their description is not. Rebuild it with:  vnk recover " +
                        files.data());
    else if (result.samples > 0)
        lines.push_back("Play it with:  vnk play " + files.stem());
    return lines;
}

nlohmann::ordered_json recordingJson(const FreeName& name, const Recorder& recorder) {
    nlohmann::ordered_json json{{"description", name.name().description()},
                                {"data", name.name().data()},
                                {"dataBytes", recorder.dataBytes()},
                                {"described", recorder.description().isGood()},
                                {"taken", name.taken()}};
    if (!recorder.failure().empty())
        json["failure"] = recorder.failure();
    return json;
}

/// A recording is not done when the disk lost some of it.
Ending endingOf(const Recorder& recorder, const CaptureResult& result, uint64_t counted) {
    const bool bWhole =
        recorder.failure().empty() && recorder.description().isGood() && result.samples >= counted;
    return recorder.started() && !bWhole && exitFor(result.ending) == Exit::done ? Ending::writeFailed
                                                                                 : result.ending;
}

Exit report(const RecordOptions& options, const FreeName& name, const Recorder& recorder,
            CaptureResult result) {
    const uint64_t uCounted = result.samples;
    result.samples = recorder.recordedSamples();
    result.ending = endingOf(recorder, result, uCounted);
    if (!options.report.quiet) {
        showSummary(result, summaryLines(options.request, result, "Recorded"));
        printErrLines(fileLines(name, recorder, result, uCounted));
    }
    if (options.report.json) {
        nlohmann::ordered_json json = toJson(options.request, result);
        json["recording"] = recordingJson(name, recorder);
        printJson(json);
    }
    return conclude(result.ending);
}

Exit record(const RecordOptions& options) {
    const CaptureRequest& request = options.request;
    checkTuning(request);
    FreeName name{RecordingName(options.name)};
    if (!options.report.quiet)
        printErrLines(taken(name));
    Session session;
    Device device(session, request.address);
    catchInterrupts();
    Recorder recorder(session, name, options.force);
    CaptureProgress progress(options.report.quiet, [&](const CaptureResult& soFar) {
        return heading(options, name, recorder, soFar);
    });
    UnitSource source(session, device, request);
    const CaptureResult result = capture(source, request, nullptr, &recorder, progress);
    progress.end();
    showUnitNotes(session, result.ending);
    return report(options, name, recorder, result);
}

/// The address stands between the verb and what is to be recorded.
class KindHelp : public CLI::Formatter {
 public:
    std::string make_usage(const CLI::App* kind, std::string) const override {
        return "Usage: vnk record ADDRESS " + kind->get_name() + " [OPTIONS]\n";
    }
};

void addRecordIq(CLI::App& parent, const std::shared_ptr<RecordOptions>& options, Chosen& chosen) {
    CLI::App* pKind = parent.add_subcommand("iq", "record IQ samples");
    pKind->formatter(std::make_shared<KindHelp>());
    addTuning(*pKind, options->request);
    pKind
        ->add_option(
            "-o,--output", options->name,
            "name of the recording: NAME.json and NAME.data are made; of a name that is taken NAME-1, "
            "NAME-2...")
        ->type_name("NAME")
        ->required();
    pKind->add_flag("--force", options->force,
                    "begin though the disk looks too small, and go on until it is full");
    addReporting(*pKind, options->report);
    pKind->callback([options, &chosen] { chosen = [options] { return record(*options); }; });
}

}  // namespace

void addRecord(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* pVerb = app.add_subcommand("record", "record a live stream to a pair of files");
    addAddress(*pVerb, options->request.address);
    pVerb->require_subcommand(1);
    addRecordIq(*pVerb, options, chosen);
}

}  // namespace cli
