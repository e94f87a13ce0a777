#include <sys/resource.h>

#include <fstream>
#include <thread>

#include "live/spectra.h"
#include "support/resources.h"

// Whatever happens to the blocks of a sweep, a frame is either whole and right or does not come.

namespace {

using namespace std::chrono_literals;

constexpr double kRbwHz = 400e3;

/// Tones of many levels, so that no two blocks look alike.
vnksim::Scene scene() {
    vnksim::Scene cScene;
    int i = 0;
    for (double hz = 3.1e6; hz < 210e6; hz += 6.7e6)
        cScene.tone(hz, -35 - (i++ * 7 % 17) * 1.5);
    return cScene;
}

double secondsOf(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// Five blocks to a spectrum, the first of them direct: a frame of the healthy unit is known.
class SweepFault : public testing::Test {
 protected:
    static vnksim::UnitOptions options(double samplesPerSecond) {
        auto cOptions = live::sweepOptions();
        cOptions.rateLimit = samplesPerSecond;
        cOptions.dither = false;
        return cOptions;
    }
    /// About a hundred spectra in a second.
    explicit SweepFault(double minHz = 1e6, double maxHz = 190e6, double rbwHz = kRbwHz,
                        double samplesPerSecond = 500e3)
        : mcRadio(options(samplesPerSecond), scene()),
          mpStream(std::make_unique<live::SpectrumStream>(minHz, maxHz, rbwHz)) {}
    void SetUp() override { begin(); }
    void begin() {
        EXPECT_EQ(mpStream->set("{\"bufferFrames\":5000}"), 0);
        ASSERT_EQ(mpStream->attach(mcRadio.device()), 0);
        ASSERT_TRUE(mpStream->next(mcFrame)) << live::log();
        mlClean = mcFrame.points();
        mfMinHz = mcFrame->minimumHz;
        mfMaxHz = mcFrame->maximumHz;
        muLast = mcFrame->sequence;
        live::log();
    }
    void change(const std::function<void(vnksim::FaultSettings&)>& edit) { mcRadio.unit().faults().change(edit); }

    /// The next frame, which has to be whole, right and next in sequence.
    bool nextIsRight(bool bInSequence = true) {
        if (!mpStream->next(mcFrame)) {
            ADD_FAILURE() << "no frame\n" << live::log();
            return false;
        }
        if (bInSequence) {
            EXPECT_EQ(mcFrame->sequence, muLast + 1);
        }
        muLast = mcFrame->sequence;
        return isRight();
    }
    bool isRight() {
        EXPECT_EQ(mcFrame->minimumHz, mfMinHz);
        EXPECT_EQ(mcFrame->maximumHz, mfMaxHz);
        const std::vector<float> lPoints = mcFrame.points();
        EXPECT_EQ(lPoints.size(), mlClean.size());
        for (size_t i = 0; i < std::min(lPoints.size(), mlClean.size()); ++i) {
            const bool bBoth = std::max(lPoints[i], mlClean[i]) < -85.0f;
            if (!bBoth && std::abs(lPoints[i] - mlClean[i]) > 0.5f) {
                ADD_FAILURE() << "wrong at " << mcFrame.hertz(i) << " Hz: " << lPoints[i] << ", "
                              << mlClean[i];
                return false;
            }
        }
        return lPoints.size() == mlClean.size();
    }
    void expectRight(int iFrames, bool bInSequence = true) {
        for (int i = 0; i < iFrames; ++i)
            ASSERT_TRUE(nextIsRight(bInSequence));
    }
    /// Whole spectra again without a fault.
    void expectRecovery() {
        change([](auto& f) { f = {}; });
        expectRight(10);
    }
    void waitForNoFrames() {
        EXPECT_TRUE(vnktest::waitUntil([&] { return mpStream->read(mcFrame, 300) == 1; }));
    }
    /// That many more, and one, have been sent since now.
    void waitForBlocks(uint64_t uBlocks) {
        const uint64_t uBefore = mcRadio.unit().state().dataPackets;
        EXPECT_TRUE(vnktest::waitUntil([&] { return mcRadio.unit().state().dataPackets > uBefore + uBlocks; }));
    }
    std::string logUntil(const std::string& text) {
        std::string all;
        vnktest::waitUntil([&] { return (all += live::log()).find(text) != std::string::npos; });
        return all;
    }

    live::Radio mcRadio;
    std::unique_ptr<live::SpectrumStream> mpStream;
    live::SpectrumFrame mcFrame;
    std::vector<float> mlClean;
    double mfMinHz = 0, mfMaxHz = 0;
    uint32_t muLast = 0;
};

/// Tuned blocks alone.
class TunedSweepFault : public SweepFault {
 protected:
    TunedSweepFault() : SweepFault(95e6, 190e6) {}
};

/// Tuned blocks of two packets each.
class PacketSweepFault : public SweepFault {
 protected:
    PacketSweepFault() : SweepFault(95e6, 190e6, 4e3, 5e6) {}
};

/// Direct blocks of three packets each: no tuning tells one from the next.
class DirectPacketSweepFault : public SweepFault {
 protected:
    DirectPacketSweepFault() : SweepFault(1e6, 40e6, 2e3, 5e6) {}
    void SetUp() override {
        begin();
        ASSERT_EQ(mcRadio.unit().state().list.at(0).packetsPerBlock, 3u);
    }
    /// Whole spectra alone, also behind the fault once it has acted.
    void expectRightThrough(const std::function<void(vnksim::FaultSettings&)>& edit,
                            const std::function<bool(const vnksim::FaultSettings&)>& hasActed) {
        change(edit);
        ASSERT_TRUE(vnktest::waitUntil([&] {
            return nextIsRight() && hasActed(mcRadio.unit().faults().snapshot());
        }));
        expectRight(4);
    }
};

/// No more address space than so much beyond what is in use.
class MemoryLimit {
 public:
    explicit MemoryLimit(uint64_t uBytes) {
        getrlimit(RLIMIT_AS, &mcBefore);
        std::ifstream file("/proc/self/statm");
        uint64_t uPages = 0;
        file >> uPages;
        rlimit cLimit = mcBefore;
        cLimit.rlim_cur = uPages * 4096 + uBytes;
        EXPECT_EQ(setrlimit(RLIMIT_AS, &cLimit), 0);
    }
    ~MemoryLimit() { setrlimit(RLIMIT_AS, &mcBefore); }
    MemoryLimit(const MemoryLimit&) = delete;
    MemoryLimit& operator=(const MemoryLimit&) = delete;

 private:
    rlimit mcBefore{};
};

double processSeconds() {
    rusage cUsage{};
    getrusage(RUSAGE_SELF, &cUsage);
    return static_cast<double>(cUsage.ru_utime.tv_sec + cUsage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(cUsage.ru_utime.tv_usec + cUsage.ru_stime.tv_usec);
}

}  // namespace

TEST_F(SweepFault, AHealthyUnitGivesTheSameSpectrumEachTime) {
    expectRight(20);
}

TEST_F(SweepFault, ALostBlockCostsItsSpectrumAndNoneIsPartial) {
    for (int i = 0; i < 8; ++i) {
        change([](auto& f) { f.loseBlockOnce = 1; });
        expectRight(2);
    }
    EXPECT_NE(logUntil("Out of order block #").find("Expected #0 at"), std::string::npos);
    change([](auto& f) { f.loseBlockEvery = 7; });   // another one in each spectrum
    expectRight(10);
    change([](auto& f) { f.loseBlockEvery = 3; });
    std::this_thread::sleep_for(200ms);
    while (mpStream->read(mcFrame, 0) == 0) {
        EXPECT_TRUE(isRight());
    }
    change([](auto& f) { f = {}; });
    expectRight(10, false);
}

TEST_F(SweepFault, ARepeatedBlockSpoilsNothing) {
    change([](auto& f) { f.repeatBlockEvery = 11; });
    expectRight(20);
    change([](auto& f) { f.repeatBlockEvery = 0; f.repeatBlockOnce = 5; });
    expectRight(5);
    expectRecovery();
}

TEST_F(SweepFault, BlocksOutOfOrderSpoilNothing) {
    for (int i = 0; i < 8; ++i) {
        change([](auto& f) { f.swapBlocksOnce = true; });
        expectRight(3);
    }
    expectRecovery();
}

TEST_F(TunedSweepFault, ABlockOfAnotherFrequencyIsNotTakenForOneOfTheSpectrum) {
    // Between the centres, one step too low, and more.
    for (const int iShiftKHz : {-1500, -36000, -40000, -72000}) {
        for (int i = 0; i < 6; ++i) {
            change([&](auto& f) { f.blockShiftOnceKHz = iShiftKHz; });
            // One by itself: two in a row can make up a spectrum that nothing tells from a true one.
            ASSERT_TRUE(vnktest::waitUntil(
                [&] { return mcRadio.unit().faults().snapshot().blockShiftOnceKHz == 0; }));
            waitForBlocks(10);
            expectRight(2);
        }
    }
    expectRecovery();
}

TEST_F(TunedSweepFault, BlocksBelowTheFirstCentreAreDroppedForAsLongAsTheyCome) {
    change([](auto& f) { f.blockShiftKHz = -100000; });
    waitForNoFrames();
    EXPECT_NE(logUntil("lies outside the sweep").find("lies outside the sweep"), std::string::npos);
    change([](auto& f) { f = {}; });
    expectRight(10, false);
}

TEST_F(SweepFault, ALateBlockIsWaitedFor) {
    const double seconds = secondsOf([&] {
        change([](auto& f) { f.lateBlockOnceMs = 1500; });
        waitForBlocks(10);
    });
    EXPECT_GT(seconds, 1.0);
    expectRight(30);
    EXPECT_EQ(mcRadio.journal().count("SWEEP:LIST:START"), 1u) << "nothing was started again";
}

TEST_F(SweepFault, APacketOfAnotherSizeIsDroppedWithItsSpectrum) {
    for (int i = 0; i < 5; ++i) {
        change([](auto& f) { f.shortPacketOnce = 1; });
        expectRight(3);
    }
    EXPECT_NE(logUntil("data size incorrect").find("VITA49Zelvar::IFDataI14 data size incorrect"),
              std::string::npos);
    change([](auto& f) { f.shortPacketEvery = 1; });
    waitForNoFrames();
    change([](auto& f) { f = {}; });
    expectRight(10, false);
}

TEST_F(PacketSweepFault, APacketOfAnotherSizeInABlockOfManyCostsItsSpectrum) {
    for (int i = 0; i < 4; ++i) {
        change([](auto& f) { f.shortPacketOnce = 1; });
        expectRight(2);
    }
    EXPECT_NE(logUntil("data size incorrect").find("VITA49Zelvar::IFDataI14 data size incorrect"),
              std::string::npos);
    expectRecovery();
}

TEST_F(PacketSweepFault, ALostPacketInABlockOfManyCostsItsSpectrum) {
    for (int i = 0; i < 4; ++i) {
        change([](auto& f) { f.dropOnce = 1; });
        expectRight(2);
    }
    change([](auto& f) { f.loseBlockOnce = 1; f.repeatBlockOnce = 1; });
    expectRight(3);
    expectRecovery();
}

TEST_F(DirectPacketSweepFault, LostPacketsCostTheirSpectraAndNoneIsMadeOfTwoBlocks) {
    for (const unsigned uLost : {1u, 1u, 1u, 2u, 3u, 4u, 7u, 15u, 16u, 16u, 16u, 17u, 32u})
        expectRightThrough([&](auto& f) { f.dropOnce = uLost; }, [](auto& f) { return f.dropOnce == 0; });
    change([](auto& f) { f.dropEvery = 5; });
    expectRight(10);
    expectRecovery();
}

TEST_F(DirectPacketSweepFault, PacketsThatChangePlacesCostTheirSpectra) {
    for (int i = 0; i < 8; ++i)
        expectRightThrough([](auto& f) { f.swapOnce = true; }, [](auto& f) { return !f.swapOnce; });
    expectRecovery();
}

TEST_F(DirectPacketSweepFault, ARepeatedPacketSpoilsNothing) {
    for (int i = 0; i < 8; ++i)
        expectRightThrough([](auto& f) { f.repeatOnce = 1; }, [](auto& f) { return f.repeatOnce == 0; });
    expectRightThrough([](auto& f) { f.repeatOnce = 20; }, [](auto& f) { return f.repeatOnce == 0; });
    expectRecovery();
}

TEST_F(DirectPacketSweepFault, LostAndRepeatedBlocksSpoilNothing) {
    for (int i = 0; i < 4; ++i) {
        expectRightThrough([](auto& f) { f.loseBlockOnce = 1; }, [](auto& f) { return f.loseBlockOnce == 0; });
        expectRightThrough([](auto& f) { f.repeatBlockOnce = 1; }, [](auto& f) { return f.repeatBlockOnce == 0; });
    }
    expectRecovery();
}

TEST_F(DirectPacketSweepFault, WithFlowControlALostPacketCostsItsSpectrumAlone) {
    mpStream = std::make_unique<live::SpectrumStream>(1e6, 40e6, 2e3);
    ASSERT_EQ(mpStream->set("{\"flowControl\":true}"), 0);
    begin();
    for (int i = 0; i < 6; ++i)
        expectRightThrough([](auto& f) { f.dropOnce = 1; }, [](auto& f) { return f.dropOnce == 0; });
    expectRecovery();
}

TEST_F(SweepFault, WithoutATuningNoBlockIsTaken) {
    mpStream->detach();
    change([](auto& f) { f.frequencyMissing = true; });
    live::SpectrumStream cStream(1e6, 190e6, kRbwHz);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    EXPECT_NE(logUntil("Packet outside a block dropped").find("Packet outside a block dropped"),
              std::string::npos);
    live::SpectrumFrame cFrame;
    EXPECT_EQ(cStream.read(cFrame, 300), 3);
    change([](auto& f) { f.frequencyMissing = false; });
    ASSERT_TRUE(cStream.next(cFrame)) << live::log();
    EXPECT_EQ(cFrame->pointCount, mlClean.size());
}

TEST_F(SweepFault, DataOfAnotherIdentifierIsDroppedAndTheStartTriedAgain) {
    mpStream->detach();
    const size_t uStarts = mcRadio.journal().count("SWEEP:LIST:START");
    change([&](auto& f) { f.identifierOffset = -1; });
    live::SpectrumStream cStream(1e6, 190e6, kRbwHz);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(vnktest::waitUntil(
        [&] { return mcRadio.journal().count("SWEEP:LIST:START") >= uStarts + 2; }))
        << "a start that fails is tried again";
    live::SpectrumFrame cFrame;
    EXPECT_EQ(cStream.read(cFrame, 0), 3);
    EXPECT_NE(live::log().find("Invalid I14 packet received (stream ID incorrect)"), std::string::npos);
    change([](auto& f) { f = {}; });
    ASSERT_TRUE(cStream.next(cFrame)) << live::log();
    EXPECT_EQ(cFrame->sequence, 0u);
}

TEST_F(SweepFault, GarbageCutsAndLostPacketsSpoilNothing) {
    change([](auto& f) { f.garbageBytes = 333; });
    expectRight(10);
    change([](auto& f) { f.garbageBytes = 0; f.segmentBytes = 17; });
    expectRight(3);
    change([](auto& f) { f.segmentBytes = 0; f.dropEvery = 13; });
    expectRight(10);
    expectRecovery();
}

TEST_F(SweepFault, AWrongSizeFieldCostsItsNeighbourhood) {
    for (const int iOffset : {50, -50, 3000}) {
        change([&](auto& f) { f.sizeFieldOffsetOnce = iOffset; });
        expectRight(10);
    }
}

TEST_F(SweepFault, AnErrorOfTheUnitFailsTheStartAndTheLadderRuns) {
    mpStream->detach();
    change([](auto& f) { f.errors.push_back({"sweep:entry:spp", -222, "Data out of range", 1}); });
    live::SpectrumStream cStream(1e6, 190e6, kRbwHz);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    live::SpectrumFrame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    EXPECT_NE(live::log().find("generated Data out of range"), std::string::npos);
}

TEST_F(SweepFault, AListThatTheUserStopsBehindTheLibrarysBackRunsAgain) {
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(vnkSendSCPI(mcRadio.device().handle(), i == 0 ? ":SWEep:LIST:STOP" : ":SYSTem:ABORt"), 0);
        ASSERT_TRUE(mcRadio.unit().waitForMode("BLOCK", 20s));
        expectRight(60);   // more than are on their way
    }
}

TEST_F(SweepFault, AListThatTheUserStartsAnewUnderAnotherIdentifierIsReplaced) {
    ASSERT_EQ(vnkSendSCPI(mcRadio.device().handle(), ":SWEep:LIST:STOP; SWEEP:LIST:START 99"), 0);
    EXPECT_NE(logUntil("stream ID:99").find("stream ID:99"), std::string::npos);
    expectRight(60);
}

TEST_F(SweepFault, AListWhoseEntriesTheUserDeletesIsSentAgainInTurnsToo) {
    ASSERT_EQ(mcRadio.device().set("{\"InhibitContinuousSweep\":true}"), 0);
    expectRight(20);
    ASSERT_EQ(vnkSendSCPI(mcRadio.device().handle(), ":sweep:entry:delete all"), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return mcRadio.unit().state().list.empty(); }));
    ASSERT_TRUE(vnktest::waitUntil([&] { return !mcRadio.unit().state().list.empty(); }));
    expectRight(60);
}

