#pragma once

#include <string>

#include "receivers/sweepplan.h"
#include "zelvar/modeltable.h"

inline constexpr float kHighestDirectHz = 50000000.0f;

/// Pure planning in single precision, in the order of its steps. Empty, with what to log in `message`, when the
/// request cannot be swept.
std::optional<SweepPlan> planSweep(const SweepRequest& cRequest, float fHighestHz, std::string& message);

/// The joined list of a sweep; `bEndless` lets the unit repeat it by itself.
std::string sweepListCommands(const SweepPlan& cPlan, float fReferenceLevel, bool bEndless,
                              const ModelRecord& cModel);
/// What sets the gain stages for a sweep; empty where there are none.
std::string sweepGainCommand(float fReferenceLevel, const ModelRecord& cModel);
