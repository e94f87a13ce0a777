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
        const std::complex<double> step =
            std::polar(1.0, -2 * std::numbers::pi / static_cast<double>(length));
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

inline double median(std::vector<double> lValues, double place = 0.5) {
    const auto it =
        lValues.begin() + static_cast<std::ptrdiff_t>(place * static_cast<double>(lValues.size()));
    std::nth_element(lValues.begin(), it, lValues.end());
    return *it;
}

/// Power density by Welch's method: Hann window, half overlap. Frequencies from -rate / 2.
class Density {
 public:
    Density(const Samples& lSamples, double rate, size_t n)
        : mfBinHz(rate / static_cast<double>(n)), mlPower(n) {
        std::vector<double> lWindow(n);
        double weight = 0;
        for (size_t i = 0; i < n; ++i) {
            lWindow[i] =
                0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(n));
            weight += lWindow[i] * lWindow[i];
        }
        size_t uParts = 0;
        std::vector<std::complex<double>> x(n);
        for (size_t offset = 0; offset + n <= lSamples.size(); offset += n / 2, ++uParts) {
            for (size_t i = 0; i < n; ++i)
                x[i] = std::complex<double>(lSamples[offset + i]) * lWindow[i];
            const std::vector<std::complex<double>> lBins = transform(x);
            for (size_t i = 0; i < n; ++i)
                mlPower[(i + n / 2) % n] += std::norm(lBins[i]);
        }
        for (double& power : mlPower)
            power /= static_cast<double>(uParts) * weight * rate;
    }
    double binHz() const { return mfBinHz; }
    double frequency(size_t i) const {
        return (static_cast<double>(i) - static_cast<double>(mlPower.size() / 2)) * mfBinHz;
    }
    /// The bins of a band.
    std::vector<double> band(double lowHz, double highHz) const {
        return {mlPower.begin() + index(lowHz), mlPower.begin() + index(highHz) + 1};
    }
    /// Power in a band.
    double power(double lowHz, double highHz) const {
        double sum = 0;
        for (const double bin : band(lowHz, highHz))
            sum += bin * mfBinHz;
        return sum;
    }
    /// Mean density of a band, in dB.
    double mean(double lowHz, double highHz) const {
        return 10 *
               std::log10(power(lowHz, highHz) / mfBinHz / static_cast<double>(band(lowHz, highHz).size()));
    }
    /// Median density of a band, in dB.
    double floor(double lowHz, double highHz) const { return 10 * std::log10(median(band(lowHz, highHz))); }
    /// Greatest density of a band, in dB.
    double peak(double lowHz, double highHz) const {
        const std::vector<double> lBand = band(lowHz, highHz);
        return 10 * std::log10(*std::max_element(lBand.begin(), lBand.end()));
    }
    /// Where in a band the density is greatest, by a parabola through the logarithms of three bins.
    double peakHz(double lowHz, double highHz) const {
        const auto it = std::max_element(mlPower.begin() + index(lowHz), mlPower.begin() + index(highHz) + 1);
        const double a = std::log(it[-1]), b = std::log(it[0]), c = std::log(it[1]);
        return frequency(static_cast<size_t>(it - mlPower.begin())) + mfBinHz * (a - c) / (a - 2 * b + c) / 2;
    }
    /// Frequency below which a share of the power lies.
    double quantileHz(double share) const {
        double sum = 0, total = 0;
        for (const double bin : mlPower)
            total += bin;
        size_t i = 0;
        while (i + 1 < mlPower.size() && (sum += mlPower[i]) < share * total)
            ++i;
        return frequency(i);
    }

 private:
    std::ptrdiff_t index(double hz) const {
        return std::lround(hz / mfBinHz) + static_cast<std::ptrdiff_t>(mlPower.size() / 2);
    }
    double mfBinHz;
    std::vector<double> mlPower;
};

/// Amplitude of a tone in a real series, by its definition.
inline double realTone(const std::vector<double>& lValues, double frequency) {
    std::complex<double> cSum = 0, cRotor = 1;
    const std::complex<double> cStep = std::polar(1.0, -2 * std::numbers::pi * frequency);
    for (const double value : lValues) {
        cSum += value * cRotor;
        cRotor *= cStep;
    }
    return 2 * std::abs(cSum) / static_cast<double>(lValues.size());
}

/// Frequency near a guess at which a tone is strongest.
inline double strongestNear(const std::vector<double>& lValues, double rate, double guessHz, double spanHz) {
    double best = 0, bestHz = 0;
    for (int i = -25; i <= 25; ++i) {
        const double hz = guessHz + spanHz * i / 25;
        const double amplitude = realTone(lValues, hz / rate);
        if (amplitude > best) {
            best = amplitude;
            bestHz = hz;
        }
    }
    return bestHz;
}

/// Mean of a series over `uCount` values about each place.
inline std::vector<double> smooth(const std::vector<double>& lValues, size_t uCount) {
    std::vector<double> lSums(lValues.size() + 1), lMeans(lValues.size());
    for (size_t i = 0; i < lValues.size(); ++i)
        lSums[i + 1] = lSums[i] + lValues[i];
    for (size_t i = 0; i < lValues.size(); ++i) {
        const size_t uFrom = i < uCount / 2 ? 0 : i - uCount / 2;
        const size_t uTo = std::min(uFrom + uCount, lValues.size());
        lMeans[i] = (lSums[uTo] - lSums[uFrom]) / static_cast<double>(uTo - uFrom);
    }
    return lMeans;
}

inline std::vector<double> magnitudes(const Samples& lSamples) {
    std::vector<double> lMagnitudes(lSamples.size());
    for (size_t i = 0; i < lSamples.size(); ++i)
        lMagnitudes[i] = std::abs(std::complex<double>(lSamples[i]));
    return lMagnitudes;
}

struct Stretch {
    size_t start, length;
    size_t end() const { return start + length; }
};

/// The stretches of values of which `inside` is true, those that touch an end of the series too.
template <class Inside>
std::vector<Stretch> stretches(const std::vector<double>& lValues, Inside inside) {
    std::vector<Stretch> lStretches;
    bool bBefore = false;
    for (size_t i = 0; i < lValues.size(); ++i) {
        const bool bNow = inside(lValues[i]);
        if (bNow && !bBefore)
            lStretches.push_back({i, 0});
        if (bNow)
            ++lStretches.back().length;
        bBefore = bNow;
    }
    return lStretches;
}

/// The values at `count` places `step` apart, between samples by a windowed sinc over 32 of them. The places
/// count from the first sample; what a series lacks at its ends is 0.
template <class T>
std::vector<T> atPlaces(const std::vector<T>& lValues, double step, size_t count) {
    std::vector<T> lOut(count);
    for (size_t i = 0; i < count; ++i) {
        const double place = static_cast<double>(i) * step;
        const auto first = static_cast<long>(std::floor(place)) - 15;
        T sum{};
        for (long k = first; k < first + 32; ++k) {
            if (k < 0 || k >= static_cast<long>(lValues.size()))
                continue;
            const double t = place - static_cast<double>(k);
            const double x = std::numbers::pi * t;
            const double hann = 0.5 + 0.5 * std::cos(x / 16);
            const double weight = t == 0 ? 1 : std::sin(x) / x * hann;
            sum += lValues[static_cast<size_t>(k)] * weight;
        }
        lOut[i] = sum;
    }
    return lOut;
}

}  // namespace measure
