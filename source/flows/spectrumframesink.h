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
    struct Settings {
        float mfMinHz = 0.0f;
        float mfMaxHz = 0.0f;
        float mfRBWHz = 0.0f;
        float mfRefdBm = -40.0f;
        float mfUserCaldB = 0.0f;
        std::string mcWindowName;
        uint32_t muCaptureFrames = 0;
        bool mbFlatten = false;
    };
    Settings settings();
    static void takeFrequencies(utils::VariantRecord& cRecord, Settings& cSettings, ErrorList& lErrors);

    utils::NamedLock mcParametersLock{"SpectrumFrameSink::mcParametersLock"};
    Settings mcSettings GUARDED_BY(mcParametersLock);
};
