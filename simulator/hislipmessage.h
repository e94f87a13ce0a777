#pragma once

#include <cstdint>
#include <string>

namespace vnksim {

inline constexpr uint16_t kHislipPort = 4880;
inline constexpr uint16_t kVendorPort = 4881;

/// Message types of HiSLIP (IVI-6.1), and the two of the vendor's data channel.
namespace hislip {
enum Type : uint8_t {
    kInitialize = 0,
    kInitializeResponse = 1,
    kFatalError = 2,
    kError = 3,
    kAsyncLock = 4,
    kAsyncLockResponse = 5,
    kData = 6,
    kDataEnd = 7,
    kDeviceClearComplete = 8,
    kDeviceClearAcknowledge = 9,
    kAsyncRemoteLocalControl = 10,
    kAsyncRemoteLocalResponse = 11,
    kTrigger = 12,
    kInterrupted = 13,
    kAsyncInterrupted = 14,
    kAsyncMaximumMessageSize = 15,
    kAsyncMaximumMessageSizeResponse = 16,
    kAsyncInitialize = 17,
    kAsyncInitializeResponse = 18,
    kAsyncDeviceClear = 19,
    kAsyncServiceRequest = 20,
    kAsyncStatusQuery = 21,
    kAsyncStatusResponse = 22,
    kAsyncDeviceClearAcknowledge = 23,
    kAsyncLockInfo = 24,
    kAsyncLockInfoResponse = 25,
    kFirstVendorType = 0x80,
    kVendorRequest = 0x80,
    kVendorReply = 0x81
};

/// Control codes of FatalError ...
enum Fatal : uint8_t { kPoorHeader = 1, kChannelMissing = 2, kBadSequence = 3, kTooManyClients = 4 };
/// ... and of Error.
enum Nonfatal : uint8_t { kUnknownType = 1, kUnknownControl = 2, kUnknownVendorType = 3, kTooLarge = 4 };

inline constexpr size_t kHeaderBytes = 16;
/// Longest payload that is taken. Longer ones are read away and answered by an Error.
inline constexpr uint64_t kLongestPayload = 1 << 20;
/// A length above this one is no length: the connection cannot be followed any more.
inline constexpr uint64_t kLongestBelieved = 256u << 20;
/// Parameter of a vendor reply that knows no such session.
inline constexpr uint32_t kNoSession = 0x80000000;
}  // namespace hislip

struct HislipMessage {
    uint8_t type = 0;
    uint8_t control = 0;
    uint32_t parameter = 0;
    std::string payload{};
};

/// The message as it is sent.
std::string hislipBytes(const HislipMessage& message);
/// The standard's name of a type; "Vendor129" and the like for the others.
std::string hislipName(uint8_t type);

}  // namespace vnksim
