#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "foundations/variantrecord.h"
#include "unit/foundations/recordmodel.h"

namespace {

using utils::parseScalar;
using utils::Variant;
using utils::VariantRecord;

VariantRecord parsed(std::string_view text) {
    VariantRecord cRecord;
    EXPECT_TRUE(cRecord.parse(text));
    return cRecord;
}

std::string compact(std::string_view text) {
    return parsed(text).toCompactText();
}

/// The one value of a text of one key.
Variant value(const std::string& text) {
    const VariantRecord cRecord = parsed("k:" + text);
    const Variant* pValue = cRecord.find("k");
    return pValue ? *pValue : Variant();
}

TEST(RecordText, theFourCommonTypesComeBackAsTheyWere) {
    const VariantRecord cRecord = parsed(R"({"a":1,"b":"x","c":true,"d":1.5})");
    EXPECT_EQ(cRecord.find("a")->getType(), Variant::kUnsigned32);
    EXPECT_EQ(cRecord.find("b")->getType(), Variant::kText);
    EXPECT_EQ(cRecord.find("c")->getType(), Variant::kBool);
    EXPECT_EQ(cRecord.find("d")->getType(), Variant::kFloat);
    EXPECT_EQ(cRecord.toCompactText(), R"({"a":1,"b":"x","c":true,"d":1.500000})");
}

TEST(RecordText, bracesAndQuotesOfKeysAreOptional) {
    EXPECT_EQ(compact("{a:5}"), R"({"a":5})");
    EXPECT_EQ(compact("a:5"), R"({"a":5})");
    EXPECT_EQ(compact(R"({"a":5})"), R"({"a":5})");
    EXPECT_EQ(compact(" ,\t{ \"a\" : 5 ,\r\n} "), "{\"a\" \":5}")
        << "a blank before the colon stays in the key";
}

TEST(RecordText, integersTakeTheNarrowestUnsignedType) {
    EXPECT_EQ(value("4294967295").getType(), Variant::kUnsigned32);
    EXPECT_EQ(value("4294967295").getUnsigned32(), 0xFFFFFFFFu);
    EXPECT_EQ(value("4294967296").getType(), Variant::kUnsigned64);
    EXPECT_EQ(value("4294967296").getUnsigned64(), uint64_t{1} << 32);
    EXPECT_EQ(value("18446744073709551615").getUnsigned64(), ~uint64_t{0});
    EXPECT_EQ(value("18446744073709551616").getType(), Variant::kUnsigned64);
    EXPECT_EQ(value("18446744073709551616").getUnsigned64(), 0u);
    EXPECT_EQ(value(std::string(400, '9')).getUnsigned64(), 0u);
    EXPECT_EQ(value(std::string(400, '0') + "7").getUnsigned32(), 7u);
    EXPECT_EQ(value("2147483648").getType(), Variant::kUnsigned32);
}

TEST(RecordText, hexadecimalFormsAreZero) {
    for (const char* pText : {"0x1F", "0X1f", "0x", "0xFFFFFFFFFFFFFFFFFF"}) {
        EXPECT_EQ(value(pText).getType(), Variant::kUnsigned32) << pText;
        EXPECT_EQ(value(pText).getUnsigned32(), 0u) << pText;
    }
    EXPECT_EQ(value("0x1G").getType(), Variant::kText);
    EXPECT_EQ(value("0xe").getFloat(), 14.0f) << "an e makes it a float";
}

TEST(RecordText, negativeIntegersAreTextsAndNegativeFloatsAreFloats) {
    EXPECT_EQ(value("-5").getType(), Variant::kText);
    EXPECT_EQ(value("-5").getText(), "-5");
    EXPECT_EQ(value("-5.5").getType(), Variant::kFloat);
    EXPECT_EQ(value("-5.5").getFloat(), -5.5f);
    EXPECT_EQ(value("-").getText(), "-");
}

TEST(RecordText, aBareWordWithAnEOrAPointMustBeANumber) {
    EXPECT_EQ(compact("a:hello,b:world"), R"({"b":"world"})");
    EXPECT_EQ(compact("WindowType:Kaiser,x:1"), R"({"x":1})");
    EXPECT_EQ(compact("a:1e400,b:1e-40,c:.,d:e"), "{}");
    EXPECT_EQ(value("True").getType(), Variant::kNone) << "the comparison is case-sensitive";
    EXPECT_EQ(value("TRUE").getText(), "TRUE");
    EXPECT_EQ(value("1.2.3.4").getFloat(), 1.2f);
}

TEST(RecordText, whatTheStandardConversionTakesIsTaken) {
    EXPECT_TRUE(std::isnan(value("nan.").getFloat()));
    EXPECT_TRUE(std::isinf(value("inf.").getFloat()));
    EXPECT_TRUE(std::isnan(value("nan(e)").getFloat()));
    EXPECT_EQ(value("0x1.8p3").getFloat(), 12.0f);
    EXPECT_EQ(value("nan").getType(), Variant::kText);
}

TEST(RecordText, anEmptyValueIsAWideZero) {
    EXPECT_EQ(value("").getType(), Variant::kUnsigned64);
    EXPECT_EQ(value("").getUnsigned64(), 0u);
    EXPECT_EQ(compact("just words"), R"({"just words":0})");
    EXPECT_EQ(compact(":5"), R"({"":5})");
}

TEST(RecordText, quotesKeepCommasAndColonsAndEndAtTheNextQuote) {
    EXPECT_EQ(value("\"a,b:c\"").getText(), "a,b:c");
    EXPECT_EQ(compact(R"(a:"x\"y",b:1)"), R"({"a":"x\","b":1})");
    EXPECT_EQ(compact(R"(a:"x" dropped,b:1)"), R"({"a":"x","b":1})");
    EXPECT_EQ(compact(R"(a:"no end,b:1)"), R"({"a":"no end,b:1"})");
    EXPECT_EQ(value("\"\"").getType(), Variant::kText);
    EXPECT_EQ(value("\"").getText(), "");
}

TEST(RecordText, bracketsInsideQuotesUpsetTheBlockScan) {
    EXPECT_EQ(compact(R"(a:"{[(",b:1)"), R"({"a":"{[(","b":1})") << "a quoted value is no block";
    EXPECT_EQ(compact(R"(a:[{"x":"}"},{"y":2}])"), R"({"a":["","}",2]})");
    EXPECT_EQ(compact(R"(a:{"x":"}"},b:1)"), R"({"a":{"x":""},"},b":1})");
}

TEST(RecordText, arraysHoldScalarsTextsAndRecords) {
    const VariantRecord cRecord = parsed(R"("a":[1,2,3])");
    const auto& cArray = cRecord.find("a")->getArray();
    ASSERT_EQ(cArray.size(), 3u);
    EXPECT_EQ(cArray[2].entries().begin()->first, "");
    EXPECT_EQ(cArray[2].find("")->getUnsigned32(), 3u);
    EXPECT_EQ(cRecord.toCompactText(), R"({"a":[1,2,3]})");
    EXPECT_EQ(compact(R"("a":[{"x":1},{"x":2}])"), R"({"a":[1,2]})");
    EXPECT_EQ(compact(R"("a":[{"x":1,"y":2}])"), R"({"a":[]})");
    EXPECT_EQ(compact(R"("a":[{"x":1,"y":2},{},3])"), R"({"a":[,,3]})");
    EXPECT_EQ(compact(R"(a:["x","y"])"), R"({"a":["x","y"]})");
    EXPECT_EQ(compact("a:[]"), R"({"a":[]})");
    EXPECT_EQ(compact("a:[ ]"), R"({"a":[0]})");
    EXPECT_EQ(compact("a:[1,]"), R"({"a":[1]})");
}

TEST(RecordText, anArrayItemThatIsNoScalarStaysWithoutAValue) {
    const VariantRecord cRecord = parsed("a:[hello,1]");
    ASSERT_EQ(cRecord.find("a")->getArray().size(), 2u);
    EXPECT_EQ(cRecord.find("a")->getArray()[0].find("")->getType(), Variant::kNone);
    EXPECT_EQ(cRecord.toCompactText(), R"({"a":["",1]})");
}

TEST(RecordText, anArrayInAnArrayBecomesARecordOfItsText) {
    const VariantRecord cRecord = parsed("a:[[1,2],3]");
    const auto& cArray = cRecord.find("a")->getArray();
    ASSERT_EQ(cArray.size(), 2u);
    EXPECT_EQ(cArray[0].entries().begin()->first, "[1,2]");
    EXPECT_EQ(cArray[0].find("")->getType(), Variant::kUnsigned64);
}

TEST(RecordText, nestedRecordsKeepTheirTypes) {
    EXPECT_EQ(compact("a:{b:{c:1,d:[{e:{f:2}}]}},g:3"), R"({"a":{"b":{"c":1,"d":[{"f":2}]}},"g":3})");
    EXPECT_EQ(compact("a:{}"), R"({"a":{}})");
    EXPECT_EQ(compact(R"(a:[{"x":[1,2]}])"), R"({"a":[[{"":1},{"":2}]]})");
}

TEST(RecordText, parenthesesDropTheirKey) {
    EXPECT_EQ(compact("a:(b:1,c:2),d:3"), R"({"d":3})");
    EXPECT_EQ(compact("a:[(b:1)]"), "{\"a\":[\"1)\"]}") << "inside an array they are part of a key";
}

TEST(RecordText, aMissingClosingBracketTurnsTheRestIntoAScalar) {
    EXPECT_EQ(compact("a:[1,b:2"), R"({"a":"[1","b":2})");
    EXPECT_EQ(compact("a:{b:1,c:2"), R"({"a":"{b:1","c":2})");
    EXPECT_EQ(compact("a:{"), R"({"a":"{"})");
}

TEST(RecordText, anotherParseReplacesAll) {
    VariantRecord cRecord("a:1,b:2");
    EXPECT_TRUE(cRecord.parse("c:3"));
    EXPECT_EQ(cRecord.toCompactText(), R"({"c":3})");
    EXPECT_TRUE(cRecord.parse(""));
    EXPECT_TRUE(cRecord.empty());
    EXPECT_TRUE(VariantRecord(nullptr).empty());
    EXPECT_EQ(VariantRecord("a:1,a:2,\"a\":3").toCompactText(), R"({"a":3})");
}

TEST(RecordText, aFailedScalarLeavesTheVariantAsItWas) {
    Variant cValue(uint32_t{7});
    EXPECT_FALSE(parseScalar("Kaiser", cValue));
    EXPECT_EQ(cValue.getUnsigned32(), 7u);
    EXPECT_TRUE(parseScalar(" true ", cValue));
    EXPECT_TRUE(cValue.getBool());
}

TEST(RecordText, thePrettyFormHasALineForEachValue) {
    EXPECT_EQ(
        parsed("a:1,b:{c:2},d:[3,4]").toPrettyText(),
        "{\r\n\t\"a\":1,\r\n\t\"b\":{\r\n\t\t\"c\":2\r\n\t},\r\n\t\"d\":[\r\n\t\t3,\r\n\t\t4\r\n\t]\r\n}");
    EXPECT_EQ(VariantRecord().toPrettyText(), "{\r\n}");
    EXPECT_EQ(VariantRecord().toCompactText(), "{}");
}

TEST(RecordText, nestedElementsAreIndentedTwiceWithQuotedKeys) {
    std::string output = "old";
    parsed("a:[{x:{y:1}}]").format(output, false, "__", false);
    EXPECT_EQ(output, "{\r\n__\ta:[\r\n__\t\t{\r\n__\t\t\t\"y\":1\r\n__\t\t}\r\n__\t]\r\n__}");
}

TEST(RecordText, theIndentIsWrittenInTheCompactFormToo) {
    std::string output;
    parsed("a:1,b:2").format(output, true, " ", false);
    EXPECT_EQ(output, "{ a:1, b:2 }");
}

TEST(RecordText, everyTypeHasItsForm) {
    VariantRecord cRecord;
    cRecord.set("a", 2.45e9f);
    cRecord.set("b", int32_t{-5});
    cRecord.set("c", uint32_t{0xFFFFFFFF});
    cRecord.set("d", Variant(int64_t{-1}));
    cRecord.set("e", ~uint64_t{0});
    cRecord.set("f", false);
    cRecord.set("g", "qu\"ote");
    cRecord.set("h", Variant());
    cRecord.set("i", std::list<std::string>{"x", "y z"});
    EXPECT_EQ(cRecord.toCompactText(),
              R"({"a":2449999872.000000,"b":-5,"c":4294967295,"d":-1,"e":18446744073709551615,)"
              R"("f":false,"g":"qu"ote","h":"","i":["x","y z"]})");
    std::string output;
    cRecord.format(output, true, "", false);
    EXPECT_NE(output.find("i:[x,y z]"), std::string::npos) << output;
}

TEST(RecordText, oneElementIsFormattedByItself) {
    const VariantRecord cRecord("a:[1,{x:{y:2}},{p:1,q:2}]");
    const auto& cArray = cRecord.find("a")->getArray();
    EXPECT_EQ(VariantRecord::formatElement(cArray[0], true, "", true), "1");
    EXPECT_EQ(VariantRecord::formatElement(cArray[1], true, "", false), R"({"y":2})");
    EXPECT_EQ(VariantRecord::formatElement(cArray[2], true, "", true), "");
}

TEST(RecordText, bytesAbove127AndZeroBytesAreData) {
    const std::string text("k\x80:\xff\0\xfe,n:1", 10);
    const VariantRecord cRecord = parsed(text);
    EXPECT_EQ(cRecord.find("k\x80")->getText(), std::string("\xff\0\xfe", 3));
    EXPECT_EQ(cRecord.find("n")->getUnsigned32(), 1u);
}

TEST(RecordText, awkwardTextsReadAsTheModelReadsThem) {
    for (const char* pText : {
             "{{{{",
             "}}}}",
             "{a:1}}}",
             "a:1},{b:2},{c:3}",
             "{a:1,{b:2,{c:3",
             "a:[}],b:{]}",
             "{a:[{b:[{c:[1]}]}]}",
             "a:[{x:1}garbage,2]",
             "a:{b:1}garbage,c:2",
             "\"a\":\"\"\"b\"",
             "a:[[x:[[y:1]]]]",
             "{,a:1,}",
             "[1,2]",
             "(a:1)",
             "[a:{b:1}]",
             "a:\"x\"\"x\",b:1",
             "a:[\"x,y\",z]",
             ",,,a:1,,,b:2,,,",
             "a::b::c",
             "a:{,b:1,}",
         })
        EXPECT_EQ(recordmodel::difference(pText, "  "), "") << pText;
}

}  // namespace
