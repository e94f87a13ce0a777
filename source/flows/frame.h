#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "foundations/alignedarray.h"
#include "foundations/variantrecord.h"

enum TimeResolution : uint32_t {
    kSeconds = 0,
    kMilliseconds = 1,
    kMicroseconds = 2,
    kNanoseconds = 3,
    kPicoseconds = 4
};

/// Seconds per tick, single precision; 0.001 for a value outside the table.
float secondsPerTick(uint32_t uResolution);
/// "s", "ms", "us", "ns", "ps"; "?" for a value outside the table.
const char* timeResolutionText(uint32_t uResolution);
/// 1 for a text outside the table.
uint32_t timeResolutionFromText(const std::string& text);

inline constexpr float kLevelNotMeasured = -1000.0f;
inline constexpr const char* kUnitsSqrtMilliwatt = "sqrt-mw";

/// One block of samples or spectrum points with its metadata. Filled by its producer and not changed once
/// handed on, but for the extras. No locks.
class Frame : public utils::ReferenceCountedObject {
 public:
    Frame(uint32_t uSequence, uint64_t uTimestamp, uint32_t uResolution, float fCentreHz, float fBandwidthHz,
          float fReferenceLevel, std::string units);
    /// Copies the metadata and shares the extras; 0 takes the other frame's sequence or timestamp. Level and
    /// sub-optimal flag restart.
    Frame(const Frame& cOther, uint32_t uSequence, uint64_t uTimestamp);

    virtual uint64_t getEndTime(uint32_t uResolution) const = 0;
    virtual float getDurationSec() const { return 0.0f; }
    virtual uint64_t getAllocatedBytes() const = 0;
    virtual std::string getTypeName() const = 0;
    virtual utils::VariantRecord getParameters(bool bInvariantOnly) const;
    virtual uint64_t getDataBytes() const = 0;
    virtual std::string getElementType() const = 0;
    /// Appends the stored form. The result is a simple formula of the sample count, not the bytes written; 0,
    /// with nothing written, for a frame without an array.
    virtual uint64_t writeTo(std::ostream& cStream) const = 0;
    /// Takes the next stored frame and returns its sample count. 0 for a frame of another kind or one that
    /// the end of the stream cuts off: this frame is then as it was, and the stream is back where it was.
    virtual uint64_t readFrom(std::istream& cStream) = 0;

    /// "dBm" if the field is empty.
    std::string getUnits() const { return mcUnits.empty() ? "dBm" : mcUnits; }
    void setUnits(std::string units) { mcUnits = std::move(units); }
    /// Created at first use.
    ReferencePtr<utils::VariantRecord> getExtras();
    /// Null if none.
    ReferencePtr<utils::VariantRecord> peekExtras() const { return mcExtras; }
    void setExtras(ReferencePtr<utils::VariantRecord> cExtras) { mcExtras = std::move(cExtras); }
    uint64_t getTimestamp(uint32_t uResolution) const;
    void addNanoseconds(int64_t iDelta);

    uint64_t timestamp() const { return muTimestamp; }
    void setTimestamp(uint64_t uTimestamp) { muTimestamp = uTimestamp; }
    uint32_t timeResolution() const { return muResolution; }
    void setTimeResolution(uint32_t uResolution) { muResolution = uResolution; }
    uint32_t sequence() const { return muSequence; }
    void setSequence(uint32_t uSequence) { muSequence = uSequence; }
    float centreFrequency() const { return mfCentreHz; }
    float bandwidth() const { return mfBandwidthHz; }
    float referenceLevel() const { return mfReferenceLevel; }
    void setCentreFrequency(float fHz) { mfCentreHz = fHz; }
    void setBandwidth(float fHz) { mfBandwidthHz = fHz; }
    void setReferenceLevel(float fdBm) { mfReferenceLevel = fdBm; }
    float level() const { return mfLevel; }
    void setLevel(float fdB) { mfLevel = fdB; }
    bool isSubOptimal() const { return mbSubOptimal; }
    void setSubOptimal(bool bSubOptimal) { mbSubOptimal = bSubOptimal; }
    bool isDiscardable() const { return mbDiscardable; }
    void setDiscardable(bool bDiscardable) { mbDiscardable = bDiscardable; }
    bool isLive() const { return mbLive; }
    void setLive(bool bLive) { mbLive = bLive; }

 protected:
    /// Timestamp plus active/rate seconds, in the resolution asked for.
    uint64_t endTimeOf(uint32_t uActive, float fRate, uint32_t uResolution) const;
    static uint64_t convertTicks(uint64_t uTicks, uint32_t uFrom, uint32_t uTo);

    uint64_t muTimestamp;
    uint32_t muResolution;
    uint32_t muSequence;
    float mfCentreHz;
    float mfBandwidthHz;
    float mfReferenceLevel;
    float mfLevel = kLevelNotMeasured;
    bool mbSubOptimal = false;
    std::string mcUnits;
    ReferencePtr<utils::VariantRecord> mcExtras;
    bool mbDiscardable = true;
    bool mbLive = true;
};
