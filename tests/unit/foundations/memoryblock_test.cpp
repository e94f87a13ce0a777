#include "foundations/memoryblock.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using utils::MemoryBlock;

std::vector<uint8_t> bytes(uint32_t uCount, uint8_t uFirst = 0) {
    std::vector<uint8_t> cBytes(uCount);
    std::iota(cBytes.begin(), cBytes.end(), uFirst);
    return cBytes;
}

TEST(MemoryBlock, aSizedBlockIsEmptyWithRoom) {
    const MemoryBlock cBlock(100);
    EXPECT_EQ(cBlock.getAllocated(), 100u);
    EXPECT_EQ(cBlock.getSize(), 0u);
    EXPECT_EQ(cBlock.getReadableDataLength(), 0u);
    EXPECT_EQ(cBlock.getReadable(), nullptr);
}

TEST(MemoryBlock, anEmptyTextHasNothingReadable) {
    MemoryBlock cBlock("");
    EXPECT_EQ(cBlock.getReadable(), nullptr);
    EXPECT_TRUE(cBlock.read(nullptr, 0));
    EXPECT_EQ(cBlock.getText(), "");
    EXPECT_EQ(cBlock.getAllocated(), 0u);
}

TEST(MemoryBlock, aTextIsReadFromItsBegin) {
    MemoryBlock cBlock("*IDN?\n");
    EXPECT_EQ(cBlock.getAllocated(), 6u);
    EXPECT_EQ(cBlock.getWritePosition(), 6u);
    char first[2];
    EXPECT_TRUE(cBlock.read(first, 2));
    EXPECT_EQ(std::string(first, 2), "*I");
    uint32_t uLength = 0;
    const uint8_t* pReadable = cBlock.getReadable(&uLength);
    ASSERT_NE(pReadable, nullptr);
    EXPECT_EQ(*pReadable, 'D');
    EXPECT_EQ(uLength, 4u);
    EXPECT_EQ(cBlock.getText(), "DN?\n");
    EXPECT_EQ(cBlock.getReadPosition(), 2u);
}

TEST(MemoryBlock, aReadOfTooMuchMovesNothing) {
    MemoryBlock cBlock("abc", 3);
    uint8_t place[4] = {9, 9, 9, 9};
    EXPECT_TRUE(cBlock.read(place, 1));
    EXPECT_FALSE(cBlock.read(place, 3));
    EXPECT_EQ(cBlock.getReadPosition(), 1u);
    EXPECT_EQ(place[1], 9);
    EXPECT_TRUE(cBlock.read(place, 2));
    EXPECT_EQ(cBlock.getReadable(), nullptr);
    EXPECT_TRUE(cBlock.read(place, 0));
}

TEST(MemoryBlock, numbersGoInNetworkOrder) {
    MemoryBlock cBlock(0u);
    cBlock.writeU32(0x01020304);
    cBlock.writeU64(0x05060708090A0B0Cull);
    const auto cExpected = bytes(12, 1);
    ASSERT_EQ(cBlock.getSize(), 12u);
    EXPECT_EQ(std::vector<uint8_t>(cBlock.getReadable(), cBlock.getReadable() + 12), cExpected);
}

TEST(MemoryBlock, aGrowingWriteAsksForTheToldSlack) {
    MemoryBlock cBlock(10);
    const auto cTen = bytes(10);
    cBlock.write(cTen.data(), 10);
    EXPECT_EQ(cBlock.getAllocated(), 10u) << "it fitted";
    cBlock.write(cTen.data(), 0);
    EXPECT_EQ(cBlock.getAllocated(), 10u);
    cBlock.write(cTen.data(), 1);
    EXPECT_EQ(cBlock.getAllocated(), (1u + 32 + 10) + 32);
    MemoryBlock cWords(0u);
    cWords.writeU32(1);
    EXPECT_EQ(cWords.getAllocated(), 36u + 32);
    MemoryBlock cLongWords(0u);
    cLongWords.writeU64(1);
    EXPECT_EQ(cLongWords.getAllocated(), 40u + 32);
}

TEST(MemoryBlock, aReallocationDropsWhatLiesBeforeTheKeepMark) {
    MemoryBlock cBlock(20);
    const auto cTwenty = bytes(20);
    cBlock.write(cTwenty.data(), 20);
    cBlock.setReadPosition(15);
    cBlock.setKeepMark(10);
    cBlock.writeU32(0xAABBCCDD);
    EXPECT_EQ(cBlock.getReadPosition(), 5u);
    EXPECT_EQ(cBlock.getKeepMark(), 0u);
    EXPECT_EQ(cBlock.getSize(), 14u);
    EXPECT_EQ(cBlock.getWritePosition(), 14u);
    EXPECT_EQ(*cBlock.getReadable(), 15);
    EXPECT_EQ(cBlock.getStorage()[0], 10);
}

TEST(MemoryBlock, reserveLooksAtTheRoomBehindTheReadCursor) {
    MemoryBlock cBlock(100);
    const auto cBytes = bytes(60);
    cBlock.write(cBytes.data(), 60);
    cBlock.setReadAndKeep(50);
    cBlock.reserve(50);
    EXPECT_EQ(cBlock.getAllocated(), 100u);
    EXPECT_EQ(cBlock.getReadPosition(), 50u);
    cBlock.reserve(51);
    EXPECT_EQ(cBlock.getAllocated(), 83u);
    EXPECT_EQ(cBlock.getReadPosition(), 0u);
    EXPECT_EQ(cBlock.getSize(), 10u);
    EXPECT_EQ(*cBlock.getReadable(), 50);
}

