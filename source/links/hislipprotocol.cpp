#include "links/hislipprotocol.h"

#include <algorithm>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr uint32_t kAnswerTimeoutMs = 1000;
constexpr uint32_t kPollTimeoutMs = 5;
constexpr uint32_t kChunkSize = 1024;
constexpr uint32_t kVersion = 0x1000;
constexpr uint32_t kVendorID = uint32_t{'V'} << 8 | uint32_t{'K'};
constexpr uint8_t kExclusiveLock = 1;
constexpr int32_t kLockCode = -4002;
constexpr uint32_t kLongestText = 65536;  // of what a unit has to say for itself

enum LockResponse : uint8_t { kRefused = 0, kGranted = 1, kInvalid = 3 };

}  // namespace

HiSlipProtocol::HiSlipProtocol() : Protocol(nullptr), mcHandlers(makeReference<HiSlipHandlers>()) {}

HiSlipProtocol::~HiSlipProtocol() {
    if (mcAsyncTransport)
        mcAsyncTransport->clearCallback(this);
}

bool HiSlipProtocol::open(const std::string& host) {
    utils::ScopedLock cGuard(mcOpenLock);
    closeConnections();
    ReferencePtr<HSDataTransport> cFormer;
    {
        std::lock_guard<std::mutex> cState(mcStateMutex);
        std::swap(cFormer, mcDataTransport);
    }
    mcHost = utils::beforeFirst(host, ":");
    return connect();
}

bool HiSlipProtocol::reopen() {
    utils::ScopedLock cGuard(mcOpenLock);
    closeConnections();
    return connect();
}

bool HiSlipProtocol::close() {
    utils::ScopedLock cGuard(mcOpenLock);
    return closeConnections();
}

bool HiSlipProtocol::connect() {
    Connection cControl;
    Connection cAsync;
    if (!connectTo(cControl, "control") || !initialize(cControl) || !connectTo(cAsync, "async") ||
        !initializeAsync(cAsync))
        return false;
    adopt(std::move(cControl), std::move(cAsync));
    return isOpen();
}

bool HiSlipProtocol::connectTo(Connection& cConnection, const char* channel) {
    if (!mcHost.empty())
        cConnection.mcTransport = TransportType::openByName("TCP/IP", mcHost + ":4880");
    return cConnection.mcTransport || fail("Failed to open " + std::string(channel) + " connection at :4880");
}

bool HiSlipProtocol::initialize(Connection& cControl) {
    HiSlip::Message cResponse;
    const auto cRequest = HiSlip::makeMessage(HiSlip::kInitialize, kVersion << 16 | kVendorID);
    if (!cControl.exchange(cRequest, cResponse))
        return fail("No response to initialization within timeout");
    if (!judge(cResponse, HiSlip::kInitializeResponse, "Initialization response", "Bad initialize response"))
        return false;
    muVersion.store(static_cast<uint16_t>(cResponse.muParameter >> 16), std::memory_order_relaxed);
    muSessionID.store(static_cast<uint16_t>(cResponse.muParameter), std::memory_order_relaxed);
    muFlags.store(cResponse.muControlCode, std::memory_order_relaxed);
    return true;
}

bool HiSlipProtocol::initializeAsync(Connection& cAsync) {
    HiSlip::Message cResponse;
    if (!cAsync.exchange(HiSlip::makeMessage(HiSlip::kAsyncInitialize, sessionID()), cResponse))
        return fail("No response to async initialization within timeout");
    if (!judge(cResponse, HiSlip::kAsyncInitializeResponse, "Async initialization response",
               "Bad async initialize response"))
        return false;
    muServerVendorID.store(cResponse.muParameter, std::memory_order_relaxed);
    return true;
}

/// Sends and waits for one message, as long as the connection lasts and for no longer than an answer may
/// take.
bool HiSlipProtocol::Connection::exchange(const HiSlip::Message& cRequest, HiSlip::Message& cResponse) {
    std::string errorText;
    if (!mcTransport->send(HiSlip::serialise(cRequest), errorText))
        return false;
    const uint64_t uEnd = utils::steadyMilliseconds() + kAnswerTimeoutMs;
    for (;;) {
        const uint64_t uNow = utils::steadyMilliseconds();
        const auto cBlock =
            uNow < uEnd ? mcTransport->receive(static_cast<uint32_t>(uEnd - uNow), errorText) : nullptr;
        // Nothing to read is the peer's orderly end.
        if (cBlock ? cBlock->getReadableDataLength() == 0 : uNow >= uEnd || !errorText.empty())
            return false;
        if (!cBlock)
            continue;
        mcReceived.append(*cBlock);
        if (mcReceived.take(cResponse) == HiSlip::Parsing::kWhole)
            return true;
    }
}

