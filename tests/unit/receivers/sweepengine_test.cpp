#include "receivers/sweepengine.h"

#include <gmock/gmock.h>

#include <limits>
#include <thread>

#include "unit/receivers/plainsweepengine.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using vnktest::LogLine;
using vnktest::PlainSweepEngine;
using vnktest::takeLog;
using vnktest::takeLogTexts;

namespace {

constexpr const char* kStop = ":SWEep:LIST:STOP; :SYSTEM:FLUSH";

class SweepEngineTest : public vnktest::SweepEngineFixture {};

SweepBlock blockAt(uint64_t uFrequencyHz) {
    return {uFrequencyHz, 0, 0.0f, false, nullptr};
}

std::vector<uint64_t> frequenciesOf(const std::list<SweepBlock>& lBlocks) {
    std::vector<uint64_t> lFrequencies;
    for (const SweepBlock& cBlock : lBlocks)
        lFrequencies.push_back(cBlock.muFrequencyHz);
    return lFrequencies;
}

/// What stays of a queue of these frequencies in a sweep from 10 to 30.
std::vector<uint64_t> afterDrop(std::initializer_list<uint64_t> lFrequencies, uint32_t uSteps = 3) {
    SweepPlan cPlan;
    cPlan.muStepCount = uSteps;
    cPlan.muCentreFirst = 10;
    cPlan.muCentreLast = uSteps == 1 ? 10 : 30;
    std::list<SweepBlock> lQueue, lDropped;
    for (const uint64_t uFrequency : lFrequencies)
        lQueue.push_back(blockAt(uFrequency));
    dropOldestSweep(lQueue, cPlan, lDropped);
    EXPECT_EQ(lQueue.size() + lDropped.size(), lFrequencies.size());
    return frequenciesOf(lQueue);
}

}  // namespace

// The queue's rule.

TEST(SweepQueue, OneWholeSweepGoes) {
    EXPECT_THAT(afterDrop({10, 20, 30, 10, 20, 30, 10}), ElementsAre(10, 20, 30, 10));
}

TEST(SweepQueue, WhatIsOlderThanTheFirstCentreStays) {
    EXPECT_THAT(afterDrop({20, 30, 10, 20, 30, 10, 20}), ElementsAre(20, 30, 10, 20));
    EXPECT_THAT(afterDrop({5, 10, 20, 30, 5, 10, 20}), ElementsAre(5, 5, 10, 20));
}

TEST(SweepQueue, WithoutALastCentreAllFromTheFirstOnGoes) {
    EXPECT_THAT(afterDrop({20, 10, 20, 10, 20}), ElementsAre(20));
}

TEST(SweepQueue, WithoutAFirstCentreNothingGoes) {
    EXPECT_THAT(afterDrop({20, 30, 20, 30, 20, 30, 20}), ElementsAre(20, 30, 20, 30, 20, 30, 20));
}

TEST(SweepQueue, OfASingleStepOneBlockGoes) {
    EXPECT_THAT(afterDrop({10, 10, 10}, 1), ElementsAre(10, 10));
}

TEST(SweepQueue, WithoutStepsNothingCanGo) {
    EXPECT_THAT(afterDrop({10, 10, 0, 10}, 0), ElementsAre(10, 10, 0, 10));
}

TEST_F(SweepEngineTest, AConsumerThatFallsBehindLosesWholeSweeps) {
    startAndForget();
    sweep(0);
    sweep(10);
    EXPECT_EQ(mcEngine->queuedBlocks(), 6u);
    packet(0, 20);
    EXPECT_EQ(mcEngine->queuedBlocks(), 4u);
    packet(1, 21);
    packet(2, 22);
    for (int i = 0; i < 1000; ++i)
        sweep(30);
    EXPECT_LE(mcEngine->queuedBlocks(), 6u);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(30, -30, 31, -30, 32));
}

// Start.

TEST_F(SweepEngineTest, AStartPlansProgramsAndStarts) {
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_TRUE(mcEngine->runsContinuously());
    ASSERT_EQ(mcEngine->mlRequests.size(), 1u);
    EXPECT_EQ(mcEngine->mlRequests[0].mfRBWHz, 100.0f);
    EXPECT_EQ(mcEngine->mlRequests[0].mfRefdBm, -40.0f);
}

