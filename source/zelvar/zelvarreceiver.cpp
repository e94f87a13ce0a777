#include "zelvar/zelvarreceiver.h"

#include "receivers/unitstatus.h"
#include "zelvar/iqmechanism.h"
#include "zelvar/sweepmechanism.h"

namespace {

constexpr int32_t kUnknownType = -6000;

constexpr ReceiverWords kWords = {
    .mpName = "ZelvarReceiver",
    .mpReopenLock = "ZelvarReceiver::mcReopenLock",
    .mpTCPIPOnly = "Only TCP/IP currently supported for Zelvar",
    .mpThreadExits = "ZelvarReceiverThread exits",
    .mpIdleBegins = "run into wait",
    .mpIdleEnds = "run exit wait",
    .mpIQRefused = "Cannot implement IQ stream",
    .mpSpectrumRefused = "Spectrum stream attach failed",
    .mcCommands = {"Cannot obtain acquisition access"},
    .mcScheduler = {.mpLockName = "ZelvarReceiver::mcEnginesLock",
                    .mpIQHaltCompleted = "Zelvar::run mcActiveIQ halt sequence completed",
                    .mpIQProcessEnded = "Zelvar::run mcActiveIQ->process returns false",
                    .mpDetachIQCalled = "::_detachIQStream called...",
                    .mpDetachIQNull = "...called with null stream",
                    .mpSweepServed = "Attempted to re-add spectrum stream"},
    .mcCorrections = {.mpSignalSize = "DATA:CORRECTION:SIGNAL:SIZE?",
                      .mpNoiseSize = "DATA:CORRECTION:NOISE:SIZE?",
                      .mpReadHeader = "DATA:CORRECTION:%s:READ? 0, %d",
                      .mpReadTable = "DATA:CORRECTION:%s:READ? %d, %d",
                      .mpReadVector = "DATA:CORRECTION:%s:READ? %d, %d",
                      .mpSignalName = "SIGNAL",
                      .mpNoiseName = "NOISE"},
};

}  // namespace

ZelvarReceiver::ZelvarReceiver(std::string connectionType, std::string host, bool bHiSLIP)
    : PacketReceiver(std::move(connectionType), std::move(host), kWords) {
    openUnit(bHiSLIP);
}

ZelvarReceiver::~ZelvarReceiver() {
    endReceiver();
}

bool ZelvarReceiver::takeModel(const std::string& type) {
    const ModelRecord* pModel = findModel(type);
    if (!pModel) {
        utils::reportError(kUnknownType, "Unknown type " + type);
        return false;
    }
    mcModel = *pModel;
    status().setGNSSFitted(mcModel.mbGNSS);
    return true;
}

ReferencePtr<IQEngine> ZelvarReceiver::makeIQEngine(const ReferencePtr<IQFrameSink>& cSink,
                                                    const StreamRanges& cRanges) {
    return ReferencePtr<IQEngine>(new _IQMechanism(context(), cSink, mcModel, cRanges, dataProtocolSource()));
}

ReferencePtr<SweepEngine> ZelvarReceiver::makeSweepEngine(const ReferencePtr<SpectrumFrameSink>& cSink,
                                                          const StreamRanges& cRanges) {
    return ReferencePtr<SweepEngine>(
        new _SweepMechanism(context(), cSink, mcModel, cRanges, dataProtocolSource(), flattening()));
}

// Packets

void ZelvarReceiver::handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext> cPacket) {
    dispatch("Unexpected ReceiverContext", &Listener::handleReceiverContext, cPacket);
}

void ZelvarReceiver::handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext> cPacket) {
    const auto cSelf = holdSelf();
    if (!cSelf)
        return;
    if (cPacket->mbHasGNSS)
        status().takeFix(cPacket->mcGNSS);
    dispatch("Unexpected DigitizerContext", &Listener::handleDigitizerContext, cPacket);
}

void ZelvarReceiver::handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext> cPacket) {
    dispatch("Unexpected ExtensionContext", &Listener::handleExtensionContext, cPacket);
}

void ZelvarReceiver::handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) {
    dispatch("Unexpected IFDataIQ14", &Listener::handleIFDataIQ14, cPacket);
}

void ZelvarReceiver::handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14> cPacket) {
    const auto cSelf = holdSelf();
    if (!cSelf)
        return;
    mbI14Seen.store(true, std::memory_order_relaxed);
    dispatch("Unexpected IFDataI14", &Listener::handleIFDataI14, cPacket);
}

void ZelvarReceiver::handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24> cPacket) {
    dispatch("Unexpected IFDataI24", &Listener::handleIFDataI24, cPacket);
}
