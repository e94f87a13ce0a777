#include "links/vita49zelvar.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "dsp/sampleconversion.h"

namespace VITA49Zelvar {

namespace {

constexpr uint32_t kBitsPerItem = 14;
constexpr uint32_t kNoPosition = 0x7FFFFFFF;  // as a float's bits

uint32_t bigEndian32(const uint8_t* pBytes) {
    return (uint32_t{pBytes[0]} << 24) | (uint32_t{pBytes[1]} << 16) | (uint32_t{pBytes[2]} << 8) | pBytes[3];
}

uint64_t bigEndian64(const uint8_t* pBytes) {
    return (uint64_t{bigEndian32(pBytes)} << 32) | bigEndian32(pBytes + 4);
}

bool readU32(utils::MemoryBlock& cBlock, uint32_t& uValue) {
    uint8_t bytes[4];
    if (!cBlock.read(bytes, sizeof bytes))
        return false;
    uValue = bigEndian32(bytes);
    return true;
}

bool readU64(utils::MemoryBlock& cBlock, uint64_t& uValue) {
    uint8_t bytes[8];
    if (!cBlock.read(bytes, sizeof bytes))
        return false;
    uValue = bigEndian64(bytes);
    return true;
}

bool readFloat(utils::MemoryBlock& cBlock, float& fValue) {
    uint32_t uBits = 0;
    if (!readU32(cBlock, uBits))
        return false;
    fValue = std::bit_cast<float>(uBits);
    return true;
}

/// Signed 1/128 steps in the low 16 bits.
float level(uint32_t uWord) {
    return static_cast<float>(static_cast<int16_t>(uWord & 0xFFFFu)) * 0.0078125f;
}

/// Reads the fields of a context in the order of their indicator bits. A field that the bytes do not hold
/// ends the reading: what comes after it has no place.
class ContextReader {
 public:
    ContextReader(utils::MemoryBlock* pBlock, bool bHeader) : mpBlock(pBlock) {
        mbGood = bHeader && pBlock && readU32(*pBlock, muIndicators);
    }
    bool change() const { return has(31); }
    bool take(uint32_t uBit, uint32_t& uValue) { return has(uBit) && keep(readU32(*mpBlock, uValue)); }
    bool take(uint32_t uBit, uint64_t& uValue) { return has(uBit) && keep(readU64(*mpBlock, uValue)); }
    bool take(uint32_t uBit, GNSSFix& cFix) { return has(uBit) && keep(readFix(cFix)); }

 private:
    bool has(uint32_t uBit) const { return mbGood && ((muIndicators >> uBit) & 1u) != 0; }
    bool keep(bool bRead) {
        mbGood = bRead;
        return bRead;
    }
    bool readFix(GNSSFix& cFix) {
        GNSSFix cRead;
        uint32_t uDropped = 0;
        if (!readU32(*mpBlock, uDropped) || !readU32(*mpBlock, cRead.muSeconds) ||
            !readU64(*mpBlock, cRead.muPicoseconds))
            return false;
        for (float* pValue : {&cRead.mfLatitude, &cRead.mfLongitude, &cRead.mfAltitude, &cRead.mfSpeed,
                              &cRead.mfHeading, &cRead.mfTrack, &cRead.mfMagneticVariation})
            if (!readFloat(*mpBlock, *pValue))
                return false;
        cFix = cRead;
        return true;
    }

    utils::MemoryBlock* mpBlock;
    uint32_t muIndicators = 0;
    bool mbGood;
};

}  // namespace

GNSSFix::GNSSFix()
    : mfLatitude(std::bit_cast<float>(kNoPosition)),
      mfLongitude(std::bit_cast<float>(kNoPosition)),
      mfAltitude(std::bit_cast<float>(kNoPosition)) {}

Packet::Packet(ReferencePtr<utils::MemoryBlock> cBlock) : mcBlock(std::move(cBlock)) {
    if (!mcBlock)
        return;
    mcBlock->setReadPosition(mcBlock->getKeepMark());
    const uint32_t uBytes = mcBlock->getReadableDataLength();
    if (uBytes < kHeaderBytes)
        return;
    const uint8_t* pBytes = mcBlock->getReadable();
    muPacketType = pBytes[0] >> 4;
    mbClassID = (pBytes[0] & 0x08) != 0;
    mbTrailer = (pBytes[0] & 0x04) != 0;
    mbTSM = (pBytes[0] & 0x01) != 0;
    muTSI = pBytes[1] >> 6;
    muTSF = (pBytes[1] >> 4) & 3;
    muSequence = pBytes[1] & 15;
    muSizeWords = static_cast<uint16_t>((pBytes[2] << 8) | pBytes[3]);
    muStreamID = bigEndian32(pBytes + 4);
    muSeconds = bigEndian32(pBytes + 8);
    muPicoseconds = bigEndian64(pBytes + 12);
    const uint32_t uWords = uBytes / 4;
    const uint32_t uLeastWords = kHeaderBytes / 4 + (mbTrailer ? 1 : 0);
    if (mbTrailer && uWords >= uLeastWords)
        mcTrailer = bigEndian32(pBytes + size_t{uWords - 1} * 4);
    mbComplete =
        uWords == muSizeWords && uWords >= uLeastWords && (muStreamID & ~uint32_t{15}) == 0x90000000u;
    mcBlock->setReadPosition(mcBlock->getKeepMark() + kHeaderBytes);
}

bool Packet::trailerHas(uint32_t uEnableBit, uint32_t uIndicatorBit) const {
    return mcTrailer && ((*mcTrailer >> uEnableBit) & 1u) != 0 && ((*mcTrailer >> uIndicatorBit) & 1u) != 0;
}

ReceiverContext::ReceiverContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    ContextReader cReader(mcBlock.get(), streamID() != kAbsent32);
    mbChange = cReader.change();
    cReader.take(27, muRFFrequency);
    uint32_t uGains = 0;
    if (cReader.take(23, uGains)) {
        mfGain1 = level(uGains >> 16);
        mfGain2 = level(uGains);
    }
}

