#pragma once

#include "flows/frame.h"

class IQFrame;

/// Demodulated audio-rate channels.
class BasebandFrame : public Frame {
 public:
    /// Sample rate and usable bandwidth both from the source's sample rate.
    BasebandFrame(const BasebandFrame& cSource, uint32_t uSamplesPerChannel);
    /// The same, of what has been demodulated.
    BasebandFrame(const IQFrame& cSource, uint32_t uSamplesPerChannel);
    /// As the Frame copy, with the source's timestamp in nanoseconds.
    BasebandFrame(const Frame& cSource, uint32_t uSequence, float fSampleRateHz, float fUsableBandwidthHz,
                  uint32_t uSamplesPerChannel);
    /// For frames read from a file.
    BasebandFrame(uint64_t uTimestamp, uint32_t uResolution, float fSampleRateHz, float fUsableBandwidthHz);

    uint64_t getEndTime(uint32_t uResolution) const override;
    /// A count of samples, not of bytes: what the buffer arithmetic of this system uses.
    uint64_t getAllocatedBytes() const override;
    std::string getTypeName() const override { return "Baseband"; }
    utils::VariantRecord getParameters(bool bInvariantOnly) const override;
    uint64_t getDataBytes() const override;
    std::string getElementType() const override { return "_float32"; }
    uint64_t writeTo(std::ostream& cStream) const override;
    uint64_t readFrom(std::istream& cStream) override;

    /// Appends new, uninitialised arrays until the index exists.
    ReferencePtr<FloatArray> getChannel(uint32_t uIndex);
    uint32_t channelCount() const { return static_cast<uint32_t>(mcChannels.size()); }
    uint32_t samplesPerChannel() const { return muSamplesPerChannel; }
    float sampleRate() const { return mfSampleRateHz; }
    float usableBandwidth() const { return mfUsableBandwidthHz; }

 private:
    float mfSampleRateHz;
    float mfUsableBandwidthHz;
    uint32_t muSamplesPerChannel = 0;
    std::vector<ReferencePtr<FloatArray>> mcChannels;
};
