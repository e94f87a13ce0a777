#pragma once

#include <cstdint>
#include <string>

#include "foundations/memoryblock.h"

/// The messages of HiSLIP and of the vendor's data channel: a header of 16 bytes and a payload.
namespace HiSlip {

enum MessageType : uint8_t {
    kInitialize = 0,
    kInitializeResponse = 1,
    kFatalError = 2,
    kError = 3,
    kAsyncLock = 4,
    kAsyncLockResponse = 5,
    kData = 6,
    kDataEnd = 7,
    kAsyncInitialize = 17,
    kAsyncInitializeResponse = 18,
    kDataChannelRequest = 0x80,
    kDataChannelResponse = 0x81,
};

inline constexpr uint32_t kHeaderBytes = 16;
/// No unit sends longer payloads; what claims to be one is garbage.
inline constexpr uint64_t kLongestPayload = 256u << 20;
/// The ID of the first data message of a session; each further one is 2 above the one before.
inline constexpr uint32_t kFirstMessageID = 0xFFFFFF00;

inline constexpr int32_t kFailureCode = -4000;
inline constexpr int32_t kAllocationCode = -3001;

struct Message {
    bool mbValid = false;
    uint8_t muType = 0;
    uint8_t muControlCode = 0;
    uint32_t muParameter = 0;
    ReferencePtr<utils::MemoryBlock> mcPayload;  // null when its length is 0
};

/// A valid record to be sent.
Message makeMessage(uint8_t uType, uint32_t uParameter, ReferencePtr<utils::MemoryBlock> cPayload = nullptr);

enum class Parsing { kWhole, kMore, kBad };

/// Reads one message from the read position on. Whole: read position and keep mark stand behind it. More
/// bytes must come first, or bad (no "HS", or a payload beyond the longest): nothing has moved, and the
/// record is invalid. A payload takes memory only once all its bytes are there. Throws when there is none to
/// have.
Parsing parse(utils::MemoryBlock& cSource, Message& cMessage);
/// The header alone, whatever payload it tells of: the message has none and the read position stands behind
/// the header.
Parsing parseHeader(utils::MemoryBlock& cSource, Message& cMessage);
/// The bytes of a message, its payload's unread ones. Throws when there is no memory for them.
ReferencePtr<utils::MemoryBlock> serialise(const Message& cMessage);

/// Appends; storage grows to twice what is needed, never ahead of the bytes that are there.
void appendGrowing(ReferencePtr<utils::MemoryBlock>& cBlock, const uint8_t* pBytes, uint32_t uLength);

/// The ID of a session's n-th data message; it wraps.
constexpr uint32_t messageID(uint32_t uCounter) {
    return uCounter * 2 + kFirstMessageID;
}

/// "Data", "DataEnd" and so on; a number for what has no name here.
std::string typeName(uint8_t uType);

/// What a connection has received and nobody has cut into messages yet. Not thread-safe.
class Assembler {
 public:
    Assembler();
    Assembler(Assembler&&) = default;
    Assembler& operator=(Assembler&&) = default;
    /// Takes the unread bytes out of the block.
    void append(utils::MemoryBlock& cBlock);
    /// The next message. When bad, everything has been dropped and reported.
    Parsing take(Message& cMessage);
    uint32_t size() const { return mcBlock->getReadableDataLength(); }
    uint32_t allocated() const { return mcBlock->getAllocated(); }

 private:
    void clear();
    ReferencePtr<utils::MemoryBlock> mcBlock;
};

/// Tells that what came cannot be in this state.
void reportBadState();

}  // namespace HiSlip
