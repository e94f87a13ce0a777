#include <optional>
#include <set>

#include "live/spectra.h"

// How spectrum streams behave on a unit: counts, turns, pre-emption, changed parameters.

namespace {

using namespace std::chrono_literals;

constexpr double kRbwHz = 400e3;
constexpr const char* kStart = "SWEEP:LIST:START";
constexpr const char* kEndless = ":sweep:list:iter 0";

/// Tones that tell the streams apart by where they stand.
vnksim::Scene scene() {
    return vnksim::Scene().tone(98.1e6, -40).tone(437e6, -45).tone(1.09e9, -50);
}

/// The frequency at which a spectrum stands highest.
double peakHz(const live::SpectrumFrame& cFrame) {
    const float* pEnd = cFrame->points + cFrame->pointCount;
    return cFrame.hertz(static_cast<size_t>(std::max_element(cFrame->points, pEnd) - cFrame->points));
}

double peakdBm(const live::SpectrumFrame& cFrame) {
    return static_cast<double>(*std::max_element(cFrame->points, cFrame->points + cFrame->pointCount));
}

/// A stream that keeps its frames while a busy machine lets its reader wait.
struct PatientStream : live::SpectrumStream {
    PatientStream(double minHz, double maxHz, const char* pWindow = "nuttall")
        : SpectrumStream(minHz, maxHz, kRbwHz, pWindow) {
        EXPECT_EQ(set("{\"bufferFrames\":5000}"), 0);
    }
};

/// Spectra about the first tone.
struct FmBand : PatientStream {
    FmBand() : PatientStream(88e6, 188e6) {}
};

/// Some two hundred spectra of three blocks in a second.
vnksim::UnitOptions unhurried() {
    auto cOptions = live::sweepOptions();
    cOptions.rateLimit = 600e3;
    return cOptions;
}

void expectFmBand(const live::SpectrumFrame& cFrame) {
    EXPECT_NEAR(cFrame->minimumHz, 88e6, 10);
    EXPECT_NEAR(cFrame->maximumHz, 188e6, 2 * cFrame.binHz());
    EXPECT_NEAR(peakHz(cFrame), 98.1e6, 1.5 * cFrame.binHz());
}

/// How many frames there are up to the status that ends them.
size_t framesUntil(live::SpectrumStream& cStream, int32_t iEnd, uint32_t uFirst = 0) {
    live::SpectrumFrame cFrame;
    size_t uFrames = 0;
    int32_t iStatus = 0;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        iStatus = cStream.read(cFrame, 100);
        if (iStatus == 0) {
            EXPECT_EQ(cFrame->sequence, uFirst + uFrames++);
        }
        return iStatus == iEnd;
    })) << iStatus;
    return uFrames;
}

/// Frames in unbroken sequence behind the one given.
void expectInSequence(live::SpectrumStream& cStream, live::SpectrumFrame& cFrame, int iCount) {
    uint32_t uLast = cFrame->sequence;
    for (int i = 0; i < iCount; ++i) {
        ASSERT_TRUE(cStream.next(cFrame)) << live::log();
        EXPECT_EQ(cFrame->sequence, ++uLast);
    }
}

std::vector<int32_t> statuses() {
    std::vector<int32_t> lStatuses;
    while (const int32_t iStatus = vnkGetNextStatus())
        lStatuses.push_back(iStatus);
    return lStatuses;
}

/// Takes what has come so far.
void drain(live::SpectrumStream& cStream) {
    live::SpectrumFrame cFrame;
    while (cStream.read(cFrame, 0) == 0) {
    }
}

class Sweep : public testing::Test {
 protected:
    vnksim::Journal& journal() { return mcRadio.journal(); }
    live::Radio mcRadio{unhurried(), scene()};
    live::SpectrumFrame mcFrame;
};

}  // namespace

