#include <gtest/gtest.h>

#include <list>
#include <string>

#include "receivers/devicetype.h"

TEST(Registrations, DeviceTypesStandInTheOrderOfTheirSearch) {
    EXPECT_EQ(DeviceType::names(),
              (std::list<std::string>{"Zelvar-HiSlip", "Zelvar-Raw", "Quillon-HiSlip", "Quillon-Raw",
                                      "Dravik-HiSlip", "Dravik-Raw"}));
}
