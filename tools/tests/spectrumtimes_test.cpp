// When spectra of overlapping pieces begin.
#include "tools/spectrumtimes.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr double kRate = 48000;
constexpr uint64_t kSize = 1024, kStart = 1700000000000000000;
constexpr auto kDuration = static_cast<uint64_t>((kSize - 1) / kRate * 1e9 + 0.5);

/// As the library advances them.
uint64_t told(uint64_t start, uint64_t piece, uint64_t hop) {
    return start + piece * hop * static_cast<uint64_t>(kRate);
}

uint64_t expected(uint64_t start, uint64_t piece, uint64_t hop) {
    return start + static_cast<uint64_t>(std::llround(static_cast<double>(piece * hop) / kRate * 1e9));
}

}  // namespace

TEST(SpectrumTimes, ARunGoesOnByTheSamplesBetweenItsPieces) {
    for (const double dOverlap : {0.0, 0.5, 0.75}) {
        cli::SpectrumTimes times(dOverlap);
        const auto uHop = static_cast<uint64_t>((1 - dOverlap) * kSize);
        for (uint64_t u = 0; u < 200; ++u)
            EXPECT_EQ(times.correct(told(kStart, u, uHop), kDuration, kRate), expected(kStart, u, uHop)) << u;
    }
}

TEST(SpectrumTimes, SpectraThatWereLostAreCounted) {
    cli::SpectrumTimes times(0.5);
    for (const uint64_t u : std::initializer_list<uint64_t>{0, 1, 5, 6, 40})
        EXPECT_EQ(times.correct(told(kStart, u, 512), kDuration, kRate), expected(kStart, u, 512)) << u;
}

TEST(SpectrumTimes, BehindAGapTheTimeIsThatOfTheFrame) {
    cli::SpectrumTimes times(0.5);
    times.correct(kStart, kDuration, kRate);
    times.correct(told(kStart, 1, 512), kDuration, kRate);
    for (const uint64_t uAgain : {kStart + 300000123, kStart + 5}) {
        EXPECT_EQ(times.correct(uAgain, kDuration, kRate), uAgain);
        EXPECT_EQ(times.correct(told(uAgain, 1, 512), kDuration, kRate), expected(uAgain, 1, 512));
    }
}
