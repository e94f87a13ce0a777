// What real units of other makers sent, recorded from the wire: the bytes of all datagrams, one behind the
// other, are the stream of a data channel.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>

#include "links/bigendian.h"
#include "links/vita49protocol.h"

using namespace VITA49;
using testing::StartsWith;
using utils::MemoryBlock;

namespace {

struct Recording {
    const char* mpName;
    size_t muBytes;
    uint32_t muDataWords;
    uint32_t muFirstCounter;
    uint32_t muFirstSeconds;
    uint64_t muFirstPicoseconds;
    std::vector<uint64_t> mlSteps;  // the only ones, in picoseconds
    uint64_t muBandwidthHz;
    uint64_t muFrequencyHz;
    uint64_t muRateHz;
    uint32_t muFormat;
};

const Recording& narrow() {
    static const Recording scNarrow{
        "vita49_1msps_8bit",    147968, 367,        15,      1740688471, 106369572000,
        {719872000, 720896000}, 800000, 1950000000, 1000000, 0xA00001C7};
    return scNarrow;
}

const Recording& wide() {
    static const Recording scWide{"vita49_100msps_12bit",
                                  896768,
                                  2239,
                                  4,
                                  1740593271,
                                  663949820000,
                                  {29760000},
                                  80000000,
                                  1300000000,
                                  100000000,
                                  0xA00002CB};
    return scWide;
}

uint32_t littleEndian(const std::string& bytes, size_t uAt, size_t uBytes) {
    uint32_t uValue = 0;
    for (size_t i = uBytes; i > 0; --i)
        uValue = uValue << 8 | static_cast<uint8_t>(bytes.at(uAt + i - 1));
    return uValue;
}

/// The payloads of the datagrams of a classic little-endian capture file.
std::vector<std::string> datagrams(const Recording& cRecording) {
    std::ifstream file(std::string(VNK_TEST_DATA "/") + cRecording.mpName + ".pcap", std::ios::binary);
    std::stringstream cText;
    cText << file.rdbuf();
    const std::string bytes = cText.str();
    std::vector<std::string> lPayloads;
    EXPECT_GT(bytes.size(), 24u);
    if (bytes.size() <= 24)
        return lPayloads;
    EXPECT_EQ(littleEndian(bytes, 0, 4), 0xA1B2C3D4u);
    constexpr size_t kFileHeader = 24, kRecordHeader = 16, kEthernet = 14, kUDP = 8;
    for (size_t uAt = kFileHeader; uAt < bytes.size();) {
        const size_t uLength = littleEndian(bytes, uAt + 8, 4);
        const size_t uIP = uAt + kRecordHeader + kEthernet;
        const size_t uPayload = uIP + size_t{static_cast<uint8_t>(bytes.at(uIP)) & 15u} * 4 + kUDP;
        const size_t uUDPLength = size_t{static_cast<uint8_t>(bytes.at(uPayload - 4))} * 256 +
                                  static_cast<uint8_t>(bytes.at(uPayload - 3));
        lPayloads.push_back(bytes.substr(uPayload, uUDPLength - kUDP));
        uAt += kRecordHeader + uLength;
    }
    return lPayloads;
}

std::string joined(const std::vector<std::string>& lParts) {
    std::string bytes;
    for (const std::string& part : lParts)
        bytes += part;
    return bytes;
}

class RawPacket : public Packet {
 public:
    static std::string bytesOf(const Packet& cPacket) {
        const auto cBlock = cPacket.*(&RawPacket::mcBlock);
        return std::string(reinterpret_cast<const char*>(cBlock->getStorage()), cBlock->getSize());
    }
};

class Keeper : public VITA49Protocol::Listener {
 public:
    void handleIFData(ReferencePtr<IFData> cPacket) override {
        mTypes += static_cast<char>('0' + cPacket->packetType());
        mlData.push_back(cPacket);
    }
    void handleIFContext(ReferencePtr<IFContext> cPacket) override {
        mTypes += '4';
        mlContexts.push_back(cPacket);
    }
    void handleExtensionData(ReferencePtr<ExtensionData>) override { mTypes += '3'; }
    void handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) override {
        mTypes += '5';
        mlExtensions.push_back(cPacket);
    }
    std::string mTypes;
    std::vector<ReferencePtr<IFData>> mlData;
    std::vector<ReferencePtr<IFContext>> mlContexts;
    std::vector<ReferencePtr<ExtensionContext>> mlExtensions;
};

