#include "foundations/variantrecord.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using utils::Variant;
using utils::VariantRecord;

TEST(VariantRecord, aFrozenRecordRefusesSettersAndChangesNothing) {
    VariantRecord cRecord("a:1");
    cRecord.setFrozen(true);
    EXPECT_FALSE(cRecord.set("a", 2.0f));
    EXPECT_FALSE(cRecord.set("b", int32_t{1}));
    EXPECT_FALSE(cRecord.set("b", uint32_t{1}));
    EXPECT_FALSE(cRecord.set("b", uint64_t{1}));
    EXPECT_FALSE(cRecord.set("b", true));
    EXPECT_FALSE(cRecord.set("b", "x"));
    EXPECT_FALSE(cRecord.set("b", VariantRecord()));
    EXPECT_FALSE(cRecord.set("b", std::vector<VariantRecord>(2)));
    EXPECT_FALSE(cRecord.set("b", std::list<std::string>{"x"}));
    EXPECT_FALSE(cRecord.set("b", Variant()));
    EXPECT_EQ(cRecord.toCompactText(), R"({"a":1})");
    cRecord.merge(VariantRecord("c:3"));
    EXPECT_EQ(cRecord.toCompactText(), R"({"a":1,"c":3})") << "a merge does not ask";
}

TEST(VariantRecord, theFrozenFlagGoesWithACopyAndNotWithAnAssignment) {
    VariantRecord cRecord("a:1");
    cRecord.setFrozen(true);
    VariantRecord cCopy(cRecord);
    EXPECT_TRUE(cCopy.isFrozen());
    VariantRecord cAssigned("b:2");
    cAssigned = cRecord;
    EXPECT_FALSE(cAssigned.isFrozen());
    EXPECT_EQ(cAssigned.toCompactText(), R"({"a":1})");
    EXPECT_TRUE(cCopy.parse("x:1"));
    EXPECT_TRUE(cCopy.empty()) << "a frozen record is emptied and takes nothing in";
}

TEST(VariantRecord, settersInsertAndReplaceWithTheirType) {
    VariantRecord cRecord;
    EXPECT_TRUE(cRecord.set("k", 1.5f));
    EXPECT_EQ(cRecord.find("k")->getType(), Variant::kFloat);
    EXPECT_TRUE(cRecord.set("k", int32_t{-1}));
    EXPECT_EQ(cRecord.find("k")->getType(), Variant::kInt32);
    EXPECT_EQ(cRecord.find("k")->getUnsigned64(), 0xFFFFFFFFu);
    EXPECT_TRUE(cRecord.set("k", uint32_t{1}));
    EXPECT_EQ(cRecord.find("k")->getType(), Variant::kUnsigned32);
    EXPECT_TRUE(cRecord.set("k", uint64_t{1}));
    EXPECT_EQ(cRecord.find("k")->getType(), Variant::kUnsigned64);
    EXPECT_TRUE(cRecord.set("k", true));
    EXPECT_EQ(cRecord.find("k")->getType(), Variant::kBool);
    EXPECT_TRUE(cRecord.set("k", "text"));
    EXPECT_EQ(cRecord.find("k")->getType(), Variant::kText);
    EXPECT_TRUE(cRecord.set("k", static_cast<const char*>(nullptr)));
    EXPECT_EQ(cRecord.find("k")->getText(), "");
    EXPECT_TRUE(cRecord.set("k", VariantRecord("a:1")));
    EXPECT_EQ(cRecord.find("k")->getType(), Variant::kRecord);
    EXPECT_TRUE(cRecord.set("k", std::list<std::string>{"one", "two"}));
    ASSERT_EQ(cRecord.find("k")->getArray().size(), 2u);
    EXPECT_EQ(cRecord.find("k")->getArray()[1].entries().begin()->first, "two");
    EXPECT_EQ(cRecord.find("k")->getArray()[1].entries().begin()->second.getType(), Variant::kNone);
    EXPECT_EQ(cRecord.size(), 1u);
}

