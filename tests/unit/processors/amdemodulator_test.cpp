#include "processors/amdemodulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <limits>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "foundations/text.h"
#include "support/amplitudemodel.h"
#include "unit/processors/demodulatorsupport.h"

namespace {

using namespace demodulation;
using AMBench = Bench<AMDemodulator>;

using amplitude::kBoth;
using amplitude::kLower;
using amplitude::kUpper;
using amplitude::Model;
using amplitude::Side;

const char* typeOf(Side eSide) {
    return eSide == kBoth    ? "{\"type\":\"DSB\"}"
           : eSide == kUpper ? "{\"type\":\"USB\"}"
                             : "{\"type\":\"LSB\"}";
}

std::vector<float> demodulated(const Samples& lSamples, float fRate, Side eSide, size_t uPerFrame = 4096) {
    AMBench cBench;
    EXPECT_TRUE(cBench.set(typeOf(eSide)));
    cBench.processAll(lSamples, fRate, uPerFrame);
    return cBench.listener().audio();
}

class AM : public FlowTest {
 protected:
    AMBench mcBench;
};

}  // namespace

TEST_F(AM, TellsItsParameters) {
    EXPECT_EQ(
        mcBench->getParameterInfo().toCompactText(),
        "{\"OutputSampleRate\":{\"default\":44100.000000,\"description\":\"<desired output sample rate. "
        "Program "
        "to cause resampling.>\",\"max\":1000000.000000,\"min\":4000.000000,\"units\":\"Hz\"},"
        "\"flowControl\":\"<If set true, limit capture rate to ensure minimal network buffering>\","
        "\"frames\":{\"description\":\"<count of frames processed>\",\"readonly\":true},"
        "\"type\":{\"description\":\"<AM demodulator subtype>\",\"values\":[\"DSB\",\"USB\",\"LSB\"]}}");
    EXPECT_EQ(mcBench->getParameters().keys(),
              (std::list<std::string>{"bufferDiscard", "bufferFrames", "bufferSec", "flowControl", "frames",
                                      "type"}));
    EXPECT_EQ(mcBench->getName(), "AMDemodulator");
}

TEST_F(AM, ATypeIsTakenInUpperOrLowerCase) {
    EXPECT_EQ(mcBench.parameter("type"), "{\"type\":\"DSB\"}");
    for (const auto& [pGiven, pShown] : {std::pair{"usb", "USB"},
                                         {"lsb", "LSB"},
                                         {"dsb", "DSB"},
                                         {"USB", "USB"},
                                         {"LSB", "LSB"},
                                         {"DSB", "DSB"}}) {
        utils::VariantRecord cRecord;
        cRecord.set("type", pGiven);
        EXPECT_TRUE(mcBench->setSinkParameters(cRecord, mlErrors, false));
        EXPECT_EQ(mcBench.parameter("type"), std::string("{\"type\":\"") + pShown + "\"}");
    }
    EXPECT_EQ(mlErrors, ErrorList{});
}

TEST_F(AM, ATypeInMixedCaseIsRefused) {
    ASSERT_TRUE(mcBench.set("{\"type\":\"LSB\"}"));
    EXPECT_FALSE(mcBench.set("{\"type\":\"Usb\"}"));
    EXPECT_EQ(mcBench.mlErrors, ErrorList{"AM demodulator type <Usb> not known"});
    EXPECT_EQ(statuses(), std::vector<int32_t>{-13});
    EXPECT_EQ(mcBench.parameter("type"), "{\"type\":\"LSB\"}");
    EXPECT_FALSE(mcBench.set("{\"type\":\"\"}"));
    EXPECT_EQ(mcBench.mlErrors, ErrorList{"AM demodulator type <> not known"});
    EXPECT_FALSE(mcBench.set("{\"type\":2}"));
    EXPECT_EQ(mcBench.mlErrors, ErrorList{"Attempted to integrate unknown parameter 'type'"});
}

TEST_F(AM, ARefusedTypeLeavesAnOutputRateGivenWithItInForce) {
    EXPECT_FALSE(mcBench.set("{\"type\":\"FM\",\"OutputSampleRate\":8000,\"bufferFrames\":20}"));
    EXPECT_EQ(mcBench.parameter("OutputSampleRate"), "{\"OutputSampleRate\":8000.000000}");
    EXPECT_EQ(mcBench.parameter("bufferFrames"), "{\"bufferFrames\":10}");
}

