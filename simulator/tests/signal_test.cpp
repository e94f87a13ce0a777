#include <cmath>

#include "simulator/tests/fixture.h"

namespace simtest {
namespace {

using vnksim::Scene;
using Signal = UnitTest;

std::string sh(double centreHz, unsigned decimation, unsigned samples) {
    return ":sweep:entry:mode SH;:sweep:entry:freq:cent " + std::to_string(std::llround(centreHz)) +
           ";:sweep:entry:dec " + std::to_string(decimation) + ";:sweep:entry:spp " + std::to_string(samples);
}

TEST_F(Signal, toneHasItsLevelAndPlaceAtAllDecimations) {
    mcOptions.pace = vnksim::Pace::flatOut;
    const double levels[] = {-10.0, -25.0, -40.0};
    startUnit();
    for (unsigned decimation = 4; decimation <= 1024; decimation *= 2) {
        const double rate = 125e6 / decimation;
        for (double place : {-0.4, 0.031, 0.25, 0.42}) {
            const double level = levels[decimation % 3];
            mpUnit->setScene(Scene().tone(2e9 + std::round(place * rate), level));
            const auto samples = captureIQ(sh(2e9, decimation, 16384), 2);
            ASSERT_EQ(samples.size(), 32768u);
            const double cycles = std::round(place * rate) / rate;
            EXPECT_NEAR(dbm(std::abs(correlate(samples, cycles))), level, 0.02) << decimation << " " << place;
            // One bin of 32768 points away there is next to nothing: the frequency is exact.
            EXPECT_LT(std::abs(correlate(samples, cycles + 3.0 / 32768)),
                      0.01 * std::abs(correlate(samples, cycles)));
        }
    }
}

TEST_F(Signal, fullRateToneStandsAtTheIntermediateFrequencyWithTwiceTheAmplitude) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().tone(2.45e9 + 5e6, -30).tone(2.45e9 - 12e6, -45));
    const auto samples = captureReal(sh(2.45e9, 1, 65280), 1);
    ASSERT_EQ(samples.size(), 65280u);
    EXPECT_NEAR(dbm(std::abs(correlate(samples, 40.0 / 125))), -30, 0.02);
    EXPECT_NEAR(dbm(std::abs(correlate(samples, 23.0 / 125))), -45, 0.02);
    // Not mirrored: nothing at 30 MHz.
    EXPECT_LT(dbm(std::abs(correlate(samples, 30.0 / 125))), -80);
}

TEST_F(Signal, directDigitizationShowsFrequenciesAsTheyAre) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().tone(10e6, -25).tone(100e6, -20));
    const auto samples = captureReal(":sweep:entry:mode DD;:sweep:entry:spp 65280", 1);
    EXPECT_EQ(mlPackets.at(0).stream(), 0x90000005u);
    EXPECT_NEAR(dbm(std::abs(correlate(samples, 10.0 / 125))), -25, 0.02);
    // 100 MHz would fold to 25 MHz.
    EXPECT_LT(dbm(std::abs(correlate(samples, 25.0 / 125))), -80);
}

TEST_F(Signal, emittersOutOfTheBandDoNotFoldBack) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().tone(1e9 + 0.6e6, -20).tone(1e9 + 2e6 + 1e4, -20));
    const auto samples = captureIQ(sh(1e9, 125, 16384), 1);  // 1 MS/s
    EXPECT_LT(dbm(std::sqrt(meanPower(samples))), -70);
}

TEST_F(Signal, attenuationAndGainRaiseTheReferenceLevelAndKeepTheLevel) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().tone(1e9 + 1e5, -15));
    mpScpi->send(":INPut:GAIN 1 1;:INPut:GAIN 2 0");
    const auto samples = captureIQ(":sweep:entry:att:var 10;" + sh(1e9, 64, 16384), 1);
    EXPECT_NEAR(dbm(std::abs(correlate(samples, 1e5 * 64 / 125e6)), 0), -15, 0.02);
    EXPECT_EQ(vnksim::referenceLevelDbm("ZV150-C", true, false, 10), 0);
    EXPECT_EQ(vnksim::referenceLevelDbm("ZV150-A", false, false, 20), 0);
}

