#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <string>
#include <vector>

#include "flows/iqframe.h"
#include "flows/spectrumframe.h"
#include "flows/spectrumframesink.h"

namespace vnktest {

using Samples = std::vector<std::complex<float>>;

/// The labels of IQ frames.
struct Tuning {
    float mfCentreHz = 100e6f;
    float mfRateHz = 1e6f;
    float mfBandwidthHz = 800e3f;
    float mfReference = -30.0f;
    std::string units = kUnitsSqrtMilliwatt;
};

inline ReferencePtr<IQFrame> framed(const Samples& lSamples, uint32_t uSequence, const Tuning& cTuning = {},
                                    uint64_t uTime = 0) {
    auto cArray = makeReference<ComplexArray>(static_cast<uint32_t>(lSamples.size()));
    for (size_t i = 0; i < lSamples.size(); ++i)
        cArray->getData()[i] = {lSamples[i].real(), lSamples[i].imag()};
    return makeReference<IQFrame>(uSequence, uint64_t{0}, uTime, uint32_t{kNanoseconds}, cTuning.mfCentreHz,
                                  cTuning.mfBandwidthHz, cTuning.mfRateHz, cTuning.mfReference, cArray, cTuning.units);
}

inline std::vector<float> valuesOf(const FloatArray& cArray) {
    return {cArray.getData(), cArray.getData() + cArray.getActive()};
}

inline std::vector<float> levelsOf(const SpectrumFrame& cFrame) {
    uint32_t uCount = 0;
    const float* pLevels = cFrame.getSpectrum(uCount);
    return {pLevels, pLevels + uCount};
}

inline ReferencePtr<SpectrumFrame> spectrumOf(const std::vector<float>& lLevels, uint32_t uSequence = 0) {
    auto cArray = makeReference<FloatArray>(static_cast<uint32_t>(lLevels.size()));
    std::copy(lLevels.begin(), lLevels.end(), cArray->getData());
    return makeReference<SpectrumFrame>(uSequence, uint64_t{77} + uSequence, uint64_t{5}, uint32_t{kNanoseconds}, 90e6f,
                                        110e6f, 1e3f, -20.0f, std::string("hann"), cArray, std::string("dBm"));
}

/// Keeps every spectrum, on the producer's thread and without a limit.
class KeepingSink : public SpectrumFrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool) override {
        if (cFrame)
            mlFrames.push_back(dynamicReferenceCast<SpectrumFrame>(cFrame));
    }
    std::vector<ReferencePtr<SpectrumFrame>> take() { return std::exchange(mlFrames, {}); }

    std::vector<ReferencePtr<SpectrumFrame>> mlFrames;
};

/// A processor with a sink behind it; frames are handed to it directly, without its thread.
template <typename Processor>
struct DirectBench {
    DirectBench() {
        ErrorList lErrors;
        EXPECT_TRUE(mcProcessor->attachFrameSink(mcSink, lErrors));
    }
    ~DirectBench() { mcSink->detachFromSource(); }

    void set(const std::string& text) {
        ErrorList lErrors;
        utils::VariantRecord cRecord(text.c_str());
        EXPECT_TRUE(mcProcessor->setSinkParameters(cRecord, lErrors, true)) << text;
    }
    /// What one frame gives.
    std::vector<ReferencePtr<SpectrumFrame>> process(ReferencePtr<Frame> cFrame) {
        mcProcessor->processFrame(std::move(cFrame));
        return mcSink->take();
    }

    ReferencePtr<Processor> mcProcessor = makeReference<Processor>();
    ReferencePtr<KeepingSink> mcSink = makeReference<KeepingSink>();
};

}  // namespace vnktest
