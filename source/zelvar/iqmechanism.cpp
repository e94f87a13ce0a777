#include "zelvar/iqmechanism.h"

#include <cmath>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "receivers/quietwait.h"

using utils::formatText;
using utils::reportError;
using utils::reportTrace;
using namespace VITA49Zelvar;

namespace {

constexpr int32_t kUnusablePacketCode = -6019;
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
};

bool hasTrailerBit(const Packet& cPacket, uint32_t uBit) {
    return cPacket.trailer() && (*cPacket.trailer() >> uBit & 1u) != 0;
}

bool isLossy(const Packet& cPacket) {
    return cPacket.trailerHas(kSampleLossEnable, kSampleLoss);
}
bool isInverted(const Packet& cPacket) {
    return cPacket.trailerHas(kInversionEnable, kInversion);
}

/// Of the samples at the unit's full scale; minus infinity for a packet of zeros.
float levelOf(const IFData& cPacket) {
    return 20.0f * std::log10(static_cast<float>(cPacket.peak()) / kFullScale);
}

bool isUsable(const IFData& cPacket) {
    if (cPacket.isComplete() && cPacket.sampleCount() != 0)
        return true;
    reportError(kUnusablePacketCode, "IQ IFData packet incomplete or without samples dropped");
    return false;
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
                           const ModelRecord& cModel, const StreamRanges& cRanges, DataProtocol dataProtocol)
    : IQCaptureEngine("_IQMechanism", cContext, cStream, cRanges, kWords),
      mcModel(cModel),
      mcPlanRanges(cRanges),
      mcDataProtocol(std::move(dataProtocol)) {
    const utils::VariantRecord cParameters = cStream ? cStream->getParameters() : utils::VariantRecord();
    if (cParameters.getBool("adaptFull").value_or(false))
        mcRLA.set(makeReference<_RLAMechanism>(cContext, cParameters.getNumber("FCentreHz"), mcModel, cRanges));
}

_IQMechanism::~_IQMechanism() {
    releaseSinks();
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
    std::optional<IQPlan> cPlan = planIQ(cRequest, mcModel, mcPlanRanges, message, iCode);
    if (!cPlan) {
        reportError(iCode, message);
        return nullptr;
    }
    const ReferencePtr<ZelvarIQCapture> cCapture = makeReference<ZelvarIQCapture>();
    cCapture->mbFinite = cPlan->muPacketsPerBlock != 0;
    cCapture->mcCommands =
        cCapture->mbFinite ? finiteIQCommands(*cPlan, mcModel) : continuousIQCommands(*cPlan, mcModel);
    if (cPlan->muDecimation == 1 && !mcModel.mbDecimationOffAllowed)
        cCapture->mcRefusal =
            formatText("Decimation error for - IQ F:%.0f, B:%.0f is unrealizable",
                       static_cast<double>(cRequest.mfCentreHz), static_cast<double>(cRequest.mfIFBWHz));
    cCapture->mcRequest = cRequest;
    cCapture->mcRequest.mfCaptureSec = cPlan->mfCaptureSec;
    cCapture->muCaptureSamples = cPlan->muCaptureSamples;
    cCapture->mfSampleRateHz = cPlan->mfSampleRateHz;
    cCapture->mcMaxContiguousSec = cPlan->mcMaxContiguousSec;
    cCapture->mbContiguous = cPlan->mbContiguous;
    cCapture->mfLevelLow = cPlan->mfLevelLow;
    cCapture->mfLevelHigh = cPlan->mfLevelHigh;
    cCapture->mcPlan = std::move(*cPlan);
    return cCapture;
}

void _IQMechanism::drainInput() {
    if (const ReferencePtr<VITA49ZelvarProtocol> cProtocol = mcDataProtocol ? mcDataProtocol() : nullptr)
        drainVRTData(*cProtocol);
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
    const ReferencePtr<IQCapture> cCapture = capture();
    const int iExpected = cCapture ? static_cast<int>(cCapture->muIdentifier) : 0;
    if (cPacket->muStreamIdentifier != kAbsent32) {
        reportTrace(formatText("IQ handleExtensionContext (cont) streamID:%d (expected %d)",
                               static_cast<int>(cPacket->muStreamIdentifier), iExpected));
        noteIdentifier(cPacket->muStreamIdentifier);
    }
    if (cPacket->muSweepIdentifier != kAbsent32) {
        reportTrace(formatText("IQ handleExtensionContext (finite) sweepID:%d (expected %d)",
                               static_cast<int>(cPacket->muSweepIdentifier), iExpected));
        noteIdentifier(cPacket->muSweepIdentifier);
    }
}