/// True for the message expected; reports what else came.
bool HiSlipProtocol::judge(const HiSlip::Message& cResponse, uint8_t uExpected, const char* refused,
                           const char* unexpected) {
    if (cResponse.muType == uExpected)
        return true;
    const bool bFatal = cResponse.muType == HiSlip::kFatalError;
    if (!bFatal && cResponse.muType != HiSlip::kError)
        return fail(utils::formatText("%s - received unexpected message %d", unexpected, cResponse.muType));
    fail(
        utils::formatText("%s is %s error code %d", refused, bFatal ? "fatal" : "", cResponse.muControlCode));
    uint32_t uLength = 0;
    if (cResponse.mcPayload)
        if (const uint8_t* const pText = cResponse.mcPayload->getReadable(&uLength))
            fail(std::string(reinterpret_cast<const char*>(pText), std::min(uLength, kLongestText)));
    return false;
}

void HiSlipProtocol::adopt(Connection cControl, Connection cAsync) {
    {
        utils::ScopedLock cGuard(mcReceivedLock);
        mcReceived = std::move(cAsync.mcReceived);
    }
    mbLocked.store(false, std::memory_order_relaxed);
    cAsync.mcTransport->setCallback(this, kPollTimeoutMs, kChunkSize);
    const auto cMarshaller =
        makeReference<_Marshaller>(mcHandlers, std::move(cControl.mcReceived), isOverlapMode());
    ReferencePtr<HSDataTransport> cDataTransport;
    {
        std::lock_guard<std::mutex> cState(mcStateMutex);
        cDataTransport = mcDataTransport;
    }
    if (cDataTransport)
        cDataTransport->attach(std::move(cControl.mcTransport), cMarshaller);
    else
        cDataTransport = makeReference<HSDataTransport>(std::move(cControl.mcTransport), cMarshaller);
    std::lock_guard<std::mutex> cState(mcStateMutex);
    mcDataTransport = std::move(cDataTransport);
    mcAsyncTransport = std::move(cAsync.mcTransport);
}

/// Gives back both connections with their threads; false if there were none or one would not end in order.
bool HiSlipProtocol::closeConnections() {
    ReferencePtr<Transport> cAsync;
    ReferencePtr<HSDataTransport> cControl;
    {
        std::lock_guard<std::mutex> cState(mcStateMutex);
        std::swap(cAsync, mcAsyncTransport);
        cControl = mcDataTransport;
    }
    if (!cAsync || !cControl)
        return false;
    const bool bControl = cControl->close();
    cControl->attach(nullptr, nullptr);
    mcHandlers->endAll();
    const bool bAsync = cAsync->close();
    cAsync->clearCallback(this);
    return bControl && bAsync;
}

bool HiSlipProtocol::isOpen() {
    return bool(getDataTransport());
}

ReferencePtr<HSDataTransport> HiSlipProtocol::getDataTransport() {
    std::lock_guard<std::mutex> cState(mcStateMutex);
    return mcDataTransport && mcDataTransport->isOpen() ? mcDataTransport : nullptr;
}

bool HiSlipProtocol::lock() {
    ReferencePtr<Transport> cAsync;
    {
        std::lock_guard<std::mutex> cState(mcStateMutex);
        cAsync = mcAsyncTransport;
    }
    if (!cAsync)
        return false;
    HiSlip::Message cRequest = HiSlip::makeMessage(HiSlip::kAsyncLock, 0);
    cRequest.muControlCode = kExclusiveLock;
    std::string errorText;
    const HiSlip::Message cResponse = mcHandlers->await(HiSlip::kAsyncLockResponse, kAnswerTimeoutMs, [&] {
        std::lock_guard<std::mutex> cGuard(mcAsyncSendMutex);
        return cAsync->send(HiSlip::serialise(cRequest), errorText);
    });
    return cResponse.mbValid && isGranted(cResponse.muControlCode);
}

bool HiSlipProtocol::isGranted(uint8_t uCode) {
    if (uCode == kGranted)
        mbLocked.store(true, std::memory_order_relaxed);
    else if (uCode != kRefused)
        fail(utils::formatText("AsyncLockResponse indicates error -  code %d", uCode), kLockCode);
    // A unit may call it an error to ask for what one has.
    return uCode == kGranted || (uCode == kInvalid && mbLocked.load(std::memory_order_relaxed));
}

bool HiSlipProtocol::onData(ReferencePtr<utils::MemoryBlock> cBlock) {
    if (!cBlock)
        return true;
    utils::ScopedLock cGuard(mcReceivedLock);
    mcReceived.append(*cBlock);
    HiSlip::Message cMessage;
    while (mcReceived.take(cMessage) == HiSlip::Parsing::kWhole)
        mcHandlers->offer(cMessage);
    return true;
}

void HiSlipProtocol::onError(const std::string& text) {
    noteError(text);
    mcHandlers->endAll();
}

std::string HiSlipProtocol::getLastError() const {
    std::lock_guard<std::mutex> cState(mcStateMutex);
    return mcLastError;
}

void HiSlipProtocol::noteError(const std::string& text) {
    std::lock_guard<std::mutex> cState(mcStateMutex);
    mcLastError = text;
}

bool HiSlipProtocol::fail(const std::string& text, int32_t iCode) {
    noteError(text);
    utils::reportError(iCode, text);
    return false;
}
