#include "flows/iqconversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "dsp/halfbandtaps.h"

namespace {

constexpr uint32_t kOutput = IQConversionSize / 2;
constexpr IOnlyFrame::Band kSuperhet = {35e6f, -20e6f, 20e6f, false};
constexpr float kRate = 125e6f;

using Samples = std::vector<float>;

Samples noise(uint32_t uSeed) {
    std::mt19937 cEngine(uSeed);
    std::uniform_real_distribution<float> cValues(-1.0f, 1.0f);
    Samples cSamples(IQConversionSize);
    for (float& fSample : cSamples)
        fSample = cValues(cEngine);
    return cSamples;
}

ReferencePtr<IOnlyFrame> frameOf(const Samples& cSamples, const IOnlyFrame::Band& cBand = kSuperhet,
                                 float fRate = kRate) {
    ReferencePtr<FloatArray> cArray(new FloatArray(static_cast<uint32_t>(cSamples.size())));
    std::copy(cSamples.begin(), cSamples.end(), cArray->getData());
    return ReferencePtr<IOnlyFrame>(
        new IOnlyFrame(7, 1000001, 5000, kNanoseconds, 1e9f, 40e6f, fRate, -30.0f, cBand, cArray, "sqrt-mw"));
}

/// The oscillator of the mixer at its n-th sample: it starts again at phase 0 with each period.
std::complex<double> oscillator(uint64_t n, const IOnlyFrame::Band& cBand, float fRate) {
    const auto uRate = static_cast<uint64_t>(fRate);
    const uint64_t uPeriod = uRate / std::gcd(uRate, static_cast<uint64_t>(std::abs(cBand.mfTuningOffsetHz)));
    const float fTurns = cBand.mfTuningOffsetHz / fRate;
    const double fStep = double{cBand.mbInverted ? fTurns : -fTurns} * 6.283185307179586;
    return std::polar(1.0, std::fmod(fStep * static_cast<double>(n % uPeriod), 2.0 * M_PI));
}

/// The convolution by its definition, in double: the sample of the stream with this number, before
/// decimation.
std::complex<double> filtered(const std::vector<Samples>& cStream, uint64_t uIndex,
                              const IOnlyFrame::Band& cBand, float fRate) {
    const auto& cRow = IQConversionFilters::rowFor(cBand.mfMaxUsableHz - cBand.mfMinUsableHz);
    std::complex<double> cSum;
    for (uint64_t k = 0; k < cRow.mfTaps.size() && k <= uIndex; ++k) {
        const uint64_t n = uIndex - k;
        cSum += double{cRow.mfTaps[k]} * double{cStream[n / IQConversionSize][n % IQConversionSize]} *
                oscillator(n, cBand, fRate);
    }
    return cSum;
}

/// Converts the stream frame by frame and compares samples of each frame: all near the seams, some between.
void expectFiltered(const std::vector<Samples>& cStream, const IOnlyFrame::Band& cBand, float fRate) {
    IQConversion cConversion;
    for (uint64_t uFrame = 0; uFrame < cStream.size(); ++uFrame) {
        const auto cResult = cConversion.convert(frameOf(cStream[uFrame], cBand, fRate));
        uint32_t uCount = 0;
        const Complex<float>* pSamples = cResult->getSamples(uCount);
        ASSERT_EQ(uCount, kOutput);
        for (uint32_t i = 0; i < uCount; i += (i < 300 || i > kOutput - 300) ? 1 : 97) {
            const auto cExpected = filtered(cStream, uFrame * IQConversionSize + 2 * i, cBand, fRate);
            ASSERT_NEAR(double{pSamples[i].re}, cExpected.real(), 4e-6)
                << "frame " << uFrame << " sample " << i;
            ASSERT_NEAR(double{pSamples[i].im}, cExpected.imag(), 4e-6)
                << "frame " << uFrame << " sample " << i;
        }
    }
}

void expectSameSamples(const IQFrame& cLeft, const IQFrame& cRight) {
    uint32_t uLeft = 0;
    uint32_t uRight = 0;
    const Complex<float>* pLeft = cLeft.getSamples(uLeft);
    const Complex<float>* pRight = cRight.getSamples(uRight);
    ASSERT_EQ(uLeft, uRight);
    for (uint32_t i = 0; i < uLeft; ++i)
        ASSERT_EQ(pLeft[i], pRight[i]) << i;
}

TEST(IQConversion, consecutiveFramesJoinWithoutASeam) {
    expectFiltered({noise(1), noise(2), noise(3)}, kSuperhet, kRate);
}

TEST(IQConversion, invertedSpectrumTurnsTheMixerTheOtherWay) {
    expectFiltered({noise(4), noise(5)}, {35e6f, -12e6f, 12e6f, true}, kRate);
}

TEST(IQConversion, directDigitizationIsNotMixed) {
    expectFiltered({noise(6), noise(7)}, {0.0f, 9e3f, 50e6f, false}, kRate);
}

TEST(IQConversion, periodThatDoesNotDivideTheFrameGoesOnAcrossTheTablesEnd) {
    // Period 7: the table of 65282 entries ends before a frame that starts at entry 5.
    expectFiltered({noise(8), noise(9), noise(10), noise(11)}, {3e6f, -10e6f, 10e6f, false}, 7e6f);
}

TEST(IQConversion, negativeOffsetMixesUpwards) {
    expectFiltered({noise(12)}, {-3e6f, -10e6f, 10e6f, false}, 7e6f);
}

TEST(IQConversion, periodTooLongForATableGivesTheSameSamplesFromBoundedMemory) {
    const IOnlyFrame::Band cBand = {5.0f, -10e6f, 10e6f, false};
    expectFiltered({noise(13), noise(14)}, cBand, 16777213.0f);
    IQConversion cConversion;
    ASSERT_TRUE(cConversion.convert(frameOf(noise(13), cBand, 16777213.0f)));
    EXPECT_EQ(cConversion.mixerPeriod(), 16777213u);
    EXPECT_EQ(cConversion.mixerTableLength(), IQConversionSize);
}

TEST(IQConversion, fusedPassesEqualTheStepsOneByOneBitForBit) {
    constexpr uint32_t kSize = 65536;
    const Samples cInput = noise(15);
    IQConversion cConversion;
    const auto cResult = cConversion.convert(frameOf(cInput));
    const auto cFFT = FFT::create(kSize);
    ComplexArray cTime(kSize);
    ComplexArray cFrequency(kSize);
    ComplexArray cResponse(kSize);
    std::fill_n(cTime.getData(), kSize, Complex<float>{0.0f, 0.0f});
    for (size_t k = 0; k < 257; ++k)
        cTime.getData()[k].re = IQConversionFilters::rowFor(40e6f).mfTaps[k];
    cFFT->forward(cResponse.getData(), cTime.getData(), kSize);
    const auto multiply = [](Complex<float> a, Complex<float> b) {
        const volatile float fRR = a.re * b.re, fII = a.im * b.im, fRI = a.re * b.im, fIR = a.im * b.re;
        return Complex<float>{fRR - fII, fRI + fIR};
    };
    const auto scale = [](Complex<float> a, float b) { return Complex<float>{a.re * b, a.im * b}; };
    std::fill_n(cTime.getData(), 256, Complex<float>{0.0f, 0.0f});
    double fPhase = 0.0;
    for (uint32_t i = 0; i < IQConversionSize; ++i) {
        if (i % 25 == 0)
            fPhase = 0.0;
        const Complex<float> cMixer = {static_cast<float>(std::cos(fPhase)),
                                       static_cast<float>(std::sin(fPhase))};
        fPhase += double{-(35e6f / 125e6f)} * 6.283185307179586;
        cTime.getData()[256 + i] = multiply({cInput[i], 0.0f}, cMixer);
    }
    cFFT->forward(cFrequency.getData(), cTime.getData(), kSize);
    for (uint32_t i = 0; i < kSize; ++i)
        cFrequency.getData()[i] =
            multiply(scale(cFrequency.getData()[i], 65536.0f), scale(cResponse.getData()[i], 65536.0f));
    cFFT->inverse(cTime.getData(), cFrequency.getData(), kSize);
    uint32_t uCount = 0;
    const Complex<float>* pSamples = cResult->getSamples(uCount);
    for (uint32_t i = 0; i < uCount; ++i)
        ASSERT_EQ(pSamples[i], scale(cTime.getData()[2 * i + 256], 1.0f / 65536.0f)) << i;
}

TEST(IQConversion, realToneComesOutAtItsOffsetWithHalfItsAmplitude) {
    // 2A cos at 35 + 5 MHz gives A exp at +5 MHz of 62.5 MHz, times the filter's gain there.
    constexpr double kAmplitude = 0.25;
    IQConversion cConversion;
    ReferencePtr<IQFrame> cResult;
    for (size_t uFrame = 0; uFrame < 2; ++uFrame) {
        Samples cInput(IQConversionSize);
        for (size_t i = 0; i < cInput.size(); ++i) {
            const auto fIndex = static_cast<double>(uFrame * IQConversionSize + i);
            cInput[i] = static_cast<float>(2.0 * kAmplitude * std::cos(2.0 * M_PI * 40.0 / 125.0 * fIndex));
        }
        cResult = cConversion.convert(frameOf(cInput));
    }
    uint32_t uCount = 0;
    const Complex<float>* pSamples = cResult->getSamples(uCount);
    std::complex<double> cSum;
    for (uint32_t i = 0; i < uCount; ++i)
        cSum += std::complex<double>(double{pSamples[i].re}, double{pSamples[i].im}) *
                std::polar(1.0, -2.0 * M_PI * 5.0 / 62.5 * i);
    EXPECT_NEAR(std::abs(cSum) / uCount, kAmplitude, kAmplitude * 0.0005);
}

TEST(IQConversion, offsetOfZeroHasAPeriodOfOneAndOneEntryMoreThanTheFrame) {
    IQConversion cConversion;
    cConversion.convert(frameOf(noise(1), {0.0f, 9e3f, 50e6f, false}));
    EXPECT_EQ(cConversion.mixerPeriod(), 1u);
    EXPECT_EQ(cConversion.mixerTableLength(), 65281u);
    EXPECT_EQ(cConversion.filterBandwidth(), 40e6f);
}

TEST(IQConversion, offsetOf35MHzHasAPeriodOf25AndATableOf65300) {
    IQConversion cConversion;
    cConversion.convert(frameOf(noise(1)));
    EXPECT_EQ(cConversion.mixerPeriod(), 25u);
    EXPECT_EQ(cConversion.mixerTableLength(), 65300u);
}

TEST(IQConversion, filterIsTheFirstThatCoversTheUsableWidth) {
    for (const auto& [fWidth, fExpected] :
         {std::pair{20e6f, 20e6f}, {21e6f, 22e6f}, {40e6f, 40e6f}, {45e6f, 40e6f}}) {
        IQConversion cConversion;
        const auto cResult = cConversion.convert(frameOf(noise(1), {35e6f, 0.0f, fWidth, false}));
        EXPECT_EQ(cConversion.filterBandwidth(), fExpected);
        EXPECT_EQ(cResult->bandwidth(), fExpected);
    }
}

TEST(IQConversion, resultCarriesTheMetadataOfItsSource) {
    IQConversion cConversion;
    auto cSource = frameOf(noise(1));
    cSource->setLevel(-12.5f);
    cSource->setSubOptimal(true);
    const auto cResult = cConversion.convert(cSource);
    EXPECT_EQ(cResult->sequence(), 7u);
    EXPECT_EQ(cResult->timestamp(), 5000u);
    EXPECT_EQ(cResult->timeResolution(), uint32_t{kNanoseconds});
    EXPECT_EQ(cResult->centreFrequency(), 1e9f);
    EXPECT_EQ(cResult->referenceLevel(), -30.0f);
    EXPECT_EQ(cResult->sampleRate(), 62.5e6f);
    EXPECT_EQ(cResult->bandwidth(), 40e6f);
    EXPECT_EQ(cResult->zerothSample(), 500000u);
    EXPECT_EQ(cResult->getUnits(), "sqrt-mw");
    EXPECT_EQ(cResult->level(), -12.5f);
    EXPECT_TRUE(cResult->isSubOptimal());
}

TEST(IQConversion, changeOfAParameterStartsFromAnEmptyHistory) {
    const IOnlyFrame::Band cInverted = {35e6f, -20e6f, 20e6f, true};
    const IOnlyFrame::Band cOther = {30e6f, -20e6f, 20e6f, false};
    IQConversion cUsed;
    cUsed.convert(frameOf(noise(1)));
    const std::pair<IOnlyFrame::Band, float> kChanges[] = {
        {cInverted, kRate}, {cOther, kRate}, {cOther, 100e6f}};
    for (const auto& cChange : kChanges) {
        IQConversion cFresh;
        const auto cExpected = cFresh.convert(frameOf(noise(2), cChange.first, cChange.second));
        const auto cResult = cUsed.convert(frameOf(noise(2), cChange.first, cChange.second));
        expectSameSamples(*cResult, *cExpected);
    }
}

TEST(IQConversion, changeOfTheUsableWidthAloneChangesNothing) {
    IQConversion cConversion;
    cConversion.convert(frameOf(noise(1)));
    cConversion.convert(frameOf(noise(2), {35e6f, -10e6f, 10e6f, false}));
    EXPECT_EQ(cConversion.filterBandwidth(), 40e6f);
}

TEST(IQConversion, frameWithoutSamplesConvertsToNothing) {
    IQConversion cConversion;
    ReferencePtr<IOnlyFrame> cEmpty(
        new IOnlyFrame(1, 0, 0, kNanoseconds, 0.0f, 0.0f, kRate, 0.0f, kSuperhet, nullptr, ""));
    EXPECT_FALSE(cConversion.convert(cEmpty));
    EXPECT_FALSE(cEmpty->getIQ(cConversion));
}

TEST(IQConversion, anyOtherLengthIsAnAssertion) {
    for (size_t uLength : {0u, 1u, 65279u, 65281u, 65536u}) {
        IQConversion cConversion;
        try {
            cConversion.convert(frameOf(Samples(uLength)));
            ADD_FAILURE() << "no assertion for " << uLength;
        } catch (const utils::FatalError& cError) {
            EXPECT_NE(cError.message().find("cSource->mcIOnly->getActive() == IQConversionSize"),
                      std::string::npos)
                << cError.message();
        }
    }
}

TEST(IQConversion, frameIsConvertedOnceAndKeepsTheResult) {
    IQConversion cConversion;
    auto cSource = frameOf(noise(1));
    const auto cFirst = cSource->getIQ(cConversion);
    ASSERT_TRUE(cFirst);
    EXPECT_EQ(cSource->getIQ(cConversion), cFirst);
}

TEST(IQConversion, absurdRatesAndOffsetsConvertWithoutMixingOrCrashing) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float kNaN = std::nanf("");
    const std::pair<float, float> kPairs[] = {{0.0f, 0.0f},        {0.0f, 35e6f},  {kNaN, 35e6f},
                                              {kRate, kNaN},       {-1e6f, 35e6f}, {kInfinity, 35e6f},
                                              {kRate, -kInfinity}, {3e38f, 35e6f}, {0.25f, 0.5f},
                                              {kRate, 3e38f},      {kRate, 0.5f},  {1e-30f, 3e38f}};
    for (const auto& cPair : kPairs) {
        IQConversion cConversion;
        const auto cResult =
            cConversion.convert(frameOf(noise(3), {cPair.second, -20e6f, 20e6f, false}, cPair.first));
        ASSERT_TRUE(cResult) << cPair.first << " " << cPair.second;
        uint32_t uCount = 0;
        const Complex<float>* pSamples = cResult->getSamples(uCount);
        ASSERT_EQ(uCount, kOutput);
        for (uint32_t i = 0; i < uCount; ++i)
            ASSERT_TRUE(std::isfinite(pSamples[i].re) && std::isfinite(pSamples[i].im)) << cPair.first;
    }
}

}  // namespace
