#pragma once

#include <atomic>

#include "flows/entity.h"
#include "receivers/commandchannel.h"
#include "receivers/unitstatus.h"

/// What getParameters tells beside the status.
struct DeviceState {
    float mfSampleRateHz;
    bool mbFlatten;
    bool mbSweepActive;
    bool mbIQActive;
    uint32_t muQueryTimeoutMs;
    bool mbGNSS;
};

/// The schema of a receiver: its own parameters and the six of its streams.
utils::VariantRecord deviceParameterInfo(bool bGNSS);
/// Adds what is known now to the record.
void addDeviceParameters(utils::VariantRecord& cRecord, const DeviceState& cState,
                         const UnitStatusFields& cStatus);

/// What setParameters works on.
struct DeviceSettings {
    CommandChannel& mcChannel;
    UnitStatus& mcStatus;
    std::atomic<bool>* mpInhibitContinuousSweep;   // null: the family has no such parameter
};
/// Takes the keys that are known out of the record, in a fixed order, and sends what they ask for. A
/// bad value adds a text; the other keys are treated all the same.
void takeDeviceParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, DeviceSettings cSettings);
