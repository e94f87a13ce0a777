#include "zelvar/sweepplan.h"

#include <algorithm>
#include <cmath>

#include "dsp/windowfunctions.h"

namespace {

constexpr float kBeyondAnyUnitHz = 1e12f;
constexpr float kNyquistHz = 62500000.0f;
constexpr float kIntermediateHz = 35000000.0f;   // where the tuned centre lies
constexpr float kIntermediateLowHz = 17000000.0f;
constexpr float kIntermediateHighHz = 53000000.0f;
constexpr uint64_t kLargestFFT = uint64_t{1} << 31;
constexpr uint32_t kSmallestFFT = 256;
constexpr uint32_t kLargestPacket = 65504;
constexpr uint32_t kPacketStep = 32;
constexpr uint32_t kStepsPerPacket = 2047;

/// A centre that the unit can be tuned to: whole tens of hertz.
uint64_t roundToTens(float fHz) {
    const float fTens = std::round(fHz / 10.0f);
    return fTens > 0.0f ? static_cast<uint64_t>(fTens) * 10 : 0;
}

int64_t whole(float fValue) {
    return static_cast<int64_t>(fValue);
}

/// The smallest power of two that separates lines as far apart as the resolution bandwidth asks for.
uint32_t chooseFFTSize(float fRBWHz, float fNoiseBandwidth) {
    const float fBinHz = fRBWHz / fNoiseBandwidth;
    const float fLines = std::round((fBinHz + kNyquistHz) / fBinHz);
    if (!(fLines < static_cast<float>(kLargestFFT)))
        return static_cast<uint32_t>(kLargestFFT);
    const uint64_t uLines = (static_cast<uint64_t>(fLines) + kPacketStep - 1) & ~uint64_t{kPacketStep - 1};
    uint64_t uSize = 2;
    while (uSize < 2 * uLines && uSize < kLargestFFT)
        uSize *= 2;
    return static_cast<uint32_t>(uSize);
}

uint32_t divideUp(uint32_t uDividend, uint32_t uDivisor) {
    return (uDividend - 1) / uDivisor + 1;
}

/// A packet holds whole steps of 32 samples, 65504 at most; a block may hold more samples than the transform.
void shapePackets(SweepPlan& cPlan) {
    cPlan.muFFTSize = std::max(cPlan.muFFTSize, kSmallestFFT);
    cPlan.muSamplesPerPacket = cPlan.muFFTSize;
    cPlan.muPacketsPerBlock = 1;
    if (cPlan.muFFTSize <= kLargestPacket)
        return;
    const uint32_t uSteps = cPlan.muFFTSize / kPacketStep;
    cPlan.muPacketsPerBlock = divideUp(uSteps, kStepsPerPacket);
    cPlan.muSamplesPerPacket = divideUp(uSteps, cPlan.muPacketsPerBlock) * kPacketStep;
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
    int64_t iSteps = std::max<int64_t>(whole(std::ceil((cRequest.mfMaxHz - fFirst) / fWidth)), 0);
    const auto lastCentre = [&] {
        return cPlan.muCentreFirst + static_cast<uint64_t>(iSteps - 1) * cPlan.muCentreStep;
    };
    while (iSteps > 0 && static_cast<float>(lastCentre()) > fHighestHz)
        --iSteps;
    if (iSteps == 0)
        return;
    if (cPlan.mfFStart == 0.0f)
        cPlan.mfFStart = fFirst;
    cPlan.muStepCount = static_cast<uint32_t>(iSteps);
    cPlan.muCentreLast = lastCentre();
    const float fLastZero = static_cast<float>(cPlan.muCentreLast) - kIntermediateHz;
    // A last step that, by the rounding of its centre, begins above the upper edge adds nothing.
    const float fFinal = std::max(
        std::min(std::floor((cRequest.mfMaxHz - fLastZero) / fBinHz), fBinLast), fBinFirst - 1.0f);
    cPlan.mfFStop = fFinal * fBinHz + fLastZero;
    cPlan.muSHBinFirst = static_cast<uint32_t>(fBinFirst);
    cPlan.muSHBinLast = static_cast<uint32_t>(fBinLast);
    cPlan.muSHBinLastFinal = static_cast<uint32_t>(fFinal);
    iTotalBins += whole(fFinal) + 1 + (whole(fBinLast) - whole(fBinFirst) + 1) * (iSteps - 1) - whole(fBinFirst);
}

}  // namespace

std::optional<SweepPlan> planSweep(const SweepRequest& cRequest, float fHighestHz, std::string& message) {
    message = "Sweep parameters (min,max,rbw) unreasonable";
    if (!(cRequest.mfRBWHz + cRequest.mfMinHz <= cRequest.mfMaxHz && cRequest.mfRBWHz > 0.0f &&
          cRequest.mfMaxHz <= kBeyondAnyUnitHz))
        return {};
    SweepPlan cPlan;
    cPlan.mfNoiseBandwidth = WindowFunctions::windowNoiseBandwidth(cRequest.mcWindowName);
    cPlan.muFFTSize = chooseFFTSize(cRequest.mfRBWHz, cPlan.mfNoiseBandwidth);
    shapePackets(cPlan);
    cPlan.mfBinHz = kNyquistHz / static_cast<float>(cPlan.muFFTSize / 2 - 1);
    cPlan.mfActualRBW = cPlan.mfBinHz * cPlan.mfNoiseBandwidth;
    int64_t iTotalBins = 0;
    const float fFrom = planDirect(cRequest, cPlan, iTotalBins);
    if (cRequest.mfMaxHz > kHighestDirectHz)
        planTuned(cRequest, fHighestHz, fFrom, cPlan, iTotalBins);
    cPlan.muTotalExpectedBlocks = cPlan.muStepCount + (cPlan.mbHasDDBlock ? 1u : 0u);
    // Not more than an array can hold.
    if (cPlan.muTotalExpectedBlocks == 0 || iTotalBins <= 0 || iTotalBins > int64_t{0xFFFFFFF0})
        return {};
    cPlan.muTotalBins = static_cast<uint32_t>(iTotalBins);
    return cPlan;
}
