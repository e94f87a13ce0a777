#include "tools/sweepoptions.h"

#include <map>
#include <nlohmann/json.hpp>

#include "tools/samplereport.h"
#include "tools/units.h"

namespace cli {

namespace {

std::vector<double> marks(const SweepResult& result) {
    std::vector<double> marks;
    for (const Peak& peak : result.peaks)
        marks.push_back(peak.frequencyHz);
    return marks;
}

/// Data, unless standard output is given to other data.
void showLines(const std::vector<std::string>& lines, bool standardOutputTaken) {
    for (const std::string& line : lines)
        if (standardOutputTaken)
            printErr(line);
        else
            printOut(line + "\n");
}

void showFigures(const SweepOptions& options, const SweepResult& result) {
    const SweepRequest& request = options.request;
    const bool bAny = result.spectra() > 0;
    if (!options.report.quiet && bAny)
        showSpectrum(result.history.strongest(result.lowHz, result.highHz), request.span.minimumHz,
                     request.span.maximumHz, marks(result));
    if (!options.report.quiet)
        printErrLines(summaryLines(request, result));
    if (options.report.json)
        printJson(toJson(request, result));
    else if (bAny)
        showLines(peakLines(result), request.path == "-" || request.picturePath == "-");
}

void writePicture(const SweepOptions& options, const SweepResult& result, SampleOutput& output) {
    const std::vector<uint8_t> png = drawPicture(options.request, result);
    output.write(png.data(), png.size());
    output.close();
    if (!options.report.quiet && options.request.picturePath != "-")
        printErr("Picture: " + options.request.picturePath);
}

}  // namespace

void SweepProgress::waiting(double seconds) {
    // Most sweeps begin within two seconds.
    if (seconds >= 2)
        mcLine.show(seconds, "  waiting for the first spectrum, " + formatFixed(seconds, 0) + " s");
}

void SweepProgress::started(const SweepResult& soFar) {
    mcLine.end();
    mcLine = ProgressLine(mbQuiet);
    if (mbQuiet)
        return;
    printErrLines(settingsTable(mcRequest, soFar));
    printErr("");
}

void SweepProgress::progress(const SweepResult& soFar) {
    mcLine.show(soFar.elapsedSeconds, progressLine(mcRequest, soFar));
}

void checkStandardOutput(const SweepOptions& options) {
    const SweepRequest& request = options.request;
    if ((request.path == "-") + (request.picturePath == "-") + options.report.json > 1)
        throw Failure(Exit::usage, "of --json, -o - and --png - only one can have standard output");
}

SweepFiles::SweepFiles(const SweepRequest& request) {
    if (!request.path.empty())
        spectra = openOutput(request.path);
    if (!request.picturePath.empty())
        picture = openOutput(request.picturePath);
}

void showResult(const SweepOptions& options, const SweepResult& result, SweepFiles& files) {
    showFigures(options, result);
    if (files.picture && result.spectra() > 0)
        writePicture(options, result, *files.picture);
}

void addLength(CLI::App& verb, SweepOptions& options, const std::string& secondsHelp) {
    SweepRequest& request = options.request;
    CLI::Option* pCount = verb.add_option("-n,--count", request.spectra, "number of spectra")
                              ->type_name("N")
                              ->check(CLI::Range(1u, 1000000000u));
    CLI::Option* pSeconds = addQuantity(verb, "--seconds", request.seconds, parseDuration, "1", secondsHelp);
    CLI::Option* pContinuous = verb.add_flag("--continuous", options.continuous, "until Ctrl-C");
    pCount->excludes(pSeconds)->excludes(pContinuous);
    pSeconds->excludes(pContinuous);
}

void addOutputs(CLI::App& verb, SweepOptions& options) {
    SweepRequest& request = options.request;
    CLI::Option* pOutput =
        verb.add_option("-o,--output", request.path, "file for the spectra; - for standard output");
    const std::map<std::string, SpectrumFormat> formats{
        {"csv", SpectrumFormat::csv}, {"jsonl", SpectrumFormat::jsonl}, {"f32", SpectrumFormat::f32}};
    verb.add_option("--format", options.format, "of that file; else as its name tells, else csv")
        ->transform(CLI::CheckedTransformer(formats, CLI::ignore_case))
        ->option_text("csv|jsonl|f32")
        ->needs(pOutput);
    verb.add_option("--png", request.picturePath, "picture of spectrum and waterfall; - for standard output")
        ->type_name("FILE");
}

void addWindow(CLI::App& verb, SweepRequest& request) {
    std::vector<std::string> names;
    for (const SweepWindow& window : sweepWindows())
        names.push_back(window.name);
    verb.add_option("--window", request.window, "window of the transform (nuttall)")
        ->type_name("NAME")
        ->check(CLI::IsMember(names));
}

}  // namespace cli
