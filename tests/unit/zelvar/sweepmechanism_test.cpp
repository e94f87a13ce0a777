#include "zelvar/sweepmechanism.h"

#include <gmock/gmock.h>

#include <random>
#include <thread>

#include "flows/spectrumframe.h"
#include "support/enginefixture.h"
#include "unit/zelvar/correctiondata.h"
#include "unit/zelvar/iqfixture.h"
#include "unit/zelvar/receiversupport.h"
#include "unit/zelvar/spectrumreference.h"
#include "zelvar/sweepplan.h"

using namespace vnktest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kStop = ":SWEep:LIST:STOP; :SYSTEM:FLUSH";

/// 100 MHz to 200 MHz at 2 MHz, unless told otherwise: three blocks of one packet of 256 samples.
class SweepMechanismTest : public EngineFixture<SpectrumFrameSink> {
 protected:
    SweepMechanismTest() {
        mcSCPI->reply(":SWEEP:LIST:STATUS?", "STOPPED");
        set("FMaxHz", 200e6f);
        set("FMinHz", 100e6f);
        set("RBWHz", 2e6f);
        set("WindowFn", std::string("nuttall"));
        set("RefdBm", -20.0f);
        make("ZV350-C");
        mcSCPI->mcOnSend = [this](const std::string& text) {
            if (text.rfind("SWEEP:LIST:START ", 0) == 0)
                mcEngine->handleExtensionContext(streamContext(numberOf(text)));
        };
    }
    ~SweepMechanismTest() override { mcSCPI->mcOnSend = nullptr; }

    void make(const std::string& model, ReferencePtr<_IFBWFlatten> cFlatten = nullptr) {
        mcEngine = ReferencePtr<_SweepMechanism>(new _SweepMechanism(
            mcContext, mcStream, *findModel(model), kRanges, [this] { return mcDataProtocol; }, cFlatten));
        mcEngine->takeInStream();
        takeLog(true);
    }
    SweepPlan plan() {
        std::string message;
        return planSweep(*readSweepRequest(mcStream->getParameters()), 2.7e10f, message).value();
    }
    void start(bool bContinuous = true) {
        ASSERT_TRUE(mcEngine->start(bContinuous));
        mcSCPI->take();
        takeLog(true);
        mcPlan = plan();
    }
    uint64_t frequencyOf(uint32_t uPlace) const {
        if (mcPlan.mbHasDDBlock && uPlace-- == 0)
            return 0;
        return mcPlan.muCentreFirst + uPlace * mcPlan.muCentreStep;
    }
    void feed(const std::vector<int>& lItems, uint32_t uSeconds = 0, uint64_t uPicoseconds = 0,
              uint32_t uTrailer = 0) {
        PacketBytes cBytes;
        for (const int iItem : lItems)
            cBytes.i16(iItem);
        cBytes.at(uSeconds, uPicoseconds);
        if (uTrailer)
            cBytes.trailer(uTrailer);
        mcEngine->handleIFDataI14(cBytes.as<IFDataI14>(kIFDataI14));
    }
    void block(uint32_t uPlace, const std::vector<int>& lItems, uint32_t uTrailer = 0) {
        mcEngine->handleReceiverContext(receiverContext(frequencyOf(uPlace)));
        for (uint32_t i = 0; i < mcPlan.muPacketsPerBlock; ++i)
            feed({lItems.begin() + i * mcPlan.muSamplesPerPacket,
                  lItems.begin() + (i + 1) * mcPlan.muSamplesPerPacket},
                 0, 0, uTrailer);
    }
    static std::vector<int> noise(uint32_t uCount, uint32_t uSeed) {
        std::mt19937 cRandom(uSeed);
        std::vector<int> lItems(uCount);
        for (int& iItem : lItems)
            iItem = static_cast<int>(cRandom() % 16001) - 8000;
        return lItems;
    }
    std::vector<int> blockNoise(uint32_t uSeed) const {
        return noise(mcPlan.muSamplesPerPacket * mcPlan.muPacketsPerBlock, uSeed);
    }
    ReferencePtr<SpectrumFrame> next() {
        return dynamicReferenceCast<SpectrumFrame>(mcStream->nextFrame(0, false));
    }
    static std::vector<float> binsOf(const ReferencePtr<SpectrumFrame>& cFrame) {
        uint32_t uCount = 0;
        const float* pBins = cFrame->getSpectrum(uCount);
        return {pBins, pBins + uCount};
    }
    /// The spectrum of these blocks, computed in double precision.
    std::vector<double> expected(const std::vector<std::vector<int>>& lBlocks, double fReference) const {
        const std::vector<double> lWindow = scaledWindow("nuttall", mcPlan.muFFTSize);
        const double fConstant = fReference + 15.7678 - 10.0 * std::log10(noiseBandwidth("nuttall")) - 3.0;
        std::vector<double> lLevels;
        for (uint32_t uPlace = 0; uPlace < lBlocks.size(); ++uPlace) {
            std::vector<float> lSamples;
            for (const int iItem : lBlocks[uPlace])
                lSamples.push_back(static_cast<float>(iItem) / 8192.0f);
            const BinRange cBins = keptBins(mcPlan, uPlace);
            for (uint32_t uBin = cBins.muFirst; uBin <= cBins.muLast; ++uBin)
                lLevels.push_back(decibels(binMagnitude(lSamples, lWindow, uBin)) + fConstant);
        }
        return lLevels;
    }
    void expectSpectrum(const std::vector<std::vector<int>>& lBlocks, double fReference = -30.0) {
        const auto cFrame = next();
        ASSERT_TRUE(cFrame);
        const std::vector<float> lBins = binsOf(cFrame);
        const std::vector<double> lExpected = expected(lBlocks, fReference);
        ASSERT_EQ(lBins.size(), lExpected.size());
        ASSERT_EQ(lBins.size(), mcPlan.muTotalBins);
        for (size_t i = 0; i < lBins.size(); ++i)
            ASSERT_NEAR(lBins[i], lExpected[i], 0.01) << i;
    }

