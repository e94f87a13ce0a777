#include "dsp/iirfilter.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

#include "dsp/filterdesigners.h"
#include "filterdata.h"

namespace {

ReferencePtr<FilterDesign> lowPass(uint32_t uOrder, float f3dB = 0.1f) {
    return designDigitalButterworth(f3dB, 1.0f, uOrder);
}

std::vector<double> responseOf(IIR& cFilter, size_t uCount) {
    std::vector<double> lResponse;
    for (size_t i = 0; i < uCount; ++i)
        lResponse.push_back(cFilter.run(i == 0 ? 1.0 : 0.0));
    return lResponse;
}

TEST(IIR, impulseResponseIsThatOfAnIndependentComputation) {
    for (const auto& cExpected : filterdata::butterworths()) {
        IIR cFilter;
        cFilter.setDesign(designDigitalButterworth(cExpected.mf3dB, cExpected.mfSample, cExpected.muOrder));
        double fPeak = 0.0;
        for (double fValue : cExpected.mlImpulseResponse)
            fPeak = std::max(fPeak, std::abs(fValue));
        const auto lResponse = responseOf(cFilter, cExpected.mlImpulseResponse.size());
        for (size_t i = 0; i < lResponse.size(); ++i)
            ASSERT_NEAR(lResponse[i], cExpected.mlImpulseResponse[i], 1e-6 * fPeak)
                << cExpected.mf3dB << " of " << cExpected.mfSample << ", order " << cExpected.muOrder
                << " at " << i;
    }
}

TEST(IIR, samplesPassUnchangedWithoutADesign) {
    IIR cFilter;
    EXPECT_EQ(cFilter.run(0.3), 0.3);
    cFilter.setDesign(lowPass(4));
    EXPECT_NE(cFilter.run(0.3), 0.3);
    cFilter.setDesign(nullptr);
    EXPECT_EQ(cFilter.run(0.3), 0.3);
    cFilter.setDesign(nullptr);
    cFilter.resetState();
    EXPECT_EQ(cFilter.run(-0.7), -0.7);
}

TEST(IIR, aDesignAfterNoneBeginsFromRest) {
    IIR cFilter;
    cFilter.setDesign(lowPass(4));
    const auto lFirst = responseOf(cFilter, 10);
    cFilter.setDesign(nullptr);
    cFilter.setDesign(lowPass(4));
    EXPECT_EQ(responseOf(cFilter, 10), lFirst);
}

TEST(IIR, aDesignOfTheSameOrderKeepsTheState) {
    IIR cKept;
    IIR cExpected;
    for (IIR* pFilter : {&cKept, &cExpected}) {
        pFilter->setDesign(lowPass(4));
        responseOf(*pFilter, 10);
    }
    cKept.setDesign(lowPass(4));
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(cKept.run(0.0), cExpected.run(0.0));
}

TEST(IIR, aDesignOfTheSameOrderReplacesTheCoefficients) {
    IIR cFilter;
    IIR cExpected;
    cFilter.setDesign(lowPass(3, 0.2f));
    cFilter.setDesign(lowPass(3, 0.1f));
    cExpected.setDesign(lowPass(3, 0.1f));
    EXPECT_EQ(responseOf(cFilter, 30), responseOf(cExpected, 30));
}

TEST(IIR, aDesignOfAnotherOrderBeginsFromRest) {
    IIR cFilter;
    IIR cExpected;
    cFilter.setDesign(lowPass(4));
    responseOf(cFilter, 10);
    cFilter.setDesign(lowPass(2));
    cExpected.setDesign(lowPass(2));
    EXPECT_EQ(responseOf(cFilter, 30), responseOf(cExpected, 30));
}

TEST(IIR, resetBeginsFromRest) {
    IIR cFilter;
    cFilter.setDesign(lowPass(4));
    const auto lFirst = responseOf(cFilter, 10);
    cFilter.resetState();
    EXPECT_EQ(responseOf(cFilter, 10), lFirst);
}

TEST(IIR, anEmptyNumeratorIsOne) {
    IIR cFilter;
    cFilter.setDesign(makeReference<FilterDesign>(std::vector{1.0, -0.5}, std::vector<double>{}));
    EXPECT_EQ(responseOf(cFilter, 4), (std::vector{1.0, 0.5, 0.25, 0.125}));
    cFilter.setDesign(makeReference<FilterDesign>(std::vector<double>{}, std::vector<double>{}));
    EXPECT_EQ(responseOf(cFilter, 3), (std::vector{1.0, 0.0, 0.0}));
}

TEST(IIR, polynomialsMayDifferInLength) {
    IIR cFilter;
    cFilter.setDesign(makeReference<FilterDesign>(std::vector{2.0}, std::vector{2.0, 4.0, 6.0}));
    EXPECT_EQ(responseOf(cFilter, 5), (std::vector{1.0, 2.0, 3.0, 0.0, 0.0}));
    cFilter.setDesign(makeReference<FilterDesign>(std::vector{1.0, 0.0, 0.0, -1.0}, std::vector{1.0, 5.0}));
    EXPECT_EQ(responseOf(cFilter, 8), (std::vector{1.0, 5.0, 0.0, 1.0, 5.0, 0.0, 1.0, 5.0}));
}

TEST(IIR, aLoopGivesWhatSingleSamplesGive) {
    IIR cLooped;
    IIR cSingle;
    cLooped.setDesign(lowPass(4));
    cSingle.setDesign(lowPass(4));
    IIR::Loop cLoop(cLooped);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(cLoop.run(i % 7 - 3.0), cSingle.run(i % 7 - 3.0));
}

TEST(IIR, aChangeWaitsForTheEndOfALoop) {
    IIR cFilter;
    cFilter.setDesign(lowPass(4));
    std::atomic<bool> bChanged{false};
    std::thread cChanger;
    {
        IIR::Loop cLoop(cFilter);
        cChanger = std::thread([&] {
            cFilter.setDesign(nullptr);
            bChanged = true;
        });
        // However long it takes the other thread to begin: it cannot have ended.
        bool bEarly = false;
        for (int i = 0; i < 200000; ++i) {
            cLoop.run(1.0);
            bEarly = bEarly || bChanged;
        }
        EXPECT_FALSE(bEarly);
        EXPECT_NE(cLoop.run(0.0), 0.0);
    }
    cChanger.join();
    EXPECT_EQ(cFilter.run(0.25), 0.25);
}

TEST(IIR, designsAreReplacedWhileAnotherThreadFilters) {
    constexpr int kChanges = 300;
    constexpr int kRounds = 100;
    IIR cFilter;
    std::atomic<int> iRounds{0};
    std::atomic<bool> bDone{false};
    std::thread cChanger([&] {
        const ReferencePtr<FilterDesign> lDesigns[] = {lowPass(4), lowPass(2), nullptr, lowPass(3),
                                                       lowPass(4, 0.2f)};
        for (int i = 0; i < kChanges || iRounds < kRounds; ++i) {
            cFilter.setDesign(lDesigns[i % 5]);
            if (i % 64 == 0)
                cFilter.resetState();
            std::this_thread::yield();
        }
        bDone = true;
    });
    double fLargest = 0.0;
    for (; !bDone; ++iRounds) {
        if (iRounds % 2 == 0) {
            IIR::Loop cLoop(cFilter);
            for (int i = 0; i < 20; ++i)
                fLargest = std::max(fLargest, std::abs(cLoop.run(1.0)));
        } else {
            fLargest = std::max(fLargest, std::abs(cFilter.run(1.0)));
        }
    }
    cChanger.join();
    // Steps of 1 through low-passes, whatever state one leaves to the next of its order.
    EXPECT_GT(fLargest, 0.0);
    EXPECT_LT(fLargest, 10.0);
    IIR cFresh;
    for (IIR* pFilter : {&cFilter, &cFresh}) {
        pFilter->setDesign(lowPass(4));
        pFilter->resetState();
    }
    EXPECT_EQ(responseOf(cFilter, 30), responseOf(cFresh, 30));
}

}  // namespace
