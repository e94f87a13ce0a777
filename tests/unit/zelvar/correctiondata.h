#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "receivers/ifbwflatten.h"
#include "support/faketransport.h"

namespace vnktest {

/// Correction data of a unit: rows of kilohertz and vector, and the vectors' points in millionths of a dB of
/// loss.
struct CorrectionRow {
    uint32_t mukHz;
    uint32_t muVector;
};

inline std::string correctionBytes(const std::vector<CorrectionRow>& lRows,
                                   const std::vector<std::vector<int32_t>>& lVectors) {
    std::string bytes;
    const auto put = [&bytes](uint32_t uValue, int iBytes) {
        while (iBytes-- > 0)
            bytes += static_cast<char>(uValue >> 8 * iBytes & 0xFF);
    };
    put(0, 2);
    put(static_cast<uint32_t>(lRows.size()), 2);
    put(static_cast<uint32_t>(lVectors.size()), 2);
    put(lVectors.empty() ? 0 : static_cast<uint32_t>(lVectors[0].size()), 2);
    bytes.append(40, '\0');
    for (const CorrectionRow& cRow : lRows) {
        put(cRow.mukHz, 4);
        put(cRow.muVector, 2);
    }
    for (size_t i = 0; i < lVectors.size(); ++i) {
        put(static_cast<uint32_t>(i), 2);
        for (const int32_t iPoint : lVectors[i])
            put(static_cast<uint32_t>(iPoint), 4);
    }
    return bytes;
}

/// What a unit that has these bytes replies to a query for their size or for a part of them.
inline std::string correctionReply(const std::string& bytes, const std::string& query) {
    size_t uOffset = 0, uLength = 0;
    if (std::sscanf(query.c_str() + query.find('?'), "? %zu, %zu", &uOffset, &uLength) != 2)
        return std::to_string(bytes.size()) + "\n";
    const std::string part = bytes.substr(uOffset, uLength);
    const std::string digits = std::to_string(part.size());
    return "#" + std::to_string(digits.size()) + digits + part + "\n";
}

/// Read from a unit that serves these data.
inline ReferencePtr<_IFBWFlatten> correctionOf(const std::vector<CorrectionRow>& lRows,
                                               const std::vector<std::vector<int32_t>>& lVectors) {
    const std::string bytes = correctionBytes(lRows, lVectors);
    const auto cUnit = std::make_shared<FakeUnit>();
    cUnit->otherwise([bytes](const std::string& query) { return correctionReply(bytes, query); });
    const CorrectionCommands cCommands = {
        "SIZE SIGNAL?",    "SIZE NOISE?", "%s READ? 0, %d", "%s READ? %d, %d",
        "%s READ? %d, %d", "SIGNAL",      "NOISE"};
    auto cFlatten = makeReference<_IFBWFlatten>(
        makeReference<SCPIProtocol>(makeReference<FakeTransport>("fake:37001", cUnit)), cCommands);
    return cFlatten->isValid() ? cFlatten : nullptr;
}

}  // namespace vnktest
