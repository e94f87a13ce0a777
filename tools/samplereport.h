#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tools/capture.h"
#include "tools/show.h"

namespace cli {

/// Shows a capture while it runs.
class CaptureProgress : public CaptureListener {
 public:
    using Heading = std::function<std::vector<std::string>(const CaptureResult& soFar)>;

    /// The heading comes with the first samples.
    CaptureProgress(bool quiet, Heading heading)
        : mbQuiet(quiet), mcHeading(std::move(heading)), mcLine(quiet) {}
    void started(const CaptureResult& soFar) override;
    void progress(const CaptureResult& soFar) override;
    void end() { mcLine.end(); }

 private:
    bool mbQuiet;
    Heading mcHeading;
    ProgressLine mcLine;
};

/// What the library noted about failures, when the unit is the reason for the end.
void showUnitNotes(Session& session, Ending ending);
/// The spectrum, and the lines under it, on standard error.
void showSummary(const CaptureResult& result, const std::vector<std::string>& lines);
/// What was detected: data, unless the samples have that place.
void showFindings(const CaptureRequest& request, const CaptureResult& result);
void printJson(const nlohmann::ordered_json& json);
/// The exit code; an end that is not a good one is told.
Exit conclude(Ending ending);

}  // namespace cli
