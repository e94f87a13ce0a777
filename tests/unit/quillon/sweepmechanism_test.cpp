#include "quillon/sweepmechanism.h"

#include <gmock/gmock.h>

#include <complex>
#include <random>

#include "flows/spectrumframe.h"
#include "quillon/ranges.h"
#include "quillon/sweepplan.h"
#include "receivers/reconstruction.h"
#include "support/enginefixture.h"
#include "support/iqframes.h"
#include "support/logs.h"
#include "unit/quillon/quillonpackets.h"
#include "unit/zelvar/spectrumreference.h"

using namespace vnktest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A finer resolution than a device takes, so that blocks of several packets are short enough for a test.
constexpr StreamRanges kRanges{
    {9000.0f, 2e10f}, {9000.0f, 2e10f}, {1.0f, 2e10f}, Quillon::kIFBWRange, Quillon::kReferenceLevelRange};

/// 100 MHz to 350 MHz at 1 MHz, unless told otherwise: three blocks of one packet of 512 samples.
class QuillonSweep : public EngineFixture<SpectrumFrameSink> {
 protected:
    QuillonSweep() {
        set("FMaxHz", 350e6f);
        set("FMinHz", 100e6f);
        set("RBWHz", 1e6f);
        set("WindowFn", std::string("nuttall"));
        set("RefdBm", -20.0f);
        mcSCPI->reply(":SWEEP:LIST:STATUS?", "STOPPED");
        mcEngine = makeReference<Quillon::_SweepMechanism>(
            mcContext, mcStream, kRanges, [] { return ReferencePtr<VITA49Protocol>(); }, nullptr);
        mcEngine->takeInStream();
        mcSCPI->mcOnSend = [this](const std::string& text) {
            if (text.rfind("SWEEP:LIST:START ", 0) == 0)
                mcEngine->handleExtensionContext(identifierContext(kStreamBit, numberOf(text)));
        };
        takeLog(true);
    }
    ~QuillonSweep() override { mcSCPI->mcOnSend = nullptr; }

    void start(bool bContinuous = true) {
        ASSERT_TRUE(mcEngine->start(bContinuous));
        mcSCPI->take();
        takeLog(true);
        std::string message;
        mcPlan = Quillon::planSweep(*readSweepRequest(mcStream->getParameters()), 2e10f, message).value();
    }
    uint64_t centreOf(uint32_t uPlace) const { return mcPlan.muCentreFirst + uPlace * mcPlan.muCentreStep; }
    void feed(const Pairs& lPairs, DataForm cForm = {}) {
        cForm.muSequence = muCount++;
        mcEngine->handleIFData(dataOf(lPairs, cForm));
    }
    void block(uint32_t uPlace, const Pairs& lPairs, const DataForm& cForm = {}) {
        mcEngine->handleIFContext(tunedTo(centreOf(uPlace)));
        const uint32_t uSamples = mcPlan.muSamplesPerPacket;
        for (uint32_t i = 0; i < mcPlan.muPacketsPerBlock; ++i)
            feed({lPairs.begin() + i * uSamples, lPairs.begin() + (i + 1) * uSamples}, cForm);
    }
    Pairs noise(uint32_t uSeed) const {
        std::mt19937 cRandom(uSeed);
        Pairs lPairs(mcPlan.muFFTSize);
        for (auto& [iI, iQ] : lPairs) {
            iI = static_cast<int>(cRandom() % 40001) - 20000;
            iQ = static_cast<int>(cRandom() % 40001) - 20000;
        }
        return lPairs;
    }
    void sweep(uint32_t uSeed) {
        for (uint32_t i = 0; i < mcPlan.muStepCount; ++i)
            block(i, noise(uSeed + i));
    }
    ReferencePtr<SpectrumFrame> next() {
        return dynamicReferenceCast<SpectrumFrame>(mcStream->nextFrame(0, false));
    }
    /// The next frame is the spectrum of these blocks, computed in double precision.
    void expectSpectrum(const std::vector<Pairs>& lBlocks, const std::vector<double>& lReferences) {
        const auto cFrame = next();
        ASSERT_TRUE(cFrame);
        uint32_t uCount = 0;
        const float* pBins = cFrame->getSpectrum(uCount);
        ASSERT_EQ(uCount, mcPlan.muTotalBins);
        const std::vector<double> lWindow = scaledWindow("nuttall", mcPlan.muFFTSize);
        for (uint32_t uPlace = 0; uPlace < lBlocks.size(); ++uPlace) {
            std::vector<std::complex<double>> lSamples;
            for (const auto& [iI, iQ] : lBlocks[uPlace])
                lSamples.emplace_back(iI / 32768.0, iQ / 32768.0);
            const BinRange cBins = tunedBins(mcPlan, uPlace);
            const double fConstant = lReferences[uPlace] - 10.0 * std::log10(noiseBandwidth("nuttall"));
            for (uint32_t uBin = cBins.muFirst; uBin <= cBins.muLast; ++uBin) {
                // The lowest frequency first.
                const uint32_t uTransformed = (uBin + mcPlan.muFFTSize / 2) % mcPlan.muFFTSize;
                const double fLevel = decibels(binMagnitude(lSamples, lWindow, uTransformed)) + fConstant;
                ASSERT_NEAR(*pBins++, fLevel, 0.01) << uPlace << " " << uBin;
            }
        }
    }

