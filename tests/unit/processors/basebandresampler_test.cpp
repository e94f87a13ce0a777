#include "processors/basebandresampler.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using Samples = std::vector<float>;
using Resampler = ReferencePtr<BasebandResampler>;

constexpr double kPi = std::numbers::pi;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr uint64_t kStart = 1700000000000000000;

ReferencePtr<BasebandFrame> makeFrame(const float* pSamples, size_t uCount, float fRate,
                                      uint64_t uTimestamp = kStart) {
    BasebandFrame cSource(uTimestamp, kNanoseconds, fRate, fRate * 0.8f);
    cSource.setCentreFrequency(1e8f);
    auto cFrame =
        makeReference<BasebandFrame>(cSource, 77u, fRate, fRate * 0.8f, static_cast<uint32_t>(uCount));
    std::copy_n(pSamples, uCount, cFrame->getChannel(0)->getData());
    return cFrame;
}

ReferencePtr<BasebandFrame> makeFrame(const Samples& lSamples, float fRate, uint64_t uTimestamp = kStart) {
    return makeFrame(lSamples.data(), lSamples.size(), fRate, uTimestamp);
}

void append(Samples& lSamples, BasebandFrame& cBlock) {
    EXPECT_EQ(cBlock.samplesPerChannel(), 1024u);
    EXPECT_EQ(cBlock.channelCount(), 1u);
    const float* pData = cBlock.getChannel(0)->getData();
    lSamples.insert(lSamples.end(), pData, pData + cBlock.samplesPerChannel());
}

/// All blocks that are ready.
Samples take(BasebandResampler& cResampler) {
    Samples lSamples;
    while (const auto cBlock = cResampler.getFrame())
        append(lSamples, *cBlock);
    return lSamples;
}

/// Feeds frames whose lengths take turns and takes the blocks after each.
Samples resample(BasebandResampler& cResampler, const Samples& lInput, float fRate,
                 const std::vector<size_t>& lSizes) {
    Samples lOutput;
    size_t uAt = 0;
    for (size_t i = 0; uAt < lInput.size(); ++i) {
        const size_t uCount = std::min(lSizes[i % lSizes.size()], lInput.size() - uAt);
        cResampler.addFrame(makeFrame(lInput.data() + uAt, uCount, fRate));
        uAt += uCount;
        const Samples lBlocks = take(cResampler);
        lOutput.insert(lOutput.end(), lBlocks.begin(), lBlocks.end());
    }
    return lOutput;
}

/// The low-pass of second order at 0.4 of the output rate, from the closed form and in double.
std::vector<double> lowPass(const Samples& lInput, double fInputRate, double fOutputRate) {
    const double w = std::tan(kPi * 0.4 * fOutputRate / fInputRate);
    const double fLeading = 1.0 + std::numbers::sqrt2 * w + w * w;
    const double fB = w * w / fLeading;
    const double fA1 = 2.0 * (w * w - 1.0) / fLeading;
    const double fA2 = (1.0 - std::numbers::sqrt2 * w + w * w) / fLeading;
    std::vector<double> lOutput;
    double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;
    for (float fSample : lInput) {
        const double x = double{fSample};
        const double y = fB * (x + 2.0 * x1 + x2) - fA1 * y1 - fA2 * y2;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
        lOutput.push_back(y);
    }
    return lOutput;
}

/// Where each output sample is read in the whole input: `muIndex` and the weight of the sample behind it.
struct Place {
    size_t muIndex;
    double mfWeight;
};

/// The rule of the joints: a position that ends in the gap between two frames gives one sample there,
/// weighted with the distance to the new frame, and the new frame is then read from its first sample on.
std::vector<Place> places(size_t uInput, float fStep, const std::vector<size_t>& lSizes) {
    std::vector<Place> lPlaces;
    float fPosition = 0.0f;
    size_t uAt = 0;
    for (size_t i = 0; uAt < uInput; ++i) {
        const size_t uCount = std::min(lSizes[i % lSizes.size()], uInput - uAt);
        if (fPosition < 0.0f) {
            lPlaces.push_back({uAt - 1, double{-fPosition}});
            fPosition = 0.0f;
        }
        for (; fPosition < static_cast<float>(uCount) - 1.0f; fPosition += fStep) {
            const double fWhole = std::floor(double{fPosition});
            lPlaces.push_back({uAt + static_cast<size_t>(fWhole), double{fPosition} - fWhole});
        }
        fPosition -= static_cast<float>(uCount);
        uAt += uCount;
    }
    return lPlaces;
}

