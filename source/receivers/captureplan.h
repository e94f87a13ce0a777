#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "receivers/iqrequest.h"
#include "receivers/rangechecks.h"

/// How a unit is set up for an IQ capture, as far as that is the same for every family.
struct CapturePlan {
    float mfTunedCentreHz = 0.0f;
    float mfSampleRateHz = 0.0f;
    uint32_t muDecimation = 0;  // 1 means none
    uint32_t muSamplesPerPacket = 0;
    uint32_t muPacketsPerBlock = 0;  // 0: continuous path
    uint64_t muCaptureSamples = 0;   // 0: endless
    float mfLevelLow = 0.0f;
    float mfLevelHigh = 0.0f;
    float mfCaptureSec = 0.0f;                // limited to 0 to 120
    std::optional<float> mcMaxContiguousSec;  // of a finite capture
    bool mbContiguous = false;
};

/// What a unit takes in one piece.
struct CaptureLimits {
    uint32_t muLargestPacket;
    uint64_t muContiguousSamples;
};

// All of it in single precision. What refuses puts what to log and its code in `message` and `iCode`.

/// The request lies within the device's ranges.
bool isRealizable(const IQRequest& cRequest, const StreamRanges& cRanges, std::string& message,
                  int32_t& iCode);
/// The sample rate that a bandwidth needs.
float neededRateHz(float fIFBWHz);
/// The largest decimation, halved from 1024 down to the smallest, that leaves the rate needed, and that rate.
/// False when there is none.
bool chooseDecimation(float fFullRateHz, float fNeededHz, uint32_t uSmallest, CapturePlan& cPlan);
void refuseBandwidth(float fIFBWHz, std::string& message, int32_t& iCode);
/// The peak levels between which a capture at the chosen decimation is well set.
void setLevelBounds(CapturePlan& cPlan);
/// Samples of a packet of about a tenth of a second, within what a packet can hold.
uint32_t packetOfTenthSecond(float fSampleRateHz, uint32_t uLargestPacket);
/// How many samples, and for a finite capture how they come. A rate and the packet size that goes with it
/// have been chosen; without decimation that size stands.
void planSamples(const CaptureLimits& cLimits, CapturePlan& cPlan);
