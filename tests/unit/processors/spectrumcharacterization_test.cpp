#include "processors/spectrumcharacterization.h"

#include <gmock/gmock.h>

#include <limits>
#include <random>

#include "flows/iqframesink.h"
#include "support/logs.h"
#include "support/loopback.h"
#include "unit/flows/flowsupport.h"
#include "unit/processors/spectrumsupport.h"

namespace {

using namespace vnktest;
using testing::ElementsAre;
using testing::IsEmpty;
using Levels = std::vector<float>;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// The three traces of a frame, by the indices that its extras name.
struct Traces {
    explicit Traces(const SpectrumFrame& cFrame)
        : mlMinHold(at(cFrame, "minHoldIndex")),
          mlMaxHold(at(cFrame, "maxHoldIndex")),
          mlAverage(at(cFrame, "averageIndex")) {}
    static Levels at(const SpectrumFrame& cFrame, const char* pKey) {
        const auto cExtras = cFrame.peekExtras();
        const utils::Variant* pIndex = cExtras ? cExtras->find(pKey) : nullptr;
        if (!pIndex || pIndex->getType() != utils::Variant::kUnsigned32 ||
            pIndex->getUnsigned32() >= cFrame.traces().size()) {
            ADD_FAILURE() << pKey;
            return {};
        }
        return valuesOf(*cFrame.traces()[pIndex->getUnsigned32()]);
    }
    Levels mlMinHold, mlMaxHold, mlAverage;
};

bool flag(const SpectrumFrame& cFrame, const char* pKey) {
    return cFrame.peekExtras()->getBool(pKey).value();
}

class SpectrumCharacterizationTest : public FlowTest {
 protected:
    ReferencePtr<SpectrumFrame> passFrame(const ReferencePtr<SpectrumFrame>& cFrame) {
        const auto lFrames = mcBench.process(cFrame);
        EXPECT_EQ(lFrames.size(), 1u);
        return lFrames.at(0);
    }
    ReferencePtr<SpectrumFrame> pass(const Levels& lLevels) { return passFrame(spectrumOf(lLevels, muSequence++)); }
    Levels averageOf(const Levels& lLevels) { return Traces(*pass(lLevels)).mlAverage; }

    DirectBench<SpectrumCharacterizationProcessor> mcBench;
    uint32_t muSequence = 0;
};

/// A spectrum frame that never had an array.
ReferencePtr<SpectrumFrame> hollow() {
    return makeReference<SpectrumFrame>(3u, uint64_t{7}, uint64_t{5}, uint32_t{kNanoseconds}, 1e6f, 2e6f, 1e3f, -20.0f,
                                        std::string("hann"), ReferencePtr<FloatArray>(), std::string("dBm"));
}

}  // namespace

TEST_F(SpectrumCharacterizationTest, EveryFrameCarriesItsMinimumMaximumAndAverage) {
    pass({-10, -20, -30});
    mcBench.set("{\"Average\":2}");
    pass({-11, -25, -20});
    const auto cFrame = pass({-15, -5, -25});
    EXPECT_THAT(levelsOf(*cFrame), ElementsAre(-15, -5, -25));
    ASSERT_EQ(cFrame->traces().size(), 3u);
    const Traces cTraces(*cFrame);
    EXPECT_THAT(cTraces.mlMinHold, ElementsAre(-15, -25, -30));
    EXPECT_THAT(cTraces.mlMaxHold, ElementsAre(-10, -5, -20));
    EXPECT_THAT(cTraces.mlAverage, ElementsAre(-13, -15, -22.5f));
    EXPECT_THAT(valuesOf(*cFrame->traces()[0]), ElementsAre(-15, -25, -30)) << "minimum, maximum, average";
    EXPECT_THAT(valuesOf(*cFrame->traces()[1]), ElementsAre(-10, -5, -20));
}

