#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "unit/foundations/recordmodel.h"

namespace {

rc::Gen<std::string> tokens(std::vector<std::string> cTokens) {
    return rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(std::move(cTokens))),
                        [](const std::vector<std::string>& cPieces) {
                            std::string text;
                            for (const auto& piece : cPieces)
                                text += piece;
                            return text;
                        });
}

void expectAgreement(const std::string& text) {
    const std::string difference = recordmodel::difference(text, "  ");
    if (!difference.empty())
        RC_FAIL(difference);
}

}  // namespace

RC_GTEST_PROP(VariantProperties, bracketsAndSeparatorsReadAsTheModelReadsThem, ()) {
    expectAgreement(
        *tokens({"{", "}", "[", "]", "(", ")", ":", ",", "\"", " ", "\t", "\r\n", "a", "b", "1"}));
}

RC_GTEST_PROP(VariantProperties, likelyTextsReadAsTheModelReadsThem, ()) {
    expectAgreement(*tokens({"{",  "}",  "[", "]",   "\"a\":", "b:",    ",",  "\"x\"", "{\"c\":", "[{",
                             "}]", "},", "1", "2.5", "true",   "[1,2]", ":[", ":{",    "\"",      " "}));
}

RC_GTEST_PROP(VariantProperties, scalarsReadAsTheModelReadsThem, ()) {
    expectAgreement("k:" + *tokens({"0",
                                    "1",
                                    "9",
                                    "42949672",
                                    "18446744073709551615",
                                    ".",
                                    "e",
                                    "E",
                                    "-",
                                    "+",
                                    "0x",
                                    "F",
                                    "inf",
                                    "nan",
                                    "nan(",
                                    ")",
                                    "true",
                                    "false",
                                    "p3",
                                    "\"",
                                    " ",
                                    "\x80",
                                    "\xff",
                                    std::string(1, '\0'),
                                    "x",
                                    "\v"}));
}

RC_GTEST_PROP(VariantProperties, anyBytesReadAsTheModelReadsThem, (const std::string& text)) {
    expectAgreement(text);
}

RC_GTEST_PROP(VariantProperties, aParsedRecordEqualsItsCopy, ()) {
    const utils::VariantRecord record(
        (*tokens({"{", "}", "a:", "b:", "c:", "1", "2.5", "\"x\"", ",", "[", "]", "true"})).c_str());
    const utils::VariantRecord copy(record);
    RC_ASSERT(record.toCompactText() == copy.toCompactText());
    RC_ASSERT(record.size() == copy.size());
    RC_ASSERT(record == copy);
    RC_ASSERT(record.difference(copy).empty());
}

TEST(VariantProperties, largeUnorderedRecordsReadAsTheModelReadsThem) {
    std::mt19937 cRandom(7);
    for (int iRound = 0; iRound < 5; ++iRound) {
        std::string text;
        for (int i = 0; i < 1500; ++i) {
            // Short keys repeat, long ones agree in their first eight bytes and more.
            text += cRandom() % 2 ? "prefix78" : "";
            for (auto uLength = cRandom() % 5; uLength > 0; --uLength)
                text += "ab\x80z\x01"[cRandom() % 5];
            text += cRandom() % 8 ? ":" + std::to_string(i) + "," : ":{a:" + std::to_string(i) + ",b:[1]},";
        }
        ASSERT_EQ(recordmodel::difference(text), "");
        ASSERT_EQ(recordmodel::difference("k:{" + text + "}"), "");
    }
}
