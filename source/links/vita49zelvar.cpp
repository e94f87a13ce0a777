#include "links/vita49zelvar.h"

#include <bit>

#include "dsp/sampleconversion.h"
#include "links/contextreader.h"

namespace VITA49Zelvar {

namespace {

constexpr uint32_t kBitsPerItem = 14;
constexpr uint32_t kNoPosition = 0x7FFFFFFF;  // as a float's bits

/// Signed 1/128 steps in the low 16 bits.
float level(uint32_t uWord) {
    return static_cast<float>(static_cast<int16_t>(uWord & 0xFFFFu)) * 0.0078125f;
}

bool readFix(utils::MemoryBlock& cBlock, GNSSFix& cFix) {
    GNSSFix cRead;
    uint32_t uDropped = 0;
    if (!BigEndian::read(cBlock, uDropped) || !BigEndian::read(cBlock, cRead.muSeconds) ||
        !BigEndian::read(cBlock, cRead.muPicoseconds))
        return false;
    for (float* pValue : {&cRead.mfLatitude, &cRead.mfLongitude, &cRead.mfAltitude, &cRead.mfSpeed,
                          &cRead.mfHeading, &cRead.mfTrack, &cRead.mfMagneticVariation}) {
        uint32_t uBits = 0;
        if (!BigEndian::read(cBlock, uBits))
            return false;
        *pValue = std::bit_cast<float>(uBits);
    }
    cFix = cRead;
    return true;
}

}  // namespace

GNSSFix::GNSSFix()
    : mfLatitude(std::bit_cast<float>(kNoPosition)),
      mfLongitude(std::bit_cast<float>(kNoPosition)),
      mfAltitude(std::bit_cast<float>(kNoPosition)) {}

Packet::Packet(ReferencePtr<utils::MemoryBlock> cBlock) : PacketFields(std::move(cBlock)) {
    if (!hasHeader())
        return;
    BigEndian::read(*mcBlock, muStreamID);
    BigEndian::read(*mcBlock, muSeconds);
    BigEndian::read(*mcBlock, muPicoseconds);
    endHeader(true);
    mbComplete = mbComplete && (muStreamID & ~uint32_t{15}) == 0x90000000u;
}

ReceiverContext::ReceiverContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    ContextReader cReader(mcBlock.get());
    mbChange = cReader.change();
    cReader.take(27, muRFFrequency);
    uint32_t uGains = 0;
    if (cReader.take(23, uGains)) {
        mfGain1 = level(uGains >> 16);
        mfGain2 = level(uGains);
    }
}

DigitizerContext::DigitizerContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    ContextReader cReader(mcBlock.get());
    mbChange = cReader.change();
    cReader.take(29, muBandwidth);
    cReader.take(26, muRFFrequencyOffset);
    uint32_t uLevel = 0;
    if (cReader.take(24, uLevel))
        mfReferenceLevel = level(uLevel);
    mbHasGNSS = cReader.takeBy(14, [this](utils::MemoryBlock& cRest) { return readFix(cRest, mcGNSS); });
}

ExtensionContext::ExtensionContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    readCapture(mcBlock.get());
}

IFData::IFData(ReferencePtr<utils::MemoryBlock> cBlock, uint32_t uSamplesPerWord)
    : Packet(std::move(cBlock)) {
    if (isComplete())
        muSampleCount = payloadWords() * uSamplesPerWord;
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
    return mcBlock ? decodePairs(payload(), kBitsPerItem, fGain, bConjugate) : nullptr;
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