Samples noise(size_t uCount) {
    std::mt19937 cEngine(8);
    std::uniform_real_distribution<float> cValues(-1.0f, 1.0f);
    Samples lNoise(uCount);
    for (float& fValue : lNoise)
        fValue = cValues(cEngine);
    return lNoise;
}

Samples tone(double fHz, double fRate, size_t uCount) {
    Samples lTone(uCount);
    for (size_t i = 0; i < uCount; ++i)
        lTone[i] = static_cast<float>(std::cos(2.0 * kPi * fHz / fRate * static_cast<double>(i)));
    return lTone;
}

template <typename Action>
std::string assertionOf(Action action) {
    try {
        action();
    } catch (const utils::FatalError& cError) {
        return cError.message();
    }
    return "none";
}

/// Phase of a tone in 1024 samples against one of that frequency which runs on.
double phaseOf(const float* pSamples, size_t uStart, double fPerSample) {
    std::complex<double> cSum = 0.0;
    for (size_t i = 0; i < 1024; ++i) {
        const double fHann = 1.0 - std::cos(2.0 * kPi * (static_cast<double>(i) + 0.5) / 1024.0);
        cSum += double{pSamples[i]} * fHann * std::polar(1.0, -fPerSample * static_cast<double>(uStart + i));
    }
    return std::arg(cSum);
}

/// In hertz, from the phase at the begin and the end and in between.
double meanFrequency(const Samples& lSamples, double fNear, double fRate) {
    const double fPerSample = 2.0 * kPi * fNear / fRate;
    double fTurned = 0.0;
    double fLast = phaseOf(lSamples.data(), 0, fPerSample);
    size_t uStart = 0;
    while (uStart + 2048 <= lSamples.size()) {
        uStart += 1024;
        const double fPhase = phaseOf(lSamples.data() + uStart, uStart, fPerSample);
        fTurned += std::remainder(fPhase - fLast, 2.0 * kPi);
        fLast = fPhase;
    }
    return fNear + fTurned / static_cast<double>(uStart) * fRate / (2.0 * kPi);
}

struct Rates {
    float mfInput;
    float mfOutput;
};
constexpr Rates kRates[] = {
    {250e3f, 44100.0f}, {47368.421f, 8000.0f}, {62500.0f, 48000.0f}, {48001.0f, 48000.0f}, {1e6f, 48000.0f}};

TEST(BasebandResampler, equalsAModelForFramesOfEverySize) {
    for (const Rates& cRates : kRates)
        for (const std::vector<size_t>& lSizes :
             {std::vector<size_t>{1}, {2}, {7}, {1000}, {1024}, {65504}, {5, 1, 3000, 2}}) {
            const float fStep = cRates.mfInput / cRates.mfOutput;
            const auto lInput = noise(std::max<size_t>(20000, static_cast<size_t>(6000.0f * fStep)));
            const auto lFiltered = lowPass(lInput, double{cRates.mfInput}, double{cRates.mfOutput});
            const auto lPlaces = places(lInput.size(), fStep, lSizes);
            auto cResampler = makeReference<BasebandResampler>(cRates.mfOutput);
            const auto lOutput = resample(*cResampler, lInput, cRates.mfInput, lSizes);
            ASSERT_GE(lOutput.size(), 1024u) << cRates.mfInput << " " << lSizes[0];
            // Blocks are whole, and the last ones may wait for more input.
            ASSERT_LE(lOutput.size(), lPlaces.size());
            if (lSizes[0] > 7) {
                EXPECT_GT(lOutput.size() + 2048, lPlaces.size()) << cRates.mfInput << " " << lSizes[0];
            }
            for (size_t i = 0; i < lOutput.size(); ++i) {
                const auto [uIndex, fWeight] = lPlaces[i];
                const double fExpected =
                    (1.0 - fWeight) * lFiltered[uIndex] + fWeight * lFiltered[uIndex + 1];
                ASSERT_NEAR(double{lOutput[i]}, fExpected, 1e-5)
                    << cRates.mfInput << " " << lSizes[0] << " at " << i;
            }
        }
}

