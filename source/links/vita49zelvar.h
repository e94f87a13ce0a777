#pragma once

#include "links/vrtpacket.h"

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

using namespace VRT;

class Packet : public PacketFields {
 public:
    /// Complete means besides that the stream ID is one of this dialect.
    explicit Packet(ReferencePtr<utils::MemoryBlock> cBlock);
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

class ExtensionContext : public Packet, public CaptureFields {
 public:
    explicit ExtensionContext(ReferencePtr<utils::MemoryBlock> cBlock);
};

/// Base of the data packets; an incomplete one has no samples.
class IFData : public Packet, public SampleFields {
 protected:
    IFData(ReferencePtr<utils::MemoryBlock> cBlock, uint32_t uSamplesPerWord);
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
