#pragma once

#include <atomic>
#include <optional>

#include "foundations/namedlock.h"
#include "receivers/packetorder.h"
#include "receivers/sweepplan.h"

/// A packet of samples as it came, with its count modulo 16.
struct SamplePacket {
    ReferencePtr<FloatArray> mcSamples;
    uint64_t muTimeNs;
    uint32_t muCount;
    bool mbInverted;
    uint32_t muEpoch;
};

/// Puts the samples of packets together to blocks. Packets come on the polling thread; any thread may change
/// what is known or begin anew.
class BlockGatherer {
 public:
    enum class Outcome { kTaken, kEmpty, kWrongSize, kOutOfPlace };
    struct Result {
        Outcome meOutcome;
        std::optional<SweepBlock> mcBlock;   // one that this packet has completed
        uint32_t muTaken = 0;                // packets of its block so far,
        uint32_t muPackets = 0;              // of as many as it has
        uint64_t muFrequencyHz = 0;          // of its block
    };

    /// Forgets the block that is being gathered. Its shape from here on, in values of a float each, and how long a
    /// packet lasts.
    void begin(uint32_t uValuesPerPacket, uint32_t uPacketsPerBlock, uint64_t uPacketNs);
    /// A context: the tuning of the samples that follow.
    void setFrequency(uint64_t uHertz);
    void setReferenceLevel(float fdBm);
    /// A context that stands in front of a list.
    void noteStart();
    /// The frequency of a context has been seen.
    bool knowsFrequency();
    /// Counts the beginnings.
    uint32_t epoch() const { return muEpoch; }
    /// A packet of another epoch is out of place. One that does not follow the one before makes the block at hand
    /// unusable; one that comes twice is left out.
    Result take(const SamplePacket& cPacket);

 private:
    bool isBlockOpen() const REQUIRES(mcLock) { return mcSamples.get() != nullptr; }
    void spoil() REQUIRES(mcLock);
    void drop() REQUIRES(mcLock);
    bool isNext(const SamplePacket& cPacket) REQUIRES(mcLock);
    void open(const SamplePacket& cFirst) REQUIRES(mcLock);

    static constexpr uint64_t kUnknown = ~uint64_t{0};

    std::atomic<uint32_t> muEpoch{0};
    utils::NamedLock mcLock{"BlockGatherer::mcLock"};
    uint32_t muValues GUARDED_BY(mcLock) = 0;
    uint32_t muPackets GUARDED_BY(mcLock) = 0;
    uint64_t muFrequencyHz GUARDED_BY(mcLock) = kUnknown;
    float mfReferenceLevel GUARDED_BY(mcLock) = -30.0f;
    bool mbWaitsForContext GUARDED_BY(mcLock) = false;   // the rest of a spoilt block is still to come
    uint64_t muBlockFrequencyHz GUARDED_BY(mcLock) = kUnknown;
    uint64_t muBlockTimeNs GUARDED_BY(mcLock) = 0;
    uint32_t muTaken GUARDED_BY(mcLock) = 0;
    PacketOrder mcOrder GUARDED_BY(mcLock);
    ReferencePtr<FloatArray> mcSamples GUARDED_BY(mcLock);
};