TEST(BasebandResampler, tonesKeepTheirFrequencyInTheMean) {
    for (const Rates& cRates : kRates)
        for (double fHz : {300.0, 1020.0, 2500.0})
            for (size_t uSize : {16384u, 65504u}) {
                auto cResampler = makeReference<BasebandResampler>(cRates.mfOutput);
                const auto lInput =
                    tone(fHz, double{cRates.mfInput}, static_cast<size_t>(cRates.mfInput) * 2);
                const auto lOutput = resample(*cResampler, lInput, cRates.mfInput, {uSize});
                EXPECT_NEAR(meanFrequency(lOutput, fHz, double{cRates.mfOutput}), fHz, 0.0005 * fHz)
                    << cRates.mfInput << " " << uSize;
            }
}

TEST(BasebandResampler, jointsOfBlocksDoNotShow) {
    // One frame, so that its blocks alone can be seen: a tone obeys y(n + 1) - 2 cos(w) y(n) + y(n - 1) = 0,
    // but for the interpolation, which errs at a joint no more than elsewhere.
    for (const Rates& cRates : kRates) {
        const double fHz = 500.0;
        auto cResampler = makeReference<BasebandResampler>(cRates.mfOutput);
        const auto lInput = tone(fHz, double{cRates.mfInput},
                                 static_cast<size_t>(cRates.mfInput / cRates.mfOutput * 8 * 1024));
        const auto lOutput = resample(*cResampler, lInput, cRates.mfInput, {lInput.size()});
        ASSERT_GE(lOutput.size(), 6 * 1024u);
        const double fTwice = 2.0 * std::cos(2.0 * kPi * fHz / double{cRates.mfOutput});
        double fElsewhere = 0.0;
        double fAtJoints = 0.0;
        for (size_t i = 200; i + 1 < lOutput.size(); ++i) {
            const double fLeft =
                std::abs(double{lOutput[i + 1]} - fTwice * double{lOutput[i]} + double{lOutput[i - 1]});
            const bool bAtJoint = i % 1024 == 0 || i % 1024 == 1023;
            (bAtJoint ? fAtJoints : fElsewhere) = std::max(bAtJoint ? fAtJoints : fElsewhere, fLeft);
        }
        // A position in single precision is exact to 0.0005 samples here, which are 0.00003 of the tone.
        EXPECT_LE(fAtJoints, fElsewhere * 1.2 + 3e-5) << cRates.mfInput;
        EXPECT_LT(fElsewhere, 0.02) << cRates.mfInput;
    }
}

TEST(BasebandResampler, jointsOfFramesSlipToTheFirstSample) {
    // A ramp shows where it is read: behind a joint a frame is read from its first sample on.
    const float fRate = 250e3f;
    const float fStep = fRate / 44100.0f;
    constexpr size_t kFrame = 997;
    Samples lRamp(40 * kFrame);
    for (size_t i = 0; i < lRamp.size(); ++i)
        lRamp[i] = static_cast<float>(i);
    auto cResampler = makeReference<BasebandResampler>(44100.0f);
    const auto lOutput = resample(*cResampler, lRamp, fRate, {kFrame});
    const double w = std::tan(kPi * 0.4 * 44100.0 / 250e3);
    const double fDelay = std::numbers::sqrt2 / 2.0 / w;  // of the low-pass at DC, in samples
    size_t uJoints = 0;
    size_t uSlips = 0;
    size_t uOutput = 0;
    float fPosition = 0.0f;
    for (size_t uFrame = 0; uOutput < lOutput.size(); ++uFrame) {
        const double fBase = static_cast<double>(uFrame * kFrame) - fDelay;
        const auto expect = [&](double fPlace) {
            if (uOutput < lOutput.size() && fBase + fPlace > 200.0) {  // settled
                EXPECT_NEAR(double{lOutput[uOutput]}, fBase + fPlace, 0.005 + 2e-6 * fBase) << uFrame;
            }
            ++uOutput;
        };
        ++uJoints;
        if (fPosition < 0.0f) {
            ++uSlips;
            expect(-1.0 +
                   double{-fPosition});  // as far behind the last sample as the position was before the first
            fPosition = 0.0f;            // ... and the step is lost
        }
        while (fPosition < static_cast<float>(kFrame - 1)) {
            expect(double{fPosition});
            fPosition += fStep;
        }
        fPosition -= static_cast<float>(kFrame);
    }
    EXPECT_GT(uJoints, 30u);
    EXPECT_GT(uSlips, 3u);
    EXPECT_LT(uSlips, uJoints);
}

