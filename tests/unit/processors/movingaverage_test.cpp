#include "processors/movingaverage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <random>
#include <vector>

namespace {

using Values = std::vector<float>;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

bool same(float fLeft, float fRight) {
    return fLeft == fRight || (std::isnan(fLeft) && std::isnan(fRight));
}

/// Sums everything anew.
struct Model {
    void take(const Values& lValues) {
        if (mbFull)
            mlEntries.pop_front();
        mlEntries.push_back(lValues);
        mbFull = mlEntries.size() % std::max<size_t>(muLength, 1) == 0;
    }
    void clear() {
        mlEntries.clear();
        mbFull = false;
    }
    float mean(size_t uPlace) const {
        double sum = 0;
        for (const Values& lEntry : mlEntries)
            sum += double{lEntry[uPlace]};
        return static_cast<float>(sum * (1.0 / static_cast<double>(mlEntries.size())));
    }
    std::deque<Values> mlEntries;
    size_t muLength = 1;
    bool mbFull = false;
};

class MovingAverageTest : public ::testing::Test {
 protected:
    Values take(const Values& lValues) {
        Values lMeans(lValues.size());
        mcAverage.take(lValues.data(), lValues.size(), lMeans.data());
        return lMeans;
    }
    float take(float fValue) { return take(Values{fValue})[0]; }
    /// Sixty-fourths, whose sums are exact in whatever order.
    float level() { return static_cast<float>(static_cast<int>(cRandom() % 12800) - 9600) / 64.0f; }
    Values levels(size_t uCount, size_t uOddOneIn) {
        Values lValues(uCount);
        for (float& fValue : lValues) {
            fValue = level();
            if (cRandom() % uOddOneIn == 0)
                fValue = cRandom() % 2 ? -kInfinity : cRandom() % 2 ? kInfinity : kNaN;
        }
        return lValues;
    }
    void setLength(size_t uLength) {
        mcAverage.setLength(uLength);
        mcModel.clear();
        mcModel.muLength = uLength;
    }
    void clear() {
        mcAverage.clear();
        mcModel.clear();
    }
    void takeAndCompare(const Values& lValues, bool bCompare = true) {
        const Values lMeans = take(lValues);
        mcModel.take(lValues);
        for (size_t i = 0; bCompare && i < lValues.size(); ++i)
            ASSERT_TRUE(same(lMeans[i], mcModel.mean(i))) << lMeans[i] << " for " << mcModel.mean(i);
    }

    std::mt19937 cRandom{20261122};
    MovingAverage mcAverage;
    Model mcModel;
};

}  // namespace

TEST_F(MovingAverageTest, GivesWhatALiteralModelGivesAtEachLength) {
    for (const size_t uLength : {1u, 2u, 3u, 10u, 15u, 16u, 17u, 31u, 32u, 33u, 100u, 257u, 1000u}) {
        setLength(uLength);
        for (size_t i = 0; i < 3 * uLength + 50; ++i) {
            SCOPED_TRACE(testing::Message() << "length " << uLength << " array " << i);
            ASSERT_NO_FATAL_FAILURE(takeAndCompare(levels(3, 2 * uLength + 2)));
        }
    }
}

TEST_F(MovingAverageTest, GivesWhatALiteralModelGivesAtTheLengthOf10000) {
    setLength(10000);
    for (size_t i = 0; i < 30500; ++i) {
        SCOPED_TRACE(i);
        const bool bAtTheBorder = i > 9890 && i < 10110;
        ASSERT_NO_FATAL_FAILURE(takeAndCompare(levels(2, 20000), i % 103 == 0 || bAtTheBorder));
    }
}

TEST_F(MovingAverageTest, ClearsAndNewLengthsAndWidthsAnywhereGiveWhatALiteralModelGives) {
    const size_t lLengths[] = {0, 1, 2, 3, 10, 40, 100, 400};
    size_t uWidth = 4;
    for (size_t i = 0; i < 20000; ++i) {
        SCOPED_TRACE(i);
        if (cRandom() % 300 == 0)
            setLength(lLengths[cRandom() % 8]);
        if (cRandom() % 300 == 0) {
            clear();
            uWidth = cRandom() % 8;
        }
        ASSERT_NO_FATAL_FAILURE(takeAndCompare(levels(uWidth, 150)));
    }
}

TEST_F(MovingAverageTest, WideArraysGiveWhatALiteralModelGivesAtEveryPlace) {
    setLength(20);
    for (const size_t uWidth : {1023u, 1024u, 1025u, 2500u}) {
        clear();
        for (size_t i = 0; i < 60; ++i) {
            SCOPED_TRACE(testing::Message() << "width " << uWidth << " array " << i);
            ASSERT_NO_FATAL_FAILURE(takeAndCompare(levels(uWidth, 100)));
        }
    }
}

TEST_F(MovingAverageTest, FewArraysHaveTheirPlainSumTimesAFraction) {
    std::uniform_real_distribution<float> cLevel(-150.0f, -20.0f);
    mcAverage.setLength(10);
    float fSum = 0.0f;
    for (int i = 1; i <= 10; ++i) {
        const float fLevel = cLevel(cRandom);
        fSum += fLevel;
        EXPECT_FLOAT_EQ(take(fLevel), fSum * (1.0f / static_cast<float>(i)));
    }
}

TEST_F(MovingAverageTest, LengthOfOneGivesEachValueAsItIs) {
    for (const size_t uLength : {1u, 0u}) {
        mcAverage.setLength(uLength);
        for (const float fValue : {-100.03f, 3e38f, 1e-45f, -0.0f, 0.0f, kInfinity, -kInfinity, 5.0f}) {
            EXPECT_EQ(take(fValue), fValue);
            EXPECT_EQ(std::signbit(take(fValue)), std::signbit(fValue));
        }
        EXPECT_TRUE(std::isnan(take(kNaN)));
        EXPECT_EQ(take(1.0f), 1.0f);
    }
}

TEST_F(MovingAverageTest, ConstantComesBackAsItIsHoweverLongTheWindow) {
    mcAverage.setLength(10000);
    for (int i = 0; i < 10300; ++i)
        ASSERT_EQ(take(-100.03f), -100.03f) << i;
}

TEST_F(MovingAverageTest, WhatIsNoFiniteNumberLeavesWithItsArray) {
    for (const float fOdd : {-kInfinity, kInfinity, kNaN}) {
        mcAverage.setLength(1000);
        for (int i = 0; i < 500; ++i)
            EXPECT_EQ(take(2.0f), 2.0f);
        for (int i = 0; i < 1000; ++i)
            EXPECT_TRUE(same(take(i == 0 ? fOdd : 2.0f), fOdd)) << i;
        EXPECT_EQ(take(2.0f), 2.0f);
    }
}

TEST_F(MovingAverageTest, HoldsOneLessThanItsLengthWhenItWaits) {
    mcAverage.setLength(50);
    for (size_t i = 1; i < 200; ++i) {
        take(1.0f);
        ASSERT_EQ(mcAverage.size(), std::min<size_t>(i, 49));
    }
    mcAverage.clear();
    EXPECT_EQ(mcAverage.size(), 0u);
}
