#include "streams/recordingcontents.h"

#include "flows/entity.h"
#include "flows/frame.h"

namespace {

void read(const utils::VariantRecord& cRecord, std::string_view key, float& fField) {
    fField = cRecord.getNumber(key).value_or(fField);
}

void read(const utils::VariantRecord& cRecord, std::string_view key, std::string& field) {
    field = cRecord.getText(key).value_or(field);
}

void read(const utils::VariantRecord& cRecord, std::string_view key, uint32_t& uField) {
    uField = readUnsigned32(cRecord, key).value_or(uField);
}

// A whole number of any of the four kinds; a float is none.
void read(const utils::VariantRecord& cRecord, std::string_view key, uint64_t& uField) {
    const utils::Variant* pValue = cRecord.find(key);
    if (!pValue)
        return;
    switch (pValue->getType()) {
        case utils::Variant::kInt32:
            uField = static_cast<uint64_t>(int64_t{pValue->getInt32()});
            break;
        case utils::Variant::kUnsigned32:
            uField = pValue->getUnsigned32();
            break;
        case utils::Variant::kInt64:
        case utils::Variant::kUnsigned64:
            uField = pValue->getUnsigned64();
            break;
        default:
            break;
    }
}

const utils::VariantRecord* nestedRecord(const utils::VariantRecord& cRecord, std::string_view key) {
    const utils::Variant* pValue = cRecord.find(key);
    return pValue && pValue->getType() == utils::Variant::kRecord ? pValue->getRecord() : nullptr;
}

void readSampled(RecordingContents& cContents, const utils::VariantRecord& cSummary) {
    read(cContents.mcSampling, "SampleRateHz", cContents.mfSampleRateHz);
    read(cSummary, "Samples", cContents.muSampleTotal);
    read(cSummary, "units", cContents.mcUnits);
}

void readSpectrum(RecordingContents& cContents, const utils::VariantRecord& cSummary) {
    read(cContents.mcSampling, "RBWHz", cContents.mfRBWHz);
    read(cContents.mcSampling, "WindowFn", cContents.mcWindowName);
    read(cSummary, "Frames", cContents.muFrameTotal);
    cContents.mcSampling.set("FMinHz", cContents.minimumHz());
    cContents.mcSampling.set("FMaxHz", cContents.maximumHz());
}

}  // namespace

RecordingContents::RecordingContents() : muResolution(timeResolutionFromText({})) {}

std::optional<uint32_t> readUnsigned32(const utils::VariantRecord& cRecord, std::string_view key) {
    const utils::Variant* pValue = cRecord.find(key);
    if (!pValue)
        return std::nullopt;
    utils::VariantRecord cOne;
    cOne.set(key, *pValue);
    return takeCount(cOne, key);
}

std::optional<RecordingContents> RecordingContents::parse(std::string_view text) {
    utils::VariantRecord cDescription;
    cDescription.parse(text);
    RecordingContents cContents;
    const auto dataType = cDescription.getText("DataType");
    const utils::VariantRecord* pSummary = dataType ? nestedRecord(cDescription, *dataType) : nullptr;
    const utils::VariantRecord* pSampling = nestedRecord(cDescription, "Sampling");
    if (!pSummary || !pSampling)
        return std::nullopt;
    cContents.mcDataType = *dataType;
    cContents.mcSampling = *pSampling;
    read(*pSampling, "BandwidthHz", cContents.mfBandwidthHz);
    read(*pSampling, "FCentreHz", cContents.mfCentreHz);
    // Recordings store the level as "RefdBm": one that is played does not get its level from the file.
    read(*pSampling, "ReferenceLeveldBm", cContents.mfReferenceLevel);
    read(*pSampling, "units", cContents.mcUnits);
    if (const auto resolution = pSummary->getText("TimeResolution"))
        cContents.muResolution = timeResolutionFromText(*resolution);
    read(*pSummary, "StartTimestamp", cContents.muStartTime);
    read(*pSummary, "EndTimestamp", cContents.muEndTime);
    read(*pSummary, "PointsPerFrame", cContents.muPointsPerFrame);
    if (*dataType == "Spectrum")
        readSpectrum(cContents, *pSummary);
    else if (*dataType == "IQ" || *dataType == "Baseband")
        readSampled(cContents, *pSummary);
    return cContents;
}