TEST_F(SpectrumCharacterizationTest, FrameIsACopyWithAllItsLabels) {
    const auto cInput = spectrumOf({1, 2, 3}, 12);
    cInput->setDiscardable(true);
    const auto cFrame = passFrame(cInput);
    EXPECT_NE(cFrame.get(), cInput.get());
    EXPECT_TRUE(cInput->traces().empty());
    EXPECT_EQ(cFrame->sequence(), 12u);
    EXPECT_EQ(cFrame->timestamp(), 89u);
    EXPECT_EQ(cFrame->duration(), 5u);
    EXPECT_EQ(cFrame->rbw(), 1e3f);
    EXPECT_EQ(cFrame->windowName(), "hann");
    EXPECT_EQ(cFrame->getParameters(false).toCompactText(), cInput->getParameters(false).toCompactText());
    uint32_t uCount = 0;
    EXPECT_NE(cFrame->getSpectrum(uCount), cInput->getSpectrum(uCount));
}

TEST_F(SpectrumCharacterizationTest, ExtrasOfTheInputAreCopiedAndNotWrittenTo) {
    const auto cInput = spectrumOf({1, 2, 3});
    cInput->getExtras()->set("MatchIQ", 9u);
    cInput->getExtras()->setFrozen(true);
    const auto cFrame = passFrame(cInput);
    EXPECT_NE(cFrame->peekExtras().get(), cInput->peekExtras().get());
    EXPECT_THAT(cInput->peekExtras()->keys(), ElementsAre("MatchIQ"));
    EXPECT_THAT(cFrame->peekExtras()->keys(),
                testing::UnorderedElementsAre("MatchIQ", "ClearAverageTrace", "ClearMaxHoldTrace", "ClearMinHoldTrace",
                                              "minHoldIndex", "maxHoldIndex", "averageIndex"));
    const auto cBare = spectrumOf({1, 2, 3});
    passFrame(cBare);
    EXPECT_EQ(cBare->peekExtras(), nullptr);
}

TEST_F(SpectrumCharacterizationTest, TracesOfAFormerProcessorStayAndIndicesGoOn) {
    const auto cFirst = pass({1, 2, 3});
    DirectBench<SpectrumCharacterizationProcessor> cSecond;
    const auto lFrames = cSecond.process(cFirst);
    ASSERT_EQ(lFrames.size(), 1u);
    EXPECT_EQ(lFrames[0]->traces().size(), 6u);
    EXPECT_EQ(lFrames[0]->peekExtras()->find("minHoldIndex")->getUnsigned32(), 3u);
    EXPECT_EQ(lFrames[0]->peekExtras()->find("averageIndex")->getUnsigned32(), 5u);
    EXPECT_EQ(cFirst->peekExtras()->find("minHoldIndex")->getUnsigned32(), 0u);
    EXPECT_NE(cFirst->traces()[0].get(), lFrames[0]->traces()[0].get());
}

TEST_F(SpectrumCharacterizationTest, ChangeOfTheBinCountRestartsAllTracesFromThatFrame) {
    mcBench.set("{\"Average\":4}");
    pass({-10, -20});
    pass({-30, -5});
    const auto cFrame = pass({-1, -2, -3});
    const Traces cTraces(*cFrame);
    EXPECT_THAT(cTraces.mlMinHold, ElementsAre(-1, -2, -3));
    EXPECT_THAT(cTraces.mlMaxHold, ElementsAre(-1, -2, -3));
    EXPECT_THAT(cTraces.mlAverage, ElementsAre(-1, -2, -3));
    EXPECT_TRUE(cFrame->isDiscardable());
    EXPECT_THAT(averageOf({-5, -4, -5}), ElementsAre(-5, -4, -5)) << "the history begins behind the restart";
}

// The window that jumps.

TEST_F(SpectrumCharacterizationTest, AverageOfOneIsTheNewestSpectrum) {
    for (const float fLevel : {-3.0f, -7.0f, 4.0f})
        EXPECT_THAT(averageOf({fLevel, 2 * fLevel}), ElementsAre(fLevel, 2 * fLevel));
}

TEST_F(SpectrumCharacterizationTest, AverageWindowGrowsToItsLengthAndThenLosesItsOldest) {
    mcBench.set("{\"Average\":3}");
    EXPECT_THAT(averageOf({100}), ElementsAre(100)) << "the restart is not part of the history";
    EXPECT_THAT(averageOf({3}), ElementsAre(3));
    EXPECT_THAT(averageOf({6}), ElementsAre(4.5f));
    EXPECT_THAT(averageOf({9}), ElementsAre(6));
    EXPECT_THAT(averageOf({30}), ElementsAre(15)) << "3 has gone";
    EXPECT_THAT(averageOf({9}), ElementsAre(16)) << "6 has gone";
}

