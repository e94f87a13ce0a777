#pragma once

#include "links/socketfunctions.h"
#include "links/transport.h"

/// The transport over a TCP socket. Address: `host:port` or `host:port/receive-time-out-ms`.
class TCPIPTransport : public Transport {
 public:
    explicit TCPIPTransport(std::string address);
    ~TCPIPTransport() override;

    std::string getTypeName() const override { return "TCP/IP"; }
    bool isOpen() const override;
    bool send(ReferencePtr<utils::MemoryBlock> cBlock, std::string& errorText) override;
    ReferencePtr<utils::MemoryBlock> receive(uint32_t uTimeoutMs, std::string& errorText) override;
    bool flush() override;
    bool close() override;
    /// Throws std::invalid_argument or std::out_of_range for a tail that is no integer.
    bool open() override;
    uint32_t receiveTimeoutMs() const;

 private:
    std::string mcConnectionText;
    mutable std::mutex mcRecordMutex;   // guards the record against a reopen; never held across a system call
    std::shared_ptr<SocketRecord> mcRecord;
    ReferencePtr<utils::MemoryBlock> mcReceiveBlock;   // polling thread, or the caller of receive
};

class TCPIPTransportType : public TransportType {
 public:
    TCPIPTransportType() : TransportType("TCP/IP") {}
    ReferencePtr<Transport> create(const std::string& address) override;
};
