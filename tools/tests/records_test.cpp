#include "tools/records.h"

#include <gtest/gtest.h>

using namespace cli;

namespace {
using Assignments = std::vector<std::pair<std::string, std::string>>;
}

TEST(Records, EntriesOfThePrettyFormAreRead) {
    const auto entries = readRecord(
        "{\r\n\t\"a\":1,\r\n\t\"b\":\"x, y\",\r\n\t\"nested\":{\r\n\t\t\"description\":\"<what>\",\r\n"
        "\t\t\"max\":2.000000\r\n\t},\r\n\t\"z\":true\r\n}");
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_EQ(entries[0].key, "a");
    EXPECT_EQ(entries[0].value, "1");
    EXPECT_FALSE(entries[0].text);
    EXPECT_EQ(entries[1].value, "x, y");
    EXPECT_TRUE(entries[1].text);
    EXPECT_EQ(entries[2].value, "{\"description\":\"<what>\",\"max\":2.000000}");
    EXPECT_EQ(entries[3].value, "true");
}

TEST(Records, AnyTextIsSurvived) {
    EXPECT_TRUE(readRecord("").empty());
    EXPECT_TRUE(readRecord("{\r\n}").empty());
    EXPECT_TRUE(readRecord("no record at all").empty());
    EXPECT_TRUE(readRecord("\t\"").empty());
    EXPECT_TRUE(readRecord("\t\"key without colon\"").empty());
    EXPECT_EQ(readRecord("\t\"a\":\"one quote").at(0).value, "\"one quote");
    EXPECT_EQ(readRecord("\t\"a\":").at(0).value, "");
}

TEST(Records, DescriptionsLoseTheirBrackets) {
    EXPECT_EQ(schemaDescription({"k", "<GNSS data>", true}), "GNSS data");
    EXPECT_EQ(schemaDescription({"k", "{\"description\":\"<delay>\",\"units\":\"ns\"}", false}), "delay");
    EXPECT_EQ(schemaDescription({"k", "{\"units\":\"ns\"}", false}), "");
    EXPECT_EQ(schemaDescription({"k", "", true}), "");
}

TEST(Records, AssignmentsSplitAtTheFirstEqualsSign) {
    EXPECT_EQ(splitAssignment("pllSource=external")->first, "pllSource");
    EXPECT_EQ(splitAssignment("a=b=c")->second, "b=c");
    EXPECT_EQ(splitAssignment("a=")->second, "");
    EXPECT_EQ(splitAssignment("a=\"42\"")->second, "\"42\"");
}

TEST(Records, AssignmentsThatWouldBreakTheTextFormAreRefused) {
    for (const char* text : {"", "a", "=1", "a\"b=1", "a:b=1", "a={", "a=x\"y", "a=\"x\"y\"", "a=}"})
        EXPECT_FALSE(splitAssignment(text)) << text;
}

TEST(Records, ValuesGetTheKindThatTheyLookLike) {
    EXPECT_EQ(recordText(Assignments{{"a", "true"}, {"b", "20"}, {"c", "1.5"}, {"d", "external"}}),
              "{\"a\":true,\"b\":20,\"c\":1.500000,\"d\":\"external\"}");
    EXPECT_EQ(recordText(Assignments{{"a", "98.1M"}, {"b", "-30dBm"}, {"c", "\"42\""}}),
              "{\"a\":98100000.000000,\"b\":-30.000000,\"c\":\"42\"}");
    EXPECT_EQ(recordText({}), "{}");
}

TEST(Records, NegativeWholeNumbersBecomeFloats) {
    // The record's form reads -5 as a text.
    EXPECT_EQ(recordText(Assignments{{"a", "-5"}}), "{\"a\":-5.000000}");
}

TEST(Records, WordsWithAnEAreQuoted) {
    // Bare, the record's form would drop them.
    EXPECT_EQ(recordText(Assignments{{"a", "once"}, {"b", "192.168.0.1"}}),
              "{\"a\":\"once\",\"b\":\"192.168.0.1\"}");
}
