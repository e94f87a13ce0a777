#pragma once

#include <array>
#include <cstdint>
#include <string>

/// Gain name and attenuation by reference level, 10 entries each; see gainIndex.
struct GainTable {
    std::array<const char*, 10> mpNames;   // null pointers where there are no names
    std::array<float, 10> mfAttenuations;
};

inline constexpr uint32_t kSteppedAttenuator = 1;
inline constexpr uint32_t kVariableAttenuator = 2;

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
    uint32_t muAttenuatorScheme;   // one of the two above, or none
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
/// From index 9 down, the first entry equal in attenuation and, where the table has names, in name:
/// index x 10 - 80; 0 without a match.
float referenceLevelFor(const GainTable& cTable, const std::string& gainName, float fAttenuation);
