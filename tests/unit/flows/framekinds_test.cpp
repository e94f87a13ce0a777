#include <gtest/gtest.h>

#include "flows/basebandframe.h"
#include "flows/iqframe.h"
#include "flows/spectrumframe.h"

namespace {

ReferencePtr<FloatArray> values(std::initializer_list<float> fValues) {
    ReferencePtr<FloatArray> cArray(new FloatArray(static_cast<uint32_t>(fValues.size())));
    std::copy(fValues.begin(), fValues.end(), cArray->getData());
    return cArray;
}

SpectrumFrame spectrum() {
    return SpectrumFrame(4, 1000, 500, kNanoseconds, 90e6f, 110e6f, 1e3f, -10.0f, "nuttall",
                         values({1, 2, 3}), "dBm");
}

TEST(SpectrumFrame, centreAndBandwidthComeFromTheEdges) {
    const SpectrumFrame cFrame = spectrum();
    EXPECT_EQ(cFrame.centreFrequency(), 100e6f);
    EXPECT_EQ(cFrame.bandwidth(), 20e6f);
    EXPECT_EQ(cFrame.getAllocatedBytes(), 32u);
    EXPECT_EQ(cFrame.getDataBytes(), 32u);
}

TEST(SpectrumFrame, endsADurationAfterItsTimestampInNanoseconds) {
    EXPECT_EQ(spectrum().getEndTime(kNanoseconds), 1500u);
    EXPECT_EQ(spectrum().getEndTime(kPicoseconds), 1500000u);
    EXPECT_FLOAT_EQ(spectrum().getDurationSec(), 5e-7f);
    // At another resolution the duration still counts nanoseconds here, and its own ticks in seconds.
    const SpectrumFrame cMicro(1, 7, 2000, kMicroseconds, 0, 1, 1, 0, "hann", nullptr, "");
    EXPECT_EQ(cMicro.getEndTime(kMicroseconds), 9u);
    EXPECT_FLOAT_EQ(cMicro.getDurationSec(), 2e-3f);
}

TEST(SpectrumFrame, parametersNameWindowAndResolution) {
    const auto cRecord = spectrum().getParameters(true);
    EXPECT_EQ(cRecord.keys(),
              (std::list<std::string>{"BandwidthHz", "FCentreHz", "RBWHz", "RefdBm", "WindowFn", "units"}));
    EXPECT_EQ(cRecord.getText("WindowFn"), "nuttall");
    EXPECT_EQ(cRecord.getNumber("RBWHz"), 1e3f);
}

TEST(SpectrumFrame, tracesAreAsLongAsTheSpectrumAndCounted) {
    SpectrumFrame cFrame = spectrum();
    uint32_t uCount = 99;
    float* pFirst = cFrame.addTrace(uCount);
    EXPECT_EQ(uCount, 0u);
    pFirst[2] = 7.0f;
    cFrame.addTrace(uCount);
    EXPECT_EQ(uCount, 1u);
    ASSERT_EQ(cFrame.traces().size(), 2u);
    EXPECT_EQ(cFrame.traces()[0]->getActive(), 3u);
    EXPECT_EQ(cFrame.traces()[0]->getData()[2], 7.0f);
}

TEST(SpectrumFrame, copyIsDeep) {
    SpectrumFrame cSource = spectrum();
    uint32_t uCount = 0;
    cSource.addTrace(uCount)[0] = 5.0f;
    const SpectrumFrame cCopy(cSource);
    cSource.getSpectrum(uCount)[0] = -1.0f;
    cSource.traces()[0]->getData()[0] = -1.0f;
    EXPECT_EQ(cCopy.getSpectrum(uCount)[0], 1.0f);
    EXPECT_EQ(uCount, 3u);
    EXPECT_EQ(cCopy.traces()[0]->getData()[0], 5.0f);
    EXPECT_EQ(cCopy.sequence(), 4u);
    EXPECT_EQ(cCopy.timestamp(), 1000u);
    EXPECT_EQ(cCopy.duration(), 500u);
    EXPECT_EQ(cCopy.windowName(), "nuttall");
    EXPECT_EQ(cCopy.rbw(), 1e3f);
}

TEST(SpectrumFrame, copyForAFileStartsWithoutADuration) {
    const SpectrumFrame cSource = spectrum();
    const SpectrumFrame cKept(cSource, 0, 0);
    EXPECT_EQ(cKept.duration(), 0u);
    EXPECT_EQ(cKept.sequence(), 4u);
    EXPECT_EQ(cKept.timestamp(), 1000u);
    const SpectrumFrame cNew(cSource, 8, 9);
    EXPECT_EQ(cNew.sequence(), 8u);
    EXPECT_EQ(cNew.timestamp(), 9u);
}

TEST(SpectrumFrame, spectrumOfAFrameWithoutAnArrayIsNone) {
    SpectrumFrame cFrame(1, 0, 0, kNanoseconds, 0, 1, 1, 0, "hann", nullptr, "");
    uint32_t uCount = 99;
    EXPECT_EQ(cFrame.getSpectrum(uCount), nullptr);
    EXPECT_EQ(uCount, 0u);
    EXPECT_EQ(cFrame.getAllocatedBytes(), 0u);
    cFrame.addTrace(uCount);
    EXPECT_EQ(cFrame.traces()[0]->getActive(), 0u);
}

TEST(BasebandFrame, channelsAppearWhenTheirIndexIsAskedFor) {
    BasebandFrame cFrame(BasebandFrame(50, kNanoseconds, 48e3f, 20e3f), 1024);
    EXPECT_EQ(cFrame.channelCount(), 0u);
    const auto cThird = cFrame.getChannel(2);
    EXPECT_EQ(cFrame.channelCount(), 3u);
    EXPECT_EQ(cThird->getActive(), 1024u);
    EXPECT_EQ(cFrame.getChannel(2), cThird);
    EXPECT_EQ(cFrame.getParameters(true).find("Channels")->getUnsigned32(), 3u);
}

TEST(BasebandFrame, allocatedBytesAreACountOfSamples) {
    BasebandFrame cFrame(BasebandFrame(50, kNanoseconds, 48e3f, 20e3f), 1024);
    cFrame.getChannel(1);
    EXPECT_EQ(cFrame.getAllocatedBytes(), 1024u);
    EXPECT_EQ(cFrame.getDataBytes(), 8192u);
    EXPECT_EQ(cFrame.getDurationSec(), 0.0f);
}

TEST(BasebandFrame, endsAtItsTimestampUntilItHasAChannel) {
    BasebandFrame cFrame(BasebandFrame(1000, kNanoseconds, 1e6f, 20e3f), 500);
    EXPECT_EQ(cFrame.getEndTime(kNanoseconds), 1000u);
    cFrame.getChannel(0);
    EXPECT_EQ(cFrame.getEndTime(kNanoseconds), 501000u);
}

TEST(BasebandFrame, frameOfABasebandSourceTakesBothRatesFromItsSampleRate) {
    const BasebandFrame cFrame(BasebandFrame(7, kMicroseconds, 48e3f, 20e3f), 16);
    EXPECT_EQ(cFrame.sampleRate(), 48e3f);
    EXPECT_EQ(cFrame.usableBandwidth(), 48e3f);
    EXPECT_EQ(cFrame.timestamp(), 7u);
    EXPECT_EQ(cFrame.samplesPerChannel(), 16u);
}

TEST(BasebandFrame, frameOfAnySourceCountsNanoseconds) {
    const IQFrame cSource(5, 0, 7, kMicroseconds, 1e8f, 2e5f, 1e6f, -20.0f, nullptr, "sqrt-mw");
    const BasebandFrame cFrame(cSource, 6, 48e3f, 20e3f, 16);
    EXPECT_EQ(cFrame.timestamp(), 7000u);
    EXPECT_EQ(cFrame.timeResolution(), uint32_t{kNanoseconds});
    EXPECT_EQ(cFrame.sequence(), 6u);
    EXPECT_EQ(cFrame.sampleRate(), 48e3f);
    EXPECT_EQ(cFrame.usableBandwidth(), 20e3f);
    EXPECT_EQ(cFrame.bandwidth(), 2e5f);
}

TEST(BasebandFrame, frameForAFileStartsAtZero) {
    const BasebandFrame cFrame(7, kMilliseconds, 48e3f, 20e3f);
    EXPECT_EQ(cFrame.sequence(), 0u);
    EXPECT_EQ(cFrame.centreFrequency(), 0.0f);
    EXPECT_EQ(cFrame.referenceLevel(), 0.0f);
    EXPECT_EQ(cFrame.bandwidth(), 20e3f);
    EXPECT_EQ(cFrame.timeResolution(), uint32_t{kMilliseconds});
    EXPECT_EQ(cFrame.getParameters(true).keys(),
              (std::list<std::string>{"BandwidthHz", "Channels", "FCentreHz", "RefdBm", "SampleRateHz",
                                      "UsableBWHz", "units"}));
}

}  // namespace
