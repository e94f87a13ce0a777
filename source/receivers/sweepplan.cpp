#include "receivers/sweepplan.h"

#include "foundations/runtimeerrors.h"

namespace {

constexpr int32_t kNotSpecifiedCode = -6025;

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