ReferencePtr<ZelvarIQCapture> _IQMechanism::validCapture(const char* pWhenInvalid) {
    noteData();
    const ReferencePtr<IQCapture> cCapture = capture();
    if (cCapture && cCapture->mbDataValid)
        return ReferencePtr<ZelvarIQCapture>(static_cast<ZelvarIQCapture*>(cCapture.get()));
    reportTrace(pWhenInvalid);
    return nullptr;
}

// A gap in the frame numbers is how the application learns of lost samples.
void _IQMechanism::applyTrailer(IQFrame& cFrame, IQCapture& cCapture, const Packet& cPacket) {
    if (isLossy(cPacket)) {
        cFrame.setSequence(cCapture.takeSequence());
        if (!hasTrailerBit(cPacket, kValidDataEnable))
            appendStatus(cFrame, "invalid");
    }
    if (cPacket.trailerHas(kOverRangeEnable, kOverRange))
        appendStatus(cFrame, "overflow");
}

// Counted behind the delivery, so that a capture never looks complete while its last frame is on its way.
// During a capture only this thread writes the count.
void _IQMechanism::deliver(IQCapture& cCapture, const ReferencePtr<IQFrame>& cFrame, uint32_t uSamples) {
    deliverFrame(cFrame, false);
    cCapture.muSamplesDelivered += uSamples;
}

void _IQMechanism::handleIFDataIQ14(ReferencePtr<IFDataIQ14> cPacket) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        return cRLA->handleIFDataIQ14(cPacket);
    const ReferencePtr<ZelvarIQCapture> cCapture =
        validCapture("IQ handleIFDataIQ14 with mbIQStreamDataValid==false");
    if (!cCapture || !isUsable(*cPacket))
        return;
    const IQPlan& cPlan = cCapture->mcPlan;
    const ReferencePtr<ComplexArray> cSamples =
        cPacket->getScaledSamples(cCapture->gainFor(mfDigitizerReference), isInverted(*cPacket));
    const uint64_t uZeroth = cCapture->muSamplesDelivered;
    const ReferencePtr<IQFrame> cFrame =
        makeReference<IQFrame>(cCapture->takeSequence(), uZeroth, cPacket->timestampNs(), kNanoseconds,
                               cPlan.mfTunedCentreHz, cCapture->mcRequest.mfIFBWHz, cPlan.mfSampleRateHz,
                               cCapture->mcRequest.mfRefdBm, cSamples, kUnitsSqrtMilliwatt);
    cCapture->noteLevel(*cFrame, levelOf(*cPacket));
    applyTrailer(*cFrame, *cCapture, *cPacket);
    deliver(*cCapture, cFrame, cPacket->sampleCount());
}

void _IQMechanism::handleIFDataI14(ReferencePtr<IFDataI14> cPacket) {
    if (const ReferencePtr<_RLAMechanism> cRLA = mcRLA.get())
        return cRLA->handleIFDataI14(cPacket);
    const ReferencePtr<ZelvarIQCapture> cCapture =
        validCapture("IQ handleIFDataI14 with mbIQStreamDataValid==false");
    if (!cCapture || (cPacket && !isUsable(*cPacket)))
        return;
    const ReferencePtr<IOnlyFrame> cReal = _interpretI14(*cCapture, cPacket);
    const ReferencePtr<IQFrame> cFrame = cReal ? cReal->getIQ(cCapture->mcConversion) : nullptr;
    if (!cFrame)
        return;
    cFrame->setLevel(cReal->level());
    cFrame->setSubOptimal(cReal->isSubOptimal());
    applyTrailer(*cFrame, *cCapture, *cPacket);  // takes a second number for the same loss, deliberately
    deliver(*cCapture, cFrame, cPacket->sampleCount());
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

ReferencePtr<IQEngine> makeZelvarIQEngine(ReferencePtr<EngineContext> cContext,
                                          ReferencePtr<IQFrameSink> cStream, const ModelRecord& cModel,
                                          const StreamRanges& cRanges,
                                          std::function<ReferencePtr<VITA49ZelvarProtocol>()> dataProtocol) {
    return ReferencePtr<IQEngine>(
        new _IQMechanism(std::move(cContext), std::move(cStream), cModel, cRanges, std::move(dataProtocol)));
}

ZelvarPacketListener* packetListener(IQEngine& cEngine) {
    return dynamic_cast<_IQMechanism*>(&cEngine);
}
