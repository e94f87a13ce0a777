#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "receivers/rangechecks.h"
#include "zelvar/modeltable.h"

/// Reference level adaptation tries six settings, from the most sensitive one down. A setting is a step.
inline constexpr uint32_t kAdaptationSteps = 6;
/// The first of the steps that differ by the attenuator alone and run as one list.
inline constexpr uint32_t kFirstAttenuatorStep = 2;

using AdaptationLevels = std::array<float, kAdaptationSteps>;

/// The shape of the trials.
struct AdaptationPlan {
    float mfTunedCentreHz;
    float mfSampleRateHz;
    bool mbDirectDigitization;
    uint32_t muDecimation;
    uint32_t muSamplesPerPacket;
    uint32_t muPackets;   // of one setting
    uint32_t muFirstStep;
};

/// Pure planning. Empty, with what to log and its code, when the centre cannot be measured.
std::optional<AdaptationPlan> planAdaptation(float fCentreHz, const ModelRecord& cModel,
                                             const StreamRanges& cRanges, std::string& message, int32_t& iCode);
/// The joined list of a trial; at the first attenuator step, of all four of them. Gain stages are not set: the
/// unit keeps those that it has.
std::string adaptationCommands(const AdaptationPlan& cPlan, uint32_t uStep, const ModelRecord& cModel);
/// The step with the highest level that does not exceed the limit, the earliest of equals; the first attenuator
/// step when there is none.
uint32_t chooseAdaptationStep(const AdaptationLevels& fLevels, float fLimit);
/// The reference level that stands for what was measured.
float adaptedReferenceLevel(const AdaptationLevels& fLevels, const AdaptationPlan& cPlan,
                            const ModelRecord& cModel);
