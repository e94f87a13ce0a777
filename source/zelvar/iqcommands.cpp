#include "foundations/text.h"
#include "receivers/commandchannel.h"
#include "receivers/commandtexts.h"
#include "zelvar/gaincontrol.h"
#include "zelvar/iqplan.h"

using utils::formatText;

namespace {

/// A name in no row adds nothing: the unit keeps its last setting.
void appendGain(std::string& batch, const IQPlan& cPlan, const ModelRecord& cModel) {
    const GainStageRow* pStage = cModel.muGainScheme == 1 ? findGainStage(cPlan.mcGainName) : nullptr;
    if (!pStage)
        return;
    appendCommand(batch, formatText(":INPut:GAIN 1 %s", pStage->mpGain1));
    appendCommand(batch, formatText(":INPut:GAIN 2 %s", pStage->mpGain2));
}

}  // namespace

std::string continuousIQCommands(const IQPlan& cPlan, const ModelRecord& cModel) {
    std::string batch;
    appendCommand(batch, formatText("INPUT:MODE %s", cPlan.mbDirectDigitization ? "DD" : "SH"));
    appendPacketSize(batch, cPlan.muSamplesPerPacket);
    if (cPlan.muDecimation == 1)
        appendCommand(batch, ":SENSe:DECimation OFF");
    else
        appendDecimation(batch, cPlan.muDecimation);
    if (!cPlan.mbDirectDigitization)
        appendCentre(batch, cPlan.mfTunedCentreHz);
    if (cModel.muAttenuatorScheme == kSteppedAttenuator)
        appendCommand(batch, formatText(":INPut:ATTenuator %d", attenuationSetting(cPlan.mfAttenuation)));
    else if (cModel.muAttenuatorScheme == kVariableAttenuator)
        appendCommand(batch, formatText(":INPut:ATTenuator:VARiable %d", attenuationSetting(cPlan.mfAttenuation)));
    appendGain(batch, cPlan, cModel);
    return batch;
}

std::string finiteIQCommands(const IQPlan& cPlan, const ModelRecord& cModel) {
    std::string batch;
    beginList(batch, 1);
    appendEntryAttenuation(batch, cPlan.mfAttenuation, cModel);
    appendCommand(batch, cPlan.mbDirectDigitization ? ":sweep:entry:mode DD" : ":sweep:entry:mode SH");
    if (!cPlan.mbDirectDigitization)
        appendEntryCentre(batch, cPlan.mfTunedCentreHz);
    appendEntryPackets(batch, cPlan.muSamplesPerPacket, cPlan.muPacketsPerBlock);
    if (!cPlan.mbDirectDigitization)
        appendEntryDecimation(batch, cPlan.muDecimation);
    saveEntry(batch);
    appendGain(batch, cPlan, cModel);
    return batch;
}
