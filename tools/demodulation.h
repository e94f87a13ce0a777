#pragma once

#include "tools/audiooutput.h"
#include "tools/audioview.h"
#include "tools/iqfeed.h"
#include "tools/morse.h"
#include "tools/recorder.h"

namespace cli {

enum class DemodKind { am, fm, usb, lsb };
std::string toText(DemodKind kind);

/// What was asked of a demodulator.
struct DemodRequest {
    DemodKind kind = DemodKind::am;
    IqInputOptions input;
    std::optional<double> rateHz;
    std::optional<double> seconds;  ///< 0: until interrupted
    std::optional<double> deviationHz;
    double gainDb = 0;
    std::string path;    ///< empty: the audio is not kept; "-": standard output
    std::string record;  ///< name of a recording; empty: none
    bool force = false;
    bool ident = false;
    double identToneHz = 1020;
};

/// What came of it.
struct DemodResult {
    Ending ending = Ending::noData;
    double centreHz = 0, bandwidthHz = 0, inputRateHz = 0;
    double rateHz = 0;         ///< of the audio
    double deviationHz = 0;    ///< that is full scale; 0: not FM
    double wantedSeconds = 0;  ///< 0: all
    double elapsedSeconds = 0;
    AudioSamples audio;
    std::unique_ptr<AudioView> view;  ///< null: nothing came
    uint64_t gaps = 0, overflows = 0, dropped = 0, bytesWritten = 0;
    MorseText morse;
    MorseIdent ident;
    std::vector<std::string> written;  ///< in words

    double seconds() const { return rateHz > 0 ? static_cast<double>(audio.samples()) / rateHz : 0; }
};

/// Hears of a running demodulator.
class DemodListener {
 public:
    virtual ~DemodListener() = default;
    /// The setting is known.
    virtual void started(const DemodResult& soFar) = 0;
    /// A few times a second.
    virtual void progress(const DemodResult& soFar) = 0;
};

/// The rate of the audio: what is asked, else 48 kS/s, else the input's own. Throws Failure with Exit::usage
/// for a rate that cannot be made from that of the input: a resampler only lowers.
double audioRate(std::optional<double> wantedHz, double inputHz, bool recorded);

/// The deviation of full scale, unless one is asked.
double usualDeviation(double bandwidthHz);

/// Demodulates until the request is met, Ctrl-C, or the input's end, with all that is on its way by then.
DemodResult demodulate(Session& session, const DemodRequest& request, Recorder* recorder,
                       DemodListener& listener);

}  // namespace cli
