#include "simulator/resampler.h"

#include <algorithm>
#include <cmath>

namespace vnksim {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kStopBanddB = 70;

double bessel0(double x) {
    double sum = 1, term = 1;
    for (int k = 1; k < 60 && term > 1e-12 * sum; ++k) {
        term *= (x / 2 / k) * (x / 2 / k);
        sum += term;
    }
    return sum;
}

double sinc(double x) {
    return x == 0 ? 1.0 : std::sin(kPi * x) / (kPi * x);
}

}  // namespace

LoopedSource::LoopedSource(std::shared_ptr<const Waveform> waveform, bool mirrored, long double shiftTurns)
    : mcWaveform(std::move(waveform)),
      mbMirrored(mirrored),
      mbShifted(shiftTurns != 0),
      mcShift(-shiftTurns, 0) {}

void LoopedSource::read(int64_t first, size_t count, std::complex<float>* out) {
    const auto& samples = mcWaveform->samples;
    const int64_t length = static_cast<int64_t>(samples.size());
    int64_t index = first % length;
    if (index < 0) {
        index += length;
    }
    for (size_t done = 0; done < count;) {
        const size_t part = std::min(count - done, static_cast<size_t>(length - index));
        std::copy_n(samples.begin() + index, part, out + done);
        done += part;
        index = 0;
    }
    if (mbMirrored) {
        for (size_t i = 0; i < count; ++i) {
            out[i] = std::conj(out[i]);
        }
    }
    for (size_t done = 0; mbShifted && done < count; done += kernels::kOscillatorTable) {
        const uint64_t sample = static_cast<uint64_t>(first) + done;
        kernels::rotate(out + done, mcShift.table(), mcShift.at(sample),
                        std::min(count - done, kernels::kOscillatorTable));
    }
}

Resampler::Resampler(std::unique_ptr<SampleSource> input, double inputRate, double outputRate,
                     double cutoffHz, double transitionHz)
    : mcInput(std::move(input)),
      mfStep(static_cast<long double>(inputRate) / static_cast<long double>(outputRate)) {
    design(cutoffHz / inputRate, transitionHz / inputRate);
}

void Resampler::design(double cutoff, double transition) {
    // Kaiser's formulas for length and window parameter.
    const double length = (kStopBanddB - 7.95) / (14.36 * transition) + 1;
    muTaps = std::clamp<size_t>((static_cast<size_t>(std::ceil(length)) + 3) / 4 * 4, 4, 16384);
    const double beta = 0.1102 * (kStopBanddB - 8.7);
    // The error of taking the nearest phase grows with the bandwidth kept.
    muPhases = 32;
    while (static_cast<double>(muPhases) < 4096 * cutoff) {
        muPhases *= 2;
    }
    mlCoefficients.resize(muPhases * muTaps * 2);
    const double half = static_cast<double>(muTaps) / 2;
    std::vector<double> row(muTaps);
    for (size_t phase = 0; phase < muPhases; ++phase) {
        const double fraction = static_cast<double>(phase) / static_cast<double>(muPhases);
        double sum = 0;
        for (size_t k = 0; k < muTaps; ++k) {
            const double t = static_cast<double>(k) - (half - 1) - fraction;
            const double edge = std::max(0.0, 1 - (t / half) * (t / half));
            row[k] = sinc(2 * cutoff * t) * bessel0(beta * std::sqrt(edge)) / bessel0(beta);
            sum += row[k];
        }
        for (size_t k = 0; k < muTaps; ++k) {
            const float value = static_cast<float>(row[k] / sum);
            mlCoefficients[(phase * muTaps + k) * 2] = value;
            mlCoefficients[(phase * muTaps + k) * 2 + 1] = value;
        }
    }
}

void Resampler::read(int64_t first, size_t count, std::complex<float>* out) {
    const long double position = static_cast<long double>(first) * mfStep;
    const long double whole = std::floor(position);
    const int64_t lead = static_cast<int64_t>(muTaps / 2) - 1;
    const size_t needed = static_cast<size_t>(mfStep * static_cast<long double>(count)) + muTaps + 3;
    mlScratch.resize(needed);
    mcInput->read(static_cast<int64_t>(whole) - lead, needed, mlScratch.data());
    kernels::interpolate(out, mlScratch.data(), mlCoefficients.data(), muTaps, muPhases,
                         static_cast<double>(position - whole), static_cast<double>(mfStep), count);
}

std::unique_ptr<SampleSource> makeResampler(std::unique_ptr<SampleSource> input, double inputRate,
                                            double outputRate, double cutoffHz, double transitionHz) {
    constexpr double kFirstStage = 4, kSecondStage = 32;
    if (outputRate <= 1.5 * kFirstStage * inputRate) {
        return std::make_unique<Resampler>(std::move(input), inputRate, outputRate, cutoffHz, transitionHz);
    }
    // A sharp filter at a low rate first; what follows has only images far away to suppress.
    const double rate1 = kFirstStage * inputRate;
    auto first = std::make_unique<Resampler>(std::move(input), inputRate, rate1, cutoffHz, transitionHz);
    const double image1 = rate1 - inputRate;
    if (outputRate <= 1.5 * kSecondStage * inputRate) {
        return std::make_unique<Resampler>(std::move(first), rate1, outputRate, rate1 / 2, image1);
    }
    const double rate2 = kSecondStage * inputRate;
    auto second = std::make_unique<Resampler>(std::move(first), rate1, rate2, rate1 / 2, image1);
    return std::make_unique<Resampler>(std::move(second), rate2, outputRate, rate2 / 2, rate2 - inputRate);
}

}  // namespace vnksim
