#pragma once

#include "flows/iqframesink.h"
#include "streams/streamhandler.h"

/// The stream handler of IQ frames; also watches sequence gaps and sub-optimal levels for the caller.
class IQStreamHandler : public StreamHandler, public IQFrameSink {
 public:
    /// Never fails; errors of the parameters stay in errors().
    explicit IQStreamHandler(utils::VariantRecord cParameters);
    ~IQStreamHandler() override;

    // StreamHandler
    bool isExhausted() override;
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override;
    bool attachToSource(ReferencePtr<Entity> cSource, ErrorList& lErrors) override;
    bool detachFromSource() override;
    bool isSinkExhausted() override;
    utils::ReferenceCountedObject* countedSelf() override { return this; }

    // IQFrameSink
    utils::VariantRecord getParameterInfo() override;
    utils::VariantRecord getParameters() override;
    void receiveFrame(ReferencePtr<Frame> cFrame, bool bLast) override;

    /// Null: none, or a frame of another type.
    ReferencePtr<IQFrame> nextIQFrame(uint32_t uTimeoutMs);
    /// The sticky flags, cleared by reading.
    bool takeGapFlag() { return mbGap.exchange(false, std::memory_order_relaxed); }
    bool takeSubOptimalFlag() { return mbSubOptimalSeen.exchange(false, std::memory_order_relaxed); }
    const ErrorList& errors() const { return mlErrors; }

 protected:
    bool integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override;
    void frameTaken(const Frame& cFrame) override;

 private:
    ErrorList mlErrors;
    std::atomic<uint32_t> muNextSequence{kNoSequence};
    std::atomic<bool> mbGap{false};
    std::atomic<bool> mbSubOptimalSeen{false};
};