TEST_F(Signal, noisePowerIsDensityTimesRate) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().noise(-110));
    for (unsigned decimation : {8u, 128u}) {
        const auto samples = captureIQ(sh(3e9, decimation, 65504), 4);
        EXPECT_NEAR(dbm(std::sqrt(meanPower(samples))), -110 + 10 * std::log10(125e6 / decimation), 0.1);
    }
    const auto real = captureReal(sh(3e9, 1, 65280), 4);
    double power = 0;
    for (float value : real) {
        power += static_cast<double>(value) * static_cast<double>(value) / static_cast<double>(real.size());
    }
    // A real sample of the same power density has twice the mean square of a complex amplitude.
    EXPECT_NEAR(dbm(std::sqrt(power / 2)), -110 + 10 * std::log10(62.5e6), 0.1);
}

TEST_F(Signal, aSeedGivesTheSameSamplesAgain) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().noise(-110).tone(3e9, -50));
    const auto first = captureIQ(sh(3e9, 8, 4096), 2);
    const auto second = captureIQ(sh(3e9, 8, 4096), 2);
    const auto cut = captureIQ(sh(3e9, 8, 2048), 4);
    EXPECT_EQ(first, second);
    EXPECT_EQ(first, cut);
}

TEST_F(Signal, clippingIsCutAtFullScaleAndFlagged) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().tone(1e9 + 1e4, 0));
    captureIQ(sh(1e9, 64, 4096), 1);
    EXPECT_NE(mlPackets.at(0).trailer() & vnksim::trailer::kOverRange, 0u);
    float highest = 0, lowest = 0;
    for (float item : mlPackets[0].items()) {
        highest = std::max(highest, item);
        lowest = std::min(lowest, item);
    }
    EXPECT_EQ(highest, 8191.0f / 8192);
    EXPECT_EQ(lowest, -1.0f);
    mpUnit->setScene(Scene().tone(1e9 + 1e4, -10));
    captureIQ(sh(1e9, 64, 4096), 1);
    EXPECT_EQ(mlPackets.at(0).trailer() & vnksim::trailer::kOverRange, 0u);
}

TEST_F(Signal, amplitudeModulatedStationHasItsSidebands) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().add(vnksim::AmStation{120e6, -30, {{1000, 0.5}}}));
    const auto samples = captureIQ(sh(120e6, 1024, 12192), 4);
    const double rate = 125e6 / 1024;
    EXPECT_NEAR(dbm(std::abs(correlate(samples, 0))), -30, 0.02);
    EXPECT_NEAR(dbm(std::abs(correlate(samples, 1000 / rate))), -30 + 20 * std::log10(0.25), 0.02);
    EXPECT_NEAR(dbm(std::abs(correlate(samples, -1000 / rate))), -30 + 20 * std::log10(0.25), 0.02);
}

TEST_F(Signal, frequencyModulatedStationSwingsByItsDeviation) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().add(vnksim::FmStation{98.1e6, -30, {{1000, 50000}, {3000, 10000}}}));
    const double rate = 125e6 / 256;
    const auto samples = captureIQ(sh(98.0e6, 256, 16384), 4);
    std::vector<std::complex<float>> frequency;
    double power = 0;
    for (size_t n = 1; n < samples.size(); ++n) {
        const double turns =
            std::arg(std::complex<double>(samples[n]) * std::conj(std::complex<double>(samples[n - 1])));
        frequency.emplace_back(static_cast<float>(turns / 6.283185307179586 * rate), 0.0f);
        power += std::norm(std::complex<double>(samples[n])) / static_cast<double>(samples.size() - 1);
    }
    EXPECT_NEAR(dbm(std::sqrt(power)), -30, 0.05);
    EXPECT_NEAR(correlate(frequency, 0).real(), 100e3, 50);
    EXPECT_NEAR(2 * std::abs(correlate(frequency, 1000 / rate)), 50000, 250);
    EXPECT_NEAR(2 * std::abs(correlate(frequency, 3000 / rate)), 10000, 100);
}

