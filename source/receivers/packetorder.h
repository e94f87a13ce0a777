#pragma once

#include <cstdint>

/// Tells from the counts (modulo 16) and the times of a stream's packets whether one follows the one before.
///
/// Neither is believed blindly: a unit may leave its count at 0, count all kinds of packets together or begin
/// at each block, and may give the packets of a block one time or none that is exact. What has once run on as
/// it should is a measure from then on.
class PacketOrder {
 public:
    enum class Verdict {
        kFollows,
        kRepeated,
        kStarts,  // others are missing, and this one is the first of a block
        kGap,     // others are missing
    };

    /// Forgets the packet before, not what is known of the unit.
    void begin(uint32_t uPacketsPerBlock, uint64_t uPacketNs);
    /// Packets of another kind in between; a tuning stands in front of a block.
    void noteContext() { mbContext = true; }
    void noteTuning();
    /// A list may begin here, with counts and times of its own.
    void noteStart();
    /// `bInside`: a block has begun and needs more packets.
    Verdict judge(uint32_t uCount, uint64_t uTimeNs, bool bInside);
    /// The packet just judged is taken as the first of a block.
    void setFirst() { muPlace = 0; }

 private:
    bool isCountWrong(uint32_t uStep, bool bInside);
    bool isTimeWrong(uint32_t uPackets, int64_t iNs, bool bInside);
    Verdict compare(uint32_t uCount, uint64_t uTimeNs, bool bInside);

    uint32_t muPackets = 1;
    int64_t miPacketNs = 0;
    // Seen so: inside of blocks, over a context inside of one, from block to block.
    bool mbCountRuns = false;
    bool mbCountRunsOverContexts = false;
    bool mbCountRunsOverBlocks = false;
    bool mbTimeRuns = false;
    bool mbTimeRunsOverBlocks = false;
    // Since the last packet.
    bool mbContext = false;
    bool mbStart = false;
    uint32_t muTunings = 0;
    // The last packet.
    bool mbSeen = false;
    uint32_t muCount = 0;
    uint64_t muTimeNs = 0;
    uint32_t muPlace = 0;  // in its block
};
