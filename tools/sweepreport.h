#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tools/peaks.h"
#include "tools/report.h"
#include "tools/spectrumhistory.h"
#include "tools/spectrumoutput.h"
#include "tools/sweeprequest.h"

namespace cli {

/// The newest of the traces that a chain keeps beside the spectra.
struct TraceLevels {
    std::vector<float> minimum, maximum, average;

    void keep(const SpectrumView& view);
    bool any() const { return !minimum.empty(); }
};

/// What a sweep came to.
struct SweepResult {
    Ending ending = Ending::noData;
    double lowHz = 0, highHz = 0, rbwHz = 0;  ///< frequencies of the first and the last point
    uint64_t firstTime = 0;                   ///< nanoseconds since 1970
    double firstSeconds = 0;                  ///< that the first spectrum took on the air
    double elapsedSeconds = 0;                ///< on the clock, from the first spectrum to the last
    uint64_t lost = 0;                        ///< that came faster than they were taken
    uint64_t bytesWritten = 0;
    SpectrumHistory history;
    uint64_t otherShapes = 0;  ///< spectra that are not in the history: of other edges or points
    TraceLevels traces;
    double floorDbm = -1000;  ///< noise in a bin
    std::vector<Peak> peaks;

    uint64_t spectra() const { return history.spectra(); }
    double binHz() const;
    /// How much of the band was looked at for each second.
    double hertzPerSecond() const;
    double spectraPerSecond() const;
    /// What is added to the level of a tone's bin to have its power: levels are told for the width of a bin,
    /// and a window spreads a tone over more.
    double toneCorrectionDb() const;
    double floorDbmPerHz() const;
};

/// Finds floor and peaks in what has been gathered.
void evaluate(const SweepRequest& request, SweepResult& result);

/// "  3.2 s    312 spectra   97.5 GHz/s  0 lost"
std::string progressLine(const SweepRequest& request, const SweepResult& soFar);
/// Asked beside realised.
std::vector<std::string> settingsTable(const SweepRequest& request, const SweepResult& result);
std::vector<std::string> summaryLines(const SweepRequest& request, const SweepResult& result);
/// A heading and one line for each peak.
std::vector<std::string> peakLines(const SweepResult& result);
nlohmann::ordered_json toJson(const SweepRequest& request, const SweepResult& result);
/// Needs at least one spectrum.
std::vector<uint8_t> drawPicture(const SweepRequest& request, const SweepResult& result);

}  // namespace cli
