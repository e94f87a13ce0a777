#include "quillon/iqmechanism.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "quillon/ranges.h"
#include "support/enginefixture.h"
#include "support/iqframes.h"
#include "support/logs.h"
#include "unit/quillon/quillonpackets.h"

using namespace vnktest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr StreamRanges kRanges{
    {9000.0f, 2e10f}, {9000.0f, 2e10f}, Quillon::kRBWRange, Quillon::kIFBWRange, Quillon::kReferenceLevelRange};
constexpr const char* kForced = "stream force-terminated or finite capture completed";
constexpr const char* kStops = "issuing stop for continuous IQ capture (not self-terminating)";

Pairs pairs(int iI, int iQ, uint32_t uCount = 256) {
    return Pairs(uCount, {iI, iQ});
}

class QuillonIQ : public EngineFixture<IQFrameSink> {
 protected:
    QuillonIQ() {
        set("FCentreHz", 1e8f);
        set("IFBWHz", 2e7f);
        set("RefdBm", -20.0f);
        set("bufferFrames", uint32_t{1000});
        mcEngine = makeReference<Quillon::_IQMechanism>(mcContext, mcStream, kRanges,
                                                        [this] { return mcDataProtocol; });
        mcEngine->takeInStream();
        // The unit names each capture that is started.
        mcSCPI->mcOnSend = [this](const std::string& text) {
            if (text.rfind(":TRACe:STReam:STARt ", 0) == 0)
                mcEngine->handleExtensionContext(identifierContext(kStreamBit, numberOf(text)));
            if (text.rfind("SWEEP:LIST:START ", 0) == 0)
                mcEngine->handleExtensionContext(identifierContext(kSweepBit, numberOf(text)));
        };
        takeLog(true);
    }
    ~QuillonIQ() override { mcSCPI->mcOnSend = nullptr; }
    void start() {
        ASSERT_TRUE(mcEngine->start());
        mcSCPI->take();
        takeLog(true);
    }
    void feed(const Pairs& lPairs, const DataForm& cForm = {}) { mcEngine->handleIFData(dataOf(lPairs, cForm)); }
    ReferencePtr<IQFrame> next() { return dynamicReferenceCast<IQFrame>(mcStream->nextFrame(0, false)); }
    /// The first sample of the next frame.
    Complex<float> nextSample() {
        const ReferencePtr<IQFrame> cFrame = next();
        uint32_t uCount = 0;
        return cFrame ? cFrame->getSamples(uCount)[0] : Complex<float>{};
    }
    /// What half of full scale becomes.
    float halfScale() {
        feed(pairs(16384, 0));
        return nextSample().re;
    }

    ReferencePtr<VITA49Protocol> mcDataProtocol;
    ReferencePtr<Quillon::_IQMechanism> mcEngine;
};

double halfAt(double fReference) {
    return 0.5 * std::pow(10.0, fReference / 20.0);
}

}  // namespace

// Commands.

TEST_F(QuillonIQ, AContinuousCaptureSendsItsCommandsInOrder) {
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":TRACe:SPPacket 32768;:SENSE:DEC 4;FREQ:CENT 100000000 Hz;"
                                            ":DEBUG:REFERENCE:LEVEL -20",
                                            "SYST:ERR?", ":TRACe:STReam:STARt 1"));
    EXPECT_THAT(takeLogTexts(),
                ElementsAre("For IFBW:20000000 chose decimation 4, filter ratio 0.651042, sample rate 30720000.000000",
                            "no wait IQ stream start", "IQ handleExtensionContext streamID:1 (expected 1)",
                            "mbIQStreamDataValid"));
}

TEST_F(QuillonIQ, ACaptureThatFitsIsAListThatEndsByItself) {
    set("captureSec", 0.0008501f);   // 26115.1 samples, in a packet of whole 32
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(),
                ElementsAre(":sweep:entry:delete all;:sweep:entry:new;:sweep:list:iter 1;:DEBUG:REFERENCE:LEVEL -20;"
                            ":sweep:entry:freq:cent 100000000;:sweep:entry:spp 26144;:sweep:entry:ppb 1;"
                            ":sweep:entry:dec 4;:sweep:entry:save",
                            "SYST:ERR?", "SWEEP:LIST:START 1"));
    EXPECT_THAT(takeLogTexts(),
                ElementsAre(testing::StartsWith("For IFBW:20000000"), "no wait finite IQ stream start",
                            "IQ handleExtensionContext (finite) streamID:1 (expected 1)", "mbIQStreamDataValid"));
    feed(pairs(100, 0, 26143));
    EXPECT_TRUE(mcEngine->process());
    feed(pairs(100, 0, 1));
    EXPECT_TRUE(mcEngine->isExhausted());
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(takeLogTexts(), ElementsAre(kForced));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(QuillonIQ, AFiniteCaptureThatIsDetachedEndsWithTheSameWords) {
    set("captureSec", 0.002f);
    start();
    mcEngine->removeFrameSink(mcStream);
    takeLog(true);
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(takeLogTexts(), ElementsAre(kForced));
}

