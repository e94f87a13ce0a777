#include "dsp/windowfunctions.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace {

constexpr int32_t kNoiseBandwidthPoints = 16385;

bool outside(int32_t iIndex, int32_t iLength) {
    return iIndex < 0 || iIndex >= iLength;
}

double phase(int32_t iIndex, int32_t iLength) {
    return 2.0 * std::numbers::pi * iIndex / (static_cast<double>(iLength) - 1.0);
}

double fraction(int32_t iIndex, int32_t iLength) {
    return iIndex / (static_cast<double>(iLength) - 1.0);
}

float rectangular(int32_t iIndex, int32_t iLength) {
    return outside(iIndex, iLength) ? 0.0f : 1.0f;
}

/// A normal density of variance 0.1 over -1 to 1. Centred on N/2, not (N-1)/2: it is not symmetric about
/// the middle sample, and stays so.
float gaussian(int32_t iIndex, int32_t iLength) {
    if (outside(iIndex, iLength))
        return 0.0f;
    const float fHalf = static_cast<float>(iLength) * 0.5f;
    const float fPosition = (static_cast<float>(iIndex) - fHalf) / fHalf;
    return std::exp(fPosition * fPosition / -0.2f) /
           (std::sqrt(0.1f) * std::sqrt(2.0f * std::numbers::pi_v<float>));
}

float hann(int32_t iIndex, int32_t iLength) {
    if (outside(iIndex, iLength))
        return 0.0f;
    return static_cast<float>(0.5 * (1.0 - std::cos(phase(iIndex, iLength))));
}

float hamming(int32_t iIndex, int32_t iLength) {
    if (outside(iIndex, iLength))
        return 0.0f;
    return static_cast<float>(0.54 - 0.46 * std::cos(phase(iIndex, iLength)));
}

float cosine(int32_t iIndex, int32_t iLength) {
    if (outside(iIndex, iLength))
        return 0.0f;
    return static_cast<float>(std::sin(std::numbers::pi * iIndex / (static_cast<double>(iLength) - 1.0)));
}

/// Without the factor pi of the textbook form: it falls only to about 0.84.
float lanczos(int32_t iIndex, int32_t iLength) {
    if (outside(iIndex, iLength))
        return 0.0f;
    const double u = 2.0 * iIndex / (static_cast<double>(iLength) - 1.0) - 1.0;
    return u == 0.0 ? 1.0f : static_cast<float>(std::sin(u) / u);
}

float bartlett(int32_t iIndex, int32_t iLength) {
    if (outside(iIndex, iLength))
        return 0.0f;
    const double fHalf = (static_cast<double>(iLength) - 1.0) / 2.0;
    return static_cast<float>((fHalf - std::abs(iIndex - fHalf)) / fHalf);
}

float bartlettHann(int32_t iIndex, int32_t iLength) {
    if (outside(iIndex, iLength))
        return 0.0f;
    return static_cast<float>(0.62 - 0.48 * std::abs(fraction(iIndex, iLength) - 0.5) -
                              0.38 * std::cos(phase(iIndex, iLength)));
}

float cosineSum(int32_t iIndex, int32_t iLength, const std::array<double, 5>& fTerms) {
    if (outside(iIndex, iLength))
        return 0.0f;
    const double x = phase(iIndex, iLength);
    return static_cast<float>(fTerms[0] + fTerms[1] * std::cos(x) + fTerms[2] * std::cos(2.0 * x) +
                              fTerms[3] * std::cos(3.0 * x) + fTerms[4] * std::cos(4.0 * x));
}

float nuttall(int32_t iIndex, int32_t iLength) {
    return cosineSum(iIndex, iLength, {0.355768, -0.487396, 0.144232, -0.012604, 0.0});
}

float blackmanHarris(int32_t iIndex, int32_t iLength) {
    return cosineSum(iIndex, iLength, {0.35875, -0.48829, 0.14128, -0.01168, 0.0});
}

float blackmanNuttall(int32_t iIndex, int32_t iLength) {
    return cosineSum(iIndex, iLength, {0.3635819, -0.4891775, 0.1365995, -0.0106411, 0.0});
}

