#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/exitcodes.h"
#include "tools/levels.h"
#include "tools/modes.h"
#include "tools/spectrum.h"
#include "tools/tones.h"

namespace cli {

enum class Detect { none, am, modes };

/// What was asked of a capture, in hertz, dBm and seconds.
struct CaptureRequest {
    std::string address;
    double centreHz = 0, bandwidthHz = 0;
    double referenceDbm = -30;
    double calibrationDb = 0;
    double seconds = 5;   ///< 0: until interrupted
    bool finite = false;  ///< the unit ends it by itself
    bool loop = false;    ///< a recording starts over at its end
    std::string path;     ///< empty: samples are not kept; "-": standard output
    Detect detect = Detect::none;
};

enum class Ending { complete, interrupted, readerGone, ended, linkLost, noData, diskFull, writeFailed };
std::string toText(Ending ending);
Exit exitFor(Ending ending);

/// What a capture came to.
struct CaptureResult {
    Ending ending = Ending::noData;
    double centreHz = 0, bandwidthHz = 0, sampleRateHz = 0;
    std::optional<double> referenceDbm;
    double elapsedSeconds = 0;  ///< on the clock, from the first sample
    uint64_t samples = 0, bytesWritten = 0;
    uint64_t firstSamples = 0;  ///< of the first frame: they were taken before the clock started
    uint64_t frames = 0, gaps = 0, overflows = 0, invalids = 0;
    uint64_t passes = 1;  ///< of a recording that is looped
    double peakDbm = -1000, meanDbm = -1000;
    double peakDbfs = -1000;
    Spectrum spectrum;
    std::vector<DetectedTone> tones;
    std::vector<ModeSFrame> modeS;

    double seconds() const { return sampleRateHz > 0 ? static_cast<double>(samples) / sampleRateHz : 0; }
    LevelJudgement judgement() const { return judge(peakDbfs, goodWindow(sampleRateHz)); }
    SpectrumPeak peak() const {
        return findPeak(spectrum, centreHz - bandwidthHz / 2, centreHz + bandwidthHz / 2);
    }
};

/// "  3.2 s  0.122 Msps  3.1 MB  0 gaps  peak -14.2 dBFS, good (-20 to -10)"
std::string progressLine(const CaptureResult& soFar);
/// Asked beside realised.
std::vector<std::string> settingsTable(const CaptureRequest& request, const CaptureResult& result);
/// "Captured 366211 samples, 3.000 s (complete), 0 gaps", their levels, and where they are. What was done
/// with the samples begins the first line.
std::vector<std::string> summaryLines(const CaptureRequest& request, const CaptureResult& result,
                                      const std::string& done = "Captured");
/// What was detected, in words; empty when nothing was wanted.
std::vector<std::string> detectionLines(const CaptureRequest& request, const CaptureResult& result);
nlohmann::ordered_json toJson(const CaptureRequest& request, const CaptureResult& result);
/// What a capture came to, without what was asked.
void addResult(nlohmann::ordered_json& json, const CaptureRequest& request, const CaptureResult& result);

}  // namespace cli