TEST_F(SweepFault, ASweepThatCannotBePlannedBurnsNoProcessorAndDoesNotFloodTheUnit) {
    mpStream->detach();
    live::SpectrumStream cStream(100e6, 101e6, 9e6);   // wider than its span
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    logUntil("Sweep parameters (min,max,rbw) unreasonable");
    const size_t uLocks = mcRadio.journal().count("SYST:LOCK:REQ? ACQ");
    const double cpu = processSeconds();
    const double wall = secondsOf([] { std::this_thread::sleep_for(2s); });
    const auto locks = static_cast<double>(mcRadio.journal().count("SYST:LOCK:REQ? ACQ") - uLocks);
    EXPECT_LE(locks, 22 * wall) << "two to a pass, ten passes in a second";
    EXPECT_LT((processSeconds() - cpu) / wall, 0.3) << "unit, library and sanitizer together";
    // A change is tried at once.
    EXPECT_EQ(cStream.set("{\"FMaxHz\":190000000}"), 0);
    EXPECT_TRUE(cStream.next(mcFrame)) << live::log();
}

TEST_F(SweepFault, AUnitThatRefusesEachListAtOnceIsNotFlooded) {
    mpStream->detach();
    change([](auto& f) { f.errors.push_back({"sweep:entry:spp", -222, "Data out of range", -1}); });
    live::SpectrumStream cStream(1e6, 190e6, kRbwHz);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    logUntil("generated Data out of range");
    const size_t uLists = mcRadio.journal().count(":sweep:entry:delete all");
    const double wall = secondsOf([] { std::this_thread::sleep_for(2s); });
    EXPECT_LE(static_cast<double>(mcRadio.journal().count(":sweep:entry:delete all") - uLists), 11 * wall);
    change([](auto& f) { f = {}; });
    EXPECT_TRUE(cStream.next(mcFrame)) << live::log();
}

