#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

#include "live/spectra.h"
#include "support/resources.h"

namespace {

/// How long the hammer goes on: VNK_HAMMER_SECONDS, or a short while in an ordinary run.
std::chrono::seconds hammerTime() {
    const char* pSeconds = std::getenv("VNK_HAMMER_SECONDS");
    return std::chrono::seconds(pSeconds ? std::atoi(pSeconds) : 6);
}

/// Statuses that a call may give while others take the radio away.
bool isTold(int32_t iStatus) {
    return iStatus >= -88 && iStatus <= 5;
}

/// A frame of a stream whose parameters change at random still is one of them: its parts fit each other and
/// the one tone on the air stands where it must.
void expectWhole(const live::SpectrumFrame& cFrame) {
    ASSERT_GT(cFrame->pointCount, 10u);
    EXPECT_LT(cFrame->minimumHz, cFrame->maximumHz);
    const auto* pEnd = cFrame->points + cFrame->pointCount;
    const auto uHighest = static_cast<size_t>(std::max_element(cFrame->points, pEnd) - cFrame->points);
    EXPECT_NEAR(cFrame.hertz(uHighest), 98.1e6, 2 * cFrame.binHz());
}

/// One application thread with a spectrum stream of its own.
void sweep(live::Device& cDevice, unsigned uSeed, const std::atomic<bool>& bStop, std::atomic<uint64_t>& uFrames) {
    std::mt19937 cRandom(uSeed);
    const auto draw = [&](unsigned n) { return static_cast<unsigned>(cRandom() % n); };
    const char* changes[] = {"{\"RBWHz\":4.0e5}",      "{\"RBWHz\":1.0e6}",       "{\"FMinHz\":8.8e7}",
                             "{\"FMaxHz\":1.5e8}",     "{\"FMaxHz\":2.1e8}",      "{\"WindowFn\":\"hann\"}",
                             "{\"RefdBm\":5.0}",       "{\"RefdBm\":-40.0}",      "{\"flatten\":true}",
                             "{\"UserCaldB\":0.0}",    "{\"captureFrames\":2}",   "{\"captureFrames\":0}",
                             "{\"flowControl\":true}", "{\"flowControl\":false}", "{\"FMinHz\":4.0e7}"};
    live::SpectrumStream cStream(88e6, 188e6, 400e3);
    while (!bStop) {
        EXPECT_TRUE(isTold(cStream.attach(cDevice)));
        for (unsigned i = 0, uTurns = 1 + draw(15); i < uTurns && !bStop; ++i) {
            live::SpectrumFrame cFrame;
            const int32_t iStatus = cStream.read(cFrame, 1 + draw(150));
            EXPECT_TRUE(isTold(iStatus));
            if (iStatus == 0) {
                expectWhole(cFrame);
                ++uFrames;
            }
            if (draw(3) == 0) {
                EXPECT_TRUE(isTold(cStream.set(changes[draw(std::size(changes))])));
            }
            if (draw(8) == 0) {
                EXPECT_TRUE(isTold(cDevice.set(draw(2) ? "{\"InhibitContinuousSweep\":true}"
                                                       : "{\"InhibitContinuousSweep\":false}")));
            }
        }
        if (draw(2) == 0) {
            EXPECT_TRUE(isTold(cStream.detach()));
        }
    }
}

/// One that takes the radio for IQ now and then.
void interrupt(live::Device& cDevice, unsigned uSeed, const std::atomic<bool>& bStop) {
    std::mt19937 cRandom(uSeed);
    while (!bStop) {
        std::this_thread::sleep_for(std::chrono::milliseconds(cRandom() % 700));
        live::Stream cStream(98.1e6, 400e3, -30);
        EXPECT_TRUE(isTold(cStream.attach(cDevice)));
        live::Frame cFrame;
        for (unsigned i = 0, uTurns = 1 + static_cast<unsigned>(cRandom() % 4); i < uTurns && !bStop; ++i)
            EXPECT_TRUE(isTold(cStream.read(cFrame, 100)));
        EXPECT_TRUE(isTold(cStream.detach()));
    }
}

}  // namespace

TEST(SweepHammer, FourSpectrumStreamsOnTwoUnitsWithIQBetweenThemAndParametersThatChangeLeaveNothingBehind) {
    const size_t uThreads = vnktest::idleThreads();
    std::atomic<uint64_t> uFrames{0};
    {
        std::vector<std::unique_ptr<live::Radio>> lRadios;
        for (const char* pModel : {"ZV150-C", "ZV100-A"}) {
            auto cOptions = live::sweepOptions(pModel);
            cOptions.rateLimit = 1e6;
            cOptions.corrections.signalSize = -1;
            lRadios.push_back(
                std::make_unique<live::Radio>(cOptions, vnksim::Scene().tone(98.1e6, -40)));
        }
        std::atomic<bool> bStop{false};
        std::vector<std::thread> lThreads;
        for (unsigned i = 0; i < 4; ++i)
            lThreads.emplace_back([&, i] { sweep(lRadios[i % 2]->device(), i, bStop, uFrames); });
        for (unsigned i = 0; i < 2; ++i)
            lThreads.emplace_back([&, i] { interrupt(lRadios[i]->device(), 100 + i, bStop); });
        std::this_thread::sleep_for(hammerTime());
        bStop = true;
        for (std::thread& cThread : lThreads)
            cThread.join();
        // The radios still serve.
        for (const auto& pRadio : lRadios) {
            live::SpectrumStream cStream(88e6, 188e6, 400e3);
            live::SpectrumFrame cFrame;
            EXPECT_EQ(cStream.attach(pRadio->device()), 0);
            EXPECT_TRUE(cStream.next(cFrame)) << live::log();
        }
        InterfaceDown cDown;
    }
    EXPECT_GT(uFrames.load(), 0u);
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; }))
        << vnktest::liveThreads() << " threads, " << uThreads << " before";
}
