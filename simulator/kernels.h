#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

/// The loops that run once for each sample. Interleaved complex data; no memory is taken here.
namespace vnksim::kernels {

inline constexpr size_t kOscillatorTable = 256;

/// out[i] += a * table[i], complex; count at most kOscillatorTable.
void addRotated(std::complex<float>* out, const std::complex<float>* table, std::complex<float> a,
                size_t count);
/// out[i] += Re(a * table[i]).
void addRotatedReal(float* out, const std::complex<float>* table, std::complex<float> a, size_t count);
/// The same with a gain for each sample.
void addRotatedGated(std::complex<float>* out, const std::complex<float>* table, const float* gain,
                     std::complex<float> a, size_t count);
void addRotatedGatedReal(float* out, const std::complex<float>* table, const float* gain,
                         std::complex<float> a, size_t count);
/// out[i] += a * table[i] * in[i].
void addMixed(std::complex<float>* out, const std::complex<float>* in, const std::complex<float>* table,
              std::complex<float> a, size_t count);
void addMixedReal(float* out, const std::complex<float>* in, const std::complex<float>* table,
                  std::complex<float> a, size_t count);
/// data[i] *= a * table[i].
void rotate(std::complex<float>* data, const std::complex<float>* table, std::complex<float> a, size_t count);
/// out[i] = scale * in[i].
void scale(float* out, const float* in, float factor, size_t count);

/// For each output i: position = start + i * step (in input samples), output = sum over `taps` inputs from
/// floor(position) on, with the row of `coefficients` that the fraction selects. Rows hold each
/// coefficient twice (for both components); taps is a multiple of 4.
void interpolate(std::complex<float>* out, const std::complex<float>* in, const float* coefficients,
                 size_t taps, size_t phases, double start, double step, size_t count);

/// Rounds to counts of items of `bits` bits (14: 8192 is full scale), clips to what they hold (-8192..8191)
/// and stores big-endian 16-bit items. True when a sample was beyond the range.
bool quantise(uint8_t* out, const float* in, size_t items, unsigned bits);

}  // namespace vnksim::kernels
