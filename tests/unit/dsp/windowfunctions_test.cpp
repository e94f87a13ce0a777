#include "dsp/windowfunctions.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <thread>
#include <vector>

#include "dsp/fft.h"

namespace {

struct Golden {
    const char* mpName;
    float mfNoiseBandwidth;
    std::array<float, 9> mfValues;
};

// From numpy: the formulas in double, each value rounded to float32; the bandwidth from float32 running sums
// of 16385 values (cumsum), then S2 / (S1 S1) 16385 in float32.
constexpr Golden kGolden[] = {
    {"rectangular", 1.0f, {1, 1, 1, 1, 1, 1, 1, 1, 1}},
    {"gaussian",
     1.78969824f,
     {0.00850036647f, 0.0612778179f, 0.269589216f, 0.723827958f, 1.1860466f, 1.1860466f, 0.723827958f,
      0.269589216f, 0.0612778179f}},
    {"hann", 1.50008559f, {0, 0.146446615f, 0.5f, 0.853553414f, 1, 0.853553414f, 0.5f, 0.146446615f, 0}},
    {"hamming",
     1.36288667f,
     {0.08f, 0.214730874f, 0.54f, 0.865269125f, 1, 0.865269125f, 0.54f, 0.214730874f, 0.08f}},
    {"cosine",
     1.23377252f,
     {0, 0.382683426f, 0.707106769f, 0.923879504f, 1, 0.923879504f, 0.707106769f, 0.382683426f, 0}},
    {"lanczos",
     1.0025357f,
     {0.841470957f, 0.908851683f, 0.958851099f, 0.989615858f, 1, 0.989615858f, 0.958851099f, 0.908851683f,
      0.841470957f}},
    {"bartlett", 1.33330166f, {0, 0.25f, 0.5f, 0.75f, 1, 0.75f, 0.5f, 0.25f, 0}},
    {"bartletthann",
     1.45593393f,
     {0, 0.171299428f, 0.5f, 0.828700602f, 1, 0.828700602f, 0.5f, 0.171299428f, 0}},
    {"nuttall",
     2.02135396f,
     {0, 0.0200393572f, 0.211536005f, 0.69149667f, 1, 0.69149667f, 0.211536005f, 0.0200393572f, 0}},
    {"blackmanharris",
     2.00446987f,
     {6e-05f, 0.0217358377f, 0.217470005f, 0.695764184f, 1, 0.695764184f, 0.217470005f, 0.0217358377f,
      6e-05f}},
    {"blackmannuttall",
     1.97618687f,
     {0.0003628f, 0.0252055656f, 0.2269824f, 0.701958239f, 1, 0.701958239f, 0.2269824f, 0.0252055656f,
      0.0003628f}},
    {"flattop",
     3.77050018f,
     {0.004f, -0.122358657f, -0.258f, 2.05835867f, 4.64f, 2.05835867f, -0.258f, -0.122358657f, 0.004f}},
};

TEST(WindowFunctions, namesAreListedInTableOrder) {
    std::list<std::string> lExpected;
    for (const Golden& cGolden : kGolden)
        lExpected.emplace_back(cGolden.mpName);
    EXPECT_EQ(WindowFunctions::listWindowNames(), lExpected);
}

TEST(WindowFunctions, defaultIsNuttall) {
    EXPECT_STREQ(WindowFunctions::defaultWindowName(), "nuttall");
}

TEST(WindowFunctions, nameIsComparedExactly) {
    EXPECT_EQ(WindowFunctions::findWindow("Hann"), nullptr);
    EXPECT_EQ(WindowFunctions::findWindow("hann "), nullptr);
    EXPECT_EQ(WindowFunctions::findWindow(""), nullptr);
    ASSERT_NE(WindowFunctions::findWindow("hann"), nullptr);
    EXPECT_STREQ(WindowFunctions::findWindow("hann")->mpName, "hann");
}

TEST(WindowFunctions, nineSamplesOfEachWindowFollowTheFormulas) {
    for (const Golden& cGolden : kGolden) {
        const auto cSamples = WindowFunctions::sampleWindow(cGolden.mpName, 9, nullptr);
        ASSERT_EQ(cSamples->getActive(), 9u);
        for (size_t i = 0; i < 9; ++i)
            EXPECT_NEAR(cSamples->getData()[i], cGolden.mfValues[i],
                        2.5e-7f * std::max(1.0f, cGolden.mfValues[i]))
                << cGolden.mpName << " " << i;
    }
}

TEST(WindowFunctions, noiseBandwidthsAreThoseOfSinglePrecisionSums) {
    for (const Golden& cGolden : kGolden) {
        EXPECT_NEAR(WindowFunctions::windowNoiseBandwidth(cGolden.mpName), cGolden.mfNoiseBandwidth, 3e-6f)
            << cGolden.mpName;
        EXPECT_EQ(WindowFunctions::findWindow(cGolden.mpName)->mfNoiseBandwidth.load(),
                  WindowFunctions::windowNoiseBandwidth(cGolden.mpName));
    }
}

TEST(WindowFunctions, noiseBandwidthsOfTheCommonWindows) {
    EXPECT_EQ(WindowFunctions::windowNoiseBandwidth("rectangular"), 1.0f);
    EXPECT_NEAR(WindowFunctions::windowNoiseBandwidth("hann"), 1.5f, 0.001f);
    EXPECT_NEAR(WindowFunctions::windowNoiseBandwidth("nuttall"), 2.02f, 0.005f);
}

TEST(WindowFunctions, unknownNameHasANoiseBandwidthOfOne) {
    EXPECT_EQ(WindowFunctions::windowNoiseBandwidth("kaiser"), 1.0f);
    EXPECT_EQ(WindowFunctions::windowNoiseBandwidth(""), 1.0f);
}

TEST(WindowFunctions, threadsThatMeetComputeTheSameNoiseBandwidth) {
    std::vector<float> cResults(4);
    std::vector<std::thread> cThreads;
    for (float& fResult : cResults)
        cThreads.emplace_back([&fResult] { fResult = WindowFunctions::windowNoiseBandwidth("lanczos"); });
    for (std::thread& cThread : cThreads)
        cThread.join();
    for (float fResult : cResults)
        EXPECT_EQ(fResult, cResults[0]);
}

TEST(WindowFunctions, indexOutsideTheWindowGivesZero) {
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        const WindowType* pType = WindowFunctions::findWindow(name);
        EXPECT_EQ(pType->mpFunction(-1, 16), 0.0f) << name;
        EXPECT_EQ(pType->mpFunction(16, 16), 0.0f) << name;
        EXPECT_EQ(pType->mpFunction(0, -5), 0.0f) << name;
    }
}

