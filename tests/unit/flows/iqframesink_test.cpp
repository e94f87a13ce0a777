#include "flows/iqframesink.h"

#include <cmath>
#include <limits>

#include "flows/spectrumframe.h"
#include "foundations/fatalerror.h"
#include "unit/flows/flowsupport.h"

using vnktest::CountedSource;
using vnktest::drain;
using vnktest::iqFrame;
using vnktest::record;
using vnktest::statuses;

class IQFrameSinkTest : public vnktest::FlowTest {
 protected:
    bool set(utils::VariantRecord cRecord) {
        mlErrors.clear();
        return mcSink->setSinkParameters(cRecord, mlErrors, false);
    }
    bool set(const char* pText) { return set(record(pText)); }
    std::optional<float> number(const char* pKey) { return mcSink->getParameters().getNumber(pKey); }
    void attach() { ASSERT_TRUE(mcSource->attachFrameSink(mcSink, mlErrors)); }
    ReferencePtr<IQFrameSink> mcSink = makeReference<IQFrameSink>();
    ReferencePtr<CountedSource> mcSource = makeReference<CountedSource>();
};

TEST_F(IQFrameSinkTest, SchemaHoldsItsTwelveTexts) {
    const std::vector<std::pair<const char*, const char*>> lTexts{
        {"FCentreHz", "<IQ centre frequency requested Hz>"},
        {"IFBWHz", "<IF Bandwidth requested Hz>"},
        {"RefdBm", "<Expected maximum power in dBm>"},
        {"UserCaldB", "<Offset to apply to calibrated data in dB>"},
        {"captureSec", "<Optional capture duration in seconds>"},
        {"maxContiguousSec", "<READ-ONLY maximum achievable contiguous capture in seconds from this device>"},
        {"contiguous", "<READ-ONLY this stream data is guaranteed contiguous>"},
        {"framesExpected", "<READ-ONLY number of frames expected (finite) or zero (continuous)>"},
        {"avgdBm", "<READ-ONLY measured dBm average of most recent stream capture>"},
        {"SubOptimalDR", "<READ-ONLY 'true' if captured stream data has sub-optimal dynamic range>"},
        {"adaptFull", "<READ-WRITE Each capture to be preceded by dynamic range optimization>"},
        {"adaptStep", "<READ-WRITE After each capture, dynamic range is step-optimized as required>"}};
    const auto cSchema = mcSink->getParameterInfo();
    EXPECT_EQ(cSchema.size(), lTexts.size());
    for (const auto& cText : lTexts)
        EXPECT_EQ(cSchema.getText(cText.first), cText.second);
}

TEST_F(IQFrameSinkTest, FreshSinkReportsItsDefaults) {
    const auto cRecord = mcSink->getParameters();
    EXPECT_EQ(cRecord.keys(),
              (std::list<std::string>{"FCentreHz", "IFBWHz", "RefdBm", "UserCaldB", "adaptFull", "adaptStep",
                                      "avgdBm", "bufferDiscard", "bufferFrames", "bufferSec", "captureSec",
                                      "flowControl"}));
    EXPECT_EQ(cRecord.getNumber("FCentreHz"), 0.0f);
    EXPECT_EQ(cRecord.getNumber("RefdBm"), -40.0f);
    EXPECT_EQ(cRecord.getNumber("avgdBm"), -1000.0f);
    EXPECT_EQ(cRecord.getBool("adaptFull"), false);
}

