#pragma once

#include "flows/basebandframe.h"
#include "flows/basebandframesink.h"
#include "flows/iqframe.h"
#include "flows/iqframesink.h"
#include "flows/spectrumframe.h"
#include "flows/spectrumframesink.h"
#include "streams/streamhandler.h"

/// What the three stream handlers share: the typed sink and the source in one object. The concrete classes set
/// the parameters in their constructors and call endOfStream first thing in their destructors, since both
/// reach what they override.
template <typename Sink, typename FrameType>
class TypedStreamHandler : public StreamHandler, public Sink {
 public:
    // StreamHandler
    bool isExhausted() override { return this->isSourceExhausted(); }
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override;
    bool attachToSource(ReferencePtr<Entity> cSource, ErrorList& lErrors) override;
    bool detachFromSource() override;
    bool isSinkExhausted() override { return FrameSink::isExhausted(); }
    FrameSink& sink() override { return *this; }
    utils::ReferenceCountedObject* countedSelf() override { return this; }

    // Sink
    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override;

    /// Null: none, or a frame of another type.
    ReferencePtr<FrameType> nextTypedFrame(uint32_t uTimeoutMs) {
        return dynamicReferenceCast<FrameType>(this->nextFrame(uTimeoutMs, false));
    }
    /// What was wrong with the parameters at creation.
    const ErrorList& errors() const { return mlErrors; }

 protected:
    struct Kind {
        const char* mpRefusal;       ///< of a sink that takes another type
        const char* mpAttachTrace;   ///< null: none
        const char* mpDetachTrace;
        std::list<std::string> mlFileKeys;   ///< the parameters that show while a file plays
    };
    virtual const Kind& kind() const = 0;
    /// A frame of the type without contents, to ask sinks with.
    virtual ReferencePtr<Frame> emptyFrame() const = 0;
    /// The source to attach to is none of frames.
    virtual void refuseSource(ErrorList&) {}
    virtual void queueFrame(ReferencePtr<Frame> cFrame) { Sink::receiveFrame(cFrame, false); }
    virtual void addSchema(utils::VariantRecord&) {}
    /// Before what the file tells is merged in.
    virtual void completeFileParameters(const utils::VariantRecord&, utils::VariantRecord&) {}
    void takeLooping(utils::VariantRecord& cRecord);
    bool leaveFile();
    bool leaveSource(const FrameSink::DetachNotice& cNotice);
    void leaveWhatEnded();
    void endOfStream();

    ErrorList mlErrors;
};

extern template class TypedStreamHandler<IQFrameSink, IQFrame>;
extern template class TypedStreamHandler<SpectrumFrameSink, SpectrumFrame>;
extern template class TypedStreamHandler<BasebandFrameSink, BasebandFrame>;
