// Real recordings through IQ to spectrum and through traces of its spectra. What they are known to hold was measured
// on the recordings themselves. Frames are handed over directly: no queue loses one.
#include <numeric>

#include "live/measure.h"
#include "live/session.h"
#include "processors/iqtospectrum.h"
#include "processors/spectrumcharacterization.h"
#include "recordings/convert.h"
#include "unit/processors/spectrumsupport.h"

namespace {

using measure::Samples;

struct Source {
    const char* mpName;
    const char* mpFormat;
    double mfRate;
};

/// All spectra of a recording, with frequencies about 0 Hz. Levels are powers, 1 for full scale.
struct Spectrogram {
    double mfMinHz = 0, mfBinHz = 0;
    std::vector<std::vector<double>> mlPowers;
    std::vector<std::vector<std::vector<float>>> mlTraces;

    bool empty() const { return mlPowers.empty(); }
    size_t bin(double hz) const { return static_cast<size_t>(std::lround((hz - mfMinHz) / mfBinHz)); }
    double frequency(size_t uBin) const { return mfMinHz + mfBinHz * static_cast<double>(uBin); }
    std::vector<double> mean(size_t uFirst, size_t uEnd) const {
        std::vector<double> lMean(mlPowers.at(0).size());
        for (size_t i = uFirst; i < uEnd; ++i)
            for (size_t k = 0; k < lMean.size(); ++k)
                lMean[k] += mlPowers[i][k] / static_cast<double>(uEnd - uFirst);
        return lMean;
    }
    std::vector<double> mean() const { return mean(0, mlPowers.size()); }
    void take(const SpectrumFrame& cFrame) {
        const std::vector<float> lLevels = vnktest::levelsOf(cFrame);
        mfBinHz = double{cFrame.bandwidth()} / static_cast<double>(lLevels.size());
        mfMinHz = double{cFrame.centreFrequency()} - double{cFrame.bandwidth()} / 2;
        mlPowers.emplace_back();
        for (const float fLevel : lLevels)
            mlPowers.back().push_back(std::pow(10.0, static_cast<double>(fLevel) / 10));
        mlTraces.emplace_back();
        for (const auto& cTrace : cFrame.traces())
            mlTraces.back().push_back(vnktest::valuesOf(*cTrace));
    }
};

/// All spectra of a recording; empty if it is not there. With traces, when parameters for them are given.
Spectrogram spectrogram(const Source& cSource, size_t uPerFrame, const std::string& parameters,
                        const std::string& traceParameters = {}) {
    const std::string path = live::recordingPath(cSource.mpName);
    if (path.empty())
        return {};
    const auto fRate = static_cast<float>(cSource.mfRate);
    vnktest::DirectBench<IQToSpectrum> cSpectra;
    cSpectra.set(parameters);
    vnktest::DirectBench<SpectrumCharacterizationProcessor> cTraces;
    if (!traceParameters.empty())
        cTraces.set(traceParameters);
    Spectrogram cResult;
    uint32_t uNext = 0;
    for (const auto& cIQ :
         recordings::framesOf(recordings::samplesOf(path, cSource.mpFormat), uPerFrame, cSource.mfRate)) {
        const auto cFrame =
            vnktest::framed(cIQ.mlSamples, cIQ.muSequence, {0.0f, fRate, fRate, 0.0f, "sqrt-mw"}, cIQ.muTime);
        for (const auto& cSpectrum : cSpectra.process(cFrame)) {
            EXPECT_EQ(cSpectrum->sequence(), uNext++);
            cResult.take(traceParameters.empty() ? *cSpectrum : *cTraces.process(cSpectrum).at(0));
        }
    }
    return cResult;
}

double dB(double power) {
    return 10 * std::log10(power);
}

double sum(const Spectrogram& cSpectra, const std::vector<double>& lPowers, double lowHz, double highHz) {
    return std::accumulate(lPowers.begin() + static_cast<std::ptrdiff_t>(cSpectra.bin(lowHz)),
                           lPowers.begin() + static_cast<std::ptrdiff_t>(cSpectra.bin(highHz)) + 1, 0.0);
}

size_t strongest(const std::vector<double>& lPowers) {
    return static_cast<size_t>(std::max_element(lPowers.begin(), lPowers.end()) - lPowers.begin());
}

#define VNK_NEED_RECORDING(spectra, source) \
    if ((spectra).empty())                  \
    GTEST_SKIP() << live::absent((source).mpName)

}  // namespace

