// Real recordings, converted to pairs, played, and recorded again. What they are known to hold was measured
// on the files themselves; a player changes no bit, so that the tolerances are those of that measurement.
#include <chrono>
#include <numbers>

#include "live/measure.h"
#include "live/session.h"
#include "recordings/convert.h"
#include "recordings/player.h"

namespace {

using namespace recordings;
using measure::Samples;

struct Source {
    const char* mpName;
    const char* mpFormat;
    double mfRate;
    double mfCentreHz;
};

constexpr Source kBeacon = {"am_vor_rebuilt_47368.cs16", "cs16", 1.8e6 / 38, 114.849e6};
constexpr Source kBeaconAudio = {"am_vor_audio_47368.f32", "f32", 1.8e6 / 38, 114.85e6};
constexpr Source kAircraft = {"adsb_1090_2m.cu8", "cu8", 2e6, 1090e6};

/// Plays the recording and records it anew at the same time; both the samples and the files must be what they
/// were. Empty if the recording is not there.
Samples playAndRecord(const Source& cSource, size_t uPerFrame, double fHaste) {
    const std::string path = live::recordingPath(cSource.mpName);
    if (path.empty())
        return {};
    const Folder cFolder;
    const Tuning cTuning{static_cast<float>(cSource.mfCentreHz),
                         static_cast<float>(cSource.mfRate * 0.8),
                         static_cast<float>(cSource.mfRate),
                         0,
                         0,
                         "",
                         ""};
    const Samples lSamples = samplesOf(path, cSource.mpFormat);
    const std::vector<IQ> lFrames = framesOf(lSamples, uPerFrame, cSource.mfRate, fHaste);
    writePair(cFolder, "x", lFrames, cTuning);
    Stream cStream;
    cStream.queueAll();
    EXPECT_EQ(cStream.record(cFolder.name("y")), 0);
    EXPECT_EQ(cStream.play(cFolder.name("x")), 0);
    Samples lPlayed;
    HeldIQ cRecord;
    EXPECT_TRUE(vnktest::waitUntil([&] {
        int32_t iStatus = 0;
        while ((iStatus = cStream.read(cRecord, 200)) == 0) {
            EXPECT_EQ(cRecord->sequenceGap, 0);
            EXPECT_EQ(cRecord->centreHz, static_cast<double>(cTuning.mfCentreHz));
            EXPECT_EQ(cRecord->sampleRateHz, cTuning.mfSampleRateHz);
            const auto* pFirst = reinterpret_cast<const std::complex<float>*>(cRecord->samples);
            lPlayed.insert(lPlayed.end(), pFirst, pFirst + cRecord->sampleCount);
        }
        return iStatus == 2;
    }));
    EXPECT_EQ(cStream.endRecording(), 0);
    EXPECT_EQ(lPlayed, lSamples);
    EXPECT_TRUE(readFile(cFolder.native("y.data")) == readFile(cFolder.native("x.data"))) << "byte for byte";
    EXPECT_EQ(readFile(cFolder.native("y.json")), readFile(cFolder.native("x.json")));
    return lPlayed;
}

std::vector<double> magnitudes(const Samples& lSamples) {
    std::vector<double> lMagnitudes;
    for (const std::complex<float>& cSample : lSamples)
        lMagnitudes.push_back(std::abs(std::complex<double>(cSample)));
    return lMagnitudes;
}

double mean(const std::vector<double>& lValues) {
    double sum = 0;
    for (const double value : lValues)
        sum += value;
    return sum / static_cast<double>(lValues.size());
}

double rms(const std::vector<double>& lValues) {
    double sum = 0;
    for (const double value : lValues)
        sum += value * value;
    return std::sqrt(sum / static_cast<double>(lValues.size()));
}

double levelDb(const Samples& lSamples) {
    return 20 * std::log10(rms(magnitudes(lSamples)));
}

std::vector<double> envelope(const Samples& lSamples) {
    std::vector<double> lEnvelope = magnitudes(lSamples);
    const double middle = mean(lEnvelope);
    for (double& value : lEnvelope)
        value = value / middle - 1;
    return lEnvelope;
}

/// Amplitude of a real tone, by definition.
double tone(const std::vector<double>& lValues, double cycles) {
    std::complex<double> cSum = 0;
    for (size_t i = 0; i < lValues.size(); ++i)
        cSum += lValues[i] * std::polar(1.0, -2 * std::numbers::pi * cycles * static_cast<double>(i));
    return 2 * std::abs(cSum) / static_cast<double>(lValues.size());
}

/// The telegram behind a preamble at `uAt`: two samples for a bit, the first higher for a one.
std::string telegram(const std::vector<double>& lLevel, size_t uAt, size_t uBits) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < uBits; i += 4) {
        unsigned uDigit = 0;
        for (size_t k = i; k < i + 4; ++k)
            uDigit = uDigit * 2 + (lLevel[uAt + 16 + 2 * k] > lLevel[uAt + 17 + 2 * k] ? 1 : 0);
        text += kDigits[uDigit];
    }
    return text;
}

