#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "foundations/runtimeerrors.h"

namespace vnktest {

using LogLine = std::pair<int32_t, std::string>;

/// Code and text of each record of the log, oldest first; empties the log.
inline std::vector<LogLine> takeLog() {
    std::vector<LogLine> lLines;
    for (const auto& cError : utils::RuntimeErrors::instance().takeErrors())
        lLines.emplace_back(cError.code(), cError.message());
    std::reverse(lLines.begin(), lLines.end());
    return lLines;
}

inline void clearLog() {
    utils::RuntimeErrors::instance().clear();
}

/// True if the log holds a record of this code; empties the log.
inline bool logHolds(int32_t iCode) {
    const auto lLines = takeLog();
    return std::any_of(lLines.begin(), lLines.end(),
                       [&](const LogLine& cLine) { return cLine.first == iCode; });
}

}  // namespace vnktest
