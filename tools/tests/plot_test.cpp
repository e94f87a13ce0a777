#include "tools/plot.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace cli;

namespace {

Spectrum flat(size_t bins, double dbm) {
    Spectrum spectrum;
    spectrum.centreHz = 100e6;
    spectrum.binHz = 1000;
    spectrum.noiseBandwidthHz = 1500;
    spectrum.averages = 1;
    spectrum.dbm.assign(bins, dbm);
    return spectrum;
}

size_t characters(const std::string& text) {
    size_t uCount = 0;
    for (const char c : text)
        uCount += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return uCount;
}

}  // namespace

TEST(Plot, TheDrawingKeepsToItsSize) {
    for (const bool bUnicode : {true, false})
        for (const size_t uWidth : {60u, 80u, 160u}) {
            Spectrum spectrum = flat(1024, -120);
            spectrum.dbm[512] = -40;
            const auto lines = drawSpectrum(spectrum, 99.6e6, 100.4e6, {uWidth, 14, bUnicode});
            ASSERT_EQ(lines.size(), 16u);
            for (const std::string& line : lines)
                EXPECT_LE(characters(line), uWidth) << line;
        }
}

TEST(Plot, AsciiMeansAscii) {
    Spectrum spectrum = flat(1024, -120);
    spectrum.dbm[300] = -47;
    for (const std::string& line : drawSpectrum(spectrum, 99.6e6, 100.4e6, {80, 14, false}))
        for (const char c : line)
            EXPECT_LT(static_cast<unsigned char>(c), 0x80) << line;
}

TEST(Plot, APeakStandsInItsColumn) {
    Spectrum spectrum = flat(1024, -120);
    spectrum.dbm[512 + 200] = -40;  // 200 kHz above the centre: three quarters of the span
    const auto lines = drawSpectrum(spectrum, 99.6e6, 100.4e6, {87, 12, false});
    const auto uColumn = lines[1].find_first_of("|:.", 7);
    ASSERT_NE(uColumn, std::string::npos) << lines[1];
    EXPECT_NEAR(static_cast<double>(uColumn - 7), 60, 1);
    EXPECT_EQ(lines[1].find_first_of("|:.", uColumn + 1), std::string::npos) << "one column only";
}

TEST(Plot, MarksStandNumberedOverTheirColumns) {
    for (const bool bUnicode : {true, false}) {
        Spectrum spectrum = flat(1024, -120);
        spectrum.dbm[512 - 200] = -60;
        spectrum.dbm[512 + 200] = -40;
        const auto lines = drawSpectrum(spectrum, 99.6e6, 100.4e6, {87, 12, bUnicode, {100.2e6, 99.8e6}});
        ASSERT_EQ(lines.size(), 14u);
        for (const auto& [cMark, uColumn] : {std::pair{'1', 60u}, std::pair{'2', 20u}}) {
            size_t uLine = 0;
            while (uLine < 12 && lines[uLine].find(cMark, 7) == std::string::npos)
                ++uLine;
            ASSERT_LT(uLine, 12u) << cMark;
            EXPECT_NEAR(static_cast<double>(characters(lines[uLine].substr(0, lines[uLine].find(cMark, 7))) - 7), uColumn, 1);
            // Right above the column, and nothing higher in it.
            EXPECT_GT(lines[uLine + 1].size(), lines[uLine].find(cMark, 7)) << lines[uLine + 1];
        }
    }
}

TEST(Plot, MarksThatTouchOrStandOutsideAreLeftOut) {
    const Spectrum spectrum = flat(1024, -100);
    const auto lines = drawSpectrum(spectrum, 99.6e6, 100.4e6, {87, 12, false, {100e6, 100.001e6, 99e6, 101e6, 100.4e6}});
    std::string text;
    for (size_t i = 0; i < 12; ++i)
        text += lines[i].substr(7);
    EXPECT_NE(text.find('1'), std::string::npos);
    for (const char cMark : {'2', '3', '4', '5'})
        EXPECT_EQ(text.find(cMark), std::string::npos) << cMark;
}

TEST(Plot, AxisNamesEdgesAndCentre) {
    const auto lines = drawSpectrum(flat(1024, -100), 99.6e6, 100.4e6, {80, 14, true});
    for (const char* label : {"99.6 MHz", "100 MHz", "100.4 MHz"})
        EXPECT_NE(lines.back().find(label), std::string::npos) << lines.back();
}

TEST(Plot, NothingToDrawGivesNoLines) {
    EXPECT_TRUE(drawSpectrum(Spectrum{}, 1, 2, {}).empty());
    EXPECT_TRUE(drawSpectrum(flat(64, -100), 2, 1, {}).empty());
    EXPECT_TRUE(drawSpectrum(flat(64, -100), 1, 1, {}).empty());
    EXPECT_TRUE(drawSpectrum(flat(64, -100), 1, 2, {80, 0, true}).empty());
    Spectrum unmeasured = flat(64, -1000);
    unmeasured.averages = 0;
    EXPECT_TRUE(drawSpectrum(unmeasured, 1, 2, {}).empty());
}

TEST(Plot, MoreColumnsThanBins) {
    Spectrum spectrum = flat(16, -100);
    spectrum.dbm[8] = -50;
    const auto lines = drawSpectrum(spectrum, 99.993e6, 100.007e6, {160, 14, true});
    EXPECT_EQ(lines.size(), 16u);
}

TEST(Plot, ASpanBeyondTheSpectrumIsEmptyThere) {
    const auto lines = drawSpectrum(flat(64, -100), 0, 1e9, {80, 14, false});
    EXPECT_EQ(lines.size(), 16u);
}

TEST(Plot, TheCharacterSetFollowsTheEnvironment) {
    ::unsetenv("LC_ALL");
    ::unsetenv("LC_CTYPE");
    ::setenv("LANG", "en_GB.UTF-8", 1);
    EXPECT_TRUE(terminalIsUnicode());
    ::setenv("LC_ALL", "C", 1);
    EXPECT_FALSE(terminalIsUnicode());
    ::setenv("LC_ALL", "C.utf8", 1);
    EXPECT_TRUE(terminalIsUnicode());
    ::unsetenv("LC_ALL");
    ::unsetenv("LANG");
    EXPECT_FALSE(terminalIsUnicode());
}