TEST(MemoryBlock, aSmallReserveKeepsLargeDataWhole) {
    MemoryBlock cBlock(1000);
    const std::vector<uint8_t> cBytes(1000, 7);
    cBlock.write(cBytes.data(), 1000);
    cBlock.setReadPosition(995);
    cBlock.setKeepMark(0);
    cBlock.reserve(6);
    EXPECT_EQ(cBlock.getSize(), 1000u);
    EXPECT_GE(cBlock.getAllocated(), 1000u + 6);
    EXPECT_EQ(std::vector<uint8_t>(cBlock.getStorage(), cBlock.getStorage() + 1000), cBytes);
}

TEST(MemoryBlock, sizesPast32BitsAreRefusedAndTheBlockStaysWhole) {
    MemoryBlock cBlock("keep");
    EXPECT_THROW(cBlock.reserve(0xFFFFFFFF), std::length_error);
    EXPECT_THROW(cBlock.reserve(0xFFFFFFFF - 31), std::length_error);
    const uint8_t uByte = 0;
    EXPECT_THROW(cBlock.write(&uByte, 0xFFFFFFFF), std::length_error);
    EXPECT_THROW(cBlock.write(&uByte, 0xFFFFFFFF - 67), std::length_error);
    EXPECT_EQ(cBlock.getText(), "keep");
    EXPECT_EQ(cBlock.getAllocated(), 4u);
}

TEST(MemoryBlock, cursorsStayInsideTheirBounds) {
    MemoryBlock cBlock(8);
    cBlock.advanceWritePosition(5);
    EXPECT_EQ(cBlock.getSize(), 5u);
    cBlock.advanceWritePosition(0xFFFFFFFF);
    EXPECT_EQ(cBlock.getSize(), 8u);
    EXPECT_EQ(cBlock.getWritePosition(), 8u);
    cBlock.setReadPosition(100);
    EXPECT_EQ(cBlock.getReadPosition(), 8u);
    cBlock.setReadPosition(3);
    cBlock.setKeepMark(6);
    EXPECT_EQ(cBlock.getKeepMark(), 3u);
    cBlock.setReadAndKeep(0xFFFFFFFF);
    EXPECT_EQ(cBlock.getKeepMark(), 8u);
    cBlock.clear();
    EXPECT_EQ(cBlock.getSize() + cBlock.getReadPosition() + cBlock.getKeepMark() + cBlock.getWritePosition(),
              0u);
    EXPECT_EQ(cBlock.getAllocated(), 8u);
}

/// What a block must hold: all bytes ever written and the places in them, with no storage at all.
struct Model {
    std::vector<uint8_t> bytes;
    size_t read = 0;
    size_t keep = 0;
};

void write(MemoryBlock& cBlock, Model& cModel, const std::vector<uint8_t>& cBytes) {
    cBlock.write(cBytes.data(), static_cast<uint32_t>(cBytes.size()));
    cModel.bytes.insert(cModel.bytes.end(), cBytes.begin(), cBytes.end());
}

void applyRandomOperation(MemoryBlock& cBlock, Model& cModel) {
    const size_t uReadable = cModel.bytes.size() - cModel.read;
    const auto uSmall = *rc::gen::inRange<uint32_t>(0, 90);
    switch (*rc::gen::inRange(0, 7)) {
        case 0: {
            std::vector<uint8_t> cPlace(uSmall, 0);
            RC_ASSERT(cBlock.read(cPlace.data(), uSmall) == (uSmall <= uReadable));
            if (uSmall <= uReadable) {
                RC_ASSERT(std::equal(cPlace.begin(), cPlace.end(),
                                     cModel.bytes.begin() + std::ptrdiff_t(cModel.read)));
                cModel.read += uSmall;
            }
            break;
        }
        case 1:
            cBlock.setKeepMark(cBlock.getReadPosition());
            cModel.keep = cModel.read;
            break;
        case 2:
            cBlock.reserve(uSmall);
            break;
        case 3:
            cBlock.writeU32(0x10203040);
            for (const uint8_t u : std::initializer_list<uint8_t>{0x10, 0x20, 0x30, 0x40})
                cModel.bytes.push_back(u);
            break;
        case 4: {
            const uint32_t uStep = std::min(uSmall, cBlock.getReadableDataLength());
            cBlock.setReadPosition(cBlock.getReadPosition() + uStep);
            cModel.read += uStep;
            break;
        }
        default:
            write(cBlock, cModel,
                  *rc::gen::container<std::vector<uint8_t>>(uSmall, rc::gen::arbitrary<uint8_t>()));
    }
}

RC_GTEST_PROP(MemoryBlockProperties, anyOperationsHoldTheBytesFromTheKeepMarkOn, ()) {
    MemoryBlock cBlock(*rc::gen::inRange<uint32_t>(0, 200));
    Model cModel;
    const int iOperations = *rc::gen::inRange(0, 60);
    for (int i = 0; i < iOperations; ++i) {
        applyRandomOperation(cBlock, cModel);
        RC_ASSERT(cBlock.getKeepMark() <= cBlock.getReadPosition());
        RC_ASSERT(cBlock.getReadPosition() <= cBlock.getSize());
        RC_ASSERT(cBlock.getWritePosition() <= cBlock.getSize());
        RC_ASSERT(cBlock.getSize() <= cBlock.getAllocated());
        RC_ASSERT(cBlock.getReadPosition() - cBlock.getKeepMark() == cModel.read - cModel.keep);
        const std::vector<uint8_t> cHeld(cBlock.getStorage() + cBlock.getKeepMark(),
                                         cBlock.getStorage() + cBlock.getSize());
        RC_ASSERT(cHeld == std::vector<uint8_t>(cModel.bytes.begin() + std::ptrdiff_t(cModel.keep),
                                                cModel.bytes.end()));
    }
}

}  // namespace
