#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// One answer to a discovery request.
struct DiscoveryEntry {
    std::string mcAddress;
    std::string mcIdentity;  // model ":" serial ":" firmware
};

/// The host's IPv4 addresses, of adapters that are up and not loopback, in system order.
std::vector<std::string> enumerateAdapters();

/// Broadcasts on every adapter and collects answers until the line has been quiet for a second, at most for
/// 30 s or 65,536 entries. Messages of what went wrong are added to the list.
std::vector<DiscoveryEntry> discoverUnits(std::vector<std::string>& lMessages);

// The pure parts of a discovery.

/// "a.b.c.255" and "a.b.255.255" for "a.b.c.d"; empty for a text that is no address.
std::vector<std::string> broadcastAddresses(const std::string& adapterAddress);
/// Reads one datagram: true and the identity, or false and a message.
bool parseDiscoveryResponse(const uint8_t* pBytes, size_t uLength, const std::string& senderAddress,
                            std::string& identity, std::string& message);
