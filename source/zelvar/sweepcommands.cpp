#include "foundations/text.h"
#include "receivers/commandchannel.h"
#include "receivers/commandtexts.h"
#include "zelvar/gaincontrol.h"
#include "zelvar/sweepplan.h"

using utils::formatText;

std::string sweepListCommands(const SweepPlan& cPlan, float fReferenceLevel, bool bEndless,
                              const ModelRecord& cModel) {
    std::string batch;
    beginList(batch, bEndless ? 0 : 1);
    appendEntryAttenuation(batch, cModel.mpTuned->mfAttenuations[gainIndex(fReferenceLevel)], cModel);
    if (cPlan.mbHasDDBlock) {
        appendCommand(batch, ":sweep:entry:mode DD");
        appendEntryPackets(batch, cPlan.muSamplesPerPacket, cPlan.muPacketsPerBlock);
        saveEntry(batch);
    }
    if (cPlan.muStepCount != 0) {
        appendCommand(batch, ":sweep:entry:mode SH");
        appendSteps(batch, cPlan);
    }
    return batch;
}

std::string sweepGainCommand(float fReferenceLevel, const ModelRecord& cModel) {
    const char* pName = cModel.mpTuned->mpNames[gainIndex(fReferenceLevel)];
    const GainStageRow* pStage = cModel.muGainScheme == 1 && pName ? findGainStage(pName) : nullptr;
    return pStage ? formatText(":INPUT:GAIN 1 %s; :INPUT:GAIN 2 %s", pStage->mpGain1, pStage->mpGain2) : "";
}
