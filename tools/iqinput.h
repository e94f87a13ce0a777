#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "tools/capture.h"
#include "tools/recordingdescription.h"

namespace cli {

/// NAME or ADDRESS, and how to tune what stands there.
struct IqInputOptions {
    std::string text;
    std::optional<double> centreHz, bandwidthHz, referenceDbm, calibrationDb;
    double usualBandwidthHz = 0;  ///< of a unit when none is asked; 0: one has to be
};

/// NAME|ADDRESS, --fcentre, --ifbw, --ref and --cal.
void addIqInput(CLI::App& verb, IqInputOptions& options);

/// A recording when one of its files is there, or when it can be nothing but a path.
bool namesRecording(const std::string& text);

/// IQ from a unit or from a recording.
class IqInput {
 public:
    /// Opens the unit, or reads the recording's description. Throws Failure: with Exit::usage when the
    /// options do not go with what stands there, with Exit::file when it is no recording of IQ.
    IqInput(Session& session, const IqInputOptions& options);

    bool isRecording() const { return mpName != nullptr; }
    CaptureSource& source() { return *mpSource; }
    /// What to tune to; of a recording, how it was tuned.
    const CaptureRequest& request() const { return mcRequest; }
    /// Known of a recording only, before it plays.
    std::optional<double> sampleRateHz() const { return mcSampleRate; }
    const RecordingName& name() const { return *mpName; }
    const RecordingDescription& description() const { return mcDescription; }
    /// Its address, or its stem.
    const std::string& label() const { return mcLabel; }

 private:
    void openRecording(const IqInputOptions& options);
    void openUnit(Session& session, const IqInputOptions& options);

    std::string mcLabel;
    CaptureRequest mcRequest;
    std::optional<double> mcSampleRate;
    std::unique_ptr<RecordingName> mpName;
    RecordingDescription mcDescription;
    std::unique_ptr<Device> mpDevice;
    std::unique_ptr<CaptureSource> mpSource;
};

}  // namespace cli
