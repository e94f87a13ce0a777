#include <limits>

#include "flows/framesink.h"
#include "unit/flows/flowsupport.h"

using vnktest::record;
using vnktest::statuses;

class FrameSinkParametersTest : public vnktest::FlowTest {
 protected:
    bool set(utils::VariantRecord cRecord) {
        mlErrors.clear();
        return mcSink->setSinkParameters(cRecord, mlErrors, false);
    }
    bool set(const char* pText) { return set(record(pText)); }
    bool set(const char* pKey, float fValue) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, fValue);
        return set(cRecord);
    }
    float number(const char* pKey) { return mcSink->getParameters().getNumber(pKey).value_or(-1.0f); }
    ReferencePtr<FrameSink> mcSink = makeReference<FrameSink>();
};

TEST_F(FrameSinkParametersTest, SchemaHoldsFlowControl) {
    const auto cSchema = mcSink->getParameterInfo();
    EXPECT_EQ(cSchema.size(), 1u);
    EXPECT_EQ(cSchema.getText("flowControl"),
              "<If set true, limit capture rate to ensure minimal network buffering>");
}

TEST_F(FrameSinkParametersTest, FreshSinkReportsItsDefaults) {
    const auto cRecord = mcSink->getParameters();
    EXPECT_EQ(cRecord.size(), 4u);
    EXPECT_EQ(cRecord.getNumber("bufferSec"), 0.0f);
    EXPECT_EQ(cRecord.getNumber("bufferFrames"), 10.0f);
    EXPECT_EQ(cRecord.find("bufferFrames")->getType(), utils::Variant::kUnsigned32);
    EXPECT_EQ(cRecord.getNumber("bufferDiscard"), 0.0f);
    EXPECT_EQ(cRecord.getBool("flowControl"), false);
}

TEST_F(FrameSinkParametersTest, AllFourAreStored) {
    EXPECT_TRUE(set("{\"bufferSec\":2.5,\"bufferFrames\":20,\"bufferDiscard\":0.25,\"flowControl\":true}"));
    EXPECT_EQ(number("bufferSec"), 2.5f);
    EXPECT_EQ(number("bufferFrames"), 20.0f);
    EXPECT_EQ(number("bufferDiscard"), 0.25f);
    EXPECT_EQ(mcSink->getParameters().getBool("flowControl"), true);
    EXPECT_TRUE(statuses().empty());
}

TEST_F(FrameSinkParametersTest, BufferFramesLimits) {
    EXPECT_TRUE(set("{\"bufferFrames\":100000}"));
    EXPECT_TRUE(set("{\"bufferFrames\":1}"));
    EXPECT_FALSE(set("{\"bufferFrames\":100001}"));
    EXPECT_EQ(mlErrors, ErrorList{"VNKBufferFrames 100001 out-of-range. Valid range 1 - 100000"});
    EXPECT_FALSE(set("{\"bufferFrames\":0}"));
    EXPECT_EQ(mlErrors, ErrorList{"VNKBufferFrames 0 out-of-range. Valid range 1 - 100000"});
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-51, -51}));
    EXPECT_EQ(number("bufferFrames"), 1.0f);
}

TEST_F(FrameSinkParametersTest, BufferFramesGivenAsAFloatIsRounded) {
    EXPECT_TRUE(set("bufferFrames", 5.4f));
    EXPECT_EQ(number("bufferFrames"), 5.0f);
    EXPECT_FALSE(set("bufferFrames", 4294967296.0f));
    EXPECT_EQ(statuses(), std::vector<int32_t>{-51});
}

TEST_F(FrameSinkParametersTest, BufferFramesInAFormThatNeverFitsIsUnknown) {
    utils::VariantRecord cNegative;
    cNegative.set("bufferFrames", int32_t{-1});
    EXPECT_FALSE(set(cNegative));
    EXPECT_EQ(mlErrors, ErrorList{"Attempted to integrate unknown parameter 'bufferFrames'"});
    EXPECT_FALSE(set("bufferFrames", std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(mlErrors, ErrorList{"Attempted to integrate unknown parameter 'bufferFrames'"});
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-33, -33}));
    EXPECT_EQ(number("bufferFrames"), 10.0f);
}

