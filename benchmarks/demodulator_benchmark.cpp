// The demodulators on frames as long as those of a receiver, at the input's rate and resampled, beside a bare
// transform of 1024 for each 1024 samples, and beside liquid-dsp with filters of the same orders around its
// demodulators. Items are samples that go in. It has nothing that divides by a peak.

#include <benchmark/benchmark.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "dsp/fft.h"
#include "flows/basebandframesink.h"
#include "processors/amdemodulator.h"
#include "processors/fmdemodulator.h"

#ifdef VNK_HAVE_LIQUID
#include <liquid/liquid.h>
#endif

namespace {

constexpr uint32_t kFrame = 65504;
constexpr float kRate = 256000.0f;
constexpr float kAudioRate = 48000.0f;

/// A carrier with both modulations, which neither silence nor the end of a frame interrupts.
std::complex<float> sample(uint32_t i) {
    const double fTone = std::sin(2 * std::numbers::pi * 64 * i / kFrame);
    return std::complex<float>(std::polar(0.01 * (1 + 0.5 * fTone), 8 * fTone));
}

void count(benchmark::State& cState) {
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrame});
}

/// Takes all frames and keeps none.
class Drain : public BasebandFrameSink {
 public:
    void receiveFrame(ReferencePtr<Frame> cFrame, bool) override {
        benchmark::DoNotOptimize(static_cast<BasebandFrame&>(*cFrame).getChannel(0)->getData());
    }
};

template <typename Demodulator>
class Direct : public Demodulator {
 public:
    using Demodulator::processFrame;
};

template <typename Demodulator>
void demodulate(benchmark::State& cState, const char* pParameters) {
    auto cSamples = makeReference<ComplexArray>(kFrame);
    for (uint32_t i = 0; i < kFrame; ++i)
        cSamples->getData()[i] = {sample(i).real(), sample(i).imag()};
    const auto cFrame =
        makeReference<IQFrame>(0u, uint64_t{0}, uint64_t{1}, uint32_t{kNanoseconds}, 1e8f, kRate, kRate,
                               -30.0f, cSamples, std::string(kUnitsSqrtMilliwatt));
    const auto cDemodulator = makeReference<Direct<Demodulator>>();
    ErrorList lErrors;
    cDemodulator->attachFrameSink(makeReference<Drain>(), lErrors);
    utils::VariantRecord cRecord(pParameters);
    cDemodulator->setSinkParameters(cRecord, lErrors, true);
    uint32_t uSequence = 1;
    for (auto _ : cState) {
        cFrame->setSequence(uSequence++);
        cDemodulator->processFrame(cFrame);
    }
    count(cState);
}

void amDSB(benchmark::State& cState) {
    demodulate<AMDemodulator>(cState, "{\"type\":\"DSB\"}");
}
void amUSB(benchmark::State& cState) {
    demodulate<AMDemodulator>(cState, "{\"type\":\"USB\"}");
}
void fm(benchmark::State& cState) {
    demodulate<FMDemodulator>(cState, "{}");
}
void amDSBResampled(benchmark::State& cState) {
    demodulate<AMDemodulator>(cState, "{\"type\":\"DSB\",\"OutputSampleRate\":48000}");
}
void amUSBResampled(benchmark::State& cState) {
    demodulate<AMDemodulator>(cState, "{\"type\":\"USB\",\"OutputSampleRate\":48000}");
}
void fmResampled(benchmark::State& cState) {
    demodulate<FMDemodulator>(cState, "{\"OutputSampleRate\":48000}");
}
BENCHMARK(amDSB);
BENCHMARK(amUSB);
BENCHMARK(fm);
BENCHMARK(amDSBResampled);
BENCHMARK(amUSBResampled);
BENCHMARK(fmResampled);

void bareFFT(benchmark::State& cState) {
    constexpr uint32_t kSize = 1024;
    ComplexArray cInput(kFrame), cOutput(kSize);
    for (uint32_t i = 0; i < kFrame; ++i)
        cInput.getData()[i] = {sample(i).real(), sample(i).imag()};
    const auto cFFT = FFT::create(kSize);
    for (auto _ : cState)
        for (uint32_t i = 0; i + kSize <= kFrame; i += kSize) {
            cFFT->forward(cOutput.getData(), cInput.getData() + i, kSize);
            benchmark::ClobberMemory();
        }
    cState.SetItemsProcessed(cState.iterations() * int64_t{kFrame / kSize * kSize});
}
BENCHMARK(bareFFT);

