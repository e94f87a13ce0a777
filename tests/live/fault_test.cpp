#include <sys/resource.h>

#include <algorithm>
#include <string>
#include <thread>

#include "live/measure.h"
#include "live/session.h"
#include "support/resources.h"

namespace {

using namespace std::chrono_literals;

/// A unit with a tone, opened, and a stream that is not attached yet.
class Fault : public testing::Test {
 protected:
    void open(const std::string& model = "ZV150-C") {
        mpUnit = std::make_unique<vnksim::Unit>(live::options(model), vnksim::Scene().tone(100.01e6, -40));
        mpUnit->start();
        mpDevice = std::make_unique<live::Device>(mpUnit->options().address);
        ASSERT_EQ(mpDevice->status(), 0) << live::log();
        mpStream = std::make_unique<live::Stream>(100e6, 400e3, -30);
        live::log();
    }
    void attach() { ASSERT_EQ(mpStream->attach(*mpDevice), 0); }
    void change(const std::function<void(vnksim::FaultSettings&)>& edit) { mpUnit->faults().change(edit); }
    bool next() { return mpStream->next(mcFrame); }
    double level() {
        double sum = 0;
        for (uint32_t i = 0; i < mcFrame->sampleCount; ++i)
            sum += std::norm(mcFrame.samples()[i]);
        return 10 * std::log10(sum / mcFrame->sampleCount);
    }

