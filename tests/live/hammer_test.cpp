#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "live/session.h"
#include "support/resources.h"

namespace {

using namespace std::chrono_literals;

/// How long the hammer goes on: VNK_HAMMER_SECONDS, or a short while in an ordinary run.
std::chrono::seconds hammerTime() {
    const char* pSeconds = std::getenv("VNK_HAMMER_SECONDS");
    return std::chrono::seconds(pSeconds ? std::atoi(pSeconds) : 10);
}

struct Radios {
    std::vector<std::unique_ptr<vnksim::Unit>> mlUnits;
    std::vector<uint32_t> mlIndices;
    Radios() {
        for (const char* pModel : {"ZV100-A", "ZV150-C", "ZV300-B"}) {
            auto cOptions = live::options(pModel);
            cOptions.corrections.signalSize = 0;   // a short open
            mlUnits.push_back(
                std::make_unique<vnksim::Unit>(cOptions, vnksim::Scene().tone(100e6, -40).noise(-150)));
            mlUnits.back()->start();
            mlIndices.push_back(live::indexOf(cOptions.address));
        }
    }
};

/// Statuses that a call may give while others close what it uses.
bool isTold(int32_t iStatus) {
    return iStatus >= -88 && iStatus <= 5;
}

/// One application thread: opens, attaches, reads, retunes, detaches and closes at random.
void work(const Radios& cRadios, unsigned uSeed, const std::atomic<bool>& bStop, std::atomic<uint64_t>& uFrames) {
    std::mt19937 cRandom(uSeed);
    const auto draw = [&](unsigned n) { return static_cast<unsigned>(cRandom() % n); };
    while (!bStop) {
        uint32_t uDevice = VNK_INVALID_HANDLE;
        EXPECT_TRUE(isTold(vnkOpenDevice(cRadios.mlIndices[draw(3)], &uDevice)));
        live::Stream cStream(100e6, draw(2) ? 100e3 : 3e6, -30);
        EXPECT_TRUE(isTold(vnkAttachStreamToDevice(cStream.handle(), uDevice)));
        const unsigned uTurns = 1 + draw(12);
        for (unsigned i = 0; i < uTurns && !bStop; ++i) {
            live::Frame cFrame;
            const int32_t iStatus = cStream.read(cFrame, 1 + draw(200));
            EXPECT_TRUE(isTold(iStatus));
            if (iStatus == 0)
                ++uFrames;
            switch (draw(6)) {
            case 0: EXPECT_TRUE(isTold(cStream.set("{\"FCentreHz\":2.0e8}"))); break;
            case 1: EXPECT_TRUE(isTold(cStream.detach())); break;
            case 2: EXPECT_TRUE(isTold(vnkAttachStreamToDevice(cStream.handle(), uDevice))); break;
            case 3: vnkFlushStream(cStream.handle()); break;
            case 4: cStream.parameters(); break;
            default: break;
            }
        }
        if (draw(3) == 0)
            vnkClose(&uDevice);
    }
}

}  // namespace

TEST(Hammer, ThreadsThatOpenAttachReadRetuneDetachAndCloseLeaveNothingBehind) {
    const size_t uThreads = vnktest::idleThreads();
    std::atomic<uint64_t> uFrames{0};
    {
        const Radios cRadios;
        std::atomic<bool> bStop{false};
        std::vector<std::thread> lThreads;
        for (unsigned i = 0; i < 8; ++i)
            lThreads.emplace_back([&, i] { work(cRadios, i, bStop, uFrames); });
        std::this_thread::sleep_for(hammerTime());
        bStop = true;
        for (std::thread& cThread : lThreads)
            cThread.join();
        InterfaceDown cDown;
    }
    EXPECT_GT(uFrames.load(), 0u);
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; }))
        << vnktest::liveThreads() << " threads, " << uThreads << " before";
}

TEST(Hammer, TwoThreadsThatOpenOneIndexGetOneOrTwoDevicesAndBothClose) {
    const Radios cRadios;
    for (int i = 0; i < 3; ++i) {
        uint32_t uFirst = VNK_INVALID_HANDLE, uSecond = VNK_INVALID_HANDLE;
        std::thread cOther([&] { EXPECT_EQ(vnkOpenDevice(cRadios.mlIndices[0], &uSecond), 0); });
        EXPECT_EQ(vnkOpenDevice(cRadios.mlIndices[0], &uFirst), 0);
        cOther.join();
        const bool bSame = uFirst == uSecond;
        EXPECT_EQ(vnkClose(&uFirst), 0);
        EXPECT_EQ(vnkClose(&uSecond), bSame ? -21 : 0);
        EXPECT_TRUE(vnktest::waitUntil([&] { return cRadios.mlUnits[0]->state().dataConnections == 0; }));
    }
}
