#include "simulator/tests/quillon.h"

namespace simtest {
namespace {

using QuillonSignal = QuillonTest;
using vnksim::Scene;

TEST_F(QuillonSignal, toneHasItsLevelAndPlaceAtAllDecimations) {
    const int references[] = {-40, -10, 10};
    startQuillon();
    for (unsigned decimation = 1; decimation <= 1024; decimation *= 2) {
        const double rate = kRate / decimation;
        const int reference = references[decimation % 3];
        for (double place : {-0.45, -0.2, 0.031, 0.44}) {
            const double wanted = reference - 5;
            mpUnit->setScene(Scene().tone(2e9 + std::round(place * rate), wanted));
            const std::string setup = ":DEBUG:REFERENCE:LEVEL " + std::to_string(reference) + ";";
            const auto samples = captureIQ(setup + entry(2e9, decimation, 16384), 2);
            ASSERT_EQ(samples.size(), 32768u);
            const double cycles = std::round(place * rate) / rate;
            EXPECT_NEAR(level(std::abs(correlate(samples, cycles)), reference), wanted, 0.01)
                << decimation << " " << place;
            EXPECT_LT(std::abs(correlate(samples, cycles + 3.0 / 32768)),
                      0.01 * std::abs(correlate(samples, cycles)));
            // Not mirrored, no second component: all power is in the tone.
            EXPECT_NEAR(level(std::sqrt(meanPower(samples)), reference), wanted, 0.02);
        }
    }
}

TEST_F(QuillonSignal, aToneAtTheReferenceLevelFillsTheScaleAndOneAboveIsCutAndFlagged) {
    startQuillon(Scene().tone(1e9 + 1e6, -20));
    const std::string setup = ":DEBUG:REFERENCE:LEVEL -20;" + entry(1e9, 4, 16384);
    auto samples = captureIQ(setup, 1);
    EXPECT_NEAR(std::abs(correlate(samples, 1e6 * 4 / kRate)), 1.0, 0.001);
    mpUnit->setScene(Scene().tone(1e9 + 1e6, -17));
    samples = captureIQ(setup, 1);
    EXPECT_NE(mlPackets.at(0).trailer() & vnksim::trailer::kOverRange, 0u);
    const auto items = mlPackets.at(0).items(32768);
    EXPECT_EQ(*std::max_element(items.begin(), items.end()), 32767.0f / 32768);
    EXPECT_EQ(*std::min_element(items.begin(), items.end()), -1.0f);
    mpUnit->setScene(Scene().tone(1e9 + 1e6, -21));
    captureIQ(setup, 1);
    EXPECT_EQ(mlPackets.at(0).trailer() & vnksim::trailer::kOverRange, 0u);
}

TEST_F(QuillonSignal, theEdgesOfTheBandAreEmptyAndNothingFoldsBack) {
    startQuillon();
    for (unsigned decimation : {1u, 8u, 1024u}) {
        const double rate = kRate / decimation;
        for (double place : {0.5, -0.5, 0.53, -0.6, 0.97, 1.2, -3.1}) {
            mpUnit->setScene(Scene().tone(3e9 + std::round(place * rate), -10));
            const auto samples = captureIQ(":DEBUG:REFERENCE:LEVEL 0;" + entry(3e9, decimation, 16384), 1);
            EXPECT_LT(level(std::sqrt(meanPower(samples)), 0), -80) << decimation << " " << place;
        }
    }
}

TEST_F(QuillonSignal, noisePowerIsDensityTimesRate) {
    startQuillon(Scene().noise(-120));
    for (unsigned decimation : {1u, 16u, 256u}) {
        const auto samples = captureIQ(":DEBUG:REFERENCE:LEVEL -20;" + entry(2e9, decimation, 32768), 4);
        EXPECT_NEAR(level(std::sqrt(meanPower(samples)), -20), -120 + 10 * std::log10(kRate / decimation),
                    0.1);
    }
}

TEST_F(QuillonSignal, ditherIsAFractionOfACountOfSixteenBits) {
    startQuillon();
    const auto quiet = captureIQ(entry(2e9, 4, 32768), 1);
    // Of 0.4 counts rms rounding leaves ones, where half a count is passed, and next to no twos.
    const double counts = std::sqrt(2 * std::erfc(0.5 / 0.4 / std::sqrt(2)));
    EXPECT_NEAR(std::sqrt(meanPower(quiet)) * 32768, counts, 0.01);
    mcOptions.dither = false;
    startQuillon();
    EXPECT_EQ(meanPower(captureIQ(entry(2e9, 4, 4096), 1)), 0);
}

TEST_F(QuillonSignal, samplesDoNotDependOnTheCut) {
    startQuillon(Scene().noise(-110).tone(3e9, -50));
    const auto first = captureIQ(entry(3e9, 1, 32768), 2);
    EXPECT_EQ(first, captureIQ(entry(3e9, 1, 32768), 2));
    EXPECT_EQ(first, captureIQ(entry(3e9, 1, 16384), 4));
}

TEST_F(QuillonSignal, recordingsAreBroughtToTheRate) {
    auto waveform = std::make_shared<vnksim::Waveform>();
    waveform->rateHz = 48000;
    for (int n = 0; n < 48000; ++n) {
        waveform->samples.push_back(std::polar(1.0f, 6.2831853f * 0.125f * static_cast<float>(n % 8)));
    }
    startQuillon(Scene().add(vnksim::Recording{500e6, -30, waveform}));
    for (unsigned decimation : {1u, 64u, 1024u}) {
        const auto samples = captureIQ(entry(500e6, decimation, 32768), 4);
        EXPECT_NEAR(level(std::abs(correlate(samples, 6000 * decimation / kRate)), 0), -30, 0.05);
    }
}

TEST_F(QuillonSignal, inversionMirrorsAboutTheCentreAndIsFlagged) {
    startQuillon(Scene().tone(2e9 + 5e6, -30));
    set("spectralInversion");
    const uint32_t both = vnksim::trailer::kInversionEnable | vnksim::trailer::kInversion;
    for (unsigned decimation : {1u, 8u}) {
        const auto samples = captureIQ(entry(2e9, decimation, 32768), 1);
        EXPECT_EQ(mlPackets.at(0).trailer() & both, both);
        EXPECT_NEAR(level(std::abs(correlate(samples, -5e6 * decimation / kRate)), 0), -30, 0.02);
        EXPECT_LT(level(std::abs(correlate(samples, 5e6 * decimation / kRate)), 0), -80);
    }
}

TEST_F(QuillonSignal, gainOfTheBandShapesTonesByTheirPlaceInIt) {
    const auto set1 = vnksim::makeCorrectionSet({{9000000, 0}}, {{0, 1000000, 2000000, 3000000}});
    const double band = vnksim::sampledBandHz(vnksim::Family::second);
    mcOptions.ifGaindB = vnksim::gainOfCorrections(set1, band);
    EXPECT_EQ(band, kRate);
    EXPECT_DOUBLE_EQ(mcOptions.ifGaindB(1e9, 61.44e6), 2);
    EXPECT_DOUBLE_EQ(mcOptions.ifGaindB(1e9, 46.08e6), 1.5);
    startQuillon(Scene().tone(1e9, -30).tone(1e9 - 15.36e6, -40));
    const auto samples = captureIQ(entry(1e9, 1, 32768), 1);
    EXPECT_NEAR(level(std::abs(correlate(samples, 0)), 0), -28, 0.01);
    EXPECT_NEAR(level(std::abs(correlate(samples, -0.125)), 0), -38.5, 0.01);
}

}  // namespace
}  // namespace simtest
