#include "links/hsdatatransport.h"

#include <algorithm>

#include "foundations/clock.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr uint32_t kPollTimeoutMs = 5;
constexpr uint32_t kChunkSize = 16384;

bool isData(const HiSlip::Message& cMessage) {
    return cMessage.muType == HiSlip::kData || cMessage.muType == HiSlip::kDataEnd;
}

std::string controlAddress(const ReferencePtr<Transport>& cTransport) {
    return cTransport ? "HSControl:" + cTransport->getDescription() : "HSControl(null)";
}

}  // namespace

/// Counted: the one who hands messages out may still be in a call when the wait has ended.
class HiSlipWait : public utils::ReferenceCountedObject {
 public:
    explicit HiSlipWait(std::optional<uint8_t> cType) : mcType(cType) {}

    /// True if the message is taken: one at most.
    bool handle(const HiSlip::Message& cMessage) {
        {
            std::lock_guard<std::mutex> cGuard(mcMutex);
            if (mcMessage.mbValid || (mcType && *mcType != cMessage.muType))
                return false;
            mcMessage = cMessage;
        }
        mcBarrier.signal();
        return true;
    }
    HiSlip::Message wait(uint32_t uTimeoutMs) {
        mcBarrier.wait(uint64_t{uTimeoutMs} * 1000);
        std::lock_guard<std::mutex> cGuard(mcMutex);
        return mcMessage;
    }
    void end() { mcBarrier.signal(); }

 private:
    const std::optional<uint8_t> mcType;
    utils::Barrier mcBarrier{"HiSlipProtocol::mcHandlerBarrier"};
    std::mutex mcMutex;
    HiSlip::Message mcMessage;
};

