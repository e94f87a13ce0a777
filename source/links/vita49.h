#pragma once

#include "links/vrtpacket.h"

/// Packets of VITA-49 in their generic form: each tells by its header which fields it has. A packet, like the
/// block it holds, is used by one thread at a time.
namespace VITA49 {

using namespace VRT;

enum PacketType : uint8_t {
    kIFNoStreamID = 0,
    kIFWithStreamID = 1,
    kExtensionNoStreamID = 2,
    kExtensionWithStreamID = 3,
    kIFContext = 4,
    kExtensionContext = 5,
};

enum SampleType : uint32_t { kCplxCartesian = 1 };
enum DataItemEncoding : uint32_t { kSignedFP = 0 };

class Packet : public PacketFields {
 public:
    explicit Packet(ReferencePtr<utils::MemoryBlock> cBlock);

 private:
    bool readHeader();
};

/// Words of a context in host order. Valid when the block held `kLeastBytes` at its read position; words that
/// it did not hold are zero.
template <uint32_t kWords, uint32_t kLeastBytes>
class ContextWords : public utils::ReferenceCountedObject {
 public:
    static constexpr uint32_t kCount = kWords;
    explicit ContextWords(ReferencePtr<utils::MemoryBlock> cBlock);
    bool isValid() const { return mbValid; }
    /// 0 beyond the last.
    uint32_t word(uint32_t uIndex) const { return uIndex < kWords ? muWords[uIndex] : 0; }

 private:
    bool mbValid = false;
    uint32_t muWords[kWords] = {};
};

/// The data payload format: how the data packets of a stream are decoded.
class DecodingContext : public ContextWords<2, 8> {
 public:
    using ContextWords::ContextWords;
    bool packingMethodProcessingNotLink() const { return bits(0, 31, 31) == 0; }
    uint32_t getSampleType() const { return bits(0, 30, 29); }
    uint32_t getDataItemEncoding() const { return bits(0, 28, 24); }
    bool sampleComponentRepeatAsserted() const { return bits(0, 23, 23) != 0; }
    uint32_t eventTagSize() const { return bits(0, 22, 20); }
    uint32_t channelTagSize() const { return bits(0, 19, 16); }
    uint32_t itemPackingFieldSize() const { return bits(0, 11, 6); }
    uint32_t dataItemSize() const { return bits(0, 5, 0); }
    uint32_t getRepeatCount() const { return bits(1, 31, 16); }
    uint32_t getVectorSize() const { return bits(1, 15, 0); }

    /// Asserts that this is the one format that is decoded: pairs of signed 16-bit items.
    void requireDecodable() const;
    /// item / 32768 of what lies between the read position and the trailer; the read position moves behind
    /// it. The largest absolute item goes to `uPeak`.
    ReferencePtr<ComplexArray> decodePayload(ReferencePtr<utils::MemoryBlock> cBlock, bool bHasTrailer,
                                             uint32_t& uPeak) const;
    ReferencePtr<ComplexArray> decodePayload(ReferencePtr<utils::MemoryBlock> cBlock,
                                             bool bHasTrailer) const {
        uint32_t uPeak = 0;
        return decodePayload(std::move(cBlock), bHasTrailer, uPeak);
    }

 private:
    uint32_t bits(uint32_t uWord, uint32_t uFirst, uint32_t uLast) const {
        return (word(uWord) >> uLast) & ((uint32_t{2} << (uFirst - uLast)) - 1);
    }
};

/// Accepted from 11 bytes on, though it has 44.
class Geolocation : public ContextWords<11, 11> {
 public:
    using ContextWords::ContextWords;
};

/// Accepted from 13 bytes on, though it has 52.
class ECEFEphemeris : public ContextWords<13, 13> {
 public:
    using ContextWords::ContextWords;
};

class IFData : public Packet, public SampleFields {
 public:
    explicit IFData(ReferencePtr<utils::MemoryBlock> cBlock);

    void setDecodingContext(ReferencePtr<DecodingContext> cContext) {
        mcDecodingContext = std::move(cContext);
    }
    ReferencePtr<DecodingContext> decodingContext() const { return mcDecodingContext; }
    /// The trailer says that the spectrum is inverted.
    bool isInverted() const { return trailerHas(kInversionEnable, kInversion); }
    /// Decoded once, conjugated where the trailer says so, and kept; null without a decoding context.
    ReferencePtr<ComplexArray> getSamples();
    /// The same samples times the gain, in one pass over the data, and new with each call.
    ReferencePtr<ComplexArray> getScaledSamples(float fGain);
    /// The samples as I and Q in turn, for blocks that are gathered; new with each call.
    ReferencePtr<FloatArray> getItems();

 private:
    ReferencePtr<DecodingContext> mcDecodingContext;
    ReferencePtr<ComplexArray> mcSamples;
};

class IFContext : public Packet {
 public:
    explicit IFContext(ReferencePtr<utils::MemoryBlock> cBlock);

    /// In Hz, Hz, Hz and dBm. A field that is absent (or a level of 0) leaves the caller's value alone.
    void getTuning(float& fRFFrequency, float& fBandwidth, float& fSampleRate, float& fReferenceLevel) const;

    // Frequencies, bandwidth and rate are Hz x 2^20.
    uint64_t muBandwidth = kAbsent64;
    uint64_t muIFReferenceFrequency = kAbsent64;
    uint64_t muRFFrequency = kAbsent64;
    uint64_t muRFFrequencyOffset = kAbsent64;
    uint64_t muIFBandOffset = kAbsent64;
    int16_t miReferenceLevel = 0;  // dBm x 128
    bool mbReferenceLevel = false;  // one was told: 0 dBm is a level too
    float mfGain1 = -1000.0f;
    float mfGain2 = -1000.0f;
    uint32_t muOverRangeCount = kAbsent32;
    uint64_t muSampleRate = kAbsent64;
    uint64_t muTimestampAdjustment = 0;
    uint32_t muCalibrationTime = kAbsent32;
    uint32_t muTemperature = 0;
    uint32_t muMakerCode = kAbsent32;
    uint32_t muDeviceCode = kAbsent32;
    uint32_t muStateAndEvents = kAbsent32;
    ReferencePtr<DecodingContext> mcDecodingContext;
    ReferencePtr<Geolocation> mcGPS;
    ReferencePtr<Geolocation> mcINS;
    ReferencePtr<ECEFEphemeris> mcEphemeris;
};

class ExtensionData : public Packet {
 public:
    using Packet::Packet;
};

class ExtensionContext : public Packet, public CaptureFields {
 public:
    explicit ExtensionContext(ReferencePtr<utils::MemoryBlock> cBlock);
};

}  // namespace VITA49
