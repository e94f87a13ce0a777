#include "flows/frame.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "flows/basebandframe.h"
#include "flows/ionlyframe.h"
#include "flows/iqframe.h"
#include "flows/spectrumframe.h"

namespace {

constexpr uint64_t kMost = std::numeric_limits<uint64_t>::max();

ReferencePtr<IQFrame> frameAt(uint64_t uTimestamp, uint32_t uResolution, uint32_t uSamples = 0,
                              float fRate = 1e6f) {
    return ReferencePtr<IQFrame>(new IQFrame(3, 17, uTimestamp, uResolution, 1e8f, 2e5f, fRate, -20.0f,
                                             ReferencePtr<ComplexArray>(new ComplexArray(uSamples)),
                                             "sqrt-mw"));
}

TEST(TimeResolution, hasTextsBothWays) {
    const char* kTexts[] = {"s", "ms", "us", "ns", "ps"};
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_STREQ(timeResolutionText(i), kTexts[i]);
        EXPECT_EQ(timeResolutionFromText(kTexts[i]), i);
    }
}

TEST(TimeResolution, outsideTheTableIsAQuestionMarkOfAMillisecond) {
    EXPECT_STREQ(timeResolutionText(5), "?");
    EXPECT_STREQ(timeResolutionText(0xFFFFFFFF), "?");
    EXPECT_EQ(secondsPerTick(5), 0.001f);
    EXPECT_EQ(timeResolutionFromText("minutes"), 1u);
    EXPECT_EQ(timeResolutionFromText(""), 1u);
}

TEST(Frame, timestampInItsOwnResolutionIsUnchanged) {
    EXPECT_EQ(frameAt(kMost, kNanoseconds)->getTimestamp(kNanoseconds), kMost);
    EXPECT_EQ(frameAt(1234567890123456789u, 9)->getTimestamp(9), 1234567890123456789u);
}

TEST(Frame, timestampIsConvertedByTheSinglePrecisionConstants) {
    // 1e-9f / 1e-6f in double is 0.000999999974..., not a thousandth: 1700000000 s show it.
    EXPECT_EQ(frameAt(5000, kNanoseconds)->getTimestamp(kMicroseconds), 5u);
    const double fRatio = double{1e-9f} / double{1e-6f};
    ASSERT_NE(fRatio, 0.001);
    const uint64_t uEpoch = 1700000000123456789u;
    const uint64_t uConverted = frameAt(uEpoch, kNanoseconds)->getTimestamp(kMicroseconds);
    EXPECT_EQ(uConverted, static_cast<uint64_t>(std::round(fRatio * static_cast<double>(uEpoch))));
    EXPECT_NE(uConverted, uEpoch / 1000);
}

TEST(Frame, timestampIsTakenAsUnsigned) {
    // 2^64 times 1e-9f, which is 0.99999997171806853657e-9.
    EXPECT_EQ(frameAt(kMost, kNanoseconds)->getTimestamp(kSeconds), 18446743552u);
}

TEST(Frame, timestampTooLargeForTheResolutionIsTheLargest) {
    EXPECT_EQ(frameAt(kMost, kSeconds)->getTimestamp(kPicoseconds), kMost);
}

TEST(Frame, nanosecondsAreAddedAsTheyAreAtThatResolution) {
    auto cFrame = frameAt(1000, kNanoseconds);
    cFrame->addNanoseconds(250);
    EXPECT_EQ(cFrame->timestamp(), 1250u);
    cFrame->addNanoseconds(-1250);
    EXPECT_EQ(cFrame->timestamp(), 0u);
}

TEST(Frame, nanosecondsAreRoundedToTheFramesTicksElsewhere) {
    auto cFrame = frameAt(1000, kMicroseconds);
    cFrame->addNanoseconds(2600);
    EXPECT_EQ(cFrame->timestamp(), 1003u);
    cFrame->addNanoseconds(-2600);
    EXPECT_EQ(cFrame->timestamp(), 1000u);
    cFrame->addNanoseconds(499);
    EXPECT_EQ(cFrame->timestamp(), 1000u);
    auto cPicoseconds = frameAt(0, kPicoseconds);
    cPicoseconds->addNanoseconds(std::numeric_limits<int64_t>::max());
    cPicoseconds->addNanoseconds(std::numeric_limits<int64_t>::min());
}

