#pragma once

#include <cstdint>
#include <optional>

#include "foundations/alignedarray.h"
#include "foundations/memoryblock.h"

/// What the packets of every dialect of VITA-49 share.
namespace VRT {

/// Trailer bits: an enable bit and, 12 below, its indicator.
enum TrailerBit : uint32_t {
    kValidDataEnable = 30,
    kInversionEnable = 26,
    kOverRangeEnable = 25,
    kSampleLossEnable = 24,
    kInversion = 14,
    kOverRange = 13,
    kSampleLoss = 12,
};

inline constexpr uint64_t kAbsent64 = ~uint64_t{0};
inline constexpr uint32_t kAbsent32 = ~uint32_t{0};
/// Of a block below this no field is read.
inline constexpr uint32_t kHeaderBytes = 20;

/// The header, the trailer and the block. A dialect reads what stands behind word 0 by its own rules.
class PacketFields : public utils::ReferenceCountedObject {
 public:
    /// The block is as long as the header says and has room for header and trailer.
    bool isComplete() const { return mbComplete; }
    /// Host order; empty without a trailer.
    std::optional<uint32_t> trailer() const { return mcTrailer; }
    /// Both bits are set in a trailer that is there.
    bool trailerHas(uint32_t uEnableBit, uint32_t uIndicatorBit) const;
    uint8_t packetType() const { return muPacketType; }
    bool hasClassID() const { return mbClassID; }
    bool hasTrailer() const { return mbTrailer; }
    bool tsm() const { return mbTSM; }
    uint8_t sequenceNumber() const { return muSequence; }
    uint16_t sizeInWords() const { return muSizeWords; }
    uint8_t tsi() const { return muTSI; }
    uint8_t tsf() const { return muTSF; }
    uint32_t streamID() const { return muStreamID; }
    uint32_t integerSeconds() const { return muSeconds; }
    uint64_t picoseconds() const { return muPicoseconds; }
    /// Seconds x 1e9 + picoseconds / 1000.
    uint64_t timestampNs() const { return uint64_t{muSeconds} * 1000000000u + muPicoseconds / 1000u; }

 protected:
    /// Reads word 0 from the mark on, if there is a whole least header; otherwise nothing is left to read.
    explicit PacketFields(ReferencePtr<utils::MemoryBlock> cBlock);
    bool hasHeader() const { return mbHeader; }
    /// The payload begins at the read position, or nowhere when the header was cut short. Sets trailer and
    /// complete flag.
    void endHeader(bool bWhole);
    /// The first payload byte, with the read position put on it; null when there is none.
    const uint8_t* payload();
    /// Whole words behind the header, less the trailer.
    uint32_t payloadWords() const { return muPayloadWords; }

    ReferencePtr<utils::MemoryBlock> mcBlock;
    bool mbComplete = false;
    uint8_t muPacketType = 0;
    uint32_t muStreamID = kAbsent32;
    uint32_t muSeconds = 0;
    uint64_t muPicoseconds = 0;

 private:
    bool mbHeader = false;
    std::optional<uint32_t> mcTrailer;
    bool mbClassID = false;
    bool mbTrailer = false;
    bool mbTSM = false;
    uint8_t muSequence = 0;
    uint16_t muSizeWords = 0;
    uint8_t muTSI = 0;
    uint8_t muTSF = 0;
    uint32_t muPayloadOffset = 0;
    uint32_t muPayloadWords = 0;
};

/// Of the data packets: a sample count that never exceeds the bytes that are there, and the peak of the last
/// decoding.
class SampleFields {
 public:
    uint32_t sampleCount() const { return muSampleCount; }
    /// Largest absolute item; 0 before decoding.
    uint32_t peak() const { return muPeak; }

 protected:
    SampleFields() = default;
    ~SampleFields() = default;
    /// Decodes pairs, conjugates them if asked, and multiplies by the gain, in one pass over the data.
    ReferencePtr<ComplexArray> decodePairs(const uint8_t* pItems, uint32_t uBits, float fGain,
                                           bool bConjugate);
    void decodePairs(const uint8_t* pItems, uint32_t uBits, float fGain, bool bConjugate, Complex<float>* pOutput);
    uint32_t muSampleCount = 0;
    uint32_t muPeak = 0;
};

/// What an extension context says of the capture that the packets around it belong to.
struct CaptureFields {
    bool mbChange = false;
    bool mbHasCaptureState = false;
    bool mbCaptureState = false;
    uint32_t muStreamIdentifier = kAbsent32;  // of a capture, not of a packet
    uint32_t muSweepIdentifier = kAbsent32;

 protected:
    CaptureFields() = default;
    ~CaptureFields() = default;
    /// From the indicator word on.
    void readCapture(utils::MemoryBlock* pBlock);
};

}  // namespace VRT