TEST(WindowFunctions, emptyNameGivesTheDefaultSamples) {
    float fMean = 0.0f;
    float fMeanOfDefault = 0.0f;
    const auto cUnnamed = WindowFunctions::sampleWindow("", 64, &fMean);
    const auto cDefault = WindowFunctions::sampleWindow("nuttall", 64, &fMeanOfDefault);
    EXPECT_EQ(fMean, fMeanOfDefault);
    for (size_t i = 0; i < 64; ++i)
        EXPECT_EQ(cUnnamed->getData()[i], cDefault->getData()[i]);
}

TEST(WindowFunctions, meanIsTheSinglePrecisionSumOverTheCount) {
    float fMean = 0.0f;
    const auto cSamples = WindowFunctions::sampleWindow("blackmanharris", 1000, &fMean);
    float fSum = 0.0f;
    for (size_t i = 0; i < 1000; ++i)
        fSum += cSamples->getData()[i];
    EXPECT_EQ(fMean, fSum / 1000.0f);
    EXPECT_NEAR(fMean, 0.35875f * 999.0f / 1000.0f, 1e-4f);
}

TEST(WindowFunctions, gaussianIsCentredOnHalfTheLength) {
    const WindowType* pType = WindowFunctions::findWindow("gaussian");
    EXPECT_GT(pType->mpFunction(8, 16), pType->mpFunction(7, 16));
    EXPECT_EQ(pType->mpFunction(7, 16), pType->mpFunction(9, 16));
    // 1 / sqrt(2 pi 0.1)
    EXPECT_NEAR(pType->mpFunction(8, 16), 1.26156626f, 1e-6f);
}

