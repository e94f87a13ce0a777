#include "processors/fmdemodulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

#include "dsp/lowpasstaps.h"
#include "foundations/text.h"
#include "support/loopback.h"
#include "unit/processors/demodulatorsupport.h"

namespace {

using namespace demodulation;
using FMBench = Bench<FMDemodulator>;

/// The demodulator as it is described, one sample after the other, in double precision.
class Model {
 public:
    Model() {
        for (const double fTap : LowPassTaps::table())
            mfSum += fTap;
    }
    double step(std::complex<double> cSample) {
        const double fI = cSample.real() / std::abs(cSample), fQ = cSample.imag() / std::abs(cSample);
        std::copy_backward(mfLine.begin(), mfLine.end() - 1, mfLine.end());
        mfLine[0] = ((fQ - mfQ2) * mfI1 - (fI - mfI2) * mfQ1) * 0.31830987;
        mfI2 = mfI1;
        mfI1 = fI;
        mfQ2 = mfQ1;
        mfQ1 = fQ;
        double fOutput = 0;
        for (size_t i = 0; i < mfLine.size(); ++i)
            fOutput += LowPassTaps::table()[i] / mfSum * mfLine[i];
        return fOutput;
    }
    std::vector<double> of(const Samples& lSamples) {
        std::vector<double> lAudio;
        for (const auto& cSample : lSamples)
            lAudio.push_back(step(std::complex<double>(cSample)));
        return lAudio;
    }

 private:
    double mfSum = 0, mfI1 = 0, mfI2 = 0, mfQ1 = 0, mfQ2 = 0;
    std::array<double, LowPassTaps::kTaps> mfLine{};
};

std::vector<float> demodulated(const Samples& lSamples, float fRate, size_t uPerFrame = 4096) {
    FMBench cBench;
    cBench.processAll(lSamples, fRate, uPerFrame);
    return cBench.listener().audio();
}

Samples steadyTurn(double fCyclesPerSample, size_t uCount) {
    return sampled(1, uCount,
                   [=](double t) { return std::polar(3.0, 2 * std::numbers::pi * fCyclesPerSample * t); });
}

/// Gain of the low-pass behind the discriminator.
double lowPass(double fCyclesPerSample) {
    std::complex<double> cSum = 0, cAtZero = 0;
    for (size_t i = 0; i < LowPassTaps::kTaps; ++i) {
        cSum += std::polar(LowPassTaps::table()[i],
                           2 * std::numbers::pi * fCyclesPerSample * static_cast<double>(i));
        cAtZero += LowPassTaps::table()[i];
    }
    return std::abs(cSum / cAtZero);
}

class FM : public FlowTest {
 protected:
    FMBench mcBench;
};

}  // namespace

TEST_F(FM, TellsItsParameters) {
    EXPECT_EQ(mcBench->getParameterInfo().toCompactText(),
              "{\"OutputSampleRate\":{\"default\":44100.000000,\"description\":\"<desired output sample "
              "rate. Program "
              "to cause resampling.>\",\"max\":1000000.000000,\"min\":4000.000000,\"units\":\"Hz\"},"
              "\"flowControl\":\"<If set true, limit capture rate to ensure minimal network buffering>\","
              "\"frames\":{\"description\":\"<count of frames processed>\",\"readonly\":true}}");
    EXPECT_EQ(
        mcBench->getParameters().keys(),
        (std::list<std::string>{"bufferDiscard", "bufferFrames", "bufferSec", "flowControl", "frames"}));
    EXPECT_EQ(mcBench->getName(), "FMDemodulator");
}

TEST_F(FM, HasNoTypes) {
    EXPECT_FALSE(mcBench.set("{\"type\":\"USB\"}"));
    EXPECT_EQ(mcBench.mlErrors, ErrorList{"Attempted to integrate unknown parameter 'type'"});
}

TEST_F(FM, GivesTheSamplesOfItsDescription) {
    const Samples lSamples = roughSignal(20000);
    EXPECT_LT(greatestDifference(demodulated(lSamples, 48000.0f), Model().of(lSamples)), 1e-6);
}

TEST_F(FM, FramesOfAnySizeGiveTheSameSamples) {
    const Samples lSamples = roughSignal(12312);  // no rest is too short for the filter
    const std::vector<float> lWhole = demodulated(lSamples, 48000.0f, lSamples.size());
    for (const size_t uPerFrame : {38u, 1026u, 3078u, 1500u})
        EXPECT_EQ(demodulated(lSamples, 48000.0f, uPerFrame), lWhole) << uPerFrame;
}

