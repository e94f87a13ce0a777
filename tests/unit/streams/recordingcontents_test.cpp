#include "streams/recordingcontents.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "unit/streams/playbacksupport.h"

using vnktest::describeBaseband;
using vnktest::describeIQ;
using vnktest::describeSpectrum;
using vnktest::Description;

namespace {

RecordingContents parsed(const Description& cDescription) {
    return RecordingContents::parse(cDescription.text()).value();
}

/// The contents of an IQ description with one value of the summary replaced.
RecordingContents withSummary(const std::string& key, const std::string& value) {
    Description cDescription = describeIQ(5, 6);
    cDescription.mcSummary[key] = value;
    return parsed(cDescription);
}

RecordingContents withSampling(const std::string& key, const std::string& value) {
    Description cDescription = describeIQ(5, 6);
    cDescription.mcSampling[key] = value;
    return parsed(cDescription);
}

template <typename T>
std::optional<uint32_t> asUnsigned32(T cValue) {
    utils::VariantRecord cRecord;
    cRecord.set("k", utils::Variant(cValue));
    const auto uResult = readUnsigned32(cRecord, "k");
    EXPECT_EQ(cRecord.size(), 1u);  // it is read, not taken
    return uResult;
}

}  // namespace

TEST(RecordingContents, readsAnIQDescription) {
    const RecordingContents c = parsed(describeIQ(77, 12345678901));
    EXPECT_EQ(c.mcDataType, "IQ");
    EXPECT_EQ(c.mfCentreHz, 1e8f);
    EXPECT_EQ(c.mfBandwidthHz, 1e6f);
    EXPECT_EQ(c.mfSampleRateHz, 2e6f);
    EXPECT_EQ(c.mcUnits, "sqrt-mw");
    EXPECT_EQ(c.muStartTime, 77u);
    EXPECT_EQ(c.muEndTime, 1077u);
    EXPECT_EQ(c.muSampleTotal, 12345678901u);
    EXPECT_EQ(c.muResolution, kNanoseconds);
    EXPECT_EQ(c.mfRBWHz, 0.0f);
    EXPECT_EQ(c.muFrameTotal, 0u);
    EXPECT_EQ(c.mcWindowName, "");
    EXPECT_FALSE(c.mcSampling.find("FMinHz"));
    EXPECT_EQ(c.mcSampling.size(), 5u);
}

TEST(RecordingContents, readsASpectrumDescriptionAndAddsItsEdges) {
    const RecordingContents c = parsed(describeSpectrum(88));
    EXPECT_EQ(c.mcDataType, "Spectrum");
    EXPECT_EQ(c.mfRBWHz, 2500.0f);
    EXPECT_EQ(c.mcWindowName, "Hanning");
    EXPECT_EQ(c.muFrameTotal, 3u);
    EXPECT_EQ(c.muPointsPerFrame, 4u);
    EXPECT_EQ(c.muStartTime, 88u);
    EXPECT_EQ(c.muEndTime, 1088u);
    EXPECT_EQ(c.mfSampleRateHz, 0.0f);
    ASSERT_TRUE(c.mcSampling.find("FMinHz"));
    EXPECT_EQ(c.mcSampling.find("FMinHz")->getType(), utils::Variant::kFloat);
    EXPECT_EQ(c.mcSampling.getNumber("FMinHz"), 99.5e6f);
    EXPECT_EQ(c.mcSampling.getNumber("FMaxHz"), 100.5e6f);
    EXPECT_EQ(c.mcSampling.size(), 8u);
}

TEST(RecordingContents, readsABasebandDescription) {
    const RecordingContents c = parsed(describeBaseband(10, 30, 40));
    EXPECT_EQ(c.mcDataType, "Baseband");
    EXPECT_EQ(c.mfSampleRateHz, 48000.0f);
    EXPECT_EQ(c.mfBandwidthHz, 20000.0f);
    EXPECT_EQ(c.muStartTime, 10u);
    EXPECT_EQ(c.muEndTime, 30u);
    EXPECT_EQ(c.muSampleTotal, 40u);
    EXPECT_EQ(c.muPointsPerFrame, 0u);
}

TEST(RecordingContents, theLevelIsLookedForUnderAnotherKeyThanTheOneStored) {
    EXPECT_EQ(parsed(describeIQ(0, 0)).mfReferenceLevel, 0.0f);
    EXPECT_EQ(withSampling("ReferenceLeveldBm", "-25.5").mfReferenceLevel, -25.5f);
    EXPECT_EQ(parsed(describeSpectrum(0)).mfReferenceLevel, 0.0f);
    EXPECT_EQ(parsed(describeBaseband(0, 0, 0)).mfReferenceLevel, 0.0f);
}

