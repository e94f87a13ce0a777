#include "zelvar/reconstruction.h"

#include <gmock/gmock.h>

#include <random>

#include "dsp/windowfunctions.h"
#include "support/logs.h"
#include "unit/zelvar/correctiondata.h"
#include "unit/zelvar/spectrumreference.h"
#include "zelvar/sweepmechanism.h"
#include "zelvar/sweepplan.h"

using testing::Contains;
using vnktest::binMagnitude;
using vnktest::decibels;
using vnktest::noiseBandwidth;
using vnktest::scaledWindow;
using vnktest::takeLogTexts;

namespace {

std::vector<float> noise(uint32_t uCount, uint32_t uSeed = 1) {
    std::mt19937 cRandom(uSeed);
    std::uniform_real_distribution<float> cLevels(-1.0f, 1.0f);
    std::vector<float> lSamples(uCount);
    for (float& fSample : lSamples)
        fSample = cLevels(cRandom);
    return lSamples;
}

/// A sine of amplitude 1 whose frequency lies at a bin, or between two.
std::vector<float> tone(uint32_t uCount, double fBin) {
    std::vector<float> lSamples(uCount);
    for (uint32_t i = 0; i < uCount; ++i)
        lSamples[i] = static_cast<float>(std::cos(2.0 * std::numbers::pi * fBin * i / uCount + 0.3));
    return lSamples;
}

SweepBlock blockOf(const std::vector<float>& lSamples, uint64_t uFrequencyHz = 0, bool bInverted = false,
                   float fReference = -30.0f) {
    auto cSamples = makeReference<FloatArray>(static_cast<uint32_t>(lSamples.size()));
    std::copy(lSamples.begin(), lSamples.end(), cSamples->getData());
    return {uFrequencyHz, 0, fReference, bInverted, cSamples};
}

std::vector<float> magnitudesOf(BlockTransform& cTransform, const SweepBlock& cBlock) {
    const FloatArray& cMagnitudes = cTransform.magnitudes(cBlock);
    return {cMagnitudes.getData(), cMagnitudes.getData() + cMagnitudes.getActive()};
}

SweepPlan planFor(float fMin, float fMax, float fRBW, const std::string& window = "nuttall") {
    SweepRequest cRequest{fMin, fMax, fRBW};
    cRequest.mcWindowName = window;
    std::string message;
    return planSweep(cRequest, 2.7e10f, message).value();
}

/// A sweep with its plan.
struct Sweep {
    explicit Sweep(float fMin, float fMax, float fRBW, const std::string& window = "nuttall",
                   ReferencePtr<_IFBWFlatten> cFlatten = nullptr, bool bFlatten = true) {
        SweepRequest cRequest{fMin, fMax, fRBW};
        cRequest.mcWindowName = window;
        cRequest.mbFlatten = bFlatten;
        mcPlan = planFor(fMin, fMax, fRBW, window);
        mcSweep = makeReference<ZelvarSweepConfiguration>(cRequest, mcPlan, cFlatten);
    }
    std::vector<float> levels(const SweepBlock& cBlock, uint32_t uPlace, float fUserCaldB = 0.0f) {
        std::vector<float> lLevels(mcSweep->binsAt(uPlace) + 1, 777.0f);
        mbDone = mcSweep->reconstruct(cBlock, uPlace, fUserCaldB, lLevels.data());
        EXPECT_EQ(lLevels.back(), 777.0f);  // nothing is written behind them
        lLevels.pop_back();
        return lLevels;
    }
    SweepPlan mcPlan;
    ReferencePtr<ZelvarSweepConfiguration> mcSweep;
    bool mbDone = false;
};

}  // namespace

// Kept and mirrored bins.

TEST(KeptBins, TheLastTunedBlockIsCutAndOthersAreWhole) {
    const SweepPlan cPlan = planFor(100e6f, 200e6f, 10e3f);
    for (uint32_t uPlace = 0; uPlace < 3; ++uPlace) {
        const BinRange cBins = keptBins(cPlan, uPlace);
        EXPECT_EQ(cBins.muFirst, 4456u);
        EXPECT_EQ(cBins.muLast, uPlace == 2 ? 11792u : 13893u);
    }
    EXPECT_EQ(keptBins(cPlan, 0).count() * 2 + keptBins(cPlan, 2).count(), cPlan.muTotalBins);
}