TEST(Frame, endTimeIsTheTimestampPlusSamplesOverRate) {
    EXPECT_EQ(frameAt(5000, kNanoseconds, 65280, 125e6f)->getEndTime(kNanoseconds), 5000u + 522240u);
    EXPECT_EQ(frameAt(5, kMilliseconds, 1000, 1e6f)->getEndTime(kMicroseconds), 6000u);
    EXPECT_EQ(frameAt(5000, kNanoseconds, 0)->getEndTime(kNanoseconds), 5000u);
}

TEST(Frame, uselessRatesGiveDefinedTimes) {
    EXPECT_EQ(frameAt(5, kNanoseconds, 8, 0.0f)->getEndTime(kNanoseconds), kMost);
    EXPECT_EQ(frameAt(5, kNanoseconds, 0, 0.0f)->getEndTime(kNanoseconds), 5u);
    EXPECT_EQ(frameAt(5, kNanoseconds, 8, std::nanf(""))->getEndTime(kNanoseconds), 5u);
    EXPECT_EQ(frameAt(5, kNanoseconds, 8, -1.0f)->getEndTime(kNanoseconds), 5u);
    EXPECT_EQ(frameAt(kMost - 1, kNanoseconds, 8, 1.0f)->getEndTime(kNanoseconds), kMost);
    EXPECT_TRUE(std::isinf(frameAt(5, kNanoseconds, 8, 0.0f)->getDurationSec()));
    EXPECT_TRUE(std::isnan(frameAt(5, kNanoseconds, 0, 0.0f)->getDurationSec()));
}

TEST(Frame, newFrameIsLiveDiscardableAndNotMeasured) {
    const auto cFrame = frameAt(1, kNanoseconds);
    EXPECT_EQ(cFrame->level(), -1000.0f);
    EXPECT_FALSE(cFrame->isSubOptimal());
    EXPECT_TRUE(cFrame->isDiscardable());
    EXPECT_TRUE(cFrame->isLive());
}

TEST(Frame, emptyUnitsReadAsdBm) {
    auto cFrame = frameAt(1, kNanoseconds);
    EXPECT_EQ(cFrame->getUnits(), "sqrt-mw");
    cFrame->setUnits("");
    EXPECT_EQ(cFrame->getUnits(), "dBm");
}

TEST(Frame, extrasAreMadeAtFirstUse) {
    auto cFrame = frameAt(1, kNanoseconds);
    EXPECT_FALSE(cFrame->peekExtras());
    const auto cExtras = cFrame->getExtras();
    ASSERT_TRUE(cExtras);
    EXPECT_EQ(cFrame->getExtras(), cExtras);
    EXPECT_EQ(cFrame->peekExtras(), cExtras);
}

TEST(Frame, copyTakesTheMetadataAndSharesTheExtras) {
    auto cSource = frameAt(400, kMicroseconds);
    cSource->setLevel(-3.0f);
    cSource->setSubOptimal(true);
    cSource->setDiscardable(false);
    cSource->setLive(false);
    cSource->getExtras()->set("MatchIQ", true);
    const BasebandFrame cCopy(*cSource, 0, 48e3f, 20e3f, 4);
    EXPECT_EQ(cCopy.sequence(), 3u);
    EXPECT_EQ(cCopy.centreFrequency(), 1e8f);
    EXPECT_EQ(cCopy.bandwidth(), 2e5f);
    EXPECT_EQ(cCopy.referenceLevel(), -20.0f);
    EXPECT_EQ(cCopy.getUnits(), "sqrt-mw");
    EXPECT_EQ(cCopy.peekExtras(), cSource->getExtras());
    EXPECT_FALSE(cCopy.isDiscardable());
    EXPECT_FALSE(cCopy.isLive());
    EXPECT_EQ(cCopy.level(), -1000.0f);
    EXPECT_FALSE(cCopy.isSubOptimal());
}

TEST(Frame, parametersOfAnIQFrame) {
    auto cFrame = frameAt(12345, kNanoseconds);
    auto cRecord = cFrame->getParameters(false);
    EXPECT_EQ(cRecord.keys(),
              (std::list<std::string>{"BandwidthHz", "FCentreHz", "RefdBm", "SampleRateHz", "Sequence",
                                      "TimeResolution", "Timestamp", "ZerothSample", "units"}));
    EXPECT_EQ(cRecord.find("Sequence")->getType(), utils::Variant::kUnsigned32);
    EXPECT_EQ(cRecord.find("Timestamp")->getType(), utils::Variant::kUnsigned64);
    EXPECT_EQ(cRecord.find("ZerothSample")->getUnsigned64(), 17u);
    EXPECT_EQ(cRecord.getText("TimeResolution"), "ns");
    EXPECT_EQ(cRecord.getText("units"), "sqrt-mw");
    EXPECT_EQ(cRecord.getNumber("SampleRateHz"), 1e6f);
    cFrame->setPhaseRotation(0.5f);
    EXPECT_EQ(cFrame->getParameters(true).keys(),
              (std::list<std::string>{"BandwidthHz", "FCentreHz", "PhaseRotation", "RefdBm", "SampleRateHz",
                                      "units"}));
}

