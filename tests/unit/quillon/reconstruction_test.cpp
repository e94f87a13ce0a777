#include <gmock/gmock.h>

#include <complex>
#include <random>

#include "dsp/windowfunctions.h"
#include "quillon/ranges.h"
#include "quillon/sweepconfiguration.h"
#include "quillon/sweepplan.h"
#include "receivers/blockgatherer.h"
#include "support/logs.h"
#include "unit/zelvar/correctiondata.h"
#include "unit/zelvar/spectrumreference.h"

using testing::Contains;
using vnktest::binMagnitude;
using vnktest::decibels;
using vnktest::noiseBandwidth;
using vnktest::scaledWindow;
using vnktest::takeLogTexts;

namespace {

using Samples = std::vector<std::complex<float>>;

constexpr double kRateHz = 122.88e6;

Samples noise(uint32_t uCount, uint32_t uSeed = 1) {
    std::mt19937 cRandom(uSeed);
    std::normal_distribution<float> cLevels(0.0f, std::sqrt(0.5f));
    Samples lSamples(uCount);
    for (auto& cSample : lSamples)
        cSample = {cLevels(cRandom), cLevels(cRandom)};
    return lSamples;
}

/// A complex tone, `fTurns` to the sample.
Samples tone(uint32_t uCount, double fTurns, double fAmplitude = 1.0) {
    Samples lSamples(uCount);
    for (uint32_t i = 0; i < uCount; ++i)
        lSamples[i] = std::complex<float>(std::polar(fAmplitude, 2.0 * std::numbers::pi * fTurns * i + 0.3));
    return lSamples;
}

SweepBlock blockOf(const Samples& lSamples, uint64_t uFrequencyHz = 0, float fReference = -30.0f,
                   bool bInverted = false) {
    auto cSamples = makeReference<FloatArray>(static_cast<uint32_t>(2 * lSamples.size()));
    for (size_t i = 0; i < lSamples.size(); ++i) {
        cSamples->getData()[2 * i] = lSamples[i].real();
        cSamples->getData()[2 * i + 1] = lSamples[i].imag();
    }
    return {uFrequencyHz, 0, fReference, bInverted, cSamples};
}

/// A sweep with its plan.
struct Sweep {
    Sweep(float fMin, float fMax, float fRBW, const std::string& window = "nuttall",
          ReferencePtr<_IFBWFlatten> cFlatten = nullptr, bool bFlatten = true) {
        SweepRequest cRequest{fMin, fMax, fRBW};
        cRequest.mcWindowName = window;
        cRequest.mbFlatten = bFlatten;
        std::string message;
        mcPlan = Quillon::planSweep(cRequest, 2e10f, message).value();
        mcSweep = makeReference<QuillonSweepConfiguration>(cRequest, mcPlan, cFlatten);
    }

    uint64_t centreOf(uint32_t uPlace) const { return mcPlan.muCentreFirst + uPlace * mcPlan.muCentreStep; }
    double binHz() const { return kRateHz / mcPlan.muFFTSize; }
    /// Where a bin of the block at a place lies.
    double frequencyOf(uint32_t uPlace, double fBin) const {
        return static_cast<double>(centreOf(uPlace)) + (fBin - mcPlan.muFFTSize / 2.0) * binHz();
    }
    /// Where a frame of this sweep shows a bin of the whole.
    double axisHz(size_t uIndex) const {
        const double fStart = mcPlan.mfFStart, fStop = mcPlan.mfFStop;
        return fStart + (fStop - fStart) * static_cast<double>(uIndex) / (mcPlan.muTotalBins - 1.0);
    }

