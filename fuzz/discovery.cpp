// A datagram that answers a discovery, and the text of an adapter's address.

#include <cstdint>
#include <string>

#include "links/discovery.h"

static void require(bool bCondition) {
    if (!bCondition)
        __builtin_trap();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t uSize) {
    std::string identity;
    std::string message;
    const bool bEntry = parseDiscoveryResponse(pData, uSize, "10.0.0.1", identity, message);
    require(bEntry == message.empty());
    require(bEntry != identity.empty());
    require(!bEntry || (uSize == 60 && identity.size() >= 2 && identity.size() <= 50));
    require(bEntry || message.starts_with("Unit at IP 10.0.0.1 returned "));
    const auto lAddresses = broadcastAddresses(std::string(reinterpret_cast<const char*>(pData), uSize));
    require(lAddresses.empty() || lAddresses.size() == 2);
    for (const std::string& address : lAddresses)
        require(address.ends_with(".255") && address.size() <= 15);
    return 0;
}
