// Frames as the plain records that callers read.
#include <cstdlib>
#include <memory>
#include <new>

#include "api/exports.h"
#include "libvnk.h"
#include "receivers/receiverdevice.h"
#include "streams/basebandstreamhandler.h"
#include "streams/iqstreamhandler.h"
#include "streams/spectrumstreamhandler.h"

namespace {

constexpr int32_t kInvalidStreamHandle = -17;
constexpr int32_t kNullRecord = -20;
constexpr int32_t kExhausted = 2;

template <typename T>
T* allocate(size_t uCount = 1) {
    T* const pMemory = static_cast<T*>(std::calloc(uCount, sizeof(T)));
    if (!pMemory)
        throw std::bad_alloc();
    return pMemory;
}

// What a record owns beside the frame's arrays, and what a record of the caller's own making owns in place of
// them.

void freeParts(const vnkIQRecord&) {}
void freeParts(const vnkSpectrumRecord& cRecord) {
    std::free(const_cast<float**>(cRecord.traces));
}
void freeParts(const vnkBasebandRecord& cRecord) {
    std::free(const_cast<float**>(cRecord.channels));
}

void freeData(const vnkIQRecord& cRecord) {
    std::free(const_cast<float*>(cRecord.samples));
}
void freeData(const vnkSpectrumRecord& cRecord) {
    std::free(const_cast<float*>(cRecord.points));
}
void freeData(const vnkBasebandRecord&) {}   // its channels array is a part in either case

struct FreeRecord {
    template <typename Record>
    void operator()(Record* pRecord) const {
        std::free(pRecord->extras);
        freeParts(*pRecord);
        std::free(pRecord);
    }
};

template <typename Record>
using OwnedRecord = std::unique_ptr<Record, FreeRecord>;

// One kind of stream each: its record, its handler, and how the frame fills the record.

void fill(vnkIQRecord& cRecord, IQFrame& cFrame, IQStreamHandler& cHandler) {
    cRecord.sequence = cFrame.sequence();
    cRecord.timestamp = cFrame.getTimestamp(kNanoseconds);
    cRecord.centreHz = cFrame.centreFrequency();
    cRecord.bandwidthHz = cFrame.bandwidth();
    cRecord.sampleRateHz = cFrame.sampleRate();
    cRecord.samples = reinterpret_cast<const float*>(cFrame.getSamples(cRecord.sampleCount));
    cRecord.sequenceGap = cHandler.takeGapFlag() ? 1 : 0;
    cRecord.subOptimal = cHandler.takeSubOptimalFlag() ? 1 : 0;
}

void fill(vnkSpectrumRecord& cRecord, SpectrumFrame& cFrame, SpectrumStreamHandler&) {
    const float fHalf = cFrame.bandwidth() * 0.5f;
    cRecord.sequence = cFrame.sequence();
    cRecord.timestamp = cFrame.getTimestamp(kNanoseconds);
    cRecord.duration = cFrame.getDuration(kNanoseconds);
    cRecord.minimumHz = cFrame.centreFrequency() - fHalf;
    cRecord.maximumHz = cFrame.centreFrequency() + fHalf;
    cRecord.rbwHz = cFrame.rbw();
    cRecord.points = cFrame.getSpectrum(cRecord.pointCount);
    if (cFrame.traces().empty())
        return;
    const float** pTraces = allocate<const float*>(cFrame.traces().size());
    cRecord.traces = pTraces;
    for (const ReferencePtr<FloatArray>& cTrace : cFrame.traces())
        pTraces[cRecord.traceCount++] = cTrace->getData();
}

void fill(vnkBasebandRecord& cRecord, BasebandFrame& cFrame, BasebandStreamHandler&) {
    cRecord.sequence = cFrame.sequence();
    cRecord.timestamp = cFrame.getTimestamp(kNanoseconds);
    cRecord.sampleRateHz = cFrame.sampleRate();
    cRecord.bandwidthHz = cFrame.bandwidth();
    const uint32_t uChannels = cFrame.channelCount();
    if (uChannels == 0)
        return;
    const float** pChannels = allocate<const float*>(uChannels);
    cRecord.channels = pChannels;
    for (; cRecord.channelCount < uChannels; ++cRecord.channelCount) {
        const ReferencePtr<FloatArray> cChannel = cFrame.getChannel(cRecord.channelCount);
        pChannels[cRecord.channelCount] = cChannel->getData();
        cRecord.samplesPerChannel = cChannel->getActive();
    }
}

bool isDeviceSilent(const ReferencePtr<Entity>& cSource) {
    const auto* pReceiver = dynamic_cast<const ReceiverDevice*>(cSource.get());
    return pReceiver && pReceiver->isLinkStale();
}

/// Why there was no frame.
int32_t statusWithoutFrame(StreamHandler& cHandler, bool bFromReceivers) {
    if (!cHandler.isStarted())
        return 3;
    const ReferencePtr<Entity> cSource = cHandler.getSource();
    if (cSource ? cHandler.sink().isExhausted() : !cHandler.getInputFile())
        return kExhausted;
    return bFromReceivers && isDeviceSilent(cSource) ? -86 : 1;
}

template <typename Handler, typename Record>
int32_t getNext(uint32_t uStream, Record** ppRecord, uint32_t uTimeoutMs, int32_t iWrongKind) {
    VNK_STATE_OR_RETURN(pState);
    const ReferencePtr<FrameSink> cStream = pState->findStream(uStream);
    if (!cStream)
        return kInvalidStreamHandle;
    // Held by cStream: a counted pointer of its own would make g++ 12 see, wrongly, a free of a part of the handler.
    auto* const pHandler = dynamic_cast<Handler*>(cStream.get());
    if (!pHandler)
        return iWrongKind;
    if (!ppRecord)
        return kUnallocatedUserData;
    auto cFrame = pHandler->nextTypedFrame(uTimeoutMs);
    if (!cFrame) {
        constexpr bool kFromReceivers = !std::is_same_v<Handler, BasebandStreamHandler>;
        const int32_t iStatus = statusWithoutFrame(*pHandler, kFromReceivers);
        // The last frame may have come after the read gave up and before the source was seen to have ended.
        if (iStatus == kExhausted)
            cFrame = pHandler->nextTypedFrame(0);
        if (!cFrame)
            return iStatus;
    }
    OwnedRecord<Record> pRecord(allocate<Record>());
    if (const ReferencePtr<utils::VariantRecord> cExtras = cFrame->peekExtras())
        pRecord->extras = exports::heapText(cExtras->toCompactText());
    fill(*pRecord, *cFrame, *pHandler);
    pState->addAllocation(pRecord.get(), cFrame);
    *ppRecord = pRecord.release();
    return 0;
}

template <typename Record>
int32_t freeRecord(Record** ppRecord) {
    VNK_STATE_OR_RETURN(pState);
    if (!ppRecord)
        return kUnallocatedUserData;
    if (!*ppRecord)
        return kNullRecord;
    if (!pState->removeAllocation(*ppRecord))
        freeData(**ppRecord);
    FreeRecord()(*ppRecord);
    *ppRecord = nullptr;
    return 0;
}

}  // namespace

extern "C" {

int32_t vnkGetNextIQ(uint32_t stream, vnkIQRecord** record, uint32_t timeoutMs) {
    return getNext<IQStreamHandler>(stream, record, timeoutMs, -19);
}

int32_t vnkGetNextSpectrum(uint32_t stream, vnkSpectrumRecord** record, uint32_t timeoutMs) {
    return getNext<SpectrumStreamHandler>(stream, record, timeoutMs, -25);
}

int32_t vnkGetNextBaseband(uint32_t stream, vnkBasebandRecord** record, uint32_t timeoutMs) {
    return getNext<BasebandStreamHandler>(stream, record, timeoutMs, -78);
}

int32_t vnkFreeIQ(vnkIQRecord** record) {
    return freeRecord(record);
}

int32_t vnkFreeSpectrum(vnkSpectrumRecord** record) {
    return freeRecord(record);
}

int32_t vnkFreeBaseband(vnkBasebandRecord** record) {
    return freeRecord(record);
}

}  // extern "C"
