#pragma once

#include "api/apistate.h"

namespace exports {

/// A new stream of the kind that a processor feeds. Any other value than the three kinds is an assertion failure.
ReferencePtr<FrameSink> makeOutputStream(OutputKind eKind);
/// Attaches a new stream to a processor and enters it. 0; -82 if it is no stream handler; -83 refused.
int32_t openOutputStream(APIState& cState, const ReferencePtr<Processor>& cProcessor,
                         const ReferencePtr<FrameSink>& cStream, uint32_t& uHandle);

}  // namespace exports
