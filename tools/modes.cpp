#include "tools/modes.h"

#include <cmath>

namespace cli {

namespace {

constexpr double kHalfMicrosecond = 0.5;
constexpr double kPreamble = 8;  // microseconds from the first pulse to the first bit
constexpr size_t kBlock = 1 << 18;
constexpr uint32_t kInterrogatorCodes = 80;

}  // namespace

std::string ModeSFrame::hex() const {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < length; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

uint32_t modeSParity(const uint8_t* bytes, size_t length) {
    constexpr uint32_t kGenerator = 0xFFF409;
    uint32_t uRemainder = 0;
    for (size_t i = 0; i + 3 < length; ++i) {
        uRemainder ^= static_cast<uint32_t>(bytes[i]) << 16;
        for (int iBit = 0; iBit < 8; ++iBit)
            uRemainder = (uRemainder & 0x800000) ? (uRemainder << 1) ^ kGenerator : uRemainder << 1;
        uRemainder &= 0xFFFFFF;
    }
    const uint8_t* pParity = bytes + length - 3;
    return uRemainder ^
           (static_cast<uint32_t>(pParity[0]) << 16 | static_cast<uint32_t>(pParity[1]) << 8 | pParity[2]);
}

ModeSDetector::ModeSDetector(double sampleRateHz)
    : mdSamplesPerMicrosecond(sampleRateHz / 1e6),
      muFrameSamples(static_cast<size_t>(std::ceil((kPreamble + 112 + 1) * sampleRateHz / 1e6)) + 2) {}

void ModeSDetector::feed(const float* samples, size_t count) {
    double dSum = mlSum.back();
    for (size_t i = 0; i < count; ++i) {
        const auto dRe = static_cast<double>(samples[2 * i]), dIm = static_cast<double>(samples[2 * i + 1]);
        mlSum.push_back(dSum += dRe * dRe + dIm * dIm);
    }
    if (mlSum.size() > kBlock + muFrameSamples)
        search(false);
}

void ModeSDetector::gap() {
    search(true);
}

void ModeSDetector::finish() {
    search(true);
}

double ModeSDetector::pulse(size_t at, double microseconds) const {
    const auto integral = [&](double dAt) {
        const auto uWhole = static_cast<size_t>(dAt);
        const double dPart = dAt - static_cast<double>(uWhole);
        return mlSum[uWhole] + dPart * (mlSum[uWhole + 1] - mlSum[uWhole]);
    };
    const double dFrom = static_cast<double>(at) + microseconds * mdSamplesPerMicrosecond;
    return integral(dFrom + kHalfMicrosecond * mdSamplesPerMicrosecond) - integral(dFrom);
}

bool ModeSDetector::looksLikePreamble(size_t at) const {
    const double dFirst = pulse(at, 0), dSecond = pulse(at, 1);
    const double dGap = pulse(at, 0.5);
    if (dFirst < 2 * dGap || dSecond < 2 * dGap)
        return false;
    const double dThird = pulse(at, 3.5), dFourth = pulse(at, 4.5);
    const double dPulses = (dFirst + dSecond + dThird + dFourth) / 4;
    // Of the quiet places one may hold what is left of a neighbour; their mean may not.
    double dQuiet = dGap;
    for (const double dAt : {1.5, 2.0, 2.5, 3.0, 4.0, 5.0, 5.5, 6.0, 6.5, 7.0})
        dQuiet += pulse(at, dAt);
    return dThird > dPulses / 4 && dFourth > dPulses / 4 && dPulses > 2 * dQuiet / 11;
}

bool ModeSDetector::decode(size_t at, ModeSFrame& frame) const {
    frame.bytes.fill(0);
    size_t uBits = 112;
    for (size_t uBit = 0; uBit < uBits; ++uBit) {
        const double dAt = kPreamble + static_cast<double>(uBit);
        if (pulse(at, dAt) > pulse(at, dAt + kHalfMicrosecond))
            frame.bytes[uBit / 8] |= static_cast<uint8_t>(0x80u >> (uBit % 8));
        if (uBit == 4) {
            if (frame.format() != 11 && frame.format() != 17)
                return false;
            uBits = frame.format() == 17 ? 112 : 56;
        }
    }
    frame.length = uBits / 8;
    const uint32_t uParity = modeSParity(frame.bytes.data(), frame.length);
    return frame.format() == 17 ? uParity == 0 : uParity < kInterrogatorCodes;
}

void ModeSDetector::search(bool last) {
    const size_t uSamples = mlSum.size() - 1;
    size_t uAt = 0;
    while (uAt + muFrameSamples <= uSamples) {
        ModeSFrame frame;
        if (looksLikePreamble(uAt) && decode(uAt, frame)) {
            frame.seconds = static_cast<double>(muDropped + uAt) / (mdSamplesPerMicrosecond * 1e6);
            mlFrames.push_back(frame);
            const double dEnd = (kPreamble + static_cast<double>(frame.length * 8)) * mdSamplesPerMicrosecond;
            uAt += static_cast<size_t>(dEnd);
        } else {
            ++uAt;
        }
    }
    if (last)
        uAt = uSamples;
    muDropped += uAt;
    std::vector<double> rest(mlSum.begin() + static_cast<std::ptrdiff_t>(uAt), mlSum.end());
    // Small numbers keep their digits: the sum starts anew.
    const double dBase = rest.front();
    for (double& dSum : rest)
        dSum -= dBase;
    mlSum.swap(rest);
}

}  // namespace cli