TEST_F(Sweep, AContinuousStreamGivesFramesInSequenceFromOneListThatTheUnitRepeats) {
    FmBand cStream;
    EXPECT_EQ(cStream.read(mcFrame, 0), 3) << "nothing received yet";
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    uint64_t uLast = 0;
    for (uint32_t i = 0; i < 20; ++i) {
        ASSERT_TRUE(cStream.next(mcFrame)) << live::log();
        EXPECT_EQ(mcFrame->sequence, i);
        EXPECT_GT(mcFrame->timestamp, uLast);
        uLast = mcFrame->timestamp;
        expectFmBand(mcFrame);
        EXPECT_NEAR(static_cast<double>(mcFrame->duration), 3 * 1024 * 8, 2);
    }
    EXPECT_EQ(journal().count(kStart), 1u);
    EXPECT_EQ(journal().count(kEndless), 1u);
    const std::string parameters = mcRadio.device().parameters();
    EXPECT_NE(parameters.find("weep"), std::string::npos) << parameters;
    EXPECT_EQ(cStream.detach(), 0);
    EXPECT_TRUE(mcRadio.unit().waitForMode("BLOCK", 10s)) << "the unit is left idle";
    EXPECT_EQ(vnkIsAttached(cStream.handle()), 5);
    EXPECT_EQ(cStream.detach(), -44);
}

TEST_F(Sweep, ACountedStreamGivesExactlyItsFramesAndThenItsEnd) {
    FmBand cStream;
    ASSERT_EQ(cStream.set("{\"captureFrames\":3}"), 0);
    for (int iTurn = 0; iTurn < 2; ++iTurn) {
        ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
        EXPECT_EQ(framesUntil(cStream, 2), 3u);
        EXPECT_EQ(cStream.read(mcFrame, 0), 2);
        EXPECT_TRUE(mcRadio.unit().waitForMode("BLOCK", 10s));
        EXPECT_EQ(cStream.detach(), -44) << "it has left by itself";
    }
}

TEST_F(Sweep, TheWindowIsNuttallUnlessOneIsAsked) {
    live::SpectrumStream cStream(88e6, 188e6, kRbwHz);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    EXPECT_NE(cStream.parameters().find("\"WindowFn\":\"nuttall\""), std::string::npos) << cStream.parameters();
    ASSERT_TRUE(cStream.next(mcFrame));
    const double bins = static_cast<double>(mcFrame->rbwHz) / mcFrame.binHz();
    EXPECT_NEAR(bins, live::noiseBandwidth("nuttall"), 0.001);
}

TEST_F(Sweep, InhibitingContinuousSweepsStartsTheListForEachFrame) {
    ASSERT_EQ(mcRadio.device().set("{\"InhibitContinuousSweep\":true}"), 0);
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    expectInSequence(cStream, mcFrame, 9);
    EXPECT_GE(journal().count(kStart), 10u);
    // The unit goes on: what is compared comes from one look.
    for (const std::string& line : journal().lines())
        if (line.find(kStart) != std::string::npos) {
            EXPECT_NE(line.find("SWEEP:LIST:START 1"), std::string::npos) << line << ": one list, programmed once";
        }
    EXPECT_EQ(journal().count(kEndless), 0u);
    // Allowed again, the same stream runs continuously and goes on in sequence.
    ASSERT_EQ(mcRadio.device().set("{\"InhibitContinuousSweep\":false}"), 0);
    ASSERT_TRUE(vnktest::waitUntil([&] { return journal().count(kEndless) == 1; }));
    const uint32_t uLast = mcFrame->sequence;
    ASSERT_TRUE(cStream.next(mcFrame));
    EXPECT_EQ(mcFrame->sequence, uLast + 1);
    expectInSequence(cStream, mcFrame, 9);
    const size_t uStarts = journal().count(kStart);
    expectInSequence(cStream, mcFrame, 9);
    EXPECT_EQ(journal().count(kStart), uStarts);
}