TEST(VariantRecord, keysAreOrderedByBytesWithPrefixesFirst) {
    VariantRecord cRecord;
    for (const char* pKey : {"b", "ab", "a", "\xff", "B", "abc"})
        cRecord.set(pKey, uint32_t{1});
    EXPECT_EQ(cRecord.keys(), (std::list<std::string>{"B", "a", "ab", "abc", "b", "\xff"}));
}

TEST(VariantRecord, findStripsBlanksThenQuotes) {
    const VariantRecord cRecord("FCentreHz:98100000.0,\" x\":1");
    ASSERT_NE(cRecord.find(" \"FCentreHz\" "), nullptr);
    EXPECT_EQ(cRecord.find(" \"FCentreHz\" ")->getFloat(), 98100000.0f);
    EXPECT_NE(cRecord.find("\t\r\nFCentreHz\n"), nullptr);
    EXPECT_EQ(cRecord.find("\" FCentreHz\""), nullptr) << "blanks inside the quotes count";
    EXPECT_NE(cRecord.find("\" x\""), nullptr);
    EXPECT_EQ(cRecord.find("FCentre"), nullptr);
}

TEST(VariantRecord, theEmptyKeyFindsTheOnlyEntry) {
    EXPECT_EQ(VariantRecord().find(""), nullptr);
    EXPECT_EQ(VariantRecord("a:5").find("")->getUnsigned32(), 5u);
    EXPECT_EQ(VariantRecord("a:5,b:6").find(""), nullptr);
    EXPECT_EQ(VariantRecord("a:5,:6").find("")->getUnsigned32(), 6u);
    EXPECT_EQ(VariantRecord("a:5").find("\"\""), nullptr) << "only the empty key itself";
}

TEST(VariantRecord, copiesAreDeep) {
    VariantRecord cInner("x:1");
    VariantRecord cOuter;
    cOuter.set("r", cInner);
    cOuter.set("a", std::vector<VariantRecord>{cInner});
    cInner.set("x", uint32_t{2});
    const VariantRecord cCopy(cOuter);
    cOuter.clear();
    EXPECT_EQ(cCopy.toCompactText(), R"({"a":[1],"r":{"x":1}})");
    Variant cValue = *cCopy.find("r");
    const Variant& cSame = cValue;
    cValue = cSame;
    EXPECT_EQ(cValue.getRecord()->find("x")->getUnsigned32(), 1u);
    EXPECT_NE(cValue.getRecord(), cCopy.find("r")->getRecord());
}

TEST(VariantRecord, movesLeaveTheSourceEmpty) {
    VariantRecord cSource("a:{b:1}");
    VariantRecord cTarget(std::move(cSource));
    EXPECT_EQ(cTarget.toCompactText(), R"({"a":{"b":1}})");
    VariantRecord cThird("z:1");
    cThird = std::move(cTarget);
    EXPECT_EQ(cThird.toCompactText(), R"({"a":{"b":1}})");
    Variant cFirst{VariantRecord("p:1")};
    Variant cSecond(std::move(cFirst));
    ASSERT_NE(cSecond.getRecord(), nullptr);
}

template <typename T>
bool takes(T value, int32_t& iResult) {
    VariantRecord cRecord;
    cRecord.set("k", Variant(value));
    const bool bTaken = cRecord.takeInt32("k", iResult);
    EXPECT_EQ(cRecord.empty(), bTaken);
    return bTaken;
}

TEST(VariantRecord, takeInt32ConvertsWhatFits) {
    int32_t i = 99;
    EXPECT_TRUE(takes(int32_t{-7}, i));
    EXPECT_EQ(i, -7);
    EXPECT_TRUE(takes(uint32_t{0x7FFFFFFF}, i));
    EXPECT_EQ(i, 0x7FFFFFFF);
    EXPECT_TRUE(takes(uint64_t{12}, i));
    EXPECT_EQ(i, 12);
    EXPECT_TRUE(takes(int64_t{-0x80000000ll}, i));
    EXPECT_EQ(i, std::numeric_limits<int32_t>::min());
    EXPECT_TRUE(takes(5.4f, i));
    EXPECT_EQ(i, 5);
    EXPECT_TRUE(takes(-2.6f, i));
    EXPECT_EQ(i, -3);
    EXPECT_TRUE(takes(-2147483648.0f, i));
    EXPECT_EQ(i, std::numeric_limits<int32_t>::min());
    EXPECT_TRUE(takes(2147483648.0f, i)) << "the bound is inclusive";
    EXPECT_EQ(i, std::numeric_limits<int32_t>::max());
}

