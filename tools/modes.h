#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cli {

/// A Mode S reply whose parity is right.
struct ModeSFrame {
    double seconds = 0;  ///< start of its preamble, from the first sample fed
    std::array<uint8_t, 14> bytes{};
    size_t length = 0;  ///< 7 or 14 bytes

    unsigned format() const { return bytes[0] >> 3; }
    uint32_t aircraft() const {
        return static_cast<uint32_t>(bytes[1]) << 16 | static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
    }
    std::string hex() const;
};

/// The 24-bit parity of a frame of `length` bytes (at least 4) against the one that it carries: 0 for an
/// extended squitter that came through whole, the interrogator's code for an all-call reply.
uint32_t modeSParity(const uint8_t* bytes, size_t length);

/// Finds Mode S replies (preamble, then pulse-position bits of a microsecond) in a sample stream of any
/// rate from 2 MS/s. Kept are extended squitters (format 17) of parity 0 and all-call replies (format 11)
/// with an interrogator code below 80, for these prove themselves.
class ModeSDetector {
 public:
    explicit ModeSDetector(double sampleRateHz);
    static constexpr double kMinimumRateHz = 1.9e6;

    void feed(const float* samples, size_t count);
    /// The next sample does not follow the last: a frame in the gap is lost.
    void gap();
    /// Looks through what is left.
    void finish();

    const std::vector<ModeSFrame>& frames() const { return mlFrames; }

 private:
    /// The power of the pulse that starts `microseconds` after the sample `at`.
    double pulse(size_t at, double microseconds) const;
    bool looksLikePreamble(size_t at) const;
    bool decode(size_t at, ModeSFrame& frame) const;
    void search(bool last);

    double mdSamplesPerMicrosecond;
    size_t muFrameSamples;           ///< of the longest frame with its preamble
    std::vector<double> mlSum{0.0};  ///< running sum of power: a pulse is a difference
    uint64_t muDropped = 0;          ///< samples before the first of mlSum
    std::vector<ModeSFrame> mlFrames;
};

}  // namespace cli
