#pragma once

#include <optional>
#include <string>

#include "flows/frame.h"

/// What the text side of a recording says: the stream's type and its unchanging parameters, taken from the first
/// frame, and a running summary. A value without files or threads.
class RecordingDescription {
 public:
    /// An entry "source" of the record, if there is one.
    void takeSource(const utils::VariantRecord& cParameters);
    /// Empty before the first frame.
    const std::string& dataType() const { return mcDataType; }
    /// The frame must be of the recording's type.
    void note(const Frame& cFrame);
    std::string toText() const;

 private:
    void noteFirst(const Frame& cFrame);

    std::string mcDataType;
    std::optional<utils::Variant> mcSource;
    utils::VariantRecord mcSampling;
    utils::VariantRecord mcSummary;   // the entries that the first frame settles
    uint64_t muEndTimestamp = 0;
    uint64_t muSamples = 0;
    uint32_t muPointsPerFrame = 0;
    uint32_t muFrames = 0;
};