TEST(KeptBins, TheDirectBlockHasItsOwnAndTheyAddUpToTheSpectrum) {
    for (const float fRBW : {1e4f, 3e5f, 1e7f}) {
        const SweepPlan cPlan = planFor(20e6f, 300e6f, fRBW);
        ASSERT_TRUE(cPlan.mbHasDDBlock);
        EXPECT_EQ(keptBins(cPlan, 0).muFirst, cPlan.muDDBinFirst);
        EXPECT_EQ(keptBins(cPlan, 0).muLast, cPlan.muDDBinLast);
        uint32_t uTotal = 0;
        for (uint32_t uPlace = 0; uPlace < cPlan.muTotalExpectedBlocks; ++uPlace)
            uTotal += keptBins(cPlan, uPlace).count();
        EXPECT_EQ(uTotal, cPlan.muTotalBins);
    }
}

TEST(KeptBins, OfASingleTunedBlockTheEndIsCut) {
    const SweepPlan cPlan = planFor(100e6f, 110e6f, 10e3f);
    ASSERT_EQ(cPlan.muTotalExpectedBlocks, 1u);
    EXPECT_EQ(keptBins(cPlan, 0).muLast, cPlan.muSHBinLastFinal);
}

TEST(MirroredBins, LieAboutTheTunedCentreOfTheUpperHalf) {
    const SweepPlan cPlan = planFor(100e6f, 200e6f, 10e3f);
    // A half of 16384, its centre at 9175.
    const auto cWhole = mirroredBins(cPlan, keptBins(cPlan, 0), 16384);
    ASSERT_TRUE(cWhole);
    EXPECT_EQ(cWhole->muFirst, 4456u - 1966u);
    EXPECT_EQ(cWhole->muLast, 13893u - 1966u);
    const auto cFinal = mirroredBins(cPlan, keptBins(cPlan, 2), 16384);
    ASSERT_TRUE(cFinal);
    EXPECT_EQ(cFinal->muFirst, 2490u);
    EXPECT_EQ(cFinal->muLast, 11792u - 1966u);
}

TEST(MirroredBins, OfEverySizeLieInTheArray) {
    for (float fRBW = 5.0f; fRBW <= 1e7f; fRBW *= 1.9f) {
        const SweepPlan cPlan = planFor(100e6f, 200e6f, fRBW);
        const auto cBins = mirroredBins(cPlan, keptBins(cPlan, 0), cPlan.muFFTSize / 2);
        ASSERT_TRUE(cBins) << fRBW;
        EXPECT_EQ(cBins->count(), keptBins(cPlan, 0).count());
        EXPECT_LT(cBins->muLast, cPlan.muFFTSize / 2);
    }
}

TEST(MirroredBins, OutsideTheArrayAreNone) {
    SweepPlan cPlan;
    EXPECT_FALSE(mirroredBins(cPlan, {0, 40}, 128));  // before it: a sweep without steps
    cPlan.muSHBinFirst = 34;
    EXPECT_TRUE(mirroredBins(cPlan, {34, 143}, 128));  // its last bin
    EXPECT_FALSE(mirroredBins(cPlan, {34, 144}, 128));
    EXPECT_FALSE(mirroredBins(cPlan, {34, 0xFFFFFFFF}, 128));
    EXPECT_FALSE(mirroredBins(cPlan, {34, 20}, 128));  // back to front
    cPlan.muSHBinFirst = 0xFFFFFFFF;
    EXPECT_FALSE(mirroredBins(cPlan, {0, 0xFFFFFFFF}, 128));
}

TEST(MirroredBins, OfNoBinsAreNoBins) {
    SweepPlan cPlan;
    cPlan.muSHBinFirst = 34;
    const auto cBins = mirroredBins(cPlan, {34, 33}, 128);
    ASSERT_TRUE(cBins);
    EXPECT_EQ(cBins->count(), 0u);
}

// The transform.

TEST(BlockTransform, EveryWindowIsApplied) {
    const std::vector<float> lSamples = noise(1024);
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        BlockTransform cTransform(name, 1024);
        const std::vector<float> lMagnitudes = magnitudesOf(cTransform, blockOf(lSamples));
        ASSERT_EQ(lMagnitudes.size(), 512u);
        const std::vector<double> lWindow = scaledWindow(name, 1024);
        for (uint32_t uBin = 0; uBin < 512; uBin += 3)
            EXPECT_NEAR(lMagnitudes[uBin], binMagnitude(lSamples, lWindow, uBin), 2e-7)
                << name << " " << uBin;
    }
}

