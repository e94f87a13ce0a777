#include "receivers/iqengine.h"

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

using utils::formatText;
using utils::reportError;
using utils::reportTrace;

namespace {

constexpr int32_t kStopFailedCode = -6006;
constexpr int32_t kBatchFailedCode = -6009;
constexpr int32_t kBadSetupCode = -6017;
constexpr uint32_t kStartLimitMs = 2000;
constexpr uint32_t kHaltLimitMs = 5000;
constexpr uint32_t kQuietLimitMs = 5000;
constexpr uint32_t kStepMs = 10;
constexpr uint32_t kQuietMs = 100;
constexpr float kAdaptStepdB = 10.0f;
constexpr int32_t kUnusablePacketCode = -6019;

unsigned long long addressOf(const void* pObject) {
    return reinterpret_cast<uintptr_t>(pObject);
}

}  // namespace

void IQCapture::noteLevel(Frame& cFrame, float fLevel) {
    mbPacketSeen = true;
    cFrame.setLevel(fLevel);
    cFrame.setSubOptimal(fLevel < mfLevelLow || fLevel > mfLevelHigh);
    if (fLevel > mfPeakLevel)
        mfPeakLevel = fLevel;
}

void IQCapture::take(const IQRequest& cRequest, const CapturePlan& cPlan) {
    mcRequest = cRequest;
    mcRequest.mfCaptureSec = cPlan.mfCaptureSec;
    mbFinite = cPlan.muPacketsPerBlock != 0;
    mfTunedCentreHz = cPlan.mfTunedCentreHz;
    muCaptureSamples = cPlan.muCaptureSamples;
    mfSampleRateHz = cPlan.mfSampleRateHz;
    mcMaxContiguousSec = cPlan.mcMaxContiguousSec;
    mbContiguous = cPlan.mbContiguous;
    mfLevelLow = cPlan.mfLevelLow;
    mfLevelHigh = cPlan.mfLevelHigh;
}

IQCaptureEngine::IQCaptureEngine(std::string name, ReferencePtr<EngineContext> cContext,
                                 ReferencePtr<IQFrameSink> cStream, const StreamRanges& cRanges,
                                 const IQEngineWords& cWords)
    : IQEngine(std::move(name)), mcContext(std::move(cContext)), mcRanges(cRanges), mcWords(cWords) {
    if (!cStream || !mcContext)
        reportError(kBadSetupCode, mcWords.mpBadSetup);
    mcStream.set(std::move(cStream));
}

IQCaptureEngine::~IQCaptureEngine() {
    releaseSinks();
}

bool IQCaptureEngine::serves(const FrameSink* pSink) const {
    return pSink && mcStream.get().get() == pSink;
}

// The attaching thread and the first start may both come here; the second attach is refused and changes
// nothing.
void IQCaptureEngine::takeInStream() {
    const ReferencePtr<IQFrameSink> cStream = mcStream.get();
    if (mbTakenIn || !cStream)
        return;
    ErrorList lErrors;
    attachFrameSink(cStream, lErrors);
    mbTakenIn = true;
    // A detach that came in between found nothing to take out.
    if (!mcStream.get())
        IQEngine::removeFrameSink(cStream);
}

// Nobody waits for the frames of such an engine any more: it is never programmed again, and `process` lets it
// leave its list.
bool IQCaptureEngine::isEnding() const {
    return mbForceTerminate || !mcStream.get();
}

// The start.

bool IQCaptureEngine::start() {
    const ReferencePtr<IQFrameSink> cStream = mcStream.get();
    if (isEnding())
        return true;
    takeInStream();
    const utils::VariantRecord cParameters = cStream->getParameters();
    const std::optional<IQRequest> cRequest = readIQRequest(cParameters);
    const ReferencePtr<IQCapture> cCapture = cRequest ? plan(*cRequest) : nullptr;
    bool bStarted = false;
    if (cCapture) {
        writeBack(*cStream, cParameters, *cCapture);
        bStarted = program(cCapture);
    }
    if (!bStarted)
        mbStreaming = false;
    return bStarted;
}