TEST(SpectraOfRecordings, ACarrierAmongAircraftStandsWhereItWasReceived) {
    const Source cSource = {"adsb_1090_2m.cu8", "cu8", 2e6};
    const Spectrogram cSpectra = spectrogram(cSource, 4096, "{\"RBWHz\":1500,\"WindowFn\":\"hann\"}");
    ASSERT_EQ(cSpectra.mlPowers.size(), (356868u - 2048) / 1024 + 1);
    ASSERT_EQ(cSpectra.mlPowers[0].size(), 2048u);
    const std::vector<double> lMean = cSpectra.mean();
    const double carrier = cSpectra.frequency(strongest(lMean));
    EXPECT_NEAR(carrier, -66e3, 3e3);
    double other = 0;
    for (size_t i = 0; i < lMean.size(); ++i)
        if (std::abs(cSpectra.frequency(i) - carrier) > 40e3)
            other = std::max(other, lMean[i]);
    EXPECT_NEAR(dB(lMean[strongest(lMean)] / other), 17, 3);
}

TEST(SpectraOfRecordings, ABeaconHasItsCarrierItsToneAndItsSubcarrier) {
    const Source cSource = {"am_vor_rebuilt_47368.cs16", "cs16", 1.8e6 / 38};
    const Spectrogram cSpectra = spectrogram(cSource, 1000, "{\"RBWHz\":4.5,\"WindowFn\":\"hann\"}");
    ASSERT_EQ(cSpectra.mlPowers.size(), (378947u - 16384) / 8192 + 1);
    const std::vector<double> lMean = cSpectra.mean();
    const double carrier = cSpectra.frequency(strongest(lMean));
    EXPECT_NEAR(carrier, 1000, cSpectra.mfBinHz / 2);
    const double power = sum(cSpectra, lMean, 990, 1010);
    EXPECT_NEAR(dB(power), 20 * std::log10(11000.0 / 32768), 0.05);
    // Beside a mean of periodograms that is computed independently, of the same size, window and overlap.
    const Samples lSamples = recordings::samplesOf(live::recordingPath(cSource.mpName), "cs16");
    const measure::Density cDensity(lSamples, cSource.mfRate, 16384);
    const std::vector<double> lDensity = cDensity.band(cDensity.frequency(0), cDensity.frequency(16383));
    ASSERT_EQ(lDensity.size(), lMean.size());
    for (size_t i = 0; i < lMean.size(); ++i)
        ASSERT_NEAR(dB(lMean[i]), dB(lDensity[i] * cDensity.binHz()), 0.01) << i;
    double subcarriers[2] = {};
    for (const int side : {-1, 1}) {
        const double tone = 1000 + side * 30, subcarrier = 1000 + side * 9960;
        EXPECT_NEAR(dB(sum(cSpectra, lMean, tone - 8, tone + 8) / power), 20 * std::log10(0.111 / 2), 0.2);
        subcarriers[side > 0] = dB(sum(cSpectra, lMean, subcarrier - 600, subcarrier + 600));
        EXPECT_NEAR(subcarriers[side > 0], dB(cDensity.power(subcarrier - 600, subcarrier + 600)), 0.01);
    }
    EXPECT_NEAR(subcarriers[0], subcarriers[1], 1);
}

// Recordings that lie beside some checkouts only.

TEST(SpectraOfRecordings, ABroadcastStationHasItsLevelAndItsWidth) {
    const Source cSource = {"fm_broadcast_256k.cs16", "cs16", 256e3};
    const Spectrogram cSpectra = spectrogram(cSource, 4099, "{\"RBWHz\":380,\"WindowFn\":\"hann\"}");
    VNK_NEED_RECORDING(cSpectra, cSource);
    ASSERT_EQ(cSpectra.mlPowers[0].size(), 1024u);
    const std::vector<double> lMean = cSpectra.mean();
    const double total = std::accumulate(lMean.begin(), lMean.end(), 0.0);
    EXPECT_NEAR(dB(total), -8.72, 0.05);
    const auto quantile = [&](double share) {
        double below = 0;
        size_t i = 0;
        while ((below += lMean[i]) < share * total)
            ++i;
        return cSpectra.frequency(i);
    };
    EXPECT_NEAR(quantile(0.005), -51.4e3, 2e3);
    EXPECT_NEAR(quantile(0.995), 55.9e3, 2e3);
}

