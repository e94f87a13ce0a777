#pragma once

#include <memory>

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

 protected:
    /// Closes the socket before the polling thread is waited for, so that a blocked body ends.
    void destroySelf() noexcept override;

 private:
    std::shared_ptr<SocketRecord> record() const;
    ReferencePtr<utils::MemoryBlock> takeReceiveBlock(std::string& errorText);

    std::string mcConnectionText;
    // Guards the two members below; never held across a system call that can block. Handle and descriptor of
    // a record that is in use are never changed: a close or an open puts another record in its place.
    mutable std::mutex mcRecordMutex;
    std::shared_ptr<SocketRecord> mcRecord;
    ReferencePtr<utils::MemoryBlock> mcReceiveBlock;
};

class TCPIPTransportType : public TransportType {
 public:
    TCPIPTransportType() : TransportType("TCP/IP") {}
    ReferencePtr<Transport> create(const std::string& address) override;
};
