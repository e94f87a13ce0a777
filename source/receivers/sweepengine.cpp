#include "receivers/sweepengine.h"

#include <cmath>
#include <new>

#include "flows/spectrumframe.h"
#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

using utils::formatText;
using utils::reportError;
using utils::reportTrace;

namespace {

constexpr int32_t kStopFailedCode = -6006;
constexpr int32_t kUnreasonableCode = -6008;
constexpr int32_t kBatchFailedCode = -6009;
constexpr int32_t kBadSetupCode = -6017;
constexpr uint32_t kStartLimitMs = 2000;
constexpr uint32_t kStepMs = 10;
constexpr uint64_t kNoDataUs = 1000000;
constexpr uint64_t kTurnMs = 1000;   // of a list that the unit repeats
constexpr uint64_t kStartPauseUs = 100000;
constexpr uint32_t kSilencesLimit = 3;
constexpr uint64_t kMostPasses = 4;   // of a list, in one turn
constexpr const char* kStatusQuery = ":SWEEP:LIST:STATUS?";
constexpr const char* kStopped = "STOPPED";
constexpr const char* kStopCommand = ":SWEep:LIST:STOP; :SYSTEM:FLUSH";

}  // namespace

void dropOldestSweep(std::list<SweepBlock>& lQueue, const SweepPlan& cPlan, std::list<SweepBlock>& lDropped) {
    if (cPlan.muStepCount == 0)
        return;
    auto itFirst = lQueue.begin();
    while (itFirst != lQueue.end() && itFirst->muFrequencyHz != cPlan.muCentreFirst)
        ++itFirst;
    auto itEnd = itFirst;
    while (itEnd != lQueue.end() && itEnd->muFrequencyHz != cPlan.muCentreLast)
        ++itEnd;
    if (itEnd != lQueue.end())
        ++itEnd;
    lDropped.splice(lDropped.end(), lQueue, itFirst, itEnd);
}

SweepCaptureEngine::SweepCaptureEngine(std::string name, ReferencePtr<EngineContext> cContext,
                                       ReferencePtr<SpectrumFrameSink> cStream, const StreamRanges& cRanges,
                                       const SweepEngineWords& cWords)
    : SweepEngine(std::move(name)), mcContext(std::move(cContext)), mcRanges(cRanges), mcWords(cWords) {
    if (!cStream || !mcContext)
        reportError(kBadSetupCode, mcWords.mpBadSetup);
    mcStream.set(std::move(cStream));
}

SweepCaptureEngine::~SweepCaptureEngine() {
    releaseSinks();
}

void SweepCaptureEngine::endEngine() {
    try {
        if (holdsList())
            stop();
    } catch (const std::exception&) {
        // No memory for the words: the unit stops when the link goes.
    }
    releaseSinks();
}

bool SweepCaptureEngine::serves(const FrameSink* pSink) const {
    return pSink && mcStream.get().get() == pSink;
}

// The attaching thread and the first start may both come here; the second attach is refused and changes nothing.
void SweepCaptureEngine::takeInStream() {
    const ReferencePtr<SpectrumFrameSink> cStream = mcStream.get();
    if (mbTakenIn || !cStream)
        return;
    ErrorList lErrors;
    attachFrameSink(cStream, lErrors);
    mbTakenIn = true;
    // A detach that came in between found nothing to take out.
    if (!mcStream.get())
        SweepEngine::removeFrameSink(cStream);
}

// Planning and programming, on the receiver thread.

bool SweepCaptureEngine::_configureSweep() {
    mbProgrammed = false;
    const ReferencePtr<SpectrumFrameSink> cStream = mcStream.get();
    if (!cStream)
        return false;
    const utils::VariantRecord cParameters = cStream->getParameters();
    {
        utils::ScopedLock cLock(mcParametersLock);
        mcParameters = cParameters;
    }
    const std::optional<SweepRequest> cRequest = readSweepRequest(cParameters);
    if (!cRequest)
        return false;
    mfUserCaldB = cRequest->mfUserCaldB;
    std::string message;
    ReferencePtr<SweepConfiguration> cConfiguration;
    try {
        cConfiguration = configure(*cRequest, message);
    } catch (const std::bad_alloc&) {
        message = "No memory for a sweep of this resolution bandwidth";
    }
    if (!cConfiguration) {
        reportError(kUnreasonableCode, message);
        return false;
    }
    mcConfiguration.set(cConfiguration);
    mbNewConfiguration = true;
    return true;
}