/// Takes a wait out of the list on every way out.
class HiSlipHandlers::Registration {
 public:
    Registration(HiSlipHandlers& cHandlers, ReferencePtr<HiSlipWait> cWait)
        : mcHandlers(cHandlers), mcWait(std::move(cWait)) {
        utils::ScopedLock cGuard(mcHandlers.mcHandlersLock);
        mcHandlers.mlHandlers.push_back(mcWait);
    }
    ~Registration() {
        utils::ScopedLock cGuard(mcHandlers.mcHandlersLock);
        std::erase(mcHandlers.mlHandlers, mcWait);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

 private:
    HiSlipHandlers& mcHandlers;
    const ReferencePtr<HiSlipWait> mcWait;
};

HiSlipHandlers::HiSlipHandlers() = default;
HiSlipHandlers::~HiSlipHandlers() = default;

HiSlip::Message HiSlipHandlers::await(std::optional<uint8_t> cType, uint32_t uTimeoutMs,
                                      const std::function<bool()>& send) {
    const auto cWait = makeReference<HiSlipWait>(cType);
    Registration cRegistration(*this, cWait);
    return send() ? cWait->wait(uTimeoutMs) : HiSlip::Message();
}

void HiSlipHandlers::offer(const HiSlip::Message& cMessage) {
    utils::ScopedLock cGuard(mcHandlersLock);
    for (const auto& cHandler : mlHandlers)
        if (cHandler->handle(cMessage))
            return;
}

void HiSlipHandlers::endAll() {
    utils::ScopedLock cGuard(mcHandlersLock);
    for (const auto& cHandler : mlHandlers)
        cHandler->end();
}

bool HSReply::add(const HiSlip::Message& cMessage, uint64_t uLongest) {
    const uint32_t uLength = cMessage.mcPayload ? cMessage.mcPayload->getSize() : 0;
    if (uint64_t{size()} + uLength > uLongest) {
        *this = HSReply();
        return false;
    }
    if (!mcBlock)
        mcBlock = uLength ? cMessage.mcPayload : makeReference<utils::MemoryBlock>(0u);
    else if (uLength)
        HiSlip::appendGrowing(mcBlock, cMessage.mcPayload->getReadable(), uLength);
    mbEnded = cMessage.muType == HiSlip::kDataEnd;
    return true;
}

HSTransaction::HSTransaction(uint32_t uTimeoutMs, uint32_t uLeastSize)
    : muDeadlineMicroseconds(utils::steadyMicroseconds() + uint64_t{uTimeoutMs} * 1000),
      muLeastSize(uLeastSize) {}

void HSTransaction::wait() {
    const uint64_t uNow = utils::steadyMicroseconds();
    mcBarrier.wait(uNow < muDeadlineMicroseconds ? muDeadlineMicroseconds - uNow : 0);
}

_Marshaller::_Marshaller(ReferencePtr<HiSlipHandlers> cHandlers, HiSlip::Assembler cReceived, bool bOverlap,
                         uint64_t uLongestReply)
    : mcHandlers(std::move(cHandlers)),
      mbOverlap(bOverlap),
      muLongestReply(uLongestReply),
      mcReceived(std::move(cReceived)) {}

bool _Marshaller::onData(ReferencePtr<utils::MemoryBlock> cBlock) {
    if (!cBlock)
        return true;
    utils::ScopedLock cGuard(mcReceivedLock);
    mcReceived.append(*cBlock);
    HiSlip::Message cMessage;
    while (mcReceived.take(cMessage) == HiSlip::Parsing::kWhole)
        dispatch(cMessage);
    return true;
}

void _Marshaller::onError(const std::string& text) {
    end(text);
}

void _Marshaller::dispatch(const HiSlip::Message& cMessage) {
    if (!isData(cMessage)) {
        mcHandlers->offer(cMessage);
        return;
    }
    utils::ScopedLock cGuard(mcClientLock);
    if (giveToTransaction(cMessage))
        return;
    utils::reportError(HiSlip::kFailureCode, utils::formatText("Recieved %s - does not match a transaction",
                                                               HiSlip::typeName(cMessage.muType).c_str()));
    keep(cMessage);
}

bool _Marshaller::giveToTransaction(const HiSlip::Message& cMessage) {
    const auto cFound =
        std::find_if(mlTransactions.begin(), mlTransactions.end(), [&](const auto& cTransaction) {
            return mbOverlap || cTransaction->mcMessageID == cMessage.muParameter;
        });
    if (cFound == mlTransactions.end())
        return false;
    HSTransaction& cTransaction = **cFound;
    const bool bFits = cTransaction.mcReply.add(cMessage, muLongestReply);
    if (!bFits) {
        HiSlip::reportBadState();
        cTransaction.mcErrorText = "Trapped bad state";
    }
    if (!bFits || cTransaction.isComplete()) {
        cTransaction.mcBarrier.signal();
        mlTransactions.erase(cFound);
    }
    return true;
}

/// A reply to the last message may be there before anybody waits for it.
void _Marshaller::keep(const HiSlip::Message& cMessage) {
    const bool bReply = mcLastMessageID && (mbOverlap || *mcLastMessageID == cMessage.muParameter);
    if (bReply && !mcKept.mbEnded && !mcKept.add(cMessage, muLongestReply))
        HiSlip::reportBadState();
}

void _Marshaller::enrol(HSTransaction& cTransaction, std::optional<uint32_t> cMessageID) {
    cTransaction.mcMessageID = cMessageID;
    if (!mbEnded) {
        mlTransactions.emplace_back(&cTransaction);
        return;
    }
    cTransaction.mcErrorText = mcErrorText;
    cTransaction.mcBarrier.signal();
}

/// Before the message is on the wire: its reply may be faster than the return of the send.
void _Marshaller::expectReply(uint32_t uMessageID, HSTransaction* pTransaction) {
    utils::ScopedLock cGuard(mcClientLock);
    mcKept = HSReply();
    mcLastMessageID = uMessageID;
    if (pTransaction)
        enrol(*pTransaction, uMessageID);
}

void _Marshaller::expectNone(uint32_t uMessageID, std::optional<uint32_t> cBefore) {
    utils::ScopedLock cGuard(mcClientLock);
    if (mcLastMessageID == uMessageID)
        mcLastMessageID = cBefore;
}

bool _Marshaller::send(Transport& cTransport, const ReferencePtr<utils::MemoryBlock>& cBlock,
                       HSTransaction* pTransaction, std::string& errorText) {
    utils::ScopedLock cGuard(mcSendLock);
    const uint32_t uID = HiSlip::messageID(muMessageCounter.fetch_add(1, std::memory_order_relaxed));
    auto cBytes = HiSlip::serialise(HiSlip::makeMessage(HiSlip::kDataEnd, uID, cBlock));
    const auto cBefore = lastMessageID();
    expectReply(uID, pTransaction);
    if (!cTransport.send(std::move(cBytes), errorText)) {
        expectNone(uID, cBefore);
        return false;
    }
    cBlock->setReadAndKeep(cBlock->getSize());
    return true;
}

bool _Marshaller::sendRaw(Transport& cTransport, const HiSlip::Message& cMessage, HSTransaction* pTransaction,
                          std::string& errorText) {
    auto cBytes = HiSlip::serialise(cMessage);
    utils::ScopedLock cGuard(mcSendLock);
    if (pTransaction) {
        utils::ScopedLock cClient(mcClientLock);
        enrol(*pTransaction, cMessage.muParameter);
    }
    return cTransport.send(std::move(cBytes), errorText);
}

void _Marshaller::resume(HSTransaction& cTransaction) {
    utils::ScopedLock cGuard(mcClientLock);
    cTransaction.mcReply = std::exchange(mcKept, HSReply());
    if (cTransaction.isComplete())
        cTransaction.mcBarrier.signal();
    else
        enrol(cTransaction, mcLastMessageID);
}

void _Marshaller::leave(const HSTransaction& cTransaction) {
    utils::ScopedLock cGuard(mcClientLock);
    std::erase_if(mlTransactions, [&](const auto& cOne) { return cOne.get() == &cTransaction; });
}

ReferencePtr<utils::MemoryBlock> _Marshaller::takeReply(HSTransaction& cTransaction, std::string& errorText) {
    leave(cTransaction);
    utils::ScopedLock cGuard(mcClientLock);
    if (!cTransaction.mcReply.mcBlock)
        errorText = cTransaction.mcErrorText;
    return std::move(cTransaction.mcReply.mcBlock);
}

void _Marshaller::end(const std::string& errorText) {
    utils::ScopedLock cGuard(mcClientLock);
    mbEnded = true;
    mcErrorText = errorText;
    for (const auto& cTransaction : mlTransactions) {
        cTransaction->mcErrorText = errorText;
        cTransaction->mcBarrier.signal();
    }
    mlTransactions.clear();
}

bool _Marshaller::dropKept() {
    utils::ScopedLock cGuard(mcClientLock);
    return bool(std::exchange(mcKept, HSReply()).mcBlock);
}

std::optional<uint32_t> _Marshaller::lastMessageID() {
    utils::ScopedLock cGuard(mcClientLock);
    return mcLastMessageID;
}

namespace {

/// A transaction that its marshaller forgets on every way out.
class Exchange {
 public:
    Exchange(_Marshaller& cMarshaller, uint32_t uTimeoutMs, uint32_t uLeastSize)
        : mcMarshaller(cMarshaller), mcTransaction(makeReference<HSTransaction>(uTimeoutMs, uLeastSize)) {}
    ~Exchange() { mcMarshaller.leave(*mcTransaction); }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    HSTransaction* get() const { return mcTransaction.get(); }
    ReferencePtr<utils::MemoryBlock> wait(std::string& errorText) {
        mcTransaction->wait();
        return mcMarshaller.takeReply(*mcTransaction, errorText);
    }