TEST_F(SpectrumCharacterizationTest, AverageIsOfDecibelsNotOfPowers) {
    mcBench.set("{\"Average\":2}");
    pass({0});
    pass({0});
    EXPECT_THAT(averageOf({-40}), ElementsAre(-20));
}

TEST_F(SpectrumCharacterizationTest, AverageOfNoneCountsAsOne) {
    mcBench.set("{\"Average\":0}");
    pass({5});
    EXPECT_THAT(averageOf({7}), ElementsAre(7));
    EXPECT_THAT(averageOf({9}), ElementsAre(9));
}

TEST_F(SpectrumCharacterizationTest, NewLengthBeginsTheAverageAnewInAFrameThatMustNotBeDropped) {
    mcBench.set("{\"Average\":10}");
    pass({1});
    pass({2});
    pass({4});
    mcBench.set("{\"Average\":2}");
    const auto cFrame = pass({8});
    EXPECT_FALSE(cFrame->isDiscardable());
    EXPECT_THAT(Traces(*cFrame).mlAverage, ElementsAre(8));
    EXPECT_THAT(Traces(*cFrame).mlMinHold, ElementsAre(1)) << "the holds go on";
    const auto cNext = pass({10});
    EXPECT_TRUE(cNext->isDiscardable());
    EXPECT_THAT(Traces(*cNext).mlAverage, ElementsAre(9));
}

TEST_F(SpectrumCharacterizationTest, BinWithoutPowerLeavesTheAverageWhenItLeavesTheWindow) {
    mcBench.set("{\"Average\":2}");
    pass({1});
    EXPECT_THAT(averageOf({-kInfinity}), ElementsAre(-kInfinity));
    EXPECT_THAT(averageOf({3}), ElementsAre(-kInfinity));
    EXPECT_THAT(averageOf({5}), ElementsAre(4));
}

TEST_F(SpectrumCharacterizationTest, LongestAverageOfOneLevelIsThatLevel) {
    mcBench.set("{\"Average\":10000}");
    for (int i = 0; i < 10500; ++i) {
        const Levels lAverage = averageOf({-100.03f, 0.1f});
        ASSERT_NEAR(lAverage[0], -100.03, 0.0001) << i;
        ASSERT_NEAR(lAverage[1], 0.1, 0.0000001) << i;
    }
}

TEST_F(SpectrumCharacterizationTest, WindowTakesNoMoreSpectraThanTheSchemaAllows) {
    for (const char* pAverage : {"{\"Average\":10001}", "{\"Average\":1e30}"}) {
        mcBench.set(pAverage);
        pass({0, 0});
        pass({0});  // another size: the history begins behind it
        EXPECT_THAT(averageOf({5000000}), ElementsAre(5000000));
        for (int i = 2; i < 10000; ++i)
            pass({0});
        EXPECT_THAT(averageOf({0}), ElementsAre(500)) << "the 10000th";
        EXPECT_THAT(averageOf({0}), ElementsAre(0)) << "the first has gone";
    }
}

TEST_F(SpectrumCharacterizationTest, WhatIsNoNumberIsNotHeld) {
    pass({kNaN, 1});
    pass({2, kNaN});
    const Traces cTraces(*pass({3, 0}));
    EXPECT_THAT(cTraces.mlMinHold, ElementsAre(2, 0));
    EXPECT_THAT(cTraces.mlMaxHold, ElementsAre(3, 1));
}

// Clearing.

TEST_F(SpectrumCharacterizationTest, ClearedMaxHoldIsToldInExactlyOneFrame) {
    pass({-10, -20});
    EXPECT_TRUE(pass({-11, -21})->isDiscardable());
    takeLogTexts();
    mcBench.set("{\"ClearMaxHoldTrace\":true}");
    const auto cFrame = pass({-30, -5});
    EXPECT_TRUE(flag(*cFrame, "ClearMaxHoldTrace"));
    EXPECT_FALSE(flag(*cFrame, "ClearMinHoldTrace"));
    EXPECT_FALSE(flag(*cFrame, "ClearAverageTrace"));
    EXPECT_FALSE(cFrame->isDiscardable());
    EXPECT_THAT(Traces(*cFrame).mlMaxHold, ElementsAre(-30, -5));
    EXPECT_THAT(Traces(*cFrame).mlMinHold, ElementsAre(-30, -21));
    EXPECT_THAT(logged(utils::kTraceCode), ElementsAre("Clearing Max Hold :::::::::::::::::::::::::::"));
    const auto cNext = pass({-31, -6});
    EXPECT_FALSE(flag(*cNext, "ClearMaxHoldTrace"));
    EXPECT_TRUE(cNext->isDiscardable());
    EXPECT_THAT(Traces(*cNext).mlMaxHold, ElementsAre(-30, -5));
    EXPECT_EQ(mcBench.mcProcessor->getParameters().getBool("ClearMaxHoldTrace"), false);
}

