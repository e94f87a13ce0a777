// The packet scan beside memcpy of the same bytes: what a packet costs on its way from the transport's block
// to a listener is two copies, so half of memcpy's rate is the limit.

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "links/zelvar-vita49protocol.h"

namespace {

using namespace VITA49Zelvar;

constexpr size_t kStreamBytes = size_t{8} << 20;

class Counter : public VITA49ZelvarProtocol::Listener {
 public:
    void handleReceiverContext(ReferencePtr<ReceiverContext>) override { ++muPackets; }
    void handleDigitizerContext(ReferencePtr<DigitizerContext>) override { ++muPackets; }
    void handleExtensionContext(ReferencePtr<ExtensionContext>) override { ++muPackets; }
    void handleIFDataIQ14(ReferencePtr<IFDataIQ14> cPacket) override {
        ++muPackets;
        muSamples += cPacket->sampleCount();
    }
    void handleIFDataI14(ReferencePtr<IFDataI14>) override { ++muPackets; }
    void handleIFDataI24(ReferencePtr<IFDataI24>) override { ++muPackets; }
    uint64_t muPackets = 0;
    uint64_t muSamples = 0;
};

/// Data packets of the size asked for, with random samples.
std::string stream(uint32_t uWords) {
    std::mt19937 cRandom(1);
    std::string bytes;
    while (bytes.size() < kStreamBytes) {
        std::string packet(size_t{uWords} * 4, '\0');
        for (char& cByte : packet)
            cByte = static_cast<char>(cRandom());
        const unsigned char header[8] = {
            0x10, 0x60, static_cast<unsigned char>(uWords >> 8), static_cast<unsigned char>(uWords), 0x90, 0,
            0,    3};
        std::memcpy(packet.data(), header, sizeof(header));
        bytes += packet;
    }
    return bytes;
}

/// The stream as a transport hands it on, in blocks of the size asked for.
std::vector<ReferencePtr<utils::MemoryBlock>> blocksOf(const std::string& bytes, uint32_t uBlockBytes) {
    std::vector<ReferencePtr<utils::MemoryBlock>> lBlocks;
    for (size_t uAt = 0; uAt < bytes.size(); uAt += uBlockBytes)
        lBlocks.push_back(makeReference<utils::MemoryBlock>(
            bytes.data() + uAt, static_cast<uint32_t>(std::min<size_t>(uBlockBytes, bytes.size() - uAt))));
    return lBlocks;
}

void packetScan(benchmark::State& cState) {
    const std::string bytes = stream(static_cast<uint32_t>(cState.range(0)));
    const auto lBlocks = blocksOf(bytes, static_cast<uint32_t>(cState.range(1)));
    Counter cCounter;
    const auto cProtocol = makeReference<VITA49ZelvarProtocol>(nullptr);
    cProtocol->addListener(&cCounter);
    for (auto _ : cState)
        for (const auto& cBlock : lBlocks) {
            cBlock->setReadPosition(0);
            cProtocol->onData(cBlock);
        }
    if (cCounter.muPackets == 0 || cCounter.muSamples == 0)
        cState.SkipWithError("no packets");
    cState.SetBytesProcessed(static_cast<int64_t>(bytes.size()) * cState.iterations());
    cState.counters["packets"] =
        benchmark::Counter(static_cast<double>(cCounter.muPackets), benchmark::Counter::kIsRate);
}

/// Noise with no packet in it: what a scan for the next stream ID costs.
void noiseScan(benchmark::State& cState) {
    std::mt19937 cRandom(2);
    std::string bytes(kStreamBytes, '\0');
    for (char& cByte : bytes)
        cByte = static_cast<char>(cRandom() | 1);  // no zero byte, so no stream ID
    const auto lBlocks = blocksOf(bytes, 65536);
    const auto cProtocol = makeReference<VITA49ZelvarProtocol>(nullptr);
    for (auto _ : cState)
        for (const auto& cBlock : lBlocks) {
            cBlock->setReadPosition(0);
            cProtocol->onData(cBlock);
        }
    cState.SetBytesProcessed(static_cast<int64_t>(bytes.size()) * cState.iterations());
}

/// Copies the stream once, or twice as the scan does, in pieces of the block's size.
void copyOfTheSameBytes(benchmark::State& cState) {
    const std::string bytes = stream(16384);
    const auto uPiece = static_cast<size_t>(cState.range(0));
    std::vector<char> cTo(uPiece);
    for (auto _ : cState)
        for (size_t uAt = 0; uAt < bytes.size(); uAt += uPiece) {
            std::memcpy(cTo.data(), bytes.data() + uAt, std::min(uPiece, bytes.size() - uAt));
            benchmark::DoNotOptimize(cTo.data());
            benchmark::ClobberMemory();
        }
    cState.SetBytesProcessed(static_cast<int64_t>(bytes.size()) * cState.iterations());
}

BENCHMARK(packetScan)
    ->Args({16384, 65536})
    ->Args({16384, 262144})
    ->Args({65509, 65536})
    ->Args({1024, 65536})
    ->Args({262, 1460});
BENCHMARK(noiseScan);
BENCHMARK(copyOfTheSameBytes)->Arg(65536)->Arg(262144);

}  // namespace
