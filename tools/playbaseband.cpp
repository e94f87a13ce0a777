#include <chrono>
#include <nlohmann/json.hpp>

#include "tools/audiooutput.h"
#include "tools/audioview.h"
#include "tools/interrupt.h"
#include "tools/play.h"
#include "tools/samplereport.h"
#include "tools/units.h"

namespace cli {

namespace {

constexpr uint32_t kPollMs = 100;
// The library reads audio as fast as it can: the most that a stream takes.
constexpr const char* kStreamParameters = "{\"bufferFrames\":100000}";

class BasebandPlay {
 public:
    BasebandPlay(const PlayOptions& options, const RecordingName& name,
                 const RecordingDescription& description)
        : mcOptions(options),
          mcName(name),
          mcDescription(description),
          mcOutput(options.request.path, rateOf(description)),
          mcView(rateOf(description)),
          mcMaker("AMDemodulator"),
          mcStream(mcMaker) {
        // A stream of audio comes from a demodulator only; this one has nothing to say in it.
        mcStream.detach();
        setParameters(mcStream.handle(), kStreamParameters);
        const double dSeconds = options.request.seconds;
        muWanted = static_cast<uint64_t>(dSeconds * rateOf(description));
    }

    Exit run() {
        if (!mcOptions.report.quiet)
            printErrLines(playHeading(mcName, mcDescription));
        mcStream.attach(mcName);
        while (interrupted() ? end(Ending::interrupted) : step()) {
        }
        mcStream.detach();
        mcOutput.close();
        report();
        return conclude(meEnding);
    }

 private:
    static double rateOf(const RecordingDescription& description) {
        const double dRate = numberOf(description.sampling, "SampleRateHz").value_or(0);
        if (!(dRate > 0))
            throw Failure(Exit::file, "the recording's description tells no sample rate");
        return dRate;
    }

    bool step() {
        BasebandRecord record;
        int32_t iStatus = mcStream.next(record, kPollMs);
        // A frame may have come between the library's looks at the queue and at the file.
        if (iStatus == kStatusEnded)
            iStatus = mcStream.next(record, 0);
        if (iStatus == kStatusFrame)
            return take(*record);
        if (iStatus < 0)
            throw Failure(Exit::failure, explain(iStatus));
        return iStatus != kStatusEnded || end(Ending::complete);
    }

    bool end(Ending ending) {
        meEnding = ending;
        return false;
    }

    bool take(const vnkBasebandRecord& record) {
        if (muFrames > 0 && record.sequence != muExpected)
            muLost += record.sequence - muExpected;
        muExpected = followingSequence(record.sequence);
        ++muFrames;
        if (record.channelCount == 0)
            return true;
        const uint64_t uLeft = muWanted > 0 ? muWanted - mcAudio.samples() : record.samplesPerChannel;
        const auto uCount = static_cast<size_t>(std::min<uint64_t>(uLeft, record.samplesPerChannel));
        mcView.feed(record.channels[0], uCount, 1);
        if (!mcOutput.write(mcAudio.convert(record.channels[0], uCount)))
            return end(Ending::readerGone);
        muChannels = record.channelCount;
        return muWanted == 0 || mcAudio.samples() < muWanted || end(Ending::complete);
    }

    double seconds() const { return static_cast<double>(mcAudio.samples()) / rateOf(mcDescription); }

    void report() const {
        if (!mcOptions.report.quiet) {
            if (mcAudio.samples() > 0)
                showSpectrum(mcView.spectrum(), 0, mcView.highestHz());
            printErrLines(summary());
        }
        if (mcOptions.report.json)
            printJson(toJson());
    }

    std::vector<std::string> summary() const {
        std::vector<std::string> lines{"Played " + formatCount(mcAudio.samples(), "sample") + ", " +
                                       formatFixed(seconds(), 3) + " s (" + toText(meEnding) + ")"};
        if (muLost > 0)
            lines.push_back(formatCount(muLost, "frame") +
                            " lost: read faster than taken; vnk wav takes all of them");
        if (muChannels > 1)
            lines.push_back("The first of " + std::to_string(muChannels) +
                            " channels; vnk wav takes all of them");
        if (mcAudio.samples() > 0)
            for (const std::string& line : audioLines(mcAudio, mcView))
                lines.push_back(line);
        for (const std::string& line : mcOutput.lines())
            lines.push_back(line);
        return lines;
    }

    nlohmann::ordered_json toJson() const {
        nlohmann::ordered_json json{{"recording", mcName.stem()}, {"type", mcDescription.dataType}};
        json["recorded"] = tuningJson(mcDescription);
        json["ending"] = toText(meEnding);
        json["frames"] = muFrames;
        json["lost"] = muLost;
        json["samples"] = mcAudio.samples();
        json["seconds"] = seconds();
        json["clipped"] = mcAudio.clipped();
        json["notNumbers"] = mcAudio.notNumbers();
        if (mcAudio.peakDbfs() > -999) {
            json["peakdBFS"] = mcAudio.peakDbfs();
            json["meandBFS"] = mcAudio.rmsDbfs();
            json["strongest"] = {{"frequencyHz", mcView.strongest().frequencyHz},
                                 {"dBFS", mcView.strongest().dbm}};
        }
        return json;
    }

    const PlayOptions& mcOptions;
    const RecordingName& mcName;
    const RecordingDescription& mcDescription;
    AudioOutput mcOutput;
    AudioSamples mcAudio;
    AudioView mcView;
    Processor mcMaker;
    BasebandStream mcStream;
    Ending meEnding = Ending::complete;
    uint64_t muWanted = 0, muFrames = 0, muLost = 0;
    uint32_t muExpected = 0, muChannels = 1;
};

}  // namespace

Exit playBaseband(const PlayOptions& options, const RecordingName& name,
                  const RecordingDescription& description) {
    if (options.request.detect != Detect::none)
        throw Failure(Exit::usage, name.stem() + " holds audio: --detect wants IQ samples");
    if (options.request.loop)
        throw Failure(Exit::usage,
                      name.stem() + " holds audio, which carries no times to be paced by: no --loop");
    const Session session;
    catchInterrupts();
    return BasebandPlay(options, name, description).run();
}

}  // namespace cli