    std::vector<float> levels(const SweepBlock& cBlock, uint32_t uPlace, float fUserCaldB = 0.0f) {
        std::vector<float> lLevels(mcSweep->binsAt(uPlace) + 1, 777.0f);
        mbDone = mcSweep->reconstruct(cBlock, uPlace, fUserCaldB, lLevels.data());
        EXPECT_EQ(lLevels.back(), 777.0f);  // nothing is written behind them
        lLevels.pop_back();
        return lLevels;
    }
    /// What a receiver gives that sees a tone: blocks in which it lies in the band, and empty ones.
    std::vector<float> spectrumOf(double fHz, double fAmplitude, float fReference) {
        std::vector<float> lAll;
        for (uint32_t uPlace = 0; uPlace < mcPlan.muStepCount; ++uPlace) {
            const double fTurns = (fHz - static_cast<double>(centreOf(uPlace))) / kRateHz;
            const double fPresent = std::abs(fTurns) < 0.5 ? fAmplitude : 1e-9;
            const SweepBlock cBlock =
                blockOf(tone(mcPlan.muFFTSize, fTurns, fPresent), centreOf(uPlace), fReference);
            EXPECT_EQ(mcSweep->placeOf(cBlock.muFrequencyHz), uPlace);
            const std::vector<float> lLevels = levels(cBlock, uPlace);
            lAll.insert(lAll.end(), lLevels.begin(), lLevels.end());
        }
        EXPECT_EQ(lAll.size(), mcPlan.muTotalBins);
        return lAll;
    }

    SweepPlan mcPlan;
    ReferencePtr<QuillonSweepConfiguration> mcSweep;
    bool mbDone = false;
};

size_t peakOf(const std::vector<float>& lLevels) {
    return static_cast<size_t>(std::max_element(lLevels.begin(), lLevels.end()) - lLevels.begin());
}

/// What a window leaves of a tone that lies so many bins from a bin's centre, in dB.
double windowLoss(const std::string& name, uint32_t uFFTSize, double fBins) {
    const Samples lTone = tone(uFFTSize, fBins / uFFTSize);
    return decibels(binMagnitude(lTone, scaledWindow(name, uFFTSize), 0));
}

}  // namespace

// What the engine is told.

TEST(QuillonSweepConfiguration, TellsTheEngineOfComplexSamplesAtTheOneRate) {
    const Sweep cSweep(100e6f, 400e6f, 200e3f);
    EXPECT_EQ(cSweep.mcSweep->muValuesPerSample, 2u);
    EXPECT_EQ(cSweep.mcSweep->muSampleRateHz, 122880000u);
    EXPECT_EQ(cSweep.mcSweep->mcPlan.muTotalBins, cSweep.mcPlan.muTotalBins);
}

TEST(QuillonSweepConfiguration, HoldsTheReferenceLevelAndKnowsNeitherCountsNorFlowControl) {
    SweepRequest cRequest{100e6f, 400e6f, 200e3f};
    std::string message;
    const SweepPlan cPlan = Quillon::planSweep(cRequest, 2e10f, message).value();
    cRequest.mfRefdBm = 15.0f;
    cRequest.muCaptureFrames = 3;
    cRequest.mbFlowControl = true;
    const QuillonSweepConfiguration cSweep(cRequest, cPlan, nullptr);
    EXPECT_EQ(cSweep.mcRequest.mfRefdBm, 10.0f);
    EXPECT_EQ(cSweep.mcRequest.muCaptureFrames, 0u);
    EXPECT_FALSE(cSweep.mcRequest.mbFlowControl);
    EXPECT_EQ(cSweep.mcRequest.mfMaxHz, 400e6f);
}

TEST(QuillonSweepConfiguration, PlacesFollowTheSteps) {
    const Sweep cSweep(100e6f, 400e6f, 200e3f);
    const QuillonSweepConfiguration& cPlaces = *cSweep.mcSweep;
    const uint64_t uFirst = 149143010, uStep = 98345990;
    for (const uint64_t uBelow : {uint64_t{0}, uFirst - 1, uFirst, uFirst + 1, uFirst + uStep - 1})
        EXPECT_EQ(cPlaces.placeOf(uBelow), 0u) << uBelow;
    EXPECT_EQ(cPlaces.placeOf(uFirst + uStep), 1u);
    EXPECT_EQ(cPlaces.placeOf(uFirst + 2 * uStep - 1), 1u);
    EXPECT_EQ(cPlaces.placeOf(cSweep.mcPlan.muCentreLast), 3u);
}