TEST_F(IQFrameSinkTest, AllSevenAreStoredIntegersToo) {
    EXPECT_TRUE(
        set("{\"FCentreHz\":98100000,\"IFBWHz\":200000.0,\"RefdBm\":-20.0,\"UserCaldB\":1.5,"
            "\"captureSec\":2,\"adaptStep\":true,\"adaptFull\":true,\"bufferFrames\":30}"));
    const auto cRecord = mcSink->getParameters();
    EXPECT_EQ(cRecord.getNumber("FCentreHz"), 98.1e6f);
    EXPECT_EQ(cRecord.getNumber("IFBWHz"), 200000.0f);
    EXPECT_EQ(cRecord.getNumber("RefdBm"), -20.0f);
    EXPECT_EQ(cRecord.getNumber("UserCaldB"), 1.5f);
    EXPECT_EQ(cRecord.getNumber("captureSec"), 2.0f);
    EXPECT_EQ(cRecord.getBool("adaptStep"), true);
    EXPECT_EQ(cRecord.getBool("adaptFull"), true);
    EXPECT_EQ(cRecord.getNumber("bufferFrames"), 30.0f);
}

TEST_F(IQFrameSinkTest, LowerEdgeBelowZeroReportsTheTruncationAndStoresNothing) {
    EXPECT_FALSE(set("{\"FCentreHz\":1e6,\"IFBWHz\":4e6,\"RefdBm\":-10.0}"));
    EXPECT_EQ(mlErrors,
              ErrorList{"FCentre:1.0000e+06, IFBW:4.0000e+06 implies lower edge below 0Hz. Truncated to "
                        "IFBW:2.0000e+06"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-58});
    EXPECT_EQ(detail(), mlErrors.front());
    EXPECT_EQ(number("FCentreHz"), 0.0f);
    EXPECT_EQ(number("IFBWHz"), 0.0f);
    EXPECT_EQ(number("RefdBm"), -40.0f);
}

TEST_F(IQFrameSinkTest, LowerEdgeAtZeroPasses) {
    EXPECT_TRUE(set("{\"FCentreHz\":1e6,\"IFBWHz\":2e6}"));
}

TEST_F(IQFrameSinkTest, NegativeCentreIsRefusedAndStandsInTheTestOfTheEdge) {
    EXPECT_FALSE(set("{\"FCentreHz\":-5.0}"));
    EXPECT_EQ(mlErrors,
              (ErrorList{"FCentreHz of -5.0000e+00 is invalid",
                         "FCentre:-5.0000e+00, IFBW:0.0000e+00 implies lower edge below 0Hz. Truncated to "
                         "IFBW:-1.0000e+01"}));
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-57, -58}));
}

TEST_F(IQFrameSinkTest, NegativeBandwidthIsRefused) {
    EXPECT_FALSE(set("{\"FCentreHz\":1e6,\"IFBWHz\":-5.0}"));
    EXPECT_EQ(mlErrors, ErrorList{"IFBWHz of -5.0000e+00 is invalid"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-58});
}

TEST_F(IQFrameSinkTest, ValueThatIsNoNumberFailsItsRangeCheck) {
    for (const char* pKey : {"FCentreHz", "IFBWHz"}) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, std::numeric_limits<float>::quiet_NaN());
        EXPECT_FALSE(set(cRecord)) << pKey;
        EXPECT_EQ(number(pKey), 0.0f);
    }
}

TEST_F(IQFrameSinkTest, UnknownKeyStopsTheWholeChange) {
    EXPECT_FALSE(set("{\"FCentreHz\":1e6,\"adaptFull\":1}"));
    EXPECT_EQ(mlErrors, ErrorList{"Attempted to integrate unknown parameter 'adaptFull'"});
    EXPECT_EQ(number("FCentreHz"), 0.0f);
}

// Negotiation.

TEST_F(IQFrameSinkTest, SourceIsOfferedThePresentParametersOverlaidWithTheNewOnes) {
    EXPECT_TRUE(set("{\"FCentreHz\":1e6,\"IFBWHz\":1e5}"));
    attach();
    EXPECT_TRUE(set("{\"IFBWHz\":2e5}"));
    EXPECT_EQ(mcSource->mcOffered.getNumber("FCentreHz"), 1e6f);
    EXPECT_EQ(mcSource->mcOffered.getNumber("IFBWHz"), 2e5f);
    EXPECT_EQ(mcSource->muChanges, 1u);
}

