// What processors do with a stream, beside the bare transform, a copy, and another library at the same work.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <complex>
#include <cstring>
#include <vector>

#ifdef VNK_HAVE_LIQUID
#include <liquid/liquid.h>
#endif

#include "dsp/fft.h"
#include "flows/spectrumframesink.h"
#include "processors/iqtospectrum.h"
#include "processors/spectrumcharacterization.h"

namespace {

constexpr uint32_t kFrameSamples = 65536;
constexpr float kRateHz = 10e6f;

class DroppingSink : public SpectrumFrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool) override { muFrames += cFrame != nullptr; }
    uint64_t muFrames = 0;
};

ReferencePtr<ComplexArray> noise(uint32_t uCount) {
    auto cSamples = makeReference<ComplexArray>(uCount);
    uint32_t uRandom = 1;
    const auto next = [&uRandom] {
        uRandom = uRandom * 1664525u + 1013904223u;
        return static_cast<float>(uRandom >> 8) / 8388608.0f - 1.0f;
    };
    for (uint32_t i = 0; i < uCount; ++i)
        cSamples->getData()[i] = {next(), next()};
    return cSamples;
}

template <typename Processor>
void set(Processor& cProcessor, utils::VariantRecord cRecord) {
    ErrorList lErrors;
    cProcessor.setSinkParameters(cRecord, lErrors, true);
}

void iqToSpectrum(benchmark::State& cState) {
    const auto uSize = static_cast<uint32_t>(cState.range(0));
    const auto cProcessor = makeReference<IQToSpectrum>();
    const auto cSink = makeReference<DroppingSink>();
    ErrorList lErrors;
    cProcessor->attachFrameSink(cSink, lErrors);
    utils::VariantRecord cRecord;
    cRecord.set("RBWHz", kRateHz / static_cast<float>(uSize) * 2.1f);
    cRecord.set("FFTOverlap", static_cast<float>(cState.range(1)) / 100.0f);
    set(*cProcessor, cRecord);
    const auto cSamples = noise(kFrameSamples);
    uint32_t uSequence = 0;
    const auto pass = [&] {
        cProcessor->processFrame(makeReference<IQFrame>(uSequence++, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds},
                                                        1e9f, kRateHz * 0.8f, kRateHz, -30.0f, cSamples,
                                                        std::string(kUnitsSqrtMilliwatt)));
    };
    pass();
    const uint64_t uBefore = cSink->muFrames;
    for (auto _ : cState)
        pass();
    const double hop = uSize * (1.0 - static_cast<double>(cState.range(1)) / 100.0);
    const double told = static_cast<double>(cState.iterations()) * kFrameSamples / hop;
    if (static_cast<double>(cSink->muFrames - uBefore) < told - 1)
        cState.SkipWithError("not of this size and overlap");
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrameSamples});
    cSink->detachFromSource();
}
BENCHMARK(iqToSpectrum)->ArgsProduct({{1024, 32768}, {0, 50}});

/// Transforms alone, as many as the overlap asks for.
void limitTransform(benchmark::State& cState) {
    const auto uSize = static_cast<uint32_t>(cState.range(0));
    const auto uHop = static_cast<uint32_t>(uSize * (100 - cState.range(1)) / 100);
    const auto cFFT = FFT::create(uSize);
    const auto cInput = noise(uSize);
    ComplexArray cOutput(uSize);
    for (auto _ : cState) {
        for (uint32_t uDone = 0; uDone < kFrameSamples; uDone += uHop)
            cFFT->forward(cOutput.getData(), cInput->getData(), uSize);
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrameSamples});
}
BENCHMARK(limitTransform)->ArgsProduct({{1024, 32768}, {0, 50}});

#ifdef VNK_HAVE_LIQUID

/// liquid-dsp, whose transform is FFTW as well: window, transform and the mean of the powers, without a logarithm for
/// each transform and without a frame.
void liquidPeriodogram(benchmark::State& cState) {
    const auto uSize = static_cast<uint32_t>(cState.range(0));
    const auto uHop = static_cast<uint32_t>(uSize * (100 - cState.range(1)) / 100);
    const spgramcf cPeriodogram = spgramcf_create(uSize, LIQUID_WINDOW_BLACKMANHARRIS, uSize, uHop);
    const auto cSamples = noise(kFrameSamples);
    std::vector<std::complex<float>> lSamples(kFrameSamples);
    for (uint32_t i = 0; i < kFrameSamples; ++i)
        lSamples[i] = {cSamples->getData()[i].re, cSamples->getData()[i].im};
    for (auto _ : cState) {
        spgramcf_write(cPeriodogram, lSamples.data(), kFrameSamples);
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrameSamples});
    spgramcf_destroy(cPeriodogram);
}
BENCHMARK(liquidPeriodogram)->ArgsProduct({{1024, 32768}, {0, 50}});