bool SweepCaptureEngine::isEndless(const SweepConfiguration& cConfiguration) const {
    return mbContinuous && !cConfiguration.mcRequest.mbFlowControl;
}

// Another engine or a reset may have taken the list away.
bool SweepCaptureEngine::holdsList() const {
    return mbProgrammed && mcContext->holdsUnit(muClaim);
}

void SweepCaptureEngine::program(const SweepConfiguration& cConfiguration) {
    mbProgrammed = false;   // until all of it has been sent
    mbListEndless = isEndless(cConfiguration);
    muClaim = mcContext->claimUnit();
    sendList(cConfiguration, mbListEndless);
    // A list that is only programmed again goes on where the one before has ended.
    if (mbNewConfiguration.exchange(false)) {
        muFramesToGo = cConfiguration.mcRequest.muCaptureFrames;
        muFrameSequence = 0;
    }
    muIdentifier = mcContext->nextStreamIdentifier();
    mbProgrammed = true;
}

bool SweepCaptureEngine::_programSweep() {
    const ReferencePtr<SweepConfiguration> cConfiguration = mcConfiguration.get();
    if (!mbConfigured || !cConfiguration)
        return false;
    try {
        if (!holdsList() || mbListEndless != isEndless(*cConfiguration))
            program(*cConfiguration);
    } catch (const std::string& text) {
        reportError(kBatchFailedCode, text);
        return false;
    }
    mbAsking = true;
    sendStart();
    if (awaitData())
        return true;
    mbProgrammed = false;
    return false;
}

bool SweepCaptureEngine::sendStart() {
    return channel().send(formatText("SWEEP:LIST:START %d", static_cast<int>(muIdentifier.load())));
}

bool SweepCaptureEngine::awaitData() {
    const uint64_t uLimit = utils::steadyMilliseconds() + kStartLimitMs;
    // Of a list that a change has taken back there is nothing to wait for.
    while (!isDataValid() && mbProgrammed && utils::steadyMilliseconds() < uLimit && !channel().isStopping())
        utils::sleepMs(kStepMs);
    return isDataValid();
}

// A change that comes while the parameters of before are planned is planned too.
bool SweepCaptureEngine::plan() {
    for (;;) {
        const uint32_t uSeen = muChanges;
        const bool bPlanned = _configureSweep();
        const ReferencePtr<SpectrumFrameSink> cStream = mcStream.get();
        const utils::VariantRecord cNow = cStream ? cStream->getParameters() : utils::VariantRecord();
        mfUserCaldB = cNow.getNumber("UserCaldB").value_or(mfUserCaldB);
        utils::ScopedLock cLock(mcParametersLock);
        if (bPlanned && uSeen != muChanges && !channel().isStopping() && hasChanged(mcParameters.difference(cNow)))
            continue;
        mbConfigured = bPlanned;
        return bPlanned;
    }
}

/// What was gathered for an earlier list is of no use for the next one.
void SweepCaptureEngine::beginAnew() {
    dropSpectrum();
    if (const ReferencePtr<SweepConfiguration> cConfiguration = mcConfiguration.get()) {
        const SweepPlan& cPlan = cConfiguration->mcPlan;
        mcGatherer.begin(cPlan.muSamplesPerPacket * cConfiguration->muValuesPerSample, cPlan.muPacketsPerBlock,
                         uint64_t{cPlan.muSamplesPerPacket} * 1000000000 / cConfiguration->muSampleRateHz);
    }
    clearQueue();
}

bool SweepCaptureEngine::runsContinuously() const {
    return mbContinuous && !mbIdle && (holdsList() || !mbConfigured);
}

