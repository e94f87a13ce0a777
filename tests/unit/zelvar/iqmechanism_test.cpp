#include "zelvar/iqmechanism.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <thread>

#include "foundations/clock.h"
#include "support/fakescpi.h"
#include "support/logs.h"
#include "support/zelvarpackets.h"

using namespace VITA49Zelvar;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using vnktest::LogLine;
using vnktest::PacketBytes;
using vnktest::takeLog;
using vnktest::takeLogTexts;

namespace {

constexpr StreamRanges kRanges{
    {9000.0f, 2.7e10f}, {9000.0f, 2.7e10f}, {1.0f, 1e7f}, {1e5f, 4e7f}, {-80.0f, 20.0f}};
constexpr uint32_t kLoss = 1u << kSampleLossEnable | 1u << kSampleLoss;
constexpr uint32_t kValid = 1u << kValidDataEnable;
constexpr uint32_t kOver = 1u << kOverRangeEnable | 1u << kOverRange;
constexpr uint32_t kInverted = 1u << kInversionEnable | 1u << kInversion;

ReferencePtr<ExtensionContext> streamContext(uint32_t uIdentifier) {
    return PacketBytes().u32(1u << 1).u32(uIdentifier).as<ExtensionContext>(kExtensionContext);
}

ReferencePtr<ExtensionContext> sweepContext(uint32_t uIdentifier) {
    return PacketBytes().u32(1u << 0).u32(uIdentifier).as<ExtensionContext>(kExtensionContext);
}

ReferencePtr<DigitizerContext> digitizerContext(int iReference128) {
    return PacketBytes()
        .u32(1u << 24)
        .u32(static_cast<uint32_t>(iReference128) & 0xFFFFu)
        .as<DigitizerContext>(kDigitizerContext);
}

ReferencePtr<ReceiverContext> receiverContext(uint64_t uHertz) {
    return PacketBytes().u32(1u << 27).u64(uHertz << 20).as<ReceiverContext>(kReceiverContext);
}

/// Pairs (i, q), as often as told.
PacketBytes pairs(int iI, int iQ, uint32_t uCount) {
    PacketBytes cBytes;
    for (uint32_t i = 0; i < uCount; ++i)
        cBytes.i16(iI).i16(iQ);
    return cBytes;
}

PacketBytes items(int iItem, uint32_t uCount) {
    return pairs(iItem, iItem, uCount / 2);
}

class IQMechanismTest : public testing::Test {
 protected:
    IQMechanismTest() {
        mcChannel->setProtocol(mcSCPI);
        set("FCentreHz", 1e8f);
        set("IFBWHz", 2e7f);
        set("RefdBm", -40.0f);
        set("bufferFrames", uint32_t{1000});
        make("ZV350-C");
        mcSCPI->mcOnSend = [this](const std::string& text) { answer(text); };
    }
    ~IQMechanismTest() override { mcSCPI->mcOnSend = nullptr; }
    void make(const std::string& model) {
        mcEngine = makeZelvarIQEngine(mcContext, mcStream, *findModel(model), kRanges,
                                      [this] { return mcDataProtocol; });
        mpListener = packetListener(*mcEngine);
        mcEngine->takeInStream();
        takeLog(true);
    }
    template <typename T>
    void set(const char* pKey, T value) {
        utils::VariantRecord cRecord;
        cRecord.set(pKey, value);
        ErrorList lErrors;
        ASSERT_TRUE(mcStream->setSinkParameters(cRecord, lErrors, false));
    }
    /// The unit names each capture that is started.
    void answer(const std::string& text) {
        if (!mbUnitAnswers)
            return;
        if (text.rfind(":TRACe:STReam:STARt ", 0) == 0)
            mpListener->handleExtensionContext(streamContext(numberOf(text)));
        if (text.rfind("SWEEP:LIST:START ", 0) == 0)
            mpListener->handleExtensionContext(sweepContext(numberOf(text)));
    }
    static uint32_t numberOf(const std::string& text) {
        return static_cast<uint32_t>(std::stoll(text.substr(text.rfind(' '))));
    }
    void start() {
        ASSERT_TRUE(mcEngine->start());
        mcSCPI->take();
        takeLog(true);
    }
    void feed(const PacketBytes& cBytes) { mpListener->handleIFDataIQ14(cBytes.as<IFDataIQ14>(kIFDataIQ14)); }
    void feedReal(const PacketBytes& cBytes) {
        mpListener->handleIFDataI14(cBytes.as<IFDataI14>(kIFDataI14));
    }
    ReferencePtr<IQFrame> next() { return dynamicReferenceCast<IQFrame>(mcStream->nextFrame(0, false)); }

