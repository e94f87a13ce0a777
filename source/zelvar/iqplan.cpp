#include "zelvar/iqplan.h"

#include <algorithm>
#include <cmath>

#include "foundations/fatalerror.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr int32_t kNoDecimationCode = -6004;
constexpr float kHighestDirectHz = 50000000.0f;
constexpr float kDirectRateHz = 125000000.0f;
constexpr float kUsableShare = 0.85f;
constexpr uint32_t kLargestDecimation = 1024;
constexpr uint32_t kSmallestDecimation = 4;
constexpr uint32_t kFullRatePacket = 65280;
constexpr uint32_t kSmallestPacket = 256;
constexpr uint32_t kLargestPacket = 65504;
constexpr uint32_t kPacketStep = 32;
constexpr float kPacketSec = 0.1f;
constexpr uint64_t kFullRateLimit = 67108864;
constexpr uint64_t kDecimatedLimit = 33554432;

uint64_t divideUp(uint64_t uDividend, uint64_t uDivisor) {
    return (uDividend + uDivisor - 1) / uDivisor;
}

/// There is no decimation between 1 and 4.
bool chooseDecimation(float fIFBW, const ModelRecord& cModel, IQPlan& cPlan) {
    const float fRate = cModel.mfSampleRateHz;
    const float fNeeded = fIFBW / kUsableShare;
    for (uint32_t uDecimation = kLargestDecimation; uDecimation >= kSmallestDecimation; uDecimation /= 2)
        if (fRate / static_cast<float>(uDecimation) >= fNeeded) {
            cPlan.muDecimation = uDecimation;
            cPlan.mfSampleRateHz = fRate / static_cast<float>(uDecimation);
            return true;
        }
    cPlan.muDecimation = 1;
    cPlan.mfSampleRateHz = fRate;
    return cModel.mbDecimationOffAllowed && fRate > fNeeded;
}

void chooseGain(float fReferenceLevel, const ModelRecord& cModel, IQPlan& cPlan) {
    const GainTable* pTable = cPlan.muDecimation != 1 ? cModel.mpTuned : cModel.mpFullRate;
    if (!pTable)
        return;
    const uint32_t uIndex = gainIndex(fReferenceLevel);
    if (const char* pName = pTable->mpNames[uIndex])
        cPlan.mcGainName = pName;
    cPlan.mfAttenuation = pTable->mfAttenuations[uIndex];
}

/// Packets for at least the wanted samples. Decimated, the packet size is free: the smallest number of
/// packets that keeps within the limit, which is one packet for a short capture. 1024 packets always do: both
/// limits are 1024 times a multiple of the step.
void shapePackets(uint64_t uWanted, uint64_t uLimit, IQPlan& cPlan) {
    uint64_t uPackets = divideUp(uWanted, kFullRatePacket);
    uint64_t uSize = kFullRatePacket;
    if (cPlan.muDecimation != 1) {
        uPackets = divideUp(uWanted, kLargestPacket);
        while (true) {
            uSize = divideUp(divideUp(uWanted, uPackets), kPacketStep) * kPacketStep;
            uSize = std::clamp<uint64_t>(uSize, kSmallestPacket, kLargestPacket);
            if (uSize * uPackets <= uLimit)
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
void planFinite(IQPlan& cPlan) {
    const uint64_t uLimit = cPlan.muDecimation == 1 ? kFullRateLimit : kDecimatedLimit;
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
        shapePackets(uWanted, uLimit, cPlan);
        fRealizedSec = static_cast<float>(cPlan.muCaptureSamples) / fRate;
    }
    VNK_ASSERT_TEXT(fRealizedSec >= fWantedSec, "fRealizedCaptureDurationSec >= fCaptureDurationSec");
}

}  // namespace

uint32_t packetOfTenthSecond(float fSampleRateHz) {
    const auto uSamples = static_cast<uint32_t>(std::round(fSampleRateHz * kPacketSec));
    return std::clamp(uSamples & ~(kPacketStep - 1), kSmallestPacket, kLargestPacket);
}

std::optional<IQPlan> planIQ(const IQRequest& cRequest, const ModelRecord& cModel,
                             const StreamRanges& cRanges, std::string& message, int32_t& iCode) {
    const float fCentre = cRequest.mfCentreHz;
    const float fIFBW = cRequest.mfIFBWHz;
    IQPlan cPlan{};
    cPlan.mfCaptureSec = limitCaptureSec(cRequest.mfCaptureSec);
    if (!cRanges.mcIFBWHz.contains(fIFBW) || !cRanges.mcCentreHz.contains(fCentre)) {
        message = utils::formatText("IQ FCentreHz:%.0f, IFBWHz:%.0f is unrealizable",
                                    static_cast<double>(fCentre), static_cast<double>(fIFBW));
        iCode = utils::kTraceCode;
        return {};
    }
    cPlan.mfTunedCentreHz = fCentre;
    cPlan.mbDirectDigitization = fCentre <= kHighestDirectHz;
    if (cPlan.mbDirectDigitization) {
        cPlan.mfTunedCentreHz = 0.0f;
        cPlan.mfSampleRateHz = kDirectRateHz;
        cPlan.muDecimation = 1;
    } else if (!chooseDecimation(fIFBW, cModel, cPlan)) {
        message = utils::formatText("Cannot set valid IFBW - request was %.0fHz", static_cast<double>(fIFBW));
        iCode = kNoDecimationCode;
        return {};
    }
    chooseGain(cRequest.mfRefdBm, cModel, cPlan);
    cPlan.mfLevelLow = cPlan.muDecimation == 1 ? -13.0f : -20.0f;
    cPlan.mfLevelHigh = cPlan.muDecimation == 1 ? -3.0f : -10.0f;
    cPlan.muSamplesPerPacket =
        cPlan.muDecimation < 2 ? kFullRatePacket : packetOfTenthSecond(cPlan.mfSampleRateHz);
    cPlan.muCaptureSamples = static_cast<uint64_t>(std::round(cPlan.mfCaptureSec * cPlan.mfSampleRateHz));
    if (cPlan.muCaptureSamples != 0)
        planFinite(cPlan);
    return cPlan;
}
