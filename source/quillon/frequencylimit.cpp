#include "quillon/frequencylimit.h"

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace Quillon {

namespace {

constexpr int32_t kUnusableUnit = -6000;

bool beginsWithNumber(const std::string& text) {
    const size_t uDigit = text.find_first_not_of(" \t\r\n\v\f+-.");
    return uDigit != std::string::npos && text[uDigit] >= '0' && text[uDigit] <= '9';
}

}  // namespace

std::optional<float> readFrequencyLimit(const std::string& reply) {
    const std::optional<float> fLimit = utils::parseFloat(reply);
    if (!fLimit)
        utils::reportError(kUnusableUnit,
                           beginsWithNumber(reply) ? "stof argument out of range" : "invalid stof argument");
    return fLimit;
}

}  // namespace Quillon