    ReferencePtr<Quillon::_SweepMechanism> mcEngine;
    SweepPlan mcPlan;
    uint32_t muCount = 0;
};

}  // namespace

// Commands.

TEST_F(QuillonSweep, AStartSendsTheLevelThenTheListThenTheStart) {
    ASSERT_TRUE(mcEngine->start(true));
    std::string message;
    const SweepPlan cPlan = Quillon::planSweep(*readSweepRequest(mcStream->getParameters()), 2e10f, message).value();
    EXPECT_EQ(cPlan.muStepCount, 3u);
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre(":DEBUG:REFERENCE:LEVEL -20",
                            ":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:freq:step " +
                                std::to_string(cPlan.muCentreStep) + ";:sweep:entry:freq:cent " +
                                std::to_string(cPlan.muCentreFirst) + ", " + std::to_string(cPlan.muCentreLast) +
                                ";:sweep:entry:spp 512;:sweep:entry:ppb 1;:sweep:entry:dec 1;:sweep:entry:save",
                            "SYST:ERR?", "SWEEP:LIST:START 1"));
}

TEST_F(QuillonSweep, FlowControlDoesNotChangeTheList) {
    set("flowControl", true);
    ASSERT_TRUE(mcEngine->start(true));
    EXPECT_THAT(mcSCPI->take(), Contains(testing::HasSubstr(":sweep:list:iter 0;")));
    start(false);
    ASSERT_TRUE(mcEngine->start(true));
    mcSCPI->take();
    start();
    block(0, noise(1));
    EXPECT_THAT(mcSCPI->take(), IsEmpty()) << "no block asks for the next list";
}

TEST_F(QuillonSweep, TheReferenceLevelIsHeldBeforeItIsSent) {
    for (const auto& [fLevel, pSent] : {std::pair<float, const char*>{15.0f, "10"}, {-77.0f, "-40"}, {9.9f, "9"}}) {
        const auto cStream = makeReference<SpectrumFrameSink>();
        utils::VariantRecord cRecord(R"({"FMinHz":100000000.0,"FMaxHz":350000000.0,"RBWHz":1000000.0})");
        cRecord.set("RefdBm", fLevel);
        ErrorList lErrors;
        ASSERT_TRUE(cStream->setSinkParameters(cRecord, lErrors, true));
        mcEngine = makeReference<Quillon::_SweepMechanism>(mcContext, cStream, kRanges, nullptr, nullptr);
        ASSERT_TRUE(mcEngine->start(false));
        EXPECT_THAT(mcSCPI->take().front(), std::string(":DEBUG:REFERENCE:LEVEL ") + pSent);
    }
}

