#include <cmath>

#include "foundations/text.h"
#include "receivers/commandchannel.h"
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
    appendCommand(batch, formatText(":TRACe:SPPacket %d", static_cast<int>(cPlan.muSamplesPerPacket)));
    if (cPlan.muDecimation == 1)
        appendCommand(batch, ":SENSe:DECimation OFF");
    else
        appendCommand(batch, formatText(":SENSE:DEC %d", static_cast<int>(cPlan.muDecimation)));
    if (!cPlan.mbDirectDigitization)
        appendCommand(batch, formatText("FREQ:CENT %0.0f Hz", static_cast<double>(cPlan.mfTunedCentreHz)));
    if (cModel.muAttenuatorScheme == kSteppedAttenuator)
        appendCommand(batch, formatText(":INPut:ATTenuator %d", attenuationSetting(cPlan.mfAttenuation)));
    else if (cModel.muAttenuatorScheme == kVariableAttenuator)
        appendCommand(batch, formatText(":INPut:ATTenuator:VARiable %d", attenuationSetting(cPlan.mfAttenuation)));
    appendGain(batch, cPlan, cModel);
    return batch;
}

std::string finiteIQCommands(const IQPlan& cPlan, const ModelRecord& cModel) {
    std::string batch;
    appendCommand(batch, ":sweep:entry:delete all");
    appendCommand(batch, ":sweep:entry:new");
    appendCommand(batch, ":sweep:list:iter 1");
    appendEntryAttenuation(batch, cPlan.mfAttenuation, cModel);
    appendCommand(batch, cPlan.mbDirectDigitization ? ":sweep:entry:mode DD" : ":sweep:entry:mode SH");
    if (!cPlan.mbDirectDigitization)
        appendCommand(batch,
                      formatText(":sweep:entry:freq:cent %llu",
                                 static_cast<unsigned long long>(std::llround(cPlan.mfTunedCentreHz))));
    appendCommand(batch, formatText(":sweep:entry:spp %u", cPlan.muSamplesPerPacket));
    appendCommand(batch, formatText(":sweep:entry:ppb %u", cPlan.muPacketsPerBlock));
    if (!cPlan.mbDirectDigitization)
        appendCommand(batch, formatText(":sweep:entry:dec %u", cPlan.muDecimation));
    appendCommand(batch, ":sweep:entry:save");
    appendGain(batch, cPlan, cModel);
    return batch;
}
