#include "zelvar/iqmechanism.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "unit/zelvar/iqfixture.h"

using namespace vnktest;
using testing::Contains;
using testing::ElementsAre;

namespace {

class IQPacketsTest : public IQMechanismFixture {};

}  // namespace

TEST_F(IQPacketsTest, APacketBecomesAFrameWithAllItsMetadata) {
    start();
    mpListener->handleDigitizerContext(digitizerContext(-20 * 128));
    feed(pairs(4096, -2048, 512).at(17, 123456789012));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
    EXPECT_EQ(cFrame->zerothSample(), 0u);
    EXPECT_EQ(cFrame->timestamp(), 17123456789u);
    EXPECT_EQ(cFrame->timeResolution(), 3u);
    EXPECT_EQ(cFrame->centreFrequency(), 1e8f);
    EXPECT_EQ(cFrame->bandwidth(), 2e7f);
    EXPECT_EQ(cFrame->sampleRate(), 31250000.0f);
    EXPECT_EQ(cFrame->referenceLevel(), -40.0f);
    EXPECT_EQ(cFrame->getUnits(), "sqrt-mw");
    EXPECT_NEAR(cFrame->level(), 20 * std::log10(0.5), 1e-5);
    EXPECT_TRUE(cFrame->isSubOptimal());  // above -10
    EXPECT_FALSE(cFrame->peekExtras());
    uint32_t uCount = 0;
    const Complex<float>* pSamples = cFrame->getSamples(uCount);
    ASSERT_EQ(uCount, 512u);
    EXPECT_NEAR(pSamples[511].re, 0.5 * gainFor(-20), 1e-6);
    EXPECT_NEAR(pSamples[511].im, -0.25 * gainFor(-20), 1e-6);
    feed(pairs(2048, 0, 256));
    const ReferencePtr<IQFrame> cSecond = next();
    ASSERT_TRUE(cSecond);
    EXPECT_EQ(cSecond->sequence(), 1u);
    EXPECT_EQ(cSecond->zerothSample(), 512u);
    EXPECT_FALSE(cSecond->isSubOptimal());
}

TEST_F(IQPacketsTest, TheGainFollowsContextAndCalibrationAndAnAbsentLevelChangesNothing) {
    start();
    feed(pairs(8191, 0, 256));
    uint32_t uCount = 0;
    EXPECT_NEAR(next()->getSamples(uCount)->re, 8191.0 / 8192 * gainFor(-30), 1e-6);
    mpListener->handleDigitizerContext(digitizerContext(10 * 128 + 64));
    feed(pairs(8191, 0, 256));
    EXPECT_NEAR(next()->getSamples(uCount)->re, 8191.0 / 8192 * gainFor(10.5), 2e-5);
    mpListener->handleDigitizerContext(
        PacketBytes().u32(1u << 29).u64(0).as<DigitizerContext>(kDigitizerContext));
    feed(pairs(8191, 0, 256));
    EXPECT_NEAR(next()->getSamples(uCount)->re, 8191.0 / 8192 * gainFor(10.5), 2e-5);
    set("UserCaldB", -6.0f);
    start();
    feed(pairs(8191, 0, 256));
    EXPECT_NEAR(next()->getSamples(uCount)->re, 8191.0 / 8192 * gainFor(4.5), 2e-5);
}

TEST_F(IQPacketsTest, ACalibrationOfAnySizeIsHarmless) {
    set("UserCaldB", 1e30f);
    start();
    feed(pairs(1, 1, 256));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    uint32_t uCount = 0;
    EXPECT_TRUE(std::isinf(cFrame->getSamples(uCount)->re));
}

TEST_F(IQPacketsTest, AnInvertedSpectrumIsConjugatedOnlyWhenEnabledAndIndicated) {
    start();
    uint32_t uCount = 0;
    feed(pairs(100, 50, 256).trailer(kInverted));
    EXPECT_LT(next()->getSamples(uCount)->im, 0.0f);
    EXPECT_EQ(uCount, 256u);
    feed(pairs(100, 50, 256).trailer(1u << kInversion));
    EXPECT_GT(next()->getSamples(uCount)->im, 0.0f);
    feed(pairs(100, 50, 256).trailer(1u << kInversionEnable));
    EXPECT_GT(next()->getSamples(uCount)->im, 0.0f);
}