    bool mbUnitAnswers = true;
    ReferencePtr<VITA49ZelvarProtocol> mcDataProtocol;
    ReferencePtr<vnktest::FakeSCPI> mcSCPI = makeReference<vnktest::FakeSCPI>();
    ReferencePtr<CommandChannel> mcChannel =
        makeReference<CommandChannel>(makeReference<LinkWatch>(), CommandWords{"no access"});
    ReferencePtr<EngineContext> mcContext = makeReference<EngineContext>(mcChannel, "unit one");
    ReferencePtr<IQFrameSink> mcStream = makeReference<IQFrameSink>();
    ReferencePtr<IQEngine> mcEngine;
    ZelvarPacketListener* mpListener = nullptr;
};

double gainFor(double fReference) {
    return std::pow(10.0, (fReference + 15.7678 - 3.0) / 20.0);
}

}  // namespace

TEST_F(IQMechanismTest, AContinuousCaptureSendsItsCommandsInOrder) {
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre("INPUT:MODE SH;:TRACe:SPPacket 65504;:SENSE:DEC 4;FREQ:CENT 100000000 Hz;"
                            ":INPut:ATTenuator:VARiable 0;:INPut:GAIN 1 1;:INPut:GAIN 2 1",
                            "SYST:ERR?", ":TRACe:STReam:STARt 1"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("no wait IQ stream start", "IQ handleExtensionContext",
                                            "IQ handleExtensionContext (cont) streamID:1 (expected 1)",
                                            "mbIQStreamDataValid"));
}

TEST_F(IQMechanismTest, ACaptureThatFitsIsASweepListWithoutAStop) {
    set("captureSec", 0.001f);
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(
        mcSCPI->take(),
        ElementsAre(":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:sweep:entry:att:var 0;"
                    ":sweep:entry:mode SH;:sweep:entry:freq:cent 100000000;:sweep:entry:spp 31264;"
                    ":sweep:entry:ppb 1;:sweep:entry:dec 4;:sweep:entry:save;"
                    ":INPut:GAIN 1 1;:INPut:GAIN 2 1",
                    "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_THAT(takeLogTexts(), ElementsAre("no wait finite IQ stream start", "IQ handleExtensionContext",
                                            "IQ handleExtensionContext (finite) sweepID:1 (expected 1)",
                                            "mbIQStreamDataValid"));
    feed(pairs(100, 0, 31264));
    EXPECT_TRUE(mcEngine->isExhausted());
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(takeLogTexts(), ElementsAre("::process finite capture completed"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(IQMechanismTest, ACaptureTooLongForTheUnitRunsContinuouslyAndIsStoppedByCount) {
    set("IFBWHz", 1e5f);
    set("captureSec", 120.0f);
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains("SWEEP:LIST:START 1"));
    set("IFBWHz", 2e7f);
    set("captureSec", 1.5f);
    set("bufferFrames", uint32_t{1});
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt 2"));
    takeLog(true);
    const auto cPacket = pairs(1000, 0, 65504).as<IFDataIQ14>(kIFDataIQ14);
    for (int i = 0; i < 716; ++i) {
        EXPECT_TRUE(mcEngine->process());
        mpListener->handleIFDataIQ14(cPacket);
    }
    EXPECT_FALSE(mcEngine->process());  // 716 x 65504 is not below 1.5 x 31.25e6
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":TRACe:STReam:STOP; :SYSTEM:FLUSH"));
    EXPECT_THAT(takeLogTexts(),
                Contains("::process issuing stop for non-self-terminating finite IQ capture"));
}

