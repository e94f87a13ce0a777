#pragma once

#include "streams/typedstreamhandler.h"

/// The stream handler of spectra.
class SpectrumStreamHandler : public TypedStreamHandler<SpectrumFrameSink, SpectrumFrame> {
 public:
    /// Never fails; errors of the parameters stay in errors().
    explicit SpectrumStreamHandler(utils::VariantRecord cParameters);
    ~SpectrumStreamHandler() override;

 protected:
    const Kind& kind() const override;
    ReferencePtr<Frame> emptyFrame() const override;
    void refuseSource(ErrorList& lErrors) override;
    /// Always true, so that what the sink has refused does not keep the buffer's parameters from being stored.
    bool integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override;
};
