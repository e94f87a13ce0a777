#include <algorithm>
#include <chrono>
#include <cmath>

#include "tools/interrupt.h"
#include "tools/play.h"
#include "tools/samplereport.h"
#include "tools/units.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kPollMs = 100;

/// Mean power of each point over all spectra of one shape.
class MeanSpectrum {
 public:
    void feed(const vnkSpectrumRecord& record) {
        if (record.pointCount == 0)
            return;
        if (mlPower.empty()) {
            mlPower.resize(record.pointCount);
            mdLowHz = record.minimumHz;
            mdHighHz = record.maximumHz;
            mdRbwHz = static_cast<double>(record.rbwHz);
        }
        if (record.pointCount != mlPower.size())
            return;
        ++muCount;
        for (size_t i = 0; i < mlPower.size(); ++i)
            if (std::isfinite(record.points[i]))
                mlPower[i] += std::pow(10, static_cast<double>(record.points[i]) / 10);
    }

    double lowHz() const { return mdLowHz; }
    double highHz() const { return mdHighHz; }
    size_t points() const { return mlPower.size(); }

    Spectrum result() const {
        Spectrum spectrum;
        if (mlPower.empty())
            return spectrum;
        // The first and the last point stand at the edges.
        const auto dSteps = static_cast<double>(std::max<size_t>(mlPower.size(), 2) - 1);
        spectrum.binHz = (mdHighHz - mdLowHz) / dSteps;
        spectrum.centreHz = mdLowHz + static_cast<double>(mlPower.size() / 2) * spectrum.binHz;
        spectrum.noiseBandwidthHz = mdRbwHz;
        spectrum.averages = muCount;
        for (const double dPower : mlPower)
            spectrum.dbm.push_back(dPower > 0 ? 10 * std::log10(dPower / static_cast<double>(muCount))
                                              : -1000);
        return spectrum;
    }

 private:
    std::vector<double> mlPower;
    double mdLowHz = 0, mdHighHz = 0, mdRbwHz = 0;
    size_t muCount = 0;
};

class SpectrumPlay {
 public:
    SpectrumPlay(const PlayOptions& options, const RecordingName& name,
                 const RecordingDescription& description)
        : mcOptions(options),
          mcName(name),
          mcDescription(description),
          mcStream(0, 0, 0),
          mcLine(options.report.quiet) {
        setParameters(mcStream.handle(), std::string("{\"bufferFrames\":256,\"LoopingFlag\":") +
                                             (options.request.loop ? "true}" : "false}"));
    }

    Exit run() {
        mcStream.attach(mcName);
        if (!mcOptions.report.quiet) {
            printErrLines(playHeading(mcName, mcDescription));
            printErrLines({""});
        }
        mcStarted = Clock::now();
        while (step())
            mcLine.show(elapsed(), progress());
        mcLine.end();
        report();
        return conclude(meEnding);
    }

 private:
    double elapsed() const { return std::chrono::duration<double>(Clock::now() - mcStarted).count(); }

    bool step() {
        SpectrumRecord record;
        const int32_t iStatus = mcStream.next(record, kPollMs);
        if (iStatus < 0)
            throw Failure(Exit::failure, explain(iStatus));
        if (iStatus == kStatusFrame)
            take(*record);
        if (interrupted())
            meEnding = Ending::interrupted;
        const double dSeconds = mcOptions.request.seconds;
        return iStatus != kStatusEnded && !interrupted() && !(dSeconds > 0 && elapsed() >= dSeconds);
    }

    void take(const vnkSpectrumRecord& record) {
        const bool bStartsOver = mcOptions.request.loop && record.timestamp <= muLastTimestamp;
        if (muFrames > 0 && bStartsOver)
            ++muPasses;
        else if (muFrames > 0 && record.sequence != muExpected)
            ++muGaps;
        muExpected = followingSequence(record.sequence);
        muLastTimestamp = record.timestamp;
        ++muFrames;
        mcMean.feed(record);
    }

    std::string counts() const {
        return formatCount(muFrames, "frame") + " of " + formatCount(mcMean.points(), "point") + ", " +
               formatFixed(elapsed(), 1) + " s";
    }

    std::string progress() const { return "  " + counts() + ", " + formatCount(muGaps, "gap"); }

    void report() const {
        const Spectrum mean = mcMean.result();
        const SpectrumPeak peak = findPeak(mean, mcMean.lowHz(), mcMean.highHz());
        if (!mcOptions.report.quiet && mean.averages > 0)
            showSpectrum(mean, mcMean.lowHz(), mcMean.highHz());
        if (!mcOptions.report.quiet)
            printErrLines(summary(mean, peak));
        if (mcOptions.report.json)
            printJson(toJson(mean, peak));
    }

    std::vector<std::string> summary(const Spectrum& mean, const SpectrumPeak& peak) const {
        std::vector<std::string> lines{"Played " + counts() + " (" + toText(meEnding) + "), " +
                                       formatCount(muGaps, "gap") +
                                       (muPasses > 1 ? ", " + std::to_string(muPasses) + " passes" : "")};
        if (mean.averages > 0)
            lines.push_back("Strongest in the mean: " + formatFixed(peak.dbm, 1) + " dBm at " +
                            formatFrequency(peak.frequencyHz));
        return lines;
    }

    nlohmann::ordered_json toJson(const Spectrum& mean, const SpectrumPeak& peak) const {
        nlohmann::ordered_json json{{"recording", mcName.stem()}, {"type", mcDescription.dataType}};
        json["recorded"] = tuningJson(mcDescription);
        json["ending"] = toText(meEnding);
        json["elapsedSeconds"] = elapsed();
        json["frames"] = muFrames;
        json["points"] = mcMean.points();
        json["gaps"] = muGaps;
        json["passes"] = muPasses;
        if (mean.averages > 0)
            json["spectrum"] = {
                {"peakHz", peak.frequencyHz}, {"peakdBm", peak.dbm}, {"averages", mean.averages}};
        return json;
    }

    const PlayOptions& mcOptions;
    const RecordingName& mcName;
    const RecordingDescription& mcDescription;
    SpectrumStream mcStream;
    ProgressLine mcLine;
    Clock::time_point mcStarted;
    Ending meEnding = Ending::complete;
    MeanSpectrum mcMean;
    uint64_t muFrames = 0, muGaps = 0, muPasses = 1, muLastTimestamp = 0;
    uint32_t muExpected = 0;
};

}  // namespace

Exit playSpectra(const PlayOptions& options, const RecordingName& name,
                 const RecordingDescription& description) {
    if (!options.request.path.empty() || options.request.detect != Detect::none)
        throw Failure(Exit::usage, name.stem() + " holds spectra: -o and --detect want IQ samples");
    const Session session;
    catchInterrupts();
    return SpectrumPlay(options, name, description).run();
}

}  // namespace cli
