#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "foundations/barrier.h"
#include "links/hislipmessage.h"
#include "links/transport.h"

class HiSlipWait;

/// The waits of a session for what is no data, shared by both its connections. Each message goes to the first
/// that takes it; what nobody waits for is dropped.
class HiSlipHandlers : public utils::ReferenceCountedObject {
 public:
    HiSlipHandlers();
    ~HiSlipHandlers() override;
    /// Runs `send` and, if that is true, waits for a message of the type, or of any type. Invalid when there
    /// was none in time or the wait was ended.
    HiSlip::Message await(std::optional<uint8_t> cType, uint32_t uTimeoutMs,
                          const std::function<bool()>& send);
    void offer(const HiSlip::Message& cMessage);
    /// Ends every wait with nothing.
    void endAll();

 private:
    class Registration;
    utils::NamedLock mcHandlersLock{"HiSlipProtocol::mcHandlersLock"};
    std::vector<ReferencePtr<HiSlipWait>> mlHandlers GUARDED_BY(mcHandlersLock);
};

/// The payloads of a reply so far, and whether the last of them has come.
struct HSReply {
    ReferencePtr<utils::MemoryBlock> mcBlock;
    bool mbEnded = false;

    /// False, and nothing is kept any more, when the reply becomes longer than that.
    bool add(const HiSlip::Message& cMessage, uint64_t uLongest = HiSlip::kLongestPayload);
    uint32_t size() const { return mcBlock ? mcBlock->getReadableDataLength() : 0; }
};

/// One wait for a reply. Its state belongs to the marshaller's client lock.
class HSTransaction : public utils::ReferenceCountedObject {
 public:
    explicit HSTransaction(uint32_t uTimeoutMs, uint32_t uLeastSize = 0);
    /// Until the reply has ended and is as long as wanted, or the time-out has passed.
    void wait();

 private:
    friend class _Marshaller;
    bool isComplete() const { return mcReply.mbEnded && mcReply.size() >= muLeastSize; }

    const uint64_t muDeadlineMicroseconds;
    const uint32_t muLeastSize;
    std::optional<uint32_t> mcMessageID;  // of what it answers; none while nothing has been sent
    HSReply mcReply;
    std::string mcErrorText;
    utils::Barrier mcBarrier{"HiSlip_HSTransaction"};
};

/// One synchronous connection: numbers what is sent, cuts what comes into messages, and gives data to whom
/// they answer and everything else to the handlers.
///
/// A reply belongs to the message whose ID it bears; in overlap mode a unit counts by itself, and replies go
/// to those who wait in turn. A reply to the last message sent that nobody waits for is kept, one at most.
class _Marshaller : public utils::ReferenceCountedObject, public Transport::Callback {
 public:
    _Marshaller(ReferencePtr<HiSlipHandlers> cHandlers, HiSlip::Assembler cReceived, bool bOverlap,
                uint64_t uLongestReply = HiSlip::kLongestPayload);

    bool onData(ReferencePtr<utils::MemoryBlock> cBlock) override;
    void onError(const std::string& text) override;
    utils::ReferenceCountedObject* countedSelf() override { return this; }

    /// Draws the next ID and sends the block under it; the transaction, if there is one, then waits for the
    /// reply. The IDs run up on the wire, whoever sends.
    bool send(Transport& cTransport, const ReferencePtr<utils::MemoryBlock>& cBlock,
              HSTransaction* pTransaction, std::string& errorText);
    /// Sends a message as it stands; of a data message the transaction then waits for the reply.
    bool sendRaw(Transport& cTransport, const HiSlip::Message& cMessage, HSTransaction* pTransaction,
                 std::string& errorText);
    /// Lets the transaction wait for the reply to the last message sent, with what is kept of it.
    void resume(HSTransaction& cTransaction);
    /// Forgets the transaction.
    void leave(const HSTransaction& cTransaction);
    /// Forgets the transaction; its reply, or null and the text of the error, if there was one.
    ReferencePtr<utils::MemoryBlock> takeReply(HSTransaction& cTransaction, std::string& errorText);
    /// Ends every wait with what it has; none begins any more.
    void end(const std::string& errorText);
    /// Drops what is kept for the next receive; true if there was anything.
    bool dropKept();
    std::optional<uint32_t> lastMessageID();
    const ReferencePtr<HiSlipHandlers>& handlers() const { return mcHandlers; }

