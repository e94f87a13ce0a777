#pragma once

#include "flows/framesink.h"

/// A sink of spectrum frames with the parameters of a sweep.
class SpectrumFrameSink : public FrameSink {
 public:
    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override;

 protected:
    bool integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override;

 private:
    utils::NamedLock mcParametersLock{"SpectrumFrameSink::mcParametersLock"};
    float mfMinHz GUARDED_BY(mcParametersLock) = 0.0f;
    float mfMaxHz GUARDED_BY(mcParametersLock) = 0.0f;
    float mfRBWHz GUARDED_BY(mcParametersLock) = 0.0f;
    float mfRefdBm GUARDED_BY(mcParametersLock) = -40.0f;
    float mfUserCaldB GUARDED_BY(mcParametersLock) = 0.0f;
    std::string mcWindowName GUARDED_BY(mcParametersLock);
    uint32_t muCaptureFrames GUARDED_BY(mcParametersLock) = 0;
};
