#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "live/measure.h"
#include "live/session.h"
#include "simulator/scene.h"

// Recordings of pulses and bursts: what they carry, when and where. As in the test of the other recordings
// the numbers were measured on the files and must hold after the trip through unit and library.

namespace {

using measure::Density;
using measure::Samples;
using measure::Stretch;

constexpr double kModeSRate = 2e6;

struct ModeSFrame {
    size_t start;  // of its preamble, in samples of the recording
    std::string hex;
};

/// Remainder of the 24-bit parity of Mode S over all bits of a frame.
uint32_t parity(const std::vector<uint8_t>& lBytes) {
    uint32_t uRemainder = 0;
    for (const uint8_t uByte : lBytes) {
        uRemainder ^= static_cast<uint32_t>(uByte) << 16;
        for (int bit = 0; bit < 8; ++bit)
            uRemainder = uRemainder & 0x800000 ? (uRemainder << 1) ^ 0xFFF409 : uRemainder << 1;
    }
    return uRemainder & 0xFFFFFF;
}

/// Whether the four pulses of a preamble, at 0, 1, 3.5 and 4.5 us, stand above the pauses between.
bool isPreamble(const double* p) {
    const double pulses = (p[0] + p[2] + p[7] + p[9]) / 4;
    const double pauses = (p[1] + p[3] + p[4] + p[5] + p[6] + p[8]) / 6;
    return pulses > 1.5 * pauses && p[0] > p[1] && p[2] > p[3] && p[7] > p[6] && p[9] > p[10];
}

std::vector<uint8_t> slice(const double* p, size_t uBytes) {
    std::vector<uint8_t> lBytes(uBytes);
    for (size_t bit = 0; bit < uBytes * 8; ++bit)
        lBytes[bit / 8] = static_cast<uint8_t>(lBytes[bit / 8] << 1 | (p[16 + 2 * bit] > p[17 + 2 * bit]));
    return lBytes;
}

std::string hex(const std::vector<uint8_t>& lBytes) {
    std::string text;
    for (const uint8_t uByte : lBytes)
        for (const int nibble : {uByte >> 4, uByte & 15})
            text += "0123456789ABCDEF"[nibble];
    return text;
}

/// Frames DF17 with parity 0 and DF11 with an interrogator code below 80, from magnitudes at 2 MS/s. No error
/// repair.
std::vector<ModeSFrame> decode(const std::vector<double>& lMagnitudes) {
    constexpr size_t kLongest = 16 + 224;
    std::vector<ModeSFrame> lFrames;
    for (size_t i = 0; i + kLongest <= lMagnitudes.size(); ++i) {
        const double* p = lMagnitudes.data() + i;
        if (!isPreamble(p))
            continue;
        const std::vector<uint8_t> lLong = slice(p, 14), lShort(lLong.begin(), lLong.begin() + 7);
        const int iFormat = lLong[0] >> 3;
        const bool bLong = iFormat == 17 && parity(lLong) == 0;
        const bool bShort = iFormat == 11 && parity(lShort) < 80;
        if (!bLong && !bShort)
            continue;
        lFrames.push_back({i, hex(bLong ? lLong : lShort)});
        i += 15 + (bLong ? 224 : 112);
    }
    return lFrames;
}

const ModeSFrame* near(const std::vector<ModeSFrame>& lFrames, size_t uStart) {
    for (const ModeSFrame& cFrame : lFrames)
        if (cFrame.start + 1 >= uStart && cFrame.start <= uStart + 1)
            return &cFrame;
    return nullptr;
}

}  // namespace

