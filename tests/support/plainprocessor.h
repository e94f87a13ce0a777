#pragma once

#include "processors/processor.h"

namespace vnktest {

/// A processor without work of its own, of any kind of output: it passes every frame on.
class PlainProcessor : public Processor {
 public:
    explicit PlainProcessor(OutputKind eKind = OutputKind::kIQ) : Processor("Plain", eKind) {}
    bool attachFrameSink(ReferencePtr<FrameSink> cNewSink, ErrorList& lErrors) override {
        return FrameSource::attachFrameSink(std::move(cNewSink), lErrors);
    }

 protected:
    void processFrame(ReferencePtr<Frame> cFrame) override { deliverFrame(std::move(cFrame), false); }
};

}  // namespace vnktest
