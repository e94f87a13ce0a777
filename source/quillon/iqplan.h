#pragma once

#include "receivers/captureplan.h"

namespace Quillon {

struct IQPlan : CapturePlan {
    int32_t miReferenceLevel = 0;  // as it is set
};

/// Pure planning in single precision, in the order of its steps. What to log and its code stand in `message`
/// and `iCode`: how the rate was chosen, or, with an empty result, why the request is unrealizable.
std::optional<IQPlan> planIQ(const IQRequest& cRequest, const StreamRanges& cRanges, std::string& message,
                             int32_t& iCode);

/// The joined set-up commands of the continuous path.
std::string continuousIQCommands(const IQPlan& cPlan);
/// The joined sweep list of the finite path.
std::string finiteIQCommands(const IQPlan& cPlan);

}  // namespace Quillon
