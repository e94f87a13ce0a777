#pragma once

#include "receivers/sweepplan.h"

namespace Quillon {

/// Pure planning in single precision, in the order of its steps. Empty, with what to log in `message`, when
/// the request cannot be swept.
std::optional<SweepPlan> planSweep(const SweepRequest& cRequest, float fHighestHz, std::string& message);

/// What is sent ahead of a list, and the joined list; `bEndless` lets the unit repeat it by itself.
std::string sweepReferenceCommand(float fReferenceLevel);
std::string sweepListCommands(const SweepPlan& cPlan, bool bEndless);

}  // namespace Quillon