TEST_F(IQPacketsTest, SampleLossLeavesAGapOfOneAndSaysInvalid) {
    start();
    for (const uint32_t uTrailer : kMarkingTrailers)
        feed(pairs(100, 0, 256).trailer(uTrailer));
    EXPECT_EQ(takeMarks(*mcStream), marksOfTrailers());
    EXPECT_EQ(mcEngine->gapCount(), 3u);
}

TEST_F(IQPacketsTest, APacketOfZerosIsBelowAnyLevel) {
    start();
    feed(pairs(0, 0, 256));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->level(), -std::numeric_limits<float>::infinity());
    EXPECT_TRUE(cFrame->isSubOptimal());
}

TEST_F(IQPacketsTest, DataBeforeTheIdentifierOrBehindAnotherOneIsDropped) {
    feed(pairs(100, 0, 256));
    EXPECT_THAT(takeLogTexts(), Contains("IQ handleIFDataIQ14 with mbIQStreamDataValid==false"));
    feedReal(items(100, 65280));
    EXPECT_THAT(takeLogTexts(), Contains("IQ handleIFDataI14 with mbIQStreamDataValid==false"));
    start();
    mpListener->handleExtensionContext(streamContext(77));
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ handleExtensionContext",
                                            "IQ handleExtensionContext (cont) streamID:77 (expected 1)"));
    feed(pairs(100, 0, 256));
    EXPECT_FALSE(next());
    mpListener->handleExtensionContext(streamContext(1));
    feed(pairs(100, 0, 256));
    EXPECT_TRUE(next());
}

TEST_F(IQPacketsTest, DataOfAnEarlierCaptureNeverReachesTheNextOne) {
    start();
    feed(pairs(100, 0, 256));
    EXPECT_TRUE(next());
    mbUnitAnswers = false;
    mcSCPI->mcOnSend = [this](const std::string& text) {
        if (text.rfind(":TRACe:STReam:STARt ", 0) != 0)
            return;
        feed(pairs(100, 0, 256));
        mpListener->handleExtensionContext(streamContext(1));
        feed(pairs(100, 0, 256));
        EXPECT_FALSE(next());
        mpListener->handleExtensionContext(streamContext(2));
        feed(pairs(100, 0, 256));
    };
    ASSERT_TRUE(mcEngine->start());
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
    EXPECT_EQ(cFrame->zerothSample(), 0u);
    EXPECT_FALSE(next());
}

TEST_F(IQPacketsTest, AnIdentifierOfAllOnesCannotBeToldAndTheNextStartSucceeds) {
    mcContext->setStreamIdentifier(0xFFFFFFFEu);
    EXPECT_FALSE(mcEngine->start());
    EXPECT_FALSE(mcEngine->isStreaming());
    EXPECT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt 0"));
}

TEST_F(IQPacketsTest, APacketIncompleteOrWithoutSamplesIsLoggedAndDropped) {
    start();
    const LogLine cDropped{-6019, "IQ IFData packet incomplete or without samples dropped"};
    feed(pairs(100, 0, 256).claimWords(300));
    EXPECT_THAT(takeLog(), ElementsAre(cDropped));
    feed(pairs(100, 0, 256).claimWords(200));
    EXPECT_THAT(takeLog(), ElementsAre(cDropped));
    feed(PacketBytes());
    EXPECT_THAT(takeLog(), ElementsAre(cDropped));
    feed(PacketBytes().trailer(kValid));
    EXPECT_THAT(takeLog(), ElementsAre(cDropped));
    feedReal(PacketBytes());
    EXPECT_THAT(takeLog(), ElementsAre(cDropped));
    mpListener->handleIFDataIQ14(makeReference<IFDataIQ14>(nullptr));
    EXPECT_THAT(takeLog(), ElementsAre(cDropped));
    EXPECT_FALSE(next());
    feed(pairs(100, 0, 1));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
}