#ifdef VNK_HAVE_LIQUID

class LiquidResampler {
 public:
    LiquidResampler() : mpResampler(resamp_rrrf_create_default(kAudioRate / kRate)), mlOutput(kFrame) {}
    ~LiquidResampler() { resamp_rrrf_destroy(mpResampler); }
    LiquidResampler(const LiquidResampler&) = delete;
    LiquidResampler& operator=(const LiquidResampler&) = delete;
    void run(std::vector<float>& lAudio) {
        unsigned int uCount = 0;
        resamp_rrrf_execute_block(mpResampler, lAudio.data(), kFrame, mlOutput.data(), &uCount);
        benchmark::DoNotOptimize(mlOutput.data());
    }

 private:
    resamp_rrrf mpResampler;
    std::vector<float> mlOutput;
};

std::vector<std::complex<float>> liquidInput() {
    std::vector<std::complex<float>> lInput(kFrame);
    for (uint32_t i = 0; i < kFrame; ++i)
        lInput[i] = sample(i);
    return lInput;
}

void liquidAM(benchmark::State& cState, liquid_ampmodem_type eType, bool bResample) {
    std::vector<std::complex<float>> lInput = liquidInput(), lFiltered(kFrame);
    std::vector<float> lAudio(kFrame);
    const iirfilt_crcf pLowPass = iirfilt_crcf_create_lowpass(6, 0.4f);
    const iirfilt_rrrf pHalfBand = iirfilt_rrrf_create_lowpass(4, 0.25f);
    const ampmodem pDemodulator = ampmodem_create(0.5f, eType, eType == LIQUID_AMPMODEM_DSB ? 0 : 1);
    LiquidResampler cResampler;
    for (auto _ : cState) {
        iirfilt_crcf_execute_block(pLowPass, lInput.data(), kFrame, lFiltered.data());
        ampmodem_demodulate_block(pDemodulator, lFiltered.data(), kFrame, lAudio.data());
        iirfilt_rrrf_execute_block(pHalfBand, lAudio.data(), kFrame, lAudio.data());
        if (bResample)
            cResampler.run(lAudio);
        benchmark::ClobberMemory();
    }
    count(cState);
    ampmodem_destroy(pDemodulator);
    iirfilt_rrrf_destroy(pHalfBand);
    iirfilt_crcf_destroy(pLowPass);
}

void liquidFM(benchmark::State& cState, bool bResample) {
    std::vector<std::complex<float>> lInput = liquidInput();
    std::vector<float> lAudio(kFrame);
    const freqdem pDemodulator = freqdem_create(0.5f);
    const firfilt_rrrf pLowPass = firfilt_rrrf_create_kaiser(37, 0.1f, 40.0f, 0.0f);
    LiquidResampler cResampler;
    for (auto _ : cState) {
        freqdem_demodulate_block(pDemodulator, lInput.data(), kFrame, lAudio.data());
        firfilt_rrrf_execute_block(pLowPass, lAudio.data(), kFrame, lAudio.data());
        if (bResample)
            cResampler.run(lAudio);
        benchmark::ClobberMemory();
    }
    count(cState);
    firfilt_rrrf_destroy(pLowPass);
    freqdem_destroy(pDemodulator);
}

void liquidAMDSB(benchmark::State& cState) {
    liquidAM(cState, LIQUID_AMPMODEM_DSB, false);
}
void liquidAMUSB(benchmark::State& cState) {
    liquidAM(cState, LIQUID_AMPMODEM_USB, false);
}
void liquidFMPlain(benchmark::State& cState) {
    liquidFM(cState, false);
}
void liquidAMDSBResampled(benchmark::State& cState) {
    liquidAM(cState, LIQUID_AMPMODEM_DSB, true);
}
void liquidAMUSBResampled(benchmark::State& cState) {
    liquidAM(cState, LIQUID_AMPMODEM_USB, true);
}
void liquidFMResampled(benchmark::State& cState) {
    liquidFM(cState, true);
}
BENCHMARK(liquidAMDSB);
BENCHMARK(liquidAMUSB);
BENCHMARK(liquidFMPlain)->Name("liquidFM");
BENCHMARK(liquidAMDSBResampled);
BENCHMARK(liquidAMUSBResampled);
BENCHMARK(liquidFMResampled);

#endif

}  // namespace
