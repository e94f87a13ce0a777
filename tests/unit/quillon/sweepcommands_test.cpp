#include <gmock/gmock.h>

#include <limits>

#include "quillon/sweepplan.h"

namespace {

SweepPlan planFor(float fMin, float fMax, float fRBW) {
    SweepRequest cRequest{fMin, fMax, fRBW};
    std::string message;
    return Quillon::planSweep(cRequest, 2e10f, message).value();
}

}  // namespace

TEST(QuillonSweepCommands, ASweepIsOneEntryOfSteps) {
    EXPECT_EQ(Quillon::sweepListCommands(planFor(100e6f, 400e6f, 200e3f), true),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:freq:step 98345990;"
              ":sweep:entry:freq:cent 149143010, 444180980;:sweep:entry:spp 4096;:sweep:entry:ppb 1;"
              ":sweep:entry:dec 1;:sweep:entry:save");
}

TEST(QuillonSweepCommands, LowFrequenciesHaveTheSameKindOfEntry) {
    const SweepPlan cPlan = planFor(9e3f, 10e6f, 1e6f);
    ASSERT_EQ(cPlan.muStepCount, 1u);
    const std::string centre = std::to_string(cPlan.muCentreFirst);
    EXPECT_EQ(Quillon::sweepListCommands(cPlan, false),
              ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:freq:step " +
                  std::to_string(cPlan.muCentreStep) + ";:sweep:entry:freq:cent " + centre + ", " + centre +
                  ";:sweep:entry:spp 512;:sweep:entry:ppb 1;:sweep:entry:dec 1;:sweep:entry:save");
}

TEST(QuillonSweepCommands, FrequenciesOfMoreThan32BitsAreWhole) {
    const SweepPlan cPlan = planFor(18e9f, 18.5e9f, 1e6f);
    EXPECT_GT(cPlan.muCentreFirst, 18000000000u);
    EXPECT_THAT(Quillon::sweepListCommands(cPlan, true),
                testing::HasSubstr(":sweep:entry:freq:cent " + std::to_string(cPlan.muCentreFirst) + ", " +
                                   std::to_string(cPlan.muCentreLast) + ";"));
}

TEST(QuillonSweepCommands, ABlockOfManyPacketsIsAskedForAsSuch) {
    EXPECT_THAT(Quillon::sweepListCommands(planFor(1e9f, 1.1e9f, 2e3f), true),
                testing::HasSubstr(";:sweep:entry:spp 32768;:sweep:entry:ppb 8;"));
}

TEST(QuillonSweepCommands, TheReferenceLevelIsHeldAndCutTowardsZero) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    struct {
        float mfdBm;
        const char* mpSetting;
    } const cRows[] = {{15.0f, "10"},       {10.0f, "10"},   {9.99f, "9"},
                       {0.5f, "0"},         {-0.5f, "0"},    {-39.9f, "-39"},
                       {-40.0f, "-40"},     {-50.0f, "-40"}, {kInfinity, "10"},
                       {-kInfinity, "-40"}, {1e30f, "10"},   {std::numeric_limits<float>::quiet_NaN(), "10"}};
    for (const auto& cRow : cRows)
        EXPECT_EQ(Quillon::sweepReferenceCommand(cRow.mfdBm),
                  std::string(":DEBUG:REFERENCE:LEVEL ") + cRow.mpSetting)
            << cRow.mfdBm;
}
