#pragma once

#include "receivers/reconstruction.h"
#include "receivers/sweepengine.h"

/// A sweep of the second family: complex samples about the tuned centre, whatever the frequency.
class QuillonSweepConfiguration final : public SweepConfiguration {
 public:
    /// Without `cFlatten` the unit has no correction data.
    QuillonSweepConfiguration(const SweepRequest& cRequest, const SweepPlan& cPlan,
                              ReferencePtr<_IFBWFlatten> cFlatten = nullptr);

    uint32_t binsAt(uint32_t uPlace) const override { return tunedBins(mcPlan, uPlace).count(); }
    /// Places behind the last one too: a block there is out of turn.
    std::optional<uint32_t> placeOf(uint64_t uFrequencyHz) const override;
    /// The user's calibration does not enter here.
    bool reconstruct(const SweepBlock& cBlock, uint32_t uPlace, float fUserCaldB, float* pOutput) override;

 private:
    FloatArray& magnitudes(const SweepBlock& cBlock);

    WindowedTransform mcTransform;
    ReferencePtr<_IFBWFlatten> mcFlatten;
};
