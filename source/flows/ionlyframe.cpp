#include "flows/ionlyframe.h"

#include "flows/framebytes.h"
#include "flows/iqconversion.h"

namespace {
constexpr uint32_t kMarker = 0x10712F7A;
}

IOnlyFrame::IOnlyFrame(uint32_t uSequence, uint64_t uZerothSample, uint64_t uTimestamp, uint32_t uResolution,
                       float fCentreHz, float fBandwidthHz, float fSampleRateHz, float fReferenceLevel,
                       const Band& cBand, ReferencePtr<FloatArray> cSamples, std::string units)
    : Frame(uSequence, uTimestamp, uResolution, fCentreHz, fBandwidthHz, fReferenceLevel, std::move(units)),
      muZerothSample(uZerothSample),
      mfSampleRateHz(fSampleRateHz),
      mcBand(cBand),
      mcIOnly(std::move(cSamples)) {}

uint64_t IOnlyFrame::getEndTime(uint32_t uResolution) const {
    return endTimeOf(mcIOnly ? mcIOnly->getActive() : 0, mfSampleRateHz, uResolution);
}

uint64_t IOnlyFrame::getAllocatedBytes() const {
    return mcIOnly ? uint64_t{mcIOnly->getAllocated()} * sizeof(float) : 0;
}

uint64_t IOnlyFrame::getDataBytes() const {
    return getAllocatedBytes();
}

utils::VariantRecord IOnlyFrame::getParameters(bool bInvariantOnly) const {
    utils::VariantRecord cRecord = Frame::getParameters(bInvariantOnly);
    cRecord.set("SampleRateHz", mfSampleRateHz);
    cRecord.set("TuningOffsetHz", mcBand.mfTuningOffsetHz);
    cRecord.set("FMinUsableHz", mcBand.mfMinUsableHz);
    cRecord.set("FMaxUsableHz", mcBand.mfMaxUsableHz);
    cRecord.set("InvertedSpectrum", mcBand.mbInverted);
    if (!bInvariantOnly)
        cRecord.set("ZerothSample", muZerothSample);
    return cRecord;
}

uint64_t IOnlyFrame::writeTo(std::ostream& cStream) const {
    if (!mcIOnly)
        return 0;
    const uint32_t uCount = mcIOnly->getActive();
    FrameBytes::write(cStream, kMarker);
    FrameBytes::write(cStream, uCount);
    FrameBytes::writeSamples(cStream, mcIOnly->getData(), uCount);
    return uint64_t{uCount} * sizeof(float) + 8;
}

uint64_t IOnlyFrame::readFrom(std::istream& cStream) {
    // Unlike the other kinds, this one does not clear the error state of the stream.
    uint32_t uCount = 0;
    FrameBytes::Reading cReading(cStream, false);
    if (!cReading.marker(kMarker) || !cReading.fields(uCount))
        return 0;
    ReferencePtr<FloatArray> cSamples = FrameBytes::readSamples<float>(cStream, uCount);
    if (!cSamples)
        return 0;
    mcIOnly = std::move(cSamples);
    cReading.keep();
    return uCount;
}

ReferencePtr<IQFrame> IOnlyFrame::getIQ(IQConversion& cConversion) {
    if (!mcConverted)
        mcConverted = cConversion.convert(ReferencePtr<IOnlyFrame>(this));
    return mcConverted;
}
