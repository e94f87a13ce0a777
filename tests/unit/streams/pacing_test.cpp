#include "flows/basebandframe.h"
#include "foundations/clock.h"
#include "support/loopback.h"
#include "support/resources.h"
#include "unit/streams/playbacksupport.h"

using vnktest::basebandBytes;
using vnktest::ClockedPlayer;
using vnktest::describeBaseband;
using vnktest::describeIQ;
using vnktest::describeSpectrum;
using vnktest::Description;
using vnktest::iqBytes;
using vnktest::spectrumBytes;
using vnktest::waitUntil;

namespace {

using Waits = std::vector<uint64_t>;

constexpr uint64_t kSecond = 1'000'000'000;       // in nanoseconds
constexpr uint64_t kTicksPerSecond = 10'000'000;  // of the player's clock

struct ResolutionCase {
    const char* mpText;
    uint64_t muFirst;  // ticks of the two frames
    uint64_t muSecond;
    uint64_t muStart;           // the first in nanoseconds
    uint64_t muWait;            // for the second, at once
    uint64_t muWaitAfterTenth;  // for the second, a tenth of a second later
};

// Worked out by hand: frame times become nanoseconds by single-precision constants, the clock counts in the
// recording's own ticks (in milliseconds for seconds too), and their difference is taken for ticks. Only at
// nanoseconds is that the time between the frames.
const ResolutionCase kResolutionCases[] = {
    {"s", 1, 3, 1000000028, 2000000057000000, 1999999957000000},
    {"ms", 1000, 1250, 1000000076, 250000030874, 249999930874},
    {"us", 1000000, 1250000, 1000000026, 250000005, 249900005},
    {"ns", 1000000000, 1250000000, 1000000000, 249999, 149999},
    {"ps", 1000000000000, 1250000000000, 1000000024, 250, 0},
};

/// Deterministic numbers below the limit.
class Jitter {
 public:
    uint64_t below(uint64_t uLimit) {
        muState = muState * 6364136223846793005u + 1442695040888963407u;
        return (muState >> 33) % uLimit;
    }

 private:
    uint64_t muState = 42;
};

}  // namespace

class PacingTest : public vnktest::PlaybackTest {
 protected:
    /// The waits between the frames of the pair, the clock being moved on before each but the first.
    Waits waits(uint64_t uTicksBetween = 0) {
        const auto cPlayer = player();
        mcSink->mcReaction = [&](const Frame*) {
            if (mcSink->frameCount() > 1)
                cPlayer->muTicks += uTicksBetween;
        };
        cPlayer->run();
        EXPECT_EQ(mcSink->nullCount(), 1u);
        return cPlayer->mlPauses;
    }
};

TEST_F(PacingTest, aGapOfASecondIsWaitedForWhereItIs) {
    write(describeIQ(5 * kSecond, 9), iqBytes(5 * kSecond, 0, {1, 2}) + iqBytes(6 * kSecond, 1, {1, 2}) +
                                          iqBytes(6 * kSecond, 2, {1, 2}));
    // The wait is rounded down; what is left of it then is no whole microsecond.
    EXPECT_EQ(waits(), (Waits{999999, 0}));
    EXPECT_EQ(mcSink->frameCount(), 3u);
}

TEST_F(PacingTest, whatThePassHasTakenIsNotWaitedForAgain) {
    write(describeIQ(kSecond, 9),
          iqBytes(kSecond, 0, {1, 2}) + iqBytes(2 * kSecond, 1, {1, 2}) + iqBytes(3 * kSecond, 2, {1, 2}));
    EXPECT_EQ(waits(kTicksPerSecond / 4), (Waits{749999, 750000}));
    EXPECT_EQ(waits(kTicksPerSecond * 2), Waits{});
}

TEST_F(PacingTest, eachResolutionHasItsOwnArithmeticForSamples) {
    for (const ResolutionCase& c : kResolutionCases) {
        Description cDescription = describeIQ(c.muStart, 9);
        cDescription.mcSummary["TimeResolution"] = std::string("\"") + c.mpText + "\"";
        write(cDescription, iqBytes(c.muFirst, 0, {1, 2}) + iqBytes(c.muSecond, 1, {1, 2}));
        EXPECT_EQ(waits(), Waits{c.muWait}) << c.mpText;
        const Waits lLater = waits(kTicksPerSecond / 10);
        EXPECT_EQ(lLater, c.muWaitAfterTenth ? Waits{c.muWaitAfterTenth} : Waits{}) << c.mpText;
    }
}

