#pragma once

#include "streams/typedstreamhandler.h"

/// The stream handler of demodulated audio.
class BasebandStreamHandler : public TypedStreamHandler<BasebandFrameSink, BasebandFrame> {
 public:
    /// Never fails; errors of the parameters stay in errors().
    explicit BasebandStreamHandler(utils::VariantRecord cParameters);
    ~BasebandStreamHandler() override;

    utils::VariantRecord getParameters() override;

 protected:
    const Kind& kind() const override;
    ReferencePtr<Frame> emptyFrame() const override;
    void refuseSource(ErrorList& lErrors) override;
    void addSchema(utils::VariantRecord& cSchema) override;
    /// Always true. A sample rate is checked and then forgotten: the stream tells 44100 Hz whatever was set.
    bool integrateParameters(utils::VariantRecord& cRecord, ErrorList& lErrors) override;

 private:
    float mfSampleRateHz = 44100.0f;
};
