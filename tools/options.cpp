#include "tools/options.h"

#include <map>
#include <utility>

#include "tools/units.h"

namespace cli {

CLI::Option* addQuantity(CLI::App& verb, const std::string& name, std::function<void(double)> take,
                         Parser parse, const std::string& example, const std::string& help, Sign sign) {
    const auto read = [take = std::move(take), parse, name, example, sign](const std::string& text) {
        const std::optional<double> value = parse(text);
        if (!value || (sign == Sign::positive && *value < 0))
            throw CLI::ValidationError(name, "'" + text + "' is not understood; such as " + example);
        take(*value);
    };
    return verb.add_option_function<std::string>(name, read, help)->type_name(example);
}

CLI::Option* addQuantity(CLI::App& verb, const std::string& name, double& target, Parser parse,
                         const std::string& example, const std::string& help, Sign sign) {
    return addQuantity(
        verb, name, [&target](double value) { target = value; }, parse, example, help, sign);
}

CLI::Option* addQuantity(CLI::App& verb, const std::string& name, std::optional<double>& target, Parser parse,
                         const std::string& example, const std::string& help, Sign sign) {
    return addQuantity(
        verb, name, [&target](double value) { target = value; }, parse, example, help, sign);
}

void addTuning(CLI::App& verb, CaptureRequest& request) {
    addQuantity(verb, "--fcentre", request.centreHz, parseFrequency, "98.1M", "centre frequency")->required();
    addQuantity(verb, "--ifbw", request.bandwidthHz, parseFrequency, "200k", "bandwidth")->required();
    addQuantity(verb, "--ref", request.referenceDbm, parseLevel, "-30",
                "strongest level to be expected, dBm (-30)", Sign::any);
    addQuantity(verb, "--cal", request.calibrationDb, parseGain, "0",
                "added to all levels, dB: what a cable or an amplifier takes away or adds", Sign::any);
    addQuantity(verb, "--seconds", request.seconds, parseDuration, "5", "length, 0 for until Ctrl-C (5)");
}

void checkTuning(const CaptureRequest& request) {
    if (request.bandwidthHz > 2 * request.centreHz)
        throw Failure(Exit::usage, "a bandwidth of " + formatFrequency(request.bandwidthHz) + " about " +
                                       formatFrequency(request.centreHz) + " reaches below 0 Hz");
}

void addSampleUse(CLI::App& verb, CaptureRequest& request) {
    verb.add_option(
        "-o,--output", request.path,
        "file for the samples, 32-bit float I and Q in square roots of milliwatts; - for standard output");
    const std::map<std::string, Detect> kinds{{"am", Detect::am}, {"modes", Detect::modes}};
    verb.add_option("--detect", request.detect,
                    "am: tones of the envelope; modes: Mode S frames (2 MS/s and more)")
        ->transform(CLI::CheckedTransformer(kinds, CLI::ignore_case))
        ->option_text("am|modes");
}

void addReporting(CLI::App& verb, ReportOptions& report) {
    verb.add_flag("--json", report.json, "a summary as a JSON object on standard output");
    verb.add_flag("-q,--quiet", report.quiet, "no progress, spectrum and summary on standard error");
}

void checkStandardOutput(const CaptureRequest& request, bool json) {
    if (json && request.path == "-")
        throw Failure(Exit::usage, "--json and -o - both want standard output");
}

}  // namespace cli
