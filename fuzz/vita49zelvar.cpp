// The scan of the data channel and everything that its packets decode to. The first byte says in what
// pieces the rest arrives.

#include <algorithm>
#include <cstdint>

#include "links/zelvar-vita49protocol.h"

namespace {

using namespace VITA49Zelvar;

void require(bool bCondition) {
    if (!bCondition)
        __builtin_trap();
}

/// Decodes each packet in every way.
class Decoder : public VITA49ZelvarProtocol::Listener {
 public:
    void handleReceiverContext(ReferencePtr<ReceiverContext> cPacket) override { look(*cPacket); }
    void handleDigitizerContext(ReferencePtr<DigitizerContext> cPacket) override { look(*cPacket); }
    void handleExtensionContext(ReferencePtr<ExtensionContext> cPacket) override { look(*cPacket); }
    void handleIFDataIQ14(ReferencePtr<IFDataIQ14> cPacket) override {
        look(*cPacket);
        require(cPacket->sampleCount() <= 65535u);
        const auto cSamples = cPacket->getSamples();
        require(cSamples->getActive() == cPacket->sampleCount());
        const uint32_t uPeak = cPacket->peak();
        require(uPeak <= 32768u);
        for (bool bConjugate : {false, true}) {
            cPacket->getScaledSamples(0.5f, bConjugate);
            require(cPacket->peak() == uPeak);
        }
        require(cPacket->isComplete() || cPacket->sampleCount() == 0);
    }
    void handleIFDataI14(ReferencePtr<IFDataI14> cPacket) override {
        look(*cPacket);
        require(cPacket->sampleCount() <= 131070u);
        require(cPacket->getSamples()->getActive() == cPacket->sampleCount());
        cPacket->getScaledSamples(0.5f);
        require(cPacket->isComplete() || cPacket->sampleCount() == 0);
    }
    void handleIFDataI24(ReferencePtr<IFDataI24> cPacket) override { look(*cPacket); }

 private:
    static void look(const Packet& cPacket) {
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
    const auto cProtocol = makeReference<VITA49ZelvarProtocol>(nullptr);
    cProtocol->addListener(&cDecoder);
    cProtocol->setDrain((pData[0] & 0x80) != 0);
    const size_t uPiece = size_t{1} << (pData[0] & 15);
    for (size_t uAt = 1; uAt < uSize; uAt += uPiece) {
        const auto uLength = static_cast<uint32_t>(std::min(uPiece, uSize - uAt));
        const auto cBlock = makeReference<utils::MemoryBlock>(pData + uAt, uLength);
        require(cProtocol->onData(cBlock));
        require(cBlock->getReadableDataLength() == 0);
    }
    // A clean start finds the next packet, whatever came before.
    cProtocol->clearBuffer();
    require(cProtocol->takeActivity() == ((pData[0] & 0x80) != 0 && uSize > 1));
    return 0;
}
