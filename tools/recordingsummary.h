#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/recordingdescription.h"
#include "tools/recordingreader.h"

namespace cli {

/// What the data file of a recording holds.
struct RecordingSummary {
    std::optional<DataType> type;
    uint64_t fileBytes = 0, wholeBytes = 0;  ///< all, and those of whole frames
    DataEnd end = DataEnd::whole;
    bool beingWritten = false;
    uint64_t frames = 0;
    uint64_t samples = 0;  ///< or points, or samples of each channel
    uint32_t smallestFrame = 0, largestFrame = 0;
    StoredFrame first, last;
    uint64_t sequenceGaps = 0;
    uint64_t timeGaps = 0;                  ///< of IQ: a frame later than the last one's samples tell
    double missingSeconds = 0;              ///< in these
    uint64_t stepsBack = 0;                 ///< of the time, by more than jitter
    std::optional<double> estimatedRateHz;  ///< of IQ: from the times of frames in sequence

    uint64_t trailingBytes() const { return fileBytes - wholeBytes; }
};

/// Reads the file from front to back. A rate of 0 is one that is not known: the estimate takes its place.
RecordingSummary summarize(RecordingReader& reader, double secondsPerTick, double sampleRateHz);

/// Samples for each second, by the times of frames that follow each other: of most of them, so that gaps and
/// steps of the clock between frames do not count. Nothing without two such frames.
std::optional<double> estimateRate(RecordingReader& reader, double secondsPerTick);

/// The number of a frame behind one of this number.
uint32_t followingSequence(uint32_t sequence);
uint64_t toNanoseconds(uint64_t ticks, double secondsPerTick);
/// The end of the last frame; of a baseband recording unknown, 0.
uint64_t endNanoseconds(const RecordingSummary& summary, double secondsPerTick, double sampleRateHz);

/// Where description and data contradict each other, in words; empty when they agree.
std::vector<std::string> differences(const RecordingDescription& description,
                                     const RecordingSummary& summary);
/// What is behind the last whole frame, in words; empty when the file ends with it.
std::string tailText(const RecordingSummary& summary);

}  // namespace cli