TEST_F(SweepEngineTest, AListOfOneIterationIsSentOnceAndStartedAgainInEachTurn) {
    EXPECT_THAT(startCommands(false), ElementsAre("LIST 1", "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_FALSE(mcEngine->runsContinuously());
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(startCommands(false), ElementsAre("SWEEP:LIST:START 1"));
    EXPECT_EQ(mcEngine->mlRequests.size(), 1u);
}

TEST_F(SweepEngineTest, WithFlowControlTheListIsNeverEndless) {
    set("flowControl", true);
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 1", "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_TRUE(mcEngine->runsContinuously());
}

TEST_F(SweepEngineTest, WhatCannotBePlannedIsLoggedAndNothingIsSent) {
    mcEngine->muSteps = 0;
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6008, "not this one"}));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    mcEngine->muSteps = 1;  // each start tries again
    EXPECT_TRUE(mcEngine->start(true));
}

TEST_F(SweepEngineTest, AStartThatFailsAtOnceIsNotTriedAgainWithoutAPause) {
    const auto startsInASecond = [&] {
        const uint64_t uBegin = utils::steadyMilliseconds();
        int iStarts = 0;
        while (utils::steadyMilliseconds() - uBegin < 1000) {
            EXPECT_FALSE(mcEngine->start(true));
            ++iStarts;
        }
        return iStarts;
    };
    mcEngine->muSteps = 0;
    EXPECT_LE(startsInASecond(), 12);
    mcEngine->muSteps = 3;
    mcSCPI->reply("SYST:ERR?", "-200,\"Execution error\"");
    EXPECT_LE(startsInASecond(), 12);
    EXPECT_LE(mcSCPI->take().size(), 24u) << "two exchanges to a start";
}

TEST_F(SweepEngineTest, AStreamThatIsGoneCannotBeStarted) {
    mcEngine->removeFrameSink(mcStream);
    EXPECT_FALSE(mcStream->isAttached());
    EXPECT_FALSE(mcEngine->serves(mcStream.get()));
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(SweepEngineTest, PlanningWithoutMemoryFailsTheStartAlone) {
    mcEngine->mcOnConfigure = [](const SweepRequest&) { throw std::bad_alloc(); };
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6008, "No memory for a sweep of this resolution bandwidth"}));
    mcEngine->mcOnConfigure = nullptr;
    EXPECT_TRUE(mcEngine->start(true));
}

TEST_F(SweepEngineTest, WithoutAContextAStartFailsAfterTwoSecondsAndTheNextProgramsAgain) {
    mbUnitAnswers = false;
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(mcEngine->start(true));
    const uint64_t uElapsed = utils::steadyMilliseconds() - uStart;
    EXPECT_GE(uElapsed, 2000u);
    EXPECT_LT(uElapsed, 8000u);
    EXPECT_FALSE(mcEngine->runsContinuously());
    mbUnitAnswers = true;
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 2"));
}

TEST_F(SweepEngineTest, AStoppingReceiverLeavesTheWaitEarly) {
    mbUnitAnswers = false;
    mcChannel->setStopTest([] { return true; });
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 1500u);
}

TEST_F(SweepEngineTest, AListThatTheUnitRefusesFailsTheStart) {
    mcSCPI->reply("SYST:ERR?", "-200,\"Execution error\"");
    EXPECT_FALSE(mcEngine->start(true));
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6009, "Command 'LIST 0' generated Execution error"}));
    EXPECT_THAT(mcSCPI->take(), ElementsAre("LIST 0", "SYST:ERR?"));
    mcSCPI->reply("SYST:ERR?", "0,\"No error\"");
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 1"));
}

// Programming again.

TEST_F(SweepEngineTest, WhatAnotherEngineHasProgrammedIsReplacedAndTheSequenceGoesOn) {
    set("captureFrames", uint32_t{3});
    for (uint32_t uFrame = 0; uFrame < 3; ++uFrame) {
        mcContext->claimUnit();
        EXPECT_THAT(startCommands(false),
                    ElementsAre("LIST 1", "SYST:ERR?", "SWEEP:LIST:START " + std::to_string(uFrame + 1)));
        sweep(static_cast<float>(uFrame));
        EXPECT_EQ(mcEngine->process(), uFrame < 2);  // the count goes on too
        const auto cFrame = next();
        ASSERT_TRUE(cFrame);
        EXPECT_EQ(cFrame->sequence(), uFrame);
    }
    EXPECT_EQ(mcEngine->mlRequests.size(), 1u);
}

TEST_F(SweepEngineTest, AClaimOfAnotherEndsTheContinuousRunUntilItIsProgrammedAgain) {
    startAndForget();
    mcContext->claimUnit();
    EXPECT_FALSE(mcEngine->runsContinuously());
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 2"));
}

TEST_F(SweepEngineTest, AResetUnitIsProgrammedAgain) {
    startAndForget(false);
    mcChannel->send("*CLS");
    EXPECT_THAT(startCommands(false), ElementsAre("SWEEP:LIST:START 1"));
    mcChannel->send("*RST");
    EXPECT_THAT(startCommands(false), ElementsAre("LIST 1", "SYST:ERR?", "SWEEP:LIST:START 2"));
}