 private:
    void dispatch(const HiSlip::Message& cMessage);
    bool giveToTransaction(const HiSlip::Message& cMessage) REQUIRES(mcClientLock);
    void keep(const HiSlip::Message& cMessage) REQUIRES(mcClientLock);
    void enrol(HSTransaction& cTransaction, std::optional<uint32_t> cMessageID) REQUIRES(mcClientLock);
    void expectReply(uint32_t uMessageID, HSTransaction* pTransaction);
    void expectNone(uint32_t uMessageID, std::optional<uint32_t> cBefore);

    const ReferencePtr<HiSlipHandlers> mcHandlers;
    const bool mbOverlap;
    const uint64_t muLongestReply;
    utils::NamedLock mcReceivedLock{"HSDataTransport::mcMarshaller::mcReceivedLock"};
    HiSlip::Assembler mcReceived GUARDED_BY(mcReceivedLock);
    std::atomic<uint32_t> muMessageCounter{0};
    utils::NamedLock mcSendLock{"HSDataTransport::mcMarshaller::mcSendLock"};
    utils::NamedLock mcClientLock{"HSDataTransport::mcMarshaller::mcClientLock"};
    std::deque<ReferencePtr<HSTransaction>> mlTransactions GUARDED_BY(mcClientLock);
    std::optional<uint32_t> mcLastMessageID GUARDED_BY(mcClientLock);
    HSReply mcKept GUARDED_BY(mcClientLock);
    bool mbEnded GUARDED_BY(mcClientLock) = false;
    std::string mcErrorText GUARDED_BY(mcClientLock);
};

/// The synchronous channel of a HiSLIP session as a transport. It outlives its connection: after a reopen it
/// goes on over the new one, and waits of the old one have ended.
class HSDataTransport : public Transport {
 public:
    /// On no connection if both are null.
    HSDataTransport(ReferencePtr<Transport> cTransport, ReferencePtr<_Marshaller> cMarshaller);

    /// Puts another connection in place of the one there is, or none; its marshaller begins to read.
    void attach(ReferencePtr<Transport> cTransport, ReferencePtr<_Marshaller> cMarshaller);

    std::string getTypeName() const override { return "HiSlip"; }
    bool isOpen() const override;
    bool send(ReferencePtr<utils::MemoryBlock> cBlock, std::string& errorText) override;
    /// What has come by the time-out of the reply to the last message sent.
    ReferencePtr<utils::MemoryBlock> receive(uint32_t uTimeoutMs, std::string& errorText) override;
    /// A reply comes in one piece here, and those of two threads that ask at once are kept apart: no polling,
    /// no flush.
    ReferencePtr<utils::MemoryBlock> transact(ReferencePtr<utils::MemoryBlock> cRequest, int32_t iTimeoutMs,
                                              uint32_t uLeastSize) override;
    /// Drops a reply that nobody has received. The wire is the marshaller's: bytes taken from it here could
    /// be half a message.
    bool flush() override;
    bool close() override;
    /// Connects again without a handshake; a session begins only with that of HiSlipProtocol.
    bool open() override;

    virtual ReferencePtr<utils::MemoryBlock> transactRaw(ReferencePtr<utils::MemoryBlock> cBlock,
                                                         uint32_t uTimeoutMs);
    /// Sends the message as it stands. The reply to data is a DataEnd with all of its payload; to anything
    /// else it is the next message that is no data. Invalid with no reply.
    virtual HiSlip::Message transactMessage(HiSlip::Message cMessage, uint32_t uTimeoutMs);

    /// Of the connection there is; empty before the first.
    std::optional<uint32_t> lastMessageID() const;

 protected:
    void destroySelf() noexcept override;

 private:
    struct Link {
        ReferencePtr<Transport> mcTransport;
        ReferencePtr<_Marshaller> mcMarshaller;
    };
    Link link() const;
    Link exchangeLink(Link cLink);
    static void letGo(const Link& cLink);
    ReferencePtr<utils::MemoryBlock> exchange(const ReferencePtr<utils::MemoryBlock>& cBlock,
                                              uint32_t uTimeoutMs, uint32_t uLeastSize);

    mutable std::mutex mcLinkMutex;  // guards the link; never held across a call
    Link mcLink;
};