bool SweepCaptureEngine::start(bool bContinuous) {
    // A list that the unit repeats by itself is ended before another one is made of it.
    if (mbContinuous && !bContinuous && holdsList() && mbListEndless)
        stop();
    mbContinuous = bContinuous;
    mbIdle = false;
    takeInStream();
    if (mbConfigured || plan()) {
        beginAnew();
        if (_programSweep())
            return true;
    }
    // Tried again and again: a request that cannot be planned, or a unit that refuses it at once, must not keep a
    // processor and the command link busy. A change of the parameters ends the pause.
    mcReconstructionThreadBarrier.wait(kStartPauseUs);
    return false;
}

bool SweepCaptureEngine::stop() {
    mbAsking = false;
    if (!mbStreaming)
        return true;
    if (!mbContinuous) {
        mbStreaming = false;
        return true;
    }
    reportTrace("Sweep List Stop issued");
    if (!channel().sendCommandAndPoll(kStopCommand, kStatusQuery, kStopped) &&
        !channel().sendCommandAndPoll("SYSTem:ABORt", ":SYSTem:CAPTure:MODE?", "BLOCK")) {
        reportError(kStopFailedCode, formatText("Device %s failed to stop", mcContext->deviceName().c_str()));
        return false;
    }
    drainInput();
    mbStreaming = false;
    return true;
}

void SweepCaptureEngine::linkChanged() {
    mbAsking = false;
    mbProgrammed = false;
    mbStreaming = false;
    mbContinuous = false;
    mcReconstructionThreadBarrier.signal();
}

// Packets, on the polling thread.

void SweepCaptureEngine::noteExtension(const VRT::CaptureFields& cFields) {
    mcGatherer.noteStart();
    if (cFields.muStreamIdentifier == VRT::kAbsent32) {
        reportTrace("Sweep ExtensionContext");
        return;
    }
    reportTrace(formatText("Sweep ExtensionContext with stream ID:%d", static_cast<int>(cFields.muStreamIdentifier)));
    noteIdentifier(cFields.muStreamIdentifier);
}

void SweepCaptureEngine::noteIdentifier(uint32_t uIdentifier) {
    muSeenIdentifier = uIdentifier;
    if (isDataValid())
        mbStreaming = true;
}

// A new identifier makes what comes of an earlier list invalid by itself.
bool SweepCaptureEngine::isDataValid() const {
    return mbProgrammed && muSeenIdentifier == muIdentifier;
}

void SweepCaptureEngine::takeSamples(const SamplePacket& cPacket) {
    try {
        gather(cPacket);
    } catch (const std::bad_alloc&) {
        reportError(kUnreasonableCode, "No memory for a block of the sweep");
    }
}

void SweepCaptureEngine::gather(const SamplePacket& cPacket) {
    const ReferencePtr<SweepConfiguration> cConfiguration = mcConfiguration.get();
    if (!cConfiguration)
        return;
    BlockGatherer::Result cResult = mcGatherer.take(cPacket);
    switch (cResult.meOutcome) {
        case BlockGatherer::Outcome::kEmpty:
            reportTrace(mcWords.mpNoData);
            return;
        case BlockGatherer::Outcome::kWrongSize:
            reportTrace(mcWords.mpWrongSize);
            return;
        case BlockGatherer::Outcome::kOutOfPlace:
            reportTrace("Packet outside a block dropped");
            return;
        case BlockGatherer::Outcome::kTaken:
            break;
    }
    if (cResult.muTaken == 1)
        noteOpened(cResult.muFrequencyHz);
    reportTrace(mcWords.mpValidData);
    noteTaken(cResult);
    if (!cResult.mcBlock) {
        mcReconstructionThreadBarrier.signal();   // no block yet, but there is data
        return;
    }
    queueBlock(std::move(*cResult.mcBlock), *cConfiguration);
    if (cConfiguration->mcRequest.mbFlowControl && mbContinuous && mbAsking && muFramesToGo != 1)
        sendStart();
}

void SweepCaptureEngine::queueBlock(SweepBlock cBlock, const SweepConfiguration& cConfiguration) {
    std::list<SweepBlock> lDropped;   // freed outside the lock
    std::list<SweepBlock> lNew;
    lNew.push_back(std::move(cBlock));
    utils::ScopedLock cLock(mcSpectrumFrameAssemblyLock);
    // One of an earlier list, which the queue has just been emptied of.
    if (lNew.front().muEpoch != mcGatherer.epoch())
        return;
    mlQueue.splice(mlQueue.end(), lNew);
    if (mlQueue.size() > size_t{2} * cConfiguration.mcPlan.muStepCount)
        dropOldestSweep(mlQueue, cConfiguration.mcPlan, lDropped);
    cLock.unlock();
    mcReconstructionThreadBarrier.signal();
}

