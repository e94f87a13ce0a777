#pragma once

#include <string>
#include <vector>

#include "flows/iqframesink.h"
#include "links/vrtpacket.h"

namespace vnktest {

inline constexpr uint32_t kLoss = 1u << VRT::kSampleLossEnable | 1u << VRT::kSampleLoss;
inline constexpr uint32_t kValid = 1u << VRT::kValidDataEnable;
inline constexpr uint32_t kOver = 1u << VRT::kOverRangeEnable | 1u << VRT::kOverRange;
inline constexpr uint32_t kInverted = 1u << VRT::kInversionEnable | 1u << VRT::kInversion;

/// Trailers whose marks differ, and the marks of the frames that packets with them become.
inline constexpr uint32_t kMarkingTrailers[] = {kValid, kLoss, kLoss | kValid, 1u << VRT::kSampleLoss, kOver,
                                                kLoss | kOver};

struct FrameMarks {
    std::vector<uint32_t> mlSequences;
    std::vector<std::string> mlStatuses;
    friend bool operator==(const FrameMarks&, const FrameMarks&) = default;
};

inline const FrameMarks& marksOfTrailers() {
    static const FrameMarks scMarks = {{0, 2, 4, 5, 6, 8}, {"", "invalid", "", "", "overflow", "invalid, overflow"}};
    return scMarks;
}

/// Those of all frames that wait in the stream.
inline FrameMarks takeMarks(IQFrameSink& cStream) {
    FrameMarks cMarks;
    while (const auto cFrame = dynamicReferenceCast<IQFrame>(cStream.nextFrame(0, false))) {
        cMarks.mlSequences.push_back(cFrame->sequence());
        const auto cExtras = cFrame->peekExtras();
        cMarks.mlStatuses.push_back(cExtras ? cExtras->getText("status").value_or("") : "");
    }
    return cMarks;
}

}  // namespace vnktest
