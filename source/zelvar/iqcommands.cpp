#include <algorithm>
#include <cmath>
#include <string_view>

#include "foundations/text.h"
#include "receivers/commandchannel.h"
#include "zelvar/iqplan.h"

using utils::formatText;

namespace {

constexpr uint32_t kSteppedAttenuator = 1;
constexpr uint32_t kVariableAttenuator = 2;

struct GainStageRow {
    std::string_view mcName;
    const char* mpGain1;
    const char* mpGain2;
};

constexpr GainStageRow kGainStages[] = {{"high", "1", "1"}, {"med", "1", "0"}, {"low", "0", "0"}};

int attenuationOf(const IQPlan& cPlan) {
    return static_cast<int>(std::round(std::clamp(cPlan.mfAttenuation, 0.0f, 30.0f) / 10.0f)) * 10;
}

/// A name in no row adds nothing: the unit keeps its last setting.
void appendGain(std::string& batch, const IQPlan& cPlan, const ModelRecord& cModel) {
    if (cModel.muGainScheme != 1)
        return;
    for (const GainStageRow& cRow : kGainStages)
        if (cRow.mcName == cPlan.mcGainName) {
            appendCommand(batch, formatText(":INPut:GAIN 1 %s", cRow.mpGain1));
            appendCommand(batch, formatText(":INPut:GAIN 2 %s", cRow.mpGain2));
            return;
        }
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
        appendCommand(batch, formatText(":INPut:ATTenuator %d", attenuationOf(cPlan)));
    else if (cModel.muAttenuatorScheme == kVariableAttenuator)
        appendCommand(batch, formatText(":INPut:ATTenuator:VARiable %d", attenuationOf(cPlan)));
    appendGain(batch, cPlan, cModel);
    return batch;
}

std::string finiteIQCommands(const IQPlan& cPlan, const ModelRecord& cModel) {
    std::string batch;
    appendCommand(batch, ":sweep:entry:delete all");
    appendCommand(batch, ":sweep:entry:new");
    appendCommand(batch, ":sweep:list:iter 1");
    if (cModel.muAttenuatorScheme == kSteppedAttenuator)
        appendCommand(batch, formatText(":sweep:entry:att %d", attenuationOf(cPlan)));
    else if (cModel.muAttenuatorScheme == kVariableAttenuator)
        appendCommand(batch, formatText(":sweep:entry:att:var %d", attenuationOf(cPlan)));
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