/// Feeds the parts to a new protocol.
void scan(Keeper& cKeeper, const std::vector<std::string>& lParts) {
    const auto cProtocol = makeReference<VITA49Protocol>(nullptr);
    cProtocol->addListener(&cKeeper);
    for (const std::string& part : lParts)
        cProtocol->onData(makeReference<MemoryBlock>(part));
}

/// The first hundred data packets. What the scan makes of the bytes of contexts that it does not recognise
/// comes behind them, as the units sent their contexts last.
std::vector<std::string> dataBytes(const Keeper& cKeeper) {
    std::vector<std::string> lBytes;
    for (size_t i = 0; i < std::min<size_t>(100, cKeeper.mlData.size()); ++i)
        lBytes.push_back(RawPacket::bytesOf(*cKeeper.mlData[i]));
    return lBytes;
}

/// The data packets as the datagrams hold them, each in one.
std::vector<std::string> dataOf(const std::vector<std::string>& lDatagrams) {
    std::vector<std::string> lData;
    for (const std::string& bytes : lDatagrams)
        if (bytes[0] == '\x18')
            lData.push_back(bytes);
    return lData;
}

class RecordedPackets : public testing::TestWithParam<const Recording*> {};

TEST_P(RecordedPackets, TheDataPacketsComeOutWhole) {
    const auto lDatagrams = datagrams(*GetParam());
    const auto lData = dataOf(lDatagrams);
    ASSERT_EQ(lDatagrams.size(), 112u);
    ASSERT_EQ(lData.size(), 100u);
    ASSERT_EQ(joined(lDatagrams).size(), GetParam()->muBytes);
    Keeper cKeeper;
    scan(cKeeper, {joined(lDatagrams)});
    EXPECT_THAT(cKeeper.mTypes, StartsWith(std::string(100, '1')));
    EXPECT_TRUE(dataBytes(cKeeper) == lData);
}

TEST_P(RecordedPackets, ContextsWithTheTSMBitAreNotRecognised) {
    const auto lDatagrams = datagrams(*GetParam());
    Keeper cKeeper;
    scan(cKeeper, {joined(lDatagrams)});
    // Zeros within them look like the start of one packet of 106 words.
    EXPECT_EQ(cKeeper.mTypes, std::string(100, '1') + "0");
    EXPECT_EQ(cKeeper.mlData.back()->sizeInWords(), 106u);
    for (const std::string& bytes : lDatagrams) {
        if (bytes[0] == '\x18')
            continue;
        EXPECT_EQ(bytes[0] & 0xF, 9);
        Keeper cAlone;
        // Alone it is no packet of its length, whatever its bytes look like.
        scan(cAlone, {bytes});
        for (const auto& cContext : cAlone.mlContexts)
            EXPECT_LT(RawPacket::bytesOf(*cContext).size(), bytes.size());
        for (const auto& cExtension : cAlone.mlExtensions)
            EXPECT_LT(RawPacket::bytesOf(*cExtension).size(), bytes.size());
    }
}

