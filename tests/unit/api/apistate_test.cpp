#include "api/apistate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "streams/iqstreamhandler.h"
#include "support/plainprocessor.h"

namespace {

ReferencePtr<FrameSink> makeStream() {
    return makeReference<IQStreamHandler>(utils::VariantRecord());
}

ReferencePtr<Processor> makeProcessor() {
    return makeReference<vnktest::PlainProcessor>();
}

}  // namespace

TEST(DrawnHandle, IsMadeOfTwoValuesOfTheGenerator) {
    std::vector<uint32_t> lValues{0x00012345u, 0x00006789u};
    size_t uNext = 0;
    APIState cState([&] { return lValues[uNext++ % lValues.size()]; });
    EXPECT_EQ(cState.addStream(makeStream()), (0x6789u << 16) ^ 0x12345u);
}

TEST(DrawnHandle, IsNeverTheInvalidNumberNorOneInAnyTable) {
    // Pairs: the invalid number, 5, again the invalid number, 5 twice more, then 6.
    const std::vector<uint32_t> lValues{0xFFFFFFFFu, 0, 5, 0, 0xFFFFFFFFu, 0, 5, 0, 5, 0, 6, 0, 6, 0, 7, 0};
    size_t uNext = 0;
    APIState cState([&] { return lValues[uNext++ % lValues.size()]; });
    EXPECT_EQ(cState.addStream(makeStream()), 5u);
    EXPECT_EQ(cState.addProcessor(makeProcessor()), 6u) << "5 names a stream";
    EXPECT_EQ(cState.addStream(makeStream()), 7u) << "6 names a processor";
}

TEST(DrawnHandle, OfThreadsWhoseGeneratorRepeatsItselfNoEntryIsLostOrOverwritten) {
    // Every number comes eight times in a row, so that threads draw the same one at once.
    std::atomic<uint32_t> uCalls{0};
    APIState cState([&] {
        const uint32_t uCall = uCalls++;
        return uCall % 2 ? 0u : uCall / 16;   // the second value of a pair shifts nothing in
    });
    constexpr int kThreads = 4, kEach = 500;
    std::vector<std::vector<uint32_t>> lStreams(kThreads), lProcessors(kThreads);
    std::vector<std::thread> lThreads;
    for (int i = 0; i < kThreads; ++i)
        lThreads.emplace_back([&, i] {
            for (int k = 0; k < kEach; ++k) {
                lStreams[static_cast<size_t>(i)].push_back(cState.addStream(makeStream()));
                lProcessors[static_cast<size_t>(i)].push_back(cState.addProcessor(makeProcessor()));
            }
        });
    for (std::thread& cThread : lThreads)
        cThread.join();
    std::set<uint32_t> cAll;
    for (const auto& lMine : {lStreams, lProcessors})
        for (const auto& lOfThread : lMine)
            cAll.insert(lOfThread.begin(), lOfThread.end());
    EXPECT_EQ(cAll.size(), static_cast<size_t>(2 * kThreads * kEach)) << "over both tables";
    for (const auto& lOfThread : lStreams)
        for (const uint32_t uHandle : lOfThread) {
            EXPECT_TRUE(cState.findStream(uHandle));
            EXPECT_FALSE(cState.findProcessor(uHandle));
        }
}

TEST(Close, LooksForStreamsThenProcessors) {
    APIState cState;
    uint32_t uStream = cState.addStream(makeStream());
    uint32_t uProcessor = cState.addProcessor(makeProcessor());
    EXPECT_EQ(cState.close(&uProcessor), 0);
    EXPECT_EQ(uProcessor, kInvalidHandle);
    EXPECT_EQ(cState.close(&uStream), 0);
    EXPECT_EQ(cState.close(&uStream), -8);
}

TEST(Allocations, ARecordOfAnEndedStateCountsAsEntered) {
    int iRecord = 0, iOther = 0;
    {
        APIState cState;
        cState.addAllocation(&iRecord, nullptr);
        EXPECT_FALSE(cState.removeAllocation(&iOther));
    }
    APIState cState;
    EXPECT_TRUE(cState.removeAllocation(&iRecord));
    EXPECT_FALSE(cState.removeAllocation(&iRecord)) << "given back once";
}
