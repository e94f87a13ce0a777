#pragma once

#include "flows/frame.h"
#include "flows/iqframe.h"

class IQConversion;

/// Real direct-sampled data of the full-rate path.
class IOnlyFrame : public Frame {
 public:
    struct Band {
        float mfTuningOffsetHz;    // where the wanted centre lies in the real band
        float mfMinUsableHz;
        float mfMaxUsableHz;
        bool mbInverted;
    };
    IOnlyFrame(uint32_t uSequence, uint64_t uZerothSample, uint64_t uTimestamp, uint32_t uResolution,
               float fCentreHz, float fBandwidthHz, float fSampleRateHz, float fReferenceLevel, const Band& cBand,
               ReferencePtr<FloatArray> cSamples, std::string units);

    uint64_t getEndTime(uint32_t uResolution) const override;
    uint64_t getAllocatedBytes() const override;
    std::string getTypeName() const override { return "I"; }
    utils::VariantRecord getParameters(bool bInvariantOnly) const override;
    uint64_t getDataBytes() const override;
    std::string getElementType() const override { return "_float32 LE"; }
    uint64_t writeTo(std::ostream& cStream) const override;
    uint64_t readFrom(std::istream& cStream) override;

    /// The converted frame; converts at the first call and keeps the result. Null without an array.
    ReferencePtr<IQFrame> getIQ(IQConversion& cConversion);
    ReferencePtr<FloatArray> getArray() const { return mcIOnly; }
    float sampleRate() const { return mfSampleRateHz; }
    uint64_t zerothSample() const { return muZerothSample; }
    const Band& band() const { return mcBand; }

 private:
    friend class IQConversion;
    uint64_t muZerothSample;
    float mfSampleRateHz;
    Band mcBand;
    ReferencePtr<FloatArray> mcIOnly;
    ReferencePtr<IQFrame> mcConverted;
};
