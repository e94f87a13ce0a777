#include "flows/iqframesink.h"

#include <array>
#include <cmath>

#include "foundations/text.h"

// Lets the compiler take a square root inline, without a look at errno; the result is the same.
#if defined(__GNUC__) && !defined(__clang__)
#define VNK_NO_MATH_ERRNO __attribute__((optimize("no-math-errno")))
#else
#define VNK_NO_MATH_ERRNO
#endif

namespace {

constexpr int32_t kBadCentre = -57;
constexpr int32_t kBadBandwidth = -58;

// The sum of the magnitudes of one frame, in single precision. Sixteen partial sums, each over every
// sixteenth sample, are added at the end in order: one running sum over 65504 samples would wait for each
// addition and lose digits.
VNK_NO_MATH_ERRNO float magnitudeSum(const Complex<float>* pSamples, uint32_t uCount) {
    constexpr uint32_t kLanes = 16;
    std::array<float, kLanes> fLanes{};
    uint32_t i = 0;
    for (; uCount - i >= kLanes; i += kLanes)
        for (uint32_t j = 0; j < kLanes; ++j) {
            const Complex<float> cSample = pSamples[i + j];
            fLanes[j] += __builtin_sqrtf(cSample.re * cSample.re + cSample.im * cSample.im);
        }
    for (uint32_t j = 0; i < uCount; ++i, ++j)
        fLanes[j] += __builtin_sqrtf(pSamples[i].re * pSamples[i].re + pSamples[i].im * pSamples[i].im);
    float fSum = 0.0f;
    for (const float fLane : fLanes)
        fSum += fLane;
    return fSum;
}

uint32_t frameCount(float fFrames) {
    const float fWhole = std::ceil(fFrames);
    if (!(fWhole > 0.0f))
        return 0;
    return fWhole < 4294967296.0f ? static_cast<uint32_t>(fWhole) : UINT32_MAX;
}

void refuseFrequency(ErrorList& lErrors, int32_t iStatus, const char* pKey, float fValue) {
    addRefusal(lErrors, iStatus,
               utils::formatText("%s of %.4e is invalid", pKey, static_cast<double>(fValue)));
}

float takeFrequency(utils::VariantRecord& cRecord, const char* pKey, float fPresent, int32_t iStatus,
                    ErrorList& lErrors) {
    const float fValue = cRecord.takeNumber(pKey).value_or(fPresent);
    if (!(fValue >= 0.0f))
        refuseFrequency(lErrors, iStatus, pKey, fValue);
    return fValue;
}

}  // namespace

utils::VariantRecord IQFrameSink::getParameterInfo() {
    utils::VariantRecord cSchema;
    cSchema.set("FCentreHz", "<IQ centre frequency requested Hz>");
    cSchema.set("IFBWHz", "<IF Bandwidth requested Hz>");
    cSchema.set("RefdBm", "<Expected maximum power in dBm>");
    cSchema.set("UserCaldB", "<Offset to apply to calibrated data in dB>");
    cSchema.set("captureSec", "<Optional capture duration in seconds>");
    cSchema.set("maxContiguousSec",
                "<READ-ONLY maximum achievable contiguous capture in seconds from this device>");
    cSchema.set("contiguous", "<READ-ONLY this stream data is guaranteed contiguous>");
    cSchema.set("framesExpected", "<READ-ONLY number of frames expected (finite) or zero (continuous)>");
    cSchema.set("avgdBm", "<READ-ONLY measured dBm average of most recent stream capture>");
    cSchema.set("SubOptimalDR", "<READ-ONLY 'true' if captured stream data has sub-optimal dynamic range>");
    cSchema.set("adaptFull", "<READ-WRITE Each capture to be preceded by dynamic range optimization>");
    cSchema.set("adaptStep", "<READ-WRITE After each capture, dynamic range is step-optimized as required>");
    return cSchema;
}

utils::VariantRecord IQFrameSink::getParameters() {
    utils::VariantRecord cRecord = FrameSink::getParameters();
    cRecord.set("FCentreHz", mfCentreHz.load());
    cRecord.set("IFBWHz", mfIFBWHz.load());
    cRecord.set("RefdBm", mfRefdBm.load());
    cRecord.set("UserCaldB", mfUserCaldB.load());
    cRecord.set("captureSec", mfCaptureSec.load());
    cRecord.set("adaptFull", mbAdaptFull.load());
    cRecord.set("adaptStep", mbAdaptStep.load());
    cRecord.set("avgdBm", mfAverageDBm.load());
    if (const uint32_t uExpected = muFramesExpected)
        cRecord.set("framesExpected", uExpected);
    if (mbSubOptimal.exchange(false))
        cRecord.set("SubOptimalDR", true);
    if (const float fPeak = mfPeakLevel; fPeak != kLevelNotMeasured)
        cRecord.set("dBFSD", fPeak);
    return cRecord;
}

