#include "quillon/quillonreceiver.h"

#include "quillon/frequencylimit.h"
#include "quillon/iqmechanism.h"
#include "quillon/sweepmechanism.h"

namespace {

constexpr ReceiverWords kWords = {
    .mpName = "QuillonReceiver",
    .mpReopenLock = "QuillonReceiver::mcReopenLock",
    .mpTCPIPOnly = "Only TCP/IP currently supported for Quillon",
    .mpThreadExits = "QuillonReceiverThread exits",
    .mpIdleBegins = "quillon ::run wait start",
    .mpIdleEnds = "quillon processing loop (::run) exits wait state",
    .mpIQRefused = "IQ Stream cannot be implemented",
    .mpSpectrumRefused = "Failed to attach spectrum stream",
    .mcCommands = {"Failed to acquire acqusition access."},
    .mcScheduler = {.mpLockName = "QuillonReceiver::mcEnginesLock",
                    .mpIQHaltCompleted = "syncComplete",
                    .mpIQProcessEnded = "Quillon::run mcActiveIQ->process returns false",
                    .mpDetachIQCalled = "::detachStream called...",
                    .mpDetachIQNull = "::detachStream called with null stream",
                    .mpSweepServed = "Attempt to re-attach an already served spectrum stream",
                    .mbTellsIQCount = true,
                    .mbSweepsEnd = false},
    // The table alone is asked for with two colons.
    .mcCorrections = {.mpSignalSize = "DATA:CORRECTION:SIGNAL:SIZE?",
                      .mpNoiseSize = "DATA:CORrection:NOISe:SIZE?",
                      .mpReadHeader = "DATA:CORrection:%s:READ? 0, %d",
                      .mpReadTable = "DATA:CORrection::%s:READ? %d, %d",
                      .mpReadVector = "DATA:CORRECTION:%s:READ? %d, %d",
                      .mpSignalName = "SIGNAL",
                      .mpNoiseName = "NOISe"},
};

}  // namespace

bool QuillonReceiver::takeModel(const std::string&) {
    const std::optional<float> fLowest = Quillon::readFrequencyLimit(channel().query(":sense:freq:center? min"));
    const std::optional<float> fHighest = Quillon::readFrequencyLimit(channel().query(":sense:freq:center? max"));
    if (fLowest && fHighest)
        mcCentreHz = {*fLowest, *fHighest};
    return fLowest && fHighest;
}

QuillonReceiver::QuillonReceiver(std::string connectionType, std::string host, bool bHiSLIP)
    : PacketReceiver(std::move(connectionType), std::move(host), kWords) {
    openUnit(bHiSLIP);
}

ReferencePtr<IQEngine> QuillonReceiver::makeIQEngine(const ReferencePtr<IQFrameSink>& cSink,
                                                     const StreamRanges& cRanges) {
    return ReferencePtr<IQEngine>(new Quillon::_IQMechanism(context(), cSink, cRanges, dataProtocolSource()));
}

ReferencePtr<SweepEngine> QuillonReceiver::makeSweepEngine(const ReferencePtr<SpectrumFrameSink>& cSink,
                                                           const StreamRanges& cRanges) {
    return ReferencePtr<SweepEngine>(
        new Quillon::_SweepMechanism(context(), cSink, cRanges, dataProtocolSource(), flattening()));
}

// Packets

void QuillonReceiver::handleIFData(ReferencePtr<VITA49::IFData> cPacket) {
    if (cPacket)
        dispatch("Unexpected IFData", &Listener::handleIFData, cPacket);
    else
        utils::reportTrace("handleIFData called with cPacket==nullptr");
}

void QuillonReceiver::handleIFContext(ReferencePtr<VITA49::IFContext> cPacket) {
    if (cPacket)
        dispatch("Unexpected IFContext", &Listener::handleIFContext, cPacket);
    else
        utils::reportTrace("handleIFContext called with cPacket==nullptr");
}

void QuillonReceiver::handleExtensionData(ReferencePtr<VITA49::ExtensionData> cPacket) {
    if (cPacket)
        dispatch("Unexpected ExtensionData", &Listener::handleExtensionData, cPacket);
    else
        utils::reportTrace("handleExtensionData called with cPacket==nullptr");
}

void QuillonReceiver::handleExtensionContext(ReferencePtr<VITA49::ExtensionContext> cPacket) {
    if (cPacket)
        dispatch("Unexpected ExtensionContext", &Listener::handleExtensionContext, cPacket);
    else
        utils::reportTrace("handleExtensionContext called with cPacket==nullptr");
}
