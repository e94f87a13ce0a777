#include "zelvar/modeltable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "zelvar/devicetypes.h"

namespace {

struct Expected {
    const char* mpName;
    double mfHighestHz;
    uint32_t muGain;
    uint32_t muAttenuator;
    bool mbGNSS;
    char mcTables;
};

// As printed for people: the highest frequencies are those of 32-bit floats.
constexpr Expected kExpected[] = {
    {"ZV350-C", 27000000512.0, 1, 2, true, 'A'},  {"ZV350-B", 17999998976.0, 1, 2, true, 'A'},
    {"ZV350-A", 8000000000.0, 0, 1, true, 'B'},   {"ZV300-C", 27000000512.0, 1, 2, true, 'A'},
    {"ZV300-B", 17999998976.0, 1, 2, true, 'A'},  {"ZV300-A", 8000000000.0, 0, 1, true, 'B'},
    {"ZV150-C", 27000000512.0, 1, 2, false, 'A'}, {"ZV150-B", 17999998976.0, 1, 2, false, 'A'},
    {"ZV150-A", 8000000000.0, 0, 1, false, 'B'},  {"ZV100-C", 27000000512.0, 1, 2, false, 'A'},
    {"ZV100-B", 17999998976.0, 1, 2, false, 'A'}, {"ZV100-AP", 8000000000.0, 0, 2, false, 'B'},
    {"ZV100-A", 8000000000.0, 0, 1, false, 'B'},
};

void expectTables(const GainTable& cTable, char cSet) {
    const char* const kNamesA[] = {"high", "high", "high", "high", "high",
                                   "high", "high", "med",  "low",  "low"};
    const float kAttenuationsA[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 10};
    const float kAttenuationsB[] = {0, 0, 0, 0, 0, 0, 0, 10, 20, 30};
    for (size_t i = 0; i < 10; ++i) {
        if (cSet == 'A') {
            EXPECT_STREQ(cTable.mpNames[i], kNamesA[i]);
        } else {
            EXPECT_EQ(cTable.mpNames[i], nullptr);
        }
        EXPECT_EQ(cTable.mfAttenuations[i], cSet == 'A' ? kAttenuationsA[i] : kAttenuationsB[i]) << i;
    }
}

}  // namespace

TEST(ModelTable, HoldsTheThirteenModelsInOrderOfSearch) {
    const auto& lModels = modelTable();
    for (size_t i = 0; i < lModels.size(); ++i) {
        const ModelRecord& cModel = lModels[i];
        const Expected& cExpected = kExpected[i];
        SCOPED_TRACE(cExpected.mpName);
        EXPECT_STREQ(cModel.mpName, cExpected.mpName);
        EXPECT_EQ(static_cast<double>(cModel.mfHighestHz), cExpected.mfHighestHz);
        EXPECT_EQ(cModel.muGainScheme, cExpected.muGain);
        EXPECT_EQ(cModel.muAttenuatorScheme, cExpected.muAttenuator);
        EXPECT_EQ(cModel.mbGNSS, cExpected.mbGNSS);
        EXPECT_EQ(cModel.mbSecondFlag, !cExpected.mbGNSS);
        expectTables(*cModel.mpTuned, cExpected.mcTables);
        expectTables(*cModel.mpFullRate, cExpected.mcTables);
        EXPECT_EQ(cModel.mfSampleRateHz, 125000000.0f);
        EXPECT_TRUE(cModel.mbDecimationOffAllowed);
        EXPECT_EQ(cModel.muMinDecimation, 4u);
        EXPECT_EQ(cModel.muMaxDecimation, 1024u);
        EXPECT_EQ(cModel.muLargestCapture, 134217728u);
        EXPECT_EQ(cModel.mfLowestHz, 9000.0f);
        EXPECT_EQ(cModel.mfTunedStartHz, 50000000.0f);
        EXPECT_EQ(cModel.mfTunedLimitdBm, -3.0f);
        EXPECT_EQ(cModel.mfFullRateLimitdBm, -10.0f);
    }
}