TEST(RecordingContents, aSummaryWithUnitsWinsForSamplesAndNotForSpectra) {
    EXPECT_EQ(withSummary("units", "\"V\"").mcUnits, "V");
    Description cBaseband = describeBaseband(0, 0, 0);
    cBaseband.mcSummary["units"] = "\"V\"";
    EXPECT_EQ(parsed(cBaseband).mcUnits, "V");
    Description cSpectrum = describeSpectrum(0);
    cSpectrum.mcSummary["units"] = "\"V\"";
    EXPECT_EQ(parsed(cSpectrum).mcUnits, "dBm");
}

TEST(RecordingContents, textsThatDescribeNothingAreRefused) {
    for (const char* pText : {
             "",
             "{}",
             "nonsense",
             "{\"IQ\":{},\"Sampling\":{}}",
             "{\"DataType\":5,\"5\":{},\"Sampling\":{}}",
             "{\"DataType\":true,\"true\":{},\"Sampling\":{}}",
             "{\"DataType\":{},\"IQ\":{},\"Sampling\":{}}",
             "{\"DataType\":\"IQ\",\"Sampling\":{}}",
             "{\"DataType\":\"IQ\",\"Spectrum\":{},\"Sampling\":{}}",
             "{\"DataType\":\"IQ\",\"IQ\":5,\"Sampling\":{}}",
             "{\"DataType\":\"IQ\",\"IQ\":\"{}\",\"Sampling\":{}}",
             "{\"DataType\":\"IQ\",\"IQ\":[1,2],\"Sampling\":{}}",
             "{\"DataType\":\"IQ\",\"IQ\":{}}",
             "{\"DataType\":\"IQ\",\"IQ\":{},\"Sampling\":1.5}",
             "{\"DataType\":\"IQ\",\"IQ\":{},\"Sampling\":[{}]}",
             "{\"DataType\":\"iq\",\"IQ\":{},\"Sampling\":{}}",
         })
        EXPECT_FALSE(RecordingContents::parse(pText)) << pText;
}

TEST(RecordingContents, aTypeThatNobodyPlaysIsUnderstood) {
    const auto c =
        RecordingContents::parse("{\"DataType\":\"Other\",\"Other\":{},\"Sampling\":{\"FCentreHz\":5.0}}");
    ASSERT_TRUE(c);
    EXPECT_EQ(c->mcDataType, "Other");
    EXPECT_EQ(c->mcSampling.getNumber("FCentreHz"), 5.0f);
    EXPECT_TRUE(RecordingContents::parse("{\"DataType\":\"Sampling\",\"Sampling\":{}}"));
}

TEST(RecordingContents, emptyRecordsLeaveEveryFieldAsItStarts) {
    for (const char* pType : {"IQ", "Spectrum", "Baseband"}) {
        const RecordingContents c = parsed({pType, {}, {}});
        EXPECT_EQ(c.mfBandwidthHz, 0.0f);
        EXPECT_EQ(c.mfCentreHz, 0.0f);
        EXPECT_EQ(c.mfReferenceLevel, 0.0f);
        EXPECT_EQ(c.mcUnits, "");
        EXPECT_EQ(c.muStartTime, 0u);
        EXPECT_EQ(c.muEndTime, 0u);
        EXPECT_EQ(c.mfSampleRateHz, 0.0f);
        EXPECT_EQ(c.muSampleTotal, 0u);
        EXPECT_EQ(c.mfRBWHz, 0.0f);
        EXPECT_EQ(c.muFrameTotal, 0u);
        EXPECT_EQ(c.muPointsPerFrame, 0u);
        EXPECT_EQ(c.mcWindowName, "");
    }
}

TEST(RecordingContents, floatFieldsTakeEveryNumber) {
    EXPECT_EQ(withSampling("FCentreHz", "1.5e3").mfCentreHz, 1500.0f);
    EXPECT_EQ(withSampling("FCentreHz", "-2.5").mfCentreHz, -2.5f);
    EXPECT_EQ(withSampling("FCentreHz", "1500").mfCentreHz, 1500.0f);
    EXPECT_EQ(withSampling("FCentreHz", "5000000000").mfCentreHz, 5e9f);
    EXPECT_EQ(withSampling("FCentreHz", "18446744073709551615").mfCentreHz, 18446744073709551616.0f);
    for (const char* pOther : {"\"1500\"", "true", "{}", "[1]", "", "\"\""}) {
        EXPECT_EQ(withSampling("FCentreHz", pOther).mfCentreHz, 0.0f) << pOther;
        EXPECT_EQ(withSampling("SampleRateHz", pOther).mfSampleRateHz, 0.0f) << pOther;
    }
}