TEST_F(SpectrumCharacterizationTest, ClearedMinHoldBeginsWithItsFrame) {
    pass({-10});
    pass({-50});
    takeLogTexts();
    mcBench.set("{\"ClearMinHoldTrace\":true}");
    const auto cFrame = pass({-30});
    EXPECT_TRUE(flag(*cFrame, "ClearMinHoldTrace"));
    EXPECT_FALSE(cFrame->isDiscardable());
    EXPECT_THAT(Traces(*cFrame).mlMinHold, ElementsAre(-30));
    EXPECT_THAT(Traces(*cFrame).mlMaxHold, ElementsAre(-10));
    EXPECT_THAT(logged(utils::kTraceCode), ElementsAre("Clearing Min Hold :::::::::::::::::::::::::::"));
}

TEST_F(SpectrumCharacterizationTest, ClearedAverageForgetsItsHistory) {
    mcBench.set("{\"Average\":10}");
    pass({1});
    pass({2});
    takeLogTexts();
    mcBench.set("{\"ClearAverageTrace\":true}");
    const auto cFrame = pass({8});
    EXPECT_TRUE(flag(*cFrame, "ClearAverageTrace"));
    EXPECT_FALSE(cFrame->isDiscardable());
    EXPECT_THAT(Traces(*cFrame).mlAverage, ElementsAre(8));
    EXPECT_THAT(logged(utils::kTraceCode), ElementsAre("Clearing Average Hold :::::::::::::::::::::::::::"));
    EXPECT_THAT(averageOf({4}), ElementsAre(4));
    EXPECT_THAT(averageOf({6}), ElementsAre(5));
}

TEST_F(SpectrumCharacterizationTest, AllThreeAreClearedInOneFrameInTheirOrder) {
    pass({1});
    takeLogTexts();
    mcBench.set("{\"ClearMinHoldTrace\":true,\"ClearMaxHoldTrace\":true,\"ClearAverageTrace\":true}");
    const auto cFrame = pass({8});
    for (const char* pKey : {"ClearAverageTrace", "ClearMaxHoldTrace", "ClearMinHoldTrace"})
        EXPECT_TRUE(flag(*cFrame, pKey));
    EXPECT_THAT(takeLogTexts(), ElementsAre("Clearing Min Hold :::::::::::::::::::::::::::",
                                            "Clearing Max Hold :::::::::::::::::::::::::::",
                                            "Clearing Average Hold :::::::::::::::::::::::::::"));
}

TEST_F(SpectrumCharacterizationTest, FrameWithoutASpectrumHasEmptyTraces) {
    takeLogTexts();
    mcBench.set("{\"ClearMinHoldTrace\":true}");
    for (int i = 0; i < 3; ++i) {
        const auto cFrame = passFrame(hollow());
        ASSERT_EQ(cFrame->traces().size(), 3u);
        for (const auto& cTrace : cFrame->traces())
            EXPECT_EQ(cTrace->getActive(), 0u);
        EXPECT_EQ(cFrame->isDiscardable(), i > 0);
    }
    pass({1, 2});
    mcBench.set("{\"ClearMaxHoldTrace\":true,\"ClearAverageTrace\":true}");
    passFrame(hollow());
    EXPECT_THAT(Traces(*pass({3, 4})).mlMinHold, ElementsAre(3, 4));
    EXPECT_THAT(takeLogTexts(), ElementsAre("Clearing Min Hold :::::::::::::::::::::::::::", "Spectrum is null.",
                                            "Clearing Max Hold :::::::::::::::::::::::::::", "Spectrum is null.",
                                            "Clearing Average Hold :::::::::::::::::::::::::::", "Spectrum is null."));
}