TEST_F(SweepEngineTest, AListThatCeasesToBeAloneIsStoppedAndMadeOneOfOneIteration) {
    startAndForget(true);
    sweep(0);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(startCommands(false),
                ElementsAre(kStop, ":SWEEP:LIST:STATUS?", "LIST 1", "SYST:ERR?", "SWEEP:LIST:START 2"));
    EXPECT_EQ(mcEngine->muDrains, 1u);
    sweep(5);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_EQ(next()->sequence(), 0u);
    EXPECT_EQ(next()->sequence(), 1u);
    EXPECT_FALSE(mcEngine->runsContinuously());
}

TEST_F(SweepEngineTest, AListThatBecomesTheOnlyOneIsMadeEndless) {
    startAndForget(false);
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 2"));
    EXPECT_TRUE(mcEngine->runsContinuously());
}

TEST_F(SweepEngineTest, WithFlowControlBeingAloneChangesNoList) {
    set("flowControl", true);
    startAndForget(false);
    EXPECT_THAT(startCommands(true), ElementsAre("SWEEP:LIST:START 1"));
    EXPECT_THAT(startCommands(false), ElementsAre("SWEEP:LIST:START 1"));
}

TEST_F(SweepEngineTest, AStartForgetsWhatWasGathered) {
    startAndForget(false);
    packet(0, 1);
    packet(1, 2);
    EXPECT_EQ(mcEngine->queuedBlocks(), 2u);
    startAndForget(false);
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
    sweep(10);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(10, -30, 11, -30, 12));
}

// Packets.

TEST_F(SweepEngineTest, DataAreValidOnlyBehindAContextOfThisSweep) {
    mcEngine->noteIdentifier(0);
    EXPECT_FALSE(mcEngine->isDataValid());
    startAndForget();
    EXPECT_TRUE(mcEngine->isDataValid());
    mcEngine->noteIdentifier(7);
    EXPECT_FALSE(mcEngine->isDataValid());
    mcEngine->noteIdentifier(1);
    EXPECT_TRUE(mcEngine->isDataValid());
}

TEST_F(SweepEngineTest, SamplesBeforeAnyPlanAreIgnored) {
    samples(4, 1);
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
}

TEST_F(SweepEngineTest, EachKindOfPacketHasItsLine) {
    startAndForget();
    packet(0, 1);
    samples(3, 1);
    samples(0, 1);
    EXPECT_THAT(takeLogTexts(), ElementsAre("valid", "wrong size", "no data"));
    EXPECT_EQ(mcEngine->queuedBlocks(), 1u);
}

TEST_F(SweepEngineTest, APacketOfUnknownFrequencyIsDropped) {
    startAndForget();
    samples(4, 1);
    EXPECT_THAT(takeLogTexts(), ElementsAre("Packet outside a block dropped"));
    EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
    sweep(5);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(5, -30, 6, -30, 7));
}

TEST_F(SweepEngineTest, AfterAPacketOfAnotherSizeTheNextWholeSweepComes) {
    mcEngine->muPackets = 2;
    startAndForget();
    const auto twice = [&](uint32_t uPlace, float fValue) {
        packet(uPlace, fValue);
        samples(2, fValue);
    };
    twice(0, 1);
    packet(1, 2);
    samples(3, 2);  // spoils the second block
    samples(2, 2);
    twice(2, 3);
    twice(0, 11);
    twice(1, 12);
    twice(2, 13);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(11, -30, 12, -30, 13));
    EXPECT_FALSE(next());
}

TEST_F(SweepEngineTest, FlowControlStartsTheListAgainAtEachFinishedBlockButTheLastFrames) {
    set("flowControl", true);
    set("captureFrames", uint32_t{2});
    mcEngine->muPackets = 2;
    startAndForget(true);
    packet(0, 1);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());  // half a block
    samples(2, 1);
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SWEEP:LIST:START 1"));
    for (uint32_t i = 1; i < 3; ++i) {
        packet(i, 1);
        samples(2, 1);
    }
    EXPECT_THAT(mcSCPI->take(), ElementsAre("SWEEP:LIST:START 1", "SWEEP:LIST:START 1"));
    EXPECT_TRUE(mcEngine->process());
    for (uint32_t i = 0; i < 3; ++i) {
        packet(i, 1);
        samples(2, 1);
    }
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_FALSE(mcEngine->process());
}

