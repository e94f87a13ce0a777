#include <chrono>
#include <optional>
#include <random>
#include <set>

#include "live/spectra.h"

// Frequency, level and noise of spectra, from the air of a simulated unit to the record that a caller reads.

namespace {

using live::Layout;

constexpr double kFloatTolerance = 0.1;   // dB, between what is computed and what is read

/// Distance of neighbouring single-precision numbers.
double floatStep(double hz) {
    const auto value = static_cast<float>(hz);
    return static_cast<double>(std::nextafter(value, 3e38f)) - static_cast<double>(value);
}

/// A spectrum of a scene, and the layout of its points.
struct Measured {
    std::vector<float> mlPoints;
    std::vector<double> mlHertz;
    std::optional<Layout> mcLayout;
};

/// A stream whose unit starts its list afresh for each spectrum, so that each sees the scene of that moment.
class Sweep {
 public:
    Sweep(live::Radio& cRadio, double minHz, double maxHz, double rbwHz, const std::string& window = "nuttall",
          const std::string& parameters = "{}", double level = -30)
        : mcRadio(cRadio), mcWindow(window), mcStream(minHz, maxHz, rbwHz, window.c_str(), level) {
        EXPECT_EQ(cRadio.device().set("{\"InhibitContinuousSweep\":true}"), 0);
        EXPECT_EQ(mcStream.set(parameters), 0);
        EXPECT_EQ(mcStream.attach(cRadio.device()), 0) << live::log();
    }
    /// A spectrum of what is on the air from now on.
    Measured measure() {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const auto uNow = static_cast<uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
        live::SpectrumFrame cFrame;
        Measured cMeasured;
        if (!vnktest::waitUntil([&] { return mcStream.next(cFrame) && cFrame->timestamp > uNow; })) {
            ADD_FAILURE() << live::log();
            return cMeasured;
        }
        cMeasured.mlPoints = cFrame.points();
        for (size_t i = 0; i < cMeasured.mlPoints.size(); ++i)
            cMeasured.mlHertz.push_back(cFrame.hertz(i));
        cMeasured.mcLayout.emplace(mcRadio.unit().state(), cFrame, mcWindow);
        return cMeasured;
    }
    Measured measure(const vnksim::Scene& cScene) {
        mcRadio.unit().setScene(cScene);
        return measure();
    }

 private:
    live::Radio& mcRadio;
    std::string mcWindow;
    live::SpectrumStream mcStream;
};

/// The highest point within some bins of a place.
size_t highestNear(const std::vector<float>& lPoints, size_t uPlace, size_t uReach = 6) {
    const size_t uFirst = uPlace - std::min(uPlace, uReach);
    const size_t uEnd = std::min(lPoints.size(), uPlace + uReach + 1);
    return static_cast<size_t>(std::max_element(lPoints.begin() + static_cast<std::ptrdiff_t>(uFirst),
                                                lPoints.begin() + static_cast<std::ptrdiff_t>(uEnd)) -
                               lPoints.begin());
}

/// A tone for each bin named, in the block that has them, at its exact middle.
struct PlacedTone {
    double mfHz;
    double mfdBm;
};

void expectTones(const Measured& cMeasured, const std::vector<PlacedTone>& lTones) {
    const Layout& cLayout = *cMeasured.mcLayout;
    for (const PlacedTone& cTone : lTones) {
        const auto [uPoint, beside] = cLayout.expected(cTone.mfHz);
        ASSERT_LT(uPoint, cMeasured.mlPoints.size());
        const size_t uHighest = highestNear(cMeasured.mlPoints, uPoint);
        // Half way between two bins either may win.
        if (std::abs(std::abs(beside) - 0.5) > 0.02) {
            EXPECT_EQ(uHighest, uPoint) << cTone.mfHz;
        }
        EXPECT_NEAR(cMeasured.mlPoints[uHighest], cLayout.level(cTone.mfdBm, beside), kFloatTolerance)
            << cTone.mfHz << " " << beside;
    }
}

/// Tones in the middle of bins all over a spectrum: some to each block, its first and its last kept bins among
/// them where `bEdges`.
std::vector<PlacedTone> tonesOnBins(const Layout& cLayout, bool bEdges) {
    std::vector<PlacedTone> lTones;
    for (const Layout::Block& cBlock : cLayout.blocks()) {
        const long iCount = cBlock.miLast - cBlock.miFirst + 1;
        for (const double share : {0.0, 0.21, 0.44, 0.67, 0.93}) {
            const long iBin = cBlock.miFirst + static_cast<long>(share * static_cast<double>(iCount));
            const double hz = cLayout.hertz(cBlock, static_cast<double>(iBin));
            if (hz > 0 && (bEdges || share > 0) && iCount > 60)
                lTones.push_back({hz, -30.0 - static_cast<double>(lTones.size() % 4) * 7});
        }
    }
    return lTones;
}

vnksim::Scene sceneOf(const std::vector<PlacedTone>& lTones) {
    vnksim::Scene cScene;
    for (const PlacedTone& cTone : lTones)
        cScene.tone(cTone.mfHz, cTone.mfdBm);
    return cScene;
}

}  // namespace