TEST_F(PacingTest, eachResolutionHasItsOwnArithmeticForSpectra) {
    for (const ResolutionCase& c : kResolutionCases) {
        Description cDescription =
            describeSpectrum(12345);  // counts from the first frame, whatever this says
        cDescription.mcSummary["TimeResolution"] = std::string("\"") + c.mpText + "\"";
        write(cDescription, spectrumBytes(c.muFirst, 0, 0, {1}) + spectrumBytes(c.muSecond, 0, 1, {1}));
        EXPECT_EQ(waits(), Waits{c.muWait}) << c.mpText;
        const Waits lLater = waits(kTicksPerSecond / 10);
        EXPECT_EQ(lLater, c.muWaitAfterTenth ? Waits{c.muWaitAfterTenth} : Waits{}) << c.mpText;
    }
}

TEST_F(PacingTest, theClockCountsPicosecondsToo) {
    Description cDescription = describeIQ(1000000024, 9);
    cDescription.mcSummary["TimeResolution"] = "\"ps\"";
    write(cDescription, iqBytes(1000000000000, 0, {1, 2}) + iqBytes(1250000000000, 1, {1, 2}));
    EXPECT_EQ(waits(100), Waits{240});  // ten microseconds of the clock
}

TEST_F(PacingTest, anUnknownResolutionCountsAsMilliseconds) {
    Description cDescription = describeIQ(1000000076, 9);
    cDescription.mcSummary["TimeResolution"] = "\"moons\"";
    write(cDescription, iqBytes(1000, 0, {1, 2}) + iqBytes(1250, 1, {1, 2}));
    EXPECT_EQ(waits(), Waits{250000030874});
}

TEST_F(PacingTest, aStartTimeOfZeroIsTakenFromTheFirstFrame) {
    write(describeIQ(0, 9), iqBytes(5 * kSecond, 0, {1, 2}) + iqBytes(6 * kSecond, 1, {1, 2}));
    EXPECT_EQ(waits(), Waits{999999});
    // In its ticks, where samples are played: at microseconds that is not the frame's time.
    Description cDescription = describeIQ(0, 9);
    cDescription.mcSummary["TimeResolution"] = "\"us\"";
    write(cDescription, iqBytes(1000000, 0, {1, 2}));
    EXPECT_EQ(waits(), Waits{999000023});
    // In nanoseconds, where spectra are.
    cDescription = describeSpectrum(0);
    cDescription.mcSummary["TimeResolution"] = "\"us\"";
    write(cDescription, spectrumBytes(1000000, 0, 0, {1}));
    EXPECT_EQ(waits(), Waits{});
}

TEST_F(PacingTest, aStartBeforeTheFirstFrameIsWaitedThrough) {
    write(describeIQ(4 * kSecond, 9), iqBytes(5 * kSecond, 0, {1, 2}));
    EXPECT_EQ(waits(), Waits{999999});
}

TEST_F(PacingTest, timestampsThatGoBackNeverStall) {
    write(describeIQ(10 * kSecond, 9), iqBytes(10 * kSecond, 0, {1, 2}) + iqBytes(2 * kSecond, 1, {1, 2}) +
                                           iqBytes(1, 2, {1, 2}) + iqBytes(11 * kSecond, 3, {1, 2}));
    EXPECT_EQ(waits(), Waits{999999});
    write(describeSpectrum(0), spectrumBytes(10 * kSecond, 0, 0, {1}) + spectrumBytes(kSecond, 0, 1, {1}));
    EXPECT_EQ(waits(), Waits{});
    // A start later than all frames.
    write(describeIQ(UINT64_MAX, 9), iqBytes(10, 0, {1, 2}) + iqBytes(20, 1, {1, 2}));
    EXPECT_LE(waits().size(), 2u);
    for (const uint64_t uWait : waits())
        EXPECT_LT(uWait, 10u);
}

TEST_F(PacingTest, withoutPacingNothingIsWaitedFor) {
    write(describeIQ(kSecond, 9), iqBytes(kSecond, 0, {1, 2}) + iqBytes(9 * kSecond, 1, {1, 2}));
    EXPECT_TRUE(playAll()->mlPauses.empty());
    write(describeSpectrum(0), spectrumBytes(kSecond, 0, 0, {1}) + spectrumBytes(9 * kSecond, 0, 1, {1}));
    EXPECT_TRUE(playAll()->mlPauses.empty());
    Description cDescription = describeBaseband(0, 9, 9);
    cDescription.mcSummary["PointsPerFrame"] = "4800";
    write(cDescription, basebandBytes({{1}}));
    EXPECT_TRUE(playAll()->mlPauses.empty());
}