TEST_F(SpectrumCharacterizationTest, FrameOfAnotherKindIsOnlyLogged) {
    takeLogTexts();
    EXPECT_THAT(mcBench.process(iqFrame(0)), IsEmpty());
    EXPECT_THAT(logged(utils::kTraceCode), ElementsAre("Incorrect frame type to ::processFrame"));
}

TEST_F(SpectrumCharacterizationTest, TakesSpectraAndTheEnd) {
    EXPECT_TRUE(mcBench.mcProcessor->acceptsFrame(spectrumOf({1})));
    EXPECT_TRUE(mcBench.mcProcessor->acceptsFrame(nullptr));
    EXPECT_FALSE(mcBench.mcProcessor->acceptsFrame(iqFrame(0)));
}

TEST_F(SpectrumCharacterizationTest, AdmitsSinksOfSpectraOnly) {
    EXPECT_FALSE(mcBench.mcProcessor->attachFrameSink(makeReference<IQFrameSink>(), mlErrors));
    EXPECT_THAT(mlErrors, ElementsAre("Attempted to attach a non-spectrum sink to a spectrum-only processor"));
    mlErrors.clear();
    EXPECT_FALSE(mcBench.mcProcessor->attachFrameSink(nullptr, mlErrors));
    EXPECT_THAT(mlErrors, ElementsAre("::attachFrameSink with cNewSink==nullptr"));
}

// Parameters.

TEST_F(SpectrumCharacterizationTest, DescribesItsParameters) {
    const utils::VariantRecord cTold(
        "{\"flowControl\":\"<If set true, limit capture rate to ensure minimal network buffering>\","
        "\"Frames\":{\"description\":\"\",\"readonly\":true},"
        "\"Average\":{\"description\":\"<Number of spectra to take average of>\",\"min\":1.0,\"max\":10000.0,"
        "\"default\":1.0},"
        "\"ClearAverageTrace\":{\"description\":\"<Boolean to clear average trace>\",\"values\":[\"true\",\"false\"]},"
        "\"ClearMaxHoldTrace\":{\"description\":\"<Boolean to clear max-hold trace>\",\"values\":[\"true\",\"false\"]},"
        "\"ClearMinHoldTrace\":{\"description\":\"<Boolean to clear min-hold "
        "trace>\",\"values\":[\"true\",\"false\"]}}");
    EXPECT_EQ(mcBench.mcProcessor->getParameterInfo().toPrettyText(), cTold.toPrettyText());
}

TEST_F(SpectrumCharacterizationTest, ReportsItsParameters) {
    mcBench.set("{\"Average\":7,\"ClearMaxHoldTrace\":true}");
    const utils::VariantRecord cRecord = mcBench.mcProcessor->getParameters();
    EXPECT_THAT(cRecord.keys(),
                testing::UnorderedElementsAre("bufferSec", "bufferFrames", "bufferDiscard", "flowControl", "Average",
                                              "ClearAverageTrace", "ClearMaxHoldTrace", "ClearMinHoldTrace"));
    EXPECT_EQ(cRecord.find("Average")->getType(), utils::Variant::kUnsigned32);
    EXPECT_EQ(cRecord.getNumber("Average"), 7.0f);
    EXPECT_EQ(cRecord.getBool("ClearMaxHoldTrace"), true) << "until the next spectrum";
    EXPECT_EQ(cRecord.getBool("ClearMinHoldTrace"), false);
}

TEST_F(SpectrumCharacterizationTest, AverageTakesAnyNumber) {
    const std::pair<float, uint32_t> kValues[] = {{10001.0f, 10001u}, {2.6f, 3u},          {-5.0f, 0u},
                                                  {kNaN, 0u},         {1e30f, UINT32_MAX}, {kInfinity, UINT32_MAX},
                                                  {-kInfinity, 0u}};
    for (const auto& [fValue, uStored] : kValues) {
        utils::VariantRecord cRecord;
        cRecord.set("Average", fValue);
        EXPECT_TRUE(mcBench.mcProcessor->setSinkParameters(cRecord, mlErrors, true));
        EXPECT_EQ(mcBench.mcProcessor->getParameters().find("Average")->getUnsigned32(), uStored) << fValue;
    }
}