    ReferencePtr<VITA49ZelvarProtocol> mcDataProtocol;
    ReferencePtr<_SweepMechanism> mcEngine;
    SweepPlan mcPlan;
};

}  // namespace

// Commands.

TEST_F(SweepMechanismTest, AStartSendsTheListTheGainsAndTheStart) {
    set("RBWHz", 10e3f);
    set("RefdBm", -5.0f);
    ASSERT_TRUE(mcEngine->start(true));
    EXPECT_THAT(
        mcSCPI->take(),
        ElementsAre(":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:att:var 0;"
                    ":sweep:entry:mode SH;:sweep:entry:freq:step 36005310;"
                    ":sweep:entry:freq:cent 118000670, 190011290;:sweep:entry:spp 32768;"
                    ":sweep:entry:ppb 1;:sweep:entry:dec 1;:sweep:entry:save",
                    "SYST:ERR?", ":INPUT:GAIN 1 1; :INPUT:GAIN 2 0", "SWEEP:LIST:START 1"));
}

TEST_F(SweepMechanismTest, AModelWithoutGainStagesIsSentNoGains) {
    make("ZV100-A");
    ASSERT_TRUE(mcEngine->start(false));
    EXPECT_THAT(mcSCPI->take(), ElementsAre(testing::StartsWith(":sweep:entry:delete all;:sweep:entry:new;"
                                                                ":sweep:list:iter 1;:sweep:entry:att 0;"),
                                            "SYST:ERR?", "SWEEP:LIST:START 1"));
}

TEST_F(SweepMechanismTest, AListThatTheUnitRefusesIsNotFollowedByGainsOrAStart) {
    mcSCPI->reply("SYST:ERR?", "-222,\"Data out of range\"");
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(mcSCPI->take(), ElementsAre(testing::_, "SYST:ERR?"));
}

