#include "tools/demodulation.h"

#include <algorithm>
#include <cmath>

#include "tools/interrupt.h"
#include "tools/units.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kPollMs = 100;
constexpr auto kProgressEvery = std::chrono::milliseconds(200);
constexpr double kUsualRateHz = 48000, kLowestRateHz = 4000, kHighestRateHz = 1e6;
constexpr double kUsualSeconds = 5;
// The demodulator holds audio at 1.0 before its last filter, which overshoots.
constexpr double kAmplitudeGain = 0.7;
constexpr const char* kBuffer = "\"bufferFrames\":256";

const char* processorOf(DemodKind kind) {
    return kind == DemodKind::fm ? "FMDemodulator" : "AMDemodulator";
}

const char* subtypeOf(DemodKind kind) {
    return kind == DemodKind::usb ? "USB" : kind == DemodKind::lsb ? "LSB" : "DSB";
}

std::string rateText(double hertz) {
    return formatSI(hertz, "S/s");
}

/// The chain, and what becomes of its audio.
class Demodulation {
 public:
    Demodulation(Session& session, const DemodRequest& request, Recorder* recorder, DemodListener& listener)
        : mcSession(session),
          mcRequest(request),
          mpRecorder(recorder),
          mcListener(listener),
          mcInput(session, request.input),
          mcFeed(mcInput),
          mcProcessor(processorOf(request.kind)),
          mcAudio(mcProcessor) {
        mcResult.wantedSeconds = request.seconds.value_or(mcInput.isRecording() ? 0 : kUsualSeconds);
    }

    DemodResult run() {
        const bool bLive = !mcInput.isRecording();
        if (bLive) {
            // The rate shows in the first frame only, and a rate that is not below it stops the library's
            // chain.
            mcFeed.start();
            if (!mcFeed.waitForFirst()) {
                mcResult.ending = mcFeed.ending();
                return std::move(mcResult);
            }
        }
        prepare();
        mcProcessor.attach(mcFeed.stream());
        if (!bLive)
            mcFeed.start();
        mcStarted = mcNextProgress = Clock::now();
        mcListener.started(mcResult);
        while (interrupted() ? end(Ending::interrupted) : step())
            if (!reportProgress(false))
                break;
        finish();
        return std::move(mcResult);
    }

 private:
    void prepare() {
        const bool bLive = !mcInput.isRecording();
        mcResult.centreHz = bLive ? mcFeed.centreHz() : mcInput.request().centreHz;
        mcResult.bandwidthHz = bLive ? mcFeed.bandwidthHz() : mcInput.request().bandwidthHz;
        mcResult.inputRateHz = bLive ? mcFeed.sampleRateHz() : *mcInput.sampleRateHz();
        mcResult.rateHz = audioRate(mcRequest.rateHz, mcResult.inputRateHz, !bLive);
        setParameters(mcProcessor.handle(), processorParameters());
        setParameters(mcAudio.handle(), std::string("{") + kBuffer + "}");
        mcResult.audio = AudioSamples(gain());
        mcResult.view = std::make_unique<AudioView>(mcResult.rateHz);
        mpEnvelope = std::make_unique<ToneEnvelope>(mcResult.rateHz, mcRequest.identToneHz);
        muWanted = static_cast<uint64_t>(std::ceil(mcResult.wantedSeconds * mcResult.rateHz));
        mpOutput = std::make_unique<AudioOutput>(mcRequest.path, mcResult.rateHz);
        if (mpRecorder)
            mpRecorder->start(mcAudio, mcResult.rateHz, mcResult.wantedSeconds);
    }

    std::string processorParameters() const {
        std::string text = std::string("{") + kBuffer;
        if (mcRequest.kind != DemodKind::fm)
            text += std::string(",\"type\":\"") + subtypeOf(mcRequest.kind) + "\"";
        if (mcResult.rateHz < mcResult.inputRateHz)
            text += ",\"OutputSampleRate\":" + formatFixed(mcResult.rateHz, 6);
        return text + "}";
    }

    double gain() {
        const double dAsked = std::pow(10, mcRequest.gainDb / 20);
        if (mcRequest.kind != DemodKind::fm)
            return dAsked * kAmplitudeGain;
        // From a quarter of the rate on the discriminator tells less again.
        mcResult.deviationHz = std::min(mcRequest.deviationHz.value_or(usualDeviation(mcResult.bandwidthHz)),
                                        mcResult.inputRateHz / 4);
        return dAsked * discriminatorGain(mcResult.deviationHz, mcResult.inputRateHz);
    }