TEST(SweepPhysics, TonesOnBinsHaveTheirLevelAndFrequencyFromTheDirectRangeOverTheJointIntoTheSteps) {
    live::Radio cRadio;
    for (const char* pWindow : {"nuttall", "hann", "flattop"}) {
        Sweep cSweep(cRadio, 9e3, 200e6, 100e3, pWindow);
        const auto lTones = tonesOnBins(*cSweep.measure().mcLayout, false);
        ASSERT_GE(lTones.size(), 20u);
        const Measured cMeasured = cSweep.measure(sceneOf(lTones));
        expectTones(cMeasured, lTones);
        for (const PlacedTone& cTone : lTones) {
            const double hz = cMeasured.mlHertz[cMeasured.mcLayout->expected(cTone.mfHz).first];
            // Centres stand on tens of hertz.
            const double tolerance = 20 + floatStep(cTone.mfHz);
            // The told bins are wider than the transform's by one part in half its size: less than a bin up to
            // the intermediate frequency's end. A direct bin is told by its upper edge, half a bin more.
            const double bins = cTone.mfHz < 50e6 ? 0.5 + cTone.mfHz / live::kNyquistHz : 1.0;
            EXPECT_NEAR(hz, cTone.mfHz, bins * cMeasured.mcLayout->toldBinHz() + tolerance) << pWindow;
            EXPECT_GE(hz, cTone.mfHz - tolerance);
        }
    }
}

TEST(SweepPhysics, TonesBetweenBinsLoseWhatTheWindowMakesThemLose) {
    live::Radio cRadio;
    std::mt19937 cRandom(11);
    std::uniform_real_distribution<double> cShare(-0.5, 0.5);
    for (const char* pWindow : {"nuttall", "hann"}) {
        Sweep cSweep(cRadio, 1e6, 130e6, 100e3, pWindow);
        const Measured cEmpty = cSweep.measure();
        auto lTones = tonesOnBins(*cEmpty.mcLayout, false);
        for (PlacedTone& cTone : lTones)
            cTone.mfHz += cShare(cRandom) * cEmpty.mcLayout->binHz();
        expectTones(cSweep.measure(sceneOf(lTones)), lTones);
    }
}

TEST(SweepPhysics, ResolutionBandwidthsOverFourDecadesShowTheSameTone) {
    live::Radio cRadio;
    for (const double rbw : {3e3, 30e3, 300e3, 3e6}) {
        Sweep cSweep(cRadio, 100e6, 130e6, rbw);
        const Measured cEmpty = cSweep.measure();
        const Layout::Block& cBlock = cEmpty.mcLayout->blocks()[0];
        const double hz =
            cEmpty.mcLayout->hertz(cBlock, static_cast<double>((cBlock.miFirst + cBlock.miLast) / 2));
        expectTones(cSweep.measure(vnksim::Scene().tone(hz, -35)), {{hz, -35}});
    }
}

