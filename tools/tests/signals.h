#pragma once

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>
#include <string>
#include <vector>

#include "recordings.h"

/// Recordings of made signals, and what is heard of them.
namespace vnktest {

constexpr uint64_t kSignalStart = 1700000000000000000;

/// An IQ recording of so many frames of 100 ms; `signal` tells the sample at a time in seconds.
inline void writeIq(const std::string& stem, double rate, uint32_t frames, double centreHz,
                    double bandwidthHz, const std::function<std::complex<double>(double)>& signal) {
    const auto uSize = static_cast<uint32_t>(rate / 10);
    std::string data;
    for (uint32_t u = 0; u < frames; ++u) {
        std::vector<float> samples;
        for (uint32_t i = 0; i < uSize; ++i) {
            const std::complex<double> value = signal((u * uSize + i) / rate);
            samples.push_back(static_cast<float>(value.real()));
            samples.push_back(static_cast<float>(value.imag()));
        }
        data += iqFrame(kSignalStart + uint64_t{u} * 100000000, 3 + u, samples);
    }
    writeFile(stem + ".data", data);
    writeFile(
        stem + ".json",
        "{\r\n\t\"DataType\":\"IQ\",\r\n\t\"IQ\":{\"StartTimestamp\":" + std::to_string(kSignalStart) +
            ",\"EndTimestamp\":" + std::to_string(kSignalStart + uint64_t{frames} * 100000000) +
            ",\"Samples\":" + std::to_string(frames * uSize) +
            ",\"TimeResolution\":\"ns\"},\r\n\t\"Sampling\":{\"FCentreHz\":" + std::to_string(centreHz) +
            ",\"BandwidthHz\":" + std::to_string(bandwidthHz) + ",\"SampleRateHz\":" + std::to_string(rate) +
            ",\"RefdBm\":-30.000000,\"units\":\"sqrt-mw\"}\r\n}");
}

inline std::complex<double> turn(double hertz, double seconds) {
    return std::polar(1.0, 2 * std::numbers::pi * hertz * seconds);
}

/// Samples of a WAV file or of raw bytes.
inline std::vector<double> audioOf(const std::string& bytes) {
    const auto uData = bytes.compare(0, 4, "RIFF") == 0 ? bytes.find("data") + 8 : 0;
    std::vector<double> samples;
    for (size_t u = uData; u + 2 <= bytes.size(); u += 2) {
        int16_t iSample = 0;
        std::memcpy(&iSample, bytes.data() + u, sizeof iSample);
        samples.push_back(iSample / 32767.0);
    }
    return samples;
}

inline uint32_t rateOfWav(const std::string& bytes) {
    uint32_t uRate = 0;
    const auto uFormat = bytes.find("fmt ");
    if (uFormat != std::string::npos && uFormat + 16 <= bytes.size())
        std::memcpy(&uRate, bytes.data() + uFormat + 12, sizeof uRate);
    return uRate;
}

/// Amplitude of a tone in a part of a signal.
inline double amplitudeOf(const std::vector<double>& samples, double rate, double hertz,
                          double fromSeconds = 0) {
    std::complex<double> sum = 0;
    double dWeights = 0;
    const auto uFrom = static_cast<size_t>(fromSeconds * rate);
    for (size_t i = uFrom; i < samples.size(); ++i) {
        const double dWeight = 1 - std::cos(2 * std::numbers::pi * (static_cast<double>(i - uFrom) + 0.5) /
                                            static_cast<double>(samples.size() - uFrom));
        sum += dWeight * samples[i] * turn(-hertz, static_cast<double>(i) / rate);
        dWeights += dWeight;
    }
    return dWeights > 0 ? 2 * std::abs(sum) / dWeights : 0;
}

/// Where near a frequency a tone is strongest.
inline double frequencyNear(const std::vector<double>& samples, double rate, double hertz,
                            double fromSeconds = 0) {
    double dBest = hertz;
    for (const double dStep : {2.0, 0.2, 0.02}) {
        double dStrongest = -1, dMiddle = dBest;
        for (int k = -10; k <= 10; ++k) {
            const double dAmplitude = amplitudeOf(samples, rate, dMiddle + k * dStep, fromSeconds);
            if (dAmplitude > dStrongest) {
                dStrongest = dAmplitude;
                dBest = dMiddle + k * dStep;
            }
        }
    }
    return dBest;
}

inline bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace vnktest