float flatTop(int32_t iIndex, int32_t iLength) {
    return cosineSum(iIndex, iLength, {1.0, -1.93, 1.29, -0.388, 0.032});
}

constinit const WindowType kTable[] = {
    {"rectangular", rectangular, {0.0f}},
    {"gaussian", gaussian, {0.0f}},
    {"hann", hann, {0.0f}},
    {"hamming", hamming, {0.0f}},
    {"cosine", cosine, {0.0f}},
    {"lanczos", lanczos, {0.0f}},
    {"bartlett", bartlett, {0.0f}},
    {"bartletthann", bartlettHann, {0.0f}},
    {"nuttall", nuttall, {0.0f}},
    {"blackmanharris", blackmanHarris, {0.0f}},
    {"blackmannuttall", blackmanNuttall, {0.0f}},
    {"flattop", flatTop, {0.0f}},
};

}  // namespace

namespace WindowFunctions {

const char* defaultWindowName() {
    return "nuttall";
}

std::list<std::string> listWindowNames() {
    std::list<std::string> lNames;
    for (const WindowType& cType : kTable)
        lNames.emplace_back(cType.mpName);
    return lNames;
}

const WindowType* findWindow(std::string_view name) {
    const auto* pRow =
        std::ranges::find_if(kTable, [name](const WindowType& cType) { return name == cType.mpName; });
    return pRow == std::end(kTable) ? nullptr : pRow;
}

float windowNoiseBandwidth(std::string_view name) {
    const WindowType* pType = findWindow(name);
    if (pType == nullptr)
        return 1.0f;
    // Two threads that meet here store the same value.
    const float fKnown = pType->mfNoiseBandwidth.load(std::memory_order_relaxed);
    if (fKnown != 0.0f)
        return fKnown;
    float fSum = 0.0f;
    float fSquares = 0.0f;
    for (int32_t i = 0; i < kNoiseBandwidthPoints; ++i) {
        const float fValue = pType->mpFunction(i, kNoiseBandwidthPoints);
        fSum += fValue;
        fSquares += fValue * fValue;
    }
    const float fBandwidth = fSquares / (fSum * fSum) * static_cast<float>(kNoiseBandwidthPoints);
    pType->mfNoiseBandwidth.store(fBandwidth, std::memory_order_relaxed);
    return fBandwidth;
}

ReferencePtr<FloatArray> sampleWindow(std::string_view name, uint32_t uLength, float* pMean,
                                      float* pDestination) {
    const WindowType* pType = findWindow(name.empty() ? defaultWindowName() : name);
    VNK_ASSERT(pType != nullptr);
    ReferencePtr<FloatArray> cResult;
    if (pDestination == nullptr) {
        cResult = ReferencePtr<FloatArray>(new FloatArray(uLength));
        pDestination = cResult->getData();
    }
    const auto iLength = static_cast<int32_t>(uLength);
    float fSum = 0.0f;
    for (uint32_t i = 0; i < uLength; ++i) {
        pDestination[i] = pType->mpFunction(static_cast<int32_t>(i), iLength);
        fSum += pDestination[i];
    }
    if (pMean != nullptr)
        *pMean = fSum / static_cast<float>(uLength);
    return cResult;
}

ReferencePtr<ComplexArray> complexWindow(std::string_view name, uint32_t uLength,
                                         Complex<float>* pDestination) {
    float fMean = 1.0f;
    const ReferencePtr<FloatArray> cSamples = sampleWindow(name, uLength, &fMean);
    ReferencePtr<ComplexArray> cResult;
    if (pDestination == nullptr) {
        cResult = ReferencePtr<ComplexArray>(new ComplexArray(uLength));
        pDestination = cResult->getData();
    }
    const float* pSamples = cSamples->getData();
    const float fFactor = 1.0f / fMean;
    for (uint32_t i = 0; i < uLength; ++i)
        pDestination[i] = {pSamples[i] * fFactor, 0.0f};
    return cResult;
}

}  // namespace WindowFunctions