TEST(SweepPhysics, TheTopOfEachModelIsReached) {
    const std::pair<const char*, double> models[] = {{"ZV100-A", 8e9}, {"ZV100-B", 18e9}, {"ZV150-C", 27e9}};
    for (const auto& [pModel, top] : models) {
        live::Radio cRadio(live::sweepOptions(pModel));
        Sweep cSweep(cRadio, top - 100e6, top, 100e3);
        const double highest = static_cast<double>(static_cast<float>(top));
        const Measured cEmpty = cSweep.measure();
        const Layout& cLayout = *cEmpty.mcLayout;
        EXPECT_LE(cLayout.blocks().back().mfCentreHz, highest);
        EXPECT_NEAR(cEmpty.mlHertz.back(), highest, cLayout.toldBinHz() + 2 * floatStep(highest)) << pModel;
        auto lTones = tonesOnBins(cLayout, false);
        const Layout::Block& cLast = cLayout.blocks().back();
        lTones.push_back({cLayout.hertz(cLast, static_cast<double>(cLast.miLast - 8)), -30});
        const Measured cMeasured = cSweep.measure(sceneOf(lTones));
        expectTones(cMeasured, lTones);
        for (const PlacedTone& cTone : lTones)
            EXPECT_NEAR(cMeasured.mlHertz[cLayout.expected(cTone.mfHz).first], cTone.mfHz,
                        cLayout.toldBinHz() + floatStep(cTone.mfHz))
                << pModel;
    }
}

TEST(SweepPhysics, ACombOfTonesKeepsItsSpacingOverAllJoints) {
    live::Radio cRadio;
    constexpr double kSpacing = 1.37e6;
    std::vector<PlacedTone> lTones;
    for (double hz = 41e6; hz < 199e6; hz += kSpacing)
        lTones.push_back({hz, -60});   // so many that they would reach full scale together at twice the level
    Sweep cSweep(cRadio, 40e6, 200e6, 100e3);
    const Measured cMeasured = cSweep.measure(sceneOf(lTones));
    const auto lPeaks = live::peaksAbove(cMeasured.mlPoints, -80);
    ASSERT_EQ(lPeaks.size(), lTones.size()) << "each tone once";
    const double bin = cMeasured.mcLayout->toldBinHz();
    for (size_t i = 0; i < lPeaks.size(); ++i) {
        EXPECT_NEAR(static_cast<double>(lPeaks[i]),
                    static_cast<double>(cMeasured.mcLayout->expected(lTones[i].mfHz).first), 1.0);
        if (i > 0) {
            EXPECT_NEAR(cMeasured.mlHertz[lPeaks[i]] - cMeasured.mlHertz[lPeaks[i - 1]], kSpacing, 2 * bin)
                << lTones[i].mfHz;
        }
    }
}

TEST(SweepPhysics, AToneOnABorderOfTwoBlocksAppearsOnce) {
    live::Radio cRadio;
    Sweep cSweep(cRadio, 20e6, 200e6, 100e3);
    const Measured cEmpty = cSweep.measure();
    const Layout& cLayout = *cEmpty.mcLayout;
    ASSERT_GE(cLayout.blocks().size(), 5u);
    for (size_t i = 0; i + 1 < cLayout.blocks().size(); ++i) {
        const double below = cLayout.hertz(cLayout.blocks()[i], static_cast<double>(cLayout.blocks()[i].miLast));
        const double above =
            cLayout.hertz(cLayout.blocks()[i + 1], static_cast<double>(cLayout.blocks()[i + 1].miFirst));
        EXPECT_GT(above, below) << "no bin stands twice";
        EXPECT_LT(above - below, 2.5 * cLayout.binHz()) << "no bin is missing";
        for (const double hz : {below, (below + above) / 2, above}) {
            const Measured cMeasured = cSweep.measure(vnksim::Scene().tone(hz, -40));
            EXPECT_EQ(live::peaksAbove(cMeasured.mlPoints, -80).size(), 1u) << hz;
            const auto [uPoint, beside] = cLayout.expected(hz);
            const size_t uHighest = highestNear(cMeasured.mlPoints, uPoint, 100);
            EXPECT_NEAR(static_cast<double>(uHighest), static_cast<double>(uPoint), 1.0) << hz;
            EXPECT_NEAR(cMeasured.mlPoints[uHighest], cLayout.level(-40, beside), kFloatTolerance) << hz;
        }
    }
}

