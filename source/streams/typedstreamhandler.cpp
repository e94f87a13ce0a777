#include "streams/typedstreamhandler.h"

#include "foundations/runtimeerrors.h"

template <typename Sink, typename FrameType>
void TypedStreamHandler<Sink, FrameType>::endOfStream() {
    // First those who reach this object as their source; from then on a reference of its own lets it be
    // handed to its source as a counted pointer once more.
    this->releaseSinks();
    this->addReference();
    detachFromSource();
}

template <typename Sink, typename FrameType>
bool TypedStreamHandler<Sink, FrameType>::attachFrameSink(ReferencePtr<FrameSink> cNewSink,
                                                          ErrorList& lErrors) {
    if (cNewSink == nullptr)
        return false;
    if (!cNewSink->acceptsFrame(emptyFrame())) {
        lErrors.push_back(kind().mpRefusal);
        return false;
    }
    return FrameSource::attachFrameSink(cNewSink, lErrors);
}

template <typename Sink, typename FrameType>
bool TypedStreamHandler<Sink, FrameType>::attachToSource(ReferencePtr<Entity> cSource, ErrorList& lErrors) {
    FrameSource* pSource = dynamic_cast<FrameSource*>(cSource.get());
    if (!pSource) {
        refuseSource(lErrors);
        return false;
    }
    // One source at a time: an earlier one would go on with a capture that nothing could end any more. It is
    // left before the new one is noted, since its end detaches whatever is noted then.
    const ReferencePtr<Entity> cBefore = getSource();
    if (cBefore && !(cBefore == cSource)) {
        const FrameSink::DetachNotice cNotice(*this);
        leaveSource(cNotice);
    }
    exchangeSource(cSource);
    if (kind().mpAttachTrace)
        utils::reportTrace(kind().mpAttachTrace);
    if (!pSource->attachFrameSink(ReferencePtr<FrameSink>(this), lErrors))
        return false;
    if (isClosed())
        detachFromSource();
    if (getSource() == cSource)
        return true;
    // Detached before the source knew of this stream: the detach stands.
    pSource->removeFrameSink(ReferencePtr<FrameSink>(this));
    return false;
}

template <typename Sink, typename FrameType>
bool TypedStreamHandler<Sink, FrameType>::detachFromSource() {
    if (kind().mpDetachTrace)
        utils::reportTrace(kind().mpDetachTrace);
    const FrameSink::DetachNotice cNotice(*this);
    return leaveFile() || leaveSource(cNotice);
}

// The source's pointer goes with the file, also one to a device that was attached beside it; but not one that
// has been attached since.
template <typename Sink, typename FrameType>
bool TypedStreamHandler<Sink, FrameType>::leaveFile() {
    const uint32_t uAttachCount = this->attachCount();
    const ReferencePtr<StreamInputFile> cFile = exchangeInputFile(nullptr);
    if (!cFile)
        return false;
    cFile->removeFrameSink(ReferencePtr<FrameSink>(this));
    this->clearSource(uAttachCount);
    deliverFrame(nullptr, false);
    return true;
}

template <typename Sink, typename FrameType>
bool TypedStreamHandler<Sink, FrameType>::leaveSource(const FrameSink::DetachNotice& cNotice) {
    const ReferencePtr<Entity> cSource = exchangeSource(nullptr);
    FrameSource* pSource = dynamic_cast<FrameSource*>(cSource.get());
    // The source belongs to a detach that is going on: its result is that one's.
    if (!pSource && cNotice.isNotAlone())
        return false;
    const bool bRemoved = pSource && pSource->removeFrameSink(ReferencePtr<FrameSink>(this));
    FrameSink::detachFromSource();
    return bRemoved;
}

// A file that plays on is none of it: the end is that of a device beside it, or of a file that it has replaced.
template <typename Sink, typename FrameType>
void TypedStreamHandler<Sink, FrameType>::leaveWhatEnded() {
    const ReferencePtr<StreamInputFile> cFile = getInputFile();
    if (!cFile || cFile->isExhausted()) {
        detachFromSource();
    } else if (getSource()) {
        const FrameSink::DetachNotice cNotice(*this);
        leaveSource(cNotice);
    }
}

template <typename Sink, typename FrameType>
utils::VariantRecord TypedStreamHandler<Sink, FrameType>::getParameterInfo() {
    utils::VariantRecord cSchema = Sink::getParameterInfo();
    addTextSchema(cSchema, "filename", "Full path to associated file - if in use", true);
    addSchema(cSchema);
    if (getInputFile())
        addTextSchema(cSchema, "LoopingFlag", "Binary flag to cause file to loop from end back to beginning",
                      false);
    return cSchema;
}

template <typename Sink, typename FrameType>
utils::VariantRecord TypedStreamHandler<Sink, FrameType>::getParameters() {
    utils::VariantRecord cRecord = Sink::getParameters();
    if (const ReferencePtr<StreamInputFile> cFile = getInputFile()) {
        const utils::VariantRecord cSampling = cFile->getSampling();
        completeFileParameters(cSampling, cRecord);
        cRecord.merge(cSampling);
        cRecord.keep(kind().mlFileKeys);
        cRecord.set("filename", cFile->getPath());
        cRecord.set("LoopingFlag", cFile->isLooping());
    } else if (const ReferencePtr<StreamOutputFile> cRecording = getOutputFile()) {
        cRecord.set("filename", cRecording->getPath());
    }
    return cRecord;
}

template <typename Sink, typename FrameType>
void TypedStreamHandler<Sink, FrameType>::takeLooping(utils::VariantRecord& cRecord) {
    if (const auto bLooping = cRecord.takeBool("LoopingFlag"))
        setLooping(*bLooping);
}

// The queue of the caller first, then those attached to this stream, and the recording last.
template <typename Sink, typename FrameType>
void TypedStreamHandler<Sink, FrameType>::receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) {
    if (cFrame != nullptr)
        mbStarted.store(true, std::memory_order_relaxed);
    queueFrame(cFrame);
    deliverFrame(cFrame, false);
    record(cFrame);
    if (bLast)
        leaveWhatEnded();
}

template class TypedStreamHandler<IQFrameSink, IQFrame>;
template class TypedStreamHandler<SpectrumFrameSink, SpectrumFrame>;
template class TypedStreamHandler<BasebandFrameSink, BasebandFrame>;
