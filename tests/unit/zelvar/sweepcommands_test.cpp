#include <gmock/gmock.h>

#include "zelvar/sweepplan.h"

namespace {

const ModelRecord& model(const std::string& name) {
    const ModelRecord* pModel = findModel(name);
    EXPECT_TRUE(pModel) << name;
    return *pModel;
}

SweepPlan planFor(float fMin, float fMax, float fRBW) {
    SweepRequest cRequest{fMin, fMax, fRBW};
    std::string message;
    return planSweep(cRequest, 2.7e10f, message).value();
}

std::string list(const SweepPlan& cPlan, const std::string& name, float fReference = -50.0f,
                 bool bEndless = true) {
    return sweepListCommands(cPlan, fReference, bEndless, model(name));
}

}  // namespace

TEST(SweepCommands, ATunedSweepIsOneEntryOfSteps) {
    EXPECT_EQ(list(planFor(100e6f, 200e6f, 10e3f), "ZV350-C"),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:att:var 0;"
              ":sweep:entry:mode SH;:sweep:entry:freq:step 36005310;"
              ":sweep:entry:freq:cent 118000670, 190011290;:sweep:entry:spp 32768;:sweep:entry:ppb 1;"
              ":sweep:entry:dec 1;:sweep:entry:save");
}

TEST(SweepCommands, ADirectSweepHasNoTuning) {
    EXPECT_EQ(list(planFor(9e3f, 50e6f, 10e3f), "ZV100-A"),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:att 0;"
              ":sweep:entry:mode DD;:sweep:entry:spp 32768;:sweep:entry:ppb 1;:sweep:entry:save");
}

TEST(SweepCommands, AMixedSweepHasTheDirectEntryFirst) {
    const SweepPlan cPlan = planFor(20e6f, 90e6f, 2e3f);
    ASSERT_EQ(cPlan.muPacketsPerBlock, 3u);
    EXPECT_EQ(list(cPlan, "ZV100-AP"),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:att:var 0;"
              ":sweep:entry:mode DD;:sweep:entry:spp 43712;:sweep:entry:ppb 3;:sweep:entry:save;"
              ":sweep:entry:mode SH;:sweep:entry:freq:step " +
                  std::to_string(cPlan.muCentreStep) + ";:sweep:entry:freq:cent " +
                  std::to_string(cPlan.muCentreFirst) + ", " + std::to_string(cPlan.muCentreLast) +
                  ";:sweep:entry:spp 43712;:sweep:entry:ppb 3;:sweep:entry:dec 1;:sweep:entry:save");
}

TEST(SweepCommands, FrequenciesOfMoreThan32BitsAreWhole) {
    const SweepPlan cPlan = planFor(26e9f, 26.5e9f, 1e6f);
    EXPECT_THAT(list(cPlan, "ZV350-C"),
                testing::HasSubstr(":sweep:entry:freq:cent 2601" /* GHz and some MHz */));
    EXPECT_THAT(list(cPlan, "ZV350-C"), testing::HasSubstr(", " + std::to_string(cPlan.muCentreLast) + ";"));
    EXPECT_GT(cPlan.muCentreLast, 26000000000u);
}

TEST(SweepCommands, AListRunsForEverOrOnce) {
    const SweepPlan cPlan = planFor(100e6f, 200e6f, 10e3f);
    EXPECT_THAT(list(cPlan, "ZV350-C", -50.0f, true), testing::HasSubstr(";:sweep:list:iter 0;"));
    EXPECT_THAT(list(cPlan, "ZV350-C", -50.0f, false), testing::HasSubstr(";:sweep:list:iter 1;"));
}

TEST(SweepCommands, TheAttenuatorIsSetAsTheModelHasIt) {
    const SweepPlan cPlan = planFor(100e6f, 200e6f, 10e3f);
    struct {
        const char* mpModel;
        float mfReference;
        const char* mpExpected;
    } const cRows[] = {
        {"ZV350-A", -80.0f, ":sweep:entry:att 0;"},      {"ZV350-A", -10.001f, ":sweep:entry:att 0;"},
        {"ZV350-A", -10.0f, ":sweep:entry:att 10;"},     {"ZV350-A", -0.001f, ":sweep:entry:att 10;"},
        {"ZV350-A", 0.0f, ":sweep:entry:att 20;"},       {"ZV350-A", 10.0f, ":sweep:entry:att 30;"},
        {"ZV350-A", 20.0f, ":sweep:entry:att 30;"},      {"ZV100-AP", -20.0f, ":sweep:entry:att:var 0;"},
        {"ZV100-AP", 15.0f, ":sweep:entry:att:var 30;"}, {"ZV350-C", 9.999f, ":sweep:entry:att:var 0;"},
        {"ZV350-C", 10.0f, ":sweep:entry:att:var 10;"},
    };
    for (const auto& cRow : cRows)
        EXPECT_THAT(list(cPlan, cRow.mpModel, cRow.mfReference),
                    testing::HasSubstr(std::string(":sweep:list:iter 0;") + cRow.mpExpected))
            << cRow.mpModel << " " << cRow.mfReference;
}

TEST(SweepCommands, AModelWithoutAnAttenuatorIsNotToldOfOne) {
    ModelRecord cModel = model("ZV350-C");
    cModel.muAttenuatorScheme = 0;
    EXPECT_THAT(sweepListCommands(planFor(100e6f, 200e6f, 10e3f), 15.0f, true, cModel),
                testing::HasSubstr(":sweep:list:iter 0;:sweep:entry:mode SH"));
}

TEST(SweepCommands, GainStagesAreSetByOneLineOnModelsThatHaveThem) {
    struct {
        float mfReference;
        const char* mpExpected;
    } const cRows[] = {
        {-80.0f, ":INPUT:GAIN 1 1; :INPUT:GAIN 2 1"}, {-10.001f, ":INPUT:GAIN 1 1; :INPUT:GAIN 2 1"},
        {-10.0f, ":INPUT:GAIN 1 1; :INPUT:GAIN 2 0"}, {-0.001f, ":INPUT:GAIN 1 1; :INPUT:GAIN 2 0"},
        {0.0f, ":INPUT:GAIN 1 0; :INPUT:GAIN 2 0"},   {20.0f, ":INPUT:GAIN 1 0; :INPUT:GAIN 2 0"},
    };
    for (const ModelRecord& cModel : modelTable()) {
        const std::string name = cModel.mpName;
        const bool bHasGains = name.back() == 'B' || name.back() == 'C';
        for (const auto& cRow : cRows)
            EXPECT_EQ(sweepGainCommand(cRow.mfReference, cModel), bHasGains ? cRow.mpExpected : "") << name;
    }
}

TEST(SweepCommands, AGainNameThatNoRowHasSetsNothing) {
    GainTable cTable = *model("ZV350-C").mpTuned;
    cTable.mpNames.fill("strange");
    ModelRecord cModel = model("ZV350-C");
    cModel.mpTuned = &cTable;
    EXPECT_EQ(sweepGainCommand(-50.0f, cModel), "");
}