TEST(BlockTransform, EverySizeIsRight) {
    for (const uint32_t uSize : {256u, 512u, 8192u, 65536u, 131072u}) {
        const std::vector<float> lSamples = noise(uSize, uSize);
        BlockTransform cTransform("nuttall", uSize);
        const std::vector<float> lMagnitudes = magnitudesOf(cTransform, blockOf(lSamples));
        ASSERT_EQ(lMagnitudes.size(), uSize / 2);
        const std::vector<double> lWindow = scaledWindow("nuttall", uSize);
        for (uint32_t uBin = 0; uBin < uSize / 2; uBin += uSize / 16 - 1) {
            // The window's mean is a sum of singles: its rounding shows in the longest.
            const double fExpected = binMagnitude(lSamples, lWindow, uBin);
            EXPECT_NEAR(lMagnitudes[uBin], fExpected, 1e-4 * fExpected + 1e-8) << uSize << " " << uBin;
        }
    }
}

TEST(BlockTransform, ASineOfFullScaleAtABinHasHalfItsAmplitudeAndBetweenBinsWhatTheWindowLeaves) {
    for (const std::string name : {"rectangular", "hann", "nuttall", "flattop"}) {
        BlockTransform cTransform(name, 4096);
        EXPECT_NEAR(decibels(magnitudesOf(cTransform, blockOf(tone(4096, 1000)))[1000]), decibels(0.5), 0.01)
            << name;
        const std::vector<float> lBetween = tone(4096, 1000.5);
        const double fExpected = binMagnitude(lBetween, scaledWindow(name, 4096), 1000);
        EXPECT_NEAR(decibels(magnitudesOf(cTransform, blockOf(lBetween))[1000]), decibels(fExpected), 0.001)
            << name;
    }
    BlockTransform cTransform("rectangular", 4096);
    EXPECT_NEAR(decibels(magnitudesOf(cTransform, blockOf(tone(4096, 1000.5)))[1000]),
                decibels(1 / std::numbers::pi), 0.01);
}

TEST(BlockTransform, AConstantStandsInTheFirstBin) {
    BlockTransform cTransform("hann", 1024);
    const std::vector<float> lMagnitudes = magnitudesOf(cTransform, blockOf(std::vector<float>(1024, 0.25f)));
    EXPECT_NEAR(lMagnitudes[0], 0.25f, 0.001f);
    EXPECT_LT(lMagnitudes[3], 1e-6f);
}

TEST(BlockTransform, AnInvertedBlockGivesTheUpperHalf) {
    const std::vector<float> lSamples = noise(1024);
    BlockTransform cTransform("hamming", 1024);
    const std::vector<double> lWindow = scaledWindow("hamming", 1024);
    const std::vector<float> lMagnitudes = magnitudesOf(cTransform, blockOf(lSamples, 0, true));
    ASSERT_EQ(lMagnitudes.size(), 512u);
    for (uint32_t uBin = 0; uBin < 512; uBin += 5)
        EXPECT_NEAR(lMagnitudes[uBin], binMagnitude(lSamples, lWindow, 512 + uBin), 2e-7) << uBin;
}

TEST(BlockTransform, SamplesBehindTheTransformsLengthDoNotCount) {
    std::vector<float> lSamples = noise(1000);
    BlockTransform cTransform("nuttall", 512);
    const std::vector<float> lLong = magnitudesOf(cTransform, blockOf(lSamples));
    lSamples.resize(512);
    EXPECT_EQ(magnitudesOf(cTransform, blockOf(lSamples)), lLong);
}

TEST(BlockTransform, AShorterBlockIsLoggedAndTransformedAsItIs) {
    takeLogTexts();
    const std::vector<float> lSamples = noise(256);
    BlockTransform cTransform("rectangular", 512);
    const std::vector<float> lMagnitudes = magnitudesOf(cTransform, blockOf(lSamples));
    EXPECT_THAT(takeLogTexts(), Contains("expected IDataSize:256 to be greater than muFFTSize:512"));
    ASSERT_EQ(lMagnitudes.size(), 128u);
    EXPECT_NEAR(lMagnitudes[17], binMagnitude(lSamples, scaledWindow("rectangular", 256), 17), 1e-6);
    EXPECT_EQ(magnitudesOf(cTransform, blockOf(noise(512))).size(), 256u);  // and back
}