TEST_P(RecordedPackets, TheDataPacketsComeOutWholeWhereverTheBytesAreCut) {
    const auto lDatagrams = datagrams(*GetParam());
    const std::string bytes = joined(lDatagrams);
    const auto lData = dataOf(lDatagrams);
    std::mt19937 cRandom(91);
    for (size_t uMost : {size_t{1}, size_t{7}, size_t{1460}, size_t{65536}, bytes.size()}) {
        std::vector<std::string> lParts;
        for (size_t uAt = 0; uAt < bytes.size(); uAt += lParts.back().size())
            lParts.push_back(bytes.substr(uAt, 1 + cRandom() % uMost));
        Keeper cKeeper;
        scan(cKeeper, lParts);
        ASSERT_TRUE(dataBytes(cKeeper) == lData) << uMost;
    }
}

TEST_P(RecordedPackets, ACutAfterAnyByteOfTheFirstPacketsLosesNone) {
    const auto lDatagrams = datagrams(*GetParam());
    const std::string bytes = lDatagrams[0] + lDatagrams[1];
    for (size_t uCut = 1; uCut < bytes.size(); ++uCut) {
        Keeper cKeeper;
        scan(cKeeper, {bytes.substr(0, uCut), bytes.substr(uCut)});
        ASSERT_EQ(cKeeper.mlData.size(), 2u) << uCut;
        ASSERT_EQ(RawPacket::bytesOf(*cKeeper.mlData[0]), lDatagrams[0]) << uCut;
        ASSERT_EQ(RawPacket::bytesOf(*cKeeper.mlData[1]), lDatagrams[1]) << uCut;
    }
}

TEST_P(RecordedPackets, TheDataPacketsHoldWhatTheUnitTold) {
    const Recording& cTold = *GetParam();
    Keeper cKeeper;
    scan(cKeeper, {joined(datagrams(cTold))});
    ASSERT_GE(cKeeper.mlData.size(), 100u);
    uint64_t uLast = 0;
    for (size_t i = 0; i < 100; ++i) {
        const IFData& cData = *cKeeper.mlData[i];
        EXPECT_TRUE(cData.isComplete());
        EXPECT_EQ(cData.packetType(), kIFWithStreamID);
        EXPECT_EQ(cData.streamID(), 0u);
        EXPECT_TRUE(cData.hasClassID());
        EXPECT_FALSE(cData.hasTrailer());
        EXPECT_EQ(cData.tsi(), 3);
        EXPECT_EQ(cData.tsf(), 2);
        EXPECT_EQ(cData.sizeInWords(), cTold.muDataWords);
        EXPECT_EQ(cData.sampleCount(), cTold.muDataWords - 7);
        EXPECT_EQ(cData.sequenceNumber(), (cTold.muFirstCounter + i) % 16);
        EXPECT_FALSE(cData.decodingContext());
        const uint64_t uTime = cData.integerSeconds() * uint64_t{1000000000000} + cData.picoseconds();
        if (i > 0) {
            EXPECT_THAT(cTold.mlSteps, testing::Contains(uTime - uLast));
        }
        uLast = uTime;
    }
    EXPECT_EQ(cKeeper.mlData[0]->integerSeconds(), cTold.muFirstSeconds);
    EXPECT_EQ(cKeeper.mlData[0]->picoseconds(), cTold.muFirstPicoseconds);
}

/// A copy whose contexts are recognised: the bit is cleared in their first bytes.
std::vector<std::string> withoutTSM(std::vector<std::string> lDatagrams) {
    for (std::string& bytes : lDatagrams)
        bytes[0] = static_cast<char>(bytes[0] & ~1);
    return lDatagrams;
}

TEST_P(RecordedPackets, WithoutTheTSMBitAllPacketsAreRecognised) {
    Keeper cKeeper;
    scan(cKeeper, {joined(withoutTSM(datagrams(*GetParam())))});
    std::string types = cKeeper.mTypes;
    EXPECT_EQ(types.size(), 112u);
    std::erase(types, '1');
    EXPECT_EQ(types, "444544444544");
    EXPECT_EQ(cKeeper.mlData.size(), 100u);
    for (const auto& cExtension : cKeeper.mlExtensions) {
        EXPECT_TRUE(cExtension->isComplete());
        EXPECT_EQ(cExtension->sizeInWords(), 11u);
        EXPECT_EQ(cExtension->streamID(), 0u);
    }
}

