#pragma once

/// A plain pair, real part first: what stream files and the FFT store.
template <typename T>
struct Complex {
    T re;
    T im;
    friend bool operator==(const Complex&, const Complex&) = default;
};

static_assert(sizeof(Complex<float>) == 8);
