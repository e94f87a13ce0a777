#include "tools/recordingsummary.h"

#include <gtest/gtest.h>

#include "recordings.h"

using namespace cli;

namespace {

constexpr double kNs = static_cast<double>(1e-9f);
constexpr uint64_t kStart = 1700000000000000000;

/// 100 samples at 10 kS/s and so many nanoseconds behind the start.
std::string frame(uint32_t sequence, uint64_t nanoseconds) {
    return vnktest::iqFrame(kStart + nanoseconds, sequence, std::vector<float>(200, 0.5f));
}

RecordingSummary summaryOf(const std::string& bytes, double rateHz = 10000) {
    const vnktest::ScratchFolder folder;
    vnktest::writeFile(folder / "x.data", bytes);
    RecordingReader reader(folder / "x.data");
    return summarize(reader, kNs, rateHz);
}

RecordingDescription described(uint64_t samples, uint64_t endNs) {
    return parseDescription(
        "{\"DataType\":\"IQ\",\"IQ\":{\"StartTimestamp\":1700000000000000000,\"EndTimestamp\":" +
        std::to_string(endNs) + ",\"Samples\":" + std::to_string(samples) +
        ",\"TimeResolution\":\"ns\"},\"Sampling\":{\"SampleRateHz\":10000.000000}}");
}

}  // namespace

TEST(RecordingSummaries, CountFramesAndSamples) {
    const RecordingSummary summary = summaryOf(vnktest::evenIq(10));
    EXPECT_EQ(summary.frames, 10u);
    EXPECT_EQ(summary.samples, 1000u);
    EXPECT_EQ(summary.smallestFrame, 100u);
    EXPECT_EQ(summary.sequenceGaps, 0u);
    EXPECT_EQ(summary.timeGaps, 0u);
    EXPECT_EQ(summary.stepsBack, 0u);
    EXPECT_EQ(summary.trailingBytes(), 0u);
    EXPECT_EQ(tailText(summary), "");
}

TEST(RecordingSummaries, GapsInSequenceAndTimeAreCountedApart) {
    // A jump of the number, half a frame lost, a step back, jitter of a microsecond.
    const RecordingSummary summary = summaryOf(frame(0, 0) + frame(2, 10000000) + frame(3, 25000000) +
                                               frame(4, 5000000) + frame(5, 15001000));
    EXPECT_EQ(summary.sequenceGaps, 1u);
    EXPECT_EQ(summary.timeGaps, 1u);
    EXPECT_NEAR(summary.missingSeconds, 0.005, 1e-6);
    EXPECT_EQ(summary.stepsBack, 1u);
}

TEST(RecordingSummaries, TheNumberGoesOnFromZeroAfterItsLast) {
    EXPECT_EQ(summaryOf(frame(0xFFFFFFFD, 0) + frame(0xFFFFFFFE, 10000000) + frame(0, 20000000)).sequenceGaps,
              0u);
    EXPECT_EQ(summaryOf(frame(0xFFFFFFFE, 0) + frame(0xFFFFFFFF, 10000000)).sequenceGaps, 1u);
}

TEST(RecordingSummaries, TheRateComesFromFramesInSequence) {
    std::string bytes;
    uint64_t uTime = 0;
    for (uint32_t u = 0; u < 3000; ++u) {
        bytes += frame(u, uTime);
        // Gaps and jumps of the clock now and then, some without a jump of the number.
        uTime += u % 100 == 99 ? 5000000000u : u % 77 == 0 ? 400000u : 10000000u;
    }
    const auto rate = summaryOf(bytes, 0).estimatedRateHz;
    ASSERT_TRUE(rate);
    EXPECT_NEAR(*rate, 10000, 0.01);
}

TEST(RecordingSummaries, NoRateWithoutTwoFramesInSequence) {
    EXPECT_FALSE(summaryOf(frame(0, 0), 0).estimatedRateHz);
    EXPECT_FALSE(summaryOf(frame(0, 0) + frame(2, 10000000), 0).estimatedRateHz);
    EXPECT_FALSE(summaryOf(frame(0, 5) + frame(1, 5), 0).estimatedRateHz) << "no time between them";
}

TEST(RecordingSummaries, WithoutARateTheEstimateJudgesGaps) {
    const RecordingSummary summary =
        summaryOf(frame(0, 0) + frame(1, 10000000) + frame(2, 20000000) + frame(3, 45000000), 0);
    EXPECT_EQ(summary.timeGaps, 1u);
    EXPECT_NEAR(summary.missingSeconds, 0.015, 1e-4);
}

TEST(RecordingSummaries, AgreementAndItsBreaches) {
    const RecordingSummary summary = summaryOf(vnktest::evenIq(10));
    const uint64_t uEnd = kStart + 100000000;
    EXPECT_EQ(differences(described(1000, uEnd), summary), std::vector<std::string>{});
    EXPECT_EQ(differences(described(1100, uEnd), summary),
              std::vector<std::string>{"the data hold 100 samples fewer than the description tells"});
    EXPECT_EQ(differences(described(900, uEnd), summary),
              std::vector<std::string>{
                  "the data hold 100 samples more than the description tells, and are not played"});
    EXPECT_EQ(differences(described(1000, uEnd + 10000000), summary),
              std::vector<std::string>{"the last frame has another time than the description tells"});
    RecordingDescription fast = described(1000, uEnd);
    fast.sampling["SampleRateHz"] = 20000.0;
    EXPECT_EQ(differences(fast, summary).back(),
              "the description tells 20 kS/s, by the frames' times it is 10 kS/s");
    RecordingDescription spectra = described(1000, uEnd);
    spectra.dataType = "Spectrum";
    EXPECT_EQ(differences(spectra, summary),
              std::vector<std::string>{"the description tells of Spectrum, the data are IQ"});
}

TEST(RecordingSummaries, WhatIsBehindTheLastFrameIsTold) {
    const std::string whole = vnktest::evenIq(2);
    EXPECT_EQ(tailText(summaryOf(whole + whole.substr(0, 300))),
              "the last frame, 300 bytes at byte 1640, is cut off");
    EXPECT_EQ(tailText(summaryOf(whole + "rubbish")), "7 bytes at byte 1640 are no frames of this kind");
    EXPECT_EQ(tailText(summaryOf(whole + vnktest::iqFrame(1, 7, {}))),
              "a frame without samples at byte 1640 ends it, 20 bytes are not played");
}

TEST(RecordingSummaries, TicksOfOtherLengthsBecomeNanoseconds) {
    EXPECT_EQ(toNanoseconds(UINT64_MAX, kNs), UINT64_MAX);
    EXPECT_NEAR(static_cast<double>(toNanoseconds(1000, static_cast<double>(1e-6f))), 1e6, 1);
    EXPECT_GT(toNanoseconds(UINT64_MAX, 1.0), uint64_t{1} << 63);
}
