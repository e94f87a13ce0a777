#include "streams/recordingdescription.h"

#include <gtest/gtest.h>

#include <limits>

#include "unit/streams/recordingsupport.h"

using vnktest::fieldsAt;
using vnktest::FrameFields;
using vnktest::makeBaseband;
using vnktest::makeIQ;
using vnktest::makeSpectrum;
using vnktest::parseRecord;
using vnktest::ramp;

namespace {

FrameFields iqFields(uint64_t uTimestamp = 1000) {
    FrameFields c = fieldsAt(5, uTimestamp);
    c.mcUnits = "sqrt-mw";
    return c;
}

FrameFields dBmFields(uint64_t uTimestamp = 1000) {
    FrameFields c = fieldsAt(5, uTimestamp);
    c.mcUnits = "dBm";
    return c;
}

std::string textOf(const std::vector<ReferencePtr<Frame>>& lFrames) {
    RecordingDescription cDescription;
    for (const auto& cFrame : lFrames)
        cDescription.note(*cFrame);
    return cDescription.toText();
}

/// The running summary in the text of a description.
utils::VariantRecord summary(const std::vector<ReferencePtr<Frame>>& lFrames) {
    const utils::VariantRecord cRecord = parseRecord(textOf(lFrames));
    const utils::Variant* pSummary = cRecord.find(lFrames.front()->getTypeName());
    return pSummary ? *pSummary->getRecord() : utils::VariantRecord();
}

uint64_t number(const utils::VariantRecord& cRecord, const char* pKey) {
    const utils::Variant* pValue = cRecord.find(pKey);
    if (!pValue || !pValue->isInteger()) {
        ADD_FAILURE() << pKey << " is no whole number";
        return 0;
    }
    return pValue->getUnsigned64();
}

}  // namespace

// The whole text, byte by byte.

TEST(RecordingDescription, OfNoFramesIsAnEmptyRecord) {
    EXPECT_EQ(RecordingDescription().toText(), "{\r\n}");
    EXPECT_EQ(RecordingDescription().dataType(), "");
}

TEST(RecordingDescription, OfNoFramesHoldsTheSourceAlone) {
    RecordingDescription cDescription;
    cDescription.takeSource(parseRecord("{\"source\":\"ZR408-0017\",\"other\":1}"));
    EXPECT_EQ(cDescription.toText(), "{\r\n\t\"source\":\"ZR408-0017\"\r\n}");
    EXPECT_EQ(cDescription.dataType(), "");
}

TEST(RecordingDescription, OfIQFrames) {
    EXPECT_EQ(textOf({makeIQ(iqFields(), ramp(8))}),
              "{\r\n"
              "\t\"DataType\":\"IQ\",\r\n"
              "\t\"IQ\":{\r\n"
              "\t\t\"Encoding\":\"Complex<_float32> LE\",\r\n"
              "\t\t\"EndTimestamp\":3000,\r\n"
              "\t\t\"Samples\":4,\r\n"
              "\t\t\"StartTimestamp\":1000,\r\n"
              "\t\t\"TimeResolution\":\"ns\"\r\n"
              "\t},\r\n"
              "\t\"Sampling\":{\r\n"
              "\t\t\"BandwidthHz\":1000000.000000,\r\n"
              "\t\t\"FCentreHz\":100000000.000000,\r\n"
              "\t\t\"RefdBm\":-30.000000,\r\n"
              "\t\t\"SampleRateHz\":2000000.000000,\r\n"
              "\t\t\"units\":\"sqrt-mw\"\r\n"
              "\t}\r\n"
              "}");
}

TEST(RecordingDescription, OfIQFramesWithAPhaseRotation) {
    const auto cFrame = makeIQ(iqFields(), ramp(8));
    cFrame->setPhaseRotation(0.25f);
    EXPECT_NE(textOf({cFrame}).find("\t\t\"FCentreHz\":100000000.000000,\r\n"
                                    "\t\t\"PhaseRotation\":0.250000,\r\n"
                                    "\t\t\"RefdBm\":-30.000000,\r\n"),
              std::string::npos);
}

