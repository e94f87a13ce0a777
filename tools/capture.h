#pragma once

#include <optional>

#include "tools/output.h"
#include "tools/recorder.h"
#include "tools/recordingname.h"
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

/// Where a capture takes its samples from.
class CaptureSource {
 public:
    virtual ~CaptureSource() = default;
    /// Further parameters of the stream, as ",\"key\":value".
    virtual std::string streamParameters() const = 0;
    virtual void attach(IqStream& stream) = 0;
    /// What an end of the stream means.
    virtual Ending endOfStream() const = 0;
    /// Nothing has come for longer than a start takes: what ends the capture, or nothing to wait on.
    virtual std::optional<Ending> silence() = 0;
};

/// An open unit.
class UnitSource : public CaptureSource {
 public:
    UnitSource(Session& session, Device& device, const CaptureRequest& request)
        : mcSession(session), mcDevice(device), mcRequest(request) {}
    std::string streamParameters() const override;
    void attach(IqStream& stream) override { stream.attach(mcSession, mcDevice); }
    Ending endOfStream() const override { return mcRequest.finite ? Ending::complete : Ending::ended; }
    std::optional<Ending> silence() override {
        return mcDevice.answers() ? Ending::noData : Ending::linkLost;
    }

 private:
    Session& mcSession;
    Device& mcDevice;
    const CaptureRequest& mcRequest;
};

/// A recording that the library plays.
class RecordingSource : public CaptureSource {
 public:
    RecordingSource(const RecordingName& name, bool loop) : mcName(name), mbLoop(loop) {}
    std::string streamParameters() const override { return mbLoop ? ",\"LoopingFlag\":true" : ""; }
    void attach(IqStream& stream) override { stream.attach(mcName); }
    Ending endOfStream() const override { return Ending::complete; }
    // However long a gap it was recorded with.
    std::optional<Ending> silence() override { return std::nullopt; }

 private:
    const RecordingName& mcName;
    bool mbLoop;
};

/// Takes IQ from a source until the request is met, Ctrl-C, or its end. A lost link and a unit that sends
/// nothing are endings, not exceptions; what came until then is in the result. Samples go to `output`, if
/// there is one. A recorder, if there is one, starts with the first frame, and the capture counts from then
/// on.
CaptureResult capture(CaptureSource& source, const CaptureRequest& request, SampleOutput* output,
                      Recorder* recorder, CaptureListener& listener);

}  // namespace cli
