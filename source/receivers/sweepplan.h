#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "flows/entity.h"
#include "foundations/alignedarray.h"

/// What is asked of a sweep.
struct SweepRequest {
    float mfMinHz;
    float mfMaxHz;
    float mfRBWHz;
    std::string mcWindowName = "nuttall";
    float mfRefdBm = -50.0f;
    float mfUserCaldB = 0.0f;
    bool mbFlatten = false;
    uint32_t muCaptureFrames = 0;   // 0: endless
    bool mbFlowControl = false;
};

/// From a stream's parameters. Empty, with a log line for each that is missing, without a range or a resolution
/// bandwidth.
std::optional<SweepRequest> readSweepRequest(const utils::VariantRecord& cParameters);

/// How a sweep is carried out: one list of blocks, each transformed by itself, of which some bins are kept.
/// Bin numbers are inclusive at both ends. All of it is computed in single precision, whose rounding reaches
/// the commands and the frames.
struct SweepPlan {
    uint32_t muSamplesPerPacket = 0;
    uint32_t muPacketsPerBlock = 1;
    uint32_t muFFTSize = 0;
    float mfBinHz = 0.0f;
    float mfNoiseBandwidth = 1.0f;   // of the window, in bins
    float mfActualRBW = 0.0f;
    bool mbHasDDBlock = false;       // the first block is taken without tuning
    uint32_t muDDBinFirst = 0;
    uint32_t muDDBinLast = 0;
    float mfDDStopHz = 0.0f;
    uint32_t muStepCount = 0;        // blocks that are tuned
    uint32_t muSHBinFirst = 0;
    uint32_t muSHBinLast = 0;
    uint32_t muSHBinLastFinal = 0;
    uint64_t muCentreFirst = 0;
    uint64_t muCentreLast = 0;
    uint64_t muCentreStep = 0;
    uint32_t muTotalBins = 0;
    uint32_t muTotalExpectedBlocks = 0;
    float mfFStart = 0.0f;
    float mfFStop = 0.0f;
};

inline constexpr const char* kUnreasonableSweep = "Sweep parameters (min,max,rbw) unreasonable";

// Steps of planning that every family takes.

/// A span that is as wide as its resolution, of numbers that there is arithmetic for.
bool isReasonable(const SweepRequest& cRequest);
/// A plan with the window's noise bandwidth alone.
SweepPlan beginSweepPlan(const SweepRequest& cRequest);
/// So many steps from the first centre on, without those that are tuned above `fHighestHz`. False when none
/// is left.
bool setSteps(SweepPlan& cPlan, float fSteps, float fHighestHz);
/// Blocks and bins of the whole. False when there are none, or more than an array can hold.
bool setTotals(SweepPlan& cPlan, int64_t iTotalBins);

/// A block of samples as it came, with what was known of it when it was complete.
struct SweepBlock {
    uint64_t muFrequencyHz;
    uint64_t muTimeNs;
    float mfReferenceLevel;
    bool mbInverted;
    ReferencePtr<FloatArray> mcSamples;   // complex samples lie as I, Q
    uint32_t muEpoch = 0;                 // the list that it came of, as the gatherer counts them
};
