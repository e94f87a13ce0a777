#pragma once

#include "flows/frame.h"

/// Complex baseband samples, in square roots of milliwatts.
class IQFrame : public Frame {
 public:
    IQFrame(uint32_t uSequence, uint64_t uZerothSample, uint64_t uTimestamp, uint32_t uResolution, float fCentreHz,
            float fBandwidthHz, float fSampleRateHz, float fReferenceLevel, ReferencePtr<ComplexArray> cSamples,
            std::string units);

    uint64_t getEndTime(uint32_t uResolution) const override;
    float getDurationSec() const override;
    uint64_t getAllocatedBytes() const override;
    std::string getTypeName() const override { return "IQ"; }
    utils::VariantRecord getParameters(bool bInvariantOnly) const override;
    uint64_t getDataBytes() const override;
    std::string getElementType() const override { return "Complex<_float32> LE"; }
    uint64_t writeTo(std::ostream& cStream) const override;
    uint64_t readFrom(std::istream& cStream) override;

    /// Null and 0 if the frame has no array.
    Complex<float>* getSamples(uint32_t& uCount) const;
    ReferencePtr<ComplexArray> getArray() const { return mcSamples; }
    float sampleRate() const { return mfSampleRateHz; }
    uint64_t zerothSample() const { return muZerothSample; }
    float phaseRotation() const { return mfPhaseRotation; }
    void setPhaseRotation(float fPhase) { mfPhaseRotation = fPhase; }

 private:
    float mfSampleRateHz;
    float mfPhaseRotation = 0.0f;
    uint64_t muZerothSample;
    ReferencePtr<ComplexArray> mcSamples;
};