    std::unique_ptr<vnksim::Unit> mpUnit;
    std::unique_ptr<live::Device> mpDevice;
    std::unique_ptr<live::Stream> mpStream;
    live::Frame mcFrame;
};

double secondsOf(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double processSeconds() {
    rusage cUsage{};
    getrusage(RUSAGE_SELF, &cUsage);
    return static_cast<double>(cUsage.ru_utime.tv_sec + cUsage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(cUsage.ru_utime.tv_usec + cUsage.ru_stime.tv_usec);
}

}  // namespace

TEST_F(Fault, AnIdentifierThatDoesNotComeKeepsTheCaptureWaitingAndItIsTriedAgain) {
    open();
    change([](auto& f) { f.identifierMissing = true; });
    attach();
    EXPECT_TRUE(mpUnit->journal().waitFor(":TRACe:STReam:STARt 2", 20s)) << "a start that fails is tried again";
    EXPECT_EQ(mpStream->read(mcFrame, 0), 3) << "nothing reaches the stream";
    EXPECT_NE(live::log().find("IQ handleIFDataIQ14 with mbIQStreamDataValid==false"), std::string::npos);
    change([](auto& f) { f.identifierMissing = false; });
    EXPECT_TRUE(next());
}

TEST_F(Fault, DataOfAStaleIdentifierIsDropped) {
    open();
    change([](auto& f) { f.identifierOffset = -1; });
    attach();
    EXPECT_TRUE(mpUnit->journal().waitFor(":TRACe:STReam:STARt 2", 20s));
    EXPECT_EQ(mpStream->read(mcFrame, 0), 3);
    change([](auto& f) { f.identifierOffset = 0; });
    EXPECT_TRUE(next());
}

TEST_F(Fault, ALossOfSamplesIsAGapOfOneInTheFrameNumbers) {
    open();
    attach();
    ASSERT_TRUE(next());
    change([](auto& f) { f.loseSamplesOnce = 1000; });
    uint32_t uLast = mcFrame->sequence;
    ASSERT_TRUE(vnktest::waitUntil([&] {
        uLast = mcFrame->sequence;
        return next() && mcFrame->sequenceGap;
    }));
    EXPECT_EQ(mcFrame->sequence, uLast + 2);
    ASSERT_TRUE(next());
    EXPECT_EQ(mcFrame->sequenceGap, 0) << "told once";
}

TEST_F(Fault, AnOverRangeAndInvalidDataAreToldInTheExtras) {
    open();
    change([](auto& f) {
        f.trailerSet = vnksim::trailer::kOverRangeEnable | vnksim::trailer::kOverRange;
    });
    attach();
    ASSERT_TRUE(next());
    EXPECT_EQ(mcFrame.extras(), "{\"status\":\"overflow\"}");
    change([](auto& f) {
        f.trailerSet |= vnksim::trailer::kSampleLossEnable | vnksim::trailer::kSampleLoss;
        f.trailerClear = vnksim::trailer::kValidDataEnable;
    });
    EXPECT_TRUE(vnktest::waitUntil(
        [&] { return next() && mcFrame.extras() == "{\"status\":\"invalid, overflow\"}"; }))
        << mcFrame.extras();
}

TEST_F(Fault, AnInvertedSpectrumIsTurnedBack) {
    open();
    change([](auto& f) { f.spectralInversion = true; });
    attach();
    const measure::Samples lSamples = live::collect(*mpStream, 32768);
    EXPECT_NEAR(measure::peakFrequency(lSamples, 16384), 10e3 / (125e6 / 256), 1.0 / 16384);
}

TEST_F(Fault, OneByteSegmentsOnBothLinksLoseNothing) {
    mpUnit = std::make_unique<vnksim::Unit>(live::options(), vnksim::Scene().tone(100.01e6, -40));
    mpUnit->start();
    mpDevice = std::make_unique<live::Device>(mpUnit->options().address);
    ASSERT_EQ(mpDevice->status(), 0);
    mpStream = std::make_unique<live::Stream>(100e6, 100e3, -30);
    change([](auto& f) { f.segmentBytes = 1; });
    attach();
    ASSERT_TRUE(next());
    const uint64_t uFirst = mcFrame->timestamp;
    for (uint32_t i = 1; i < 3; ++i) {
        ASSERT_TRUE(next());
        EXPECT_EQ(mcFrame->sequence, i);
    }
    EXPECT_NEAR(static_cast<double>(mcFrame->timestamp - uFirst), 2e9 * 12192 / (125e6 / 1024), 4.0);
    EXPECT_NEAR(level(), -40, 0.1);
}

TEST_F(Fault, GarbageBetweenPacketsIsSkipped) {
    open();
    change([](auto& f) { f.garbageBytes = 1001; });
    attach();
    for (uint32_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(next()) << live::log();
        EXPECT_EQ(mcFrame->sequence, i);
        EXPECT_NEAR(level(), -40, 0.1);
    }
}

TEST_F(Fault, AWrongSizeFieldCostsAtMostItsNeighbourhood) {
    for (const int iOffset : {100, -100, 16000, -48000}) {
        open();
        attach();
        ASSERT_TRUE(next());
        change([&](auto& f) { f.sizeFieldOffsetOnce = iOffset; });
        ASSERT_TRUE(vnktest::waitUntil(
            [&] { return next() && mpUnit->faults().snapshot().sizeFieldOffsetOnce == 0; }));
        // What was queued, the packet itself, and the one that it may have swallowed.
        for (int i = 0; i < 5; ++i)
            ASSERT_TRUE(next()) << iOffset;
        const uint32_t uSequence = mcFrame->sequence;
        uint64_t uLast = mcFrame->timestamp;
        for (uint32_t i = 1; i <= 5; ++i) {
            ASSERT_TRUE(next()) << iOffset;
            EXPECT_NEAR(level(), -40, 0.1) << iOffset;
            EXPECT_EQ(mcFrame->sequence, uSequence + i);
            EXPECT_NEAR(static_cast<double>(mcFrame->timestamp - uLast),
                        1e9 * mcFrame->sampleCount / (125e6 / 256), 4.0);
            uLast = mcFrame->timestamp;
        }
        mpStream.reset();
        mpDevice.reset();
    }
}

TEST_F(Fault, ALostPacketShowsInTheTimestamps) {
    open();
    attach();
    ASSERT_TRUE(next());
    change([](auto& f) { f.dropOnce = 1; });
    uint64_t uLast = mcFrame->timestamp;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        if (!next())
            return false;
        const uint64_t uStep = mcFrame->timestamp - uLast;
        uLast = mcFrame->timestamp;
        return uStep > 150'000'000;
    }));
}

