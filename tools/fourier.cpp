#include "tools/fourier.h"

#include <cmath>
#include <numbers>
#include <utility>

namespace cli {

Fourier::Fourier(size_t size) : mlTwiddles(size / 2) {
    for (size_t i = 0; i < mlTwiddles.size(); ++i)
        mlTwiddles[i] =
            std::polar(1.0, -2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size));
}

void Fourier::run(std::complex<double>* data) const {
    const size_t uSize = size();
    for (size_t i = 1, j = 0; i < uSize; ++i) {
        size_t uBit = uSize >> 1;
        for (; j & uBit; uBit >>= 1)
            j ^= uBit;
        j ^= uBit;
        if (i < j)
            std::swap(data[i], data[j]);
    }
    for (size_t uHalf = 1; uHalf < uSize; uHalf *= 2) {
        const size_t uStride = uSize / (2 * uHalf);
        for (size_t uStart = 0; uStart < uSize; uStart += 2 * uHalf)
            for (size_t k = 0; k < uHalf; ++k) {
                // Written out: the operator checks for NaN, which costs more than the product.
                const std::complex<double> cFactor = mlTwiddles[k * uStride];
                const std::complex<double> cOdd = data[uStart + k + uHalf];
                const std::complex<double> cTurned(
                    cFactor.real() * cOdd.real() - cFactor.imag() * cOdd.imag(),
                    cFactor.real() * cOdd.imag() + cFactor.imag() * cOdd.real());
                data[uStart + k + uHalf] = data[uStart + k] - cTurned;
                data[uStart + k] += cTurned;
            }
    }
}

std::vector<double> hannWindow(size_t size) {
    std::vector<double> window(size);
    for (size_t i = 0; i < size; ++i)
        window[i] =
            0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size));
    return window;
}

size_t powerOfTwo(size_t value) {
    size_t uPower = 2;
    while (uPower < value)
        uPower *= 2;
    return uPower;
}

}  // namespace cli