size_t SweepCaptureEngine::queuedBlocks() {
    utils::ScopedLock cLock(mcSpectrumFrameAssemblyLock);
    return mlQueue.size();
}

void SweepCaptureEngine::clearQueue() {
    std::list<SweepBlock> lDropped;
    utils::ScopedLock cLock(mcSpectrumFrameAssemblyLock);
    lDropped.swap(mlQueue);
    cLock.unlock();
}

std::optional<SweepBlock> SweepCaptureEngine::takeBlock() {
    utils::ScopedLock cLock(mcSpectrumFrameAssemblyLock);
    if (mlQueue.empty())
        return {};
    std::optional<SweepBlock> cBlock(std::move(mlQueue.front()));
    mlQueue.pop_front();
    return cBlock;
}

/// Up to the next first block, if there are more blocks than a sweep has.
bool SweepCaptureEngine::dropToNextSweep(const SweepPlan& cPlan) {
    std::list<SweepBlock> lDropped;   // freed outside the lock
    utils::ScopedLock cLock(mcSpectrumFrameAssemblyLock);
    if (mlQueue.size() <= cPlan.muStepCount)
        return false;
    auto itNext = mlQueue.begin();
    while (itNext != mlQueue.end() && itNext->muFrequencyHz != cPlan.muCentreFirst)
        ++itNext;
    lDropped.splice(lDropped.end(), mlQueue, mlQueue.begin(), itNext);
    cLock.unlock();
    return true;
}

std::optional<SweepBlock> SweepCaptureEngine::takeNextBlock(const SweepPlan& cPlan) {
    std::optional<SweepBlock> cBlock = takeBlock();
    const bool bFirst = cBlock && cBlock->muFrequencyHz == cPlan.muCentreFirst;
    if (mcWords.mbCatchesUp && bFirst && dropToNextSweep(cPlan)) {
        dropSpectrum();   // of the sweeps that are left out
        cBlock = takeBlock();
    }
    return cBlock;
}

// Spectra, on the receiver thread.

bool SweepCaptureEngine::process() {
    mbStopProcessing = false;
    if (!mbConfigured) {
        const bool bPlanned = plan();
        beginAnew();
        // Done by the next pass, which tries to win the unit back as after any start that has failed.
        if (!bPlanned || !_programSweep()) {
            mbContinuous = false;
            return true;
        }
    }
    const ReferencePtr<SweepConfiguration> cConfiguration = mcConfiguration.get();
    // Blocks that never make a spectrum must not keep the radio from the streams that wait for it. What has been
    // gathered stays for the next turn.
    const uint64_t uTurnEnds = utils::steadyMilliseconds() + kTurnMs;
    uint64_t uBlocks = 0;
    while (cConfiguration && !mbStopProcessing && !channel().isStopping() && mcStream.get()) {
        // A list of one iteration ends its turn by itself, unless it brings more blocks than it has.
        if (mbContinuous ? utils::steadyMilliseconds() >= uTurnEnds
                         : uBlocks >= kMostPasses * cConfiguration->mcPlan.muTotalExpectedBlocks)
            return true;
        const std::optional<SweepBlock> cBlock = takeNextBlock(cConfiguration->mcPlan);
        if (!cBlock) {
            if (mcReconstructionThreadBarrier.wait(kNoDataUs)) {
                muSilences = 0;
                continue;
            }
            // A list that the unit runs only when asked is asked for again by the next start.
            mbIdle = cConfiguration->mcRequest.mbFlowControl;
            noteSilence();
            return true;
        }
        ++uBlocks;
        muSilences = 0;
        const Step eStep = takeIn(*cBlock, *cConfiguration);
        if (eStep != Step::kGoOn)
            return eStep == Step::kFrame;
    }
    return true;
}

