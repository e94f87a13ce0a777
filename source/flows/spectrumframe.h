#pragma once

#include "flows/frame.h"

/// A power spectrum, one value per bin in ascending frequency order, with optional further traces.
class SpectrumFrame : public Frame {
 public:
    SpectrumFrame(uint32_t uSequence, uint64_t uTimestamp, uint64_t uDuration, uint32_t uResolution, float fMinHz,
                  float fMaxHz, float fRBWHz, float fReferenceLevel, std::string windowName,
                  ReferencePtr<FloatArray> cSpectrum, std::string units);
    /// Deep copy of spectrum and traces, same sequence and timestamp.
    SpectrumFrame(const SpectrumFrame& cOther);
    /// For frames read from a file: deep copy, duration 0, sequence and timestamp by the Frame copy rule.
    SpectrumFrame(const SpectrumFrame& cOther, uint32_t uSequence, uint64_t uTimestamp);

    uint64_t getEndTime(uint32_t uResolution) const override;
    float getDurationSec() const override;
    uint64_t getAllocatedBytes() const override;
    std::string getTypeName() const override { return "Spectrum"; }
    utils::VariantRecord getParameters(bool bInvariantOnly) const override;
    uint64_t getDataBytes() const override;
    std::string getElementType() const override { return "_float32 LE"; }
    uint64_t writeTo(std::ostream& cStream) const override;
    uint64_t readFrom(std::istream& cStream) override;

    float* getSpectrum(uint32_t& uCount) const;
    /// Appends an array as long as the spectrum; `uCount` receives the number of traces before.
    float* addTrace(uint32_t& uCount);
    const std::vector<ReferencePtr<FloatArray>>& traces() const { return mcTraces; }
    float rbw() const { return mfRBWHz; }
    const std::string& windowName() const { return mcWindowName; }
    uint64_t duration() const { return muDuration; }
    /// The duration converted as a timestamp is.
    uint64_t getDuration(uint32_t uResolution) const;

 private:
    void copyArrays(const SpectrumFrame& cOther);

    float mfRBWHz;
    std::string mcWindowName;
    uint64_t muDuration;
    ReferencePtr<FloatArray> mcSpectrum;
    std::vector<ReferencePtr<FloatArray>> mcTraces;
};
