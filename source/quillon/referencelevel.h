#pragma once

#include <cstdint>
#include <string>

namespace Quillon {

/// Held to what the unit's front end can be set to; what is no number is its least sensitive setting.
float heldReferenceLevel(float fdBm);
/// A setting is a whole number, cut towards zero.
int32_t referenceSetting(float fdBm);
std::string referenceCommand(int32_t iSetting);

}  // namespace Quillon