TEST(RecordingDescription, OfSpectra) {
    FrameFields c = dBmFields();
    c.muDuration = 50000;
    EXPECT_EQ(textOf({makeSpectrum(c, ramp(5))}),
              "{\r\n"
              "\t\"DataType\":\"Spectrum\",\r\n"
              "\t\"Sampling\":{\r\n"
              "\t\t\"BandwidthHz\":1000000.000000,\r\n"
              "\t\t\"FCentreHz\":100000000.000000,\r\n"
              "\t\t\"RBWHz\":1000.000000,\r\n"
              "\t\t\"RefdBm\":-30.000000,\r\n"
              "\t\t\"WindowFn\":\"Kaiser\",\r\n"
              "\t\t\"units\":\"dBm\"\r\n"
              "\t},\r\n"
              "\t\"Spectrum\":{\r\n"
              "\t\t\"Encoding\":\"_float32 LE\",\r\n"
              "\t\t\"EndTimestamp\":51000,\r\n"
              "\t\t\"Frames\":1,\r\n"
              "\t\t\"PointsPerFrame\":5,\r\n"
              "\t\t\"StartTimestamp\":1000,\r\n"
              "\t\t\"TimeResolution\":\"ns\"\r\n"
              "\t}\r\n"
              "}");
}

TEST(RecordingDescription, OfBasebandFrames) {
    FrameFields c = dBmFields();
    c.mfSampleRateHz = 50000.0f;
    RecordingDescription cDescription;
    cDescription.takeSource(parseRecord("{\"source\":{\"model\":\"ZR408\",\"slot\":2}}"));
    cDescription.note(*makeBaseband(c, {ramp(5), ramp(5)}));
    EXPECT_EQ(cDescription.toText(),
              "{\r\n"
              "\t\"Baseband\":{\r\n"
              "\t\t\"Encoding\":\"_float32\",\r\n"
              "\t\t\"EndTimestamp\":101000,\r\n"
              "\t\t\"Samples\":5,\r\n"
              "\t\t\"StartTimestamp\":1000,\r\n"
              "\t\t\"TimeResolution\":\"ns\"\r\n"
              "\t},\r\n"
              "\t\"DataType\":\"Baseband\",\r\n"
              "\t\"Sampling\":{\r\n"
              "\t\t\"BandwidthHz\":1000000.000000,\r\n"
              "\t\t\"Channels\":2,\r\n"
              "\t\t\"FCentreHz\":100000000.000000,\r\n"
              "\t\t\"RefdBm\":-30.000000,\r\n"
              "\t\t\"SampleRateHz\":50000.000000,\r\n"
              "\t\t\"UsableBWHz\":25000.000000,\r\n"
              "\t\t\"units\":\"dBm\"\r\n"
              "\t},\r\n"
              "\t\"source\":{\r\n"
              "\t\t\"model\":\"ZR408\",\r\n"
              "\t\t\"slot\":2\r\n"
              "\t}\r\n"
              "}");
}

// What is told of the source.

TEST(RecordingDescription, SourceIsCopiedWhateverItsType) {
    for (const char* pSource : {"\"a text\"", "5", "1.500000", "true", "{\r\n\t\t\"a\":1\r\n\t}"}) {
        RecordingDescription cDescription;
        cDescription.takeSource(parseRecord(std::string("{\"source\":") + pSource + "}"));
        EXPECT_EQ(cDescription.toText(), std::string("{\r\n\t\"source\":") + pSource + "\r\n}");
    }
}

TEST(RecordingDescription, ParametersWithoutASourceAddNothing) {
    RecordingDescription cDescription;
    cDescription.takeSource({});
    cDescription.takeSource(parseRecord("{\"Source\":1,\"sources\":2}"));
    EXPECT_EQ(cDescription.toText(), "{\r\n}");
}

TEST(RecordingDescription, ReferenceLevelHasTheKeyThatNoPlayerLooksFor) {
    const utils::VariantRecord cRecord = parseRecord(textOf({makeIQ(iqFields(), ramp(8))}));
    const utils::VariantRecord* pSampling = cRecord.find("Sampling")->getRecord();
    EXPECT_EQ(pSampling->getNumber("RefdBm"), -30.0f);
    EXPECT_FALSE(pSampling->find("ReferenceLeveldBm"));
}

