#include "zelvar/zelvarreceiver.h"

#include "dsp/windowfunctions.h"
#include "foundations/runtimeerrors.h"
#include "zelvar/deviceparameters.h"
#include "zelvar/iqmechanism.h"
#include "zelvar/sweepmechanism.h"
#include "zelvar/status.h"

namespace {

constexpr int32_t kUnexpectedPacket = -6019;
constexpr uint32_t kEndLimitMs = 2000;
constexpr uint32_t kIdleMs = 100;

}  // namespace

ZelvarReceiver::~ZelvarReceiver() {
    releaseSinks();
    letGoOfLink();
    mcScheduler.releaseAll();
}

void ZelvarReceiver::destroySelf() noexcept {
    retire(kEndLimitMs, [this] { delete this; });
}

// Parameters

utils::VariantRecord ZelvarReceiver::getParameterInfo() {
    return deviceParameterInfo(mcModel.mbGNSS);
}

utils::VariantRecord ZelvarReceiver::getParameters() {
    mcStatus->refresh(mcChannel->protocol());
    utils::VariantRecord cRecord = mcStoredParameters;
    const DeviceState cState = {.mfSampleRateHz = mcModel.mfSampleRateHz,
                                .mbFlatten = static_cast<bool>(mcFlatten),
                                .mbSweepActive = static_cast<bool>(mcScheduler.activeSweep()),
                                .mbIQActive = static_cast<bool>(mcScheduler.activeIQ()),
                                .muQueryTimeoutMs = mcChannel->queryTimeoutMs(),
                                .mbGNSS = mcModel.mbGNSS};
    addDeviceParameters(cRecord, cState, mcStatus->fields());
    return cRecord;
}

void ZelvarReceiver::setParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    takeDeviceParameters(cRecord, lErrors, {*mcChannel, *mcStatus, mbInhibitContinuousSweep});
    Entity::setParameters(cRecord, lErrors);
}

bool ZelvarReceiver::sendRawCommand(const std::string& text) {
    return mcChannel->send(text);
}

bool ZelvarReceiver::queryRaw(const std::string& query, std::string& reply) {
    reply = mcChannel->query(query);
    return !reply.empty();
}

// Ranges

bool ZelvarReceiver::testLink() {
    return mcChannel->querySystemError().empty();
}

FloatRange ZelvarReceiver::centreRange() const {
    return {mcModel.mfLowestHz, mcModel.mfHighestHz};
}

FloatRange ZelvarReceiver::sweepRange() const {
    return centreRange();
}

FloatRange ZelvarReceiver::rbwRange() const {
    return {1.0f, 10000000.0f};
}

FloatRange ZelvarReceiver::ifbwRange() const {
    return {100000.0f, 40000000.0f};
}

FloatRange ZelvarReceiver::referenceLevelRange() const {
    return {-80.0f, 20.0f};
}

// Streams

bool ZelvarReceiver::attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) {
    if (const auto cStream = dynamicReferenceCast<IQFrameSink>(cNewSink))
        attachStream(cStream, lErrors);
    else if (const auto cSpectra = dynamicReferenceCast<SpectrumFrameSink>(cNewSink))
        _attachSpectrumStream(cSpectra, lErrors);
    else
        lErrors.push_back("Frame sink attach failed");
    return lErrors.empty();
}

void ZelvarReceiver::attachStream(const ReferencePtr<IQFrameSink>& cSink, ErrorList& lMessages) {
    const utils::VariantRecord cParameters = cSink->getParameters();
    const StreamRanges cRanges = streamRanges();
    if (!canImplementIQ(cParameters, cRanges, lMessages)) {
        lMessages.push_back("Cannot implement IQ stream");
        return;
    }
    mcScheduler.attachIQ(
        cSink,
        [&] {
            return makeZelvarIQEngine(mcContext, cSink, mcModel, cRanges,
                                      [cLink = mcEngineLink] { return cLink->get(); });
        },
        lMessages);
}