TEST_F(Sweep, StreamsInTurnEachGetTheirOwnSpectraAndTheSurvivorRunsContinuously) {
    FmBand cFirst;
    PatientStream cSecond(420e6, 460e6), cThird(1.05e9, 1.13e9, "hann");
    for (PatientStream* pStream : {static_cast<PatientStream*>(&cFirst), &cSecond, &cThird})
        ASSERT_EQ(pStream->attach(mcRadio.device()), 0);
    for (uint32_t i = 0; i < 4; ++i) {
        ASSERT_TRUE(cFirst.next(mcFrame)) << live::log();
        expectFmBand(mcFrame);
        ASSERT_TRUE(cSecond.next(mcFrame)) << live::log();
        EXPECT_NEAR(peakHz(mcFrame), 437e6, 1.5 * mcFrame.binHz());
        EXPECT_NEAR(mcFrame->maximumHz, 460e6, 2 * mcFrame.binHz());
        EXPECT_EQ(mcFrame->sequence, i);
        ASSERT_TRUE(cThird.next(mcFrame)) << live::log();
        EXPECT_NEAR(peakHz(mcFrame), 1.09e9, 1.5 * mcFrame.binHz());
        EXPECT_NEAR(static_cast<double>(mcFrame->rbwHz) / mcFrame.binHz(), live::noiseBandwidth("hann"), 0.001);
        EXPECT_EQ(mcFrame->sequence, i);
    }
    const size_t uPosition = journal().size();
    EXPECT_EQ(cThird.detach(), 0);
    EXPECT_EQ(cFirst.detach(), 0);
    EXPECT_TRUE(journal().waitFor(kEndless, 20s, uPosition)) << live::log();
    drain(cSecond);
    ASSERT_TRUE(cSecond.next(mcFrame));
    expectInSequence(cSecond, mcFrame, 5);
    const size_t uStarts = journal().count(kStart);
    expectInSequence(cSecond, mcFrame, 5);
    EXPECT_EQ(journal().count(kStart), uStarts) << "one list that the unit repeats";
    EXPECT_NEAR(peakHz(mcFrame), 437e6, 1.5 * mcFrame.binHz());
}

TEST_F(Sweep, CountedStreamsAmongOthersEndAndTheOthersGoOn) {
    FmBand cEndless;
    PatientStream cCounted(420e6, 460e6), cLong(1.05e9, 1.13e9);
    ASSERT_EQ(cCounted.set("{\"captureFrames\":3}"), 0);
    ASSERT_EQ(cLong.set("{\"captureFrames\":6}"), 0);
    ASSERT_EQ(cEndless.attach(mcRadio.device()), 0);
    ASSERT_EQ(cCounted.attach(mcRadio.device()), 0);
    ASSERT_EQ(cLong.attach(mcRadio.device()), 0);
    EXPECT_EQ(framesUntil(cCounted, 2), 3u);
    EXPECT_EQ(framesUntil(cLong, 2), 6u);
    ASSERT_TRUE(vnktest::waitUntil([&] { return journal().count(kEndless) > 0; })) << "alone again";
    drain(cEndless);
    ASSERT_TRUE(cEndless.next(mcFrame));
    expectInSequence(cEndless, mcFrame, 5);
    expectFmBand(mcFrame);
}

TEST_F(Sweep, AnIQStreamPreemptsTheSweepWhichComesBackInSequence) {
    FmBand cSweep;
    ASSERT_EQ(cSweep.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cSweep.next(mcFrame));
    expectInSequence(cSweep, mcFrame, 3);
    live::Stream cIQ(437e6, 400e3);
    ASSERT_EQ(cIQ.attach(mcRadio.device()), 0);
    live::Frame cSamples;
    ASSERT_TRUE(cIQ.next(cSamples)) << live::log();
    EXPECT_EQ(mcRadio.unit().state().captureMode, "STREAMING");
    std::optional<uint32_t> uLast;
    while (cSweep.read(mcFrame, 0) == 0)
        uLast = mcFrame->sequence;
    ASSERT_TRUE(cIQ.next(cSamples));
    EXPECT_EQ(cSweep.read(mcFrame, 0), 1) << "attached, and without frames while the other one runs";
    EXPECT_EQ(vnkIsAttached(cSweep.handle()), 0);
    EXPECT_EQ(cIQ.detach(), 0);
    ASSERT_TRUE(cSweep.next(mcFrame)) << live::log();
    if (uLast) {
        EXPECT_EQ(mcFrame->sequence, *uLast + 1);
    }
    expectInSequence(cSweep, mcFrame, 5);
    expectFmBand(mcFrame);
}