TEST_F(SweepFault, ASilentUnitIsToldAfterTenSecondsAndComesBack) {
    change([](auto& f) { f.silent = true; });
    int32_t iStatus = 0;
    EXPECT_TRUE(vnktest::waitUntil([&] { return (iStatus = mpStream->read(mcFrame, 100)) == -86; })) << iStatus;
    EXPECT_LT(secondsOf([&] { EXPECT_EQ(vnkResetDeviceConnection(mcRadio.device().handle()), -45); }), 30.0);
    change([](auto& f) { f.silent = false; });
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnkResetDeviceConnection(mcRadio.device().handle()) == 0; }));
    ASSERT_TRUE(nextIsRight(false)) << live::log();
    expectRight(5);
}

TEST_F(SweepFault, ADataLinkThatIsSilentAloneIsToldToo) {
    change([](auto& f) { f.lateBlockOnceMs = 20000; });
    int32_t iStatus = 0;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        iStatus = mpStream->read(mcFrame, 100);
        if (iStatus == 0)
            muLast = mcFrame->sequence;   // one that was on its way
        return iStatus == -86;
    })) << iStatus;
    ASSERT_TRUE(nextIsRight()) << live::log();
    expectRight(5);
}

TEST_F(SweepFault, AResolutionThereIsNoMemoryForIsLoggedAndAllElseGoesOn) {
#ifdef VNK_SANITIZED
    GTEST_SKIP() << "a sanitizer needs all of the address space";
#endif
    mpStream->detach();
    {
        const MemoryLimit cLimit(uint64_t{768} << 20);
        live::SpectrumStream cFine(1e6, 40e6, 1);
        ASSERT_EQ(cFine.attach(mcRadio.device()), 0);
        const std::string log = logUntil("No memory for a sweep of this resolution bandwidth");
        EXPECT_NE(log.find("No memory for a sweep of this resolution bandwidth"), std::string::npos) << log;
        EXPECT_EQ(cFine.read(mcFrame, 0), 3);
        Text cReply;
        EXPECT_EQ(vnkQuerySCPI(mcRadio.device().handle(), "*IDN?", cReply.address()), 0);
        EXPECT_EQ(cFine.detach(), 0);
    }
    live::SpectrumStream cStream(1e6, 190e6, kRbwHz);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame)) << live::log();
    EXPECT_TRUE(isRight());
}