TEST(ModelTable, AModelIsFoundByItsWholeName) {
    for (const Expected& cExpected : kExpected)
        EXPECT_STREQ(findModel(cExpected.mpName)->mpName, cExpected.mpName);
    for (const char* pName : {"", "ZV100", "ZV100-AX", "zv100-a", " ZV100-A", "ZV100-A "})
        EXPECT_EQ(findModel(pName), nullptr) << pName;
}

TEST(ModelTable, TheRawTypeAcceptsATextThatHoldsAModelsName) {
    const ZelvarRawDeviceType cType;
    for (const Expected& cExpected : kExpected)
        EXPECT_TRUE(cType.accepts(cExpected.mpName));
    EXPECT_TRUE(cType.accepts("ZV100-AX"));
    EXPECT_TRUE(cType.accepts("my ZV350-C unit"));
    for (const char* pText : {"", "unknown", "zv100-a", "ZV100-", "Quillon"})
        EXPECT_FALSE(cType.accepts(pText)) << pText;
}

TEST(ModelTable, TheHiSlipTypeAcceptsNothing) {
    const ZelvarHiSlipDeviceType cType;
    for (const Expected& cExpected : kExpected)
        EXPECT_FALSE(cType.accepts(cExpected.mpName));
    EXPECT_FALSE(cType.accepts(""));
    EXPECT_EQ(cType.getName(), "Zelvar-HiSlip");
}

TEST(GainIndex, CountsTensOfDecibelsFromMinusEighty) {
    EXPECT_EQ(gainIndex(-80.0f), 0u);
    EXPECT_EQ(gainIndex(-70.1f), 0u);
    EXPECT_EQ(gainIndex(-70.0f), 1u);
    EXPECT_EQ(gainIndex(-10.0f), 7u);
    EXPECT_EQ(gainIndex(9.9f), 8u);
    EXPECT_EQ(gainIndex(10.0f), 9u);
    EXPECT_EQ(gainIndex(20.0f), 9u);
}

TEST(GainIndex, StaysInTheTable) {
    for (const float fLevel :
         {-80.1f, -1e30f, -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(gainIndex(fLevel), 0u) << fLevel;
    for (const float fLevel : {1e30f, std::numeric_limits<float>::infinity()})
        EXPECT_EQ(gainIndex(fLevel), 9u) << fLevel;
}

TEST(ReferenceLevel, IsLookedUpFromTheTopDown) {
    const GainTable& cA = *findModel("ZV350-C")->mpTuned;
    EXPECT_EQ(referenceLevelFor(cA, "high", 0.0f), -20.0f);
    EXPECT_EQ(referenceLevelFor(cA, "med", 0.0f), -10.0f);
    EXPECT_EQ(referenceLevelFor(cA, "low", 0.0f), 0.0f);
    EXPECT_EQ(referenceLevelFor(cA, "low", 10.0f), 10.0f);
    const GainTable& cB = *findModel("ZV100-A")->mpTuned;
    EXPECT_EQ(referenceLevelFor(cB, "", 0.0f), -20.0f);
    EXPECT_EQ(referenceLevelFor(cB, "", 10.0f), -10.0f);
    EXPECT_EQ(referenceLevelFor(cB, "", 30.0f), 10.0f);
}

TEST(ReferenceLevel, IsZeroWithoutAMatch) {
    EXPECT_EQ(referenceLevelFor(*findModel("ZV350-C")->mpTuned, "high", 10.0f), 0.0f);
    EXPECT_EQ(referenceLevelFor(*findModel("ZV350-C")->mpTuned, "", 0.0f), 0.0f);
    EXPECT_EQ(referenceLevelFor(*findModel("ZV100-A")->mpTuned, "", 5.0f), 0.0f);
}

TEST(ReferenceLevel, ATableWithoutNamesIsSearchedByTheAttenuationAlone) {
    EXPECT_EQ(referenceLevelFor(*findModel("ZV100-A")->mpTuned, "low", 20.0f), 0.0f);
    EXPECT_EQ(referenceLevelFor(*findModel("ZV100-A")->mpTuned, "low", 30.0f), 10.0f);
}
