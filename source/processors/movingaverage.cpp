#include "processors/movingaverage.h"

#include <algorithm>
#include <cmath>

#include "dsp/clones.h"

namespace {

constexpr double kLeastStretch = 16.0;

VNK_CLONES static void addValues(double* __restrict pSums, const float* __restrict pValues, size_t uCount) {
    for (size_t i = 0; i < uCount; ++i)
        pSums[i] += static_cast<double>(pValues[i]);
}

VNK_CLONES static void addSums(double* __restrict pSums, const double* __restrict pValues, size_t uCount) {
    for (size_t i = 0; i < uCount; ++i)
        pSums[i] += pValues[i];
}

VNK_CLONES static void multiply(float* __restrict pMeans, const double* __restrict pSums, size_t uCount,
                                double factor) {
    for (size_t i = 0; i < uCount; ++i)
        pMeans[i] = static_cast<float>(pSums[i] * factor);
}

}  // namespace

void MovingAverage::setLength(size_t uLength) {
    clear();
    muLength = std::max<size_t>(uLength, 1);
    muStretch =
        static_cast<size_t>(std::max(kLeastStretch, std::ceil(std::sqrt(static_cast<double>(muLength)))));
}

void MovingAverage::clear() {
    mlEntries.clear();
    mlStretches.clear();
    muLoose = 0;
}

void MovingAverage::take(const float* pValues, size_t uCount, float* pMeans) {
    if (muLength == 1) {
        std::copy_n(pValues, uCount, pMeans);
        return;
    }
    mlSpare.assign(pValues, pValues + uCount);
    mlEntries.push_back(std::move(mlSpare));
    size_t uSummed = muLoose + mlStretches.size() * muStretch;
    if (mlEntries.size() - uSummed >= muStretch) {
        sumStretch(uSummed, uCount);
        uSummed += muStretch;
    }
    mlTotal.assign(uCount, 0.0);
    addEntries(mlTotal, 0, muLoose);
    for (const Sums& lStretch : mlStretches)
        addSums(mlTotal.data(), lStretch.data(), uCount);
    addEntries(mlTotal, uSummed, mlEntries.size());
    multiply(pMeans, mlTotal.data(), uCount, 1.0 / static_cast<double>(mlEntries.size()));
    while (mlEntries.size() >= muLength)
        dropOldest();
}

void MovingAverage::sumStretch(size_t uFirst, size_t uCount) {
    Sums lSums(uCount);
    addEntries(lSums, uFirst, uFirst + muStretch);
    mlStretches.push_back(std::move(lSums));
}

void MovingAverage::addEntries(Sums& lSums, size_t uFirst, size_t uLast) const {
    for (size_t i = uFirst; i < uLast; ++i)
        addValues(lSums.data(), mlEntries[i].data(), lSums.size());
}

void MovingAverage::dropOldest() {
    if (muLoose == 0 && !mlStretches.empty()) {
        mlStretches.pop_front();
        muLoose = muStretch;
    }
    mlSpare = std::move(mlEntries.front());
    mlEntries.pop_front();
    if (muLoose > 0)
        --muLoose;
}
