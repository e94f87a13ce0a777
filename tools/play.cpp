#include "tools/play.h"

#include <memory>

#include "tools/capture.h"
#include "tools/interrupt.h"
#include "tools/samplereport.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

Exit playIq(const PlayOptions& options, const RecordingName& name, const RecordingDescription& description) {
    const CaptureRequest& request = options.request;
    std::unique_ptr<SampleOutput> output;
    if (!request.path.empty())
        output = std::make_unique<SampleOutput>(request.path);
    const Session session;
    catchInterrupts();
    CaptureProgress progress(options.report.quiet,
                             [&](const CaptureResult&) { return playHeading(name, description); });
    RecordingSource source(name, request.loop);
    const CaptureResult result = capture(source, request, output.get(), nullptr, progress);
    progress.end();
    if (!options.report.quiet)
        showSummary(result, summaryLines(request, result, "Played"));
    if (options.report.json) {
        nlohmann::ordered_json json{{"recording", name.stem()}, {"type", description.dataType}};
        json["recorded"] = tuningJson(description);
        addResult(json, request, result);
        json["passes"] = result.passes;
        printJson(json);
    } else {
        showFindings(request, result);
    }
    return conclude(result.ending);
}

void checkOutput(const PlayOptions& options, const RecordingName& name) {
    checkStandardOutput(options.request, options.report.json);
    const std::string& path = options.request.path;
    if (path == name.data() || path == name.description())
        throw Failure(Exit::usage, path + " is what is to be played");
}

Exit play(const PlayOptions& options) {
    const RecordingName name(options.name);
    checkOutput(options, name);
    const RecordingDescription description = readDescription(name.description());
    requireDescription(description, name);
    const auto type = description.type();
    if (type == DataType::iq)
        return playIq(options, name, description);
    if (type == DataType::spectrum)
        return playSpectra(options, name, description);
    if (type == DataType::baseband)
        return playBaseband(options, name, description);
    throw Failure(Exit::file, name.description() + ": the kind '" + description.dataType + "' is unknown");
}

}  // namespace

std::vector<std::string> playHeading(const RecordingName& name, const RecordingDescription& description) {
    std::vector<std::string> lines{"Playing " + name.stem() + ": " + description.dataType};
    for (const auto& rows : {tuningRows(description), timeRows(description)})
        for (const std::string& line : alignRows(rows))
            lines.push_back("  " + line);
    return lines;
}

void addPlay(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<PlayOptions>();
    options->request.seconds = 0;
    CLI::App* pVerb =
        app.add_subcommand("play", "play a recording: IQ and spectra at the pace at which they were made");
    pVerb->add_option("NAME", options->name, "the recording: its name, or either of its files")->required();
    pVerb->add_flag("--loop", options->request.loop, "start over at the end, until Ctrl-C");
    addQuantity(*pVerb, "--seconds", options->request.seconds, parseDuration, "5",
                "length, 0 for all of it (0)");
    addSampleUse(*pVerb, options->request);
    addReporting(*pVerb, options->report);
    pVerb->callback([options, &chosen] { chosen = [options] { return play(*options); }; });
}

}  // namespace cli
