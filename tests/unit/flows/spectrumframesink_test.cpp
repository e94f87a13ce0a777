#include "flows/spectrumframesink.h"

#include <limits>

#include "flows/spectrumframe.h"
#include "unit/flows/flowsupport.h"

using vnktest::CountedSource;
using vnktest::record;
using vnktest::statuses;

class SpectrumFrameSinkTest : public vnktest::FlowTest {
 protected:
    bool set(utils::VariantRecord cRecord) {
        mlErrors.clear();
        return mcSink->setSinkParameters(cRecord, mlErrors, false);
    }
    bool set(const char* pText) { return set(record(pText)); }
    std::optional<float> number(const char* pKey) { return mcSink->getParameters().getNumber(pKey); }
    ReferencePtr<SpectrumFrameSink> mcSink = makeReference<SpectrumFrameSink>();
};

TEST_F(SpectrumFrameSinkTest, SchemaHoldsItsSevenTexts) {
    const auto cSchema = mcSink->getParameterInfo();
    EXPECT_EQ(cSchema.size(), 7u);
    EXPECT_EQ(cSchema.getText("FMinHz"), "<Minimum sweep extent requested Hz>");
    EXPECT_EQ(cSchema.getText("FMaxHz"), "<Maximum sweep extent requested Hz>");
    EXPECT_EQ(cSchema.getText("RBWHz"), "<Resolution bandwidth requested Hz>");
    EXPECT_EQ(cSchema.getText("RefdBm"), "<Expected maximum power in dBm>");
    EXPECT_EQ(cSchema.getText("UserCaldB"), "<Offset to apply to calibrated data in dB>");
    EXPECT_EQ(cSchema.getText("captureFrames"),
              "Optional capture duration in frames (0 indicates continuous capture)");
    EXPECT_EQ(cSchema.getText("WindowFn"), "<Optional windowing function>");
}

TEST_F(SpectrumFrameSinkTest, FreshSinkReportsItsDefaults) {
    const auto cRecord = mcSink->getParameters();
    EXPECT_EQ(cRecord.size(), 11u);
    EXPECT_EQ(cRecord.getNumber("FMinHz"), 0.0f);
    EXPECT_EQ(cRecord.getNumber("RefdBm"), -40.0f);
    EXPECT_EQ(cRecord.getText("WindowFn"), "");
    EXPECT_EQ(cRecord.getNumber("captureFrames"), 0.0f);
}

TEST_F(SpectrumFrameSinkTest, AllSevenAreStored) {
    EXPECT_TRUE(
        set("{\"FMinHz\":1e6,\"FMaxHz\":2e6,\"RBWHz\":1000,\"RefdBm\":-10.0,\"UserCaldB\":2.0,"
            "\"WindowFn\":\"hann\",\"captureFrames\":6.6}"));
    const auto cRecord = mcSink->getParameters();
    EXPECT_EQ(cRecord.getNumber("FMinHz"), 1e6f);
    EXPECT_EQ(cRecord.getNumber("FMaxHz"), 2e6f);
    EXPECT_EQ(cRecord.getNumber("RBWHz"), 1000.0f);
    EXPECT_EQ(cRecord.getNumber("RefdBm"), -10.0f);
    EXPECT_EQ(cRecord.getNumber("UserCaldB"), 2.0f);
    EXPECT_EQ(cRecord.getText("WindowFn"), "hann");
    EXPECT_EQ(cRecord.getNumber("captureFrames"), 7.0f);
    EXPECT_EQ(cRecord.find("captureFrames")->getType(), utils::Variant::kUnsigned32);
}

TEST_F(SpectrumFrameSinkTest, EqualEdgesPass) {
    EXPECT_TRUE(set("{\"FMinHz\":1e6,\"FMaxHz\":1e6}"));
}

TEST_F(SpectrumFrameSinkTest, EdgesTheWrongWayRoundStoreNothing) {
    EXPECT_FALSE(set("{\"FMinHz\":2e6,\"FMaxHz\":1e6,\"RBWHz\":1000.0,\"RefdBm\":-10.0}"));
    EXPECT_EQ(mlErrors, ErrorList{"FMin:2.0000e+06Hz - FMax: 1.0000e+06Hz is invalid range"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-53});
    EXPECT_EQ(number("RBWHz"), 0.0f);
    EXPECT_EQ(number("RefdBm"), -40.0f);
}

TEST_F(SpectrumFrameSinkTest, OneEdgeIsTestedAgainstTheOtherAsStored) {
    EXPECT_TRUE(set("{\"FMinHz\":1e6,\"FMaxHz\":2e6}"));
    EXPECT_FALSE(set("{\"FMinHz\":3e6}"));
    EXPECT_EQ(statuses(), std::vector<int32_t>{-53});
}

