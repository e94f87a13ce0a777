#include "dsp/biquadfilter.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "dsp/filterdesigners.h"
#include "filterdata.h"

namespace {

using filterdata::assertionOf;
using testing::HasSubstr;

ReferencePtr<FilterDesign> lowPass() {
    return designDigitalButterworth(0.1f, 1.0f, 2);
}

std::vector<Complex<float>> noise(size_t uCount) {
    std::mt19937 cEngine(4);
    std::uniform_real_distribution<float> cValues(-1.0f, 1.0f);
    std::vector<Complex<float>> lNoise(uCount);
    for (auto& cValue : lNoise)
        cValue = {cValues(cEngine), cValues(cEngine)};
    return lNoise;
}

TEST(BiquadFilter, impulseResponseIsThatOfAnIndependentComputation) {
    for (const auto& cExpected : filterdata::butterworths()) {
        if (cExpected.muOrder != 2)
            continue;
        BiquadFilter cFilter;
        ASSERT_TRUE(cFilter.setDesign(designDigitalButterworth(cExpected.mf3dB, cExpected.mfSample, 2)));
        std::vector<float> lData(cExpected.mlImpulseResponse.size(), 0.0f);
        lData[0] = 1.0f;
        cFilter.filter(lData.data(), lData.data(), static_cast<uint32_t>(lData.size()));
        double fPeak = 0.0;
        for (double fValue : cExpected.mlImpulseResponse)
            fPeak = std::max(fPeak, std::abs(fValue));
        // Poles near the circle carry each rounding of a state on for long.
        const double fNear = double{cExpected.mf3dB / cExpected.mfSample};
        const double fTolerance = fPeak * (fNear < 0.05 ? 2e-5 : 2e-6);
        for (size_t i = 0; i < lData.size(); ++i)
            ASSERT_NEAR(double{lData[i]}, cExpected.mlImpulseResponse[i], fTolerance)
                << cExpected.mf3dB << " of " << cExpected.mfSample << " at " << i;
    }
}

TEST(BiquadFilter, isDirectFormTwoInSinglePrecision) {
    BiquadFilter cFilter;
    ASSERT_TRUE(cFilter.setDesign(lowPass()));
    const auto cBy = cFilter.coefficients();
    float fW1 = 0.0f;
    float fW2 = 0.0f;
    for (const auto& cSample : noise(500)) {
        float fW = cBy.mfA1 * fW1;
        fW = cSample.re - fW;
        const float fSecond = cBy.mfA2 * fW2;
        fW = fW - fSecond;
        float fY = cBy.mfB0 * fW;
        const float fB1 = cBy.mfB1 * fW1;
        const float fB2 = cBy.mfB2 * fW2;
        fY = fY + fB1;
        fY = fY + fB2;
        fW2 = fW1;
        fW1 = fW;
        ASSERT_EQ(cFilter.step(cSample.re), fY);
    }
}

TEST(BiquadFilter, piecesJoinWithoutASeam) {
    const auto lNoise = noise(300);
    std::vector<float> lInput;
    for (const auto& cSample : lNoise)
        lInput.push_back(cSample.re);
    std::vector<float> lWhole(300);
    std::vector<float> lPieces(300);
    BiquadFilter cFilter;
    cFilter.setDesign(lowPass());
    cFilter.filter(lInput.data(), lWhole.data(), 300);
    cFilter.reset();
    uint32_t uAt = 0;
    for (uint32_t uPiece : {0u, 1u, 2u, 7u, 90u, 200u}) {
        cFilter.filter(lInput.data() + uAt, lPieces.data() + uAt, uPiece);
        uAt += uPiece;
    }
    ASSERT_EQ(uAt, 300u);
    EXPECT_EQ(lWhole, lPieces);
}

TEST(BiquadFilter, aDesignOfAnotherOrderPassesSamplesUnchanged) {
    const ReferencePtr<FilterDesign> lOther[] = {
        designDigitalButterworth(0.1f, 1.0f, 3),
        designDigitalButterworth(0.1f, 1.0f, 4),
        designDigitalButterworth(0.5f, 1.0f, 2),  // no poles
        makeReference<FilterDesign>(std::vector{1.0, 0.5, 0.2}, std::vector{1.0, 1.0}),
        makeReference<FilterDesign>(std::vector{1.0, 0.5}, std::vector{1.0, 1.0, 1.0}),
        makeReference<FilterDesign>(std::vector<double>{}, std::vector<double>{}),
        nullptr,
    };
    for (const auto& cDesign : lOther) {
        BiquadFilter cFilter;
        ComplexBiquadFilter cComplex;
        ASSERT_TRUE(cFilter.setDesign(lowPass()));
        ASSERT_TRUE(cComplex.setDesign(lowPass()));
        cFilter.step(100.0f);  // a state that would show
        cComplex.step({100.0f, -100.0f});
        EXPECT_FALSE(cFilter.setDesign(cDesign));
        EXPECT_FALSE(cComplex.setDesign(cDesign));
        for (const auto& cSample : noise(20)) {
            EXPECT_EQ(cFilter.step(cSample.re), cSample.re);
            EXPECT_EQ(cComplex.step(cSample), cSample);
        }
    }
}

TEST(BiquadFilter, theFormThatTakesNoRefusalAsserts) {
    const auto cThirdOrder = designDigitalButterworth(0.1f, 1.0f, 3);
    const auto cFirstPoles = makeReference<FilterDesign>(std::vector{1.0, 0.5}, std::vector{1.0, 1.0, 1.0});
    BiquadFilter cFilter;
    cFilter.requireDesign(lowPass());
    EXPECT_NE(cFilter.step(1.0f), 1.0f);
    std::string text = assertionOf([&] { cFilter.requireDesign(cThirdOrder); });
    EXPECT_THAT(text, HasSubstr("ASSERT failed <3 == cDesign->getBCoeffCount()> "));
    EXPECT_EQ(cFilter.step(0.25f), 0.25f);
    text = assertionOf([&] { cFilter.requireDesign(cFirstPoles); });
    EXPECT_THAT(text, HasSubstr("ASSERT failed <2 == cDesign->getACoeffCount()> "));
    EXPECT_EQ(cFilter.step(0.25f), 0.25f);
    EXPECT_NE(assertionOf([&] { cFilter.requireDesign(nullptr); }), "none");
}

TEST(BiquadFilter, aNewDesignBeginsFromRest) {
    BiquadFilter cFilter;
    cFilter.setDesign(lowPass());
    const float fFirst = cFilter.step(1.0f);
    cFilter.step(-3.0f);
    cFilter.setDesign(lowPass());
    EXPECT_EQ(cFilter.step(1.0f), fFirst);
}

TEST(ComplexBiquadFilter, filtersEachRailAsARealFilterDoes) {
    const auto lInput = noise(400);
    auto lOutput = lInput;
    BiquadFilter cI;
    BiquadFilter cQ;
    ComplexBiquadFilter cBoth;
    cI.setDesign(lowPass());
    cQ.setDesign(lowPass());
    cBoth.setDesign(lowPass());
    cBoth.filter(lOutput.data(), lOutput.data(), 400);
    for (size_t i = 0; i < lInput.size(); ++i) {
        ASSERT_EQ(lOutput[i].re, cI.step(lInput[i].re)) << i;
        ASSERT_EQ(lOutput[i].im, cQ.step(lInput[i].im)) << i;
    }
}

TEST(ComplexBiquadCascade, equalsItsSectionsOneAfterTheOther) {
    const auto lInput = noise(400);
    auto lExpected = lInput;
    for (int i = 0; i < 3; ++i) {
        ComplexBiquadFilter cSection;
        cSection.setDesign(lowPass());
        cSection.filter(lExpected.data(), lExpected.data(), 400);
    }
    ComplexBiquadCascade<3> cCascade;
    EXPECT_TRUE(cCascade.setDesign(lowPass()));
    std::vector<Complex<float>> lOutput(400);
    cCascade.filter(lInput.data(), lOutput.data(), 123);
    cCascade.filter(lInput.data() + 123, lOutput.data() + 123, 277);
    EXPECT_EQ(lOutput, lExpected);
    EXPECT_TRUE(cCascade.setDesign(lowPass()));  // from rest
    cCascade.filter(lInput.data(), lOutput.data(), 400);
    EXPECT_EQ(lOutput, lExpected);
    EXPECT_FALSE(cCascade.setDesign(nullptr));
    cCascade.filter(lInput.data(), lOutput.data(), 400);
    EXPECT_EQ(lOutput, lInput);
}

}  // namespace
