#include "tools/units.h"

#include <gtest/gtest.h>

#include <clocale>

using namespace cli;

TEST(Units, FrequenciesTakePrefixAndUnit) {
    EXPECT_DOUBLE_EQ(*parseFrequency("98.1M"), 98.1e6);
    EXPECT_DOUBLE_EQ(*parseFrequency("2.4GHz"), 2.4e9);
    EXPECT_DOUBLE_EQ(*parseFrequency("2.4 GHz"), 2.4e9);
    EXPECT_DOUBLE_EQ(*parseFrequency("200k"), 200e3);
    EXPECT_DOUBLE_EQ(*parseFrequency("9kHz"), 9e3);
    EXPECT_DOUBLE_EQ(*parseFrequency("98100000"), 98.1e6);
    EXPECT_DOUBLE_EQ(*parseFrequency("1.09e9Hz"), 1.09e9);
    EXPECT_DOUBLE_EQ(*parseFrequency(" +50M "), 50e6);
}

TEST(Units, WhatIsNoFrequencyIsRefused) {
    for (const char* text :
         {"", "M", "98.1m", "98.1Mx", "98,1M", "1 2", "nan", "inf", "1e999", "98.1dBm", "+-5", "++5"})
        EXPECT_FALSE(parseFrequency(text)) << text;
}

TEST(Units, LevelsGainsAndDurations) {
    EXPECT_DOUBLE_EQ(*parseLevel("-30"), -30);
    EXPECT_DOUBLE_EQ(*parseLevel("-30dBm"), -30);
    EXPECT_DOUBLE_EQ(*parseLevel("-30.5 dBm"), -30.5);
    EXPECT_FALSE(parseLevel("-30dB"));
    EXPECT_DOUBLE_EQ(*parseGain("3dB"), 3);
    EXPECT_DOUBLE_EQ(*parseDuration("5"), 5);
    EXPECT_DOUBLE_EQ(*parseDuration("200ms"), 0.2);
    EXPECT_DOUBLE_EQ(*parseDuration("2min"), 120);
    EXPECT_FALSE(parseDuration("5 weeks"));
}

TEST(Units, FormattingPicksThePrefixAndCutsZeros) {
    EXPECT_EQ(formatFrequency(98.1e6), "98.1 MHz");
    EXPECT_EQ(formatFrequency(2.4e9), "2.4 GHz");
    EXPECT_EQ(formatFrequency(0), "0 Hz");
    EXPECT_EQ(formatFrequency(999.5), "999.5 Hz");
    EXPECT_EQ(formatFrequency(1e6), "1 MHz");
    EXPECT_EQ(formatFrequency(114850030), "114.85003 MHz");
    EXPECT_EQ(formatSI(-30, "dBm"), "-30 dBm");
    EXPECT_EQ(formatSI(122070.3125, "S/s"), "122.070312 kS/s");
}

TEST(Units, FixedFormIsDefinedForEveryValue) {
    EXPECT_EQ(formatFixed(-13.26, 1), "-13.3");
    EXPECT_EQ(formatFixed(1e300, 0).size(), 301u);
    EXPECT_EQ(formatFixed(std::numeric_limits<double>::quiet_NaN(), 1), "-");
    EXPECT_EQ(formatFixed(std::numeric_limits<double>::infinity(), 1), "-");
}

TEST(Units, TheLocaleDoesNotMatter) {
    // Skips nothing where the locale is missing: then the calls run in the C locale, as everywhere.
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    EXPECT_DOUBLE_EQ(*parseFrequency("98.1M"), 98.1e6);
    EXPECT_EQ(formatFixed(1.5, 1), "1.5");
    std::setlocale(LC_ALL, "C");
}

TEST(Units, ParseAndFormatAgree) {
    for (const double dValue : {9e3, 50e6, 98.1e6, 1.09e9, 26.5e9})
        EXPECT_DOUBLE_EQ(*parseFrequency(formatFrequency(dValue)), dValue);
}

TEST(Units, TimesBytesAndDurationsForPeople) {
    EXPECT_EQ(formatTime(1700000000123456789), "2023-11-14 22:13:20.123456789 UTC");
    EXPECT_EQ(formatTime(0), "1970-01-01 00:00:00.000000000 UTC");
    EXPECT_EQ(formatTime(UINT64_MAX), "2554-07-21 23:34:33.709551615 UTC");
    EXPECT_EQ(formatBytes(0), "0 bytes");
    EXPECT_EQ(formatBytes(1), "1 byte");
    EXPECT_EQ(formatBytes(2048676), "2.05 MB");
    EXPECT_EQ(formatBytes(3500000000000), "3.5 TB");
    EXPECT_EQ(formatDuration(1.5), "1.500 s");
    EXPECT_EQ(formatDuration(300), "5.0 min");
    EXPECT_EQ(formatDuration(86400), "24.0 h");
    EXPECT_EQ(formatDuration(30 * 86400.0), "30 days");
}
