#include "processors/spectrumcharacterization.h"

#include <algorithm>
#include <cmath>

#include "dsp/clones.h"
#include "flows/spectrumframesink.h"
#include "foundations/runtimeerrors.h"

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr uint32_t kGreatestAverage = 10000;

/// A hold that is no number takes whatever comes; what is no number itself is never held.
VNK_CLONES static void holdLowest(float* __restrict pHold, const float* __restrict pValues, size_t uCount) {
    for (size_t i = 0; i < uCount; ++i)
        pHold[i] = ((pValues[i] < pHold[i]) | (pHold[i] != pHold[i])) ? pValues[i] : pHold[i];
}

VNK_CLONES static void holdHighest(float* __restrict pHold, const float* __restrict pValues, size_t uCount) {
    for (size_t i = 0; i < uCount; ++i)
        pHold[i] = ((pValues[i] > pHold[i]) | (pHold[i] != pHold[i])) ? pValues[i] : pHold[i];
}

ReferencePtr<FloatArray> newArray(const float* pValues, uint32_t uCount) {
    auto cArray = makeReference<FloatArray>(uCount);
    std::copy_n(pValues, uCount, cArray->getData());
    return cArray;
}

uint32_t boundedCount(float fValue) {
    const float fRounded = std::round(fValue);
    if (!(fRounded > 0.0f))
        return 0;
    return fRounded >= 4294967296.0f ? UINT32_MAX : static_cast<uint32_t>(fRounded);
}

}  // namespace

SpectrumCharacterizationProcessor::SpectrumCharacterizationProcessor()
    : Processor("SpectrumCharacterization", OutputKind::kSpectrum) {}

utils::VariantRecord SpectrumCharacterizationProcessor::getParameterInfo() {
    utils::VariantRecord cSchema = Processor::getParameterInfo();
    addTextSchema(cSchema, "Frames", "", true);
    addNumericSchema(cSchema, "Average", "<Number of spectra to take average of>", 1.0f,
                     static_cast<float>(kGreatestAverage), 1.0f, "", false);
    addEnumSchema(cSchema, "ClearAverageTrace", "<Boolean to clear average trace>", {"true", "false"}, false);
    addEnumSchema(cSchema, "ClearMaxHoldTrace", "<Boolean to clear max-hold trace>", {"true", "false"}, false);
    addEnumSchema(cSchema, "ClearMinHoldTrace", "<Boolean to clear min-hold trace>", {"true", "false"}, false);
    return cSchema;
}

utils::VariantRecord SpectrumCharacterizationProcessor::getParameters() {
    utils::VariantRecord cRecord = Processor::getParameters();
    cRecord.set("Average", muAverageLength.load(kRelaxed));
    cRecord.set("ClearAverageTrace", mbClearAverage.load(kRelaxed));
    cRecord.set("ClearMaxHoldTrace", mbClearMaxHold.load(kRelaxed));
    cRecord.set("ClearMinHoldTrace", mbClearMinHold.load(kRelaxed));
    return cRecord;
}

bool SpectrumCharacterizationProcessor::setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors,
                                                          bool bQuiet) {
    if (const auto fAverage = cRecord.takeNumber("Average"))
        muAverageLength.store(boundedCount(*fAverage), kRelaxed);
    if (const auto bClear = cRecord.takeBool("ClearAverageTrace"))
        mbClearAverage.store(*bClear, kRelaxed);
    if (const auto bClear = cRecord.takeBool("ClearMaxHoldTrace"))
        mbClearMaxHold.store(*bClear, kRelaxed);
    if (const auto bClear = cRecord.takeBool("ClearMinHoldTrace"))
        mbClearMinHold.store(*bClear, kRelaxed);
    return Processor::setSinkParameters(cRecord, lErrors, bQuiet);
}

bool SpectrumCharacterizationProcessor::acceptsFrame(ReferencePtr<Frame> cFrame) {
    return cFrame == nullptr || dynamic_cast<const SpectrumFrame*>(cFrame.get());
}

bool SpectrumCharacterizationProcessor::attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) {
    if (cNewSink && !dynamic_cast<const SpectrumFrameSink*>(cNewSink.get())) {
        lErrors.push_back("Attempted to attach a non-spectrum sink to a spectrum-only processor");
        return false;
    }
    return FrameSource::attachFrameSink(std::move(cNewSink), lErrors);
}

