#pragma once

#include <complex>
#include <cstddef>
#include <vector>

namespace cli {

/// A forward Fourier transform of one size, a power of two, not scaled. The tool has its own so that it
/// needs no package for it; the library's is behind other walls.
class Fourier {
 public:
    explicit Fourier(size_t size);
    size_t size() const { return mlTwiddles.size() * 2; }
    /// In place; `data` holds size() values.
    void run(std::complex<double>* data) const;

 private:
    std::vector<std::complex<double>> mlTwiddles;
};

/// The Hann window, periodic.
std::vector<double> hannWindow(size_t size);
/// The smallest power of two that is not below `value` (and at least 2).
size_t powerOfTwo(size_t value);

}  // namespace cli