TEST_F(FM, AGapInTheSequenceChangesNothing) {
    const Samples lSamples = roughSignal(600);
    mcBench.process(Samples(lSamples.begin(), lSamples.begin() + 300), 8000.0f, 10);
    mcBench.process(Samples(lSamples.begin() + 300, lSamples.end()), 8000.0f, 99);
    EXPECT_EQ(mcBench.listener().audio(), demodulated(lSamples, 8000.0f));
}

TEST_F(FM, ARateThatChangesOrIsNoneChangesNothing) {
    const Samples lSamples = roughSignal(600);
    const std::vector<float> lWanted = demodulated(lSamples, 8000.0f);
    for (const float fRate : {16000.0f, 0.0f, -1.0f, 1e30f, std::numeric_limits<float>::quiet_NaN()}) {
        FMBench cBench;
        cBench.process(Samples(lSamples.begin(), lSamples.begin() + 300), 8000.0f);
        cBench.process(Samples(lSamples.begin() + 300, lSamples.end()), fRate);
        EXPECT_EQ(cBench.listener().audio(), lWanted) << fRate;
    }
}

TEST_F(FM, ASteadyTurnGivesASteadyValueOfItsSine) {
    for (const double f : {0.0, 0.01, 0.1, 0.25, -0.2, 0.4, 0.5}) {
        const std::vector<float> lAudio = demodulated(steadyTurn(f, 200), 8000.0f);
        for (size_t i = 40; i < lAudio.size(); ++i)
            ASSERT_NEAR(static_cast<double>(lAudio[i]),
                        2 / std::numbers::pi * std::sin(2 * std::numbers::pi * f), 1e-6)
                << f;
    }
}

// Two samples and the filter remember it. The filter is padded with zeros, which meet it up to three samples
// ahead in the same 37 samples: 0 times what is no number is none.
TEST_F(FM, ASampleOfMagnitudeZeroGivesNoNumberForAsLongAsItIsRemembered) {
    constexpr size_t kChunk = 3 * LowPassTaps::kTaps;
    struct Case {
        size_t muZero;
        size_t muFirst;
    };
    for (const auto& [uZero, uFirst] : {Case{100, 97},
                                        {kChunk, kChunk},
                                        {kChunk + 1, kChunk},
                                        {kChunk + 3, kChunk},
                                        {kChunk + 4, kChunk + 1}}) {
        Samples lSamples = steadyTurn(0.1, 200);
        lSamples[uZero] = 0;
        const std::vector<float> lAudio = demodulated(lSamples, 8000.0f);
        for (size_t i = 0; i < lAudio.size(); ++i)
            EXPECT_EQ(std::isnan(lAudio[i]), i >= uFirst && i < uZero + 2 + LowPassTaps::kTaps)
                << uZero << " at " << i;
        EXPECT_NEAR(static_cast<double>(lAudio[180]),
                    2 / std::numbers::pi * std::sin(2 * std::numbers::pi * 0.1), 1e-6);
    }
}

