#pragma once

#include <list>

#include "dsp/biquadfilter.h"
#include "flows/basebandframe.h"
#include "foundations/namedlock.h"

/// Lowers the rate of a stream of single-channel frames by a low-pass and linear interpolation, and hands it
/// out in blocks of 1024 samples. Frames go in and blocks come out on one thread.
class BasebandResampler : public utils::ReferenceCountedObject {
 public:
    static constexpr uint32_t kBlock = 1024;

    /// The rate in hertz.
    explicit BasebandResampler(float fOutputRate) : mfOutputRate(fOutputRate) {}

    float outputRate() const { return mfOutputRate; }
    /// Null does nothing. A frame of another rate than the one before drops all that waits and builds the
    /// filter anew; asserts that the rate is a number. Keeps nothing at a rate of which a block takes more
    /// than 2^26 samples.
    void addFrame(ReferencePtr<BasebandFrame> cFrame);
    /// The next block, or null while too little is pending for it. Sequences rise from 0. Times advance by
    /// whole blocks from that of the frame in which the first block begins, anew after a change of rate.
    /// Asserts that the output rate lies below the input rate.
    ReferencePtr<BasebandFrame> getFrame();

 private:
    void setInputRate(float fRate) REQUIRES(mcInputBufferLock);
    /// Of the filter, and the usable bandwidth of the blocks: 0.4 of the lower rate.
    float cutOff() const { return (mbDecimating ? mfOutputRate : mfInputRate) * 0.5f * 0.8f; }
    bool isEnoughPending(float fStep);
    bool takeFrame();
    void beginBlock(const BasebandFrame& cSource);
    void filterFrame(BasebandFrame& cFrame);
    void fillBlock(float fStep);
    void consume(uint32_t uOffset);
    void releaseFrame();

    BiquadFilter mcFilter;
    bool mbDecimating = false;
    float mfInputRate = 0.0f;
    float mfOutputRate;
    uint32_t muOutputBlock = kBlock;
    utils::NamedLock mcInputBufferLock{"BasebandResampler::mcInputBufferLock"};
    std::list<ReferencePtr<BasebandFrame>> mlInput GUARDED_BY(mcInputBufferLock);
    uint32_t muPending GUARDED_BY(mcInputBufferLock) =
        0;  // samples not yet consumed, the current frame's too
    ReferencePtr<BasebandFrame> mcCurrentFrame;
    uint32_t muCurrentOffset = 0;  // consumed samples of it
    ReferencePtr<BasebandFrame> mcOutputFrame;
    float mfPosition = 0.0f;  // in samples of the current frame; below 0 in the joint with the one before
    float mfLastSample = 0.0f;
    ReferencePtr<FloatArray> mcWork;  // the current frame, filtered
    uint32_t muFilled = 0;            // samples of the output frame
    uint32_t muNextSequence = 0;
    uint64_t muBlockTime = 0;
    bool mbFirstBlock = true;
};
