#pragma once

#include <atomic>

#include "dsp/windowfunctions.h"
#include "flows/iqframe.h"
#include "processors/processor.h"
#include "processors/spectrumplan.h"
#include "processors/spectrumtransform.h"

/// Turns IQ frames into spectra in dBm: overlapping blocks of the stream whatever the frames' borders, as fine as
/// `RBWHz` asks for; or, with `FollowIQ`, one spectrum of each frame.
///
/// Parameters may be set while it runs and take effect at the next frame; one that is out of range is dropped
/// without a word. The times of spectra are told at spectrumTimeStep.
class IQToSpectrum final : public Processor {
 public:
    IQToSpectrum();

    utils::VariantRecord getParameterInfo() override;
    /// With the number of frames received since the last call.
    utils::VariantRecord getParameters() override;
    bool setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) override;
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override;
    /// Sinks of spectra only.
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override;

    void processFrame(ReferencePtr<Frame> cFrame) override;

 private:
    /// What the present configuration was made from.
    struct Applied {
        float mfRBWHz = 0;
        bool mbFollow = false;
        const WindowType* mpWindow = nullptr;
    };
    Applied wanted() const;
    void noteSequence(const ReferencePtr<IQFrame>& cFrame);
    bool fits(const Applied& cWanted, const IQFrame& cFrame, uint32_t uCount) const;
    void configure(const Applied& cWanted, const ReferencePtr<IQFrame>& cFrame, uint32_t uCount);
    /// False when nobody waits for the spectra any more.
    bool makeSpectrum(uint32_t uSequence);

    // Set by callers while frames are processed.
    std::atomic<float> mfRBWHz{1000.0f};
    std::atomic<float> mfOverlap{0.5f};
    std::atomic<bool> mbFollow{false};
    std::atomic<const WindowType*> mpWindow;
    std::atomic<uint32_t> muRecentFrames{0};

    Applied mcApplied;
    SpectrumPlan mcPlan;
    SpectrumTransform mcTransform;
    ReferencePtr<IQFrame> mcReferenceFrame;
    const char* mpUnits = "";
    uint32_t muLastSize = 0;
    uint32_t muNextSequence = 0;
    bool mbBrokenOff = false;   // the frame before was not taken whole
    uint32_t muOutputSequence = 0;
    uint64_t muNextTime = 0;
};
