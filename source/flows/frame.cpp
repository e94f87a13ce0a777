#include "flows/frame.h"

#include <array>
#include <cmath>
#include <limits>

#include "flows/framebytes.h"

namespace {

struct Resolution {
    const char* mpText;
    float mfSeconds;
};

constexpr std::array<Resolution, 5> kResolutions = {{
    {"s", 1.0f},
    {"ms", 0.001f},
    {"us", 1e-6f},
    {"ns", 1e-9f},
    {"ps", 1e-12f},
}};

constexpr double kTwoTo63 = 9223372036854775808.0;

/// Rounded; what no unsigned value can hold becomes the nearest one that it can, and NaN becomes 0.
uint64_t roundToUnsigned(double fValue) {
    const double fRounded = std::round(fValue);
    if (!(fRounded > 0.0))
        return 0;
    if (fRounded >= 2.0 * kTwoTo63)
        return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(fRounded);
}

/// The signed twin.
int64_t roundToSigned(double fValue) {
    const double fRounded = std::round(fValue);
    if (std::isnan(fRounded))
        return 0;
    if (fRounded >= kTwoTo63)
        return std::numeric_limits<int64_t>::max();
    if (fRounded < -kTwoTo63)
        return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(fRounded);
}

uint64_t addSaturated(uint64_t uLeft, uint64_t uRight) {
    const uint64_t uSum = uLeft + uRight;
    return uSum < uLeft ? std::numeric_limits<uint64_t>::max() : uSum;
}

}  // namespace

float secondsPerTick(uint32_t uResolution) {
    return uResolution < kResolutions.size() ? kResolutions[uResolution].mfSeconds : 0.001f;
}

const char* timeResolutionText(uint32_t uResolution) {
    return uResolution < kResolutions.size() ? kResolutions[uResolution].mpText : "?";
}

uint32_t timeResolutionFromText(const std::string& text) {
    for (uint32_t i = 0; i < kResolutions.size(); ++i)
        if (text == kResolutions[i].mpText)
            return i;
    return kMilliseconds;
}

Frame::Frame(uint32_t uSequence, uint64_t uTimestamp, uint32_t uResolution, float fCentreHz,
             float fBandwidthHz, float fReferenceLevel, std::string units)
    : muTimestamp(uTimestamp),
      muResolution(uResolution),
      muSequence(uSequence),
      mfCentreHz(fCentreHz),
      mfBandwidthHz(fBandwidthHz),
      mfReferenceLevel(fReferenceLevel),
      mcUnits(std::move(units)) {}

Frame::Frame(const Frame& cOther, uint32_t uSequence, uint64_t uTimestamp)
    : muTimestamp(uTimestamp == 0 ? cOther.muTimestamp : uTimestamp),
      muResolution(cOther.muResolution),
      muSequence(uSequence == 0 ? cOther.muSequence : uSequence),
      mfCentreHz(cOther.mfCentreHz),
      mfBandwidthHz(cOther.mfBandwidthHz),
      mfReferenceLevel(cOther.mfReferenceLevel),
      mcUnits(cOther.mcUnits),
      mcExtras(cOther.mcExtras),
      mbDiscardable(cOther.mbDiscardable),
      mbLive(cOther.mbLive) {}

utils::VariantRecord Frame::getParameters(bool bInvariantOnly) const {
    utils::VariantRecord cRecord;
    if (!bInvariantOnly) {
        cRecord.set("Sequence", muSequence);
        cRecord.set("Timestamp", muTimestamp);
        cRecord.set("TimeResolution", timeResolutionText(muResolution));
    }
    cRecord.set("FCentreHz", mfCentreHz);
    cRecord.set("BandwidthHz", mfBandwidthHz);
    cRecord.set("RefdBm", mfReferenceLevel);
    cRecord.set("units", getUnits());
    return cRecord;
}

ReferencePtr<utils::VariantRecord> Frame::getExtras() {
    if (!mcExtras)
        mcExtras = ReferencePtr<utils::VariantRecord>(new utils::VariantRecord);
    return mcExtras;
}

uint64_t Frame::getTimestamp(uint32_t uResolution) const {
    return convertTicks(muTimestamp, muResolution, uResolution);
}

void Frame::addNanoseconds(int64_t iDelta) {
    // Unsigned arithmetic: a negative delta wraps to the subtraction that it means.
    if (muResolution == kNanoseconds) {
        muTimestamp += static_cast<uint64_t>(iDelta);
        return;
    }
    const double fFactor = double{secondsPerTick(kNanoseconds)} / double{secondsPerTick(muResolution)};
    muTimestamp += static_cast<uint64_t>(roundToSigned(static_cast<double>(iDelta) * fFactor));
}

uint64_t Frame::endTimeOf(uint32_t uActive, float fRate, uint32_t uResolution) const {
    const double fSeconds = static_cast<double>(uActive) / double{fRate};
    const uint64_t uTicks = roundToUnsigned(fSeconds / double{secondsPerTick(muResolution)});
    return convertTicks(addSaturated(muTimestamp, uTicks), muResolution, uResolution);
}

uint64_t Frame::convertTicks(uint64_t uTicks, uint32_t uFrom, uint32_t uTo) {
    if (uFrom == uTo)
        return uTicks;
    // The single-precision constants make the ratio inexact; the results of that are kept.
    const double fRatio = double{secondsPerTick(uFrom)} / double{secondsPerTick(uTo)};
    return roundToUnsigned(fRatio * static_cast<double>(uTicks));
}