TEST(BasebandResampler, framesOfOneSampleGiveOneSampleEach) {
    // Each frame is a joint, and the step is lost in each.
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    const auto lOutput = resample(*cResampler, Samples(20000, 1.0f), 32000.0f, {1});
    EXPECT_GT(lOutput.size(), 20000u - 4 * 1024 - 1024);
    EXPECT_NEAR(lOutput.back(), 1.0f, 1e-5f);
}

TEST(BasebandResampler, blocksCarryTheirOwnSequenceTimeAndRates) {
    auto cResampler = makeReference<BasebandResampler>(44100.0f);
    const Samples lInput(2000, 0.5f);
    std::vector<ReferencePtr<BasebandFrame>> lBlocks;
    for (uint64_t i = 0; i < 40; ++i) {
        // Times that would not do: only the first one counts.
        cResampler->addFrame(makeFrame(lInput, 250e3f, kStart + 12345 + i * 1000));
        while (auto cBlock = cResampler->getFrame())
            lBlocks.push_back(cBlock);
    }
    ASSERT_GE(lBlocks.size(), 13u);
    for (uint32_t i = 0; i < lBlocks.size(); ++i) {
        const BasebandFrame& cBlock = *lBlocks[i];
        EXPECT_EQ(cBlock.sequence(), i);
        EXPECT_EQ(cBlock.timeResolution(), uint32_t{kNanoseconds});
        EXPECT_EQ(cBlock.timestamp(), kStart + 12345 + i * uint64_t{23219955});  // 1024e9 / 44100
        EXPECT_EQ(cBlock.sampleRate(), 44100.0f);
        EXPECT_EQ(cBlock.usableBandwidth(), 44100.0f * 0.5f * 0.8f);
        EXPECT_EQ(cBlock.bandwidth(), 250e3f * 0.8f);
        EXPECT_EQ(cBlock.centreFrequency(), 1e8f);
        EXPECT_EQ(cBlock.samplesPerChannel(), 1024u);
    }
}

TEST(BasebandResampler, timesOfOtherResolutionsBecomeNanoseconds) {
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    auto cFrame = makeFrame(Samples(10000, 0.0f), 16000.0f, 5000);
    cFrame->setTimeResolution(kMilliseconds);
    cResampler->addFrame(cFrame);
    for (double fExpected : {5e9, 5.128e9, 5.256e9}) {
        const auto cBlock = cResampler->getFrame();
        ASSERT_TRUE(cBlock);
        EXPECT_EQ(cBlock->timeResolution(), uint32_t{kNanoseconds});
        EXPECT_NEAR(static_cast<double>(cBlock->timestamp()), fExpected,
                    1000.0);  // the milliseconds are single
    }
}

TEST(BasebandResampler, givesNothingBeforeEnoughSamplesForABlockArePending) {
    auto cResampler = makeReference<BasebandResampler>(44100.0f);
    EXPECT_FALSE(cResampler->getFrame());
    const auto uEnough = static_cast<size_t>(std::ceil(1024.0f * (250e3f / 44100.0f)));
    ASSERT_EQ(uEnough, 5805u);
    cResampler->addFrame(makeFrame(Samples(uEnough - 1, 0.5f), 250e3f));
    EXPECT_FALSE(cResampler->getFrame());
    EXPECT_FALSE(cResampler->getFrame());
    cResampler->addFrame(makeFrame(Samples(1, 0.5f), 250e3f));
    EXPECT_TRUE(cResampler->getFrame());
    EXPECT_FALSE(cResampler->getFrame());
    // A few samples are left over of the first block, and count for the next one.
    cResampler->addFrame(makeFrame(Samples(uEnough - 20, 0.5f), 250e3f));
    EXPECT_FALSE(cResampler->getFrame());
    cResampler->addFrame(makeFrame(Samples(20, 0.5f), 250e3f));
    EXPECT_TRUE(cResampler->getFrame());
}

