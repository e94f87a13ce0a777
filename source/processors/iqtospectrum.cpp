#include "processors/iqtospectrum.h"

#include "flows/spectrumframe.h"
#include "flows/spectrumframesink.h"

namespace {

constexpr float kLeastRBWHz = 1.0f;
constexpr float kGreatestRBWHz = 100000.0f;
constexpr float kDefaultRBWHz = 1000.0f;
constexpr float kGreatestOverlap = 0.8f;
constexpr float kDefaultOverlap = 0.5f;

constexpr auto kRelaxed = std::memory_order_relaxed;

}  // namespace

IQToSpectrum::IQToSpectrum()
    : Processor("IQToSpectrum", OutputKind::kSpectrum),
      mpWindow(WindowFunctions::findWindow(WindowFunctions::defaultWindowName())) {}

utils::VariantRecord IQToSpectrum::getParameterInfo() {
    utils::VariantRecord cSchema = Processor::getParameterInfo();
    addTextSchema(cSchema, "MatchIQ", "<most recently processed IQ frame sequence number>", true);
    addEnumSchema(cSchema, "FollowIQ", "<if set, overlap is 0.0 and 1 spectrum frame is generated for each IQ frame>",
                  {"true", "false"}, false);
    addTextSchema(cSchema, "OutputSize", "<integer size of output result>", true);
    addNumericSchema(cSchema, "RBWHz", "<programmed resolution bandwidth>", kLeastRBWHz, kGreatestRBWHz, kDefaultRBWHz,
                     "Hz", false);
    addNumericSchema(cSchema, "FFTOverlap", "<overlap between FFTs>", 0.0f, kGreatestOverlap, kDefaultOverlap, "",
                     false);
    addEnumSchema(cSchema, "WindowFn", "<window function>", WindowFunctions::listWindowNames(), false);
    return cSchema;
}

utils::VariantRecord IQToSpectrum::getParameters() {
    utils::VariantRecord cRecord = Processor::getParameters();
    const Applied cWanted = wanted();
    cRecord.set("RecentFrames", muRecentFrames.exchange(0, kRelaxed));
    cRecord.set("WindowFn", cWanted.mpWindow->mpName);
    cRecord.set("FollowIQ", cWanted.mbFollow);
    if (!cWanted.mbFollow) {
        cRecord.set("RBWHz", cWanted.mfRBWHz);
        cRecord.set("FFTOverlap", mfOverlap.load(kRelaxed));
    }
    return cRecord;
}

bool IQToSpectrum::setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) {
    if (const auto fRBWHz = cRecord.takeNumber("RBWHz"))
        if (*fRBWHz >= kLeastRBWHz && *fRBWHz <= kGreatestRBWHz)
            mfRBWHz.store(*fRBWHz, kRelaxed);
    if (const auto fOverlap = cRecord.takeNumber("FFTOverlap"))
        if (*fOverlap >= 0.0f && *fOverlap <= kGreatestOverlap)
            mfOverlap.store(*fOverlap, kRelaxed);
    if (const auto name = cRecord.takeText("WindowFn"))
        if (const WindowType* pWindow = WindowFunctions::findWindow(*name))
            mpWindow.store(pWindow, kRelaxed);
    if (const auto bFollow = cRecord.takeBool("FollowIQ"))
        mbFollow.store(*bFollow, kRelaxed);
    return Processor::setSinkParameters(cRecord, lErrors, bQuiet);
}

bool IQToSpectrum::acceptsFrame(ReferencePtr<Frame> cFrame) {
    return cFrame == nullptr || dynamic_cast<const IQFrame*>(cFrame.get());
}

bool IQToSpectrum::attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) {
    if (cNewSink && !dynamic_cast<const SpectrumFrameSink*>(cNewSink.get())) {
        lErrors.push_back("Attempted to attach a non-spectrum sink to a spectrum-only processor");
        return false;
    }
    return FrameSource::attachFrameSink(std::move(cNewSink), lErrors);
}