TEST_F(SweepFault, ADataLinkThatEndsComesBackWithAResetOfTheConnection) {
    for (const bool bReset : {true, false}) {
        change([&](auto& f) { (bReset ? f.resetDataOnce : f.closeDataOnce) = true; });
        waitForNoFrames();
        const double seconds =
            secondsOf([&] { EXPECT_EQ(vnkResetDeviceConnection(mcRadio.device().handle()), 0) << live::log(); });
        EXPECT_LT(seconds, 30.0);
        ASSERT_TRUE(nextIsRight(false));
        expectRight(10);
    }
}

TEST_F(SweepFault, AUnitThatDiesAndLivesAgainComesBackWithAResetOfTheConnection) {
    change([](auto& f) {
        f.death = vnksim::Death::reset;
        f.dieAfterExchanges = 1;
    });
    Text cReply;
    vnkQuerySCPI(mcRadio.device().handle(), "*IDN?", cReply.address());
    waitForNoFrames();
    EXPECT_EQ(vnkResetDeviceConnection(mcRadio.device().handle()), -45);
    change([](auto& f) { f = {}; });
    ASSERT_TRUE(vnktest::waitUntil([&] { return vnkResetDeviceConnection(mcRadio.device().handle()) == 0; }));
    ASSERT_TRUE(nextIsRight(false)) << live::log();
    expectRight(10);
}

