// The scan of the generic form and everything that its packets decode to. The first byte says in what pieces
// the rest arrives.

#include <algorithm>
#include <cstdint>

#include "links/vita49protocol.h"

namespace {

using namespace VITA49;

void require(bool bCondition) {
    if (!bCondition)
        __builtin_trap();
}

/// Decodes each packet in every way.
class Decoder : public VITA49Protocol::Listener {
 public:
    void handleIFData(ReferencePtr<IFData> cPacket) override {
        look(*cPacket, cPacket->packetType() <= kIFWithStreamID);
        require(cPacket->sampleCount() <= 65535u);
        require(cPacket->isComplete() || cPacket->sampleCount() == 0);
        if (!cPacket->decodingContext()) {
            require(!cPacket->getSamples() && !cPacket->getScaledSamples(0.5f));
            return;
        }
        try {
            decode(*cPacket);
        } catch (const utils::FatalError&) {
            require(!isDecodable(*cPacket->decodingContext()));
        }
    }
    void handleIFContext(ReferencePtr<IFContext> cPacket) override {
        look(*cPacket, cPacket->packetType() == kIFContext);
        float fFrequency = 0, fBandwidth = 0, fRate = 0, fLevel = 0;
        cPacket->getTuning(fFrequency, fBandwidth, fRate, fLevel);
        require(fFrequency >= 0 && fBandwidth >= 0 && fRate >= 0 && fLevel >= -256 && fLevel < 256);
        require(!cPacket->mcDecodingContext || cPacket->mcDecodingContext->isValid());
        require(!cPacket->mcGPS || cPacket->mcGPS->isValid());
        require(!cPacket->mcINS || cPacket->mcINS->isValid());
        require(!cPacket->mcEphemeris || cPacket->mcEphemeris->isValid());
    }
    void handleExtensionData(ReferencePtr<ExtensionData> cPacket) override {
        look(*cPacket, cPacket->packetType() / 2 == 1);
    }
    void handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) override {
        look(*cPacket, cPacket->packetType() == kExtensionContext);
        require(!cPacket->mbCaptureState || cPacket->mbHasCaptureState);
    }

 private:
    static bool isDecodable(const DecodingContext& cContext) {
        return (cContext.word(0) & ~0xF000u) == 0x200003CFu && cContext.word(1) == 0;
    }
    static void decode(IFData& cPacket) {
        const auto cSamples = cPacket.getSamples();
        require(isDecodable(*cPacket.decodingContext()));
        require(cSamples->getActive() == cPacket.sampleCount());
        const uint32_t uPeak = cPacket.peak();
        require(uPeak <= 32768u);
        const auto cScaled = cPacket.getScaledSamples(1.0f);
        require(cPacket.peak() == uPeak && cPacket.getSamples() == cSamples);
        for (uint32_t i = 0; i < cSamples->getActive(); ++i)
            require(cSamples->getData()[i] == cScaled->getData()[i]);
    }
    static void look(const Packet& cPacket, bool bType) {
        require(bType);
        require(!cPacket.isComplete() || cPacket.sizeInWords() >= 5);
        require(!cPacket.trailerHas(kInversionEnable, kInversion) || cPacket.trailer().has_value());
        (void)cPacket.timestampNs();
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    if (uSize == 0)
        return 0;
    Decoder cDecoder;
    const auto cProtocol = makeReference<VITA49Protocol>(nullptr);
    cProtocol->addListener(&cDecoder);
    cProtocol->setDrain((pData[0] & 0x80) != 0);
    const size_t uPiece = size_t{1} << (pData[0] & 15);
    for (size_t uAt = 1; uAt < uSize; uAt += uPiece) {
        const auto uLength = static_cast<uint32_t>(std::min(uPiece, uSize - uAt));
        const auto cBlock = makeReference<utils::MemoryBlock>(pData + uAt, uLength);
        require(cProtocol->onData(cBlock));
        require(cBlock->getReadableDataLength() == 0);
    }
    cProtocol->clearBuffer();
    require(cProtocol->takeActivity() == ((pData[0] & 0x80) != 0 && uSize > 1));
    return 0;
}