TEST_F(IQMechanismTest, AnUnrealizableRequestIsLoggedAndNothingIsSent) {
    set("FCentreHz", 2e10f);
    StreamRanges cNarrow = kRanges;
    cNarrow.mcCentreHz.mfMaximum = 8e9f;
    const auto cEngine = makeZelvarIQEngine(mcContext, mcStream, *findModel("ZV100-A"), cNarrow, nullptr);
    takeLog(true);
    EXPECT_FALSE(cEngine->start());
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ FCentreHz:20000000000, IFBWHz:20000000 is unrealizable"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
    EXPECT_FALSE(mcStream->getParameters().getNumber("SampleRateHz"));
}

TEST_F(IQMechanismTest, DirectDigitizationWithoutDecimationOffIsRefused) {
    ModelRecord cModel = *findModel("ZV350-C");
    cModel.mbDecimationOffAllowed = false;
    const auto cStream = makeReference<IQFrameSink>();
    utils::VariantRecord cRecord;
    cRecord.set("FCentreHz", 1e7f);
    cRecord.set("IFBWHz", 1e6f);
    ErrorList lErrors;
    ASSERT_TRUE(cStream->setSinkParameters(cRecord, lErrors, true));
    const auto cEngine = makeZelvarIQEngine(mcContext, cStream, cModel, kRanges, nullptr);
    EXPECT_FALSE(cEngine->start());
    EXPECT_THAT(takeLogTexts(), Contains("Decimation error for - IQ F:10000000, B:1000000 is unrealizable"));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(IQMechanismTest, APacketBecomesAFrameWithAllItsMetadata) {
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

TEST_F(IQMechanismTest, TheGainFollowsContextAndCalibrationAndAnAbsentLevelChangesNothing) {
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

TEST_F(IQMechanismTest, ACalibrationOfAnySizeIsHarmless) {
    set("UserCaldB", 1e30f);
    start();
    feed(pairs(1, 1, 256));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    uint32_t uCount = 0;
    EXPECT_TRUE(std::isinf(cFrame->getSamples(uCount)->re));
}

TEST_F(IQMechanismTest, AnInvertedSpectrumIsConjugatedOnlyWhenEnabledAndIndicated) {
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

TEST_F(IQMechanismTest, SampleLossLeavesAGapOfOneAndSaysInvalid) {
    start();
    for (const uint32_t uTrailer : {kValid, kLoss, kLoss | kValid, 1u << kSampleLoss, kOver, kLoss | kOver})
        feed(pairs(100, 0, 256).trailer(uTrailer));
    std::vector<uint32_t> lSequences;
    std::vector<std::string> lStatuses;
    while (const ReferencePtr<IQFrame> cFrame = next()) {
        lSequences.push_back(cFrame->sequence());
        const auto cExtras = cFrame->peekExtras();
        lStatuses.push_back(cExtras ? cExtras->getText("status").value_or("") : "");
    }
    EXPECT_THAT(lSequences, ElementsAre(0u, 2u, 4u, 5u, 6u, 8u));
    EXPECT_THAT(lStatuses, ElementsAre("", "invalid", "", "", "overflow", "invalid, overflow"));
    EXPECT_EQ(mcEngine->gapCount(), 3u);
}

TEST_F(IQMechanismTest, APacketOfZerosIsBelowAnyLevel) {
    start();
    feed(pairs(0, 0, 256));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->level(), -std::numeric_limits<float>::infinity());
    EXPECT_TRUE(cFrame->isSubOptimal());
}

TEST_F(IQMechanismTest, DataBeforeTheIdentifierOrBehindAnotherOneIsDropped) {
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

TEST_F(IQMechanismTest, DataOfAnEarlierCaptureNeverReachesTheNextOne) {
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

TEST_F(IQMechanismTest, AnIdentifierOfAllOnesCannotBeToldAndTheNextStartSucceeds) {
    mcContext->setStreamIdentifier(0xFFFFFFFEu);
    EXPECT_FALSE(mcEngine->start());
    EXPECT_FALSE(mcEngine->isStreaming());
    EXPECT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt 0"));
}

TEST_F(IQMechanismTest, APacketIncompleteOrWithoutSamplesIsLoggedAndDropped) {
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

TEST_F(IQMechanismTest, APacketOfAnotherSizeThanPlannedIsTakenAsItIs) {
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

TEST_F(IQMechanismTest, ARealPacketIsConvertedAboutTheReportedTuning) {
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

TEST_F(IQMechanismTest, DirectDigitizationCarriesTheBandFromNineKilohertz) {
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

TEST_F(IQMechanismTest, ALossOnTheRealPathLeavesAGapOfTwo) {
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

TEST_F(IQMechanismTest, ARealPacketOfAnotherLengthIsAnAssertionFailure) {
    set("IFBWHz", 4e7f);
    start();
    EXPECT_THROW(feedReal(items(100, 65278)), utils::FatalError);
    feedReal(items(100, 65280));
    EXPECT_TRUE(next());
}

TEST_F(IQMechanismTest, NoRealPacketAtAllIsLogged) {
    start();
    mpListener->handleIFDataI14(nullptr);
    EXPECT_THAT(takeLogTexts(), ElementsAre("_interpretI14 called with cI14==nullptr"));
}

TEST_F(IQMechanismTest, AQuietStopEmptiesTheDataLinkAndOneWithoutALinkDoesNotWait) {
    start();
    mcEngine->stop(true);
    start();
    mcDataProtocol = makeReference<VITA49ZelvarProtocol>(nullptr);
    const uint64_t uStart = utils::steadyMilliseconds();
    mcEngine->stop(true);
    EXPECT_GE(utils::steadyMilliseconds() - uStart, 100u);  // five quiet passes
}

TEST_F(IQMechanismTest, AStrongSignalStepsTheLevelUpAndTheNextStartUsesIt) {
    set("adaptStep", true);
    set("RefdBm", -15.0f);
    set("IFBWHz", 1e7f);
    start();
    mcEngine->takeRestart();
    feed(pairs(4607, 0, 256));  // -5 dB
    mcEngine->stop(false);
    EXPECT_EQ(mcStream->getParameters().getNumber("RefdBm"), -5.0f);
    EXPECT_TRUE(mcEngine->takeRestart());
    mcSCPI->take();
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take().front(), testing::EndsWith(":INPut:GAIN 1 1;:INPut:GAIN 2 0"));
}

TEST_F(IQMechanismTest, PacketsRestartsAndADetachAtOnceAreSafe) {
    mbUnitAnswers = false;
    std::atomic<uint32_t> uStarted{0};
    mcSCPI->mcOnSend = [&](const std::string& text) {
        if (text.rfind(":TRACe:STReam:STARt ", 0) == 0)
            uStarted = numberOf(text);
    };
    std::atomic<bool> bDone{false};
    std::thread cPackets([&] {
        while (!bDone) {
            mpListener->handleDigitizerContext(digitizerContext(-30 * 128));
            mpListener->handleExtensionContext(streamContext(uStarted));
            feed(pairs(100, 0, 64));
        }
    });
    std::thread cLoop([&] {
        for (int i = 0; i < 50; ++i) {
            EXPECT_TRUE(mcEngine->start());
            mcEngine->process();
            mcEngine->isExhausted();
            mcEngine->stop(false);
        }
    });
    cLoop.join();
    mcEngine->removeFrameSink(mcStream);
    bDone = true;
    cPackets.join();
    EXPECT_FALSE(mcStream->isAttached());
}
