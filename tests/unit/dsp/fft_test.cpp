#include "dsp/fft.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr double kPi = 3.14159265358979323846;

ReferencePtr<ComplexArray> array(uint32_t uSize) {
    return ReferencePtr<ComplexArray>(new ComplexArray(uSize));
}

ReferencePtr<ComplexArray> noise(uint32_t uSize, uint32_t uSeed) {
    std::mt19937 cEngine(uSeed);
    std::uniform_real_distribution<float> cValues(-1.0f, 1.0f);
    auto cArray = array(uSize);
    for (uint32_t i = 0; i < uSize; ++i)
        cArray->getData()[i] = {cValues(cEngine), cValues(cEngine)};
    return cArray;
}

/// The sum by definition, in double.
std::vector<std::complex<double>> directTransform(const ComplexArray& cInput, double fSign) {
    const uint32_t uSize = cInput.getActive();
    std::vector<std::complex<double>> cOutput(uSize);
    for (uint32_t k = 0; k < uSize; ++k)
        for (uint32_t n = 0; n < uSize; ++n) {
            const double fAngle = fSign * 2.0 * kPi * static_cast<double>(uint64_t{k} * n % uSize) / uSize;
            cOutput[k] +=
                std::complex<double>(double{cInput.getData()[n].re}, double{cInput.getData()[n].im}) *
                std::polar(1.0, fAngle);
        }
    return cOutput;
}

TEST(FFT, constantGivesItsValueInBinZero) {
    const auto cFFT = FFT::create(64);
    auto cInput = array(64);
    auto cOutput = array(64);
    auto cBack = array(64);
    std::fill_n(cInput->getData(), 64, Complex<float>{1.0f, 0.0f});
    cFFT->forward(cOutput->getData(), cInput->getData(), 64);
    EXPECT_EQ(cOutput->getData()[0], (Complex<float>{1.0f, 0.0f}));
    for (uint32_t i = 1; i < 64; ++i)
        EXPECT_EQ(cOutput->getData()[i], (Complex<float>{0.0f, 0.0f})) << i;
    cFFT->inverse(cBack->getData(), cOutput->getData(), 64);
    for (uint32_t i = 0; i < 64; ++i)
        EXPECT_EQ(cBack->getData()[i], (Complex<float>{1.0f, 0.0f})) << i;
}

TEST(FFT, unitToneGivesABinOfMagnitudeOneAtItsSide) {
    constexpr uint32_t kSize = 1024;
    const auto cFFT = FFT::create(kSize);
    auto cInput = array(kSize);
    auto cOutput = array(kSize);
    for (int iBin : {3, -3, 511, -512}) {
        for (uint32_t i = 0; i < kSize; ++i) {
            const double x = 2.0 * kPi * iBin * i / kSize;
            cInput->getData()[i] = {static_cast<float>(std::cos(x)), static_cast<float>(std::sin(x))};
        }
        cFFT->forward(cOutput->getData(), cInput->getData(), kSize);
        const auto uPlace = static_cast<uint32_t>(iBin + (iBin < 0 ? int{kSize} : 0));
        for (uint32_t i = 0; i < kSize; ++i)
            EXPECT_NEAR(std::hypot(cOutput->getData()[i].re, cOutput->getData()[i].im),
                        i == uPlace ? 1.0f : 0.0f, 1e-6f)
                << iBin << " at " << i;
    }
}

TEST(FFT, bothDirectionsEqualTheSumsByDefinition) {
    for (uint32_t uSize : {2u, 4u, 8u, 64u, 512u}) {
        const auto cFFT = FFT::create(uSize);
        const auto cInput = noise(uSize, uSize);
        auto cOutput = array(uSize);
        cFFT->forward(cOutput->getData(), cInput->getData(), uSize);
        auto cExpected = directTransform(*cInput, -1.0);
        const double fTolerance = 4e-7 * std::sqrt(uSize);
        for (uint32_t i = 0; i < uSize; ++i) {
            EXPECT_NEAR(double{cOutput->getData()[i].re}, cExpected[i].real() / uSize, fTolerance);
            EXPECT_NEAR(double{cOutput->getData()[i].im}, cExpected[i].imag() / uSize, fTolerance);
        }
        cFFT->inverse(cOutput->getData(), cInput->getData(), uSize);
        cExpected = directTransform(*cInput, 1.0);
        for (uint32_t i = 0; i < uSize; ++i) {
            EXPECT_NEAR(double{cOutput->getData()[i].re}, cExpected[i].real(), fTolerance * uSize);
            EXPECT_NEAR(double{cOutput->getData()[i].im}, cExpected[i].imag(), fTolerance * uSize);
        }
    }
}

