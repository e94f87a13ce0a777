#include "zelvar/sweepplan.h"

#include <algorithm>
#include <cmath>

#include "receivers/planning.h"

namespace {

constexpr float kNyquistHz = 62500000.0f;
constexpr float kIntermediateHz = 35000000.0f;   // where the tuned centre lies
constexpr float kIntermediateLowHz = 17000000.0f;
constexpr float kIntermediateHighHz = 53000000.0f;
constexpr uint32_t kLargestPacket = 65504;
constexpr uint32_t kStepsPerPacket = 2047;

int64_t whole(float fValue) {
    return static_cast<int64_t>(fValue);
}

/// A packet holds whole steps of 32 samples, 65504 at most; a block may hold more samples than the transform.
void shapePackets(SweepPlan& cPlan) {
    cPlan.muFFTSize = std::max(cPlan.muFFTSize, kSmallestPacket);
    cPlan.muSamplesPerPacket = cPlan.muFFTSize;
    cPlan.muPacketsPerBlock = 1;
    if (cPlan.muFFTSize <= kLargestPacket)
        return;
    const uint32_t uSteps = cPlan.muFFTSize / kPacketStep;
    cPlan.muPacketsPerBlock = static_cast<uint32_t>(divideUp(uSteps, kStepsPerPacket));
    cPlan.muSamplesPerPacket = static_cast<uint32_t>(divideUp(uSteps, cPlan.muPacketsPerBlock)) * kPacketStep;
}

/// What lies below the direct limit comes from one block. The frequency from which on there is more to cover.
float planDirect(const SweepRequest& cRequest, SweepPlan& cPlan, int64_t& iTotalBins) {
    if (!(cRequest.mfMinHz < kHighestDirectHz))
        return cRequest.mfMinHz;
    const float fBinHz = cPlan.mfBinHz;
    const float fHalf = fBinHz * 0.5f;
    const float fFirst = std::ceil((cRequest.mfMinHz - fHalf) / fBinHz);
    const float fLast = std::floor((std::min(cRequest.mfMaxHz, kHighestDirectHz) - fHalf) / fBinHz);
    if (!(fFirst >= 0.0f && fLast >= fFirst))
        return cRequest.mfMinHz;
    cPlan.mbHasDDBlock = true;
    cPlan.muDDBinFirst = static_cast<uint32_t>(fFirst);
    cPlan.muDDBinLast = static_cast<uint32_t>(fLast);
    cPlan.mfFStart = fFirst * fBinHz + fHalf;
    cPlan.mfDDStopHz = fLast * fBinHz + fHalf;
    cPlan.mfFStop = cPlan.mfDDStopHz;
    iTotalBins = whole(fLast) - whole(fFirst) + 1;
    return fBinHz + cPlan.mfDDStopHz;
}

/// Steps whose kept slices join: each begins one bin behind the end of the one before. The last one is cut at
/// the upper edge.
void planTuned(const SweepRequest& cRequest, float fHighestHz, float fFrom, SweepPlan& cPlan,
               int64_t& iTotalBins) {
    const float fBinHz = cPlan.mfBinHz;
    const float fBinFirst = std::floor(kIntermediateLowHz / fBinHz);
    const float fBinLast = std::ceil(kIntermediateHighHz / fBinHz);
    const float fLow = fBinFirst * fBinHz;
    const float fToCentre = kIntermediateHz - fLow;
    cPlan.muCentreFirst = roundToTens(fToCentre + fFrom);
    const float fZero = static_cast<float>(cPlan.muCentreFirst) - kIntermediateHz;
    const float fFirst = fZero + fLow;
    const float fLast = fBinLast * fBinHz + fZero;
    cPlan.muCentreStep = roundToTens(fBinHz + fLast + fToCentre) - cPlan.muCentreFirst;
    const float fWidth = (fBinLast - fBinFirst + 1.0f) * fBinHz;
    if (!setSteps(cPlan, std::ceil((cRequest.mfMaxHz - fFirst) / fWidth), fHighestHz))
        return;
    if (cPlan.mfFStart == 0.0f)
        cPlan.mfFStart = fFirst;
    const float fLastZero = static_cast<float>(cPlan.muCentreLast) - kIntermediateHz;
    // A last step that, by the rounding of its centre, begins above the upper edge adds nothing.
    const float fFinal = std::max(
        std::min(std::floor((cRequest.mfMaxHz - fLastZero) / fBinHz), fBinLast), fBinFirst - 1.0f);
    cPlan.mfFStop = fFinal * fBinHz + fLastZero;
    cPlan.muSHBinFirst = static_cast<uint32_t>(fBinFirst);
    cPlan.muSHBinLast = static_cast<uint32_t>(fBinLast);
    cPlan.muSHBinLastFinal = static_cast<uint32_t>(fFinal);
    const int64_t iWhole = whole(fBinLast) - whole(fBinFirst) + 1;
    iTotalBins += whole(fFinal) + 1 + iWhole * (int64_t{cPlan.muStepCount} - 1) - whole(fBinFirst);
}

}  // namespace

std::optional<SweepPlan> planSweep(const SweepRequest& cRequest, float fHighestHz, std::string& message) {
    message = kUnreasonableSweep;
    if (!isReasonable(cRequest))
        return {};
    SweepPlan cPlan = beginSweepPlan(cRequest);
    cPlan.muFFTSize = chooseFFTSize(cRequest.mfRBWHz / cPlan.mfNoiseBandwidth, kNyquistHz);
    shapePackets(cPlan);
    cPlan.mfBinHz = kNyquistHz / static_cast<float>(cPlan.muFFTSize / 2 - 1);
    cPlan.mfActualRBW = cPlan.mfBinHz * cPlan.mfNoiseBandwidth;
    int64_t iTotalBins = 0;
    const float fFrom = planDirect(cRequest, cPlan, iTotalBins);
    if (cRequest.mfMaxHz > kHighestDirectHz)
        planTuned(cRequest, fHighestHz, fFrom, cPlan, iTotalBins);
    return setTotals(cPlan, iTotalBins) ? std::optional(cPlan) : std::nullopt;
}
