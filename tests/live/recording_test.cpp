#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "live/measure.h"
#include "live/session.h"

namespace {

using Samples = measure::Samples;

/// A recording of the tree, or of the folder of recordings that lies beside some checkouts; empty if absent.
std::string recordingPath(const std::string& name) {
    for (const std::string& folder :
         {std::string(VNK_TEST_DATA), std::string(VNK_SOURCE_DIR) + "/../shared/data"})
        if (std::filesystem::exists(folder + "/" + name))
            return folder + "/" + name;
    return {};
}

/// Puts a recording on the air and captures it.
Samples capture(const std::string& path, const char* pFormat, double rateHz, double centreHz, double offsetHz,
                double ifbwHz, double seconds, float* pRate) {
    vnksim::Scene cScene;
    cScene.add(vnksim::Recording{centreHz + offsetHz, -20, vnksim::readRecording(path, pFormat, rateHz)});
    vnksim::Unit cUnit(live::options(), cScene);
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    EXPECT_EQ(cDevice.status(), 0) << live::log();
    live::Stream cStream(centreHz, ifbwHz, -20);
    EXPECT_EQ(cStream.set("{\"bufferFrames\":10000}"), 0);
    EXPECT_EQ(cStream.attach(cDevice), 0);
    // The recording begins with the first sample of the capture.
    Samples lSamples;
    live::Frame cFrame;
    do {
        if (!cStream.next(cFrame) || cFrame->sequenceGap) {
            ADD_FAILURE() << "frames are missing\n" << live::log();
            break;
        }
        *pRate = cFrame->sampleRateHz;
        lSamples.insert(lSamples.end(), cFrame.samples(), cFrame.samples() + cFrame->sampleCount);
    } while (static_cast<double>(lSamples.size()) < seconds * *pRate);
    lSamples.resize(std::min(lSamples.size(), static_cast<size_t>(seconds * *pRate)));
    return lSamples;
}

/// Amplitude of a tone in a real series, by its definition.
double realTone(const std::vector<double>& lValues, double frequency) {
    std::complex<double> cSum = 0;
    for (size_t i = 0; i < lValues.size(); ++i)
        cSum += lValues[i] * std::polar(1.0, -2 * std::numbers::pi * frequency * static_cast<double>(i));
    return 2 * std::abs(cSum) / static_cast<double>(lValues.size());
}

/// |x| / mean - 1.
std::vector<double> envelope(const Samples& lSamples) {
    std::vector<double> lEnvelope(lSamples.size());
    double sum = 0;
    for (size_t i = 0; i < lSamples.size(); ++i)
        sum += lEnvelope[i] = std::abs(std::complex<double>(lSamples[i]));
    const double mean = sum / static_cast<double>(lSamples.size());
    for (double& value : lEnvelope)
        value = value / mean - 1;
    return lEnvelope;
}

/// Frequency near a guess at which a tone is strongest.
double strongestNear(const std::vector<double>& lValues, double rate, double guessHz, double spanHz) {
    double best = 0, bestHz = 0;
    for (double hz = guessHz - spanHz; hz <= guessHz + spanHz; hz += spanHz / 50) {
        const double amplitude = realTone(lValues, hz / rate);
        if (amplitude > best) {
            best = amplitude;
            bestHz = hz;
        }
    }
    return bestHz;
}

}  // namespace

TEST(Beacon, KeepsItsTonesOnTheTripThroughUnitAndLibrary) {
    const std::string path = recordingPath("am_vor_rebuilt_47368.cs16");
    ASSERT_FALSE(path.empty());
    float fRate = 0;
    // Its carrier stands 1 kHz above the centre of the recording.
    const Samples lSamples = capture(path, "cs16", 1.8e6 / 38, 114.85e6 - 2e3, 1e3, 100e3, 8.0, &fRate);
    const std::vector<double> lEnvelope = envelope(lSamples);
    EXPECT_NEAR(strongestNear(lEnvelope, fRate, 30, 0.5), 30, 0.05);
    EXPECT_NEAR(realTone(lEnvelope, 30 / fRate), 0.111, 0.111 * 0.05);
    // The subcarrier is frequency modulated by 30 Hz: its power is spread over +-480 Hz.
    constexpr size_t kSize = 1 << 19;
    Samples lPadded(lEnvelope.begin(), lEnvelope.begin() + kSize);
    const std::vector<double> lPower = measure::powerSpectrum(lPadded, kSize);
    double power = 0;
    for (auto i = static_cast<size_t>(9300.0 / fRate * kSize); i < static_cast<size_t>(10600.0 / fRate * kSize); ++i)
        power += lPower[i];
    // Both sidebands, and the noise bandwidth of the window.
    EXPECT_NEAR(2 * std::sqrt(power / 2.0044), 0.239, 0.239 * 0.1);
    EXPECT_NEAR(measure::peakFrequency(lSamples, 65536) * fRate, 2000, 2.0 * fRate / 65536);
}