TEST(BasebandResampler, theCurrentFrameCountsAsPending) {
    // One frame holds three blocks: nothing waits in the list while the second and third are taken.
    auto cResampler = makeReference<BasebandResampler>(10000.0f);
    cResampler->addFrame(makeFrame(Samples(3 * 2048 + 1, 0.5f), 20000.0f));
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(cResampler->getFrame()) << i;
    EXPECT_FALSE(cResampler->getFrame());
}

/// At this step a block takes 1099.9 samples: the first one of a frame so long leaves 1100 pending, and the
/// second one begins but finds no neighbour for its last sample.
constexpr Rates kScant = {10999.0f, 10240.0f};
constexpr size_t kScantFrame = 2199;

TEST(BasebandResampler, aBlockThatFindsTooLittleAtItsEndWaitsForMore) {
    auto cResampler = makeReference<BasebandResampler>(kScant.mfOutput);
    cResampler->addFrame(makeFrame(Samples(kScantFrame, 0.5f), kScant.mfInput));
    EXPECT_TRUE(cResampler->getFrame());
    EXPECT_FALSE(cResampler->getFrame());
    const auto cNext = makeFrame(Samples(1, 0.5f), kScant.mfInput);
    cResampler->addFrame(cNext);
    EXPECT_FALSE(cResampler->getFrame());  // one sample is missing, which takes more than one
    EXPECT_EQ(cNext->referenceCount(), 2u);
    cResampler->addFrame(makeFrame(Samples(1, 0.5f), kScant.mfInput));
    const auto cBlock = cResampler->getFrame();
    ASSERT_TRUE(cBlock);
    EXPECT_NEAR(cBlock->getChannel(0)->getData()[0], 0.5f, 1e-6f);
    EXPECT_NEAR(cBlock->getChannel(0)->getData()[1023], 0.5f, 1e-6f);
    EXPECT_EQ(cBlock->sequence(), 1u);
}

TEST(BasebandResampler, anOutputRateAtOrAboveTheInputRateFailsAtTheFirstBlock) {
    for (float fInput : {44100.0f, 44099.0f, 1000.0f, 1e-38f, -1.0f, -1e9f}) {
        auto cResampler = makeReference<BasebandResampler>(44100.0f);
        if (fInput > 1000.0f) {
            cResampler->addFrame(makeFrame(Samples(100, 0.5f), fInput));
            EXPECT_FALSE(cResampler->getFrame());  // not yet enough for a block
        }
        cResampler->addFrame(makeFrame(Samples(3000, 0.5f), fInput));
        for (int i = 0; i < 2; ++i) {  // and at each further try
            const std::string text = assertionOf([&] { cResampler->getFrame(); });
            EXPECT_THAT(text, HasSubstr("ASSERT failed <false> ")) << fInput;
            EXPECT_THAT(text, HasSubstr("basebandresampler.cpp::L"));
        }
    }
}

TEST(BasebandResampler, aChangeOfRateDropsAllThatIsPending) {
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    cResampler->addFrame(makeFrame(Samples(5000, 1.0f), 32000.0f));
    ASSERT_TRUE(cResampler->getFrame());  // 904 or so of the frame are left
    cResampler->addFrame(makeFrame(Samples(4000, 1.0f), 32000.0f));
    ASSERT_TRUE(cResampler->getFrame());
    cResampler->addFrame(makeFrame(Samples(3000, 1.0f), 32000.0f));
    // 8 x 1024 samples make a block at 64000, though 6 fewer could be read: those before must not count, and
    // nothing of them may be heard.
    cResampler->addFrame(makeFrame(Samples(8191, -1.0f), 64000.0f, kStart + 5000));
    EXPECT_FALSE(cResampler->getFrame());
    cResampler->addFrame(makeFrame(Samples(1, -1.0f), 64000.0f));
    const auto cBlock = cResampler->getFrame();
    ASSERT_TRUE(cBlock);
    EXPECT_EQ(cBlock->sequence(), 2u);
    EXPECT_EQ(cBlock->timestamp(), kStart + 5000);
    const float* pData = cBlock->getChannel(0)->getData();
    EXPECT_LT(pData[0], 0.0f);  // from rest
    EXPECT_GT(pData[0], -0.5f);
    for (size_t i = 8; i < 1024; ++i)
        ASSERT_NEAR(pData[i], -1.0f, 0.1f) << i;
}

