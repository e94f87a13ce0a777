#pragma once

#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "recordings/pair.h"

namespace recordings {

/// The samples of a raw recording: cs16, cs8, cu8 (zero at 127.5) in fractions of full scale, or f32 (real).
inline std::vector<std::complex<float>> samplesOf(const std::string& native, std::string_view format) {
    const std::string bytes = readFile(native);
    std::vector<std::complex<float>> lSamples;
    const auto value = [&](size_t uIndex) {
        if (format == "cs16")
            return static_cast<float>(numberAt<int16_t>(bytes, uIndex * 2)) / 32768.0f;
        if (format == "cs8")
            return static_cast<float>(numberAt<int8_t>(bytes, uIndex)) / 128.0f;
        return (static_cast<float>(numberAt<uint8_t>(bytes, uIndex)) - 127.5f) / 127.5f;
    };
    if (format == "f32")
        for (size_t i = 0; i < bytes.size() / 4; ++i)
            lSamples.emplace_back(numberAt<float>(bytes, i * 4), 0.0f);
    else
        for (size_t i = 0; i < bytes.size() / (format == "cs16" ? 4 : 2); ++i)
            lSamples.emplace_back(value(2 * i), value(2 * i + 1));
    return lSamples;
}

/// Frames of so many samples each, and what is left over in the last. With `fHaste` above 1 their times run
/// so much faster than they were recorded, and so they play.
inline std::vector<IQ> framesOf(const std::vector<std::complex<float>>& lSamples, size_t uPerFrame,
                                double fRate, double fHaste = 1) {
    constexpr uint64_t kStart = 1'577'836'800'000'000'000;
    std::vector<IQ> lFrames;
    for (size_t uAt = 0; uAt < lSamples.size(); uAt += uPerFrame) {
        const auto uOffset =
            static_cast<uint64_t>(std::llround(static_cast<double>(uAt) / fRate / fHaste * 1e9));
        const auto itFirst = lSamples.begin() + static_cast<std::ptrdiff_t>(uAt);
        const auto iCount = static_cast<std::ptrdiff_t>(std::min(uPerFrame, lSamples.size() - uAt));
        lFrames.push_back(
            {kStart + uOffset, static_cast<uint32_t>(lFrames.size()), {itFirst, itFirst + iCount}});
    }
    return lFrames;
}

inline std::vector<std::complex<float>> joined(const std::vector<IQ>& lFrames) {
    std::vector<std::complex<float>> lSamples;
    for (const IQ& cFrame : lFrames)
        lSamples.insert(lSamples.end(), cFrame.mlSamples.begin(), cFrame.mlSamples.end());
    return lSamples;
}

}  // namespace recordings
