#include "tools/sweeper.h"

#include <algorithm>
#include <chrono>
#include <memory>

#include "tools/interrupt.h"
#include "tools/recordingsummary.h"
#include "tools/units.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kPollMs = 100;
constexpr auto kProgressEvery = std::chrono::milliseconds(200);
// A start takes the unit up to two seconds and is tried again.
constexpr double kStartSeconds = 15;
constexpr double kSecondsPerSample = 1e-6;  // taken, sent and transformed, on a slow machine
constexpr double kBufferedPoints = 32e6;
constexpr int32_t kNoteRefused = -6008;  // of a sweep that cannot be planned

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// After so long without a spectrum nothing more is to be hoped for. A fine resolution takes many samples at
/// each step of the span.
double silenceLimit(const SweepSpan& span) {
    const double dSamples = (span.widthHz() / 36e6 + 2) * 8 * 125e6 / span.rbwHz;
    return kStartSeconds + dSamples * kSecondsPerSample;
}

/// The sweep of an open unit.
class UnitSweep : public SpectrumSource {
 public:
    UnitSweep(Session& session, Device& device, const SweepRequest& request)
        : mcSession(session),
          mcDevice(device),
          mcRequest(request),
          mcStream(request.span.minimumHz, request.span.maximumHz, request.span.rbwHz, request.window.c_str(),
                   request.referenceDbm) {
        setParameters(mcStream.handle(), streamParameters());
    }

    void start() override {
        mcStream.attach(mcSession, mcDevice);
        mcNextCheck = Clock::now();
    }
    int32_t next(SpectrumRecord& record, uint32_t timeoutMs) override {
        return mcStream.next(record, timeoutMs);
    }
    SpectrumView view(const vnkSpectrumRecord& record) override {
        SpectrumView view;
        view.sequence = record.sequence;
        view.time = record.timestamp;
        view.lowHz = record.minimumHz;
        view.highHz = record.maximumHz;
        view.rbwHz = static_cast<double>(record.rbwHz);
        view.levels = record.points;
        view.points = record.pointCount;
        return view;
    }
    void stop() override { mcStream.detach(); }
    Ending endOfStream(uint64_t spectra) const override {
        return spectra >= mcRequest.spectra ? Ending::complete : Ending::ended;
    }
    Ending lost() override { return Ending::linkLost; }
    std::optional<Ending> silence(double seconds, bool begun) override {
        if (!begun && Clock::now() >= mcNextCheck) {
            mcNextCheck = Clock::now() + std::chrono::milliseconds(500);
            checkRefusal();
        }
        if (seconds < silenceLimit(mcRequest.span))
            return std::nullopt;
        return mcDevice.answers() ? Ending::noData : Ending::linkLost;
    }

 private:
    std::string streamParameters() const {
        const double dPoints = 4 * mcRequest.span.widthHz() / mcRequest.span.rbwHz + 1;
        const auto uFrames = static_cast<uint32_t>(std::clamp(kBufferedPoints / dPoints, 4.0, 1000.0));
        return "{\"bufferFrames\":" + std::to_string(uFrames) +
               ",\"captureFrames\":" + std::to_string(mcRequest.spectra) +
               ",\"UserCaldB\":" + formatFixed(mcRequest.calibrationDb, 6) +
               ",\"flatten\":" + (mcRequest.flatten ? "true}" : "false}");
    }

    /// The library finds out after the attach that it cannot plan a sweep, and says so in its notes only.
    void checkRefusal() {
        const auto notes =
            mcSession.notes([](const std::string&, int code) { return code == kNoteRefused; }, 1);
        if (!notes.empty())
            throw Failure(Exit::failure, "the sweep is refused: " + notes.back());
    }

    Session& mcSession;
    Device& mcDevice;
    const SweepRequest& mcRequest;
    SpectrumStream mcStream;
    Clock::time_point mcNextCheck;
};

/// One run of spectra: where they go, and what is made of them.
class Sweep {
 public:
    Sweep(SpectrumSource& source, const SweepRequest& request, SampleOutput* output, SweepListener& listener)
        : mcSource(source), mcRequest(request), mpOutput(output), mcListener(listener) {
        if (output)
            mpWriter = std::make_unique<SpectrumWriter>(*output, request.format);
    }

