#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "simulator/scene.h"
#include "simulator/voices.h"

namespace vnksim {
namespace {

using Json = nlohmann::json;

double number(const Json& item, const char* key) {
    if (!item.contains(key) || !item[key].is_number()) {
        throw std::runtime_error(std::string("'") + key + "' must be a number");
    }
    return item[key].get<double>();
}

double numberOr(const Json& item, const char* key, double otherwise) {
    return item.contains(key) ? number(item, key) : otherwise;
}

std::string word(const Json& item, const char* key) {
    if (!item.contains(key) || !item[key].is_string()) {
        throw std::runtime_error(std::string("'") + key + "' must be a text");
    }
    return item[key].get<std::string>();
}

std::vector<AudioTone> audioTones(const Json& item, const char* amount) {
    std::vector<AudioTone> tones;
    if (item.contains("audio")) {
        for (const Json& tone : item["audio"]) {
            tones.push_back({number(tone, "frequencyHz"), number(tone, amount)});
        }
    }
    return tones;
}

/// A part of a recording.
std::shared_ptr<const Waveform> cut(const Waveform& whole, double startSec, double seconds) {
    const double length = static_cast<double>(whole.samples.size());
    const double from = std::round(startSec * whole.rateHz);
    const double to = std::round((startSec + seconds) * whole.rateHz);
    if (!(from >= 0) || !(to > from) || to > length) {
        throw std::runtime_error("'startSec' and 'seconds' must name a part of the recording");
    }
    const auto at = whole.samples.begin();
    auto part = std::make_shared<Waveform>();
    part->rateHz = whole.rateHz;
    part->samples.assign(at + static_cast<std::ptrdiff_t>(from), at + static_cast<std::ptrdiff_t>(to));
    return part;
}

Recording recording(const Json& item, const std::filesystem::path& folder) {
    const std::filesystem::path path = folder / word(item, "file");
    auto waveform = readRecording(path.string(), word(item, "format"), number(item, "rateHz"));
    if (item.contains("seconds")) {
        waveform = cut(*waveform, numberOr(item, "startSec", 0), number(item, "seconds"));
    }
    return {number(item, "frequencyHz"), number(item, "levelDbm"), std::move(waveform)};
}

Emitter emitter(const Json& item, const std::filesystem::path& folder) {
    const std::string type = word(item, "type");
    if (type == "recording") {
        return recording(item, folder);
    }
    const double frequency = number(item, "frequencyHz");
    const double level = number(item, "levelDbm");
    if (type == "tone") {
        return Tone{frequency, level, numberOr(item, "phaseTurns", 0)};
    }
    if (type == "fm") {
        FmStation station{frequency, level, audioTones(item, "deviationHz")};
        // Says here, with its place in the file, what would otherwise come out at the first use.
        fmWaveform(station);
        return station;
    }
    if (type == "am") {
        return AmStation{frequency, level, audioTones(item, "depth")};
    }
    if (type == "burst") {
        return Burst{frequency,
                     level,
                     numberOr(item, "startSec", 0),
                     number(item, "onSec"),
                     number(item, "periodSec"),
                     numberOr(item, "rampSec", 5e-6)};
    }
    throw std::runtime_error("unknown emitter type '" + type + "'");
}

}  // namespace

Scene readScene(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(path + ": cannot be opened");
    }
    Scene scene;
    size_t place = 0;
    try {
        const Json json = Json::parse(file);
        if (json.contains("noiseDbmPerHz")) {
            scene.noise(number(json, "noiseDbmPerHz"));
        }
        for (const Json& item : json.value("emitters", Json::array())) {
            ++place;
            scene.emitters.push_back(emitter(item, std::filesystem::path(path).parent_path()));
        }
    } catch (const std::exception& error) {
        const std::string where = place > 0 ? ": emitter " + std::to_string(place) : std::string();
        throw std::runtime_error(path + where + ": " + error.what());
    }
    return scene;
}

}  // namespace vnksim
