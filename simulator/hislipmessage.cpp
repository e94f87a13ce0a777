#include "simulator/hislipmessage.h"

namespace vnksim {
namespace {

void append(std::string& bytes, uint64_t value, int count) {
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<char>(value >> shift & 0xFF));
    }
}

}  // namespace

std::string hislipBytes(const HislipMessage& message) {
    std::string bytes = "HS";
    append(bytes, message.type, 1);
    append(bytes, message.control, 1);
    append(bytes, message.parameter, 4);
    append(bytes, message.payload.size(), 8);
    return bytes + message.payload;
}

std::string hislipName(uint8_t type) {
    static const char* const kNames[] = {"Initialize",
                                         "InitializeResponse",
                                         "FatalError",
                                         "Error",
                                         "AsyncLock",
                                         "AsyncLockResponse",
                                         "Data",
                                         "DataEnd",
                                         "DeviceClearComplete",
                                         "DeviceClearAcknowledge",
                                         "AsyncRemoteLocalControl",
                                         "AsyncRemoteLocalResponse",
                                         "Trigger",
                                         "Interrupted",
                                         "AsyncInterrupted",
                                         "AsyncMaximumMessageSize",
                                         "AsyncMaximumMessageSizeResponse",
                                         "AsyncInitialize",
                                         "AsyncInitializeResponse",
                                         "AsyncDeviceClear",
                                         "AsyncServiceRequest",
                                         "AsyncStatusQuery",
                                         "AsyncStatusResponse",
                                         "AsyncDeviceClearAcknowledge",
                                         "AsyncLockInfo",
                                         "AsyncLockInfoResponse"};
    if (type < std::size(kNames)) {
        return kNames[type];
    }
    if (type == hislip::kVendorRequest || type == hislip::kVendorReply) {
        return type == hislip::kVendorRequest ? "VendorRequest" : "VendorReply";
    }
    return (type < hislip::kFirstVendorType ? "Type" : "Vendor") + std::to_string(type);
}

}  // namespace vnksim