TEST(Frame, parametersOfAnIOnlyFrame) {
    const IOnlyFrame cFrame(1, 9, 2, kNanoseconds, 3.0f, 4.0f, 125e6f, 5.0f, {35e6f, -20e6f, 20e6f, true},
                            nullptr, "");
    const auto cRecord = cFrame.getParameters(true);
    EXPECT_EQ(cRecord.keys(), (std::list<std::string>{"BandwidthHz", "FCentreHz", "FMaxUsableHz",
                                                      "FMinUsableHz", "InvertedSpectrum", "RefdBm",
                                                      "SampleRateHz", "TuningOffsetHz", "units"}));
    EXPECT_EQ(cRecord.getBool("InvertedSpectrum"), true);
    EXPECT_EQ(cRecord.getNumber("TuningOffsetHz"), 35e6f);
    EXPECT_EQ(cFrame.getParameters(false).find("ZerothSample")->getUnsigned64(), 9u);
}

TEST(Frame, typesAndElementsHaveTheirNames) {
    const IOnlyFrame cIOnly(1, 0, 0, kNanoseconds, 0, 0, 1e6f, 0, {}, nullptr, "");
    const BasebandFrame cBaseband(0, kNanoseconds, 48e3f, 20e3f);
    const SpectrumFrame cSpectrum(1, 0, 0, kNanoseconds, 0, 1, 1, 0, "hann", nullptr, "dBm");
    const auto cIQ = frameAt(0, kNanoseconds);
    EXPECT_EQ(cIQ->getTypeName(), "IQ");
    EXPECT_EQ(cIQ->getElementType(), "Complex<_float32> LE");
    EXPECT_EQ(cIOnly.getTypeName(), "I");
    EXPECT_EQ(cIOnly.getElementType(), "_float32 LE");
    EXPECT_EQ(cSpectrum.getTypeName(), "Spectrum");
    EXPECT_EQ(cSpectrum.getElementType(), "_float32 LE");
    EXPECT_EQ(cBaseband.getTypeName(), "Baseband");
    EXPECT_EQ(cBaseband.getElementType(), "_float32");
}

TEST(Frame, sizesCountTheAllocatedElements) {
    const auto cIQ = frameAt(0, kNanoseconds, 5);
    EXPECT_EQ(cIQ->getAllocatedBytes(), 64u);
    EXPECT_EQ(cIQ->getDataBytes(), 64u);
    const IOnlyFrame cIOnly(1, 0, 0, kNanoseconds, 0, 0, 1e6f, 0, {},
                            ReferencePtr<FloatArray>(new FloatArray(9)), "");
    EXPECT_EQ(cIOnly.getAllocatedBytes(), 64u);
    EXPECT_EQ(cIOnly.getDataBytes(), 64u);
    EXPECT_EQ(cIOnly.getDurationSec(), 0.0f);
    EXPECT_EQ(cIOnly.getEndTime(kNanoseconds), 9000u);
    const IOnlyFrame cEmpty(1, 0, 8, kNanoseconds, 0, 0, 1e6f, 0, {}, nullptr, "");
    EXPECT_EQ(cEmpty.getAllocatedBytes(), 0u);
    EXPECT_EQ(cEmpty.getEndTime(kNanoseconds), 8u);
}

TEST(Frame, samplesOfAFrameWithoutAnArrayAreNone) {
    const IQFrame cFrame(1, 0, 0, kNanoseconds, 0, 0, 1e6f, 0, nullptr, "");
    uint32_t uCount = 99;
    EXPECT_EQ(cFrame.getSamples(uCount), nullptr);
    EXPECT_EQ(uCount, 0u);
    EXPECT_EQ(cFrame.getDurationSec(), 0.0f);
    EXPECT_EQ(frameAt(0, kNanoseconds, 1000)->getDurationSec(), 1e-3f);
}

}  // namespace
