#pragma once

#include "links/protocol.h"

/// Text commands and queries, one line each, line feed terminated. No state, no lock.
class SCPIProtocol : public Protocol {
 public:
    explicit SCPIProtocol(ReferencePtr<Transport> cTransport) : Protocol(std::move(cTransport)) {}

    std::string getName() const override { return "SCPI"; }
    virtual bool sendCommand(const std::string& text);
    /// Reply as it came, empty when there was none in time.
    virtual std::string call(const std::string& text, uint32_t uTimeoutMs);
    /// Collects until the least size is there or the time has passed; null with no reply.
    virtual ReferencePtr<utils::MemoryBlock> callBinary(const std::string& text, uint32_t uLeastSize,
                                                        uint32_t uTimeoutMs);
    virtual bool closeTransport();
    virtual bool openTransport();
};

// Queries with a limit of 1000 ms; false leaves the output alone (the text form stores what came, trimmed).
bool scpiQueryText(SCPIProtocol& cProtocol, const std::string& query, std::string& reply);
bool scpiQueryInt(SCPIProtocol& cProtocol, const std::string& query, int32_t& iValue);
bool scpiQueryUnsigned(SCPIProtocol& cProtocol, const std::string& query, uint32_t& uValue);
