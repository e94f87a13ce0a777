#include "tools/recordingdescription.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "recordings.h"

using namespace cli;

namespace {

const char* const kText =
    "{\r\n\t\"DataType\":\"IQ\",\r\n\t\"IQ\":{\r\n\t\t\"EndTimestamp\":18446744073709551615,\r\n"
    "\t\t\"Samples\":256032,\r\n\t\t\"TimeResolution\":\"ns\"\r\n\t},\r\n\t\"Sampling\":{\r\n"
    "\t\t\"FCentreHz\":114850000.000000,\r\n\t\t\"RefdBm\":-30.000000,\r\n\t\t\"units\":\"sqrt-mw\"\r\n\t},"
    "\r\n"
    "\t\"source\":\"C:\\new \\\"\r\n}";

}  // namespace

TEST(RecordingDescriptions, AreReadAndWrittenTheSame) {
    const RecordingDescription description = parseDescription(kText);
    ASSERT_TRUE(description.isGood()) << description.problem;
    EXPECT_EQ(description.type(), DataType::iq);
    EXPECT_EQ(countOf(description.summary, "EndTimestamp"), 18446744073709551615u);
    EXPECT_EQ(numberOf(description.sampling, "RefdBm"), -30.0);
    EXPECT_EQ(textOf(description.sampling, "units"), "sqrt-mw");
    EXPECT_EQ(description.source, "C:\\new \\");
    EXPECT_EQ(description.text(), kText);
}

TEST(RecordingDescriptions, WhatIsMissingOrOfAnotherTypeIsNotThere) {
    const RecordingDescription description = parseDescription(
        "{\"DataType\":\"IQ\",\"IQ\":{\"Samples\":-5,\"TimeResolution\":7},\"Sampling\":{\"FCentreHz\":\"x\"}"
        "}");
    ASSERT_TRUE(description.isGood());
    EXPECT_FALSE(countOf(description.summary, "Samples"));
    EXPECT_FALSE(numberOf(description.sampling, "FCentreHz"));
    EXPECT_FALSE(numberOf(description.sampling, "RefdBm"));
    EXPECT_FLOAT_EQ(static_cast<float>(description.secondsPerTick()), 1e-3f)
        << "without one it is milliseconds";
}

TEST(RecordingDescriptions, TextsThatAreNoneAreToldApart) {
    EXPECT_EQ(parseDescription("").state, DescriptionState::empty);
    EXPECT_EQ(parseDescription("{\r\n}").problem, "that of a recording without any frame");
    const std::string whole = kText;
    for (size_t uSize = 1; uSize < whole.size(); ++uSize)
        EXPECT_EQ(parseDescription(whole.substr(0, uSize)).state, DescriptionState::notUnderstood) << uSize;
    EXPECT_EQ(parseDescription("{\"DataType\":\"IQ\",\"Sampling\":{}}").state,
              DescriptionState::notUnderstood);
    EXPECT_EQ(parseDescription("[1,2]").state, DescriptionState::notUnderstood);
    EXPECT_EQ(parseDescription("\xff\xfe").state, DescriptionState::notUnderstood);
}

TEST(RecordingDescriptions, DeepNestingCostsNoStack) {
    std::string text = "{\"DataType\":\"IQ\",\"IQ\":{},\"Sampling\":{},\"source\":";
    for (int i = 0; i < 200000; ++i)
        text += "{\"a\":";
    text += "1" + std::string(200001, '}');
    const RecordingDescription description = parseDescription(text);
    EXPECT_TRUE(description.isGood());
    EXPECT_LT(description.text().size(), 2000u);
}

TEST(RecordingDescriptions, FilesThatAreNoneAreToldApart) {
    const vnktest::ScratchFolder folder;
    EXPECT_EQ(readDescription(folder / "x.json").state, DescriptionState::missing);
    vnktest::writeFile(folder / "x.json", "");
    EXPECT_EQ(readDescription(folder / "x.json").state, DescriptionState::empty);
    EXPECT_EQ(readDescription(folder.path()).state, DescriptionState::unreadable);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(readDescription(folder / "pipe").state, DescriptionState::unreadable);
    vnktest::writeFile(folder / "x.json", kText);
    EXPECT_TRUE(readDescription(folder / "x.json").isGood());
}

TEST(RecordingDescriptions, ThePrettyForm) {
    EXPECT_EQ(prettyRecord(nlohmann::json::object()), "{\r\n}");
    EXPECT_EQ(prettyRecord({{"b", true}, {"a", 0.1}, {"c", {{"d", 5u}}}}),
              "{\r\n\t\"a\":0.100000,\r\n\t\"b\":true,\r\n\t\"c\":{\r\n\t\t\"d\":5\r\n\t}\r\n}");
}
