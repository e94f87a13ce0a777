#include "tools/recordingsummary.h"

#include <algorithm>
#include <cmath>

#include "tools/units.h"

namespace cli {

namespace {

constexpr double kNanosecond = static_cast<double>(1e-9f);
/// Frames by which the usual time of a sample is judged.
constexpr size_t kJudges = 1001;
constexpr double kUsual = 0.01;

/// The tick of which this is the single-precision form.
double exactTick(double secondsPerTick) {
    return std::pow(10, std::round(std::log10(secondsPerTick)));
}

double elapsed(const StoredFrame& from, const StoredFrame& to, double secondsPerTick) {
    // Signed: a time may go back.
    return static_cast<double>(static_cast<int64_t>(to.timestamp - from.timestamp)) * secondsPerTick;
}

/// Of frames that follow each other: what most of them say.
class RateEstimate {
 public:
    void feed(uint32_t samples, double seconds) {
        if (!(seconds > 0))
            return;
        if (mlJudges.size() < kJudges)
            mlJudges.push_back({samples, seconds});
        else
            add({samples, seconds});
        if (mlJudges.size() == kJudges && mdUsual == 0)
            judge();
    }

    std::optional<double> result() {
        if (mdUsual == 0 && !mlJudges.empty())
            judge();
        if (!(mdSeconds > 0))
            return std::nullopt;
        return mdSamples / mdSeconds;
    }

 private:
    struct Step {
        uint32_t samples;
        double seconds;
        double perSample() const { return seconds / samples; }
    };

    void judge() {
        std::vector<double> periods;
        for (const Step& step : mlJudges)
            periods.push_back(step.perSample());
        const auto middle = periods.begin() + static_cast<std::ptrdiff_t>(periods.size() / 2);
        std::nth_element(periods.begin(), middle, periods.end());
        mdUsual = *middle;
        for (const Step& step : mlJudges)
            add(step);
    }

    void add(const Step& step) {
        if (std::abs(step.perSample() - mdUsual) > kUsual * mdUsual)
            return;
        mdSamples += step.samples;
        mdSeconds += step.seconds;
    }

    std::vector<Step> mlJudges;
    double mdUsual = 0, mdSamples = 0, mdSeconds = 0;
};

/// Holds each frame against the one before.
class Continuity {
 public:
    Continuity(RecordingSummary& summary, double secondsPerTick, double sampleRateHz)
        : mcSummary(summary), mdSecondsPerTick(exactTick(secondsPerTick)), mdSampleRateHz(sampleRateHz) {}

    void check(const StoredFrame& before, const StoredFrame& frame) {
        if (mcSummary.type == DataType::baseband)
            return;
        mcSummary.sequenceGaps += frame.sequence != followingSequence(before.sequence);
        const double dStep = elapsed(before, frame, mdSecondsPerTick);
        const double dLength = mdSampleRateHz > 0 ? before.count / mdSampleRateHz : 0;
        // Units round their times; what is lost is more than that.
        const double dJitter =
            kUsual * dLength + 2 * mdSecondsPerTick + (mdSampleRateHz > 0 ? 2 / mdSampleRateHz : 0);
        if (dStep < -dJitter) {
            ++mcSummary.stepsBack;
        } else if (mdSampleRateHz > 0 && dStep > dLength + dJitter) {
            ++mcSummary.timeGaps;
            mcSummary.missingSeconds += dStep - dLength;
        }
    }

