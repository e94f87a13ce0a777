#include "quillon/frequencylimit.h"

#include <gmock/gmock.h>

#include "support/errorlog.h"

using Quillon::readFrequencyLimit;
using testing::ElementsAre;
using testing::IsEmpty;
using vnktest::LogLine;
using vnktest::takeLog;

TEST(QuillonFrequencyLimit, ANumberIsReadAsFarAsItGoes) {
    takeLog();
    EXPECT_EQ(readFrequencyLimit("9000\n"), 9000.0f);
    EXPECT_EQ(readFrequencyLimit("2.0E+10"), 2e10f);
    EXPECT_EQ(readFrequencyLimit("  -1.5"), -1.5f);
    EXPECT_EQ(readFrequencyLimit("+.5"), 0.5f);
    EXPECT_EQ(readFrequencyLimit("12 Hz"), 12.0f);
    EXPECT_EQ(readFrequencyLimit("0"), 0.0f);
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST(QuillonFrequencyLimit, WhatDoesNotBeginWithANumberIsInvalid) {
    for (const char* pReply : {"none", "--5", "", "-", "+", ".", "-.", "e5", "nan", "inf", "-inf", "+-5", "\n"}) {
        takeLog();
        EXPECT_EQ(readFrequencyLimit(pReply), std::nullopt) << pReply;
        EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6000, "invalid stof argument"})) << pReply;
    }
}

TEST(QuillonFrequencyLimit, WhatSinglePrecisionDoesNotHoldIsOutOfRange) {
    for (const char* pReply : {"1e99", "-1e99", "+1e39", " 9e9999\n", ".1e40"}) {
        takeLog();
        EXPECT_EQ(readFrequencyLimit(pReply), std::nullopt) << pReply;
        EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6000, "stof argument out of range"})) << pReply;
    }
}
