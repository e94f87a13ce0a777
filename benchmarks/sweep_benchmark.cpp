// One block of a sweep, from samples to levels, beside the bare transform of its size.

#include <benchmark/benchmark.h>

#include "receivers/sweepengine.h"
#include "zelvar/sweepmechanism.h"
#include "zelvar/sweepplan.h"

namespace {

/// A tuned sweep whose resolution needs a transform of this size.
SweepRequest requestFor(uint32_t uFFTSize) {
    SweepRequest cRequest{100e6f, 300e6f, 0.0f};
    cRequest.mfRBWHz = 62.5e6f / static_cast<float>(uFFTSize / 2 - 64) * 2.02135f;
    return cRequest;
}

SweepBlock blockOf(uint32_t uCount, uint64_t uFrequencyHz) {
    auto cSamples = makeReference<FloatArray>(uCount);
    uint32_t uRandom = 1;
    for (uint32_t i = 0; i < uCount; ++i) {
        uRandom = uRandom * 1664525u + 1013904223u;
        cSamples->getData()[i] = static_cast<float>(uRandom >> 8) / 8388608.0f - 1.0f;
    }
    return {uFrequencyHz, 0, -30.0f, false, cSamples};
}

void reconstruct(benchmark::State& cState) {
    const auto uSize = static_cast<uint32_t>(cState.range(0));
    std::string message;
    const SweepRequest cRequest = requestFor(uSize);
    const std::optional<SweepPlan> cPlan = planSweep(cRequest, 2.7e10f, message);
    if (!cPlan || cPlan->muFFTSize != uSize) {
        cState.SkipWithError("no plan of this size");
        return;
    }
    const auto cSweep = makeReference<ZelvarSweepConfiguration>(cRequest, *cPlan, nullptr);
    const SweepBlock cBlock =
        blockOf(cPlan->muSamplesPerPacket * cPlan->muPacketsPerBlock, cPlan->muCentreFirst);
    FloatArray cLevels(cSweep->binsAt(0));
    for (auto _ : cState) {
        if (!cSweep->reconstruct(cBlock, 0, 0.0f, cLevels.getData()))
            cState.SkipWithError("not reconstructed");
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{uSize});
}
BENCHMARK(reconstruct)->Arg(1024)->Arg(32768)->Arg(262144);

void limitTransform(benchmark::State& cState) {
    const auto uSize = static_cast<uint32_t>(cState.range(0));
    const auto cFFT = FFT::create(uSize);
    ComplexArray cInput(uSize), cOutput(uSize);
    const SweepBlock cBlock = blockOf(uSize, 0);
    for (uint32_t i = 0; i < uSize; ++i)
        cInput.getData()[i] = {cBlock.mcSamples->getData()[i], 0.0f};
    for (auto _ : cState) {
        cFFT->forward(cOutput.getData(), cInput.getData(), uSize);
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{uSize});
}
BENCHMARK(limitTransform)->Arg(1024)->Arg(32768)->Arg(262144);

void plan(benchmark::State& cState) {
    const SweepRequest cRequest{9e3f, 2.7e10f, 10e3f};
    std::string message;
    for (auto _ : cState)
        benchmark::DoNotOptimize(planSweep(cRequest, 2.7e10f, message));
}
BENCHMARK(plan);

}  // namespace