TEST(ModeS, FramesStandWhereTheyStoodInTheRecording) {
    const std::string path = live::recordingPath("adsb_1090_2m.cu8");
    ASSERT_FALSE(path.empty());
    float fRate = 0;
    const Samples lSamples = live::capture(path, "cu8", kModeSRate, 1090e6, 0, 3e6, 0.178, &fRate);
    ASSERT_FALSE(lSamples.empty());
    // Back to the instants of the recording's samples.
    const std::vector<std::complex<double>> lBack =
        measure::atPlaces(std::vector<std::complex<double>>(lSamples.begin(), lSamples.end()),
                          static_cast<double>(fRate) / kModeSRate, static_cast<size_t>(0.178 * kModeSRate));
    std::vector<double> lMagnitudes(lBack.size());
    std::transform(lBack.begin(), lBack.end(), lMagnitudes.begin(),
                   [](const auto& x) { return std::abs(x); });
    const std::vector<ModeSFrame> lFrames = decode(lMagnitudes);
    ASSERT_NE(near(lFrames, 794), nullptr);
    EXPECT_EQ(near(lFrames, 794)->hex, "8F4D2023587F345E35837E2218B2");
    ASSERT_NE(near(lFrames, 9389), nullptr);
    EXPECT_EQ(near(lFrames, 9389)->hex, "5D4D20237A55A6");
    const auto uLong =
        std::count_if(lFrames.begin(), lFrames.end(), [](const auto& c) { return c.hex.size() == 28; });
    const auto uAircraft = std::count_if(lFrames.begin(), lFrames.end(),
                                         [](const auto& c) { return c.hex.substr(2, 6) == "4D2023"; });
    EXPECT_NEAR(static_cast<double>(lFrames.size()), 214, 214 * 0.05);
    EXPECT_NEAR(static_cast<double>(uLong), 141, 8);  // a preamble may be judged otherwise
    EXPECT_EQ(static_cast<size_t>(uAircraft), lFrames.size());

    // Frame by frame what the recording itself holds.
    const auto pRecording = vnksim::readRecording(path, "cu8", kModeSRate);
    const std::vector<ModeSFrame> lRecorded = decode(measure::magnitudes(pRecording->samples));
    size_t uSame = 0;
    for (const ModeSFrame& cFrame : lRecorded) {
        const ModeSFrame* pFound = near(lFrames, cFrame.start);
        uSame += pFound && pFound->hex == cFrame.hex;
    }
    EXPECT_GT(static_cast<double>(uSame), 0.95 * static_cast<double>(lRecorded.size())) << lRecorded.size();
}

TEST(ModeS, TheInterferingCarrierIsTheStrongestLine) {
    const std::string path = live::recordingPath("adsb_1090_2m.cu8");
    ASSERT_FALSE(path.empty());
    float fRate = 0;
    const Samples lSamples = live::capture(path, "cu8", kModeSRate, 1090e6, 0, 3e6, 0.178, &fRate);
    ASSERT_FALSE(lSamples.empty());
    // Bins as wide as those of 2048 at 2 MS/s, to a fortieth.
    const Density cAir(lSamples, static_cast<double>(fRate), 4096);
    const double carrierHz = cAir.peakHz(-1.2e6, 1.2e6);
    EXPECT_NEAR(carrierHz, -66e3, 3e3);
    const double beside = std::max(cAir.peak(-1.2e6, carrierHz - 40e3), cAir.peak(carrierHz + 40e3, 1.2e6));
    EXPECT_NEAR(cAir.peak(-100e3, 0) - beside, 17, 3);
}

namespace {

constexpr double kHopRate = 2555904;

struct Hop {
    double start, frequency;  // samples and cycles per sample of the recording
};

constexpr Hop kHops[] = {{2123, 0.0299},    {18874, -0.1159},  {37984, -0.2724}, {76441, 0.1971},
                         {114189, -0.2724}, {134243, -0.4289}, {152410, 0.3537}, {171992, 0.1189},
                         {190867, -0.0376}, {266836, -0.2724}};

/// Short spectra of a capture, one every 128 samples.
class Spectrogram {
 public:
    static constexpr size_t kSize = 1024, kStep = 128;
    Spectrogram(const Samples& lSamples, double rate) : mfRate(rate) {
        std::vector<double> lAll;
        for (size_t offset = 0; offset + kSize <= lSamples.size(); offset += kStep) {
            mlRows.push_back(measure::powerSpectrum(lSamples, kSize, offset));
            for (double hz = -0.44 * kHopRate; hz < 0.44 * kHopRate; hz += 40e3)
                lAll.push_back(mlRows.back()[bin(hz)]);
        }
        mfFloor = measure::median(lAll);
    }
    /// Strongest of a band above the floor in dB, row by row.
    std::vector<double> over(double lowHz, double highHz) const {
        std::vector<double> lOver;
        for (const std::vector<double>& lRow : mlRows) {
            double best = 0;
            for (double hz = lowHz; hz <= highHz; hz += mfRate / kSize)
                best = std::max(best, lRow[bin(hz)]);
            lOver.push_back(10 * std::log10(best / mfFloor));
        }
        return lOver;
    }
    /// Sample of the recording in the middle of a row.
    double place(size_t uRow) const {
        return static_cast<double>(uRow * kStep + kSize / 2) / mfRate * kHopRate;
    }