// What the sink has a field for goes there, the rest beside its fields; both quietly, since a start must not
// bring about the next start.
void IQCaptureEngine::writeBack(IQFrameSink& cStream, const utils::VariantRecord& cParameters,
                                const IQCapture& cCapture) {
    const std::optional<float> fAsked = cParameters.getNumber("captureSec");
    if (fAsked && *fAsked != cCapture.mcRequest.mfCaptureSec) {
        utils::VariantRecord cLimited;
        cLimited.set("captureSec", cCapture.mcRequest.mfCaptureSec);
        ErrorList lErrors;
        cStream.setSinkParameters(cLimited, lErrors, true);
    }
    utils::VariantRecord cRealised;
    cRealised.set("SampleRateHz", cCapture.mfSampleRateHz);
    if (cCapture.mcMaxContiguousSec)
        cRealised.set("maxContiguousSec", *cCapture.mcMaxContiguousSec);
    else
        cStream.eraseBaseParameter("maxContiguousSec");
    if (cCapture.mbContiguous)
        cRealised.set("contiguous", true);
    else
        cStream.eraseBaseParameter("contiguous");
    cStream.setBaseParameters(cRealised);
}

bool IQCaptureEngine::program(const ReferencePtr<IQCapture>& cCapture) {
    const bool bRefused = !cCapture->mcRefusal.empty();
    mcContext->claimUnit();
    try {
        if (cCapture->mbFinite || !bRefused)
            mcContext->channel().sendBatch(cCapture->mcCommands);
    } catch (const std::string& text) {
        reportError(kBatchFailedCode, text);
        return false;
    }
    if (bRefused) {
        reportTrace(cCapture->mcRefusal);
        return false;
    }
    return arm(cCapture);
}

// From here on packets count into the new capture, and are dropped until the unit has named its identifier.
bool IQCaptureEngine::arm(const ReferencePtr<IQCapture>& cCapture) {
    cCapture->muIdentifier = mcContext->nextStreamIdentifier();
    mcCapture.set(cCapture);
    const int iIdentifier = static_cast<int>(cCapture->muIdentifier);
    if (cCapture->mbFinite) {
        reportTrace("no wait finite IQ stream start");
        mcContext->channel().send(formatText("SWEEP:LIST:START %d", iIdentifier));
    } else {
        reportTrace("no wait IQ stream start");
        mcContext->channel().send(formatText(":TRACe:STReam:STARt %d", iIdentifier));
    }
    return awaitData(*cCapture);
}

bool IQCaptureEngine::awaitData(const IQCapture& cCapture) {
    const uint64_t uLimit = utils::steadyMilliseconds() + kStartLimitMs;
    while (!cCapture.mbDataValid && utils::steadyMilliseconds() < uLimit &&
           !mcContext->channel().isStopping())
        utils::sleepMs(kStepMs);
    return cCapture.mbDataValid;
}

// On the polling thread. An identifier of another capture makes the data behind it that of another capture.
void IQCaptureEngine::noteIdentifier(uint32_t uIdentifier) {
    const ReferencePtr<IQCapture> cCapture = capture();
    if (!cCapture)
        return;
    const bool bOurs = uIdentifier == cCapture->muIdentifier;
    // The engine streams before its start can see that the data is valid.
    if (bOurs) {
        reportTrace("mbIQStreamDataValid");
        mbStreaming = true;
    }
    cCapture->mbDataValid = bOurs;
}

void IQCaptureEngine::noteIdentifiers(const VRT::CaptureFields& cFields) {
    const ReferencePtr<IQCapture> cCapture = capture();
    const int iExpected = cCapture ? static_cast<int>(cCapture->muIdentifier) : 0;
    const auto note = [&](const char* pWhat, uint32_t uIdentifier) {
        if (uIdentifier == VRT::kAbsent32)
            return;
        reportTrace(formatText("%s:%d (expected %d)", pWhat, static_cast<int>(uIdentifier), iExpected));
        noteIdentifier(uIdentifier);
    };
    note(mcWords.mpStreamIdentifier, cFields.muStreamIdentifier);
    note(mcWords.mpSweepIdentifier, cFields.muSweepIdentifier);
}

// Packets, on the polling thread.

ReferencePtr<IQCapture> IQCaptureEngine::validCapture(const char* pWhenInvalid) {
    noteData();
    ReferencePtr<IQCapture> cCapture = capture();
    if (cCapture && cCapture->mbDataValid)
        return cCapture;
    reportTrace(pWhenInvalid);
    return nullptr;
}

