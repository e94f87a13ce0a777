#include "links/vita49zelvar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <random>

#include "packets.h"

using namespace VITA49Zelvar;
using utils::MemoryBlock;
using vnktest::PacketBytes;

namespace {

TEST(ZelvarPackets, TheHeaderIsReadFromItsFixedPlaces) {
    const Packet cPacket(PacketBytes(kIFDataIQ14, true).fill(3).trailer(0x44004000).block());
    EXPECT_TRUE(cPacket.isComplete());
    EXPECT_EQ(cPacket.packetType(), 1);
    EXPECT_FALSE(cPacket.hasClassID());
    EXPECT_TRUE(cPacket.hasTrailer());
    EXPECT_FALSE(cPacket.tsm());
    EXPECT_EQ(cPacket.tsi(), 1);
    EXPECT_EQ(cPacket.tsf(), 2);
    EXPECT_EQ(cPacket.sequenceNumber(), 3);
    EXPECT_EQ(cPacket.sizeInWords(), 9);
    EXPECT_EQ(cPacket.streamID(), 0x90000003u);
    EXPECT_EQ(cPacket.integerSeconds(), 1700000000u);
    EXPECT_EQ(cPacket.picoseconds(), 123456789012u);
    EXPECT_EQ(cPacket.timestampNs(), 1700000000123456789u);
    EXPECT_EQ(cPacket.trailer(), std::optional<uint32_t>(0x44004000));
}

TEST(ZelvarPackets, NeitherClassIDNorTimestampBitsChangeTheLayout) {
    std::string bytes = PacketBytes(kIFDataIQ14).fill(2).bytes();
    bytes[0] = '\x49';  // type 4, class ID, TSM
    bytes[1] = '\x0F';  // no TSI, no TSF
    const Packet cPacket(makeReference<MemoryBlock>(bytes));
    EXPECT_TRUE(cPacket.isComplete());
    EXPECT_EQ(cPacket.packetType(), 4);
    EXPECT_TRUE(cPacket.hasClassID());
    EXPECT_TRUE(cPacket.tsm());
    EXPECT_EQ(cPacket.sequenceNumber(), 15);
    EXPECT_EQ(cPacket.integerSeconds(), 1700000000u);
}

TEST(ZelvarPackets, ABlockBelowTheHeaderLeavesEveryDefault) {
    const std::string bytes = PacketBytes(kIFDataIQ14, true).bytes();
    for (size_t uLength = 0; uLength < 20; ++uLength) {
        const Packet cPacket(makeReference<MemoryBlock>(bytes.substr(0, uLength)));
        EXPECT_FALSE(cPacket.isComplete());
        EXPECT_EQ(cPacket.streamID(), kAbsent32);
        EXPECT_FALSE(cPacket.trailer());
        EXPECT_FALSE(cPacket.hasTrailer());
    }
    EXPECT_FALSE(Packet(nullptr).isComplete());
}

TEST(ZelvarPackets, ASizeThatIsNotTheBlocksMakesAPacketIncomplete) {
    const auto complete = [](const std::string& bytes) {
        return Packet(makeReference<MemoryBlock>(bytes)).isComplete();
    };
    EXPECT_TRUE(complete(PacketBytes(kIFDataIQ14).fill(2).bytes()));
    EXPECT_FALSE(complete(PacketBytes(kIFDataIQ14).fill(2).bytes(6)));
    EXPECT_FALSE(complete(PacketBytes(kIFDataIQ14).fill(2).bytes(8)));
    EXPECT_TRUE(complete(PacketBytes(kIFDataIQ14).fill(2).bytes(7) + "x"));  // whole words count
    EXPECT_FALSE(complete(PacketBytes(0x90000010).fill(2).bytes()));
    EXPECT_TRUE(complete(PacketBytes(0x9000000F).fill(2).bytes()));
}

TEST(ZelvarPackets, ATrailerThatTheBlockHasNoRoomForIsAbsent) {
    IFDataIQ14 cPacket(PacketBytes(kIFDataIQ14, true).block());
    EXPECT_FALSE(cPacket.isComplete());
    EXPECT_FALSE(cPacket.trailer());
    EXPECT_EQ(cPacket.sampleCount(), 0u);
    EXPECT_FALSE(cPacket.trailerHas(kInversionEnable, kInversion));
}

TEST(ZelvarPackets, TrailerBitsCountInPairs) {
    const auto packet = [](uint32_t uTrailer) {
        return Packet(PacketBytes(kIFDataIQ14, true).fill(1).trailer(uTrailer).block());
    };
    EXPECT_TRUE(packet(1u << 26 | 1u << 14).trailerHas(kInversionEnable, kInversion));
    EXPECT_FALSE(packet(1u << 26).trailerHas(kInversionEnable, kInversion));
    EXPECT_FALSE(packet(1u << 14).trailerHas(kInversionEnable, kInversion));
    EXPECT_TRUE(packet(1u << 24 | 1u << 12).trailerHas(kSampleLossEnable, kSampleLoss));
    EXPECT_TRUE(packet(1u << 25 | 1u << 13).trailerHas(kOverRangeEnable, kOverRange));
}

TEST(ZelvarPackets, AReceiverContextHoldsFrequencyAndBothGains) {
    const ReceiverContext cContext(PacketBytes(kReceiverContext)
                                       .u32(1u << 31 | 1u << 27 | 1u << 23 | 1u << 29)
                                       .u64(uint64_t{2450000000} << 20)
                                       .u16(0xFF80)
                                       .u16(0x0140)
                                       .block());
    EXPECT_TRUE(cContext.mbChange);
    EXPECT_EQ(cContext.muRFFrequency, uint64_t{2450000000} << 20);
    EXPECT_EQ(cContext.mfGain1, -1.0f);
    EXPECT_EQ(cContext.mfGain2, 2.5f);
}

TEST(ZelvarPackets, AReceiverContextWithoutFieldsKeepsItsDefaults) {
    const ReceiverContext cContext(PacketBytes(kReceiverContext).u32(0).block());
    EXPECT_FALSE(cContext.mbChange);
    EXPECT_EQ(cContext.muRFFrequency, kAbsent64);
    EXPECT_EQ(cContext.mfGain1, -1000.0f);
    EXPECT_EQ(cContext.mfGain2, -1000.0f);
}

TEST(ZelvarPackets, ADigitizerContextHoldsItsFieldsInBitOrder) {
    const DigitizerContext cContext(PacketBytes(kDigitizerContext)
                                        .u32(1u << 29 | 1u << 26 | 1u << 24)
                                        .u64(uint64_t{100000000} << 20)
                                        .u64(uint64_t{35000000} << 20)
                                        .u16(0x7777)
                                        .u16(0xF000)
                                        .block());
    EXPECT_FALSE(cContext.mbChange);
    EXPECT_EQ(cContext.muBandwidth, uint64_t{100000000} << 20);
    EXPECT_EQ(cContext.muRFFrequencyOffset, uint64_t{35000000} << 20);
    EXPECT_EQ(cContext.mfReferenceLevel, -32.0f);
    EXPECT_FALSE(cContext.mbHasGNSS);
    EXPECT_EQ(std::bit_cast<uint32_t>(cContext.mcGNSS.mfLatitude), 0x7FFFFFFFu);
    EXPECT_EQ(std::bit_cast<uint32_t>(cContext.mcGNSS.mfLongitude), 0x7FFFFFFFu);
    EXPECT_EQ(std::bit_cast<uint32_t>(cContext.mcGNSS.mfAltitude), 0x7FFFFFFFu);
}

TEST(ZelvarPackets, ADigitizerContextWithoutFieldsKeepsItsDefaults) {
    const DigitizerContext cContext(PacketBytes(kDigitizerContext).u32(1u << 31).block());
    EXPECT_TRUE(cContext.mbChange);
    EXPECT_EQ(cContext.muBandwidth, 0u);
    EXPECT_EQ(cContext.muRFFrequencyOffset, 0u);
    EXPECT_EQ(cContext.mfReferenceLevel, -1000.0f);
}

TEST(ZelvarPackets, APositionIsReadAsFloatsFromTheWire) {
    PacketBytes cBytes(kDigitizerContext);
    cBytes.u32(1u << 24 | 1u << 14).u32(0x00000100).u32(0xDEADBEEF).u32(1600000000).u64(5000000);
    for (float fValue : {48.5f, 9.25f, 440.0f, 1.5f, 90.0f, 91.0f, 3.5f})
        cBytes.f32(fValue);
    const DigitizerContext cContext(cBytes.block());
    EXPECT_EQ(cContext.mfReferenceLevel, 2.0f);
    ASSERT_TRUE(cContext.mbHasGNSS);
    EXPECT_EQ(cContext.mcGNSS.muSeconds, 1600000000u);
    EXPECT_EQ(cContext.mcGNSS.muPicoseconds, 5000000u);
    EXPECT_EQ(cContext.mcGNSS.mfLatitude, 48.5f);
    EXPECT_EQ(cContext.mcGNSS.mfLongitude, 9.25f);
    EXPECT_EQ(cContext.mcGNSS.mfAltitude, 440.0f);
    EXPECT_EQ(cContext.mcGNSS.mfSpeed, 1.5f);
    EXPECT_EQ(cContext.mcGNSS.mfHeading, 90.0f);
    EXPECT_EQ(cContext.mcGNSS.mfTrack, 91.0f);
    EXPECT_EQ(cContext.mcGNSS.mfMagneticVariation, 3.5f);
}

TEST(ZelvarPackets, AnExtensionContextHoldsStateAndIdentifiers) {
    const ExtensionContext cFull(
        PacketBytes(kExtensionContext).u32(1u << 31 | 0xB).u32(0xFFFFFFFF).u32(42).u32(43).block());
    EXPECT_TRUE(cFull.mbChange);
    EXPECT_TRUE(cFull.mbHasCaptureState);
    EXPECT_TRUE(cFull.mbCaptureState);
    EXPECT_EQ(cFull.muStreamIdentifier, 42u);
    EXPECT_EQ(cFull.muSweepIdentifier, 43u);
    const ExtensionContext cOne(PacketBytes(kExtensionContext).u32(1u << 1).u32(7).block());
    EXPECT_FALSE(cOne.mbHasCaptureState);
    EXPECT_FALSE(cOne.mbCaptureState);
    EXPECT_EQ(cOne.muStreamIdentifier, 7u);
    EXPECT_EQ(cOne.muSweepIdentifier, kAbsent32);
    const ExtensionContext cState(PacketBytes(kExtensionContext).u32(1u << 3).u32(2).block());
    EXPECT_TRUE(cState.mbHasCaptureState);
    EXPECT_FALSE(cState.mbCaptureState);
}

TEST(ZelvarPackets, AContextCutAnywhereKeepsDefaultsBehindTheCut) {
    PacketBytes cBytes(kDigitizerContext);
    cBytes.u32(1u << 31 | 1u << 29 | 1u << 26 | 1u << 24 | 1u << 14).u64(11).u64(22).u32(0x100).fill(11, 1);
    const std::string bytes = cBytes.bytes();
    for (size_t uLength = 0; uLength <= bytes.size(); ++uLength) {
        const DigitizerContext cContext(makeReference<MemoryBlock>(bytes.substr(0, uLength)));
        EXPECT_EQ(cContext.mbChange, uLength >= 24) << uLength;
        EXPECT_EQ(cContext.muBandwidth, uLength >= 32 ? 11u : 0u);
        EXPECT_EQ(cContext.muRFFrequencyOffset, uLength >= 40 ? 22u : 0u);
        EXPECT_EQ(cContext.mfReferenceLevel, uLength >= 44 ? 2.0f : -1000.0f);
        EXPECT_EQ(cContext.mbHasGNSS, uLength >= 88);
    }
}

TEST(ZelvarPackets, AHundredWordsWithATrailerAre94PairsOr188Items) {
    const auto bytes = [](uint32_t uID) { return PacketBytes(uID, true).fill(94).trailer(0).block(); };
    EXPECT_EQ(IFDataIQ14(bytes(kIFDataIQ14)).sampleCount(), 94u);
    EXPECT_EQ(IFDataI14(bytes(kIFDataI14)).sampleCount(), 188u);
    EXPECT_EQ(IFDataI24(bytes(kIFDataI24)).sampleCount(), 94u);
}

TEST(ZelvarPackets, AHundredWordsWithoutATrailerAre95PairsOr190Items) {
    const auto bytes = [](uint32_t uID) { return PacketBytes(uID).fill(95).block(); };
    EXPECT_EQ(IFDataIQ14(bytes(kIFDataIQ14)).sampleCount(), 95u);
    EXPECT_EQ(IFDataI14(bytes(kIFDataI14)).sampleCount(), 190u);
    EXPECT_EQ(IFDataI24(bytes(kIFDataI24)).sampleCount(), 95u);
}

TEST(ZelvarPackets, AnItemOfHexTwoThousandIsOne) {
    IFDataI14 cData(PacketBytes(kIFDataI14).u16(0x2000).u16(0xE000).u16(1).u16(0x8000).block());
    EXPECT_EQ(cData.peak(), 0u);
    const auto cSamples = cData.getSamples();
    ASSERT_EQ(cSamples->getActive(), 4u);
    EXPECT_EQ(cSamples->getData()[0], 1.0f);
    EXPECT_EQ(cSamples->getData()[1], -1.0f);
    EXPECT_EQ(cSamples->getData()[2], 1.0f / 8192.0f);
    EXPECT_EQ(cSamples->getData()[3], -4.0f);
    EXPECT_EQ(cData.peak(), 32768u);
}

TEST(ZelvarPackets, PairsAreInPhaseThenQuadrature) {
    IFDataIQ14 cData(
        PacketBytes(kIFDataIQ14, true).u16(0x1000).u16(0xF000).u16(3).u16(4).trailer(0x7FFF7FFF).block());
    for (int i = 0; i < 2; ++i) {  // decoding again reads from the start again
        const auto cSamples = cData.getSamples();
        ASSERT_EQ(cSamples->getActive(), 2u);
        EXPECT_EQ(cSamples->getData()[0], (Complex<float>{0.5f, -0.5f}));
        EXPECT_EQ(cSamples->getData()[1], (Complex<float>{3.0f / 8192, 4.0f / 8192}));
        EXPECT_EQ(cData.peak(), 4096u);  // the trailer is no sample
    }
}

TEST(ZelvarPackets, ScaledSamplesAreTheSameBitsAsStepByStep) {
    std::mt19937 cRandom(20260101);
    for (uint32_t uWords : {0u, 1u, 3u, 7u, 8u, 64u, 257u}) {
        PacketBytes cPairs(kIFDataIQ14);
        PacketBytes cItems(kIFDataI14);
        for (uint32_t i = 0; i < uWords; ++i) {
            const auto uWord = static_cast<uint32_t>(cRandom());
            cPairs.u32(uWord);
            cItems.u32(uWord);
        }
        IFDataIQ14 cIQ(cPairs.block());
        IFDataI14 cI(cItems.block());
        const float fGain = 0.0123456f;
        const auto cPlain = cIQ.getSamples();
        const auto cReal = cI.getSamples();
        for (bool bConjugate : {false, true}) {
            const auto cScaled = cIQ.getScaledSamples(fGain, bConjugate);
            ASSERT_EQ(cScaled->getActive(), uWords);
            for (uint32_t i = 0; i < uWords; ++i) {
                const Complex<float> cValue = cPlain->getData()[i];
                const float fImaginary = bConjugate ? -cValue.im : cValue.im;
                EXPECT_EQ(cScaled->getData()[i].re, cValue.re * fGain);
                EXPECT_EQ(cScaled->getData()[i].im, fImaginary * fGain);
            }
        }
        const auto cScaledReal = cI.getScaledSamples(fGain);
        ASSERT_EQ(cScaledReal->getActive(), uWords * 2);
        for (uint32_t i = 0; i < uWords * 2; ++i)
            EXPECT_EQ(cScaledReal->getData()[i], cReal->getData()[i] * fGain);
        EXPECT_EQ(cI.peak(), cIQ.peak());
    }
}

TEST(ZelvarPackets, WithoutABlockThereAreNoSamples) {
    EXPECT_FALSE(IFDataIQ14(nullptr).getSamples());
    EXPECT_FALSE(IFDataIQ14(nullptr).getScaledSamples(1.0f, true));
    EXPECT_FALSE(IFDataI14(nullptr).getSamples());
    EXPECT_FALSE(IFDataI14(nullptr).getScaledSamples(1.0f));
}

TEST(ZelvarPackets, NoCountEverExceedsTheBytesThatAreThere) {
    for (uint32_t uLength = 0; uLength < 64; ++uLength)
        for (uint32_t uWords : {0u, 1u, 4u, 5u, 6u, 7u, uLength / 4, 65535u})
            for (bool bTrailer : {false, true}) {
                std::string bytes = PacketBytes(kIFDataI14, bTrailer).fill(11).bytes(uWords);
                bytes.resize(uLength);
                const auto cBlock = makeReference<MemoryBlock>(bytes);
                IFDataI14 cI(cBlock);
                IFDataIQ14 cIQ(cBlock);
                const uint32_t uRoom = uLength < 20 ? 0 : uLength - 20;
                EXPECT_LE(cI.sampleCount() * 2, uRoom);
                EXPECT_LE(cIQ.sampleCount() * 4, uRoom);
                EXPECT_EQ(cI.getSamples()->getActive(), cI.sampleCount());
                EXPECT_EQ(cIQ.getSamples()->getActive(), cIQ.sampleCount());
                if (!cI.isComplete()) {
                    EXPECT_EQ(cI.sampleCount(), 0u);
                }
            }
}

}  // namespace
