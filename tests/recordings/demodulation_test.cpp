// Real recordings, played and demodulated through the public interface. The facts were measured on the
// recordings themselves; what a demodulator does to amplitudes on purpose is taken from a model of its
// description.
#include <numbers>

#include "live/measure.h"
#include "live/session.h"
#include "recordings/convert.h"
#include "recordings/player.h"
#include "support/amplitudemodel.h"

namespace {

using namespace recordings;
using measure::Samples;

using HeldBaseband = Held<vnkBasebandRecord, vnkGetNextBaseband, vnkFreeBaseband>;

/// A processor of a type, and a stream of what it makes.
class Demodulator {
 public:
    Demodulator(const char* pType, const std::string& parameters) {
        EXPECT_EQ(vnkCreateProcessor(&muProcessor, pType), 0);
        set(muProcessor, "{\"bufferFrames\":100000}");
        if (!parameters.empty())
            set(muProcessor, parameters);
        EXPECT_EQ(vnkGetProcessorOutputStream(muProcessor, &muOutput), 0);
        set(muOutput, "{\"bufferFrames\":100000}");
    }
    ~Demodulator() {
        EXPECT_EQ(vnkClose(&muProcessor), 0);
        EXPECT_EQ(vnkClose(&muOutput), 0);
    }
    Demodulator(const Demodulator&) = delete;
    Demodulator& operator=(const Demodulator&) = delete;

    void attach(const Stream& cStream) {
        EXPECT_EQ(vnkAttachProcessorToStream(muProcessor, cStream.handle()), 0);
    }
    /// All audio to the end of the stream, which must be without a gap.
    std::vector<double> audio(float fRate) {
        std::vector<double> lAudio;
        HeldBaseband cRecord;
        uint32_t uNext = 0;
        EXPECT_TRUE(vnktest::waitUntil([&] {
            int32_t iStatus = 0;
            while ((iStatus = cRecord.take(muOutput, 200)) == 0) {
                EXPECT_EQ(cRecord->sequence, uNext++);
                EXPECT_EQ(cRecord->sampleRateHz, fRate);
                EXPECT_EQ(cRecord->channelCount, 1u);
                lAudio.insert(lAudio.end(), cRecord->channels[0],
                              cRecord->channels[0] + cRecord->samplesPerChannel);
            }
            return iStatus == 2;
        })) << "the stream did not end";
        return lAudio;
    }

 private:
    static void set(uint32_t uHandle, const std::string& parameters) {
        Text cText(parameters);
        EXPECT_EQ(vnkSetParameters(uHandle, cText.address()), 0) << parameters;
    }
    uint32_t muProcessor = VNK_INVALID_HANDLE;
    uint32_t muOutput = VNK_INVALID_HANDLE;
};

/// Plays samples as fast as they can be read, with a demodulator behind the stream.
std::vector<double> demodulated(const Samples& lSamples, double fRate, const char* pType,
                                const std::string& parameters = {}, double fOutputRate = 0) {
    const Folder cFolder;
    Tuning cTuning;
    cTuning.mfSampleRateHz = static_cast<float>(fRate);
    writePair(cFolder, "x", framesOf(lSamples, 4096, fRate, 1000), cTuning);
    Stream cStream;
    cStream.queueAll();
    Demodulator cDemodulator(pType, parameters);
    cDemodulator.attach(cStream);
    EXPECT_EQ(cStream.play(cFolder.name("x")), 0);
    EXPECT_EQ(joined(readIQ(cStream)), lSamples) << "the stream's own reader gets the samples as well";
    std::vector<double> lAudio =
        cDemodulator.audio(static_cast<float>(fOutputRate > 0 ? fOutputRate : fRate));
    EXPECT_EQ(countOf(takeLog(), "FRAME DISCARD"), 0u);
    return lAudio;
}

Samples recording(const char* pName) {
    const std::string path = live::recordingPath(pName);
    return path.empty() ? Samples() : samplesOf(path, "cs16");
}

Samples turned(Samples lSamples, double fCyclesPerSample) {
    for (size_t i = 0; i < lSamples.size(); ++i)
        lSamples[i] = std::complex<float>(
            std::complex<double>(lSamples[i]) *
            std::polar(1.0, 2 * std::numbers::pi * fCyclesPerSample * static_cast<double>(i)));
    return lSamples;
}

Samples asSamples(const std::vector<double>& lValues) {
    Samples lSamples;
    for (const double value : lValues)
        lSamples.emplace_back(static_cast<float>(value), 0.0f);
    return lSamples;
}

std::vector<double> behind(const std::vector<double>& lValues, double fSeconds, double fRate) {
    return {lValues.begin() +
                static_cast<std::ptrdiff_t>(std::min(fSeconds * fRate, static_cast<double>(lValues.size()))),
            lValues.end()};
}

/// What lies within some kHz of a frequency: its mean frequency and rms amplitude.
struct Subcarrier {
    double mfHz, mfAmplitude;
    Subcarrier(const std::vector<double>& lValues, double fRate, double fNearHz, double fWidthHz) {
        const auto uTaps = static_cast<size_t>(2 * fRate / fWidthHz);
        double fSquares = 0, fTurns = 0;
        size_t uCount = 0;
        std::complex<double> cBefore = 0;
        for (size_t uAt = 0; uAt + uTaps <= lValues.size(); uAt += 8, ++uCount) {
            std::complex<double> cSum = 0;
            double fWeights = 0;
            for (size_t i = 0; i < uTaps; ++i) {
                const double fWindow = 1 - std::cos(2 * std::numbers::pi * (static_cast<double>(i) + 0.5) /
                                                    static_cast<double>(uTaps));
                fWeights += fWindow;
                cSum +=
                    fWindow * lValues[uAt + i] *
                    std::polar(1.0, -2 * std::numbers::pi * fNearHz / fRate * static_cast<double>(uAt + i));
            }
            cSum /= fWeights;
            fSquares += std::norm(cSum);
            if (uCount > 0)
                fTurns += std::arg(cSum * std::conj(cBefore));
            cBefore = cSum;
        }
        mfAmplitude = 2 * std::sqrt(fSquares / static_cast<double>(uCount));
        mfHz = fNearHz + fTurns / (2 * std::numbers::pi) / static_cast<double>(uCount - 1) / 8 * fRate;
    }
};

constexpr double kBeaconRate = 1.8e6 / 38;

}  // namespace