TEST_F(PacingTest, basebandWithPointsWaitsTheirLengthInMillisecondsAfterEachFrame) {
    const std::map<std::string, Waits> cCases{
        {"4800", {100000, 100000}}, {"100", {2000, 2000}}, {"120", {3000, 3000}}, {"23", {}}, {"0", {}}};
    for (const auto& [points, lWaits] : cCases) {
        Description cDescription = describeBaseband(0, 9, 9);
        cDescription.mcSummary["PointsPerFrame"] = points;
        write(cDescription, basebandBytes({{1}}) + basebandBytes({{1, 2, 3}}));
        EXPECT_EQ(waits(kTicksPerSecond), lWaits) << points;  // the clock does not matter
    }
}

TEST_F(PacingTest, anHourDoesNotDrift) {
    constexpr uint32_t kFrames = 36000;
    constexpr uint64_t kStep = kSecond / 10;
    std::string data;
    for (uint32_t i = 0; i < kFrames; ++i)
        data += iqBytes(kSecond + i * kStep, i, {1, 2});
    write(describeIQ(kSecond, kFrames), data);
    const auto cPlayer = player();
    Jitter cJitter;
    mcSink->mbKeeping = false;
    const uint64_t uBegin = cPlayer->muTicks;
    int64_t iWorst = 0;
    // Waits end up to 3 ms late, and a frame's way through the sinks takes up to 2 ms.
    cPlayer->mcReaction = [&](uint64_t) { cPlayer->muTicks += cJitter.below(30000); };
    mcSink->mcReaction = [&](const Frame* pFrame) {
        if (!pFrame)
            return;
        const auto iElapsed = static_cast<int64_t>((cPlayer->muTicks - uBegin) * 100);
        // A frame goes out when the one before it has been waited for.
        const auto iDue = static_cast<int64_t>(pFrame->timestamp() - kSecond - kStep);
        EXPECT_GT(iElapsed, iDue - 10000);
        iWorst = std::max(iWorst, iElapsed - std::max(iDue, int64_t{0}));
        cPlayer->muTicks += cJitter.below(20000);
    };
    cPlayer->run();
    EXPECT_EQ(mcSink->frameCount(), kFrames);
    EXPECT_LT(iWorst, 5'000'000);
    EXPECT_GT(iWorst, 1'000'000);  // it was not for nothing
    EXPECT_NEAR(static_cast<double>(cPlayer->muTicks - uBegin), 3599.9 * kTicksPerSecond, 50000.0);
}

TEST_F(PacingTest, eachLoopBeginsItsOwnTime) {
    write(describeIQ(kSecond, 2), iqBytes(kSecond, 0, {1, 2}) + iqBytes(2 * kSecond, 1, {1, 2}));
    for (const bool bSpectrum : {false, true}) {
        if (bSpectrum)
            write(describeSpectrum(7),
                  spectrumBytes(kSecond, 0, 0, {1}) + spectrumBytes(2 * kSecond, 0, 1, {1}));
        const auto cPlayer = player();
        cPlayer->setLooping(true);
        mcSink->mcReaction = [&](const Frame*) { cPlayer->setLooping(mcSink->frameCount() < 6); };
        cPlayer->run();
        EXPECT_EQ(cPlayer->mlPauses, Waits(3, 999999)) << bSpectrum;
    }
}

