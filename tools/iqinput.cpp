#include "tools/iqinput.h"

#include <sys/stat.h>

#include <cmath>

#include "tools/options.h"
#include "tools/recordingtext.h"
#include "tools/units.h"

namespace cli {

namespace {

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Centres are told in single precision.
bool isSameFrequency(double a, double b) {
    return std::abs(a - b) <= std::max(1.0, std::abs(b) * 1.2e-7);
}

void refuseTuning(const IqInputOptions& options, const std::string& stem, double centreHz) {
    if (options.bandwidthHz || options.referenceDbm || options.calibrationDb)
        throw Failure(Exit::usage, stem + " is a recording: --ifbw, --ref and --cal are for units");
    if (options.centreHz && !isSameFrequency(*options.centreHz, centreHz))
        throw Failure(Exit::usage, stem + " is a recording about " + formatFrequency(centreHz) +
                                       " and cannot be tuned to " + formatFrequency(*options.centreHz) +
                                       ": leave --fcentre out");
}

}  // namespace

void addIqInput(CLI::App& verb, IqInputOptions& options) {
    verb.add_option("INPUT", options.text,
                    "a recording (its name, or either of its files) or a unit's address")
        ->type_name("NAME|ADDRESS")
        ->required();
    addQuantity(verb, "--fcentre", options.centreHz, parseFrequency, "98.1M",
                "centre frequency; needed for a unit, and of a recording only its own");
    const std::string usual =
        options.usualBandwidthHz > 0 ? " (" + formatFrequency(options.usualBandwidthHz) + ")" : "";
    addQuantity(verb, "--ifbw", options.bandwidthHz, parseFrequency, "200k", "bandwidth of a unit" + usual);
    addQuantity(verb, "--ref", options.referenceDbm, parseLevel, "-30",
                "strongest level that a unit has to expect, dBm (-30)", Sign::any);
    addQuantity(verb, "--cal", options.calibrationDb, parseGain, "0",
                "added to all levels of a unit, dB: what a cable or an amplifier takes away or adds",
                Sign::any);
}

bool namesRecording(const std::string& text) {
    if (text.find('/') != std::string::npos || endsWith(text, ".json") || endsWith(text, ".data"))
        return true;
    return exists(text + ".json") || exists(text + ".data");
}

IqInput::IqInput(Session& session, const IqInputOptions& options) {
    mcRequest.seconds = 0;
    if (namesRecording(options.text))
        openRecording(options);
    else
        openUnit(session, options);
}

void IqInput::openRecording(const IqInputOptions& options) {
    mpName = std::make_unique<RecordingName>(options.text);
    mcLabel = mpName->stem();
    mcDescription = readDescription(mpName->description());
    requireDescription(mcDescription, *mpName);
    if (mcDescription.type() != DataType::iq)
        throw Failure(Exit::file, mcLabel + " holds " + mcDescription.dataType + ", and IQ is wanted");
    mcRequest.centreHz = numberOf(mcDescription.sampling, "FCentreHz").value_or(0);
    mcRequest.bandwidthHz = numberOf(mcDescription.sampling, "BandwidthHz").value_or(0);
    mcRequest.referenceDbm = numberOf(mcDescription.sampling, "RefdBm").value_or(0);
    mcSampleRate = numberOf(mcDescription.sampling, "SampleRateHz").value_or(0);
    if (!(*mcSampleRate > 0))
        throw Failure(Exit::file, mpName->description() + ": no sample rate");
    refuseTuning(options, mcLabel, mcRequest.centreHz);
    mpSource = std::make_unique<RecordingSource>(*mpName, false);
}

void IqInput::openUnit(Session& session, const IqInputOptions& options) {
    mcLabel = mcRequest.address = options.text;
    if (!options.centreHz)
        throw Failure(Exit::usage, "there is no recording " + options.text +
                                       ", and a unit of that address needs --fcentre");
    if (!options.bandwidthHz && !(options.usualBandwidthHz > 0))
        throw Failure(Exit::usage, "a unit needs --ifbw");
    mcRequest.centreHz = *options.centreHz;
    mcRequest.bandwidthHz = options.bandwidthHz.value_or(options.usualBandwidthHz);
    mcRequest.referenceDbm = options.referenceDbm.value_or(mcRequest.referenceDbm);
    mcRequest.calibrationDb = options.calibrationDb.value_or(0);
    checkTuning(mcRequest);
    mpDevice = std::make_unique<Device>(session, options.text);
    mpSource = std::make_unique<UnitSource>(session, *mpDevice, mcRequest);
}

}  // namespace cli