TEST(VariantRecord, takeInt32RefusesTheRestAndKeepsIt) {
    int32_t i = 99;
    EXPECT_FALSE(takes(uint32_t{0x80000000}, i));
    EXPECT_FALSE(takes(uint64_t{0x80000000}, i));
    EXPECT_FALSE(takes(~uint64_t{0}, i));
    EXPECT_FALSE(takes(int64_t{0x80000000ll}, i));
    EXPECT_FALSE(takes(int64_t{-0x80000001ll}, i));
    EXPECT_FALSE(takes(2147483904.0f, i));
    EXPECT_FALSE(takes(std::numeric_limits<float>::quiet_NaN(), i));
    EXPECT_FALSE(takes(-std::numeric_limits<float>::infinity(), i));
    EXPECT_FALSE(takes(true, i));
    EXPECT_FALSE(takes(std::string("5"), i));
    EXPECT_FALSE(VariantRecord().takeInt32("k", i));
    EXPECT_EQ(i, 99);
}

TEST(VariantRecord, takeTextErasesOnlyOnRequest) {
    VariantRecord cRecord("a:\"x\",n:5");
    std::string text;
    EXPECT_TRUE(cRecord.takeText(" \"a\" ", text, false));
    EXPECT_EQ(text, "x");
    EXPECT_TRUE(cRecord.takeText("a", text, true));
    EXPECT_FALSE(cRecord.takeText("a", text, true));
    EXPECT_FALSE(cRecord.takeText("n", text, true));
    EXPECT_EQ(text, "x");
    EXPECT_EQ(cRecord.size(), 1u);
}

TEST(VariantRecord, numbersOfEachTypeAreReadAsFloats) {
    VariantRecord cRecord("u:5,f:-1.5,w:18446744073709551615,b:true,t:\"1\"");
    cRecord.set("i", int32_t{-3});
    cRecord.set("l", Variant(int64_t{-4}));
    EXPECT_EQ(cRecord.getNumber("u"), 5.0f);
    EXPECT_EQ(cRecord.getNumber("f"), -1.5f);
    EXPECT_EQ(cRecord.getNumber("w"), 18446744073709551615.0f);
    EXPECT_EQ(cRecord.getNumber("i"), -3.0f);
    EXPECT_EQ(cRecord.getNumber("l"), -4.0f);
    EXPECT_EQ(cRecord.getNumber("b"), std::nullopt);
    EXPECT_EQ(cRecord.getNumber("t"), std::nullopt);
    EXPECT_EQ(cRecord.getNumber("none"), std::nullopt);
    EXPECT_EQ(cRecord.getBool("b"), true);
    EXPECT_EQ(cRecord.getBool("u"), std::nullopt);
    EXPECT_EQ(cRecord.getText("t"), "1");
    EXPECT_EQ(cRecord.getText("u"), std::nullopt);
}

TEST(VariantRecord, takesEraseWhatTheyAccept) {
    VariantRecord cRecord("u:5,b:true,t:\"1\"");
    EXPECT_EQ(cRecord.takeNumber("t"), std::nullopt);
    EXPECT_EQ(cRecord.takeBool("u"), std::nullopt);
    EXPECT_EQ(cRecord.takeText("b"), std::nullopt);
    EXPECT_EQ(cRecord.size(), 3u);
    EXPECT_EQ(cRecord.takeNumber("\"u\""), 5.0f);
    EXPECT_EQ(cRecord.takeBool("b"), true);
    EXPECT_EQ(cRecord.takeText("t"), "1");
    EXPECT_TRUE(cRecord.empty());
}

TEST(VariantRecord, keepDropsWhatTheListDoesNotName) {
    VariantRecord cRecord("a:1,b:2,c:3");
    cRecord.keep({"c", "a", "none", "c"});
    EXPECT_EQ(cRecord.toCompactText(), R"({"a":1,"c":3})");
    EXPECT_TRUE(cRecord.erase("a"));
    EXPECT_FALSE(cRecord.erase("a"));
    EXPECT_FALSE(cRecord.erase("\"c\"")) << "by the exact key";
}

