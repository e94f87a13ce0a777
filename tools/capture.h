#pragma once

#include "tools/output.h"
#include "tools/report.h"
#include "tools/session.h"

namespace cli {

/// Hears of a running capture; called from the capturing thread, a few times a second.
class CaptureListener {
 public:
    virtual ~CaptureListener() = default;
    /// The first samples are here: what the unit made of the request is known.
    virtual void started(const CaptureResult& soFar) = 0;
    virtual void progress(const CaptureResult& soFar) = 0;
};

/// Takes IQ from an open unit until the request is met, Ctrl-C, or the end of the link. A lost link and
/// a unit that sends nothing are endings, not exceptions; what came until then is in the result. Samples
/// go to `output`, if there is one.
CaptureResult capture(Session& session, Device& device, const CaptureRequest& request, SampleOutput* output,
                      CaptureListener& listener);

}  // namespace cli
