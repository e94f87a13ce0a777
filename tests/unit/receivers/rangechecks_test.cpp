#include "receivers/rangechecks.h"

#include <gmock/gmock.h>

#include <limits>

#include "support/logs.h"

using testing::ElementsAre;
using vnktest::LogLine;
using vnktest::takeLog;
using vnktest::takeStatuses;

namespace {

constexpr StreamRanges kRanges{{9000.0f, 8e9f}, {9000.0f, 8e9f}, {1.0f, 1e7f}, {1e5f, 4e7f}, {-80.0f, 20.0f}};

class RangeChecks : public testing::Test {
 protected:
    RangeChecks() {
        takeLog(true);
        takeStatuses();
    }
    bool checkIQ() { return canImplementIQ(mcParameters, kRanges, mlMessages); }
    bool checkSpectrum() { return canImplementSpectrum(mcParameters, kRanges, mlMessages); }
    void setIQ(float fCentre, float fIFBW, float fReference) {
        mcParameters.set("FCentreHz", fCentre);
        mcParameters.set("IFBWHz", fIFBW);
        mcParameters.set("RefdBm", fReference);
    }
    void setSpectrum(float fMinimum, float fMaximum, float fRBW, const char* pWindow) {
        mcParameters.set("FMinHz", fMinimum);
        mcParameters.set("FMaxHz", fMaximum);
        mcParameters.set("RBWHz", fRBW);
        mcParameters.set("WindowFn", pWindow);
    }
    utils::VariantRecord mcParameters;
    ErrorList mlMessages;
};

}  // namespace

TEST_F(RangeChecks, ARequestOnTheVeryEdgesPasses) {
    for (const bool bUpper : {false, true}) {
        setIQ(bUpper ? 8e9f : 9000.0f, bUpper ? 4e7f : 1e5f, bUpper ? 20.0f : -80.0f);
        EXPECT_TRUE(checkIQ());
        setSpectrum(9000.0f, 8e9f, bUpper ? 1e7f : 1.0f, "nuttall");
        EXPECT_TRUE(checkSpectrum());
    }
    EXPECT_TRUE(takeLog(true).empty());
    EXPECT_TRUE(takeStatuses().empty());
}

TEST_F(RangeChecks, AllThreeTestsOfAnIQStreamRunAndTheThirdTextShowsTheBandwidth) {
    setIQ(100.0f, 5e7f, 21.0f);
    EXPECT_FALSE(checkIQ());
    EXPECT_THAT(mlMessages, ElementsAre("FCentreHz 1.0000e+02 is out of range (9.0000e+03, 8.0000e+09)",
                                        "FIFBWHz 5.0000e+07 is out of range (1.0000e+05, 4.0000e+07)",
                                        "ReferenceLevel 50000000 is out of range (-80, 20)"));
    EXPECT_THAT(takeStatuses(), ElementsAre(-62, -63, -64));
    EXPECT_THAT(takeLog(true), ElementsAre(LogLine{1000, mlMessages[0]}, LogLine{1000, mlMessages[1]},
                                           LogLine{1000, mlMessages[2]}));
}

TEST_F(RangeChecks, MissingIQParametersStandForZeroZeroAndMinusThirty) {
    EXPECT_FALSE(checkIQ());
    EXPECT_THAT(takeStatuses(), ElementsAre(-62, -63));
}

TEST_F(RangeChecks, IntegersCountAsNumbersAndOtherKindsAsAbsent) {
    mcParameters.set("FCentreHz", uint64_t{100000000});
    mcParameters.set("IFBWHz", int32_t{200000});
    mcParameters.set("RefdBm", "loud");
    EXPECT_TRUE(checkIQ());
    mcParameters.set("FCentreHz", true);
    EXPECT_FALSE(checkIQ());
    EXPECT_THAT(takeStatuses(), ElementsAre(-62));
}

TEST_F(RangeChecks, NotANumberLiesInNoRange) {
    const float fNaN = std::numeric_limits<float>::quiet_NaN();
    setIQ(fNaN, fNaN, fNaN);
    EXPECT_FALSE(checkIQ());
    EXPECT_THAT(takeStatuses(), ElementsAre(-62, -63, -64));
    mlMessages.clear();
    setSpectrum(fNaN, fNaN, fNaN, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(takeStatuses(), ElementsAre(-67, -68, -65));
}

TEST_F(RangeChecks, AMessageThatIsThereAlreadyMakesTheResultFalse) {
    setIQ(1e8f, 1e6f, -30.0f);
    mlMessages.push_back("of before");
    EXPECT_FALSE(checkIQ());
    EXPECT_THAT(mlMessages, ElementsAre("of before"));
}

TEST_F(RangeChecks, EqualSweepEdgesAreInvalidAndThePrintedNumberIsTheLowHalfOfADouble) {
    // 2^24 - 1 as a double is 0x416FFFFFE0000000.
    setSpectrum(16777215.0f, 16777215.0f, 1e3f, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(mlMessages, ElementsAre("Range FMinHz -536870912 to FMaxHz 1.6777e+07 is invalid"));
    EXPECT_THAT(takeStatuses(), ElementsAre(-53));
    mlMessages.clear();
    setSpectrum(1e8f, 1e7f, 1e3f, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(mlMessages, ElementsAre("Range FMinHz 0000 to FMaxHz 1.0000e+07 is invalid"));
}

TEST_F(RangeChecks, OneSweepEdgeOutOfRangeDoesNotHideAPairTheWrongWayRound) {
    setSpectrum(9e9f, 1e9f, 1e3f, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(takeStatuses(), ElementsAre(-67, -53));
    EXPECT_EQ(mlMessages.front(), "FMinHz 9.0000e+09 is out of range (9.0000e+03, 8.0000e+09)");
    setSpectrum(100.0f, 1e9f, 1e3f, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(takeStatuses(), ElementsAre(-67));
    setSpectrum(1e9f, 9e9f, 1e3f, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(takeStatuses(), ElementsAre(-68));
    setSpectrum(1e9f, 1.0f, 1e3f, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(takeStatuses(), ElementsAre(-68, -53));
    setSpectrum(9e9f, 1.0f, 1e3f, "");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(takeStatuses(), ElementsAre(-67, -68));
}

TEST_F(RangeChecks, ResolutionBandwidthAndWindowNameAreTested) {
    setSpectrum(1e8f, 2e8f, 2e7f, "triangle of mine");
    EXPECT_FALSE(checkSpectrum());
    EXPECT_THAT(mlMessages, ElementsAre("RBWHz 2e+07 is out of range (1e+00, 1e+07)",
                                        "Window type 'triangle of mine' is not known"));
    EXPECT_THAT(takeStatuses(), ElementsAre(-65, -66));
}