TEST(SpectraOfRecordings, ATimeSignalHasItsCarrierAboveItsBand) {
    const Source cSource = {"am_dcf77_12k.cs16", "cs16", 12001};
    const Spectrogram cSpectra = spectrogram(cSource, 512, "{\"RBWHz\":2.3,\"WindowFn\":\"hann\"}");
    VNK_NEED_RECORDING(cSpectra, cSource);
    ASSERT_EQ(cSpectra.mlPowers[0].size(), 8192u);
    const std::vector<double> lMean = cSpectra.mean();
    EXPECT_EQ(strongest(lMean), 4096u);
    const auto band = [&](double lowHz, double highHz) {
        return std::vector<double>(lMean.begin() + static_cast<std::ptrdiff_t>(cSpectra.bin(lowHz)),
                                   lMean.begin() + static_cast<std::ptrdiff_t>(cSpectra.bin(highHz)));
    };
    EXPECT_NEAR(dB(lMean[4096] / measure::median(band(200, 400))), 41, 3);
    const auto mean = [](const std::vector<double>& l) {
        return std::accumulate(l.begin(), l.end(), 0.0) / static_cast<double>(l.size());
    };
    EXPECT_LT(dB(mean(band(3000, 5900)) / mean(band(20, 400))), -80);
}

TEST(SpectraOfRecordings, ATimeSignalTellsItsSecondsInFollowedFramesAndTheirTraces) {
    const Source cSource = {"am_dcf77_12k.cs16", "cs16", 12001};
    const Spectrogram cSpectra =
        spectrogram(cSource, 120, "{\"FollowIQ\":true,\"WindowFn\":\"rectangular\"}", "{\"Average\":5}");
    VNK_NEED_RECORDING(cSpectra, cSource);
    ASSERT_EQ(cSpectra.mlPowers.size(), 3008u) << "one of each frame";
    // 64 of the 120 samples of a frame, a hundredth of a second each.
    std::vector<double> lCarrier;
    for (const auto& lPowers : cSpectra.mlPowers)
        lCarrier.push_back(std::sqrt(lPowers.at(32)));
    const double on = measure::median(lCarrier, 0.8);
    EXPECT_NEAR(20 * std::log10(on), -8.97, 0.3);
    std::string pattern;
    size_t uBefore = 0;
    for (const auto& cDrop : measure::stretches(lCarrier, [on](double value) { return value < on / 2; })) {
        if (cDrop.length < 5)
            continue;  // a crackle, not a second
        EXPECT_TRUE(pattern.empty() || cDrop.start - uBefore == 100) << cDrop.start;
        uBefore = cDrop.start;
        const bool bLong = cDrop.length > 14;
        EXPECT_NEAR(static_cast<double>(cDrop.length), bLong ? 20 : 10, 1);
        pattern += bLong ? 'L' : 'S';
    }
    EXPECT_EQ(pattern, "LLSSLSLSSSSLSSLLLSSLSSSLSSSLSS");
    // The traces of the last frame are the extremes of all.
    const auto& lTraces = cSpectra.mlTraces.back();
    ASSERT_EQ(lTraces.size(), 3u);
    const auto [itLeast, itMost] = std::minmax_element(lCarrier.begin(), lCarrier.end());
    EXPECT_NEAR(lTraces[0].at(32), 20 * std::log10(*itLeast), 1e-4);
    EXPECT_NEAR(lTraces[1].at(32), 20 * std::log10(*itMost), 1e-4);
    double average = 0;
    for (size_t i = lCarrier.size() - 5; i < lCarrier.size(); ++i)
        average += 20 * std::log10(lCarrier[i]) / 5;
    EXPECT_NEAR(lTraces[2].at(32), average, 1e-4);
}

TEST(SpectraOfRecordings, HoppingMetersAreFoundOnTheirFrequencies) {
    const Source cSource = {"ism_fhss_meters_2556k.cu8", "cu8", 2555904};
    const Spectrogram cSpectra = spectrogram(cSource, 5000, "{\"RBWHz\":1300,\"FFTOverlap\":0.75}");
    VNK_NEED_RECORDING(cSpectra, cSource);
    const size_t uSize = cSpectra.mlPowers[0].size(), uHop = uSize / 4;
    ASSERT_EQ(uSize, 4096u);
    constexpr std::pair<size_t, double> kBursts[] = {
        {2123, 0.0299},    {18874, -0.1159}, {37984, -0.2724}, {76441, 0.1971},   {114189, -0.2724},
        {134243, -0.4289}, {152410, 0.3537}, {171992, 0.1189}, {190867, -0.0376}, {266836, -0.2724}};
    for (const auto& [uStart, cycles] : kBursts) {
        const size_t uFirst = (uStart + 600) / uHop + 1, uEnd = (uStart + 15000 - 600 - uSize) / uHop;
        const std::vector<double> lMean = cSpectra.mean(uFirst, uEnd);
        EXPECT_NEAR(cSpectra.frequency(strongest(lMean)) / cSource.mfRate, cycles, 0.0005) << uStart;
    }
}
