#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <string>
#include <vector>

#include "recordings/pair.h"

// What processors compute, written out once more in double precision and without any of the library.

namespace model {

using recordings::IQ;

inline constexpr double kPi = 3.14159265358979323846;

// Windows.

inline const std::vector<std::string> kWindows = {
    "rectangular", "gaussian",     "hann",    "hamming",        "cosine",          "lanczos",
    "bartlett",    "bartletthann", "nuttall", "blackmanharris", "blackmannuttall", "flattop"};

inline float window(const std::string& name, int i, int N) {
    const double M = N - 1, x = 2 * kPi * i / M;
    const auto sum = [x](double a0, double a1, double a2, double a3, double a4) {
        return a0 + a1 * std::cos(x) + a2 * std::cos(2 * x) + a3 * std::cos(3 * x) + a4 * std::cos(4 * x);
    };
    double w = 1.0;
    if (name == "gaussian") {
        const double h = N * 0.5, u = (i - h) / h;
        w = std::exp(u * u / -0.2) / (std::sqrt(0.1) * std::sqrt(2 * kPi));
    } else if (name == "hann")
        w = 0.5 * (1 - std::cos(x));
    else if (name == "hamming")
        w = 0.54 - 0.46 * std::cos(x);
    else if (name == "cosine")
        w = std::sin(kPi * i / M);
    else if (name == "lanczos") {
        const double u = 2 * i / M - 1;
        w = u == 0 ? 1.0 : std::sin(u) / u;
    } else if (name == "bartlett")
        w = (M / 2 - std::abs(i - M / 2)) / (M / 2);
    else if (name == "bartletthann")
        w = 0.62 - 0.48 * std::abs(i / M - 0.5) - 0.38 * std::cos(x);
    else if (name == "nuttall")
        w = sum(0.355768, -0.487396, 0.144232, -0.012604, 0);
    else if (name == "blackmanharris")
        w = sum(0.35875, -0.48829, 0.14128, -0.01168, 0);
    else if (name == "blackmannuttall")
        w = sum(0.3635819, -0.4891775, 0.1365995, -0.0106411, 0);
    else if (name == "flattop")
        w = sum(1.0, -1.93, 1.29, -0.388, 0.032);
    return static_cast<float>(w);
}

/// Equivalent noise bandwidth in bins, summed in single precision, as resolutions are told with it.
inline float noiseBandwidth(const std::string& name) {
    float fSum = 0, fSquares = 0;
    for (int i = 0; i < 16385; ++i) {
        const float w = window(name, i, 16385);
        fSum += w;
        fSquares += w * w;
    }
    return fSquares / (fSum * fSum) * 16385.0f;
}

// Spectra.

/// `uBins` levels in ascending frequency of the `uSize` samples from `pSamples`.
inline std::vector<double> levels(const std::complex<float>* pSamples, size_t uSize, size_t uBins,
                                  const std::string& name) {
    std::vector<double> lWindow(uSize + 1), lLevels(uBins);
    double fMean = 0;
    for (size_t i = 0; i <= uSize; ++i) {
        lWindow[i] = static_cast<double>(window(name, static_cast<int>(i), static_cast<int>(uSize) + 1));
        fMean += lWindow[i] / static_cast<double>(uSize + 1);
    }
    std::vector<std::complex<double>> lTurns(uSize);
    for (size_t i = 0; i < uSize; ++i)
        lTurns[i] = std::polar(1.0, -2 * kPi * static_cast<double>(i) / static_cast<double>(uSize));
    const double fNoise = 10 * std::log10(static_cast<double>(noiseBandwidth(name)));
    for (size_t uBin = 0; uBin < uBins; ++uBin) {
        const size_t k = (uBin + uSize - uBins / 2) % uSize;
        double re = 0, im = 0;
        for (size_t i = 0; i < uSize; ++i) {
            const double fI = static_cast<double>(pSamples[i].real()) * lWindow[i];
            const double fQ = static_cast<double>(pSamples[i].imag()) * lWindow[i];
            const std::complex<double>& cTurn = lTurns[i * k % uSize];
            re += fI * cTurn.real() - fQ * cTurn.imag();
            im += fI * cTurn.imag() + fQ * cTurn.real();
        }
        const double fScale = 1 / fMean / static_cast<double>(uSize);
        lLevels[uBin] = 10 * std::log10((re * re + im * im) * fScale * fScale) - fNoise;
    }
    return lLevels;
}

// Filters and demodulation.

struct Biquad {
    double b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
    std::complex<double> w1, w2;