TEST_F(SweepMechanismTest, ASpanThatCannotBeSweptIsUnreasonable) {
    set("FMaxHz", 101e6f);
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6008, "Sweep parameters (min,max,rbw) unreasonable"}));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(SweepMechanismTest, OneHertzOverTheWholeUnitIsRefusedAndAllElseGoesOn) {
    set("FMaxHz", 2.7e10f);
    set("FMinHz", 9e3f);
    set("RBWHz", 1.0f);
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    set("RBWHz", 1e7f);
    EXPECT_TRUE(mcEngine->start(true));
}

TEST_F(SweepMechanismTest, TheUnitsOwnEndIsTheHighestCentre) {
    // The ranges of the device tell it, not the request.
    set("FMaxHz", 2.7e10f);
    set("FMinHz", 2.69e10f);
    set("RBWHz", 1e6f);
    start();
    EXPECT_LE(static_cast<float>(mcPlan.muCentreLast), 2.7e10f);
    EXPECT_LT(mcPlan.mfFStop, 2.7e10f + 18e6f);
}

TEST_F(SweepMechanismTest, AStopEmptiesTheDataLink) {
    start();
    mcDataProtocol = makeReference<VITA49ZelvarProtocol>(nullptr);
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_TRUE(mcEngine->stop());
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 100u);  // five quiet passes
    EXPECT_THAT(mcSCPI->take(), ElementsAre(kStop, ":SWEEP:LIST:STATUS?"));
}

// Packets.

TEST_F(SweepMechanismTest, EachPacketHasItsLine) {
    start();
    mcEngine->handleReceiverContext(receiverContext(118000670));
    mcEngine->handleDigitizerContext(digitizerContext(-20 * 128));
    mcEngine->handleExtensionContext(sweepContext(5));
    mcEngine->handleExtensionContext(streamContext(1));
    feed(noise(256, 1));
    feed({});
    feed(noise(128, 1));
    mcEngine->handleIFDataI14(nullptr);
    mcEngine->handleExtensionContext(streamContext(2));
    feed(noise(256, 1));
    EXPECT_THAT(
        takeLogTexts(),
        ElementsAre("Sweep RxContext", "Sweep DigitizerContext", "Sweep ExtensionContext",
                    "Sweep ExtensionContext with stream ID:1", "valid VITA49Zelvar::IFDataI14 received",
                    "VITA49Zelvar::IFDataI14 contains no data", "VITA49Zelvar::IFDataI14 data size incorrect",
                    "interpretI14 called with cPacket==nullptr", "Sweep ExtensionContext with stream ID:2",
                    "Invalid I14 packet received (stream ID incorrect)"));
}

TEST_F(SweepMechanismTest, AContextWithoutAStreamIdentifierChangesNothing) {
    start();
    mcEngine->handleExtensionContext(sweepContext(99));
    mcEngine->handleReceiverContext(receiverContext(118000670));
    feed(noise(256, 1));
    EXPECT_EQ(mcEngine->queuedBlocks(), 1u);
    mcEngine->handleExtensionContext(streamContext(99));
    feed(noise(256, 1));
    EXPECT_EQ(mcEngine->queuedBlocks(), 1u);
}

TEST_F(SweepMechanismTest, WhatTheDigitizerDoesNotTellStays) {
    start();
    const auto lItems = blockNoise(1);
    mcEngine->handleDigitizerContext(digitizerContext(-20 * 128));
    block(0, lItems);
    // Contexts that tell of other things.
    mcEngine->handleDigitizerContext(PacketBytes().u32(0).as<DigitizerContext>(kDigitizerContext));
    block(1, lItems);
    mcEngine->handleReceiverContext(PacketBytes().u32(0).as<ReceiverContext>(kReceiverContext));
    block(2, lItems);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum({lItems, lItems, lItems}, -20.0);
}

