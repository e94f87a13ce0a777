#include <algorithm>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/demodulation.h"
#include "tools/interrupt.h"
#include "tools/options.h"
#include "tools/samplereport.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct DemodOptions {
    DemodRequest request;
    ReportOptions report;
};

std::string headingLine(const DemodRequest& request, const DemodResult& result) {
    std::string text = "Demodulating " + toText(request.kind) + " at " + formatFrequency(result.centreHz) +
                       ": " + formatSI(result.bandwidthHz, "Hz", 4) + " at " +
                       formatSI(result.inputRateHz, "S/s") + " to audio at " + formatSI(result.rateHz, "S/s");
    if (result.deviationHz > 0)
        text += "; full scale is a deviation of " + formatSI(result.deviationHz, "Hz", 4);
    return text;
}

std::string padLeft(const std::string& text) {
    constexpr size_t kWidth = 6;
    return std::string(kWidth - std::min(kWidth, text.size()), ' ') + text;
}

std::string counts(const DemodResult& result) {
    return formatCount(result.gaps, "gap") +
           (result.overflows ? ", " + formatCount(result.overflows, "overflow") : "");
}

class DemodProgress : public DemodListener {
 public:
    DemodProgress(bool quiet, const DemodRequest& request)
        : mbQuiet(quiet), mcRequest(request), mcLine(quiet) {}
    void started(const DemodResult& soFar) override {
        if (!mbQuiet)
            printErrLines({headingLine(mcRequest, soFar), ""});
    }
    void progress(const DemodResult& soFar) override {
        mcLine.show(soFar.elapsedSeconds, padLeft(formatFixed(soFar.seconds(), 1)) + " s  " +
                                              levelText(soFar.audio) + ", " + counts(soFar));
    }
    void end() { mcLine.end(); }

 private:
    bool mbQuiet;
    const DemodRequest& mcRequest;
    ProgressLine mcLine;
};

std::string identLine(const DemodRequest& request, const DemodResult& result) {
    const std::string tone = "Morse at " + formatSI(request.identToneHz, "Hz", 4);
    if (result.ident.text.empty())
        return "Ident: none heard in " + tone;
    return "Ident: " + result.ident.text + ", heard " +
           (result.ident.whole ? formatCount(result.ident.times, "time") : "in part") + " in " + tone + ", " +
           formatFixed(result.morse.wordsPerMinute(), 0) + " words a minute";
}

std::vector<std::string> summaryLines(const DemodRequest& request, const DemodResult& result) {
    std::vector<std::string> lines{"Demodulated " + formatCount(result.audio.samples(), "sample") + ", " +
                                   formatFixed(result.seconds(), 3) + " s (" + toText(result.ending) + "), " +
                                   counts(result)};
    if (result.audio.samples() > 0)
        for (const std::string& line : audioLines(result.audio, *result.view))
            lines.push_back(line);
    if (result.dropped > 0)
        lines.push_back("The machine did not follow: " + formatCount(result.dropped, "frame") + " dropped");
    lines.insert(lines.end(), result.written.begin(), result.written.end());
    if (request.ident && !result.morse.words.empty()) {
        std::string heard = "Heard:";
        for (const MorseWord& word : result.morse.words)
            heard += " " + word.text;
        lines.push_back(heard);
    }
    return lines;
}

nlohmann::ordered_json toJson(const DemodRequest& request, const DemodResult& result) {
    nlohmann::ordered_json json{
        {namesRecording(request.input.text) ? "recording" : "address", request.input.text},
        {"demodulator", toText(request.kind)},
        {"centreHz", result.centreHz},
        {"bandwidthHz", result.bandwidthHz},
        {"inputSampleRateHz", result.inputRateHz},
        {"sampleRateHz", result.rateHz},
        {"ending", toText(result.ending)},
        {"samples", result.audio.samples()},
        {"seconds", result.seconds()},
        {"elapsedSeconds", result.elapsedSeconds},
        {"gaps", result.gaps},
        {"overflows", result.overflows},
        {"droppedFrames", result.dropped},
        {"clipped", result.audio.clipped()},
        {"notNumbers", result.audio.notNumbers()}};
    if (result.deviationHz > 0)
        json["fullScaleDeviationHz"] = result.deviationHz;
    if (result.audio.peakDbfs() > -999) {
        const SpectrumPeak peak = result.view->strongest();
        json["peakdBFS"] = result.audio.peakDbfs();
        json["meandBFS"] = result.audio.rmsDbfs();
        json["strongest"] = {{"frequencyHz", peak.frequencyHz}, {"dBFS", peak.dbm}};
    }
    if (!request.path.empty()) {
        json["file"] = request.path;
        json["bytes"] = result.bytesWritten;
    }
    if (request.ident) {
        nlohmann::ordered_json words = nlohmann::ordered_json::array();
        for (const MorseWord& word : result.morse.words)
            words.push_back({{"text", word.text}, {"seconds", word.seconds}, {"whole", word.whole}});
        json["ident"] = {{"text", result.ident.text},
                         {"times", result.ident.times},
                         {"whole", result.ident.whole},
                         {"wordsPerMinute", result.morse.wordsPerMinute()},
                         {"heard", words}};
    }
    return json;
}

