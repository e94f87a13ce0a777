#include "foundations/text.h"
#include "receivers/commandchannel.h"
#include "zelvar/gaincontrol.h"
#include "zelvar/sweepplan.h"

using utils::formatText;

namespace {

unsigned long long wide(uint64_t uValue) {
    return uValue;
}

void appendPackets(std::string& batch, const SweepPlan& cPlan) {
    appendCommand(batch, formatText(":sweep:entry:spp %u", cPlan.muSamplesPerPacket));
    appendCommand(batch, formatText(":sweep:entry:ppb %u", cPlan.muPacketsPerBlock));
}

}  // namespace

std::string sweepListCommands(const SweepPlan& cPlan, float fReferenceLevel, bool bEndless,
                              const ModelRecord& cModel) {
    std::string batch;
    appendCommand(batch, ":sweep:entry:delete all");
    appendCommand(batch, ":sweep:entry:new");
    appendCommand(batch, formatText(":sweep:list:iter %d", bEndless ? 0 : 1));
    appendEntryAttenuation(batch, cModel.mpTuned->mfAttenuations[gainIndex(fReferenceLevel)], cModel);
    if (cPlan.mbHasDDBlock) {
        appendCommand(batch, ":sweep:entry:mode DD");
        appendPackets(batch, cPlan);
        appendCommand(batch, ":sweep:entry:save");
    }
    if (cPlan.muStepCount != 0) {
        appendCommand(batch, ":sweep:entry:mode SH");
        appendCommand(batch, formatText(":sweep:entry:freq:step %llu", wide(cPlan.muCentreStep)));
        appendCommand(batch, formatText(":sweep:entry:freq:cent %llu, %llu", wide(cPlan.muCentreFirst),
                                        wide(cPlan.muCentreLast)));
        appendPackets(batch, cPlan);
        appendCommand(batch, ":sweep:entry:dec 1");
        appendCommand(batch, ":sweep:entry:save");
    }
    return batch;
}

std::string sweepGainCommand(float fReferenceLevel, const ModelRecord& cModel) {
    const char* pName = cModel.mpTuned->mpNames[gainIndex(fReferenceLevel)];
    const GainStageRow* pStage = cModel.muGainScheme == 1 && pName ? findGainStage(pName) : nullptr;
    return pStage ? formatText(":INPUT:GAIN 1 %s; :INPUT:GAIN 2 %s", pStage->mpGain1, pStage->mpGain2) : "";
}
