#include "links/vita49.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "genericpackets.h"

using namespace VITA49;
using testing::HasSubstr;
using testing::StartsWith;
using utils::MemoryBlock;
using vnktest::dataPacket;
using vnktest::GenericHeader;
using vnktest::genericPacket;
using vnktest::kPairsOf16;
using vnktest::PacketBytes;

namespace {

ReferencePtr<MemoryBlock> blockOf(const std::string& bytes) {
    return makeReference<MemoryBlock>(bytes);
}

/// Words with no packet around them.
ReferencePtr<MemoryBlock> words(std::initializer_list<uint32_t> lWords) {
    const auto cBlock = makeReference<MemoryBlock>(0u);
    for (uint32_t uWord : lWords)
        cBlock->writeU32(uWord);
    return cBlock;
}

ReferencePtr<DecodingContext> format(uint32_t uFirst = kPairsOf16, uint32_t uSecond = 0) {
    return makeReference<DecodingContext>(words({uFirst, uSecond}));
}

std::string assertionOf(const std::function<void()>& act) {
    try {
        act();
    } catch (const utils::FatalError& cError) {
        return cError.message();
    }
    return "nothing thrown";
}

TEST(GenericPackets, EachHeaderTellsWhichFieldsItHas) {
    for (uint32_t uType = 0; uType < 6; ++uType)
        for (uint32_t uForm = 0; uForm < 64; ++uForm) {
            GenericHeader cHeader;
            cHeader.muType = uType;
            cHeader.mbTrailer = (uForm & 1) != 0;
            cHeader.mbClassID = (uForm & 2) != 0;
            cHeader.muTSI = (uForm >> 2) & 3;
            cHeader.muTSF = uForm >> 4;
            cHeader.muSequence = uForm & 15;
            const auto cBlock = genericPacket(cHeader).fill(5).u32(0xFEEDF00D).block();
            const Packet cPacket(cBlock);
            EXPECT_TRUE(cPacket.isComplete());
            EXPECT_EQ(cPacket.packetType(), uType);
            EXPECT_EQ(cPacket.hasClassID(), cHeader.mbClassID);
            EXPECT_EQ(cPacket.hasTrailer(), cHeader.mbTrailer);
            EXPECT_FALSE(cPacket.tsm());
            EXPECT_EQ(cPacket.tsi(), cHeader.muTSI);
            EXPECT_EQ(cPacket.tsf(), cHeader.muTSF);
            EXPECT_EQ(cPacket.sequenceNumber(), cHeader.muSequence);
            EXPECT_EQ(cPacket.sizeInWords(), cHeader.words() + 6);
            EXPECT_EQ(cPacket.streamID(), cHeader.hasStreamID() ? 0x1234u : kAbsent32);
            EXPECT_EQ(cPacket.integerSeconds(), cHeader.muTSI ? 1700000000u : 0u);
            EXPECT_EQ(cPacket.picoseconds(), cHeader.muTSF == 2 ? 123456789012u : 0u);
            EXPECT_EQ(cPacket.trailer(),
                      cHeader.mbTrailer ? std::optional<uint32_t>(0xFEEDF00D) : std::nullopt);
            EXPECT_EQ(cBlock->getReadPosition(), cHeader.words() * 4);
        }
}

TEST(GenericPackets, TimeIsSecondsAndWholeNanoseconds) {
    EXPECT_EQ(Packet(dataPacket().block()).timestampNs(), 1700000000123456789u);
}

TEST(GenericPackets, TheTSMBitIsKept) {
    std::string bytes = dataPacket().bytes();
    bytes[0] = static_cast<char>(bytes[0] | 1);
    EXPECT_TRUE(Packet(blockOf(bytes)).tsm());
}

TEST(GenericPackets, ABlockBelowTwentyBytesHasItsTypeAndNoFields) {
    for (uint32_t uType = 0; uType < 6; ++uType) {
        GenericHeader cHeader;
        cHeader.muType = uType;
        cHeader.mbTrailer = cHeader.mbClassID = true;
        const std::string bytes = genericPacket(cHeader).fill(4, 0xFFFFFFFF).bytes(4);
        for (size_t uLength = 0; uLength < 20; ++uLength) {
            const auto cBlock = blockOf(bytes.substr(0, uLength));
            const Packet cPacket(cBlock);
            EXPECT_FALSE(cPacket.isComplete());
            EXPECT_EQ(cPacket.packetType(), uLength > 0 ? uType : 0);
            EXPECT_FALSE(cPacket.hasTrailer());
            EXPECT_FALSE(cPacket.hasClassID());
            EXPECT_FALSE(cPacket.trailer());
            EXPECT_EQ(cPacket.sizeInWords(), 0u);
            EXPECT_EQ(cPacket.streamID(), kAbsent32);
            EXPECT_EQ(cPacket.timestampNs(), 0u);
            // No assertion of a type's class fires either.
            EXPECT_EQ(IFData(cBlock).sampleCount(), 0u);
            EXPECT_EQ(IFContext(cBlock).muRFFrequency, kAbsent64);
            EXPECT_FALSE(ExtensionContext(cBlock).mbChange);
            EXPECT_FALSE(ExtensionData(cBlock).isComplete());
        }
    }
    EXPECT_FALSE(Packet(nullptr).isComplete());
    EXPECT_FALSE(IFData(nullptr).getSamples());
    EXPECT_FALSE(IFContext(nullptr).isComplete());
}

TEST(GenericPackets, AShortBlockHasNoSamplesEvenWithADecodingContext) {
    for (size_t uLength = 0; uLength < 20; ++uLength) {
        IFData cData(blockOf(dataPacket().bytes().substr(0, uLength)));
        cData.setDecodingContext(format());
        EXPECT_EQ(cData.getSamples()->getActive(), 0u);
        EXPECT_EQ(cData.getScaledSamples(1.0f)->getActive(), 0u);
    }
}

TEST(GenericPackets, AHeaderThatTheBlockCutsShortIsIncompleteAndHasNoPayload) {
    GenericHeader cHeader;
    cHeader.mbClassID = true;
    const std::string bytes = genericPacket(cHeader).bytes();
    ASSERT_EQ(bytes.size(), 28u);
    for (uint32_t uWords = 5; uWords < 7; ++uWords) {
        const auto cBlock = blockOf(genericPacket(cHeader).bytes(uWords).substr(0, size_t{uWords} * 4));
        IFData cData(cBlock);
        EXPECT_FALSE(cData.isComplete());
        EXPECT_EQ(cData.streamID(), 0x1234u);
        EXPECT_EQ(cData.integerSeconds(), 1700000000u);
        EXPECT_EQ(cData.picoseconds(), 0u);
        EXPECT_EQ(cData.sampleCount(), 0u);
        EXPECT_EQ(cBlock->getReadableDataLength(), 0u);
        cData.setDecodingContext(format());
        EXPECT_EQ(cData.getSamples()->getActive(), 0u);
    }
    EXPECT_TRUE(IFData(blockOf(bytes)).isComplete());
}

TEST(GenericPackets, ASizeThatIsNotTheBlocksMakesAPacketIncomplete) {
    const auto complete = [](const std::string& bytes) { return Packet(blockOf(bytes)).isComplete(); };
    EXPECT_TRUE(complete(dataPacket().fill(2).bytes()));
    EXPECT_FALSE(complete(dataPacket().fill(2).bytes(6)));
    EXPECT_FALSE(complete(dataPacket().fill(2).bytes(8)));
    EXPECT_TRUE(complete(dataPacket().fill(2).bytes(7) + "x"));  // whole words count
}

TEST(GenericPackets, ATrailerWithoutPayloadBytesGivesNoSamplesAndIsAbsent) {
    IFData cData(dataPacket(7, true).block());
    cData.setDecodingContext(format());
    EXPECT_FALSE(cData.isComplete());
    EXPECT_FALSE(cData.trailer());
    EXPECT_EQ(cData.sampleCount(), 0u);
    EXPECT_EQ(cData.getSamples()->getActive(), 0u);
    EXPECT_EQ(cData.getScaledSamples(2.0f)->getActive(), 0u);
    EXPECT_EQ(cData.peak(), 0u);
    // The trailer alone is a whole packet without samples.
    IFData cOne(dataPacket(7, true).trailer(0x12345678).block());
    EXPECT_TRUE(cOne.isComplete());
    EXPECT_EQ(cOne.trailer(), std::optional<uint32_t>(0x12345678));
    EXPECT_EQ(cOne.sampleCount(), 0u);
}

TEST(GenericPackets, TheReadPositionBeginsAtTheMark) {
    const auto cBlock = blockOf("rubbish!" + dataPacket(0x55).u32(0x40000000).bytes());
    cBlock->setReadAndKeep(8);
    IFData cData(cBlock);
    EXPECT_TRUE(cData.isComplete());
    EXPECT_EQ(cData.streamID(), 0x55u);
    cData.setDecodingContext(format());
    EXPECT_EQ(cData.getSamples()->getData()[0].re, 0.5f);
}

TEST(GenericPackets, EachClassTakesItsOwnTypesOnly) {
    const auto block = [](uint32_t uType) {
        GenericHeader cHeader;
        cHeader.muType = uType;
        return genericPacket(cHeader).fill(4).block();
    };
    for (uint32_t uType = 0; uType < 6; ++uType) {
        const std::string data = assertionOf([&] { IFData cPacket(block(uType)); });
        const std::string context = assertionOf([&] { IFContext cPacket(block(uType)); });
        if (uType > 1) {
            EXPECT_THAT(data, StartsWith("ASSERT failed <(muPacketType == kIFNoStreamID) || (muPacketType == "
                                         "kIFWithStreamID)> "));
        } else {
            EXPECT_EQ(data, "nothing thrown");
        }
        if (uType != 4) {
            EXPECT_THAT(context, StartsWith("ASSERT failed <muPacketType == kIFContext> "));
        } else {
            EXPECT_EQ(context, "nothing thrown");
        }
    }
}

TEST(GenericPackets, AnExtensionContextHoldsTheIdentifiersBehindItsHeader) {
    GenericHeader cHeader;
    cHeader.muType = 5;
    cHeader.mbClassID = true;
    const ExtensionContext cFull(
        genericPacket(cHeader).u32(1u << 31 | 0xB).u32(0xFFFFFFFF).u32(42).u32(43).block());
    EXPECT_TRUE(cFull.isComplete());
    EXPECT_TRUE(cFull.mbChange);
    EXPECT_TRUE(cFull.mbHasCaptureState);
    EXPECT_TRUE(cFull.mbCaptureState);
    EXPECT_EQ(cFull.muStreamIdentifier, 42u);
    EXPECT_EQ(cFull.muSweepIdentifier, 43u);
    const ExtensionContext cOne(genericPacket(cHeader).u32(1).u32(7).block());
    EXPECT_FALSE(cOne.mbHasCaptureState);
    EXPECT_EQ(cOne.muStreamIdentifier, kAbsent32);
    EXPECT_EQ(cOne.muSweepIdentifier, 7u);
}

TEST(DecodingContext, TheFieldsAreThoseOfThePayloadFormat) {
    const auto cFields = format(
        0x80000000u | 2u << 29 | 17u << 24 | 1u << 23 | 5u << 20 | 9u << 16 | 33u << 6 | 12u, 0xABCD1234);
    ASSERT_TRUE(cFields->isValid());
    EXPECT_FALSE(cFields->packingMethodProcessingNotLink());
    EXPECT_EQ(cFields->getSampleType(), 2u);
    EXPECT_EQ(cFields->getDataItemEncoding(), 17u);
    EXPECT_TRUE(cFields->sampleComponentRepeatAsserted());
    EXPECT_EQ(cFields->eventTagSize(), 5u);
    EXPECT_EQ(cFields->channelTagSize(), 9u);
    EXPECT_EQ(cFields->itemPackingFieldSize(), 33u);
    EXPECT_EQ(cFields->dataItemSize(), 12u);
    EXPECT_EQ(cFields->getRepeatCount(), 0xABCDu);
    EXPECT_EQ(cFields->getVectorSize(), 0x1234u);
    EXPECT_EQ(cFields->word(2), 0u);
}

TEST(DecodingContext, BelowEightBytesItIsNotValid) {
    for (size_t uLength = 0; uLength < 8; ++uLength)
        EXPECT_FALSE(makeReference<DecodingContext>(blockOf(std::string(uLength, 'x')))->isValid());
    EXPECT_TRUE(makeReference<DecodingContext>(blockOf(std::string(8, 'x')))->isValid());
    EXPECT_FALSE(makeReference<DecodingContext>(nullptr)->isValid());
}

TEST(DecodingContext, EachValueThatIsNotDecodedIsAnAssertion) {
    const auto text = [](uint32_t uFirst, uint32_t uSecond) {
        return assertionOf([&] { format(uFirst, uSecond)->decodePayload(blockOf("abcd"), false); });
    };
    EXPECT_EQ(text(kPairsOf16, 0), "nothing thrown");
    const uint32_t uAll = 0xFFFFFFFFu & ~(63u << 6 | 63u);
    const std::pair<uint32_t, const char*> lFirst[] = {
        {uAll, "dataItemSize() == 15"},
        {uAll | 15u, "itemPackingFieldSize() == 15"},
        {uAll | 15u << 6 | 15u, "channelTagSize() == 0"},
        {(uAll & ~(15u << 16)) | 15u << 6 | 15u, "eventTagSize() == 0"},
        {0xFF800000u | 15u << 6 | 15u, "sampleComponentRepeatAsserted() == false"},
        {0xFF000000u | 15u << 6 | 15u, "getDataItemEncoding() == kSignedFP"},
        {0xE0000000u | 15u << 6 | 15u, "getSampleType() == kCplxCartesian"},
        {0xA0000000u | 15u << 6 | 15u, "packingMethodProcessingNotLink() == true"},
        {kPairsOf16, "getVectorSize() == 0x0"},
    };
    for (const auto& [uFirst, pCondition] : lFirst)
        EXPECT_THAT(text(uFirst, 0xFFFFFFFF), StartsWith(std::string("ASSERT failed <") + pCondition + "> "));
    EXPECT_THAT(text(kPairsOf16, 0xFFFF0000), StartsWith("ASSERT failed <getRepeatCount() == 0x0> "));
}

TEST(DecodingContext, TheReservedBitsDoNotMatter) {
    EXPECT_NO_THROW(format(kPairsOf16 | 0xF000, 0)->requireDecodable());
}

TEST(DecodingContext, APayloadOfBrokenWordsIsAnAssertion) {
    EXPECT_THAT(assertionOf([] { format()->decodePayload(blockOf("abcde"), false); }),
                HasSubstr("<(uTotalBytes & 0x3) == 0>"));
    const auto cBlock = blockOf("xabcd");
    cBlock->setReadPosition(1);
    EXPECT_THAT(assertionOf([&] { format()->decodePayload(cBlock, false); }),
                HasSubstr("<(((_uint64)pData) & 0x3) == 0x0>"));
}

TEST(DecodingContext, DecodingStopsAtTheTrailerAndMovesTheReadPosition) {
    const auto cBlock = words({0x40008000, 0x7FFF0001, 0x99999999});
    const auto cSamples = format()->decodePayload(cBlock, true);
    ASSERT_EQ(cSamples->getActive(), 2u);
    EXPECT_EQ(cSamples->getData()[0], (Complex<float>{0.5f, -1.0f}));
    EXPECT_EQ(cSamples->getData()[1], (Complex<float>{32767.0f / 32768, 1.0f / 32768}));
    EXPECT_EQ(cBlock->getReadPosition(), 8u);
    EXPECT_EQ(format()->decodePayload(cBlock, false)->getActive(), 1u);
    EXPECT_EQ(format()->decodePayload(cBlock, true)->getActive(), 0u);  // less than a trailer
}

constexpr uint32_t kInverted = 1u << kInversionEnable | 1u << kInversion;

TEST(GenericData, WithoutADecodingContextThereAreNoSamples) {
    IFData cData(dataPacket().fill(4).block());
    EXPECT_EQ(cData.sampleCount(), 4u);
    EXPECT_FALSE(cData.getSamples());
    EXPECT_FALSE(cData.getScaledSamples(1.0f));
    cData.setDecodingContext(format());
    EXPECT_EQ(cData.getSamples()->getActive(), 4u);
}

TEST(GenericData, SamplesAreDecodedOnceAndKept) {
    IFData cData(dataPacket().u32(0x40004000).block());
    cData.setDecodingContext(format());
    EXPECT_EQ(cData.peak(), 0u);
    const auto cSamples = cData.getSamples();
    EXPECT_EQ(cData.peak(), 0x4000u);
    EXPECT_EQ(cData.getSamples(), cSamples);
}

TEST(GenericData, AnInvertedSpectrumIsConjugatedOnceHoweverOftenAsked) {
    IFData cData(
        dataPacket(7, true).u32(0x40002000).u32(0x00000000).u32(0x80008000).trailer(kInverted).block());
    cData.setDecodingContext(format());
    EXPECT_TRUE(cData.isInverted());
    for (int i = 0; i < 3; ++i) {
        const auto cSamples = cData.getSamples();
        ASSERT_EQ(cSamples->getActive(), 3u);
        EXPECT_EQ(cSamples->getData()[0], (Complex<float>{0.5f, -0.25f}));
        EXPECT_EQ(cSamples->getData()[1], (Complex<float>{0.0f, 0.0f}));
        EXPECT_EQ(cSamples->getData()[2], (Complex<float>{-1.0f, 1.0f}));
        const auto cScaled = cData.getScaledSamples(2.0f);
        ASSERT_EQ(cScaled->getActive(), 3u);
        EXPECT_EQ(cScaled->getData()[0], (Complex<float>{1.0f, -0.5f}));
        EXPECT_EQ(cScaled->getData()[2], (Complex<float>{-2.0f, 2.0f}));
    }
    EXPECT_EQ(cData.peak(), 32768u);
}

TEST(GenericData, OneBitOfThePairLeavesTheSamplesAsTheyAre) {
    for (uint32_t uTrailer : {1u << 26, 1u << 14, ~kInverted, ~(1u << 26), ~(1u << 14)}) {
        IFData cData(dataPacket(7, true).u32(0x40002000).trailer(uTrailer).block());
        cData.setDecodingContext(format());
        EXPECT_FALSE(cData.isInverted());
        EXPECT_EQ(cData.getSamples()->getData()[0], (Complex<float>{0.5f, 0.25f}));
        EXPECT_EQ(cData.getScaledSamples(1.0f)->getData()[0], (Complex<float>{0.5f, 0.25f}));
    }
}

TEST(GenericData, WithoutATrailerTheLastWordIsASample) {
    IFData cData(dataPacket().u32(0x40002000).u32(kInverted).block());
    cData.setDecodingContext(format());
    EXPECT_EQ(cData.getSamples()->getActive(), 2u);
    EXPECT_EQ(cData.getSamples()->getData()[0].im, 0.25f);
}

TEST(GenericData, ScaledSamplesAreTheSameBitsAsStepByStep) {
    std::mt19937 cRandom(20260202);
    for (uint32_t uWords : {0u, 1u, 3u, 7u, 8u, 64u, 257u})
        for (uint32_t uTrailer : {0u, kInverted}) {
            PacketBytes cBytes = dataPacket(7, true);
            uint32_t uPeak = 0;
            for (uint32_t i = 0; i < uWords; ++i) {
                const auto uWord = static_cast<uint32_t>(cRandom());
                cBytes.u32(uWord);
                for (uint32_t uItem : {uWord >> 16, uWord & 0xFFFFu})
                    uPeak = std::max(uPeak,
                                     static_cast<uint32_t>(std::abs(int32_t{static_cast<int16_t>(uItem)})));
            }
            IFData cData(cBytes.trailer(uTrailer).block());
            cData.setDecodingContext(format());
            const float fGain = 0.0123456f;
            const auto cScaled = cData.getScaledSamples(fGain);
            EXPECT_EQ(cData.peak(), uPeak);
            const auto cPlain = cData.getSamples();
            EXPECT_EQ(cData.peak(), uPeak);
            ASSERT_EQ(cScaled->getActive(), uWords);
            ASSERT_EQ(cData.sampleCount(), uWords);
            for (uint32_t i = 0; i < uWords; ++i) {
                EXPECT_EQ(cScaled->getData()[i].re, cPlain->getData()[i].re * fGain);
                EXPECT_EQ(cScaled->getData()[i].im, cPlain->getData()[i].im * fGain);
            }
        }
}

TEST(GenericData, NoCountEverExceedsTheBytesThatAreThere) {
    for (uint32_t uLength = 0; uLength < 64; uLength += 4)
        for (uint32_t uWords : {0u, 1u, 4u, 5u, 6u, 7u, uLength / 4, 65535u})
            for (uint32_t uForm = 0; uForm < 16; ++uForm) {
                GenericHeader cHeader;
                cHeader.muType = uForm & 1;
                cHeader.mbTrailer = (uForm & 2) != 0;
                cHeader.mbClassID = (uForm & 4) != 0;
                cHeader.muTSF = uForm & 8 ? 2 : 0;
                std::string bytes = genericPacket(cHeader).fill(14).bytes(uWords);
                bytes.resize(uLength);
                IFData cData(blockOf(bytes));
                cData.setDecodingContext(format());
                const uint32_t uHead = (cHeader.words() + (cHeader.mbTrailer ? 1 : 0)) * 4;
                const uint32_t uRoom = uLength < 20 || uLength < uHead ? 0 : uLength - uHead;
                EXPECT_EQ(cData.sampleCount() * 4, uRoom);
                EXPECT_EQ(cData.getSamples()->getActive(), cData.sampleCount());
                EXPECT_EQ(cData.getScaledSamples(1.0f)->getActive(), cData.sampleCount());
            }
}

}  // namespace