TEST(Demodulation, ABeaconsTonesAndItsMorseComeOutOfAM) {
    const Samples lSamples = recording("am_vor_rebuilt_47368.cs16");
    ASSERT_EQ(lSamples.size(), 378947u);
    const std::vector<double> lAll = demodulated(lSamples, kBeaconRate, "AMDemodulator");
    ASSERT_EQ(lAll.size(), lSamples.size());
    const std::vector<double> lModel =
        amplitude::Model(static_cast<float>(kBeaconRate), amplitude::kBoth).of(lSamples);
    double fGreatest = 0;
    for (size_t i = 0; i < lAll.size(); ++i)
        fGreatest = std::max(fGreatest, std::abs(lAll[i] - lModel[i]));
    EXPECT_LT(fGreatest, 2e-5);

    const std::vector<double> lAudio = behind(lAll, 1, kBeaconRate), lTold = behind(lModel, 1, kBeaconRate);
    EXPECT_NEAR(measure::strongestNear(lAudio, kBeaconRate, 30, 0.1), 30, 0.02);
    EXPECT_NEAR(measure::strongestNear(lAudio, kBeaconRate, 1020, 5), 1020, 1);
    const Subcarrier cSubcarrier(lAudio, kBeaconRate, 9960, 2000);
    EXPECT_NEAR(cSubcarrier.mfHz, 9960, 5);
    for (const double hz : {30.0, 1020.0}) {
        const double fTold = measure::realTone(lTold, hz / kBeaconRate);
        EXPECT_NEAR(measure::realTone(lAudio, hz / kBeaconRate), fTold, fTold * 1e-3) << hz;
    }
    const double fTold = Subcarrier(lTold, kBeaconRate, 9960, 2000).mfAmplitude;
    EXPECT_NEAR(cSubcarrier.mfAmplitude, fTold, fTold * 1e-3);
    std::printf(
        "beacon: 30 Hz %.4f, 1020 Hz %.4f, %.1f Hz %.4f (0.111, 0.0138, 0.239 before the division by the "
        "peak)\n",
        measure::realTone(lAudio, 30 / kBeaconRate), measure::realTone(lAudio, 1020 / kBeaconRate),
        cSubcarrier.mfHz, cSubcarrier.mfAmplitude);
    // Of all that surrounds it the ident is the strongest.
    const measure::Density cDensity(asSamples(lAudio), kBeaconRate, 8192);
    EXPECT_NEAR(cDensity.peakHz(900, 1150), 1020, 3);
    EXPECT_GT(cDensity.peak(1000, 1040), cDensity.floor(800, 1300) + 10);
}

TEST(Demodulation, ABeaconsTonesKeepTheirFrequencyThroughTheResampler) {
    const Samples lSamples = recording("am_vor_rebuilt_47368.cs16");
    ASSERT_FALSE(lSamples.empty());
    const std::vector<double> lAudio = behind(
        demodulated(lSamples, kBeaconRate, "AMDemodulator", "{\"OutputSampleRate\":24000}", 24000), 1, 24000);
    EXPECT_GT(lAudio.size(), 24000u * 69 / 10);
    EXPECT_NEAR(measure::strongestNear(lAudio, 24000, 30, 0.1), 30, 0.03);
    EXPECT_NEAR(measure::strongestNear(lAudio, 24000, 1020, 5), 1020, 1 + 1020 * 5e-4);
}