TEST_F(QuillonIQ, AContinuousCaptureThatIsDetachedIsStoppedByCommand) {
    start();
    EXPECT_TRUE(mcEngine->process());
    mcEngine->removeFrameSink(mcStream);
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STOP; :SYSTEM:FLUSH"));
    const auto lTexts = takeLogTexts();
    EXPECT_THAT(lTexts, Contains(kStops));
    EXPECT_THAT(lTexts, Not(Contains(kForced)));
}

TEST_F(QuillonIQ, ACaptureTooLongForTheUnitIsStoppedByItsCount) {
    set("captureSec", 1.5f);   // 46.08e6 samples, of which the unit holds 33.5e6
    set("bufferFrames", uint32_t{1});
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take(), Contains(":TRACe:STReam:STARt 1"));
    takeLog(true);
    const auto cPacket = dataOf(pairs(1000, 0, 32768));
    for (int i = 0; i < 1407; ++i) {   // 1406 packets are 46071808 samples
        EXPECT_TRUE(mcEngine->process());
        mcEngine->handleIFData(cPacket);
    }
    EXPECT_FALSE(mcEngine->process());
    EXPECT_THAT(takeLogTexts(), Contains(kStops));
    EXPECT_THAT(mcSCPI->take(), ElementsAre(":TRACe:STReam:STOP; :SYSTEM:FLUSH"));
}

TEST_F(QuillonIQ, ABandwidthBeyondTheRateSendsNothing) {
    StreamRanges cWider = kRanges;
    cWider.mcIFBWHz.mfMaximum = 2e8f;
    const auto cStream = makeReference<IQFrameSink>();
    utils::VariantRecord cRecord(R"({"FCentreHz":1e9,"IFBWHz":1.1e8})");
    ErrorList lErrors;
    ASSERT_TRUE(cStream->setSinkParameters(cRecord, lErrors, true));
    const auto cEngine = makeReference<Quillon::_IQMechanism>(mcContext, cStream, cWider, nullptr);
    EXPECT_FALSE(cEngine->start());
    EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6004, "Cannot set valid IFBW - request was 110000000Hz"}));
    EXPECT_THAT(mcSCPI->take(), IsEmpty());
}

TEST_F(QuillonIQ, TheLevelIsNotFollowedBetweenCaptures) {
    set("adaptStep", true);
    set("adaptFull", true);
    start();
    mcEngine->takeRestart();
    feed(pairs(32767, 0));
    mcEngine->stop(false);
    EXPECT_EQ(mcStream->getParameters().getNumber("RefdBm"), -20.0f);
    EXPECT_FALSE(mcEngine->takeRestart());
    mcSCPI->take();
    ASSERT_TRUE(mcEngine->start());
    EXPECT_THAT(mcSCPI->take().front(), testing::EndsWith(":DEBUG:REFERENCE:LEVEL -20"));
}

// Packets.

TEST_F(QuillonIQ, APacketBecomesAFrameWithAllItsMetadata) {
    start();
    mcEngine->handleIFContext(levelOf(-20));
    feed(pairs(16384, -8192, 512));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
    EXPECT_EQ(cFrame->zerothSample(), 0u);
    EXPECT_EQ(cFrame->timestamp(), 1700000000123456789u);
    EXPECT_EQ(cFrame->timeResolution(), 3u);
    EXPECT_EQ(cFrame->centreFrequency(), 1e8f);
    EXPECT_EQ(cFrame->bandwidth(), 2e7f);
    EXPECT_EQ(cFrame->sampleRate(), 30720000.0f);
    EXPECT_EQ(cFrame->referenceLevel(), -20.0f);
    EXPECT_EQ(cFrame->getUnits(), "sqrt-mw");
    EXPECT_FALSE(cFrame->peekExtras());
    uint32_t uCount = 0;
    const Complex<float>* pSamples = cFrame->getSamples(uCount);
    ASSERT_EQ(uCount, 512u);
    EXPECT_NEAR(pSamples[511].re, 0.05, 1e-7);
    EXPECT_NEAR(pSamples[511].im, -0.025, 1e-7);
    feed(pairs(100, 0));
    EXPECT_EQ(next()->zerothSample(), 512u);
}

