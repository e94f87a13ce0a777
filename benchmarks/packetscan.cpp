// The packet scan beside memcpy of the same bytes: what a packet costs on its way from the transport's block
// to a listener is two copies, so half of memcpy's rate is the limit.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "links/vita49protocol.h"
#include "links/zelvar-vita49protocol.h"

namespace {

constexpr size_t kStreamBytes = size_t{8} << 20;

/// The first family's dialect.
struct Zelvar {
    using Protocol = VITA49ZelvarProtocol;
    class Counter : public Protocol::Listener {
     public:
        void handleReceiverContext(ReferencePtr<VITA49Zelvar::ReceiverContext>) override { ++muPackets; }
        void handleDigitizerContext(ReferencePtr<VITA49Zelvar::DigitizerContext>) override { ++muPackets; }
        void handleExtensionContext(ReferencePtr<VITA49Zelvar::ExtensionContext>) override { ++muPackets; }
        void handleIFDataIQ14(ReferencePtr<VITA49Zelvar::IFDataIQ14> cPacket) override {
            ++muPackets;
            muSamples += cPacket->sampleCount();
            if (mbDecode)
                benchmark::DoNotOptimize(cPacket->getScaledSamples(0.5f, false)->getData());
        }
        void handleIFDataI14(ReferencePtr<VITA49Zelvar::IFDataI14>) override { ++muPackets; }
        void handleIFDataI24(ReferencePtr<VITA49Zelvar::IFDataI24>) override { ++muPackets; }
        bool mbDecode = false;
        uint64_t muPackets = 0;
        uint64_t muSamples = 0;
    };
    static void begin(Protocol&) {}
};

/// The generic form, each data packet with the decoding context of its stream.
struct Generic {
    using Protocol = VITA49Protocol;
    class Counter : public Protocol::Listener {
     public:
        void handleIFData(ReferencePtr<VITA49::IFData> cPacket) override {
            ++muPackets;
            muSamples += cPacket->sampleCount();
            if (mbDecode)
                benchmark::DoNotOptimize(cPacket->getScaledSamples(0.5f)->getData());
        }
        void handleIFContext(ReferencePtr<VITA49::IFContext>) override { ++muPackets; }
        void handleExtensionData(ReferencePtr<VITA49::ExtensionData>) override { ++muPackets; }
        void handleExtensionContext(ReferencePtr<VITA49::ExtensionContext>) override { ++muPackets; }
        bool mbDecode = false;
        uint64_t muPackets = 0;
        uint64_t muSamples = 0;
    };
    static void begin(Protocol& cProtocol) {
        const auto cContext = makeReference<utils::MemoryBlock>(0u);
        for (uint32_t uWord : {0x40600008u, 0x90000003u, 0u, 0u, 0u, 1u << 15, 0x200003CFu, 0u})
            cContext->writeU32(uWord);
        cProtocol.onData(cContext);
    }
};

/// Data packets of the size asked for, with random samples. Both forms take them.
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

using Blocks = std::vector<ReferencePtr<utils::MemoryBlock>>;

double threadSeconds() {
    timespec cTime{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cTime);
    return static_cast<double>(cTime.tv_sec) + static_cast<double>(cTime.tv_nsec) * 1e-9;
}

template <typename Family>
class Scan {
 public:
    explicit Scan(bool bDecode) {
        mcCounter.mbDecode = bDecode;
        Family::begin(*mcProtocol);
        mcProtocol->addListener(&mcCounter);
    }
    void run(const Blocks& lBlocks) {
        for (const auto& cBlock : lBlocks) {
            cBlock->setReadPosition(0);
            mcProtocol->onData(cBlock);
        }
    }
    /// Seconds of this thread, whoever else has the processor.
    double time(const Blocks& lBlocks) {
        const double fStart = threadSeconds();
        run(lBlocks);
        return threadSeconds() - fStart;
    }

    typename Family::Counter mcCounter;

 private:
    ReferencePtr<typename Family::Protocol> mcProtocol = makeReference<typename Family::Protocol>(nullptr);
};

template <typename Family>
void packetScan(benchmark::State& cState) {
    const std::string bytes = stream(static_cast<uint32_t>(cState.range(0)));
    const auto lBlocks = blocksOf(bytes, static_cast<uint32_t>(cState.range(1)));
    Scan<Family> cScan(false);
    for (auto _ : cState)
        cScan.run(lBlocks);
    if (cScan.mcCounter.muPackets == 0 || cScan.mcCounter.muSamples == 0)
        cState.SkipWithError("no packets");
    cState.SetBytesProcessed(static_cast<int64_t>(bytes.size()) * cState.iterations());
    cState.counters["packets"] =
        benchmark::Counter(static_cast<double>(cScan.mcCounter.muPackets), benchmark::Counter::kIsRate);
}

/// Both families by turns over the same bytes: how many times the first family's time the generic form takes,
/// as the median of all turns. The third argument says whether the samples are decoded too.
void genericBesideFirstFamily(benchmark::State& cState) {
    const std::string bytes = stream(static_cast<uint32_t>(cState.range(0)));
    const auto lBlocks = blocksOf(bytes, static_cast<uint32_t>(cState.range(1)));
    Scan<Zelvar> cFirst(cState.range(2) != 0);
    Scan<Generic> cGeneric(cState.range(2) != 0);
    std::vector<double> lRatios;
    for (auto _ : cState) {
        const double fFirst = cFirst.time(lBlocks);
        lRatios.push_back(cGeneric.time(lBlocks) / fFirst);
    }
    if (cFirst.mcCounter.muSamples == 0 || cFirst.mcCounter.muSamples != cGeneric.mcCounter.muSamples)
        cState.SkipWithError("not the same samples");
    std::nth_element(lRatios.begin(), lRatios.begin() + static_cast<std::ptrdiff_t>(lRatios.size() / 2),
                     lRatios.end());
    cState.counters["ratio"] = lRatios[lRatios.size() / 2];
}

/// Noise with no packet in it: what a scan for the next stream ID, or the next word 0, costs.
template <typename Family>
void noiseScan(benchmark::State& cState) {
    std::mt19937 cRandom(2);
    std::string bytes(kStreamBytes, '\0');
    for (char& cByte : bytes)
        cByte = static_cast<char>(cRandom() | 1);  // no zero byte, no even one: no start of either form
    const auto lBlocks = blocksOf(bytes, 65536);
    Scan<Family> cScan(false);
    for (auto _ : cState)
        cScan.run(lBlocks);
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

void sizes(benchmark::internal::Benchmark* pBenchmark) {
    pBenchmark->Args({16384, 65536})
        ->Args({16384, 262144})
        ->Args({65509, 65536})
        ->Args({1024, 65536})
        ->Args({262, 1460});
}

BENCHMARK(packetScan<Zelvar>)->Apply(sizes);
BENCHMARK(packetScan<Generic>)->Apply(sizes);
BENCHMARK(genericBesideFirstFamily)
    ->ArgsProduct({{262, 1024, 16384}, {65536}, {0, 1}})
    ->ArgNames({"words", "block", "decoded"});
BENCHMARK(noiseScan<Zelvar>);
BENCHMARK(noiseScan<Generic>);
BENCHMARK(copyOfTheSameBytes)->Arg(65536)->Arg(262144);

}  // namespace
