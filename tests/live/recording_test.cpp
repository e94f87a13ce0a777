#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "live/measure.h"
#include "live/session.h"

// What real recordings are known to hold must hold after the trip through the simulated unit and the library.
// The numbers were measured on the files themselves. Tolerances are those of that measurement; where they are
// wider, a comment says what in the trip widens them. Everywhere: the unit's level is exact to 0.1 dB, its
// noise is some -140 dBm/Hz at these rates, and it rolls off the outermost tenth of a recording's band.

namespace {

using measure::Density;
using measure::Samples;
using measure::Stretch;

/// |x| / mean - 1.
std::vector<double> envelope(const Samples& lSamples) {
    std::vector<double> lEnvelope = measure::magnitudes(lSamples);
    double sum = 0;
    for (const double value : lEnvelope)
        sum += value;
    const double mean = sum / static_cast<double>(lSamples.size());
    for (double& value : lEnvelope)
        value = value / mean - 1;
    return lEnvelope;
}

double rms(const std::vector<double>& lValues) {
    double sum = 0;
    for (const double value : lValues)
        sum += value * value;
    return std::sqrt(sum / static_cast<double>(lValues.size()));
}

double meanOf(const std::vector<double>& lValues) {
    double sum = 0;
    for (const double value : lValues)
        sum += value;
    return sum / static_cast<double>(lValues.size());
}

double correlation(const std::vector<double>& a, const std::vector<double>& b) {
    const double meanA = meanOf(a), meanB = meanOf(b);
    double ab = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        ab += (a[i] - meanA) * (b[i] - meanB);
        aa += (a[i] - meanA) * (a[i] - meanA);
        bb += (b[i] - meanB) * (b[i] - meanB);
    }
    return ab / std::sqrt(aa * bb);
}

std::vector<double> readFloats(const std::string& path) {
    std::ifstream cFile(path, std::ios::binary);
    std::vector<double> lValues;
    float fValue = 0;
    while (cFile.read(reinterpret_cast<char*>(&fValue), sizeof fValue))
        lValues.push_back(static_cast<double>(fValue));
    return lValues;
}

/// Noise bandwidth, in dB, of the bins against those of a Hann transform of `n` at `rate`: by so much a line
/// stands lower above a floor here than in that measurement.
double binsWiderBy(const Density& cDensity, double rate, double n) {
    return 10 * std::log10(cDensity.binHz() * n / rate);
}

/// Discriminator output in Hz.
std::vector<double> discriminate(const Samples& lSamples, double rate) {
    std::vector<double> lDeviation(lSamples.size() - 1);
    for (size_t i = 0; i + 1 < lSamples.size(); ++i)
        lDeviation[i] =
            std::arg(std::complex<double>(lSamples[i + 1]) * std::conj(std::complex<double>(lSamples[i]))) *
            rate / (2 * std::numbers::pi);
    return lDeviation;
}

constexpr const char* kSequence = "LLSSLSLSSSSLSSLLLSSLSSSLSSSLSS";

/// The time signal as the measurement defines it: the magnitude over 10 ms, and its stretches below half the
/// carrier.
struct TimeSignalDrops {
    double carrier = 0, low = 0;
    std::vector<Stretch> lStretches;
    /// `perSecond`: samples of the capture in a second of the recording.
    TimeSignalDrops(const Samples& lSamples, double perSecond) {
        const std::vector<double> lLevel =
            measure::smooth(measure::magnitudes(lSamples), static_cast<size_t>(std::lround(perSecond / 100)));
        carrier = measure::median(lLevel, 0.8);
        lStretches = measure::stretches(lLevel, [this](double level) { return level < carrier / 2; });
        // After seven seconds the carrier fades for 4 ms: no drop.
        std::erase_if(lStretches,
                      [&](const Stretch& c) { return static_cast<double>(c.length) < perSecond / 50; });
        std::vector<double> lLow;
        for (const double level : lLevel)
            if (level < carrier / 2)
                lLow.push_back(level);
        low = lLow.empty() ? carrier : measure::median(lLow);
    }
};

}  // namespace

namespace {

constexpr double kBeaconRate = 1.8e6 / 38;

/// Twice the root of the power about the subcarrier, which 30 Hz modulates by +-480 Hz.
double subcarrier(const std::vector<double>& lEnvelope, double rate) {
    const Density cDensity(Samples(lEnvelope.begin(), lEnvelope.end()), rate, 32768);
    return 2 * std::sqrt(cDensity.power(9300, 10600));
}

}  // namespace

