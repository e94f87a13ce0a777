#pragma once

#include "flows/framesink.h"

/// A sink of baseband frames; restricts the type and has no parameters of its own.
class BasebandFrameSink : public FrameSink {
 public:
    utils::VariantRecord getParameterInfo() override { return {}; }
    bool acceptsFrame(ReferencePtr<Frame> cFrame) override;
};
