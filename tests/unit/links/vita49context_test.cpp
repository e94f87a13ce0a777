// The fields of the generic form's context, against a reading of the same bytes that goes by its table alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "genericpackets.h"
#include "links/vita49.h"

using namespace VITA49;
using utils::MemoryBlock;
using vnktest::contextPacket;
using vnktest::kPairsOf16;

namespace {

constexpr uint32_t kHeadBytes = 24;  // header and indicator word

/// Fields by bit: what the context keeps of each, as a 64-bit value.
struct Fields {
    uint64_t mlValues[32];
    float mfGain;
    std::string mWords[16];  // of the objects of bits 15 to 12, on the wire; empty when absent

    friend bool operator==(const Fields&, const Fields&) = default;
};

Fields absentFields() {
    Fields cFields{};
    for (size_t uBit : {29u, 28u, 27u, 26u, 25u, 21u})
        cFields.mlValues[uBit] = kAbsent64;
    for (size_t uBit : {22u, 19u, 16u})
        cFields.mlValues[uBit] = kAbsent32;
    cFields.mlValues[17] = kAbsent64;
    cFields.mfGain = -1000.0f;
    return cFields;
}

/// By the table, over a text.
class TableReader {
 public:
    explicit TableReader(const std::string& bytes) : mBytes(bytes) {}

    Fields read() {
        if (mBytes.size() < kHeadBytes)
            return mcFields;
        muAt = kHeadBytes - 4;
        const auto uIndicators = static_cast<uint32_t>(number(4));
        for (uint32_t uBit = 30; uBit >= 12 && !mbEnded; --uBit)
            if ((uIndicators >> uBit) & 1)
                field(uBit);
        return mcFields;
    }

 private:
    uint64_t number(size_t uBytes) {
        uint64_t uValue = 0;
        for (size_t i = 0; i < uBytes; ++i)
            uValue = uValue << 8 | static_cast<uint8_t>(mBytes[muAt + i]);
        muAt += uBytes;
        muLast = static_cast<uint32_t>(uValue);
        return uValue;
    }
    void field(uint32_t uBit) {
        static constexpr size_t kSizes[] = {52, 44, 44, 8, 0, 8, 4, 4, 8, 8, 4, 4, 4, 8, 8, 8, 8, 8, 4};
        const size_t uSize = kSizes[uBit - 12];
        if (uBit <= 15)
            return object(uBit, uSize);
        if (mBytes.size() - muAt < uSize) {
            mbEnded = true;
            return;
        }
        uint64_t& uKept = mcFields.mlValues[uBit];
        if (uBit == 16) {
            uKept = muLast;
        } else if (uBit == 23) {
            muAt += 4;
            mcFields.mfGain = 0.0f;
        } else {
            const uint64_t uValue = number(uSize);
            if (uBit == 24)
                uKept = static_cast<uint64_t>(int64_t{static_cast<int16_t>(uValue)});
            else if (uBit == 17)
                uKept = (uValue & 0x00FFFFFF00000000u) | (uValue & 0xFFFFu);
            else if (uBit != 30)
                uKept = uValue;
        }
    }
    void object(uint32_t uBit, size_t uSize) {
        const size_t uLeast = uBit == 15 ? 8 : uSize / 4;
        const size_t uLeft = mBytes.size() - muAt;
        if (uLeft < uLeast) {
            mbEnded = true;
            return;
        }
        std::string words = mBytes.substr(muAt, uSize);
        muAt += words.size();
        words.resize(uSize);
        mcFields.mWords[uBit] = words;
    }