TEST_F(SweepFault, AUnitThatNeverGoesQuietStillLetsGoInBoundedTime) {
    change([](auto& f) { f.dataAfterStop = true; });
    EXPECT_LT(secondsOf([&] { EXPECT_EQ(mpStream->detach(), 0); }), 12.0);
    change([](auto& f) { f = {}; });
    live::SpectrumStream cStream(1e6, 190e6, kRbwHz);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame)) << live::log();
    EXPECT_TRUE(isRight());
}

TEST_F(SweepFault, ABlockBehindTheLastPlaceEndsTheReceiverAloneAndAResetBringsItBack) {
    change([](auto& f) { f.blockShiftOnceKHz = 2000000; });
    const std::string log = logUntil("-9001");
    EXPECT_NE(log.find("raised an exception(libvnk code -9001)"), std::string::npos) << log;
    // Everything else still answers.
    Text cReply;
    EXPECT_EQ(vnkQuerySCPI(mcRadio.device().handle(), "*IDN?", cReply.address()), 0);
    EXPECT_NE(mcRadio.device().parameters().find("RxSampleRate"), std::string::npos);
    while (mpStream->read(mcFrame, 0) == 0) {
    }
    EXPECT_EQ(mpStream->read(mcFrame, 100), 1);
    live::SpectrumStream cOther(1e6, 190e6, kRbwHz);
    EXPECT_EQ(cOther.attach(mcRadio.device()), 0);
    EXPECT_EQ(cOther.detach(), 0);
    EXPECT_EQ(vnkResetDeviceConnection(mcRadio.device().handle()), 0) << live::log();
    ASSERT_TRUE(nextIsRight(false)) << live::log();
    expectRight(5);
}

