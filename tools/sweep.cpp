#include <memory>

#include "tools/interrupt.h"
#include "tools/options.h"
#include "tools/samplereport.h"
#include "tools/sweeper.h"
#include "tools/sweepoptions.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

void check(const SweepOptions& options) {
    const SweepRequest& request = options.request;
    const SweepSpan& span = request.span;
    if (!(span.maximumHz > span.minimumHz))
        throw Failure(Exit::usage, "a sweep goes from a lower to a higher frequency, not from " +
                                       formatFrequency(span.minimumHz) + " to " +
                                       formatFrequency(span.maximumHz));
    if (!(span.rbwHz > 0) || span.rbwHz > span.widthHz())
        throw Failure(Exit::usage, "a resolution bandwidth of " + formatFrequency(span.rbwHz) +
                                       " for a span of " + formatFrequency(span.widthHz()) +
                                       ": it has to be more than 0 and no wider");
    checkStandardOutput(options);
}

Exit sweepVerb(const SweepOptions& options) {
    const SweepRequest& request = options.request;
    check(options);
    SweepFiles files(request);
    Session session;
    Device device(session, request.address);
    catchInterrupts();
    SweepProgress progress(options.report.quiet, request);
    const SweepResult result = sweep(session, device, request, files.spectra.get(), progress);
    progress.end();
    showUnitNotes(session, result.ending);
    showResult(options, result, files);
    return conclude(result.ending);
}

void addSpan(CLI::App& verb, SweepRequest& request) {
    const auto read = [&request](const std::string& text) {
        const std::optional<SweepSpan> span = parseSpan(text);
        if (!span)
            throw CLI::ValidationError("-f", "'" + text + "' is not understood; such as 88M:108M:10k");
        request.span = *span;
    };
    verb.add_option_function<std::string>(
            "-f,--frequency", read,
            "lower edge, upper edge, resolution bandwidth; without the last about a 2000th of the span")
        ->type_name("88M:108M:10k")
        ->required();
}

void addSetting(CLI::App& verb, SweepRequest& request) {
    addQuantity(verb, "--ref", request.referenceDbm, parseLevel, "-30",
                "strongest level to be expected, dBm (-30)", Sign::any);
    addQuantity(verb, "--cal", request.calibrationDb, parseGain, "0",
                "added to all levels, dB: what a cable or an amplifier takes away or adds", Sign::any);
    addWindow(verb, request);
    verb.add_flag("--flatten", request.flatten,
                  "take the ripple of the IF out, by the unit's correction data");
}

}  // namespace

void addSweep(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<SweepOptions>();
    CLI::App* pVerb = app.add_subcommand("sweep", "show and keep the spectrum of any span");
    addAddress(*pVerb, options->request.address);
    addSpan(*pVerb, options->request);
    addSetting(*pVerb, options->request);
    addLength(*pVerb, *options, "length, from the first spectrum (1)");
    addOutputs(*pVerb, *options);
    addReporting(*pVerb, options->report);
    pVerb->callback([options, &chosen] {
        SweepRequest& request = options->request;
        request.format = options->format.value_or(formatOfName(request.path));
        if (!options->continuous && request.spectra == 0 && !request.seconds)
            request.seconds = 1;
        chosen = [options] { return sweepVerb(*options); };
    });
}

}  // namespace cli
