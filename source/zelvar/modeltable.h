#pragma once

#include <array>
#include <cstdint>
#include <string>

/// Gain name and attenuation by reference level, 10 entries each; see gainIndex.
struct GainTable {
    std::array<const char*, 10> mpNames;   // null pointers where there are no names
    std::array<float, 10> mfAttenuations;
};

/// A row of the model table: what a model of the first family can do.
struct ModelRecord {
    const char* mpName;
    float mfSampleRateHz;
    bool mbDecimationOffAllowed;
    uint32_t muMinDecimation;
    uint32_t muMaxDecimation;
    uint32_t muLargestCapture;
    float mfLowestHz;
    float mfHighestHz;
    float mfTunedStartHz;
    uint32_t muGainScheme;         // 1: named gain stages exist
    uint32_t muAttenuatorScheme;   // 1 stepped, 2 variable
    bool mbGNSS;
    bool mbSecondFlag;
    float mfTunedLimitdBm;
    const GainTable* mpTuned;
    float mfFullRateLimitdBm;
    const GainTable* mpFullRate;
};

/// The 13 models in order of search.
const std::array<ModelRecord, 13>& modelTable();
/// By whole equality; null for an unknown model.
const ModelRecord* findModel(const std::string& type);
/// The text holds the name of any model.
bool namesAnyModel(const std::string& text);

/// min(floor((level + 80) / 10), 9), and not below 0.
uint32_t gainIndex(float fReferenceLevel);
/// From index 9 down, the first entry equal in name and attenuation: index x 10 - 80; 0 without a match.
float referenceLevelFor(const GainTable& cTable, const std::string& gainName, float fAttenuation);
