#pragma once

#include <atomic>

#include "flows/entity.h"
#include "receivers/commandchannel.h"
#include "zelvar/modeltable.h"
#include "zelvar/status.h"

/// What getParameters tells beside the status.
struct DeviceState {
    float mfSampleRateHz;
    bool mbFlatten;
    bool mbSweepActive;
    bool mbIQActive;
    uint32_t muQueryTimeoutMs;
    bool mbGNSS;
};

/// The schema of a device of the first family: its own parameters and the six of its streams.
utils::VariantRecord deviceParameterInfo(bool bGNSS);
/// Adds what is known now to the record.
void addDeviceParameters(utils::VariantRecord& cRecord, const DeviceState& cState,
                         const ZelvarStatusFields& cStatus);

/// What setParameters works on.
struct DeviceSettings {
    CommandChannel& mcChannel;
    ZelvarStatus& mcStatus;
    std::atomic<bool>& mbInhibitContinuousSweep;
};
/// Takes the keys that the family knows out of the record, in a fixed order, and sends what they ask for. A
/// bad value adds a text; the other keys are treated all the same.
void takeDeviceParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, DeviceSettings cSettings);