TEST_F(AM, AGivenTypeBeginsTheCountAndTheFiltersAnew) {
    const Samples lSamples = roughSignal(200);
    mcBench.process(lSamples, 8000.0f);
    mcBench.process(lSamples, 8000.0f);
    EXPECT_EQ(mcBench.parameter("frames"), "{\"frames\":2}");
    ASSERT_TRUE(mcBench.set("{\"type\":\"dsb\"}"));
    EXPECT_EQ(mcBench.parameter("frames"), "{\"frames\":0}");
    mcBench.process(lSamples, 8000.0f);
    EXPECT_EQ(mcBench.parameter("frames"), "{\"frames\":1}");
    const std::vector<float> lAudio = mcBench.listener().audio();
    const std::vector<float> lFirst(lAudio.begin(), lAudio.begin() + 200);
    EXPECT_NE(std::vector<float>(lAudio.begin() + 200, lAudio.begin() + 400), lFirst);
    EXPECT_EQ(std::vector<float>(lAudio.begin() + 400, lAudio.end()), lFirst);
}

TEST_F(AM, GivesTheSamplesOfItsDescription) {
    const Samples lSamples = roughSignal(20000);
    for (const float fRate : {5.0f, 8000.0f, 48000.0f, 2.5e6f})
        for (const Side eSide : {kBoth, kUpper, kLower}) {
            const std::vector<double> lWanted = Model(static_cast<double>(fRate), eSide).of(lSamples);
            EXPECT_LT(greatestDifference(demodulated(lSamples, fRate, eSide), lWanted), 1e-5)
                << fRate << " " << eSide;
        }
}

TEST_F(AM, LevelsWhoseSquaresSinglePrecisionCannotHoldAreHeardAsOthersAre) {
    for (const float fScale : {1e20f, 1e-23f})
        for (const Side eSide : {kBoth, kUpper, kLower}) {
            Samples lSamples = roughSignal(3000);
            for (auto& cSample : lSamples)
                cSample *= fScale;
            const std::vector<double> lWanted = Model(8000, eSide).of(lSamples);
            EXPECT_LT(greatestDifference(demodulated(lSamples, 8000.0f, eSide), lWanted), 1e-5)
                << fScale << " " << eSide;
        }
}

TEST_F(AM, FramesOfAnySizeGiveTheSameSamples) {
    const Samples lSamples = roughSignal(5000);
    for (const Side eSide : {kBoth, kUpper, kLower}) {
        const std::vector<float> lWhole = demodulated(lSamples, 48000.0f, eSide, 5000);
        for (const size_t uPerFrame : {1u, 37u, 38u, 1023u, 1024u, 1025u})
            EXPECT_EQ(demodulated(lSamples, 48000.0f, eSide, uPerFrame), lWhole) << uPerFrame;
    }
}

TEST_F(AM, AGapInTheSequenceRebuildsTheFiltersAndClearsTheirState) {
    const Samples lSamples = roughSignal(300);
    for (const Side eSide : {kBoth, kUpper}) {
        AMBench cBench;
        ASSERT_TRUE(cBench.set(typeOf(eSide)));
        cBench.process(lSamples, 8000.0f, 10);
        cBench.process(lSamples, 8000.0f, 11);
        cBench.process(lSamples, 8000.0f, 13);
        cBench.process(lSamples, 8000.0f, 13);
        const auto lFrames = cBench.listener().frames();
        const auto audio = [&lFrames](size_t i) {
            const float* p = lFrames[i]->getChannel(0)->getData();
            return std::vector<float>(p, p + 300);
        };
        EXPECT_NE(audio(1), audio(0)) << "goes on";
        EXPECT_EQ(audio(2), audio(0));
        EXPECT_EQ(audio(3), audio(0)) << "a number that comes twice is a gap too";
    }
}

TEST_F(AM, TheSequenceGoesOnAtZeroBehindItsLastTwoNumbers) {
    const Samples lSamples = roughSignal(300);
    for (const uint32_t uLast : {0xFFFFFFFEu, 0xFFFFFFFFu}) {
        AMBench cBench;
        cBench.process(lSamples, 8000.0f, uLast);
        cBench.process(lSamples, 8000.0f, 0);
        const std::vector<float> lAudio = cBench.listener().audio();
        EXPECT_FALSE(std::equal(lAudio.begin(), lAudio.begin() + 300, lAudio.begin() + 300)) << uLast;
    }
    mcBench.process(lSamples, 8000.0f, 0xFFFFFFFEu);
    mcBench.process(lSamples, 8000.0f, 0xFFFFFFFFu);
    const std::vector<float> lAudio = mcBench.listener().audio();
    EXPECT_TRUE(std::equal(lAudio.begin(), lAudio.begin() + 300, lAudio.begin() + 300)) << "not expected";
}

