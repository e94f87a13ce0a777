#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

// The demodulator of amplitudes and single sidebands by its description alone, for comparison.

namespace amplitude {

/// A second-order Butterworth low-pass by the closed form of its bilinear transform, in double precision.
class Section {
 public:
    /// Cut-off in cycles per sample; damping is 1/Q.
    explicit Section(double fCutOff, double fDamping = std::numbers::sqrt2) {
        const double k = std::tan(std::numbers::pi * fCutOff), n = 1 / (1 + fDamping * k + k * k);
        b0 = k * k * n;
        a1 = 2 * (k * k - 1) * n;
        a2 = (1 - fDamping * k + k * k) * n;
    }
    double step(double x) {
        const double y = b0 * (x + 2 * x1 + x2) - a1 * y1 - a2 * y2;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
        return y;
    }

 private:
    double b0, a1, a2, x1 = 0, x2 = 0, y1 = 0, y2 = 0;
};

/// The sign of the side that passes.
using Side = int;
constexpr Side kLower = -1, kBoth = 0, kUpper = 1;

/// The demodulator as it is described, one sample after the other, in double precision.
class Model {
 public:
    Model(double fRate, Side eSide) : meSide(eSide), mfAlpha(std::min(1.0, 1 / (fRate * 0.1))) {
        for (size_t i = 0; i < mfTaps.size(); ++i)
            if (const double n = 63.0 - static_cast<double>(i); i % 2 == 0)
                mfTaps[i] = (0.54 + 0.46 * std::cos(std::numbers::pi * n / 63)) / n;
    }
    float step(std::complex<double> cSample) {
        double fI = cSample.real(), fQ = cSample.imag();
        for (int i = 0; i < 3; ++i) {
            fI = mcSections[0][i].step(fI);
            fQ = mcSections[1][i].step(fQ);
        }
        const double y = meSide == kBoth ? std::sqrt(fI * fI + fQ * fQ) : sideband(fI, fQ);
        mfMean = (1 - mfAlpha) * mfMean + mfAlpha * y;
        double x = y - mfMean;
        mfPeak = std::max((1 - mfAlpha) * mfPeak, std::abs(x));
        x = mfPeak > 0 ? x / mfPeak : 0;
        return static_cast<float>(mcHalfBand[1].step(mcHalfBand[0].step(x)));
    }
    std::vector<double> of(const std::vector<std::complex<float>>& lSamples) {
        std::vector<double> lAudio;
        for (const auto& cSample : lSamples)
            lAudio.push_back(static_cast<double>(step(std::complex<double>(cSample))));
        return lAudio;
    }

 private:
    double sideband(double fI, double fQ) {
        std::copy(mfInPhase.begin() + 1, mfInPhase.end(), mfInPhase.begin());
        mfInPhase.back() = fI / 1.5695463;
        std::copy(mfQuadrature.begin() + 1, mfQuadrature.end(), mfQuadrature.begin());
        mfQuadrature.back() = fQ;
        double fSum = 0;
        for (size_t i = 0; i < mfTaps.size(); ++i)
            fSum += mfTaps[i] * mfInPhase[i + 1];
        return fSum + meSide * mfQuadrature.front();
    }

    Side meSide;
    Section mcSections[2][3] = {{Section(0.4), Section(0.4), Section(0.4)},
                                {Section(0.4), Section(0.4), Section(0.4)}};
    Section mcHalfBand[2] = {Section(0.25, 2 * std::cos(std::numbers::pi / 8)),
                             Section(0.25, 2 * std::cos(3 * std::numbers::pi / 8))};
    std::array<double, 127> mfTaps{};
    std::array<double, 128> mfInPhase{};
    std::array<double, 64> mfQuadrature{};
    double mfAlpha, mfMean = 0, mfPeak = 0;
};

}  // namespace amplitude