TEST_F(SweepMechanismTest, AFractionOfAHertzIsRounded) {
    start();
    const auto context = [](uint64_t uSteps) {
        return PacketBytes().u32(1u << 27).u64(uSteps).as<ReceiverContext>(kReceiverContext);
    };
    const uint64_t uExact = mcPlan.muCentreFirst << 20;
    mcEngine->handleReceiverContext(context(uExact - (1u << 19)));  // half a hertz below counts up
    feed(noise(256, 1));
    mcEngine->handleReceiverContext(context(uExact - (1u << 19) - 1));  // just more is below the sweep
    feed(noise(256, 1));
    takeLog(true);
    for (uint32_t i = 1; i < 3; ++i)
        block(i, noise(256, 1));
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(takeLogTexts(), Contains("Block at CF: " + std::to_string(mcPlan.muCentreFirst - 1) +
                                         "Hz lies outside the sweep"));
    EXPECT_TRUE(next());
}

TEST_F(SweepMechanismTest, TheReferenceLevelIsThatOfEachBlock) {
    start();
    const auto lItems = blockNoise(3);
    for (uint32_t i = 0; i < 3; ++i) {
        mcEngine->handleDigitizerContext(digitizerContext(-static_cast<int>(i) * 10 * 128));
        block(i, lItems);
    }
    EXPECT_TRUE(mcEngine->process());
    const std::vector<float> lBins = binsOf(next());
    const std::vector<double> lExpected = expected({lItems, lItems, lItems}, 0.0);
    const uint32_t uWidth = keptBins(mcPlan, 0).count();
    for (uint32_t i = 0; i < lBins.size(); ++i)
        EXPECT_NEAR(lBins[i], lExpected[i] - 10.0 * (i / uWidth), 0.01) << i;
}

// Spectra.

TEST_F(SweepMechanismTest, ATunedSweepIsTheSpectrumOfItsBlocks) {
    start();
    const std::vector<std::vector<int>> lBlocks = {blockNoise(1), blockNoise(2), blockNoise(3)};
    for (uint32_t i = 0; i < 3; ++i)
        block(i, lBlocks[i]);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum(lBlocks);
}

TEST_F(SweepMechanismTest, ADirectSweepIsTheSpectrumOfItsBlock) {
    set("FMinHz", 1e6f);
    set("FMaxHz", 40e6f);
    start();
    ASSERT_EQ(mcPlan.muStepCount, 0u);
    const auto lItems = blockNoise(1);
    for (int i = 0; i < 5; ++i)
        block(0, lItems);  // the queue of a sweep without steps has no limit
    EXPECT_EQ(mcEngine->queuedBlocks(), 5u);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum({lItems});
}

TEST_F(SweepMechanismTest, ADirectSweepIgnoresATunedBlock) {
    set("FMinHz", 1e6f);
    set("FMaxHz", 40e6f);
    start();
    for (const uint64_t uFrequency : {uint64_t{50000000}, uint64_t{118000670}, uint64_t{26000000000}}) {
        mcEngine->handleReceiverContext(receiverContext(uFrequency));
        feed(noise(256, 9));
    }
    const auto lItems = blockNoise(1);
    block(0, lItems);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum({lItems});
    EXPECT_FALSE(next());
}

TEST_F(SweepMechanismTest, AMixedSweepJoinsItsBlocksOfSeveralPackets) {
    set("FMinHz", 30e6f);
    set("FMaxHz", 60e6f);
    set("RBWHz", 4e3f);
    start();
    ASSERT_TRUE(mcPlan.mbHasDDBlock);
    ASSERT_EQ(mcPlan.muPacketsPerBlock, 2u);
    const uint32_t uBlocks = mcPlan.muTotalExpectedBlocks;
    ASSERT_EQ(uBlocks, 2u);
    const std::vector<std::vector<int>> lBlocks = {blockNoise(1), blockNoise(2)};
    for (uint32_t i = 0; i < uBlocks; ++i)
        block(i, lBlocks[i]);
    EXPECT_TRUE(mcEngine->process());
    const auto lBins = binsOf(next());
    ASSERT_EQ(lBins.size(), mcPlan.muTotalBins);
    // Some bins of each block, and those at the joint.
    const std::vector<double> lWindow = scaledWindow("nuttall", mcPlan.muFFTSize);
    const double fConstant = -30.0 + 15.7678 - 10.0 * std::log10(noiseBandwidth("nuttall")) - 3.0;
    const BinRange cDirect = keptBins(mcPlan, 0), cTuned = keptBins(mcPlan, 1);
    const auto expectBin = [&](uint32_t uBlock, uint32_t uBin, uint32_t uAt) {
        const std::vector<float> lSamples(lBlocks[uBlock].begin(), lBlocks[uBlock].end());
        EXPECT_NEAR(lBins[uAt], decibels(binMagnitude(lSamples, lWindow, uBin) / 8192.0) + fConstant, 0.01)
            << uAt;
    };
    expectBin(0, cDirect.muFirst, 0);
    expectBin(0, cDirect.muLast, cDirect.count() - 1);
    expectBin(1, cTuned.muFirst, cDirect.count());
    expectBin(1, cTuned.muLast, mcPlan.muTotalBins - 1);
}

