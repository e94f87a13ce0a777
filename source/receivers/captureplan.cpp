#include "receivers/captureplan.h"

#include <algorithm>
#include <cmath>

#include "foundations/fatalerror.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "receivers/planning.h"

namespace {

constexpr int32_t kNoDecimationCode = -6004;
constexpr float kUsableShare = 0.85f;
constexpr uint32_t kLargestDecimation = 1024;
constexpr float kPacketSec = 0.1f;

/// Packets for at least the wanted samples. Decimated, the packet size is free: the smallest number of
/// packets that keeps within the limit, which is one packet for a short capture. 1024 packets always do: the
/// limits are 1024 times a multiple of the step.
void shapePackets(uint64_t uWanted, const CaptureLimits& cLimits, CapturePlan& cPlan) {
    uint64_t uSize = cPlan.muSamplesPerPacket;
    uint64_t uPackets = divideUp(uWanted, uSize);
    if (cPlan.muDecimation != 1) {
        uPackets = divideUp(uWanted, cLimits.muLargestPacket);
        while (true) {
            uSize = divideUp(divideUp(uWanted, uPackets), kPacketStep) * kPacketStep;
            uSize = std::clamp<uint64_t>(uSize, kSmallestPacket, cLimits.muLargestPacket);
            if (uSize * uPackets <= cLimits.muContiguousSamples)
                break;
            ++uPackets;
        }
    }
    cPlan.muPacketsPerBlock = static_cast<uint32_t>(uPackets);
    cPlan.muSamplesPerPacket = static_cast<uint32_t>(uSize);
    cPlan.muCaptureSamples = uPackets * uSize;
}

/// A capture that fits the unit's memory is one block that the unit ends by itself; a longer one runs on the
/// continuous path and is stopped by count.
void planFinite(const CaptureLimits& cLimits, CapturePlan& cPlan) {
    const uint64_t uLimit = cLimits.muContiguousSamples;
    const float fRate = cPlan.mfSampleRateHz;
    const float fWantedSec = cPlan.mfCaptureSec;
    cPlan.mcMaxContiguousSec = static_cast<float>(uLimit) / fRate;
    if (fWantedSec > *cPlan.mcMaxContiguousSec)
        return;
    cPlan.mbContiguous = true;
    const auto uAsked = static_cast<uint64_t>(std::ceil(fRate * fWantedSec));
    float fRealizedSec = 0.0f;
    // The product of rate and time is rounded: where that took a sample too many away, ask for more.
    for (uint64_t uWanted = std::clamp<uint64_t>(uAsked, kSmallestPacket, uLimit);
         uWanted <= uLimit && !(fRealizedSec >= fWantedSec); ++uWanted) {
        shapePackets(uWanted, cLimits, cPlan);
        fRealizedSec = static_cast<float>(cPlan.muCaptureSamples) / fRate;
    }
    VNK_ASSERT_TEXT(fRealizedSec >= fWantedSec, "fRealizedCaptureDurationSec >= fCaptureDurationSec");
}

}  // namespace

bool isRealizable(const IQRequest& cRequest, const StreamRanges& cRanges, std::string& message,
                  int32_t& iCode) {
    if (cRanges.mcIFBWHz.contains(cRequest.mfIFBWHz) && cRanges.mcCentreHz.contains(cRequest.mfCentreHz))
        return true;
    message =
        utils::formatText("IQ FCentreHz:%.0f, IFBWHz:%.0f is unrealizable",
                          static_cast<double>(cRequest.mfCentreHz), static_cast<double>(cRequest.mfIFBWHz));
    iCode = utils::kTraceCode;
    return false;
}

float neededRateHz(float fIFBWHz) {
    return fIFBWHz / kUsableShare;
}

bool chooseDecimation(float fFullRateHz, float fNeededHz, uint32_t uSmallest, CapturePlan& cPlan) {
    for (uint32_t uDecimation = kLargestDecimation; uDecimation >= uSmallest && uDecimation != 0;
         uDecimation /= 2)
        if (fFullRateHz / static_cast<float>(uDecimation) >= fNeededHz) {
            cPlan.muDecimation = uDecimation;
            cPlan.mfSampleRateHz = fFullRateHz / static_cast<float>(uDecimation);
            return true;
        }
    return false;
}

void refuseBandwidth(float fIFBWHz, std::string& message, int32_t& iCode) {
    message = utils::formatText("Cannot set valid IFBW - request was %.0fHz", static_cast<double>(fIFBWHz));
    iCode = kNoDecimationCode;
}

void setLevelBounds(CapturePlan& cPlan) {
    cPlan.mfLevelLow = cPlan.muDecimation == 1 ? -13.0f : -20.0f;
    cPlan.mfLevelHigh = cPlan.muDecimation == 1 ? -3.0f : -10.0f;
}

uint32_t packetOfTenthSecond(float fSampleRateHz, uint32_t uLargestPacket) {
    const auto uSamples = static_cast<uint32_t>(std::round(fSampleRateHz * kPacketSec));
    return std::clamp(uSamples & ~(kPacketStep - 1), kSmallestPacket, uLargestPacket);
}

void planSamples(const CaptureLimits& cLimits, CapturePlan& cPlan) {
    cPlan.muCaptureSamples = static_cast<uint64_t>(std::round(cPlan.mfCaptureSec * cPlan.mfSampleRateHz));
    if (cPlan.muCaptureSamples != 0)
        planFinite(cLimits, cPlan);
}