TEST_F(Sweep, ACountGoesOnBehindAnIQStreamThatCameBetween) {
    FmBand cSweep;
    ASSERT_EQ(mcRadio.device().set("{\"InhibitContinuousSweep\":true}"), 0);
    ASSERT_EQ(cSweep.set("{\"captureFrames\":40}"), 0);
    ASSERT_EQ(cSweep.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cSweep.next(mcFrame));
    live::Stream cIQ(437e6, 400e3);
    ASSERT_EQ(cIQ.attach(mcRadio.device()), 0);
    live::Frame cSamples;
    ASSERT_TRUE(cIQ.next(cSamples)) << live::log();
    EXPECT_EQ(cIQ.detach(), 0);
    EXPECT_EQ(framesUntil(cSweep, 2, 1), 39u);
}

TEST_F(Sweep, AParameterChangedInMidSweepGivesOnlyFramesOfTheNewShapeFromThenOn) {
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    const struct {
        const char* mpChange;
        std::function<bool(const live::SpectrumFrame&)> mcIsNew;
    } changes[] = {
        {"{\"FMaxHz\":1.5e8}", [](const auto& f) { return std::abs(f->maximumHz - 150e6) < 2 * f.binHz(); }},
        {"{\"FMinHz\":9.5e7}", [](const auto& f) { return std::abs(f->minimumHz - 95e6) < 20; }},
        {"{\"RBWHz\":1.0e5}", [](const auto& f) { return f->rbwHz < 100e3f; }},
        {"{\"WindowFn\":\"hann\"}",
         [](const auto& f) { return std::abs(static_cast<double>(f->rbwHz) / f.binHz() - 1.5) < 0.01; }},
    };
    for (const auto& cChange : changes) {
        ASSERT_EQ(cStream.set(cChange.mpChange), 0);
        bool bNew = false;
        uint32_t uExpected = 0;
        size_t uOld = 0;
        for (int i = 0; i < 12;) {
            ASSERT_TRUE(cStream.next(mcFrame)) << cChange.mpChange << live::log();
            EXPECT_NEAR(peakHz(mcFrame), 98.1e6, 1.5 * mcFrame.binHz());
            if (!bNew && !cChange.mcIsNew(mcFrame)) {
                ASSERT_LT(++uOld, 5000u);   // of before the change
                continue;
            }
            bNew = true;
            EXPECT_TRUE(cChange.mcIsNew(mcFrame)) << cChange.mpChange;
            EXPECT_EQ(mcFrame->sequence, uExpected++) << "a new configuration counts anew";
            ++i;
        }
    }
}

TEST_F(Sweep, ANewReferenceLevelProgramsTheUnitAnewAndKeepsTheLevel) {
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    const double before = peakdBm(mcFrame);
    const size_t uPosition = journal().size();
    ASSERT_EQ(cStream.set("{\"RefdBm\":12.0}"), 0);
    ASSERT_TRUE(journal().waitFor(":INPUT:GAIN 1 0; :INPUT:GAIN 2 0", 20s, uPosition));
    ASSERT_TRUE(journal().waitFor(kStart, 20s, uPosition));
    EXPECT_EQ(mcRadio.unit().state().list.at(0).attenuation, 10u);
    drain(cStream);
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(cStream.next(mcFrame));
        EXPECT_NEAR(peakdBm(mcFrame), before, 0.1);
    }
}

TEST_F(Sweep, AResolutionBandwidthNearTheRealisedOneRestartsNothing) {
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    const double rbw = static_cast<double>(mcFrame->rbwHz);
    const size_t uStarts = journal().count(kStart), uStops = journal().count("LIST:STOP");
    for (const double factor : {1.04, 0.96, 1.0}) {
        ASSERT_EQ(cStream.set("{\"RBWHz\":" + std::to_string(rbw * factor) + "}"), 0);
        expectInSequence(cStream, mcFrame, 4);
    }
    EXPECT_EQ(journal().count(kStart), uStarts);
    EXPECT_EQ(journal().count("LIST:STOP"), uStops);
    ASSERT_EQ(cStream.set("{\"RBWHz\":" + std::to_string(rbw * 1.06) + "}"), 0);
    EXPECT_TRUE(vnktest::waitUntil([&] { return journal().count(kStart) > uStarts; }));
}

