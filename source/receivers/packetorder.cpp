#include "receivers/packetorder.h"

#include <cstdlib>

namespace {

constexpr uint32_t kCountMask = 15;
constexpr int64_t kExactNs = 8;  // by no chance

}  // namespace

void PacketOrder::begin(uint32_t uPacketsPerBlock, uint64_t uPacketNs) {
    muPackets = uPacketsPerBlock;
    miPacketNs = static_cast<int64_t>(uPacketNs);
    mbSeen = false;
}

void PacketOrder::noteTuning() {
    mbContext = true;
    ++muTunings;
}

void PacketOrder::noteStart() {
    mbContext = true;
    mbStart = true;
}

// Behind a context the count says something only where it is one of this stream alone: one of all packets
// would have counted the context.
bool PacketOrder::isCountWrong(uint32_t uStep, bool bInside) {
    const bool bNext = uStep == 1;
    if (bInside && !mbContext) {
        mbCountRuns = mbCountRuns || bNext;
        return !bNext && (mbCountRuns || uStep != 0);
    }
    bool& bRuns = bInside ? mbCountRunsOverContexts : mbCountRunsOverBlocks;
    bRuns = bRuns || (bNext && mbContext);
    const bool bKnown = bRuns || mbCountRunsOverBlocks || (mbStart && mbCountRuns);
    return !bNext && bKnown;
}

// Measured by what the count says, whose whole turns do not show in it. Between blocks a unit may take its
// time: only a second tuning tells of packets that are missing there.
bool PacketOrder::isTimeWrong(uint32_t uPackets, int64_t iNs, bool bInside) {
    const int64_t iBeside = std::abs(iNs - miPacketNs * uPackets);
    bool& bRuns = bInside ? mbTimeRuns : mbTimeRunsOverBlocks;
    bRuns = bRuns || (miPacketNs > 0 && iBeside <= kExactNs);
    const bool bKnown = bRuns || (mbStart && mbTimeRuns);
    return iBeside > miPacketNs / 2 && bKnown && (bInside || muTunings > 1);
}

PacketOrder::Verdict PacketOrder::compare(uint32_t uCount, uint64_t uTimeNs, bool bInside) {
    const uint32_t uStep = (uCount - muCount) & kCountMask;
    const auto iNs = static_cast<int64_t>(uTimeNs - muTimeNs);
    if (uStep == 0 && iNs == 0 && mbCountRuns)
        return Verdict::kRepeated;
    const bool bCountWrong = isCountWrong(uStep, bInside);
    const uint32_t uPackets = bCountWrong ? uStep : 1;
    const bool bTimeWrong = isTimeWrong(uPackets, iNs, bInside);
    muPlace = (muPlace + uPackets) % muPackets;
    if (!bCountWrong && !bTimeWrong)
        return Verdict::kFollows;
    const bool bRestMissing = muTunings == 1 && muPlace == 0 && !bTimeWrong;
    return mbStart || bRestMissing ? Verdict::kStarts : Verdict::kGap;
}

PacketOrder::Verdict PacketOrder::judge(uint32_t uCount, uint64_t uTimeNs, bool bInside) {
    const Verdict eVerdict = mbSeen ? compare(uCount, uTimeNs, bInside) : Verdict::kFollows;
    mbSeen = true;
    muCount = uCount;
    muTimeNs = uTimeNs;
    mbContext = false;
    mbStart = false;
    muTunings = 0;
    return eVerdict;
}
