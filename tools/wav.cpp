#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/audiooutput.h"
#include "tools/audioview.h"
#include "tools/interrupt.h"
#include "tools/options.h"
#include "tools/recordingtext.h"
#include "tools/samplereport.h"
#include "tools/units.h"
#include "tools/verbs.h"

namespace cli {

namespace {

struct WavOptions {
    std::string name, path;
    double gainDb = 0;
    bool normalise = false;
    ReportOptions report;
};

constexpr double kNormalPeak = 0.89;  // -1 dB: players interpolate beyond the samples

double largest(const RecordingReader& recording, const StoredFrame& frame) {
    double dLargest = 0;
    for (const float fSample : recording.samples(frame))
        if (std::isfinite(fSample))
            dLargest = std::max(dLargest, std::abs(static_cast<double>(fSample)));
    return dLargest;
}

double chooseGain(const WavOptions& options, RecordingReader& recording) {
    if (!options.normalise)
        return std::pow(10, options.gainDb / 20);
    double dLargest = 0;
    while (const auto frame = recording.next())
        dLargest = std::max(dLargest, largest(recording, *frame));
    recording.rewind();
    return dLargest > 0 ? kNormalPeak / dLargest : 1;
}

/// Channels take turns in the result.
void interleave(const std::vector<float>& samples, size_t channels, std::vector<float>& result) {
    const size_t uEach = samples.size() / channels;
    result.resize(samples.size());
    for (size_t c = 0; c < channels; ++c)
        for (size_t i = 0; i < uEach; ++i)
            result[i * channels + c] = samples[c * uEach + i];
}

/// A recording on its way into the file.
class WavConversion {
 public:
    WavConversion(const WavOptions& options, const RecordingName& name,
                  const RecordingDescription& description)
        : mcOptions(options),
          mcName(name),
          mcRecording(name.data()),
          mdRate(numberOf(description.sampling, "SampleRateHz").value_or(0)) {
        if (!(mdRate > 0))
            throw Failure(Exit::file, name.description() + ": no sample rate");
        const auto first = mcRecording.next();
        mcRecording.rewind();
        if (!first || mcRecording.type() != DataType::baseband || first->channels == 0)
            throw Failure(Exit::file, name.data() + ": holds no audio");
        muChannels = first->channels;
        mcAudio = AudioSamples(chooseGain(options, mcRecording));
    }

    Exit run() {
        AudioOutput output(mcOptions.path, mdRate, muChannels);
        AudioView view(mdRate);
        std::vector<float> turns;
        while (const auto frame = interrupted() ? std::nullopt : mcRecording.next()) {
            if (frame->channels != muChannels)
                throw Failure(Exit::file, mcName.data() + ": the number of channels changes");
            const std::vector<float> samples = mcRecording.samples(*frame);
            view.feed(samples.data(), frame->count, mcAudio.gain());
            interleave(samples, muChannels, turns);
            if (!output.write(mcAudio.convert(turns.data(), turns.size())))
                break;
        }
        output.close();
        report(output, view);
        return Exit::done;
    }

 private:
    uint64_t samples() const { return mcAudio.samples() / muChannels; }

    void report(const AudioOutput& output, const AudioView& view) const {
        if (!mcOptions.report.quiet) {
            printErr("Converted " + formatCount(samples(), "sample") + ", " +
                     formatFixed(static_cast<double>(samples()) / mdRate, 3) + " s at " +
                     formatSI(mdRate, "S/s") +
                     (muChannels > 1 ? ", " + std::to_string(muChannels) + " channels" : ""));
            printErrLines(audioLines(mcAudio, view));
            if (mcRecording.end() != DataEnd::whole && !interrupted())
                printErr("The recording does not end with a whole frame: vnk file " + mcName.stem());
            printErrLines(output.lines());
        }
        if (mcOptions.report.json)
            printJson({{"recording", mcName.stem()},
                       {"sampleRateHz", mdRate},
                       {"channels", muChannels},
                       {"samples", samples()},
                       {"gaindB", 20 * std::log10(mcAudio.gain())},
                       {"clipped", mcAudio.clipped()},
                       {"notNumbers", mcAudio.notNumbers()},
                       {"file", mcOptions.path},
                       {"bytes", output.bytes()}});
    }

    const WavOptions& mcOptions;
    const RecordingName& mcName;
    RecordingReader mcRecording;
    double mdRate;
    uint32_t muChannels = 1;
    AudioSamples mcAudio;
};

Exit wav(const WavOptions& options) {
    const RecordingName name(options.name);
    if (options.path == name.data() || options.path == name.description())
        throw Failure(Exit::usage, options.path + " is what is to be read");
    if (options.report.json && options.path == "-")
        throw Failure(Exit::usage, "--json and -o - both want standard output");
    const RecordingDescription description = readDescription(name.description());
    requireDescription(description, name);
    if (description.type() != DataType::baseband)
        throw Failure(Exit::file, name.stem() + " holds " + description.dataType + " and no audio\n" +
                                      "  make audio of IQ with:  vnk demod am|fm|usb|lsb " + name.stem() +
                                      " -o FILE.wav");
    catchInterrupts();
    return WavConversion(options, name, description).run();
}

}  // namespace

void addWav(CLI::App& app, Chosen& chosen) {
    auto options = std::make_shared<WavOptions>();
    CLI::App* pVerb = app.add_subcommand("wav", "turn a recording of audio into a WAV file");
    pVerb->add_option("NAME", options->name, "the recording: its name, or either of its files")->required();
    pVerb
        ->add_option("-o,--output", options->path,
                     "the WAV file; - for raw 16-bit samples on standard output")
        ->type_name("FILE.wav")
        ->required();
    CLI::Option* pGain =
        addQuantity(*pVerb, "--gain", options->gainDb, parseGain, "0", "for the audio, dB (0)", Sign::any);
    pVerb->add_flag("--normalise", options->normalise, "choose the gain so that the peak is at -1 dB")
        ->excludes(pGain);
    addReporting(*pVerb, options->report);
    pVerb->callback([options, &chosen] { chosen = [options] { return wav(*options); }; });
}

}  // namespace cli