bool IQCaptureEngine::isUsable(const VRT::PacketFields& cPacket, const VRT::SampleFields& cSamples) {
    if (cPacket.isComplete() && cSamples.sampleCount() != 0)
        return true;
    reportError(kUnusablePacketCode, "IQ IFData packet incomplete or without samples dropped");
    return false;
}

bool IQCaptureEngine::isLossy(const VRT::PacketFields& cPacket) {
    return cPacket.trailerHas(VRT::kSampleLossEnable, VRT::kSampleLoss);
}

void IQCaptureEngine::deliverSamples(IQCapture& cCapture, const VRT::PacketFields& cPacket,
                                     const ReferencePtr<ComplexArray>& cSamples, float fLevel) {
    const uint64_t uZeroth = cCapture.muSamplesDelivered;
    const ReferencePtr<IQFrame> cFrame =
        makeReference<IQFrame>(cCapture.takeSequence(), uZeroth, cPacket.timestampNs(), kNanoseconds,
                               cCapture.mfTunedCentreHz, cCapture.mcRequest.mfIFBWHz, cCapture.mfSampleRateHz,
                               cCapture.mcRequest.mfRefdBm, cSamples, kUnitsSqrtMilliwatt);
    cCapture.noteLevel(*cFrame, fLevel);
    deliverPacket(cCapture, cPacket, cFrame, cSamples->getActive());
}

// A gap in the frame numbers is how the application learns of lost samples. The samples are counted behind the
// delivery, so that a capture never looks complete while its last frame is on its way; during a capture only this
// thread writes the count.
void IQCaptureEngine::deliverPacket(IQCapture& cCapture, const VRT::PacketFields& cPacket,
                                    const ReferencePtr<IQFrame>& cFrame, uint32_t uSamples) {
    if (isLossy(cPacket)) {
        cFrame->setSequence(cCapture.takeSequence());
        if ((*cPacket.trailer() >> VRT::kValidDataEnable & 1u) == 0)
            appendStatus(*cFrame, "invalid");
    }
    if (cPacket.trailerHas(VRT::kOverRangeEnable, VRT::kOverRange))
        appendStatus(*cFrame, "overflow");
    deliverFrame(cFrame, false);
    cCapture.muSamplesDelivered += uSamples;
}

// The turn and the stop.

bool IQCaptureEngine::process() {
    const ReferencePtr<IQCapture> cCapture = capture();
    const bool bEnding = isEnding();
    if (!bEnding && !(cCapture && cCapture->isComplete()))
        return true;
    if (!cCapture || !cCapture->mbFinite) {
        reportTrace(mcWords.mpStopsAtCount);
        // A detach that came before the data waits for no halt: the unit is left idle here.
        stop(bEnding && !mbForceTerminate);
    } else {
        reportTrace(bEnding ? mcWords.mpForceTerminated : mcWords.mpCompleted);
    }
    mbStreaming = false;
    return false;
}

void IQCaptureEngine::stop(bool bQuiesce) {
    const ReferencePtr<IQCapture> cCapture = capture();
    if (!mbStreaming || !cCapture)
        return;
    if (!cCapture->mbFinite) {
        mcContext->channel().sendCommandAndPoll(":TRACe:STReam:STOP; :SYSTEM:FLUSH", "", "");
        reportTrace("Issued :TRACe:STReam:STOP");
        mbStreaming = false;
        if (bQuiesce && !quiesce())
            return;
    } else {
        reportTrace("Not issuing unnecessary SweepListStop - it is done...");
    }
    adaptStep();
}

bool IQCaptureEngine::quiesce() {
    CommandChannel& cChannel = mcContext->channel();
    if (!cChannel.sendCommandAndPoll("", ":SYSTem:CAPTure:MODE?", "BLOCK") &&
        !cChannel.sendCommandAndPoll("SYSTem:ABORt", ":SYSTem:CAPTure:MODE?", "BLOCK")) {
        reportError(kStopFailedCode, formatText("Device %s failed to stop", mcContext->deviceName().c_str()));
        return false;
    }
    cChannel.send(":SYSTEM:FLUSH");
    drainInput();
    return true;
}

