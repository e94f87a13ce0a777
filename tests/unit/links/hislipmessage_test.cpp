#include "links/hislipmessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>

#include "hislippeer.h"
#include "log.h"

using HiSlip::Assembler;
using HiSlip::Message;
using HiSlip::Parsing;
using utils::MemoryBlock;
using vnktest::LogLine;
using vnktest::peerBytes;

namespace {

ReferencePtr<MemoryBlock> blockOf(const std::string& bytes) {
    return makeReference<MemoryBlock>(bytes);
}

std::string payloadOf(const Message& cMessage) {
    return cMessage.mcPayload ? cMessage.mcPayload->getText() : "";
}

const LogLine kBadState{-4000, "Trapped bad state"};

class HiSlipMessages : public testing::Test {
 protected:
    HiSlipMessages() { vnktest::clearLog(); }
};

TEST_F(HiSlipMessages, AHeaderIsReadFieldByField) {
    const auto cBlock = blockOf(peerBytes(18, 5, 0x12345678, "abc") + "rest");
    Message cMessage;
    ASSERT_EQ(HiSlip::parse(*cBlock, cMessage), Parsing::kWhole);
    EXPECT_TRUE(cMessage.mbValid);
    EXPECT_EQ(cMessage.muType, 18);
    EXPECT_EQ(cMessage.muControlCode, 5);
    EXPECT_EQ(cMessage.muParameter, 0x12345678u);
    EXPECT_EQ(payloadOf(cMessage), "abc");
    EXPECT_EQ(cBlock->getText(), "rest");
    EXPECT_EQ(cBlock->getKeepMark(), 19u);
}

TEST_F(HiSlipMessages, AMessageWithoutPayloadHasNoBlock) {
    const auto cBlock = blockOf(peerBytes(7, 0, 1));
    Message cMessage;
    ASSERT_EQ(HiSlip::parse(*cBlock, cMessage), Parsing::kWhole);
    EXPECT_FALSE(cMessage.mcPayload);
    EXPECT_EQ(cBlock->getReadableDataLength(), 0u);
}

TEST_F(HiSlipMessages, WhatIsWrittenIsTheStandardsBytes) {
    Message cMessage = HiSlip::makeMessage(0, 0x10004142, blockOf("xyz"));
    cMessage.muControlCode = 9;
    EXPECT_EQ(HiSlip::serialise(cMessage)->getText(), peerBytes(0, 9, 0x10004142, "xyz"));
    EXPECT_EQ(HiSlip::serialise(HiSlip::makeMessage(0x80, 7))->getText(), peerBytes(0x80, 0, 7));
    const auto cPartlyRead = blockOf("12345");
    cPartlyRead->setReadPosition(2);
    EXPECT_EQ(HiSlip::serialise(HiSlip::makeMessage(7, 7, cPartlyRead))->getText(),
              peerBytes(7, 0, 7, "345"));
}

TEST_F(HiSlipMessages, EveryCutLeavesTheReadPositionWhereItWas) {
    const std::string bytes = peerBytes(7, 0, 0xFFFFFF00, "0123456789");
    for (size_t uCut = 0; uCut < bytes.size(); ++uCut) {
        const auto cBlock = blockOf("!!" + bytes.substr(0, uCut));
        cBlock->setReadAndKeep(2);
        Message cMessage;
        EXPECT_EQ(HiSlip::parse(*cBlock, cMessage), Parsing::kMore) << uCut;
        EXPECT_FALSE(cMessage.mbValid);
        EXPECT_FALSE(cMessage.mcPayload);
        EXPECT_EQ(cBlock->getReadPosition(), 2u);
        cBlock->write(bytes.data() + uCut, static_cast<uint32_t>(bytes.size() - uCut));
        ASSERT_EQ(HiSlip::parse(*cBlock, cMessage), Parsing::kWhole) << uCut;
        EXPECT_EQ(payloadOf(cMessage), "0123456789");
    }
}

TEST_F(HiSlipMessages, AWrongPrefixIsNoMessage) {
    for (const char* prefix : {"X", "HX", "XS", "hs"}) {
        std::string bytes = peerBytes(7, 0, 1, "abc");
        bytes.replace(0, std::string(prefix).size(), prefix);
        for (const std::string& text : {bytes, std::string(prefix)}) {
            const auto cBlock = blockOf(text);
            Message cMessage;
            EXPECT_EQ(HiSlip::parse(*cBlock, cMessage), Parsing::kBad) << text;
            EXPECT_FALSE(cMessage.mbValid);
            EXPECT_EQ(cBlock->getReadPosition(), 0u);
        }
    }
}

TEST_F(HiSlipMessages, ALengthThatNothingFollowsTakesNoMemory) {
    struct Case {
        uint64_t muLength;
        Parsing meParsing;
    };
    for (const Case cCase : {Case{1, Parsing::kMore}, Case{256u << 20, Parsing::kMore},
                             Case{(256u << 20) + 1, Parsing::kBad}, Case{uint64_t{1} << 31, Parsing::kBad},
                             Case{uint64_t{1} << 32, Parsing::kBad}, Case{~uint64_t{0}, Parsing::kBad}}) {
        vnktest::clearLog();
        Assembler cAssembler;
        const auto cBlock = blockOf(peerBytes(7, 0, 1, "", cCase.muLength));
        cAssembler.append(*cBlock);
        EXPECT_EQ(cBlock->getReadableDataLength(), 0u);
        Message cMessage;
        EXPECT_EQ(cAssembler.take(cMessage), cCase.meParsing) << cCase.muLength;
        EXPECT_FALSE(cMessage.mbValid);
        EXPECT_EQ(cAssembler.allocated(), 256u);
        EXPECT_EQ(cAssembler.size(), cCase.meParsing == Parsing::kMore ? 16u : 0u);
        if (cCase.meParsing == Parsing::kBad)
            EXPECT_THAT(vnktest::takeLog(), testing::ElementsAre(kBadState));
        else
            EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
    }
}

TEST_F(HiSlipMessages, StorageFollowsTheBytesThatAreThereAndIsGivenBack) {
    Assembler cAssembler;
    const std::string bytes = peerBytes(7, 0, 1, std::string(3u << 20, 'x'));
    Message cMessage;
    for (size_t uAt = 0; uAt < bytes.size(); uAt += 1000) {
        EXPECT_EQ(cAssembler.take(cMessage), Parsing::kMore);
        cAssembler.append(*blockOf(bytes.substr(uAt, 1000)));
        EXPECT_LE(cAssembler.allocated(), std::max<size_t>(256, 2 * (uAt + 1000)));
    }
    ASSERT_EQ(cAssembler.take(cMessage), Parsing::kWhole);
    EXPECT_EQ(cMessage.mcPayload->getSize(), 3u << 20);
    EXPECT_LE(cAssembler.allocated(), 65536u);
}

TEST_F(HiSlipMessages, GarbageForEverKeepsNothing) {
    Assembler cAssembler;
    Message cMessage;
    for (int i = 0; i < 10000; ++i) {
        cAssembler.append(*blockOf(std::string(1000, static_cast<char>('a' + i % 7))));
        EXPECT_EQ(cAssembler.take(cMessage), Parsing::kBad);
        EXPECT_EQ(cAssembler.size(), 0u);
        EXPECT_LE(cAssembler.allocated(), 65536u);
    }
    cAssembler.append(*blockOf(peerBytes(7, 0, 3, "good")));
    ASSERT_EQ(cAssembler.take(cMessage), Parsing::kWhole);
    EXPECT_EQ(payloadOf(cMessage), "good");
}

TEST_F(HiSlipMessages, MessagesComeOutInTurnHoweverTheyArrive) {
    std::string bytes;
    for (uint32_t i = 0; i < 50; ++i)
        bytes += peerBytes(6, 0, i, std::string(i * 7, static_cast<char>('a' + i % 26)));
    for (size_t uPiece : {1u, 2u, 15u, 16u, 17u, 1024u, 100000u}) {
        Assembler cAssembler;
        uint32_t uNext = 0;
        for (size_t uAt = 0; uAt < bytes.size(); uAt += uPiece) {
            cAssembler.append(*blockOf(bytes.substr(uAt, uPiece)));
            Message cMessage;
            while (cAssembler.take(cMessage) == Parsing::kWhole) {
                EXPECT_EQ(cMessage.muParameter, uNext);
                EXPECT_EQ(payloadOf(cMessage).size(), uNext * 7);
                ++uNext;
            }
        }
        EXPECT_EQ(uNext, 50u) << uPiece;
    }
    EXPECT_THAT(vnktest::takeLog(), testing::IsEmpty());
}

TEST_F(HiSlipMessages, TheHeaderAloneIgnoresTheLength) {
    for (uint64_t uLength : {uint64_t{0}, uint64_t{5}, ~uint64_t{0}}) {
        const auto cBlock = blockOf(peerBytes(0x81, 3, 0x80000000, "", uLength) + "stream");
        Message cMessage;
        ASSERT_EQ(HiSlip::parseHeader(*cBlock, cMessage), Parsing::kWhole);
        EXPECT_TRUE(cMessage.mbValid);
        EXPECT_EQ(cMessage.muType, 0x81);
        EXPECT_EQ(cMessage.muParameter, 0x80000000u);
        EXPECT_FALSE(cMessage.mcPayload);
        EXPECT_EQ(cBlock->getText(), "stream");
    }
    Message cMessage;
    EXPECT_EQ(HiSlip::parseHeader(*blockOf(peerBytes(1, 0, 0).substr(0, 15)), cMessage), Parsing::kMore);
    EXPECT_FALSE(cMessage.mbValid);
}

TEST_F(HiSlipMessages, IDsRunUpInStepsOfTwoAndWrap) {
    EXPECT_EQ(HiSlip::messageID(0), 0xFFFFFF00u);
    EXPECT_EQ(HiSlip::messageID(1), 0xFFFFFF02u);
    EXPECT_EQ(HiSlip::messageID(127), 0xFFFFFFFEu);
    EXPECT_EQ(HiSlip::messageID(128), 0u);
    EXPECT_EQ(HiSlip::messageID(0x7FFFFFFF), 0xFFFFFEFEu);
    EXPECT_EQ(HiSlip::messageID(0x80000000), 0xFFFFFF00u);
}

#ifndef VNK_SANITIZED
template <typename Action>
bool failsToAllocate(Action action) {
    vnktest::clearLog();
    try {
        action();
    } catch (const utils::RuntimeErrors::Error& cError) {
        return cError.code() == -3001 && cError.message() == "Failed to allocate target block" &&
               vnktest::takeLog() == std::vector<LogLine>{{-3001, "Failed to allocate target block"}};
    }
    return false;
}

/// The exit code tells what did not fail as it should.
int runOutOfMemory() {
    const auto cSource = blockOf(peerBytes(7, 0, 1, std::string(64u << 20, 'x')));
    ReferencePtr<MemoryBlock> cReply = makeReference<MemoryBlock>(0u);
    Message cMessage;
    std::ifstream cStatus("/proc/self/statm");
    uint64_t uPages = 0;
    cStatus >> uPages;
    const rlimit cLimit{uPages * 4096 + (16u << 20), RLIM_INFINITY};
    if (setrlimit(RLIMIT_AS, &cLimit) != 0)
        return 1;
    if (!failsToAllocate([&] { HiSlip::parse(*cSource, cMessage); }))
        return 2;
    if (cMessage.mbValid || cSource->getReadPosition() != 0)
        return 3;
    if (!failsToAllocate([&] { HiSlip::serialise(HiSlip::makeMessage(7, 0, cSource)); }))
        return 4;
    if (!failsToAllocate(
            [&] { HiSlip::appendGrowing(cReply, cSource->getReadable(), cSource->getReadableDataLength()); }))
        return 5;
    return cReply->getSize() == 0 ? 0 : 6;
}

TEST(HiSlipMessageDeathTest, APayloadThatNoMemoryHoldsIsReportedAndThrown) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(_exit(runOutOfMemory()), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
