#include "zelvar/reconstruction.h"

#include <cmath>

namespace {

/// Of the half band: where the tuned centre lies.
constexpr float kIntermediateShare = 0.56f;

}  // namespace

BinRange keptBins(const SweepPlan& cPlan, uint32_t uPlace) {
    if (cPlan.mbHasDDBlock && uPlace == 0)
        return {cPlan.muDDBinFirst, cPlan.muDDBinLast};
    return tunedBins(cPlan, uPlace);
}

// The slice is mirrored about the tuned centre, and starts where a tuned slice does whatever the block's kind.
std::optional<BinRange> mirroredBins(const SweepPlan& cPlan, BinRange cKept, uint32_t uHalf) {
    const auto iCentre = static_cast<int64_t>(std::round(static_cast<float>(uHalf) * kIntermediateShare));
    const int64_t iShift = int64_t{uHalf} - 2 * iCentre;
    const int64_t iFirst = int64_t{cPlan.muSHBinFirst} + iShift;
    const int64_t iLast = int64_t{cKept.muLast} + iShift;
    if (iFirst < 0 || iLast + 1 < iFirst || iLast >= int64_t{uHalf})
        return {};
    return BinRange{static_cast<uint32_t>(iFirst), static_cast<uint32_t>(iLast)};
}

BlockTransform::BlockTransform(const std::string& windowName, uint32_t uFFTSize)
    : mcTransform(windowName, uFFTSize) {
    mcTransform.room(uFFTSize / 2);   // what cannot be had is missed when the sweep is planned
}

FloatArray& BlockTransform::magnitudes(const SweepBlock& cBlock) {
    const ComplexArray& cBins = mcTransform.ofReal(*cBlock.mcSamples);
    const uint32_t uHalf = cBins.getActive() / 2;
    FloatArray& cMagnitudes = mcTransform.room(uHalf);
    computeMagnitudes(cBins.getData() + (cBlock.mbInverted ? uHalf : 0), uHalf, cMagnitudes.getData());
    return cMagnitudes;
}
