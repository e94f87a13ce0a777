#pragma once

#include <complex>
#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/oscillator.h"
#include "simulator/scene.h"

namespace vnksim {

using ComplexVector = std::vector<std::complex<float>>;

/// Samples that can be asked for at any place, negative ones too.
class SampleSource {
 public:
    virtual ~SampleSource() = default;
    virtual void read(int64_t first, size_t count, std::complex<float>* out) = 0;
};

/// A waveform repeated without end.
class LoopedSource : public SampleSource {
 public:
    /// `mirrored` conjugates the samples. Each sample k is multiplied by exp(-j 2 pi shiftTurns k).
    LoopedSource(std::shared_ptr<const Waveform> waveform, bool mirrored, long double shiftTurns);
    void read(int64_t first, size_t count, std::complex<float>* out) override;

 private:
    std::shared_ptr<const Waveform> mcWaveform;
    bool mbMirrored;
    bool mbShifted;
    Oscillator mcShift;
};

/// Band-limited samples of a source at another rate: polyphase filter of a windowed sinc. Output n lies
/// at input position n * inputRate / outputRate exactly.
class Resampler : public SampleSource {
 public:
    /// Rates in Hz. The filter has its -6 dB point at `cutoffHz` and a transition of `transitionHz`
    /// about it.
    Resampler(std::unique_ptr<SampleSource> input, double inputRate, double outputRate, double cutoffHz,
              double transitionHz);
    void read(int64_t first, size_t count, std::complex<float>* out) override;

 private:
    void design(double cutoff, double transition);

    std::unique_ptr<SampleSource> mcInput;
    long double mfStep;  ///< input samples for each output sample
    size_t muTaps = 0, muPhases = 0;
    std::vector<float> mlCoefficients;
    ComplexVector mlScratch;
};

/// A chain of resamplers from a source whose samples are at `inputRate` and whose band of interest is
/// +-cutoffHz, in as few operations for each output sample as the ratio allows.
std::unique_ptr<SampleSource> makeResampler(std::unique_ptr<SampleSource> input, double inputRate,
                                            double outputRate, double cutoffHz, double transitionHz);

}  // namespace vnksim