#define VNK_NEED_RECORDING(samples, source) \
    if ((samples).empty())                  \
    GTEST_SKIP() << live::absent((source).mpName)

}  // namespace

TEST(RealRecordings, ABeaconKeepsItsTonesAndItsAudio) {
    const Samples lSamples = playAndRecord(kBeacon, 12192, 100);
    ASSERT_EQ(lSamples.size(), 378947u);
    const std::vector<double> lEnvelope = envelope(lSamples);
    EXPECT_NEAR(tone(lEnvelope, 30 / kBeacon.mfRate), 0.111, 0.111 * 0.02);
    EXPECT_NEAR(rms(lEnvelope), 0.218, 0.218 * 0.01);
    EXPECT_NEAR(*std::min_element(lEnvelope.begin(), lEnvelope.end()), -0.613, 0.001);
    EXPECT_NEAR(*std::max_element(lEnvelope.begin(), lEnvelope.end()), 0.800, 0.001);

    const Samples lAudio = playAndRecord(kBeaconAudio, 1000, 100);
    ASSERT_EQ(lAudio.size(), lSamples.size());
    double cross = 0, power = 0;
    for (size_t i = 0; i < lAudio.size(); ++i) {
        cross += lEnvelope[i] * static_cast<double>(lAudio[i].real());
        power += std::norm(std::complex<double>(lAudio[i]));
    }
    EXPECT_GT(cross / std::sqrt(power * static_cast<double>(lAudio.size())) / rms(lEnvelope), 0.999);
}

TEST(RealRecordings, AnAircraftIsHeardAtItsOwnPace) {
    const auto begin = std::chrono::steady_clock::now();
    const Samples lSamples = playAndRecord(kAircraft, 4096, 1);
    ASSERT_EQ(lSamples.size(), 356868u);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(170))
        << "0.178 s were recorded";
    const std::vector<double> lLevel = magnitudes(lSamples);
    EXPECT_EQ(telegram(lLevel, 794, 112), "8F4D2023587F345E35837E2218B2");
    EXPECT_EQ(telegram(lLevel, 9389, 56), "5D4D20237A55A6");
    const measure::Density cDensity(lSamples, kAircraft.mfRate, 2048);
    EXPECT_NEAR(cDensity.peakHz(-900e3, 900e3), -66e3, 3e3);
}

TEST(RealRecordings, ABeaconsAudioGivesAWavFileOfItsRate) {
    const std::string path = live::recordingPath(kBeaconAudio.mpName);
    ASSERT_FALSE(path.empty());
    const Folder cFolder;
    std::vector<Baseband> lFrames;
    for (const IQ& cFrame : framesOf(samplesOf(path, "f32"), 4000, kBeaconAudio.mfRate)) {
        lFrames.push_back({{{}}});
        for (const std::complex<float>& cSample : cFrame.mlSamples)
            lFrames.back().mlChannels[0].push_back(cSample.real());
    }
    writePair(cFolder, "x", lFrames,
              Tuning{114.85e6f, 15e3f, static_cast<float>(kBeaconAudio.mfRate), 0, 0, "", ""});
    ASSERT_EQ(vnkConvertBasebandFileToWavFile(cFolder.name("x").c_str(), cFolder.name("x.wav").c_str()), 0);
    const std::string wav = readFile(cFolder.native("x.wav"));
    ASSERT_EQ(wav.size(), 44u);
    EXPECT_EQ(numberAt<uint32_t>(wav, 24), 47368u);
}