TEST(Beacon, KeepsItsTonesOnTheTripThroughUnitAndLibrary) {
    const std::string path = live::recordingPath("am_vor_rebuilt_47368.cs16");
    ASSERT_FALSE(path.empty());
    float fRate = 0;
    // Its carrier stands 1 kHz above the centre of the recording.
    const Samples lSamples =
        live::capture(path, "cs16", kBeaconRate, 114.85e6 - 2e3, 1e3, 100e3, 8.0, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double rate = static_cast<double>(fRate);
    const std::vector<double> lEnvelope = envelope(lSamples);
    EXPECT_NEAR(measure::strongestNear(lEnvelope, rate, 30, 0.1), 30, 0.02);
    EXPECT_NEAR(measure::realTone(lEnvelope, 30 / rate), 0.111, 0.111 * 0.02);
    EXPECT_NEAR(rms(lEnvelope), 0.218, 0.218 * 0.01);
    // The noise beside the subcarrier counts here too: against the measured amplitude that is some 4 %, and
    // nothing against the same sum over the recording.
    const double amplitude = subcarrier(lEnvelope, rate);
    EXPECT_NEAR(amplitude, 0.239, 0.239 * 0.05);
    const auto pRecording = vnksim::readRecording(path, "cs16", kBeaconRate);
    EXPECT_NEAR(amplitude, subcarrier(envelope(pRecording->samples), kBeaconRate), 0.239 * 0.01);

    const Density cFine(lSamples, rate, 65536);
    EXPECT_NEAR(cFine.peakHz(-5e3, 5e3), 2000, 0.2);
    const Density cAir(lSamples, rate, 16384);
    // The carrier is a line, the sidebands are continuous.
    const double carrier = cAir.peak(1500, 2500) + binsWiderBy(cAir, kBeaconRate, 8192);
    const double upper = carrier - cAir.peak(2000 + 9300, 2000 + 10600);
    const double lower = carrier - cAir.peak(2000 - 10600, 2000 - 9300);
    EXPECT_NEAR(upper, 28.5, 1);
    EXPECT_NEAR(lower, 28.8, 1);
    EXPECT_NEAR(upper, lower, 1);
}

TEST(Beacon, GivesBackTheAudioItWasMadeFrom) {
    const std::string path = live::recordingPath("am_vor_rebuilt_47368.cs16");
    ASSERT_FALSE(path.empty());
    float fRate = 0;
    const Samples lSamples = live::capture(path, "cs16", kBeaconRate, 114.849e6, 0, 100e3, 8.0, &fRate);
    ASSERT_FALSE(lSamples.empty());
    std::vector<double> lAudio = readFloats(live::recordingPath("am_vor_audio_47368.f32"));
    ASSERT_EQ(lAudio.size(), 378947u);
    lAudio.resize(378900);  // what surely lies within the capture, with the taps of the interpolation
    // At the instants of the recording's samples: between them the audio swings further.
    const std::vector<double> lDetected =
        measure::atPlaces(envelope(lSamples), static_cast<double>(fRate) / kBeaconRate, lAudio.size());
    EXPECT_GT(correlation(lDetected, lAudio), 0.999);
    EXPECT_NEAR(*std::min_element(lDetected.begin(), lDetected.end()), -0.613, 0.01);
    EXPECT_NEAR(*std::max_element(lDetected.begin(), lDetected.end()), 0.800, 0.01);
    // The keyed tone of the identification: first roughly, then to a hundredth of a hertz.
    const double roughHz = measure::strongestNear(lDetected, kBeaconRate, 1020, 2);
    const double identHz = measure::strongestNear(lDetected, kBeaconRate, roughHz, 0.1);
    EXPECT_NEAR(identHz, 1020, 1);
    // What a keyed tone amounts to over the whole depends on the very frequency: closely it is that of the
    // audio.
    const double ident = measure::realTone(lDetected, identHz / kBeaconRate);
    EXPECT_NEAR(ident, 0.0138, 0.0138 * 0.2);
    double greatest = 0;
    for (const double value : lAudio)
        greatest = std::max(greatest, std::fabs(value));
    EXPECT_NEAR(ident, measure::realTone(lAudio, identHz / kBeaconRate) * 0.8 / greatest, 0.0138 * 0.02);
}

TEST(BroadcastStation, KeepsItsPilotStereoAndData) {
    const std::string path = live::recordingPath("fm_broadcast_256k.cs16");
    if (path.empty())
        GTEST_SKIP() << live::absent("fm_broadcast_256k.cs16");
    float fRate = 0;
    const Samples lSamples = live::capture(path, "cs16", 256e3, 98.1e6, 0, 400e3, 1.02, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double rate = static_cast<double>(fRate);
    std::vector<double> lDeviation = discriminate(lSamples, rate);
    const double mean = meanOf(lDeviation);
    EXPECT_NEAR(mean, 1936, 50);
    const auto uBeyond =
        std::count_if(lDeviation.begin(), lDeviation.end(), [](double hz) { return std::fabs(hz) > 75e3; });
    EXPECT_LT(static_cast<double>(uBeyond), 0.001 * static_cast<double>(lDeviation.size()));
    for (double& value : lDeviation)
        value -= mean;
    EXPECT_NEAR(rms(lDeviation), 20.6e3, 20.6e3 * 0.03);
    EXPECT_NEAR(measure::strongestNear(lDeviation, rate, 18999.9, 5), 18999.9, 2);
    EXPECT_NEAR(measure::realTone(lDeviation, 18999.9 / rate), 6340, 6340 * 0.03);

    const Density cAudio(Samples(lDeviation.begin(), lDeviation.end()), rate, 32768);
    const double pilot = cAudio.peak(18.9e3, 19.1e3) + binsWiderBy(cAudio, 256e3, 16384);
    EXPECT_NEAR(pilot - cAudio.floor(16.5e3, 18.5e3), 43, 3);
    EXPECT_NEAR(pilot - cAudio.floor(19.5e3, 21.5e3), 43, 3);
    EXPECT_NEAR(cAudio.mean(100, 5e3) - cAudio.mean(16.5e3, 18e3), 28, 3);
    EXPECT_NEAR(cAudio.mean(30e3, 46e3) - cAudio.mean(61e3, 70e3), 14.6, 2);
    EXPECT_NEAR(cAudio.mean(55.5e3, 58.5e3) - cAudio.mean(60e3, 64e3), 5.3, 1.5);
}

TEST(BroadcastStation, KeepsItsLevelAndWidth) {
    const std::string path = live::recordingPath("fm_broadcast_256k.cs16");
    if (path.empty())
        GTEST_SKIP() << live::absent("fm_broadcast_256k.cs16");
    float fRate = 0;
    // Beside the middle, so that a width about the wrong place is seen.
    const Samples lSamples = live::capture(path, "cs16", 256e3, 98.1e6, 20e3, 400e3, 1.02, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double rate = static_cast<double>(fRate);
    // 0.05 dB of the measurement, 0.1 dB of the unit.
    EXPECT_NEAR(measure::meanPower(lSamples) - live::kRecordingLevel, -8.72, 0.15);
    const std::vector<double> lMagnitudes = measure::magnitudes(lSamples);
    // Between samples of the recording the magnitude overshoots them a little.
    EXPECT_NEAR(
        20 * std::log10(*std::max_element(lMagnitudes.begin(), lMagnitudes.end())) - live::kRecordingLevel,
        20 * std::log10(0.469), 0.5);
    EXPECT_NEAR(rms(envelope(lSamples)), 0.084, 0.084 * 0.05);
    const Density cAir(lSamples, rate, 16384);
    EXPECT_NEAR(cAir.quantileHz(0.005) - 20e3, -51.4e3, 2e3);
    EXPECT_NEAR(cAir.quantileHz(0.995) - 20e3, 55.9e3, 2e3);
}

TEST(TimeSignal, DropsOnceASecondByTheRecordedLengths) {
    const std::string path = live::recordingPath("am_dcf77_12k.cs16");
    if (path.empty())
        GTEST_SKIP() << live::absent("am_dcf77_12k.cs16");
    float fRate = 0;
    const Samples lSamples = live::capture(path, "cs16", 12001.08, 400e6, 0, 100e3, 5.2, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double rate = static_cast<double>(fRate);
    const TimeSignalDrops cDrops(lSamples, rate);
    EXPECT_NEAR(20 * std::log10(cDrops.carrier) - live::kRecordingLevel, -8.97, 0.3);
    std::string drops;
    for (const Stretch& cStretch : cDrops.lStretches)
        drops += static_cast<double>(cStretch.length) > 0.15 * rate ? 'L' : 'S';
    ASSERT_GE(drops.size(), 5u) << drops;
    EXPECT_EQ(drops, std::string(kSequence).substr(0, drops.size()));
}

TEST(TimeSignal, AllThirtyDropsStandASecondApart) {
    const std::string path = live::recordingPath("am_dcf77_12k.cs16");
    if (path.empty())
        GTEST_SKIP() << live::absent("am_dcf77_12k.cs16");
    float fRate = 0;
    // Six times as fast: half a minute in five seconds.
    constexpr double kFaster = 6;
    const Samples lSamples =
        live::capture(path, "cs16", 12001.08 * kFaster, 400e6, 5e3, 100e3, 30.077 / kFaster, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double rate = static_cast<double>(fRate);
    const double perSecond = rate / kFaster;
    const TimeSignalDrops cDrops(lSamples, perSecond);
    // 0.2 dB of the measurement, 0.1 dB of the unit.
    EXPECT_NEAR(20 * std::log10(cDrops.carrier) - live::kRecordingLevel, -8.97, 0.3);
    EXPECT_NEAR(20 * std::log10(cDrops.low / cDrops.carrier), -19, 1.5);
    ASSERT_EQ(cDrops.lStretches.size(), 30u);
    for (size_t i = 0; i < 30; ++i) {
        const Stretch& cStretch = cDrops.lStretches[i];
        EXPECT_NEAR(static_cast<double>(cStretch.length) / perSecond, kSequence[i] == 'L' ? 0.1985 : 0.0985,
                    0.0045)
            << i;
        if (i) {
            EXPECT_NEAR(static_cast<double>(cStretch.start - cDrops.lStretches[i - 1].start) / perSecond,
                        1.000, 0.003)
                << i;
        }
    }
    const Density cAir(lSamples, rate, 16384);
    EXPECT_NEAR(cAir.peakHz(0, 10e3), 5e3, 0.1 * kFaster);
    const double carrier = cAir.peak(4e3, 6e3) + binsWiderBy(cAir, 12001.08 * kFaster, 8192);
    EXPECT_NEAR(carrier - cAir.floor(5e3 + 200 * kFaster, 5e3 + 400 * kFaster), 41, 3);
    // 80 dB in the recording: here the noise of the unit lies between.
    EXPECT_GT(cAir.mean(5e3 + 20 * kFaster, 5e3 + 400 * kFaster) - cAir.mean(5e3 + 3e3 * kFaster, 35e3), 50);
}

namespace {

/// The shortwave recording plays three times as fast, beside the middle of the capture.
constexpr double kVoiceFaster = 3;
constexpr double kVoiceOffset = 2e3;

/// Density against the floor of the recording, bands told in its own frequencies.
struct VoiceBands {
    Density mcDensity;
    VoiceBands(const Samples& lSamples, double rate) : mcDensity(lSamples, rate, 4096) {}
    static double place(double hz) { return kVoiceOffset + hz * kVoiceFaster; }
    double floor() const { return mcDensity.floor(place(7.5e3), place(10e3)); }
    double peakOver(double lowHz, double highHz) const {
        return mcDensity.peak(place(lowHz), place(highHz)) - floor();
    }
    double over(double lowHz, double highHz) const {
        return mcDensity.mean(place(lowHz), place(highHz)) - floor();
    }
};

}  // namespace

TEST(ShortwaveVoices, KeepTheirBandsAndTimes) {
    const std::string path = live::recordingPath("ssb_voice_24k.cs16");
    if (path.empty())
        GTEST_SKIP() << live::absent("ssb_voice_24k.cs16");
    float fRate = 0;
    const Samples lSamples = live::capture(path, "cs16", 24e3 * kVoiceFaster, 400e6, kVoiceOffset, 100e3,
                                           12 / kVoiceFaster, &fRate);
    ASSERT_FALSE(lSamples.empty());
    const double rate = static_cast<double>(fRate);
    const auto part = [&](double fromSec, double toSec) {
        const auto place = [&](double sec) {
            return lSamples.begin() + static_cast<std::ptrdiff_t>(sec * rate / kVoiceFaster);
        };
        return VoiceBands(Samples(place(fromSec), place(toSec)), rate);
    };
    const VoiceBands cAll = part(0, 12);
    // The recording plays faster: its density spreads by that factor. 0.1 dB of the unit and 0.1 of its
    // noise.
    EXPECT_NEAR(cAll.floor() - live::kRecordingLevel + 10 * std::log10(kVoiceFaster), -92.9, 0.3);
    // 0.2 dB of the measurement, 0.1 dB of the unit, 0.1 dB for the noise in the band's edges.
    EXPECT_NEAR(measure::meanPower(lSamples) - live::kRecordingLevel, -47.2, 0.4);
    EXPECT_NEAR(cAll.over(900, 1400), 11.2, 1.5);
    EXPECT_NEAR(cAll.over(3.7e3, 6.3e3), 3.8, 1);
    EXPECT_NEAR(cAll.over(-4.2e3, -3.7e3), 5.1, 1);
    EXPECT_NEAR(cAll.over(1.8e3, 2.6e3), 0, 1);
    EXPECT_NEAR(cAll.over(2.0e3, 3.5e3), 0, 1);
    // The first voice speaks until 10 s, the second from 8 s on, the narrow signal between.
    const VoiceBands cFirst = part(0, 8), cMiddle = part(8, 10), cLast = part(10, 12);
    // That is its peak, which no tolerance was told for.
    EXPECT_NEAR(cMiddle.peakOver(-4.2e3, -3.7e3), 17, 3);
    EXPECT_GT(cFirst.over(900, 1400), cLast.over(900, 1400) + 3);
    EXPECT_GT(cLast.over(3.7e3, 6.3e3), cFirst.over(3.7e3, 6.3e3) + 3);
}
