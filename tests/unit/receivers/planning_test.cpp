#include "receivers/planning.h"

#include <gtest/gtest.h>

#include <bit>
#include <limits>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

}  // namespace

TEST(Planning, CentresAreWholeTensWithHalvesUpwards) {
    EXPECT_EQ(roundToTens(0.0f), 0u);
    EXPECT_EQ(roundToTens(4.0f), 0u);
    EXPECT_EQ(roundToTens(5.0f), 10u);
    EXPECT_EQ(roundToTens(118000672.0f), 118000670u);
    EXPECT_EQ(roundToTens(12500000768.0f), 12500001280u);  // a tenth of it is a float too
    EXPECT_EQ(roundToTens(1e12f), 999999979520u);
}

TEST(Planning, BelowZeroThereIsNoCentre) {
    for (const float fHz : {-4.0f, -1e9f, -kInfinity, kNaN})
        EXPECT_EQ(roundToTens(fHz), 0u) << fHz;
}

TEST(Planning, TheTransformHasTwiceTheLinesInWholeSteps) {
    EXPECT_EQ(chooseFFTSize(1e6f, 31e6f), 64u);   // 32 lines
    EXPECT_EQ(chooseFFTSize(1e6f, 32e6f), 128u);  // 33 lines make 64
    EXPECT_EQ(chooseFFTSize(1e9f, 1e6f), 64u);
    for (float fLine = 1.0f; fLine < 1e7f; fLine *= 1.37f) {
        const uint32_t uSize = chooseFFTSize(fLine, 62.5e6f);
        EXPECT_TRUE(std::has_single_bit(uSize));
        EXPECT_GE(uSize * 0.5, 62.5e6 / double{fLine});
    }
}

TEST(Planning, LinesThatCannotBeToldApartTakeTheLargestTransform) {
    for (const float fLine : {0.0f, kNaN, 1e-30f, std::numeric_limits<float>::denorm_min()})
        EXPECT_EQ(chooseFFTSize(fLine, 62.5e6f), 1u << 31) << fLine;
}

TEST(Planning, PartsOfAWholeAreRoundedUp) {
    EXPECT_EQ(divideUp(0, 32), 0u);
    EXPECT_EQ(divideUp(1, 32), 1u);
    EXPECT_EQ(divideUp(32, 32), 1u);
    EXPECT_EQ(divideUp(33, 32), 2u);
}
