#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "foundations/alignedarray.h"
#include "foundations/memoryblock.h"

/// Packets of the first family's dialect of VITA-49. All read-only values taken from one private block.
namespace VITA49Zelvar {

enum StreamID : uint32_t {
    kReceiverContext = 0x90000001,
    kDigitizerContext = 0x90000002,
    kIFDataIQ14 = 0x90000003,
    kExtensionContext = 0x90000004,
    kIFDataI14 = 0x90000005,
    kIFDataI24 = 0x90000006,
};

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
inline constexpr uint32_t kHeaderBytes = 20;

class Packet : public utils::ReferenceCountedObject {
 public:
    explicit Packet(ReferencePtr<utils::MemoryBlock> cBlock);

    /// The block is as long as the header says, has room for header and trailer, and the stream ID is one of
    /// this dialect.
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
    ReferencePtr<utils::MemoryBlock> mcBlock;

 private:
    bool mbComplete = false;
    std::optional<uint32_t> mcTrailer;
    uint8_t muPacketType = 0;
    bool mbClassID = false;
    bool mbTrailer = false;
    bool mbTSM = false;
    uint8_t muSequence = 0;
    uint16_t muSizeWords = 0;
    uint8_t muTSI = 0;
    uint8_t muTSF = 0;
    uint32_t muStreamID = kAbsent32;
    uint32_t muSeconds = 0;
    uint64_t muPicoseconds = 0;
};

class ReceiverContext : public Packet {
 public:
    explicit ReceiverContext(ReferencePtr<utils::MemoryBlock> cBlock);
    bool mbChange = false;
    uint64_t muRFFrequency = kAbsent64;  // Hz x 2^20
    float mfGain1 = -1000.0f;
    float mfGain2 = -1000.0f;
};

/// A position report as it stands on the wire; the bit pattern 0x7FFFFFFF marks an absent position.
struct GNSSFix {
    uint32_t muSeconds = 0;
    uint64_t muPicoseconds = 0;
    float mfLatitude;
    float mfLongitude;
    float mfAltitude;
    float mfSpeed = 0.0f;
    float mfHeading = 0.0f;
    float mfTrack = 0.0f;
    float mfMagneticVariation = 0.0f;
    GNSSFix();
};

class DigitizerContext : public Packet {
 public:
    explicit DigitizerContext(ReferencePtr<utils::MemoryBlock> cBlock);
    bool mbChange = false;
    uint64_t muBandwidth = 0;          // Hz x 2^20
    uint64_t muRFFrequencyOffset = 0;  // Hz x 2^20
    float mfReferenceLevel = -1000.0f;
    bool mbHasGNSS = false;
    GNSSFix mcGNSS;
};

class ExtensionContext : public Packet {
 public:
    explicit ExtensionContext(ReferencePtr<utils::MemoryBlock> cBlock);
    bool mbChange = false;
    bool mbHasCaptureState = false;
    bool mbCaptureState = false;
    uint32_t muStreamIdentifier = kAbsent32;  // of a capture, not of a packet
    uint32_t muSweepIdentifier = kAbsent32;
};

/// Base of the data packets: a sample count that never exceeds the bytes that are there (0 in an incomplete
/// packet) and the peak of the last decoding.
class IFData : public Packet {
 public:
    uint32_t sampleCount() const { return muSampleCount; }
    /// Largest absolute item; 0 before decoding.
    uint32_t peak() const { return muPeak; }

 protected:
    IFData(ReferencePtr<utils::MemoryBlock> cBlock, uint32_t uSamplesPerWord);
    /// The first item, with the read position put on it; the sample count says how much is there.
    const uint8_t* payload();
    uint32_t muSampleCount = 0;
    uint32_t muPeak = 0;
};

class IFDataIQ14 : public IFData {
 public:
    explicit IFDataIQ14(ReferencePtr<utils::MemoryBlock> cBlock);
    /// item / 8192; null without a block.
    ReferencePtr<ComplexArray> getSamples();
    /// Decodes, conjugates if asked, and multiplies by the gain in one pass over the data.
    ReferencePtr<ComplexArray> getScaledSamples(float fGain, bool bConjugate);
};

class IFDataI14 : public IFData {
 public:
    explicit IFDataI14(ReferencePtr<utils::MemoryBlock> cBlock);
    ReferencePtr<FloatArray> getSamples();
    ReferencePtr<FloatArray> getScaledSamples(float fGain);
};

class IFDataI24 : public IFData {
 public:
    explicit IFDataI24(ReferencePtr<utils::MemoryBlock> cBlock);
};

}  // namespace VITA49Zelvar
