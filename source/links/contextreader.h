#pragma once

#include "links/bigendian.h"

/// Reads the fields of a context in the order of their indicator bits. A field that the bytes do not hold
/// ends the reading: what comes after it has no place.
class ContextReader {
 public:
    /// Takes the indicator word at the read position. With no block, or none left in it, no bit is set.
    explicit ContextReader(utils::MemoryBlock* pBlock)
        : mpBlock(pBlock),
          mbGood(pBlock && BigEndian::read(*pBlock, muIndicators)),
          muLastWord(muIndicators) {}

    bool has(uint32_t uBit) const { return mbGood && ((muIndicators >> uBit) & 1u) != 0; }
    bool change() const { return has(31); }
    /// The last word read, of a 64-bit field its second; the indicator word at first.
    uint32_t lastWord() const { return muLastWord; }

    bool take(uint32_t uBit, uint32_t& uValue) {
        if (!takeBy(uBit, [&](utils::MemoryBlock& cBlock) { return BigEndian::read(cBlock, uValue); }))
            return false;
        muLastWord = uValue;
        return true;
    }
    bool take(uint32_t uBit, uint64_t& uValue) {
        if (!takeBy(uBit, [&](utils::MemoryBlock& cBlock) { return BigEndian::read(cBlock, uValue); }))
            return false;
        muLastWord = static_cast<uint32_t>(uValue);
        return true;
    }
    /// Steps over a word, which is not read.
    bool skipWord(uint32_t uBit) {
        uint8_t bytes[4];
        return takeBy(uBit, [&](utils::MemoryBlock& cBlock) { return cBlock.read(bytes, sizeof bytes); });
    }
    /// `read` takes the field from the block and returns whether it was there.
    template <typename Read>
    bool takeBy(uint32_t uBit, Read read) {
        if (!has(uBit))
            return false;
        mbGood = read(*mpBlock);
        return mbGood;
    }

 private:
    utils::MemoryBlock* mpBlock;
    uint32_t muIndicators = 0;
    bool mbGood;
    uint32_t muLastWord;
};