TEST_F(FrameSinkParametersTest, BufferSecLimits) {
    EXPECT_TRUE(set("bufferSec", 1000.0f));
    EXPECT_TRUE(set("bufferSec", 0.0f));
    EXPECT_FALSE(set("bufferSec", 1000.1f));
    EXPECT_EQ(mlErrors, ErrorList{"VNKBufferSec 1000.100 out-of-range. Valid range 0 - 1000 seconds"});
    EXPECT_FALSE(set("bufferSec", -0.5f));
    EXPECT_EQ(mlErrors, ErrorList{"VNKBufferSec -0.500 out-of-range. Valid range 0 - 1000 seconds"});
    EXPECT_FALSE(set("bufferSec", std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-50, -50, -50}));
    EXPECT_EQ(number("bufferSec"), 0.0f);
}

TEST_F(FrameSinkParametersTest, BufferDiscardLimits) {
    EXPECT_TRUE(set("bufferDiscard", 1.0f));
    for (const float fValue : {-0.1f, 1.1f, std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_FALSE(set("bufferDiscard", fValue));
        EXPECT_EQ(mlErrors, ErrorList{"VNKDiscardProportion should be between 0.0 and 1.0"});
    }
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-52, -52, -52}));
    EXPECT_EQ(number("bufferDiscard"), 1.0f);
}

TEST_F(FrameSinkParametersTest, OneBadValueStoresNothingAndAllMessagesBecomeTheDetail) {
    EXPECT_FALSE(set("{\"bufferSec\":-1.0,\"bufferFrames\":0,\"bufferDiscard\":0.5,\"flowControl\":true}"));
    EXPECT_EQ(mlErrors.size(), 2u);
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-50, -51}));
    EXPECT_EQ(detail(),
              "VNKBufferSec -1.000 out-of-range. Valid range 0 - 1000 seconds, "
              "VNKBufferFrames 0 out-of-range. Valid range 1 - 100000");
    EXPECT_EQ(number("bufferDiscard"), 0.0f);
    EXPECT_EQ(mcSink->getParameters().getBool("flowControl"), false);
}

TEST_F(FrameSinkParametersTest, EachUnknownKeyHasItsMessageAndNothingIsStored) {
    EXPECT_FALSE(set("{\"beta\":1,\"alpha\":true,\"bufferFrames\":20}"));
    EXPECT_EQ(mlErrors, (ErrorList{"Attempted to integrate unknown parameter 'alpha'",
                                   "Attempted to integrate unknown parameter 'beta'"}));
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-33, -33}));
    EXPECT_EQ(number("bufferFrames"), 10.0f);
}

TEST_F(FrameSinkParametersTest, FlowControlTakesABoolOnly) {
    EXPECT_FALSE(set("{\"flowControl\":1}"));
    EXPECT_EQ(mlErrors, ErrorList{"Attempted to integrate unknown parameter 'flowControl'"});
}

TEST_F(FrameSinkParametersTest, ErrorsOfTheCallerStopTheChange) {
    ErrorList lErrors{"from before"};
    auto cRecord = record("{\"bufferFrames\":20}");
    EXPECT_FALSE(mcSink->setSinkParameters(cRecord, lErrors, false));
    EXPECT_EQ(number("bufferFrames"), 10.0f);
}

TEST_F(FrameSinkParametersTest, BaseParametersStandInTheReportUntilErased) {
    mcSink->setBaseParameters(record("{\"SampleRateHz\":50000.0,\"bufferFrames\":3}"));
    EXPECT_EQ(number("SampleRateHz"), 50000.0f);
    EXPECT_EQ(number("bufferFrames"), 10.0f);  // the sink's own values come last
    mcSink->setBaseParameters(record("{\"SampleRateHz\":60000.0}"));
    EXPECT_EQ(number("SampleRateHz"), 60000.0f);
    mcSink->eraseBaseParameter("SampleRateHz");
    EXPECT_FALSE(mcSink->getParameters().find("SampleRateHz"));
}

TEST_F(FrameSinkParametersTest, BaseParametersAreQuiet) {
    auto cSource = makeReference<vnktest::CountedSource>();
    ASSERT_TRUE(cSource->attachFrameSink(mcSink, mlErrors));
    mcSink->setBaseParameters(record("{\"SampleRateHz\":50000.0}"));
    mcSink->eraseBaseParameter("SampleRateHz");
    EXPECT_EQ(cSource->muChanges, 0u);
}