TEST(QuillonSweepConfiguration, PlacesBehindTheLastOneAreOutOfTurnAndNoAssertion) {
    const Sweep cSweep(100e6f, 400e6f, 200e3f);
    EXPECT_EQ(cSweep.mcSweep->placeOf(cSweep.mcPlan.muCentreLast + cSweep.mcPlan.muCentreStep), 4u);
    for (const uint64_t uFrequency : {uint64_t{20000000000}, uint64_t{1} << 40, ~uint64_t{0}})
        EXPECT_GE(cSweep.mcSweep->placeOf(uFrequency).value_or(0), cSweep.mcPlan.muTotalExpectedBlocks);
    SweepPlan cTiny = cSweep.mcPlan;
    cTiny.muCentreStep = 1;
    const QuillonSweepConfiguration cPlaces(cSweep.mcSweep->mcRequest, cTiny, nullptr);
    EXPECT_EQ(cPlaces.placeOf(~uint64_t{0}), 0xFFFFFFFFu);
}

TEST(QuillonSweepConfiguration, BlocksAddUpToTheSpectrum) {
    for (const float fRBW : {1e5f, 1e6f, 1e8f}) {
        const Sweep cSweep(20e6f, 1e9f, fRBW);
        uint32_t uTotal = 0;
        for (uint32_t uPlace = 0; uPlace < cSweep.mcPlan.muTotalExpectedBlocks; ++uPlace)
            uTotal += cSweep.mcSweep->binsAt(uPlace);
        EXPECT_EQ(uTotal, cSweep.mcPlan.muTotalBins);
    }
}

// Levels and bins against the definition.

TEST(QuillonReconstruction, LevelsOfEveryWindowAreThoseComputedIndependently) {
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        Sweep cSweep(100e6f, 400e6f, 2e6f, name);
        const uint32_t uSize = cSweep.mcPlan.muFFTSize;
        const Samples lSamples = noise(uSize);
        const std::vector<double> lWindow = scaledWindow(name, uSize);
        const double fConstant = -20.0 - 10.0 * std::log10(noiseBandwidth(name));
        for (uint32_t uPlace = 0; uPlace < cSweep.mcPlan.muTotalExpectedBlocks; ++uPlace) {
            const auto lLevels = cSweep.levels(blockOf(lSamples, cSweep.centreOf(uPlace), -20.0f), uPlace);
            ASSERT_TRUE(cSweep.mbDone);
            for (uint32_t i = 0; i < lLevels.size(); i += 5) {
                const uint32_t uBin = cSweep.mcPlan.muSHBinFirst + i;
                // The lowest frequency comes first: the upper half of the transform.
                const double fExpected = binMagnitude(lSamples, lWindow, (uBin + uSize / 2) % uSize);
                EXPECT_NEAR(lLevels[i], decibels(fExpected) + fConstant, 0.003) << name << " " << uBin;
            }
        }
    }
}

TEST(QuillonReconstruction, TheUsersCalibrationDoesNotEnter) {
    Sweep cSweep(100e6f, 400e6f, 2e6f);
    const SweepBlock cBlock = blockOf(noise(cSweep.mcPlan.muFFTSize));
    EXPECT_EQ(cSweep.levels(cBlock, 1, 20.0f), cSweep.levels(cBlock, 1, 0.0f));
}

TEST(QuillonReconstruction, InvertedBlocksHaveBeenPutRightBefore) {
    Sweep cSweep(100e6f, 400e6f, 2e6f);
    const Samples lSamples = noise(cSweep.mcPlan.muFFTSize);
    EXPECT_EQ(cSweep.levels(blockOf(lSamples, 0, -30.0f, true), 0), cSweep.levels(blockOf(lSamples), 0));
}

TEST(QuillonReconstruction, AToneOfFullScaleIsTheReferenceLevelLessTheNoiseBandwidth) {
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        Sweep cSweep(100e6f, 400e6f, 200e3f, name);
        const double fExpected = -7.5 - 10.0 * std::log10(noiseBandwidth(name));
        for (const uint32_t uShare : {9u, 5u, 3u, 2u}) {  // of the band, from its low end
            const uint32_t uBin = cSweep.mcPlan.muSHBinFirst + cSweep.mcSweep->binsAt(1) / uShare;
            const auto lLevels = cSweep.spectrumOf(cSweep.frequencyOf(1, uBin), 1.0, -7.5f);
            EXPECT_NEAR(lLevels[peakOf(lLevels)], fExpected, 0.02) << name << " " << uBin;
        }
    }
}

