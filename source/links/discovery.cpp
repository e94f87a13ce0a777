#include "links/discovery.h"

#include <cstring>

#include "foundations/text.h"
#include "links/discoverywire.h"

namespace {

constexpr size_t kFieldBytes = 16;

uint32_t bigEndian32(const uint8_t* pBytes) {
    return (uint32_t{pBytes[0]} << 24) | (uint32_t{pBytes[1]} << 16) | (uint32_t{pBytes[2]} << 8) | pBytes[3];
}

/// Up to the first zero; a field that is full has none.
std::string fieldText(const uint8_t* pField) {
    const char* const pText = reinterpret_cast<const char*>(pField);
    return std::string(pText, ::strnlen(pText, kFieldBytes));
}

/// One number of an address, with its dot unless it is the last; -1 if there is none.
int takeNumber(std::string_view& rest, bool bLast) {
    size_t uDigits = 0;
    int iValue = 0;
    while (uDigits < rest.size() && uDigits < 3 && rest[uDigits] >= '0' && rest[uDigits] <= '9')
        iValue = iValue * 10 + (rest[uDigits++] - '0');
    rest.remove_prefix(uDigits);
    if (uDigits == 0 || iValue > 255 || (bLast ? !rest.empty() : !rest.starts_with('.')))
        return -1;
    if (!bLast)
        rest.remove_prefix(1);
    return iValue;
}

}  // namespace

std::vector<std::string> broadcastAddresses(const std::string& adapterAddress) {
    std::string_view rest = adapterAddress;
    int numbers[4];
    for (int i = 0; i < 4; ++i)
        if ((numbers[i] = takeNumber(rest, i == 3)) < 0)
            return {};
    // The adapter's mask is not consulted: one for a /24 and one for a /16 network.
    return {utils::formatText("%d.%d.%d.255", numbers[0], numbers[1], numbers[2]),
            utils::formatText("%d.%d.255.255", numbers[0], numbers[1])};
}

bool parseDiscoveryResponse(const uint8_t* pBytes, size_t uLength, const std::string& senderAddress,
                            std::string& identity, std::string& message) {
    const std::string start = "Unit at IP " + senderAddress + " returned ";
    if (uLength != DiscoveryWire::kResponseBytes) {
        message =
            start + utils::formatText("invalid length (%d) response. Ignored.", static_cast<int>(uLength));
        return false;
    }
    const uint32_t uCode = bigEndian32(pBytes);
    if (uCode != DiscoveryWire::kResponseCode) {
        message = start + utils::formatText("incorrect response code 0x%08x. Ignored.", uCode);
        return false;
    }
    identity = fieldText(pBytes + 8) + ":" + fieldText(pBytes + 24) + ":" + fieldText(pBytes + 40);
    return true;
}
