#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

// Measurements of the tests' own, in double precision and by definition rather than by a fast transform,
// except for the search of a peak.

namespace measure {

using Samples = std::vector<std::complex<float>>;

inline double blackmanHarris(size_t i, size_t n) {
    const double x = 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n);
    return 0.35875 - 0.48829 * std::cos(x) + 0.14128 * std::cos(2 * x) - 0.01168 * std::cos(3 * x);
}

/// Amplitude of a tone at a known frequency (cycles per sample), windowed so that others do not leak in.
inline double toneAmplitude(const Samples& lSamples, double frequency, size_t n) {
    std::complex<double> cSum = 0;
    double weight = 0;
    std::complex<double> cRotor = 1;
    const std::complex<double> cStep = std::polar(1.0, -2 * std::numbers::pi * frequency);
    for (size_t i = 0; i < n; ++i) {
        const double w = blackmanHarris(i, n);
        cSum += std::complex<double>(lSamples[i]) * cRotor * w;
        weight += w;
        cRotor *= cStep;
        if (i % 1024 == 0)
            cRotor /= std::abs(cRotor);
    }
    return std::abs(cSum) / weight;
}

/// Radix-2 transform of a power-of-two count.
inline std::vector<std::complex<double>> transform(std::vector<std::complex<double>> x) {
    const size_t n = x.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(x[i], x[j]);
    }
    for (size_t length = 2; length <= n; length <<= 1) {
        const std::complex<double> step = std::polar(1.0, -2 * std::numbers::pi / static_cast<double>(length));
        for (size_t i = 0; i < n; i += length) {
            std::complex<double> w = 1;
            for (size_t k = 0; k < length / 2; ++k) {
                const std::complex<double> even = x[i + k], odd = x[i + k + length / 2] * w;
                x[i + k] = even + odd;
                x[i + k + length / 2] = even - odd;
                w *= step;
            }
        }
    }
    return x;
}

/// Power spectrum of the first n samples, Blackman-Harris windowed, unit-tone bin = 1; bin 0 is 0 Hz.
inline std::vector<double> powerSpectrum(const Samples& lSamples, size_t n, size_t offset = 0) {
    std::vector<std::complex<double>> x(n);
    double weight = 0;
    for (size_t i = 0; i < n; ++i) {
        const double w = blackmanHarris(i, n);
        x[i] = std::complex<double>(lSamples[offset + i]) * w;
        weight += w;
    }
    x = transform(std::move(x));
    std::vector<double> power(n);
    for (size_t i = 0; i < n; ++i)
        power[i] = std::norm(x[i]) / (weight * weight);
    return power;
}

/// Frequency of the strongest bin in cycles per sample, -0.5 to 0.5.
inline double peakFrequency(const Samples& lSamples, size_t n) {
    const std::vector<double> power = powerSpectrum(lSamples, n);
    const auto peak = static_cast<double>(std::max_element(power.begin(), power.end()) - power.begin());
    const double f = peak / static_cast<double>(n);
    return f < 0.5 ? f : f - 1;
}

inline double dB(double amplitude) {
    return 20 * std::log10(amplitude);
}

/// Mean power in dB.
inline double meanPower(const Samples& lSamples) {
    double sum = 0;
    for (const auto& s : lSamples)
        sum += std::norm(std::complex<double>(s));
    return 10 * std::log10(sum / static_cast<double>(lSamples.size()));
}

}  // namespace measure
