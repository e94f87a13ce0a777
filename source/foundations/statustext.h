#pragma once

#include <cstdint>

namespace utils {

/// Constant text of a status, never null.
const char* textForStatus(int32_t iStatus);

}  // namespace utils