TEST_F(PacingTest, hundredThousandLoopsNeitherDriftNorGrow) {
    constexpr size_t kLoops = 100000;
    constexpr size_t kWarm = 2000;
    const std::vector<float> lSamples(1024, 1.0f);
    write(describeIQ(kSecond, 1024), iqBytes(kSecond, 0, lSamples) + iqBytes(kSecond + 1000000, 1, lSamples));
    const auto cPlayer = player();
    cPlayer->mbKeeping = false;
    mcSink->mbKeeping = false;
    cPlayer->setLooping(true);
    const uint64_t uBegin = cPlayer->muTicks;
    uint64_t uMemory = 0;
    size_t uDescriptors = 0;
    mcSink->mcReaction = [&](const Frame*) {
        if (mcSink->frameCount() == 2 * kWarm) {
            uMemory = vnktest::residentBytes();
            uDescriptors = vnktest::openDescriptors();
        }
        cPlayer->setLooping(mcSink->frameCount() < 2 * kLoops);
    };
    cPlayer->run();
    EXPECT_EQ(mcSink->frameCount(), 2 * kLoops);
    EXPECT_EQ(cPlayer->muPauses, kLoops);
    EXPECT_EQ(cPlayer->muTicks - uBegin, kLoops * 9990);  // 999 us each, not one tick more
    EXPECT_EQ(vnktest::openDescriptors(), uDescriptors);
    // Kept frames would be 800 MB; a sanitizer keeps up to 256 MB of its own accord.
    EXPECT_LT(vnktest::residentBytes(), uMemory + (uint64_t{350} << 20));
}

TEST_F(PacingTest, aStopInterruptsALongWaitAtOnce) {
    write(describeIQ(kSecond, 9), iqBytes(kSecond, 0, {1, 2}) + iqBytes(3601 * kSecond, 1, {1, 2}) +
                                      iqBytes(3602 * kSecond, 2, {1, 2}));
    const auto cFile = makeReference<StreamInputFile>(mcFolder.path("x"));
    auto cSink = makeReference<vnktest::PlaybackSink>();
    ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
    cFile->play();
    ASSERT_TRUE(waitUntil([&] { return cSink->frameCount() == 2; }));
    const uint64_t uBegin = utils::steadyMilliseconds();
    EXPECT_TRUE(cFile->stop(60000));
    EXPECT_LT(utils::steadyMilliseconds() - uBegin, 5000u);
    EXPECT_EQ(cSink->frameCount(), 2u);  // it did not go on to the third
    EXPECT_EQ(cSink->nullCount(), 1u);
    EXPECT_TRUE(cFile->isExhausted());
}

TEST_F(PacingTest, theEndOfThePlayerInterruptsALongWaitToo) {
    write(describeSpectrum(0), spectrumBytes(kSecond, 0, 0, {1}) + spectrumBytes(3601 * kSecond, 0, 1, {1}));
    auto cFile = makeReference<StreamInputFile>(mcFolder.path("x"));
    auto cSink = makeReference<vnktest::PlaybackSink>();
    ASSERT_TRUE(cFile->attachFrameSink(cSink, mlErrors));
    cFile->play();
    ASSERT_TRUE(waitUntil([&] { return cSink->frameCount() == 2; }));
    const uint64_t uBegin = utils::steadyMilliseconds();
    cFile.release();
    EXPECT_LT(utils::steadyMilliseconds() - uBegin, 5000u);
    EXPECT_FALSE(cSink->isAttached());
}

TEST_F(PacingTest, realWaitsKeepTheRecordedRate) {
    std::string data;
    for (uint32_t i = 0; i < 11; ++i)
        data += iqBytes(kSecond + i * kSecond / 50, i, {1, 2});
    write(describeIQ(kSecond, 11), data);
    const auto cFile = makeReference<StreamInputFile>(mcFolder.path("x"));
    const uint64_t uBegin = utils::steadyMilliseconds();
    cFile->play();
    ASSERT_TRUE(waitUntil([&] { return cFile->isExhausted(); }));
    const uint64_t uElapsed = utils::steadyMilliseconds() - uBegin;
    EXPECT_GE(uElapsed, 199u);
    EXPECT_LT(uElapsed, 5000u);
}

TEST(PacingMicroseconds, areRoundedDownAndNeverBeyondAWait) {
    EXPECT_EQ(pacingMicroseconds(kNanoseconds, 0), 0u);
    EXPECT_EQ(pacingMicroseconds(kNanoseconds, 999), 0u);
    EXPECT_EQ(pacingMicroseconds(kNanoseconds, 1001), 1u);
    EXPECT_EQ(pacingMicroseconds(kMicroseconds, 3), 2u);  // the constant lies below a millionth
    EXPECT_EQ(pacingMicroseconds(kMilliseconds, 5), 5000u);
    EXPECT_EQ(pacingMicroseconds(kSeconds, 2), 2000000u);
    EXPECT_EQ(pacingMicroseconds(17, 5), 5000u);
    for (uint32_t uResolution = 0; uResolution < 6; ++uResolution)
        EXPECT_LE(pacingMicroseconds(uResolution, INT64_MAX), uint64_t{1} << 60);
}
