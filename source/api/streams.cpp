// Streams: making, attaching, and taking frames as plain records.
#include <cstdlib>
#include <memory>

#include "api/exports.h"
#include "foundations/runtimeerrors.h"
#include "libvnk.h"
#include "receivers/receiverdevice.h"
#include "streams/iqstreamhandler.h"

namespace {

constexpr int32_t kInvalidStreamHandle = -17;
constexpr int32_t kBadStreamHandle = -38;
constexpr int32_t kExhausted = 2;

struct FreeRecord {
    void operator()(vnkIQRecord* pRecord) const {
        std::free(pRecord->extras);
        std::free(pRecord);
    }
};

std::unique_ptr<vnkIQRecord, FreeRecord> makeIQRecord(IQFrame& cFrame, IQStreamHandler& cHandler) {
    std::unique_ptr<vnkIQRecord, FreeRecord> pRecord(
        static_cast<vnkIQRecord*>(std::calloc(1, sizeof(vnkIQRecord))));
    if (!pRecord)
        throw std::bad_alloc();
    pRecord->sequence = cFrame.sequence();
    pRecord->timestamp = cFrame.getTimestamp(kNanoseconds);
    pRecord->centreHz = cFrame.centreFrequency();
    pRecord->bandwidthHz = cFrame.bandwidth();
    pRecord->sampleRateHz = cFrame.sampleRate();
    if (const ReferencePtr<utils::VariantRecord> cExtras = cFrame.peekExtras())
        pRecord->extras = exports::heapText(cExtras->toCompactText());
    uint32_t uCount = 0;
    pRecord->samples = reinterpret_cast<const float*>(cFrame.getSamples(uCount));
    pRecord->sampleCount = uCount;
    pRecord->sequenceGap = cHandler.takeGapFlag() ? 1 : 0;
    pRecord->subOptimal = cHandler.takeSubOptimalFlag() ? 1 : 0;
    return pRecord;
}

bool isDeviceSilent(const ReferencePtr<Entity>& cSource) {
    const auto* pReceiver = dynamic_cast<const ReceiverDevice*>(cSource.get());
    return pReceiver && pReceiver->isLinkStale();
}

/// Why there was no frame.
int32_t statusWithoutFrame(StreamHandler& cHandler, FrameSink& cSink) {
    if (!cHandler.isStarted())
        return 3;
    const ReferencePtr<Entity> cSource = cHandler.getSource();
    if (!cSource || cSink.isExhausted())
        return kExhausted;
    return isDeviceSilent(cSource) ? -86 : 1;
}

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

int32_t vnkGetNextIQ(uint32_t stream, vnkIQRecord** record, uint32_t timeoutMs) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<FrameSink> cStream = pState->findStream(stream);
    if (!cStream)
        return kInvalidStreamHandle;
    const ReferencePtr<IQStreamHandler> cHandler = dynamicReferenceCast<IQStreamHandler>(cStream);
    if (!cHandler)
        return -19;
    if (!record)
        return kUnallocatedUserData;
    ReferencePtr<IQFrame> cFrame = cHandler->nextIQFrame(timeoutMs);
    if (!cFrame) {
        const int32_t iStatus = statusWithoutFrame(*cHandler, *cHandler);
        // The last frame may have come after the read gave up and before the source was seen to have ended.
        if (iStatus == kExhausted)
            cFrame = cHandler->nextIQFrame(0);
        if (!cFrame)
            return iStatus;
    }
    auto pRecord = makeIQRecord(*cFrame, *cHandler);
    pState->addAllocation(pRecord.get(), cFrame);
    *record = pRecord.release();
    return 0;
}

int32_t vnkFreeIQ(vnkIQRecord** record) {
    VNK_STATE_OR_RETURN(pState);
    if (!record)
        return kUnallocatedUserData;
    if (!*record)
        return -20;
    if (!pState->removeAllocation(*record))
        std::free(const_cast<float*>((*record)->samples));   // a record of the caller's own making
    FreeRecord()(*record);
    *record = nullptr;
    return 0;
}

}  // extern "C"