TEST_F(QuillonSweep, AListThatTheUnitRefusesIsNotStarted) {
    mcSCPI->reply("SYST:ERR?", "-222,\"Data out of range\"");
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":DEBUG:REFERENCE:LEVEL -20", testing::_, "SYST:ERR?"));
}

TEST_F(QuillonSweep, OnlyEdgesAndResolutionRestartARunningSweep) {
    start();
    set("RefdBm", 0.0f);
    set("WindowFn", std::string("hann"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    set("FMaxHz", 360e6f);
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":SWEep:LIST:STOP; :SYSTEM:FLUSH"));
}

// Packets.

TEST_F(QuillonSweep, DataBeforeTheFirstContextsHaveTheirLines) {
    feed(Pairs(512, {1, 1}));
    EXPECT_THAT(takeLogTexts(), ElementsAre("Invalid IFData packet received (mbSweepDataValid == false)"));
    start();
    mcEngine->handleIFContext(levelOf(-20));
    takeLog(true);
    feed(noise(1));
    EXPECT_THAT(takeLogTexts(),
                ElementsAre("Out-of-context IFData packet received (muRxFCentreHz == kInvalidU64)"));
    mcEngine->handleExtensionContext(identifierContext(kStreamBit, 9));
    mcEngine->handleIFContext(tunedTo(centreOf(0)));
    takeLog(true);
    feed(noise(1));
    EXPECT_THAT(takeLogTexts(), ElementsAre("Invalid IFData packet received (mbSweepDataValid == false)"));
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
}

TEST_F(QuillonSweep, ABlockOfOnePacketHasItsLines) {
    start();
    mcEngine->handleIFContext(rawTuning(uint64_t{149500000} << 20, -20 * 128));
    feed(noise(1));
    EXPECT_THAT(takeLogTexts(),
                ElementsAre("IFContext FCentre:1.4950e+08Hz, ref level -20.0000",
                            "muConvertFCentreHz set to 1.4950e+08", "VITA49::IFData::Ptr received",
                            "IQ is interpreted as block 1/1",
                            "IQ block at 1.4950e+08 is complete - added to spectrum frame assembly list"));
    EXPECT_EQ(mcEngine->queuedBlocks(), 1u);
}

TEST_F(QuillonSweep, ABlockOfTwoPacketsKeepsTheFrequencyOfItsFirst) {
    set("RBWHz", 10e3f);
    start();
    ASSERT_EQ(mcPlan.muPacketsPerBlock, 2u);
    mcEngine->handleIFContext(tunedTo(200000000));
    takeLog(true);
    feed(Pairs(32768, {1, 1}));
    EXPECT_THAT(takeLogTexts(), ElementsAre("muConvertFCentreHz set to 2.0000e+08", "VITA49::IFData::Ptr received",
                                            "IQ is interpreted as block 1/2"));
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
    feed(Pairs(32768, {1, 1}));
    EXPECT_THAT(takeLogTexts(),
                ElementsAre("VITA49::IFData::Ptr received", "IQ is interpreted as block 2/2",
                            "IQ block at 2.0000e+08 is complete - added to spectrum frame assembly list"));
    EXPECT_EQ(mcEngine->queuedBlocks(), 1u);
}

TEST_F(QuillonSweep, WrongSizesHaveTheirLines) {
    start();
    mcEngine->handleIFContext(tunedTo(centreOf(0)));
    takeLog(true);
    feed({});
    EXPECT_THAT(takeLogTexts(), ElementsAre("VITA49::IFData contains no data"));
    feed(Pairs(511, {1, 1}));
    EXPECT_THAT(takeLogTexts(), ElementsAre("VITA49::IFData data size incorrect"));
    feed(Pairs(1024, {1, 1}));
    EXPECT_THAT(takeLogTexts(), ElementsAre("VITA49::IFData data size incorrect"));
    feed(Pairs(512, {1, 1}), {.mbFormat = false});   // nobody has said how it is read
    EXPECT_THAT(takeLogTexts(), ElementsAre("VITA49::IFData contains no data"));
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
}

