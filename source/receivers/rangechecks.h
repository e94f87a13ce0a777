#pragma once

#include "flows/entity.h"

struct FloatRange {
    float mfMinimum;
    float mfMaximum;
    /// NaN lies in no range.
    bool contains(float fValue) const { return mfMinimum <= fValue && fValue <= mfMaximum; }
};

/// What a receiver can do; all that the checks of a stream need.
struct StreamRanges {
    FloatRange mcCentreHz;
    FloatRange mcSweepHz;
    FloatRange mcRBWHz;
    FloatRange mcIFBWHz;
    FloatRange mcReferenceLevel;
};

/// Tests the parameters of an IQ stream; a text in `lMessages`, a log line and a status of the calling thread
/// for each that is out of range. True when the list stayed empty.
bool canImplementIQ(const utils::VariantRecord& cParameters, const StreamRanges& cRanges, ErrorList& lMessages);
bool canImplementSpectrum(const utils::VariantRecord& cParameters, const StreamRanges& cRanges,
                          ErrorList& lMessages);
