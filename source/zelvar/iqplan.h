#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "receivers/iqrequest.h"
#include "receivers/rangechecks.h"
#include "zelvar/modeltable.h"

/// How the unit is set up for an IQ capture.
struct IQPlan {
    float mfTunedCentreHz;  // 0 in direct digitization
    float mfSampleRateHz;
    bool mbDirectDigitization;
    uint32_t muDecimation;  // 1 means none
    uint32_t muSamplesPerPacket;
    uint32_t muPacketsPerBlock;  // 0: continuous path
    uint64_t muCaptureSamples;   // 0: endless
    std::string mcGainName;
    float mfAttenuation;
    float mfLevelLow;
    float mfLevelHigh;
    float mfCaptureSec;                       // limited to 0 to 120
    std::optional<float> mcMaxContiguousSec;  // of a finite capture
    bool mbContiguous = false;
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