TEST_P(RecordedPackets, TheContextsHoldWhatTheUnitTold) {
    const Recording& cTold = *GetParam();
    Keeper cKeeper;
    scan(cKeeper, {joined(withoutTSM(datagrams(cTold)))});
    ASSERT_EQ(cKeeper.mlContexts.size(), 10u);
    for (const auto& cContext : cKeeper.mlContexts) {
        EXPECT_TRUE(cContext->isComplete());
        EXPECT_EQ(cContext->sizeInWords(), 27u);
        EXPECT_EQ(cContext->muBandwidth, cTold.muBandwidthHz << 20);
        EXPECT_EQ(cContext->muIFReferenceFrequency, 0u);
        EXPECT_EQ(cContext->muRFFrequency, cTold.muFrequencyHz << 20);
        EXPECT_EQ(cContext->muSampleRate, cTold.muRateHz << 20);
        EXPECT_EQ(cContext->miReferenceLevel, 0);
        EXPECT_EQ(cContext->mfGain1, 0.0f);
        EXPECT_EQ(cContext->mfGain2, 0.0f);
        float fFrequency = 0, fBandwidth = 0, fRate = 0, fLevel = -77;
        cContext->getTuning(fFrequency, fBandwidth, fRate, fLevel);
        EXPECT_EQ(fFrequency, static_cast<float>(cTold.muFrequencyHz));
        EXPECT_EQ(fBandwidth, static_cast<float>(cTold.muBandwidthHz));
        EXPECT_EQ(fRate, static_cast<float>(cTold.muRateHz));
        EXPECT_EQ(fLevel, -77.0f);
    }
}

TEST_P(RecordedPackets, ThePayloadFormatIsReadOneWordEarlyAndDecodingIsRefused) {
    const Recording& cTold = *GetParam();
    const auto lDatagrams = withoutTSM(datagrams(cTold));
    Keeper cKeeper;
    // Once more the data, behind the contexts of their stream.
    scan(cKeeper, {joined(lDatagrams), joined(dataOf(lDatagrams))});
    ASSERT_EQ(cKeeper.mlContexts.size(), 10u);
    ASSERT_EQ(cKeeper.mlData.size(), 200u);
    for (const auto& cContext : cKeeper.mlContexts) {
        // Of the two words of the format the first is the one of state and events, the second its own first.
        ASSERT_TRUE(cContext->mcDecodingContext);
        const std::string bytes = RawPacket::bytesOf(*cContext);
        EXPECT_EQ(cContext->mcDecodingContext->word(0),
                  BigEndian::u32(reinterpret_cast<const uint8_t*>(bytes.data()) + bytes.size() - 12));
        EXPECT_EQ(cContext->mcDecodingContext->word(1), cTold.muFormat);
    }
    uint32_t uRefused = 0;
    for (const auto& cData : cKeeper.mlData) {
        if (!cData->decodingContext())
            continue;
        for (auto* const decode : {+[](IFData& cPacket) { cPacket.getSamples(); },
                                   +[](IFData& cPacket) { cPacket.getScaledSamples(1.0f); }})
            try {
                decode(*cData);
                FAIL() << "decoded";
            } catch (const utils::FatalError& cError) {
                EXPECT_THAT(cError.message(), StartsWith("ASSERT failed <dataItemSize() == 15> "));
                ++uRefused;
            }
    }
    EXPECT_EQ(uRefused, 200u);
}

INSTANTIATE_TEST_SUITE_P(Real, RecordedPackets, testing::Values(&narrow(), &wide()),
                         [](const auto& cInfo) { return std::string(cInfo.param->mpName); });

}  // namespace
