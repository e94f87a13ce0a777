// How a receiver comes into being and how it reconnects.
#include "dsp/windowfunctions.h"
#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "links/datachannel.h"
#include "receivers/probe.h"
#include "receivers/radioreceiver.h"
#include "receivers/unitstatus.h"

namespace {

constexpr int32_t kNoSCPI = -2000;
constexpr int32_t kNoIdentity = -2004;
constexpr int32_t kNoHiSLIP = -4000;
constexpr int32_t kWrongConnectionType = -5000;
constexpr int32_t kNoData = -6005;

constexpr int kDataReceiveTimeoutMs = 100;
constexpr uint32_t kThreadPriority = 4;
constexpr uint32_t kStopLimitMs = 2000;
constexpr uint64_t kLateBodyMs = 10000;

}  // namespace

RadioReceiver::RadioReceiver(std::string connectionType, std::string host, const ReceiverWords& cWords)
    : ReceiverDevice(std::move(connectionType), std::move(host), cWords.mpName),
      utils::Thread(cWords.mpName),
      mcWords(cWords),
      mcChannel(makeReference<CommandChannel>(mcLinkWatch, cWords.mcCommands)),
      mcStatus(std::make_unique<UnitStatus>(mcLinkWatch)),
      mcScheduler(*this, cWords.mcScheduler),
      mcReopenLock(cWords.mpReopenLock) {
    mcChannel->setStopTest([this] { return isOwnThread() && isStopping(); });
}

void RadioReceiver::openUnit(bool bHiSLIP) {
    try {
        if (!_open(bHiSLIP) || !identify())
            return;
        readOptions();
        mcStatus->readAtOpen(mcChannel->protocol());
        readCorrectionData();
        mcChannel->send("*RST");
        if (!mcChannel->verifyInBLOCKMode())
            return;
        mcContext = makeReference<EngineContext>(mcChannel, type());
        shareDataProtocol(true);
        resetLinkWatch();
        start(kThreadPriority);
        mbOpen.store(true, std::memory_order_relaxed);
    } catch (...) {
        // Packets may be coming in already: none may find the object on its way out.
        letGoOfLink();
        throw;
    }
}

bool RadioReceiver::_open(bool bHiSLIP) {
    // Told first: no link of another type is ever tried.
    if (bHiSLIP && connectionType() != "TCP/IP")
        utils::RuntimeErrors::instance().reportAndThrow(mcWords.mpTCPIPOnly, kWrongConnectionType, __FILE__, __LINE__);
    if (!(bHiSLIP ? openHiSLIP() : openRaw()))
        return false;
    if (mcChannel->query("*IDN?").empty()) {
        utils::reportError(kNoIdentity, "SCPI *IDN? no response " + address());
        return false;
    }
    listen();
    resetLinkWatch();
    return true;
}

bool RadioReceiver::openRaw() {
    const ReferencePtr<Transport> cCommands = TransportType::openByName("TCP/IP", scpiAddress(address()));
    if (!cCommands) {
        utils::reportError(kNoSCPI, "Cannot open SCPI connection to " + address());
        return false;
    }
    mcChannel->setProtocol(makeReference<SCPIProtocol>(cCommands));
    const ReferencePtr<Transport> cData =
        TransportType::openByName("TCP/IP", dataAddress(address(), kDataReceiveTimeoutMs));
    if (!cData) {
        utils::reportError(kNoData, "Cannot open data connection to " + address());
        return false;
    }
    makeDataProtocol(cData);
    return true;
}

bool RadioReceiver::openHiSLIP() {
    const auto cHiSLIP = makeReference<HiSlipProtocol>();
    mcChannel->setHiSLIP(cHiSLIP);
    cHiSLIP->open(address());
    if (!cHiSLIP->isOpen()) {
        utils::reportError(kNoHiSLIP, "Cannot open HiSlip connection to " + address());
        return false;
    }
    const ReferencePtr<HSDataTransport> cCommands = cHiSLIP->getDataTransport();
    if (!cCommands) {
        utils::reportError(kNoHiSLIP, "Cannot open data channel over HiSlip to " + address());
        return false;
    }
    const auto cSCPI = makeReference<SCPIProtocol>(cCommands);
    if (!cSCPI->isOpen()) {
        utils::reportError(kNoSCPI, "Cannot open SCPI connection over HiSlip to " + address());
        return false;
    }
    mcChannel->setProtocol(cSCPI);
    const ReferencePtr<Transport> cData = openDataChannel(*cHiSLIP);
    if (!cData) {
        utils::reportError(kNoData, "Failed to open VITA49 data transport");
        return false;
    }
    makeDataProtocol(cData);
    if (isDataProtocolOpen())
        return true;
    utils::reportError(kNoData, "Failed to establish valid VITA49 protocol");
    return false;
}

bool RadioReceiver::identify() {
    utils::VariantRecord cIdentity = parseIdentity(mcChannel->query("*IDN?"));
    if (!takeModel(cIdentity.getText("type").value_or("")))
        return false;
    mcStoredParameters.set("WindowFn", WindowFunctions::listWindowNames().front());
    applyIdentity(cIdentity);
    return true;
}

void RadioReceiver::readOptions() {
    mbOption003 = hasOption(mcChannel->query("SYSTEM:OPTIONS?"), "003");
}

void RadioReceiver::readCorrectionData() {
    auto cFlatten = makeReference<_IFBWFlatten>(mcChannel->protocol(), mcWords.mcCorrections);
    if (cFlatten->isValid())
        mcFlatten = cFlatten;
}

void RadioReceiver::letGoOfLink() {
    mcChannel->setStopTest({});
    dropDataProtocol();
}

bool RadioReceiver::reopen() {
    const utils::ScopedLock cLock(mcReopenLock);
    stop(kStopLimitMs);
    dropDataProtocol();
    const bool bHiSLIP = mcChannel->dropLinks();
    shareDataProtocol(false);
    mcScheduler.linkChanged();
    if (!_open(bHiSLIP))
        return false;
    shareDataProtocol(true);
    mcScheduler.linkChanged();
    mcChannel->recoverAccess();
    return startLate();
}

/// A body that has not heard the stop in time hears it at its next step; a second one never runs beside it.
bool RadioReceiver::startLate() {
    const uint64_t uBegin = utils::steadyMilliseconds();
    while (!start(kThreadPriority)) {
        if (utils::steadyMilliseconds() - uBegin > kLateBodyMs)
            return false;
        utils::sleepMs(10);
    }
    return true;
}
