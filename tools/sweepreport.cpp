#include "tools/sweepreport.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/spectrumpicture.h"
#include "tools/units.h"

namespace cli {

namespace {

std::string padLeft(const std::string& text, size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string padRight(std::string text, size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

std::string spectraText(uint64_t count) {
    return std::to_string(count) + (count == 1 ? " spectrum" : " spectra");
}

std::string rateText(const SweepRequest& request, const SweepResult& result) {
    if (request.iq)
        return formatSI(result.spectraPerSecond(), "spectra/s", 3);
    return formatFixed(result.hertzPerSecond() / 1e9, 2) + " GHz/s";
}

std::string rbwText(const SweepResult& result) {
    return formatSI(result.rbwHz, "Hz", 4);
}

std::string noiseText(const SweepResult& result) {
    return formatFixed(result.floorDbm, 1) + " dBm in a bin, " + formatFixed(result.floorDbmPerHz(), 1) +
           " dBm/Hz";
}

std::string spectraWithTime(const SweepResult& result) {
    const std::string taken = spectraText(result.spectra());
    return result.spectra() > 1 ? taken + " in " + formatFixed(result.elapsedSeconds, 2) + " s" : taken;
}

std::string resolutionAsked(const SweepRequest& request) {
    if (request.iq && request.iq->follow)
        return "by the frames";
    return formatFrequency(request.span.rbwHz);
}

/// What the trace of a chain shows, in a shape of its own.
Spectrum traceSpectrum(const Spectrum& shape, const std::vector<float>& levels) {
    Spectrum spectrum = shape;
    spectrum.dbm.assign(levels.begin(), levels.end());
    return spectrum;
}

std::string formatText(SpectrumFormat format) {
    switch (format) {
        case SpectrumFormat::csv:
            return "CSV";
        case SpectrumFormat::jsonl:
            return "JSON lines";
        case SpectrumFormat::f32:
            break;
    }
    return "32-bit floats, dBm";
}

}  // namespace

double SweepResult::binHz() const {
    return history.points() > 1 ? (highHz - lowHz) / static_cast<double>(history.points() - 1) : rbwHz;
}

double SweepResult::hertzPerSecond() const {
    const double dWidth = highHz - lowHz;
    if (spectra() > 1 && elapsedSeconds > 0)
        return dWidth * static_cast<double>(spectra() - 1) / elapsedSeconds;
    return firstSeconds > 0 ? dWidth / firstSeconds : 0;
}

double SweepResult::spectraPerSecond() const {
    return spectra() > 1 && elapsedSeconds > 0 ? static_cast<double>(spectra() - 1) / elapsedSeconds : 0;
}

double SweepResult::toneCorrectionDb() const {
    return binHz() > 0 && rbwHz > 0 ? 10 * std::log10(rbwHz / binHz()) : 0;
}

double SweepResult::floorDbmPerHz() const {
    return floorDbm - (binHz() > 0 ? 10 * std::log10(binHz()) : 0);
}

void TraceLevels::keep(const SpectrumView& view) {
    if (!view.hasTraces())
        return;
    minimum.assign(view.minimum, view.minimum + view.points);
    maximum.assign(view.maximum, view.maximum + view.points);
    average.assign(view.average, view.average + view.points);
}

void evaluate(const SweepRequest& request, SweepResult& result) {
    result.floorDbm = noiseFloor(result.history.mean(result.lowHz, result.highHz));
    PeakSearch search;
    search.lobeBins = request.lobeBins();
    result.peaks = findPeaks(result.history.strongest(result.lowHz, result.highHz), search);
}

std::string progressLine(const SweepRequest& request, const SweepResult& soFar) {
    return padLeft(formatFixed(soFar.elapsedSeconds, 1), 6) + " s  " +
           padLeft(spectraText(soFar.spectra()), 13) + "  " + padLeft(rateText(request, soFar), 12) + "  " +
           std::to_string(soFar.lost) + " lost";
}

std::vector<std::string> settingsTable(const SweepRequest& request, const SweepResult& result) {
    const auto row = [](const std::string& name, const std::string& asked, const std::string& realised) {
        return padRight("  " + name, 16) + padRight(asked, 18) + realised;
    };
    const bool bRecorded = request.iq && request.iq->recorded;
    return {row("", bRecorded ? "recorded" : "asked", "realised"),
            row("from", formatFrequency(request.span.minimumHz), formatFrequency(result.lowHz)),
            row("to", formatFrequency(request.span.maximumHz), formatFrequency(result.highHz)),
            row("resolution", resolutionAsked(request), rbwText(result)),
            row("points", "",
                std::to_string(result.history.points()) + ", one each " + formatSI(result.binHz(), "Hz", 5)),
            row("reference", formatSI(request.referenceDbm, "dBm", 4), "")};
}

std::vector<std::string> summaryLines(const SweepRequest& request, const SweepResult& result) {
    std::vector<std::string> lines{(request.iq ? "Transformed " : "Swept ") + spectraWithTime(result) + " (" +
                                   toText(result.ending) + ")"};
    if (result.spectra() == 0)
        return lines;
    lines.back() +=
        ", " + rateText(request, result) +
        (result.lost ? ", " + std::to_string(result.lost) + " lost: they came faster than they were taken"
                     : "");
    lines.push_back("Points: " + std::to_string(result.history.points()) + ", resolution bandwidth " +
                    rbwText(result) + " (" + request.window + ")");
    if (result.otherShapes > 0)
        lines.push_back(spectraText(result.otherShapes) + " of another number of points " +
                        (request.path.empty() ? "" : "in the file, and ") + "not in these figures");
    lines.push_back("Noise: " + noiseText(result));
    if (!request.path.empty() && request.path != "-")
        lines.push_back("Written: " + request.path + ", " + formatBytes(result.bytesWritten) + " of " +
                        formatText(request.format));
    return lines;
}

std::vector<std::string> peakLines(const SweepResult& result) {
    if (result.peaks.empty())
        return {"Peaks: none"};
    std::vector<std::string> lines{"Peaks      frequency         level   above noise   as a tone"};
    for (size_t i = 0; i < result.peaks.size(); ++i) {
        const Peak& peak = result.peaks[i];
        lines.push_back(padLeft(std::to_string(i + 1), 4) +
                        padLeft(formatPeakFrequency(peak.frequencyHz, result.binHz()), 16) +
                        padLeft(formatFixed(peak.dbm, 1) + " dBm", 14) +
                        padLeft(formatFixed(peak.dbm - result.floorDbm, 0) + " dB", 14) +
                        padLeft(formatFixed(peak.topDbm + result.toneCorrectionDb(), 1) + " dBm", 12));
    }
    return lines;
}

nlohmann::ordered_json toJson(const SweepRequest& request, const SweepResult& result) {
    nlohmann::ordered_json json{
        {request.iq && request.iq->recorded ? "recording" : "address", request.address}};
    json["asked"] = {{"minimumHz", request.span.minimumHz},
                     {"maximumHz", request.span.maximumHz},
                     {"rbwHz", request.span.rbwHz},
                     {"referencedBm", request.referenceDbm},
                     {"window", request.window},
                     {"spectra", request.spectra}};
    if (request.seconds)
        json["asked"]["seconds"] = *request.seconds;
    if (request.iq) {
        json["asked"]["overlap"] = request.iq->overlap;
        json["asked"]["follow"] = request.iq->follow;
        if (request.iq->average)
            json["asked"]["average"] = *request.iq->average;
        json["otherShapes"] = result.otherShapes;
    }
    json["ending"] = toText(result.ending);
    json["spectra"] = result.spectra();
    json["lost"] = result.lost;
    json["elapsedSeconds"] = result.elapsedSeconds;
    if (result.spectra() > 0) {
        json["realised"] = {{"minimumHz", result.lowHz},
                            {"maximumHz", result.highHz},
                            {"rbwHz", result.rbwHz},
                            {"points", result.history.points()},
                            {"pointHz", result.binHz()}};
        if (request.iq)
            json["spectraPerSecond"] = result.spectraPerSecond();
        else
            json["hertzPerSecond"] = result.hertzPerSecond();
        json["noise"] = {{"dBm", result.floorDbm}, {"dBmPerHz", result.floorDbmPerHz()}};
        nlohmann::ordered_json peaks = nlohmann::ordered_json::array();
        for (const Peak& peak : result.peaks)
            peaks.push_back({{"frequencyHz", peak.frequencyHz},
                             {"dBm", peak.dbm},
                             {"toneDbm", peak.topDbm + result.toneCorrectionDb()}});
        json["peaks"] = peaks;
    }
    if (!request.path.empty()) {
        json["file"] = request.path;
        json["bytes"] = result.bytesWritten;
    }
    if (!request.picturePath.empty())
        json["picture"] = request.picturePath;
    return json;
}

std::vector<uint8_t> drawPicture(const SweepRequest& request, const SweepResult& result) {
    const Spectrum strongest = result.history.strongest(result.lowHz, result.highHz);
    Spectrum mean = result.history.mean(result.lowHz, result.highHz);
    Spectrum weakest;
    PictureContent content;
    content.title =
        formatFrequency(request.span.minimumHz) + " to " + formatFrequency(request.span.maximumHz);
    content.source = request.address.substr(request.address.rfind('/') + 1) + ", " +
                     formatTime(result.firstTime).substr(0, 19) + " UTC";
    content.settings = "resolution " + rbwText(result) + " (" + request.window + "), reference " +
                       formatSI(request.referenceDbm, "dBm", 4) + ", " + spectraWithTime(result) + ", " +
                       rateText(request, result) + ", noise " + formatFixed(result.floorDbmPerHz(), 1) +
                       " dBm/Hz";
    content.lowHz = result.lowHz;
    content.highHz = std::max(result.highHz, result.lowHz + 1);
    content.strongest = &strongest;
    content.mean = &mean;
    if (result.traces.any() && result.traces.average.size() == strongest.dbm.size()) {
        weakest = traceSpectrum(strongest, result.traces.minimum);
        mean = traceSpectrum(strongest, result.traces.average);
        content.weakest = &weakest;
    }
    content.waterfall = &result.history.waterfall();
    content.floorDbm = result.floorDbm;
    content.peaks = result.peaks;
    content.binHz = result.binHz();
    return drawPicture(content);
}

}  // namespace cli
