#include "quillon/sweepplan.h"

#include <algorithm>
#include <cmath>

#include "quillon/ranges.h"
#include "receivers/planning.h"

namespace Quillon {

namespace {

constexpr float kUsableWidthHz = 104448000.0f;
constexpr float kLowEdgeHz = 12287999.0f;  // from the low end of what a block shows
constexpr float kHighEdgeHz = 110592000.0f;
constexpr float kHalfRateHz = 61440000.0f;
/// Of twice as many floats an array can be made.
constexpr uint32_t kLargestFFT = 1u << 30;

/// A packet holds 32768 samples at most; a block is a whole number of packets.
void shapePackets(SweepPlan& cPlan) {
    cPlan.muFFTSize = std::max(cPlan.muFFTSize, kSmallestPacket);
    cPlan.muSamplesPerPacket = std::min(cPlan.muFFTSize, kLargestPacket);
    cPlan.muPacketsPerBlock = static_cast<uint32_t>(divideUp(cPlan.muFFTSize, kLargestPacket));
    cPlan.muFFTSize = cPlan.muSamplesPerPacket * cPlan.muPacketsPerBlock;
}

/// Steps whose kept bins join. A bin counts here as a little narrower than it is, with one more than the
/// transform has in the sample rate: over the bins that a block keeps that adds up to most of a bin, and so a
/// step is wider than they count by a whole one.
bool planSteps(const SweepRequest& cRequest, float fHighestHz, SweepPlan& cPlan) {
    const float fBinHz = cPlan.mfBinHz;
    const float fHalf = fBinHz * 0.5f;
    const auto fMiddle = static_cast<float>(cPlan.muFFTSize / 2);
    const float fFirst = std::ceil(kLowEdgeHz / fBinHz);
    const float fLast = std::floor(kHighEdgeHz / fBinHz);
    const float fToCentre = (fMiddle - fFirst) * fBinHz + fHalf;
    cPlan.muCentreFirst = roundToTens(fToCentre + cRequest.mfMinHz);
    const auto fCentre = static_cast<float>(cPlan.muCentreFirst);
    const float fNext = fCentre + (fLast - fMiddle) * fBinHz + fHalf + fBinHz + fToCentre;
    cPlan.muCentreStep = roundToTens(fNext) - cPlan.muCentreFirst;
    const float fSpan = cRequest.mfMaxHz - (fCentre - fToCentre);
    if (!setSteps(cPlan, std::ceil(fSpan / static_cast<float>(cPlan.muCentreStep)), fHighestHz))
        return false;
    const auto fCentreLast = static_cast<float>(cPlan.muCentreLast);
    const float fFinal =
        std::clamp(std::floor(fMiddle + (cRequest.mfMaxHz - fCentreLast) / fBinHz), fFirst, fLast);
    cPlan.mfFStart = cRequest.mfMinHz;
    cPlan.mfFStop = (fFinal + 0.5f) * fBinHz + (fCentreLast - kHalfRateHz);
    cPlan.muSHBinFirst = static_cast<uint32_t>(fFirst);
    cPlan.muSHBinLast = static_cast<uint32_t>(fLast);
    cPlan.muSHBinLastFinal = static_cast<uint32_t>(fFinal);
    return true;
}

}  // namespace

std::optional<SweepPlan> planSweep(const SweepRequest& cRequest, float fHighestHz, std::string& message) {
    message = kUnreasonableSweep;
    if (!isReasonable(cRequest) || cRequest.mfMinHz < 0.0f)
        return {};
    SweepPlan cPlan = beginSweepPlan(cRequest);
    cPlan.muFFTSize = chooseFFTSize(cRequest.mfRBWHz / cPlan.mfNoiseBandwidth, kUsableWidthHz);
    if (cPlan.muFFTSize > kLargestFFT)
        return {};
    shapePackets(cPlan);
    cPlan.mfBinHz = static_cast<float>(kSampleRateHz) / static_cast<float>(cPlan.muFFTSize + 1);
    cPlan.mfActualRBW = cPlan.mfBinHz * cPlan.mfNoiseBandwidth;
    if (!planSteps(cRequest, fHighestHz, cPlan))
        return {};
    const int64_t iWhole = int64_t{cPlan.muSHBinLast} - cPlan.muSHBinFirst + 1;
    const int64_t iFinal = int64_t{cPlan.muSHBinLastFinal} - cPlan.muSHBinFirst + 1;
    if (!setTotals(cPlan, iWhole * (int64_t{cPlan.muStepCount} - 1) + iFinal))
        return {};
    return cPlan;
}

}  // namespace Quillon
