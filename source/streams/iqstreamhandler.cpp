#include "streams/iqstreamhandler.h"

#include "foundations/runtimeerrors.h"

IQStreamHandler::IQStreamHandler(utils::VariantRecord cParameters) {
    setSinkParameters(cParameters, mlErrors, false);
}

IQStreamHandler::~IQStreamHandler() {
    // First those who reach this object as their source; from then on a reference of its own lets it be
    // handed to its source as a counted pointer once more.
    releaseSinks();
    addReference();
    IQStreamHandler::detachFromSource();
}

bool IQStreamHandler::isExhausted() {
    return isSourceExhausted();
}

bool IQStreamHandler::isSinkExhausted() {
    return FrameSink::isExhausted();
}

bool IQStreamHandler::attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) {
    if (cNewSink == nullptr)
        return false;
    const auto cProbe =
        makeReference<IQFrame>(0u, uint64_t{0}, uint64_t{0}, kNanoseconds, 0.0f, 0.0f, 0.0f, 0.0f,
                               ReferencePtr<ComplexArray>(), std::string(kUnitsSqrtMilliwatt));
    if (!cNewSink->acceptsFrame(cProbe)) {
        lErrors.push_back("Attempt to attach non-IQ frame sink to IQ only source");
        return false;
    }
    return FrameSource::attachFrameSink(cNewSink, lErrors);
}

bool IQStreamHandler::attachToSource(ReferencePtr<Entity> cSource, ErrorList& lErrors) {
    FrameSource* pSource = dynamic_cast<FrameSource*>(cSource.get());
    if (!pSource)
        return false;
    // One source at a time: an earlier one would go on with a capture that nothing could end any more. It is
    // left before the new one is noted, since its end detaches whatever is noted then.
    const ReferencePtr<Entity> cBefore = getSource();
    if (cBefore && !(cBefore == cSource))
        detachFromSource();
    exchangeSource(cSource);
    utils::reportTrace("attachToSource => FrameSource::attachFrameSink");
    if (!pSource->attachFrameSink(ReferencePtr<FrameSink>(this), lErrors))
        return false;
    if (getSource() == cSource)
        return true;
    // Detached before the source knew of this stream: the detach stands.
    pSource->removeFrameSink(ReferencePtr<FrameSink>(this));
    return false;
}

bool IQStreamHandler::detachFromSource() {
    utils::reportTrace("IQStreamHandler::detachFromSource");
    const DetachNotice cNotice(*this);
    const ReferencePtr<Entity> cSource = exchangeSource(nullptr);
    FrameSource* pSource = dynamic_cast<FrameSource*>(cSource.get());
    // The source belongs to a detach that is going on: its result is that one's.
    if (!pSource && cNotice.isNotAlone())
        return false;
    const bool bRemoved = pSource && pSource->removeFrameSink(ReferencePtr<FrameSink>(this));
    FrameSink::detachFromSource();
    return bRemoved;
}

utils::VariantRecord IQStreamHandler::getParameterInfo() {
    utils::VariantRecord cSchema = IQFrameSink::getParameterInfo();
    addTextSchema(cSchema, "filename", "Full path to associated file - if in use", true);
    return cSchema;
}

utils::VariantRecord IQStreamHandler::getParameters() {
    return IQFrameSink::getParameters();
}

bool IQStreamHandler::integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) {
    if (const auto bLooping = cRecord.takeBool("LoopingFlag"))
        mbLooping.store(*bLooping, std::memory_order_relaxed);
    return IQFrameSink::integrateParameters(cRecord, lErrors);
}

// The queue of the caller first, then those attached to this stream.
void IQStreamHandler::receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) {
    if (cFrame != nullptr)
        mbStarted.store(true, std::memory_order_relaxed);
    receiveMeasured(cFrame);
    deliverFrame(cFrame, false);
    if (bLast)
        detachFromSource();
}

ReferencePtr<IQFrame> IQStreamHandler::nextIQFrame(uint32_t uTimeoutMs) {
    return dynamicReferenceCast<IQFrame>(nextFrame(uTimeoutMs, false));
}

void IQStreamHandler::frameTaken(const Frame& cFrame) {
    constexpr auto kRelaxed = std::memory_order_relaxed;
    const uint32_t uExpected = muNextSequence.exchange(nextSequenceAfter(cFrame.sequence()), kRelaxed);
    if (uExpected != kNoSequence && uExpected != cFrame.sequence())
        mbGap.store(true, kRelaxed);
    if (cFrame.isSubOptimal() && dynamic_cast<const IQFrame*>(&cFrame))
        mbSubOptimalSeen.store(true, kRelaxed);
}