TEST_F(SweepEngineTest, WithoutFlowControlOrNotAloneNoBlockStartsAnything) {
    startAndForget(true);
    sweep(0);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    set("flowControl", true);
    ASSERT_TRUE(mcEngine->start(false));
    mcSCPI->take();
    sweep(0);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

// Frames.

TEST_F(SweepEngineTest, AFrameTellsItsSweep) {
    set("RefdBm", -25.0f);
    set("WindowFn", std::string("hann"));
    startAndForget();
    packet(0, 1, 5000);
    packet(1, 2, 7000);
    packet(2, 3, 9000);
    EXPECT_TRUE(mcEngine->process());
    const auto cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
    EXPECT_EQ(cFrame->timeResolution(), 3u);
    EXPECT_EQ(cFrame->getTimestamp(kNanoseconds), 5000u);
    // Four samples at a thousand a second behind the last block's time, less one nanosecond.
    EXPECT_EQ(cFrame->duration(), 9000u - 1 + 4000000u - 5000u);
    EXPECT_EQ(cFrame->rbw(), 100.0f);
    EXPECT_EQ(cFrame->windowName(), "hann");
    const utils::VariantRecord cParameters = cFrame->getParameters(false);
    EXPECT_EQ(cFrame->centreFrequency(), 1.5e6f);
    EXPECT_EQ(cFrame->bandwidth(), 1e6f);
    EXPECT_EQ(cParameters.getText("units"), "dBm");
    EXPECT_EQ(cFrame->referenceLevel(), -25.0f);
    uint32_t uCount = 0;
    cFrame->getSpectrum(uCount);
    EXPECT_EQ(uCount, 5u);
}

TEST_F(SweepEngineTest, ThreeFramesAndTheEndAreDelivered) {
    set("captureFrames", uint32_t{3});
    startAndForget(true);
    for (uint32_t i = 0; i < 4; ++i)
        sweep(static_cast<float>(10 * i));
    // The fourth sweep drives the first one out: the queue holds two.
    for (uint32_t i = 4; i < 6; ++i) {
        EXPECT_TRUE(mcEngine->process()) << i;
        sweep(static_cast<float>(10 * i));
    }
    EXPECT_TRUE(mcStream->isAttached());
    mcSCPI->take();
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(mcSCPI->take(), ElementsAre(kStop, ":SWEEP:LIST:STATUS?"));
    for (uint32_t i = 0; i < 3; ++i) {
        const auto cFrame = next();
        ASSERT_TRUE(cFrame);
        EXPECT_EQ(cFrame->sequence(), i);
    }
    EXPECT_FALSE(mcStream->nextFrame(0, false));
    EXPECT_FALSE(mcStream->isAttached());
    EXPECT_TRUE(mcStream->isExhausted());
}

TEST_F(SweepEngineTest, WithoutACountFramesGoOn) {
    startAndForget(true);
    for (uint32_t i = 0; i < 20; ++i) {
        sweep(0);
        EXPECT_TRUE(mcEngine->process());
        EXPECT_EQ(next()->sequence(), i);
    }
}

TEST_F(SweepEngineTest, ASecondWithoutDataEndsATurn) {
    startAndForget(true);
    packet(0, 1);
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_TRUE(mcEngine->process());
    const uint64_t uElapsed = utils::steadyMilliseconds() - uStart;
    EXPECT_GE(uElapsed, 1000u);
    EXPECT_LT(uElapsed, 4000u);
    // The spectrum goes on in the next turn.
    packet(1, 2);
    packet(2, 3);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(1, -30, 2, -30, 3));
}

TEST_F(SweepEngineTest, AnEndlessListThatSomebodyElseHasStoppedIsProgrammedAgain) {
    startAndForget(true);
    sweep(0);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_TRUE(mcEngine->process());   // a second without data
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":SWEEP:LIST:STATUS?"));
    EXPECT_FALSE(mcEngine->runsContinuously());
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 2"));
    sweep(10);
    EXPECT_TRUE(mcEngine->process());
    ASSERT_TRUE(next());
    const auto cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 1u) << "the sequence goes on";
}

TEST_F(SweepEngineTest, AnEndlessListThatRunsOnIsAskedForOnceInASilenceAndLeftAlone) {
    mcSCPI->reply(":SWEEP:LIST:STATUS?", "RUNNING");
    startAndForget(true);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(mcEngine->process());
        EXPECT_TRUE(mcEngine->process());
        EXPECT_THAT(mcSCPI->take(), ElementsAre(":SWEEP:LIST:STATUS?"));
        EXPECT_TRUE(mcEngine->runsContinuously());
        sweep(0);   // ends the silence
        EXPECT_TRUE(mcEngine->process());
    }
}