TEST(Levels, AreDecibelsAboveTheConstantForEveryMagnitude) {
    std::vector<float> lMagnitudes;
    for (float fValue = std::numeric_limits<float>::min(); fValue < 1e38f; fValue *= 1.0007f)
        lMagnitudes.push_back(fValue);
    for (float fValue = 0.999f; fValue < 1.001f; fValue = std::nextafter(fValue, 2.0f))
        lMagnitudes.push_back(fValue);
    const auto uCount = static_cast<uint32_t>(lMagnitudes.size());
    std::vector<float> lLevels(uCount);
    for (const float fConstant : {0.0f, -17.25f}) {
        writeLevels(lMagnitudes.data(), uCount, fConstant, lLevels.data());
        for (uint32_t i = 0; i < uCount; ++i) {
            const double fExpected =
                decibels(static_cast<double>(lMagnitudes[i])) + static_cast<double>(fConstant);
            ASSERT_NEAR(lLevels[i], fExpected, 2e-7 * std::abs(fExpected) + 4e-6) << lMagnitudes[i];
        }
    }
}

TEST(Levels, OfWhatIsNoMagnitudeAreThoseOfTheLogarithm) {
    const float fInfinity = std::numeric_limits<float>::infinity();
    const float fSmallest = std::numeric_limits<float>::denorm_min();
    const std::vector<float> lMagnitudes = {0.0f, fInfinity, std::numeric_limits<float>::quiet_NaN(),
                                            fSmallest, 10.0f};
    std::vector<float> lLevels(5);
    writeLevels(lMagnitudes.data(), 5, 1.0f, lLevels.data());
    EXPECT_EQ(lLevels[0], -fInfinity);
    EXPECT_EQ(lLevels[1], fInfinity);
    EXPECT_TRUE(std::isnan(lLevels[2]));
    EXPECT_NEAR(lLevels[3], -896.0f, 0.5f);
    EXPECT_FLOAT_EQ(lLevels[4], 21.0f);
}

// Places.

TEST(BlockPlaces, OfATunedSweepFollowTheSteps) {
    const Sweep cSweep(100e6f, 200e6f, 10e3f);
    const ZelvarSweepConfiguration& cPlaces = *cSweep.mcSweep;
    EXPECT_FALSE(cPlaces.placeOf(0));
    EXPECT_FALSE(cPlaces.placeOf(30000000));
    EXPECT_FALSE(cPlaces.placeOf(118000669));
    EXPECT_EQ(cPlaces.placeOf(118000670), 0u);
    EXPECT_EQ(cPlaces.placeOf(118000670 + 36005309), 0u);
    EXPECT_EQ(cPlaces.placeOf(118000670 + 36005310), 1u);
    EXPECT_EQ(cPlaces.placeOf(190011290), 2u);
}

TEST(BlockPlaces, BehindTheLastOneAreAnAssertion) {
    const Sweep cSweep(100e6f, 200e6f, 10e3f);
    for (const uint64_t uFrequency : {uint64_t{190011290 + 36005310}, uint64_t{27000000000}, ~uint64_t{0}}) {
        try {
            cSweep.mcSweep->placeOf(uFrequency);
            FAIL() << uFrequency;
        } catch (const utils::FatalError& cError) {
            EXPECT_NE(cError.message().find("muSpectrumBlock < muTotalExpectedBlocks"), std::string::npos);
        }
    }
}

TEST(BlockPlaces, BelowFiftyMegahertzIsTheDirectBlockIfThereIsOne) {
    const Sweep cSweep(20e6f, 150e6f, 10e3f);
    const ZelvarSweepConfiguration& cPlaces = *cSweep.mcSweep;
    EXPECT_EQ(cPlaces.placeOf(0), 0u);
    EXPECT_EQ(cPlaces.placeOf(49999999), 0u);
    EXPECT_FALSE(cPlaces.placeOf(50000000));
    EXPECT_FALSE(cPlaces.placeOf(cSweep.mcPlan.muCentreFirst - 1));
    EXPECT_EQ(cPlaces.placeOf(cSweep.mcPlan.muCentreFirst), 1u);
    EXPECT_EQ(cPlaces.placeOf(cSweep.mcPlan.muCentreLast), cSweep.mcPlan.muStepCount);
}

