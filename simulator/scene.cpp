#include "simulator/scene.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace vnksim {
namespace {

float component(const std::vector<char>& bytes, size_t index, const std::string& format) {
    const auto byte = [&bytes](size_t place) { return static_cast<unsigned char>(bytes[place]); };
    if (format == "cs16") {
        const auto value = static_cast<int16_t>(byte(2 * index) | byte(2 * index + 1) << 8);
        return static_cast<float>(value) / 32768.0f;
    }
    if (format == "cs8") {
        return static_cast<float>(static_cast<int8_t>(byte(index))) / 128.0f;
    }
    return (static_cast<float>(byte(index)) - 127.5f) / 127.5f;
}

}  // namespace

Scene& Scene::add(const Tone& tone) {
    emitters.emplace_back(std::in_place_type<Tone>, tone);
    return *this;
}

Scene& Scene::add(const FmStation& station) {
    emitters.emplace_back(std::in_place_type<FmStation>, station);
    return *this;
}

Scene& Scene::add(const AmStation& station) {
    emitters.emplace_back(std::in_place_type<AmStation>, station);
    return *this;
}

Scene& Scene::add(const Burst& burst) {
    emitters.emplace_back(std::in_place_type<Burst>, burst);
    return *this;
}

Scene& Scene::add(const Recording& recording) {
    emitters.emplace_back(std::in_place_type<Recording>, recording);
    return *this;
}

Scene& Scene::tone(double frequencyHz, double levelDbm) {
    return add(Tone{frequencyHz, levelDbm, 0});
}

Scene& Scene::noise(double dbmPerHz) {
    noiseDbmPerHz = dbmPerHz;
    return *this;
}

std::shared_ptr<const Waveform> readRecording(const std::string& path, const std::string& format,
                                              double rateHz) {
    if (format != "cs16" && format != "cs8" && format != "cu8") {
        throw std::runtime_error(path + ": unknown format '" + format + "'");
    }
    if (!(rateHz > 0)) {
        throw std::runtime_error(path + ": the rate must be above 0");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path + ": cannot be opened");
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    const size_t count = bytes.size() / (format == "cs16" ? 4 : 2);
    if (count == 0) {
        throw std::runtime_error(path + ": holds no samples");
    }
    auto waveform = std::make_shared<Waveform>();
    waveform->rateHz = rateHz;
    waveform->samples.resize(count);
    for (size_t i = 0; i < count; ++i) {
        waveform->samples[i] = {component(bytes, 2 * i, format), component(bytes, 2 * i + 1, format)};
    }
    return waveform;
}

}  // namespace vnksim