TEST(RecordingContents, longCountsTakeWholeNumbersAlone) {
    EXPECT_EQ(withSummary("Samples", "7").muSampleTotal, 7u);
    EXPECT_EQ(withSummary("Samples", "18446744073709551615").muSampleTotal, UINT64_MAX);
    EXPECT_EQ(withSummary("StartTimestamp", "1700000000000000001").muStartTime, 1700000000000000001u);
    for (const char* pOther : {"7.0", "1e3", "-7.0", "\"7\"", "true", "{}", "[7]", "\"\""}) {
        EXPECT_EQ(withSummary("Samples", pOther).muSampleTotal, 0u) << pOther;
        EXPECT_EQ(withSummary("StartTimestamp", pOther).muStartTime, 0u) << pOther;
        EXPECT_EQ(withSummary("EndTimestamp", pOther).muEndTime, 0u) << pOther;
    }
}

TEST(RecordingContents, shortCountsTakeNumbersInTheirRange) {
    EXPECT_EQ(asUnsigned32(uint32_t{4294967295}), 4294967295u);
    EXPECT_EQ(asUnsigned32(int32_t{7}), 7u);
    EXPECT_EQ(asUnsigned32(int32_t{0}), 0u);
    EXPECT_EQ(asUnsigned32(int32_t{-1}), std::nullopt);
    EXPECT_EQ(asUnsigned32(int64_t{4294967295}), 4294967295u);
    EXPECT_EQ(asUnsigned32(int64_t{4294967296}), std::nullopt);
    EXPECT_EQ(asUnsigned32(int64_t{-1}), std::nullopt);
    EXPECT_EQ(asUnsigned32(uint64_t{4294967295}), 4294967295u);
    EXPECT_EQ(asUnsigned32(uint64_t{4294967296}), std::nullopt);
    EXPECT_EQ(asUnsigned32(4.5f), 5u);
    EXPECT_EQ(asUnsigned32(4.4f), 4u);
    EXPECT_EQ(asUnsigned32(-0.4f), 0u);
    EXPECT_EQ(asUnsigned32(-0.6f), std::nullopt);
    EXPECT_EQ(asUnsigned32(4294967040.0f), 4294967040u);
    EXPECT_EQ(asUnsigned32(4294967808.0f), std::nullopt);
    EXPECT_EQ(asUnsigned32(1e30f), std::nullopt);
    EXPECT_EQ(asUnsigned32(std::numeric_limits<float>::infinity()), std::nullopt);
    EXPECT_EQ(asUnsigned32(std::nanf("")), std::nullopt);
    EXPECT_EQ(asUnsigned32(true), std::nullopt);
    EXPECT_EQ(asUnsigned32(std::string("5")), std::nullopt);
    EXPECT_EQ(readUnsigned32(utils::VariantRecord(), "k"), std::nullopt);
}

TEST(RecordingContents, framesAndPointsAreShortCounts) {
    Description cDescription = describeSpectrum(0);
    cDescription.mcSummary["Frames"] = "12.5";
    cDescription.mcSummary["PointsPerFrame"] = "4294967296";
    EXPECT_EQ(parsed(cDescription).muFrameTotal, 13u);
    EXPECT_EQ(parsed(cDescription).muPointsPerFrame, 0u);
}

TEST(RecordingContents, theResolutionIsKnownByItsText) {
    EXPECT_EQ(withSummary("TimeResolution", "\"s\"").muResolution, kSeconds);
    EXPECT_EQ(withSummary("TimeResolution", "\"ms\"").muResolution, kMilliseconds);
    EXPECT_EQ(withSummary("TimeResolution", "\"us\"").muResolution, kMicroseconds);
    EXPECT_EQ(withSummary("TimeResolution", "\"ns\"").muResolution, kNanoseconds);
    EXPECT_EQ(withSummary("TimeResolution", "\"ps\"").muResolution, kPicoseconds);
    EXPECT_EQ(withSummary("TimeResolution", "\"fortnights\"").muResolution, kMilliseconds);
    EXPECT_EQ(withSummary("TimeResolution", "3").muResolution, kMilliseconds);
}

TEST(RecordingContents, numbersBeyondAFloatDoNoHarm) {
    for (const char* pNumber : {"1e30", "-1e30", "1e38", "1e99", "-1e99", "0.0", "1e-40"}) {
        for (const char* pKey : {"FCentreHz", "BandwidthHz", "SampleRateHz"}) {
            Description cDescription = describeIQ(0, 0);
            cDescription.mcSampling[pKey] = pNumber;
            EXPECT_TRUE(RecordingContents::parse(cDescription.text())) << pKey << pNumber;
        }
        Description cSpectrum = describeSpectrum(0);
        cSpectrum.mcSampling["BandwidthHz"] = pNumber;
        cSpectrum.mcSummary["Frames"] = pNumber;
        EXPECT_TRUE(RecordingContents::parse(cSpectrum.text())) << pNumber;
    }
}