TEST(BlockPlaces, OfADirectSweepATunedBlockHasNone) {
    const Sweep cSweep(1e6f, 30e6f, 10e3f);
    EXPECT_EQ(cSweep.mcSweep->placeOf(0), 0u);
    for (const uint64_t uFrequency : {uint64_t{50000000}, uint64_t{118000670}, ~uint64_t{0}})
        EXPECT_FALSE(cSweep.mcSweep->placeOf(uFrequency)) << uFrequency;
}

// Whole blocks.

TEST(Reconstruction, LevelsOfEveryWindowAreThoseComputedIndependently) {
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        Sweep cSweep(100e6f, 200e6f, 500e3f, name);
        const uint32_t uSize = cSweep.mcPlan.muFFTSize;
        const std::vector<float> lSamples = noise(uSize);
        const std::vector<double> lWindow = scaledWindow(name, uSize);
        const double fConstant = -20.0 + 15.7678 - 10.0 * std::log10(noiseBandwidth(name)) - 3.0 + 1.5;
        for (uint32_t uPlace = 0; uPlace < cSweep.mcPlan.muTotalExpectedBlocks; ++uPlace) {
            const std::vector<float> lLevels =
                cSweep.levels(blockOf(lSamples, 118000000, false, -20.0f), uPlace, 1.5f);
            ASSERT_TRUE(cSweep.mbDone);
            const BinRange cBins = keptBins(cSweep.mcPlan, uPlace);
            ASSERT_EQ(lLevels.size(), cBins.count());
            for (uint32_t i = 0; i < cBins.count(); i += 7)
                EXPECT_NEAR(lLevels[i],
                            decibels(binMagnitude(lSamples, lWindow, cBins.muFirst + i)) + fConstant, 0.002)
                    << name << " " << i;
        }
    }
}

TEST(Reconstruction, AnInvertedBlockReadsMirroredAboutTheTunedCentre) {
    // A tone 4 MHz above the tuned centre lies below 35 MHz in an inverted block.
    Sweep cSweep(100e6f, 200e6f, 20e3f);
    const uint32_t uSize = cSweep.mcPlan.muFFTSize;
    const double fUsualBin = 39e6 / (125e6 / uSize), fInvertedBin = 31e6 / (125e6 / uSize);
    const auto peakOf = [](const std::vector<float>& lLevels) {
        return std::max_element(lLevels.begin(), lLevels.end()) - lLevels.begin();
    };
    const auto lUsual = cSweep.levels(blockOf(tone(uSize, fUsualBin), 118000670), 0);
    const auto lInverted = cSweep.levels(blockOf(tone(uSize, fInvertedBin), 118000670, true), 0);
    ASSERT_TRUE(cSweep.mbDone);
    ASSERT_EQ(lUsual.size(), lInverted.size());
    EXPECT_LE(std::abs(peakOf(lUsual) - peakOf(lInverted)), 1);
    EXPECT_NEAR(*std::max_element(lUsual.begin(), lUsual.end()),
                *std::max_element(lInverted.begin(), lInverted.end()), 0.5);
}

TEST(Reconstruction, AnInvertedBlockOfADirectSweepIsLoggedAndWritesNothing) {
    Sweep cSweep(1e6f, 30e6f, 500e3f);
    takeLogTexts();
    const auto lLevels = cSweep.levels(blockOf(noise(cSweep.mcPlan.muFFTSize), 0, true), 0);
    EXPECT_FALSE(cSweep.mbDone);
    EXPECT_THAT(lLevels, testing::Each(777.0f));
    EXPECT_THAT(takeLogTexts(), Contains("Bins of the block at CF: 0Hz lie outside its spectrum"));
}

TEST(Reconstruction, ABlockTooShortForItsBinsWritesNothing) {
    Sweep cSweep(100e6f, 200e6f, 500e3f);
    const auto lLevels = cSweep.levels(blockOf(noise(64), 118000000), 0);
    EXPECT_FALSE(cSweep.mbDone);
    EXPECT_THAT(lLevels, testing::Each(777.0f));
}

