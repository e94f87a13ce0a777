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

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// One capture: the stream, where its samples go, and what is made of them.
class Capture {
 public:
    Capture(CaptureSource& source, const CaptureRequest& request, SampleOutput* output, Recorder* recorder,
            CaptureListener& listener)
        : mcSource(source),
          mcRequest(request),
          mpOutput(output),
          mpRecorder(recorder),
          mcListener(listener),
          mcStream(request.centreHz, request.bandwidthHz, request.referenceDbm) {
        // Writing to a slow disk may halt for a while: room for it, at most 134 MB.
        setParameters(mcStream.handle(), "{\"bufferFrames\":256" + mcSource.streamParameters() + "}");
    }

    CaptureResult run() {
        mcSource.attach(mcStream);
        const auto attached = Clock::now();
        mcNextProgress = attached;
        for (bool bGoOn = true; bGoOn;) {
            if (interrupted()) {
                mcResult.ending = Ending::interrupted;
                break;
            }
            bGoOn = step(attached) && reportProgress(false);
        }
        finish();
        return mcResult;
    }

 private:
    bool step(Clock::time_point attached) {
        IqRecord record;
        const int32_t iStatus = mcStream.next(record, kPollMs);
        if (iStatus == kStatusFrame)
            return take(*record);
        if (iStatus == kStatusEnded) {
            mcResult.ending = mcSource.endOfStream();
            return false;
        }
        if (iStatus == kStatusNotResponding) {
            mcResult.ending = Ending::linkLost;
            return false;
        }
        if (iStatus < 0)
            throw Failure(Exit::failure, explain(iStatus));
        const auto last = mbBegun ? mcLastFrame : attached;
        if (Clock::now() - last < kFirstSampleLimit)
            return true;
        const std::optional<Ending> ending = mcSource.silence();
        if (ending)
            mcResult.ending = *ending;
        return !ending;
    }

    /// Takes a frame in; false when it was the last one wanted.
    bool take(const vnkIQRecord& record) {
        if (!mbBegun) {
            begin(record);
            if (mpRecorder)
                return true;
        }
        mcLastFrame = Clock::now();
        ++mcResult.frames;
        noteGap(record);
        if (record.extras) {
            mcResult.overflows += std::strstr(record.extras, "overflow") != nullptr;
            mcResult.invalids += std::strstr(record.extras, "invalid") != nullptr;
        }
        uint64_t uCount = record.sampleCount;
        if (muWanted > 0 && !mcRequest.finite)
            uCount = std::min(uCount, muWanted - mcResult.samples);
        return keep(record.samples, static_cast<size_t>(uCount));
    }

    void noteGap(const vnkIQRecord& record) {
        const bool bStartsOver = mcRequest.loop && record.timestamp <= muLastTimestamp;
        muLastTimestamp = record.timestamp;
        if (mcResult.frames == 1 || !(record.sequenceGap || bStartsOver))
            return;
        ++(bStartsOver ? mcResult.passes : mcResult.gaps);
        mpAverage->gap();
        if (mpModeS)
            mpModeS->gap();
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
        mbBegun = true;
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
        if (mpRecorder) {
            // It records from the next frame on.
            mpRecorder->start(mcStream, mcResult.sampleRateHz, mcRequest.seconds);
            mcResult.firstSamples = 0;
        }
        mcStarted = mcLastFrame = Clock::now();
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

    /// False when the recorder cannot go on.
    bool reportProgress(bool last) {
        if (mcResult.frames == 0 || (!last && Clock::now() < mcNextProgress))
            return true;
        mcNextProgress = Clock::now() + kProgressEvery;
        mcResult.elapsedSeconds = secondsSince(mcStarted);
        mcResult.peakDbm = mcLevels.peakDbm();
        mcResult.meanDbm = mcLevels.meanDbm();
        readStream();
        mcListener.progress(mcResult);
        const auto trouble = mpRecorder && !last ? mpRecorder->watch() : std::nullopt;
        if (trouble)
            mcResult.ending = *trouble;
        return !trouble;
    }

    void finish() {
        reportProgress(true);
        if (mpRecorder)
            mpRecorder->end(mcStream);
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

    CaptureSource& mcSource;
    const CaptureRequest& mcRequest;
    SampleOutput* mpOutput;
    Recorder* mpRecorder;
    CaptureListener& mcListener;
    IqStream mcStream;
    LevelStatistics mcLevels;
    std::unique_ptr<SpectrumAverage> mpAverage;
    std::unique_ptr<AmDetector> mpAm;
    std::unique_ptr<ModeSDetector> mpModeS;
    bool mbBegun = false;
    uint64_t muWanted = 0, muLastTimestamp = 0;
    Clock::time_point mcStarted, mcLastFrame, mcNextProgress;
    CaptureResult mcResult;
};

}  // namespace

std::string UnitSource::streamParameters() const {
    std::string parameters = ",\"UserCaldB\":" + formatFixed(mcRequest.calibrationDb, 6);
    if (mcRequest.finite)
        parameters += ",\"captureSec\":" + formatFixed(mcRequest.seconds, 6);
    return parameters;
}

CaptureResult capture(CaptureSource& source, const CaptureRequest& request, SampleOutput* output,
                      Recorder* recorder, CaptureListener& listener) {
    return Capture(source, request, output, recorder, listener).run();
}

}  // namespace cli