TEST_F(SpectrumCharacterizationTest, ValuesOfAnotherTypeAreUnknown) {
    utils::VariantRecord cRecord("{\"Average\":\"many\",\"ClearMaxHoldTrace\":1}");
    EXPECT_FALSE(mcBench.mcProcessor->setSinkParameters(cRecord, mlErrors, true));
    EXPECT_THAT(mlErrors, ElementsAre("Attempted to integrate unknown parameter 'Average'",
                                      "Attempted to integrate unknown parameter 'ClearMaxHoldTrace'"));
}

// Against a literal model.

namespace {

struct Model {
    Levels mlMin, mlMax, mlAverage;
    std::vector<Levels> mlHistory;
    uint32_t muLength = 1, muApplied = 1;
    bool mbReset = true;

    void process(const Levels& l, bool bMin, bool bMax, bool bAverage) {
        if (l.size() != mlMin.size())
            mbReset = true;
        if (muLength != muApplied) {
            muApplied = muLength;
            mlHistory.clear();
            mlAverage.assign(mlAverage.size(), 0.0f);
        }
        if (!mbReset) {
            for (size_t i = 0; i < l.size(); ++i) {
                mlMin[i] = std::min(mlMin[i], l[i]);
                mlMax[i] = std::max(mlMax[i], l[i]);
            }
            mlHistory.push_back(l);
            for (size_t i = 0; i < l.size(); ++i) {
                double sum = 0;
                for (const Levels& lEntry : mlHistory)
                    sum += double{lEntry[i]};
                mlAverage[i] = static_cast<float>(sum * (1.0 / static_cast<double>(mlHistory.size())));
            }
            if (mlHistory.size() % (muApplied == 0 ? 1 : muApplied) == 0)
                mlHistory.erase(mlHistory.begin());
        } else {
            mlHistory.clear();
            mlMin = mlMax = mlAverage = l;
            mbReset = false;
        }
        if (bMin)
            mlMin = l;
        if (bMax)
            mlMax = l;
        if (bAverage) {
            mlAverage = l;
            mlHistory.clear();
        }
    }
};

}  // namespace

TEST_F(SpectrumCharacterizationTest, RandomStreamsGiveWhatALiteralModelGives) {
    std::mt19937 cRandom(20261122);
    std::uniform_real_distribution<float> cLevel(-150.0f, 20.0f);
    Model cModel;
    size_t uBins = 100;
    for (uint32_t i = 0; i < 3000; ++i) {
        SCOPED_TRACE(i);
        if (cRandom() % 50 == 0)
            uBins = 1 + cRandom() % 200;
        if (cRandom() % 40 == 0) {
            cModel.muLength = static_cast<uint32_t>(cRandom() % 12);
            mcBench.set("{\"Average\":" + std::to_string(cModel.muLength) + "}");
        }
        Levels lLevels(uBins);
        for (float& fLevel : lLevels)
            fLevel = cLevel(cRandom);
        const bool bMin = cRandom() % 20 == 0, bMax = cRandom() % 20 == 0, bAverage = cRandom() % 20 == 0;
        const bool bNewLength = cModel.muLength != cModel.muApplied;
        for (const auto& [bClear, pKey] : {std::pair(bMin, "Min"), {bMax, "Max"}})
            if (bClear)
                mcBench.set(std::string("{\"Clear") + pKey + "HoldTrace\":true}");
        if (bAverage)
            mcBench.set("{\"ClearAverageTrace\":true}");
        cModel.process(lLevels, bMin, bMax, bAverage);
        const auto cFrame = pass(lLevels);
        ASSERT_EQ(levelsOf(*cFrame), lLevels);
        const Traces cTraces(*cFrame);
        ASSERT_EQ(cTraces.mlMinHold, cModel.mlMin);
        ASSERT_EQ(cTraces.mlMaxHold, cModel.mlMax);
        ASSERT_EQ(cTraces.mlAverage, cModel.mlAverage);
        ASSERT_EQ(cFrame->isDiscardable(), !(bMin || bMax || bAverage || bNewLength));
        ASSERT_EQ(flag(*cFrame, "ClearMinHoldTrace"), bMin);
        ASSERT_EQ(flag(*cFrame, "ClearMaxHoldTrace"), bMax);
        ASSERT_EQ(flag(*cFrame, "ClearAverageTrace"), bAverage);
    }
}