TEST_F(Signal, burstsComeAtTheirTimes) {
    mcOptions.pace = vnksim::Pace::flatOut;
    vnksim::Burst burst;
    burst.frequencyHz = 433e6 + 50e3;
    burst.levelDbm = -20;
    burst.startSec = 0.01;
    burst.onSec = 0.004;
    burst.periodSec = 0.02;
    startUnit(Scene().add(burst));
    const auto samples = captureIQ(sh(433e6, 125, 50016), 1);
    const double threshold = 0.5 * std::pow(10.0, (-20 + 20 - 12.7678) / 20);
    std::vector<size_t> edges;
    for (size_t n = 1; n < samples.size(); ++n) {
        const bool on = static_cast<double>(std::abs(samples[n])) > threshold;
        const bool was = static_cast<double>(std::abs(samples[n - 1])) > threshold;
        if (on != was) {
            edges.push_back(n);
        }
    }
    const std::vector<double> wanted = {10000, 14000, 30000, 34000, 50000};
    ASSERT_EQ(edges.size(), wanted.size());
    for (size_t i = 0; i < edges.size(); ++i) {
        EXPECT_NEAR(static_cast<double>(edges[i]), wanted[i], 2);
    }
}

std::shared_ptr<vnksim::Waveform> steadyWaveform(double rate, double offset, size_t count) {
    auto waveform = std::make_shared<vnksim::Waveform>();
    waveform->rateHz = rate;
    for (size_t n = 0; n < count; ++n) {
        waveform->samples.push_back(std::polar(
            1.0f,
            static_cast<float>(6.283185307179586 * std::fmod(offset / rate * static_cast<double>(n), 1.0))));
    }
    return waveform;
}

TEST_F(Signal, recordingIsBroughtToAnyRateWithItsFrequencyAndLevel) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit();
    const double offset = 6000;
    for (double offCentre : {0.0, 20e3, -45e3}) {
        for (unsigned decimation : {1u, 8u, 64u, 1024u}) {
            mpUnit->setScene(
                Scene().add(vnksim::Recording{500e6 + offCentre, -30, steadyWaveform(48000, offset, 48000)}));
            const double rate = 125e6 / decimation;
            double amplitude = 0;
            if (decimation == 1) {
                const auto samples = captureReal(sh(500e6, 1, 65280), 8);
                amplitude = std::abs(correlate(samples, (35e6 + offCentre + offset) / rate));
            } else {
                const auto samples = captureIQ(sh(500e6, decimation, 16384), 4);
                amplitude = std::abs(correlate(samples, (offCentre + offset) / rate));
            }
            EXPECT_NEAR(dbm(amplitude), -30, 0.03) << offCentre << " " << decimation;
        }
    }
}

TEST_F(Signal, recordingWiderThanTheBandIsCutToIt) {
    mcOptions.pace = vnksim::Pace::flatOut;
    // 2 MS/s; the tuned slice of 122 kHz lies 300 kHz above the recording's centre.
    startUnit(Scene().add(vnksim::Recording{1090e6, -30, steadyWaveform(2e6, 320e3, 200000)}));
    const double rate = 125e6 / 1024;
    auto samples = captureIQ(sh(1090.3e6, 1024, 12192), 2);
    EXPECT_NEAR(dbm(std::abs(correlate(samples, 20e3 / rate))), -30, 0.03);
    mpUnit->setScene(Scene().add(vnksim::Recording{1090e6, -30, steadyWaveform(2e6, 400e3, 200000)}));
    samples = captureIQ(sh(1090.3e6, 1024, 12192), 2);
    EXPECT_LT(dbm(std::sqrt(meanPower(samples))), -80);
}

TEST_F(Signal, spectralInversionMirrorsAndIsFlagged) {
    mcOptions.pace = vnksim::Pace::flatOut;
    startUnit(Scene().tone(2e9 + 5e6, -30));
    mpUnit->faults().change([](vnksim::FaultSettings& faults) { faults.spectralInversion = true; });
    const auto real = captureReal(sh(2e9, 1, 65280), 1);
    EXPECT_NEAR(dbm(std::abs(correlate(real, 30.0 / 125))), -30, 0.02);
    const uint32_t both = vnksim::trailer::kInversionEnable | vnksim::trailer::kInversion;
    EXPECT_EQ(mlPackets.at(0).trailer() & both, both);
    const auto iq = captureIQ(sh(2e9 + 4e6, 16, 16384), 1);
    EXPECT_NEAR(dbm(std::abs(correlate(iq, -1e6 * 16 / 125e6))), -30, 0.02);
}

}  // namespace
}  // namespace simtest