TEST_F(IQFrameSinkTest, RefusalOfTheSourceStoresNothing) {
    attach();
    mcSource->mbWilling = false;
    EXPECT_FALSE(set("{\"FCentreHz\":1e6,\"bufferFrames\":20}"));
    EXPECT_EQ(mlErrors,
              (ErrorList{"not this one", "Connected source cannot implement requested parameter change"}));
    EXPECT_EQ(detail(), "not this one, Connected source cannot implement requested parameter change");
    EXPECT_EQ(number("FCentreHz"), 0.0f);
    EXPECT_EQ(number("bufferFrames"), 10.0f);
    EXPECT_EQ(mcSource->muChanges, 0u);
}

// Measurements.

TEST_F(IQFrameSinkTest, FrameOfAnotherTypeIsDroppedInSilence) {
    mcSink->receiveMeasured(makeReference<SpectrumFrame>(1u, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds},
                                                         0.0f, 1.0f, 1.0f, 0.0f, std::string(),
                                                         ReferencePtr<FloatArray>(), std::string()));
    EXPECT_TRUE(drain(*mcSink).empty());
    EXPECT_EQ(number("avgdBm"), -1000.0f);
    EXPECT_TRUE(mcSink->acceptsFrame(nullptr));
}

TEST_F(IQFrameSinkTest, AveragePowerIsTheLogOfTheMeanMagnitude) {
    mcSink->receiveMeasured(iqFrame(0, 100, {0.6f, 0.8f}));  // magnitude 1
    EXPECT_NEAR(*number("avgdBm"), 0.0f, 1e-4f);
    mcSink->receiveMeasured(iqFrame(1, 100, {3.0f, 4.0f}));  // magnitude 5, mean 3
    EXPECT_NEAR(*number("avgdBm"), 9.5424f, 1e-3f);
    EXPECT_EQ(drain(*mcSink).size(), 2u);
}

TEST_F(IQFrameSinkTest, AveragePowerOfALargeFrameKeepsItsDigits) {
    const auto cFrame = iqFrame(0, 65504);
    double dSum = 0.0;
    for (uint32_t i = 0; i < 65504; ++i) {
        const float fRe = 0.001f * static_cast<float>(i % 997);
        const float fIm = 0.003f * static_cast<float>(i % 13);
        cFrame->getArray()->getData()[i] = {fRe, fIm};
        dSum += std::sqrt(static_cast<double>(fRe) * fRe + static_cast<double>(fIm) * fIm);
    }
    mcSink->receiveMeasured(cFrame);
    EXPECT_NEAR(*number("avgdBm"), 20.0 * std::log10(dSum / 65504.0), 2e-4);
}

TEST_F(IQFrameSinkTest, EverySampleCountsWhateverTheLength) {
    for (uint32_t uCount = 1; uCount <= 40; ++uCount) {
        auto cSink = makeReference<IQFrameSink>();
        cSink->receiveMeasured(iqFrame(0, uCount, {0.0f, -10.0f}));
        EXPECT_NEAR(*cSink->getParameters().getNumber("avgdBm"), 20.0f, 1e-4f) << uCount;
    }
}

TEST_F(IQFrameSinkTest, FramesExpectedFollowsTheCaptureTime) {
    mcSink->receiveMeasured(iqFrame(0, 100));  // 0.1 s
    EXPECT_FALSE(number("framesExpected"));
    EXPECT_TRUE(set("{\"captureSec\":0.95,\"FCentreHz\":1e6}"));
    mcSink->receiveMeasured(iqFrame(1, 100));
    EXPECT_EQ(number("framesExpected"), 10.0f);
    EXPECT_EQ(mcSink->getParameters().find("framesExpected")->getType(), utils::Variant::kUnsigned32);
}

