#pragma once

#include <atomic>

#include "flows/spectrumframe.h"
#include "processors/movingaverage.h"
#include "processors/processor.h"

/// Passes spectra on with three further traces: minimum, maximum and average of those that have come since each
/// was cleared. The spectra that come are left as they are: what goes out are copies.
///
/// The average is of the values in their own unit, over a window whose length jumps between `Average` - 1 and
/// `Average`: the spectrum that fills it is used, and then the oldest goes. Whatever number `Average` is set to, the
/// window takes no more than 10000 spectra, the greatest number that its schema allows.
class SpectrumCharacterizationProcessor final : public Processor {
 public:
    SpectrumCharacterizationProcessor();

    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    /// The clear flags stand until the next spectrum.
    bool setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) override;
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override;
    /// Sinks of spectra only.
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override;

    void processFrame(ReferencePtr<Frame> cFrame) override;

 private:
    struct Clearing {
        bool mbAverage;
        bool mbMaxHold;
        bool mbMinHold;
    };
    void copyFrame(const SpectrumFrame& cFrame);
    void applyLength();
    void update();
    void restart();
    void clear(const Clearing& cClearing);
    void clearTrace(const char* pNote, FloatArray& cTrace);
    void addTraces(const Clearing& cClearing);
    uint32_t addTrace(const FloatArray& cTrace);

    // Set by callers while frames are processed.
    std::atomic<uint32_t> muAverageLength{1};
    std::atomic<bool> mbClearAverage{false};
    std::atomic<bool> mbClearMaxHold{false};
    std::atomic<bool> mbClearMinHold{false};

    ReferencePtr<SpectrumFrame> mcReferenceFrame;
    ReferencePtr<FloatArray> mcMaxHold;
    ReferencePtr<FloatArray> mcMinHold;
    ReferencePtr<FloatArray> mcAverage;
    MovingAverage mcHistory;
    uint32_t muAppliedLength = 1;
    uint32_t muBins = 0;
    bool mbReset = true;
};