// Recordings that lie beside some checkouts only. Their levels tell that they came through whole.

TEST(RealRecordings, ABroadcastStationKeepsItsLevelAndItsPilot) {
    const Source cSource = {"fm_broadcast_256k.cs16", "cs16", 256e3, 98e6};
    const Samples lSamples = playAndRecord(cSource, 4096, 20);
    VNK_NEED_RECORDING(lSamples, cSource);
    EXPECT_NEAR(levelDb(lSamples), -8.72, 0.05);
    const std::vector<double> lLevel = magnitudes(lSamples);
    EXPECT_NEAR(*std::max_element(lLevel.begin(), lLevel.end()), 0.469, 0.001);
    std::vector<double> lDeviation;
    for (size_t i = 1; i < lSamples.size(); ++i)
        lDeviation.push_back(
            std::arg(std::complex<double>(lSamples[i]) * std::conj(std::complex<double>(lSamples[i - 1]))) *
            256e3 / (2 * std::numbers::pi));
    EXPECT_NEAR(mean(lDeviation), 1936, 50);
    EXPECT_NEAR(tone(lDeviation, 18999.9 / 256e3), 6340, 6340 * 0.03);
}

TEST(RealRecordings, ATimeSignalKeepsItsCarrier) {
    const Source cSource = {"am_dcf77_12k.cs16", "cs16", 12001, 77.5e3};
    const Samples lSamples = playAndRecord(cSource, 512, 1000);
    VNK_NEED_RECORDING(lSamples, cSource);
    std::vector<double> lLevel = measure::smooth(magnitudes(lSamples), 120);
    EXPECT_NEAR(20 * std::log10(measure::median(lLevel, 0.8)), -8.97, 0.2);
}

TEST(RealRecordings, AVoiceKeepsItsLevel) {
    const Source cSource = {"ssb_voice_24k.cs16", "cs16", 24000, 14.2e6};
    const Samples lSamples = playAndRecord(cSource, 1024, 200);
    VNK_NEED_RECORDING(lSamples, cSource);
    EXPECT_NEAR(levelDb(lSamples), -47.2, 0.2);
}

TEST(RealRecordings, HoppingMetersKeepTheirLevel) {
    const Source cSource = {"ism_fhss_meters_2556k.cu8", "cu8", 2555904, 915e6};
    const Samples lSamples = playAndRecord(cSource, 16384, 1);
    VNK_NEED_RECORDING(lSamples, cSource);
    EXPECT_NEAR(levelDb(lSamples), -21.7, 0.1);
    const std::vector<double> lLevel = magnitudes(lSamples);
    EXPECT_NEAR(*std::max_element(lLevel.begin(), lLevel.end()), 0.301, 0.001);
}

TEST(RealRecordings, ARemoteControlKeepsItsBursts) {
    const Source cSource = {"ism_ook_remote.cs8", "cs8", 2e6, 433.92e6};
    const Samples lSamples = playAndRecord(cSource, 65280, 4);
    VNK_NEED_RECORDING(lSamples, cSource);
    std::vector<size_t> lStarts;
    const std::vector<double> lLevel = measure::smooth(magnitudes(lSamples), 50);
    size_t uLastOn = 0;
    for (size_t i = 0; i < lLevel.size(); ++i) {
        if (lLevel[i] < 0.2)
            continue;
        if (lStarts.empty() || i - uLastOn > 20000)
            lStarts.push_back(i);
        uLastOn = i;
    }
    ASSERT_EQ(lStarts.size(), 11u);
    EXPECT_NEAR(static_cast<double>(lStarts[0]), 32099, 50);
    for (size_t i = 1; i < lStarts.size(); ++i)
        EXPECT_NEAR(static_cast<double>(lStarts[i] - lStarts[i - 1]), 110750, 2);
}
