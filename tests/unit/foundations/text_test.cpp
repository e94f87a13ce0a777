#include "foundations/text.h"

#include <gtest/gtest.h>
#include <locale.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>

#include "foundations/clock.h"
#include "foundations/variantrecord.h"

namespace {

using namespace utils;

TEST(Text, cutsAtTheFirstAndTheLastDelimiter) {
    EXPECT_EQ(beforeFirst("a::b::c", "::"), "a");
    EXPECT_EQ(afterFirst("a::b::c", "::"), "b::c");
    EXPECT_EQ(beforeLast("a::b::c", "::"), "a::b");
    EXPECT_EQ(afterLast("a::b::c", "::"), "c");
}

TEST(Text, withoutTheDelimiterBeforeIsAllAndAfterIsNothing) {
    EXPECT_EQ(beforeFirst("abc", ":"), "abc");
    EXPECT_EQ(afterFirst("abc", ":"), "");
    EXPECT_EQ(beforeLast("abc", ":"), "abc");
    EXPECT_EQ(afterLast("abc", ":"), "");
    EXPECT_EQ(beforeFirst("", ":"), "");
    EXPECT_EQ(afterLast("", ":"), "");
}

TEST(Text, stripsTheCharactersOfASetFromEachEnd) {
    EXPECT_EQ(leftStrip("xxaxx", "x"), "axx");
    EXPECT_EQ(rightStrip("xxaxx", "x"), "xxa");
    EXPECT_EQ(strip(" \t\r\na b\n"), "a b");
    EXPECT_EQ(strip("\"\"k\"", "\""), "k");
    EXPECT_EQ(strip("    "), "");
    EXPECT_EQ(leftStrip("", "x"), "");
    EXPECT_EQ(strip("\v a \f"), "\v a \f");
}

TEST(Text, joinsWithASeparatorBetween) {
    EXPECT_EQ(join({}, ", "), "");
    EXPECT_EQ(join({"a"}, ", "), "a");
    EXPECT_EQ(join({"a", "", "b"}, ", "), "a, , b");
}

TEST(Text, takesPiecesOffTheFront) {
    std::string_view rest = "a,b,,c";
    EXPECT_EQ(takeBefore(rest, ","), "a");
    EXPECT_EQ(takeBefore(rest, ","), "b");
    EXPECT_EQ(takeBefore(rest, ","), "");
    EXPECT_EQ(takeBefore(rest, ","), "c");
    EXPECT_EQ(rest, "");
    EXPECT_EQ(takeBefore(rest, ","), "");
}

TEST(Text, formatsTextsOfAnyLength) {
    EXPECT_EQ(formatText("%d %s", -5, "x"), "-5 x");
    EXPECT_EQ(formatText("%s", ""), "");
    for (const size_t uLength : {510u, 511u, 512u, 513u, 100'000u}) {
        const std::string text(uLength, 'y');
        EXPECT_EQ(formatText("<%s>", text.c_str()), "<" + text + ">");
    }
}

TEST(Text, readsTheLeadingFloatLikeTheStandardConversion) {
    EXPECT_EQ(parseFloat("  -1.5abc"), -1.5f);
    EXPECT_EQ(parseFloat("1.2.3.4"), 1.2f);
    EXPECT_EQ(parseFloat("0x1.8p3"), 12.0f);
    EXPECT_EQ(parseFloat("infinite"), std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(*parseFloat("nan.")));
    EXPECT_EQ(parseFloat("1,5"), 1.0f);
    EXPECT_EQ(parseFloat(std::string_view("2.5xx", 3)), 2.5f);
    EXPECT_EQ(parseFloat(std::string(400, '1') + ".").has_value(), false);
    EXPECT_EQ(parseFloat(""), std::nullopt);
    EXPECT_EQ(parseFloat("-"), std::nullopt);
    EXPECT_EQ(parseFloat("e5"), std::nullopt);
}

TEST(Text, floatsOutOfRangeAreNone) {
    EXPECT_EQ(parseFloat("1e400"), std::nullopt);
    EXPECT_EQ(parseFloat("-1e39"), std::nullopt);
    EXPECT_EQ(parseFloat("1e-40"), std::nullopt) << "a denormal counts as out of range";
    EXPECT_EQ(parseFloat("1e-400"), std::nullopt);
    EXPECT_EQ(parseFloat("3.4e38"), 3.4e38f);
    EXPECT_EQ(parseFloat("0e400"), 0.0f);
    errno = 5;
    EXPECT_EQ(parseFloat("1e400"), std::nullopt);
    EXPECT_EQ(errno, 5);
}

TEST(Text, readsIntegersInsideTheirRangeOnly) {
    EXPECT_EQ(parseInt32(" \t-12x"), -12);
    EXPECT_EQ(parseInt32("+7"), 7);
    EXPECT_EQ(parseInt32("2147483647"), 2147483647);
    EXPECT_EQ(parseInt32("2147483648"), std::nullopt);
    EXPECT_EQ(parseInt32("-2147483648"), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(parseInt32("-2147483649"), std::nullopt);
    EXPECT_EQ(parseInt32(std::string(400, '9')), std::nullopt);
    EXPECT_EQ(parseInt32(std::string(400, '0') + "5"), 5);
    EXPECT_EQ(parseUnsigned32("4294967295"), 0xFFFFFFFFu);
    EXPECT_EQ(parseUnsigned32("4294967296"), std::nullopt);
    EXPECT_EQ(parseUnsigned32("-0"), 0u);
    EXPECT_EQ(parseUnsigned32("-1"), std::nullopt);
    EXPECT_EQ(parseUnsigned32("0x1F"), 0u);
    for (const char* pText : {"", " ", "-", "+", "- 1", "abc", "\xB2"}) {
        EXPECT_EQ(parseInt32(pText), std::nullopt) << pText;
        EXPECT_EQ(parseUnsigned32(pText), std::nullopt) << pText;
    }
}

/// A locale whose numbers have a decimal comma, built for the tests where the system has none installed.
class CommaLocale : public testing::Test {
 protected:
    static void SetUpTestSuite() {
        for (const char* pInstalled : {"de_DE.UTF-8", "fr_FR.UTF-8"})
            if (select(pInstalled)) {
                smcName = pInstalled;
                return;
            }
        smcFolder =
            std::filesystem::temp_directory_path() / ("vnk-locale-" + std::to_string(steadyMicroseconds()));
        std::filesystem::create_directories(smcFolder);
        const std::string command = "localedef -i de_DE -f UTF-8 --no-archive '" +
                                    (smcFolder / "xx_XX.UTF-8").string() + "' >/dev/null 2>&1";
        if (std::system(command.c_str()) == 0)
            smcName = "xx_XX.UTF-8";
    }
    static void TearDownTestSuite() {
        if (!smcFolder.empty())
            std::filesystem::remove_all(smcFolder);
    }
    void SetUp() override {
        if (!smcFolder.empty())
            setenv("LOCPATH", smcFolder.c_str(), 1);
        if (smcName.empty() || !select(smcName))
            GTEST_SKIP() << "no locale with a decimal comma can be had here";
    }
    void TearDown() override {
        std::setlocale(LC_ALL, "C");
        unsetenv("LOCPATH");
    }
    static bool select(const std::string& name) {
        return std::setlocale(LC_ALL, name.c_str()) && std::string(std::localeconv()->decimal_point) == ",";
    }
    static inline std::filesystem::path smcFolder;
    static inline std::string smcName;
};

TEST_F(CommaLocale, numbersAreReadAndWrittenWithThePoint) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%.1f", 1.5);
    ASSERT_STREQ(buffer, "1,5") << "the host's own locale is in force";
    EXPECT_EQ(formatText("%.4f", 1.25), "1.2500");
    EXPECT_EQ(parseFloat("1.25"), 1.25f);
    const VariantRecord cRecord("a:1.5");
    EXPECT_EQ(cRecord.toCompactText(), "{\"a\":1.500000}");
    std::snprintf(buffer, sizeof buffer, "%.1f", 1.5);
    EXPECT_STREQ(buffer, "1,5") << "and stays so";
}

TEST_F(CommaLocale, aThreadWithALocaleOfItsOwnKeepsIt) {
    std::thread([] {
        const locale_t cOwn = duplocale(LC_GLOBAL_LOCALE);
        ASSERT_NE(cOwn, locale_t{});
        const locale_t cBefore = uselocale(cOwn);
        EXPECT_EQ(formatText("%.1f", 2.5), "2.5");
        EXPECT_EQ(uselocale(locale_t{}), cOwn);
        uselocale(cBefore);
        freelocale(cOwn);
    }).join();
}

}  // namespace
