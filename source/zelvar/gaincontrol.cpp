#include "zelvar/gaincontrol.h"

#include <algorithm>
#include <cmath>

#include "foundations/text.h"
#include "receivers/commandchannel.h"

namespace {

constexpr GainStageRow kGainStages[] = {{"high", "1", "1"}, {"med", "1", "0"}, {"low", "0", "0"}};

}  // namespace

const GainStageRow* findGainStage(const std::string& name) {
    const auto it = std::find_if(std::begin(kGainStages), std::end(kGainStages),
                                 [&](const GainStageRow& cRow) { return name == cRow.mpName; });
    return it == std::end(kGainStages) ? nullptr : it;
}

int attenuationSetting(float fAttenuation) {
    return static_cast<int>(std::round(std::clamp(fAttenuation, 0.0f, 30.0f) / 10.0f)) * 10;
}

void appendEntryAttenuation(std::string& batch, float fAttenuation, const ModelRecord& cModel) {
    if (cModel.muAttenuatorScheme == kSteppedAttenuator)
        appendCommand(batch, utils::formatText(":sweep:entry:att %d", attenuationSetting(fAttenuation)));
    else if (cModel.muAttenuatorScheme == kVariableAttenuator)
        appendCommand(batch, utils::formatText(":sweep:entry:att:var %d", attenuationSetting(fAttenuation)));
}