TEST_F(Sweep, UserCalibrationActsAtOnceAndRestartsNothing) {
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    const double before = peakdBm(mcFrame);
    const size_t uLines = journal().size();
    ASSERT_EQ(cStream.set("{\"UserCaldB\":7.5}"), 0);
    EXPECT_TRUE(vnktest::waitUntil(
        [&] { return cStream.next(mcFrame) && std::abs(peakdBm(mcFrame) - before - 7.5) < 0.1; }));
    expectInSequence(cStream, mcFrame, 3);
    EXPECT_EQ(journal().size(), uLines) << "the unit was told nothing";
}

TEST_F(Sweep, FlowControlAsksForEachListAndGivesWholeFrames) {
    FmBand cStream;
    ASSERT_EQ(cStream.set("{\"flowControl\":true}"), 0);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame)) << live::log();
    expectInSequence(cStream, mcFrame, 10);
    expectFmBand(mcFrame);
    EXPECT_EQ(journal().count(kEndless), 0u);
    EXPECT_GE(journal().count(kStart), 11u);
    // Without it again: the unit repeats by itself.
    ASSERT_EQ(cStream.set("{\"flowControl\":false}"), 0);
    EXPECT_TRUE(vnktest::waitUntil([&] { return journal().count(kEndless) == 1; }));
    ASSERT_TRUE(cStream.next(mcFrame)) << live::log();
}

TEST_F(Sweep, FlowControlStopsAskingWithTheCount) {
    FmBand cStream;
    ASSERT_EQ(cStream.set("{\"flowControl\":true,\"captureFrames\":5}"), 0);
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    EXPECT_EQ(framesUntil(cStream, 2), 5u);
    EXPECT_TRUE(mcRadio.unit().waitForMode("BLOCK", 10s));
}

TEST_F(Sweep, FlattenIsReportedOnceItIsOnAndWithoutCorrectionDataDoesNothing) {
    FmBand cStream;
    EXPECT_EQ(cStream.parameters().find("flatten"), std::string::npos);
    ASSERT_EQ(cStream.set("{\"flatten\":true}"), 0);
    EXPECT_NE(cStream.parameters().find("\"flatten\":true"), std::string::npos) << cStream.parameters();
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    expectFmBand(mcFrame);
    const size_t uStarts = journal().count(kStart);
    ASSERT_EQ(cStream.set("{\"flatten\":false}"), 0);
    expectInSequence(cStream, mcFrame, 5);
    EXPECT_EQ(journal().count(kStart), uStarts) << "a change alone restarts nothing";
}

TEST_F(Sweep, ASweepGoesOnAfterTheUserResetsTheUnitBehindItsBack) {
    for (const bool bInhibited : {false, true}) {
        ASSERT_EQ(mcRadio.device().set(bInhibited ? "{\"InhibitContinuousSweep\":true}"
                                                  : "{\"InhibitContinuousSweep\":false}"),
                  0);
        FmBand cStream;
        ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
        ASSERT_TRUE(cStream.next(mcFrame));
        ASSERT_EQ(vnkSendSCPI(mcRadio.device().handle(), "*RST"), 0);
        drain(cStream);
        ASSERT_TRUE(cStream.next(mcFrame)) << bInhibited << live::log();
        expectInSequence(cStream, mcFrame, 10);
        expectFmBand(mcFrame);
    }
}

