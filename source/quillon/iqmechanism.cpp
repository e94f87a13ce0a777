#include "quillon/iqmechanism.h"

#include <cmath>

#include "foundations/runtimeerrors.h"
#include "quillon/iqplan.h"
#include "quillon/tuning.h"

namespace Quillon {

namespace {

constexpr float kFullScale = 32768.0f;

}  // namespace

constexpr IQEngineWords _IQMechanism::kWords = {
    .mpBadSetup = "Bad setup of _IQMechanism",
    .mpStopsAtCount = "issuing stop for continuous IQ capture (not self-terminating)",
    .mpForceTerminated = "stream force-terminated or finite capture completed",
    .mpCompleted = "stream force-terminated or finite capture completed",
    .mpStreamIdentifier = "IQ handleExtensionContext streamID",
    .mpSweepIdentifier = "IQ handleExtensionContext (finite) streamID",
    .mbAdaptsStep = false,
};

ReferencePtr<IQCapture> _IQMechanism::plan(const IQRequest& cRequest) {
    std::string message;
    int32_t iCode = 0;
    const std::optional<IQPlan> cPlan = planIQ(cRequest, ranges(), message, iCode);
    utils::reportError(iCode, message);
    if (!cPlan)
        return nullptr;
    const ReferencePtr<IQCapture> cCapture = makeReference<IQCapture>();
    cCapture->take(cRequest, *cPlan);
    cCapture->mcCommands = cCapture->mbFinite ? finiteIQCommands(*cPlan) : continuousIQCommands(*cPlan);
    return cCapture;
}

void _IQMechanism::handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) {
    const Tuning cTuning = readTuning(*cPacket);
    mfReferenceLevel = cTuning.mcReferenceLevel.value_or(mfReferenceLevel);
}

void _IQMechanism::handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) {
    noteIdentifiers(*cPacket);
}

void _IQMechanism::handleIFData(ReferencePtr<VITA49::IFData> cPacket) {
    const ReferencePtr<IQCapture> cCapture = validCapture("IQ handleIFData with mbIQStreamDataValid==false");
    if (!cCapture || !isUsable(*cPacket, *cPacket))
        return;
    const ReferencePtr<ComplexArray> cSamples = cPacket->getScaledSamples(std::pow(10.0f, mfReferenceLevel / 20.0f));
    if (!cSamples) {
        utils::reportTrace("IQ data packet decoding failed");
        return;
    }
    const float fLevel = 20.0f * std::log10(static_cast<float>(cPacket->peak()) / kFullScale);
    deliverSamples(*cCapture, *cPacket, cSamples, fLevel);
}

}  // namespace Quillon