void SpectrumCharacterizationProcessor::processFrame(ReferencePtr<Frame> cFrame) {
    const auto* pFrame = dynamic_cast<const SpectrumFrame*>(cFrame.get());
    if (!pFrame) {
        utils::reportTrace("Incorrect frame type to ::processFrame");
        return;
    }
    copyFrame(*pFrame);
    applyLength();
    if (mbReset)
        restart();
    else
        update();
    // Taken once: one that is set from here on is the next spectrum's.
    const Clearing cClearing{mbClearAverage.exchange(false, kRelaxed), mbClearMaxHold.exchange(false, kRelaxed),
                             mbClearMinHold.exchange(false, kRelaxed)};
    clear(cClearing);
    addTraces(cClearing);
    deliverFrame(mcReferenceFrame, false);
}

void SpectrumCharacterizationProcessor::copyFrame(const SpectrumFrame& cFrame) {
    mcReferenceFrame = makeReference<SpectrumFrame>(cFrame);
    VNK_ASSERT(mcReferenceFrame != nullptr);
    // The copy shares the record, which others read while this one is written.
    if (const ReferencePtr<utils::VariantRecord> cExtras = cFrame.peekExtras()) {
        mcReferenceFrame->setExtras(makeReference<utils::VariantRecord>(*cExtras));
        mcReferenceFrame->getExtras()->setFrozen(false);
    }
    uint32_t uCount = 0;
    mcReferenceFrame->getSpectrum(uCount);
    if (uCount == muBins)
        return;
    muBins = uCount;
    mbReset = true;
}

void SpectrumCharacterizationProcessor::applyLength() {
    const uint32_t uLength = muAverageLength.load(kRelaxed);
    if (uLength == muAppliedLength)
        return;
    muAppliedLength = uLength;
    mcHistory.setLength(std::min(uLength, kGreatestAverage));
    if (mcAverage)
        std::fill_n(mcAverage->getData(), mcAverage->getActive(), 0.0f);
    mcReferenceFrame->setDiscardable(false);
}

void SpectrumCharacterizationProcessor::update() {
    uint32_t uCount = 0;
    const float* pSpectrum = mcReferenceFrame->getSpectrum(uCount);
    holdLowest(mcMinHold->getData(), pSpectrum, uCount);
    holdHighest(mcMaxHold->getData(), pSpectrum, uCount);
    mcHistory.take(pSpectrum, uCount, mcAverage->getData());
}

void SpectrumCharacterizationProcessor::restart() {
    uint32_t uCount = 0;
    const float* pSpectrum = mcReferenceFrame->getSpectrum(uCount);
    mcHistory.clear();
    mcMaxHold = newArray(pSpectrum, uCount);
    mcMinHold = newArray(pSpectrum, uCount);
    mcAverage = newArray(pSpectrum, uCount);
    mbReset = false;
}

void SpectrumCharacterizationProcessor::clear(const Clearing& cClearing) {
    if (cClearing.mbMinHold)
        clearTrace("Clearing Min Hold :::::::::::::::::::::::::::", *mcMinHold);
    if (cClearing.mbMaxHold)
        clearTrace("Clearing Max Hold :::::::::::::::::::::::::::", *mcMaxHold);
    if (cClearing.mbAverage) {
        clearTrace("Clearing Average Hold :::::::::::::::::::::::::::", *mcAverage);
        mcHistory.clear();
    }
}

void SpectrumCharacterizationProcessor::clearTrace(const char* pNote, FloatArray& cTrace) {
    utils::reportTrace(pNote);
    uint32_t uCount = 0;
    if (const float* pSpectrum = mcReferenceFrame->getSpectrum(uCount))
        std::copy_n(pSpectrum, uCount, cTrace.getData());
    else
        utils::reportTrace("Spectrum is null.");
    mcReferenceFrame->setDiscardable(false);
}

void SpectrumCharacterizationProcessor::addTraces(const Clearing& cClearing) {
    const ReferencePtr<utils::VariantRecord> cInfo = mcReferenceFrame->getExtras();
    VNK_ASSERT(cInfo != nullptr);
    cInfo->set("ClearAverageTrace", cClearing.mbAverage);
    cInfo->set("ClearMaxHoldTrace", cClearing.mbMaxHold);
    cInfo->set("ClearMinHoldTrace", cClearing.mbMinHold);
    cInfo->set("minHoldIndex", addTrace(*mcMinHold));
    cInfo->set("maxHoldIndex", addTrace(*mcMaxHold));
    cInfo->set("averageIndex", addTrace(*mcAverage));
}

uint32_t SpectrumCharacterizationProcessor::addTrace(const FloatArray& cTrace) {
    uint32_t uIndex = 0;
    float* pTrace = mcReferenceFrame->addTrace(uIndex);
    std::copy_n(cTrace.getData(), cTrace.getActive(), pTrace);
    return uIndex;
}
