#pragma once

#include <cmath>
#include <complex>
#include <numbers>
#include <string>
#include <vector>

// An independent computation of spectra, in double precision and straight from the definitions.

namespace vnktest {

inline double windowValue(const std::string& name, double i, double n) {
    const double m = n - 1.0;
    const double x = 2.0 * std::numbers::pi * i / m;
    const auto sum = [x](double a, double b, double c, double d, double e) {
        return a + b * std::cos(x) + c * std::cos(2 * x) + d * std::cos(3 * x) + e * std::cos(4 * x);
    };
    if (name == "rectangular")
        return 1.0;
    if (name == "gaussian") {
        const double u = (i - n / 2) / (n / 2);
        return std::exp(-u * u / 0.2) / (std::sqrt(0.1) * std::sqrt(2.0 * std::numbers::pi));
    }
    if (name == "hann")
        return 0.5 * (1.0 - std::cos(x));
    if (name == "hamming")
        return 0.54 - 0.46 * std::cos(x);
    if (name == "cosine")
        return std::sin(std::numbers::pi * i / m);
    if (name == "lanczos") {
        const double u = 2.0 * i / m - 1.0;
        return u == 0.0 ? 1.0 : std::sin(u) / u;
    }
    if (name == "bartlett")
        return (m / 2 - std::abs(i - m / 2)) / (m / 2);
    if (name == "bartletthann")
        return 0.62 - 0.48 * std::abs(i / m - 0.5) - 0.38 * std::cos(x);
    if (name == "nuttall")
        return sum(0.355768, -0.487396, 0.144232, -0.012604, 0.0);
    if (name == "blackmanharris")
        return sum(0.35875, -0.48829, 0.14128, -0.01168, 0.0);
    if (name == "blackmannuttall")
        return sum(0.3635819, -0.4891775, 0.1365995, -0.0106411, 0.0);
    return sum(1.0, -1.93, 1.29, -0.388, 0.032);  // flattop
}

/// One point more than the transform takes, with a mean of one over all of them.
inline std::vector<double> scaledWindow(const std::string& name, uint32_t uFFTSize) {
    std::vector<double> lWindow(uFFTSize + 1);
    double fSum = 0.0;
    for (uint32_t i = 0; i <= uFFTSize; ++i)
        fSum += lWindow[i] = windowValue(name, i, uFFTSize + 1.0);
    for (double& fValue : lWindow)
        fValue *= (uFFTSize + 1.0) / fSum;
    return lWindow;
}

inline double noiseBandwidth(const std::string& name) {
    double fSum = 0.0, fSquares = 0.0;
    for (int i = 0; i < 16385; ++i) {
        const double fValue = windowValue(name, i, 16385.0);
        fSum += fValue;
        fSquares += fValue * fValue;
    }
    return fSquares / (fSum * fSum) * 16385.0;
}

/// The magnitude of one bin of the windowed samples, real or complex, a transform of as many points as there are
/// coefficients less one.
template <typename Sample>
double binMagnitude(const std::vector<Sample>& lSamples, const std::vector<double>& lWindow, uint32_t uBin) {
    const size_t uCount = lWindow.size() - 1;
    std::complex<double> cSum;
    for (size_t i = 0; i < uCount; ++i) {
        const double fTurns = static_cast<double>(i * uBin % uCount) / static_cast<double>(uCount);
        cSum += std::complex<double>(lSamples[i]) * lWindow[i] * std::polar(1.0, -2.0 * std::numbers::pi * fTurns);
    }
    return std::abs(cSum) / static_cast<double>(uCount);
}

inline double decibels(double fMagnitude) {
    return 20.0 * std::log10(fMagnitude);
}

}  // namespace vnktest