TEST(Demodulation, AVoiceComesOutOfItsOwnSideband) {
    constexpr double kRate = 24000;
    const Samples lRecorded = recording("ssb_voice_24k.cs16");
    if (lRecorded.empty())
        GTEST_SKIP() << live::absent("ssb_voice_24k.cs16");
    const Samples lSamples = turned(lRecorded, -1600 / kRate);  // its carrier, which was not sent, to 0
    const std::vector<double> lLower = demodulated(lSamples, kRate, "AMDemodulator", "{\"type\":\"LSB\"}");
    const std::vector<double> lUpper = demodulated(lSamples, kRate, "AMDemodulator", "{\"type\":\"usb\"}");
    const measure::Density cOnAir(lSamples, kRate, 2048), cLower(asSamples(lLower), kRate, 2048),
        cUpper(asSamples(lUpper), kRate, 2048);
    const auto rise = [](const measure::Density& c, int iSide) {
        const auto mean = [&](double low, double high) {
            return iSide < 0 ? c.mean(-high, -low) : c.mean(low, high);
        };
        return mean(200, 700) - mean(3700, 5000);
    };
    std::printf("voice: 200-700 Hz over 3700-5000 Hz: LSB %.2f dB (on air %.2f), USB %.2f dB (on air %.2f)\n",
                rise(cLower, 1), rise(cOnAir, -1), rise(cUpper, 1), rise(cOnAir, 1));
    EXPECT_NEAR(rise(cOnAir, -1), 11.2, 1.5) << "of the recording";
    // The peak follows the voice and so takes from it.
    EXPECT_GT(rise(cLower, 1), rise(cOnAir, -1) - 3);
    EXPECT_LT(rise(cLower, 1), rise(cOnAir, -1));
    EXPECT_NEAR(rise(cUpper, 1), rise(cOnAir, 1), 1.5) << "nobody speaks there";
    EXPECT_GT(rise(cLower, 1), rise(cUpper, 1) + 10);
    for (const amplitude::Side eSide : {amplitude::kLower, amplitude::kUpper}) {
        const std::vector<double> lModel = amplitude::Model(kRate, eSide).of(lSamples);
        const std::vector<double>& lAudio = eSide == amplitude::kLower ? lLower : lUpper;
        ASSERT_EQ(lAudio.size(), lModel.size());
        double fGreatest = 0;
        for (size_t i = 0; i < lModel.size(); ++i)
            fGreatest = std::max(fGreatest, std::abs(lAudio[i] - lModel[i]));
        EXPECT_LT(fGreatest, 2e-5);
    }
}

TEST(Demodulation, ABroadcastStationsPilotComesOutOfFM) {
    constexpr double kRate = 256e3, kPilotHz = 18999.9;
    const Samples lSamples = recording("fm_broadcast_256k.cs16");
    if (lSamples.empty())
        GTEST_SKIP() << live::absent("fm_broadcast_256k.cs16");
    const auto pilot = [](const std::vector<double>& lValues) {
        return measure::realTone(lValues, kPilotHz / kRate);
    };
    // The discriminator by its formula, without the low-pass behind it.
    const auto turns = [](const Samples& l) {
        std::vector<double> lTurns;
        for (size_t i = 2; i < l.size(); ++i) {
            const auto unit = [&](size_t k) {
                return std::complex<double>(l[k]) / std::abs(std::complex<double>(l[k]));
            };
            const std::complex<double> cDifference = unit(i) - unit(i - 2), cMiddle = unit(i - 1);
            lTurns.push_back((cDifference.imag() * cMiddle.real() - cDifference.real() * cMiddle.imag()) *
                             0.31830987);
        }
        return lTurns;
    };
    const std::vector<double> lAudio = demodulated(lSamples, kRate, "FMDemodulator");
    ASSERT_EQ(lAudio.size(), lSamples.size());
    EXPECT_NEAR(measure::strongestNear(lAudio, kRate, kPilotHz, 5), kPilotHz, 2);
    const measure::Density cDensity(asSamples(lAudio), kRate, 16384);
    const double fPeak = cDensity.peak(18.9e3, 19.1e3);
    EXPECT_NEAR(fPeak - cDensity.floor(16.5e3, 18.5e3), 43, 3.5);
    EXPECT_NEAR(fPeak - cDensity.floor(19.5e3, 21.5e3), 43, 3.5);

    // What the low-pass leaves of a pilot is measured on a pilot alone, of the same deviation.
    Samples lAlone;
    for (size_t i = 0; i < 100000; ++i)
        lAlone.emplace_back(std::polar(
            0.4,
            -6340 / kPilotHz * std::cos(2 * std::numbers::pi * kPilotHz / kRate * static_cast<double>(i))));
    const double fLeft = pilot(demodulated(lAlone, kRate, "FMDemodulator")) / pilot(turns(lAlone));
    const double fAmplitude = pilot(lAudio);
    std::printf("pilot: %.4f, %.4f by the formula, low-pass %.2f dB; %.1f and %.1f dB above the floor\n",
                fAmplitude, pilot(turns(lSamples)), 20 * std::log10(fLeft),
                fPeak - cDensity.floor(16.5e3, 18.5e3), fPeak - cDensity.floor(19.5e3, 21.5e3));
    EXPECT_NEAR(fAmplitude, pilot(turns(lSamples)) * fLeft, fAmplitude * 2e-3);
    EXPECT_NEAR(fLeft, 1, 0.2);
}
