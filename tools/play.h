#pragma once

#include "tools/options.h"
#include "tools/recordingtext.h"

namespace cli {

struct PlayOptions {
    std::string name;
    CaptureRequest request;
    ReportOptions report;
};

/// Plays spectra; IQ is a capture like any other.
Exit playSpectra(const PlayOptions& options, const RecordingName& name,
                 const RecordingDescription& description);

/// Plays audio, as fast as it can be read.
Exit playBaseband(const PlayOptions& options, const RecordingName& name,
                  const RecordingDescription& description);

/// "Playing radio: IQ", its tuning and times.
std::vector<std::string> playHeading(const RecordingName& name, const RecordingDescription& description);

}  // namespace cli
