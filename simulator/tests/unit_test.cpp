#include "simulator/tests/fixture.h"
#include "support/resources.h"

namespace simtest {
namespace {

TEST(Unit, refusesAModelThatDoesNotExist) {
    vnksim::UnitOptions options;
    options.model = "ZV100-AX";
    EXPECT_THROW(vnksim::Unit unit(options), std::invalid_argument);
}

TEST(Unit, aPortThatIsTakenIsToldAndNothingIsLeftBehind) {
    vnksim::UnitOptions options;
    options.address = vnktest::uniqueLoopback();
    vnksim::Unit first(options);
    first.start();
    {
        vnksim::Unit second(options);
        EXPECT_THROW(second.start(), std::system_error);
        EXPECT_FALSE(second.running());
        first.stop();
        second.start();
        EXPECT_TRUE(second.running());
    }
    first.start();
    EXPECT_TRUE(Client(options.address, vnksim::kScpiPort).connected());
}

TEST(Unit, leavesNoThreadAndNoDescriptorWhateverItsFaults) {
    const char* const faults[] = {"clear",          "dataAfterStop",    "silent", "dieAfterExchanges,1",
                                  "segmentBytes,1", "replyDelayMs,5000"};
    // A sanitizer may start a thread of its own with the first.
    std::thread([] {}).join();
    const size_t descriptors = vnktest::openDescriptors(), threads = vnktest::idleThreads();
    for (const char* fault : faults) {
        vnksim::UnitOptions options;
        options.address = vnktest::uniqueLoopback();
        options.pace = vnksim::Pace::flatOut;
        vnksim::Unit unit(options, vnksim::Scene().tone(1e9, -30));
        unit.start();
        Client scpi(options.address, vnksim::kScpiPort), data(options.address, vnksim::kDataPort);
        unit.faults().apply(fault);
        // Nobody reads the data: the unit stands with a full socket when it is ended.
        scpi.send(":TRACe:SPPacket 65504;:SENSE:DEC 4;:TRACe:STReam:STARt 1");
        scpi.ask("*IDN?", 100);
        const auto before = std::chrono::steady_clock::now();
        unit.stop();
        EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(15)) << fault;
    }
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() == threads; }));
    EXPECT_EQ(vnktest::openDescriptors(), descriptors);
}

}  // namespace
}  // namespace simtest
