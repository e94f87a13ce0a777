#include "tools/capture.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>

#include "tools/interrupt.h"
#include "tools/units.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kPollMs = 100;
constexpr auto kProgressEvery = std::chrono::milliseconds(200);
// A start takes the unit up to two seconds and is tried again; after this nothing more is to be hoped for.
constexpr auto kFirstSampleLimit = std::chrono::seconds(15);
constexpr size_t kSpectrumBins = 512;

constexpr int32_t kStatusFrame = 0, kStatusEnded = 2, kStatusNotResponding = -86;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// One capture: the stream, where its samples go, and what is made of them.
class Capture {
 public:
    Capture(Session& session, Device& device, const CaptureRequest& request, SampleOutput* output,
            CaptureListener& listener)
        : mcSession(session),
          mcDevice(device),
          mcRequest(request),
          mpOutput(output),
          mcListener(listener),
          mcStream(request.centreHz, request.bandwidthHz, request.referenceDbm) {
        configure();
    }

    CaptureResult run() {
        mcStream.attach(mcSession, mcDevice);
        const auto attached = Clock::now();
        mcNextProgress = attached;
        for (bool bGoOn = true; bGoOn;) {
            if (interrupted()) {
                mcResult.ending = Ending::interrupted;
                break;
            }
            bGoOn = step(attached);
            reportProgress(false);
        }
        finish();
        return mcResult;
    }

 private:
    void configure() {
        // Writing to a slow disk may halt for a while: room for it, at most 134 MB.
        std::string record = "{\"bufferFrames\":256,\"UserCaldB\":" + formatFixed(mcRequest.calibrationDb, 6);
        if (mcRequest.finite)
            record += ",\"captureSec\":" + formatFixed(mcRequest.seconds, 6);
        setParameters(mcStream.handle(), record + "}");
    }

    bool step(Clock::time_point attached) {
        IqRecord record;
        const int32_t iStatus = mcStream.next(record, kPollMs);
        if (iStatus == kStatusFrame)
            return take(*record);
        if (iStatus == kStatusEnded) {
            mcResult.ending = mcRequest.finite ? Ending::complete : Ending::ended;
            return false;
        }
        if (iStatus == kStatusNotResponding) {
            mcResult.ending = Ending::linkLost;
            return false;
        }
        if (iStatus < 0)
            throw Failure(Exit::failure, explain(iStatus));
        const auto last = mcResult.frames > 0 ? mcLastFrame : attached;
        if (Clock::now() - last < kFirstSampleLimit)
            return true;
        mcResult.ending = mcDevice.answers() ? Ending::noData : Ending::linkLost;
        return false;
    }

    /// Takes a frame in; false when it was the last one wanted.
    bool take(const vnkIQRecord& record) {
        if (mcResult.frames == 0)
            begin(record);
        mcLastFrame = Clock::now();
        ++mcResult.frames;
        if (record.sequenceGap && mcResult.frames > 1) {
            ++mcResult.gaps;
            mpAverage->gap();
            if (mpModeS)
                mpModeS->gap();
        }
        if (record.extras) {
            mcResult.overflows += std::strstr(record.extras, "overflow") != nullptr;
            mcResult.invalids += std::strstr(record.extras, "invalid") != nullptr;
        }
        uint64_t uCount = record.sampleCount;
        if (muWanted > 0 && !mcRequest.finite)
            uCount = std::min(uCount, muWanted - mcResult.samples);
        return keep(record.samples, static_cast<size_t>(uCount));
    }

    bool keep(const float* samples, size_t count) {
        if (mpOutput && !mpOutput->write(samples, count * 2 * sizeof(float))) {
            mcResult.ending = Ending::readerGone;
            return false;
        }
        mcLevels.feed(samples, count);
        mpAverage->feed(samples, count);
        if (mpAm)
            mpAm->feed(samples, count);
        if (mpModeS)
            mpModeS->feed(samples, count);
        mcResult.samples += count;
        if (muWanted == 0 || mcRequest.finite || mcResult.samples < muWanted)
            return true;
        mcResult.ending = Ending::complete;
        return false;
    }

    /// The first frame tells what the unit made of the request.
    void begin(const vnkIQRecord& record) {
        mcResult.centreHz = record.centreHz;
        mcResult.bandwidthHz = static_cast<double>(record.bandwidthHz);
        mcResult.sampleRateHz = static_cast<double>(record.sampleRateHz);
        mcResult.firstSamples = record.sampleCount;
        muWanted = static_cast<uint64_t>(std::ceil(mcRequest.seconds * mcResult.sampleRateHz));
        const size_t uSize = spectrumSize(mcResult.sampleRateHz, mcResult.bandwidthHz, kSpectrumBins);
        mpAverage = std::make_unique<SpectrumAverage>(uSize, mcResult.sampleRateHz);
        if (mcRequest.detect == Detect::am)
            mpAm = std::make_unique<AmDetector>(mcResult.sampleRateHz);
        if (mcRequest.detect == Detect::modes && mcResult.sampleRateHz < ModeSDetector::kMinimumRateHz)
            throw Failure(Exit::usage, "Mode S needs 2 MS/s: ask for an --ifbw of 1.7 MHz or more");
        if (mcRequest.detect == Detect::modes)
            mpModeS = std::make_unique<ModeSDetector>(mcResult.sampleRateHz);
        mcStarted = Clock::now();
        readStream();
        mcListener.started(mcResult);
    }

    void readStream() {
        const std::string parameters = getParameters(mcStream.handle());
        float fValue = 0;
        if (readNumber(parameters, "RefdBm", fValue))
            mcResult.referenceDbm = static_cast<double>(fValue);
        if (readNumber(parameters, "dBFSD", fValue))
            mcResult.peakDbfs = static_cast<double>(fValue);
    }

    void reportProgress(bool last) {
        if (mcResult.frames == 0 || (!last && Clock::now() < mcNextProgress))
            return;
        mcNextProgress = Clock::now() + kProgressEvery;
        mcResult.elapsedSeconds = secondsSince(mcStarted);
        readStream();
        mcListener.progress(mcResult);
    }

    void finish() {
        reportProgress(true);
        mcResult.peakDbm = mcLevels.peakDbm();
        mcResult.meanDbm = mcLevels.meanDbm();
        if (mpAverage)
            mcResult.spectrum = mpAverage->result(mcResult.centreHz);
        if (mpAm)
            mcResult.tones = mpAm->tones();
        if (mpModeS) {
            mpModeS->finish();
            mcResult.modeS = mpModeS->frames();
        }
        if (mpOutput) {
            mcResult.bytesWritten = mpOutput->bytes();
            mpOutput->close();
        }
    }

    Session& mcSession;
    Device& mcDevice;
    const CaptureRequest& mcRequest;
    SampleOutput* mpOutput;
    CaptureListener& mcListener;
    IqStream mcStream;
    LevelStatistics mcLevels;
    std::unique_ptr<SpectrumAverage> mpAverage;
    std::unique_ptr<AmDetector> mpAm;
    std::unique_ptr<ModeSDetector> mpModeS;
    uint64_t muWanted = 0;
    Clock::time_point mcStarted, mcLastFrame, mcNextProgress;
    CaptureResult mcResult;
};

}  // namespace

CaptureResult capture(Session& session, Device& device, const CaptureRequest& request, SampleOutput* output,
                      CaptureListener& listener) {
    return Capture(session, device, request, output, listener).run();
}

}  // namespace cli
