#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "tools/fourier.h"

namespace cli {

/// An averaged power spectrum in dBm for each bin, lowest frequency first.
struct Spectrum {
    double centreHz = 0;
    double binHz = 0;
    double noiseBandwidthHz = 0;  ///< of one bin
    std::vector<double> dbm;      ///< a tone of P dBm on a bin reads P there
    size_t averages = 0;

    double frequency(size_t bin) const {
        return centreHz + (static_cast<double>(bin) - static_cast<double>(dbm.size() / 2)) * binHz;
    }
};

/// What stands out of a spectrum between two frequencies.
struct SpectrumPeak {
    double frequencyHz = 0;
    double dbm = -1000;
    double floorDbmPerHz = -1000;  ///< of the median bin
};

/// Sums the power of Hann-windowed pieces of a sample stream. It looks at no more than about 200 pieces
/// for each second of signal, spread evenly: enough to average, and cheap at any sample rate.
class SpectrumAverage {
 public:
    SpectrumAverage(size_t size, double sampleRateHz);
    /// `samples` are pairs, I then Q, in square roots of milliwatts.
    void feed(const float* samples, size_t count);
    /// The next sample does not follow the last.
    void gap() { mlPiece.clear(); }
    size_t averages() const { return muAverages; }
    Spectrum result(double centreHz) const;

 private:
    void addPiece();

    Fourier mcFourier;
    std::vector<double> mlWindow, mlPower;
    std::vector<std::complex<double>> mlPiece, mlScratch;
    double mdSampleRateHz;
    size_t muSkipBetween, muSkip = 0, muAverages = 0;
};

/// A size that shows `spanHz` with at least `bins` bins.
size_t spectrumSize(double sampleRateHz, double spanHz, size_t bins);
SpectrumPeak findPeak(const Spectrum& spectrum, double lowHz, double highHz);

}  // namespace cli
