#include "links/vita49.h"

#include <algorithm>

#include "dsp/sampleconversion.h"
#include "links/contextreader.h"

namespace VITA49 {

namespace {

using _uint64 = uint64_t;

constexpr uint32_t kBitsPerItem = 16;
constexpr uint8_t kTimeInPicoseconds = 2;

float fixedPoint(uint64_t uValue) {
    return static_cast<float>(uValue) * 0x1p-20f;
}

/// Null unless the bit is set and the block holds as much as the object needs.
template <typename Object>
ReferencePtr<Object> takeObject(ContextReader& cReader, uint32_t uBit,
                                const ReferencePtr<utils::MemoryBlock>& cBlock) {
    ReferencePtr<Object> cObject;
    cReader.takeBy(uBit, [&](utils::MemoryBlock&) {
        cObject = makeReference<Object>(cBlock);
        if (!cObject->isValid())
            cObject = nullptr;
        return cObject != nullptr;
    });
    return cObject;
}

}  // namespace

Packet::Packet(ReferencePtr<utils::MemoryBlock> cBlock) : PacketFields(std::move(cBlock)) {
    if (hasHeader())
        endHeader(readHeader());
    else if (mcBlock && mcBlock->getSize() > mcBlock->getKeepMark())
        muPacketType = mcBlock->getStorage()[mcBlock->getKeepMark()] >> 4;
}

/// What stands behind word 0; false when the block ends in it.
bool Packet::readHeader() {
    const bool bStreamID = muPacketType == kIFWithStreamID || muPacketType == kExtensionWithStreamID ||
                           muPacketType == kIFContext || muPacketType == kExtensionContext;
    uint64_t uDropped = 0;
    uint64_t uFraction = 0;
    if (bStreamID && !BigEndian::read(*mcBlock, muStreamID))
        return false;
    if (hasClassID() && !BigEndian::read(*mcBlock, uDropped))
        return false;
    if (tsi() != 0 && !BigEndian::read(*mcBlock, muSeconds))
        return false;
    if (tsf() != 0 && !BigEndian::read(*mcBlock, uFraction))
        return false;
    if (tsf() == kTimeInPicoseconds)
        muPicoseconds = uFraction;
    return true;
}

template <uint32_t kWords, uint32_t kLeastBytes>
ContextWords<kWords, kLeastBytes>::ContextWords(ReferencePtr<utils::MemoryBlock> cBlock) {
    if (!cBlock || cBlock->getReadableDataLength() < kLeastBytes)
        return;
    uint8_t bytes[kWords * 4] = {};
    mbValid = cBlock->read(bytes, std::min<uint32_t>(cBlock->getReadableDataLength(), sizeof bytes));
    for (uint32_t i = 0; i < kWords; ++i)
        muWords[i] = BigEndian::u32(bytes + size_t{i} * 4);
}

template class ContextWords<2, 8>;
template class ContextWords<11, 11>;
template class ContextWords<13, 13>;

void DecodingContext::requireDecodable() const {
    VNK_ASSERT(dataItemSize() == 15);
    VNK_ASSERT(itemPackingFieldSize() == 15);
    VNK_ASSERT(channelTagSize() == 0);
    VNK_ASSERT(eventTagSize() == 0);
    VNK_ASSERT(sampleComponentRepeatAsserted() == false);
    VNK_ASSERT(getDataItemEncoding() == kSignedFP);
    VNK_ASSERT(getSampleType() == kCplxCartesian);
    VNK_ASSERT(packingMethodProcessingNotLink() == true);
    VNK_ASSERT(getVectorSize() == 0x0);
    VNK_ASSERT(getRepeatCount() == 0x0);
}

ReferencePtr<ComplexArray> DecodingContext::decodePayload(ReferencePtr<utils::MemoryBlock> cBlock,
                                                          bool bHasTrailer, uint32_t& uPeak) const {
    requireDecodable();
    uint32_t uTotalBytes = 0;
    const uint8_t* const pData = cBlock->getReadable(&uTotalBytes);
    VNK_ASSERT((((_uint64)pData) & 0x3) == 0x0);
    VNK_ASSERT((uTotalBytes & 0x3) == 0);
    const uint32_t uPayloadBytes = uTotalBytes - std::min(uTotalBytes, bHasTrailer ? 4u : 0u);
    const uint32_t uCount = uPayloadBytes / 4;
    auto cResult = makeReference<ComplexArray>(uCount);
    VNK_ASSERT(cResult != nullptr);
    uPeak =
        uCount == 0 ? 0 : SampleConversion::convert(&cResult->getData()->re, pData, uCount * 2, kBitsPerItem);
    cBlock->setReadPosition(cBlock->getReadPosition() + uPayloadBytes);
    return cResult;
}

IFData::IFData(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    VNK_ASSERT_TEXT(!hasHeader() || muPacketType == kIFNoStreamID || muPacketType == kIFWithStreamID,
                    "(muPacketType == kIFNoStreamID) || (muPacketType == kIFWithStreamID)");
    muSampleCount = payloadWords();
}

ReferencePtr<ComplexArray> IFData::getSamples() {
    if (mcSamples || !mcDecodingContext || !mcBlock)
        return mcSamples;
    payload();
    auto cSamples = mcDecodingContext->decodePayload(mcBlock, hasTrailer(), muPeak);
    if (isInverted())
        for (uint32_t i = 0; i < cSamples->getActive(); ++i)
            cSamples->getData()[i].im = -cSamples->getData()[i].im;
    mcSamples = std::move(cSamples);
    return mcSamples;
}

ReferencePtr<ComplexArray> IFData::getScaledSamples(float fGain) {
    if (!mcDecodingContext || !mcBlock)
        return nullptr;
    mcDecodingContext->requireDecodable();
    return decodePairs(payload(), kBitsPerItem, fGain, isInverted());
}

ReferencePtr<FloatArray> IFData::getItems() {
    if (!mcDecodingContext || !mcBlock)
        return nullptr;
    mcDecodingContext->requireDecodable();
    auto cItems = makeReference<FloatArray>(2 * muSampleCount);
    static_assert(sizeof(Complex<float>) == 2 * sizeof(float));
    decodePairs(payload(), kBitsPerItem, 1.0f, isInverted(), reinterpret_cast<Complex<float>*>(cItems->getData()));
    return cItems;
}

IFContext::IFContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    VNK_ASSERT_TEXT(!hasHeader() || muPacketType == kIFContext, "muPacketType == kIFContext");
    ContextReader cReader(mcBlock.get());
    uint32_t uWord = 0;
    cReader.take(30, uWord);  // reference point
    cReader.take(29, muBandwidth);
    cReader.take(28, muIFReferenceFrequency);
    cReader.take(27, muRFFrequency);
    cReader.take(26, muRFFrequencyOffset);
    cReader.take(25, muIFBandOffset);
    mbReferenceLevel = cReader.take(24, uWord);
    if (mbReferenceLevel)
        miReferenceLevel = static_cast<int16_t>(uWord & 0xFFFFu);
    // The gains of a unit that sends this form mean nothing.
    if (cReader.skipWord(23))
        mfGain1 = mfGain2 = 0.0f;
    cReader.take(22, muOverRangeCount);
    cReader.take(21, muSampleRate);
    cReader.take(20, muTimestampAdjustment);
    cReader.take(19, muCalibrationTime);
    cReader.take(18, muTemperature);
    uint64_t uDevice = 0;
    if (cReader.take(17, uDevice)) {
        muMakerCode = static_cast<uint32_t>(uDevice >> 32) & 0xFFFFFFu;
        muDeviceCode = static_cast<uint32_t>(uDevice) & 0xFFFFu;
    }
    // Has no word of its own here: the next field begins where the word would be.
    if (cReader.has(16))
        muStateAndEvents = cReader.lastWord();
    mcDecodingContext = takeObject<DecodingContext>(cReader, 15, mcBlock);
    mcGPS = takeObject<Geolocation>(cReader, 14, mcBlock);
    mcINS = takeObject<Geolocation>(cReader, 13, mcBlock);
    mcEphemeris = takeObject<ECEFEphemeris>(cReader, 12, mcBlock);
}

void IFContext::getTuning(float& fRFFrequency, float& fBandwidth, float& fSampleRate,
                          float& fReferenceLevel) const {
    if (muRFFrequency != kAbsent64)
        fRFFrequency = fixedPoint(muRFFrequency);
    if (muBandwidth != kAbsent64)
        fBandwidth = fixedPoint(muBandwidth);
    if (muSampleRate != kAbsent64)
        fSampleRate = fixedPoint(muSampleRate);
    if (miReferenceLevel != 0)
        fReferenceLevel = static_cast<float>(miReferenceLevel) * 0.0078125f;
}

ExtensionContext::ExtensionContext(ReferencePtr<utils::MemoryBlock> cBlock) : Packet(std::move(cBlock)) {
    readCapture(mcBlock.get());
}

}  // namespace VITA49