TEST_F(Fault, ADataLinkThatIsResetGoesSilentAndAResetOfTheConnectionBringsItBack) {
    for (const bool bReset : {true, false}) {
        open();
        attach();
        ASSERT_TRUE(next());
        change([&](auto& f) { (bReset ? f.resetDataOnce : f.closeDataOnce) = true; });
        // The command link is up and nobody asks anything while a capture runs.
        int32_t iStatus = 0;
        EXPECT_TRUE(vnktest::waitUntil([&] { return (iStatus = mpStream->read(mcFrame, 100)) == -86; }))
            << iStatus;
        EXPECT_EQ(vnkResetDeviceConnection(mpDevice->handle()), 0) << live::log();
        EXPECT_TRUE(next()) << live::log();
        mpStream.reset();
        mpDevice.reset();
    }
}

TEST_F(Fault, AnOrderlyCloseOfTheDataLinkDoesNotSpin) {
    open();
    change([](auto& f) { f.closeDataOnce = true; });
    ASSERT_TRUE(vnktest::waitUntil([&] { return mpUnit->state().dataConnections == 0; }));
    const double cpu = processSeconds();
    const double wall = secondsOf([] { std::this_thread::sleep_for(2s); });
    EXPECT_LT((processSeconds() - cpu) / wall, 0.25) << "unit, library and sanitizer together";
}

TEST_F(Fault, ASilentUnitIsToldAfterTenSecondsAndComesBack) {
    open();
    attach();
    ASSERT_TRUE(next());
    change([](auto& f) { f.silent = true; });
    int32_t iStatus = 0;
    EXPECT_TRUE(vnktest::waitUntil([&] { return (iStatus = mpStream->read(mcFrame, 100)) == -86; })) << iStatus;
    const double failed = secondsOf([&] { EXPECT_EQ(vnkResetDeviceConnection(mpDevice->handle()), -45); });
    EXPECT_LT(failed, 30.0);
    change([](auto& f) { f.silent = false; });
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnkResetDeviceConnection(mpDevice->handle()) == 0; }));
    EXPECT_TRUE(next()) << live::log();
}

TEST_F(Fault, AUnitThatNeverGoesQuietStillLetsGoInBoundedTime) {
    open();
    attach();
    ASSERT_TRUE(next());
    change([](auto& f) { f.dataAfterStop = true; });
    EXPECT_LT(secondsOf([&] { mpStream->detach(); }), 12.0);
    change([](auto& f) { f.dataAfterStop = false; });
    EXPECT_LT(secondsOf([&] { mpDevice->close(); }), 12.0);
}

TEST_F(Fault, AnErrorThatTheUnitReportsFailsTheStartAndTheLadderRuns) {
    open();
    change([](auto& f) { f.errors.push_back({"SPPacket", -222, "Data out of range", 1}); });
    attach();
    EXPECT_TRUE(next());
    const std::string log = live::log();
    EXPECT_NE(log.find("generated Data out of range"), std::string::npos) << log;
    EXPECT_EQ(mpUnit->journal().count("SYST:LOCK:REQ? ACQ"), 1u);
}

TEST_F(Fault, ARefusedLockClimbsTheLadderAndEndsWellAtEachRung) {
    for (const char* pRung : {"abort", "rst", "reconnect"}) {
        open();
        change([&](auto& f) {
            f.lockRefusedUntil = pRung;
            f.errors.push_back({"SPPacket", -222, "Data out of range", 1});
        });
        attach();
        EXPECT_TRUE(next()) << pRung << live::log();
        const std::string log = live::log();
        EXPECT_NE(log.find("Raw device access failure. Trying :SYSTEM:ABORT"), std::string::npos);
        EXPECT_NE(log.find("Device access restored"), std::string::npos) << pRung << log;
        mpStream.reset();
        mpDevice.reset();
    }
}

TEST_F(Fault, AStuckModeFailsTheOpen) {
    vnksim::Unit cUnit(live::options(), {});
    cUnit.faults().change([](auto& f) { f.stuckMode = "STREAMING"; });
    cUnit.start();
    {
        live::Device cDevice(cUnit.options().address);
        EXPECT_EQ(cDevice.status(), -7);
        const std::string log = live::log();
        EXPECT_NE(log.find("Opened device not in BLOCK mode"), std::string::npos);
        EXPECT_NE(log.find("*RST Unable to recover device to 'BLOCK' mode"), std::string::npos);
    }
    cUnit.faults().change([](auto& f) { f.stuckMode.clear(); });
    live::Device cDevice(cUnit.options().address);
    EXPECT_EQ(cDevice.status(), 0);
}

