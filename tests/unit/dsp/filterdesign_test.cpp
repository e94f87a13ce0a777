#include "dsp/filterdesign.h"

#include <gmock/gmock.h>

#include <cmath>
#include <complex>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "dsp/filterdesigners.h"
#include "filterdata.h"

namespace {

using filterdata::assertionOf;
using filterdata::decibels;
using filterdata::kPi;
using filterdata::transform;
using testing::HasSubstr;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct Coefficients {
    std::vector<double> mlA;  // a1, a2, ...
    std::vector<double> mlB;
};

Coefficients coefficientsOf(const FilterDesign& cDesign) {
    Coefficients cResult{std::vector<double>(cDesign.getACoeffCount()),
                         std::vector<double>(cDesign.getBCoeffCount())};
    uint32_t uA = cDesign.getACoeffCount();
    uint32_t uB = cDesign.getBCoeffCount();
    EXPECT_TRUE(cDesign.getCoefficients(cResult.mlA.data(), uA, cResult.mlB.data(), uB));
    return cResult;
}

double responseAt(const Coefficients& cFilter, double fRate) {
    std::vector<double> lDenominator{1.0};
    lDenominator.insert(lDenominator.end(), cFilter.mlA.begin(), cFilter.mlA.end());
    return std::abs(transform(cFilter.mlB, fRate) / transform(lDenominator, fRate));
}

PoleZeroMap butterworthMap(float f3dB, float fSample, uint32_t uOrder) {
    PoleZeroMap cMap;
    designButterworth(cMap, f3dB, fSample, uOrder);
    return cMap;
}

TEST(Butterworth, hasTheResponseOfTheClosedFormOverTheBand) {
    for (uint32_t uOrder : {2u, 3u, 4u})
        for (float f3dB : {0.02f, 0.1f, 0.25f, 0.4f, 0.49f}) {
            const auto cFilter = coefficientsOf(*designDigitalButterworth(f3dB, 1.0f, uOrder));
            const double fAtCutOff = std::tan(kPi * double{f3dB});
            for (int i = 0; i < 500; ++i) {
                const double fRate = 0.5 * i / 500.0;
                const double fExact = std::pow(std::tan(kPi * fRate) / fAtCutOff, 2.0 * uOrder);
                const double fdB = -10.0 * std::log10(1.0 + fExact);
                if (fdB > -150.0) {  // beyond, the sum of the numerator is rounding alone
                    ASSERT_NEAR(decibels(responseAt(cFilter, fRate)), fdB, 0.01)
                        << uOrder << " " << f3dB << " " << fRate;
                }
            }
        }
}

TEST(Butterworth, hasTheCoefficientsOfAnIndependentComputation) {
    for (const auto& cExpected : filterdata::butterworths()) {
        const auto cFilter =
            coefficientsOf(*designDigitalButterworth(cExpected.mf3dB, cExpected.mfSample, cExpected.muOrder));
        ASSERT_EQ(cFilter.mlA.size(), cExpected.mlA.size());
        ASSERT_EQ(cFilter.mlB.size(), cExpected.mlB.size());
        for (size_t i = 0; i < cExpected.mlA.size(); ++i)
            EXPECT_NEAR(cFilter.mlA[i], cExpected.mlA[i], 1e-6 * (1.0 + std::abs(cExpected.mlA[i])))
                << cExpected.mf3dB;
        for (size_t i = 0; i < cExpected.mlB.size(); ++i)
            EXPECT_NEAR(cFilter.mlB[i], cExpected.mlB[i], 2e-6 * cExpected.mlB[i]) << cExpected.mf3dB;
    }
}

TEST(Butterworth, orderTwoAtFourTenthsHasAStablePairAndADoubleZeroAtMinusOne) {
    const auto cFilter = coefficientsOf(*designDigitalButterworth(400.0f, 1000.0f, 2));
    ASSERT_EQ(cFilter.mlA.size(), 2u);
    ASSERT_EQ(cFilter.mlB.size(), 3u);
    // A pair z^2 + a1 z + a2 is conjugate below 0, and inside the circle where a2 is below 1.
    EXPECT_LT(cFilter.mlA[0] * cFilter.mlA[0] - 4.0 * cFilter.mlA[1], 0.0);
    EXPECT_GT(cFilter.mlA[1], 0.0);
    EXPECT_LT(cFilter.mlA[1], 1.0);
    // (z + 1)^2 = z^2 + 2z + 1
    EXPECT_DOUBLE_EQ(cFilter.mlB[1], 2.0 * cFilter.mlB[0]);
    EXPECT_DOUBLE_EQ(cFilter.mlB[2], cFilter.mlB[0]);
    EXPECT_NEAR(responseAt(cFilter, 0.0), 1.0, 1e-14);
}

TEST(Butterworth, polesStandOnTheLeftHalfOfAPrewarpedCircle) {
    for (uint32_t uOrder : {2u, 3u, 4u, 7u}) {
        const auto cMap = butterworthMap(100.0f, 1000.0f, uOrder);
        ASSERT_EQ(cMap.mlPoles.size(), uOrder);
        EXPECT_TRUE(cMap.mlZeros.empty());
        EXPECT_EQ(cMap.mfSampleHz, 1000.0);
        const float fRadius = 2.0f * 1000.0f * std::tan(3.14159265f * 100.0f / 1000.0f);
        for (uint32_t k = 0; k < uOrder; ++k) {
            EXPECT_EQ(cMap.mlPoles[k].muIndex, k);
            EXPECT_LT(cMap.mlPoles[k].mcValue.real(), 0.0);
            // Single precision stands in the radius, double in the angle.
            EXPECT_NEAR(std::abs(cMap.mlPoles[k].mcValue), double{fRadius}, 1e-12 * double{fRadius});
            EXPECT_NEAR(std::arg(-cMap.mlPoles[k].mcValue), kPi * (1.0 + 2.0 * k - uOrder) / (2.0 * uOrder),
                        1e-14);
        }
    }
}

TEST(Butterworth, describesItself) {
    EXPECT_EQ(butterworthMap(100.5f, 1000.0f, 3).mcDescription,
              "Butterworth LPF (3dB:100.500Hz, fSample:1000.000Hz, Order:3)");
}

TEST(Butterworth, aMapIsFilledAnew) {
    PoleZeroMap cMap = butterworthMap(100.0f, 1000.0f, 4);
    designButterworth(cMap, 100.0f, 1000.0f, 2);
    EXPECT_EQ(cMap.mlPoles.size(), 2u);
}

TEST(Butterworth, halfTheRateIsAcceptedAndLeavesNothingToFilter) {
    for (float fSample : {2.0f, 48000.0f, 1e6f}) {
        const auto cFilter = coefficientsOf(*designDigitalButterworth(fSample / 2.0f, fSample, 2));
        for (double fRate : {0.0, 0.2, 0.499})
            EXPECT_NEAR(responseAt(cFilter, fRate), 1.0, 1e-9);
    }
}

TEST(Butterworth, halfTheRateKeepsItsPolesWhereRoundingStaysBelowThatOfTheTangent) {
    const float fSample = 1.27594221f;
    const auto cMap = butterworthMap(fSample / 2.0f, fSample, 2);
    EXPECT_EQ(cMap.mlPoles.size(), 2u);
    const auto cFilter = coefficientsOf(*toDigital(cMap));
    ASSERT_EQ(cFilter.mlA.size(), 2u);
    EXPECT_LT(std::abs(cFilter.mlA[1]), 1.0);
    for (double fRate : {0.0, 0.2, 0.499})
        EXPECT_NEAR(responseAt(cFilter, fRate), 1.0, 1e-6);
}

TEST(Butterworth, justBelowHalfTheRateIsStable) {
    for (uint32_t uOrder : {2u, 3u, 4u}) {
        const float f3dB = std::nextafter(500.0f, 0.0f);
        const auto cFilter = coefficientsOf(*designDigitalButterworth(f3dB, 1000.0f, uOrder));
        EXPECT_NEAR(responseAt(cFilter, 0.1), 1.0, 1e-3) << uOrder;
        if (uOrder == 2) {
            EXPECT_LT(std::abs(cFilter.mlA[1]), 1.0);
        }
    }
}

TEST(Butterworth, aboveHalfTheRateFailsTheAssertion) {
    struct Case {
        float mf3dB;
        float mfSample;
    };
    for (const Case& cCase : {Case{500.1f, 1000.0f},
                              {kNaN, 1000.0f},
                              {100.0f, kNaN},
                              {kInfinity, 1e6f},
                              {1.0f, 0.0f},
                              {1.0f, -2.0f}}) {
        PoleZeroMap cMap;
        const std::string text =
            assertionOf([&] { designButterworth(cMap, cCase.mf3dB, cCase.mfSample, 2); });
        EXPECT_THAT(text, HasSubstr("ASSERT failed <f3dB <= (fSample/2.0f)> "))
            << cCase.mf3dB << " of " << cCase.mfSample;
        EXPECT_THAT(text, HasSubstr("filterdesigners.cpp::L"));
    }
}

TEST(Butterworth, whatIsNoFilterAtAllChangesNothing) {
    for (const auto& [f3dB, fSample] : {std::pair{0.0f, 1000.0f},
                                        {-1.0f, 1000.0f},
                                        {0.0f, 0.0f},
                                        {1.0f, kInfinity},
                                        {kInfinity, kInfinity},
                                        {1e38f, 3e38f}})
        for (uint32_t uOrder : {0u, 2u, 3u, 4u}) {
            const auto cDesign = designDigitalButterworth(f3dB, fSample, uOrder);
            const auto cFilter = coefficientsOf(*cDesign);
            for (double fValue : cFilter.mlA)
                EXPECT_TRUE(std::isfinite(fValue)) << f3dB << " of " << fSample;
            EXPECT_NEAR(responseAt(cFilter, 0.0), 1.0, 1e-9) << f3dB << " of " << fSample;
        }
}

TEST(PoleZeroMap, zerosOfTheMapAreTakenAlongAndTheOthersLieAtMinusOne) {
    PoleZeroMap cMap;
    cMap.mfSampleHz = 0.5;  // z = (1 + s) / (1 - s)
    cMap.mlPoles = {{0, {-0.5, 0.25}}, {1, {-0.5, -0.25}}, {2, {-1.0 / 3.0, 0.0}}};
    cMap.mlZeros = {{0, {-0.2, 0.0}}};
    const auto cFilter = coefficientsOf(*toDigital(cMap));
    const std::complex<double> cPole = std::complex(0.5, 0.25) / std::complex(1.5, -0.25);
    const std::vector<double> lPair{1.0, -2.0 * cPole.real(), std::norm(cPole)};
    // Behind it the real pole: (1 - 1/3) / (1 + 1/3) = 1/2; the zero: 0.8 / 1.2 = 2/3.
    const std::vector<double> lA{lPair[1] - 0.5, lPair[2] - 0.5 * lPair[1], -0.5 * lPair[2]};
    const std::vector<double> lB{1.0, 2.0 - 2.0 / 3.0, 1.0 - 4.0 / 3.0, -2.0 / 3.0};
    const double fGain = (1.0 + lA[0] + lA[1] + lA[2]) / (lB[0] + lB[1] + lB[2] + lB[3]);
    ASSERT_EQ(cFilter.mlA.size(), 3u);
    ASSERT_EQ(cFilter.mlB.size(), 4u);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_NEAR(cFilter.mlA[i], lA[i], 1e-14) << i;
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(cFilter.mlB[i], lB[i] * fGain, 1e-14) << i;
}

TEST(PoleZeroMap, conjugatesArePairedInAnyOrderAndAsOftenAsTheyStand) {
    PoleZeroMap cMap;
    cMap.mfSampleHz = 0.5;
    cMap.mlPoles = {{0, {-1, 2}}, {1, {-1, 2}}, {2, {-3, -1}}, {3, {-1, -2}}, {4, {-3, 1}}, {5, {-1, -2}}};
    const auto cFilter = coefficientsOf(*toDigital(cMap));
    ASSERT_EQ(cFilter.mlA.size(), 6u);
    for (const auto& cPole : cMap.mlPoles) {
        const std::complex<double> cZ = (1.0 + cPole.mcValue) / (1.0 - cPole.mcValue);
        std::complex<double> cValue = 1.0;  // the denominator there
        for (double fA : cFilter.mlA)
            cValue = cValue * cZ + fA;
        EXPECT_NEAR(std::abs(cValue), 0.0, 1e-12);
    }
}

TEST(PoleZeroMap, aLoneRootOffTheRealAxisFailsTheAssertion) {
    for (std::complex<double> cPole : {std::complex(-0.5, 0.1), {-0.5, -0.1}, {-3.0, 0.1}, {-3.0, -0.1}}) {
        PoleZeroMap cMap;
        cMap.mfSampleHz = 0.5;
        cMap.mlPoles = {{0, cPole}};
        const std::string text = assertionOf([&] { toDigital(cMap); });
        EXPECT_THAT(text, HasSubstr("ASSERT failed <_inBetween(fPhase, (-0.001f*kPi), (0.001f*kPi)) || "
                                    "_inBetween(fPhase, (0.999f*kPi), (1.001f*kPi))> "));
        EXPECT_THAT(text, HasSubstr("polezeromap.cpp::L"));
    }
}

TEST(PoleZeroMap, aLoneRootNearTheRealAxisOrNearZeroIsReal) {
    // Of the digital plane: beside 1/3 and -1/2 on both sides, and one too small for its phase to count (s
    // near -1).
    for (std::complex<double> cPole :
         {std::complex(-0.5, 1e-4), {-0.5, -1e-4}, {-3.0, 1e-4}, {-3.0, -1e-4}, {-1.0, 1e-4}, {-3.0, -0.0}}) {
        PoleZeroMap cMap;
        cMap.mfSampleHz = 0.5;
        cMap.mlPoles = {{0, cPole}};
        EXPECT_EQ(assertionOf([&] { EXPECT_EQ(toDigital(cMap)->getACoeffCount(), 1u); }), "none") << cPole;
    }
}

/// What designing says of a lone pole that comes to stand at this place of the digital plane.
std::string assertionOfLonePole(double fMagnitude, double fPhase) {
    const std::complex<double> cAt = std::polar(fMagnitude, fPhase);
    PoleZeroMap cMap;
    cMap.mfSampleHz = 0.5;  // z = (1 + s) / (1 - s)
    cMap.mlPoles = {{0, (cAt - 1.0) / (cAt + 1.0)}};
    return assertionOf([&] { toDigital(cMap); });
}

TEST(PoleZeroMap, aLoneRootMayHaveAnyPhaseBelowAMagnitudeOfATenThousandth) {
    for (double fPhase : {0.5 * kPi, -0.5 * kPi, 0.002 * kPi, -0.998 * kPi}) {
        EXPECT_EQ(assertionOfLonePole(0.00009999, fPhase), "none") << fPhase;
        EXPECT_THAT(assertionOfLonePole(0.00010001, fPhase), HasSubstr("ASSERT failed <_inBetween(fPhase"))
            << fPhase;
    }
}

TEST(PoleZeroMap, aLoneRootMayLieAThousandthOfPiOffTheRealAxis) {
    for (double fMagnitude : {0.00010001, 0.5, 2.0})
        for (double fAxis : {0.0, kPi, -kPi})
            for (double fSide : {1.0, -1.0}) {
                EXPECT_EQ(assertionOfLonePole(fMagnitude, fAxis + fSide * 0.0009999 * kPi), "none")
                    << fMagnitude << " " << fAxis << " " << fSide;
                EXPECT_THAT(assertionOfLonePole(fMagnitude, fAxis + fSide * 0.0010001 * kPi),
                            HasSubstr("ASSERT failed <_inBetween(fPhase"))
                    << fMagnitude << " " << fAxis << " " << fSide;
            }
}

TEST(PoleZeroMap, withoutRootsChangesNothing) {
    const auto cFilter = coefficientsOf(*toDigital(PoleZeroMap()));
    EXPECT_TRUE(cFilter.mlA.empty());
    EXPECT_EQ(cFilter.mlB, std::vector<double>{1.0});
}

TEST(FilterDesign, coefficientsAreDividedByTheLeadingOneOfTheDenominator) {
    const FilterDesign cDesign({2.0, 3.0, -5.0}, {8.0, 1.0});
    EXPECT_EQ(cDesign.getACoeffCount(), 2u);
    EXPECT_EQ(cDesign.getBCoeffCount(), 2u);
    const auto cFilter = coefficientsOf(cDesign);
    EXPECT_EQ(cFilter.mlA, (std::vector{1.5, -2.5}));
    EXPECT_EQ(cFilter.mlB, (std::vector{4.0, 0.5}));
}

TEST(FilterDesign, tooLittleRoomWritesNothingAndTellsTheCounts) {
    const FilterDesign cDesign({1.0, 2.0, 3.0}, {4.0, 5.0, 6.0});
    for (const auto& [uARoom, uBRoom] : {std::pair{1u, 3u}, {2u, 2u}, {0u, 0u}}) {
        double fA[2] = {-7.0, -7.0};
        double fB[3] = {-7.0, -7.0, -7.0};
        uint32_t uA = uARoom;
        uint32_t uB = uBRoom;
        EXPECT_FALSE(cDesign.getCoefficients(fA, uA, fB, uB));
        EXPECT_EQ(uA, 2u);
        EXPECT_EQ(uB, 3u);
        EXPECT_THAT(fA, testing::Each(-7.0));
        EXPECT_THAT(fB, testing::Each(-7.0));
    }
}

TEST(FilterDesign, moreRoomThanNeededIsNotTouched) {
    const FilterDesign cDesign({1.0, 2.0}, {3.0});
    double fA[3] = {-7.0, -7.0, -7.0};
    double fB[3] = {-7.0, -7.0, -7.0};
    uint32_t uA = 3;
    uint32_t uB = 3;
    EXPECT_TRUE(cDesign.getCoefficients(fA, uA, fB, uB));
    EXPECT_EQ(uA, 1u);
    EXPECT_EQ(uB, 1u);
    EXPECT_THAT(fA, testing::ElementsAre(2.0, -7.0, -7.0));
    EXPECT_THAT(fB, testing::ElementsAre(3.0, -7.0, -7.0));
}

TEST(FilterDesign, withoutPolynomialsHasNoCoefficients) {
    const FilterDesign cDesign({}, {});
    EXPECT_EQ(cDesign.getACoeffCount(), 0u);
    EXPECT_EQ(cDesign.getBCoeffCount(), 0u);
    uint32_t uA = 0;
    uint32_t uB = 0;
    EXPECT_TRUE(cDesign.getCoefficients(nullptr, uA, nullptr, uB));
}

}  // namespace
