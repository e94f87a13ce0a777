#include "tools/axis.h"

#include <gtest/gtest.h>

using namespace cli;

namespace {

std::string joined(const Axis& axis) {
    std::string text;
    for (const Axis::Tick& tick : axis.ticks)
        text += (text.empty() ? "" : " ") + tick.label;
    return text + ", " + axis.unit;
}

}  // namespace

TEST(Axis, TicksAreRoundAndShareAUnit) {
    EXPECT_EQ(joined(makeAxis(88e6, 108e6, 12, "Hz")), "88 90 92 94 96 98 100 102 104 106 108, MHz");
    EXPECT_EQ(joined(makeAxis(88e6, 1.2e9, 14, "Hz")),
              "100 200 300 400 500 600 700 800 900 1000 1100 1200, MHz");
    EXPECT_EQ(joined(makeAxis(9e3, 27e9, 8, "Hz")), "5 10 15 20 25, GHz");
    EXPECT_EQ(joined(makeAxis(100.0e6, 100.4e6, 5, "Hz")), "100.0 100.1 100.2 100.3 100.4, MHz");
    EXPECT_EQ(joined(makeAxis(0, 0.0421, 5, "s")), "0 20 40, ms");
    EXPECT_EQ(joined(makeAxis(0, 2, 5, "s")), "0.0 0.5 1.0 1.5 2.0, s");
    EXPECT_EQ(joined(makePlainAxis(-104.3, -20, 6, "dBm")), "-100 -80 -60 -40 -20, dBm");
    EXPECT_EQ(joined(makePlainAxis(-10, 10, 5, "dBm")), "-10 -5 0 5 10, dBm");
}

TEST(Axis, TicksLieWithinAndAreNeverTooMany) {
    for (double dWidth = 1; dWidth < 3e10; dWidth *= 1.7)
        for (const size_t uMost : {2u, 5u, 14u}) {
            const Axis axis = makeAxis(9e3, 9e3 + dWidth, uMost, "Hz");
            EXPECT_LE(axis.ticks.size(), uMost + 1);
            for (const Axis::Tick& tick : axis.ticks) {
                EXPECT_GE(tick.value, 9e3 - 1e-3 * dWidth);
                EXPECT_LE(tick.value, 9e3 + dWidth * 1.001);
            }
        }
}

TEST(Axis, AnEmptyRangeHasNoTicks) {
    EXPECT_TRUE(makeAxis(5, 5, 10, "Hz").ticks.empty());
    EXPECT_TRUE(makeAxis(6, 5, 10, "Hz").ticks.empty());
    EXPECT_TRUE(makePlainAxis(5, 6, 1, "dBm").ticks.empty());
}