TEST_F(Fault, RepliesThatComeLateOrWrongKeepDefaultsAndTheOpenGoesOn) {
    vnksim::Unit cUnit(live::options("ZV300-A"), {});
    cUnit.faults().change([](auto& f) {
        f.wrongReplies[":SOURce:REFerence:PLL?"] = "\x01\x02 garbage";
        f.wrongReplies[":GNSS:POSition?"] = "91.0,1,2";
        f.wrongReplies[":GNSS:ADELay?"] = "abc";
        f.noReplyTo = ":SYSTem:DATE?";
    });
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0) << live::log();
    const std::string parameters = cDevice.parameters();
    EXPECT_NE(parameters.find("\"pllSource\":\"internal\""), std::string::npos) << parameters;
    EXPECT_NE(parameters.find("\"GNSSAntDelay\":0"), std::string::npos) << parameters;
}

TEST_F(Fault, AUnitThatDiesAfterAnyExchangeOfAnOpenLeavesNothingBehind) {
    const size_t uThreads = vnktest::idleThreads();
    // Warm up whatever is made once.
    {
        vnksim::Unit cUnit(live::options("ZV100-A"), {});
        cUnit.start();
        live::Device cDevice(cUnit.options().address);
        ASSERT_EQ(cDevice.status(), 0);
    }
    ASSERT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
    const size_t uDescriptors = vnktest::openDescriptors();
    for (const vnksim::Death eDeath : {vnksim::Death::close, vnksim::Death::reset}) {
        for (const unsigned uExchange : {1u, 2u, 3u, 5u, 9u, 13u}) {
            auto cOptions = live::options("ZV100-A");
            cOptions.corrections.signalSize = 0;   // a short open
            vnksim::Unit cUnit(cOptions, {});
            cUnit.faults().change([&](auto& f) {
                f.dieAfterExchanges = uExchange;
                f.death = eDeath;
            });
            cUnit.start();
            const double seconds = secondsOf([&] {
                live::Device cDevice(cUnit.options().address);
                EXPECT_TRUE(cDevice.status() == -7 || cDevice.status() == 0) << uExchange;
            });
            EXPECT_LT(seconds, 60.0) << uExchange;
            cUnit.stop();
        }
    }
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::liveThreads() == uThreads; }));
    EXPECT_TRUE(vnktest::waitUntil([&] { return vnktest::openDescriptors() == uDescriptors; }))
        << vnktest::openDescriptors() << " " << uDescriptors;
}

TEST_F(Fault, TheInterfaceGoesDownWithEverythingAliveAndComesUpAgain) {
    open();
    attach();
    ASSERT_TRUE(next());
    {
        InterfaceDown cDown;
        EXPECT_EQ(mpStream->read(mcFrame, 0), -2);
    }
    EXPECT_EQ(vnkIsAttached(mpStream->handle()), -38);
    EXPECT_TRUE(vnktest::waitUntil([&] { return mpUnit->state().dataConnections == 0; }));
    live::Device cDevice(mpUnit->options().address);
    EXPECT_EQ(cDevice.status(), 0);
}

TEST_F(Fault, ARecordTakenBeforeAShutdownIsGivenBackAfterTheNextInit) {
    open();
    attach();
    ASSERT_TRUE(next());
    vnkIQRecord* pRecord = mcFrame.release();
    { InterfaceDown cDown; }
    EXPECT_EQ(vnkFreeIQ(&pRecord), 0);
    EXPECT_EQ(pRecord, nullptr);
}

TEST_F(Fault, RawQueriesOfManyThreadsBesideACaptureNeverCrash) {
    open();
    attach();
    std::vector<std::thread> lThreads;
    for (int i = 0; i < 4; ++i)
        lThreads.emplace_back([&] {
            for (int k = 0; k < 10; ++k) {
                Text cReply;
                const int32_t iStatus = vnkQuerySCPI(mpDevice->handle(), "*IDN?", cReply.address());
                EXPECT_TRUE(iStatus == 0 || iStatus == -37);
            }
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    EXPECT_TRUE(next()) << live::log();
}