// Somebody else may have stopped the list, started another one or taken its entries away: then it is programmed
// again. A list that should repeat by itself is asked for once in a silence, so that the link watch still tells
// when a unit has gone; one that is started in each turn shows it by bringing nothing time and again.
void SweepCaptureEngine::noteSilence() {
    ++muSilences;
    const bool bRepeats = mbContinuous && mbListEndless;
    const bool bLost = !isDataValid() ||
                       (bRepeats ? muSilences == 1 && channel().query(kStatusQuery).find(kStopped) != std::string::npos
                                 : muSilences >= kSilencesLimit);
    if (!bLost)
        return;
    reportTrace("The list is not the unit's any more");
    mbProgrammed = false;
    muSilences = 0;
}

void SweepCaptureEngine::dropSpectrum() {
    mcSpectrumBuffer = nullptr;
    muSpectrumWriteOffset = 0;
    muBlocksDone = 0;
}

SweepCaptureEngine::Step SweepCaptureEngine::takeIn(const SweepBlock& cBlock,
                                                    SweepConfiguration& cConfiguration) {
    try {
        return join(cBlock, cConfiguration);
    } catch (const std::bad_alloc&) {
        reportError(kUnreasonableCode, "No memory for a spectrum of the sweep");
        dropSpectrum();
        return Step::kGoOn;
    }
}

SweepCaptureEngine::Step SweepCaptureEngine::join(const SweepBlock& cBlock,
                                                  SweepConfiguration& cConfiguration) {
    const std::optional<uint32_t> uPlace = cConfiguration.placeOf(cBlock.muFrequencyHz);
    if (!uPlace) {
        reportTrace(formatText("Block at CF: %lluHz lies outside the sweep",
                               static_cast<unsigned long long>(cBlock.muFrequencyHz)));
        return Step::kGoOn;
    }
    if (*uPlace == 0) {
        dropSpectrum();
        muFrameStartNs = cBlock.muTimeNs;
        mcSpectrumBuffer = makeReference<FloatArray>(cConfiguration.mcPlan.muTotalBins);
    }
    if (!addBlock(cBlock, *uPlace, cConfiguration))
        return Step::kGoOn;
    if (muBlocksDone < cConfiguration.mcPlan.muTotalExpectedBlocks)
        return Step::kGoOn;
    return finishFrame(cBlock, cConfiguration);
}

// A block that is not the next one, because one was lost or came twice, ends the spectrum that it would have
// spoilt; the next first block begins a new one.
bool SweepCaptureEngine::addBlock(const SweepBlock& cBlock, uint32_t uPlace,
                                  SweepConfiguration& cConfiguration) {
    const SweepPlan& cPlan = cConfiguration.mcPlan;
    if (!mcSpectrumBuffer || uPlace != muBlocksDone) {
        dropSpectrum();
        reportTrace(formatText("Out of order block #%d at CF: %lluHz. Expected #0 at %lluHz",
                               static_cast<int>(uPlace),
                               static_cast<unsigned long long>(cBlock.muFrequencyHz),
                               static_cast<unsigned long long>(cPlan.muCentreFirst)));
        return false;
    }
    const uint32_t uBins = cConfiguration.binsAt(uPlace);
    VNK_ASSERT_TEXT(
        uBins == 0 || mcSpectrumBuffer->getAllocated() > uint64_t{uBins} - 1 + muSpectrumWriteOffset,
        "mcSpectrumBuffer->getAllocated() > ((uReadEndIndex - uReadStartIndex) + muSpectrumWriteOffset)");
    if (!cConfiguration.reconstruct(cBlock, uPlace, mfUserCaldB,
                                    mcSpectrumBuffer->getData() + muSpectrumWriteOffset)) {
        dropSpectrum();
        return false;
    }
    muSpectrumWriteOffset += uBins;
    ++muBlocksDone;
    return true;
}

