#pragma once

#include "flows/framesink.h"
#include "flows/iqframe.h"

/// A sink of IQ frames with the parameters of an IQ capture and running measurements.
class IQFrameSink : public FrameSink {
 public:
    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    void setSource(FrameSource* pSource) override;
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override;
    /// receiveFrame with `last` false, then the measurements. Asserts on a frame with no duration.
    virtual void receiveMeasured(ReferencePtr<Frame> cFrame);

 protected:
    bool integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override;

 private:
    void resetMeasurements();
    void measure(const IQFrame& cFrame);

    // Requested.
    std::atomic<float> mfCentreHz{0.0f};
    std::atomic<float> mfIFBWHz{0.0f};
    std::atomic<float> mfRefdBm{-40.0f};
    std::atomic<float> mfUserCaldB{0.0f};
    std::atomic<float> mfCaptureSec{0.0f};
    std::atomic<bool> mbAdaptFull{false};
    std::atomic<bool> mbAdaptStep{false};
    // Measured: written on the producer's thread, each read by itself.
    std::atomic<float> mfSampleRateHz{0.0f};
    std::atomic<uint32_t> muFramesExpected{0};
    std::atomic<float> mfPeakLevel{kLevelNotMeasured};
    std::atomic<float> mfAverageDBm{-1000.0f};
    std::atomic<float> mfMagnitudeSum{0.0f};
    std::atomic<bool> mbSubOptimal{false};
    std::atomic<float> mfSeconds{0.0f};
    std::atomic<uint64_t> muSamples{0};
};