    /// One pair of poles of a Butterworth low-pass, which lies at `fAngle` from the real axis.
    Biquad(double fCutoff, double fAngle) {
        const double K = std::tan(kPi * fCutoff), c = 2 * std::cos(fAngle) * K, D = 1 + c + K * K;
        b0 = K * K / D;
        b1 = 2 * b0;
        b2 = b0;
        a1 = 2 * (K * K - 1) / D;
        a2 = (1 - c + K * K) / D;
    }
    std::complex<double> step(std::complex<double> x) {
        const std::complex<double> w = x - a1 * w1 - a2 * w2;
        const std::complex<double> y = b0 * w + b1 * w1 + b2 * w2;
        w2 = w1;
        w1 = w;
        return y;
    }
};

/// Both sidebands of an amplitude modulated carrier, brought to a peak of one. Silence stays zero.
inline std::vector<double> am(const std::vector<IQ>& lFrames, double fRate) {
    std::vector<Biquad> lInput(3, Biquad(0.4, kPi / 4));
    std::vector<Biquad> lAudio = {Biquad(0.25, kPi / 8), Biquad(0.25, 3 * kPi / 8)};
    const double fAlpha = std::min(1 / (fRate * 0.1), 1.0);
    double d = 0, p = 0;
    std::vector<double> lOut;
    for (const IQ& cFrame : lFrames)
        for (const auto& cSample : cFrame.mlSamples) {
            std::complex<double> z(static_cast<double>(cSample.real()), static_cast<double>(cSample.imag()));
            for (Biquad& cSection : lInput)
                z = cSection.step(z);
            const double y = std::abs(z);
            d = (1 - fAlpha) * d + fAlpha * y;
            double x = y - d;
            p = std::max((1 - fAlpha) * p, std::abs(x));
            x = p > 0 ? x / p : 0;
            for (Biquad& cSection : lAudio)
                x = cSection.step(x).real();
            lOut.push_back(x);
        }
    return lOut;
}

/// The three-point discriminator, before its low-pass.
inline std::vector<double> discriminated(const std::vector<IQ>& lFrames) {
    std::complex<double> z1, z2;
    std::vector<double> lOut;
    for (const IQ& cFrame : lFrames)
        for (const auto& cSample : cFrame.mlSamples) {
            std::complex<double> z(static_cast<double>(cSample.real()), static_cast<double>(cSample.imag()));
            z /= std::abs(z);
            const double fQ = (z.imag() - z2.imag()) * z1.real();
            const double fI = (z.real() - z2.real()) * z1.imag();
            lOut.push_back((fQ - fI) / kPi);
            z2 = z1;
            z1 = z;
        }
    return lOut;
}

/// What a low-pass and linear interpolation make of input frames, its slip at each joint of them included:
/// the first output behind a joint takes the weights the other way round, and the position then starts anew.
inline std::vector<double> resampled(const std::vector<std::vector<float>>& lInput, float fIn, float fOut) {
    Biquad cFilter(0.4 * static_cast<double>(fOut) / static_cast<double>(fIn), kPi / 4);
    const float fStep = fIn / fOut;
    float fPosition = 0, fCount = 0;
    double fLast = 0;
    std::vector<double> lOut;
    for (const std::vector<float>& lFrame : lInput) {
        std::vector<double> lWork;
        for (float fSample : lFrame)
            lWork.push_back(cFilter.step(static_cast<double>(fSample)).real());
        fCount = static_cast<float>(lWork.size());
        if (fPosition < 0) {
            const double a = static_cast<double>(-fPosition);
            lOut.push_back((1 - a) * fLast + a * lWork[0]);
            fPosition = 0;
        }
        while (fPosition < fCount - 1) {
            const auto i = static_cast<size_t>(std::floor(fPosition));
            const double a = static_cast<double>(fPosition) - static_cast<double>(i);
            lOut.push_back((1 - a) * lWork[i] + a * lWork[i + 1]);
            fPosition += fStep;
        }
        fLast = lWork.back();
        fPosition -= fCount;
    }
    return lOut;
}

// Traces.

struct Traces {
    std::vector<float> mlMin, mlMax;
    std::vector<double> mlAverage;
};

/// Minimum, maximum and the average whose window jumps, for spectra of one length.
class Characterization {
 public:
    size_t muLength = 1;

    const Traces& add(const std::vector<float>& lPoints) {
        if (muLength != muApplied)
            mlHistory.clear();
        muApplied = muLength;
        if (lPoints.size() != mcTraces.mlMin.size()) {
            mlHistory.clear();
            mcTraces = {lPoints, lPoints, {lPoints.begin(), lPoints.end()}};
            return mcTraces;
        }
        mlHistory.push_back(lPoints);
        for (size_t i = 0; i < lPoints.size(); ++i) {
            mcTraces.mlMin[i] = std::min(mcTraces.mlMin[i], lPoints[i]);
            mcTraces.mlMax[i] = std::max(mcTraces.mlMax[i], lPoints[i]);
            double fSum = 0;
            for (const auto& lEntry : mlHistory)
                fSum += static_cast<double>(lEntry[i]);
            mcTraces.mlAverage[i] = fSum / static_cast<double>(mlHistory.size());
        }
        if (mlHistory.size() % std::max<size_t>(muLength, 1) == 0)
            mlHistory.erase(mlHistory.begin());
        return mcTraces;
    }
    void clearMin(const std::vector<float>& lPoints) { mcTraces.mlMin = lPoints; }
    void clearMax(const std::vector<float>& lPoints) { mcTraces.mlMax = lPoints; }
    void clearAverage(const std::vector<float>& lPoints) {
        mcTraces.mlAverage.assign(lPoints.begin(), lPoints.end());
        mlHistory.clear();
    }

 private:
    size_t muApplied = 1;
    std::vector<std::vector<float>> mlHistory;
    Traces mcTraces;
};

}  // namespace model
