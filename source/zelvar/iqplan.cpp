#include "zelvar/iqplan.h"

namespace {

constexpr float kHighestDirectHz = 50000000.0f;
constexpr float kDirectRateHz = 125000000.0f;
constexpr uint32_t kSmallestDecimation = 4;
constexpr uint32_t kFullRatePacket = 65280;
constexpr uint32_t kLargestPacket = 65504;
constexpr uint64_t kFullRateLimit = 67108864;
constexpr uint64_t kDecimatedLimit = 33554432;

/// There is no decimation between 1 and 4.
bool chooseRate(float fIFBW, const ModelRecord& cModel, IQPlan& cPlan) {
    const float fRate = cModel.mfSampleRateHz;
    const float fNeeded = neededRateHz(fIFBW);
    if (chooseDecimation(fRate, fNeeded, kSmallestDecimation, cPlan))
        return true;
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

}  // namespace

uint32_t packetOfTenthSecond(float fSampleRateHz) {
    return packetOfTenthSecond(fSampleRateHz, kLargestPacket);
}

std::optional<IQPlan> planIQ(const IQRequest& cRequest, const ModelRecord& cModel,
                             const StreamRanges& cRanges, std::string& message, int32_t& iCode) {
    IQPlan cPlan;
    cPlan.mfCaptureSec = limitCaptureSec(cRequest.mfCaptureSec);
    if (!isRealizable(cRequest, cRanges, message, iCode))
        return {};
    cPlan.mfTunedCentreHz = cRequest.mfCentreHz;
    cPlan.mbDirectDigitization = cRequest.mfCentreHz <= kHighestDirectHz;
    if (cPlan.mbDirectDigitization) {
        cPlan.mfTunedCentreHz = 0.0f;
        cPlan.mfSampleRateHz = kDirectRateHz;
        cPlan.muDecimation = 1;
    } else if (!chooseRate(cRequest.mfIFBWHz, cModel, cPlan)) {
        refuseBandwidth(cRequest.mfIFBWHz, message, iCode);
        return {};
    }
    chooseGain(cRequest.mfRefdBm, cModel, cPlan);
    setLevelBounds(cPlan);
    cPlan.muSamplesPerPacket =
        cPlan.muDecimation < 2 ? kFullRatePacket : packetOfTenthSecond(cPlan.mfSampleRateHz);
    planSamples({kLargestPacket, cPlan.muDecimation == 1 ? kFullRateLimit : kDecimatedLimit}, cPlan);
    return cPlan;
}
