#include "links/vrtpacket.h"

#include "dsp/sampleconversion.h"
#include "links/contextreader.h"

namespace VRT {

PacketFields::PacketFields(ReferencePtr<utils::MemoryBlock> cBlock) : mcBlock(std::move(cBlock)) {
    if (!mcBlock)
        return;
    mcBlock->setReadPosition(mcBlock->getKeepMark());
    uint32_t uBytes = 0;
    const uint8_t* const pBytes = mcBlock->getReadable(&uBytes);
    if (uBytes >= kHeaderBytes) {
        mbHeader = true;
        muPacketType = pBytes[0] >> 4;
        mbClassID = (pBytes[0] & 0x08) != 0;
        mbTrailer = (pBytes[0] & 0x04) != 0;
        mbTSM = (pBytes[0] & 0x01) != 0;
        muTSI = pBytes[1] >> 6;
        muTSF = (pBytes[1] >> 4) & 3;
        muSequence = pBytes[1] & 15;
        muSizeWords = BigEndian::u16(pBytes + 2);
        mcBlock->setReadPosition(mcBlock->getReadPosition() + 4);
        return;
    }
    mcBlock->setReadPosition(mcBlock->getSize());
    muPayloadOffset = mcBlock->getSize();
}

void PacketFields::endHeader(bool bWhole) {
    if (!bWhole)
        mcBlock->setReadPosition(mcBlock->getSize());
    muPayloadOffset = mcBlock->getReadPosition();
    const uint32_t uStart = mcBlock->getKeepMark();
    const uint32_t uWords = (mcBlock->getSize() - uStart) / 4;
    muPayloadWords = mcBlock->getReadableDataLength() / 4;
    bool bRoom = bWhole;
    if (mbTrailer && muPayloadWords > 0) {
        --muPayloadWords;
        mcTrailer = BigEndian::u32(mcBlock->getStorage() + uStart + size_t{uWords - 1} * 4);
    } else if (mbTrailer) {
        bRoom = false;
    }
    mbComplete = bRoom && uWords == muSizeWords;
}

const uint8_t* PacketFields::payload() {
    mcBlock->setReadPosition(muPayloadOffset);
    return mcBlock->getReadable();
}

bool PacketFields::trailerHas(uint32_t uEnableBit, uint32_t uIndicatorBit) const {
    return mcTrailer && ((*mcTrailer >> uEnableBit) & 1u) != 0 && ((*mcTrailer >> uIndicatorBit) & 1u) != 0;
}

ReferencePtr<ComplexArray> SampleFields::decodePairs(const uint8_t* pItems, uint32_t uBits, float fGain,
                                                     bool bConjugate) {
    auto cSamples = makeReference<ComplexArray>(muSampleCount);
    decodePairs(pItems, uBits, fGain, bConjugate, cSamples->getData());
    return cSamples;
}

void SampleFields::decodePairs(const uint8_t* pItems, uint32_t uBits, float fGain, bool bConjugate,
                               Complex<float>* pOutput) {
    muPeak = 0;
    if (muSampleCount == 0)
        return;
    if (bConjugate)
        muPeak = SampleConversion::convertConjugateScaled(pOutput, pItems, muSampleCount, uBits, fGain);
    else
        muPeak = SampleConversion::convertScaled(&pOutput->re, pItems, muSampleCount * 2, uBits, fGain);
}

void CaptureFields::readCapture(utils::MemoryBlock* pBlock) {
    ContextReader cReader(pBlock);
    mbChange = cReader.change();
    uint32_t uState = 0;
    mbHasCaptureState = cReader.take(3, uState);
    mbCaptureState = (uState & 1u) != 0;
    cReader.take(1, muStreamIdentifier);
    cReader.take(0, muSweepIdentifier);
}

}  // namespace VRT