TEST_F(QuillonSweep, TheQueueHoldsTwoSweeps) {
    start();
    for (uint32_t i = 0; i < 10; ++i) {
        sweep(3 * i);
        EXPECT_LE(mcEngine->queuedBlocks(), 6u);
    }
}

// Spectra.

TEST_F(QuillonSweep, ASweepIsTheSpectrumOfItsBlocks) {
    start();
    const std::vector<Pairs> lBlocks = {noise(1), noise(2), noise(3)};
    for (uint32_t i = 0; i < 3; ++i)
        block(i, lBlocks[i]);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum(lBlocks, {-30.0, -30.0, -30.0});
}

TEST_F(QuillonSweep, TheReferenceLevelIsThatOfEachBlockAndCalibrationDoesNotEnter) {
    set("UserCaldB", 6.0f);
    start();
    const std::vector<double> lReferences = {-128.0, 0.0, 10.0};
    const std::vector<Pairs> lBlocks = {noise(1), noise(2), noise(3)};
    for (uint32_t i = 0; i < 3; ++i) {
        mcEngine->handleIFContext(levelOf(static_cast<int>(lReferences[i])));
        block(i, lBlocks[i]);
    }
    set("UserCaldB", -6.0f);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum(lBlocks, lReferences);
}

TEST_F(QuillonSweep, InvertedPacketsAreConjugatedAsTheyAreDecoded) {
    start();
    std::vector<Pairs> lBlocks = {noise(1), noise(2), noise(3)};
    for (uint32_t i = 0; i < 3; ++i)
        block(i, lBlocks[i], {.mcTrailer = kInverted});
    EXPECT_TRUE(mcEngine->process());
    for (Pairs& lPairs : lBlocks)
        for (auto& [iI, iQ] : lPairs)
            iQ = -iQ;
    expectSpectrum(lBlocks, {-30.0, -30.0, -30.0});
}

TEST_F(QuillonSweep, AFrameTellsItsSweep) {
    start();
    sweep(1);
    EXPECT_TRUE(mcEngine->process());
    const auto cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->timeResolution(), 3u);
    EXPECT_EQ(cFrame->getTimestamp(kNanoseconds), 1700000000123456789u);
    // The packets of the test have one time: what is left is one block at 122.88 MHz, less a nanosecond.
    EXPECT_EQ(cFrame->duration(), uint64_t{512} * 1000000000 / 122880000 - 1);
    EXPECT_EQ(cFrame->rbw(), mcPlan.mfActualRBW);
    EXPECT_EQ(cFrame->getParameters(false).getText("units"), "dBm");
}

TEST_F(QuillonSweep, ABlockOutOfTurnStaysOutAndTheNextFirstBlockBeginsAnew) {
    mcSCPI->reply(":SWEEP:LIST:STATUS?", "RUNNING");   // asked for in the silence
    start();
    block(0, noise(1));
    block(2, noise(3));
    mcEngine->process();
    EXPECT_THAT(takeLogTexts(), Contains("Out of order block #2 at CF: " + std::to_string(centreOf(2)) +
                                         "Hz. Expected #0 at " + std::to_string(centreOf(0)) + "Hz"));
    EXPECT_FALSE(next());
    const std::vector<Pairs> lBlocks = {noise(11), noise(12), noise(13)};
    for (uint32_t i = 0; i < 3; ++i)
        block(i, lBlocks[i]);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum(lBlocks, {-30.0, -30.0, -30.0});
    EXPECT_FALSE(next());
}

TEST_F(QuillonSweep, AConsumerThatIsBehindCatchesUpByAWholeSweep) {
    start();
    sweep(1);
    sweep(11);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
    expectSpectrum({noise(11), noise(12), noise(13)}, {-30.0, -30.0, -30.0});
    EXPECT_FALSE(next());
}

TEST_F(QuillonSweep, ACountOfFramesIsNotUsed) {
    set("captureFrames", uint32_t{1});
    start();
    for (uint32_t i = 0; i < 3; ++i) {
        sweep(i);
        EXPECT_TRUE(mcEngine->process());
        ASSERT_TRUE(next());
        EXPECT_TRUE(mcStream->isAttached());
    }
}