TEST_F(SweepEngineTest, AListThatSomebodyElseHasReplacedIsProgrammedAgain) {
    for (const bool bContinuous : {true, false}) {
        startAndForget(bContinuous);
        mcEngine->noteIdentifier(99);
        EXPECT_FALSE(mcEngine->isDataValid());
        EXPECT_TRUE(mcEngine->process());
        EXPECT_THAT(mcSCPI->take(), IsEmpty());
        EXPECT_EQ(startCommands(bContinuous).size(), 3u);
        EXPECT_TRUE(mcEngine->isDataValid());
    }
}

TEST_F(SweepEngineTest, AListThatBringsNothingTurnAfterTurnIsProgrammedAgain) {
    startAndForget(false);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(mcEngine->process());
        EXPECT_THAT(startCommands(false), ElementsAre("SWEEP:LIST:START 1"));
    }
    packet(0, 1);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(startCommands(false), ElementsAre("SWEEP:LIST:START 1")) << "something has come";
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(startCommands(false), ElementsAre("LIST 1", "SYST:ERR?", "SWEEP:LIST:START 2"));
}

TEST_F(SweepEngineTest, AListOfOneIterationThatNeverEndsEndsItsTurn) {
    startAndForget(false);
    std::atomic<bool> bDone{false};
    std::thread cUnit([&] {
        while (!bDone) {
            packet(1, 1);   // never a first block
            utils::sleepMs(1);
        }
    });
    const uint64_t uBegin = utils::steadyMilliseconds();
    EXPECT_TRUE(mcEngine->process());
    EXPECT_LT(utils::steadyMilliseconds() - uBegin, 5000u);
    bDone = true;
    cUnit.join();
    EXPECT_FALSE(next());
}

TEST_F(SweepEngineTest, ASweepWithoutStepsKeepsEachBlockUntilItsConsumerCatchesUp) {
    mcEngine->mbDirect = true;
    mcEngine->muSteps = 1;
    set("captureFrames", uint32_t{500});
    startAndForget();
    for (uint32_t i = 0; i < 500; ++i) {
        packet(0, static_cast<float>(i));
        ASSERT_EQ(mcEngine->queuedBlocks(), i + 1) << "none is given up, none is kept twice";
    }
    for (uint32_t i = 0; i < 500; ++i) {
        EXPECT_EQ(mcEngine->process(), i + 1 < 500);
        EXPECT_THAT(nextBins(), ElementsAre(static_cast<float>(i)));
        EXPECT_EQ(mcEngine->queuedBlocks(), 499 - i);
    }
}

TEST_F(SweepEngineTest, NoOrderOfBlocksMakesAPartialOrAWrongFrame) {
    // A good sweep behind each: the queue's limit is out of the way, since each block is taken at once.
    mcEngine->muSteps = 20;
    const std::vector<std::vector<uint32_t>> lFaults = {
        {1, 2, 3},              // begins in the middle
        {0, 2, 3, 4},           // lost
        {0, 0, 1, 1, 2},        // repeated
        {0, 1, 3, 2, 4},        // reordered
        {19, 18, 0, 19},        // back to front
        {0, 1, 2, 0, 1, 3, 4},  // stale
    };
    for (size_t uFault = 0; uFault < lFaults.size(); ++uFault) {
        startAndForget(true);
        for (const uint32_t uPlace : lFaults[uFault])
            packet(uPlace, -1);
        for (uint32_t uPlace = 0; uPlace < 20; ++uPlace)
            packet(uPlace, static_cast<float>(uPlace));
        EXPECT_TRUE(mcEngine->process());
        const std::vector<float> lBins = nextBins();
        ASSERT_EQ(lBins.size(), 39u) << uFault;
        for (uint32_t i = 0; i < 39; i += 2)
            EXPECT_EQ(lBins[i], static_cast<float>(i / 2)) << uFault;
        EXPECT_FALSE(next());
        EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
        EXPECT_THAT(takeLogTexts(), Contains(testing::MatchesRegex(
                                        "Out of order block #[0-9]+ at CF: [0-9]+Hz. Expected #0 at 1000Hz")))
            << uFault;
    }
}

TEST_F(SweepEngineTest, ABlockOutsideTheSweepIsLoggedAndTheSpectrumGoesOn) {
    startAndForget(true);
    packet(0, 1);
    mcEngine->gatherer().setFrequency(999);
    samples(4, 50);
    packet(1, 2);
    packet(2, 3);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(1, -30, 2, -30, 3));
    EXPECT_THAT(takeLogTexts(), Contains("Block at CF: 999Hz lies outside the sweep"));
}

TEST_F(SweepEngineTest, ABlockBehindTheLastPlaceIsAnAssertionAndTheNextSweepIsWhole) {
    startAndForget(true);
    packet(0, 1);
    packet(3, 1);
    sweep(10);
    EXPECT_THROW(mcEngine->process(), utils::FatalError);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(10, -30, 11, -30, 12));
}