    SweepResult run() {
        mcSource.start();
        mcStarted = mcLast = Clock::now();
        while (interrupted() ? end(Ending::interrupted) : step())
            reportProgress(false);
        mcSource.stop();
        reportProgress(true);
        if (mcResult.spectra() > 0)
            evaluate(mcRequest, mcResult);
        if (mpOutput) {
            mcResult.bytesWritten = mpOutput->bytes();
            mpOutput->close();
        }
        return std::move(mcResult);
    }

 private:
    /// False at the end, whatever it is.
    bool step() {
        SpectrumRecord record;
        const int32_t iStatus = mcSource.next(record, kPollMs);
        if (iStatus == kStatusFrame)
            return take(mcSource.view(*record), *record);
        if (iStatus == kStatusEnded)
            return end(mcSource.endOfStream(counted()));
        if (iStatus == kStatusNotResponding)
            return end(mcSource.lost());
        if (iStatus < 0)
            throw Failure(Exit::failure, explain(iStatus));
        const auto ending = mcSource.silence(secondsSince(mcLast), mcResult.spectra() > 0);
        return ending ? end(*ending) : true;
    }

    bool end(Ending ending) {
        mcResult.ending = ending;
        return false;
    }

    uint64_t counted() const { return mcResult.spectra() + mcResult.otherShapes + mcResult.lost; }

    /// Takes a spectrum in; false when it was the last one wanted.
    bool take(const SpectrumView& view, const vnkSpectrumRecord& record) {
        mcLast = Clock::now();
        if (mcResult.spectra() == 0)
            begin(view, record);
        else if (view.sequence != muExpected)
            mcResult.lost += view.sequence - muExpected;
        muExpected = followingSequence(view.sequence);
        gather(view);
        mcResult.elapsedSeconds = std::chrono::duration<double>(mcLast - mcFirst).count();
        if (counted() == 1)
            mcListener.started(mcResult);
        return keep(view) && !isEnough();
    }

    void gather(const SpectrumView& view) {
        if (mcResult.history.feed(view.levels, view.points, view.time)) {
            mcResult.traces.keep(view);
            return;
        }
        if (!mcSource.mayChangeShape())
            throw Failure(Exit::failure, "the spectra change their shape");
        ++mcResult.otherShapes;
    }

    void begin(const SpectrumView& view, const vnkSpectrumRecord& record) {
        mcFirst = mcLast;
        mcResult.lowHz = view.lowHz;
        mcResult.highHz = view.highHz;
        mcResult.rbwHz = view.rbwHz;
        mcResult.firstTime = view.time;
        mcResult.firstSeconds = static_cast<double>(record.duration) / 1e9;
    }

    bool keep(const SpectrumView& view) {
        return !mpWriter || mpWriter->write(view) || end(Ending::readerGone);
    }

    bool isEnough() {
        const bool bEnough = mcRequest.spectra > 0
                                 ? counted() >= mcRequest.spectra
                                 : mcRequest.seconds && mcResult.elapsedSeconds >= *mcRequest.seconds;
        if (bEnough)
            mcResult.ending = Ending::complete;
        return bEnough;
    }

    void reportProgress(bool last) {
        if (!last && Clock::now() < mcNextProgress)
            return;
        mcNextProgress = Clock::now() + kProgressEvery;
        if (mcResult.spectra() > 0)
            mcListener.progress(mcResult);
        else
            mcListener.waiting(secondsSince(mcStarted));
    }

    SpectrumSource& mcSource;
    const SweepRequest& mcRequest;
    SampleOutput* mpOutput;
    SweepListener& mcListener;
    std::unique_ptr<SpectrumWriter> mpWriter;
    uint32_t muExpected = 0;
    Clock::time_point mcStarted, mcFirst, mcLast, mcNextProgress;
    SweepResult mcResult;
};

}  // namespace

SweepResult takeSpectra(SpectrumSource& source, const SweepRequest& request, SampleOutput* output,
                        SweepListener& listener) {
    return Sweep(source, request, output, listener).run();
}

SweepResult sweep(Session& session, Device& device, const SweepRequest& request, SampleOutput* output,
                  SweepListener& listener) {
    UnitSweep source(session, device, request);
    return takeSpectra(source, request, output, listener);
}

}  // namespace cli
