#pragma once

#include <string>

#include "links/transport.h"

/// Base of what speaks over a transport.
class Protocol : public utils::ReferenceCountedObject {
 public:
    explicit Protocol(ReferencePtr<Transport> cTransport) : mcTransport(std::move(cTransport)) {}
    virtual bool isOpen() { return mcTransport && mcTransport->isOpen(); }
    virtual std::string getName() const = 0;

 protected:
    ReferencePtr<Transport> mcTransport;
};
