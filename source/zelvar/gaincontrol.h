#pragma once

#include <string>

#include "zelvar/modeltable.h"

/// The two settings of a named gain stage; null for a name that there is none of.
struct GainStageRow {
    const char* mpName;
    const char* mpGain1;
    const char* mpGain2;
};
const GainStageRow* findGainStage(const std::string& name);

/// Whole tens of dB, 0 to 30.
int attenuationSetting(float fAttenuation);
/// Adds the setting of the attenuator to a list entry, in the form that the model takes; nothing for a model
/// without one.
void appendEntryAttenuation(std::string& batch, float fAttenuation, const ModelRecord& cModel);
