#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <memory>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "links/posix/socketdescriptor.h"
#include "links/posix/timedsocketopener.h"

namespace {

constinit std::atomic<bool> smbSocketLayerStarted{false};

struct AddressListEnd {
    void operator()(addrinfo* pList) const { ::freeaddrinfo(pList); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListEnd>;

AddressList resolve(const std::string& host, const std::string& port) {
    addrinfo cHints{};
    cHints.ai_family = AF_UNSPEC;
    cHints.ai_socktype = SOCK_STREAM;
    addrinfo* pList = nullptr;
    if (::getaddrinfo(host.c_str(), port.c_str(), &cHints, &pList) != 0)
        return nullptr;
    return AddressList(pList);
}

bool setReceiveTimeout(int iDescriptor, uint32_t uMilliseconds) {
    timeval cLimit{};
    cLimit.tv_sec = static_cast<time_t>(uMilliseconds / 1000);
    cLimit.tv_usec = static_cast<suseconds_t>(uMilliseconds % 1000 * 1000);
    return ::setsockopt(iDescriptor, SOL_SOCKET, SO_RCVTIMEO, &cLimit, sizeof(cLimit)) == 0;
}

void setNoDelay(int iDescriptor) {
    const int iOn = 1;
    ::setsockopt(iDescriptor, IPPROTO_TCP, TCP_NODELAY, &iOn, sizeof(iOn));
}

/// One entry of the address list: true with the record's handle valid.
bool openEntry(SocketRecord& cRecord, const addrinfo& cEntry, uint32_t uReceiveTimeoutMs) {
    const int iDescriptor = ::socket(cEntry.ai_family, cEntry.ai_socktype | SOCK_CLOEXEC, cEntry.ai_protocol);
    if (iDescriptor < 0)
        return false;
    const auto cDescriptor = makeReference<SocketDescriptor>(iDescriptor);
    setNoDelay(iDescriptor);
    if (uReceiveTimeoutMs != 0 && setReceiveTimeout(iDescriptor, uReceiveTimeoutMs))
        cRecord.muReceiveTimeoutMs = uReceiveTimeoutMs;
    const auto cOpener = makeReference<_TimedSocketOpener>(cDescriptor, cEntry.ai_addr, cEntry.ai_addrlen);
    if (!cOpener->connectInTime())
        return false;
    cRecord.muHandle = static_cast<uint64_t>(iDescriptor);
    cRecord.mcDescriptor = cDescriptor;
    return true;
}

}  // namespace

SocketRecord socketOpen(const std::string& address, uint32_t uReceiveTimeoutMs) {
    SocketRecord cRecord;
    if (!_WinSockInitializer::isStarted()) {
        utils::reportError(-1000, "Cannot open socket");
        return cRecord;
    }
    const std::string host(utils::beforeFirst(address, ":"));
    const std::string port(utils::afterFirst(address, ":"));
    if (port.empty())
        return cRecord;  // silent: an address without a port names nothing
    const AddressList cList = resolve(host, port);
    if (!cList) {
        utils::reportError(-1001, "Cannot resolve address: " + address);
        return cRecord;
    }
    for (const addrinfo* pEntry = cList.get(); pEntry; pEntry = pEntry->ai_next)
        if (openEntry(cRecord, *pEntry, uReceiveTimeoutMs))
            return cRecord;
    utils::reportError(-1002, "Cannot connect to address: " + address);
    return cRecord;
}

bool _WinSockInitializer::initialise() {
    smbSocketLayerStarted.store(true, std::memory_order_relaxed);
    return true;
}

void _WinSockInitializer::finalise() {
    smbSocketLayerStarted.store(false, std::memory_order_relaxed);
}

bool _WinSockInitializer::isStarted() {
    return smbSocketLayerStarted.load(std::memory_order_relaxed);
}