TEST_F(SweepEngineTest, ABlockThatCannotBeTransformedEndsItsSpectrum) {
    startAndForget(true);
    packet(0, 1);
    packet(1, vnktest::PlainSweep::kUnusable);
    packet(2, 3);
    sweep(10);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(10, -30, 11, -30, 12));
}

TEST_F(SweepEngineTest, ACalibrationOfTheUserTakesEffectAtOnceAndRestartsNothing) {
    startAndForget(true);
    packet(0, 1);
    packet(1, 2);
    set("UserCaldB", 100.0f);
    packet(2, 3);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(101, -30, 102, -30, 103));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_EQ(mcEngine->mlRequests.size(), 1u);
    startAndForget(true);
    sweep(0);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(nextBins(), ElementsAre(100, -30, 101, -30, 102));
}

// Changed parameters.

namespace {

struct Change {
    const char* mpWhat;
    std::function<void(utils::VariantRecord&)> mcMake;
    bool mbRestarts;
};

template <typename T>
Change change(const char* pKey, T value, bool bRestarts) {
    return {pKey, [=](utils::VariantRecord& cRecord) { cRecord.set(pKey, value); }, bRestarts};
}

}  // namespace

TEST_F(SweepEngineTest, OnlyAChangeOfWhatIsRealisedRestartsTheSweep) {
    // Realised are 100 Hz of resolution, 1 MHz to 2 MHz; the resolution may differ by 2.5 percent of the sum.
    const Change cChanges[] = {
        change("RBWHz", 105.12f, false),
        change("RBWHz", 105.14f, true),
        change("RBWHz", 95.13f, false),
        change("RBWHz", 95.11f, true),
        change("RBWHz", 1000.0f, true),
        change("FMinHz", std::nextafter(1e6f, 0.0f), true),
        change("FMinHz", std::nextafter(1e6f, 2e6f), true),
        change("FMaxHz", std::nextafter(2e6f, 3e6f), true),
        change("FMaxHz", 2e6f, false),
        change("FMinHz", 1e6f, false),
        change("RefdBm", -39.0f, true),
        change("RefdBm", -40.0f, false),
        change("WindowFn", std::string("hann"), true),
        change("WindowFn", std::string("nuttall"), false),
        change("flowControl", true, true),
        change("flowControl", false, false),
        change("UserCaldB", 3.0f, false),
        change("captureFrames", uint32_t{5}, false),
        change("flatten", true, false),
        change("bufferFrames", uint32_t{50}, false),
    };
    for (const Change& cChange : cChanges) {
        SCOPED_TRACE(cChange.mpWhat);
        make();
        startAndForget(true);
        packet(0, 1);
        utils::VariantRecord cRecord;
        cChange.mcMake(cRecord);
        SCOPED_TRACE(cRecord.toCompactText());
        ErrorList lErrors;
        ASSERT_TRUE(mcStream->setSinkParameters(cRecord, lErrors, false));
        if (cChange.mbRestarts) {
            EXPECT_THAT(mcSCPI->take(), ElementsAre(kStop));
            EXPECT_FALSE(mcEngine->isDataValid());
            EXPECT_EQ(mcEngine->queuedBlocks(), 0u);
        } else {
            EXPECT_THAT(mcSCPI->take(), IsEmpty());
            EXPECT_TRUE(mcEngine->isDataValid());
            EXPECT_EQ(mcEngine->queuedBlocks(), 1u);
        }
    }
}

