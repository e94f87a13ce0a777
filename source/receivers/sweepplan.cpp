#include "receivers/sweepplan.h"

#include "dsp/windowfunctions.h"
#include "foundations/runtimeerrors.h"

namespace {

constexpr int32_t kNotSpecifiedCode = -6025;
constexpr float kBeyondAnyUnitHz = 1e12f;
constexpr float kBeyondAnyCount = 4e9f;
constexpr int64_t kMostBins = 0xFFFFFFF0;

}  // namespace

std::optional<SweepRequest> readSweepRequest(const utils::VariantRecord& cParameters) {
    const std::optional<float> fValues[] = {cParameters.getNumber("FMinHz"), cParameters.getNumber("FMaxHz"),
                                            cParameters.getNumber("RBWHz")};
    for (const std::optional<float>& fValue : fValues)
        if (!fValue) {
            utils::reportError(kNotSpecifiedCode, "FCentreHz not specified");
            return {};
        }
    SweepRequest cRequest{*fValues[0], *fValues[1], *fValues[2]};
    cRequest.mcWindowName = cParameters.getText("WindowFn").value_or(cRequest.mcWindowName);
    cRequest.mfRefdBm = cParameters.getNumber("RefdBm").value_or(cRequest.mfRefdBm);
    cRequest.mfUserCaldB = cParameters.getNumber("UserCaldB").value_or(cRequest.mfUserCaldB);
    cRequest.mbFlatten = cParameters.getBool("flatten").value_or(false);
    cRequest.mbFlowControl = cParameters.getBool("flowControl").value_or(false);
    utils::VariantRecord cCount = cParameters;
    cRequest.muCaptureFrames = takeCount(cCount, "captureFrames").value_or(0);
    return cRequest;
}

bool isReasonable(const SweepRequest& cRequest) {
    return cRequest.mfRBWHz + cRequest.mfMinHz <= cRequest.mfMaxHz && cRequest.mfRBWHz > 0.0f &&
           cRequest.mfMaxHz <= kBeyondAnyUnitHz;
}

SweepPlan beginSweepPlan(const SweepRequest& cRequest) {
    SweepPlan cPlan;
    cPlan.mfNoiseBandwidth = WindowFunctions::windowNoiseBandwidth(cRequest.mcWindowName);
    return cPlan;
}

bool setSteps(SweepPlan& cPlan, float fSteps, float fHighestHz) {
    if (!(fSteps >= 1.0f && fSteps < kBeyondAnyCount))
        return false;
    auto uSteps = static_cast<uint32_t>(fSteps);
    const auto lastCentre = [&] { return cPlan.muCentreFirst + uint64_t{uSteps - 1} * cPlan.muCentreStep; };
    while (uSteps > 0 && static_cast<float>(lastCentre()) > fHighestHz)
        --uSteps;
    if (uSteps == 0)
        return false;
    cPlan.muStepCount = uSteps;
    cPlan.muCentreLast = lastCentre();
    return true;
}

bool setTotals(SweepPlan& cPlan, int64_t iTotalBins) {
    cPlan.muTotalExpectedBlocks = cPlan.muStepCount + (cPlan.mbHasDDBlock ? 1u : 0u);
    if (cPlan.muTotalExpectedBlocks == 0 || iTotalBins <= 0 || iTotalBins > kMostBins)
        return false;
    cPlan.muTotalBins = static_cast<uint32_t>(iTotalBins);
    return true;
}
