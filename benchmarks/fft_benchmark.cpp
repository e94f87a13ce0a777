// Both directions of the transform beside a memcpy of its data, and the making of a plan pair.

#include <benchmark/benchmark.h>

#include <cstring>

#include "dsp/fft.h"

namespace {

class Buffers {
 public:
    explicit Buffers(const benchmark::State& cState)
        : muSize(static_cast<uint32_t>(cState.range(0))), mcInput(muSize), mcOutput(muSize) {
        for (uint32_t i = 0; i < muSize; ++i)
            mcInput.getData()[i] = {static_cast<float>(i % 17) - 8.0f, static_cast<float>(i % 13) - 6.0f};
    }
    void count(benchmark::State& cState) const {
        cState.SetItemsProcessed(cState.iterations() * int64_t{muSize});
        cState.SetBytesProcessed(cState.iterations() * int64_t{muSize} * int64_t{sizeof(Complex<float>)});
    }

    uint32_t muSize;
    ComplexArray mcInput;
    ComplexArray mcOutput;
};

void forward(benchmark::State& cState) {
    Buffers cBuffers(cState);
    const auto cFFT = FFT::create(cBuffers.muSize);
    for (auto _ : cState) {
        cFFT->forward(cBuffers.mcOutput.getData(), cBuffers.mcInput.getData(), cBuffers.muSize);
        benchmark::ClobberMemory();
    }
    cBuffers.count(cState);
}
BENCHMARK(forward)->RangeMultiplier(8)->Range(256, 65536);

void inverse(benchmark::State& cState) {
    Buffers cBuffers(cState);
    const auto cFFT = FFT::create(cBuffers.muSize);
    for (auto _ : cState) {
        cFFT->inverse(cBuffers.mcOutput.getData(), cBuffers.mcInput.getData(), cBuffers.muSize);
        benchmark::ClobberMemory();
    }
    cBuffers.count(cState);
}
BENCHMARK(inverse)->RangeMultiplier(8)->Range(256, 65536);

void limitMemcpy(benchmark::State& cState) {
    Buffers cBuffers(cState);
    for (auto _ : cState) {
        std::memcpy(cBuffers.mcOutput.getData(), cBuffers.mcInput.getData(),
                    cBuffers.muSize * sizeof(Complex<float>));
        benchmark::ClobberMemory();
    }
    cBuffers.count(cState);
}
BENCHMARK(limitMemcpy)->RangeMultiplier(8)->Range(256, 65536);

void planBothDirections(benchmark::State& cState) {
    for (auto _ : cState)
        benchmark::DoNotOptimize(FFT::create(static_cast<uint32_t>(cState.range(0))));
}
BENCHMARK(planBothDirections)->Arg(65536)->Unit(benchmark::kMicrosecond);

}  // namespace
