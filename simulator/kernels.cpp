#include "simulator/kernels.h"

namespace vnksim::kernels {

void addRotated(std::complex<float>* out, const std::complex<float>* table, std::complex<float> a,
                size_t count) {
    float* o = reinterpret_cast<float*>(out);
    const float* t = reinterpret_cast<const float*>(table);
    const float re = a.real(), im = a.imag();
    for (size_t i = 0; i < count; ++i) {
        o[2 * i] += re * t[2 * i] - im * t[2 * i + 1];
        o[2 * i + 1] += re * t[2 * i + 1] + im * t[2 * i];
    }
}

void addRotatedReal(float* out, const std::complex<float>* table, std::complex<float> a, size_t count) {
    const float* t = reinterpret_cast<const float*>(table);
    const float re = a.real(), im = a.imag();
    for (size_t i = 0; i < count; ++i) {
        out[i] += re * t[2 * i] - im * t[2 * i + 1];
    }
}

void addRotatedGated(std::complex<float>* out, const std::complex<float>* table, const float* gain,
                     std::complex<float> a, size_t count) {
    float* o = reinterpret_cast<float*>(out);
    const float* t = reinterpret_cast<const float*>(table);
    const float re = a.real(), im = a.imag();
    for (size_t i = 0; i < count; ++i) {
        o[2 * i] += gain[i] * (re * t[2 * i] - im * t[2 * i + 1]);
        o[2 * i + 1] += gain[i] * (re * t[2 * i + 1] + im * t[2 * i]);
    }
}

void addRotatedGatedReal(float* out, const std::complex<float>* table, const float* gain,
                         std::complex<float> a, size_t count) {
    const float* t = reinterpret_cast<const float*>(table);
    const float re = a.real(), im = a.imag();
    for (size_t i = 0; i < count; ++i) {
        out[i] += gain[i] * (re * t[2 * i] - im * t[2 * i + 1]);
    }
}

void addMixed(std::complex<float>* out, const std::complex<float>* in, const std::complex<float>* table,
              std::complex<float> a, size_t count) {
    float* o = reinterpret_cast<float*>(out);
    const float* x = reinterpret_cast<const float*>(in);
    const float* t = reinterpret_cast<const float*>(table);
    const float re = a.real(), im = a.imag();
    for (size_t i = 0; i < count; ++i) {
        const float wr = re * t[2 * i] - im * t[2 * i + 1];
        const float wi = re * t[2 * i + 1] + im * t[2 * i];
        o[2 * i] += wr * x[2 * i] - wi * x[2 * i + 1];
        o[2 * i + 1] += wr * x[2 * i + 1] + wi * x[2 * i];
    }
}

void addMixedReal(float* out, const std::complex<float>* in, const std::complex<float>* table,
                  std::complex<float> a, size_t count) {
    const float* x = reinterpret_cast<const float*>(in);
    const float* t = reinterpret_cast<const float*>(table);
    const float re = a.real(), im = a.imag();
    for (size_t i = 0; i < count; ++i) {
        const float wr = re * t[2 * i] - im * t[2 * i + 1];
        const float wi = re * t[2 * i + 1] + im * t[2 * i];
        out[i] += wr * x[2 * i] - wi * x[2 * i + 1];
    }
}

void rotate(std::complex<float>* data, const std::complex<float>* table, std::complex<float> a,
            size_t count) {
    float* x = reinterpret_cast<float*>(data);
    const float* t = reinterpret_cast<const float*>(table);
    const float re = a.real(), im = a.imag();
    for (size_t i = 0; i < count; ++i) {
        const float wr = re * t[2 * i] - im * t[2 * i + 1];
        const float wi = re * t[2 * i + 1] + im * t[2 * i];
        const float xr = x[2 * i], xi = x[2 * i + 1];
        x[2 * i] = wr * xr - wi * xi;
        x[2 * i + 1] = wr * xi + wi * xr;
    }
}

void scale(float* out, const float* in, float factor, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        out[i] = factor * in[i];
    }
}

void interpolate(std::complex<float>* out, const std::complex<float>* in, const float* coefficients,
                 size_t taps, size_t phases, double start, double step, size_t count) {
    const float* x = reinterpret_cast<const float*>(in);
    for (size_t i = 0; i < count; ++i) {
        const double position = start + static_cast<double>(i) * step;
        size_t first = static_cast<size_t>(position);
        const double fraction = position - static_cast<double>(first);
        size_t phase = static_cast<size_t>(fraction * static_cast<double>(phases) + 0.5);
        if (phase == phases) {
            phase = 0;
            ++first;
        }
        const float* c = coefficients + phase * taps * 2;
        const float* s = x + 2 * first;
        float sums[8] = {};
        for (size_t k = 0; k < 2 * taps; k += 8) {
            for (size_t lane = 0; lane < 8; ++lane) {
                sums[lane] += c[k + lane] * s[k + lane];
            }
        }
        out[i] = {(sums[0] + sums[2]) + (sums[4] + sums[6]), (sums[1] + sums[3]) + (sums[5] + sums[7])};
    }
}

bool quantise(uint8_t* out, const float* in, size_t items, unsigned bits) {
    const int fullScale = 1 << (bits - 1);
    const float full = static_cast<float>(fullScale);
    int over = 0;
    for (size_t i = 0; i < items; ++i) {
        float value = in[i] * full;
        over |= static_cast<int>(value > full - 0.5f) | static_cast<int>(value < -full - 0.5f);
        value = value > full - 1.0f ? full - 1.0f : value;
        value = value < -full ? -full : value;
        // Above zero the cast rounds as wanted.
        const int count = static_cast<int>(value + (2 * full + 0.5f)) - 2 * fullScale;
        out[2 * i] = static_cast<uint8_t>(static_cast<unsigned>(count) >> 8);
        out[2 * i + 1] = static_cast<uint8_t>(static_cast<unsigned>(count));
    }
    return over != 0;
}

}  // namespace vnksim::kernels
