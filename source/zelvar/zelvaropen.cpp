// How a receiver of the first family comes into being and how it reconnects.
#include "dsp/windowfunctions.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "receivers/probe.h"
#include "zelvar/status.h"
#include "zelvar/zelvarreceiver.h"

namespace {

constexpr int32_t kNoSCPI = -2000;
constexpr int32_t kNoIdentity = -2004;
constexpr int32_t kNoHiSLIP = -4000;
constexpr int32_t kWrongConnectionType = -5000;
constexpr int32_t kUnknownType = -6000;
constexpr int32_t kNoData = -6005;

constexpr int kDataReceiveTimeoutMs = 100;
constexpr uint32_t kThreadPriority = 4;
constexpr uint32_t kStopLimitMs = 2000;
constexpr uint64_t kLateBodyMs = 10000;

constexpr CommandWords kCommandWords = {"Cannot obtain acquisition access"};
constexpr SchedulerWords kSchedulerWords = {"ZelvarReceiver::mcEnginesLock",
                                            "Zelvar::run mcActiveIQ halt sequence completed",
                                            "Zelvar::run mcActiveIQ->process returns false",
                                            "::_detachIQStream called...", "...called with null stream"};
constexpr CorrectionCommands kCorrectionCommands = {"DATA:CORRECTION:SIGNAL:SIZE?",
                                                    "DATA:CORRECTION:NOISE:SIZE?",
                                                    "DATA:CORRECTION:%s:READ? 0, %d",
                                                    "DATA:CORRECTION:%s:READ? %d, %d",
                                                    "DATA:CORRECTION:%s:READ? %d, %d",
                                                    "SIGNAL",
                                                    "NOISE"};

}  // namespace

ZelvarReceiver::ZelvarReceiver(std::string connectionType, std::string host, bool bHiSLIP)
    : ReceiverDevice(std::move(connectionType), std::move(host), "ZelvarReceiver"),
      utils::Thread("ZelvarReceiver"),
      mcEngineLink(std::make_shared<DataLink>()),
      mcChannel(makeReference<CommandChannel>(mcLinkWatch, kCommandWords)),
      mcStatus(std::make_unique<ZelvarStatus>(mcLinkWatch)),
      mcScheduler(*this, kSchedulerWords) {
    mcChannel->setStopTest([this] { return isOwnThread() && isStopping(); });
    try {
        openUnit(bHiSLIP);
    } catch (...) {
        // Packets may be coming in already: none may find the object on its way out.
        letGoOfLink();
        throw;
    }
}

void ZelvarReceiver::openUnit(bool bHiSLIP) {
    if (!_open(bHiSLIP) || !identify())
        return;
    readOptions();
    mcStatus->readAtOpen(mcChannel->protocol());
    readCorrectionData();
    mcChannel->send("*RST");
    if (!mcChannel->verifyInBLOCKMode())
        return;
    mcContext = makeReference<EngineContext>(mcChannel, type());
    mcEngineLink->set(mcDataProtocol.get());
    resetLinkWatch();
    start(kThreadPriority);
    mbOpen.store(true, std::memory_order_relaxed);
}

bool ZelvarReceiver::_open(bool bHiSLIP) {
    if (bHiSLIP) {
        // Told first: no link of another type is ever tried.
        if (connectionType() != "TCP/IP")
            utils::RuntimeErrors::instance().reportAndThrow("Only TCP/IP currently supported for Zelvar",
                                                            kWrongConnectionType, __FILE__, __LINE__);
        utils::reportError(kNoHiSLIP, "Cannot open HiSlip connection to " + address());
        return false;
    }
    if (!openRaw())
        return false;
    if (mcChannel->query("*IDN?").empty()) {
        utils::reportError(kNoIdentity, "SCPI *IDN? no response " + address());
        return false;
    }
    mcDataProtocol.get()->addListener(this);
    resetLinkWatch();
    return true;
}

bool ZelvarReceiver::openRaw() {
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
    mcDataProtocol.set(makeReference<VITA49ZelvarProtocol>(cData));
    return true;
}

bool ZelvarReceiver::identify() {
    utils::VariantRecord cIdentity = parseIdentity(mcChannel->query("*IDN?"));
    const std::string type = cIdentity.getText("type").value_or("");
    const ModelRecord* pModel = findModel(type);
    if (!pModel) {
        utils::reportError(kUnknownType, "Unknown type " + type);
        return false;
    }
    mcModel = *pModel;
    mcStatus->setGNSSFitted(mcModel.mbGNSS);
    mcStoredParameters.set("WindowFn", WindowFunctions::listWindowNames().front());
    applyIdentity(cIdentity);
    return true;
}

void ZelvarReceiver::readOptions() {
    mbOption003 = hasOption(mcChannel->query("SYSTEM:OPTIONS?"), "003");
}

void ZelvarReceiver::readCorrectionData() {
    auto cFlatten = makeReference<_IFBWFlatten>(mcChannel->protocol(), kCorrectionCommands);
    if (cFlatten->isValid())
        mcFlatten = cFlatten;
}

void ZelvarReceiver::letGoOfLink() {
    mcChannel->setStopTest({});
    if (const auto cProtocol = mcDataProtocol.exchange({}))
        cProtocol->removeListener(this);
}

void ZelvarReceiver::handToEngines(const ReferencePtr<VITA49ZelvarProtocol>& cProtocol) {
    mcEngineLink->set(cProtocol);
    mcScheduler.linkChanged();
}

bool ZelvarReceiver::reopen() {
    const utils::ScopedLock cLock(mcReopenLock);
    stop(kStopLimitMs);
    if (const auto cProtocol = mcDataProtocol.exchange({}))
        cProtocol->removeListener(this);
    // Whoever still waits on the old link comes free: a query with a long time-out, a send to a unit that reads
    // no more.
    if (const auto cProtocol = mcChannel->protocol(); cProtocol && cProtocol->isOpen())
        cProtocol->closeTransport();
    mcChannel->setProtocol({});
    handToEngines({});
    if (!_open(false))
        return false;
    handToEngines(mcDataProtocol.get());
    mcChannel->recoverAccess();
    return startLate();
}

/// A body that has not heard the stop in time hears it at its next step; a second one never runs beside it.
bool ZelvarReceiver::startLate() {
    const uint64_t uBegin = utils::steadyMilliseconds();
    while (!start(kThreadPriority)) {
        if (utils::steadyMilliseconds() - uBegin > kLateBodyMs)
            return false;
        utils::sleepMs(10);
    }
    return true;
}