 private:
    size_t bin(double hz) const {
        return static_cast<size_t>(std::lround(hz / mfRate * kSize) + static_cast<long>(kSize)) % kSize;
    }
    double mfRate, mfFloor = 0;
    std::vector<std::vector<double>> mlRows;
};

}  // namespace

TEST(HoppingMeters, BurstsKeepTheirFrequenciesAndTimes) {
    const std::string path = live::recordingPath("ism_fhss_meters_2556k.cu8");
    if (path.empty())
        GTEST_SKIP() << live::absent("ism_fhss_meters_2556k.cu8");
    float fRate = 0;
    const Samples lSamples = live::capture(path, "cu8", kHopRate, 915e6, 0, 3e6, 286080 / kHopRate, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double rate = static_cast<double>(fRate);
    // 0.1 dB of the measurement, 0.1 dB of the unit, and the noise that the roll-off at the edges takes away.
    EXPECT_NEAR(measure::meanPower(lSamples) - live::kRecordingLevel, -21.7, 0.3);
    const Spectrogram cSpectrogram(lSamples, rate);
    for (const Hop& cHop : kHops) {
        const double hz = cHop.frequency * kHopRate;
        const std::vector<double> lOver = cSpectrogram.over(hz - 10e3, hz + 10e3);
        const std::vector<Stretch> lStretches =
            measure::stretches(lOver, [](double over) { return over > 21; });
        const auto it = std::find_if(lStretches.begin(), lStretches.end(), [&](const Stretch& cStretch) {
            return std::fabs(cSpectrogram.place(cStretch.start) - cHop.start) < 600;
        });
        ASSERT_NE(it, lStretches.end()) << cHop.start;
        const double length = cSpectrogram.place(it->end()) - cSpectrogram.place(it->start);
        EXPECT_GT(length, 15000 - 600) << cHop.start;
        EXPECT_LT(length, 18700 + 600) << cHop.start;
        EXPECT_GT(*std::max_element(lOver.begin() + static_cast<std::ptrdiff_t>(it->start),
                                    lOver.begin() + static_cast<std::ptrdiff_t>(it->end())),
                  27)
            << cHop.start;
        // The carrier of the keyed signal over most of the burst.
        const auto uOffset = static_cast<size_t>((cHop.start + 2000) / kHopRate * rate);
        const Density cBurst(Samples(lSamples.begin() + static_cast<std::ptrdiff_t>(uOffset),
                                     lSamples.begin() + static_cast<std::ptrdiff_t>(uOffset) + 16384),
                             rate, 16384);
        EXPECT_NEAR(cBurst.peakHz(-1.2e6, 1.2e6) / kHopRate, cHop.frequency, 0.0005) << cHop.start;
    }
    // Between the eighth and the last but one nothing.
    const std::vector<double> lAll = cSpectrogram.over(-0.44 * kHopRate, 0.44 * kHopRate);
    double quiet = 0;
    for (size_t i = 0; i < lAll.size(); ++i)
        if (cSpectrogram.place(i) > 210000 && cSpectrogram.place(i) < 260000)
            quiet = std::max(quiet, lAll[i]);
    EXPECT_LT(quiet, 21);
}

namespace {

/// The pulses of the remote control: where the magnitude, over 50 samples of the recording, exceeds 0.2.
struct Telegrams {
    std::vector<Stretch> lPulses;
    double on = 0, off = 0;  // mean magnitudes in full scales of the recording
    Telegrams(const Samples& lSamples, double perSample, double fullScale) {
        const std::vector<double> lLevel =
            measure::smooth(measure::magnitudes(lSamples), static_cast<size_t>(std::lround(50 * perSample)));
        const auto isOn = [fullScale](double level) { return level > 0.2 * fullScale; };
        lPulses = measure::stretches(lLevel, isOn);
        size_t uOn = 0;
        for (const double level : lLevel) {
            (isOn(level) ? on : off) += level / fullScale;
            uOn += isOn(level);
        }
        on /= static_cast<double>(uOn);
        off /= static_cast<double>(lLevel.size() - uOn);
    }
};

}  // namespace

TEST(RemoteControl, KeepsEveryBurstAndPulse) {
    const std::string path = live::recordingPath("ism_ook_remote.cs8");
    if (path.empty())
        GTEST_SKIP() << live::absent("ism_ook_remote.cs8");
    float fRate = 0;
    // The rate is not known; any will do.
    constexpr double kRate = 1e6;
    const Samples lSamples = live::capture(path, "cs8", kRate, 433.9e6, 0, 1e6, 1236159 / kRate, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double perSample = static_cast<double>(fRate) / kRate;
    const double fullScale = std::pow(10.0, live::kRecordingLevel / 20);
    const Telegrams cFound(lSamples, perSample, fullScale);
    const Telegrams cRecorded(vnksim::readRecording(path, "cs8", kRate)->samples, 1, 1);
    ASSERT_EQ(cRecorded.lPulses.size(), 198u);
    ASSERT_EQ(cFound.lPulses.size(), 198u);
    const auto around = [&](double expected) {
        return std::count_if(cFound.lPulses.begin(), cFound.lPulses.end(), [&](const Stretch& cPulse) {
            return std::fabs(static_cast<double>(cPulse.length) / perSample - expected) <= 61;
        });
    };
    EXPECT_EQ(around(600), 110);
    EXPECT_EQ(around(4000), 88);
    // Each edge lies on a sample of the capture, half a sample of the recording apart, and is rounded a
    // little.
    for (size_t i = 0; i < 198; ++i) {
        const Stretch &cPulse = cFound.lPulses[i], &cOriginal = cRecorded.lPulses[i];
        EXPECT_NEAR(static_cast<double>(cPulse.start) / perSample, static_cast<double>(cOriginal.start), 2)
            << i;
        EXPECT_NEAR(static_cast<double>(cPulse.end()) / perSample, static_cast<double>(cOriginal.end()), 2)
            << i;
    }
    // Where in the 50 samples of the mean an edge is said to stand is free: 25, and 3 for each edge itself.
    const auto start = [&](size_t i) {
        return static_cast<double>(cFound.lPulses[18 * i].start) / perSample;
    };
    EXPECT_NEAR(start(0), 32099, 25);
    for (size_t i = 0; i < 11; ++i) {
        EXPECT_NEAR(static_cast<double>(cFound.lPulses[18 * i + 17].end()) / perSample - start(i), 78881, 6)
            << i;
        if (i) {
            EXPECT_NEAR(start(i) - start(i - 1), 110750, 3) << i;
        }
    }
    EXPECT_NEAR(cFound.on, 0.368, 0.01);
    EXPECT_GT(20 * std::log10(cFound.on / cFound.off), 35);
    // The outermost tenth of the band loses its noise.
    EXPECT_NEAR(20 * std::log10(cFound.off / cRecorded.off), 0, 1);
    const Density cAir(lSamples, static_cast<double>(fRate), 65536);
    EXPECT_NEAR(cAir.peakHz(-0.45 * kRate, 0.45 * kRate) / kRate, 0.00688, 0.0001);
}
