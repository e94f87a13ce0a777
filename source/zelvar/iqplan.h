#pragma once

#include "receivers/captureplan.h"
#include "zelvar/modeltable.h"

struct IQPlan : CapturePlan {   // its tuned centre is 0 in direct digitization
    bool mbDirectDigitization = false;
    std::string mcGainName;
    float mfAttenuation = 0.0f;
};

/// Pure planning in single precision, in the order of its steps. Empty, with what to log and its code in
/// `message` and `iCode`, when the request is unrealizable.
std::optional<IQPlan> planIQ(const IQRequest& cRequest, const ModelRecord& cModel,
                             const StreamRanges& cRanges, std::string& message, int32_t& iCode);

/// Samples of a packet of about a tenth of a second, within what a packet can hold.
uint32_t packetOfTenthSecond(float fSampleRateHz);

/// The joined set-up commands of the continuous path.
std::string continuousIQCommands(const IQPlan& cPlan, const ModelRecord& cModel);
/// The joined sweep list of the finite path.
std::string finiteIQCommands(const IQPlan& cPlan, const ModelRecord& cModel);