TEST_F(AM, ARateThatChangesWithoutAGapLeavesTheFiltersAsTheyAre) {
    const Samples lSamples = roughSignal(600);
    mcBench.process(Samples(lSamples.begin(), lSamples.begin() + 300), 8000.0f);
    mcBench.process(Samples(lSamples.begin() + 300, lSamples.end()), 16000.0f);
    EXPECT_LT(greatestDifference(mcBench.listener().audio(), Model(8000, kBoth).of(lSamples)), 1e-5);
    EXPECT_EQ(mcBench.listener().frames()[1]->sampleRate(), 16000.0f);
}

TEST_F(AM, SamplesAreTotalled) {
    mcBench.process(roughSignal(300), 8000.0f);
    mcBench.process(roughSignal(1), 8000.0f);
    EXPECT_EQ(mcBench->samplesTaken(), 301u);
}

TEST_F(AM, SilenceIsSilentAndLeavesNothingBehind) {
    Samples lSamples(500);
    for (const Side eSide : {kBoth, kUpper, kLower}) {
        const Samples lRough = roughSignal(500, 7);
        Samples lBoth = lSamples;
        lBoth.insert(lBoth.end(), lRough.begin(), lRough.end());
        const std::vector<float> lAudio = demodulated(lBoth, 8000.0f, eSide, 250);
        EXPECT_EQ(std::vector<float>(lAudio.begin(), lAudio.begin() + 500), std::vector<float>(500, 0.0f));
        EXPECT_LT(greatestDifference(lAudio, Model(8000, eSide).of(lBoth)), 1e-5);
    }
}

TEST_F(AM, AFrameWithoutSamplesGivesOneWithoutSamples) {
    mcBench.process({}, 8000.0f);
    mcBench->processFrame(makeReference<IQFrame>(1u, uint64_t{0}, uint64_t{0}, uint32_t{kNanoseconds}, 1e6f,
                                                 1e5f, 8000.0f, -30.0f, nullptr, std::string()));
    const auto lFrames = mcBench.listener().frames();
    ASSERT_EQ(lFrames.size(), 2u);
    EXPECT_EQ(lFrames[0]->samplesPerChannel(), 0u);
    EXPECT_EQ(lFrames[1]->samplesPerChannel(), 0u);
    ASSERT_TRUE(mcBench.set("{\"OutputSampleRate\":4000}"));
    mcBench.process({}, 8000.0f, 2);
    mcBench.process(roughSignal(3000), 8000.0f, 3);
    EXPECT_EQ(mcBench.listener().count(), 3u) << "and none to the resampler";
}

TEST_F(AM, ARateThatIsNoNumberOrNegativeFailsAndTheNextFrameBeginsAnew) {
    const Samples lSamples = roughSignal(300);
    for (const float fRate : {std::numeric_limits<float>::quiet_NaN(), -8000.0f}) {
        AMBench cBench;
        cBench.process(lSamples, 8000.0f, 0);
        try {
            cBench.process(lSamples, fRate, 5);
            ADD_FAILURE() << fRate;
        } catch (const utils::FatalError& cError) {
            EXPECT_NE(cError.message().find("ASSERT failed <f3dB <= (fSample/2.0f)>"), std::string::npos)
                << cError.message();
        }
        cBench.process(lSamples, 8000.0f, 1);
        const std::vector<float> lAudio = cBench.listener().audio();
        ASSERT_EQ(lAudio.size(), 600u);
        EXPECT_TRUE(std::equal(lAudio.begin(), lAudio.begin() + 300, lAudio.begin() + 300));
    }
}

TEST_F(AM, ARateOfZeroOrBeyondAllBoundsIsSurvived) {
    for (const float fRate :
         {0.0f, 1e30f, std::numeric_limits<float>::max(), 1e-30f, std::numeric_limits<float>::infinity()})
        for (const Side eSide : {kBoth, kUpper}) {
            const std::vector<float> lAudio = demodulated(roughSignal(300), fRate, eSide);
            ASSERT_EQ(lAudio.size(), 300u) << fRate;
            for (const float fValue : lAudio)
                ASSERT_LE(std::abs(fValue), 2.0f) << fRate;
        }
}