TEST_F(Sweep, WhatTheUnitCannotDoIsRefusedAtTheAttachWithItsStatus) {
    const struct {
        double minHz, maxHz, rbwHz;
        std::set<int32_t> lStatuses;
    } cases[] = {
        {100, 100e6, 10e3, {-67}},
        {1e6, 28e9, 10e3, {-68}},
        {100, 28e9, 10e3, {-67, -68}},
        {50e6, 50e6, 10e3, {-53}},
        {28e9, 28e9, 10e3, {-67, -68}},
        {1e6, 1e9, 0.5, {-65}},
        {1e6, 1e9, 11e6, {-65}},
    };
    for (const auto& cCase : cases) {
        live::SpectrumStream cStream(cCase.minHz, cCase.maxHz, cCase.rbwHz);
        statuses();
        EXPECT_EQ(cStream.attach(mcRadio.device()), -41) << cCase.minHz << " " << cCase.maxHz;
        const std::vector<int32_t> lGot = statuses();
        for (const int32_t iStatus : cCase.lStatuses)
            EXPECT_EQ(std::count(lGot.begin(), lGot.end(), iStatus), 1) << iStatus;
        for (const int32_t iStatus : {-53, -65, -66, -67, -68})
            EXPECT_EQ(std::count(lGot.begin(), lGot.end(), iStatus),
                      static_cast<long>(cCase.lStatuses.count(iStatus)))
                << iStatus;
        EXPECT_EQ(vnkIsAttached(cStream.handle()), 5);
    }
    EXPECT_EQ(journal().count(kStart), 0u);
}

TEST_F(Sweep, AChangeThatTheUnitCannotDoIsRefusedWithItsStatusAndTheSweepGoesOn) {
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    const std::pair<const char*, int32_t> changes[] = {{"{\"WindowFn\":\"kaiser\"}", -66},
                                                       {"{\"FMinHz\":100.0}", -67},
                                                       {"{\"FMaxHz\":2.8e10}", -68},
                                                       {"{\"FMinHz\":2.0e8}", -53},
                                                       {"{\"RBWHz\":0.5}", -65}};
    for (const auto& [pChange, iStatus] : changes) {
        statuses();
        EXPECT_NE(cStream.set(pChange), 0) << pChange;
        const std::vector<int32_t> lGot = statuses();
        EXPECT_GE(std::count(lGot.begin(), lGot.end(), iStatus), 1) << pChange;
        drain(cStream);
        ASSERT_TRUE(cStream.next(mcFrame));
        expectFmBand(mcFrame);
    }
    EXPECT_EQ(journal().count(kStart), 1u);
}

TEST_F(Sweep, AStreamThatIsAttachedAlreadyStaysAsItIs) {
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame));
    EXPECT_EQ(cStream.attach(mcRadio.device()), -41) << live::log();
    expectInSequence(cStream, mcFrame, 5);
}

TEST_F(Sweep, MoreBinsThanAnArrayHoldsAreRefusedAndTheUnitServesOthers) {
    live::SpectrumStream cHuge(9e3, 27e9, 1);
    ASSERT_EQ(cHuge.attach(mcRadio.device()), 0);
    std::string log;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        log += live::log();
        return log.find("Sweep parameters (min,max,rbw) unreasonable") != std::string::npos;
    })) << log;
    EXPECT_EQ(cHuge.read(mcFrame, 0), 3);
    EXPECT_EQ(cHuge.detach(), 0);
    FmBand cStream;
    ASSERT_EQ(cStream.attach(mcRadio.device()), 0);
    ASSERT_TRUE(cStream.next(mcFrame)) << live::log();
    expectFmBand(mcFrame);
}

TEST(SweepBlocks, BlocksOfManyPacketsAreJoined) {
    live::Radio cRadio(live::sweepOptions(), scene());
    live::SpectrumStream cStream(88e6, 160e6, 4e3);
    live::SpectrumFrame cFrame;
    ASSERT_EQ(cStream.attach(cRadio.device()), 0);
    ASSERT_TRUE(cStream.next(cFrame)) << live::log();
    expectInSequence(cStream, cFrame, 3);
    EXPECT_GT(cRadio.unit().state().list.at(0).packetsPerBlock, 1u);
    EXPECT_NEAR(peakHz(cFrame), 98.1e6, 1.5 * cFrame.binHz());
    EXPECT_NEAR(peakdBm(cFrame), -40 - 10 * std::log10(live::noiseBandwidth("nuttall")), 0.9);
}
