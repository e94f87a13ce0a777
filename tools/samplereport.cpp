#include "tools/samplereport.h"

#include <nlohmann/json.hpp>

#include "tools/output.h"

namespace cli {

void CaptureProgress::started(const CaptureResult& soFar) {
    if (mbQuiet)
        return;
    printErrLines(mcHeading(soFar));
    printErr("");
}

void CaptureProgress::progress(const CaptureResult& soFar) {
    mcLine.show(soFar.elapsedSeconds, progressLine(soFar));
}

void showUnitNotes(Session& session, Ending ending) {
    if (ending != Ending::noData && ending != Ending::linkLost)
        return;
    for (const std::string& note : session.failureNotes())
        printErr("  " + note);
}

void showSummary(const CaptureResult& result, const std::vector<std::string>& lines) {
    showSpectrum(result.spectrum, result.centreHz - result.bandwidthHz / 2,
                 result.centreHz + result.bandwidthHz / 2);
    printErrLines(lines);
}

void showFindings(const CaptureRequest& request, const CaptureResult& result) {
    for (const std::string& line : detectionLines(request, result)) {
        if (request.path == "-")
            printErr(line);
        else
            printOut(line + "\n");
    }
}

void printJson(const nlohmann::ordered_json& json) {
    printOut(json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

Exit conclude(Ending ending) {
    const Exit code = exitFor(ending);
    if (code != Exit::done)
        printErr("vnk: " + toText(ending));
    return code;
}

}  // namespace cli
