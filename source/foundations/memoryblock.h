#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "foundations/referencecountedobject.h"

namespace utils {

/// Growable byte block with a read and a write cursor. Bytes before the keep mark may be thrown away when
/// the block is reallocated. Invariant: keep mark <= read cursor <= end; write cursor <= end <= allocated.
/// Not thread-safe. Throws std::bad_alloc; a size past 32 bits throws std::length_error.
class MemoryBlock : public ReferenceCountedObject {
 public:
    static constexpr uint32_t kNoMatch = 0xFFFFFFFFu;
    static constexpr uint32_t kOfferAgain = 0xAAFFFFFFu;

    /// Finds a synchronisation pattern byte by byte; may keep state.
    class PatternMatcher {
     public:
        virtual ~PatternMatcher() = default;
        /// kNoMatch: go on. kOfferAgain: the pattern broke here and the matcher has reset itself; offer the
        /// same byte once more. Anything else: the offset at which the pattern begins.
        virtual uint32_t match(uint8_t uByte, uint32_t uOffset) = 0;
    };

    explicit MemoryBlock(uint32_t uSize);
    explicit MemoryBlock(std::string_view text);
    MemoryBlock(const void* pBytes, uint32_t uLength);
    MemoryBlock(const MemoryBlock&) = delete;
    MemoryBlock& operator=(const MemoryBlock&) = delete;

    uint32_t getSize() const { return muEnd; }
    uint32_t getAllocated() const { return muAllocated; }
    uint32_t getReadableDataLength() const { return muEnd > muRead ? muEnd - muRead : 0; }
    /// Null when nothing is readable; otherwise the byte at the read cursor and, if asked, the length.
    const uint8_t* getReadable(uint32_t* pLength = nullptr) const;
    /// The bytes from the read cursor to the end, as text.
    std::string getText() const;

    bool read(void* pDestination, uint32_t uCount);
    void write(const void* pSource, uint32_t uCount);
    void writeU32(uint32_t uValue);
    void writeU64(uint64_t uValue);
    /// Makes room for `uRequired` bytes behind the read cursor; may drop what lies before the keep mark.
    void reserve(uint32_t uRequired);

    // Direct access for the socket layer and the scanning loops.
    uint8_t* getStorage() { return mpStorage.get(); }
    const uint8_t* getStorage() const { return mpStorage.get(); }
    uint32_t getReadPosition() const { return muRead; }
    uint32_t getWritePosition() const { return muWrite; }
    uint32_t getKeepMark() const { return muKeep; }
    /// Not past the end.
    void setReadPosition(uint32_t uOffset) { muRead = uOffset < muEnd ? uOffset : muEnd; }
    void setKeepMark(uint32_t uOffset) { muKeep = uOffset < muRead ? uOffset : muRead; }
    /// Read cursor and keep mark together, not past the end.
    void setReadAndKeep(uint32_t uOffset);
    /// After bytes have been put at the write position from outside: moves it on, not past the allocated
    /// size, and raises the end to it.
    void advanceWritePosition(uint32_t uCount);
    /// All offsets to 0; the storage stays.
    void clear();

 private:
    void growFor(uint64_t uCount, uint64_t uSlack);

    std::unique_ptr<uint8_t[]> mpStorage;
    uint32_t muAllocated = 0;
    uint32_t muEnd = 0;
    uint32_t muWrite = 0;
    uint32_t muRead = 0;
    uint32_t muKeep = 0;
};

}  // namespace utils