TEST_F(IQPacketsTest, APacketOfAnotherSizeThanPlannedIsTakenAsItIs) {
    start();
    for (const uint32_t uCount : {1u, 31u, 65504u, 60000u})
        feed(pairs(100, 0, uCount));
    uint64_t uExpected = 0;
    while (const ReferencePtr<IQFrame> cFrame = next()) {
        EXPECT_EQ(cFrame->zerothSample(), uExpected);
        uExpected += cFrame->getArray()->getActive();
    }
    EXPECT_EQ(uExpected, 1u + 31u + 65504u + 60000u);
}

TEST_F(IQPacketsTest, ARealPacketIsConvertedAboutTheReportedTuning) {
    set("IFBWHz", 4e7f);
    start();
    mpListener->handleReceiverContext(receiverContext(2450000000u));
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ handleReceiverContext"));
    feedReal(items(1024, 65280).at(1, 5000));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->centreFrequency(), 2.45e9f);
    EXPECT_EQ(cFrame->bandwidth(), 4e7f);
    EXPECT_EQ(cFrame->sampleRate(), 62500000.0f);
    EXPECT_EQ(cFrame->getArray()->getActive(), 32640u);
    EXPECT_EQ(cFrame->timestamp(), 1000000005u);
    EXPECT_EQ(cFrame->referenceLevel(), -40.0f);
    EXPECT_EQ(cFrame->getUnits(), "sqrt-mw");
    EXPECT_NEAR(cFrame->level(), 20 * std::log10(0.125), 1e-5);
    EXPECT_TRUE(cFrame->isSubOptimal());  // below -13
    feedReal(items(4096, 65280));
    const ReferencePtr<IQFrame> cSecond = next();
    ASSERT_TRUE(cSecond);
    EXPECT_EQ(cSecond->zerothSample(), 32640u);
    EXPECT_EQ(cSecond->sequence(), 1u);
    EXPECT_FALSE(cSecond->isSubOptimal());
}

TEST_F(IQPacketsTest, DirectDigitizationCarriesTheBandFromNineKilohertz) {
    set("FCentreHz", 1e7f);
    set("IFBWHz", 1e6f);
    start();
    mpListener->handleReceiverContext(receiverContext(0));
    feedReal(items(4096, 65280));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->centreFrequency(), 0.0f);
    EXPECT_EQ(cFrame->sampleRate(), 62500000.0f);
    // A constant passes: not mixed, and in the band of the filter. Gain of the filter 1.00 to 1.03.
    const Complex<float> cLast = cFrame->getArray()->getData()[32639];
    EXPECT_NEAR(cLast.re, 0.5 * gainFor(-30) * 1.015, 0.5 * gainFor(-30) * 0.016);
    EXPECT_NEAR(cLast.im, 0.0, 1e-5);
}

TEST_F(IQPacketsTest, ALossOnTheRealPathLeavesAGapOfTwo) {
    set("IFBWHz", 4e7f);
    start();
    for (const uint32_t uTrailer : {kValid, kLoss, kOver | kLoss | kValid, kValid})
        feedReal(items(100, 65280).trailer(uTrailer));
    std::vector<uint32_t> lSequences;
    std::vector<std::string> lStatuses;
    while (const ReferencePtr<IQFrame> cFrame = next()) {
        lSequences.push_back(cFrame->sequence());
        const auto cExtras = cFrame->peekExtras();
        lStatuses.push_back(cExtras ? cExtras->getText("status").value_or("") : "");
    }
    EXPECT_THAT(lSequences, ElementsAre(0u, 3u, 6u, 7u));
    EXPECT_THAT(lStatuses, ElementsAre("", "invalid", "overflow", ""));
}

TEST_F(IQPacketsTest, ARealPacketOfAnotherLengthIsAnAssertionFailure) {
    set("IFBWHz", 4e7f);
    start();
    EXPECT_THROW(feedReal(items(100, 65278)), utils::FatalError);
    feedReal(items(100, 65280));
    EXPECT_TRUE(next());
}

TEST_F(IQPacketsTest, NoRealPacketAtAllIsLogged) {
    start();
    mpListener->handleIFDataI14(nullptr);
    EXPECT_THAT(takeLogTexts(), ElementsAre("_interpretI14 called with cI14==nullptr"));
}