TEST(ModeS, FramesStandWhereTheyStoodInTheRecording) {
    const std::string path = recordingPath("adsb_1090_2m.cu8");
    ASSERT_FALSE(path.empty());
    float fRate = 0;
    const Samples lSamples = capture(path, "cu8", 2e6, 1090e6, 0, 3e6, 0.19, &fRate);
    // The carrier at -66 kHz is the strongest line.
    std::vector<double> lMean(2048, 0.0);
    for (size_t offset = 0; offset + 2048 <= lSamples.size(); offset += 2048) {
        const std::vector<double> lPower = measure::powerSpectrum(lSamples, 2048, offset);
        for (size_t i = 0; i < 2048; ++i)
            lMean[i] += lPower[i];
    }
    const auto peak = static_cast<double>(std::max_element(lMean.begin(), lMean.end()) - lMean.begin());
    EXPECT_NEAR((peak < 1024 ? peak : peak - 2048) * fRate / 2048, -66e3, 3e3);
}

TEST(HoppingMeters, BurstsKeepTheirFrequencies) {
    const std::string path = recordingPath("ism_fhss_meters_2556k.cu8");
    if (path.empty())
        GTEST_SKIP() << "the recording ism_fhss_meters_2556k.cu8 is not on this machine";
    float fRate = 0;
    const double rate = 2555904;
    const Samples lSamples = capture(path, "cu8", rate, 915e6, 0, 3e6, 0.112, &fRate);
    const struct {
        double start, frequency;
    } lBursts[] = {{76441, 0.1971}, {114189, -0.2724}, {152410, 0.3537}, {171992, 0.1189}, {190867, -0.0376}};
    for (const auto& cBurst : lBursts) {
        // 4096 samples of the capture from the middle of the burst.
        const auto uOffset = static_cast<size_t>((cBurst.start + 6000) / rate * fRate);
        const std::vector<double> lPower = measure::powerSpectrum(lSamples, 4096, uOffset);
        const auto peak = static_cast<double>(std::max_element(lPower.begin(), lPower.end()) - lPower.begin());
        EXPECT_NEAR((peak < 2048 ? peak : peak - 4096) * fRate / 4096 / rate, cBurst.frequency, 0.012)
            << cBurst.start;
    }
}

TEST(BroadcastStation, KeepsItsPilotTone) {
    const std::string path = recordingPath("fm_broadcast_256k.cs16");
    if (path.empty())
        GTEST_SKIP() << "the recording fm_broadcast_256k.cs16 is not on this machine";
    float fRate = 0;
    const Samples lSamples = capture(path, "cs16", 256e3, 98.1e6, 0, 400e3, 1.02, &fRate);
    std::vector<double> lDeviation(lSamples.size() - 1);
    double mean = 0;
    for (size_t i = 0; i + 1 < lSamples.size(); ++i) {
        lDeviation[i] = std::arg(std::complex<double>(lSamples[i + 1]) * std::conj(std::complex<double>(lSamples[i]))) *
                        fRate / (2 * std::numbers::pi);
        mean += lDeviation[i];
    }
    mean /= static_cast<double>(lDeviation.size());
    EXPECT_NEAR(mean, 1936, 60);
    for (double& value : lDeviation)
        value -= mean;
    EXPECT_NEAR(strongestNear(lDeviation, fRate, 18999.9, 5), 18999.9, 2);
    EXPECT_NEAR(realTone(lDeviation, 18999.9 / fRate), 6340, 6340 * 0.05);
}

TEST(TimeSignal, DropsOnceASecondByTheRecordedLengths) {
    const std::string path = recordingPath("am_dcf77_12k.cs16");
    if (path.empty())
        GTEST_SKIP() << "the recording am_dcf77_12k.cs16 is not on this machine";
    float fRate = 0;
    const Samples lSamples = capture(path, "cs16", 12001.08, 400e6, 0, 100e3, 5.2, &fRate);
    const auto uStep = static_cast<size_t>(fRate / 100);   // 10 ms
    std::vector<double> lLevel;
    for (size_t i = 0; i + uStep <= lSamples.size(); i += uStep) {
        double sum = 0;
        for (size_t k = 0; k < uStep; ++k)
            sum += std::abs(std::complex<double>(lSamples[i + k]));
        lLevel.push_back(sum / static_cast<double>(uStep));
    }
    std::vector<double> lSorted = lLevel;
    std::sort(lSorted.begin(), lSorted.end());
    const double carrier = lSorted[lSorted.size() * 8 / 10];
    EXPECT_NEAR(20 * std::log10(carrier), -20 - 8.97, 0.4);
    // Lengths of the drops that begin and end inside, in steps of 10 ms.
    std::string drops;
    size_t uLength = 0;
    bool bInside = false;
    for (const double level : lLevel) {
        if (level < carrier / 2) {
            ++uLength;
            continue;
        }
        if (uLength && bInside)
            drops += uLength > 15 ? 'L' : 'S';
        uLength = 0;
        bInside = true;
    }
    EXPECT_EQ(std::string("LLSSLSLSSSSLSSLLLSSLSSSLSSSLSS").find(drops.substr(0, 5)), 0u) << drops;
}
