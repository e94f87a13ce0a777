#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>
#include <memory>

#include "links/discovery.h"

namespace {

std::string addressText(const sockaddr* pAddress) {
    sockaddr_in cAddress{};
    std::memcpy(&cAddress, pAddress, sizeof(cAddress));
    char text[INET_ADDRSTRLEN] = "";
    return ::inet_ntop(AF_INET, &cAddress.sin_addr, text, sizeof(text)) ? text : "";
}

bool isWanted(const ifaddrs& cEntry) {
    return cEntry.ifa_addr && cEntry.ifa_addr->sa_family == AF_INET && (cEntry.ifa_flags & IFF_UP) != 0 &&
           (cEntry.ifa_flags & IFF_LOOPBACK) == 0;
}

}  // namespace

std::vector<std::string> enumerateAdapters() {
    ifaddrs* pList = nullptr;
    if (::getifaddrs(&pList) != 0)
        return {};
    const std::unique_ptr<ifaddrs, decltype([](ifaddrs* p) { ::freeifaddrs(p); })> cList(pList);
    std::vector<std::string> lAddresses;
    for (const ifaddrs* pEntry = pList; pEntry; pEntry = pEntry->ifa_next) {
        if (!isWanted(*pEntry))
            continue;
        std::string address = addressText(pEntry->ifa_addr);
        if (!address.empty() && address != "0.0.0.0")
            lAddresses.push_back(std::move(address));
    }
    return lAddresses;
}
