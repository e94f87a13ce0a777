#include "flows/iqframe.h"

#include "flows/framebytes.h"

namespace {
constexpr uint32_t kMarker = 0x12F7A2E6;
}

IQFrame::IQFrame(uint32_t uSequence, uint64_t uZerothSample, uint64_t uTimestamp, uint32_t uResolution,
                 float fCentreHz, float fBandwidthHz, float fSampleRateHz, float fReferenceLevel,
                 ReferencePtr<ComplexArray> cSamples, std::string units)
    : Frame(uSequence, uTimestamp, uResolution, fCentreHz, fBandwidthHz, fReferenceLevel, std::move(units)),
      mfSampleRateHz(fSampleRateHz),
      muZerothSample(uZerothSample),
      mcSamples(std::move(cSamples)) {}

uint64_t IQFrame::getEndTime(uint32_t uResolution) const {
    return endTimeOf(mcSamples ? mcSamples->getActive() : 0, mfSampleRateHz, uResolution);
}

float IQFrame::getDurationSec() const {
    return static_cast<float>(mcSamples ? mcSamples->getActive() : 0) / mfSampleRateHz;
}

uint64_t IQFrame::getAllocatedBytes() const {
    return mcSamples ? uint64_t{mcSamples->getAllocated()} * sizeof(Complex<float>) : 0;
}

uint64_t IQFrame::getDataBytes() const {
    return getAllocatedBytes();
}

utils::VariantRecord IQFrame::getParameters(bool bInvariantOnly) const {
    utils::VariantRecord cRecord = Frame::getParameters(bInvariantOnly);
    cRecord.set("SampleRateHz", mfSampleRateHz);
    if (mfPhaseRotation != 0.0f)
        cRecord.set("PhaseRotation", mfPhaseRotation);
    if (!bInvariantOnly)
        cRecord.set("ZerothSample", muZerothSample);
    return cRecord;
}

uint64_t IQFrame::writeTo(std::ostream& cStream) const {
    if (!mcSamples)
        return 0;
    const uint32_t uCount = mcSamples->getActive();
    FrameBytes::write(cStream, kMarker);
    FrameBytes::write(cStream, muTimestamp);
    FrameBytes::write(cStream, muSequence);
    FrameBytes::write(cStream, uCount);
    FrameBytes::writeSamples(cStream, mcSamples->getData(), uCount);
    return uint64_t{uCount} * sizeof(Complex<float>) + 8;
}

uint64_t IQFrame::readFrom(std::istream& cStream) {
    uint64_t uTimestamp = 0;
    uint32_t uSequence = 0;
    uint32_t uCount = 0;
    FrameBytes::Reading cReading(cStream, true);
    if (!cReading.marker(kMarker) || !cReading.fields(uTimestamp, uSequence, uCount))
        return 0;
    ReferencePtr<ComplexArray> cSamples = FrameBytes::readSamples<Complex<float>>(cStream, uCount);
    if (!cSamples)
        return 0;
    muTimestamp = uTimestamp;
    muSequence = uSequence;
    mcSamples = std::move(cSamples);
    cReading.keep();
    return uCount;
}

Complex<float>* IQFrame::getSamples(uint32_t& uCount) const {
    uCount = mcSamples ? mcSamples->getActive() : 0;
    return mcSamples ? mcSamples->getData() : nullptr;
}
