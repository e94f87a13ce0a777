#include "quillon/tuning.h"

#include <cmath>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace Quillon {

Tuning readTuning(const VITA49::IFContext& cPacket) {
    float fFrequencyHz = 0.0f;
    float fReferenceLevel = 0.0f;
    float fIgnored = 0.0f;
    cPacket.getTuning(fFrequencyHz, fIgnored, fIgnored, fReferenceLevel);
    utils::reportTrace(utils::formatText("IFContext FCentre:%.4eHz, ref level %.4f", static_cast<double>(fFrequencyHz),
                                         static_cast<double>(fReferenceLevel)));
    Tuning cTuning;
    // Exact: single precision does not hold the hertz of a high frequency.
    if (cPacket.muRFFrequency != VRT::kAbsent64)
        cTuning.mcFrequencyHz =
            static_cast<uint64_t>(std::round(static_cast<double>(cPacket.muRFFrequency) * 0x1p-20));
    if (cPacket.mbReferenceLevel)
        cTuning.mcReferenceLevel = fReferenceLevel;
    return cTuning;
}

}  // namespace Quillon
