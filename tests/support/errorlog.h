#pragma once

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "foundations/runtimeerrors.h"
#include "foundations/usererrors.h"

namespace vnktest {

struct LogLine {
    int32_t miCode;
    std::string mcText;
    friend bool operator==(const LogLine&, const LogLine&) = default;
};

/// What has been reported since the last call, oldest first; progress notes only if asked for.
inline std::vector<LogLine> takeLog(bool bNotes = false) {
    std::vector<LogLine> lLines;
    for (const auto& cError : utils::RuntimeErrors::instance().takeErrors())
        if (bNotes || cError.code() != utils::kTraceCode)
            lLines.push_back({cError.code(), cError.message()});
    std::reverse(lLines.begin(), lLines.end());
    return lLines;
}

inline std::vector<int32_t> takeStatuses() {
    std::vector<int32_t> lStatuses;
    while (const int32_t iStatus = utils::UserErrors::instance().nextStatus())
        lStatuses.push_back(iStatus);
    return lStatuses;
}

inline void PrintTo(const LogLine& cLine, std::ostream* pStream) {
    *pStream << cLine.miCode << " '" << cLine.mcText << "'";
}

}  // namespace vnktest