    std::string mBytes;
    size_t muAt = 0;
    uint32_t muLast = 0;
    bool mbEnded = false;
    Fields mcFields = absentFields();
};

template <typename Object>
std::string wireOf(const ReferencePtr<Object>& cObject) {
    std::string bytes;
    for (uint32_t i = 0; cObject && i < Object::kCount; ++i)
        for (int iShift = 24; iShift >= 0; iShift -= 8)
            bytes.push_back(static_cast<char>(cObject->word(i) >> iShift));
    return bytes;
}

Fields fieldsOf(const IFContext& cContext) {
    Fields cFields{};
    cFields.mlValues[29] = cContext.muBandwidth;
    cFields.mlValues[28] = cContext.muIFReferenceFrequency;
    cFields.mlValues[27] = cContext.muRFFrequency;
    cFields.mlValues[26] = cContext.muRFFrequencyOffset;
    cFields.mlValues[25] = cContext.muIFBandOffset;
    cFields.mlValues[24] = static_cast<uint64_t>(int64_t{cContext.miReferenceLevel});
    cFields.mlValues[22] = cContext.muOverRangeCount;
    cFields.mlValues[21] = cContext.muSampleRate;
    cFields.mlValues[20] = cContext.muTimestampAdjustment;
    cFields.mlValues[19] = cContext.muCalibrationTime;
    cFields.mlValues[18] = cContext.muTemperature;
    cFields.mlValues[17] = uint64_t{cContext.muMakerCode} << 32 | cContext.muDeviceCode;
    cFields.mlValues[16] = cContext.muStateAndEvents;
    cFields.mfGain = cContext.mfGain1;
    EXPECT_EQ(cContext.mfGain1, cContext.mfGain2);
    cFields.mWords[15] = wireOf(cContext.mcDecodingContext);
    cFields.mWords[14] = wireOf(cContext.mcGPS);
    cFields.mWords[13] = wireOf(cContext.mcINS);
    cFields.mWords[12] = wireOf(cContext.mcEphemeris);
    return cFields;
}

IFContext contextOf(const std::string& bytes) {
    return IFContext(makeReference<MemoryBlock>(bytes));
}

/// Every byte of the fields is another one.
std::string contextBytes(uint32_t uIndicators, size_t uBytes = 240) {
    std::string bytes = contextPacket(uIndicators).bytes();
    for (size_t i = 0; i < uBytes; ++i)
        bytes.push_back(static_cast<char>(0x81 + i * 7));
    return bytes;
}

TEST(GenericContext, WithoutFieldsEachKeepsItsDefault) {
    const IFContext cContext = contextOf(contextBytes(0x80000FFF));
    EXPECT_TRUE(fieldsOf(cContext) == absentFields());
    EXPECT_FALSE(cContext.mcDecodingContext);
    EXPECT_FALSE(cContext.mcGPS);
    EXPECT_FALSE(cContext.mcINS);
    EXPECT_FALSE(cContext.mcEphemeris);
}

TEST(GenericContext, FieldsAreReadInTheOrderOfTheirBits) {
    const IFContext cContext(contextPacket(0x7FFEF000)
                                 .u32(0x30303030)
                                 .u64(29)
                                 .u64(28)
                                 .u64(27)
                                 .u64(26)
                                 .u64(25)
                                 .u32(0x7777FF80)
                                 .u32(0x23232323)
                                 .u32(22)
                                 .u64(21)
                                 .u64(20)
                                 .u32(19)
                                 .u32(18)
                                 .u32(0xFF123456)
                                 .u32(0xFFFF4321)
                                 .u32(kPairsOf16)
                                 .u32(0)
                                 .fill(11, 14)
                                 .fill(11, 13)
                                 .fill(13, 12)
                                 .block());
    EXPECT_TRUE(cContext.isComplete());
    EXPECT_EQ(cContext.muBandwidth, 29u);
    EXPECT_EQ(cContext.muIFReferenceFrequency, 28u);
    EXPECT_EQ(cContext.muRFFrequency, 27u);
    EXPECT_EQ(cContext.muRFFrequencyOffset, 26u);
    EXPECT_EQ(cContext.muIFBandOffset, 25u);
    EXPECT_EQ(cContext.miReferenceLevel, -128);
    EXPECT_EQ(cContext.mfGain1, 0.0f);
    EXPECT_EQ(cContext.mfGain2, 0.0f);
    EXPECT_EQ(cContext.muOverRangeCount, 22u);
    EXPECT_EQ(cContext.muSampleRate, 21u);
    EXPECT_EQ(cContext.muTimestampAdjustment, 20u);
    EXPECT_EQ(cContext.muCalibrationTime, 19u);
    EXPECT_EQ(cContext.muTemperature, 18u);
    EXPECT_EQ(cContext.muMakerCode, 0x123456u);
    EXPECT_EQ(cContext.muDeviceCode, 0x4321u);
    EXPECT_EQ(cContext.muStateAndEvents, kAbsent32);
    ASSERT_TRUE(cContext.mcDecodingContext);
    EXPECT_NO_THROW(cContext.mcDecodingContext->requireDecodable());
    ASSERT_TRUE(cContext.mcGPS && cContext.mcINS && cContext.mcEphemeris);
    EXPECT_EQ(cContext.mcGPS->word(10), 14u);
    EXPECT_EQ(cContext.mcINS->word(0), 13u);
    EXPECT_EQ(cContext.mcEphemeris->word(12), 12u);
}

TEST(GenericContext, TheGainsBecomeZeroAndTheFieldsAfterThemStayInPlace) {
    const IFContext cContext(contextPacket(1u << 23 | 1u << 22).u32(0xFFFFF960).u32(5).block());
    EXPECT_EQ(cContext.mfGain1, 0.0f);
    EXPECT_EQ(cContext.mfGain2, 0.0f);
    EXPECT_EQ(cContext.muOverRangeCount, 5u);
}

TEST(GenericContext, StateAndEventsTakeNoWordAndRepeatTheLastOneRead) {
    const auto state = [](uint32_t uIndicators) {
        return contextOf(contextBytes(uIndicators | 1u << 16)).muStateAndEvents;
    };
    // Bytes of the fields from 0x81 on in steps of 7: the first word, the second of a 64-bit field.
    EXPECT_EQ(state(0), 1u << 16);
    EXPECT_EQ(state(1u << 30), 0x81888F96u);
    EXPECT_EQ(state(1u << 18), 0x81888F96u);
    EXPECT_EQ(state(1u << 21), 0x9DA4ABB2u);
    EXPECT_EQ(state(1u << 17), 0x9DA4ABB2u);
    EXPECT_EQ(state(1u << 24), 0x81888F96u);
    EXPECT_EQ(state(1u << 23), 1u << 23 | 1u << 16);  // the gains are not read
    EXPECT_EQ(state(1u << 30 | 1u << 23), 0x81888F96u);
}

TEST(GenericContext, BehindStateAndEventsThePayloadFormatBeginsOneWordEarly) {
    const IFContext cContext(contextPacket(1u << 18 | 1u << 16 | 1u << 15)
                                 .u32(0x1111)
                                 .u32(0x2222)
                                 .u32(0x3333)
                                 .u32(0x4444)
                                 .block());
    EXPECT_EQ(cContext.muTemperature, 0x1111u);
    EXPECT_EQ(cContext.muStateAndEvents, 0x1111u);
    ASSERT_TRUE(cContext.mcDecodingContext);
    EXPECT_EQ(cContext.mcDecodingContext->word(0), 0x2222u);
    EXPECT_EQ(cContext.mcDecodingContext->word(1), 0x3333u);
}

TEST(GenericContext, PositionsFromElevenOrThirteenBytesOnAreFilledWithZeros) {
    for (uint32_t uBit : {14u, 13u, 12u}) {
        const size_t uSize = uBit == 12 ? 52 : 44;
        for (size_t uLeft = 0; uLeft <= uSize + 4; ++uLeft) {
            const std::string bytes = contextBytes(1u << uBit, uLeft);
            const Fields cFields = fieldsOf(contextOf(bytes));
            std::string words = bytes.substr(kHeadBytes, uSize);
            words.resize(uSize);
            EXPECT_EQ(cFields.mWords[uBit], uLeft < uSize / 4 ? std::string() : words)
                << uBit << " " << uLeft;
        }
    }
}

TEST(GenericContext, APositionThatTakesWhatIsLeftLeavesNothingForTheNext) {
    const IFContext cContext = contextOf(contextBytes(1u << 14 | 1u << 13 | 1u << 12, 44 + 10));
    EXPECT_TRUE(cContext.mcGPS);
    EXPECT_FALSE(cContext.mcINS);
    EXPECT_FALSE(cContext.mcEphemeris);
}

TEST(GenericContext, CutAfterEveryByteWhatIsMissingKeepsItsDefault) {
    for (uint32_t uIndicators : {0x7FFFF000u, 0x7FFEF000u, 0xFBB98000u, 0x00010000u, 0x0000F000u, 0x55555555u,
                                 0xAAAAAAAAu, 0x20800000u}) {
        const std::string bytes = contextBytes(uIndicators);
        for (size_t uLength = 0; uLength <= bytes.size(); ++uLength) {
            const std::string cut = bytes.substr(0, uLength);
            ASSERT_TRUE(fieldsOf(contextOf(cut)) == TableReader(cut).read()) << uIndicators << " " << uLength;
        }
    }
}

TEST(GenericContext, EachIndicatorAloneAndEachPairAreReadAsTheTableSays) {
    for (uint32_t uFirst = 0; uFirst < 32; ++uFirst)
        for (uint32_t uSecond = 0; uSecond < 32; ++uSecond) {
            const std::string bytes = contextBytes(1u << uFirst | 1u << uSecond);
            ASSERT_TRUE(fieldsOf(contextOf(bytes)) == TableReader(bytes).read()) << uFirst << " " << uSecond;
        }
}

TEST(GenericContext, AnyIndicatorsOverAnyBytesAreReadAsTheTableSays) {
    std::mt19937 cRandom(4915);
    for (int i = 0; i < 100000; ++i) {
        std::string bytes = contextPacket(static_cast<uint32_t>(cRandom())).bytes();
        for (size_t uLeft = cRandom() % 260; uLeft > 0; --uLeft)
            bytes.push_back(static_cast<char>(cRandom()));
        ASSERT_TRUE(fieldsOf(contextOf(bytes)) == TableReader(bytes).read()) << i;
    }
}

TEST(GenericContext, TuningIsGivenInHertzAndDecibels) {
    const IFContext cContext(contextPacket(1u << 29 | 1u << 27 | 1u << 24 | 1u << 21)
                                 .u64(uint64_t{80000000} << 20)
                                 .u64((uint64_t{2450000000} << 20) | (1u << 19))
                                 .u32(0xF580)
                                 .u64(uint64_t{122880000} << 20)
                                 .block());
    float fRF = 1, fBandwidth = 2, fRate = 3, fLevel = 4;
    cContext.getTuning(fRF, fBandwidth, fRate, fLevel);
    EXPECT_EQ(fRF, 2450000000.5f);
    EXPECT_EQ(fBandwidth, 80000000.0f);
    EXPECT_EQ(fRate, 122880000.0f);
    EXPECT_EQ(fLevel, -21.0f);
    EXPECT_EQ(cContext.muRFFrequency, (uint64_t{2450000000} << 20) | (1u << 19));
}

TEST(GenericContext, AbsentTuningLeavesTheCallersValues) {
    float fRF = 1, fBandwidth = 2, fRate = 3, fLevel = 4;
    contextOf(contextBytes(0)).getTuning(fRF, fBandwidth, fRate, fLevel);
    // A level of 0 and a frequency of all ones are as good as absent.
    contextOf(contextPacket(1u << 27 | 1u << 24).u64(kAbsent64).u32(0xFFFF0000).bytes())
        .getTuning(fRF, fBandwidth, fRate, fLevel);
    EXPECT_EQ(fRF, 1.0f);
    EXPECT_EQ(fBandwidth, 2.0f);
    EXPECT_EQ(fRate, 3.0f);
    EXPECT_EQ(fLevel, 4.0f);
}

TEST(GenericContext, AFrequencyIsUnsigned) {
    float fRF = 1, fBandwidth = 2, fRate = 3, fLevel = 4;
    contextOf(contextPacket(1u << 27).u64(kAbsent64 - 1).bytes()).getTuning(fRF, fBandwidth, fRate, fLevel);
    EXPECT_EQ(fRF, 17592186044416.0f);
}

}  // namespace
