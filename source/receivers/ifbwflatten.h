#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "foundations/alignedarray.h"
#include "foundations/memoryblock.h"
#include "links/scpiprotocol.h"

/// Command texts by which a family serves its correction data.
struct CorrectionCommands {
    const char* mpSignalSize;     // "DATA:CORRECTION:SIGNAL:SIZE?"
    const char* mpNoiseSize;
    const char* mpReadHeader;     // "DATA:CORRECTION:%s:READ? 0, %d"
    const char* mpReadTable;      // "DATA:CORRECTION:%s:READ? %d, %d"
    const char* mpReadVector;
    const char* mpSignalName;     // "SIGNAL"
    const char* mpNoiseName;
};

class VectorFileHeader : public utils::ReferenceCountedObject {
 public:
    static constexpr uint32_t kSize = 48;
    VectorFileHeader(const uint8_t* pBytes, uint32_t uRemaining);
    uint16_t muFirstWord;
    uint16_t muRows;      // T
    uint16_t muVectors;   // V
    uint16_t muPoints;    // P
    uint8_t mRaw[40];
};

class CorrectionVector : public utils::ReferenceCountedObject {
 public:
    /// From 2 + 4 x P bytes of the wire: each point becomes a linear multiplier.
    CorrectionVector(const uint8_t* pBytes, uint16_t uPoints);
    uint16_t muIndex;
    ReferencePtr<FloatArray> mcPoints;
    /// Made at first use for a count; the receiver thread alone.
    const FloatArray& resampled(uint32_t uCount);

 private:
    ReferencePtr<FloatArray> mcResampled;
};

/// The IF correction data of a unit, read once at the open, and its use on a block of linear magnitudes.
class _IFBWFlatten : public utils::ReferenceCountedObject {
 public:
    _IFBWFlatten(ReferencePtr<SCPIProtocol> cProtocol, const CorrectionCommands& cCommands);

    bool isValid() const { return mbValid; }
    /// Multiplies in place by the vector for the RF frequency in Hz. Always true. Asserts on a row without a
    /// vector.
    bool flatten(float* pMagnitudes, uint32_t uCount, float fFrequencyHz);

    struct Row {
        float mfFrequencyHz;
        uint16_t muVector;
    };
    struct DataSet {
        int32_t miSize = 0;
        ReferencePtr<VectorFileHeader> mcHeader;
        std::vector<Row> mlTable;   // by frequency, ascending
        std::vector<ReferencePtr<CorrectionVector>> mlVectors;
    };
    const DataSet& signal() const { return mcSignal; }
    const DataSet& noise() const { return mcNoise; }

 private:
    bool readSet(SCPIProtocol& cProtocol, const CorrectionCommands& cCommands, const char* pName, DataSet& cSet);

    bool mbValid = false;
    DataSet mcSignal;
    DataSet mcNoise;
};

/// Rows of the wire's frequency table that count: frequency above 0 and index at most the number of vectors,
/// sorted by frequency.
std::vector<_IFBWFlatten::Row> parseFrequencyTable(const uint8_t* pBytes, uint32_t uRows, uint32_t uVectors);
/// The first row above the frequency, or the last one. The table is not empty.
const _IFBWFlatten::Row& chooseRow(const std::vector<_IFBWFlatten::Row>& lTable, float fFrequencyHz);