TEST(BasebandResampler, aChangeOfRateWithABlockHalfFullBeginsANewBlock) {
    auto cResampler = makeReference<BasebandResampler>(kScant.mfOutput);
    cResampler->addFrame(makeFrame(Samples(kScantFrame, 1.0f), kScant.mfInput));
    ASSERT_TRUE(cResampler->getFrame());
    ASSERT_FALSE(cResampler->getFrame());  // all but the last sample of a block
    const auto lInput = noise(6000);
    cResampler->addFrame(makeFrame(lInput, 20480.0f, kStart + 7));
    const auto lFiltered = lowPass(lInput, 20480.0, 10240.0);
    const auto cBlock = cResampler->getFrame();
    ASSERT_TRUE(cBlock);
    EXPECT_EQ(cBlock->sequence(), 1u);
    EXPECT_EQ(cBlock->timestamp(), kStart + 7);
    for (size_t i = 0; i < 1024; ++i)
        ASSERT_NEAR(double{cBlock->getChannel(0)->getData()[i]}, lFiltered[2 * i], 1e-5) << i;
}

TEST(BasebandResampler, aRateThatIsNotANumberIsAnAssertion) {
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    cResampler->addFrame(makeFrame(Samples(5000, 1.0f), 32000.0f));
    for (int i = 0; i < 2; ++i) {
        const std::string text =
            assertionOf([&] { cResampler->addFrame(makeFrame(Samples(5000, 1.0f), kNaN)); });
        EXPECT_THAT(text, HasSubstr("ASSERT failed <f3dB <= (fSample/2.0f)> "));
        EXPECT_FALSE(cResampler->getFrame());
    }
    cResampler->addFrame(makeFrame(Samples(5000, 1.0f), 16000.0f));
    EXPECT_TRUE(cResampler->getFrame());
}

TEST(BasebandResampler, ratesThatNoBlockCanComeOfKeepNothing) {
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    for (float fRate : {0.0f, kInfinity, 1e30f, 3e38f, -0.0f, 2e10f}) {
        const auto cFrame = makeFrame(Samples(5000, 1.0f), fRate);
        for (int i = 0; i < 10; ++i) {
            cResampler->addFrame(cFrame);
            EXPECT_FALSE(cResampler->getFrame()) << fRate;
        }
        EXPECT_EQ(cFrame->referenceCount(), 1u) << fRate;
    }
    cResampler->addFrame(makeFrame(Samples(5000, 1.0f), 16000.0f));
    EXPECT_TRUE(cResampler->getFrame());
}

TEST(BasebandResampler, ratesOfWhichABlockTakesMoreThan64MiSamplesKeepNothing) {
    const auto keeps = [](float fInputRate, float fOutputRate) {
        auto cResampler = makeReference<BasebandResampler>(fOutputRate);
        const auto cFrame = makeFrame(Samples(5000, 1.0f), fInputRate);
        cResampler->addFrame(cFrame);
        EXPECT_FALSE(cResampler->getFrame()) << fInputRate;
        return cFrame->referenceCount() == 2;
    };
    constexpr float kLimit = 8192.0f * 0x1p16f;  // 2^16 samples for each of 1024
    EXPECT_TRUE(keeps(kLimit, 8192.0f));
    EXPECT_FALSE(keeps(std::nextafter(kLimit, kInfinity), 8192.0f));
    EXPECT_FALSE(keeps(8e9f, 4000.0f));
    EXPECT_TRUE(keeps(125e6f, 4000.0f));
}

