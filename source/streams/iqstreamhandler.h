#pragma once

#include "streams/typedstreamhandler.h"

/// The stream handler of IQ frames; also watches sequence gaps and sub-optimal levels for the caller.
class IQStreamHandler : public TypedStreamHandler<IQFrameSink, IQFrame> {
 public:
    /// Never fails; errors of the parameters stay in errors().
    explicit IQStreamHandler(utils::VariantRecord cParameters);
    ~IQStreamHandler() override;

    /// The sticky flags, cleared by reading.
    bool takeGapFlag() { return mbGap.exchange(false, std::memory_order_relaxed); }
    bool takeSubOptimalFlag() { return mbSubOptimalSeen.exchange(false, std::memory_order_relaxed); }

 protected:
    const Kind& kind() const override;
    ReferencePtr<Frame> emptyFrame() const override;
    void queueFrame(ReferencePtr<Frame> cFrame) override { receiveMeasured(cFrame); }
    void completeFileParameters(const utils::VariantRecord& cSampling, utils::VariantRecord& cRecord) override;
    bool integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override;
    void frameTaken(const Frame& cFrame) override;

 private:
    std::atomic<uint32_t> muNextSequence{kNoSequence};
    std::atomic<bool> mbGap{false};
    std::atomic<bool> mbSubOptimalSeen{false};
};
