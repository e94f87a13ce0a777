#pragma once

#include <optional>

#include "dsp/biquadfilter.h"
#include "dsp/hilberttransformer.h"
#include "dsp/iirfilter.h"
#include "processors/basebandprocessor.h"

/// Audio from the amplitude of both sidebands or from the upper or lower one alone, freed of its mean and
/// divided by a peak that decays with a time constant of a tenth of a second, so that it lies between -1
/// and 1. Where a frame is missing it begins anew, from rest.
class AMDemodulator : public BasebandProcessor {
 public:
    AMDemodulator();

    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    bool setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) override;

    /// How many samples have come in.
    uint64_t samplesTaken() const { return muSamplesTaken.load(std::memory_order_relaxed); }

 protected:
    ~AMDemodulator() override;
    void demodulate(const IQFrame& cFrame, float* pAudio) override REQUIRES(mcProcessChange);

 private:
    enum Subtype : uint32_t { kDSB = 0, kLSB = 1, kUSB = 2 };
    static std::optional<Subtype> subtypeOf(const std::string& text);

    void setSubtype(Subtype eSubtype);
    void rebuild(float fRate) REQUIRES(mcProcessChange);
    void detect(const Complex<float>* pSamples, float* pAudio, uint32_t uCount) REQUIRES(mcProcessChange);
    /// May run in place.
    template <typename Level>
    void normalise(const Level* pLevel, float* pAudio, uint32_t uCount) REQUIRES(mcProcessChange);

    Subtype meSubtype GUARDED_BY(mcProcessChange) = kDSB;
    std::optional<uint32_t> muNextSequence GUARDED_BY(mcProcessChange);  // empty: begin anew
    std::atomic<uint64_t> muSamplesTaken{0};
    SingleSideband mcSingleSideband;
    ComplexBiquadCascade<3> mcLowPass;
    IIR mcAudioFilter;
    double mfAlpha = 0.0;
    double mfMean = 0.0;
    double mfPeak = 0.0;
};
