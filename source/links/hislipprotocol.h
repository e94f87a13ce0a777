#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "links/hsdatatransport.h"
#include "links/protocol.h"

/// A HiSLIP session: its synchronous connection carries commands and replies and is to be had as a transport,
/// its asynchronous one the lock. Any thread; one opens or closes at a time.
class HiSlipProtocol : public Protocol, public Transport::Callback {
 public:
    HiSlipProtocol();
    ~HiSlipProtocol() override;

    std::string getName() const override { return "HiSlip2.0"; }
    /// Both connections and the handshake on them; any port in the host text is ignored. A session that there
    /// is ends first.
    bool open(const std::string& host);
    bool isOpen() override;
    /// Null when not open.
    ReferencePtr<HSDataTransport> getDataTransport();
    /// The unit's exclusive lock. Held until the session ends.
    bool lock();
    /// True if both connections were ended in order.
    bool close();
    /// Opens again to the same host. The data transport stays the same object and goes on over the new
    /// session.
    bool reopen();

    // As the last handshake told them.
    uint16_t protocolVersion() const { return muVersion.load(std::memory_order_relaxed); }
    uint16_t sessionID() const { return muSessionID.load(std::memory_order_relaxed); }
    uint32_t serverVendorID() const { return muServerVendorID.load(std::memory_order_relaxed); }
    bool isOverlapMode() const { return hasFlag(kOverlapMode); }
    bool isEncryptionMandatory() const { return hasFlag(kEncryptionMandatory); }
    bool isInitialEncryption() const { return hasFlag(kInitialEncryption); }
    /// The newest failure; empty if there was none.
    std::string getLastError() const;

    // What the asynchronous connection's polling thread calls.
    bool onData(ReferencePtr<utils::MemoryBlock> cBlock) override;
    void onError(const std::string& text) override;
    utils::ReferenceCountedObject* countedSelf() override { return this; }

 private:
    /// A connection during the handshake, when nobody polls it.
    struct Connection {
        ReferencePtr<Transport> mcTransport;
        HiSlip::Assembler mcReceived;
        bool exchange(const HiSlip::Message& cRequest, HiSlip::Message& cResponse);
    };
    enum Flag : uint8_t { kOverlapMode = 1, kEncryptionMandatory = 2, kInitialEncryption = 4 };
    bool hasFlag(Flag eFlag) const { return (muFlags.load(std::memory_order_relaxed) & eFlag) != 0; }

    bool connect() REQUIRES(mcOpenLock);
    bool connectTo(Connection& cConnection, const char* channel) REQUIRES(mcOpenLock);
    bool initialize(Connection& cControl);
    bool initializeAsync(Connection& cAsync);
    void adopt(Connection cControl, Connection cAsync);
    bool judge(const HiSlip::Message& cResponse, uint8_t uExpected, const char* refused,
               const char* unexpected);
    bool closeConnections();
    bool isGranted(uint8_t uCode);
    void noteError(const std::string& text);
    bool fail(const std::string& text, int32_t iCode = HiSlip::kFailureCode);

    const ReferencePtr<HiSlipHandlers> mcHandlers;
    std::atomic<uint16_t> muVersion{0};
    std::atomic<uint16_t> muSessionID{0};
    std::atomic<uint32_t> muServerVendorID{0};
    std::atomic<uint8_t> muFlags{0};
    std::atomic<bool> mbLocked{false};

    utils::NamedLock mcOpenLock{"HiSlipProtocol::mcOpenLock"};
    std::string mcHost GUARDED_BY(mcOpenLock);

    // Guards the three below; never held across a call that can block.
    mutable std::mutex mcStateMutex;
    ReferencePtr<HSDataTransport> mcDataTransport;  // from the first open on, also when closed
    ReferencePtr<Transport> mcAsyncTransport;
    std::string mcLastError;

    std::mutex mcAsyncSendMutex;
    utils::NamedLock mcReceivedLock{"HiSlipProtocol::mcReceivedLock"};
    HiSlip::Assembler mcReceived GUARDED_BY(mcReceivedLock);
};
