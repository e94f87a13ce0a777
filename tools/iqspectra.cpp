#include "tools/iqspectra.h"

#include <cmath>

#include "tools/units.h"

namespace cli {

namespace {

constexpr uint32_t kTraces = 3;
/// What waits between two processors: a machine that is busy for a moment loses nothing.
constexpr const char* kBuffer = "\"bufferFrames\":1000";
constexpr uint32_t kBufferFrames = 1000;

std::string transformParameters(const SweepRequest& request) {
    const IqSpectra& setting = *request.iq;
    std::string text = std::string("{") + kBuffer + ",\"WindowFn\":\"" + request.window + "\"";
    if (setting.follow)
        return text + ",\"FollowIQ\":true}";
    return text + ",\"RBWHz\":" + formatFixed(request.span.rbwHz, 6) +
           ",\"FFTOverlap\":" + formatFixed(setting.overlap, 6) + "}";
}

}  // namespace

IqSpectrumSource::IqSpectrumSource(IqInput& input, const SweepRequest& request)
    : mcSetting(*request.iq),
      mcFeed(input),
      mcTransform("IQToSpectrum"),
      mcSpectra(mcTransform, kBufferFrames),
      mcTimes(request.iq->overlap) {
    setParameters(mcTransform.handle(), transformParameters(request));
    if (mcSetting.average) {
        mpTraces = std::make_unique<Processor>("SpectrumCharacterization");
        setParameters(mpTraces->handle(), std::string("{") + kBuffer +
                                              ",\"Average\":" + std::to_string(*mcSetting.average) + "}");
        mpTraced = std::make_unique<SpectrumStream>(*mpTraces, kBufferFrames);
        mpTraces->attach(mcSpectra);
    }
    mcTransform.attach(mcFeed.stream());
}

int32_t IqSpectrumSource::next(SpectrumRecord& record, uint32_t timeoutMs) {
    // Nobody reads what lies between the processors.
    if (mpTraced)
        vnkFlushStream(mcSpectra.handle());
    return mcFeed.next(mpTraced ? *mpTraced : mcSpectra, record, timeoutMs);
}

SpectrumView IqSpectrumSource::view(const vnkSpectrumRecord& record) {
    SpectrumView view;
    view.sequence = record.sequence;
    view.rbwHz = static_cast<double>(record.rbwHz);
    view.levels = record.points;
    view.points = record.pointCount;
    const double dRate = mcFeed.sampleRateHz();
    view.time =
        mcSetting.follow ? record.timestamp : mcTimes.correct(record.timestamp, record.duration, dRate);
    // The record's edges are those of all bins, in single precision; the bins have the distances of the
    // transform, and the centre stands at the upper one of the two in the middle.
    const double dSize = std::round(static_cast<double>(record.duration) * 1e-9 * dRate) + 1;
    const double dBin = dRate / dSize;
    view.lowHz = mcFeed.centreHz() - static_cast<double>(record.pointCount / 2) * dBin;
    view.highHz = view.lowHz + (static_cast<double>(record.pointCount) - 1) * dBin;
    if (record.traceCount >= kTraces) {
        view.minimum = record.traces[0];
        view.maximum = record.traces[1];
        view.average = record.traces[2];
    }
    return view;
}

void IqSpectrumSource::stop() {
    mcTransform.detach();
    if (mpTraces)
        mpTraces->detach();
}

}  // namespace cli
