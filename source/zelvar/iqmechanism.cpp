#include "zelvar/iqmechanism.h"

#include <cmath>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

using utils::formatText;
using utils::reportError;
using utils::reportTrace;
using namespace VITA49Zelvar;

namespace {

constexpr float kNoReference = -1000.0f;
constexpr float kHertzPerStep = 0x1p-20f;
constexpr float kFullScale = 8192.0f;
constexpr float kFullRateHz = 125000000.0f;
constexpr float kIntermediateHz = 35000000.0f;
constexpr float kHalfUsableHz = 20000000.0f;
constexpr float kDirectLowestHz = 9000.0f;
constexpr float kDirectHighestHz = 50000000.0f;

constexpr IQEngineWords kWords = {
    "Bad setup of _IQMechanism",
    "::process issuing stop for non-self-terminating finite IQ capture",
    "::process stream force-terminated",
    "::process finite capture completed",
    "IQ handleExtensionContext (cont) streamID",
    "IQ handleExtensionContext (finite) sweepID",
};

bool isInverted(const Packet& cPacket) {
    return cPacket.trailerHas(kInversionEnable, kInversion);
}

/// Of the samples at the unit's full scale; minus infinity for a packet of zeros.
float levelOf(const IFData& cPacket) {
    return 20.0f * std::log10(static_cast<float>(cPacket.peak()) / kFullScale);
}

}  // namespace

float ZelvarIQCapture::gainFor(float fDigitizerReference) {
    if (mcGainReference != fDigitizerReference) {
        mcGainReference = fDigitizerReference;
        mfGain = std::pow(10.0f, (fDigitizerReference + 15.7678f - 3.0f + mcRequest.mfUserCaldB) / 20.0f);
    }
    return mfGain;
}

_IQMechanism::_IQMechanism(ReferencePtr<EngineContext> cContext, ReferencePtr<IQFrameSink> cStream,
                           const ModelRecord& cModel, const StreamRanges& cRanges,
                           DataProtocolSource<VITA49ZelvarProtocol> protocol)
    : PacketIQEngine(cContext, cStream, cRanges, kWords, std::move(protocol)), mcModel(cModel) {
    const utils::VariantRecord cParameters = cStream ? cStream->getParameters() : utils::VariantRecord();
    if (cParameters.getBool("adaptFull").value_or(false))
        mcRLA.set(makeReference<_RLAMechanism>(cContext, cParameters.getNumber("FCentreHz"), mcModel, cRanges));
}

// Adaptation.

void _IQMechanism::takeInStream() {
    if (!mcRLA.get())
        IQCaptureEngine::takeInStream();
}

bool _IQMechanism::start() {
    const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get();
    return cRLA && !isEnding() ? cRLA->start() : IQCaptureEngine::start();
}

void _IQMechanism::stop(bool bQuiesce) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        cRLA->stop();
    else
        IQCaptureEngine::stop(bQuiesce);
}

bool _IQMechanism::process() {
    const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get();
    if (!cRLA || isEnding())
        return IQCaptureEngine::process();
    if (cRLA->isFinished())
        endAdaptation(*cRLA);
    return true;
}

void _IQMechanism::endAdaptation(const _RLAMechanism& cRLA) {
    reportTrace("RLAMechanism detach");
    if (const ReferencePtr<IQFrameSink> cStream = stream()) {
        utils::VariantRecord cResult;
        cResult.set("RefdBm", cRLA.result());
        ErrorList lErrors;
        cStream->setSinkParameters(cResult, lErrors, true);
    }
    mcRLA.set(nullptr);
    takeInStream();
    if (!start())
        parametersChanged(nullptr);   // the next pass tries again
}

ReferencePtr<IQCapture> _IQMechanism::plan(const IQRequest& cRequest) {
    std::string message;
    int32_t iCode = 0;
    std::optional<IQPlan> cPlan = planIQ(cRequest, mcModel, ranges(), message, iCode);
    if (!cPlan) {
        reportError(iCode, message);
        return nullptr;
    }
    const ReferencePtr<ZelvarIQCapture> cCapture = makeReference<ZelvarIQCapture>();
    cCapture->take(cRequest, *cPlan);
    cCapture->mcCommands =
        cCapture->mbFinite ? finiteIQCommands(*cPlan, mcModel) : continuousIQCommands(*cPlan, mcModel);
    if (cPlan->muDecimation == 1 && !mcModel.mbDecimationOffAllowed)
        cCapture->mcRefusal =
            formatText("Decimation error for - IQ F:%.0f, B:%.0f is unrealizable",
                       static_cast<double>(cRequest.mfCentreHz), static_cast<double>(cRequest.mfIFBWHz));
    cCapture->mcPlan = std::move(*cPlan);
    return cCapture;
}

