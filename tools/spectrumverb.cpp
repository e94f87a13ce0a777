#include <algorithm>
#include <cmath>
#include <memory>

#include "tools/interrupt.h"
#include "tools/iqspectra.h"
#include "tools/samplereport.h"
#include "tools/sweepoptions.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

constexpr double kFinestRbwHz = 1, kCoarsestRbwHz = 100e3, kMostOverlap = 0.8;
constexpr uint32_t kMostAverage = 10000, kUsualAverage = 10;

struct SpectrumOptions : SweepOptions {
    IqInputOptions input;
    std::optional<double> rbwHz, overlap;
    bool follow = false, traces = false;
    uint32_t average = 0;
};

void check(const SpectrumOptions& options) {
    checkStandardOutput(options);
    if (options.follow && (options.rbwHz || options.overlap))
        throw Failure(Exit::usage,
                      "--follow takes resolution and pieces from the frames: leave --rbw and --overlap out");
    if (options.rbwHz && !(*options.rbwHz >= kFinestRbwHz && *options.rbwHz <= kCoarsestRbwHz))
        throw Failure(Exit::usage, "--rbw goes from 1 Hz to 100 kHz, and " + formatFrequency(*options.rbwHz) +
                                       " does not lie there");
}

/// What is asked of the unit or known of the recording, as a span.
void complete(SpectrumOptions& options, const IqInput& input) {
    SweepRequest& request = options.request;
    const CaptureRequest& tuning = input.request();
    request.address = input.label();
    request.referenceDbm = tuning.referenceDbm;
    request.span.minimumHz = tuning.centreHz - tuning.bandwidthHz / 2;
    request.span.maximumHz = tuning.centreHz + tuning.bandwidthHz / 2;
    request.span.rbwHz =
        options.rbwHz.value_or(std::clamp(defaultRbw(tuning.bandwidthHz), kFinestRbwHz, kCoarsestRbwHz));
    request.iq = IqSpectra{input.isRecording(), options.overlap.value_or(0.5), options.follow, std::nullopt};
    if (options.traces || options.average > 0)
        request.iq->average = options.average > 0 ? options.average : kUsualAverage;
    if (!input.isRecording() && !options.continuous && request.spectra == 0 && !request.seconds)
        request.seconds = 1;
}

void protectRecording(const SweepRequest& request, const IqInput& input) {
    if (!input.isRecording())
        return;
    for (const std::string& path : {request.path, request.picturePath})
        if (path == input.name().data() || path == input.name().description())
            throw Failure(Exit::usage, path + " is what is to be read");
}

Exit spectrumVerb(SpectrumOptions& options) {
    check(options);
    Session session;
    IqInput input(session, options.input);
    complete(options, input);
    const SweepRequest& request = options.request;
    protectRecording(request, input);
    SweepFiles files(request);
    catchInterrupts();
    SweepProgress progress(options.report.quiet, request);
    IqSpectrumSource source(input, request);
    const SweepResult result = takeSpectra(source, request, files.spectra.get(), progress);
    progress.end();
    showUnitNotes(session, result.ending);
    if (result.spectra() == 0 && result.ending == Ending::complete)
        throw Failure(Exit::failure, input.label() + ": " + std::to_string(source.feed().samples()) +
                                         " samples are too few for one spectrum of this resolution");
    showResult(options, result, files);
    if (source.feed().gaps() > 0 && !options.report.quiet)
        printErr(formatCount(source.feed().gaps(), "gap") + " in the IQ: the pieces begin anew behind each");
    return conclude(result.ending);
}

void addTransform(CLI::App& verb, SpectrumOptions& options) {
    addQuantity(verb, "--rbw", options.rbwHz, parseFrequency, "1k",
                "resolution bandwidth, 1 Hz to 100 kHz: the next finer one that a power of two makes (a "
                "2000th of the "
                "bandwidth)");
    addWindow(verb, options.request);
    verb.add_option("--overlap", options.overlap, "of the pieces that are transformed, 0 to 0.8 (0.5)")
        ->type_name("0.5")
        ->check(CLI::Range(0.0, kMostOverlap));
    verb.add_flag("--follow", options.follow,
                  "one spectrum of each frame of IQ, of the largest power of two that it holds");
    verb.add_flag("--traces", options.traces, "keep minimum, maximum and average beside each spectrum");
    verb.add_option("--average", options.average,
                    "spectra in the average of --traces, which it turns on (10)")
        ->type_name("N")
        ->check(CLI::Range(1u, kMostAverage));
}

}  // namespace

void addSpectrum(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<SpectrumOptions>();
    CLI::App* pVerb = app.add_subcommand("spectrum", "show and keep spectra of IQ, live or recorded");
    options->input.usualBandwidthHz = 0;
    addIqInput(*pVerb, options->input);
    addTransform(*pVerb, *options);
    addLength(*pVerb, *options, "length, from the first spectrum (1; of a recording all of it)");
    addOutputs(*pVerb, *options);
    addReporting(*pVerb, options->report);
    pVerb->callback([options, &chosen] {
        options->request.format = options->format.value_or(formatOfName(options->request.path));
        chosen = [options] { return spectrumVerb(*options); };
    });
}

}  // namespace cli
