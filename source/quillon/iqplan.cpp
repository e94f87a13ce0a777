#include "quillon/iqplan.h"

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "quillon/ranges.h"
#include "quillon/referencelevel.h"

namespace Quillon {

namespace {

constexpr uint32_t kSmallestDecimation = 1;
constexpr CaptureLimits kLimits{kLargestPacket, 33554432};

}  // namespace

std::optional<IQPlan> planIQ(const IQRequest& cRequest, const StreamRanges& cRanges, std::string& message,
                             int32_t& iCode) {
    const float fIFBW = cRequest.mfIFBWHz;
    IQPlan cPlan;
    if (!isRealizable(cRequest, cRanges, message, iCode))
        return {};
    if (!chooseDecimation(kSampleRateHz, neededRateHz(fIFBW), kSmallestDecimation, cPlan)) {
        refuseBandwidth(fIFBW, message, iCode);
        return {};
    }
    message = utils::formatText("For IFBW:%.0f chose decimation %d, filter ratio %f, sample rate %f",
                                static_cast<double>(fIFBW), static_cast<int>(cPlan.muDecimation),
                                static_cast<double>(fIFBW / cPlan.mfSampleRateHz),
                                static_cast<double>(cPlan.mfSampleRateHz));
    iCode = utils::kTraceCode;
    cPlan.mfTunedCentreHz = cRequest.mfCentreHz;
    cPlan.miReferenceLevel = referenceSetting(cRequest.mfRefdBm);
    cPlan.mfCaptureSec = limitCaptureSec(cRequest.mfCaptureSec);
    setLevelBounds(cPlan);
    cPlan.muSamplesPerPacket = packetOfTenthSecond(cPlan.mfSampleRateHz, kLargestPacket);
    planSamples(kLimits, cPlan);
    return cPlan;
}

}  // namespace Quillon
