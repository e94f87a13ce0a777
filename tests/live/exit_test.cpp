#include <chrono>
#include <cstdlib>

#include "live/session.h"

namespace {

/// A process that ends while a capture runs on a unit that has fallen silent.
[[noreturn]] void exitWhileCapturing() {
    auto& cUnit = *new vnksim::Unit(live::options(), vnksim::Scene().tone(100e6, -40));
    cUnit.start();
    auto& cDevice = *new live::Device(cUnit.options().address);
    auto& cStream = *new live::Stream(100e6, 400e3);
    live::Frame cFrame;
    if (cDevice.status() != 0 || cStream.attach(cDevice) != 0 || !cStream.next(cFrame))
        std::exit(1);
    cFrame.free();
    cUnit.faults().change([](auto& f) { f.silent = true; });
    std::exit(0);
}

}  // namespace

TEST(ExitDeathTest, AProcessEndsInBoundedTimeWhileItCapturesFromAUnitThatHangs) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EXIT(exitWhileCapturing(), testing::ExitedWithCode(0), "");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}