void check(const DemodOptions& options) {
    const DemodRequest& request = options.request;
    if (options.report.json && request.path == "-")
        throw Failure(Exit::usage, "--json and -o - both want standard output");
    if (request.deviationHz && request.kind != DemodKind::fm)
        throw Failure(Exit::usage, "--deviation is for fm");
    if (request.deviationHz && !(*request.deviationHz > 0))
        throw Failure(Exit::usage, "--deviation has to be more than 0");
    if (!namesRecording(request.input.text))
        return;
    const RecordingName name(request.input.text);
    if (request.path == name.data() || request.path == name.description())
        throw Failure(Exit::usage, request.path + " is what is to be read");
}

void showResult(const DemodOptions& options, const DemodResult& result) {
    const DemodRequest& request = options.request;
    if (!options.report.quiet) {
        if (result.view && result.audio.samples() > 0)
            showSpectrum(result.view->spectrum(), 0, result.view->highestHz());
        printErrLines(summaryLines(request, result));
    }
    if (options.report.json)
        printJson(toJson(request, result));
    else if (request.ident && request.path == "-")
        printErr(identLine(request, result));
    else if (request.ident)
        printOut(identLine(request, result) + "\n");
}

void showRecording(const DemodOptions& options, const FreeName& name, const Recorder& recorder) {
    if (!recorder.failure().empty())
        printErr("vnk: " + name.name().stem() + ": " + recorder.failure());
    else if (recorder.started() && !options.report.quiet)
        printErr("Recorded: " + name.name().description() + " and .data, " +
                 formatBytes(recorder.dataBytes()) + "; hear it with:  vnk wav " + name.name().stem() +
                 " -o FILE.wav");
}

Exit demod(const DemodOptions& options) {
    const DemodRequest& request = options.request;
    check(options);
    std::unique_ptr<FreeName> name;
    if (!request.record.empty())
        name = std::make_unique<FreeName>(RecordingName(request.record));
    Session session;
    catchInterrupts();
    std::unique_ptr<Recorder> recorder;
    if (name)
        recorder = std::make_unique<Recorder>(session, *name, request.force, sizeof(float));
    DemodProgress progress(options.report.quiet, request);
    const DemodResult result = demodulate(session, request, recorder.get(), progress);
    progress.end();
    showUnitNotes(session, result.ending);
    showResult(options, result);
    if (name)
        showRecording(options, *name, *recorder);
    return conclude(result.ending);
}

void addAudio(CLI::App& verb, DemodRequest& request) {
    addQuantity(verb, "--rate", request.rateHz, parseFrequency, "48k",
                "samples per second of the audio, below those of the input (48k, or the input's when they "
                "are fewer)");
    addQuantity(verb, "--seconds", request.seconds, parseDuration, "5",
                "length, 0 for until Ctrl-C (5; of a recording all of it)");
    verb.add_option("-o,--output", request.path,
                    "WAV file for the audio; - for raw 16-bit samples on standard output")
        ->type_name("FILE.wav");
    addQuantity(verb, "--gain", request.gainDb, parseGain, "0", "for the audio, dB (0)", Sign::any);
    addQuantity(verb, "--deviation", request.deviationHz, parseFrequency, "75k",
                "of fm: the deviation that is full scale (3/8 of the bandwidth), at most a quarter of the "
                "input's rate");
    verb.add_flag("--ident", request.ident, "read the Morse ident of a beacon");
    addQuantity(verb, "--ident-tone", request.identToneHz, parseFrequency, "1020",
                "tone of that ident (1020 Hz)");
}

}  // namespace

void addDemod(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<DemodOptions>();
    DemodRequest& request = options->request;
    CLI::App* pVerb = app.add_subcommand("demod", "make audio of IQ, live or recorded");
    const std::map<std::string, DemodKind> kinds{
        {"am", DemodKind::am}, {"fm", DemodKind::fm}, {"usb", DemodKind::usb}, {"lsb", DemodKind::lsb}};
    pVerb->add_option("KIND", request.kind, "am: both sidebands with carrier; usb, lsb: one sideband; fm")
        ->transform(CLI::CheckedTransformer(kinds, CLI::ignore_case))
        ->option_text("am|fm|usb|lsb, REQUIRED")
        ->required();
    request.input.usualBandwidthHz = 100e3;
    addIqInput(*pVerb, request.input);
    addAudio(*pVerb, request);
    CLI::Option* pRecord =
        pVerb->add_option("--record", request.record, "record the audio to NAME.json and NAME.data too")
            ->type_name("NAME");
    pVerb->add_flag("--force", request.force, "record though the disk looks too small")->needs(pRecord);
    addReporting(*pVerb, options->report);
    pVerb->callback([options, &chosen] { chosen = [options] { return demod(*options); }; });
}

}  // namespace cli
