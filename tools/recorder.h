#pragma once

#include <optional>
#include <string>

#include "tools/recordingname.h"
#include "tools/recordingsummary.h"
#include "tools/report.h"
#include "tools/session.h"

namespace cli {

/// Bytes that the disk under a file still takes; nothing where the system does not tell.
std::optional<uint64_t> freeBytes(const std::string& path);

/// Lets the library record a live stream, and looks after the disk meanwhile.
class Recorder {
 public:
    /// Forced: a disk that looks too small is no reason not to try.
    Recorder(Session& session, FreeName& name, bool forced, double sampleBytes = 8)
        : mcSession(session), mcName(name), mbForced(forced), mdSampleBytes(sampleBytes) {}

    /// Records from now on; frames that the stream has queued by now are dropped, so that whatever is read
    /// from it is recorded as well. 0 seconds are endless. Throws Failure with Exit::file when the disk is
    /// too small or the library refuses.
    void start(Stream& stream, double sampleRateHz, double seconds);
    /// Why to stop, if there is a reason.
    std::optional<Ending> watch();
    /// Detaches the stream and ends the recording in good order: waits until all is on disk.
    void end(Stream& stream);

    bool started() const { return mbStarted; }
    /// "room for 14.2 GB, 4.1 h"; empty where the system does not tell.
    std::string roomText() const;
    /// What the library said when writing failed; empty when it did not.
    const std::string& failure() const { return mcFailure; }
    /// What the files hold, once it has ended.
    const RecordingDescription& description() const { return mcDescription; }
    uint64_t recordedSamples() const { return muRecorded; }
    uint64_t dataBytes() const { return muDataBytes; }

 private:
    void checkRoom(double seconds);
    uint64_t reserveBytes() const;
    void noteFailure();

    Session& mcSession;
    FreeName& mcName;
    bool mbForced;
    double mdSampleBytes;
    bool mbStarted = false;
    double mdSampleRateHz = 0, mdBytesPerSecond = 0;
    std::string mcFailure;
    RecordingDescription mcDescription;
    uint64_t muRecorded = 0, muDataBytes = 0;
};

}  // namespace cli