void IQToSpectrum::processFrame(ReferencePtr<Frame> cFrame) {
    const ReferencePtr<IQFrame> cIQ = dynamicReferenceCast<IQFrame>(cFrame);
    if (!cIQ)
        return;
    noteSequence(cIQ);
    mbBrokenOff = true;   // until all of its samples are taken
    uint32_t uCount = 0;
    const Complex<float>* pSamples = cIQ->getSamples(uCount);
    const Applied cWanted = wanted();
    if (!fits(cWanted, *cIQ, uCount))
        configure(cWanted, cIQ, uCount);
    muLastSize = uCount;
    // One sample is no spectrum; only a frame that is followed can be so short.
    while (uCount > 0 && mcPlan.muFFTSize >= 2) {
        const uint32_t uTaken = mcTransform.append(pSamples, uCount);
        pSamples += uTaken;
        uCount -= uTaken;
        if (mcApplied.mbFollow) {
            uCount = 0;
            muNextTime = cIQ->getTimestamp(kNanoseconds);
        }
        if (mcTransform.isFull() && !makeSpectrum(cIQ->sequence()))
            return;
    }
    mbBrokenOff = false;
}

IQToSpectrum::Applied IQToSpectrum::wanted() const {
    return {mfRBWHz.load(kRelaxed), mbFollow.load(kRelaxed), mpWindow.load(kRelaxed)};
}

// A gap begins anew, with the configuration as it is: a frame that is tuned otherwise behind a gap is the one that
// the next are compared with. What a body that was left behind, or failed, has not taken of a frame is a gap too.
void IQToSpectrum::noteSequence(const ReferencePtr<IQFrame>& cFrame) {
    if (cFrame->sequence() != muNextSequence || mbBrokenOff) {
        mcReferenceFrame = cFrame;
        muNextTime = cFrame->getTimestamp(kNanoseconds);
        ++muOutputSequence;
        mcTransform.clear();
    }
    muNextSequence = cFrame->sequence() + 1;
    muRecentFrames.fetch_add(1, kRelaxed);
}

bool IQToSpectrum::fits(const Applied& cWanted, const IQFrame& cFrame, uint32_t uCount) const {
    return cWanted.mfRBWHz == mcApplied.mfRBWHz && cWanted.mpWindow == mcApplied.mpWindow &&
           cWanted.mbFollow == mcApplied.mbFollow && mcReferenceFrame &&
           cFrame.centreFrequency() == mcReferenceFrame->centreFrequency() &&
           cFrame.bandwidth() == mcReferenceFrame->bandwidth() &&
           cFrame.sampleRate() == mcReferenceFrame->sampleRate() && (!cWanted.mbFollow || uCount == muLastSize);
}

void IQToSpectrum::configure(const Applied& cWanted, const ReferencePtr<IQFrame>& cFrame, uint32_t uCount) {
    mcPlan = planSpectrum(cWanted.mfRBWHz, cWanted.mpWindow->mpName, cWanted.mbFollow,
                          {cFrame->centreFrequency(), cFrame->bandwidth(), cFrame->sampleRate(), uCount});
    mcTransform.configure(cWanted.mpWindow->mpName, mcPlan.muFFTSize, mcPlan.muBins, mcPlan.mfNoiseCorrection);
    mcApplied = cWanted;
    mcReferenceFrame = cFrame;
    muNextTime = cFrame->getTimestamp(kNanoseconds);
    muOutputSequence = 0;
    mpUnits = cFrame->getUnits() == kUnitsSqrtMilliwatt ? "dBm" : "dB";
}

bool IQToSpectrum::makeSpectrum(uint32_t uSequence) {
    ReferencePtr<FloatArray> cLevels = mcTransform.levels();
    const uint32_t uHop = spectrumHop(mcPlan.muFFTSize, mfOverlap.load(kRelaxed), mcApplied.mbFollow);
    mcTransform.advance(uHop);
    const float fRate = mcReferenceFrame->sampleRate();
    const auto cSpectrum = makeReference<SpectrumFrame>(
        mcApplied.mbFollow ? uSequence : muOutputSequence++, muNextTime, spectrumDuration(mcPlan.muFFTSize, fRate),
        uint32_t{kNanoseconds}, mcPlan.mfMinHz, mcPlan.mfMaxHz, mcPlan.mfEffectiveRBWHz,
        mcReferenceFrame->referenceLevel(), mcApplied.mpWindow->mpName, std::move(cLevels), mpUnits);
    cSpectrum->getExtras()->set("MatchIQ", uSequence);
    muNextTime += spectrumTimeStep(uHop, fRate);
    return deliverFrame(cSpectrum, false);
}