// From frame to frame.

TEST(RecordingDescription, DataTypeIsThatOfTheFirstFrame) {
    RecordingDescription cDescription;
    cDescription.note(*makeSpectrum(dBmFields(), ramp(1)));
    EXPECT_EQ(cDescription.dataType(), "Spectrum");
}

TEST(RecordingDescription, SamplingAndStartStayThoseOfTheFirstFrame) {
    FrameFields cLater = iqFields(9000);
    cLater.mfCentreHz = 2.0e8f;
    cLater.mfSampleRateHz = 1.0e6f;
    cLater.muResolution = kMilliseconds;
    cLater.mcUnits = "other";
    const std::string one = textOf({makeIQ(iqFields(), ramp(8))});
    const std::string two = textOf({makeIQ(iqFields(), ramp(8)), makeIQ(cLater, ramp(8))});
    EXPECT_EQ(two.substr(two.find("Sampling")), one.substr(one.find("Sampling")));
    const auto cSummary = parseRecord(two).find("IQ")->getRecord()->entries();
    EXPECT_EQ(cSummary.at("StartTimestamp").getUnsigned64(), 1000u);
    EXPECT_EQ(cSummary.at("TimeResolution").getText(), "ns");
}

TEST(RecordingDescription, EndIsThatOfTheLatestFrameEvenIfItLiesBefore) {
    EXPECT_EQ(
        number(summary({makeIQ(iqFields(1000), ramp(8)), makeIQ(iqFields(7000), ramp(16))}), "EndTimestamp"),
        11000u);
    EXPECT_EQ(
        number(summary({makeIQ(iqFields(7000), ramp(16)), makeIQ(iqFields(100), ramp(8))}), "EndTimestamp"),
        2100u);
}

TEST(RecordingDescription, SamplesAreSummedUp) {
    EXPECT_EQ(
        number(summary({makeIQ(iqFields(), ramp(8)), makeIQ(iqFields(), ramp(2)), makeIQ(iqFields(), ramp(0)),
                        makeIQ(iqFields(), ReferencePtr<ComplexArray>()), makeIQ(iqFields(), ramp(100))}),
               "Samples"),
        55u);
}

TEST(RecordingDescription, BasebandSamplesAreThoseOfOneChannel) {
    EXPECT_EQ(number(summary({makeBaseband(dBmFields(), {ramp(7), ramp(7), ramp(7)}),
                              makeBaseband(dBmFields(), {ramp(5)})}),
                     "Samples"),
              12u);
}

TEST(RecordingDescription, PointsAreThoseOfTheLatestSpectrumAndFramesAreCounted) {
    std::vector<ReferencePtr<Frame>> lFrames{makeSpectrum(dBmFields(), ramp(5)),
                                             makeSpectrum(dBmFields(), ramp(9))};
    EXPECT_EQ(number(summary(lFrames), "PointsPerFrame"), 9u);
    EXPECT_EQ(number(summary(lFrames), "Frames"), 2u);
    lFrames.push_back(makeSpectrum(dBmFields(), ReferencePtr<FloatArray>()));
    EXPECT_EQ(number(summary(lFrames), "PointsPerFrame"), 0u) << "it has no spectrum";
    EXPECT_EQ(number(summary(lFrames), "Frames"), 3u);
}

TEST(RecordingDescription, ActiveSamplesCountAndNotTheRoomThatTheyHave) {
    const auto cSamples = vnktest::complexArray(ramp(200));
    cSamples->setActive(30);
    EXPECT_EQ(number(summary({makeIQ(iqFields(), cSamples)}), "Samples"), 30u);
    const auto cPoints = vnktest::floatArray(ramp(200));
    cPoints->setActive(31);
    EXPECT_EQ(number(summary({makeSpectrum(dBmFields(), cPoints)}), "PointsPerFrame"), 31u);
}