TEST_F(SweepFault, AStreamWhoseSpectraNeverCompleteKeepsNobodyFromTheRadio) {
    change([](auto& f) { f.loseBlockEvery = 5; });   // the same place in each spectrum
    waitForNoFrames();
    live::Stream cIQ(100e6, 400e3);
    ASSERT_EQ(cIQ.attach(mcRadio.device()), 0);
    live::Frame cSamples;
    ASSERT_TRUE(cIQ.next(cSamples)) << live::log();
    EXPECT_EQ(cIQ.detach(), 0);
    ASSERT_TRUE(mcRadio.unit().waitForMode("SWEEPING", 20s));
    EXPECT_EQ(mpStream->detach(), 0);
    EXPECT_TRUE(mcRadio.unit().waitForMode("BLOCK", 20s));
}

TEST_F(SweepFault, TheInterfaceGoesDownInMidSweepAndLeavesNothingBehind) {
    { InterfaceDown cDown; }
    EXPECT_TRUE(vnktest::waitUntil([&] { return mcRadio.unit().state().dataConnections == 0; }));
    live::Device cDevice(mcRadio.unit().options().address);
    EXPECT_EQ(cDevice.status(), 0);
}

TEST_F(SweepFault, MemoryStaysBoundedUnderFaultsThatKeepSpectraFromCompleting) {
    change([](auto& f) { f.loseBlockEvery = 5; });   // the same place in each spectrum
    waitForNoFrames();
    const uint64_t uBefore = vnktest::residentBytes();
    const uint64_t uPackets = mcRadio.unit().state().dataPackets;
    EXPECT_TRUE(vnktest::waitUntil([&] { return mcRadio.unit().state().dataPackets > uPackets + 600; }));
    EXPECT_LT(vnktest::residentBytes(), uBefore + (uint64_t{64} << 20));
    while (mpStream->read(mcFrame, 0) == 0) {
    }
    change([](auto& f) { f = {}; });
    ASSERT_TRUE(nextIsRight(false));
    expectRight(5);
}
