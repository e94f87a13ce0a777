#include "flows/basebandframe.h"

#include "flows/framebytes.h"
#include "flows/iqframe.h"

namespace {
constexpr uint32_t kMarker = 0xBA5EBA4D;
/// Each channel costs more memory than its samples: a count that no recording has is no frame, and one of channels
/// without samples has no bytes in the file that would vouch for it.
constexpr uint32_t kMaxChannels = 65536;
constexpr uint32_t kMaxEmptyChannels = 1024;
}  // namespace

BasebandFrame::BasebandFrame(const BasebandFrame& cSource, uint32_t uSamplesPerChannel)
    : Frame(cSource, 0, 0),
      mfSampleRateHz(cSource.mfSampleRateHz),
      mfUsableBandwidthHz(cSource.mfSampleRateHz),
      muSamplesPerChannel(uSamplesPerChannel) {}

BasebandFrame::BasebandFrame(const IQFrame& cSource, uint32_t uSamplesPerChannel)
    : Frame(cSource, 0, 0),
      mfSampleRateHz(cSource.sampleRate()),
      mfUsableBandwidthHz(cSource.sampleRate()),
      muSamplesPerChannel(uSamplesPerChannel) {}

BasebandFrame::BasebandFrame(const Frame& cSource, uint32_t uSequence, float fSampleRateHz,
                             float fUsableBandwidthHz, uint32_t uSamplesPerChannel)
    : Frame(cSource, uSequence, 0),
      mfSampleRateHz(fSampleRateHz),
      mfUsableBandwidthHz(fUsableBandwidthHz),
      muSamplesPerChannel(uSamplesPerChannel) {
    muTimestamp = cSource.getTimestamp(kNanoseconds);
    muResolution = kNanoseconds;
}

BasebandFrame::BasebandFrame(uint64_t uTimestamp, uint32_t uResolution, float fSampleRateHz,
                             float fUsableBandwidthHz)
    : Frame(0, uTimestamp, uResolution, 0.0f, fUsableBandwidthHz, 0.0f, {}),
      mfSampleRateHz(fSampleRateHz),
      mfUsableBandwidthHz(fUsableBandwidthHz) {}

uint64_t BasebandFrame::getEndTime(uint32_t uResolution) const {
    if (mcChannels.empty())
        return getTimestamp(uResolution);
    return endTimeOf(muSamplesPerChannel, mfSampleRateHz, uResolution);
}

uint64_t BasebandFrame::getAllocatedBytes() const {
    return muSamplesPerChannel;
}

uint64_t BasebandFrame::getDataBytes() const {
    return uint64_t{mcChannels.size()} * muSamplesPerChannel * sizeof(float);
}

utils::VariantRecord BasebandFrame::getParameters(bool bInvariantOnly) const {
    utils::VariantRecord cRecord = Frame::getParameters(bInvariantOnly);
    cRecord.set("SampleRateHz", mfSampleRateHz);
    cRecord.set("UsableBWHz", mfUsableBandwidthHz);
    cRecord.set("Channels", channelCount());
    return cRecord;
}

uint64_t BasebandFrame::writeTo(std::ostream& cStream) const {
    FrameBytes::write(cStream, kMarker);
    FrameBytes::write(cStream, muSamplesPerChannel);
    FrameBytes::write(cStream, channelCount());
    for (const ReferencePtr<FloatArray>& cChannel : mcChannels)
        FrameBytes::writeSamples(cStream, cChannel->getData(), muSamplesPerChannel);
    return getDataBytes() + 12;
}

uint64_t BasebandFrame::readFrom(std::istream& cStream) {
    uint32_t uSamples = 0;
    uint32_t uChannels = 0;
    FrameBytes::Reading cReading(cStream, true);
    if (!cReading.marker(kMarker) || !cReading.fields(uSamples, uChannels))
        return 0;
    if (uChannels > (uSamples == 0 ? kMaxEmptyChannels : kMaxChannels))
        return 0;
    std::vector<ReferencePtr<FloatArray>> cChannels;
    for (uint32_t i = 0; i < uChannels; ++i) {
        cChannels.push_back(FrameBytes::readSamples<float>(cStream, uSamples));
        if (!cChannels.back())
            return 0;
    }
    muSamplesPerChannel = uSamples;
    mcChannels = std::move(cChannels);
    cReading.keep();
    return uSamples;
}

ReferencePtr<FloatArray> BasebandFrame::getChannel(uint32_t uIndex) {
    while (mcChannels.size() <= uIndex)
        mcChannels.emplace_back(new FloatArray(muSamplesPerChannel));
    return mcChannels[uIndex];
}
