#include <functional>
#include <thread>

#include "recordings/player.h"
#include "support/resources.h"

namespace {

using namespace recordings;

constexpr int kCycles = kSanitized ? 1000 : 10'000;

/// Each waits most of the time for its players to end.
constexpr int kWorkers = 20;

/// Runs the work on some threads at once; behind them nothing is left. Threads that are just ending are
/// waited for.
void expectFlat(const std::function<void()>& work) {
    const size_t uThreads = vnktest::idleThreads(), uDescriptors = vnktest::openDescriptors();
    std::vector<std::thread> lWorkers;
    for (int i = 0; i < kWorkers; ++i)
        lWorkers.emplace_back(work);
    for (std::thread& cWorker : lWorkers)
        cWorker.join();
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() <= uThreads; }))
        << vnktest::liveThreads();
    EXPECT_EQ(vnktest::openDescriptors(), uDescriptors);
}

}  // namespace

TEST(Soak, TenThousandAttachmentsLeaveNeitherThreadNorDescriptor) {
    const Folder cFolder;
    writePair(cFolder, "ages", makeIQ(3, 16, 100'000'000'000));
    writePair(cFolder, "short", makeIQ(3, 16));
    writePair(cFolder, "spectra", makeSpectra(3, 16, 100'000'000'000));
    expectFlat([&] {
        Stream cIQ(Kind::iq), cSpectra(Kind::spectrum);
        HeldIQ cRecord;
        HeldSpectrum cSpectrum;
        for (int i = 0; i < kCycles / kWorkers; ++i) {
            switch (i % 4) {
                case 0:  // not read
                    ASSERT_EQ(cIQ.play(cFolder.name("ages")), 0);
                    ASSERT_EQ(cIQ.detach(), 0);
                    break;
                case 1:  // read while it plays
                    vnkFlushStream(cIQ.handle());
                    ASSERT_EQ(cIQ.play(cFolder.name("ages")), 0);
                    ASSERT_TRUE(cIQ.next(cRecord));
                    ASSERT_EQ(cIQ.detach(), 0);
                    break;
                case 2:  // replaced, and at its end at any moment
                    ASSERT_EQ(cIQ.play(cFolder.name("ages")), 0);
                    ASSERT_EQ(cIQ.play(cFolder.name("short")), 0);
                    cIQ.detach();
                    break;
                default:
                    vnkFlushStream(cSpectra.handle());
                    ASSERT_EQ(cSpectra.play(cFolder.name("spectra")), 0);
                    ASSERT_TRUE(cSpectra.next(cSpectrum));
                    ASSERT_EQ(cSpectra.detach(), 0);
            }
        }
    });
}

TEST(Soak, StreamsThatAreMadeRecordedAndClosedLeaveNeitherThreadNorDescriptor) {
    const Folder cFolder;
    writePair(cFolder, "short", makeIQ(3, 16));
    expectFlat([&] {
        for (int i = 0; i < kCycles / kWorkers / 10; ++i) {
            Stream cStream;
            ASSERT_EQ(cStream.record(cFolder.name("x")), 0);
            ASSERT_EQ(cStream.play(cFolder.name("short")), 0);
            if (i % 2 == 0) {
                ASSERT_EQ(cStream.record(cFolder.name("y")), 0);
            }
            cStream.close();
        }
    });
    // Each recording has a name of its own, whoever else began one at the same time.
    size_t uPairs = 0;
    for (const auto& cEntry : std::filesystem::directory_iterator(cFolder.path()))
        uPairs += cEntry.path().extension() == ".json" ? 1u : 0u;
    const int iPerWorker = kCycles / kWorkers / 10;
    EXPECT_EQ(uPairs, 1u + static_cast<size_t>(kWorkers * (iPerWorker + (iPerWorker + 1) / 2)));
}

TEST(Soak, AHundredThousandPassesTakeNoMoreMemoryThanOne) {
    const Folder cFolder;
    writePair(cFolder, "x", makeIQ(1, 16));
    Stream cStream;
    ASSERT_EQ(cStream.set("{\"LoopingFlag\":true}"), 0);
    ASSERT_EQ(cStream.play(cFolder.name("x")), 0);
    HeldIQ cRecord;
    uint64_t uAfterSome = 0;
    for (int i = 0; i < kCycles * 10; ++i) {
        ASSERT_TRUE(cStream.next(cRecord));
        ASSERT_EQ(cRecord->sequence, 0u);
        if (i == kCycles)
            uAfterSome = vnktest::residentBytes();
    }
    if (!kSanitized) {
        EXPECT_LT(vnktest::residentBytes(), uAfterSome + (8u << 20));
    }
    EXPECT_EQ(cStream.detach(), 0);
}
