#include "simulator/unit.h"

#include <gtest/gtest.h>

TEST(Unit, startsAndStops) {
    vnksim::UnitOptions options;
    options.address = "127.77.1.1";
    vnksim::Unit unit(options);
    unit.start();
    EXPECT_TRUE(unit.running());
}
