// The conversion of a full-rate frame beside its limit, one forward and one inverse transform of 65536. Items
// are real samples: 125 million a second is the rate of the unit.

#include <benchmark/benchmark.h>

#include "dsp/fft.h"
#include "flows/iqconversion.h"

namespace {

ReferencePtr<IOnlyFrame> frame(const IOnlyFrame::Band& cBand) {
    ReferencePtr<FloatArray> cSamples(new FloatArray(IQConversionSize));
    for (uint32_t i = 0; i < IQConversionSize; ++i)
        cSamples->getData()[i] = static_cast<float>(i % 101) * 0.01f - 0.5f;
    return ReferencePtr<IOnlyFrame>(new IOnlyFrame(1, 0, 0, kNanoseconds, 1e9f, 40e6f, 125e6f, -30.0f, cBand,
                                                   cSamples, kUnitsSqrtMilliwatt));
}

void convert(benchmark::State& cState, const IOnlyFrame::Band& cBand) {
    const auto cFrame = frame(cBand);
    IQConversion cConversion;
    cConversion.convert(cFrame);
    for (auto _ : cState)
        benchmark::DoNotOptimize(cConversion.convert(cFrame));
    cState.SetItemsProcessed(cState.iterations() * int64_t{IQConversionSize});
}
BENCHMARK_CAPTURE(convert, superheterodyne, IOnlyFrame::Band{35e6f, -20e6f, 20e6f, false})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(convert, directDigitization, IOnlyFrame::Band{0.0f, 9e3f, 50e6f, false})
    ->Unit(benchmark::kMicrosecond);

void limitTransformPair(benchmark::State& cState) {
    constexpr uint32_t kSize = 65536;
    const auto cFFT = FFT::create(kSize);
    ComplexArray cTime(kSize);
    ComplexArray cFrequency(kSize);
    for (uint32_t i = 0; i < kSize; ++i)
        cTime.getData()[i] = {static_cast<float>(i % 101) * 0.01f - 0.5f, 0.0f};
    for (auto _ : cState) {
        cFFT->forward(cFrequency.getData(), cTime.getData(), kSize);
        cFFT->inverse(cTime.getData(), cFrequency.getData(), kSize);
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{IQConversionSize});
}
BENCHMARK(limitTransformPair)->Unit(benchmark::kMicrosecond);

}  // namespace