TEST(SweepPhysics, NoiseAveragedInPowerHasTheDensityOfTheAirForEachWindow) {
    constexpr double kDensity = -112;
    live::Radio cRadio(live::sweepOptions(), vnksim::Scene().noise(kDensity));
    for (const char* pWindow : {"rectangular", "nuttall", "flattop"}) {
        live::SpectrumStream cStream(1e6, 120e6, 100e3, pWindow);
        ASSERT_EQ(cStream.attach(cRadio.device()), 0);
        double sum = 0, direct = 0;
        size_t uCount = 0, uDirect = 0;
        live::SpectrumFrame cFrame;
        double bin = 0;
        for (int i = 0; i < 4; ++i) {
            ASSERT_TRUE(cStream.next(cFrame)) << live::log();
            bin = Layout(cRadio.unit().state(), cFrame, pWindow).binHz();
            for (uint32_t k = 0; k < cFrame->pointCount; ++k) {
                const double power = std::pow(10.0, static_cast<double>(cFrame->points[k]) / 10);
                (cFrame.hertz(k) < 50e6 ? direct : sum) += power;
                ++(cFrame.hertz(k) < 50e6 ? uDirect : uCount);
            }
        }
        // The window's width is in the level constant: what is left is the density in one bin.
        const double expected = kDensity + 10 * std::log10(bin);
        EXPECT_NEAR(10 * std::log10(sum / static_cast<double>(uCount)), expected, 0.3) << pWindow;
        EXPECT_NEAR(10 * std::log10(direct / static_cast<double>(uDirect)), expected, 0.3) << pWindow;
        EXPECT_GT(uCount + uDirect, 7000u);
    }
}

TEST(SweepPhysics, FlatteningUndoesARippleOfTheIntermediateFrequency) {
    // Two smooth responses, one for tunings below 100 MHz, direct digitization among them, and one above.
    const auto gain = [](double tunedHz, double placeHz) {
        const double turns = placeHz / 62.5e6;
        return tunedHz < 100e6 ? 1.2 * std::sin(2 * std::numbers::pi * 2 * turns) + 0.8
                               : 0.9 * std::cos(2 * std::numbers::pi * 3 * turns) - 0.4;
    };
    constexpr int kPoints = 128;
    std::vector<std::vector<int32_t>> lVectors(2);
    for (int i = 0; i < kPoints; ++i) {
        lVectors[0].push_back(static_cast<int32_t>(std::lround(1e6 * gain(0, 62.5e6 * i / kPoints))));
        lVectors[1].push_back(static_cast<int32_t>(std::lround(1e6 * gain(200e6, 62.5e6 * i / kPoints))));
    }
    auto cOptions = live::sweepOptions();
    cOptions.corrections.signal = vnksim::makeCorrectionSet({{100000, 0}, {27000001, 1}}, lVectors);
    cOptions.corrections.signalSize = -1;
    cOptions.ifGaindB = gain;
    live::Radio cRadio(cOptions);
    Sweep cSweep(cRadio, 1e6, 200e6, 100e3);
    const Measured cEmpty = cSweep.measure();
    const auto lTones = tonesOnBins(*cEmpty.mcLayout, true);
    const Measured cRaw = cSweep.measure(sceneOf(lTones));
    Sweep cFlattened(cRadio, 1e6, 200e6, 100e3, "nuttall", "{\"flatten\":true}");
    const Measured cFlat = cFlattened.measure();
    double greatest = 0;
    for (const PlacedTone& cTone : lTones) {
        const size_t uPoint = cEmpty.mcLayout->expected(cTone.mfHz).first;
        const double level = cEmpty.mcLayout->level(cTone.mfdBm, 0);
        EXPECT_NEAR(cFlat.mlPoints.at(uPoint), level, 0.05) << cTone.mfHz;
        greatest = std::max(greatest, std::abs(static_cast<double>(cRaw.mlPoints.at(uPoint)) - level));
    }
    EXPECT_GT(greatest, 1.0) << "there was something to undo";
}

