#pragma once

#include <gmock/gmock.h>

#include <cmath>
#include <string>

#include "support/enginefixture.h"
#include "support/iqframes.h"
#include "support/logs.h"
#include "support/zelvarpackets.h"
#include "zelvar/iqmechanism.h"

namespace vnktest {

using namespace VITA49Zelvar;

inline constexpr StreamRanges kRanges{
    {9000.0f, 2.7e10f}, {9000.0f, 2.7e10f}, {1.0f, 1e7f}, {1e5f, 4e7f}, {-80.0f, 20.0f}};

inline ReferencePtr<ExtensionContext> streamContext(uint32_t uIdentifier) {
    return PacketBytes().u32(1u << 1).u32(uIdentifier).as<ExtensionContext>(kExtensionContext);
}

inline ReferencePtr<ExtensionContext> sweepContext(uint32_t uIdentifier) {
    return PacketBytes().u32(1u << 0).u32(uIdentifier).as<ExtensionContext>(kExtensionContext);
}

inline ReferencePtr<DigitizerContext> digitizerContext(int iReference128) {
    return PacketBytes()
        .u32(1u << 24)
        .u32(static_cast<uint32_t>(iReference128) & 0xFFFFu)
        .as<DigitizerContext>(kDigitizerContext);
}

inline ReferencePtr<ReceiverContext> receiverContext(uint64_t uHertz) {
    return PacketBytes().u32(1u << 27).u64(uHertz << 20).as<ReceiverContext>(kReceiverContext);
}

/// Pairs (i, q), as often as told.
inline PacketBytes pairs(int iI, int iQ, uint32_t uCount) {
    PacketBytes cBytes;
    for (uint32_t i = 0; i < uCount; ++i)
        cBytes.i16(iI).i16(iQ);
    return cBytes;
}

inline PacketBytes items(int iItem, uint32_t uCount) {
    return pairs(iItem, iItem, uCount / 2);
}

class IQMechanismFixture : public EngineFixture<IQFrameSink> {
 protected:
    IQMechanismFixture() {
        set("FCentreHz", 1e8f);
        set("IFBWHz", 2e7f);
        set("RefdBm", -40.0f);
        set("bufferFrames", uint32_t{1000});
        make("ZV350-C");
        mcSCPI->mcOnSend = [this](const std::string& text) { answer(text); };
    }
    ~IQMechanismFixture() override { mcSCPI->mcOnSend = nullptr; }
    void make(const std::string& model) {
        mcEngine = makeReference<_IQMechanism>(mcContext, mcStream, *findModel(model), kRanges,
                                      [this] { return mcDataProtocol; });
        mpListener = static_cast<_IQMechanism*>(mcEngine.get());
        mcEngine->takeInStream();
        takeLog(true);
    }
    /// The unit names each capture that is started.
    void answer(const std::string& text) {
        if (!mbUnitAnswers)
            return;
        if (text.rfind(":TRACe:STReam:STARt ", 0) == 0)
            mpListener->handleExtensionContext(streamContext(numberOf(text)));
        if (text.rfind("SWEEP:LIST:START ", 0) == 0)
            mpListener->handleExtensionContext(sweepContext(numberOf(text)));
    }
    void start() {
        ASSERT_TRUE(mcEngine->start());
        mcSCPI->take();
        takeLog(true);
    }
    void feed(const PacketBytes& cBytes) { mpListener->handleIFDataIQ14(cBytes.as<IFDataIQ14>(kIFDataIQ14)); }
    void feedReal(const PacketBytes& cBytes) {
        mpListener->handleIFDataI14(cBytes.as<IFDataI14>(kIFDataI14));
    }
    ReferencePtr<IQFrame> next() { return dynamicReferenceCast<IQFrame>(mcStream->nextFrame(0, false)); }

    bool mbUnitAnswers = true;
    ReferencePtr<VITA49ZelvarProtocol> mcDataProtocol;
    ReferencePtr<IQEngine> mcEngine;
    ZelvarPacketListener* mpListener = nullptr;
};

inline double gainFor(double fReference) {
    return std::pow(10.0, (fReference + 15.7678 - 3.0) / 20.0);
}

}  // namespace vnktest