TEST_F(SweepEngineTest, AWishThatIsRealisedAlreadyIsNoChange) {
    set("FMinHz", 1.1e6f);  // realised is 1 MHz all the same
    startAndForget(true);
    set("FMinHz", 1e6f);
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(SweepEngineTest, AChangeIsPlannedAndProgrammedByTheNextTurnAndCountsAnew) {
    set("captureFrames", uint32_t{2});
    startAndForget(true);
    sweep(0);
    EXPECT_TRUE(mcEngine->process());
    EXPECT_EQ(next()->sequence(), 0u);
    packet(0, 50);
    set("RefdBm", -10.0f);
    EXPECT_TRUE(mcEngine->runsContinuously());  // the turn itself rebuilds
    mcSCPI->take();
    mcSCPI->mcOnSend = [this](const std::string& text) {
        if (text != "SWEEP:LIST:START 2")
            return;
        mcEngine->noteIdentifier(2);
        sweep(10);
        sweep(20);
    };
    EXPECT_TRUE(mcEngine->process());
    EXPECT_THAT(mcSCPI->take(), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 2"));
    EXPECT_EQ(mcEngine->mlRequests.back().mfRefdBm, -10.0f);
    EXPECT_EQ(next()->sequence(), 0u);
    EXPECT_FALSE(mcEngine->process());
    EXPECT_EQ(next()->sequence(), 1u);
}

TEST_F(SweepEngineTest, AChangeEndsATurnThatWaits) {
    startAndForget(true);
    std::thread cChanging([&] { set("RefdBm", -10.0f); });
    const uint64_t uStart = utils::steadyMilliseconds();
    bool bResult = mcEngine->process();
    cChanging.join();
    EXPECT_TRUE(bResult);
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 2500u);
}

TEST_F(SweepEngineTest, AChangeThatCannotBePlannedLeavesTheEngineToTheNextStart) {
    startAndForget(true);
    set("RefdBm", -10.0f);
    mcEngine->muSteps = 0;
    EXPECT_TRUE(mcEngine->process());
    EXPECT_FALSE(mcEngine->runsContinuously()) << "a start that recovers the unit and tries again is due";
    EXPECT_FALSE(mcEngine->start(true));
}

TEST_F(SweepEngineTest, AChangeWhileTheFirstPlanIsMadeIsPlannedToo) {
    mcEngine->mcOnConfigure = [this](const SweepRequest& cRequest) {
        if (cRequest.mfRefdBm == -40.0f)
            set("RefdBm", -10.0f);
    };
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_EQ(mcEngine->mlRequests.back().mfRefdBm, -10.0f);
}

TEST_F(SweepEngineTest, AChangeBackToWhatWasWhileAPlanIsMadeIsPlannedToo) {
    startAndForget(true);
    set("RefdBm", -10.0f);
    mcEngine->mcOnConfigure = [this](const SweepRequest& cRequest) {
        if (cRequest.mfRefdBm == -10.0f)
            set("RefdBm", -40.0f);
    };
    mcSCPI->mcOnSend = [this](const std::string& text) {
        if (text != "SWEEP:LIST:START 2")
            return;
        mcEngine->noteIdentifier(2);
        sweep(0);
    };
    EXPECT_TRUE(mcEngine->process());
    ASSERT_EQ(mcEngine->mlRequests.size(), 3u);
    EXPECT_EQ(mcEngine->mlRequests.back().mfRefdBm, -40.0f);
    EXPECT_EQ(next()->referenceLevel(), -40.0f);
}

TEST_F(SweepEngineTest, AChangeWhileTheUnitIsWaitedForKeepsTheStreamAndIsDoneNext) {
    startAndForget(true);
    set("RefdBm", -10.0f);
    mcSCPI->mcOnSend = [this](const std::string& text) {
        if (text == "SWEEP:LIST:START 2")
            set("RefdBm", -20.0f);
        if (text == "SWEEP:LIST:START 3") {
            mcEngine->noteIdentifier(3);
            sweep(0);
        }
    };
    const uint64_t uStart = utils::steadyMilliseconds();
    EXPECT_TRUE(mcEngine->process());  // not the end of the engine
    EXPECT_LT(utils::steadyMilliseconds() - uStart, 1500u);
    EXPECT_TRUE(mcEngine->process());
    const auto cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->referenceLevel(), -20.0f);
}

TEST_F(SweepEngineTest, AChangeOutOfRangeIsRefused) {
    startAndForget(true);
    utils::VariantRecord cRecord;
    cRecord.set("FMaxHz", 9e9f);
    ErrorList lErrors;
    EXPECT_FALSE(mcStream->setSinkParameters(cRecord, lErrors, false));
    EXPECT_THAT(lErrors, ElementsAre("FMaxHz 9.0000e+09 is out of range (9.0000e+03, 8.0000e+09)",
                                     "Connected source cannot implement requested parameter change"));
    EXPECT_TRUE(mcEngine->isDataValid());
}

// Stop.