TEST(WindowFunctions, lanczosFallsOnlyToTheSineOfOne) {
    const WindowType* pType = WindowFunctions::findWindow("lanczos");
    EXPECT_FLOAT_EQ(pType->mpFunction(0, 101), 0.841470985f);
    EXPECT_EQ(pType->mpFunction(50, 101), 1.0f);
}

TEST(WindowFunctions, samplesGoToTheDestinationGiven) {
    std::vector<float> cSamples(17, -5.0f);
    EXPECT_FALSE(WindowFunctions::sampleWindow("hann", 16, nullptr, cSamples.data()));
    EXPECT_EQ(cSamples[0], 0.0f);
    EXPECT_EQ(cSamples[16], -5.0f);
    std::vector<Complex<float>> cComplex(17, Complex<float>{-5.0f, -5.0f});
    EXPECT_FALSE(WindowFunctions::complexWindow("hann", 16, cComplex.data()));
    EXPECT_EQ(cComplex[3].im, 0.0f);
    EXPECT_EQ(cComplex[16].re, -5.0f);
}

TEST(WindowFunctions, unknownNameIsAnAssertionThatNamesItsSource) {
    try {
        WindowFunctions::sampleWindow("kaiser", 16, nullptr);
        FAIL() << "no assertion";
    } catch (const utils::FatalError& cError) {
        EXPECT_NE(cError.message().find("ASSERT failed <pType != nullptr>"), std::string::npos)
            << cError.message();
        EXPECT_NE(cError.message().find("windowfunctions"), std::string::npos) << cError.message();
    }
}

TEST(WindowFunctions, complexWindowHasAMeanOfOneAndNoImaginaryPart) {
    for (const std::string& name : WindowFunctions::listWindowNames()) {
        const auto cWindow = WindowFunctions::complexWindow(name, 1024);
        double fSum = 0.0;
        for (size_t i = 0; i < 1024; ++i) {
            fSum += double{cWindow->getData()[i].re};
            EXPECT_EQ(cWindow->getData()[i].im, 0.0f);
        }
        EXPECT_NEAR(fSum / 1024.0, 1.0, 1e-5) << name;
    }
}

TEST(WindowFunctions, windowedToneKeepsItsLevel) {
    constexpr uint32_t kSize = 1024;
    const auto cWindow = WindowFunctions::complexWindow("blackmanharris", kSize);
    ComplexArray cTime(kSize);
    ComplexArray cFrequency(kSize);
    for (uint32_t i = 0; i < kSize; ++i) {
        const double x = 2.0 * M_PI * 100.0 * i / kSize;
        const float fWindow = cWindow->getData()[i].re;
        cTime.getData()[i] = {static_cast<float>(std::cos(x)) * fWindow,
                              static_cast<float>(std::sin(x)) * fWindow};
    }
    FFT::create(kSize)->forward(cFrequency.getData(), cTime.getData(), kSize);
    EXPECT_NEAR(std::hypot(cFrequency.getData()[100].re, cFrequency.getData()[100].im), 1.0f, 1e-5f);
}

TEST(WindowFunctions, singlePointReachesNoUndefinedStep) {
    for (const std::string& name : WindowFunctions::listWindowNames())
        EXPECT_TRUE(WindowFunctions::sampleWindow(name, 1, nullptr)) << name;
}

}  // namespace