TEST_F(SweepMechanismTest, AnInvertedBlockIsTheMirroredSlice) {
    start();
    const auto lItems = blockNoise(4);
    for (uint32_t i = 0; i < 3; ++i)
        block(i, lItems, i == 1 ? kInverted : kValid);
    EXPECT_TRUE(mcEngine->process());
    const std::vector<float> lBins = binsOf(next());
    const std::vector<float> lSamples(lItems.begin(), lItems.end());
    const std::vector<double> lWindow = scaledWindow("nuttall", 256);
    const double fConstant = -30.0 + 15.7678 - 10.0 * std::log10(noiseBandwidth("nuttall")) - 3.0;
    const uint32_t uWidth = mcPlan.muSHBinLast - mcPlan.muSHBinFirst + 1;
    for (uint32_t i = 0; i < uWidth; ++i) {
        // Of 128 the centre is 72: from bin 128 on, shifted by 128 - 144.
        const uint32_t uBin = 128 + mcPlan.muSHBinFirst - 16 + i;
        EXPECT_NEAR(lBins[uWidth + i], decibels(binMagnitude(lSamples, lWindow, uBin) / 8192.0) + fConstant,
                    0.01)
            << i;
    }
}

TEST_F(SweepMechanismTest, OneInversionBitAloneIsNone) {
    start();
    const auto lItems = blockNoise(4);
    block(0, lItems, 1u << kInversionEnable);
    block(1, lItems, 1u << kInversion);
    block(2, lItems);
    EXPECT_TRUE(mcEngine->process());
    expectSpectrum({lItems, lItems, lItems});
}

TEST_F(SweepMechanismTest, AFrameHasItsTimesAndWhatWasRealised) {
    start();
    const uint64_t uPicoseconds[] = {500000000, 600000000, 700000999};
    for (uint32_t i = 0; i < 3; ++i) {
        mcEngine->handleReceiverContext(receiverContext(frequencyOf(i)));
        feed(blockNoise(1), 1700000000, uPicoseconds[i]);
    }
    EXPECT_TRUE(mcEngine->process());
    const auto cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
    EXPECT_EQ(cFrame->getTimestamp(kNanoseconds), 1700000000000500000u);
    EXPECT_EQ(cFrame->duration(),
              200000u - 1 + 256 * 8);  // 256 samples at 125 MHz behind the last block's time
    EXPECT_EQ(cFrame->timeResolution(), 3u);
    EXPECT_EQ(cFrame->rbw(), mcPlan.mfActualRBW);
    EXPECT_EQ(cFrame->windowName(), "nuttall");
    EXPECT_EQ(cFrame->referenceLevel(), -20.0f);
    EXPECT_EQ(cFrame->bandwidth(), mcPlan.mfFStop - mcPlan.mfFStart);
    EXPECT_NEAR(cFrame->centreFrequency(), (mcPlan.mfFStop + mcPlan.mfFStart) / 2, 8.0f);
    EXPECT_EQ(cFrame->getParameters(false).getText("units"), "dBm");
}