TEST(FFT, inverseOfForwardGivesTheInputBackAndLeavesItAlone) {
    constexpr uint32_t kSize = 65536;
    const auto cFFT = FFT::create(kSize);
    const auto cInput = noise(kSize, 5);
    const ComplexArray cKept(*cInput);
    auto cFrequency = array(kSize);
    auto cBack = array(kSize);
    cFFT->forward(cFrequency->getData(), cInput->getData(), kSize);
    cFFT->inverse(cBack->getData(), cFrequency->getData(), kSize);
    for (uint32_t i = 0; i < kSize; ++i) {
        ASSERT_EQ(cInput->getData()[i], cKept.getData()[i]);
        ASSERT_NEAR(cBack->getData()[i].re, cInput->getData()[i].re, 2e-6f);
        ASSERT_NEAR(cBack->getData()[i].im, cInput->getData()[i].im, 2e-6f);
    }
}

TEST(FFT, anotherSizeIsPlannedAnew) {
    const auto cFFT = FFT::create(16);
    EXPECT_EQ(cFFT->getSize(), 16u);
    auto cInput = array(256);
    auto cOutput = array(256);
    std::fill_n(cInput->getData(), 256, Complex<float>{0.0f, 2.0f});
    cFFT->forward(cOutput->getData(), cInput->getData(), 256);
    EXPECT_EQ(cFFT->getSize(), 256u);
    EXPECT_NEAR(cOutput->getData()[0].im, 2.0f, 1e-6f);
    cFFT->inverse(cOutput->getData(), cInput->getData(), 32);
    EXPECT_EQ(cFFT->getSize(), 32u);
    EXPECT_NEAR(cOutput->getData()[0].im, 64.0f, 1e-4f);
}

TEST(FFT, sizeOfZeroMakesAnObjectThatPlansWhenAsked) {
    const auto cFFT = FFT::create(0);
    EXPECT_EQ(cFFT->getSize(), 0u);
    cFFT->forward(nullptr, nullptr, 0);
    cFFT->inverse(nullptr, nullptr, 0);
    auto cInput = array(8);
    auto cOutput = array(8);
    std::fill_n(cInput->getData(), 8, Complex<float>{3.0f, 0.0f});
    cFFT->forward(cOutput->getData(), cInput->getData(), 8);
    EXPECT_EQ(cFFT->getSize(), 8u);
    EXPECT_NEAR(cOutput->getData()[0].re, 3.0f, 1e-6f);
}

TEST(FFT, sizeThatNoPackageCanPlanIsAnAssertionAndNoCrash) {
    const auto cFFT = FFT::create(0);
    Complex<float> cUnused{};
    EXPECT_THROW(cFFT->forward(&cUnused, &cUnused, 0x80000000u), utils::FatalError);
}

TEST(FFT, forwardIsScaledByTheSinglePrecisionInverseOfTheSize) {
    // 3 is no power of two, so its inverse is rounded: 1 x (1/3) in single precision.
    const auto cFFT = FFT::create(3);
    auto cInput = array(3);
    auto cOutput = array(3);
    cInput->getData()[0] = {1.0f, 0.0f};
    cInput->getData()[1] = {0.0f, 0.0f};
    cInput->getData()[2] = {0.0f, 0.0f};
    cFFT->forward(cOutput->getData(), cInput->getData(), 3);
    for (uint32_t i = 0; i < 3; ++i)
        EXPECT_EQ(cOutput->getData()[i].re, 1.0f / 3.0f) << i;
}

TEST(FFT, instancesAreMadeAndRunOnManyThreads) {
    const auto cInput = noise(512, 9);
    std::vector<ReferencePtr<ComplexArray>> cOutputs;
    for (int i = 0; i < 4; ++i)
        cOutputs.push_back(array(512));
    std::vector<std::thread> cThreads;
    for (auto& cOutput : cOutputs)
        cThreads.emplace_back([&cInput, &cOutput] {
            for (int iRound = 0; iRound < 50; ++iRound) {
                const auto cFFT = FFT::create(iRound % 2 == 0 ? 512 : 64);
                cFFT->forward(cOutput->getData(), cInput->getData(), 512);
            }
        });
    for (std::thread& cThread : cThreads)
        cThread.join();
    for (uint32_t i = 0; i < 512; ++i)
        EXPECT_EQ(cOutputs[3]->getData()[i], cOutputs[0]->getData()[i]);
}

TEST(FFT, plansOfOneSizeGiveTheSameBits) {
    const auto cInput = noise(4096, 11);
    auto cFirst = array(4096);
    auto cSecond = array(4096);
    FFT::create(4096)->forward(cFirst->getData(), cInput->getData(), 4096);
    FFT::create(4096)->forward(cSecond->getData(), cInput->getData(), 4096);
    for (uint32_t i = 0; i < 4096; ++i)
        ASSERT_EQ(cFirst->getData()[i], cSecond->getData()[i]);
}

}  // namespace
