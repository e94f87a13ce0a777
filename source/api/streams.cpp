// Streams: making and attaching.
#include "api/exports.h"
#include "foundations/runtimeerrors.h"
#include "foundations/text.h"
#include "libvnk.h"
#include "streams/iqstreamhandler.h"
#include "streams/spectrumstreamhandler.h"

namespace {

constexpr int32_t kInvalidStreamHandle = -17;
constexpr int32_t kBadStreamHandle = -38;

int32_t attach(APIState& cState, uint32_t uStream, uint32_t uDevice) {
    const ReferencePtr<Device> cDevice = cState.findDevice(uDevice);
    if (!cDevice)
        return -8;
    const ReferencePtr<FrameSink> cStream = cState.findStream(uStream);
    if (!cStream)
        return kBadStreamHandle;
    auto* pHandler = dynamic_cast<StreamHandler*>(cStream.get());
    if (!pHandler) {
        utils::reportError(-6027, "Attempted to attach invalid stream to device");
        return kInvalidStreamHandle;
    }
    ErrorList lErrors;   // dropped: the statuses and the detail of the thread tell why
    if (pHandler->attachToSource(cDevice, lErrors))
        return 0;
    utils::reportError(-6027, "Stream connection to device failed");
    return -41;
}

int32_t checkSpectrum(const uint32_t* pHandle, float fMinHz, float fMaxHz, float fRBWHz, float fRefdBm) {
    if (!pHandle)
        return kUnallocatedUserData;
    if (fMinHz > fMaxHz)
        return -46;
    if (fRBWHz < 0.0f)
        return -47;
    return fRefdBm < -100.0f || fRefdBm > 20.0f ? -48 : 0;
}

}  // namespace

extern "C" {

int32_t vnkCreateIQStream(uint32_t* handle, float centreHz, float bandwidthHz, float referenceLeveldBm) {
    VNK_STATE_OR_RETURN(pState);
    if (!handle)
        return kUnallocatedUserData;
    utils::VariantRecord cRecord;
    cRecord.set("FCentreHz", centreHz);
    cRecord.set("IFBWHz", bandwidthHz);
    cRecord.set("RefdBm", referenceLeveldBm);
    *handle = pState->addStream(makeReference<IQStreamHandler>(cRecord));
    return 0;
}

int32_t vnkCreateSpectrumStream(uint32_t* handle, float minimumHz, float maximumHz, float rbwHz,
                                const char* windowName, float referenceLeveldBm) {
    VNK_STATE_OR_RETURN(pState);
    if (const int32_t iRefusal = checkSpectrum(handle, minimumHz, maximumHz, rbwHz, referenceLeveldBm))
        return iRefusal;
    utils::VariantRecord cRecord;
    cRecord.set("FMinHz", minimumHz);
    cRecord.set("FMaxHz", maximumHz);
    cRecord.set("RBWHz", rbwHz);
    if (windowName)
        cRecord.set("WindowFn", windowName);
    cRecord.set("RefdBm", referenceLeveldBm);
    const auto cHandler = makeReference<SpectrumStreamHandler>(cRecord);
    if (!cHandler->errors().empty()) {
        utils::reportError(-7000, utils::join(cHandler->errors(), ", "));
        return -49;
    }
    *handle = pState->addStream(cHandler);
    return 0;
}

int32_t vnkAttachStreamToDevice(uint32_t stream, uint32_t device) {
    VNK_STATE_OR_RETURN(pState);
    utils::reportTrace("attachStreamToDevice top level");
    return attach(*pState, stream, device);
}

int32_t vnkDetachStream(uint32_t stream) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<FrameSink> cStream = pState->findStream(stream);
    if (!cStream)
        return kBadStreamHandle;
    return cStream->detachFromSource() ? 0 : -44;
}

int32_t vnkFlushStream(uint32_t stream) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<FrameSink> cStream = pState->findStream(stream);
    if (!cStream)
        return kBadStreamHandle;
    cStream->flush();
    return 0;
}

int32_t vnkIsAttached(uint32_t stream) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<FrameSink> cStream = pState->findStream(stream);
    if (!cStream)
        return kBadStreamHandle;
    return cStream->isAttached() ? 0 : 5;
}

int32_t vnkAllowDiscarding(uint32_t stream, uint8_t allow) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<FrameSink> cStream = pState->findStream(stream);
    if (!cStream)
        return kBadStreamHandle;
    cStream->setAllowDiscarding(allow != 0);
    return 0;
}

}  // extern "C"