TEST_F(SweepMechanismTest, AChangeToWhatIsRealisedRestartsNothing) {
    start();
    set("FMaxHz", mcPlan.mfFStop);
    set("FMinHz", mcPlan.mfFStart);
    set("RBWHz", mcPlan.mfActualRBW);
    set("flatten", true);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    set("RBWHz", mcPlan.mfActualRBW / 2);
    EXPECT_THAT(mcSCPI->take(), ElementsAre(kStop));
}

TEST_F(SweepMechanismTest, FlatteningIsTakenInWithTheNextConfiguration) {
    make("ZV350-C", correctionOf({{1, 0}}, {{-10000000}}));  // 10 dB of loss to make up for
    start();
    const auto lItems = blockNoise(1);
    const auto sweep = [&] {
        for (uint32_t i = 0; i < 3; ++i)
            block(i, lItems);
        EXPECT_TRUE(mcEngine->process());
        return binsOf(next())[10];
    };
    const float fPlain = sweep();
    set("flatten", true);
    EXPECT_EQ(sweep(), fPlain);
    set("RefdBm", -21.0f);
    ASSERT_TRUE(mcEngine->start(true));
    EXPECT_NEAR(sweep(), fPlain + 10.0f, 0.001f);
}

TEST_F(SweepMechanismTest, PacketsTurnsAndChangesAtOnceAreSafeAndFramesAreWhole) {
    start();
    std::atomic<bool> bDone{false};
    const auto lItems = blockNoise(1);
    std::thread cPackets([&] {
        for (uint32_t i = 0; !bDone; ++i) {
            mcEngine->handleDigitizerContext(digitizerContext(-30 * 128));
            block(i % 3, lItems, i % 7 ? 0 : kInverted);
        }
    });
    std::thread cChanges([&] {
        for (uint32_t i = 0; !bDone; ++i) {
            set("RBWHz", i % 2 ? 2e6f : 3e6f);
            set("RefdBm", static_cast<float>(i % 3) * 10.0f - 40.0f);
            utils::sleepMs(2);
        }
    });
    for (uint32_t i = 0; i < 60; ++i) {
        if (mcEngine->start(i % 3 != 0))
            mcEngine->process();
        mcEngine->stop();
        while (const auto cFrame = next())
            EXPECT_EQ(binsOf(cFrame).size(), mcPlan.muTotalBins);
    }
    mcEngine->removeFrameSink(mcStream);
    bDone = true;
    cPackets.join();
    cChanges.join();
    EXPECT_FALSE(mcStream->isAttached());
}

// A receiver on a unit without a wire.

namespace {

class SweepReceiverTest : public ReceiverTest {
 protected:
    ReferencePtr<SpectrumFrameSink> attach(const ReferencePtr<Device>& cDevice, float fReference,
                                           uint32_t uFrames = 0) {
        const auto cSink = makeReference<SpectrumFrameSink>();
        utils::VariantRecord cRecord;
        cRecord.set("FMinHz", 1e6f);
        cRecord.set("FMaxHz", 30e6f);
        cRecord.set("RBWHz", 2e6f);
        cRecord.set("RefdBm", fReference);
        cRecord.set("captureFrames", uFrames);
        ErrorList lErrors;
        EXPECT_TRUE(cSink->setSinkParameters(cRecord, lErrors, true));
        EXPECT_TRUE(source(cDevice).attachFrameSink(cSink, lErrors));
        return cSink;
    }
    /// How often the unit has been sent a line that begins so.
    size_t sent(const std::string& start) {
        const auto lJournal = mcUnit->journal();
        return static_cast<size_t>(
            std::count_if(lJournal.begin(), lJournal.end(),
                          [&](const std::string& line) { return line.rfind(start, 0) == 0; }));
    }
    /// Answers each start with its identifier and a block, and goes on with blocks where the list is endless.
    void answerStarts(const std::atomic<bool>& bDone) {
        size_t uSeen = 0;
        uint32_t uIdentifier = 0;
        bool bEndless = false;
        const std::vector<uint32_t> lSamples(128, 0x01000200u);
        for (; !bDone; utils::sleepMs(1)) {
            const auto lJournal = mcUnit->journal();
            bool bStarted = false;
            for (; uSeen < lJournal.size(); ++uSeen) {
                const std::string& line = lJournal[uSeen];
                if (line.find(":sweep:list:iter ") != std::string::npos)
                    bEndless = line.find(":sweep:list:iter 0;") != std::string::npos;
                if (line == kStop)
                    uIdentifier = 0;
                if (line.rfind("SWEEP:LIST:START ", 0) != 0)
                    continue;
                uIdentifier = static_cast<uint32_t>(std::stoul(line.substr(17)));
                bStarted = true;
            }
            if (bStarted) {
                mcUnit->sendData(packet(kExtensionContext, {2, uIdentifier}));
                mcUnit->sendData(packet(kReceiverContext, {1u << 27, 0, 0}));
            }
            if (bStarted || (uIdentifier && bEndless))
                mcUnit->sendData(packet(kIFDataI14, lSamples));
        }
    }
};

}  // namespace

