#include "flows/framesink.h"
#include "flows/framesource.h"
#include "foundations/text.h"
#include "foundations/usererrors.h"

namespace {

constexpr float kBufferSecLimit = 1000.0f;
constexpr uint32_t kBufferFramesLimit = 100000;
constexpr int32_t kBadBufferSec = -50;
constexpr int32_t kBadBufferFrames = -51;
constexpr int32_t kBadDiscardProportion = -52;
constexpr int32_t kUnknownParameter = -33;

}  // namespace

struct FrameSink::BufferSettings {
    float mfSec;
    uint32_t muFrames;
    float mfDiscard;
    bool mbFlowControl;
};

utils::VariantRecord FrameSink::getParameterInfo() {
    utils::VariantRecord cSchema;
    cSchema.set("flowControl", "<If set true, limit capture rate to ensure minimal network buffering>");
    return cSchema;
}

utils::VariantRecord FrameSink::getParameters() {
    utils::ScopedLock cLock(mcBaseLock);
    utils::VariantRecord cRecord(mcBaseParameters);
    cLock.unlock();
    cRecord.set("bufferSec", mfBufferSec.load());
    cRecord.set("bufferFrames", muBufferFrames.load());
    cRecord.set("bufferDiscard", mfDiscardProportion.load());
    cRecord.set("flowControl", mbFlowControl.load());
    return cRecord;
}

// A refused value leaves its message and the old value; the message then stops the whole change.
FrameSink::BufferSettings FrameSink::takeBufferSettings(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    BufferSettings cSettings{mfBufferSec, muBufferFrames, mfDiscardProportion, mbFlowControl};
    if (const auto fSec = cRecord.takeNumber("bufferSec")) {
        if (*fSec >= 0.0f && *fSec <= kBufferSecLimit)
            cSettings.mfSec = *fSec;
        else
            addRefusal(
                lErrors, kBadBufferSec,
                utils::formatText("VNKBufferSec %.3f out-of-range. Valid range %.0f - %.0f seconds",
                                  static_cast<double>(*fSec), 0.0, static_cast<double>(kBufferSecLimit)));
    }
    if (const auto uFrames = takeCount(cRecord, "bufferFrames")) {
        if (*uFrames >= 1 && *uFrames <= kBufferFramesLimit)
            cSettings.muFrames = *uFrames;
        else
            addRefusal(lErrors, kBadBufferFrames,
                       utils::formatText("VNKBufferFrames %d out-of-range. Valid range 1 - %d",
                                         static_cast<int>(*uFrames), static_cast<int>(kBufferFramesLimit)));
    }
    if (const auto fDiscard = cRecord.takeNumber("bufferDiscard")) {
        if (*fDiscard >= 0.0f && *fDiscard <= 1.0f)
            cSettings.mfDiscard = *fDiscard;
        else
            addRefusal(lErrors, kBadDiscardProportion, "VNKDiscardProportion should be between 0.0 and 1.0");
    }
    if (const auto bFlowControl = cRecord.takeBool("flowControl"))
        cSettings.mbFlowControl = *bFlowControl;
    return cSettings;
}

bool FrameSink::setSinkParameters(utils::VariantRecord& cRecord, ErrorList& lErrors, bool bQuiet) {
    const BufferSettings cSettings = takeBufferSettings(cRecord, lErrors);
    if (!integrateParameters(cRecord, lErrors)) {
        utils::UserErrors::instance().setDetail(utils::join(lErrors, ", "));
        return false;
    }
    mfBufferSec = cSettings.mfSec;
    muBufferFrames = cSettings.muFrames;
    mfDiscardProportion = cSettings.mfDiscard;
    mbFlowControl = cSettings.mbFlowControl;
    if (!bQuiet) {
        const SourceHold cHold = holdListener();
        if (cHold.mpListener)
            cHold.mpListener->parametersChanged(ReferencePtr<FrameSink>(this));
    }
    return true;
}

bool FrameSink::integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    if (cRecord.empty())
        return lErrors.empty();
    for (const auto& [key, cValue] : cRecord.entries())
        addRefusal(lErrors, kUnknownParameter,
                   utils::formatText("Attempted to integrate unknown parameter '%s'", key.c_str()));
    return false;
}

bool FrameSink::negotiate(const utils::VariantRecord& cRecord, ErrorList& lErrors) {
    SourceHold cHold;  // outlives the lock
    utils::ScopedLock cLock(mcSourceLock);
    cHold = holdSource();
    if (!cHold.mpSource)
        return true;
    utils::VariantRecord cMerged = getParameters();
    cMerged.merge(cRecord);
    if (cHold.mpSource->canImplement(ReferencePtr<FrameSink>(this), cMerged, lErrors))
        return true;
    lErrors.push_back("Connected source cannot implement requested parameter change");
    return false;
}

void FrameSink::setBaseParameters(const utils::VariantRecord& cRecord) {
    utils::ScopedLock cLock(mcBaseLock);
    mcBaseParameters.merge(cRecord);
}

void FrameSink::eraseBaseParameter(const std::string& key) {
    utils::ScopedLock cLock(mcBaseLock);
    mcBaseParameters.erase(key);
}
