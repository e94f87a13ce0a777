#pragma once

#include <optional>

#include "foundations/variantrecord.h"

/// What is asked of an IQ capture.
struct IQRequest {
    float mfCentreHz;
    float mfIFBWHz;
    float mfRefdBm = -50.0f;
    float mfUserCaldB = 0.0f;
    float mfCaptureSec = 0.0f;
};

/// Held to 0 to 120 seconds; NaN is 0.
float limitCaptureSec(float fSeconds);
/// From a stream's parameters, the capture time limited. Empty, with a log line, without a centre or a
/// bandwidth.
std::optional<IQRequest> readIQRequest(const utils::VariantRecord& cParameters);
