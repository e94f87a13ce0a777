#pragma once

#include <optional>
#include <string>

namespace Quillon {

/// A limit of tuning in Hz, as a unit tells it. Empty, with a report, for a reply that does not begin with a number or
/// with one that single precision does not hold.
std::optional<float> readFrequencyLimit(const std::string& reply);

}  // namespace Quillon
