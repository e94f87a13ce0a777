#include "receivers/iqrequest.h"

#include "foundations/runtimeerrors.h"

using utils::reportTrace;

namespace {

constexpr float kLongestCaptureSec = 120.0f;

}  // namespace

float limitCaptureSec(float fSeconds) {
    if (!(fSeconds > 0.0f))  // NaN too
        return 0.0f;
    return fSeconds < kLongestCaptureSec ? fSeconds : kLongestCaptureSec;
}

std::optional<IQRequest> readIQRequest(const utils::VariantRecord& cParameters) {
    const std::optional<float> fCentre = cParameters.getNumber("FCentreHz");
    if (!fCentre) {
        reportTrace("FCentreHz not specified");
        return {};
    }
    const std::optional<float> fIFBW = cParameters.getNumber("IFBWHz");
    if (!fIFBW) {
        reportTrace("IFBWHz not specified");
        return {};
    }
    IQRequest cRequest{*fCentre, *fIFBW};
    cRequest.mfRefdBm = cParameters.getNumber("RefdBm").value_or(cRequest.mfRefdBm);
    cRequest.mfUserCaldB = cParameters.getNumber("UserCaldB").value_or(cRequest.mfUserCaldB);
    cRequest.mfCaptureSec = limitCaptureSec(cParameters.getNumber("captureSec").value_or(0.0f));
    return cRequest;
}