// On its own thread.

TEST(SpectrumCharacterizationThreads, ParametersMayChangeAHundredThousandTimesWhileItRuns) {
    const auto cSource = makeReference<CountedSource>();
    const auto cProcessor = makeReference<SpectrumCharacterizationProcessor>();
    const auto cSecond = makeReference<SpectrumCharacterizationProcessor>();
    const auto cSink = makeReference<SpectrumFrameSink>();
    const auto cSecondSink = makeReference<SpectrumFrameSink>();
    ErrorList lErrors;
    cSink->setAllowDiscarding(true);
    cSecondSink->setAllowDiscarding(true);
    ASSERT_TRUE(cProcessor->attachFrameSink(cSink, lErrors));
    ASSERT_TRUE(cSecond->attachFrameSink(cSecondSink, lErrors));
    ASSERT_TRUE(cSource->attachFrameSink(cProcessor, lErrors));
    ASSERT_TRUE(cSource->attachFrameSink(cSecond, lErrors));
    std::atomic<bool> bDone{false};
    std::atomic<uint64_t> uTaken{0};
    std::thread cProducer([&] {
        for (uint32_t i = 0; !bDone; ++i) {
            // Both processors read the extras of the one frame, and write into their own.
            const auto cFrame = spectrumOf(Levels(50 + i / 100 % 3, -30.0f), i);
            cFrame->getExtras()->set("MatchIQ", i);
            cSource->deliverFrame(cFrame, false);
            std::this_thread::yield();
        }
    });
    std::thread cConsumer([&] {
        while (!bDone)
            if (const auto cFrame = cSink->nextFrame(10, false))
                uTaken += dynamicReferenceCast<SpectrumFrame>(cFrame)->peekExtras()->size() == 7;
    });
    for (uint32_t i = 0; i < 100000; ++i) {
        utils::VariantRecord cRecord;
        if (i % 50 == 0)
            cRecord.set("Average", i % 30);
        cRecord.set(i % 3 == 0   ? "ClearAverageTrace"
                    : i % 3 == 1 ? "ClearMaxHoldTrace"
                                 : "ClearMinHoldTrace",
                    i % 2 == 0);
        ASSERT_TRUE(cProcessor->setSinkParameters(cRecord, lErrors, false));
        if (i % 100 == 0)
            cProcessor->getParameters();
    }
    EXPECT_TRUE(waitUntil([&] { return uTaken > 20; }));
    bDone = true;
    cProducer.join();
    cConsumer.join();
    cProcessor->detachFromSource();
    cSecond->detachFromSource();
    cSink->detachFromSource();
    cSecondSink->detachFromSource();
}

TEST(SpectrumCharacterizationThreads, FrameWithAClearedTraceIsNeverLost) {
    class CountingSink : public SpectrumFrameSink {
     public:
        void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override {
            ++muCome;
            SpectrumFrameSink::receiveFrame(std::move(cFrame), bLast);
        }
        std::atomic<uint32_t> muCome{0};
    };
    const auto cSource = makeReference<CountedSource>();
    const auto cProcessor = makeReference<SpectrumCharacterizationProcessor>();
    const auto cSink = makeReference<CountingSink>();
    ErrorList lErrors;
    ASSERT_TRUE(cProcessor->attachFrameSink(cSink, lErrors));
    ASSERT_TRUE(cSource->attachFrameSink(cProcessor, lErrors));
    utils::VariantRecord cRecord("{\"ClearMaxHoldTrace\":true,\"bufferFrames\":100}");
    ASSERT_TRUE(cProcessor->setSinkParameters(cRecord, lErrors, true));
    // Nobody reads: the sink holds ten frames, and the first of all keeps the eleventh waiting.
    for (uint32_t i = 0; i < 40; ++i)
        cSource->deliverFrame(spectrumOf({1, 2}, i), false);
    ASSERT_TRUE(waitUntil([&] { return cSink->muCome >= 11; }));
    EXPECT_EQ(cSink->discardCount(), 0u);
    const auto cFrame = dynamicReferenceCast<SpectrumFrame>(cSink->nextFrame(30000, false));
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
    EXPECT_TRUE(flag(*cFrame, "ClearMaxHoldTrace"));
    cProcessor->detachFromSource();
    cSink->detachFromSource();
}
