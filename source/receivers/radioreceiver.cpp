#include "receivers/radioreceiver.h"

#include "dsp/windowfunctions.h"
#include "foundations/runtimeerrors.h"
#include "receivers/deviceparameters.h"
#include "receivers/unitstatus.h"

namespace {

constexpr uint32_t kEndLimitMs = 2000;
constexpr uint32_t kIdleMs = 100;

}  // namespace

RadioReceiver::~RadioReceiver() = default;

void RadioReceiver::endReceiver() {
    releaseSinks();
    letGoOfLink();
    mcScheduler.releaseAll();
}

void RadioReceiver::destroySelf() noexcept {
    retire(kEndLimitMs, [this] { delete this; });
}

// Parameters

utils::VariantRecord RadioReceiver::getParameterInfo() {
    return deviceParameterInfo(mcStatus->isGNSSFitted());
}

utils::VariantRecord RadioReceiver::getParameters() {
    mcStatus->refresh(mcChannel->protocol());
    utils::VariantRecord cRecord = mcStoredParameters;
    const DeviceState cState = {.mfSampleRateHz = sampleRate(),
                                .mbFlatten = static_cast<bool>(mcFlatten),
                                .mbSweepActive = static_cast<bool>(mcScheduler.activeSweep()),
                                .mbIQActive = static_cast<bool>(mcScheduler.activeIQ()),
                                .muQueryTimeoutMs = mcChannel->queryTimeoutMs(),
                                .mbGNSS = mcStatus->isGNSSFitted()};
    addDeviceParameters(cRecord, cState, mcStatus->fields());
    return cRecord;
}

void RadioReceiver::setParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    takeDeviceParameters(cRecord, lErrors, {*mcChannel, *mcStatus, inhibitFlag()});
    Entity::setParameters(cRecord, lErrors);
}

bool RadioReceiver::sendRawCommand(const std::string& text) {
    return mcChannel->send(text);
}

bool RadioReceiver::queryRaw(const std::string& query, std::string& reply) {
    reply = mcChannel->query(query);
    return !reply.empty();
}

bool RadioReceiver::testLink() {
    return mcChannel->querySystemError().empty();
}

// Streams

bool RadioReceiver::attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) {
    if (const auto cStream = dynamicReferenceCast<IQFrameSink>(cNewSink))
        attachStream(cStream, lErrors);
    else if (const auto cSpectra = dynamicReferenceCast<SpectrumFrameSink>(cNewSink))
        _attachSpectrumStream(cSpectra, lErrors);
    else
        lErrors.push_back("Frame sink attach failed");
    return lErrors.empty();
}

void RadioReceiver::attachStream(const ReferencePtr<IQFrameSink>& cSink, ErrorList& lMessages) {
    const utils::VariantRecord cParameters = cSink->getParameters();
    const StreamRanges cRanges = streamRanges();
    if (!canImplementIQ(cParameters, cRanges, lMessages)) {
        lMessages.push_back(mcWords.mpIQRefused);
        return;
    }
    mcScheduler.attachIQ(cSink, [&] { return makeIQEngine(cSink, cRanges); }, lMessages);
}

void RadioReceiver::_attachSpectrumStream(const ReferencePtr<SpectrumFrameSink>& cSink, ErrorList& lMessages) {
    const StreamRanges cRanges = streamRanges();
    const utils::VariantRecord cParameters = cSink->getParameters();
    if (!canImplementSpectrum(cParameters, cRanges, lMessages)) {
        lMessages.push_back(mcWords.mpSpectrumRefused);
        return;
    }
    if (cParameters.getText("WindowFn").value_or("").empty()) {
        utils::VariantRecord cWindow;
        cWindow.set("WindowFn", WindowFunctions::defaultWindowName());
        ErrorList lErrors;
        cSink->setSinkParameters(cWindow, lErrors, true);
    }
    mcScheduler.attachSweep(cSink, [&] { return makeSweepEngine(cSink, cRanges); }, lMessages);
}

bool RadioReceiver::removeFrameSink(ReferencePtr<FrameSink> cSink) {
    utils::reportTrace("::removeFrameSink called...");
    if (dynamicReferenceCast<SpectrumFrameSink>(cSink))
        return mcScheduler.detachSweep(cSink);
    return dynamicReferenceCast<IQFrameSink>(cSink) && mcScheduler.detachIQ(cSink);
}

// The receiver thread

void RadioReceiver::run() {
    try {
        while (!isStopping())
            mcScheduler.pass();
    } catch (...) {
        // An engine that this thread no longer serves must not go on taking packets.
        mcScheduler.clearActive();
        throw;
    }
    mcScheduler.clearActive();
    utils::reportTrace(mcWords.mpThreadExits);
}

bool RadioReceiver::recoverAccess() {
    return mcChannel->recoverAccess();
}

void RadioReceiver::idle() {
    utils::reportTrace(mcWords.mpIdleBegins);
    checkLink();
    sleep(kIdleMs);
    utils::reportTrace(mcWords.mpIdleEnds);
}

void RadioReceiver::wake() {
    notify();
}

bool RadioReceiver::inhibitsContinuousSweep() {
    const std::atomic<bool>* pInhibit = inhibitFlag();
    return pInhibit && pInhibit->load(std::memory_order_relaxed);
}
