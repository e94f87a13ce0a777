// Each filter of the demodulators beside a memcpy of its samples. Items are samples; frames are as long as
// those of a receiver.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "dsp/biquadfilter.h"
#include "dsp/filterdesigners.h"
#include "dsp/fir.h"
#include "dsp/hilberttransformer.h"
#include "dsp/iirfilter.h"
#include "processors/basebandresampler.h"

namespace {

constexpr uint32_t kFrame = 65504;

float sample(uint32_t i) {
    return static_cast<float>(i % 17) - 8.0f;
}

std::vector<float> realSamples() {
    std::vector<float> lSamples(kFrame);
    for (uint32_t i = 0; i < kFrame; ++i)
        lSamples[i] = sample(i);
    return lSamples;
}

std::vector<Complex<float>> complexSamples() {
    std::vector<Complex<float>> lSamples(kFrame);
    for (uint32_t i = 0; i < kFrame; ++i)
        lSamples[i] = {sample(i), sample(i + 5)};
    return lSamples;
}

void count(benchmark::State& cState) {
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrame});
}

void realFIR(benchmark::State& cState) {
    const auto lInput = realSamples();
    auto lData = lInput;
    RealFIRFilter cFilter;
    for (auto _ : cState) {
        std::memcpy(lData.data(), lInput.data(), kFrame * sizeof(float));  // its own output would die away
        cFilter.filter(lData.data(), kFrame);
        benchmark::ClobberMemory();
    }
    count(cState);
}
BENCHMARK(realFIR);

void realBiquad(benchmark::State& cState) {
    const auto lInput = realSamples();
    std::vector<float> lOutput(kFrame);
    BiquadFilter cFilter;
    cFilter.setDesign(designDigitalButterworth(0.1f, 1.0f, 2));
    for (auto _ : cState) {
        cFilter.filter(lInput.data(), lOutput.data(), kFrame);
        benchmark::ClobberMemory();
    }
    count(cState);
}
BENCHMARK(realBiquad);

template <size_t kSections>
void complexBiquads(benchmark::State& cState) {
    const auto lInput = complexSamples();
    std::vector<Complex<float>> lOutput(kFrame);
    ComplexBiquadCascade<kSections> cFilter;
    cFilter.setDesign(designDigitalButterworth(0.4f, 1.0f, 2));
    for (auto _ : cState) {
        cFilter.filter(lInput.data(), lOutput.data(), kFrame);
        benchmark::ClobberMemory();
    }
    count(cState);
}
BENCHMARK(complexBiquads<1>);
BENCHMARK(complexBiquads<3>);

/// What the cascade saves.
void threeComplexBiquadsOneAfterTheOther(benchmark::State& cState) {
    const auto lInput = complexSamples();
    std::vector<Complex<float>> lOutput(kFrame);
    ComplexBiquadFilter cSections[3];
    for (ComplexBiquadFilter& cSection : cSections)
        cSection.setDesign(designDigitalButterworth(0.4f, 1.0f, 2));
    for (auto _ : cState) {
        cSections[0].filter(lInput.data(), lOutput.data(), kFrame);
        cSections[1].filter(lOutput.data(), lOutput.data(), kFrame);
        cSections[2].filter(lOutput.data(), lOutput.data(), kFrame);
        benchmark::ClobberMemory();
    }
    count(cState);
}
BENCHMARK(threeComplexBiquadsOneAfterTheOther);

void audioIIR(benchmark::State& cState) {
    auto lInput = realSamples();
    std::vector<float> lOutput(kFrame);
    IIR cFilter;
    cFilter.setDesign(designDigitalButterworth(0.5f, 2.0f, 4));
    for (auto _ : cState) {
        IIR::Loop cLoop(cFilter);
        for (uint32_t i = 0; i < kFrame; ++i)
            lOutput[i] = static_cast<float>(cLoop.run(double{lInput[i]}));
        benchmark::ClobberMemory();
    }
    count(cState);
}
BENCHMARK(audioIIR);

void singleSideband(benchmark::State& cState) {
    const auto lInput = complexSamples();
    std::vector<float> lOutput(kFrame);
    SingleSideband cFilter;
    for (auto _ : cState) {
        cFilter.demodulate(lInput.data(), lOutput.data(), kFrame, SingleSideband::kUpper);
        benchmark::ClobberMemory();
    }
    count(cState);
}
BENCHMARK(singleSideband);

/// Samples of the input; the argument is how many of them make one of the output.
void resampler(benchmark::State& cState) {
    const float fInputRate = 48000.0f * static_cast<float>(cState.range(0)) * 1.001f;
    BasebandFrame cSource(0, kNanoseconds, fInputRate, fInputRate);
    const auto cFrame = makeReference<BasebandFrame>(cSource, 1u, fInputRate, fInputRate, kFrame);
    std::memcpy(cFrame->getChannel(0)->getData(), realSamples().data(), kFrame * sizeof(float));
    BasebandResampler cResampler(48000.0f);
    for (auto _ : cState) {
        cResampler.addFrame(cFrame);
        while (auto cBlock = cResampler.getFrame())
            benchmark::DoNotOptimize(cBlock->getChannel(0)->getData());
    }
    count(cState);
}
BENCHMARK(resampler)->Arg(1)->Arg(5)->Arg(20);

template <typename T>
void limitMemcpy(benchmark::State& cState) {
    std::vector<T> lInput(kFrame);
    std::vector<T> lOutput(kFrame);
    for (auto _ : cState) {
        std::memcpy(lOutput.data(), lInput.data(), kFrame * sizeof(T));
        benchmark::ClobberMemory();
    }
    count(cState);
}
BENCHMARK(limitMemcpy<float>);
BENCHMARK(limitMemcpy<Complex<float>>);

}  // namespace
