#include <unistd.h>

#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/capture.h"
#include "tools/interrupt.h"
#include "tools/output.h"
#include "tools/plot.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct IqOptions {
    CaptureRequest request;
    bool json = false;
    bool quiet = false;
};

/// The progress line: rewritten in place on a terminal, else a new line each second.
class Progress : public CaptureListener {
 public:
    explicit Progress(const IqOptions& options)
        : mcOptions(options), mbTerminal(::isatty(STDERR_FILENO) == 1) {}

    void started(const CaptureResult& soFar) override {
        if (mcOptions.quiet)
            return;
        for (const std::string& line : settingsTable(mcOptions.request, soFar))
            printErr(line);
        printErr("");
    }

    void progress(const CaptureResult& soFar) override {
        if (mcOptions.quiet)
            return;
        const std::string line = progressLine(soFar);
        if (mbTerminal) {
            rewrite(line);
        } else if (soFar.elapsedSeconds < mdNext) {
            mcUnprinted = line;
        } else {
            printErr(line);
            mcUnprinted.clear();
        }
        while (soFar.elapsedSeconds >= mdNext)
            mdNext += 1;
    }

    void end() {
        if (mbTerminal && !mcLine.empty())
            printErr("");
        if (!mcUnprinted.empty())
            printErr(mcUnprinted);
    }

 private:
    void rewrite(const std::string& line) {
        std::string text = "\r" + line;
        if (line.size() < mcLine.size())
            text.append(mcLine.size() - line.size(), ' ');
        mcLine = line;
        (void)!::write(STDERR_FILENO, text.data(), text.size());
    }

    const IqOptions& mcOptions;
    bool mbTerminal;
    std::string mcLine;       ///< what stands on the terminal
    std::string mcUnprinted;  ///< the newest that has no line yet
    double mdNext = 1;
};

void showReport(const IqOptions& options, const CaptureResult& result) {
    const CaptureRequest& request = options.request;
    if (!options.quiet) {
        const PlotOptions plot{terminalWidth(), 14, terminalIsUnicode()};
        printErr("");
        for (const std::string& line : drawSpectrum(result.spectrum, result.centreHz - result.bandwidthHz / 2,
                                                    result.centreHz + result.bandwidthHz / 2, plot))
            printErr(line);
        printErr("");
        for (const std::string& line : summaryLines(request, result))
            printErr(line);
    }
    if (options.json) {
        printOut(toJson(request, result).dump(2) + "\n");
        return;
    }
    // Findings are data, unless the samples have that place.
    for (const std::string& line : detectionLines(request, result)) {
        if (request.path == "-")
            printErr(line);
        else
            printOut(line + "\n");
    }
}

Exit exitFor(const CaptureResult& result) {
    switch (result.ending) {
        case Ending::complete:
        case Ending::interrupted:
        case Ending::readerGone:
            return Exit::done;
        case Ending::linkLost:
            return Exit::linkLost;
        case Ending::ended:
        case Ending::noData:
            break;
    }
    return Exit::failure;
}

void check(const IqOptions& options) {
    const CaptureRequest& request = options.request;
    if (options.json && request.path == "-")
        throw Failure(Exit::usage, "--json and -o - both want standard output");
    if (request.bandwidthHz > 2 * request.centreHz)
        throw Failure(Exit::usage, "a bandwidth of " + formatFrequency(request.bandwidthHz) + " about " +
                                       formatFrequency(request.centreHz) + " reaches below 0 Hz");
    if (request.finite && (request.seconds <= 0 || request.seconds > 120))
        throw Failure(Exit::usage, "--finite needs more than 0 and at most 120 seconds");
}

Exit iq(const IqOptions& options) {
    check(options);
    std::unique_ptr<SampleOutput> output;
    if (!options.request.path.empty())
        output = std::make_unique<SampleOutput>(options.request.path);
    Session session;
    Device device(session, options.request.address);
    catchInterrupts();
    Progress progress(options);
    const CaptureResult result = capture(session, device, options.request, output.get(), progress);
    progress.end();
    if (result.ending == Ending::noData || result.ending == Ending::linkLost)
        for (const std::string& note : session.failureNotes())
            printErr("  " + note);
    showReport(options, result);
    if (exitFor(result) != Exit::done)
        printErr("vnk: " + toText(result.ending));
    return exitFor(result);
}

using Parser = std::optional<double> (*)(std::string_view);

/// An option whose value is a number with a unit.
CLI::Option* addQuantity(CLI::App& verb, const std::string& name, double& target, Parser parse,
                         const std::string& example, const std::string& help, bool mayBeNegative) {
    return verb
        .add_option_function<std::string>(
            name,
            [&target, parse, name, example, mayBeNegative](const std::string& text) {
                const std::optional<double> value = parse(text);
                if (!value || (!mayBeNegative && *value < 0))
                    throw CLI::ValidationError(name, "'" + text + "' is not understood; such as " + example);
                target = *value;
            },
            help)
        ->type_name(example);
}

}  // namespace

void addIq(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<IqOptions>();
    CaptureRequest& request = options->request;
    CLI::App* pVerb = app.add_subcommand("iq", "take calibrated IQ samples from a unit");
    addAddress(*pVerb, request.address);
    addQuantity(*pVerb, "--fcentre", request.centreHz, parseFrequency, "98.1M", "centre frequency", false)
        ->required();
    addQuantity(*pVerb, "--ifbw", request.bandwidthHz, parseFrequency, "200k", "bandwidth", false)
        ->required();
    addQuantity(*pVerb, "--ref", request.referenceDbm, parseLevel, "-30",
                "strongest level to be expected, dBm (-30)", true);
    addQuantity(*pVerb, "--cal", request.calibrationDb, parseGain, "0",
                "added to all levels, dB: what a cable or an amplifier takes away or adds", true);
    addQuantity(*pVerb, "--seconds", request.seconds, parseDuration, "5", "length, 0 for until Ctrl-C (5)",
                false);
    pVerb->add_option(
        "-o,--output", request.path,
        "file for the samples, 32-bit float I and Q in square roots of milliwatts; - for standard output");
    pVerb->add_flag("--finite", request.finite, "let the unit end the capture by itself");
    const std::map<std::string, Detect> kinds{{"am", Detect::am}, {"modes", Detect::modes}};
    pVerb
        ->add_option("--detect", request.detect,
                     "am: tones of the envelope; modes: Mode S frames (2 MS/s and more)")
        ->transform(CLI::CheckedTransformer(kinds, CLI::ignore_case))
        ->type_name("am|modes");
    pVerb->add_flag("--json", options->json, "a summary as a JSON object on standard output");
    pVerb->add_flag("-q,--quiet", options->quiet, "no progress, spectrum and summary on standard error");
    pVerb->callback([options, &chosen] { chosen = [options] { return iq(*options); }; });
}

}  // namespace cli