TEST(SweepPhysics, BlocksThatComeInvertedGiveTheSameSpectrum) {
    live::Radio cRadio;
    constexpr double kMinHz = 30e6, kMaxHz = 200e6;
    Sweep cSweep(cRadio, kMinHz, kMaxHz, 100e3);
    const Measured cEmpty = cSweep.measure();
    const Layout& cLayout = *cEmpty.mcLayout;
    const auto lTones = tonesOnBins(cLayout, false);
    expectTones(cSweep.measure(sceneOf(lTones)), lTones);
    // About the whole bin nearest to the middle: the rest of a bin shows in the level.
    const double centre = 0.56 * static_cast<double>(cLayout.half());
    const double beside = 2 * (std::round(centre) - centre);
    for (const auto& [pFirst, pSecond] :
         {std::pair("invertedEntries,2", ""), std::pair("invertedFromMHz,100", "invertedBelowMHz,150")}) {
        cRadio.fault(pFirst);
        if (*pSecond)
            cRadio.fault(pSecond);
        const Measured cMeasured = cSweep.measure();
        const bool bAll = *pSecond == 0;
        for (const PlacedTone& cTone : lTones) {
            const size_t uPoint = cLayout.expected(cTone.mfHz).first;
            bool bInverted = false;
            for (const Layout::Block& cBlock : cLayout.blocks())
                if (static_cast<long>(uPoint) >= cBlock.miOffset)
                    bInverted = !cBlock.mbDirect &&
                                (bAll || (cBlock.mfCentreHz >= 100e6 && cBlock.mfCentreHz < 150e6));
            EXPECT_EQ(highestNear(cMeasured.mlPoints, uPoint), uPoint) << cTone.mfHz;
            EXPECT_NEAR(cMeasured.mlPoints[uPoint], cLayout.level(cTone.mfdBm, bInverted ? beside : 0),
                        kFloatTolerance)
                << cTone.mfHz;
        }
        cRadio.fault("clear");
    }
}

TEST(SweepPhysics, TheReferenceLevelMovesTheUnitAndNotTheSpectrum) {
    for (const char* pModel : {"ZV100-A", "ZV150-C"}) {
        live::Radio cRadio(live::sweepOptions(pModel));
        std::vector<PlacedTone> lTones;
        std::set<double> lReferences;
        for (const double reference : {-50.0, -10.0, 0.0, 10.0}) {
            Sweep cSweep(cRadio, 100e6, 160e6, 100e3, "nuttall", "{}", reference);
            if (lTones.empty()) {
                lTones = tonesOnBins(*cSweep.measure().mcLayout, false);
                cRadio.unit().setScene(sceneOf(lTones));
            }
            expectTones(cSweep.measure(), lTones);
            const vnksim::UnitState cState = cRadio.unit().state();
            lReferences.insert(vnksim::referenceLevelDbm(pModel, cState.gain1, cState.gain2,
                                                         cState.list.at(0).attenuation));
        }
        EXPECT_GE(lReferences.size(), 3u) << pModel;
    }
}

TEST(SweepPhysics, TooHighALevelIsClippedByTheUnitAndRightAtAHigherReferenceLevel) {
    live::Radio cRadio;
    for (const bool bHigh : {false, true}) {
        Sweep cSweep(cRadio, 100e6, 130e6, 100e3, "nuttall", "{}", bHigh ? 15 : -30);
        const Measured cEmpty = cSweep.measure();
        const Layout& cLayout = *cEmpty.mcLayout;
        const double hz =
            cLayout.hertz(cLayout.blocks()[0], static_cast<double>(cLayout.blocks()[0].miFirst + 500));
        const Measured cMeasured = cSweep.measure(vnksim::Scene().tone(hz, 2));
        const double got = static_cast<double>(cMeasured.mlPoints[cLayout.expected(hz).first]);
        if (bHigh) {
            EXPECT_NEAR(got, cLayout.level(2, 0), kFloatTolerance);
        } else {
            EXPECT_LT(got, cLayout.level(2, 0) - 6.0);
        }
    }
}
