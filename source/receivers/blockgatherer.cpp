#include "receivers/blockgatherer.h"

#include <algorithm>

void BlockGatherer::begin(uint32_t uValuesPerPacket, uint32_t uPacketsPerBlock, uint64_t uPacketNs) {
    utils::ScopedLock cLock(mcLock);
    ++muEpoch;
    spoil();   // the rest of a block may still be on its way
    muValues = uValuesPerPacket;
    muPackets = uPacketsPerBlock;
    mcOrder.begin(uPacketsPerBlock, uPacketNs);
}

// What is left of a block that lost its beginning must not pass for a block.
void BlockGatherer::spoil() {
    mbWaitsForContext = muPackets > 1 && (mbWaitsForContext || isBlockOpen());
    mcSamples = nullptr;
}

void BlockGatherer::drop() {
    mcSamples = nullptr;
    mbWaitsForContext = muPackets > 1;
}

// A block is of one tuning. One that was short of packets when the unit went on has no use any more.
void BlockGatherer::setFrequency(uint64_t uHertz) {
    utils::ScopedLock cLock(mcLock);
    if (isBlockOpen() && uHertz != muBlockFrequencyHz)
        mcSamples = nullptr;
    muFrequencyHz = uHertz;
    mbWaitsForContext = false;
    mcOrder.noteTuning();
}

void BlockGatherer::setReferenceLevel(float fdBm) {
    utils::ScopedLock cLock(mcLock);
    mfReferenceLevel = fdBm;
    mcOrder.noteContext();
}

void BlockGatherer::noteStart() {
    utils::ScopedLock cLock(mcLock);
    mcOrder.noteStart();
}

bool BlockGatherer::knowsFrequency() {
    utils::ScopedLock cLock(mcLock);
    return muFrequencyHz != kUnknown;
}

// A block of one packet is the packet's own array. Without memory for the others the block is lost as a whole.
void BlockGatherer::open(const SamplePacket& cFirst) {
    drop();
    mcSamples = muPackets == 1 ? cFirst.mcSamples : makeReference<FloatArray>(muValues * muPackets);
    mbWaitsForContext = false;
    muBlockFrequencyHz = muFrequencyHz;
    muBlockTimeNs = cFirst.muTimeNs;
    muTaken = 0;
    mcOrder.setFirst();
}

bool BlockGatherer::isNext(const SamplePacket& cPacket) {
    switch (mcOrder.judge(cPacket.muCount, cPacket.muTimeNs, isBlockOpen())) {
        case PacketOrder::Verdict::kFollows:
            return true;
        case PacketOrder::Verdict::kRepeated:
            return false;
        case PacketOrder::Verdict::kStarts:
            mcSamples = nullptr;
            return true;
        case PacketOrder::Verdict::kGap:
            break;
    }
    drop();
    return false;
}

BlockGatherer::Result BlockGatherer::take(const SamplePacket& cPacket) {
    utils::ScopedLock cLock(mcLock);
    if (cPacket.muEpoch != muEpoch)
        return {Outcome::kOutOfPlace, {}};
    const bool bNext = muPackets == 1 || isNext(cPacket);
    if (!cPacket.mcSamples || cPacket.mcSamples->getActive() == 0)
        return {Outcome::kEmpty, {}};
    if (cPacket.mcSamples->getActive() != muValues) {
        drop();
        return {Outcome::kWrongSize, {}};
    }
    if (!bNext || mbWaitsForContext || muFrequencyHz == kUnknown)
        return {Outcome::kOutOfPlace, {}};
    if (!isBlockOpen())
        open(cPacket);
    if (muPackets > 1)
        std::copy_n(cPacket.mcSamples->getData(), muValues, mcSamples->getData() + size_t{muTaken} * muValues);
    Result cResult{Outcome::kTaken, {}, ++muTaken, muPackets, muBlockFrequencyHz};
    if (muTaken < muPackets)
        return cResult;
    cResult.mcBlock = SweepBlock{muBlockFrequencyHz, muBlockTimeNs, mfReferenceLevel,
                                 cPacket.mbInverted, std::move(mcSamples), cPacket.muEpoch};
    mcSamples = nullptr;
    return cResult;
}
