#include "flows/spectrumframe.h"

#include "flows/framebytes.h"

namespace {
constexpr uint32_t kMarker = 0x59EC7422;
}

SpectrumFrame::SpectrumFrame(uint32_t uSequence, uint64_t uTimestamp, uint64_t uDuration,
                             uint32_t uResolution, float fMinHz, float fMaxHz, float fRBWHz,
                             float fReferenceLevel, std::string windowName,
                             ReferencePtr<FloatArray> cSpectrum, std::string units)
    : Frame(uSequence, uTimestamp, uResolution, (fMinHz + fMaxHz) * 0.5f, fMaxHz - fMinHz, fReferenceLevel,
            std::move(units)),
      mfRBWHz(fRBWHz),
      mcWindowName(std::move(windowName)),
      muDuration(uDuration),
      mcSpectrum(std::move(cSpectrum)) {}

SpectrumFrame::SpectrumFrame(const SpectrumFrame& cOther)
    : Frame(cOther, cOther.muSequence, cOther.muTimestamp),
      mfRBWHz(cOther.mfRBWHz),
      mcWindowName(cOther.mcWindowName),
      muDuration(cOther.muDuration) {
    copyArrays(cOther);
}

SpectrumFrame::SpectrumFrame(const SpectrumFrame& cOther, uint32_t uSequence, uint64_t uTimestamp)
    : Frame(cOther, uSequence, uTimestamp),
      mfRBWHz(cOther.mfRBWHz),
      mcWindowName(cOther.mcWindowName),
      muDuration(0) {
    copyArrays(cOther);
}

void SpectrumFrame::copyArrays(const SpectrumFrame& cOther) {
    if (cOther.mcSpectrum)
        mcSpectrum = ReferencePtr<FloatArray>(new FloatArray(*cOther.mcSpectrum));
    for (const ReferencePtr<FloatArray>& cTrace : cOther.mcTraces)
        mcTraces.emplace_back(new FloatArray(*cTrace));
}

uint64_t SpectrumFrame::getEndTime(uint32_t uResolution) const {
    return convertTicks(getTimestamp(kNanoseconds) + muDuration, kNanoseconds, uResolution);
}

float SpectrumFrame::getDurationSec() const {
    return static_cast<float>(muDuration) * secondsPerTick(muResolution);
}

uint64_t SpectrumFrame::getDuration(uint32_t uResolution) const {
    return convertTicks(muDuration, muResolution, uResolution);
}

uint64_t SpectrumFrame::getAllocatedBytes() const {
    return mcSpectrum ? uint64_t{mcSpectrum->getAllocated()} * sizeof(float) : 0;
}

uint64_t SpectrumFrame::getDataBytes() const {
    return getAllocatedBytes();
}

utils::VariantRecord SpectrumFrame::getParameters(bool bInvariantOnly) const {
    utils::VariantRecord cRecord = Frame::getParameters(bInvariantOnly);
    cRecord.set("RBWHz", mfRBWHz);
    cRecord.set("WindowFn", mcWindowName);
    return cRecord;
}

uint64_t SpectrumFrame::writeTo(std::ostream& cStream) const {
    if (!mcSpectrum)
        return 0;
    const uint32_t uCount = mcSpectrum->getActive();
    FrameBytes::write(cStream, kMarker);
    FrameBytes::write(cStream, muTimestamp);
    FrameBytes::write(cStream, muDuration);
    FrameBytes::write(cStream, muSequence);
    FrameBytes::write(cStream, uCount);
    FrameBytes::writeSamples(cStream, mcSpectrum->getData(), uCount);
    return uint64_t{uCount} * sizeof(float) + 8;
}

uint64_t SpectrumFrame::readFrom(std::istream& cStream) {
    uint64_t uTimestamp = 0;
    uint64_t uDuration = 0;
    uint32_t uSequence = 0;
    uint32_t uCount = 0;
    FrameBytes::Reading cReading(cStream, true);
    if (!cReading.marker(kMarker) || !cReading.fields(uTimestamp, uDuration, uSequence, uCount))
        return 0;
    ReferencePtr<FloatArray> cSpectrum = FrameBytes::readSamples<float>(cStream, uCount);
    if (!cSpectrum)
        return 0;
    muTimestamp = uTimestamp;
    muDuration = uDuration;
    muSequence = uSequence;
    mcSpectrum = std::move(cSpectrum);
    cReading.keep();
    return uCount;
}

float* SpectrumFrame::getSpectrum(uint32_t& uCount) const {
    uCount = mcSpectrum ? mcSpectrum->getActive() : 0;
    return mcSpectrum ? mcSpectrum->getData() : nullptr;
}

float* SpectrumFrame::addTrace(uint32_t& uCount) {
    uCount = static_cast<uint32_t>(mcTraces.size());
    mcTraces.emplace_back(new FloatArray(mcSpectrum ? mcSpectrum->getActive() : 0));
    return mcTraces.back()->getData();
}