TEST(Reconstruction, ALastStepWithoutBinsIsWhole) {
    Sweep cSweep(100e6f, 352749344.0f, 100e3f, "rectangular");
    const uint32_t uLast = cSweep.mcPlan.muTotalExpectedBlocks - 1;
    ASSERT_EQ(cSweep.mcSweep->binsAt(uLast), 0u);
    for (const bool bInverted : {false, true}) {
        cSweep.levels(blockOf(noise(cSweep.mcPlan.muFFTSize), 0, bInverted), uLast);
        EXPECT_TRUE(cSweep.mbDone);
    }
}

// Flattening.

TEST(Flattening, MultipliesTheWholeHalfBeforeBinsAreKept) {
    // 0 dB at the lower end to 60 dB of loss at the upper one: 1 to a thousandth.
    const auto cFlatten = vnktest::correctionOf({{1, 0}}, {{0, 60000000}});
    ASSERT_TRUE(cFlatten);
    Sweep cPlain(100e6f, 200e6f, 500e3f);
    Sweep cFlat(100e6f, 200e6f, 500e3f, "nuttall", cFlatten);
    Sweep cUnasked(100e6f, 200e6f, 500e3f, "nuttall", cFlatten, false);
    const SweepBlock cBlock = blockOf(noise(cPlain.mcPlan.muFFTSize), 118000000);
    const auto lPlain = cPlain.levels(cBlock, 0);
    const auto lFlat = cFlat.levels(cBlock, 0);
    EXPECT_EQ(cUnasked.levels(cBlock, 0), lPlain);
    const uint32_t uHalf = cPlain.mcPlan.muFFTSize / 2;
    for (uint32_t i = 0; i < lPlain.size(); ++i) {
        // Two points: the first half of the bins lies between them, the second half on the last.
        const double fX = 2.0 * (cPlain.mcPlan.muSHBinFirst + i) / uHalf;
        const double fFactor = fX < 1.0 ? (1.0 - fX) + fX * 1e-3 : 1e-3;
        EXPECT_NEAR(lFlat[i], lPlain[i] + decibels(fFactor), 0.001) << i;
    }
}

TEST(Flattening, TakesTheVectorOfTheBlocksFrequency) {
    const auto cFlatten = vnktest::correctionOf({{100000, 0}, {200000, 1}}, {{20000000}, {-6000000}});
    ASSERT_TRUE(cFlatten);
    Sweep cPlain(20e6f, 300e6f, 500e3f);
    Sweep cFlat(20e6f, 300e6f, 500e3f, "nuttall", cFlatten);
    struct {
        uint64_t muFrequencyHz;
        double mfdB;
    } const cRows[] = {{0, -20.0}, {99999992, -20.0}, {100000000, 6.0}, {150000000, 6.0}, {900000000, 6.0}};
    for (const auto& cRow : cRows) {
        const SweepBlock cBlock = blockOf(noise(cPlain.mcPlan.muFFTSize), cRow.muFrequencyHz);
        EXPECT_NEAR(cFlat.levels(cBlock, 1)[5], cPlain.levels(cBlock, 1)[5] + cRow.mfdB, 0.001)
            << cRow.muFrequencyHz;
    }
}

TEST(Flattening, ARowWithoutAVectorIsAnAssertion) {
    const auto cFlatten = vnktest::correctionOf({{100000, 1}}, {{0}});
    ASSERT_TRUE(cFlatten);
    Sweep cFlat(100e6f, 200e6f, 500e3f, "nuttall", cFlatten);
    std::vector<float> lLevels(cFlat.mcSweep->binsAt(0));
    EXPECT_THROW(
        cFlat.mcSweep->reconstruct(blockOf(noise(cFlat.mcPlan.muFFTSize), 1), 0, 0.0f, lLevels.data()),
        utils::FatalError);
}

TEST(Flattening, WithoutCorrectionDataASweepThatAsksIsServedWithoutThem) {
    Sweep cAsking(100e6f, 200e6f, 500e3f, "nuttall", nullptr, true);
    Sweep cPlain(100e6f, 200e6f, 500e3f, "nuttall", nullptr, false);
    const SweepBlock cBlock = blockOf(noise(cPlain.mcPlan.muFFTSize), 118000000);
    EXPECT_EQ(cAsking.levels(cBlock, 0), cPlain.levels(cBlock, 0));
}
