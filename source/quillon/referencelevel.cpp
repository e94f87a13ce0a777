#include "quillon/referencelevel.h"

#include <algorithm>
#include <limits>

#include "foundations/text.h"
#include "quillon/ranges.h"

namespace Quillon {

float heldReferenceLevel(float fdBm) {
    if (!(fdBm <= kReferenceLevelRange.mfMaximum))  // NaN too
        return kReferenceLevelRange.mfMaximum;
    return std::max(fdBm, kReferenceLevelRange.mfMinimum);
}

int32_t referenceSetting(float fdBm) {
    constexpr float kBeyond = 2147483648.0f;
    if (!(fdBm < kBeyond))  // NaN too
        return std::numeric_limits<int32_t>::max();
    return fdBm > -kBeyond ? static_cast<int32_t>(fdBm) : std::numeric_limits<int32_t>::min();
}

std::string referenceCommand(int32_t iSetting) {
    return utils::formatText(":DEBUG:REFERENCE:LEVEL %d", iSetting);
}

}  // namespace Quillon
