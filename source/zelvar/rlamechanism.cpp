#include "zelvar/rlamechanism.h"

#include <algorithm>
#include <cmath>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

using utils::reportError;
using utils::reportTrace;
using namespace VITA49Zelvar;

namespace {

constexpr int32_t kBatchFailedCode = -6009;
constexpr int32_t kBadSetupCode = -6017;
constexpr float kNotMeasured = -1000.0f;
constexpr float kFullScale = 8192.0f;
constexpr uint32_t kStartLimitMs = 2000;
constexpr uint32_t kStepMs = 10;

}  // namespace

_RLAMechanism::_RLAMechanism(ReferencePtr<EngineContext> cContext, std::optional<float> cCentreHz,
                             const ModelRecord& cModel, const StreamRanges& cRanges)
    : mcContext(std::move(cContext)), mcCentreHz(cCentreHz), mcModel(cModel), mcRanges(cRanges) {
    if (!mcContext)
        reportError(kBadSetupCode, "Bad setup of _RLAMechanism");
    if (!mcCentreHz)
        reportTrace("Either FCentreHz or IFBWHznot specified for _RLAMechanism");
    mfPeakLevels.fill(kNotMeasured);
}

bool _RLAMechanism::start() {
    if (!mcCentreHz)
        return false;
    std::string message;
    int32_t iCode = 0;
    const std::optional<AdaptationPlan> cPlan =
        planAdaptation(*mcCentreHz, mcModel, mcRanges, message, iCode);
    if (!cPlan) {
        reportError(iCode, message);
        return false;
    }
    {
        utils::ScopedLock cLock(mcMeasuredLock);
        mcPlan = cPlan;
    }
    muStep = cPlan->muFirstStep;
    mbMultiEntry = false;
    return runTrial(*cPlan);
}

bool _RLAMechanism::runTrial(const AdaptationPlan& cPlan) {
    const uint32_t uStep = muStep;
    if (uStep >= kAdaptationSteps)
        return true;
    muPacketsCounted = 0;
    mbMultiEntry = uStep == kFirstAttenuatorStep;
    mbDataValid = false;
    mcContext->claimUnit();
    try {
        mcContext->channel().sendBatch(adaptationCommands(cPlan, uStep, mcModel));
    } catch (const std::string& text) {
        reportError(kBatchFailedCode, text);
        return false;
    }
    mbStarted = true;
    const uint32_t uIdentifier = mcContext->nextStreamIdentifier();
    muStreamID = uIdentifier;
    reportTrace("adaption IQ stream start");
    mcContext->channel().send(utils::formatText("SWEEP:LIST:START %d", static_cast<int>(uIdentifier)));
    return awaitData(uStep, uIdentifier);
}

// A trial is short: its packets may have been counted, and the next one begun, before this thread looks.
bool _RLAMechanism::awaitData(uint32_t uStep, uint32_t uIdentifier) {
    const uint64_t uLimit = utils::steadyMilliseconds() + kStartLimitMs;
    while (!mbDataValid && muStep == uStep && utils::steadyMilliseconds() < uLimit &&
           !mcContext->channel().isStopping())
        utils::sleepMs(kStepMs);
    if (mbDataValid || muStep != uStep)
        return true;
    if (muStreamID == uIdentifier)
        mbStarted = false;
    return false;
}

void _RLAMechanism::stop() {
    if (mbStarted.exchange(false))
        mcContext->channel().sendCommandAndPoll(":TRACe:STReam:STOP; :SYSTEM:FLUSH", "", "");
}

std::optional<AdaptationPlan> _RLAMechanism::plan() const {
    utils::ScopedLock cLock(mcMeasuredLock);
    return mcPlan;
}

float _RLAMechanism::result() const {
    utils::ScopedLock cLock(mcMeasuredLock);
    return isFinished() && mcPlan ? adaptedReferenceLevel(mfPeakLevels, *mcPlan, mcModel) : kNotMeasured;
}

void _RLAMechanism::handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) {
    if (cPacket->muStreamIdentifier == kAbsent32)
        return;
    mbDataValid = cPacket->muStreamIdentifier == muStreamID;
    if (mbDataValid)
        reportTrace("ADAPT mbIQStreamDataValid");
}

void _RLAMechanism::handleIFDataIQ14(ReferencePtr<IFDataIQ14> cPacket) {
    if (cPacket && cPacket->getSamples())
        count(cPacket->peak());
}

void _RLAMechanism::handleIFDataI14(ReferencePtr<IFDataI14> cPacket) {
    if (cPacket && cPacket->getSamples())
        count(cPacket->peak());
}

// The packets alone tell how far the trials are: a list of several settings runs on by itself.
void _RLAMechanism::count(uint32_t uPeak) {
    const std::optional<AdaptationPlan> cPlan = plan();
    const uint32_t uStep = muStep;
    if (!cPlan || uStep >= kAdaptationSteps)
        return;
    {
        utils::ScopedLock cLock(mcMeasuredLock);
        mfPeakLevels[uStep] =
            std::max(mfPeakLevels[uStep], 20.0f * std::log10(static_cast<float>(uPeak) / kFullScale));
    }
    if (++muPacketsCounted < cPlan->muPackets)
        return;
    mbStarted = false;
    muPacketsCounted = 0;
    ++muStep;
    if (!mbMultiEntry && !isFinished())
        runTrial(*cPlan);
}