TEST_F(SpectrumFrameSinkTest, NegativeEdgesAreRefused) {
    EXPECT_FALSE(set("{\"FMinHz\":-2.0,\"FMaxHz\":-1.0}"));
    EXPECT_EQ(mlErrors, (ErrorList{"FMinHz of -2.0000e+00 is invalid", "FMaxHz of -1.0000e+00 is invalid"}));
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-59, -60}));
}

TEST_F(SpectrumFrameSinkTest, ResolutionBandwidthIsJudgedByTheUpperEdge) {
    EXPECT_TRUE(set("{\"RBWHz\":-5.0}"));
    EXPECT_EQ(number("RBWHz"), -5.0f);
    EXPECT_FALSE(set("{\"FMinHz\":-2.0,\"FMaxHz\":-1.0,\"RBWHz\":100.0}"));
    EXPECT_EQ(mlErrors.back(), "RBWHz of 1.0000e+02 is invalid");
    EXPECT_EQ(statuses(), (std::vector<int32_t>{-59, -60, -61}));
}

TEST_F(SpectrumFrameSinkTest, UnknownWindowIsRefused) {
    EXPECT_FALSE(set("{\"WindowFn\":\"Hann\"}"));
    EXPECT_EQ(mlErrors, ErrorList{"WindowFn of <Hann> is not a known type"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-85});
}

TEST_F(SpectrumFrameSinkTest, ValueThatIsNoNumberFailsItsRangeCheck) {
    for (const char* pKey : {"FMinHz", "FMaxHz"}) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, std::numeric_limits<float>::quiet_NaN());
        EXPECT_FALSE(set(cRecord)) << pKey;
        EXPECT_EQ(number(pKey), 0.0f);
    }
}

TEST_F(SpectrumFrameSinkTest, RefusalOfTheSourceStoresNothing) {
    auto cSource = makeReference<CountedSource>();
    ASSERT_TRUE(cSource->attachFrameSink(mcSink, mlErrors));
    cSource->mbWilling = false;
    EXPECT_FALSE(set("{\"FMaxHz\":1e6}"));
    EXPECT_EQ(mlErrors.back(), "Connected source cannot implement requested parameter change");
    EXPECT_EQ(cSource->mcOffered.getNumber("FMaxHz"), 1e6f);
    EXPECT_EQ(number("FMaxHz"), 0.0f);
}

TEST_F(SpectrumFrameSinkTest, TakesSpectraAndTheEndOnly) {
    EXPECT_TRUE(mcSink->acceptsFrame(nullptr));
    EXPECT_FALSE(mcSink->acceptsFrame(vnktest::iqFrame(0)));
    EXPECT_TRUE(mcSink->acceptsFrame(
        makeReference<SpectrumFrame>(0u, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 0.0f, 1.0f, 1.0f,
                                     0.0f, std::string(), ReferencePtr<FloatArray>(), std::string())));
}

TEST_F(SpectrumFrameSinkTest, FlatteningIsStoredAndReportedOnceItIsAskedFor) {
    EXPECT_FALSE(mcSink->getParameters().getBool("flatten"));
    EXPECT_TRUE(set("{\"flatten\":true}"));
    EXPECT_EQ(mcSink->getParameters().getBool("flatten"), true);
    EXPECT_EQ(mcSink->getParameters().size(), 12u);
    EXPECT_TRUE(set("{\"RefdBm\":-10.0}"));
    EXPECT_EQ(mcSink->getParameters().getBool("flatten"), true);
    EXPECT_TRUE(set("{\"flatten\":false}"));
    EXPECT_FALSE(mcSink->getParameters().getBool("flatten"));
}

TEST_F(SpectrumFrameSinkTest, FlatteningOfAnotherKindIsUnknownAndStoresNothing) {
    for (const char* pText : {"{\"flatten\":1,\"RefdBm\":-10.0}", "{\"flatten\":\"true\",\"RefdBm\":-10.0}"}) {
        EXPECT_FALSE(set(pText)) << pText;
        EXPECT_EQ(mlErrors, ErrorList{"Attempted to integrate unknown parameter 'flatten'"});
        EXPECT_EQ(statuses(), std::vector<int32_t>{-33});
        EXPECT_EQ(number("RefdBm"), -40.0f);
    }
}

TEST_F(SpectrumFrameSinkTest, FlatteningThatTheSourceRefusesIsNotStored) {
    auto cSource = makeReference<CountedSource>();
    ASSERT_TRUE(cSource->attachFrameSink(mcSink, mlErrors));
    EXPECT_TRUE(set("{\"flatten\":true}"));
    EXPECT_EQ(cSource->mcOffered.getBool("flatten"), true);
    EXPECT_EQ(cSource->muChanges, 1u);
    cSource->mbWilling = false;
    EXPECT_FALSE(set("{\"flatten\":false}"));
    EXPECT_EQ(mcSink->getParameters().getBool("flatten"), true);
}