TEST_F(IQFrameSinkTest, FramesExpectedOfAnAbsurdCaptureTimeStaysInItsRange) {
    EXPECT_TRUE(set("{\"captureSec\":1e30}"));
    mcSink->receiveMeasured(iqFrame(0, 100));
    EXPECT_EQ(mcSink->getParameters().find("framesExpected")->getUnsigned32(), 0xFFFFFFFFu);
    utils::VariantRecord cRecord;
    cRecord.set("captureSec", std::numeric_limits<float>::quiet_NaN());
    EXPECT_TRUE(set(cRecord));
    mcSink->receiveMeasured(iqFrame(1, 100));
    EXPECT_FALSE(number("framesExpected"));
}

TEST_F(IQFrameSinkTest, PeakLevelAppearsOnceALevelWasMeasuredAndOnlyRises) {
    mcSink->receiveMeasured(iqFrame(0));
    EXPECT_FALSE(number("dBFSD"));
    for (const float fLevel : {-20.0f, -10.0f, -30.0f}) {
        const auto cFrame = iqFrame(1);
        cFrame->setLevel(fLevel);
        mcSink->receiveMeasured(cFrame);
    }
    EXPECT_EQ(number("dBFSD"), -10.0f);
}

TEST_F(IQFrameSinkTest, SubOptimalIsReportedOnce) {
    const auto cFrame = iqFrame(0);
    cFrame->setSubOptimal(true);
    mcSink->receiveMeasured(cFrame);
    mcSink->receiveMeasured(iqFrame(1));
    EXPECT_EQ(mcSink->getParameters().getBool("SubOptimalDR"), true);
    EXPECT_FALSE(mcSink->getParameters().find("SubOptimalDR"));
}

TEST_F(IQFrameSinkTest, NewSourceStartsTheMeasurementsAnew) {
    const auto cFrame = iqFrame(0);
    cFrame->setLevel(-10.0f);
    mcSink->receiveMeasured(cFrame);
    EXPECT_NE(number("avgdBm"), -1000.0f);
    attach();
    EXPECT_EQ(number("avgdBm"), -1000.0f);
    EXPECT_FALSE(number("dBFSD"));
    mcSink->receiveMeasured(iqFrame(1, 100, {10.0f, 0.0f}));
    EXPECT_NEAR(*number("avgdBm"), 20.0f, 1e-4f);
}

TEST_F(IQFrameSinkTest, SourceThatIsHeldAlreadyLeavesTheMeasurements) {
    attach();
    mcSink->receiveMeasured(iqFrame(0));
    mcSink->setSource(mcSource.get());
    EXPECT_NE(number("avgdBm"), -1000.0f);
}

TEST_F(IQFrameSinkTest, DetachClearsAPendingSubOptimalFlagAndKeepsTheAverage) {
    attach();
    const auto cFrame = iqFrame(0);
    cFrame->setSubOptimal(true);
    mcSink->receiveMeasured(cFrame);
    EXPECT_TRUE(mcSink->detachFromSource());
    EXPECT_FALSE(mcSink->getParameters().find("SubOptimalDR"));
    EXPECT_NEAR(*number("avgdBm"), 0.0f, 1e-4f);
}

TEST_F(IQFrameSinkTest, FrameWithoutSamplesFailsTheAssertionOnItsDuration) {
    for (const ReferencePtr<ComplexArray>& cSamples :
         {ReferencePtr<ComplexArray>(), makeReference<ComplexArray>(0u)}) {
        const auto cFrame = makeReference<IQFrame>(0u, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 1e6f,
                                                   1e5f, 1000.0f, -30.0f, cSamples, std::string());
        try {
            mcSink->receiveMeasured(cFrame);
            FAIL() << "no assertion";
        } catch (const utils::FatalError& cError) {
            EXPECT_NE(cError.message().find("ASSERT failed <fFrameDurationSec != 0.0f> "), std::string::npos);
            EXPECT_NE(cError.message().find("iqframe"), std::string::npos);
        }
    }
}
