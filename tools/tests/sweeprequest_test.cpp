#include "tools/sweeprequest.h"

#include <gtest/gtest.h>

using namespace cli;

TEST(SweepRequest, ASpanHasTwoEdgesAndAResolution) {
    const auto span = parseSpan("88M:108M:10k");
    ASSERT_TRUE(span);
    EXPECT_EQ(span->minimumHz, 88e6);
    EXPECT_EQ(span->maximumHz, 108e6);
    EXPECT_EQ(span->rbwHz, 10e3);
    const auto wide = parseSpan("9kHz:27 GHz:1e6");
    ASSERT_TRUE(wide);
    EXPECT_EQ(wide->minimumHz, 9e3);
    EXPECT_EQ(wide->maximumHz, 27e9);
    EXPECT_EQ(wide->rbwHz, 1e6);
}

TEST(SweepRequest, WithoutAResolutionItIsAboutATwoThousandthOfTheSpan) {
    EXPECT_EQ(parseSpan("88M:108M")->rbwHz, 10e3);
    EXPECT_EQ(parseSpan("88M:1.2G")->rbwHz, 500e3);
    EXPECT_EQ(parseSpan("0:4M")->rbwHz, 2e3);
    EXPECT_EQ(parseSpan("9k:27G")->rbwHz, 1e6) << "not coarser";
    EXPECT_EQ(parseSpan("1M:1.001M")->rbwHz, 100) << "not finer";
    for (double dWidth = 300e3; dWidth < 1.9e9; dWidth *= 1.01) {
        EXPECT_GT(defaultRbw(dWidth) * 2000 / dWidth, 0.5) << dWidth;
        EXPECT_LT(defaultRbw(dWidth) * 2000 / dWidth, 1.7) << dWidth;
    }
}

TEST(SweepRequest, WhatIsNoSpanIsRefused) {
    for (const char* text : {"", ":", "88M", "88M:", ":108M", "88M:108M:", "88M:108M:10k:5", "88M-108M",
                             "a:b", "88m:108m", "-5M:10M", "88M:108M:-1k", "nan:5", "1:inf"})
        EXPECT_FALSE(parseSpan(text)) << text;
}

TEST(SweepRequest, EdgesInTheWrongOrderAreLeftForTheCallerToTell) {
    const auto span = parseSpan("108M:88M");
    ASSERT_TRUE(span);
    EXPECT_LT(span->widthHz(), 0);
}

TEST(SweepRequest, AFileNameTellsItsFormat) {
    EXPECT_EQ(formatOfName("a.csv"), SpectrumFormat::csv);
    EXPECT_EQ(formatOfName("a.jsonl"), SpectrumFormat::jsonl);
    EXPECT_EQ(formatOfName("a.ndjson"), SpectrumFormat::jsonl);
    EXPECT_EQ(formatOfName("x/y.f32"), SpectrumFormat::f32);
    EXPECT_EQ(formatOfName("-"), SpectrumFormat::csv);
    EXPECT_EQ(formatOfName("f32"), SpectrumFormat::csv);
}

TEST(SweepRequest, EachWindowHasItsLobe) {
    SweepRequest request;
    EXPECT_EQ(request.lobeBins(), 4) << "nuttall";
    request.window = "rectangular";
    EXPECT_EQ(request.lobeBins(), 1);
    request.window = "flattop";
    EXPECT_EQ(request.lobeBins(), 5);
    EXPECT_EQ(sweepWindows().size(), 12u);
}