bool IQFrameSink::integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    if (!negotiate(cRecord, lErrors))
        return false;
    // A value that is out of range goes on to the test of the lower edge; its message stops the change.
    const float fCentre = takeFrequency(cRecord, "FCentreHz", mfCentreHz, kBadCentre, lErrors);
    float fIFBW = takeFrequency(cRecord, "IFBWHz", mfIFBWHz, kBadBandwidth, lErrors);
    if (!(fCentre - fIFBW * 0.5f >= 0.0f)) {
        const float fTruncated = 2.0f * fCentre;
        addRefusal(
            lErrors, kBadBandwidth,
            utils::formatText("FCentre:%.4e, IFBW:%.4e implies lower edge below 0Hz. Truncated to IFBW:%.4e",
                              static_cast<double>(fCentre), static_cast<double>(fIFBW),
                              static_cast<double>(fTruncated)));
        fIFBW = fTruncated;
    }
    const float fRef = cRecord.takeNumber("RefdBm").value_or(mfRefdBm);
    const float fUserCal = cRecord.takeNumber("UserCaldB").value_or(mfUserCaldB);
    const float fCapture = cRecord.takeNumber("captureSec").value_or(mfCaptureSec);
    const bool bAdaptStep = cRecord.takeBool("adaptStep").value_or(mbAdaptStep);
    const bool bAdaptFull = cRecord.takeBool("adaptFull").value_or(mbAdaptFull);
    if (!FrameSink::integrateParameters(cRecord, lErrors))
        return false;
    mfCentreHz = fCentre;
    mfIFBWHz = fIFBW;
    mfRefdBm = fRef;
    mfUserCaldB = fUserCal;
    mfCaptureSec = fCapture;
    mbAdaptStep = bAdaptStep;
    mbAdaptFull = bAdaptFull;
    return true;
}

void IQFrameSink::setSource(FrameSource* pSource) {
    utils::ScopedLock cLock(mcSourceLock);
    if (sourcePointer() == pSource)
        return;
    if (pSource)
        resetMeasurements();
    FrameSink::setSource(pSource);
    cLock.unlock();
    // Reading the parameters clears a sub-optimal flag that nobody has read: it belongs to the capture
    // that has ended.
    if (!pSource)
        getParameters();
}

bool IQFrameSink::acceptsFrame(ReferencePtr<Frame> cFrame) {
    return cFrame == nullptr || dynamic_cast<IQFrame*>(cFrame.get()) != nullptr;
}

void IQFrameSink::receiveMeasured(ReferencePtr<Frame> cFrame) {
    FrameSink::receiveFrame(cFrame, false);
    if (const IQFrame* pFrame = dynamic_cast<const IQFrame*>(cFrame.get()))
        measure(*pFrame);
}

void IQFrameSink::resetMeasurements() {
    muSamples = 0;
    mfSeconds = 0.0f;
    muFramesExpected = 0;
    mfMagnitudeSum = 0.0f;
    mbSubOptimal = false;
    mfPeakLevel = kLevelNotMeasured;
    mfAverageDBm = -1000.0f;
}

// One producer at a time writes these, so that plain loads and stores do.
void IQFrameSink::measure(const IQFrame& cFrame) {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    uint32_t uCount = 0;
    const Complex<float>* pSamples = cFrame.getSamples(uCount);
    const float fRate = cFrame.sampleRate();
    mfSampleRateHz.store(fRate, kRelaxed);
    const uint64_t uSamples = muSamples.load(kRelaxed) + uCount;
    muSamples.store(uSamples, kRelaxed);
    const float fFrameDurationSec = cFrame.getDurationSec();
    VNK_ASSERT(fFrameDurationSec != 0.0f);
    mfSeconds.store(mfSeconds.load(kRelaxed) + fFrameDurationSec, kRelaxed);
    const float fCapture = mfCaptureSec.load(kRelaxed);
    muFramesExpected.store(fCapture > 0.0f ? frameCount(fCapture / (static_cast<float>(uCount) / fRate)) : 0,
                           kRelaxed);
    const float fSum = mfMagnitudeSum.load(kRelaxed) + magnitudeSum(pSamples, uCount);
    mfMagnitudeSum.store(fSum, kRelaxed);
    mfAverageDBm.store(20.0f * std::log10(fSum / static_cast<float>(uSamples)), kRelaxed);
    if (cFrame.isSubOptimal())
        mbSubOptimal.store(true, kRelaxed);
    if (cFrame.level() > mfPeakLevel.load(kRelaxed))
        mfPeakLevel.store(cFrame.level(), kRelaxed);
}