TEST(QuillonReconstruction, NoiseReadsAsItsPowerInABinWhateverTheWindow) {
    for (const char* pWindow : {"rectangular", "hann", "nuttall", "flattop"}) {
        Sweep cSweep(100e6f, 400e6f, 100e3f, pWindow);
        const uint32_t uSize = cSweep.mcPlan.muFFTSize;
        double fPower = 0.0;
        uint32_t uCount = 0;
        for (uint32_t uSeed = 1; uSeed <= 8; ++uSeed)
            for (const float fLevel : cSweep.levels(blockOf(noise(uSize, uSeed), 0, 0.0f), 0)) {
                fPower += std::pow(10.0, double{fLevel} / 10.0);
                ++uCount;
            }
        EXPECT_NEAR(10.0 * std::log10(fPower / uCount * uSize), 0.0, 0.2) << pWindow;
    }
}

// Tones of known frequency and level.

TEST(QuillonReconstruction, ATonesBinAndAxisAreRightWhereverItLies) {
    struct {
        float mfMin, mfMax, mfRBW;
        const char* mpWindow;
    } const cRows[] = {{9e3f, 80e6f, 100e3f, "rectangular"},
                       {100e6f, 400e6f, 200e3f, "nuttall"},
                       {433e6f, 660e6f, 1e6f, "flattop"},
                       {2.4e9f, 2.7e9f, 300e3f, "hann"},
                       {5e9f, 5.4e9f, 10e6f, "nuttall"}};
    for (const auto& cRow : cRows) {
        Sweep cSweep(cRow.mfMin, cRow.mfMax, cRow.mfRBW, cRow.mpWindow);
        const SweepPlan& cPlan = cSweep.mcPlan;
        // Half a bin, and a little for an axis that begins at the edge of a bin and ends in the middle of
        // one. Centres are multiples of 10 Hz, and of what a float can tell apart.
        const double fAxis =
            0.6 * cSweep.binHz() + 10.0 + 3.0 * double{std::nextafter(cRow.mfMax, 1e12f) - cRow.mfMax};
        size_t uBefore = 0;
        for (uint32_t uPlace = 0; uPlace < cPlan.muStepCount; ++uPlace) {
            const uint32_t uBins = cSweep.mcSweep->binsAt(uPlace);
            for (uint32_t uBin : {0u, 1u, uBins / 7, uBins / 2, uBins - 2, uBins - 1}) {
                SCOPED_TRACE(testing::Message() << cRow.mfMin << " block " << uPlace << " bin " << uBin);
                const double fHz = cSweep.frequencyOf(uPlace, cPlan.muSHBinFirst + uBin);
                const auto lLevels = cSweep.spectrumOf(fHz, std::pow(10.0, -12.0 / 20.0), -20.0f);
                EXPECT_EQ(peakOf(lLevels), uBefore + uBin);
                EXPECT_NEAR(cSweep.axisHz(uBefore + uBin), fHz, fAxis);
                EXPECT_NEAR(lLevels[uBefore + uBin], -32.0 - 10.0 * std::log10(noiseBandwidth(cRow.mpWindow)),
                            0.05);
            }
            uBefore += uBins;
        }
    }
}

TEST(QuillonReconstruction, ATonesLevelBetweenBinsIsWhatTheWindowLeaves) {
    for (const char* pWindow : {"rectangular", "hann", "nuttall", "flattop"}) {
        Sweep cSweep(100e6f, 400e6f, 1e6f, pWindow);
        const double fTop = -30.0 - 10.0 * std::log10(noiseBandwidth(pWindow));
        for (double fOffset = -0.5; fOffset < 0.5; fOffset += 0.0625) {
            const uint32_t uInner = cSweep.mcSweep->binsAt(1) / 3;
            const double fHz = cSweep.frequencyOf(1, cSweep.mcPlan.muSHBinFirst + uInner + fOffset);
            const auto lLevels = cSweep.spectrumOf(fHz, 1.0, -30.0f);
            EXPECT_NEAR(lLevels[cSweep.mcSweep->binsAt(0) + uInner],
                        fTop + windowLoss(pWindow, cSweep.mcPlan.muFFTSize, fOffset), 0.01)
                << pWindow << " " << fOffset;
        }
    }
}

