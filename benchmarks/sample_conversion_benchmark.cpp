// Decoding of the two packet kinds beside a memcpy that writes the same bytes. Bytes per second count what is
// written; items are samples.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "dsp/sampleconversion.h"
#include "foundations/alignedarray.h"

namespace {

constexpr uint32_t kBits = 14;
constexpr float kGain = 0.2296153f;

/// Items as the wire brings them: full range, no pattern that a predictor could learn.
std::vector<uint8_t> packet(uint32_t uItems) {
    std::vector<uint8_t> cBytes(size_t{uItems} * 2);
    uint32_t uState = 1;
    for (uint8_t& uByte : cBytes) {
        uState = uState * 1664525 + 1013904223;
        uByte = static_cast<uint8_t>(uState >> 24);
    }
    return cBytes;
}

void count(benchmark::State& cState, uint32_t uSamples, size_t uSampleBytes) {
    cState.SetItemsProcessed(cState.iterations() * static_cast<int64_t>(uSamples));
    cState.SetBytesProcessed(cState.iterations() * static_cast<int64_t>(uSamples * uSampleBytes));
}

void decodeIQ14(benchmark::State& cState) {
    const auto uPairs = static_cast<uint32_t>(cState.range(0));
    const auto cBytes = packet(uPairs * 2);
    ComplexArray cSamples(uPairs);
    for (auto _ : cState) {
        benchmark::DoNotOptimize(SampleConversion::convertScaled(&cSamples.getData()->re, cBytes.data(),
                                                                 uPairs * 2, kBits, kGain));
        benchmark::ClobberMemory();
    }
    count(cState, uPairs, sizeof(Complex<float>));
}
BENCHMARK(decodeIQ14)->Arg(4096)->Arg(65504);

void decodeConjugatedIQ14(benchmark::State& cState) {
    const auto uPairs = static_cast<uint32_t>(cState.range(0));
    const auto cBytes = packet(uPairs * 2);
    ComplexArray cSamples(uPairs);
    for (auto _ : cState) {
        benchmark::DoNotOptimize(SampleConversion::convertConjugateScaled(cSamples.getData(), cBytes.data(),
                                                                          uPairs, kBits, kGain));
        benchmark::ClobberMemory();
    }
    count(cState, uPairs, sizeof(Complex<float>));
}
BENCHMARK(decodeConjugatedIQ14)->Arg(4096)->Arg(65504);

void limitIQ14(benchmark::State& cState) {
    const auto uPairs = static_cast<uint32_t>(cState.range(0));
    ComplexArray cSource(uPairs);
    ComplexArray cSamples(uPairs);
    std::memset(static_cast<void*>(cSource.getData()), 1, uPairs * sizeof(Complex<float>));
    for (auto _ : cState) {
        std::memcpy(cSamples.getData(), cSource.getData(), uPairs * sizeof(Complex<float>));
        benchmark::ClobberMemory();
    }
    count(cState, uPairs, sizeof(Complex<float>));
}
BENCHMARK(limitIQ14)->Arg(4096)->Arg(65504);

void decodeI14(benchmark::State& cState) {
    const auto uSamples = static_cast<uint32_t>(cState.range(0));
    const auto cBytes = packet(uSamples);
    FloatArray cSamples(uSamples);
    for (auto _ : cState) {
        benchmark::DoNotOptimize(
            SampleConversion::convertScaled(cSamples.getData(), cBytes.data(), uSamples, kBits, kGain));
        benchmark::ClobberMemory();
    }
    count(cState, uSamples, sizeof(float));
}
BENCHMARK(decodeI14)->Arg(65280);

void limitI14(benchmark::State& cState) {
    const auto uSamples = static_cast<uint32_t>(cState.range(0));
    FloatArray cSource(uSamples);
    FloatArray cSamples(uSamples);
    std::memset(cSource.getData(), 1, uSamples * sizeof(float));
    for (auto _ : cState) {
        std::memcpy(cSamples.getData(), cSource.getData(), uSamples * sizeof(float));
        benchmark::ClobberMemory();
    }
    count(cState, uSamples, sizeof(float));
}
BENCHMARK(limitI14)->Arg(65280);

}  // namespace