// Packets, on the polling thread.

void _IQMechanism::handleReceiverContext(ReferencePtr<ReceiverContext> cPacket) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        return cRLA->handleReceiverContext(cPacket);
    reportTrace("IQ handleReceiverContext");
    if (cPacket->muRFFrequency != kAbsent64)
        mfReportedTuningHz = static_cast<float>(cPacket->muRFFrequency) * kHertzPerStep;
}

void _IQMechanism::handleDigitizerContext(ReferencePtr<DigitizerContext> cPacket) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        return cRLA->handleDigitizerContext(cPacket);
    if (cPacket->mfReferenceLevel != kNoReference)
        mfDigitizerReference = cPacket->mfReferenceLevel;
    reportTrace("IQ handleDigitizerContext");
}

void _IQMechanism::handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        return cRLA->handleExtensionContext(cPacket);
    reportTrace("IQ handleExtensionContext");
    noteIdentifiers(*cPacket);
}

ReferencePtr<ZelvarIQCapture> _IQMechanism::validCapture(const char* pWhenInvalid) {
    return ReferencePtr<ZelvarIQCapture>(
        static_cast<ZelvarIQCapture*>(IQCaptureEngine::validCapture(pWhenInvalid).get()));
}

void _IQMechanism::handleIFDataIQ14(ReferencePtr<IFDataIQ14> cPacket) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        return cRLA->handleIFDataIQ14(cPacket);
    const ReferencePtr<ZelvarIQCapture> cCapture =
        validCapture("IQ handleIFDataIQ14 with mbIQStreamDataValid==false");
    if (!cCapture || !isUsable(*cPacket, *cPacket))
        return;
    const ReferencePtr<ComplexArray> cSamples =
        cPacket->getScaledSamples(cCapture->gainFor(mfDigitizerReference), isInverted(*cPacket));
    deliverSamples(*cCapture, *cPacket, cSamples, levelOf(*cPacket));
}

void _IQMechanism::handleIFDataI14(ReferencePtr<IFDataI14> cPacket) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        return cRLA->handleIFDataI14(cPacket);
    const ReferencePtr<ZelvarIQCapture> cCapture =
        validCapture("IQ handleIFDataI14 with mbIQStreamDataValid==false");
    if (!cCapture || (cPacket && !isUsable(*cPacket, *cPacket)))
        return;
    const ReferencePtr<IOnlyFrame> cReal = _interpretI14(*cCapture, cPacket);
    const ReferencePtr<IQFrame> cFrame = cReal ? cReal->getIQ(cCapture->mcConversion) : nullptr;
    if (!cFrame)
        return;
    cFrame->setLevel(cReal->level());
    cFrame->setSubOptimal(cReal->isSubOptimal());
    // Takes a second number for the same loss, deliberately.
    deliverPacket(*cCapture, *cPacket, cFrame, cPacket->sampleCount());
}

ReferencePtr<IOnlyFrame> _IQMechanism::_interpretI14(ZelvarIQCapture& cCapture,
                                                     const ReferencePtr<IFDataI14>& cI14) {
    if (!cI14) {
        reportTrace("_interpretI14 called with cI14==nullptr");
        return nullptr;
    }
    if (isLossy(*cI14))
        cCapture.takeSequence();
    const ReferencePtr<FloatArray> cSamples = cI14->getScaledSamples(cCapture.gainFor(mfDigitizerReference));
    const float fTuning = mfReportedTuningHz;
    IOnlyFrame::Band cBand{kIntermediateHz, fTuning - kHalfUsableHz, fTuning + kHalfUsableHz,
                           isInverted(*cI14)};
    if (cCapture.mcPlan.mbDirectDigitization)
        cBand = {0.0f, kDirectLowestHz, kDirectHighestHz, isInverted(*cI14)};
    const uint64_t uZeroth = cCapture.muSamplesDelivered;
    const ReferencePtr<IOnlyFrame> cFrame =
        makeReference<IOnlyFrame>(cCapture.takeSequence(), uZeroth, cI14->timestampNs(), kNanoseconds,
                                  fTuning, cBand.mfMaxUsableHz - cBand.mfMinUsableHz, kFullRateHz,
                                  cCapture.mcRequest.mfRefdBm, cBand, cSamples, kUnitsSqrtMilliwatt);
    cCapture.noteLevel(*cFrame, levelOf(*cI14));
    return cFrame;
}
