#include "quillon/frequencylimit.h"

#include <cmath>

#include "foundations/runtimeerrors.h"
#include "foundations/text.h"

namespace Quillon {

namespace {

constexpr int32_t kUnusableUnit = -6000;

bool beginsWithNumber(const std::string& text) {
    std::string_view rest = utils::strip(text);
    if (!rest.empty() && (rest.front() == '+' || rest.front() == '-'))
        rest.remove_prefix(1);
    if (!rest.empty() && rest.front() == '.')
        rest.remove_prefix(1);
    return !rest.empty() && rest.front() >= '0' && rest.front() <= '9';
}

}  // namespace

std::optional<float> readFrequencyLimit(const std::string& reply) {
    const std::optional<float> fLimit = utils::parseFloat(reply);
    if (fLimit && std::isfinite(*fLimit))
        return fLimit;
    utils::reportError(kUnusableUnit,
                       beginsWithNumber(reply) ? "stof argument out of range" : "invalid stof argument");
    return {};
}

}  // namespace Quillon