TEST_F(AM, WhatIsNoNumberStaysUntilAGapWhereverItStands) {
    for (const Side eSide : {kBoth, kUpper})
        for (const size_t uBad : {0u, 1u, 100u}) {
            Samples lBad = roughSignal(300);
            lBad[uBad] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::quiet_NaN()};
            AMBench cBench;
            ASSERT_TRUE(cBench.set(typeOf(eSide)));
            cBench.process(lBad, 8000.0f, 0);
            cBench.process(roughSignal(300), 8000.0f, 1);
            cBench.process(roughSignal(300), 8000.0f, 5);
            const std::vector<float> lAudio = cBench.listener().audio();
            ASSERT_EQ(lAudio.size(), 900u);
            for (size_t i = 0; i < uBad; ++i)
                EXPECT_TRUE(std::isfinite(lAudio[i])) << i;
            // A single sideband may see it later: the delay lines come first.
            for (size_t i = eSide == kBoth ? uBad : uBad + 128; i < 600; ++i)
                ASSERT_TRUE(std::isnan(lAudio[i])) << uBad << " at " << i;
            EXPECT_LT(greatestDifference({lAudio.begin() + 600, lAudio.end()},
                                         Model(8000, eSide).of(roughSignal(300))),
                      1e-5);
        }
}

// What is heard.

// The peak that divides falls between the crests of a tone, by half the tone's period over a tenth of a
// second: what that does to a tone grows with the period.
TEST_F(AM, ATonesFrequencyIsKeptAndItsDistortionSmall) {
    for (const ToneCase& c : {ToneCase{12000.0f, 970}, ToneCase{47368.42f, 1000}, ToneCase{96000.0f, 3000},
                              ToneCase{256000.0f, 5000}, ToneCase{500000.0f, 20000}}) {
        const Samples lSamples = amplitudeModulated(c.rate(), c.samples(), c.mfToneHz, 0.5);
        const Sine cSine = checkTone(demodulated(lSamples, c.mfRate, kBoth), c, "AM");
        EXPECT_LT(cSine.mfDistortion, 3.0 / c.mfToneHz);
        EXPECT_LT(cSine.mfNoise,
                  3.0 / c.mfToneHz + 0.25 * (1 - std::cos(std::numbers::pi * c.mfToneHz / c.rate())));
        EXPECT_NEAR(cSine.mfAmplitude, 1, 0.05);
    }
}

TEST_F(AM, TheUnwantedSidebandIs40dBDown) {
    constexpr size_t kLead = 4096, kCount = 32768, kSettled = 2048;
    // A strong tone first sets the peak, which then falls at a pace that is the same for both sides.
    const auto levelOf = [](double f, Side eSide) {
        const Samples lSamples = sampled(1, kLead + kCount, [f](double t) {
            return t < kLead ? std::complex<double>(std::cos(2 * std::numbers::pi * 0.1 * t))
                             : std::polar(0.25, 2 * std::numbers::pi * f * t);
        });
        const std::vector<double> lTone = tail(demodulated(lSamples, 5e6f, eSide), kLead + kSettled);
        std::complex<double> cSum = 0;
        for (size_t i = 0; i < lTone.size(); ++i) {
            const double x = (static_cast<double>(i) + 0.5) / static_cast<double>(lTone.size());
            cSum += lTone[i] * (1 - std::cos(2 * std::numbers::pi * x)) *
                    std::polar(1.0, -2 * std::numbers::pi * f * static_cast<double>(i));
        }
        return 20 * std::log10(std::abs(cSum));
    };
    for (const Side eSide : {kUpper, kLower}) {
        double fWorst = 1e9, fWhere = 0;
        for (int i = 0; i <= 60; ++i) {
            const double f = 0.012 + (0.45 - 0.012) * i / 60;
            const double fDown = levelOf(eSide * f, eSide) - levelOf(-eSide * f, eSide);
            if (fDown < fWorst) {
                fWorst = fDown;
                fWhere = f;
            }
        }
        std::printf("%s: unwanted sideband %.1f dB down at worst, at %.3f of the rate\n",
                    eSide == kUpper ? "USB" : "LSB", fWorst, fWhere);
        EXPECT_GT(fWorst, 40);
    }
}

TEST_F(AM, AResampledToneSlipsAtTheJointsOfFramesAndJumpsNowhere) {
    for (const ToneCase& c :
         {ToneCase{12000.0f, 470, 8000.0f, 4096}, ToneCase{48000.0f, 1000, 44100.0f, 12192},
          ToneCase{96000.0f, 2000, 48000.0f, 4096}, ToneCase{256000.0f, 2000, 44100.0f, 16384},
          ToneCase{500000.0f, 3000, 96000.0f, 65504}}) {
        AMBench cBench;
        ASSERT_TRUE(cBench.set(
            utils::formatText("{\"OutputSampleRate\":%.1f}", static_cast<double>(c.mfOutputRate)).c_str()));
        cBench.processAll(amplitudeModulated(c.rate(), c.samples(), c.mfToneHz, 0.5), c.mfRate, c.muPerFrame);
        checkResampledTone(cBench.listener().audio(), c, 0.02, "AM");
    }
}
