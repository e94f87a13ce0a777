#include <memory>

#include "tools/capture.h"
#include "tools/interrupt.h"
#include "tools/options.h"
#include "tools/samplereport.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct IqOptions {
    CaptureRequest request;
    ReportOptions report;
};

void check(const IqOptions& options) {
    const CaptureRequest& request = options.request;
    checkStandardOutput(request, options.report.json);
    checkTuning(request);
    if (request.finite && (request.seconds <= 0 || request.seconds > 120))
        throw Failure(Exit::usage, "--finite needs more than 0 and at most 120 seconds");
}

Exit iq(const IqOptions& options) {
    const CaptureRequest& request = options.request;
    check(options);
    std::unique_ptr<SampleOutput> output;
    if (!request.path.empty())
        output = std::make_unique<SampleOutput>(request.path);
    Session session;
    Device device(session, request.address);
    catchInterrupts();
    CaptureProgress progress(options.report.quiet,
                             [&](const CaptureResult& soFar) { return settingsTable(request, soFar); });
    UnitSource source(session, device, request);
    const CaptureResult result = capture(source, request, output.get(), nullptr, progress);
    progress.end();
    showUnitNotes(session, result.ending);
    if (!options.report.quiet)
        showSummary(result, summaryLines(request, result));
    if (options.report.json)
        printJson(toJson(request, result));
    else
        showFindings(request, result);
    return conclude(result.ending);
}

}  // namespace

void addIq(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<IqOptions>();
    CLI::App* pVerb = app.add_subcommand("iq", "take calibrated IQ samples from a unit");
    addAddress(*pVerb, options->request.address);
    addTuning(*pVerb, options->request);
    addSampleUse(*pVerb, options->request);
    pVerb->add_flag("--finite", options->request.finite, "let the unit end the capture by itself");
    addReporting(*pVerb, options->report);
    pVerb->callback([options, &chosen] { chosen = [options] { return iq(*options); }; });
}

}  // namespace cli
