#include "streams/recordingdescription.h"

#include "flows/basebandframe.h"
#include "flows/iqframe.h"
#include "flows/spectrumframe.h"

void RecordingDescription::takeSource(const utils::VariantRecord& cParameters) {
    if (const utils::Variant* pSource = cParameters.find("source"))
        mcSource = *pSource;
}

void RecordingDescription::noteFirst(const Frame& cFrame) {
    mcSampling = cFrame.getParameters(true);
    mcSummary.set("StartTimestamp", cFrame.getTimestamp(kNanoseconds));
    mcSummary.set("Encoding", cFrame.getElementType());
    mcSummary.set("TimeResolution", timeResolutionText(cFrame.timeResolution()));
    mcDataType = cFrame.getTypeName();   // last: it says that all of this is there
}

void RecordingDescription::note(const Frame& cFrame) {
    if (mcDataType.empty())
        noteFirst(cFrame);
    muEndTimestamp = cFrame.getEndTime(kNanoseconds);
    uint32_t uCount = 0;
    if (mcDataType == "IQ") {
        const auto* pIQ = dynamic_cast<const IQFrame*>(&cFrame);
        VNK_ASSERT(pIQ != nullptr);
        pIQ->getSamples(uCount);
        muSamples += uCount;
    } else if (mcDataType == "Spectrum") {
        const auto* pSpectrum = dynamic_cast<const SpectrumFrame*>(&cFrame);
        VNK_ASSERT(pSpectrum != nullptr);
        pSpectrum->getSpectrum(uCount);
        muPointsPerFrame = uCount;
        ++muFrames;
    } else if (mcDataType == "Baseband") {
        const auto* pBaseband = dynamic_cast<const BasebandFrame*>(&cFrame);
        VNK_ASSERT(pBaseband != nullptr);
        muSamples += pBaseband->samplesPerChannel();
    }
}

std::string RecordingDescription::toText() const {
    utils::VariantRecord cRecord;
    if (mcSource)
        cRecord.set("source", *mcSource);
    if (!mcDataType.empty()) {
        utils::VariantRecord cSummary = mcSummary;
        cSummary.set("EndTimestamp", muEndTimestamp);
        if (mcDataType == "Spectrum") {
            cSummary.set("PointsPerFrame", muPointsPerFrame);
            cSummary.set("Frames", muFrames);
        } else if (mcDataType == "IQ" || mcDataType == "Baseband") {
            cSummary.set("Samples", muSamples);
        }
        cRecord.set("DataType", mcDataType);
        cRecord.set("Sampling", mcSampling);
        cRecord.set(mcDataType, cSummary);
    }
    return cRecord.toPrettyText();
}
