// Size and depth: no operation may use the C stack, or more than about linear time, for either.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "foundations/variantrecord.h"

namespace {

using utils::Variant;
using utils::VariantRecord;

#if defined(NDEBUG) && !defined(VNK_SANITIZED)
constexpr uint64_t kLimitMs = 2000;
constexpr size_t kMany = 1'000'000;
#elif defined(VNK_SANITIZED)
constexpr uint64_t kLimitMs = 60'000;
constexpr size_t kMany = 60'000;
#else
constexpr uint64_t kLimitMs = 20'000;
constexpr size_t kMany = 300'000;
#endif

/// Processor time of the calling thread: a busy machine is no reason to fail.
uint64_t spentMilliseconds() {
    timespec cTime{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cTime);
    return static_cast<uint64_t>(cTime.tv_sec) * 1000 + static_cast<uint64_t>(cTime.tv_nsec) / 1'000'000;
}

/// The limit, and on a slow machine a few times what a plain map of as many entries takes there. What is more than
/// about linear takes thousands of times as long.
uint64_t limitMilliseconds() {
    static const uint64_t uLimit = [] {
        const uint64_t uBegin = spentMilliseconds();
        std::map<std::string, std::unique_ptr<uint64_t>> cMap;
        for (size_t i = 0; i < kMany; ++i)
            cMap.emplace("k" + std::to_string(i * 7919 % kMany), std::make_unique<uint64_t>(i));
        cMap.clear();
        return std::max(kLimitMs, 6 * (spentMilliseconds() - uBegin));
    }();
    return uLimit;
}

/// Runs on a thread with a quarter of a megabyte of stack: recursion of any depth worth the name ends it.
void onASmallStack(const std::function<void()>& work) {
    limitMilliseconds();   // measured here, on another thread's clock
    pthread_attr_t cAttributes;
    pthread_attr_init(&cAttributes);
    pthread_attr_setstacksize(&cAttributes, 256 * 1024);
    pthread_t cThread;
    auto run = [](void* pWork) -> void* {
        (*static_cast<const std::function<void()>*>(pWork))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&cThread, &cAttributes, run, const_cast<std::function<void()>*>(&work)), 0);
    pthread_join(cThread, nullptr);
    pthread_attr_destroy(&cAttributes);
}

std::string repeated(size_t uCount, const std::string& piece) {
    std::string text;
    text.reserve(uCount * piece.size());
    for (size_t i = 0; i < uCount; ++i)
        text += piece;
    return text;
}

void expectQuickParse(const std::string& text, size_t uEntries) {
    onASmallStack([&] {
        const uint64_t uBegin = spentMilliseconds();
        {
            VariantRecord cRecord;
            cRecord.parse(text);
            EXPECT_EQ(cRecord.size(), uEntries);
        }
        EXPECT_LT(spentMilliseconds() - uBegin, limitMilliseconds());
    });
}

TEST(RecordScale, aMillionFlatKeysInOrder) {
    std::string text = "{";
    char buffer[32];
    for (size_t i = 0; i < kMany; ++i) {
        std::snprintf(buffer, sizeof buffer, "\"k%07zu\":%zu,", i, i);
        text += buffer;
    }
    text += "}";
    expectQuickParse(text, kMany);
}

TEST(RecordScale, aMillionFlatKeysInAnyOrder) {
    std::vector<size_t> cNumbers(kMany);
    for (size_t i = 0; i < kMany; ++i)
        cNumbers[i] = i;
    std::shuffle(cNumbers.begin(), cNumbers.end(), std::mt19937(1));
    std::string text;
    for (const size_t uNumber : cNumbers)
        text += "k" + std::to_string(uNumber) + ":1,";
    expectQuickParse(text, kMany);
}

TEST(RecordScale, allOperationsOnNestedRecords) {
    onASmallStack([] {
        const std::string text = repeated(kMany, "{\"a\":") + "1" + std::string(kMany, '}');
        VariantRecord cRecord;
        const uint64_t uBegin = spentMilliseconds();
        cRecord.parse(text);
        VariantRecord cCopy(cRecord);
        EXPECT_TRUE(cRecord == cCopy);
        EXPECT_TRUE(cRecord.difference(cCopy).empty());
        EXPECT_EQ(cCopy.toCompactText(), text);
        const Variant cValue(*cCopy.find("a"));
        EXPECT_TRUE(cValue == *cRecord.find("a"));
        cCopy.clear();
        cRecord = VariantRecord("b:1");
        EXPECT_LT(spentMilliseconds() - uBegin, 2 * limitMilliseconds());
    });
}

TEST(RecordScale, allOperationsOnNestedArrays) {
    onASmallStack([] {
        const std::string text = repeated(kMany / 2, "{\"a\":[") + "1" + repeated(kMany / 2, "]}");
        const uint64_t uBegin = spentMilliseconds();
        VariantRecord cRecord;
        cRecord.parse(text);
        const VariantRecord cCopy(cRecord);
        EXPECT_TRUE(cRecord == cCopy);
        EXPECT_EQ(cCopy.toCompactText(), cRecord.toCompactText());
        cRecord.set("a", uint32_t{1});
        EXPECT_LT(spentMilliseconds() - uBegin, 2 * limitMilliseconds());
    });
}

TEST(RecordScale, thePrettyFormAtDepth3000) {
    onASmallStack([] {
        const VariantRecord cRecord((repeated(3000, "{\"a\":") + "1" + std::string(3000, '}')).c_str());
        const std::string pretty = cRecord.toPrettyText();
        EXPECT_EQ(VariantRecord(pretty.c_str()).toCompactText(), cRecord.toCompactText());
        EXPECT_NE(pretty.find("\r\n" + std::string(3000, '\t') + "\"a\":1\r\n"), std::string::npos);
    });
}

class HostileText : public testing::TestWithParam<const char*> {};

TEST_P(HostileText, costsAboutLinearTime) {
    const std::string text = repeated(kMany / 10, GetParam());
    onASmallStack([&] {
        const uint64_t uBegin = spentMilliseconds();
        {
            VariantRecord cRecord;
            cRecord.parse(text);
            const VariantRecord cCopy(cRecord);
            cCopy.toCompactText();
            cRecord.parse("k:" + text);
            cRecord.parse("k:[" + text + "]");
            cRecord.parse("{k:{" + text + "}}");
        }
        EXPECT_LT(spentMilliseconds() - uBegin, 2 * limitMilliseconds());
    });
}

INSTANTIATE_TEST_SUITE_P(Pieces, HostileText,
                         testing::Values("{", "}", "[", "]", "(", "\"", ":", ",", " ", "a:{", "a:[", "a:[{",
                                         "{a:1,", "}}a:1,", "[x:", "[[x:[", "a:\"", "a:(", "a:{b:1}},", "9",
                                         "1.", "[{}],", "a:{}},{", "a:[\"", "{,", " }"));

TEST(RecordScale, aValueOfTenMebibytes) {
    onASmallStack([] {
        const std::string large(10 << 20, 'q');
        VariantRecord cRecord(("a:\"" + large + "\",b:1").c_str());
        EXPECT_EQ(cRecord.find("a")->getText().size(), large.size());
        EXPECT_EQ(cRecord.toCompactText().size(), large.size() + std::string(R"({"a":"","b":1})").size());
        EXPECT_EQ(VariantRecord((large + ":" + large).c_str()).find("")->getText(), large);
    });
}

}  // namespace
