#include "processors/basebandresampler.h"

#include <algorithm>
#include <cmath>

#include "dsp/filterdesigners.h"

namespace {

bool _inBetween(float fValue, float fLowest, float fHighest) {
    return fValue >= fLowest && fValue <= fHighest;
}

uint32_t samplesOf(BasebandFrame& cFrame) {
    return cFrame.channelCount() == 0
               ? 0
               : std::min(cFrame.samplesPerChannel(), cFrame.getChannel(0)->getActive());
}

/// Input samples that so many output samples take.
float inputFor(uint32_t uOutput, float fStep) {
    return std::ceil(static_cast<float>(uOutput) * fStep);
}

/// A block that takes more input is not waited for: the rate may be that of a forged file. A
/// receiver's 125 MHz and the lowest output rate ask for half as many.
constexpr float kMostForABlock = 0x1p26f;

}  // namespace

void BasebandResampler::addFrame(ReferencePtr<BasebandFrame> cFrame) {
    if (!cFrame)
        return;
    utils::ScopedLock cLock(mcInputBufferLock);
    if (cFrame->sampleRate() != mfInputRate)
        setInputRate(cFrame->sampleRate());
    const uint32_t uSamples = samplesOf(*cFrame);
    // Not kept is what no block will ever come of.
    const bool bUsable =
        mfInputRate != 0.0f && inputFor(muOutputBlock, mfInputRate / mfOutputRate) <= kMostForABlock;
    if (uSamples == 0 || !bUsable)
        return;
    mlInput.push_back(std::move(cFrame));
    muPending += uSamples;
}

void BasebandResampler::setInputRate(float fRate) {
    mlInput.clear();
    muPending = 0;
    muCurrentOffset = 0;
    mcCurrentFrame.release();
    mcOutputFrame.release();
    muFilled = 0;
    mfPosition = 0.0f;  // it counted in the frame that has gone
    mbFirstBlock = true;
    mfInputRate = fRate;
    mbDecimating = mfOutputRate > 0.0f && mfOutputRate < fRate;
    const float fHigh = mbDecimating ? fRate : mfOutputRate;
    mcFilter.setDesign(designDigitalButterworth(cutOff(), fHigh, 2));
}

ReferencePtr<BasebandFrame> BasebandResampler::getFrame() {
    if (mfInputRate == 0.0f)
        return nullptr;
    const float fStep = mfInputRate / mfOutputRate;
    if (!isEnoughPending(fStep))
        return nullptr;
    while (muFilled < muOutputBlock) {
        if (!mcCurrentFrame && !takeFrame())
            return nullptr;  // interpolation reaches a sample further than the count of them: it waits for
                             // more
        if (!mcOutputFrame)
            beginBlock(*mcCurrentFrame);
        fillBlock(fStep);
    }
    muFilled = 0;
    ++muNextSequence;
    return std::exchange(mcOutputFrame, nullptr);
}

bool BasebandResampler::isEnoughPending(float fStep) {
    utils::ScopedLock cLock(mcInputBufferLock);
    return !(static_cast<float>(muPending) < inputFor(muOutputBlock - muFilled, fStep));
}

/// The head of the list becomes the current frame, filtered. False if there is none.
bool BasebandResampler::takeFrame() {
    ReferencePtr<BasebandFrame> cHead;
    {
        utils::ScopedLock cLock(mcInputBufferLock);
        if (mlInput.empty())
            return false;
        cHead = mlInput.front();
    }
    if (!mcOutputFrame)
        beginBlock(*cHead);
    VNK_ASSERT_TEXT(mbDecimating, "false");
    filterFrame(*cHead);
    utils::ScopedLock cLock(mcInputBufferLock);
    mlInput.pop_front();
    mcCurrentFrame = std::move(cHead);
    muCurrentOffset = 0;
    return true;
}

void BasebandResampler::beginBlock(const BasebandFrame& cSource) {
    mcOutputFrame =
        makeReference<BasebandFrame>(cSource, muNextSequence, mfOutputRate, cutOff(), muOutputBlock);
    mcOutputFrame->setSequence(muNextSequence);  // a sequence of 0 took the source's
    if (!mbFirstBlock) {
        mcOutputFrame->setTimestamp(muBlockTime);
        const double fBlockNs = 1e9 * muOutputBlock / double{mfOutputRate};
        mcOutputFrame->addNanoseconds(std::llround(std::min(fBlockNs, 9e18)));
    }
    muBlockTime = mcOutputFrame->timestamp();
    mbFirstBlock = false;
}

void BasebandResampler::filterFrame(BasebandFrame& cFrame) {
    const uint32_t uCount = samplesOf(cFrame);
    if (!mcWork || mcWork->getActive() != uCount)
        mcWork = makeReference<FloatArray>(uCount);
    mcFilter.filter(cFrame.getChannel(0)->getData(), mcWork->getData(), uCount);
}

/// Interpolates until the block is full or the current frame is used up.
void BasebandResampler::fillBlock(float fStep) {
    float* pcOutputData = mcOutputFrame->getChannel(0)->getData();
    VNK_ASSERT(pcOutputData != nullptr);
    const float* pWork = mcWork->getData();
    const uint32_t uCount = mcWork->getActive();
    if (mfPosition < 0.0f) {
        const float fAlpha = -mfPosition;
        VNK_ASSERT_TEXT(true == _inBetween(fAlpha, 0.0f, 1.0f), "true == _inBetween(fAlpha, 0.0f, 1.0f)");
        pcOutputData[muFilled++] = (1.0f - fAlpha) * mfLastSample + fAlpha * pWork[0];
        mfPosition = 0.0f;  // and not a step further: the joint of two frames slips
    }
    float fPosition = mfPosition;
    const double fEnd = uCount - 1.0;  // double: exact for every count
    while (double{fPosition} < fEnd && muFilled < muOutputBlock) {
        const auto i = static_cast<uint32_t>(fPosition);
        const float fAlpha = fPosition - static_cast<float>(i);
        pcOutputData[muFilled++] = (1.0f - fAlpha) * pWork[i] + fAlpha * pWork[i + 1];
        const float fNext = fPosition + fStep;
        // Single precision cannot count on for ever: a frame so long ends where the step no longer moves.
        fPosition = fNext > fPosition ? fNext : static_cast<float>(uCount);
    }
    mfPosition = fPosition;
    if (double{fPosition} < fEnd)
        consume(static_cast<uint32_t>(fPosition));
    else
        releaseFrame();
}

void BasebandResampler::consume(uint32_t uOffset) {
    utils::ScopedLock cLock(mcInputBufferLock);
    muPending -= uOffset - muCurrentOffset;
    muCurrentOffset = uOffset;
}

void BasebandResampler::releaseFrame() {
    const uint32_t uCount = mcWork->getActive();
    mfLastSample = mcWork->getData()[uCount - 1];
    mfPosition = static_cast<float>(double{mfPosition} - uCount);
    consume(uCount);
    mcCurrentFrame.release();
}
