#include "tools/report.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "tools/units.h"

namespace cli {

namespace {

std::string pad(std::string text, size_t width) {
    if (text.size() < width)
        text.append(width - text.size(), ' ');
    return text;
}

std::string padLeft(const std::string& text, size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string windowText(double sampleRateHz) {
    const LevelWindow window = goodWindow(sampleRateHz);
    return formatFixed(window.low, 0) + " to " + formatFixed(window.high, 0);
}

std::string peakText(const CaptureResult& result) {
    // Only a unit tells how far its converter is used.
    if (result.judgement() == LevelJudgement::unknown)
        return result.peakDbm > -999 ? "peak " + formatFixed(result.peakDbm, 1) + " dBm"
                                     : "peak not yet known";
    return "peak " + formatFixed(result.peakDbfs, 1) + " dBFS, " + toText(result.judgement()) + " (" +
           windowText(result.sampleRateHz) + ")";
}

nlohmann::ordered_json decibels(double value) {
    if (value > -999)
        return value;
    return nullptr;
}

std::map<uint32_t, size_t> framesByAircraft(const std::vector<ModeSFrame>& frames) {
    std::map<uint32_t, size_t> counts;
    for (const ModeSFrame& frame : frames)
        ++counts[frame.aircraft()];
    return counts;
}

std::string aircraftText(uint32_t aircraft) {
    std::string text;
    for (int iShift = 20; iShift >= 0; iShift -= 4)
        text += "0123456789ABCDEF"[(aircraft >> iShift) & 15];
    return text;
}

size_t countFormat(const std::vector<ModeSFrame>& frames, unsigned format) {
    return static_cast<size_t>(std::count_if(frames.begin(), frames.end(), [format](const ModeSFrame& frame) {
        return frame.format() == format;
    }));
}

std::vector<std::string> toneLines(const std::vector<DetectedTone>& tones) {
    if (tones.empty())
        return {"Tones of the AM envelope: none"};
    std::vector<std::string> lines{"Tones of the AM envelope:"};
    for (const DetectedTone& tone : tones) {
        std::string line = padLeft(formatFixed(tone.frequencyHz, tone.widthHz > 0 ? 0 : 2), 12) + " Hz" +
                           padLeft(formatFixed(100 * tone.amplitude, 1), 8) + " % of the carrier";
        if (tone.widthHz > 0)
            line += ", " + formatFixed(tone.widthHz, 0) + " Hz wide";
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> modeSLines(const std::vector<ModeSFrame>& frames) {
    if (frames.empty())
        return {"Mode S: no frame with right parity"};
    std::vector<std::string> lines{"Mode S: " + formatCount(frames.size(), "frame") + " with right parity, " +
                                   std::to_string(countFormat(frames, 17)) + " of format 17, " +
                                   std::to_string(countFormat(frames, 11)) + " of format 11"};
    for (const auto& [uAircraft, uCount] : framesByAircraft(frames)) {
        lines.push_back("  aircraft " + aircraftText(uAircraft) + ": " + formatCount(uCount, "frame"));
        if (lines.size() > 8)
            break;
    }
    for (size_t i = 0; i < std::min<size_t>(3, frames.size()); ++i)
        lines.push_back("  at " + padLeft(formatFixed(1e3 * frames[i].seconds, 3), 9) + " ms  " +
                        frames[i].hex());
    return lines;
}

nlohmann::ordered_json detectionJson(const CaptureRequest& request, const CaptureResult& result) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    if (request.detect == Detect::am) {
        for (const DetectedTone& tone : result.tones)
            list.push_back({{"frequencyHz", tone.frequencyHz},
                            {"amplitude", tone.amplitude},
                            {"widthHz", tone.widthHz}});
        return {{"kind", "am"}, {"tones", list}};
    }
    for (const auto& [uAircraft, uCount] : framesByAircraft(result.modeS))
        list.push_back({{"address", aircraftText(uAircraft)}, {"frames", uCount}});
    return {{"kind", "modes"},
            {"format17", countFormat(result.modeS, 17)},
            {"format11", countFormat(result.modeS, 11)},
            {"aircraft", list}};
}

}  // namespace

std::string toText(Ending ending) {
    switch (ending) {
        case Ending::complete:
            return "complete";
        case Ending::interrupted:
            return "interrupted";
        case Ending::readerGone:
            return "reader gone";
        case Ending::ended:
            return "ended by the unit";
        case Ending::linkLost:
            return "link lost";
        case Ending::diskFull:
            return "too little room left on the disk";
        case Ending::writeFailed:
            return "writing failed";
        case Ending::noData:
            break;
    }
    return "no data";
}

Exit exitFor(Ending ending) {
    switch (ending) {
        case Ending::complete:
        case Ending::interrupted:
        case Ending::readerGone:
            return Exit::done;
        case Ending::linkLost:
            return Exit::linkLost;
        case Ending::diskFull:
        case Ending::writeFailed:
            return Exit::file;
        case Ending::ended:
        case Ending::noData:
            break;
    }
    return Exit::failure;
}

std::string progressLine(const CaptureResult& soFar) {
    const auto dTimed = static_cast<double>(soFar.samples - std::min(soFar.samples, soFar.firstSamples));
    const double dRate = soFar.elapsedSeconds > 0 ? dTimed / soFar.elapsedSeconds / 1e6 : 0;
    const double dMegabytes = static_cast<double>(soFar.samples) * 8 / 1e6;
    return padLeft(formatFixed(soFar.elapsedSeconds, 1), 6) + " s  " + padLeft(formatFixed(dRate, 3), 7) +
           " Msps  " + padLeft(formatFixed(dMegabytes, 1), 7) + " MB  " + formatCount(soFar.gaps, "gap") +
           "  " + peakText(soFar);
}

std::vector<std::string> settingsTable(const CaptureRequest& request, const CaptureResult& result) {
    const auto row = [](const std::string& name, const std::string& asked, const std::string& realised) {
        return pad("  " + name, 16) + pad(asked, 18) + realised;
    };
    std::vector<std::string> lines{row("", "asked", "realised")};
    lines.push_back(row("centre", formatFrequency(request.centreHz), formatFrequency(result.centreHz)));
    lines.push_back(
        row("bandwidth", formatFrequency(request.bandwidthHz), formatFrequency(result.bandwidthHz)));
    lines.push_back(row("sample rate", "", formatSI(result.sampleRateHz, "S/s")));
    lines.push_back(row("reference", formatSI(request.referenceDbm, "dBm", 4),
                        result.referenceDbm ? formatSI(*result.referenceDbm, "dBm", 4) : ""));
    return lines;
}

std::vector<std::string> summaryLines(const CaptureRequest& request, const CaptureResult& result,
                                      const std::string& done) {
    std::vector<std::string> lines;
    lines.push_back(done + " " + std::to_string(result.samples) + " samples, " +
                    formatFixed(result.seconds(), 3) + " s (" + toText(result.ending) + "), " +
                    formatCount(result.gaps, "gap") +
                    (result.passes > 1 ? ", " + std::to_string(result.passes) + " passes" : "") +
                    (result.overflows ? ", " + formatCount(result.overflows, "overflow") : "") +
                    (result.invalids ? ", " + formatCount(result.invalids, "invalid frame") : ""));
    if (result.samples == 0)
        return lines;
    lines.push_back("Level: strongest sample " + formatFixed(result.peakDbm, 1) + " dBm, mean power " +
                    formatFixed(result.meanDbm, 1) + " dBm");
    if (result.judgement() != LevelJudgement::unknown)
        lines.back() += "; " + peakText(result);
    if (const std::string hint = advice(result.judgement()); !hint.empty())
        lines.back() += ": " + hint;
    if (result.spectrum.averages > 0) {
        const SpectrumPeak peak = result.peak();
        lines.push_back("Strongest: " + formatFixed(peak.dbm, 1) + " dBm at " +
                        formatFrequency(peak.frequencyHz) + "; floor " + formatFixed(peak.floorDbmPerHz, 1) +
                        " dBm/Hz");
    }
    if (!request.path.empty() && request.path != "-")
        lines.push_back("Written: " + request.path + ", " +
                        formatFixed(static_cast<double>(result.bytesWritten) / 1e6, 1) +
                        " MB of 32-bit float I and Q in square roots of milliwatts");
    return lines;
}

std::vector<std::string> detectionLines(const CaptureRequest& request, const CaptureResult& result) {
    switch (request.detect) {
        case Detect::am:
            return toneLines(result.tones);
        case Detect::modes:
            return modeSLines(result.modeS);
        case Detect::none:
            break;
    }
    return {};
}

nlohmann::ordered_json toJson(const CaptureRequest& request, const CaptureResult& result) {
    nlohmann::ordered_json json;
    json["address"] = request.address;
    json["asked"] = {{"centreHz", request.centreHz},
                     {"bandwidthHz", request.bandwidthHz},
                     {"referencedBm", request.referenceDbm},
                     {"seconds", request.seconds}};
    json["realised"] = {{"centreHz", result.centreHz},
                        {"bandwidthHz", result.bandwidthHz},
                        {"sampleRateHz", result.sampleRateHz},
                        {"seconds", result.seconds()}};
    json["realised"]["referencedBm"] =
        result.referenceDbm ? nlohmann::ordered_json(*result.referenceDbm) : nullptr;
    addResult(json, request, result);
    return json;
}

void addResult(nlohmann::ordered_json& json, const CaptureRequest& request, const CaptureResult& result) {
    json["ending"] = toText(result.ending);
    json["elapsedSeconds"] = result.elapsedSeconds;
    json["samples"] = result.samples;
    json["frames"] = result.frames;
    json["gaps"] = result.gaps;
    json["overflows"] = result.overflows;
    json["invalidFrames"] = result.invalids;
    const LevelWindow window = goodWindow(result.sampleRateHz);
    json["level"] = {{"peakdBm", decibels(result.peakDbm)},
                     {"meandBm", decibels(result.meanDbm)},
                     {"peakdBFS", decibels(result.peakDbfs)},
                     {"goodFromdBFS", window.low},
                     {"goodTodBFS", window.high},
                     {"judgement", toText(result.judgement())}};
    if (result.spectrum.averages > 0) {
        const SpectrumPeak peak = result.peak();
        json["spectrum"] = {{"peakHz", peak.frequencyHz},
                            {"peakdBm", decibels(peak.dbm)},
                            {"floordBmPerHz", decibels(peak.floorDbmPerHz)},
                            {"binHz", result.spectrum.binHz},
                            {"averages", result.spectrum.averages}};
    }
    if (request.detect != Detect::none)
        json["detected"] = detectionJson(request, result);
    if (!request.path.empty()) {
        json["file"] = request.path;
        json["bytes"] = result.bytesWritten;
    }
}

}  // namespace cli