TEST_F(FM, ASampleThatIsNoNumberIsForgottenAsSoon) {
    for (const float fBad :
         {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        Samples lSamples = steadyTurn(0.1, 200);
        lSamples[100] = {1.0f, fBad};
        const std::vector<float> lAudio = demodulated(lSamples, 8000.0f);
        EXPECT_TRUE(std::isfinite(lAudio[96]));
        EXPECT_TRUE(std::isnan(lAudio[100]));
        EXPECT_TRUE(std::isfinite(lAudio[180]));
    }
}

TEST_F(FM, AResampledStreamKeepsNoNumberWhereASampleWasZero) {
    ASSERT_TRUE(mcBench.set("{\"OutputSampleRate\":4000}"));
    Samples lSamples = steadyTurn(0.1, 8192);
    lSamples[4000] = 0;
    mcBench.process(lSamples, 8000.0f);
    const std::vector<float> lAudio = mcBench.listener().audio();
    EXPECT_TRUE(std::isfinite(lAudio[1990]));
    EXPECT_TRUE(std::isnan(lAudio[2010]));
    EXPECT_TRUE(std::isnan(lAudio.back())) << "the resampler's low-pass is recursive";
    // A new output rate brings a new low-pass.
    ASSERT_TRUE(mcBench.set("{\"OutputSampleRate\":4000}"));
    mcBench.process(steadyTurn(0.1, 8192), 8000.0f);
    EXPECT_TRUE(std::isfinite(mcBench.listener().audio().back()));
}

TEST_F(FM, AFrameNotLongerThanItsFilterFails) {
    for (const size_t uCount : {0u, 1u, 37u}) {
        FMBench cBench;
        try {
            cBench.process(roughSignal(uCount), 8000.0f);
            ADD_FAILURE() << uCount;
        } catch (const utils::FatalError& cError) {
            EXPECT_NE(cError.message().find("ASSERT failed <muTaps < uCount>"), std::string::npos)
                << cError.message();
        }
        EXPECT_EQ(cBench.listener().count(), 0u);
        cBench.process(roughSignal(38), 8000.0f);
        EXPECT_EQ(cBench.listener().count(), 1u);
    }
}

TEST_F(FM, AFrameNotLongerThanItsFilterEndsTheThreadAndADetachStillWorks) {
    const auto cSource = makeReference<CountedSource>();
    const auto cDemodulator = makeReference<FMDemodulator>();
    ASSERT_TRUE(cSource->attachFrameSink(cDemodulator, mlErrors));
    cSource->deliverFrame(frameOf(roughSignal(37), 8000.0f, 0), false);
    std::vector<LogLine> lLines;
    EXPECT_TRUE(waitUntil([&] { return !(lLines = takeLog()).empty(); }));
    ASSERT_EQ(lLines.size(), 1u);
    EXPECT_EQ(lLines[0].miCode, -9001);
    EXPECT_TRUE(cSource->removeFrameSink(cDemodulator));
}

// What is heard.

// A tone of deviation turns the signal by up to fTurn from sample to sample; the sine of that turn has odd
// harmonics, as the Bessel functions tell. The sum over two steps lowers each by a cosine, and the filter by
// its gain.
TEST_F(FM, ATonesFrequencyIsKeptAndItsDistortionIsThatOfTheSine) {
    for (const ToneCase& c : {ToneCase{12000.0f, 300}, ToneCase{48000.0f, 1000}, ToneCase{96000.0f, 1000},
                              ToneCase{256000.0f, 3000}, ToneCase{500000.0f, 5000}}) {
        const Samples lSamples = frequencyModulated(c.rate(), c.samples(), c.mfToneHz, 0.05 * c.rate());
        const Sine cSine = checkTone(demodulated(lSamples, c.mfRate), c, "FM");
        const double fHalfStep = std::numbers::pi * c.mfToneHz / c.rate();  // of the tone, per sample
        const double fTurn = 2 * (0.05 * c.rate() / c.mfToneHz) * std::sin(fHalfStep);
        const auto harmonic = [&](int n) {
            return 4 / std::numbers::pi * std::cyl_bessel_j(n, fTurn) * std::cos(n * fHalfStep) *
                   lowPass(n * c.mfToneHz / c.rate());
        };
        EXPECT_NEAR(cSine.mfAmplitude, harmonic(1), 1e-5);
        EXPECT_NEAR(cSine.mfDistortion, std::hypot(harmonic(3), harmonic(5)) / harmonic(1), 1e-6);
        EXPECT_LT(cSine.mfNoise, 1e-6);
    }
}

TEST_F(FM, AResampledToneSlipsAtTheJointsOfFramesAndJumpsNowhere) {
    for (const ToneCase& c :
         {ToneCase{12000.0f, 310, 8000.0f, 4096}, ToneCase{48000.0f, 1000, 44100.0f, 12192},
          ToneCase{96000.0f, 1000, 48000.0f, 4096}, ToneCase{256000.0f, 1000, 44100.0f, 16384},
          ToneCase{500000.0f, 2000, 96000.0f, 65504}}) {
        FMBench cBench;
        ASSERT_TRUE(cBench.set(
            utils::formatText("{\"OutputSampleRate\":%.1f}", static_cast<double>(c.mfOutputRate)).c_str()));
        cBench.processAll(frequencyModulated(c.rate(), c.samples(), c.mfToneHz, 0.05 * c.rate()), c.mfRate,
                          c.muPerFrame);
        checkResampledTone(cBench.listener().audio(), c, 0.02, "FM");
    }
}