// A capture that brought no packet says nothing about the level, and a restart without data would otherwise
// step down again and again.
void IQCaptureEngine::adaptStep() {
    const ReferencePtr<IQFrameSink> cStream = mcStream.get();
    const ReferencePtr<IQCapture> cCapture = capture();
    if (!mcWords.mbAdaptsStep || !cStream || !cCapture || !cCapture->mbPacketSeen)
        return;
    const utils::VariantRecord cParameters = cStream->getParameters();
    if (!cParameters.getBool("adaptStep").value_or(false))
        return;
    float fReference = cParameters.getNumber("RefdBm").value_or(-30.0f);
    if (cCapture->mfPeakLevel > cCapture->mfLevelHigh)
        fReference += kAdaptStepdB;
    else if (cCapture->mfPeakLevel < cCapture->mfLevelLow)
        fReference -= kAdaptStepdB;
    else
        return;
    if (!mcRanges.mcReferenceLevel.contains(fReference))
        return;
    // Not quiet: the change starts the capture again.
    utils::VariantRecord cStep;
    cStep.set("RefdBm", fReference);
    ErrorList lErrors;
    cStream->setSinkParameters(cStep, lErrors, false);
}

// The halt protocol.

bool IQCaptureEngine::syncHaltStream() {
    if (!mbStreaming)
        return false;
    reportTrace(formatText("::syncHaltStream called on IQEngine 0x%016llx", addressOf(this)));
    mbForceTerminate = true;
    const uint64_t uLimit = utils::steadyMilliseconds() + kHaltLimitMs;
    while (!mbHalted) {
        if (utils::steadyMilliseconds() >= uLimit)
            return false;
        if (mcHaltSyncBarrier.wait(uint64_t{kStepMs} * 1000))
            return true;
    }
    return true;
}

bool IQCaptureEngine::waitForEndOfVRTData() {
    const uint64_t uLimit = utils::steadyMilliseconds() + kQuietLimitMs;
    bool bQuiet = false;
    do {
        mbDataSeen = false;
        utils::sleepMs(kQuietMs);
        bQuiet = !mbDataSeen;
    } while (!bQuiet && utils::steadyMilliseconds() < uLimit && !mcContext->channel().isStopping());
    reportTrace(formatText("::_waitForEndOfVRTData - bWaitSuccess=%s", bQuiet ? "true" : "false"));
    return bQuiet;
}

bool IQCaptureEngine::terminate() {
    reportTrace(formatText("::terminate called on IQEngine 0x%016llx", addressOf(this)));
    deliverFrame(nullptr, true);
    return true;
}

void IQCaptureEngine::notifyHalted() {
    reportTrace("::notifyHalted");
    mbHalted = true;
    mcHaltSyncBarrier.signal();
}

void IQCaptureEngine::linkChanged() {
    mcCapture.set(nullptr);
    mbStreaming = false;
}

// The stream's side, on any thread.

bool IQCaptureEngine::isExhausted() {
    const ReferencePtr<IQCapture> cCapture = capture();
    return cCapture && cCapture->isComplete();
}

bool IQCaptureEngine::removeFrameSink(ReferencePtr<FrameSink> cSink) {
    ReferencePtr<IQFrameSink> cLast;
    if (!cSink || serves(cSink.get()))
        cLast = mcStream.exchange(nullptr);
    return IQEngine::removeFrameSink(std::move(cSink));
}

bool IQCaptureEngine::parametersChanged(ReferencePtr<FrameSink>) {
    mbRestart = true;
    return true;
}

bool IQCaptureEngine::canImplement(ReferencePtr<FrameSink>, utils::VariantRecord& cRecord,
                                   ErrorList& lErrors) {
    return canImplementIQ(cRecord, mcRanges, lErrors);
}

void IQCaptureEngine::kick() {
    mcContext->channel().send("SYST:COMM:LAN:IP 0.0.0.0");
    reportTrace("::kick no-op SCPI traffic sent");
}

void IQCaptureEngine::appendStatus(Frame& cFrame, const char* pText) {
    const ReferencePtr<utils::VariantRecord> cExtras = cFrame.getExtras();
    const std::string earlier = cExtras->getText("status").value_or("");
    cExtras->set("status", earlier.empty() ? std::string(pText) : earlier + ", " + pText);
}
