#include "quillon/sweepconfiguration.h"

#include <algorithm>
#include <cmath>

#include "quillon/ranges.h"
#include "quillon/referencelevel.h"

// A spectrum stream runs until it is detached: it is neither counted nor held back.
QuillonSweepConfiguration::QuillonSweepConfiguration(const SweepRequest& cRequest, const SweepPlan& cPlan,
                                                     ReferencePtr<_IFBWFlatten> cFlatten)
    : mcTransform(cRequest.mcWindowName, cPlan.muFFTSize) {
    mcRequest = cRequest;
    mcRequest.mfRefdBm = Quillon::heldReferenceLevel(cRequest.mfRefdBm);
    mcRequest.muCaptureFrames = 0;
    mcRequest.mbFlowControl = false;
    mcPlan = cPlan;
    muValuesPerSample = 2;
    muSampleRateHz = Quillon::kSampleRateHz;
    if (cRequest.mbFlatten)
        mcFlatten = std::move(cFlatten);
    mcTransform.room(cPlan.muFFTSize);  // what cannot be had is missed when the sweep is planned
}

std::optional<uint32_t> QuillonSweepConfiguration::placeOf(uint64_t uFrequencyHz) const {
    if (uFrequencyHz <= mcPlan.muCentreFirst)
        return 0;
    if (mcPlan.muCentreStep == 0)
        return {};
    const uint64_t uBlock = (uFrequencyHz - mcPlan.muCentreFirst) / mcPlan.muCentreStep;
    return static_cast<uint32_t>(std::min<uint64_t>(uBlock, 0xFFFFFFFF));
}

/// The lowest frequency first. Blocks whose spectrum is inverted have been conjugated before.
FloatArray& QuillonSweepConfiguration::magnitudes(const SweepBlock& cBlock) {
    const ComplexArray& cBins = mcTransform.ofComplex(*cBlock.mcSamples);
    const uint32_t uCount = cBins.getActive();
    const uint32_t uBelow = uCount / 2;
    FloatArray& cMagnitudes = mcTransform.room(uCount);
    computeMagnitudes(cBins.getData() + (uCount - uBelow), uBelow, cMagnitudes.getData());
    computeMagnitudes(cBins.getData(), uCount - uBelow, cMagnitudes.getData() + uBelow);
    return cMagnitudes;
}

bool QuillonSweepConfiguration::reconstruct(const SweepBlock& cBlock, uint32_t uPlace, float,
                                            float* pOutput) {
    const float fConstant = cBlock.mfReferenceLevel - 10.0f * std::log10(mcPlan.mfNoiseBandwidth);
    return writeBins(cBlock, magnitudes(cBlock), tunedBins(mcPlan, uPlace), mcFlatten.get(), fConstant,
                     pOutput);
}