void ZelvarReceiver::_attachSpectrumStream(const ReferencePtr<SpectrumFrameSink>& cSink,
                                           ErrorList& lMessages) {
    const StreamRanges cRanges = streamRanges();
    const utils::VariantRecord cParameters = cSink->getParameters();
    if (!canImplementSpectrum(cParameters, cRanges, lMessages)) {
        lMessages.push_back("Spectrum stream attach failed");
        return;
    }
    if (cParameters.getText("WindowFn").value_or("").empty()) {
        utils::VariantRecord cWindow;
        cWindow.set("WindowFn", WindowFunctions::defaultWindowName());
        ErrorList lErrors;
        cSink->setSinkParameters(cWindow, lErrors, true);
    }
    mcScheduler.attachSweep(
        cSink,
        [&] {
            return ReferencePtr<SweepEngine>(new _SweepMechanism(
                mcContext, cSink, mcModel, cRanges, [cLink = mcEngineLink] { return cLink->get(); }, mcFlatten));
        },
        lMessages);
}

bool ZelvarReceiver::removeFrameSink(ReferencePtr<FrameSink> cSink) {
    utils::reportTrace("::removeFrameSink called...");
    if (dynamicReferenceCast<SpectrumFrameSink>(cSink))
        return mcScheduler.detachSweep(cSink);
    return dynamicReferenceCast<IQFrameSink>(cSink) && mcScheduler.detachIQ(cSink);
}

// Packets

/// Null once the end of the receiver has begun: its packets are nobody's then.
ReferencePtr<ZelvarReceiver> ZelvarReceiver::holdSelf() {
    return tryAddReference() ? ReferencePtr<ZelvarReceiver>::adopt(this) : ReferencePtr<ZelvarReceiver>();
}

/// The caller holds the receiver, until after this has returned.
template <typename Call>
void ZelvarReceiver::dispatch(const char* pUnexpected, Call call) {
    mcLinkWatch->stamp();
    if (const ReferencePtr<IQEngine> cIQ = mcScheduler.activeIQ()) {
        if (ZelvarPacketListener* pListener = packetListener(*cIQ))
            call(*pListener);
        return;
    }
    if (const ReferencePtr<SweepEngine> cSweep = mcScheduler.activeSweep()) {
        if (auto* pListener = dynamic_cast<ZelvarPacketListener*>(cSweep.get()))
            call(*pListener);
        return;
    }
    utils::reportError(kUnexpectedPacket, pUnexpected);
}

void ZelvarReceiver::handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) {
    if (const auto cSelf = holdSelf())
        dispatch("Unexpected ReceiverContext", [&](auto& cTo) { cTo.handleReceiverContext(cPacket); });
}

void ZelvarReceiver::handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) {
    const auto cSelf = holdSelf();
    if (!cSelf)
        return;
    if (cPacket->mbHasGNSS)
        mcStatus->takeFix(cPacket->mcGNSS);
    dispatch("Unexpected DigitizerContext", [&](auto& cTo) { cTo.handleDigitizerContext(cPacket); });
}

void ZelvarReceiver::handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) {
    if (const auto cSelf = holdSelf())
        dispatch("Unexpected ExtensionContext", [&](auto& cTo) { cTo.handleExtensionContext(cPacket); });
}

void ZelvarReceiver::handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) {
    if (const auto cSelf = holdSelf())
        dispatch("Unexpected IFDataIQ14", [&](auto& cTo) { cTo.handleIFDataIQ14(cPacket); });
}

void ZelvarReceiver::handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) {
    const auto cSelf = holdSelf();
    if (!cSelf)
        return;
    mbI14Seen.store(true, std::memory_order_relaxed);
    dispatch("Unexpected IFDataI14", [&](auto& cTo) { cTo.handleIFDataI14(cPacket); });
}

void ZelvarReceiver::handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24> cPacket) {
    if (const auto cSelf = holdSelf())
        dispatch("Unexpected IFDataI24", [&](auto& cTo) { cTo.handleIFDataI24(cPacket); });
}

// The receiver thread

void ZelvarReceiver::run() {
    try {
        while (!isStopping())
            mcScheduler.pass();
    } catch (...) {
        // An engine that this thread no longer serves must not go on taking packets.
        mcScheduler.clearActive();
        throw;
    }
    mcScheduler.clearActive();
    utils::reportTrace("ZelvarReceiverThread exits");
}

bool ZelvarReceiver::recoverAccess() {
    return mcChannel->recoverAccess();
}

void ZelvarReceiver::idle() {
    utils::reportTrace("run into wait");
    checkLink();
    sleep(kIdleMs);
    utils::reportTrace("run exit wait");
}

void ZelvarReceiver::wake() {
    notify();
}

bool ZelvarReceiver::inhibitsContinuousSweep() const {
    return mbInhibitContinuousSweep.load(std::memory_order_relaxed);
}