TEST(QuillonReconstruction, AToneThatPassesTheJointOfTwoBlocksNeitherDisappearsNorShowsTwice) {
    for (const char* pWindow : {"rectangular", "nuttall"}) {
        Sweep cSweep(100e6f, 300e6f, 300e3f, pWindow);
        const uint32_t uSize = cSweep.mcPlan.muFFTSize;
        const uint32_t uJoint = cSweep.mcSweep->binsAt(0);
        const double fLast = cSweep.frequencyOf(0, cSweep.mcPlan.muSHBinLast);
        const double fTop = -30.0 - 10.0 * std::log10(noiseBandwidth(pWindow));
        size_t uBefore = uJoint - 4;
        for (double fBins = -3.0; fBins <= 4.0; fBins += 0.1) {
            const double fHz = fLast + fBins * cSweep.binHz();
            const auto lLevels = cSweep.spectrumOf(fHz, 1.0, -30.0f);
            const size_t uPeak = peakOf(lLevels);
            EXPECT_NEAR(cSweep.axisHz(uPeak), fHz, cSweep.binHz()) << pWindow << " " << fBins;
            EXPECT_GE(lLevels[uPeak], fTop + windowLoss(pWindow, uSize, 0.65)) << pWindow << " " << fBins;
            EXPECT_GE(uPeak, uBefore);  // it moves one way
            EXPECT_LE(uPeak, uBefore + 1);
            uBefore = uPeak;
            // One tone has one main lobe.
            for (size_t i = 0; i < lLevels.size(); ++i)
                if (i + 5 < uPeak || i > uPeak + 5) {
                    EXPECT_LT(lLevels[i], lLevels[uPeak] - 8.0f) << i;
                }
        }
        EXPECT_GE(uBefore, uJoint + 2);
    }
}

// Blocks of many packets.

TEST(QuillonReconstruction, ABlockOfManyPacketsIsTransformedAsOne) {
    Sweep cSweep(1e9f, 1.15e9f, 2e3f, "hann");
    const SweepPlan& cPlan = cSweep.mcPlan;
    ASSERT_GT(cPlan.muPacketsPerBlock, 3u);
    const double fHz = cSweep.frequencyOf(1, cPlan.muSHBinFirst + 777);
    BlockGatherer cGatherer;
    const uint32_t uValues = cPlan.muSamplesPerPacket * cSweep.mcSweep->muValuesPerSample;
    cGatherer.begin(uValues, cPlan.muPacketsPerBlock,
                    uint64_t{cPlan.muSamplesPerPacket} * 1000000000 / 122880000);
    cGatherer.setFrequency(cSweep.centreOf(1));
    cGatherer.setReferenceLevel(-12.0f);
    const SweepBlock cWhole =
        blockOf(tone(cPlan.muFFTSize, (fHz - static_cast<double>(cSweep.centreOf(1))) / kRateHz), 0, -12.0f);
    std::optional<SweepBlock> cBlock;
    for (uint32_t i = 0; i < cPlan.muPacketsPerBlock; ++i) {
        ASSERT_FALSE(cBlock);
        const auto cSamples = makeReference<FloatArray>(uValues);
        std::copy_n(cWhole.mcSamples->getData() + size_t{i} * uValues, uValues, cSamples->getData());
        const uint64_t uTimeNs = uint64_t{i} * cPlan.muSamplesPerPacket * 1000000000 / 122880000;
        const auto cResult = cGatherer.take({cSamples, uTimeNs, i % 16, false, cGatherer.epoch()});
        ASSERT_EQ(cResult.meOutcome, BlockGatherer::Outcome::kTaken);
        cBlock = cResult.mcBlock;
    }
    ASSERT_TRUE(cBlock);
    EXPECT_EQ(cSweep.mcSweep->placeOf(cBlock->muFrequencyHz), 1u);
    const auto lLevels = cSweep.levels(*cBlock, 1);
    EXPECT_EQ(lLevels, cSweep.levels(cWhole, 1));
    EXPECT_EQ(peakOf(lLevels), 777u);
    EXPECT_NEAR(lLevels[777], -12.0 - 10.0 * std::log10(1.5), 0.01);
}

// What cannot be transformed.