TEST_F(SweepReceiverTest, OneStreamRunsOnAnEndlessListWithTheDefaultWindow) {
    mcUnit->reply(":SWEEP:LIST:STATUS?", {"STOPPED\n"});
    auto cDevice = open();
    ASSERT_TRUE(cDevice);
    std::atomic<bool> bDone{false};
    std::thread cUnit([&] { answerStarts(bDone); });
    const auto cSink = attach(cDevice, -20.0f);
    EXPECT_EQ(cSink->getParameters().getText("WindowFn"), "nuttall");
    for (uint32_t i = 0; i < 5; ++i)
        EXPECT_TRUE(cSink->nextFrame(10000, false)) << i;
    EXPECT_EQ(sent(":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 0;:sweep:entry:att:var 0;"
                   ":sweep:entry:mode DD;:sweep:entry:spp 256;:sweep:entry:ppb 1;:sweep:entry:save"),
              1u);
    EXPECT_EQ(sent("SWEEP:LIST:START "), 1u);
    EXPECT_EQ(cDevice->getParameters().getBool("SweepActive"), true);
    EXPECT_TRUE(source(cDevice).removeFrameSink(cSink));
    EXPECT_TRUE(waitUntil([&] { return sent(kStop) >= 1; }));
    bDone = true;
    cUnit.join();
    close(cDevice);
    EXPECT_TRUE(allBack());
}

TEST_F(SweepReceiverTest, TwoStreamsInTurnsGetTheirOwnSpectraAndCountsEnd) {
    mcUnit->reply(":SWEEP:LIST:STATUS?", {"STOPPED\n"});
    auto cDevice = open();
    ASSERT_TRUE(cDevice);
    std::atomic<bool> bDone{false};
    std::thread cUnit([&] { answerStarts(bDone); });
    const auto cFirst = attach(cDevice, -20.0f, 3);
    const auto cSecond = attach(cDevice, 5.0f, 4);
    for (uint32_t i = 0; i < 3; ++i) {
        const auto cFrame = cFirst->nextFrame(20000, false);
        ASSERT_TRUE(cFrame) << i;
        EXPECT_EQ(cFrame->sequence(), i);
        EXPECT_EQ(cFrame->referenceLevel(), -20.0f);
    }
    for (uint32_t i = 0; i < 4; ++i) {
        const auto cFrame = cSecond->nextFrame(20000, false);
        ASSERT_TRUE(cFrame) << i;
        EXPECT_EQ(cFrame->sequence(), i);
        EXPECT_EQ(cFrame->referenceLevel(), 5.0f);
    }
    EXPECT_TRUE(waitUntil([&] { return !cFirst->isAttached() && !cSecond->isAttached(); }));
    EXPECT_FALSE(cFirst->nextFrame(0, false));
    EXPECT_FALSE(cSecond->nextFrame(0, false));
    bDone = true;
    cUnit.join();
    close(cDevice);
    EXPECT_TRUE(allBack());
}