TEST_F(SweepEngineTest, AStopOfWhatNeverRanSendsNothing) {
    EXPECT_TRUE(mcEngine->stop());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(SweepEngineTest, ASingleListEndsByItself) {
    startAndForget(false);
    EXPECT_TRUE(mcEngine->stop());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_EQ(mcEngine->muDrains, 0u);
}

TEST_F(SweepEngineTest, AnEndlessListIsStoppedAndTheInputEmptiedOnce) {
    startAndForget(true);
    EXPECT_TRUE(mcEngine->stop());
    EXPECT_THAT(mcSCPI->take(), ElementsAre(kStop, ":SWEEP:LIST:STATUS?"));
    EXPECT_THAT(takeLogTexts(), Contains("Sweep List Stop issued"));
    EXPECT_EQ(mcEngine->muDrains, 1u);
    EXPECT_TRUE(mcEngine->stop());
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_EQ(mcEngine->muDrains, 1u);
}

TEST_F(SweepEngineTest, AListThatDoesNotStopIsAborted) {
    startAndForget(true);
    mcSCPI->reply(":SWEEP:LIST:STATUS?", "RUNNING");
    mcChannel->setStopTest([] { return true; });  // one look is enough here
    EXPECT_TRUE(mcEngine->stop());
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre(kStop, ":SWEEP:LIST:STATUS?", "SYSTem:ABORt", ":SYSTem:CAPTure:MODE?"));
    EXPECT_EQ(mcEngine->muDrains, 1u);
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(SweepEngineTest, AUnitThatDoesNotStopAtAllIsReportedAndAskedAgainByTheNextStop) {
    startAndForget(true);
    mcSCPI->reply(":SWEEP:LIST:STATUS?", "RUNNING");
    mcSCPI->reply(":SYSTem:CAPTure:MODE?", "SWEEPING");
    mcChannel->setStopTest([] { return true; });
    EXPECT_FALSE(mcEngine->stop());
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6006, "Device unit one failed to stop"}));
    EXPECT_EQ(mcEngine->muDrains, 0u);
    mcSCPI->reply(":SYSTem:CAPTure:MODE?", "BLOCK");
    EXPECT_TRUE(mcEngine->stop());
}

TEST_F(SweepEngineTest, ALostLinkForgetsTheListAndAStartBeginsAnew) {
    startAndForget(true);
    mcEngine->linkChanged();
    EXPECT_FALSE(mcEngine->isDataValid());
    EXPECT_FALSE(mcEngine->runsContinuously());
    EXPECT_THAT(startCommands(true), ElementsAre("LIST 0", "SYST:ERR?", "SWEEP:LIST:START 2"));
}

// The engine's life.

TEST_F(SweepEngineTest, ABadSetupIsReportedAndHarmless) {
    const auto cEngine = makeReference<PlainSweepEngine>(mcContext, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6017, "bad setup"}));
    cEngine->takeInStream();
    EXPECT_FALSE(cEngine->serves(nullptr));
    EXPECT_FALSE(cEngine->start(true));
    EXPECT_TRUE(cEngine->stop());
    EXPECT_FALSE(cEngine->parametersChanged(nullptr));
}

TEST_F(SweepEngineTest, TheStreamIsLetGoAtTheEnginesEnd) {
    EXPECT_EQ(mcStream->sourcePointer(), mcEngine.get());
    EXPECT_TRUE(mcEngine->serves(mcStream.get()));
    startAndForget(true);
    packet(0, 1);
    mcSCPI->mcOnSend = nullptr;
    mcEngine.release();
    EXPECT_FALSE(mcStream->isAttached());
}

TEST_F(SweepEngineTest, AStrangersDetachLeavesTheStreamAlone) {
    mcEngine->removeFrameSink(makeReference<SpectrumFrameSink>());
    EXPECT_TRUE(mcStream->isAttached());
    EXPECT_TRUE(mcEngine->serves(mcStream.get()));
}

TEST_F(SweepEngineTest, PacketsTurnsChangesAndADetachAtOnceAreSafe) {
    mcSCPI->mcOnSend = nullptr;
    std::atomic<bool> bDone{false};
    std::thread cPackets([&] {
        for (uint32_t i = 0; !bDone; ++i) {
            mcEngine->gatherer().setReferenceLevel(-30.0f);
            mcEngine->noteIdentifier(1 + i / 7 % 200);
            packet(i % 3, static_cast<float>(i));
            std::this_thread::yield();
        }
    });
    std::thread cChanges([&] {
        for (uint32_t i = 0; !bDone; ++i) {
            set("RefdBm", static_cast<float>(i % 5) - 40.0f);
            set("UserCaldB", static_cast<float>(i % 3));
            utils::sleepMs(1);
        }
    });
    std::thread cReader([&] {
        while (!bDone)
            if (const auto cFrame = dynamicReferenceCast<SpectrumFrame>(mcStream->nextFrame(1, false))) {
                uint32_t uCount = 0;
                cFrame->getSpectrum(uCount);
                EXPECT_EQ(uCount, 5u);
            }
    });
    mcChannel->setStopTest([] { return true; });
    for (uint32_t i = 0; i < 300; ++i) {
        if (mcEngine->start(i % 3 != 0) && i % 5 != 0)
            mcEngine->process();
        if (i % 4 == 0)
            mcEngine->stop();
    }
    mcEngine->removeFrameSink(mcStream);
    bDone = true;
    cPackets.join();
    cChanges.join();
    cReader.join();
    EXPECT_FALSE(mcStream->isAttached());
}