TEST(BasebandResampler, nullAndFramesWithoutSamplesDoNothing) {
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    const auto cWithoutChannel =
        makeReference<BasebandFrame>(kStart, uint32_t{kNanoseconds}, 16000.0f, 8000.0f);
    const auto cEmpty = makeFrame(Samples{}, 16000.0f);
    cResampler->addFrame(nullptr);
    const Samples lInput = noise(10000);
    auto cPlain = makeReference<BasebandResampler>(8000.0f);
    const Samples lExpected = resample(*cPlain, lInput, 16000.0f, {100});
    Samples lOutput;
    for (size_t i = 0; i < lInput.size(); i += 100) {
        cResampler->addFrame(cWithoutChannel);
        cResampler->addFrame(makeFrame(lInput.data() + i, 100, 16000.0f));
        cResampler->addFrame(cEmpty);
        cResampler->addFrame(nullptr);
        const Samples lBlocks = take(*cResampler);
        lOutput.insert(lOutput.end(), lBlocks.begin(), lBlocks.end());
    }
    EXPECT_EQ(lOutput, lExpected);
    EXPECT_EQ(cWithoutChannel->channelCount(), 0u);
    EXPECT_EQ(cWithoutChannel->referenceCount(), 1u);
}

TEST(BasebandResampler, framesAreLetGoOnceTheyAreUsedUp) {
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    const auto cFirst = makeFrame(Samples(1500, 1.0f), 16000.0f);
    const auto cSecond = makeFrame(Samples(1500, 1.0f), 16000.0f);
    cResampler->addFrame(cFirst);
    cResampler->addFrame(cSecond);
    ASSERT_TRUE(cResampler->getFrame());
    EXPECT_EQ(cFirst->referenceCount(), 1u);
    EXPECT_EQ(cSecond->referenceCount(), 2u);
    cResampler = nullptr;
    EXPECT_EQ(cSecond->referenceCount(), 1u);
}

TEST(BasebandResampler, inputIsNotChanged) {
    auto cResampler = makeReference<BasebandResampler>(8000.0f);
    const auto lInput = noise(4000);
    const auto cFrame = makeFrame(lInput, 16000.0f);
    cResampler->addFrame(cFrame);
    ASSERT_TRUE(cResampler->getFrame());
    EXPECT_TRUE(std::equal(lInput.begin(), lInput.end(), cFrame->getChannel(0)->getData()));
}

TEST(BasebandResampler, outputRatesThatAreNoneAreAssertions) {
    for (float fOutput : {0.0f, -1.0f, -1e30f, kNaN, kInfinity}) {
        auto cResampler = makeReference<BasebandResampler>(fOutput);
        const std::string text = assertionOf([&] {
            cResampler->addFrame(makeFrame(Samples(5000, 1.0f), 16000.0f));
            EXPECT_FALSE(cResampler->getFrame());
        });
        EXPECT_THAT(text, HasSubstr("ASSERT failed ")) << fOutput;
    }
}

TEST(BasebandResampler, aFrameLongerThanSinglePrecisionCountsComesToAnEnd) {
    // From 2^25 on a step of 1 moves a single-precision position no more.
    constexpr uint32_t kCount = (1u << 25) + 5000;
    const float fRate = std::nextafter(48000.0f, 1e6f);
    BasebandFrame cSource(kStart, kNanoseconds, fRate, fRate);
    auto cFrame = makeReference<BasebandFrame>(cSource, 1u, fRate, fRate, kCount);
    std::fill_n(cFrame->getChannel(0)->getData(), kCount, 1.0f);
    auto cResampler = makeReference<BasebandResampler>(48000.0f);
    cResampler->addFrame(std::move(cFrame));
    uint32_t uBlocks = 0;
    while (uBlocks < 40000 && cResampler->getFrame())
        ++uBlocks;
    EXPECT_GT(uBlocks, 16000u);  // single precision counts as far as 2^24
    EXPECT_LT(uBlocks, 40000u);
    cResampler->addFrame(makeFrame(Samples(4096, 1.0f), fRate));
    EXPECT_TRUE(cResampler->getFrame());
}

}  // namespace