DigitizerContext::DigitizerContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    ContextReader cReader(mcBlock.get(), streamID() != kAbsent32);
    mbChange = cReader.change();
    cReader.take(29, muBandwidth);
    cReader.take(26, muRFFrequencyOffset);
    uint32_t uLevel = 0;
    if (cReader.take(24, uLevel))
        mfReferenceLevel = level(uLevel);
    mbHasGNSS = cReader.take(14, mcGNSS);
}

ExtensionContext::ExtensionContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    ContextReader cReader(mcBlock.get(), streamID() != kAbsent32);
    mbChange = cReader.change();
    uint32_t uState = 0;
    mbHasCaptureState = cReader.take(3, uState);
    mbCaptureState = (uState & 1u) != 0;
    cReader.take(1, muStreamIdentifier);
    cReader.take(0, muSweepIdentifier);
}

IFData::IFData(ReferencePtr<utils::MemoryBlock> cBlock, uint32_t uSamplesPerWord)
    : Packet(std::move(cBlock)) {
    // A complete packet has all the words that its header tells, and room for header and trailer.
    if (isComplete())
        muSampleCount = (sizeInWords() - kHeaderBytes / 4 - (hasTrailer() ? 1u : 0u)) * uSamplesPerWord;
}

const uint8_t* IFData::payload() {
    mcBlock->setReadPosition(mcBlock->getKeepMark() + kHeaderBytes);
    return mcBlock->getReadable();
}

IFDataIQ14::IFDataIQ14(ReferencePtr<utils::MemoryBlock> cBlock) : IFData(std::move(cBlock), 1) {}

IFDataI14::IFDataI14(ReferencePtr<utils::MemoryBlock> cBlock) : IFData(std::move(cBlock), 2) {}

IFDataI24::IFDataI24(ReferencePtr<utils::MemoryBlock> cBlock) : IFData(std::move(cBlock), 1) {}

ReferencePtr<ComplexArray> IFDataIQ14::getSamples() {
    if (!mcBlock)
        return nullptr;
    auto cSamples = makeReference<ComplexArray>(muSampleCount);
    muPeak = muSampleCount == 0 ? 0
                                : SampleConversion::convert(&cSamples->getData()->re, payload(),
                                                            muSampleCount * 2, kBitsPerItem);
    return cSamples;
}

ReferencePtr<ComplexArray> IFDataIQ14::getScaledSamples(float fGain, bool bConjugate) {
    if (!mcBlock)
        return nullptr;
    auto cSamples = makeReference<ComplexArray>(muSampleCount);
    muPeak = 0;
    if (muSampleCount == 0)
        return cSamples;
    if (bConjugate)
        muPeak = SampleConversion::convertConjugateScaled(cSamples->getData(), payload(), muSampleCount,
                                                          kBitsPerItem, fGain);
    else
        muPeak = SampleConversion::convertScaled(&cSamples->getData()->re, payload(), muSampleCount * 2,
                                                 kBitsPerItem, fGain);
    return cSamples;
}

ReferencePtr<FloatArray> IFDataI14::getSamples() {
    if (!mcBlock)
        return nullptr;
    auto cSamples = makeReference<FloatArray>(muSampleCount);
    muPeak = muSampleCount == 0
                 ? 0
                 : SampleConversion::convert(cSamples->getData(), payload(), muSampleCount, kBitsPerItem);
    return cSamples;
}

ReferencePtr<FloatArray> IFDataI14::getScaledSamples(float fGain) {
    if (!mcBlock)
        return nullptr;
    auto cSamples = makeReference<FloatArray>(muSampleCount);
    muPeak = muSampleCount == 0 ? 0
                                : SampleConversion::convertScaled(cSamples->getData(), payload(),
                                                                  muSampleCount, kBitsPerItem, fGain);
    return cSamples;
}

}  // namespace VITA49Zelvar
