#include "zelvar/adaptationplan.h"

#include <cmath>

#include "foundations/text.h"
#include "receivers/commandchannel.h"
#include "zelvar/gaincontrol.h"
#include "zelvar/iqplan.h"

using utils::formatText;

namespace {

constexpr float kMeasuredWidthHz = 40000000.0f;

struct Setting {
    const char* mpGainName;
    float mfAttenuation;
};

constexpr std::array<Setting, kAdaptationSteps> kSettings = {
    {{"high", 0.0f}, {"med", 0.0f}, {"low", 0.0f}, {"low", 10.0f}, {"low", 20.0f}, {"low", 30.0f}}};

void appendAttenuation(std::string& batch, uint32_t uStep, const ModelRecord& cModel) {
    const int iAttenuation = static_cast<int>(kSettings[uStep].mfAttenuation);
    const bool bStepped = cModel.muAttenuatorScheme == kSteppedAttenuator;
    appendCommand(batch, formatText("%s %d", bStepped ? ":sweep:entry:att" : ":sweep:entry:att:var", iAttenuation));
}

void appendEntry(std::string& batch, const AdaptationPlan& cPlan) {
    appendCommand(batch, cPlan.mbDirectDigitization ? ":sweep:entry:mode DD" : ":sweep:entry:mode SH");
    if (!cPlan.mbDirectDigitization)
        appendCommand(batch, formatText(":sweep:entry:freq:cent %llu", static_cast<unsigned long long>(std::llround(
                                                                           cPlan.mfTunedCentreHz))));
    appendCommand(batch, formatText(":sweep:entry:spp %u", cPlan.muSamplesPerPacket));
    appendCommand(batch, formatText(":sweep:entry:ppb %u", cPlan.muPackets));
    if (!cPlan.mbDirectDigitization)
        appendCommand(batch, formatText(":sweep:entry:dec %u", cPlan.muDecimation));
}

}  // namespace

// A millisecond of data for each setting, at the settings that a wide capture of the same centre has.
std::optional<AdaptationPlan> planAdaptation(float fCentreHz, const ModelRecord& cModel,
                                             const StreamRanges& cRanges, std::string& message, int32_t& iCode) {
    const IQRequest cWide{fCentreHz, kMeasuredWidthHz};
    const std::optional<IQPlan> cCapture = planIQ(cWide, cModel, cRanges, message, iCode);
    if (!cCapture)
        return {};
    AdaptationPlan cPlan{};
    cPlan.mfTunedCentreHz = cCapture->mfTunedCentreHz;
    cPlan.mfSampleRateHz = cCapture->mfSampleRateHz;
    cPlan.mbDirectDigitization = cCapture->mbDirectDigitization;
    cPlan.muDecimation = cCapture->muDecimation;
    cPlan.muSamplesPerPacket = packetOfTenthSecond(cPlan.mfSampleRateHz);
    const float fPacketMs = static_cast<float>(cPlan.muSamplesPerPacket) / cPlan.mfSampleRateHz * 1000.0f;
    cPlan.muPackets = static_cast<uint32_t>(std::ceil(1.0f / fPacketMs));
    cPlan.muFirstStep = cModel.muGainScheme == 1 ? 0 : kFirstAttenuatorStep;
    return cPlan;
}

std::string adaptationCommands(const AdaptationPlan& cPlan, uint32_t uStep, const ModelRecord& cModel) {
    std::string batch;
    appendCommand(batch, ":sweep:entry:delete all");
    appendCommand(batch, ":sweep:entry:new");
    appendCommand(batch, ":sweep:list:iter 1");
    appendEntry(batch, cPlan);
    appendAttenuation(batch, uStep, cModel);
    appendCommand(batch, ":sweep:entry:save");
    if (uStep != kFirstAttenuatorStep)
        return batch;
    for (uint32_t uFurther = uStep + 1; uFurther < kAdaptationSteps; ++uFurther) {
        appendCommand(batch, ":sweep:entry:new");
        appendCommand(batch, ":sweep:entry:copy 1");
        appendAttenuation(batch, uFurther, cModel);
        appendCommand(batch, ":sweep:entry:save");
    }
    return batch;
}

uint32_t chooseAdaptationStep(const AdaptationLevels& fLevels, float fLimit) {
    float fBest = -1000.0f;
    uint32_t uChosen = kFirstAttenuatorStep;
    for (uint32_t uStep = 0; uStep < kAdaptationSteps; ++uStep)
        if (fLevels[uStep] > fBest && fLevels[uStep] <= fLimit) {
            fBest = fLevels[uStep];
            uChosen = uStep;
        }
    return uChosen;
}

// The limits and the tables are taken the other way round than a capture takes them; that is how it is.
float adaptedReferenceLevel(const AdaptationLevels& fLevels, const AdaptationPlan& cPlan,
                            const ModelRecord& cModel) {
    const bool bFullRate = cPlan.muDecimation == 1;
    const float fLimit = bFullRate ? cModel.mfTunedLimitdBm : cModel.mfFullRateLimitdBm;
    const GainTable& cTable = bFullRate ? *cModel.mpTuned : *cModel.mpFullRate;
    const Setting& cSetting = kSettings[chooseAdaptationStep(fLevels, fLimit)];
    return referenceLevelFor(cTable, cSetting.mpGainName, cSetting.mfAttenuation);
}
