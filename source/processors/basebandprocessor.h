#pragma once

#include "flows/basebandframe.h"
#include "flows/iqframe.h"
#include "processors/processor.h"

class BasebandResampler;

/// Turns IQ frames into frames of one channel of audio: at the input's rate, or at an output rate once one
/// has been set. The audio has no unit of power.
///
/// A frame is worked on under the lock that a change of parameters takes, and delivered outside it.
class BasebandProcessor : public Processor {
 public:
    BasebandProcessor(std::string name, std::string lockName);

    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    bool setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) override;
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override;
    /// Sinks of baseband frames only.
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override;

 protected:
    ~BasebandProcessor() override;
    void processFrame(ReferencePtr<Frame> cFrame) override;
    /// Writes one value of audio for each sample of the frame.
    virtual void demodulate(const IQFrame& cFrame, float* pAudio) REQUIRES(mcProcessChange) = 0;
    void restartCount() { muFramesProcessed = 0; }

    utils::NamedLock mcProcessChange;

 private:
    void deliver(ReferencePtr<BasebandFrame> cFrame);

    std::atomic<uint32_t> muFramesProcessed{0};
    float mfOutputRateHz GUARDED_BY(mcProcessChange) = 0.0f;
    ReferencePtr<BasebandResampler> mcResampler GUARDED_BY(mcProcessChange);
};
