#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundations/variantrecord.h"

/// What the text side of a recording tells its player. Keys that are missing, or of a type that the field cannot
/// take, leave the field as it starts.
struct RecordingContents {
    std::string mcDataType;
    utils::VariantRecord mcSampling;   // for spectra with the edges "FMinHz" and "FMaxHz" added
    float mfBandwidthHz = 0.0f;
    float mfCentreHz = 0.0f;
    float mfReferenceLevel = 0.0f;
    std::string mcUnits;
    uint64_t muStartTime = 0;
    uint64_t muEndTime = 0;
    uint32_t muResolution;
    float mfSampleRateHz = 0.0f;
    uint64_t muSampleTotal = 0;
    float mfRBWHz = 0.0f;
    uint32_t muFrameTotal = 0;
    uint32_t muPointsPerFrame = 0;
    std::string mcWindowName;

    RecordingContents();
    float minimumHz() const { return mfCentreHz - mfBandwidthHz * 0.5f; }
    float maximumHz() const { return mfCentreHz + mfBandwidthHz * 0.5f; }

    /// Empty if the text is no description of a recording: it must name a data type and hold the summary of that
    /// name and "Sampling". A type that nobody plays is let through.
    static std::optional<RecordingContents> parse(std::string_view text);
};

/// An unsigned 32-bit number in any of its forms; a float is rounded and must lie between 0 and 4294967296.
std::optional<uint32_t> readUnsigned32(const utils::VariantRecord& cRecord, std::string_view key);