 private:
    RecordingSummary& mcSummary;
    double mdSecondsPerTick, mdSampleRateHz;
};

/// Whether two times are more than a millisecond apart.
bool apart(uint64_t left, uint64_t right) {
    return (left > right ? left - right : right - left) > 1000000;
}

void compareCount(std::vector<std::string>& lines, const RecordingDescription& description, const char* key,
                  uint64_t held, const std::string& thing) {
    const auto told = countOf(description.summary, key);
    if (!told)
        lines.push_back("the description tells no number of " + thing);
    else if (*told > held)
        lines.push_back("the data hold " + std::to_string(*told - held) + " " + thing +
                        " fewer than the description tells");
    else if (*told < held)
        lines.push_back("the data hold " + std::to_string(held - *told) + " " + thing +
                        " more than the description tells" +
                        (thing == "samples" ? ", and are not played" : ""));
}

void compareTimes(std::vector<std::string>& lines, const RecordingDescription& description,
                  const RecordingSummary& summary, double sampleRateHz) {
    const double dTick = description.secondsPerTick();
    const auto start = countOf(description.summary, "StartTimestamp");
    const auto end = countOf(description.summary, "EndTimestamp");
    if (!start || apart(*start, toNanoseconds(summary.first.timestamp, dTick)))
        lines.push_back("the first frame has another time than the description tells");
    else if (!end || apart(*end, endNanoseconds(summary, dTick, sampleRateHz)))
        lines.push_back("the last frame has another time than the description tells");
}

}  // namespace

uint32_t followingSequence(uint32_t sequence) {
    return sequence >= 0xFFFFFFFE ? 0 : sequence + 1;
}

uint64_t toNanoseconds(uint64_t ticks, double secondsPerTick) {
    const double dRatio = secondsPerTick / kNanosecond;
    return dRatio == 1
               ? ticks
               : static_cast<uint64_t>(std::min(std::round(dRatio * static_cast<double>(ticks)), 1.8e19));
}

uint64_t endNanoseconds(const RecordingSummary& summary, double secondsPerTick, double sampleRateHz) {
    if (summary.type == DataType::spectrum)
        return toNanoseconds(summary.last.timestamp, secondsPerTick) + summary.last.duration;
    if (summary.type != DataType::iq || !(sampleRateHz > 0))
        return 0;
    // In the library's own steps, so that a rebuilt description is the one that was lost.
    const double dSeconds =
        static_cast<double>(summary.last.count) / static_cast<double>(static_cast<float>(sampleRateHz));
    const auto uTicks = static_cast<uint64_t>(std::min(std::round(dSeconds / secondsPerTick), 1.8e19));
    return toNanoseconds(summary.last.timestamp + uTicks, secondsPerTick);
}

std::optional<double> estimateRate(RecordingReader& reader, double secondsPerTick) {
    RateEstimate estimate;
    std::optional<StoredFrame> before;
    reader.rewind();
    while (const auto frame = reader.next()) {
        if (before && frame->sequence == followingSequence(before->sequence))
            estimate.feed(before->count, elapsed(*before, *frame, exactTick(secondsPerTick)));
        before = frame;
    }
    return estimate.result();
}

RecordingSummary summarize(RecordingReader& reader, double secondsPerTick, double sampleRateHz) {
    RecordingSummary summary;
    summary.type = reader.type();
    summary.fileBytes = reader.size();
    summary.beingWritten = reader.isBeingWritten();
    if (summary.type == DataType::iq)
        summary.estimatedRateHz = estimateRate(reader, secondsPerTick);
    const bool bRateKnown = sampleRateHz > 0 || summary.type != DataType::iq;
    Continuity continuity(summary, secondsPerTick,
                          summary.type != DataType::iq ? 0
                          : bRateKnown                 ? sampleRateHz
                                                       : summary.estimatedRateHz.value_or(0));
    reader.rewind();
    while (const auto frame = reader.next()) {
        if (summary.frames++ == 0) {
            summary.first = *frame;
            summary.smallestFrame = frame->count;
        } else {
            continuity.check(summary.last, *frame);
        }
        summary.last = *frame;
        summary.samples += frame->count;
        summary.smallestFrame = std::min(summary.smallestFrame, frame->count);
        summary.largestFrame = std::max(summary.largestFrame, frame->count);
    }
    summary.wholeBytes = reader.position();
    summary.end = reader.end();
    return summary;
}

std::vector<std::string> differences(const RecordingDescription& description,
                                     const RecordingSummary& summary) {
    if (description.type() != summary.type)
        return {"the description tells of " + description.dataType + ", the data are " +
                (summary.type ? toText(*summary.type) : std::string("no frames"))};
    std::vector<std::string> lines;
    if (summary.type == DataType::spectrum)
        compareCount(lines, description, "Frames", summary.frames, "spectra");
    else
        compareCount(lines, description, "Samples", summary.samples, "samples");
    const double dRate = numberOf(description.sampling, "SampleRateHz").value_or(0);
    if (summary.type != DataType::baseband && summary.frames > 0 && lines.empty())
        compareTimes(lines, description, summary, dRate);
    if (summary.estimatedRateHz &&
        std::abs(*summary.estimatedRateHz - dRate) > kUsual * *summary.estimatedRateHz)
        lines.push_back("the description tells " + formatSI(dRate, "S/s") + ", by the frames' times it is " +
                        formatSI(*summary.estimatedRateHz, "S/s"));
    return lines;
}

std::string tailText(const RecordingSummary& summary) {
    const std::string at = " at byte " + std::to_string(summary.wholeBytes);
    switch (summary.end) {
        case DataEnd::whole:
            break;
        case DataEnd::cut:
            return "the last frame, " + formatCount(summary.trailingBytes(), "byte") + at + ", is cut off";
        case DataEnd::foreign:
            return formatCount(summary.trailingBytes(), "byte") + at + " are no frames of this kind";
        case DataEnd::empty:
            return "a frame without samples" + at + " ends it, " +
                   formatCount(summary.trailingBytes(), "byte") + " are not played";
    }
    return {};
}

}  // namespace cli