TEST_F(QuillonIQ, TheScaleIsTheLevelOfTheLastContextAndNothingElse) {
    start();
    for (const int iLevel : {-20, 0, 10, -128, -1, 127}) {
        mcEngine->handleIFContext(levelOf(iLevel));
        EXPECT_NEAR(halfScale() / halfAt(iLevel), 1.0, 1e-5) << iLevel;
        // One that tells of other things leaves it.
        mcEngine->handleIFContext(tunedTo(100000000));
        EXPECT_NEAR(halfScale() / halfAt(iLevel), 1.0, 1e-5) << iLevel;
    }
    mcEngine->handleIFContext(rawTuning({}, -20 * 128 - 64));
    EXPECT_NEAR(halfScale() / halfAt(-20.5), 1.0, 1e-5);
    set("UserCaldB", -6.0f);
    start();
    EXPECT_NEAR(halfScale() / halfAt(-20.5), 1.0, 1e-5);
}

TEST_F(QuillonIQ, TheLevelOfAFrameIsThatOfItsPeakWhateverTheScale) {
    start();
    const std::pair<int, double> cRows[] = {{16384, 0.5}, {-32768, 1.0}, {32767, 32767.0 / 32768}, {1, 1.0 / 32768}};
    for (const int iReference : {-40, 0, 10})
        for (const auto& [iPeak, fOfFull] : cRows) {
            mcEngine->handleIFContext(levelOf(iReference));
            Pairs lPairs = pairs(0, 0);
            lPairs[100].second = iPeak;
            feed(lPairs);
            EXPECT_NEAR(next()->level(), 20.0 * std::log10(fOfFull), 1e-4) << iPeak;
        }
    feed(pairs(0, 0));
    EXPECT_EQ(next()->level(), -std::numeric_limits<float>::infinity());
}

TEST_F(QuillonIQ, SampleLossLeavesAGapOfOneAndSaysInvalid) {
    start();
    for (const uint32_t uTrailer : kMarkingTrailers)
        feed(pairs(100, 0), {.mcTrailer = uTrailer});
    EXPECT_EQ(takeMarks(*mcStream), marksOfTrailers());
    EXPECT_EQ(mcEngine->gapCount(), 3u);
}

TEST_F(QuillonIQ, AnInvertedSpectrumIsConjugatedOnlyWhenEnabledAndIndicated) {
    start();
    for (const uint32_t uTrailer : {kInverted, 1u << VRT::kInversion, 1u << VRT::kInversionEnable}) {
        feed(pairs(100, 50), {.mcTrailer = uTrailer});
        EXPECT_EQ(nextSample().im < 0.0f, uTrailer == kInverted) << uTrailer;
    }
}

TEST_F(QuillonIQ, WithoutAFormatAPacketCannotBeDecoded) {
    start();
    feed(pairs(100, 0), {.mbFormat = false});
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ data packet decoding failed"));
    EXPECT_FALSE(next());
    feed(pairs(100, 0));
    const ReferencePtr<IQFrame> cFrame = next();
    ASSERT_TRUE(cFrame);
    EXPECT_EQ(cFrame->sequence(), 0u);
    EXPECT_EQ(cFrame->zerothSample(), 0u);
}

TEST_F(QuillonIQ, APacketThatIsNotWholeOrEmptyIsReportedAndDropped) {
    start();
    for (const auto& [lPairs, uClaimed] : {std::pair<Pairs, uint32_t>{pairs(1, 1, 8), 100u}, {{}, 0u}}) {
        feed(lPairs, {.muClaimedWords = uClaimed});
        EXPECT_THAT(takeLog(), ElementsAre(LogLine{-6019, "IQ IFData packet incomplete or without samples dropped"}));
    }
    EXPECT_FALSE(next());
}

TEST_F(QuillonIQ, DataBeforeTheIdentifierOrBehindAnotherOneIsDropped) {
    feed(pairs(100, 0));
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ handleIFData with mbIQStreamDataValid==false"));
    start();
    mcEngine->handleExtensionContext(identifierContext(kStreamBit, 77));
    feed(pairs(100, 0));
    EXPECT_THAT(takeLogTexts(), ElementsAre("IQ handleExtensionContext streamID:77 (expected 1)",
                                            "IQ handleIFData with mbIQStreamDataValid==false"));
    mcEngine->handleExtensionContext(identifierContext(kSweepBit, 1));
    EXPECT_THAT(takeLogTexts(),
                ElementsAre("IQ handleExtensionContext (finite) streamID:1 (expected 1)", "mbIQStreamDataValid"));
    EXPECT_FALSE(next());
    feed(pairs(100, 0));
    EXPECT_TRUE(next());
}

TEST_F(QuillonIQ, PacketsRestartsAndADetachAtOnceAreSafe) {
    restartUnderPackets(*mcEngine, [this](uint32_t uStarted) {
        mcEngine->handleIFContext(levelOf(-30));
        mcEngine->handleExtensionContext(identifierContext(kStreamBit, uStarted));
        feed(pairs(100, 0, 64));
    });
}
