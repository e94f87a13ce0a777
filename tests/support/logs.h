#pragma once

#include "support/errorlog.h"

namespace vnktest {

/// The texts of the whole log, progress notes too, oldest first; empties it.
inline std::vector<std::string> takeLogTexts() {
    std::vector<std::string> lTexts;
    for (const LogLine& cLine : takeLog(true))
        lTexts.push_back(cLine.mcText);
    return lTexts;
}

}  // namespace vnktest