TEST(RecordingDescription, TotalsGoBeyond32Bits) {
    constexpr uint32_t kEach = 1u << 20;
    auto cSamples = makeReference<ComplexArray>(kEach);
    const auto cFrame = makeIQ(iqFields(), cSamples);
    RecordingDescription cIQ;
    for (uint32_t i = 0; i < 5000; ++i)
        cIQ.note(*cFrame);
    EXPECT_NE(cIQ.toText().find("\"Samples\":5242880000,"), std::string::npos);

    // Frames without channels: their size is a number alone.
    const auto cTuning = makeIQ(dBmFields(), ReferencePtr<ComplexArray>());
    const auto cLarge = makeReference<BasebandFrame>(*cTuning, 1u, 48000.0f, 24000.0f, 0xFFFFFFFFu);
    RecordingDescription cBaseband;
    for (int i = 0; i < 3; ++i)
        cBaseband.note(*cLarge);
    EXPECT_NE(cBaseband.toText().find("\"Samples\":12884901885,"), std::string::npos);
}

TEST(RecordingDescription, LargestTimesAreWrittenInFull) {
    FrameFields c = dBmFields(std::numeric_limits<uint64_t>::max() - 5);
    c.muDuration = 5;
    const std::string text = textOf({makeSpectrum(c, ramp(1))});
    EXPECT_NE(text.find("\"StartTimestamp\":18446744073709551610,"), std::string::npos);
    EXPECT_NE(text.find("\"EndTimestamp\":18446744073709551615,"), std::string::npos);
}

// Resolutions. The single-precision lengths of a tick make the times inexact, and these are the ones that
// result.

TEST(RecordingDescription, TimesAreInNanosecondsWhateverTheResolution) {
    struct Case {
        uint32_t muResolution;
        const char* mpText;
        uint64_t muStart;
        uint64_t muEnd;
    };
    for (const Case& cCase :
         {Case{0, "s", 1234567034915940, 1234570034916025}, Case{1, "ms", 1234567093555, 1237567093782},
          Case{2, "us", 1234567032, 4234567109}, Case{3, "ns", 1234567, 3001234652},
          Case{4, "ps", 1235, 3000001319}, Case{5, "?", 1234567093555, 1237567093782},
          Case{0xFFFFFFFF, "?", 1234567093555, 1237567093782}}) {
        FrameFields c = iqFields(1234567);
        c.muResolution = cCase.muResolution;
        c.mfSampleRateHz = 1000.0f;
        const auto cSummary = summary({makeIQ(c, ramp(6000))});
        EXPECT_EQ(cSummary.getText("TimeResolution"), cCase.mpText);
        EXPECT_EQ(number(cSummary, "StartTimestamp"), cCase.muStart) << cCase.mpText;
        EXPECT_EQ(number(cSummary, "EndTimestamp"), cCase.muEnd) << cCase.mpText;
    }
}

TEST(RecordingDescription, RatesThatAreNoneLeaveARecordThatCanBeRead) {
    for (const float fRate : {0.0f, -1.0f, std::numeric_limits<float>::quiet_NaN(),
                              std::numeric_limits<float>::infinity(), 1e-38f}) {
        FrameFields c = iqFields();
        c.mfSampleRateHz = fRate;
        EXPECT_EQ(number(summary({makeIQ(c, ramp(8)), makeIQ(c, ramp(8))}), "Samples"), 8u) << fRate;
        EXPECT_EQ(number(summary({makeBaseband(c, {ramp(8)}), makeBaseband(c, {ramp(8)})}), "Samples"), 16u);
    }
}

TEST(RecordingDescription, FrameThatIsNotWhatItsNameSaysIsAnAssertionFailure) {
    class Pretender : public IQFrame {
     public:
        explicit Pretender(std::string name)
            : IQFrame(0u, uint64_t{0}, uint64_t{0}, kNanoseconds, 0.0f, 0.0f, 1.0f, 0.0f, nullptr, {}),
              mcName(std::move(name)) {}
        std::string getTypeName() const override { return mcName; }

     private:
        std::string mcName;
    };
    for (const auto& [name, assertion] :
         {std::pair{"Spectrum", "pSpectrum != nullptr"}, std::pair{"Baseband", "pBaseband != nullptr"}}) {
        RecordingDescription cDescription;
        try {
            cDescription.note(*makeReference<Pretender>(name));
            FAIL() << name;
        } catch (const utils::FatalError& cError) {
            EXPECT_NE(cError.message().find(assertion), std::string::npos) << cError.message();
        }
    }
}