SweepCaptureEngine::Step SweepCaptureEngine::finishFrame(const SweepBlock& cLast,
                                                         const SweepConfiguration& cConfiguration) {
    const SweepRequest& cRequest = cConfiguration.mcRequest;
    const SweepPlan& cPlan = cConfiguration.mcPlan;
    // Nothing of the old shape behind a change.
    if (mbStopProcessing) {
        dropSpectrum();
        return Step::kGoOn;
    }
    const uint64_t uBlockNs = uint64_t{cPlan.muFFTSize} * 1000000000 / cConfiguration.muSampleRateHz;
    const auto cFrame = makeReference<SpectrumFrame>(
        muFrameSequence++, muFrameStartNs, cLast.muTimeNs - 1 + uBlockNs - muFrameStartNs,
        uint32_t{kNanoseconds}, cPlan.mfFStart, cPlan.mfFStop, cPlan.mfActualRBW, cRequest.mfRefdBm,
        cRequest.mcWindowName, mcSpectrumBuffer, std::string("dBm"));
    const bool bLast = muFramesToGo == 1;
    dropSpectrum();
    deliverFrame(cFrame, false);
    if (muFramesToGo != 0)
        --muFramesToGo;
    if (!bLast)
        return Step::kFrame;
    mbAsking = false;
    deliverFrame(nullptr, true);
    stop();
    return Step::kEnded;
}

// The stream's side, on any thread.

bool SweepCaptureEngine::removeFrameSink(ReferencePtr<FrameSink> cSink) {
    ReferencePtr<SpectrumFrameSink> cLast;
    if (!cSink || serves(cSink.get()))
        cLast = mcStream.exchange(nullptr);
    mcReconstructionThreadBarrier.signal();
    return SweepEngine::removeFrameSink(std::move(cSink));
}

bool SweepCaptureEngine::canImplement(ReferencePtr<FrameSink>, utils::VariantRecord& cRecord,
                                      ErrorList& lErrors) {
    return canImplementSpectrum(cRecord, mcRanges, lErrors);
}

// A wish that what is realised meets already, or nearly so, is no change.
bool SweepCaptureEngine::hasChanged(const utils::VariantRecord& cNew) const {
    const ReferencePtr<SweepConfiguration> cConfiguration = mcConfiguration.get();
    if (!cConfiguration)
        return false;
    const SweepPlan& cPlan = cConfiguration->mcPlan;
    const SweepRequest& cRequest = cConfiguration->mcRequest;
    const auto differs = [&](const char* pKey, float fPresent) {
        const std::optional<float> fValue = cNew.getNumber(pKey);
        return fValue && *fValue != fPresent;
    };
    const std::optional<float> fRBW = cNew.getNumber("RBWHz");
    if (fRBW && std::fabs(*fRBW - cPlan.mfActualRBW) > std::fabs((cPlan.mfActualRBW + *fRBW) * 0.025f))
        return true;
    if (differs("FMinHz", cPlan.mfFStart) || differs("FMaxHz", cPlan.mfFStop))
        return true;
    if (mcWords.mbFollowsEdgesOnly)
        return false;
    const std::optional<std::string> window = cNew.getText("WindowFn");
    const std::optional<bool> bFlowControl = cNew.getBool("flowControl");
    return differs("RefdBm", cRequest.mfRefdBm) || (window && *window != cRequest.mcWindowName) ||
           (bFlowControl && *bFlowControl != cRequest.mbFlowControl);
}

bool SweepCaptureEngine::parametersChanged(ReferencePtr<FrameSink>) {
    const ReferencePtr<SpectrumFrameSink> cStream = mcStream.get();
    if (!cStream)
        return false;
    ++muChanges;   // whether it is one for what is being planned just now is not known yet
    const utils::VariantRecord cNow = cStream->getParameters();
    if (const std::optional<float> fUserCal = cNow.getNumber("UserCaldB"))
        mfUserCaldB = *fUserCal;
    utils::VariantRecord cDifference;
    {
        utils::ScopedLock cLock(mcParametersLock);
        cDifference = mcParameters.difference(cNow);
    }
    if (!hasChanged(cDifference))
        return true;
    mbAsking = false;
    // Another stream's list is not this one's to stop.
    if (mbStreaming || holdsList())
        channel().sendCommandAndPoll(kStopCommand, "", "");
    {
        utils::ScopedLock cLock(mcParametersLock);
        mbConfigured = false;
        mbProgrammed = false;
        mbStopProcessing = true;
    }
    mcReconstructionThreadBarrier.signal();
    clearQueue();
    return true;
}