TEST(VariantRecord, theDifferenceIsWhatTheOtherHasAnew) {
    const VariantRecord cOld("a:1,b:2,c:\"x\"");
    const VariantRecord cNew("b:2,c:\"y\",d:4");
    EXPECT_EQ(cOld.difference(cNew).toCompactText(), R"({"c":"y","d":4})");
    EXPECT_TRUE(cOld.difference(cOld).empty());
    VariantRecord cMerged(cOld);
    cMerged.merge(cNew);
    cMerged.merge(cMerged);
    EXPECT_EQ(cMerged.toCompactText(), R"({"a":1,"b":2,"c":"y","d":4})");
}

TEST(VariantEquality, floatsEqualFloatsOnly) {
    EXPECT_TRUE(Variant(1.0f) == Variant(1.0f));
    EXPECT_TRUE(Variant(0.0f) == Variant(-0.0f));
    EXPECT_FALSE(Variant(1.0f) == Variant(uint32_t{1}));
    const Variant cNan(std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(cNan == cNan);
}

TEST(VariantEquality, narrowIntegersCompareTheirLowHalf) {
    EXPECT_TRUE(Variant(int32_t{-1}) == Variant(uint32_t{0xFFFFFFFF}));
    EXPECT_TRUE(Variant(uint32_t{5}) == Variant(uint64_t{0x100000005}));
    EXPECT_TRUE(Variant(uint32_t{5}) == Variant(int64_t{5}));
    EXPECT_FALSE(Variant(uint32_t{5}) == Variant(5.0f));
    EXPECT_FALSE(Variant(uint32_t{1}) == Variant(true));
}

TEST(VariantEquality, wideIntegersCompareAllBits) {
    EXPECT_FALSE(Variant(uint64_t{0x100000005}) == Variant(uint32_t{5}));
    EXPECT_TRUE(Variant(uint64_t{5}) == Variant(uint32_t{5}));
    EXPECT_TRUE(Variant(int64_t{-1}) == Variant(int32_t{-1})) << "sign extended";
    EXPECT_FALSE(Variant(int64_t{-1}) == Variant(uint32_t{0xFFFFFFFF})) << "zero extended";
    EXPECT_TRUE(Variant(int64_t{-1}) == Variant(~uint64_t{0}));
    EXPECT_FALSE(Variant(uint64_t{0}) == Variant(false));
}

TEST(VariantEquality, booleansAndTextsDoNotLookAtTheRightType) {
    EXPECT_TRUE(Variant(true) == Variant(uint32_t{0x101}));
    EXPECT_FALSE(Variant(uint32_t{1}) == Variant(true));
    EXPECT_TRUE(Variant(std::string()) == Variant(uint32_t{5}));
    EXPECT_TRUE(Variant(std::string("a")) == Variant(std::string("a")));
    EXPECT_FALSE(Variant(std::string("a")) == Variant(std::string("b")));
}

TEST(VariantEquality, recordsCompareByContentAndArraysByLength) {
    EXPECT_TRUE(VariantRecord("a:{b:1}") == VariantRecord("a:{b:1}"));
    EXPECT_FALSE(VariantRecord("a:{b:1}") == VariantRecord("a:{b:2}"));
    EXPECT_FALSE(VariantRecord("a:{b:1}") == VariantRecord("a:{c:1}"));
    EXPECT_FALSE(VariantRecord("a:{b:1}") == VariantRecord("a:1"));
    EXPECT_FALSE(VariantRecord("a:1") == VariantRecord("a:1,b:2"));
    EXPECT_TRUE(VariantRecord("a:[1,2]") == VariantRecord("a:[3,4]"));
    EXPECT_FALSE(VariantRecord("a:[1,2]") == VariantRecord("a:[1,2,3]"));
    EXPECT_FALSE(VariantRecord("a:[1]") == VariantRecord("a:1"));
    EXPECT_TRUE(VariantRecord() == VariantRecord());
    EXPECT_FALSE(Variant() == Variant()) << "no value never equals";
}

}  // namespace