/// The same, with a spectrum in dB taken after each transform, as IQToSpectrum gives one.
void liquidSpectra(benchmark::State& cState) {
    const auto uSize = static_cast<uint32_t>(cState.range(0));
    const auto uHop = static_cast<uint32_t>(uSize * (100 - cState.range(1)) / 100);
    const spgramcf cPeriodogram = spgramcf_create(uSize, LIQUID_WINDOW_BLACKMANHARRIS, uSize, uHop);
    const auto cSamples = noise(kFrameSamples);
    std::vector<std::complex<float>> lSamples(kFrameSamples);
    for (uint32_t i = 0; i < kFrameSamples; ++i)
        lSamples[i] = {cSamples->getData()[i].re, cSamples->getData()[i].im};
    std::vector<float> lLevels(uSize);
    for (auto _ : cState) {
        for (uint32_t uDone = 0; uDone < kFrameSamples; uDone += uHop) {
            spgramcf_write(cPeriodogram, lSamples.data() + uDone, std::min(uHop, kFrameSamples - uDone));
            spgramcf_get_psd(cPeriodogram, lLevels.data());
            spgramcf_clear(cPeriodogram);
        }
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrameSamples});
    spgramcf_destroy(cPeriodogram);
}
BENCHMARK(liquidSpectra)->ArgsProduct({{1024, 32768}, {0, 50}});

#endif

void limitCopyOfSamples(benchmark::State& cState) {
    const auto cSamples = noise(kFrameSamples);
    ComplexArray cTarget(kFrameSamples);
    for (auto _ : cState) {
        std::memcpy(cTarget.getData(), cSamples->getData(), kFrameSamples * sizeof(Complex<float>));
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrameSamples});
}
BENCHMARK(limitCopyOfSamples);

ReferencePtr<FloatArray> levels(uint32_t uCount) {
    auto cLevels = makeReference<FloatArray>(uCount);
    for (uint32_t i = 0; i < uCount; ++i)
        cLevels->getData()[i] = -100.0f + static_cast<float>(i * 2654435761u >> 26);
    return cLevels;
}

void characterization(benchmark::State& cState) {
    const auto uBins = static_cast<uint32_t>(cState.range(0));
    const auto cProcessor = makeReference<SpectrumCharacterizationProcessor>();
    const auto cSink = makeReference<DroppingSink>();
    ErrorList lErrors;
    cProcessor->attachFrameSink(cSink, lErrors);
    utils::VariantRecord cRecord;
    cRecord.set("Average", static_cast<uint32_t>(cState.range(1)));
    set(*cProcessor, cRecord);
    const auto cFrame =
        makeReference<SpectrumFrame>(0u, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 1e6f, 2e6f, 1e3f, -30.0f,
                                     std::string("hann"), levels(uBins), std::string("dBm"));
    for (int64_t i = 0; i < 200 + cState.range(1); ++i)  // until the window is full
        cProcessor->processFrame(cFrame);
    for (auto _ : cState)
        cProcessor->processFrame(cFrame);
    cState.SetItemsProcessed(cState.iterations() * int64_t{uBins});
    cSink->detachFromSource();
}
BENCHMARK(characterization)->ArgsProduct({{1024, 32768}, {1, 100}})->Args({4096, 10000});

/// As many copies as are made of each spectrum: its own, that of the history, and three traces.
void limitCopyOfLevels(benchmark::State& cState) {
    const auto uBins = static_cast<uint32_t>(cState.range(0));
    const auto cLevels = levels(uBins);
    FloatArray cTargets[5] = {FloatArray(uBins), FloatArray(uBins), FloatArray(uBins), FloatArray(uBins),
                              FloatArray(uBins)};
    for (auto _ : cState) {
        for (FloatArray& cTarget : cTargets)
            std::memcpy(cTarget.getData(), cLevels->getData(), uBins * sizeof(float));
        benchmark::ClobberMemory();
    }
    cState.SetItemsProcessed(cState.iterations() * int64_t{uBins});
}
BENCHMARK(limitCopyOfLevels)->Arg(1024)->Arg(32768);

}  // namespace
