#include <cmath>
#include <string>

#include "live/measure.h"
#include "live/session.h"

namespace {

constexpr size_t kBins = 16384;

struct Case {
    double mfCentreHz;     // held exactly by a 32-bit float
    double mfOffsetHz;     // of the tone, from the centre
    double mfIFBWHz;
    uint32_t muDecimation;
};

std::string nameOf(const testing::TestParamInfo<Case>& cInfo) {
    return std::to_string(static_cast<long long>(cInfo.param.mfCentreHz / 1e6)) + "MHzDecimation" +
           std::to_string(cInfo.param.muDecimation) + "Case" + std::to_string(cInfo.index);
}

class Tone : public testing::TestWithParam<Case> {};

}  // namespace

TEST_P(Tone, ComesOutWhereAndAsStrongAsItWentIn) {
    const Case& cCase = GetParam();
    constexpr double kLevel = -40.0;
    const bool bDirect = cCase.mfCentreHz <= 50e6;
    const double toneHz = bDirect ? cCase.mfOffsetHz : cCase.mfCentreHz + cCase.mfOffsetHz;
    vnksim::Unit cUnit(live::options("ZV150-C"), vnksim::Scene().tone(toneHz, kLevel).noise(-160));
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    ASSERT_EQ(cDevice.status(), 0) << live::log();
    live::Stream cStream(cCase.mfCentreHz, cCase.mfIFBWHz, -20);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    float fRate = 0;
    const measure::Samples lSamples = live::collect(cStream, 2 * kBins, &fRate);
    ASSERT_GE(lSamples.size(), 2 * kBins);
    EXPECT_EQ(cUnit.state().decimation, cCase.muDecimation);
    EXPECT_EQ(fRate, cCase.muDecimation == 1 ? 62.5e6f : 125e6f / static_cast<float>(cCase.muDecimation));

    const double expected = cCase.mfOffsetHz / fRate;
    // A real signal stands on both sides of 0 Hz in direct digitization.
    const double found = measure::peakFrequency(lSamples, kBins);
    EXPECT_NEAR(bDirect ? std::fabs(found) : found, expected, 1.0 / kBins);
    EXPECT_NEAR(measure::dB(measure::toneAmplitude(lSamples, expected, 2 * kBins)), kLevel, 0.1);
}

INSTANTIATE_TEST_SUITE_P(
    AtTenFrequenciesAndFiveDecimations, Tone,
    testing::Values(Case{10e6, 5.5e6, 20e6, 1}, Case{40e6, 10e6, 40e6, 1}, Case{50e6, 17e6, 1e6, 1},
                    Case{98e6, 20e3, 100e3, 1024}, Case{433e6, -30e3, 200e3, 512}, Case{900e6, 500e3, 3e6, 32},
                    Case{2400e6, -2e6, 12e6, 8}, Case{5800e6, 9e6, 24e6, 4}, Case{10e9, 40e3, 100e3, 1024},
                    Case{16e9, -600e3, 3e6, 32}, Case{26009600000.0, 25e3, 100e3, 1024}, Case{26009600000.0, 11e6, 40e6, 1},
                    Case{1e9, -9e6, 40e6, 1}),
    nameOf);

TEST(Noise, HasThePowerThatItsDensityAndTheRateGive) {
    for (const double bandwidth : {100e3, 3e6}) {
        vnksim::Unit cUnit(live::options(), vnksim::Scene().noise(-120));
        cUnit.start();
        live::Device cDevice(cUnit.options().address);
        ASSERT_EQ(cDevice.status(), 0) << live::log();
        live::Stream cStream(400e6, bandwidth, -60);
        ASSERT_EQ(cStream.attach(cDevice), 0);
        float fRate = 0;
        const measure::Samples lSamples = live::collect(cStream, 65536, &fRate);
        ASSERT_GE(lSamples.size(), 65536u);
        // Density in the middle of the band: mean of the bins around 0 Hz over the window's noise bandwidth.
        double sum = 0;
        size_t uCount = 0;
        for (size_t offset = 0; offset + 4096 <= lSamples.size(); offset += 4096) {
            const std::vector<double> power = measure::powerSpectrum(lSamples, 4096, offset);
            for (size_t i = 8; i < 1400; ++i) {
                sum += power[i] + power[4096 - i];
                uCount += 2;
            }
        }
        const double binHz = fRate / 4096.0 * 2.0044;   // noise bandwidth of the window
        EXPECT_NEAR(10 * std::log10(sum / static_cast<double>(uCount) / binHz), -120, 0.5) << bandwidth;
    }
}

TEST(Timestamps, RunWithTheSamples) {
    vnksim::Unit cUnit(live::options(), vnksim::Scene().tone(100e6, -40));
    cUnit.start();
    live::Device cDevice(cUnit.options().address);
    live::Stream cStream(100e6, 400e3);
    ASSERT_EQ(cStream.attach(cDevice), 0);
    live::Frame cFrame;
    ASSERT_TRUE(cStream.next(cFrame));
    uint64_t uLast = cFrame->timestamp;
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                         std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_LT(std::llabs(static_cast<long long>(uLast) - now), 60'000'000'000ll);
    for (int i = 0; i < 5; ++i) {
        const double duration = cFrame->sampleCount / static_cast<double>(cFrame->sampleRateHz);
        ASSERT_TRUE(cStream.next(cFrame));
        EXPECT_EQ(cFrame->sequenceGap, 0);
        EXPECT_NEAR(static_cast<double>(cFrame->timestamp - uLast), duration * 1e9, 2.0);
        uLast = cFrame->timestamp;
    }
}