    bool step() {
        BasebandRecord record;
        const int32_t iStatus = mcFeed.next(mcAudio, record, kPollMs);
        if (iStatus == kStatusFrame)
            return take(*record);
        if (iStatus == kStatusEnded || iStatus == kStatusNotResponding)
            return end(mcFeed.ending());
        if (iStatus < 0)
            throw Failure(Exit::failure, explain(iStatus));
        return true;
    }

    bool end(Ending ending) {
        mcResult.ending = ending;
        return false;
    }

    bool take(const vnkBasebandRecord& record) {
        if (record.channelCount == 0)
            return true;
        const uint64_t uLeft = muWanted > 0 ? muWanted - mcResult.audio.samples() : record.samplesPerChannel;
        const auto uCount = static_cast<size_t>(std::min<uint64_t>(uLeft, record.samplesPerChannel));
        const float* pSamples = record.channels[0];
        mcResult.view->feed(pSamples, uCount, mcResult.audio.gain());
        if (mcRequest.ident)
            mpEnvelope->feed(pSamples, uCount);
        if (!mpOutput->write(mcResult.audio.convert(pSamples, uCount)))
            return end(Ending::readerGone);
        return muWanted == 0 || mcResult.audio.samples() < muWanted || end(Ending::complete);
    }

    /// False when the recorder cannot go on.
    bool reportProgress(bool last) {
        if (!last && Clock::now() < mcNextProgress)
            return true;
        mcNextProgress = Clock::now() + kProgressEvery;
        mcResult.elapsedSeconds = std::chrono::duration<double>(Clock::now() - mcStarted).count();
        mcResult.gaps = mcFeed.gaps();
        mcResult.overflows = mcFeed.overflows();
        mcListener.progress(mcResult);
        const auto trouble = mpRecorder && !last ? mpRecorder->watch() : std::nullopt;
        return !trouble || end(*trouble);
    }

    void finish() {
        reportProgress(true);
        mcProcessor.detach();
        if (mpRecorder)
            mpRecorder->end(mcAudio);
        mpOutput->close();
        mcResult.bytesWritten = mpOutput->bytes();
        mcResult.written = mpOutput->lines();
        mcResult.dropped = droppedFrames(mcSession);
        if (mcRequest.ident) {
            mcResult.morse = decodeMorse(mpEnvelope->levels());
            mcResult.ident = findIdent(mcResult.morse);
        }
    }

    Session& mcSession;
    const DemodRequest& mcRequest;
    Recorder* mpRecorder;
    DemodListener& mcListener;
    IqInput mcInput;
    IqFeed mcFeed;
    Processor mcProcessor;
    BasebandStream mcAudio;
    std::unique_ptr<AudioOutput> mpOutput;
    std::unique_ptr<ToneEnvelope> mpEnvelope;
    uint64_t muWanted = 0;
    Clock::time_point mcStarted, mcNextProgress;
    DemodResult mcResult;
};

}  // namespace

std::string toText(DemodKind kind) {
    switch (kind) {
        case DemodKind::am:
            return "AM";
        case DemodKind::fm:
            return "FM";
        case DemodKind::usb:
            return "USB";
        case DemodKind::lsb:
            break;
    }
    return "LSB";
}

double audioRate(std::optional<double> wantedHz, double inputHz, bool recorded) {
    if (!wantedHz)
        return kUsualRateHz < inputHz ? kUsualRateHz : inputHz;
    if (*wantedHz < kLowestRateHz || *wantedHz > kHighestRateHz)
        throw Failure(Exit::usage, "--rate goes from 4 kS/s to 1 MS/s, and " + rateText(*wantedHz) +
                                       " does not lie there");
    if (*wantedHz < inputHz)
        return *wantedHz;
    throw Failure(
        Exit::usage,
        "--rate " + rateText(*wantedHz) + " is not below the " + rateText(inputHz) +
            (recorded ? " of the recording" : " that the unit sends") +
            ", and a resampler only lowers: leave --rate out for the rate as it comes, or ask for less" +
            (recorded ? "" : ", or for a wider --ifbw"));
}

double usualDeviation(double bandwidthHz) {
    return bandwidthHz * 3 / 8;
}

DemodResult demodulate(Session& session, const DemodRequest& request, Recorder* recorder,
                       DemodListener& listener) {
    return Demodulation(session, request, recorder, listener).run();
}

}  // namespace cli
