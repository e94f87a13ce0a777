#include "receivers/rangechecks.h"

#include <bit>

#include "dsp/windowfunctions.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace {

constexpr float kDefaultReferenceLevel = -30.0f;

/// A text for the caller, a status for the calling thread and a line in the log.
void refuse(ErrorList& lMessages, int32_t iStatus, const std::string& text) {
    utils::reportTrace(text);
    addRefusal(lMessages, iStatus, text);
}

/// A three-number text: the value and the range that it misses.
std::string outOfRange(const char* pText, float fValue, const FloatRange& cRange) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return utils::formatText(pText, static_cast<double>(fValue), static_cast<double>(cRange.mfMinimum),
                             static_cast<double>(cRange.mfMaximum));
#pragma GCC diagnostic pop
}

// The text asks for an integer and has always been given a float: what it shows is the low half of the value
// as a double.
int32_t lowHalfOf(float fValue) {
    return static_cast<int32_t>(static_cast<uint32_t>(std::bit_cast<uint64_t>(static_cast<double>(fValue))));
}

}  // namespace

bool canImplementIQ(const utils::VariantRecord& cParameters, const StreamRanges& cRanges,
                    ErrorList& lMessages) {
    const float fCentre = cParameters.getNumber("FCentreHz").value_or(0.0f);
    const float fIFBW = cParameters.getNumber("IFBWHz").value_or(0.0f);
    const float fReference = cParameters.getNumber("RefdBm").value_or(kDefaultReferenceLevel);
    if (!cRanges.mcCentreHz.contains(fCentre))
        refuse(lMessages, -62,
               outOfRange("FCentreHz %.4e is out of range (%.4e, %.4e)", fCentre, cRanges.mcCentreHz));
    if (!cRanges.mcIFBWHz.contains(fIFBW))
        refuse(lMessages, -63,
               outOfRange("FIFBWHz %.4e is out of range (%.4e, %.4e)", fIFBW, cRanges.mcIFBWHz));
    // The first number is the bandwidth, deliberately.
    if (!cRanges.mcReferenceLevel.contains(fReference))
        refuse(
            lMessages, -64,
            outOfRange("ReferenceLevel %.0f is out of range (%.0f, %.0f)", fIFBW, cRanges.mcReferenceLevel));
    return lMessages.empty();
}

bool canImplementSpectrum(const utils::VariantRecord& cParameters, const StreamRanges& cRanges,
                          ErrorList& lMessages) {
    const float fMinimum = cParameters.getNumber("FMinHz").value_or(0.0f);
    const float fMaximum = cParameters.getNumber("FMaxHz").value_or(0.0f);
    const float fRBW = cParameters.getNumber("RBWHz").value_or(0.0f);
    const std::string window = cParameters.getText("WindowFn").value_or("");
    const bool bMinimum = cRanges.mcSweepHz.contains(fMinimum);
    const bool bMaximum = cRanges.mcSweepHz.contains(fMaximum);
    if (!bMinimum)
        refuse(lMessages, -67,
               outOfRange("FMinHz %.4e is out of range (%.4e, %.4e)", fMinimum, cRanges.mcSweepHz));
    if (!bMaximum)
        refuse(lMessages, -68,
               outOfRange("FMaxHz %.4e is out of range (%.4e, %.4e)", fMaximum, cRanges.mcSweepHz));
    // One edge out of range does not hide a pair that is the wrong way round.
    if ((bMinimum || bMaximum) && fMinimum >= fMaximum)
        refuse(lMessages, -53,
               utils::formatText("Range FMinHz %.4d to FMaxHz %.4e is invalid", lowHalfOf(fMinimum),
                                 static_cast<double>(fMaximum)));
    if (!cRanges.mcRBWHz.contains(fRBW))
        refuse(lMessages, -65, outOfRange("RBWHz %.0e is out of range (%.0e, %.0e)", fRBW, cRanges.mcRBWHz));
    if (!window.empty() && !WindowFunctions::findWindow(window))
        refuse(lMessages, -66, utils::formatText("Window type '%s' is not known", window.c_str()));
    return lMessages.empty();
}