TEST(QuillonReconstruction, ABlockTooShortForItsBinsIsLoggedAndWritesNothing) {
    Sweep cSweep(100e6f, 400e6f, 2e6f);
    for (const uint32_t uCount : {64u, 129u, 230u}) {
        takeLogTexts();
        const auto lLevels = cSweep.levels(blockOf(noise(uCount), 149143010), 0);
        EXPECT_FALSE(cSweep.mbDone) << uCount;
        EXPECT_THAT(lLevels, testing::Each(777.0f));
        const auto lTexts = takeLogTexts();
        EXPECT_THAT(lTexts, Contains(testing::StartsWith("expected IDataSize:" + std::to_string(uCount))));
        EXPECT_THAT(lTexts, Contains("Bins of the block at CF: 149143010Hz lie outside its spectrum"));
    }
    cSweep.levels(blockOf(noise(cSweep.mcPlan.muFFTSize)), 0);
    EXPECT_TRUE(cSweep.mbDone);  // and back
}

TEST(QuillonReconstruction, SamplesBehindTheTransformsLengthDoNotCount) {
    Sweep cSweep(100e6f, 400e6f, 2e6f);
    Samples lSamples = noise(cSweep.mcPlan.muFFTSize + 100);
    const auto lLong = cSweep.levels(blockOf(lSamples), 0);
    lSamples.resize(cSweep.mcPlan.muFFTSize);
    EXPECT_EQ(cSweep.levels(blockOf(lSamples), 0), lLong);
}

TEST(QuillonReconstruction, NothingAtAllIsMinusInfinityAndWhatIsNoNumberStaysNone) {
    Sweep cSweep(100e6f, 400e6f, 2e6f);
    const uint32_t uSize = cSweep.mcPlan.muFFTSize;
    EXPECT_THAT(cSweep.levels(blockOf(Samples(uSize)), 0),
                testing::Each(-std::numeric_limits<float>::infinity()));
    Samples lSamples(uSize);
    lSamples[7] = {std::numeric_limits<float>::quiet_NaN(), 0.0f};
    EXPECT_THAT(cSweep.levels(blockOf(lSamples), 0), testing::Each(testing::IsNan()));
}

// Flattening.

TEST(QuillonFlattening, MultipliesTheWholeBandFromTheLowestFrequencyUpBeforeBinsAreKept) {
    // 0 dB at the lower end to 60 dB of loss at the upper one: 1 to a thousandth.
    const auto cFlatten = vnktest::correctionOf({{1, 0}}, {{0, 60000000}});
    ASSERT_TRUE(cFlatten);
    Sweep cPlain(100e6f, 400e6f, 2e6f);
    Sweep cFlat(100e6f, 400e6f, 2e6f, "nuttall", cFlatten);
    Sweep cUnasked(100e6f, 400e6f, 2e6f, "nuttall", cFlatten, false);
    const SweepBlock cBlock = blockOf(noise(cPlain.mcPlan.muFFTSize), 149143010);
    const auto lPlain = cPlain.levels(cBlock, 0);
    const auto lFlat = cFlat.levels(cBlock, 0);
    EXPECT_EQ(cUnasked.levels(cBlock, 0), lPlain);
    for (uint32_t i = 0; i < lPlain.size(); ++i) {
        // Two points: the first half of the bins lies between them, the second half on the last.
        const double fX = 2.0 * (cPlain.mcPlan.muSHBinFirst + i) / cPlain.mcPlan.muFFTSize;
        const double fFactor = fX < 1.0 ? (1.0 - fX) + fX * 1e-3 : 1e-3;
        EXPECT_NEAR(lFlat[i], lPlain[i] + decibels(fFactor), 0.001) << i;
    }
}

TEST(QuillonFlattening, TakesTheVectorOfTheBlocksFrequency) {
    const auto cFlatten = vnktest::correctionOf({{100000, 0}, {200000, 1}}, {{20000000}, {-6000000}});
    ASSERT_TRUE(cFlatten);
    Sweep cPlain(20e6f, 300e6f, 2e6f);
    Sweep cFlat(20e6f, 300e6f, 2e6f, "nuttall", cFlatten);
    struct {
        uint64_t muFrequencyHz;
        double mfdB;
    } const cRows[] = {{99999992, -20.0}, {100000000, 6.0}, {900000000, 6.0}};
    for (const auto& cRow : cRows) {
        const SweepBlock cBlock = blockOf(noise(cPlain.mcPlan.muFFTSize), cRow.muFrequencyHz);
        EXPECT_NEAR(cFlat.levels(cBlock, 1)[5], cPlain.levels(cBlock, 1)[5] + cRow.mfdB, 0.001)
            << cRow.muFrequencyHz;
    }
}
