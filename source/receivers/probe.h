#pragma once

#include <string>

#include "foundations/variantrecord.h"

inline constexpr int kSCPIPort = 37001;
inline constexpr int kDataPort = 37000;

struct Connection {
    std::string mcType;
    std::string mcAddress;
};

/// "TYPE:ADDRESS", or "TCP/IP" and the whole text where there is no colon.
Connection splitConnection(const std::string& text);
/// The reply to "*IDN?" as a record of "type", "version", "serial" and "firmware".
utils::VariantRecord parseIdentity(const std::string& reply);
/// Asks a host who it is. A record with "type" is an answer, one with only "device" a failure.
utils::VariantRecord examineDevice(const std::string& host);
/// "%s:%d" and "%s:%d/%d".
std::string scpiAddress(const std::string& host);
std::string dataAddress(const std::string& host, int receiveTimeoutMs);