 private:
    _Marshaller& mcMarshaller;
    ReferencePtr<HSTransaction> mcTransaction;
};

}  // namespace

HSDataTransport::HSDataTransport(ReferencePtr<Transport> cTransport, ReferencePtr<_Marshaller> cMarshaller)
    : Transport(controlAddress(cTransport)) {
    attach(std::move(cTransport), std::move(cMarshaller));
}

void HSDataTransport::destroySelf() noexcept {
    // Waits that a polling thread of this transport is in end with it, before that thread is waited for.
    letGo(exchangeLink(Link()));
    Transport::destroySelf();
}

HSDataTransport::Link HSDataTransport::link() const {
    std::lock_guard<std::mutex> cGuard(mcLinkMutex);
    return mcLink;
}

HSDataTransport::Link HSDataTransport::exchangeLink(Link cLink) {
    std::lock_guard<std::mutex> cGuard(mcLinkMutex);
    std::swap(mcLink, cLink);
    return cLink;
}

void HSDataTransport::letGo(const Link& cLink) {
    if (cLink.mcMarshaller)
        cLink.mcMarshaller->end("");
    if (cLink.mcTransport)
        cLink.mcTransport->clearCallback(cLink.mcMarshaller.get());
}

void HSDataTransport::attach(ReferencePtr<Transport> cTransport, ReferencePtr<_Marshaller> cMarshaller) {
    if (cTransport && cMarshaller)
        cTransport->setCallback(cMarshaller.get(), kPollTimeoutMs, kChunkSize);
    letGo(exchangeLink({std::move(cTransport), std::move(cMarshaller)}));
}

bool HSDataTransport::isOpen() const {
    const Link cLink = link();
    return cLink.mcTransport && cLink.mcTransport->isOpen();
}

bool HSDataTransport::send(ReferencePtr<utils::MemoryBlock> cBlock, std::string& errorText) {
    const Link cLink = link();
    return cLink.mcTransport && cBlock &&
           cLink.mcMarshaller->send(*cLink.mcTransport, cBlock, nullptr, errorText);
}

ReferencePtr<utils::MemoryBlock> HSDataTransport::receive(uint32_t uTimeoutMs, std::string& errorText) {
    const Link cLink = link();
    if (!cLink.mcTransport)
        return nullptr;
    Exchange cExchange(*cLink.mcMarshaller, uTimeoutMs, 0);
    cLink.mcMarshaller->resume(*cExchange.get());
    return cExchange.wait(errorText);
}

ReferencePtr<utils::MemoryBlock> HSDataTransport::transact(ReferencePtr<utils::MemoryBlock> cRequest,
                                                           int32_t iTimeoutMs, uint32_t uLeastSize) {
    if (!cRequest)
        return Transport::transact(nullptr, iTimeoutMs, uLeastSize);
    return exchange(cRequest, static_cast<uint32_t>(std::max(iTimeoutMs, 0)), uLeastSize);
}

ReferencePtr<utils::MemoryBlock> HSDataTransport::transactRaw(ReferencePtr<utils::MemoryBlock> cBlock,
                                                              uint32_t uTimeoutMs) {
    return exchange(cBlock, uTimeoutMs, 0);
}

ReferencePtr<utils::MemoryBlock> HSDataTransport::exchange(const ReferencePtr<utils::MemoryBlock>& cBlock,
                                                           uint32_t uTimeoutMs, uint32_t uLeastSize) {
    const Link cLink = link();
    if (!cLink.mcTransport || !cBlock)
        return nullptr;
    Exchange cExchange(*cLink.mcMarshaller, uTimeoutMs, uLeastSize);
    std::string errorText;
    if (!cLink.mcMarshaller->send(*cLink.mcTransport, cBlock, cExchange.get(), errorText))
        return nullptr;
    return cExchange.wait(errorText);
}

HiSlip::Message HSDataTransport::transactMessage(HiSlip::Message cMessage, uint32_t uTimeoutMs) {
    const Link cLink = link();
    if (!cLink.mcTransport)
        return {};
    std::string errorText;
    if (isData(cMessage)) {
        Exchange cExchange(*cLink.mcMarshaller, uTimeoutMs, 0);
        if (!cLink.mcMarshaller->sendRaw(*cLink.mcTransport, cMessage, cExchange.get(), errorText))
            return {};
        auto cReply = cExchange.wait(errorText);
        return cReply ? HiSlip::makeMessage(HiSlip::kDataEnd, cMessage.muParameter, std::move(cReply))
                      : HiSlip::Message();
    }
    return cLink.mcMarshaller->handlers()->await(std::nullopt, uTimeoutMs, [&] {
        return cLink.mcMarshaller->sendRaw(*cLink.mcTransport, cMessage, nullptr, errorText);
    });
}

bool HSDataTransport::flush() {
    const Link cLink = link();
    return cLink.mcMarshaller && cLink.mcMarshaller->dropKept();
}

bool HSDataTransport::close() {
    const Link cLink = link();
    if (!cLink.mcTransport)
        return false;
    cLink.mcMarshaller->end("");
    cLink.mcMarshaller->dropKept();
    return cLink.mcTransport->close();
}

bool HSDataTransport::open() {
    const Link cLink = link();
    if (!cLink.mcTransport)
        return false;
    // What has come of a message is of the old connection: its marshaller ends with it.
    letGo(cLink);
    const bool bOpen = cLink.mcTransport->open();
    attach(cLink.mcTransport,
           makeReference<_Marshaller>(cLink.mcMarshaller->handlers(), HiSlip::Assembler(), false));
    return bOpen;
}

std::optional<uint32_t> HSDataTransport::lastMessageID() const {
    const Link cLink = link();
    return cLink.mcMarshaller ? cLink.mcMarshaller->lastMessageID() : std::nullopt;
}
